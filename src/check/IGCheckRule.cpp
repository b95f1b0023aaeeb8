#include "check/IGCheckRule.h"

namespace {

constexpr std::size_t REFUSALS = static_cast<std::size_t>(Refusal::COUNT);
constexpr std::size_t WARNINGS = static_cast<std::size_t>(Warning::COUNT);

// One row for each Refusal, then one for each Warning, in their order.
constexpr Rule RULES[] = {
    {"character-invalid", Level::ERROR, "a character that this file may not contain"},
    {"line-too-long", Level::ERROR, "the line has more than {limit} characters",
     "a line that is too long"},
    {"quote-unclosed", Level::ERROR, "the quoted text does not end on its line"},
    {"line-empty", Level::ERROR, "an empty line: only comments and KEY=VALUE are allowed"},
    {"line-invalid", Level::ERROR, "neither a comment nor KEY=VALUE, from the first column"},
    {"carriage-return", Level::ERROR, "the line ends with a carriage return (CR LF)"},
    {"statement-invalid", Level::ERROR, "a keyword or } is expected here"},
    {"keyword-unknown", Level::ERROR, "unknown keyword {keyword}{detail}", "an unknown keyword"},
    {"keyword-reserved", Level::ERROR, "{keyword} is reserved and cannot be set",
     "a reserved keyword"},
    {"keyword-misplaced", Level::ERROR, "{keyword} belongs {detail}",
     "a keyword in the wrong block"},
    {"keyword-repeated", Level::ERROR, "{keyword} is given twice", "a keyword is given twice"},
    {"equal-missing", Level::ERROR, "= is expected after {keyword}",
     "= is expected after a keyword"},
    {"comment-joined", Level::ERROR, "this belongs to the value of {keyword} above",
     "a comment without a blank before it continues the value"},
    {"brace-missing", Level::ERROR, "the block has no { on the line of its keyword"},
    {"brace-repeated", Level::ERROR, "a second { on this line"},
    {"brace-text", Level::ERROR, "only blanks may follow { on its line"},
    {"brace-unexpected", Level::ERROR, "} closes no block"},
    {"block-open", Level::ERROR, "{keyword} stands inside a block that is not closed",
     "a block that is not closed before the next one"},
    {"block-unclosed", Level::ERROR, "the file ends inside a block"},
    {"block-missing", Level::ERROR, "the file has no BLOCK"},
    {"command-line-missing", Level::ERROR, "TOOL_BLOCK without COMMAND_LINE"},
    {"path-name-missing", Level::ERROR, "DATA_BLOCK without PATH_NAME"},
    {"format-version-first", Level::ERROR, "FORMAT_VERSION must be the first keyword"},
    {"format-version-invalid", Level::ERROR, "not a format version, such as 1.0"},
    {"format-version-newer", Level::ERROR, "a newer format than 1.0: the file is skipped"},
    {"format-version-missing", Level::ERROR, "the file has no FORMAT_VERSION"},
    {"value-blank", Level::ERROR, "blank outside quotes"},
    {"setting-blank", Level::ERROR, "no blank may stand before or after ="},
    {"value-mark", Level::ERROR, "this character must be in quotes"},
    {"value-empty", Level::ERROR, "{keyword} needs a value", "a keyword without its value"},
    {"value-too-long", Level::ERROR, "the value has more than {limit} bytes",
     "a value that is too long"},
    {"special-string-unknown", Level::ERROR, "unknown special string {detail}%",
     "an unknown special string"},
    {"special-string-unclosed", Level::ERROR, "% without its closing %; %% is a percent sign"},
    {"number-invalid", Level::ERROR, "not a plain whole number"},
    {"number-range", Level::ERROR, "the number is not between {lowest} and {limit}",
     "a number out of its range"},
    {"path-relative", Level::ERROR, "not a full path, which begins with /"},
    {"switch-invalid", Level::ERROR, "ON or OFF is expected"},

    {"line-lost", Level::WARNING, "the last line has no line feed: it is not read"},
    {"comment-adjacent", Level::WARNING, "no blank before the comment: the value is stored twice"},
    {"keyword-unused", Level::WARNING, "{keyword} has no effect{detail}",
     "a keyword without effect"},
    {"pattern-unreachable", Level::WARNING, "no PP_GROUP and no TARGET: no option selects this"},
    {"description-missing", Level::WARNING, "DATA_BLOCK without DESCRIPTION"},
    {"timeout-missing", Level::WARNING, "TOOL_BLOCK without TIMEOUT: it has 10 seconds"},
    {"timeout-long", Level::WARNING, "{detail}", "a time limit above five minutes, or none"},
    {"output-uncollected", Level::WARNING, "{detail}", "an output that no data item collects"},
    {"output-shared", Level::WARNING, "the tool at {detail} writes the same file",
     "two tools write the same file"},
    {"output-outside", Level::WARNING, "outside of the pattern's directory %d%"},
    {"path-secret", Level::WARNING, "{detail} may contain secrets", "a path of secrets"},
    {"path-wildcard", Level::WARNING, "only the last component of a path is a wildcard"},
    {"argument-shell", Level::WARNING, "no shell runs this: {detail} is an argument",
     "a sign of the shell as an argument"},
    {"value-carriage-return", Level::WARNING, "the value ends with a carriage return (CR LF)"},
    {"file-leftover", Level::WARNING, "the name of a backup: a run reads it all the same"},
    {"link-dangling", Level::ERROR, "a link to nothing: no run starts while it is here"},
    {"program-missing", Level::WARNING, "{detail} is not on this machine",
     "a program that is not on this machine"},
    {"program-writable", Level::WARNING, "root runs {detail}, which others can change",
     "a program that others can change"},
    {"file-writable", Level::WARNING, "others than root can change this file"},
    {"directory-writable", Level::WARNING, "others than root can change {detail}",
     "a path below a directory that others can change"},
    {"path-unmatched", Level::WARNING, "nothing on this machine matches {detail}",
     "a path that matches nothing on this machine"},
    {"output-missing", Level::WARNING, "{detail} is not a directory on this machine",
     "an output directory that is not on this machine"},
    {"space-short", Level::ERROR, "{detail}", "more data than free space"},
    {"limit-exceeded", Level::ERROR, "{detail}", "more data than the size limit"},
};
static_assert(std::size(RULES) == REFUSALS + WARNINGS, "a rule has no row");

}  // namespace

const Rule& ruleOf(Refusal refusal) {
    return RULES[static_cast<std::size_t>(refusal)];
}

const Rule& ruleOf(Warning warning) {
    return RULES[REFUSALS + static_cast<std::size_t>(warning)];
}

std::span<const Rule> allRules() {
    return RULES;
}

std::size_t indexOf(const Rule& rule) {
    return static_cast<std::size_t>(&rule - RULES);
}

const char* nameOf(Level level) {
    return level == Level::ERROR ? "error" : "warning";
}
