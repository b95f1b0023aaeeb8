// The definitions after they have been read: what Judge works by, and what a comparison of two
// results works by.
#ifndef QUENDIL_VIEW_IGVIEWTABLE_H
#define QUENDIL_VIEW_IGVIEWTABLE_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "view/IGViewQuery.h"
#include "view/IGViewResult.h"
#include "view/IGViewTemplate.h"

/// How a match becomes a number: its capture `value`, or that as a percentage.
struct Measure {
    bool percent = false;     // of the capture `of`, or of the value of the query `of`
    std::optional<Query> of;  // with a capture `value`
    // Formats of strptime(3): `value` is a date by the first one that fits, the number the days to
    // it
    std::vector<std::string> date;
};

struct RuleDefinition {
    std::string name;
    Weight weight = Weight::NOTICE;
    std::string title;
    std::vector<Template> texts;  // one, or one for each expression of `query.find`
    std::string remedy;
    Query query;
    Measure measure;
    std::optional<double> above;
    std::optional<double> below;
    std::uint64_t bits = 0;  // the value has one of them
    std::vector<std::pair<std::uint64_t, std::string>> names_of_bits;
    std::size_t at_least = 1;
    bool absent = false;  // found if an item answers and no line matches
    bool same = false;    // the items tell the same: only the first one with a match counts

    [[nodiscard]] bool measured() const { return above || below || bits != 0; }
};

struct FactDefinition {
    std::string name;
    std::string group;
    std::string label;
    Template value;
    Query query;
    bool all = false;
};

struct ChartDefinition {
    std::string name;
    std::string title;
    std::string unit;
    ChartKind kind = ChartKind::BARS;
    double most = 0;
    std::size_t rows = 0;
    Template label;
    Template note;
    Query query;
    Measure measure;
    bool rest = false;                                        // what is left to `of`, or to 100
    bool sorted = false;                                      // of bars: the largest value first
    std::vector<std::pair<std::string, std::string>> values;  // captures and labels of several rows
};

/// What --diff compares: the sets of keys, and for keys in both, the values. Keys in different
/// items, or with another capture `part`, are different ones. A capture `more` continues the value.
struct ComparisonDefinition {
    std::string name;
    std::string title;
    Query query;               // with captures `key` and, if there are values, `value`
    bool is_volatile = false;  // changes by itself: compared only with --all
};

struct DefinitionTable {
    std::vector<RuleDefinition> rules;
    std::vector<FactDefinition> facts;
    std::vector<ChartDefinition> charts;
    std::vector<ComparisonDefinition> comparisons;
};

#endif
