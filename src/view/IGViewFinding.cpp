#include <algorithm>
#include <array>
#include <cstddef>
#include <unordered_map>

#include "view/IGViewSection.h"

namespace {

struct WeightName {
    Markup style;  // a class of the style sheet
    std::string_view word;
};

WeightName nameOf(Weight weight) {
    switch (weight) {
        case Weight::CRITICAL:
            return {"w0"_html, "critical"};
        case Weight::WARNING:
            return {"w1"_html, "warning"};
        default:
            return {"w2"_html, "notice"};
    }
}

struct Tally {
    std::array<std::size_t, 3> found{};  // by weight
    std::size_t clear = 0;
    std::size_t not_judged = 0;
};

Tally tallyOf(const Result& result) {
    Tally tally;
    for (const Finding& finding : result.findings) {
        if (finding.verdict == Verdict::FOUND) {
            ++tally.found.at(static_cast<std::size_t>(finding.weight));
        } else {
            ++(finding.verdict == Verdict::CLEAR ? tally.clear : tally.not_judged);
        }
    }
    return tally;
}

void writeTally(HtmlWriter& out, const Tally& tally) {
    out << "<ul class=y>"_html;
    for (std::size_t i = 0; i < tally.found.size(); ++i) {
        const WeightName name = nameOf(static_cast<Weight>(i));
        const bool plain = static_cast<Weight>(i) == Weight::CRITICAL;
        if (tally.found.at(i) > 0) {
            out << "<li class="_html << name.style << "><b>"_html
                << groupedNumber(tally.found.at(i)) << "</b> "_html << name.word
                << (plain || tally.found.at(i) == 1 ? ""_html : "s"_html);
        }
    }
    out << "<li class=w3><b>"_html << groupedNumber(tally.clear) << "</b> "_html
        << (tally.clear == 1 ? "rule clear"_html : "rules clear"_html) << "<li class=w4><b>"_html
        << groupedNumber(tally.not_judged) << "</b> not judged</ul>\n"_html;
}

using ItemNumbers = std::unordered_map<std::string_view, std::uint32_t>;

ItemNumbers numbersOf(const Result& result) {
    ItemNumbers numbers;
    for (std::uint32_t number = 0; number < result.items.size(); ++number) {
        if (opens(result, number)) {
            numbers.try_emplace(result.items[number].name, number);
        }
    }
    return numbers;
}

// A word that is the name of an item becomes a link to it; punctuation around it is no part of it.
void writeWord(HtmlWriter& out, const Result& result, const ItemNumbers& items,
               std::string_view word) {
    const std::size_t begin = word.starts_with("(") ? 1 : 0;
    const std::size_t end = std::max(word.find_last_not_of(".,:;)") + 1, begin);
    const auto found = items.find(word.substr(begin, end - begin));
    if (found == items.end()) {
        out << word;
        return;
    }
    out << word.substr(0, begin);
    writeLink(out, result, found->second, 0, found->first);
    out << word.substr(end);
}

// Writes what to do: commands between backquotes as code, and names of items as links.
void writeRemedy(HtmlWriter& out, const Result& result, const ItemNumbers& items,
                 std::string_view text) {
    for (bool is_code = false; !text.empty(); is_code = !is_code) {
        const std::size_t end = std::min(text.find('`'), text.size());
        std::string_view part = text.substr(0, end);
        text.remove_prefix(std::min(end + 1, text.size()));
        if (is_code) {
            out << "<code>"_html << part << "</code>"_html;
            continue;
        }
        while (!part.empty()) {
            const std::size_t blank = std::min(part.find(' '), part.size());
            writeWord(out, result, items, part.substr(0, blank));
            out << part.substr(blank, 1);
            part.remove_prefix(std::min(blank + 1, part.size()));
        }
    }
}

// The first lines that a rule has found; more of them folded, so that the next finding is seen.
void writePlaces(HtmlWriter& out, const Result& result, const Finding& finding) {
    constexpr std::size_t SHOWN = 3;
    if (finding.places.empty()) {
        return;
    }
    out << "<ul>"_html;
    for (std::size_t i = 0; i < finding.places.size(); ++i) {
        if (i == SHOWN) {
            out << "</ul><details><summary>"_html
                << groupedNumber(std::max(finding.found, finding.places.size()) - SHOWN)
                << " more</summary><ul>"_html;
        }
        out << "<li>"_html;
        writePlace(out, result, finding.places[i]);
    }
    if (finding.found > finding.places.size()) {
        out << "<li>and "_html << groupedNumber(finding.found - finding.places.size())
            << " more"_html;
    }
    out << (finding.places.size() > SHOWN ? "</ul></details>"_html : "</ul>"_html);
}

void writeFinding(HtmlWriter& out, const Result& result, const ItemNumbers& items,
                  const Finding& finding) {
    const WeightName name = nameOf(finding.weight);
    out << "<article class="_html << name.style << "><h3><span>"_html << name.word
        << "</span> "_html << finding.title << "</h3>"_html;
    if (!finding.text.empty()) {
        out << "<p>"_html << finding.text;
    }
    writePlaces(out, result, finding);
    if (!finding.remedy.empty()) {
        out << "<p class=r><b>Remedy</b> "_html;
        writeRemedy(out, result, items, finding.remedy);
    }
    out << "</article>\n"_html;
}

// The rules with a verdict other than "found", folded.
void writeRest(HtmlWriter& out, const Result& result, Verdict verdict, std::size_t number) {
    if (number == 0) {
        return;
    }
    const bool clear = verdict == Verdict::CLEAR;
    out << "<details><summary>"_html
        << (clear ? "Looked at, nothing found: "_html : "Not judged: "_html)
        << countText(number, "rule") << "</summary><ul class=l>"_html;
    for (const Finding& finding : result.findings) {
        if (finding.verdict == verdict) {
            out << "<li>"_html << finding.title;
            if (!clear && !finding.text.empty()) {
                out << " <small>"_html << finding.text << "</small>"_html;
            }
        }
    }
    out << "</ul></details>\n"_html;
}

}  // namespace

void writeFindings(HtmlWriter& out, const Result& result) {
    const Tally tally = tallyOf(result);
    out << "<section id=findings><h2>Findings</h2>"_html;
    writeTally(out, tally);
    if (tally.clear + tally.not_judged == result.findings.size()) {
        out << (tally.clear > 0 ? "<p>No rule has found anything.\n"_html
                                : "<p>Nothing was judged.\n"_html);
    }
    out << "<div class=f>"_html;
    const ItemNumbers items = numbersOf(result);
    for (const Finding& finding : result.findings) {
        if (finding.verdict == Verdict::FOUND) {
            writeFinding(out, result, items, finding);
        }
    }
    out << "</div>"_html;
    writeRest(out, result, Verdict::NOT_JUDGED, tally.not_judged);
    writeRest(out, result, Verdict::CLEAR, tally.clear);
    out << "</section>\n"_html;
}
