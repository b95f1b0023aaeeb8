#include "view/IGViewVerdict.h"

#include <algorithm>
#include <iterator>

#include "view/IGViewNumber.h"

namespace {

constexpr std::size_t MOST_PLACES = 20;
// Of matches that can be compared only after all items.
constexpr std::size_t MOST_CANDIDATES = 200;
constexpr std::size_t LONGEST_CAPTURE = 200;
// How much of a long line is kept before its match.
constexpr std::size_t BEFORE_MATCH = 100;
constexpr double DAY = 86400;

std::string excerptOf(const Match& match) {
    std::size_t begin = 0;
    if (match.line.size() > LONGEST_EXCERPT && match.begin > BEFORE_MATCH) {
        begin = match.begin - BEFORE_MATCH;
    }
    const std::string_view excerpt = match.line.substr(begin, LONGEST_EXCERPT);
    return std::string(excerpt.substr(0, excerpt.find_last_not_of(" \t\r") + 1));
}

// "a", "a and b", "a, b and c", "a, b, c and others"
std::string namesOf(const std::vector<std::string>& items) {
    constexpr std::size_t MOST = 3;
    std::string text;
    for (std::size_t i = 0; i < std::min(items.size(), MOST); ++i) {
        const bool last = i + 1 == items.size();
        text += (i == 0 ? "" : last ? " and " : ", ") + items[i];
    }
    return items.size() > MOST ? text + " and others" : text;
}

// Why an item that has an answer may lack something; "" if it does not.
std::string whyIncomplete(const Result& result, std::uint32_t number) {
    if (number >= result.items.size()) {
        return "";
    }
    const Item& item = result.items[number];
    if (item.cut) {
        return item.name + " is cut";
    }
    return item.stopped ? item.name + " is not complete: its tool was stopped" : "";
}

}  // namespace

// --- what is kept ---

Kept::Kept(const CurrentItem& item, const Match& match) {
    place = {item.number, match.number, excerptOf(match)};
    for (const auto& [name, value] : match.captures()) {
        captures.emplace_back(name, value.substr(0, LONGEST_CAPTURE));
    }
    captures.emplace_back("item", item.name.substr(0, LONGEST_CAPTURE));
    captures.emplace_back("file", item.name.substr(item.name.rfind('/') + 1, LONGEST_CAPTURE));
}

std::string Kept::capture(std::string_view name) const {
    const auto found = std::find_if(captures.begin(), captures.end(),
                                    [&](const auto& capture) { return capture.first == name; });
    return found == captures.end() ? std::string() : found->second;
}

std::string filledFrom(const Template& form, const Kept& kept) {
    return form.filled({.one = [&](std::string_view name) { return kept.capture(name); },
                        .all = [](std::string_view) { return std::vector<std::string>(); }});
}

// --- which items have answered ---

void Answers::add(const CurrentItem& item, Answer answer, const std::string& reason) {
    const std::string name(item.name);
    if (answer == Answer::FULL) {
        full_.push_back(item.number);
    } else if (answer == Answer::STOPPED) {
        stopped_ = stopped_.empty()
                       ? name + " is not complete: its tool was stopped, or its output was cut"
                       : stopped_;
    } else if (!reason_.empty()) {
        return;
    } else if (answer == Answer::LACKING) {
        reason_ = name + " has no line that could tell";
    } else {
        reason_ = reason.empty() ? name + " is empty" : name + ": " + reason;
    }
}

bool Answers::full(const Result& result, bool same) const {
    const auto complete = [&](std::uint32_t number) {
        return whyIncomplete(result, number).empty();
    };
    return std::any_of(full_.begin(), full_.end(), complete) &&
           (same || (stopped_.empty() && std::all_of(full_.begin(), full_.end(), complete)));
}

std::string Answers::why(const Query& query, const Result& result) const {
    for (const std::uint32_t number : full_) {
        if (std::string why = whyIncomplete(result, number); !why.empty()) {
            return why;
        }
    }
    if (!stopped_.empty() || !reason_.empty()) {
        return stopped_.empty() ? reason_ : stopped_;
    }
    return namesOf(query.items) + (query.items.size() == 1 ? " is" : " are") +
           " not in the archive";
}

Want OfTaker::take(const CurrentItem& /*item*/, std::uint32_t /*wildcard*/, const Match& match) {
    if (!value) {
        value = readNumber(match["value"]);
    }
    return value ? Want::NOTHING : Want::CAPTURES;
}

void OfTaker::answered(const CurrentItem& item, Answer answer, const std::string& reason) {
    answers.add(item, answer, reason);
}

// --- rules ---

RuleTaker::RuleTaker(const RuleDefinition& rule)
    : definition_(rule), seen_(rule.query.items.size(), Seen(rule.texts.size())) {
}

std::size_t RuleTaker::Seen::count() const {
    std::size_t count = 0;
    for (const Matches& matches : by_form) {
        count += matches.count;
    }
    return count;
}

std::size_t RuleTaker::formOf(const Match& match) const {
    return definition_.texts.size() > 1 ? match.expression : 0;
}

// Whether a match can be compared only after all items.
bool RuleTaker::waits() const {
    return definition_.measure.of || !definition_.measure.date.empty();
}

bool RuleTaker::counts(double value) const {
    constexpr double MOST = 9e15;  // whole numbers up to it are exact
    const bool has_bit =
        definition_.bits == 0 ||
        (value >= 0 && value < MOST && (static_cast<std::uint64_t>(value) & definition_.bits) != 0);
    return has_bit && (!definition_.above || value > *definition_.above) &&
           (!definition_.below || value < *definition_.below);
}

// The number of a match; if it waits, what is known of it.
std::optional<double> RuleTaker::valueOf(const Match& match) const {
    const Measure& measure = definition_.measure;
    if (!measure.date.empty()) {
        for (const std::string& format : measure.date) {
            if (const auto date = readDate(match["value"], format)) {
                return static_cast<double>(*date);
            }
        }
        return {};
    }
    const std::optional<double> value = readNumber(match["value"]);
    if (!value || !measure.percent || measure.of) {
        return value;
    }
    const std::optional<double> of = readNumber(match["of"]);
    return of && *of > 0 ? std::optional(100 * *value / *of) : std::nullopt;
}

Want RuleTaker::take(const CurrentItem& item, std::uint32_t wildcard, const Match& match) {
    Seen& seen = seen_[wildcard];
    if (definition_.measured()) {
        takeNumber(seen, item, match);
        return Want::CAPTURES;
    }
    if (seen.candidates.size() < MOST_PLACES) {
        add(seen, {Kept(item, match), formOf(match), 0});
        return Want::CAPTURES;
    }
    ++seen.by_form[formOf(match)].count;
    return Want::COUNT;
}

void RuleTaker::takeNumber(Seen& seen, const CurrentItem& item, const Match& match) {
    const std::optional<double> value = valueOf(match);
    const std::size_t form = formOf(match);
    if (!value) {
        return;
    }
    if (waits()) {
        wait(seen, {Kept(item, match), form, *value});
    } else if (counts(*value)) {
        if (seen.candidates.size() < MOST_PLACES || isWorse(*value, seen.by_form[form])) {
            add(seen, {Kept(item, match), form, *value});
        } else {
            ++seen.by_form[form].count;
        }
    }
}

// Keeps a match until it can be compared. What takes the place of a match is further beyond the
// limit, whatever it is compared with; with two limits, nothing is known of what is left out.
void RuleTaker::wait(Seen& seen, Candidate candidate) {
    std::vector<Candidate>& kept = seen.candidates;
    if (kept.size() < MOST_CANDIDATES) {
        kept.push_back(std::move(candidate));
        return;
    }
    const bool one_sided = definition_.above.has_value() != definition_.below.has_value();
    left_out_ = left_out_ || !one_sided || definition_.bits != 0;
    const auto milder = [&](const Candidate& one, const Candidate& other) {
        return definition_.above ? one.value < other.value : one.value > other.value;
    };
    const auto mildest = std::min_element(kept.begin(), kept.end(), milder);
    if (milder(*mildest, candidate)) {
        kept.erase(mildest);
        kept.push_back(std::move(candidate));
    }
}

// Whether no value so far is as bad.
bool RuleTaker::isWorse(double value, const Matches& matches) const {
    const std::optional<Candidate>& extreme = matches.extreme;
    const bool largest = definition_.above && definition_.measure.date.empty();
    return !extreme || (largest ? value > extreme->value : value < extreme->value);
}

void RuleTaker::add(Seen& seen, Candidate candidate) {
    Matches& matches = seen.by_form[candidate.form];
    ++matches.count;
    if (isWorse(candidate.value, matches)) {
        matches.extreme = candidate;
    }
    if (seen.candidates.size() < MOST_PLACES) {
        seen.candidates.push_back(std::move(candidate));
    }
}

void RuleTaker::answered(const CurrentItem& item, Answer answer, const std::string& reason) {
    answers_.add(item, answer, reason);
}

// Compares the matches that had to wait.
void RuleTaker::settle(const Result& result) {
    const bool dates = !definition_.measure.date.empty();
    const bool known = dates ? result.run.start_time != 0 : of_.value && *of_.value > 0;
    for (Seen& seen : seen_) {
        std::vector<Candidate> waiting;
        waiting.swap(seen.candidates);
        waiting_ = waiting_ || (!known && !waiting.empty());
        if (!known) {
            continue;
        }
        for (Candidate& candidate : waiting) {
            candidate.value =
                dates ? (candidate.value - static_cast<double>(result.run.start_time)) / DAY
                      : 100 * candidate.value / *of_.value;
            if (counts(candidate.value)) {
                add(seen, std::move(candidate));
            }
        }
    }
}

// All matches together, in the order of the archive; of items that tell the same, those of one.
RuleTaker::Seen RuleTaker::gathered() const {
    Seen all(definition_.texts.size());
    for (const Seen& seen : seen_) {
        if (definition_.same && seen.count() >= definition_.at_least) {
            return seen;
        }
        all.candidates.insert(all.candidates.end(), seen.candidates.begin(), seen.candidates.end());
        for (std::size_t form = 0; form < all.by_form.size(); ++form) {
            Matches& matches = all.by_form[form];
            const Matches& more = seen.by_form[form];
            matches.count += definition_.same ? 0 : more.count;
            if (more.extreme && isWorse(more.extreme->value, matches)) {
                matches.extreme = more.extreme;
            }
        }
    }
    std::stable_sort(all.candidates.begin(), all.candidates.end(),
                     [](const Candidate& one, const Candidate& other) {
                         return one.kept.place.item < other.kept.place.item;
                     });
    all.candidates.resize(std::min(all.candidates.size(), MOST_PLACES));
    return all;
}

std::string RuleTaker::unsettled(const Result& result) const {
    if (!waiting_) {
        return "there are too many entries to compare";
    }
    if (!definition_.measure.date.empty()) {
        return "the run log does not say when the run began";
    }
    const Query& of = *definition_.measure.of;
    return of_.answers.full(result, true)
               ? namesOf(of.items) + " has no number above 0 to compare with"
               : of_.answers.why(of, result);
}

std::string RuleTaker::namesOfBits(double value) const {
    std::string names;
    for (const auto& [bit, name] : definition_.names_of_bits) {
        if ((static_cast<std::uint64_t>(value) & bit) != 0) {
            names += (names.empty() ? "" : ", ") + name;
        }
    }
    return names;
}

std::string RuleTaker::valueIn(const Candidate& candidate, std::string_view name) const {
    const Measure& measure = definition_.measure;
    if (name == "value" && (measure.percent || !measure.date.empty())) {
        return shortNumber(candidate.value);
    }
    if (name == "of" && of_.value) {
        return shortNumber(*of_.value);
    }
    return name == "bits" && !definition_.names_of_bits.empty() ? namesOfBits(candidate.value)
                                                                : candidate.kept.capture(name);
}

// What one of several texts tells about its matches.
std::string RuleTaker::textOf(const Seen& seen, std::size_t form) const {
    const auto all = [&](std::string_view name) {
        std::vector<std::string> values;
        for (const Candidate& candidate : seen.candidates) {
            if (candidate.form == form) {
                values.push_back(valueIn(candidate, name));
            }
        }
        return values;
    };
    const Matches& matches = seen.by_form[form];
    return definition_.texts[form].filled({.one =
                                               [&](std::string_view name) {
                                                   return matches.extreme
                                                              ? valueIn(*matches.extreme, name)
                                                              : std::string();
                                               },
                                           .all = all,
                                           .count = matches.count});
}

std::string RuleTaker::textOf(const Seen& seen) const {
    std::string text;
    for (std::size_t form = 0; form < definition_.texts.size(); ++form) {
        if (seen.by_form[form].count > 0 || definition_.absent) {
            text += (text.empty() ? "" : " ") + textOf(seen, form);
        }
    }
    return text;
}

Finding RuleTaker::finding(const Result& result) {
    if (waits()) {
        settle(result);
    }
    const Seen seen = gathered();
    Finding finding;
    finding.rule = definition_.name;
    finding.title = definition_.title;
    finding.weight = definition_.weight;
    const std::size_t count = seen.count();
    const bool found = count > 0 && count >= definition_.at_least;
    const bool full = answers_.full(result, definition_.same);
    if (definition_.absent ? count == 0 && full : found) {
        finding.verdict = Verdict::FOUND;
        finding.text = textOf(seen);
        finding.remedy = definition_.remedy;
        finding.found = count;
        std::transform(seen.candidates.begin(), seen.candidates.end(),
                       std::back_inserter(finding.places),
                       [](const Candidate& candidate) { return candidate.kept.place; });
        if (definition_.absent) {
            finding.places.push_back({.item = answers_.latest(), .line = 0, .text = {}});
            finding.found = 1;
        }
    } else if (waiting_ || left_out_) {
        finding.text = unsettled(result);
    } else if (full || (definition_.absent && count > 0)) {
        finding.verdict = Verdict::CLEAR;
    } else {
        finding.text = answers_.why(definition_.query, result);
    }
    return finding;
}
