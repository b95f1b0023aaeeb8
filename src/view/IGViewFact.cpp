// Facts and charts of the summary.
#include <algorithm>
#include <map>

#include "view/IGViewNumber.h"
#include "view/IGViewVerdict.h"

namespace {

constexpr std::size_t MOST_FACTS = 20;  // of one definition

}  // namespace

Want FactTaker::take(const CurrentItem& item, std::uint32_t wildcard, const Match& match) {
    const std::size_t most = definition_.all ? MOST_FACTS : 1;
    if (!definition_.all && wildcard < wildcard_) {
        facts_.clear();
        wildcard_ = wildcard;
    }
    if (facts_.size() < most) {
        const Kept kept(item, match);
        facts_.push_back({definition_.group, definition_.label, filledFrom(definition_.value, kept),
                          kept.place});
    }
    return facts_.size() < most ? Want::CAPTURES : Want::NOTHING;
}

void FactTaker::addTo(std::vector<Fact>& facts) const {
    const auto known = [&](const Fact& fact) {
        return fact.group == definition_.group && fact.label == definition_.label;
    };
    if (std::none_of(facts.begin(), facts.end(), known)) {
        facts.insert(facts.end(), facts_.begin(), facts_.end());
    }
}

Want ChartTaker::take(const CurrentItem& item, std::uint32_t /*wildcard*/, const Match& match) {
    if (rows_.size() >= definition_.rows) {
        return Want::NOTHING;
    }
    const Kept kept(item, match);
    if (definition_.values.empty()) {
        addRow(kept, filledFrom(definition_.label, kept), match["value"], match["of"]);
    }
    for (const auto& [capture, label] : definition_.values) {
        addRow(kept, label, match[capture], match["of"]);
    }
    return Want::CAPTURES;
}

void ChartTaker::addRow(const Kept& kept, const std::string& label, std::string_view value,
                        std::string_view of) {
    std::optional<double> number = readNumber(value);
    if (number && definition_.measure.percent && !definition_.measure.of) {
        const std::optional<double> whole = readNumber(of);
        number = whole && *whole > 0 ? std::optional(100 * *number / *whole) : std::nullopt;
    }
    if (number) {
        rows_.push_back(
            {label, kept.capture("when"), *number, filledFrom(definition_.note, kept), kept.place});
    }
}

void ChartTaker::addTo(std::vector<Chart>& charts) {
    const bool waits = definition_.measure.of.has_value();
    if (rows_.empty() || (waits && (!of_.value || *of_.value <= 0))) {
        return;
    }
    for (ChartRow& row : rows_) {
        row.value = waits ? 100 * row.value / *of_.value : row.value;
        row.value = definition_.rest ? 100 - row.value : row.value;
    }
    if (definition_.sorted) {
        std::stable_sort(
            rows_.begin(), rows_.end(),
            [](const ChartRow& one, const ChartRow& other) { return one.value > other.value; });
    } else if (definition_.kind == ChartKind::LINES) {
        // The points of a line follow one another, the lines in the order of their first points.
        std::map<std::string, std::size_t> places;
        for (const ChartRow& row : rows_) {
            places.try_emplace(row.label, places.size());
        }
        std::stable_sort(rows_.begin(), rows_.end(),
                         [&](const ChartRow& one, const ChartRow& other) {
                             return places.at(one.label) < places.at(other.label);
                         });
    }
    charts.push_back({definition_.name, definition_.title, definition_.unit, definition_.kind,
                      definition_.most, std::move(rows_)});
}
