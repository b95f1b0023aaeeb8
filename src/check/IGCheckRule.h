// The rules of quendil-check: everything that it can find, with a stable name for each.
#ifndef QUENDIL_CHECK_IGCHECKRULE_H
#define QUENDIL_CHECK_IGCHECKRULE_H

#include <cstddef>
#include <cstdint>
#include <span>

#include "ini/IGIniObserver.h"

enum class Level : std::uint8_t {
    ERROR,    ///< a run refuses the file
    WARNING,  ///< the file does not do what its author may expect
};

/// What no reader reports.
enum class Warning : std::uint8_t {
    // of the file alone
    LINE_LOST,
    COMMENT_ADJACENT,
    KEYWORD_UNUSED,
    PATTERN_UNREACHABLE,
    DESCRIPTION_MISSING,
    TIMEOUT_MISSING,
    TIMEOUT_LONG,
    OUTPUT_UNCOLLECTED,
    OUTPUT_SHARED,
    OUTPUT_OUTSIDE,
    PATH_SECRET,
    PATH_WILDCARD,
    ARGUMENT_SHELL,
    VALUE_CARRIAGE_RETURN,
    // of a directory of patterns
    FILE_LEFTOVER,
    LINK_DANGLING,
    // of this machine
    PROGRAM_MISSING,
    PROGRAM_WRITABLE,
    FILE_WRITABLE,
    DIRECTORY_WRITABLE,
    PATH_UNMATCHED,
    OUTPUT_MISSING,
    // of a preview
    SPACE_SHORT,
    LIMIT_EXCEEDED,
    COUNT,
};

struct Rule {
    const char* name;  // lower-case words joined by "-": it does not change between versions
    Level level;
    /// What was found, as a message; {keyword}, {detail}, {lowest} and {limit} are replaced.
    const char* text;
    const char* summary = nullptr;  // without blanks; null: the text is without
};

const Rule& ruleOf(Refusal refusal);
const Rule& ruleOf(Warning warning);

/// All rules, those of refusals first. The position of a rule is its index in SARIF.
std::span<const Rule> allRules();
std::size_t indexOf(const Rule& rule);

/// "error" or "warning".
const char* nameOf(Level level);

#endif
