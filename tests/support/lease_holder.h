// A process that holds leases on files, as a file server does for its clients.
#ifndef QUENDIL_TESTS_SUPPORT_LEASE_HOLDER_H
#define QUENDIL_TESTS_SUPPORT_LEASE_HOLDER_H

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <string>
#include <vector>

#include "common/base/IGGuards.h"

/// What a holder does once another process opens a file.
enum class WhenAsked { GIVES_UP, KEEPS };

/// Holds write leases on files while it exists.
class LeaseHolder {
  public:
    LeaseHolder(const std::vector<std::string>& paths, WhenAsked when_asked) {
        std::array<int, 2> ends{};
        if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
            return;
        }
        const FdGuard reader(ends[0]);
        FdGuard writer(ends[1]);
        pid_ = ::fork();
        if (pid_ == 0) {
            hold(paths, when_asked, writer.get());
        }
        writer.reset();
        char held = 0;
        holds_ = ::read(reader.get(), &held, 1) == 1;
    }
    ~LeaseHolder() {
        if (pid_ > 0) {
            ::kill(pid_, SIGKILL);
            ::waitpid(pid_, nullptr, 0);
        }
    }
    LeaseHolder(const LeaseHolder&) = delete;
    LeaseHolder& operator=(const LeaseHolder&) = delete;

    /// Whether the kernel has granted every lease.
    [[nodiscard]] bool holds() const { return holds_; }

  private:
    [[noreturn]] static void hold(const std::vector<std::string>& paths, WhenAsked when_asked,
                                  int ready) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        sigset_t asked;
        ::sigemptyset(&asked);
        ::sigaddset(&asked, SIGIO);
        ::sigprocmask(SIG_BLOCK, &asked, nullptr);
        std::vector<int> files;
        for (const std::string& path : paths) {
            files.push_back(::open(path.c_str(), O_RDWR | O_CLOEXEC));
            if (::fcntl(files.back(), F_SETLEASE, F_WRLCK) != 0) {
                ::_exit(1);
            }
        }
        if (::write(ready, "y", 1) != 1) {
            ::_exit(1);
        }
        for (;;) {
            int signo = 0;
            ::sigwait(&asked, &signo);
            for (const int fd : files) {
                if (when_asked == WhenAsked::GIVES_UP) {
                    ::fcntl(fd, F_SETLEASE, F_UNLCK);
                }
            }
        }
    }

    pid_t pid_ = -1;
    bool holds_ = false;
};

#endif
