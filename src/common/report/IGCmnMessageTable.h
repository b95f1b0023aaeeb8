// The message catalogue as data: the numbers by name, and the table with the text, kind and flags
// of each.
#ifndef QUENDIL_COMMON_REPORT_IGCMNMESSAGETABLE_H
#define QUENDIL_COMMON_REPORT_IGCMNMESSAGETABLE_H

#include <cstdint>
#include <iterator>

/// Where a message goes.
enum MsgKind : std::int32_t {
    MSGKIND_LOG = 0,         ///< run log only
    MSGKIND_STDOUT_LOG = 1,  ///< standard output and run log
    MSGKIND_STDERR_LOG = 2,  ///< standard error and run log
    MSGKIND_STDERR = 3,      ///< standard error only
    MSGKIND_STDOUT = 4,      ///< standard output only
    MSGKIND_HISTORY = 5,     ///< nowhere: written through the history log's writer
};

/// Message numbers by name. A name such as ZEPA101_E is the whole message. Where there is also a
/// name with _TEXT, such as ZEPA202_I_TEXT, that is the text and ZEPA202_I only its identifier,
/// "ZEPA202-I:".
enum MsgNo : std::int32_t {
#define IG_MSG(number, name, kind, f1, f2, text) name = (number),
#include "common/report/IGCmnMessageTable.inc"
#undef IG_MSG
    MSG_TERMINATOR = 93,
};

/// How a failure is reported.
enum MsgMode : std::int32_t {
    MSGMODE_NORMAL = 0,      ///< as the catalogue says
    MSGMODE_COLLECTING = 1,  ///< while data is collected and during cleanup: a failed system call
                             ///< and exhausted memory are warnings in the run log only
    MSGMODE_READING = 2,  ///< while pattern files are read: a failed system call is such a warning
};

struct MsgEntry {
    std::int32_t number;
    const char* text;  // printf format
    std::uint32_t f1;  // stored, never read
    std::uint32_t f2;  // stored, never read
    std::int32_t kind;
};

/// The catalogue, ended by an entry with the number 93 and a null text.
inline constexpr MsgEntry msg_tbl[] = {
#define IG_MSG(number, name, kind, f1, f2, text) {number, text, f1, f2, kind},
#include "common/report/IGCmnMessageTable.inc"
#undef IG_MSG
    {MSG_TERMINATOR, nullptr, 0, 0, MSGKIND_LOG},
};

// Messages are found by number: of two with one number, or one with the terminator's, one would
// never be found.
namespace msg_check {

constexpr bool numbersAreUnique() {
    for (const MsgEntry* entry = msg_tbl; entry->text != nullptr; ++entry) {
        for (const MsgEntry* other = entry + 1; other->text != nullptr; ++other) {
            if (other->number == entry->number) {
                return false;
            }
        }
    }
    return true;
}

constexpr bool onlyTheLastIsTheTerminator() {
    const MsgEntry* entry = msg_tbl;
    while (entry->number != MSG_TERMINATOR) {
        ++entry;
    }
    return entry->text == nullptr && entry + 1 == std::end(msg_tbl);
}

static_assert(numbersAreUnique(), "two messages have the same number");
static_assert(onlyTheLastIsTheTerminator(), "a message has the number of the terminator");

}  // namespace msg_check

/// Returns the entry with the given number, or the terminator. Linear search: the table is not
/// sorted.
constexpr const MsgEntry& msgEntry(std::int32_t number) {
    const MsgEntry* entry = msg_tbl;
    while (entry->number != number && entry->number != MSG_TERMINATOR) {
        ++entry;
    }
    return *entry;
}

#endif
