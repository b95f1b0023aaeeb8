#include "common/base/IGCmnStr.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "common/base/IGAssert.h"
#include "common/base/IGGuards.h"
#include "common/base/IGPrintable.h"
#include "common/report/IGCmnMessage.h"

namespace {

constexpr std::size_t CONVERSION_FAILED = static_cast<std::size_t>(-1);

// Copies `text` with its characters replaced. `replace` writes one or two wide characters for each
// and returns their number. 0 with the copy in `result`, or -1.
template <typename Replace>
int replaceChars(memory_pool* memoryp, const char* text, char** result, Replace replace) {
    LocalPool local;
    const wchar_t* wide = IgCmnMBS2WCS(local.get(), text);
    if (wide == nullptr) {
        return -1;
    }
    auto* replaced = newFromPool<wchar_t>(local.get(), 2 * std::wcslen(wide) + 1);
    if (replaced == nullptr) {
        return -1;
    }
    wchar_t* end = replaced;
    for (const wchar_t* c = wide; *c != L'\0'; ++c) {
        end += replace(*c, end);
    }
    *end = L'\0';  // `replace` may have written more than it counted
    char* bytes = IgCmnWCS2MBS(memoryp, replaced);
    if (bytes == nullptr) {
        return -1;
    }
    *result = bytes;
    return 0;
}

// The part of a text that is left without one pair of enclosing double quotes; a lone double quote
// is both ends.
template <typename Char>
struct Inner {
    Char* begin;
    std::size_t length;
};

template <typename Char>
Inner<Char> withoutQuotes(Char* text, std::size_t length) {
    if (length == 0 || text[0] != '"' || text[length - 1] != '"') {
        return {text, length};
    }
    return length == 1 ? Inner<Char>{text, 0} : Inner<Char>{text + 1, length - 2};
}

// Replaces each "%%" of a text by "%".
template <typename Char>
void collapsePercents(Char* text) {
    Char* out = text;
    for (const Char* c = text; *c != Char{}; ++c) {
        *out++ = *c;
        if (c[0] == '%' && c[1] == '%') {
            ++c;
        }
    }
    *out = Char{};
}

unsigned char foldAscii(char c) {
    return static_cast<unsigned char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
}

}  // namespace

char* IgCmnStrndup(memory_pool* memoryp, const char* text, std::size_t length) {
    IG_ASSERT_NOT_NULL(memoryp);
    IG_ASSERT_NOT_NULL(text);
    auto* copy = newFromPool<char>(memoryp, length + 1);
    if (copy != nullptr) {
        std::memcpy(copy, text, length);  // the block is zero-filled: it is terminated
    }
    return copy;
}

char* IgCmnStrdup(memory_pool* memoryp, const char* text) {
    IG_ASSERT_NOT_NULL(memoryp);
    IG_ASSERT_NOT_NULL(text);
    return IgCmnStrndup(memoryp, text, std::strlen(text));
}

wchar_t* IgCmnStrdupW(memory_pool* memoryp, const wchar_t* text) {
    IG_ASSERT_NOT_NULL(memoryp);
    IG_ASSERT_NOT_NULL(text);
    const std::size_t length = std::wcslen(text) + 1;
    auto* copy = newFromPool<wchar_t>(memoryp, length);
    if (copy != nullptr) {
        std::wmemcpy(copy, text, length);
    }
    return copy;
}

char* IgCmnStrCat(memory_pool* memoryp, const char* first, const char* second) {
    IG_ASSERT_NOT_NULL(memoryp);
    if (first == nullptr) {
        IG_ASSERT_NOT_NULL(second);
        return IgCmnStrdup(memoryp, second);
    }
    if (second == nullptr) {
        return IgCmnStrdup(memoryp, first);
    }
    const std::size_t first_length = std::strlen(first);
    const std::size_t second_length = std::strlen(second);
    auto* joined = newFromPool<char>(memoryp, first_length + second_length + 1);
    if (joined != nullptr) {
        std::copy_n(first, first_length, joined);
        std::memcpy(joined + first_length, second, second_length + 1);
    }
    return joined;
}

char* IgCmnStrCatDir(memory_pool* memoryp, const char* directory, const char* name) {
    IG_ASSERT_NOT_NULL(memoryp);
    if (directory == nullptr || name == nullptr) {
        return IgCmnStrCat(memoryp, directory, name);
    }
    const std::size_t length = std::strlen(directory);
    const bool joins_as_is = length > 0 && (directory[length - 1] == '/' || name[0] == '\0');
    if (joins_as_is) {
        return IgCmnStrCat(memoryp, directory, name);
    }
    const std::size_t name_length = std::strlen(name);
    auto* joined = newFromPool<char>(memoryp, length + 1 + name_length + 1);
    if (joined != nullptr) {
        std::copy_n(directory, length, joined);
        joined[length] = '/';
        std::memcpy(joined + length + 1, name, name_length + 1);
    }
    return joined;
}

char* IgCmnWCS2MBS(memory_pool* memoryp, const wchar_t* text) {
    IG_ASSERT_NOT_NULL(memoryp);
    IG_ASSERT_NOT_NULL(text);
    const std::size_t length = std::wcstombs(nullptr, text, 0);
    if (length == CONVERSION_FAILED) {
        IgCmnSysErrPlain("wcstombs", errno);
        return nullptr;
    }
    auto* bytes = newFromPool<char>(memoryp, length + 1);
    if (bytes == nullptr) {
        return nullptr;
    }
    if (std::wcstombs(bytes, text, length + 1) == CONVERSION_FAILED) {
        IgCmnSysErrPlain("wcstombs", errno);
        return nullptr;
    }
    return bytes;
}

wchar_t* IgCmnMBS2WCS(memory_pool* memoryp, const char* text) {
    IG_ASSERT_NOT_NULL(memoryp);
    IG_ASSERT_NOT_NULL(text);
    const std::size_t length = std::mbstowcs(nullptr, text, 0);
    if (length == CONVERSION_FAILED) {
        IgCmnSysErrPlain("mbstowcs", errno);
        return nullptr;
    }
    auto* wide = newFromPool<wchar_t>(memoryp, length + 1);
    if (wide == nullptr) {
        return nullptr;
    }
    if (std::mbstowcs(wide, text, length + 1) == CONVERSION_FAILED) {
        IgCmnSysErrPlain("mbstowcs", errno);
        return nullptr;
    }
    return wide;
}

bool hasOnlyAsciiBytes(const char* text) {
    unsigned seen = 0;
    for (; *text != '\0'; ++text) {
        seen |= static_cast<unsigned char>(*text);
    }
    return seen < 0x80;
}

int IgCmnStrIsSingleByte(wchar_t c) {
    std::array<char, MB_LEN_MAX> bytes{};
    std::mbstate_t state{};
    const std::size_t length = std::wcrtomb(bytes.data(), c, &state);
    return length != CONVERSION_FAILED && static_cast<unsigned char>(bytes[0]) < 0x80 ? 1 : 0;
}

int IgCmnStrIsAscii(const char* text) {
    IG_ASSERT_NOT_NULL(text);
    LocalPool local;
    const wchar_t* wide = IgCmnMBS2WCS(local.get(), text);
    if (wide == nullptr) {
        return -1;
    }
    const bool all = std::all_of(wide, wide + std::wcslen(wide),
                                 [](wchar_t c) { return IgCmnStrIsAsciiChar(c) != 0; });
    return all ? 1 : 0;
}

char* IgCmnStrRemoveDQ(memory_pool* memoryp, const char* text) {
    IG_ASSERT_NOT_NULL(memoryp);
    IG_ASSERT_NOT_NULL(text);
    if (hasOnlyAsciiBytes(text)) {
        const Inner<const char> inner = withoutQuotes(text, std::strlen(text));
        return IgCmnStrndup(memoryp, inner.begin, inner.length);
    }
    LocalPool local;
    wchar_t* wide = IgCmnMBS2WCS(local.get(), text);
    if (wide == nullptr) {
        return nullptr;
    }
    const Inner<wchar_t> inner = withoutQuotes(wide, std::wcslen(wide));
    inner.begin[inner.length] = L'\0';
    return IgCmnWCS2MBS(memoryp, inner.begin);
}

int IgCmnStrCmpi(const char* first, const char* second) {
    IG_ASSERT_NOT_NULL(first);
    IG_ASSERT_NOT_NULL(second);
    while (*first != '\0' && foldAscii(*first) == foldAscii(*second)) {
        ++first;
        ++second;
    }
    return foldAscii(*first) - foldAscii(*second);
}

int IgCmnStrToFileName(memory_pool* memoryp, const char* text, char** result) {
    IG_ASSERT_NOT_NULL(memoryp);
    IG_ASSERT_NOT_NULL(text);
    IG_ASSERT_NOT_NULL(result);
    return replaceChars(memoryp, text, result, [](wchar_t c, wchar_t* out) {
        out[0] = IgCmnStrIsSingleByte(c) != 0 && IgCmnStrIsAlnum(c) == 0 ? L'_' : c;
        return 1;
    });
}

int IgCmnStrHostToFileName(memory_pool* memoryp, const char* text, char** result) {
    IG_ASSERT_NOT_NULL(memoryp);
    IG_ASSERT_NOT_NULL(text);
    IG_ASSERT_NOT_NULL(result);
    return replaceChars(memoryp, text, result, [](wchar_t c, wchar_t* out) {
        if (IgCmnStrIsAlnum(c) != 0) {
            out[0] = c;
            return 1;
        }
        out[0] = L'_';
        out[1] = L'_';
        return IgCmnStrIsAsciiChar(c) != 0 ? 1 : 2;
    });
}

const char* lastComponent(const char* path) {
    const char* slash = lastSlash(path);
    return slash == nullptr ? path : slash + 1;
}

bool cutToParent(char* path) {
    char* slash = lastSlash(path);
    if (slash == nullptr || slash == path) {
        return false;
    }
    *slash = '\0';
    return true;
}

int IgCmnStrParentDir(memory_pool* memoryp, const char* path, char** result) {
    IG_ASSERT_NOT_NULL(memoryp);
    IG_ASSERT_NOT_NULL(path);
    IG_ASSERT_NOT_NULL(result);
    LocalPool local;
    wchar_t* wide = IgCmnMBS2WCS(local.get(), path);
    if (wide == nullptr) {
        return -1;
    }
    wchar_t* slash = lastSlash(wide);
    if (slash == nullptr || slash == wide) {
        *result = nullptr;
        return 0;
    }
    *slash = L'\0';
    *result = IgCmnWCS2MBS(memoryp, wide);
    return *result == nullptr ? -1 : 0;
}

char* IgCmnStrShellEscape(memory_pool* memoryp, const char* text) {
    IG_ASSERT_NOT_NULL(memoryp);
    IG_ASSERT_NOT_NULL(text);
    auto* escaped = newFromPool<char>(memoryp, 2 * std::strlen(text) + 1);
    if (escaped == nullptr) {
        return nullptr;
    }
    char* end = escaped;
    for (; *text != '\0'; ++text) {
        if (std::string_view("$`\"\\").find(*text) != std::string_view::npos) {
            *end++ = '\\';
        }
        *end++ = *text;
    }
    return escaped;
}

char* IgCmnStrPrintable(memory_pool* memoryp, const char* name, Tabs tabs) {
    IG_ASSERT_NOT_NULL(memoryp);
    IG_ASSERT_NOT_NULL(name);
    const std::size_t size = IgCmnMsgPrintableSize(name, tabs);
    auto* shown = newFromPool<char>(memoryp, size);
    if (shown != nullptr) {
        IgCmnMsgPrintable(name, shown, size, tabs);
    }
    return shown;
}

const char* IgCmnStrShown(memory_pool* memoryp, const char* name) {
    const bool plain = IgCmnMsgPrintableSize(name) == std::strlen(name) + 1;
    return plain ? name : IgCmnStrPrintable(memoryp, name);
}

int concat_data(memory_pool* memoryp, char** destination, std::uint32_t* size, const char* source) {
    IG_ASSERT_NOT_NULL(memoryp);
    IG_ASSERT_NOT_NULL(destination);
    IG_ASSERT_NOT_NULL(size);
    IG_ASSERT_NOT_NULL(source);
    const std::size_t old_length = *destination == nullptr ? 0 : std::strlen(*destination);
    const std::size_t source_length = std::strlen(source);
    const std::size_t needed = old_length + source_length + 1;
    if (*destination == nullptr || *size < needed) {
        auto* grown = static_cast<char*>(
            IgCmnMemoryRealloc(memoryp, *destination, *destination == nullptr ? 0 : *size, needed));
        if (grown == nullptr) {
            return -1;
        }
        *destination = grown;
        *size = static_cast<std::uint32_t>(needed);
    }
    std::memcpy(*destination + old_length, source, source_length + 1);
    return 0;
}

int IgCmnStrUnescapePercent(char* text) {
    IG_ASSERT_NOT_NULL(text);
    if (hasOnlyAsciiBytes(text)) {
        collapsePercents(text);
        return 0;
    }
    LocalPool local;
    wchar_t* wide = IgCmnMBS2WCS(local.get(), text);
    if (wide == nullptr) {
        return -1;
    }
    collapsePercents(wide);
    const char* bytes = IgCmnWCS2MBS(local.get(), wide);
    if (bytes == nullptr) {
        return -1;
    }
    std::memcpy(text, bytes, std::strlen(bytes) + 1);  // never longer than `text`
    return 0;
}

int timeIntToStr(int number, char** out, memory_pool* memoryp) {
    IG_ASSERT_NOT_NULL(out);
    std::array<char, 16> digits{};
    std::snprintf(digits.data(), digits.size(), "%02d", number);
    char* text = IgCmnStrdup(memoryp, digits.data());
    if (text == nullptr) {
        return -1;
    }
    *out = text;
    return 0;
}
