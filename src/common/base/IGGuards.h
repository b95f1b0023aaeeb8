// Guards: each undoes one thing at the end of its scope. They cannot be copied, preserve errno and
// never report.
#ifndef QUENDIL_COMMON_BASE_IGGUARDS_H
#define QUENDIL_COMMON_BASE_IGGUARDS_H

#include <dirent.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <utility>

#include "common/base/IGCmnMemory.h"
#include "common/base/IGRunState.h"

/// Preserves errno over a scope whose calls may change it.
class ErrnoKeeper {
  public:
    ErrnoKeeper() = default;
    ~ErrnoKeeper() { errno = saved_; }
    ErrnoKeeper(const ErrnoKeeper&) = delete;
    ErrnoKeeper& operator=(const ErrnoKeeper&) = delete;

  private:
    int saved_ = errno;
};

/// Owns a descriptor; -1 when it has none.
class FdGuard {
  public:
    explicit FdGuard(int fd = -1) : fd_(fd) {}
    ~FdGuard() { reset(); }
    FdGuard(const FdGuard&) = delete;
    FdGuard& operator=(const FdGuard&) = delete;
    [[nodiscard]] int get() const { return fd_; }
    [[nodiscard]] explicit operator bool() const { return fd_ >= 0; }
    [[nodiscard]] int release() { return std::exchange(fd_, -1); }
    void reset(int fd = -1) {
        if (fd_ >= 0) {
            const ErrnoKeeper keeper;
            ::close(fd_);
        }
        fd_ = fd;
    }

  private:
    int fd_;
};

/// Owns a stream; null when it has none.
class FileGuard {
  public:
    explicit FileGuard(std::FILE* stream) : stream_(stream) {}
    ~FileGuard() {
        if (stream_ != nullptr) {
            const ErrnoKeeper keeper;
            std::fclose(stream_);
        }
    }
    FileGuard(const FileGuard&) = delete;
    FileGuard& operator=(const FileGuard&) = delete;
    [[nodiscard]] std::FILE* get() const { return stream_; }
    [[nodiscard]] explicit operator bool() const { return stream_ != nullptr; }
    [[nodiscard]] std::FILE* release() { return std::exchange(stream_, nullptr); }

  private:
    std::FILE* stream_;
};

/// Owns an open directory; null when it has none.
class DirGuard {
  public:
    explicit DirGuard(DIR* dir) : dir_(dir) {}
    ~DirGuard() {
        if (dir_ != nullptr) {
            const ErrnoKeeper keeper;
            ::closedir(dir_);
        }
    }
    DirGuard(const DirGuard&) = delete;
    DirGuard& operator=(const DirGuard&) = delete;
    [[nodiscard]] DIR* get() const { return dir_; }
    [[nodiscard]] explicit operator bool() const { return dir_ != nullptr; }

  private:
    DIR* dir_;
};

/// Sets the file-creation mask for a scope.
class UmaskGuard {
  public:
    explicit UmaskGuard(mode_t mask) : saved_(::umask(mask)) {}
    ~UmaskGuard() { ::umask(saved_); }
    UmaskGuard(const UmaskGuard&) = delete;
    UmaskGuard& operator=(const UmaskGuard&) = delete;

  private:
    mode_t saved_;
};

/// Blocks the interrupting signals for a scope, so that the handler never sees a half-made change.
class InterruptionBlock {
  public:
    InterruptionBlock() {
        const sigset_t interrupting = interruptingSignals();
        ::sigprocmask(SIG_BLOCK, &interrupting, &saved_);
    }
    ~InterruptionBlock() {
        const ErrnoKeeper keeper;
        ::sigprocmask(SIG_SETMASK, &saved_, nullptr);
    }
    InterruptionBlock(const InterruptionBlock&) = delete;
    InterruptionBlock& operator=(const InterruptionBlock&) = delete;
    [[nodiscard]] const sigset_t& saved() const { return saved_; }

  private:
    sigset_t saved_{};
};

/// A pool for one function's temporaries, freed at the end of the scope.
class LocalPool {
  public:
    LocalPool() = default;
    ~LocalPool() {
        const ErrnoKeeper keeper;
        IgCmnMemoryFree(&pool_, nullptr, 0);
    }
    LocalPool(const LocalPool&) = delete;
    LocalPool& operator=(const LocalPool&) = delete;
    [[nodiscard]] memory_pool* get() { return &pool_; }

  private:
    memory_pool pool_ = nullptr;
};

#endif
