#include "companion/IGText.h"

#include <algorithm>
#include <cstdio>

std::string shown(const std::string& text, Tabs tabs) {
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

std::string counted(std::size_t number, const char* what) {
    return (number == 0 ? "no" : std::to_string(number)) + " " + what + (number == 1 ? "" : "s");
}

void complain(const char* program, const std::string& path, const std::string& what) {
    std::fflush(stdout);  // what was printed before stays before it
    std::fprintf(stderr, "%s: %s: %s\n", program, shown(path).c_str(), shown(what).c_str());
}

bool refuseUsage(const char* program, const char* what, const char* value) {
    std::fprintf(stderr, "%s: %s%s%s\n", program, what, value == nullptr ? "" : ": ",
                 value == nullptr ? "" : value);
    return suggestHelp(program);
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
