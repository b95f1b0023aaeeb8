// Library and system calls that fail, or return a given result, when a unit test requests it. The
// linker redirects the product's calls here (--wrap), in every build and under every sanitizer;
// without a request each calls the real function.
#ifndef QUENDIL_TESTS_SUPPORT_WRAPPED_CALLS_H
#define QUENDIL_TESTS_SUPPORT_WRAPPED_CALLS_H

#include <cstddef>
#include <ctime>
#include <string>

/// The calls that can be made to fail.
enum class Call {
    CALLOC,  // the one allocator behind the memory pool
    POOL,    // a block from a pool, with or without a call of the allocator
    UNGETWC,
    READDIR,
    INOTIFY_INIT,
    INOTIFY_WATCH,
    LSTAT,
    REMOVE,  // with no error: it succeeds, but the removed file exists again at once
    GETHOSTNAME,
    FORK,
    CLOSE_RANGE,
    SETLOCALE,
    MBSTOWCS,
    WCSTOMBS,
};

/// While it exists, one call fails with an error number: the n-th, counted from 1 at its start.
class FailingCall {
  public:
    FailingCall(Call call, int nth, int error);
    ~FailingCall();
    FailingCall(const FailingCall&) = delete;
    FailingCall& operator=(const FailingCall&) = delete;
    /// Whether there was an n-th call.
    [[nodiscard]] static bool happened();
};

/// While it exists, the clock does not move.
class FixedClock {
  public:
    explicit FixedClock(std::time_t now);
    ~FixedClock();
    FixedClock(const FixedClock&) = delete;
    FixedClock& operator=(const FixedClock&) = delete;
};

/// While it exists, the host has this name, which may be longer than the kernel would accept.
class HostNamed {
  public:
    explicit HostNamed(std::string name);
    ~HostNamed();
    HostNamed(const HostNamed&) = delete;
    HostNamed& operator=(const HostNamed&) = delete;
};

/// While it exists, `happens` is called when the next directory has been read to its end.
class AtEndOfDirectory {
  public:
    explicit AtEndOfDirectory(void (*happens)());
    ~AtEndOfDirectory();
    AtEndOfDirectory(const AtEndOfDirectory&) = delete;
    AtEndOfDirectory& operator=(const AtEndOfDirectory&) = delete;
};

/// While it exists, an entry of this name is read twice from each directory, as one may be from a
/// directory that changes meanwhile.
class TwiceRead {
  public:
    explicit TwiceRead(std::string name);
    ~TwiceRead();
    TwiceRead(const TwiceRead&) = delete;
    TwiceRead& operator=(const TwiceRead&) = delete;
};

/// Blocks that the product has from calloc and has not freed yet. Only differences count.
std::size_t liveChunks();

/// True when no call is replaced any more.
bool noCallIsReplaced();

#endif
