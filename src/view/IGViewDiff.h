// The differences of two results. Every text is from an archive: it may be hostile, and is made
// safe where it is written.
#ifndef QUENDIL_VIEW_IGVIEWDIFF_H
#define QUENDIL_VIEW_IGVIEWDIFF_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "view/IGViewResult.h"

/// Lines that are shown of each file of which all lines are compared.
inline constexpr std::size_t MOST_SHOWN_LINES = 20;

/// What is known of one of the two results.
struct DiffHead {
    std::string path;  // as it was named
    std::string name;  // of its top directory
    std::string host;
    std::string started;  // the beginning of the run: "2026/11/23 16:25:38", or ""
    ResultForm form = ResultForm::COMPRESSED;
    bool damaged = false;
    std::vector<std::string> notices;
};

enum class Change : std::uint8_t { CHANGED, ADDED, REMOVED };

/// One difference. What only one result has leaves the fields of the other one empty.
struct Difference {
    Change change = Change::CHANGED;
    std::string item;
    std::string key;  // "" for the whole file
    std::string old_value;
    std::string new_value;
    std::uint64_t old_line = 0;
    std::uint64_t new_line = 0;
    std::size_t entries = 0;  // of a whole file
};

/// An item that one of the results has nothing to say about.
struct NotCompared {
    std::string item;
    std::string old_reason;  // "" if OLD could have been compared
    std::string new_reason;
};

enum class ComparisonState : std::uint8_t {
    DIFFERENT,
    NOT_COMPARED,  // no difference is known, but something could not be compared
    EQUAL,
    NO_DATA  // neither result has it
};

/// What one definition has found.
struct Comparison {
    std::string name;
    std::string title;
    bool is_volatile = false;
    std::vector<Difference> differences;
    std::vector<NotCompared> not_compared;
    std::size_t items = 0;    // that were compared
    std::size_t entries = 0;  // of them in NEW

    [[nodiscard]] ComparisonState state() const {
        if (!differences.empty()) {
            return ComparisonState::DIFFERENT;
        }
        if (!not_compared.empty()) {
            return ComparisonState::NOT_COMPARED;
        }
        return items > 0 ? ComparisonState::EQUAL : ComparisonState::NO_DATA;
    }
};

/// A line that only one of the results has.
struct OnlyLine {
    std::uint64_t line = 0;
    std::string text;  // an excerpt
};

/// A file of which all lines were compared, without regard to their order.
struct FileDifference {
    std::string item;
    std::string reason;  // why it was not compared, or differs without a line that does
    std::size_t added = 0;
    std::size_t removed = 0;
    std::vector<OnlyLine> first_added;  // at most MOST_SHOWN_LINES
    std::vector<OnlyLine> first_removed;
};

struct Diff {
    DiffHead old_head;
    DiffHead new_head;
    std::vector<std::string> warnings;
    std::vector<Comparison> comparisons;  // in the order of the definitions
    bool all = false;                     // the fields below were compared too
    std::vector<FileDifference> files;
    std::vector<std::string> only_old;  // names of items
    std::vector<std::string> only_new;

    [[nodiscard]] bool damaged() const { return old_head.damaged || new_head.damaged; }
};

#endif
