// Calls of the system that a unit test stands in for: they fail when the test says so, or answer
// what it wants. The linker leads the product's calls here (--wrap), in every build and under every
// sanitizer; without an order they do what they always do.
#ifndef QUENDIL_TESTS_SUPPORT_STANDING_IN_H
#define QUENDIL_TESTS_SUPPORT_STANDING_IN_H

#include <cstddef>
#include <ctime>
#include <string>

/// What can be made to fail.
enum class Call {
    CALLOC,  // the one allocator behind the memory pool
    POOL,    // a block from a pool, whether or not it would need the allocator
    UNGETWC,
    READDIR,
    REMOVE,  // with no error: it succeeds, but what it removed is there again at once
    GETHOSTNAME,
    FORK,
    CLOSE_RANGE,
    SETLOCALE,
    MBSTOWCS,
    WCSTOMBS,
};

/// While it lives, one call fails with an error number: the n-th, counted from 1 at its start.
class FailingCall {
  public:
    FailingCall(Call call, int nth, int error);
    ~FailingCall();
    FailingCall(const FailingCall&) = delete;
    FailingCall& operator=(const FailingCall&) = delete;
    /// Whether there was an n-th call.
    [[nodiscard]] static bool happened();
};

/// While it lives, the clock stands still.
class StandingClock {
  public:
    explicit StandingClock(std::time_t now);
    ~StandingClock();
    StandingClock(const StandingClock&) = delete;
    StandingClock& operator=(const StandingClock&) = delete;
};

/// While it lives, the host has this name, which may be longer than the kernel would take.
class HostNamed {
  public:
    explicit HostNamed(std::string name);
    ~HostNamed();
    HostNamed(const HostNamed&) = delete;
    HostNamed& operator=(const HostNamed&) = delete;
};

/// While it lives, something happens when the next directory has been read to its end.
class AtEndOfDirectory {
  public:
    explicit AtEndOfDirectory(void (*happens)());
    ~AtEndOfDirectory();
    AtEndOfDirectory(const AtEndOfDirectory&) = delete;
    AtEndOfDirectory& operator=(const AtEndOfDirectory&) = delete;
};

/// Blocks that the product has from calloc and has not freed yet. Only differences count.
std::size_t liveChunks();

/// True when no test has left anything behind that still stands in.
bool nothingStandsIn();

#endif
