// Copies its input with control characters shown.
//
// usage: escape [-0 | -s | -u] <FILE
//   -0  a NUL ends a line, and a line feed belongs to a name (find -print0)
//   -s  what is shorter than 16 bytes is the rest of a process's name in the line before (pidstat)
//   -u  a line feed in a name among the users of a socket belongs to that name (ss)
//
// The exit status is 0; 1 when the output cannot be written, 2 for wrong usage, and 153, a
// shell's status for SIGXFSZ, when the output reached a file-size limit.
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <string_view>

#include "tool/IGEscape.h"

namespace {

constexpr int FAILED = 1;
constexpr int WRONG_USAGE = 2;
constexpr int LIMIT = 128 + SIGXFSZ;

int usage() {
    std::fputs("usage: escape [-0 | -s | -u] <FILE\n", stderr);
    return WRONG_USAGE;
}

// What the only argument says. 0, or -1.
int readOption(std::string_view option, LineEnd* ends) {
    constexpr struct {
        std::string_view name;
        LineEnd ends;
    } OPTIONS[] = {
        {"-0", LineEnd::NUL}, {"-s", LineEnd::LONG_LINES}, {"-u", LineEnd::SOCKET_USERS}};
    for (const auto& known : OPTIONS) {
        if (known.name == option) {
            *ends = known.ends;
            return 0;
        }
    }
    return -1;
}

int failed() {
    return errno == EFBIG ? LIMIT : FAILED;
}

// Whatever was read is written at once: the program that is read may be slow.
int copy(LineEnd ends) {
    static ToolOutput out{.fd = STDOUT_FILENO};
    static std::array<char, 65536> piece;
    Escape escape{.ends = ends, .out = &out};
    for (;;) {
        const ssize_t length = ::read(STDIN_FILENO, piece.data(), piece.size());
        if (length > 0) {
            escapeText(escape, {piece.data(), static_cast<std::size_t>(length)});
        } else if (length == 0 || errno != EINTR) {
            escapeEnd(escape);
            return toolFlush(out) == 0 ? 0 : failed();
        }
        if (toolFlush(out) != 0) {
            return failed();
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    LineEnd ends = LineEnd::FEED;
    if (argc > 2 || (argc == 2 && readOption(argv[1], &ends) != 0)) {
        return usage();
    }
    ::signal(SIGXFSZ, SIG_IGN);  // a limit makes a write fail
    return copy(ends);
}
