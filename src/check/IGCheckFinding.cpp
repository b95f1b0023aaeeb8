#include "check/IGCheckFinding.h"

namespace {

void replace(std::string& text, std::string_view name, std::string_view value) {
    if (const std::size_t at = text.find(name); at != std::string::npos) {
        text.replace(at, name.size(), value);
    }
}

const char* noteOf(Refusal reason) {
    switch (reason) {
        case Refusal::COMMENT_JOINED:
            return "a blank is missing before this comment";
        case Refusal::BRACE_MISSING:
            return "the keyword of the block";
        case Refusal::BLOCK_UNCLOSED:
            return "the block begins here";
        default:
            return "";
    }
}

// A word of the file, which may be a whole line.
std::string shortened(std::string_view word) {
    constexpr std::size_t MOST = 40;
    return std::string(word.substr(0, MOST)) + (word.size() > MOST ? "..." : "");
}

// Where a keyword belongs.
std::string whereOf(std::string_view block) {
    return block == "top" ? "at the top of the file, outside of every block"
                          : "in " + std::string(block);
}

}  // namespace

std::string messageOf(const Rule& rule, const Blanks& blanks) {
    std::string text = rule.text;
    replace(text, "{keyword}", blanks.keyword);
    replace(text, "{lowest}", std::to_string(blanks.lowest));
    replace(text, "{limit}", std::to_string(blanks.limit));
    replace(text, "{detail}", blanks.detail);
    return text;
}

Finding findingOf(const Mistake& mistake) {
    const Rule& rule = ruleOf(mistake.reason);
    const bool misplaced = mistake.reason == Refusal::KEYWORD_MISPLACED;
    const std::string keyword = shortened(mistake.keyword);
    const std::string detail = misplaced ? whereOf(mistake.detail) : shortened(mistake.detail);
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
