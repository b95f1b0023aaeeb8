// Copies its input with control characters shown.
//
// usage: escape [-0 | -s | -u | -w] <FILE
//   -0  a NUL ends a line, and a line feed belongs to a name (find -print0); implies -w
//   -s  a line of fewer than 16 bytes is the rest of a process's name in the line before (pidstat)
//   -u  a line feed in a name among the users of a socket belongs to that name (ss)
//   -w  writes whole lines only, for an output that others write to as well
//
// The exit status is 0, also when the input cannot be read to its end; 1 when the output cannot be
// written, 2 for wrong usage, and 153, a shell's status for SIGXFSZ, when the output reached a
// file-size limit.
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <string_view>

#include "tool/IGEscape.h"

namespace {

constexpr int FAILED = 1;
constexpr int WRONG_USAGE = 2;
constexpr int LIMIT = 128 + SIGXFSZ;

int usage() {
    std::fputs("usage: escape [-0 | -s | -u | -w] <FILE\n", stderr);
    return WRONG_USAGE;
}

struct Option {
    std::string_view name;
    LineEnd ends;
    bool whole_lines;
};

constexpr Option NONE{"", LineEnd::FEED, false};
constexpr std::array<Option, 4> OPTIONS{{{"-0", LineEnd::NUL, true},
                                         {"-s", LineEnd::LONG_LINES, false},
                                         {"-u", LineEnd::SOCKET_USERS, false},
                                         {"-w", LineEnd::FEED, true}}};

// Returns the option that the arguments give, NONE without arguments; null for wrong usage.
const Option* readOption(int argc, char** argv) {
    if (argc != 2) {
        return argc < 2 ? &NONE : nullptr;
    }
    const auto* known = std::find_if(OPTIONS.begin(), OPTIONS.end(),
                                     [&](const Option& option) { return option.name == argv[1]; });
    return known != OPTIONS.end() ? known : nullptr;
}

int failed() {
    return errno == EFBIG ? LIMIT : FAILED;
}

// Writes what was read, or its whole lines, before it reads more: the next input may be late.
// @return the exit status
int copy(const Option& option) {
    static ToolOutput out{.fd = STDOUT_FILENO};
    static std::array<char, 65536> piece;
    Escape escape{.ends = option.ends, .out = &out};
    for (;;) {
        const ssize_t length = ::read(STDIN_FILENO, piece.data(), piece.size());
        if (length > 0) {
            escapeText(escape, {piece.data(), static_cast<std::size_t>(length)});
        } else if (length == 0 || errno != EINTR) {
            escapeEnd(escape);
            return toolFlush(out) == 0 ? 0 : failed();
        }
        if ((option.whole_lines ? toolFlushLines(out) : toolFlush(out)) != 0) {
            return failed();
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    const Option* option = readOption(argc, argv);
    if (option == nullptr) {
        return usage();
    }
    ::signal(SIGXFSZ, SIG_IGN);  // a limit makes a write fail
    return copy(*option);
}
