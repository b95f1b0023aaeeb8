// Texts of others as they may be shown: without a character that a terminal or a reader of lines
// obeys.
#ifndef QUENDIL_COMMON_BASE_IGPRINTABLE_H
#define QUENDIL_COMMON_BASE_IGPRINTABLE_H

#include <cstddef>

/// What becomes of a tab where other control characters are escaped: in a name it is one of them;
/// in what was typed, an argument, it stays.
enum class Tabs { ESCAPED, KEPT };

/// Copies a text so that it cannot forge a line or a terminal sequence: every control character
/// becomes a backslash and three octal digits, and so does a byte of 0x80 to 0x9f that belongs to
/// no UTF-8 sequence, whatever the locale. The result is cut to fit and always terminated.
/// @param size room in bytes; IgCmnMsgPrintableSize says how much is needed
void IgCmnMsgPrintable(const char* name, char* out, std::size_t size, Tabs tabs = Tabs::ESCAPED);
/// The bytes that the text takes when it is shown so, the NUL included.
std::size_t IgCmnMsgPrintableSize(const char* name, Tabs tabs = Tabs::ESCAPED);

#endif
