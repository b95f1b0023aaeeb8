// Reads the run log and the index of a result. docs/formats.md describes both. Nothing in them is
// trusted: lines that are not understood are skipped.
#ifndef QUENDIL_VIEW_IGVIEWLOG_H
#define QUENDIL_VIEW_IGVIEWLOG_H

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "view/IGViewResult.h"

/// Takes the lines of "quendil.log" in their order.
class LogReader {
  public:
    explicit LogReader(RunLog& run) : run_(run) {}

    void line(std::string_view text);
    /// Sets the items of the tools' outputs.
    /// @param items numbers of items by name
    void finish(const std::unordered_map<std::string, std::uint32_t>& items);

  private:
    void message(std::string_view id, std::string_view text);
    void detail(std::string_view text);
    void parameter(std::string_view name, std::string_view value);
    void count(std::string_view id);
    void startTool();
    void endTool();
    void collected(std::string_view text);
    void toolMessage(std::string_view id);
    std::int64_t seconds(std::string_view time);

    enum class Section : std::uint8_t { OTHER, PARAMETERS, TOOL_START, TOOL_END };

    RunLog& run_;
    Section section_ = Section::OTHER;
    std::uint64_t number_ = 0;          // of the line
    bool in_tool_ = false;              // between the start and the end of the last tool
    std::size_t unmatched_ = 0;         // tools that ended since the last output was collected
    std::vector<std::string> outputs_;  // of the tools, by their numbers: names of items
    std::unordered_map<std::string, std::size_t> counts_;  // places in RunLog::counts
};

/// Takes the lines of "quendil_index" in their order.
class IndexReader {
  public:
    explicit IndexReader(std::vector<IndexRecord>& records) : records_(records) {}

    void line(std::string_view text);

    /// The record of an item; NONE if the index has none.
    [[nodiscard]] std::uint32_t recordOf(const std::string& name) const;

  private:
    std::vector<IndexRecord>& records_;
    std::unordered_map<std::string, std::uint32_t> files_;
    std::size_t bytes_ = 0;  // of memory, roughly
    bool open_ = false;      // a record has begun
};

/// The seconds since 1970 of a time such as "2026/11/23 16:25:38", as if it were UTC; -1 for
/// another text.
std::int64_t timeOf(std::string_view text);

#endif
