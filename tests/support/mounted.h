// Mounts for one scope, on the private machine that a unit test runs on: they make system calls
// fail for the super user too.
#ifndef QUENDIL_TESTS_SUPPORT_MOUNTED_H
#define QUENDIL_TESTS_SUPPORT_MOUNTED_H

#include <sys/mount.h>

#include <cstdlib>
#include <string>
#include <utility>

/// Mounts a file or directory over another.
class Mounted {
  public:
    Mounted(const std::string& source, std::string target) : target_(std::move(target)) {
        if (::mount(source.c_str(), target_.c_str(), nullptr, MS_BIND, nullptr) != 0) {
            std::abort();
        }
    }
    ~Mounted() { ::umount2(target_.c_str(), MNT_DETACH); }
    Mounted(const Mounted&) = delete;
    Mounted& operator=(const Mounted&) = delete;

  protected:
    std::string target_;
};

/// Makes a directory and all in it read-only.
class ReadOnly : public Mounted {
  public:
    explicit ReadOnly(const std::string& path) : Mounted(path, path) {
        if (::mount(nullptr, path.c_str(), nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr) !=
            0) {
            std::abort();
        }
    }
};

#endif
