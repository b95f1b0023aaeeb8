// Makes foreign text safe to show: without the characters that control a terminal or break lines.
#ifndef QUENDIL_COMMON_BASE_IGPRINTABLE_H
#define QUENDIL_COMMON_BASE_IGPRINTABLE_H

#include <cstddef>

/// Whether a tab is escaped like the other control characters: in a name it is; in typed text, such
/// as an argument, it is kept.
enum class Tabs { ESCAPED, KEPT };

/// Copies a text so that it cannot forge a line or a terminal sequence: every control character
/// becomes a backslash and three octal digits, and so does a byte of 0x80 to 0x9f outside a UTF-8
/// sequence, in every locale. The result is truncated to fit and always terminated.
/// @param size room in bytes; IgCmnMsgPrintableSize returns what is needed
void IgCmnMsgPrintable(const char* name, char* out, std::size_t size, Tabs tabs = Tabs::ESCAPED);
/// The size in bytes of the text in this form, including the NUL.
std::size_t IgCmnMsgPrintableSize(const char* name, Tabs tabs = Tabs::ESCAPED);

#endif
