#include "ini/IGCmnReplaceStr.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <cwchar>
#include <string_view>

#include "common/base/IGAssert.h"
#include "common/base/IGCmnStr.h"
#include "common/base/IGGuards.h"
#include "common/report/IGCmnMessage.h"
#include "ini/IGIniTable.h"

namespace {

// A special string. Its name has the opening "%" but not the closing one: expansion splits the text
// at each "%" and leaves the opening one with the name.
struct SpecialStr {
    int code;
    const char* name;
    char* root_tbl::*value;  // null for a reserved one
};

constexpr SpecialStr SPECIAL_STRS[] = {
    {1, "%YY", &root_tbl::YY}, {2, "%MM", &root_tbl::MM}, {3, "%DD", &root_tbl::DD},
    {4, "%hh", &root_tbl::hh}, {5, "%mm", &root_tbl::mm}, {6, "%ss", &root_tbl::ss},
    {7, "%d", &root_tbl::d},   {8, "%reg0", nullptr},     {9, "%reg1", nullptr},
    {10, "%reg2", nullptr},    {11, "%reg3", nullptr},    {12, "%reg4", nullptr},
    {13, "%reg5", nullptr},    {14, "%reg6", nullptr},    {15, "%reg7", nullptr},
    {16, "%reg8", nullptr},    {17, "%reg9", nullptr},    {18, "%HOST", &root_tbl::HOST},
};

// Finds a special string that has a value by its name, a text of bytes or of wide characters. Null
// when there is none.
template <typename Char>
const SpecialStr* getSpecialStr(const Char* name) {
    const std::basic_string_view<Char> wanted(name);
    for (const SpecialStr& special : SPECIAL_STRS) {
        const std::string_view known(special.name);
        if (special.value != nullptr &&
            std::equal(known.begin(), known.end(), wanted.begin(), wanted.end())) {
            return &special;
        }
    }
    return nullptr;
}

// Splits a text at its percent signs: plain(segment) for text outside special strings and for an
// unclosed rest, special(segment) for a closed one with its opening "%". Stops and returns false
// when either returns false.
template <typename Plain, typename Special>
bool splitAtPercent(wchar_t* text, Plain plain, Special special) {
    wchar_t* segment = text;
    bool open = false;
    for (wchar_t* c = text; *c != L'\0'; ++c) {
        if (*c != L'%') {
            continue;
        }
        *c = L'\0';
        const bool go_on = open ? special(segment) : plain(segment);
        *c = L'%';
        if (!go_on) {
            return false;
        }
        segment = open ? c + 1 : c;  // a closing "%" is never output, an opening one stays
        open = !open;
    }
    return plain(segment);
}

bool isKnown(const wchar_t* segment) {
    return std::wcscmp(segment, L"%") == 0 || getSpecialStr(segment) != nullptr;
}

// The replacement of a closed special string; "" when it is dropped, null when memory runs out.
const char* replacementOf(const char* name, int flag, const root_tbl* root, memory_pool* memoryp) {
    const char* value = IgCmnRepSpecialStr(name, flag, root, memoryp);
    if (value == nullptr) {
        return nullptr;
    }
    const bool unchanged = std::strcmp(value, name) == 0;
    return unchanged && std::strcmp(name, "%") != 0 ? "" : value;
}

// An expansion, built up in a pool of its own.
class Expansion {
  public:
    Expansion(int flag, const root_tbl* root) : flag_(flag), root_(root) {}

    bool plain(const wchar_t* segment) {
        const char* text = IgCmnWCS2MBS(local_.get(), segment);
        return text != nullptr && append(text);
    }
    bool special(const wchar_t* segment) {
        const char* name = IgCmnWCS2MBS(local_.get(), segment);
        const char* value =
            name == nullptr ? nullptr : replacementOf(name, flag_, root_, local_.get());
        return value != nullptr && append(value);
    }
    [[nodiscard]] const char* text() const { return text_; }

  private:
    bool append(const char* text) { return concat_data(local_.get(), &text_, &size_, text) == 0; }

    LocalPool local_;
    int flag_;
    const root_tbl* root_;
    char* text_ = nullptr;
    std::uint32_t size_ = 0;
};

char constant_empty[] = "";

char* replaceStrs(wchar_t* wide, int flag, const root_tbl* root, memory_pool* memoryp) {
    Expansion expansion(flag, root);
    const bool done = splitAtPercent(
        wide, [&](const wchar_t* segment) { return expansion.plain(segment); },
        [&](const wchar_t* segment) { return expansion.special(segment); });
    return done ? IgCmnStrdup(memoryp, expansion.text()) : nullptr;
}

bool checkStrs(wchar_t* wide) {
    bool open_at_end = false;
    const bool known = splitAtPercent(
        wide,
        [&](const wchar_t* segment) {
            open_at_end = segment[0] == L'%';
            return true;
        },
        [](const wchar_t* segment) { return isKnown(segment); });
    return known && !open_at_end;
}

}  // namespace

int IgCmnSpecialStrInit(root_tbl* root, memory_pool* memoryp) {
    IG_ASSERT_NOT_NULL(root);
    IG_ASSERT_NOT_NULL(memoryp);
    const std::time_t now = std::time(nullptr);
    struct tm parts = {};
    ::localtime_r(&now, &parts);
    const struct {
        int number;
        char** out;
    } fields[] = {
        {parts.tm_year % 100, &root->YY}, {parts.tm_mon + 1, &root->MM}, {parts.tm_mday, &root->DD},
        {parts.tm_hour, &root->hh},       {parts.tm_min, &root->mm},     {parts.tm_sec, &root->ss},
    };
    for (const auto& field : fields) {
        if (timeIntToStr(field.number, field.out, memoryp) != 0) {
            return -1;
        }
    }
    std::array<char, 257> host{};
    if (::gethostname(host.data(), host.size()) != 0) {
        IgCmnSysErrPlain("gethostname", errno);
        return -1;
    }
    host.back() = '\0';  // a name that fills the buffer may not be terminated
    return IgCmnStrHostToFileName(memoryp, host.data(), &root->HOST);
}

int IgCmnIsSpecialStr(const char* name) {
    IG_ASSERT_NOT_NULL(name);
    return getSpecialStr(name) != nullptr ? 1 : 0;
}

int IgCmnGetSpecialStrCode(const char* text) {
    IG_ASSERT_NOT_NULL(text);
    for (const SpecialStr& special : SPECIAL_STRS) {
        if (std::strncmp(text, special.name, std::strlen(special.name)) == 0) {
            return special.code;
        }
    }
    return 0;
}

char* IgCmnRepSpecialStr(const char* name, int /*flag*/, const root_tbl* root,
                         memory_pool* memoryp) {
    IG_ASSERT_NOT_NULL(name);
    IG_ASSERT_NOT_NULL(root);
    const SpecialStr* special = getSpecialStr(name);
    const char* value = special == nullptr ? nullptr : root->*special->value;
    const bool has_value = value != nullptr && value[0] != '\0';
    return IgCmnStrdup(memoryp, has_value ? value : name);
}

char* IgCmnReplaceStrs(const char* text, int flag, const root_tbl* root, memory_pool* memoryp,
                       int* status) {
    IG_ASSERT_NOT_NULL(text);
    IG_ASSERT_NOT_NULL(root);
    IG_ASSERT_NOT_NULL(memoryp);
    LocalPool local;
    wchar_t* wide = IgCmnMBS2WCS(local.get(), text);
    if (wide == nullptr) {
        return nullptr;
    }
    if (status != nullptr) {
        if (!checkStrs(wide)) {
            *status = 1;
        }
        return constant_empty;
    }
    return replaceStrs(wide, flag, root, memoryp);
}
