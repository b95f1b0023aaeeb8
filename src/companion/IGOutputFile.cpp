#include "companion/IGOutputFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr std::size_t BUFFER_BYTES = std::size_t{64} * 1024;
constexpr mode_t MODE = 0600;  // what was collected is secret

// Signals that users, terminals and limits end a program with.
constexpr std::array<int, 6> ENDING{SIGHUP, SIGINT, SIGQUIT, SIGPIPE, SIGTERM, SIGXCPU};

sigset_t endingSignals() {
    sigset_t set;
    ::sigemptyset(&set);
    for (const int signal : ENDING) {
        ::sigaddset(&set, signal);
    }
    return set;
}

// Blocks them for a scope, so that their handler never sees a half-made change.
class EndingBlock {
  public:
    EndingBlock() {
        const sigset_t ending = endingSignals();
        ::sigprocmask(SIG_BLOCK, &ending, &saved_);
    }
    ~EndingBlock() {
        const ErrnoKeeper keeper;
        ::sigprocmask(SIG_SETMASK, &saved_, nullptr);
    }
    EndingBlock(const EndingBlock&) = delete;
    EndingBlock& operator=(const EndingBlock&) = delete;

  private:
    sigset_t saved_{};
};

// Has the handler called for those that end the program by default: one that is ignored, as by
// nohup(1), stays so.
void handleEnding(void (*handler)(int)) {
    struct sigaction action = {};
    action.sa_handler = handler;
    action.sa_mask = endingSignals();
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    for (const int signal : ENDING) {
        struct sigaction former = {};
        if (::sigaction(signal, nullptr, &former) == 0 && former.sa_handler == SIG_DFL) {
            ::sigaction(signal, &action, nullptr);
        }
    }
}

// The name under /proc by which a file without a name can be linked (open(2), O_TMPFILE).
using ProcPath = std::array<char, 64>;
ProcPath procPath(int file) {
    ProcPath path{};
    std::snprintf(path.data(), path.size(), "/proc/self/fd/%d", file);
    return path;
}

}  // namespace

OutputFile* OutputFile::first_ = nullptr;

OutputFile::~OutputFile() {
    if (!temporary_.empty()) {
        const EndingBlock block;
        ::unlinkat(directory_.get(), temporary_.c_str(), 0);
        strike();
    }
}

// --- files with a temporary name; signals are blocked ---

void OutputFile::enlist() {
    next_ = first_;
    first_ = this;
    handleEnding(removeAll);
}

void OutputFile::strike() {
    OutputFile** place = &first_;
    while (*place != nullptr && *place != this) {
        place = &(*place)->next_;
    }
    if (*place == this) {
        *place = next_;
    }
    temporary_.clear();
}

// The handler: it calls only what is safe there (signal-safety(7)).
void OutputFile::removeAll(int signal) {
    for (const OutputFile* file = first_; file != nullptr; file = file->next_) {
        ::unlinkat(file->directory_.get(), file->temporary_.c_str(), 0);
    }
    // SA_RESETHAND has put the default action back, which ends the program when this returns.
    ::raise(signal);
}

// --- the file ---

bool OutputFile::fail() {
    error_ = std::strerror(errno);
    return false;
}

bool OutputFile::open(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    const std::string parent = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    const FdGuard directory(::open(parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!directory) {
        return fail();
    }
    return openIn(directory.get(), slash == std::string::npos ? path : path.substr(slash + 1));
}

bool OutputFile::openIn(int directory, const std::string& name) {
    name_ = name;
    directory_.reset(::fcntl(directory, F_DUPFD_CLOEXEC, 0));
    if (!directory_) {
        return fail();
    }
    struct stat st = {};
    if (name_.empty() || name_ == "." || name_ == "..") {
        errno = EISDIR;
        return fail();
    }
    if (::fstatat(directory_.get(), name_.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0) {
        errno = EEXIST;
        return fail();
    }
    if (!openUnnamed() && !openNamed()) {
        return fail();
    }
    return ::fchmod(file_.get(), MODE) == 0 || fail();
}

// A file without a name vanishes even if the program is killed. It can get one only where /proc is.
bool OutputFile::openUnnamed() {
    file_.reset(::openat(directory_.get(), ".", O_TMPFILE | O_WRONLY | O_CLOEXEC, MODE));
    if (file_ && ::access(procPath(file_.get()).data(), F_OK) != 0) {
        file_.reset();
    }
    return static_cast<bool>(file_);
}

// For file systems that have only files with names.
bool OutputFile::openNamed() {
    const EndingBlock block;
    temporary_ = "." + name_ + "." + std::to_string(::getpid());
    file_.reset(::openat(directory_.get(), temporary_.c_str(),
                         O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC | O_NOFOLLOW, MODE));
    if (!file_) {
        temporary_.clear();
        return false;
    }
    enlist();
    return true;
}

bool OutputFile::write(std::string_view bytes) {
    buffer_ += bytes;
    return buffer_.size() < BUFFER_BYTES || flush();
}

bool OutputFile::flush() {
    std::string_view rest = buffer_;
    while (!rest.empty()) {
        const ssize_t written = ::write(file_.get(), rest.data(), rest.size());
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written < 0) {
            return fail();
        }
        rest.remove_prefix(static_cast<std::size_t>(written));
    }
    buffer_.clear();
    return true;
}

bool OutputFile::commit() {
    if (!flush()) {
        return false;
    }
    // Network file systems report a full disk here.
    if (::fsync(file_.get()) != 0 && errno != EINVAL) {
        return fail();
    }
    return (temporary_.empty() ? linkUnnamed() : renameNamed()) || fail();
}

bool OutputFile::linkUnnamed() {
    return ::linkat(AT_FDCWD, procPath(file_.get()).data(), directory_.get(), name_.c_str(),
                    AT_SYMLINK_FOLLOW) == 0;
}

bool OutputFile::renameNamed() {
    const EndingBlock block;
    const int directory = directory_.get();
    if (::linkat(directory, temporary_.c_str(), directory, name_.c_str(), 0) == 0) {
        return true;  // the destructor removes the other name
    }
    if (errno == EEXIST || ::renameat2(directory, temporary_.c_str(), directory, name_.c_str(),
                                       RENAME_NOREPLACE) != 0) {
        return false;
    }
    strike();
    return true;
}
