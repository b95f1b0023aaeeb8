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

// A part of a text, which is of bytes when it is ASCII, else of wide characters.
template <typename Char>
using Segment = std::basic_string_view<Char>;

// Finds a special string that has a value by its name. Null when there is none.
template <typename Char>
const SpecialStr* getSpecialStr(Segment<Char> name) {
    for (const SpecialStr& special : SPECIAL_STRS) {
        const std::string_view known(special.name);
        if (special.value != nullptr &&
            std::equal(known.begin(), known.end(), name.begin(), name.end())) {
            return &special;
        }
    }
    return nullptr;
}

// Splits a text at its percent signs: plain(segment) for text outside special strings and for an
// unclosed rest, special(segment) for a closed one with its opening "%". Stops and returns false
// when either returns false.
template <typename Char, typename Plain, typename Special>
bool splitAtPercent(Segment<Char> text, Plain plain, Special special) {
    std::size_t start = 0;
    bool open = false;
    for (std::size_t at = text.find('%'); at != text.npos; at = text.find('%', at + 1)) {
        const Segment<Char> segment = text.substr(start, at - start);
        if (!(open ? special(segment) : plain(segment))) {
            return false;
        }
        start = open ? at + 1 : at;  // a closing "%" is never output, an opening one stays
        open = !open;
    }
    return plain(text.substr(start));
}

template <typename Char>
bool isKnown(Segment<Char> segment) {
    const bool single = segment.size() == 1 && segment[0] == '%';
    return single || getSpecialStr(segment) != nullptr;
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

    template <typename Char>
    bool plain(Segment<Char> segment) {
        const char* text = bytesOf(segment);
        return text != nullptr && append(text);
    }
    template <typename Char>
    bool special(Segment<Char> segment) {
        const char* name = bytesOf(segment);
        const char* value =
            name == nullptr ? nullptr : replacementOf(name, flag_, root_, local_.get());
        return value != nullptr && append(value);
    }
    [[nodiscard]] const char* text() const { return text_; }

  private:
    const char* bytesOf(Segment<char> segment) {
        return IgCmnStrndup(local_.get(), segment.data(), segment.size());
    }
    const char* bytesOf(Segment<wchar_t> segment) {
        auto* wide = newFromPool<wchar_t>(local_.get(), segment.size() + 1);
        if (wide == nullptr) {
            return nullptr;
        }
        std::copy(segment.begin(), segment.end(), wide);
        return IgCmnWCS2MBS(local_.get(), wide);
    }
    bool append(const char* text) { return concat_data(local_.get(), &text_, &size_, text) == 0; }

    LocalPool local_;
    int flag_;
    const root_tbl* root_;
    char* text_ = nullptr;
    std::uint32_t size_ = 0;
};

char constant_empty[] = "";

template <typename Char>
char* replaceStrs(Segment<Char> text, int flag, const root_tbl* root, memory_pool* memoryp) {
    Expansion expansion(flag, root);
    const bool done = splitAtPercent(
        text, [&](Segment<Char> segment) { return expansion.plain(segment); },
        [&](Segment<Char> segment) { return expansion.special(segment); });
    return done ? IgCmnStrdup(memoryp, expansion.text()) : nullptr;
}

template <typename Char>
bool checkStrs(Segment<Char> text) {
    bool open_at_end = false;
    const bool known = splitAtPercent(
        text,
        [&](Segment<Char> segment) {
            open_at_end = !segment.empty() && segment[0] == '%';
            return true;
        },
        [](Segment<Char> segment) { return isKnown(segment); });
    return known && !open_at_end;
}

template <typename Char>
char* replaceOrCheck(Segment<Char> text, int flag, const root_tbl* root, memory_pool* memoryp,
                     int* status) {
    if (status == nullptr) {
        return replaceStrs(text, flag, root, memoryp);
    }
    if (!checkStrs(text)) {
        *status = 1;
    }
    return constant_empty;
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
    return getSpecialStr(Segment<char>(name)) != nullptr ? 1 : 0;
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
    const SpecialStr* special = getSpecialStr(Segment<char>(name));
    const char* value = special == nullptr ? nullptr : root->*special->value;
    const bool has_value = value != nullptr && value[0] != '\0';
    return IgCmnStrdup(memoryp, has_value ? value : name);
}

char* IgCmnReplaceStrs(const char* text, int flag, const root_tbl* root, memory_pool* memoryp,
                       int* status) {
    IG_ASSERT_NOT_NULL(text);
    IG_ASSERT_NOT_NULL(root);
    IG_ASSERT_NOT_NULL(memoryp);
    if (hasOnlyAsciiBytes(text)) {
        return replaceOrCheck(Segment<char>(text), flag, root, memoryp, status);
    }
    LocalPool local;
    const wchar_t* wide = IgCmnMBS2WCS(local.get(), text);
    return wide == nullptr ? nullptr
                           : replaceOrCheck(Segment<wchar_t>(wide), flag, root, memoryp, status);
}

BadSpecialStr findBadSpecialStr(std::string_view text) {
    BadSpecialStr bad{false, {}};
    splitAtPercent(
        text,
        [&bad](Segment<char> segment) {
            bad.text = segment;  // the last one is what follows the last special string
            return true;
        },
        [&bad](Segment<char> segment) {
            bad = {!isKnown(segment), segment};
            return !bad.is_closed;
        });
    return bad;
}
