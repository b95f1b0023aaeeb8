// Strings in the locale's encoding. Every returned string is a new block of the caller's pool
// (length + 1 bytes); no function frees its inputs. Pools and strings are asserted non-null unless
// said otherwise. A null result means that memory ran out or a conversion failed; this is already
// reported.
#ifndef QUENDIL_COMMON_BASE_IGCMNSTR_H
#define QUENDIL_COMMON_BASE_IGCMNSTR_H

#include <cstddef>
#include <cstdint>
#include <cwchar>
#include <string_view>

#include "common/base/IGCmnMemory.h"
#include "common/base/IGPrintable.h"

/// Copies a string.
[[nodiscard]] char* IgCmnStrdup(memory_pool* memoryp, const char* text);
/// Copies the first `length` bytes and terminates them.
[[nodiscard]] char* IgCmnStrndup(memory_pool* memoryp, const char* text, std::size_t length);
/// Copies a wide string.
[[nodiscard]] wchar_t* IgCmnStrdupW(memory_pool* memoryp, const wchar_t* text);

/// Returns first + second; when one is null, a copy of the other. Both null fails the assertion.
[[nodiscard]] char* IgCmnStrCat(memory_pool* memoryp, const char* first, const char* second);

/// Joins directory, "/" and name. It adds no "/" to a directory that ends in one, nor between a
/// directory and an empty name; it does after an empty directory. When one is null, a copy of the
/// other.
[[nodiscard]] char* IgCmnStrCatDir(memory_pool* memoryp, const char* directory, const char* name);

/// Convert between wide and multibyte. What the locale cannot convert is reported (ZEPA113-E,
/// ZEPA114-E); the result is then null.
[[nodiscard]] char* IgCmnWCS2MBS(memory_pool* memoryp, const wchar_t* text);
[[nodiscard]] wchar_t* IgCmnMBS2WCS(memory_pool* memoryp, const char* text);

/// 1 for an ASCII letter or digit, in every locale.
constexpr int IgCmnStrIsAlnum(wchar_t c) {
    const bool alnum =
        (c >= L'0' && c <= L'9') || (c >= L'a' && c <= L'z') || (c >= L'A' && c <= L'Z');
    return alnum ? 1 : 0;
}
/// 1 for a letter, a digit, line feed, carriage return, tab, blank or one of 32 ASCII marks: the
/// characters allowed in configuration and pattern files.
constexpr int IgCmnStrIsAsciiChar(wchar_t c) {
    constexpr std::wstring_view ALLOWED_MARKS = L"\n\r\t !\"#$%&'()=~|`{}*+;:]-^@[<>?_,./\\";
    static_assert(ALLOWED_MARKS.size() == 36);
    return ALLOWED_MARKS.find(c) != std::wstring_view::npos || IgCmnStrIsAlnum(c) != 0 ? 1 : 0;
}
/// Whether every byte is below 0x80. Such a text has the same characters in every locale, so that
/// it need not be converted.
bool hasOnlyAsciiBytes(const char* text);
/// 1 when the locale writes the character as one byte below 0x80.
int IgCmnStrIsSingleByte(wchar_t c);
/// 1 when every character passes IgCmnStrIsAsciiChar, 0 when one does not, -1 when the text cannot
/// be converted.
int IgCmnStrIsAscii(const char* text);

/// Copies the text without one pair of enclosing double quotes; a lone double quote gives "".
[[nodiscard]] char* IgCmnStrRemoveDQ(memory_pool* memoryp, const char* text);

/// Compares, ignoring the case of ASCII letters: below 0, 0 or above 0.
int IgCmnStrCmpi(const char* first, const char* second);

/// FNV-1a: the hash of a text is that of its beginning, extended by its last byte.
inline constexpr std::uint32_t EMPTY_HASH = 2166136261U;
constexpr std::uint32_t extendHash(std::uint32_t hash, char c) {
    return (hash ^ static_cast<unsigned char>(c)) * 16777619U;
}

/// Copies a text with "_" for every single-byte character that is no letter or digit. 0 with the
/// new string in `result`, or -1.
int IgCmnStrToFileName(memory_pool* memoryp, const char* text, char** result);
/// The same for a host name: every character that IgCmnStrIsAsciiChar does not allow becomes "__".
int IgCmnStrHostToFileName(memory_pool* memoryp, const char* text, char** result);

/// Finds the last "/" of a text of bytes or wide characters; null when it has none.
template <typename Char>
Char* lastSlash(Char* text) {
    Char* last = nullptr;
    for (; *text != Char{}; ++text) {
        last = *text == '/' ? text : last;
    }
    return last;
}
/// The part of a path after the last "/"; the whole path when it has none.
const char* lastComponent(const char* path);
/// Truncates a path before its last "/". False, with the path unchanged, when its parent is the
/// root or it has no "/".
bool cutToParent(char* path);

/// Copies the text before the last "/"; `result` is null when there is no slash or it is the first
/// character. 0, or -1 when the path cannot be converted.
/// The program itself never calls it.
int IgCmnStrParentDir(memory_pool* memoryp, const char* path, char** result);

/// Puts a backslash before every character that is special to the shell inside double quotes ($ ` "
/// \), so that a name between such quotes runs nothing. The block is larger than length + 1 bytes,
/// so only freeing the whole pool frees it.
[[nodiscard]] char* IgCmnStrShellEscape(memory_pool* memoryp, const char* text);

/// Copies the name as IgCmnMsgPrintable shows it.
[[nodiscard]] char* IgCmnStrPrintable(memory_pool* memoryp, const char* name,
                                      Tabs tabs = Tabs::ESCAPED);
/// The name in the form of IgCmnStrPrintable: the name itself where nothing is escaped, else a new
/// string; null when memory runs out.
[[nodiscard]] const char* IgCmnStrShown(memory_pool* memoryp, const char* name);

/// Appends `source` to the buffer at `*destination` of `*size` bytes. A null or too small buffer is
/// reallocated to exactly the needed length plus one. 0, or -1 when memory runs out.
int concat_data(memory_pool* memoryp, char** destination, std::uint32_t* size, const char* source);

/// Replaces every "%%" with "%", in place. 0, or -1 when the text cannot be converted or memory
/// runs out.
int IgCmnStrUnescapePercent(char* text);

/// Writes the number with at least two digits to a new string in `out`. 0, or -1.
int timeIntToStr(int number, char** out, memory_pool* memoryp);

#endif
