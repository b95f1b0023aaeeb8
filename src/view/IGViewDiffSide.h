// What is kept of one of two results until they are compared.
#ifndef QUENDIL_VIEW_IGVIEWDIFFSIDE_H
#define QUENDIL_VIEW_IGVIEWDIFFSIDE_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "view/IGViewDiff.h"
#include "view/IGViewQuery.h"
#include "view/IGViewScan.h"
#include "view/IGViewTable.h"

/// More entries of one comparison are not kept, and their files not compared.
inline constexpr std::size_t MOST_ENTRIES = 200000;
/// The same for the bytes of all entries of a result.
inline constexpr std::size_t MOST_ENTRY_BYTES = std::size_t{48} * 1024 * 1024;
/// The same for the lines of all files of a result that are compared line by line.
inline constexpr std::size_t MOST_COMPARED_LINES = 2000000;
/// More bytes of such lines are not shown: then the lines are only counted.
inline constexpr std::size_t MOST_SHOWN_BYTES = std::size_t{8} * 1024 * 1024;

/// A line that a comparison has found. The numbers stand for the whole texts, of which only the
/// beginnings are kept.
struct DiffEntry {
    std::string key;
    std::string value;
    std::uint64_t key_hash = 0;
    std::uint64_t value_hash = 0;
    std::uint64_t line = 0;
};

/// What one item says to one comparison.
struct DiffItem {
    std::vector<DiffEntry> entries;  // sorted by key and value; none of them twice
    std::string reason;              // why it cannot be compared; "" if it can
    bool silent = false;             // it has no answer: then it is as good as missing
    bool none = false;               // it reports that there is nothing of this kind
    bool named = false;              // the query has its full name, and not only a wildcard
};

/// The lines of an item, without their order.
struct DiffLines {
    std::vector<std::uint64_t> hashes;  // sorted
    std::uint64_t hash = 0;             // of all lines in their order
    std::uint64_t size = 0;             // bytes
    std::string reason;                 // why it cannot be compared; "" if it can
    bool binary = false;
};

/// Collects it while the archive is read.
class DiffSide final : public LineTaker {
  public:
    /// @param comparisons must outlive it
    /// @param all whether the lines of the files that no comparison reads are kept too
    DiffSide(const std::vector<const ComparisonDefinition*>& comparisons, bool all);

    bool begin(const std::string& name) override;
    void line(std::string_view text) override;
    void end(const Item& item) override;

    /// What the items say to one of the comparisons, by their names.
    [[nodiscard]] const std::map<std::string, DiffItem>& items(std::size_t comparison) const {
        return items_[comparison];
    }
    /// The files that no comparison reads, by their names.
    [[nodiscard]] const std::map<std::string, DiffLines>& lines() const { return lines_; }

  private:
    void take(std::size_t position, const Match& match);
    void finish(std::size_t position, const Item& item);
    void takeLine(std::string_view text);
    void finishLines(const Item& item);

    const std::vector<const ComparisonDefinition*>& comparisons_;
    QueryIndex index_;
    ItemReader reader_;
    std::vector<std::map<std::string, DiffItem>> items_;
    std::vector<std::size_t> entries_;  // of each comparison so far
    std::map<std::string, DiffLines> lines_;
    std::size_t bytes_ = 0;  // of all entries
    std::size_t line_count_ = 0;
    bool all_;

    std::vector<QueryIndex::Use> uses_;  // of the item that is read
    std::vector<DiffItem*> open_;        // one for each of them; null if the name was there before
    DiffLines* open_lines_ = nullptr;
    ItemReader::Found found_ = [this](std::size_t position, const Match& match) {
        take(position, match);
        return Want::CAPTURES;
    };
};

/// Where the lines that one result has and the other one lacks go.
struct WantedLines {
    const DiffLines* other;        // of the same item in the other result
    std::vector<OnlyLine>* lines;  // at most MOST_SHOWN_LINES
};

/// Finds the first of them when an archive is read again.
class LinePicker final : public LineTaker {
  public:
    /// @param wanted by names of items
    explicit LinePicker(std::map<std::string, WantedLines> wanted) : wanted_(std::move(wanted)) {}

    bool begin(const std::string& name) override;
    void line(std::string_view text) override;
    void end(const Item& item) override;

  private:
    std::map<std::string, WantedLines> wanted_;
    std::vector<std::pair<std::uint64_t, std::size_t>> other_;  // hashes, and how many are left
    std::vector<OnlyLine>* lines_ = nullptr;                    // of the item that is read
    std::uint64_t number_ = 0;
    std::size_t bytes_ = 0;  // of all lines
};

#endif
