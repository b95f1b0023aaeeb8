#include "check/IGCheckFinding.h"

#include <algorithm>
#include <cctype>
#include <iterator>
#include <numeric>
#include <utility>
#include <vector>

#include "ini/IGIniReadPtn.h"

namespace {

constexpr std::size_t LONGEST_WORD = 40;  // of a file in a message

const char* noteOf(Refusal reason) {
    switch (reason) {
        case Refusal::COMMENT_JOINED:
            return "a blank is missing before this comment";
        case Refusal::BRACE_MISSING:
            return "the keyword of the block";
        case Refusal::BLOCK_OPEN:
        case Refusal::BLOCK_UNCLOSED:
        case Refusal::COMMAND_LINE_MISSING:
        case Refusal::PATH_NAME_MISSING:
            return "the block begins here";
        default:
            return "";
    }
}

// How many letters differ between two words, up to their order.
std::size_t distance(std::string_view a, std::string_view b) {
    std::vector<std::size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 1; i <= a.size(); ++i) {
        std::size_t diagonal = row[0];
        row[0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const bool same = std::toupper(static_cast<unsigned char>(a[i - 1])) ==
                              std::toupper(static_cast<unsigned char>(b[j - 1]));
            const std::size_t replaced = diagonal + (same ? 0 : 1);
            diagonal = row[j];
            row[j] = std::min({replaced, row[j] + 1, row[j - 1] + 1});
        }
    }
    return row[b.size()];
}

// The keyword that a misspelt one may have meant; "" when none is near.
std::string hintFor(std::string_view word) {
    constexpr std::size_t NEAR = 2;
    std::string_view nearest;
    std::size_t best = NEAR + 1;
    for (std::size_t i = 0; !patternKeyword(i).empty() && word.size() <= LONGEST_WORD; ++i) {
        const std::size_t differs = distance(word, patternKeyword(i));
        if (differs < best) {
            best = differs;
            nearest = patternKeyword(i);
        }
    }
    return nearest.empty() ? "" : ": is it " + std::string(nearest) + "?";
}

// A word of the file, which may be a whole line.
std::string shortened(std::string_view word) {
    return std::string(word.substr(0, LONGEST_WORD)) + (word.size() > LONGEST_WORD ? "..." : "");
}

// Where a keyword belongs.
std::string whereOf(std::string_view block) {
    return block.empty() ? "at the top of the file, outside of every block"
                         : "in " + std::string(block);
}

}  // namespace

std::string messageOf(const Rule& rule, const Blanks& blanks) {
    const std::string lowest = std::to_string(blanks.lowest);
    const std::string limit = std::to_string(blanks.limit);
    const std::pair<std::string_view, std::string_view> values[] = {{"{keyword}", blanks.keyword},
                                                                    {"{detail}", blanks.detail},
                                                                    {"{lowest}", lowest},
                                                                    {"{limit}", limit}};
    std::string message;
    for (std::string_view rest = rule.text; !rest.empty();) {
        const auto* blank =
            std::find_if(std::begin(values), std::end(values),
                         [&](const auto& value) { return rest.starts_with(value.first); });
        const bool is_blank = blank != std::end(values);
        message += is_blank ? blank->second : rest.substr(0, 1);
        rest.remove_prefix(is_blank ? blank->first.size() : 1);
    }
    return message;
}

Finding warningOf(Warning warning, TextPlace place, const Blanks& blanks) {
    const Rule& rule = ruleOf(warning);
    return {.rule = &rule,
            .place = place,
            .text = messageOf(rule, blanks),
            .note_place = {},
            .note = {},
            .token = {}};
}

Finding findingOf(const Mistake& mistake) {
    const Rule& rule = ruleOf(mistake.reason);
    const bool misplaced = mistake.reason == Refusal::KEYWORD_MISPLACED;
    const std::string keyword = shortened(mistake.keyword);
    const bool unknown = mistake.reason == Refusal::KEYWORD_UNKNOWN;
    const std::string detail = misplaced ? whereOf(mistake.detail)
                               : unknown ? hintFor(mistake.keyword)
                                         : shortened(mistake.detail);
    Finding finding{.rule = &rule,
                    .place = mistake.place,
                    .text = messageOf(rule, {keyword, detail, mistake.lowest, mistake.limit}),
                    .note_place = {},
                    .note = {},
                    .token = {}};
    if (mistake.reason == Refusal::SPECIAL_STRING_UNKNOWN ||
        mistake.reason == Refusal::SPECIAL_STRING_UNCLOSED) {
        finding.token = mistake.detail;
    }
    if (mistake.other.line != 0) {
        finding.note_place = mistake.other;
        finding.note = noteOf(mistake.reason);
    }
    return finding;
}
