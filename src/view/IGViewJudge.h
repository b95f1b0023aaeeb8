// Judges the result of a run by definitions: rules that find what is wrong, facts for the summary,
// and charts. All of them are data: see IGViewDefinition.h.
#ifndef QUENDIL_VIEW_IGVIEWJUDGE_H
#define QUENDIL_VIEW_IGVIEWJUDGE_H

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "view/IGViewDefinition.h"
#include "view/IGViewResult.h"

/// Reads the lines of all items, one item after the other, and keeps only what the definitions
/// need: its memory does not depend on the size of the items.
class Judge {
  public:
    /// @param definitions must outlive the judge
    explicit Judge(const Definitions& definitions);
    ~Judge();
    Judge(const Judge&) = delete;
    Judge& operator=(const Judge&) = delete;

    /// Begins an item. False if no definition reads it: then its lines need not be given.
    /// @param item its number in Result::items
    bool begin(std::uint32_t item, std::string_view name);
    /// The next line of the item, without its line feed. A long line may be truncated.
    void line(std::string_view text);

    /// Writes findings, facts and charts into the result, after all items; it reads `run`.
    void finish(Result& result);

  private:
    class State;
    std::unique_ptr<State> state_;
};

#endif
