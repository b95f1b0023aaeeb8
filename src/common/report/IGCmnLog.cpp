#include "common/report/IGCmnLog.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "common/base/IGAssert.h"
#include "common/base/IGCmnStr.h"
#include "common/base/IGCmnSystem.h"
#include "common/base/IGCmnTime.h"
#include "common/base/IGGuards.h"
#include "common/base/IGOpen.h"
#include "common/base/IGPatience.h"
#include "common/base/IGRunState.h"
#include "common/report/IGCmnMessage.h"
#include "common/report/IGCmnMessageState.h"
#include "common/report/IGSysErr.h"

// History texts are in the catalogue.
#pragma GCC diagnostic ignored "-Wformat-nonliteral"

namespace {

using Path = std::array<char, PATH_MAX + 1>;

constexpr long LOCK_STEP = 100000;     // microseconds between two tries of the history lock
constexpr off_t HISTORY_LIMIT = 9933;  // 97 % of 10240 bytes, rounded up

bool logPath(const char* name, Path& path) {
    return IgCmnGetKestrumFile(IgCmnGetKestrumLogDir, name, path.data(), path.size()) != 0;
}

// IgCmnFileExists is in the layer above.
bool isThere(const char* path) {
    struct stat st = {};
    return ::stat(path, &st) == 0;
}

// Renames the current run log to the name of the old one, which is removed.
bool rotateRunLog(const Path& current, const Path& old) {
    if (!isThere(current.data())) {
        return true;
    }
    if (isThere(old.data()) && std::remove(old.data()) != 0) {
        IgCmnSysErrPath("remove", errno, old.data());
        return false;
    }
    if (std::rename(current.data(), old.data()) != 0) {
        IgCmnSysErrPath("rename", errno, current.data());
        return false;
    }
    return true;
}

// The history log's lock, held until the end of the scope. Its file is never removed.
class HistoryLock {
  public:
    enum class Wait { KERNEL, POLLING };

    explicit HistoryLock(Wait wait) {
        if (IgCmnGetKestrumFile(IgCmnGetKestrumBinDir, HISTORY_LOCK_NAME, path_.data(),
                                path_.size()) == 0) {
            return;
        }
        fd_.reset(::open(path_.data(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
        if (!fd_) {
            failed_call_ = "open";
            return;
        }
        noteLockFile(LOCK_HISTORY, fd_.get());
        held_ = wait == Wait::KERNEL ? lockWaiting() : lockPolling();
        if (!held_) {
            failed_call_ = "fcntl";
        }
    }
    [[nodiscard]] bool held() const { return held_; }
    /// The call that failed, with its error still in errno; null when none did.
    [[nodiscard]] const char* failedCall() const { return failed_call_; }
    [[nodiscard]] const Path& path() const { return path_; }

  private:
    static struct flock wholeFile() {
        struct flock lock = {};
        lock.l_type = F_WRLCK;
        lock.l_whence = SEEK_SET;
        return lock;
    }
    bool lockWaiting() {
        struct flock lock = wholeFile();
        return ::fcntl(fd_.get(), F_SETLKW, &lock) != -1;
    }
    bool lockPolling() {
        for (;;) {
            struct flock lock = wholeFile();
            if (::fcntl(fd_.get(), F_SETLK, &lock) != -1) {
                return true;
            }
            if (errno != EACCES && errno != EAGAIN) {
                return false;
            }
            if (isPatienceOver()) {
                return false;
            }
            waitPatiently(0, nullptr, LOCK_STEP);
        }
    }

    Path path_{};
    FdGuard fd_;
    bool held_ = false;
    const char* failed_call_ = nullptr;
};

// A warning of the history log while the run log is not open: it goes to the standard error.
void warn(const char* call, int error, const char* path,
          SourcePlace place = SourcePlace::current()) {
    writeSysErr({.call = call, .error = error, .subject = path}, place, SYSERR_WARNING,
                [](MsgNo number, auto... args) { IgCmnMsgOut(number, args...); });
}

void rotateHistory(const Path& current, const Path& old) {
    struct stat st = {};
    if (::stat(current.data(), &st) != 0 || st.st_size < HISTORY_LIMIT) {
        return;
    }
    if (isThere(old.data()) && std::remove(old.data()) != 0) {
        warn("remove", errno, old.data());
        return;
    }
    if (std::rename(current.data(), old.data()) != 0) {
        warn("rename", errno, current.data());
    }
}

// Writes one line of a history failure directly to the run log.
void writeFailureLine(const char* text, ...) {
    std::va_list args;
    va_start(args, text);
    const int written = std::vfprintf(msg_state.log, text, args);
    va_end(args);
    if (written < 0) {
        msgLogFailed("fprintf", errno);
    }
}

// The result of writing a history line: the failed call, null for none, and its details.
struct HistoryResult {
    const char* call = nullptr;
    int error = 0;
    Path path{};
    SourcePlace place{};

    void fail(const char* failed_call, SourcePlace where = SourcePlace::current()) {
        error = errno;
        call = failed_call;
        place = where;
    }
};

// Appends the whole line or nothing: after a failed write it truncates the log to its old size.
void appendHistoryLine(const char* text, std::va_list args, HistoryResult& result) {
    if (!logPath(HISTORY_NAME, result.path)) {
        return;
    }
    const UmaskGuard mask(PRIVATE_MASK);
    FileGuard history(openStream(result.path.data(), "a"));
    struct stat before = {};
    if (!history || ::fstat(::fileno(history.get()), &before) != 0) {
        result.fail(history ? "fstat" : "fopen");
        return;
    }
    if (std::vfprintf(history.get(), text, args) < 0) {
        result.fail("vfprintf");
    } else if (std::fflush(history.get()) != 0) {
        result.fail("fflush");
    }
    std::fclose(history.release());  // before truncate: closing writes what is still buffered
    if (result.call != nullptr && ::truncate(result.path.data(), before.st_size) != 0) {
        errno = result.error;  // the failed write is what is reported
    }
}

// Locks, appends, unlocks. Reports nothing before the log and its lock are closed: a report that
// fails ends the run, which writes to this log again.
HistoryResult writeHistoryLine(const char* text, std::va_list args) {
    HistoryResult result;
    const HistoryLock lock(HistoryLock::Wait::POLLING);
    if (lock.held()) {
        appendHistoryLine(text, args, result);
    } else if (lock.failedCall() != nullptr) {
        result.fail(lock.failedCall());
        result.path = lock.path();
    }
    return result;
}

// Bytes that are copied at a time; before each block the copy checks for an interruption.
constexpr std::size_t BLOCK_SIZE = 65536;

// The end of the copied bytes: the last line, or, if that has more than 1023 bytes, what remains of
// it after pieces of 1023 bytes. It has a length of its own, because a tool may print a NUL.
class LastPiece {
  public:
    void take(const char* bytes, std::size_t length) {
        // Skips everything up to the last line feed that has bytes after it.
        if (const void* feed = ::memrchr(bytes, '\n', length - 1); feed != nullptr) {
            const auto skipped =
                static_cast<std::size_t>(static_cast<const char*>(feed) + 1 - bytes);
            bytes += skipped;
            length -= skipped;
            length_ = 0;
        }
        while (length > 0) {
            if (length_ == LONGEST || endsItsLine()) {
                length_ = 0;
            }
            const std::size_t taken = std::min(length, LONGEST - length_);
            std::memcpy(bytes_.data() + length_, bytes, taken);
            length_ += taken;
            bytes += taken;
            length -= taken;
        }
        bytes_[length_] = '\0';
    }
    [[nodiscard]] bool empty() const { return length_ == 0; }
    [[nodiscard]] bool endsItsLine() const { return length_ > 0 && bytes_[length_ - 1] == '\n'; }
    [[nodiscard]] const char* text() const { return bytes_.data(); }

  private:
    static constexpr std::size_t LONGEST = 1023;
    std::array<char, LONGEST + 1> bytes_{};
    std::size_t length_ = 0;
};

int writeBytes(const char* bytes, std::size_t length) {
    if (std::fwrite(bytes, 1, length, msg_state.log) != length) {
        IgCmnSysErrPlain("fputs", errno);
        return -1;
    }
    return 0;
}

// How many bytes of an open file to copy: its size now. A process that a tool left behind may write
// to it as fast as it is read, and the copy would never end.
std::size_t bytesToCopy(int fd) {
    struct stat st = {};
    const bool sized = ::fstat(fd, &st) == 0 && S_ISREG(st.st_mode);
    return sized ? static_cast<std::size_t>(st.st_size) : SIZE_MAX;
}

// Copies the file to the run log until its end or an interruption. 0 or -1.
int copyBlocks(int fd, const char* path, LastPiece& last) {
    std::array<char, BLOCK_SIZE> block{};
    std::size_t left = bytesToCopy(fd);
    while (left > 0 && run_state.interrupted == 0) {
        const ssize_t got = ::read(fd, block.data(), std::min(block.size(), left));
        if (got == -1 && errno == EINTR) {
            continue;
        }
        if (got == -1) {
            IgCmnSysErrPath("fgets", errno, path);
            return -1;
        }
        if (got == 0) {
            break;
        }
        const auto length = static_cast<std::size_t>(got);
        last.take(block.data(), length);
        if (writeBytes(block.data(), length) != 0) {
            return -1;
        }
        left -= length;
    }
    return 0;
}

// Ends the last line, so that the next message begins on its own line.
int endLastLine(const LastPiece& last) {
    return last.empty() || last.endsItsLine() ? 0 : writeBytes("\n", 1);
}

// Checks that the locale can decode the end of the copy. 0 or -1.
int checkReadable(const LastPiece& last) {
    LocalPool pool;
    return last.empty() || IgCmnMBS2WCS(pool.get(), last.text()) != nullptr ? 0 : -1;
}

int flushRunLog() {
    if (std::fflush(msg_state.log) != 0) {
        IgCmnSysErrPlain("fflush", errno);
        return -1;
    }
    return 0;
}

}  // namespace

int IgCmnMsgOpenLog() {
    Path current{};
    Path old{};
    if (!logPath(RUN_LOG_NAME, current) || !logPath(OLD_RUN_LOG_NAME, old) ||
        !rotateRunLog(current, old)) {
        return -1;
    }
    {
        const UmaskGuard mask(PRIVATE_MASK);
        msg_state.log = openStream(current.data(), "w");
    }
    if (msg_state.log == nullptr) {
        IgCmnSysErrPath("fopen", errno, current.data());
        return -1;
    }
    msg_state.log_path = current;
    std::array<char, TIME_STR_SIZE> now{};
    IgCmnGetTimeStr(now.data());
    IgCmnMsgInfo<ZEPA201_I>(QUENDIL_VERSION, static_cast<const char*>(now.data()));
    msg_state.log_opened = 1;  // after the first line: messages name only a log that has one
    return 0;
}

void IgCmnMsgCloseLog() {
    if (msg_state.log == nullptr) {
        return;
    }
    std::array<char, TIME_STR_SIZE> now{};
    IgCmnGetTimeStr(now.data());
    IgCmnMsgInfo<ZEPA213_I>(static_cast<const char*>(now.data()), IgMainGetRetCode());
    std::fclose(msg_state.log);
    msg_state.log = nullptr;
}

int IgCmnMsgCopyFile(const char* path) {
    IG_ASSERT_NOT_NULL(path);
    if (msg_state.log == nullptr || !isThere(path)) {
        return -1;
    }
    const FileGuard source(openStream(path, "r"));
    if (!source) {
        IgCmnSysErrPath("fopen", errno, path);
        return -1;
    }
    LastPiece last;
    if (copyBlocks(::fileno(source.get()), path, last) != 0) {
        return -1;
    }
    int result = endLastLine(last);
    const bool interrupted = run_state.interrupted != 0;
    if (result == 0 && !interrupted) {
        result = checkReadable(last);
    }
    if (flushRunLog() != 0) {
        return -1;
    }
    // Reported last, on its own line.
    return interrupted && IgMainIsInterrupted() != 0 ? -1 : result;
}

void IgCmnMsgHistRotate() {
    if (IgMainIsSuperUserCached() != 0) {
        return;
    }
    const HistoryLock lock(HistoryLock::Wait::KERNEL);
    if (!lock.held()) {
        if (lock.failedCall() != nullptr) {
            warn(lock.failedCall(), errno, lock.path().data());
        }
        return;
    }
    Path current{};
    Path old{};
    if (logPath(HISTORY_NAME, current) && logPath(OLD_HISTORY_NAME, old)) {
        rotateHistory(current, old);
    }
}

void IgCmnMsgHist(int number, ...) {
    const char* text = IgCmnMsgGetText(number);
    if (text == nullptr || IgMainIsSuperUserCached() != 0) {
        return;
    }
    std::va_list args;
    va_start(args, number);
    const HistoryResult result = writeHistoryLine(text, args);
    va_end(args);
    if (result.call != nullptr) {
        errno = result.error;
        IgCmnMsgHistSysErr(result.call, result.path.data(), result.place);
    }
}

void IgCmnMsgHistSysErr(const char* call, const char* path, SourcePlace place) {
    const int error = errno;
    call = call == nullptr ? "(null)" : call;
    path = path == nullptr ? "(null)" : path;
    if (msg_state.log == nullptr) {
        warn(call, error, path, place);
        return;
    }
    writeSysErr(
        {.call = call, .error = error, .subject = path}, place, SYSERR_WARNING,
        [](MsgNo number, auto... args) { writeFailureLine(IgCmnMsgGetText(number), args...); });
    if (std::fflush(msg_state.log) != 0) {
        msgLogFailed("fflush", errno);
    }
}
