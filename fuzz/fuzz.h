// Shared by the fuzz targets: an initialised memory pool, and the input as a text or as a file.
#ifndef QUENDIL_FUZZ_FUZZ_H
#define QUENDIL_FUZZ_FUZZ_H

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <clocale>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "common/base/IGCmnMemory.h"

/// Prepares the process once, in a locale that decodes UTF-8.
inline void fuzzStart() {
    static const bool started = [] {
        IgCmnMemoryInit();
        return std::setlocale(LC_ALL, "C.UTF-8") != nullptr;
    }();
    if (!started) {
        std::abort();
    }
}

/// Aborts the process if a condition that must always hold does not.
inline void fuzzRequire(bool holds) {
    if (!holds) {
        std::abort();
    }
}

/// The input up to its first NUL.
inline std::string fuzzText(const std::uint8_t* data, std::size_t size) {
    return std::string(reinterpret_cast<const char*>(data), size).c_str();
}

/// The input as a file in memory, with a path that opens it.
class FuzzFile {
  public:
    FuzzFile(const std::uint8_t* data, std::size_t size) : fd_(::memfd_create("input", 0)) {
        fuzzRequire(fd_ >= 0 && ::write(fd_, data, size) == static_cast<ssize_t>(size));
        path_ = "/proc/self/fd/" + std::to_string(fd_);
    }
    ~FuzzFile() { ::close(fd_); }
    FuzzFile(const FuzzFile&) = delete;
    FuzzFile& operator=(const FuzzFile&) = delete;
    [[nodiscard]] const char* path() const { return path_.c_str(); }

  private:
    int fd_;
    std::string path_;
};

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

#endif
