#include "wrapped_calls.h"

#include <dirent.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cwchar>
#include <utility>

#include "common/base/IGCmnMemory.h"
#include "common/report/IGCmnMessage.h"

namespace {

// Plain data only: the allocator is called before any constructor runs.
struct Order {
    bool given;
    Call call;
    int left;  // calls that still succeed before the one that fails
    int error;
    bool happened;
};
Order order;
std::time_t fixed_time;
bool clock_fixed;
const std::string* host_name;
void (*at_end_of_directory)();
const std::string* twice_read;
struct dirent* read_before;            // the entry that is read again; or null
std::atomic<std::size_t> live_chunks;  // may wrap around: blocks from elsewhere are freed too

bool failsNow(Call call) {
    if (!order.given || order.call != call || order.happened || --order.left > 0) {
        return false;
    }
    order.happened = true;
    errno = order.error;
    return true;
}

struct dirent* orItsEnd(struct dirent* entry) {
    if (entry == nullptr && at_end_of_directory != nullptr) {
        const int kept_errno = errno;
        std::exchange(at_end_of_directory, nullptr)();
        errno = kept_errno;
    }
    return entry;
}

template <typename Read>
struct dirent* readEntry(DIR* directory, Read read) {
    if (read_before != nullptr) {
        return std::exchange(read_before, nullptr);
    }
    struct dirent* entry = read(directory);
    if (entry != nullptr && twice_read != nullptr && entry->d_name == *twice_read) {
        read_before = entry;
    }
    return orItsEnd(entry);
}

}  // namespace

FailingCall::FailingCall(Call call, int nth, int error) {
    order = {true, call, nth, error, false};
}

FailingCall::~FailingCall() {
    order = Order{};
}

bool FailingCall::happened() {
    return order.happened;
}

FixedClock::FixedClock(std::time_t now) {
    fixed_time = now;
    clock_fixed = true;
}

FixedClock::~FixedClock() {
    clock_fixed = false;
}

HostNamed::HostNamed(std::string name) {
    host_name = new std::string(std::move(name));
}

HostNamed::~HostNamed() {
    delete std::exchange(host_name, nullptr);
}

AtEndOfDirectory::AtEndOfDirectory(void (*happens)()) {
    at_end_of_directory = happens;
}

AtEndOfDirectory::~AtEndOfDirectory() {
    at_end_of_directory = nullptr;
}

TwiceRead::TwiceRead(std::string name) {
    twice_read = new std::string(std::move(name));
}

TwiceRead::~TwiceRead() {
    delete std::exchange(twice_read, nullptr);
    read_before = nullptr;
}

std::size_t liveChunks() {
    return live_chunks;
}

bool noCallIsReplaced() {
    return !order.given && !clock_fixed && host_name == nullptr && at_end_of_directory == nullptr &&
           twice_read == nullptr;
}

// IgCmnMemoryAlloc(memory_pool*, std::size_t), by its symbol name.
void* realPoolAlloc(memory_pool* memoryp,
                    std::size_t size) asm("__real__Z16IgCmnMemoryAllocPP10MemoryPoolm");
void* wrapPoolAlloc(memory_pool* memoryp,
                    std::size_t size) asm("__wrap__Z16IgCmnMemoryAllocPP10MemoryPoolm");
void* wrapPoolAlloc(memory_pool* memoryp, std::size_t size) {
    if (!failsNow(Call::POOL)) {
        return realPoolAlloc(memoryp, size);
    }
    IgCmnMsg<ZEPA122_E>();
    return nullptr;
}

extern "C" {

void* __real_calloc(std::size_t count, std::size_t size);
void* __wrap_calloc(std::size_t count, std::size_t size);
void* __wrap_calloc(std::size_t count, std::size_t size) {
    if (failsNow(Call::CALLOC)) {
        return nullptr;
    }
    ++live_chunks;
    return __real_calloc(count, size);
}

void __real_free(void* block);
void __wrap_free(void* block);
void __wrap_free(void* block) {
    if (block != nullptr) {
        --live_chunks;
    }
    __real_free(block);
}

std::wint_t __real_ungetwc(std::wint_t c, std::FILE* stream);
std::wint_t __wrap_ungetwc(std::wint_t c, std::FILE* stream);
std::wint_t __wrap_ungetwc(std::wint_t c, std::FILE* stream) {
    return failsNow(Call::UNGETWC) ? WEOF : __real_ungetwc(c, stream);
}

struct dirent* __real_readdir(DIR* directory);
struct dirent* __wrap_readdir(DIR* directory);
struct dirent* __wrap_readdir(DIR* directory) {
    return failsNow(Call::READDIR) ? nullptr : readEntry(directory, __real_readdir);
}

// With 64-bit file offsets the headers may give the function this name.
struct dirent* __real_readdir64(DIR* directory);
struct dirent* __wrap_readdir64(DIR* directory);
struct dirent* __wrap_readdir64(DIR* directory) {
    return failsNow(Call::READDIR) ? nullptr : readEntry(directory, __real_readdir64);
}

int __real_inotify_init1(int flags);
int __wrap_inotify_init1(int flags);
int __wrap_inotify_init1(int flags) {
    return failsNow(Call::INOTIFY_INIT) ? -1 : __real_inotify_init1(flags);
}

int __real_inotify_add_watch(int fd, const char* path, std::uint32_t mask);
int __wrap_inotify_add_watch(int fd, const char* path, std::uint32_t mask);
int __wrap_inotify_add_watch(int fd, const char* path, std::uint32_t mask) {
    return failsNow(Call::INOTIFY_WATCH) ? -1 : __real_inotify_add_watch(fd, path, mask);
}

int __real_lstat(const char* path, struct stat* st);
int __wrap_lstat(const char* path, struct stat* st);
int __wrap_lstat(const char* path, struct stat* st) {
    return failsNow(Call::LSTAT) ? -1 : __real_lstat(path, st);
}

// With 64-bit file offsets the headers may give the function this name.
int __real_lstat64(const char* path, struct stat* st);
int __wrap_lstat64(const char* path, struct stat* st);
int __wrap_lstat64(const char* path, struct stat* st) {
    return failsNow(Call::LSTAT) ? -1 : __real_lstat64(path, st);
}

int __real_remove(const char* path);
int __wrap_remove(const char* path);
int __wrap_remove(const char* path) {
    if (failsNow(Call::REMOVE)) {
        return errno == 0 ? 0 : -1;
    }
    return __real_remove(path);
}

int __real_gethostname(char* name, std::size_t size);
int __wrap_gethostname(char* name, std::size_t size);
int __wrap_gethostname(char* name, std::size_t size) {
    if (failsNow(Call::GETHOSTNAME)) {
        return -1;
    }
    if (host_name == nullptr) {
        return __real_gethostname(name, size);
    }
    // As POSIX allows: a name that does not fit is truncated, perhaps without a terminator.
    std::copy_n(host_name->c_str(), std::min(host_name->size() + 1, size), name);
    return 0;
}

pid_t __real_fork();
pid_t __wrap_fork();
pid_t __wrap_fork() {
    return failsNow(Call::FORK) ? -1 : __real_fork();
}

int __real_close_range(unsigned first, unsigned last, int flags);
int __wrap_close_range(unsigned first, unsigned last, int flags);
int __wrap_close_range(unsigned first, unsigned last, int flags) {
    return failsNow(Call::CLOSE_RANGE) ? -1 : __real_close_range(first, last, flags);
}

char* __real_setlocale(int category, const char* locale);
char* __wrap_setlocale(int category, const char* locale);
char* __wrap_setlocale(int category, const char* locale) {
    return failsNow(Call::SETLOCALE) ? nullptr : __real_setlocale(category, locale);
}

std::size_t __real_mbstowcs(wchar_t* out, const char* text, std::size_t count);
std::size_t __wrap_mbstowcs(wchar_t* out, const char* text, std::size_t count);
std::size_t __wrap_mbstowcs(wchar_t* out, const char* text, std::size_t count) {
    return failsNow(Call::MBSTOWCS) ? static_cast<std::size_t>(-1)
                                    : __real_mbstowcs(out, text, count);
}

std::size_t __real_wcstombs(char* out, const wchar_t* text, std::size_t count);
std::size_t __wrap_wcstombs(char* out, const wchar_t* text, std::size_t count);
std::size_t __wrap_wcstombs(char* out, const wchar_t* text, std::size_t count) {
    return failsNow(Call::WCSTOMBS) ? static_cast<std::size_t>(-1)
                                    : __real_wcstombs(out, text, count);
}

std::time_t __real_time(std::time_t* now);
std::time_t __wrap_time(std::time_t* now);
std::time_t __wrap_time(std::time_t* now) {
    if (!clock_fixed) {
        return __real_time(now);
    }
    if (now != nullptr) {
        *now = fixed_time;
    }
    return fixed_time;
}
}
