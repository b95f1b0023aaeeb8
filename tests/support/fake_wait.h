// Replaces the two calls that wait for a child and stop it: a sleep is recorded and takes no time,
// a signal is recorded and may be withheld from its target. Only one file of a test may include
// this: it defines the C library's functions for the whole program.
#ifndef QUENDIL_TESTS_SUPPORT_FAKE_WAIT_H
#define QUENDIL_TESTS_SUPPORT_FAKE_WAIT_H

#include <signal.h>
#include <sys/select.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <functional>
#include <set>
#include <utility>
#include <vector>

struct FakeWait {
    bool active = false;
    std::vector<long> sleeps;                 // in microseconds
    int watched = -1;                         // the highest descriptor that ends the sleep
    std::vector<std::pair<pid_t, int>> sent;  // targets and signals
    std::set<int> lost;                       // signals that never arrive
    int select_error = 0;                     // of every sleep
    int kill_error = 0;                       // of every signal that is lost
    std::function<void()> on_sleep;
    std::function<void()> on_signal;  // once, before the next signal is recorded and sent
};
inline FakeWait fake_wait;

extern "C" int select(int count, fd_set* readable, fd_set* writable, fd_set* special,
                      struct timeval* time) {
    if (!fake_wait.active) {
        struct timespec exact = {0, 0};
        if (time != nullptr) {
            exact = {time->tv_sec, time->tv_usec * 1000};
        }
        return static_cast<int>(::syscall(SYS_pselect6, count, readable, writable, special,
                                          time == nullptr ? nullptr : &exact, nullptr));
    }
    fake_wait.sleeps.push_back(time->tv_sec * 1000000 + time->tv_usec);
    fake_wait.watched =
        count > 0 && readable != nullptr && FD_ISSET(count - 1, readable) ? count - 1 : -1;
    if (fake_wait.on_sleep) {
        fake_wait.on_sleep();
    }
    errno = fake_wait.select_error;
    if (fake_wait.select_error == 0) {
        *time = {0, 0};  // as the kernel does: no time is left
    }
    return fake_wait.select_error == 0 ? 0 : -1;
}

inline int reallyKill(pid_t pid, int signo) {
    return static_cast<int>(::syscall(SYS_kill, pid, signo));
}

extern "C" int kill(pid_t pid, int signo) noexcept {
    if (!fake_wait.active) {
        return reallyKill(pid, signo);
    }
    if (fake_wait.on_signal) {
        std::exchange(fake_wait.on_signal, nullptr)();
    }
    fake_wait.sent.emplace_back(pid, signo);
    if (fake_wait.lost.contains(signo)) {
        errno = fake_wait.kill_error;
        return fake_wait.kill_error == 0 ? 0 : -1;
    }
    return reallyKill(pid, signo);
}

/// Returns when a child of this process has ended, and leaves it to be reaped.
inline void awaitChild(pid_t pid) {
    siginfo_t info = {};
    ::waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT);
}

/// Kills a child of this process; it is then still to be reaped.
inline void endChild(pid_t pid) {
    reallyKill(pid, SIGKILL);
    awaitChild(pid);
}

#endif
