#include "view/IGViewJudge.h"

#include <algorithm>
#include <array>
#include <deque>
#include <utility>
#include <vector>

#include "view/IGViewQuery.h"
#include "view/IGViewTable.h"
#include "view/IGViewVerdict.h"

namespace {

struct Reading {
    const Query* query;
    Taker* taker;
};

template <typename AnyTaker, typename Definition>
void addTakers(const std::vector<Definition>& definitions, std::deque<AnyTaker>& takers,
               std::vector<Reading>& readings) {
    for (const Definition& definition : definitions) {
        takers.emplace_back(definition);
        readings.push_back({&definition.query, &takers.back()});
        if constexpr (requires { takers.back().of(); }) {
            if (takers.back().of() != nullptr) {
                readings.push_back({&*definition.measure.of, takers.back().of()});
            }
        }
    }
}

std::vector<const Query*> queriesOf(const std::vector<Reading>& readings) {
    std::vector<const Query*> queries;
    queries.reserve(readings.size());
    for (const Reading& reading : readings) {
        queries.push_back(reading.query);
    }
    return queries;
}

}  // namespace

class Judge::State {
  public:
    explicit State(const DefinitionTable& table)
        : readings_(readAll(table)), index_(queriesOf(readings_)) {}

    bool begin(std::uint32_t item, std::string_view name);
    void line(std::string_view text);
    void finish(Result& result);

  private:
    std::vector<Reading> readAll(const DefinitionTable& table);
    void end();

    std::deque<RuleTaker> rules_;
    std::deque<FactTaker> facts_;
    std::deque<ChartTaker> charts_;
    std::vector<Reading> readings_;  // by query
    QueryIndex index_;
    ItemReader reader_;

    std::string name_;  // of the item that is read
    CurrentItem item_;
    std::vector<QueryIndex::Use> uses_;  // the queries that read it
    ItemReader::Found found_ = [this](std::size_t position, const Match& match) {
        const QueryIndex::Use use = uses_[position];
        return readings_[use.query].taker->take(item_, use.wildcard, match);
    };
};

std::vector<Reading> Judge::State::readAll(const DefinitionTable& table) {
    std::vector<Reading> readings;
    addTakers(table.rules, rules_, readings);
    addTakers(table.facts, facts_, readings);
    addTakers(table.charts, charts_, readings);
    return readings;
}

void Judge::State::end() {
    for (std::size_t position = 0; position < uses_.size(); ++position) {
        readings_[uses_[position].query].taker->answered(item_, reader_.answer(position),
                                                         reader_.reason());
    }
    uses_.clear();
}

bool Judge::State::begin(std::uint32_t item, std::string_view name) {
    end();
    name_ = name;
    item_ = {item, name_};
    uses_ = index_.find(name);
    if (uses_.empty()) {
        return false;
    }
    std::vector<const Query*> queries;
    for (const QueryIndex::Use& use : uses_) {
        queries.push_back(readings_[use.query].query);
    }
    reader_.begin(queries);
    return true;
}

void Judge::State::line(std::string_view text) {
    if (!uses_.empty()) {
        reader_.line(text, found_);
    }
}

void Judge::State::finish(Result& result) {
    end();
    for (RuleTaker& rule : rules_) {
        result.findings.push_back(rule.finding(result));
    }
    const auto rank = [](const Finding& finding) {
        constexpr std::array<int, 3> ORDER{0, 2, 1};  // of verdicts: CLEAR is the last
        return std::pair(ORDER[static_cast<std::size_t>(finding.verdict)], finding.weight);
    };
    std::stable_sort(
        result.findings.begin(), result.findings.end(),
        [&](const Finding& one, const Finding& other) { return rank(one) < rank(other); });
    for (const FactTaker& fact : facts_) {
        fact.addTo(result.facts);
    }
    for (ChartTaker& chart : charts_) {
        chart.addTo(result.charts);
    }
}

Judge::Judge(const Definitions& definitions)
    : state_(std::make_unique<State>(definitions.table())) {
}
Judge::~Judge() = default;

bool Judge::begin(std::uint32_t item, std::string_view name) {
    return state_->begin(item, name);
}

void Judge::line(std::string_view text) {
    state_->line(text);
}

void Judge::finish(Result& result) {
    state_->finish(result);
}
