// What was found, and where.
#ifndef QUENDIL_CHECK_IGCHECKFINDING_H
#define QUENDIL_CHECK_IGCHECKFINDING_H

#include <cstddef>
#include <string>
#include <string_view>

#include "check/IGCheckRule.h"
#include "ini/IGIniObserver.h"

/// Most findings of one file that are shown; the file is read no further after them.
inline constexpr std::size_t MOST_FINDINGS = 100;

struct Finding {
    const Rule* rule = nullptr;
    TextPlace place{};  // line 0: the whole file
    std::string text;
    TextPlace note_place{};  // line 0: no note
    std::string note;
    std::string token;  // where the place's line has this text, after the place, it is meant
};

/// The values of a rule's message.
struct Blanks {
    std::string_view keyword{};
    std::string_view detail{};
    long lowest = 0;
    long limit = 0;
};

/// The message of a rule with its blanks filled in.
std::string messageOf(const Rule& rule, const Blanks& blanks);

/// The finding of a rule that no reader reports.
Finding warningOf(Warning warning, TextPlace place, const Blanks& blanks);

/// The finding of a mistake that a reader has reported.
Finding findingOf(const Mistake& mistake);

#endif
