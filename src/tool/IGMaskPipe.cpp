#include "tool/IGMaskPipe.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "common/base/IGCmnStr.h"
#include "common/base/IGGuards.h"

namespace {

constexpr int NOT_STARTED = 127;

struct MaskProgram {
    std::array<char, std::size_t{PATH_MAX}> path{};
};

// Finds the path of the filter: in the directory of this program by /proc/self/exe, or without
// /proc in that of `command`.
// @return 0, or -1 with errno set when the path is too long
int findMask(const char* command, MaskProgram& program) {
    constexpr const char* NAME = "mask";
    const ssize_t length = ::readlink("/proc/self/exe", program.path.data(), program.path.size());
    if (length <= 0 || static_cast<std::size_t>(length) >= program.path.size()) {
        std::snprintf(program.path.data(), program.path.size(), "%s", command);
    } else {
        program.path.at(static_cast<std::size_t>(length)) = '\0';
    }
    char* slash = lastSlash(program.path.data());
    char* name = slash == nullptr ? program.path.data() : slash + 1;
    const auto room = static_cast<std::size_t>(program.path.end() - name);
    if (std::strlen(NAME) >= room) {
        errno = ENAMETOOLONG;
        return -1;
    }
    std::snprintf(name, room, "%s", NAME);
    return 0;
}

[[noreturn]] void becomeMask(const MaskProgram& program, int input, rlim_t most_bytes,
                             const sigset_t& signals) {
    const struct rlimit limit = {most_bytes, most_bytes};
    ::signal(SIGTERM, SIG_IGN);
    ::sigprocmask(SIG_SETMASK, &signals, nullptr);
    ::signal(SIGPIPE, SIG_DFL);
    ::signal(SIGXFSZ, SIG_DFL);
    if (::dup2(input, STDIN_FILENO) != -1 && ::setrlimit(RLIMIT_FSIZE, &limit) == 0) {
        ::execl(program.path.data(), "mask", static_cast<char*>(nullptr));
    }
    ::_exit(NOT_STARTED);
}

}  // namespace

int maskStart(MaskPipe& mask, const char* command, rlim_t most_bytes) {
    MaskProgram program;
    std::array<int, 2> ends{};
    if (findMask(command, program) != 0 || ::pipe2(ends.data(), O_CLOEXEC) != 0) {
        return -1;
    }
    const FdGuard input(ends[0]);
    FdGuard output(ends[1]);
    const InterruptionBlock block;  // until the filter ignores SIGTERM
    mask.pid = ::fork();
    if (mask.pid == 0) {
        becomeMask(program, input.get(), most_bytes, block.saved());
    }
    if (mask.pid == -1) {
        return -1;
    }
    mask.fd = output.release();
    return 0;
}

MaskEnd maskFinish(MaskPipe& mask) {
    int status = 0;
    ::close(mask.fd);
    while (::waitpid(mask.pid, &status, 0) == -1) {
        if (errno != EINTR) {
            return MaskEnd::FAILED;
        }
    }
    constexpr int LIMIT = 128 + SIGXFSZ;  // the status that a shell has for the signal
    if (WIFSIGNALED(status) ? WTERMSIG(status) == SIGXFSZ : WEXITSTATUS(status) == LIMIT) {
        return MaskEnd::LIMITED;
    }
    return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? MaskEnd::ALL : MaskEnd::FAILED;
}
