// The message catalogue as data: the numbers by name, and the table that carries text, kind and
// flags of each.
#ifndef QUENDIL_COMMON_REPORT_IGCMNMESSAGETABLE_H
#define QUENDIL_COMMON_REPORT_IGCMNMESSAGETABLE_H

#include <cstdint>

/// Where a message goes.
enum MsgKind : std::int32_t {
    MSGKIND_LOG = 0,         ///< run log only
    MSGKIND_STDOUT_LOG = 1,  ///< standard output and run log
    MSGKIND_STDERR_LOG = 2,  ///< standard error and run log
    MSGKIND_STDERR = 3,      ///< standard error only
    MSGKIND_STDOUT = 4,      ///< standard output only
    MSGKIND_HISTORY = 5,     ///< nowhere: written through the history log's writer
};

/// Message numbers by name. ZEPA202_I is the identifier "ZEPA202-I:" where a text follows it as a
/// message of its own (ZEPA202_I_TEXT), else the whole message.
enum MsgNo : std::int32_t {
#define IG_MSG(number, name, kind, f1, f2, text) name = (number),
#include "common/report/IGCmnMessageTable.inc"
#undef IG_MSG
    MSG_TERMINATOR = 93,
};

struct MsgEntry {
    std::int32_t number;
    const char* text;  // printf format
    std::uint32_t f1;  // kept as data, read by nothing
    std::uint32_t f2;  // kept as data, read by nothing
    std::int32_t kind;
};

/// The catalogue, ended by an entry with the number 93 and a null text.
inline constexpr MsgEntry msg_tbl[] = {
#define IG_MSG(number, name, kind, f1, f2, text) {number, text, f1, f2, kind},
#include "common/report/IGCmnMessageTable.inc"
#undef IG_MSG
    {MSG_TERMINATOR, nullptr, 0, 0, MSGKIND_LOG},
};

/// The entry with the given number, or the terminator. Found by number: the table is not sorted.
constexpr const MsgEntry& msgEntry(std::int32_t number) {
    const MsgEntry* entry = msg_tbl;
    while (entry->number != number && entry->number != MSG_TERMINATOR) {
        ++entry;
    }
    return *entry;
}

#endif
