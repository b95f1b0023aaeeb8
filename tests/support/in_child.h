// Runs code in a child process and keeps its output: for state that lasts as long as the process,
// for code that ends the process, and for limits that must not outlast a test.
#ifndef QUENDIL_TESTS_SUPPORT_IN_CHILD_H
#define QUENDIL_TESTS_SUPPORT_IN_CHILD_H

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#if defined(__SANITIZE_ADDRESS__)
inline constexpr bool ADDRESS_SANITIZER = true;
#else
inline constexpr bool ADDRESS_SANITIZER = false;
#endif

struct ChildResult {
    int status;       // exit status; -1 when a signal ended the child
    std::string out;  // standard output
    std::string err;  // standard error
};

namespace in_child {

inline int openScratch() {
    const int fd = ::open("/tmp", O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
    if (fd == -1) {
        std::abort();
    }
    return fd;
}

inline std::string takeScratch(int fd) {
    std::string text(static_cast<std::size_t>(::lseek(fd, 0, SEEK_END)), '\0');
    if (::pread(fd, text.data(), text.size(), 0) != static_cast<ssize_t>(text.size())) {
        std::abort();
    }
    ::close(fd);
    return text;
}

}  // namespace in_child

/// Calls `body` in a child, which exits with 0 when it returns.
template <typename Body>
ChildResult inChild(Body body) {
    const int out = in_child::openScratch();
    const int err = in_child::openScratch();
    std::fflush(nullptr);
    const pid_t pid = ::fork();
    if (pid == 0) {
        if (::dup2(out, STDOUT_FILENO) == -1 || ::dup2(err, STDERR_FILENO) == -1) {
            std::abort();
        }
        body();
        std::exit(0);
    }
    int status = 0;
    if (pid == -1 || ::waitpid(pid, &status, 0) != pid) {
        std::abort();
    }
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, in_child::takeScratch(out),
            in_child::takeScratch(err)};
}

/// Uses up all memory of the process: no block of 16 bytes or more can be allocated any more. For
/// children only, and not where the address sanitizer replaces the allocator.
inline void exhaustMemory() {
    const struct rlimit none = {0, 0};
    if (::setrlimit(RLIMIT_AS, &none) != 0) {
        std::abort();
    }
    for (std::size_t size = std::size_t{1} << 20; size >= 16; size /= 2) {
        void* volatile taken = nullptr;  // an optimizer leaves out a block that has no use
        do {
            taken = std::malloc(size);
        } while (taken != nullptr);
    }
}

#endif
