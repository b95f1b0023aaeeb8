// Strings in the locale's encoding. Every string that comes back is a new block of the caller's
// pool (length + 1 bytes); no operation frees its inputs. Pools and strings are asserted non-null
// unless said otherwise. Null results mean that memory ran out or a conversion failed, already
// reported.
#ifndef QUENDIL_COMMON_BASE_IGCMNSTR_H
#define QUENDIL_COMMON_BASE_IGCMNSTR_H

#include <cstddef>
#include <cstdint>
#include <cwchar>

#include "common/base/IGCmnMemory.h"
#include "common/base/IGPrintable.h"

/// A copy.
[[nodiscard]] char* IgCmnStrdup(memory_pool* memoryp, const char* text);
/// A copy of the first `length` bytes, terminated.
[[nodiscard]] char* IgCmnStrndup(memory_pool* memoryp, const char* text, std::size_t length);
/// A wide copy.
[[nodiscard]] wchar_t* IgCmnStrdupW(memory_pool* memoryp, const wchar_t* text);

/// first + second; when one is null a copy of the other. Both null is an assertion failure.
[[nodiscard]] char* IgCmnStrCat(memory_pool* memoryp, const char* first, const char* second);

/// Directory, "/" and name. No "/" is added to a directory that ends in one, nor between a
/// directory and an empty name; an empty directory does get it. When one is null a copy of the
/// other.
[[nodiscard]] char* IgCmnStrCatDir(memory_pool* memoryp, const char* directory, const char* name);

/// Conversions; what the locale cannot convert is reported (ZEPA113-E, ZEPA114-E) and gives null.
[[nodiscard]] char* IgCmnWCS2MBS(memory_pool* memoryp, const wchar_t* text);
[[nodiscard]] wchar_t* IgCmnMBS2WCS(memory_pool* memoryp, const char* text);

/// 1 for an ASCII letter or digit, whatever the locale.
int IgCmnStrIsAlnum(wchar_t c);
/// 1 for a letter, a digit, line feed, carriage return, tab, blank or one of 32 ASCII marks: all
/// that configuration and pattern files may hold.
int IgCmnStrIsAsciiChar(wchar_t c);
/// 1 when the locale writes the character as one byte below 0x80.
int IgCmnStrIsSingleByte(wchar_t c);
/// 1 when every character passes IgCmnStrIsAsciiChar, 0 when one does not, -1 when the text cannot
/// be converted.
int IgCmnStrIsAscii(const char* text);

/// A copy without one pair of enclosing double quotes; a lone double quote gives the empty string.
[[nodiscard]] char* IgCmnStrRemoveDQ(memory_pool* memoryp, const char* text);

/// Compares without regard to the case of ASCII letters: below 0, 0 or above 0.
int IgCmnStrCmpi(const char* first, const char* second);

/// Every single-byte character that is no letter or digit becomes "_". 0 with the new string in
/// `result`, or -1.
int IgCmnStrToFileName(memory_pool* memoryp, const char* text, char** result);
/// As above, and every character outside the allowed ones becomes "__": safe for a host name.
int IgCmnStrHostToFileName(memory_pool* memoryp, const char* text, char** result);

/// The last "/" of a text, of bytes or of wide characters; null when there is none.
template <typename Char>
Char* lastSlash(Char* text) {
    Char* last = nullptr;
    for (; *text != Char{}; ++text) {
        last = *text == '/' ? text : last;
    }
    return last;
}
/// What follows the last "/" of a path; the whole of it where there is none.
const char* lastComponent(const char* path);
/// Cuts a path before its last "/". False when its parent is the root, or it has none.
bool cutToParent(char* path);

/// The text before the last "/", or null in `result` when there is no slash or it comes first. 0,
/// or -1 when the path cannot be converted.
int IgCmnStrParentDir(memory_pool* memoryp, const char* path, char** result);

/// Writes the text with a backslash before every character that means something to the shell inside
/// double quotes ($ ` " \): a name can then stand there and run nothing. The block is larger than
/// length + 1 bytes: for a pool that is freed whole.
[[nodiscard]] char* IgCmnStrShellEscape(memory_pool* memoryp, const char* text);

/// The name as IgCmnMsgPrintable shows it.
[[nodiscard]] char* IgCmnStrPrintable(memory_pool* memoryp, const char* name,
                                      Tabs tabs = Tabs::ESCAPED);

/// Appends `source` to the buffer at `*destination` of `*size` bytes, which is reallocated to
/// exactly the needed length plus one when it is missing or too small. 0, or -1 when memory runs
/// out.
int concat_data(memory_pool* memoryp, char** destination, std::uint32_t* size, const char* source);

/// In place, every "%%" becomes "%"; a one-character string stays. 0, or -1 when it cannot be
/// converted.
int IgCmnStrUnescapePercent(char* text);

/// The number with at least two digits, as a new string. 0, or -1.
int timeIntToStr(int number, char** out, memory_pool* memoryp);

#endif
