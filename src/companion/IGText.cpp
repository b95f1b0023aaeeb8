#include "companion/IGText.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstdio>
#include <string_view>

namespace {

// Characters of Unicode that turn or break what a terminal shows: the marks of writing direction
// (U+061C, U+200E, U+200F, U+202A to U+202E, U+2066 to U+2069), and the separators of lines and
// paragraphs (U+2028, U+2029).
struct CharacterRange {
    std::string_view prefix;  // all bytes but the last one
    unsigned char first;
    unsigned char last;
};
constexpr std::array<CharacterRange, 4> TURNING{{{"\xd8", 0x9c, 0x9c},
                                                 {"\xe2\x80", 0x8e, 0x8f},
                                                 {"\xe2\x80", 0xa8, 0xae},
                                                 {"\xe2\x81", 0xa6, 0xa9}}};

// The bytes of such a character at the beginning of a text; 0 if there is none.
std::size_t turningLength(std::string_view text) {
    for (const CharacterRange& range : TURNING) {
        const std::size_t length = range.prefix.size() + 1;
        if (text.size() < length || !text.starts_with(range.prefix)) {
            continue;
        }
        const auto last = static_cast<unsigned char>(text[length - 1]);
        if (last >= range.first && last <= range.last) {
            return length;
        }
    }
    return 0;
}

// The text with these characters in the form that IgCmnMsgPrintable gives to others.
std::string withoutTurning(std::string_view text) {
    std::string result;
    while (!text.empty()) {
        const std::size_t length = turningLength(text);
        for (const char c : text.substr(0, length)) {
            std::array<char, 5> escape{};
            std::snprintf(escape.data(), escape.size(), "\\%03o", static_cast<unsigned char>(c));
            result += escape.data();
        }
        if (length == 0) {
            result += text.front();
        }
        text.remove_prefix(std::max<std::size_t>(length, 1));
    }
    return result;
}

}  // namespace

std::string printable(const std::string& text, Tabs tabs) {
    std::string result;
    for (std::size_t begin = 0; begin <= text.size();) {
        // A NUL ends a text for the function that escapes it.
        const std::size_t end = std::min(text.find('\0', begin), text.size());
        const std::string part = text.substr(begin, end - begin);
        std::string out(IgCmnMsgPrintableSize(part.c_str(), tabs), '\0');
        IgCmnMsgPrintable(part.c_str(), out.data(), out.size(), tabs);
        out.pop_back();  // the NUL at its end
        result += out;
        result += end < text.size() ? "\\000" : "";
        begin = end + 1;
    }
    return result;
}

std::string shown(const std::string& text, Tabs tabs) {
    return withoutTurning(printable(text, tabs));
}

std::string counted(std::size_t number, const char* what) {
    return (number == 0 ? "no" : std::to_string(number)) + " " + what + (number == 1 ? "" : "s");
}

void complain(const char* program, const std::string& path, const std::string& what) {
    std::fflush(stdout);  // what was printed before stays before it
    std::fprintf(stderr, "%s: %s: %s\n", program, shown(path).c_str(), shown(what).c_str());
}

bool refuseUsage(const char* program, const char* what, const char* value) {
    std::fprintf(stderr, "%s: %s%s%s\n", program, what, value == nullptr ? "" : ": ",
                 value == nullptr ? "" : shown(value, Tabs::ESCAPED).c_str());
    return suggestHelp(program);
}

bool refuseOption(const char* program, int option, const char* word) {
    // In "-xy", a word does not say which option is wrong.
    const bool is_short = optopt > 0 && optopt <= UCHAR_MAX;
    const std::string name = is_short ? std::string("-") + static_cast<char>(optopt) : word;
    return refuseUsage(program,
                       option == ':' ? "this option needs a value"
                                     : "this option is unknown, ambiguous or takes no value",
                       name.c_str());
}

bool suggestHelp(const char* program) {
    std::fprintf(stderr, "Try '%s --help'.\n", program);
    return false;
}

bool finishOutput(const char* program) {
    if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) {
        return true;
    }
    std::perror((std::string(program) + ": standard output").c_str());
    return false;
}
