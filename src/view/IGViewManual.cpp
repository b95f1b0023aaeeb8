#include "view/IGViewManual.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <vector>

// The source of the page, in the language of mdoc(7).
extern const std::string_view MESSAGES_MANUAL;

namespace {

struct Quotes {
    std::string_view macro;
    const char* before;
    const char* after;
};

// How the macros of the page show their arguments; those of all others are shown as they are.
constexpr std::array<Quotes, 8> MACROS{{
    {"Ql", "'", "'"},
    {"Sq", "'", "'"},
    {"Dq", "\"", "\""},
    {"Pq", "(", ")"},
    {"Po", "(", ""},
    {"Pc", "", ")"},
    {"Fl", "-", ""},
    {"Xr", "", ""},
}};

bool isPunctuation(std::string_view word) {
    return word.size() == 1 && std::string_view(".,:;)?!").find(word[0]) != std::string_view::npos;
}

// Without the escapes of roff that the page has.
std::string unescaped(std::string_view text) {
    std::string result;
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (text[at] != '\\' || at + 1 == text.size()) {
            result += text[at];
            continue;
        }
        ++at;
        if (text[at] == '(') {  // a named character: a quote, or a bullet
            result += text.substr(at + 1, 2) == "dq" ? '"' : '*';
            at += 2;
        } else if (text[at] != '&') {
            result += text[at];
        }
    }
    return result;
}

std::vector<std::string> wordsOf(std::string_view text) {
    std::vector<std::string> words;
    while (!text.empty()) {
        const bool quoted = text[0] == '"';
        const std::size_t begin = quoted ? 1 : 0;
        const std::size_t end = std::min(text.find(quoted ? '"' : ' ', begin), text.size());
        if (end > begin) {
            words.push_back(unescaped(text.substr(begin, end - begin)));
        }
        text.remove_prefix(std::min(text.size(), end + 1));
    }
    return words;
}

// Takes the next line off a text.
std::string_view takeLine(std::string_view& text) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(text.size(), end + 1));
    return line;
}

// ".Xr quendil 8 ," as "quendil(8),".
std::string shownMacro(std::string_view line) {
    std::vector<std::string> words = wordsOf(line.substr(1));
    if (words.empty()) {
        return "";
    }
    const std::string macro = words.front();
    words.erase(words.begin());
    std::string end;
    while (!words.empty() && isPunctuation(words.back())) {
        end.insert(0, words.back());
        words.pop_back();
    }
    if (macro == "Xr" && words.size() == 2) {
        words = {words[0] + "(" + words[1] + ")"};
    }
    std::string text;
    for (const std::string& word : words) {
        text += (text.empty() ? "" : " ") + word;
    }
    for (const Quotes& quotes : MACROS) {
        if (quotes.macro == macro) {
            text.insert(0, quotes.before);
            text += quotes.after;
        }
    }
    return text + end;
}

bool beginsParagraph(std::string_view line) {
    return line.starts_with(".Pp") || line.starts_with(".Bd") || line.starts_with(".Ed");
}

// Where the message appears: "(terminal, run log)".
bool namesOutput(std::string_view line) {
    return line.starts_with(".Pq terminal") || line.starts_with(".Pq run log") ||
           line.starts_with(".Pq history log");
}

bool endsEntry(std::string_view line) {
    return line.starts_with(".It") || line.starts_with(".El") || line.starts_with(".Sh");
}

std::string plainText(std::string_view entry) {
    std::string text;
    bool literal = false;
    while (!entry.empty()) {
        const std::string_view line = takeLine(entry);
        if (endsEntry(line)) {
            break;
        }
        if (beginsParagraph(line)) {
            literal = line.starts_with(".Bd");
            text += text.empty() ? "" : "\n\n";
        } else if (!namesOutput(line)) {
            const std::string words = line.starts_with(".") ? shownMacro(line) : unescaped(line);
            const bool joined = text.empty() || text.ends_with("\n") || text.ends_with("(") ||
                                words.starts_with(")");
            text += joined ? "" : (literal ? "\n" : " ");
            text += words;
        }
    }
    while (text.ends_with("\n")) {
        text.pop_back();
    }
    return text;
}

}  // namespace

std::string messageHelp(std::string_view id) {
    std::string_view page = MESSAGES_MANUAL;
    const std::string beginning = std::string(id) + ":";
    while (!page.empty()) {
        const std::string_view line = takeLine(page);
        constexpr std::string_view ENTRY = ".It Sy \"";
        if (line.starts_with(ENTRY) &&
            unescaped(line.substr(ENTRY.size())).starts_with(beginning)) {
            return plainText(page);
        }
    }
    return "";
}
