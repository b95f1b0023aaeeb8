// Shared by most unit tests: a run in its start state with an open run log that can be read back, a
// pool and a directory that free themselves, and capture of the standard streams.
#ifndef QUENDIL_TESTS_SUPPORT_RUN_FIXTURE_H
#define QUENDIL_TESTS_SUPPORT_RUN_FIXTURE_H

#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "common/base/IGCmnList.h"
#include "common/base/IGCmnMemory.h"
#include "common/base/IGRunHooks.h"
#include "common/base/IGRunState.h"
#include "common/report/IGCmnLog.h"
#include "common/report/IGCmnMessage.h"
#include "common/report/IGCmnMessageState.h"

inline constexpr const char* LOG_DIR = "/var/opt/norvale/quendil/log";
inline constexpr const char* DATA_DIR = "/var/opt/norvale/quendil/data";
inline constexpr const char* BIN_DIR = "/opt/norvale/quendil/bin";
inline constexpr const char* PATTERN_DIR = "/etc/opt/norvale/quendil/pattern";
inline constexpr const char* CONFIG_FILE = "/etc/opt/norvale/quendil/config/quendil_conf";

/// The content of a file; empty when it cannot be opened or read, as the files of a process that
/// ends meanwhile (ESRCH).
inline std::string readText(const std::filesystem::path& path) {
    const std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();  // an iterator would throw
    return text.str();
}

inline void writeText(const std::filesystem::path& path, const std::string& text) {
    std::ofstream file(path, std::ios::binary);
    file << text;
    file.close();
    ASSERT_TRUE(file.good()) << path;
}

/// Masks the source line of every reported place, which changes with every edit, as "line no = N".
/// A line of a user's file (ZEPA120-E, ZEPA138-W) is kept.
inline std::string masked(const std::string& text) {
    if (text.find(":source = ") == std::string::npos) {
        return text;  // true of most texts; the search below is slow
    }
    static const std::regex place("(ZEPA1(14-E|41-W):source = [A-Za-z]+, line no = )[1-9][0-9]*");
    return std::regex_replace(text, place, "$1N");
}

/// The report of a failed system call as the run log shows it, outside and inside a collection.
inline std::string trio(const std::string& call, int error, const std::string& text,
                        const std::string& path, const std::string& unit, bool warning = false) {
    const std::string first = warning ? "ZEPA140-W" : "ZEPA113-E";
    const std::string second = warning ? "ZEPA152-W" : "ZEPA151-E";
    const std::string third = warning ? "ZEPA141-W" : "ZEPA114-E";
    return first +
           ":An error occurred during the following system call. system call name = " + call +
           ", error code = " + std::to_string(error) + ", msg = " + text + ".\n" + second +
           ":Additional information, path = " + path + ".\n" + third + ":source = " + unit +
           ", line no = N.\n";
}

inline std::size_t openDescriptors() {
    const std::filesystem::directory_iterator entries("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

/// The strings of a list; a null list has none.
inline std::vector<std::string> strings(const IgCmnListHeader* list) {
    std::vector<std::string> result;
    for (const char& text : walkStrings(list)) {
        result.emplace_back(&text);
    }
    return result;
}

/// Writable copies of arguments, as main gets them.
class Arguments {
  public:
    explicit Arguments(std::vector<std::string> texts) : texts_(std::move(texts)) {
        for (std::string& text : texts_) {
            pointers_.push_back(text.data());
        }
        pointers_.push_back(nullptr);
    }
    [[nodiscard]] int count() const { return static_cast<int>(texts_.size()); }
    [[nodiscard]] char** vector() { return pointers_.data(); }

  private:
    std::vector<std::string> texts_;
    std::vector<char*> pointers_;
};

/// A pool that is freed with its owner.
class Pool {
  public:
    Pool() = default;
    ~Pool() { IgCmnMemoryFree(&pool_, nullptr, 0); }
    Pool(const Pool&) = delete;
    Pool& operator=(const Pool&) = delete;
    [[nodiscard]] memory_pool* get() { return &pool_; }

  private:
    memory_pool pool_ = nullptr;
};

/// A new directory, removed with its owner: below /tmp, where every user can write, or below a
/// directory that only root can change.
class TempDir {
  public:
    explicit TempDir(const std::string& parent = "/tmp") {
        std::string name = parent + "/test.XXXXXX";
        if (::mkdtemp(name.data()) == nullptr) {
            std::abort();
        }
        path_ = name;
    }
    ~TempDir() { std::filesystem::remove_all(path_); }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    [[nodiscard]] std::string path(const std::string& name = "") const {
        return name.empty() ? path_ : path_ + "/" + name;
    }

  private:
    std::string path_;
};

/// Redirects a standard stream's descriptor to a file until its text is taken or the scope ends.
class Capture {
  public:
    explicit Capture(std::FILE* stream)
        : stream_(stream),
          file_(::open("/tmp", O_TMPFILE | O_RDWR | O_CLOEXEC, 0600)),
          saved_(::fcntl(::fileno(stream), F_DUPFD_CLOEXEC, 3)) {
        std::fflush(stream_);
        if (file_ == -1 || saved_ == -1 || ::dup2(file_, ::fileno(stream_)) == -1) {
            std::abort();
        }
    }
    ~Capture() {
        restore();
        if (file_ != -1) {
            ::close(file_);
        }
    }
    Capture(const Capture&) = delete;
    Capture& operator=(const Capture&) = delete;

    [[nodiscard]] std::string take() {
        restore();
        std::string text(static_cast<std::size_t>(::lseek(file_, 0, SEEK_END)), '\0');
        if (::pread(file_, text.data(), text.size(), 0) != static_cast<ssize_t>(text.size())) {
            std::abort();
        }
        ::close(std::exchange(file_, -1));
        return text;
    }

  private:
    void restore() {
        if (saved_ != -1) {
            std::fflush(stream_);
            ::dup2(saved_, ::fileno(stream_));
            ::close(saved_);
            saved_ = -1;
        }
    }

    std::FILE* stream_;
    int file_;
    int saved_;
};

/// Sets the variables of the run to their start state.
inline void resetRunState() {
    run_state.cmd_name = nullptr;
    run_state.ret_code = RETCODE_FAILED;
    run_state.interrupted = 0;
    run_state.interruption_handled = 0;
    run_state.signal_no = 0;
    run_state.patience = PATIENCE;
    run_state.hangup_ignored = 0;
    run_state.interruption_reported = 0;
    run_state.super_user = 104;
    run_hooks = RunHooks{};
    run_hooks.report_interruption = [] { IgCmnMsg<ZEPA136_E>(run_state.signal_no.load()); };
}

/// A run in its start state, its run log open. takeLog() returns what was added to the run log.
class RunTest : public ::testing::Test {
  protected:
    void SetUp() override {
        std::setlocale(LC_ALL, "C.utf8");
        reset();
        ASSERT_EQ(IgCmnMsgOpenLog(), 0);
        static_cast<void>(takeLog());
    }
    void TearDown() override {
        reset();
        std::setlocale(LC_ALL, "C");
    }

    /// The text added to the run log since the last call, places masked.
    std::string takeLog() {
        const std::string text = readText(std::string(LOG_DIR) + "/quendil.log");
        const std::string added = text.substr(taken_);
        taken_ = text.size();
        return masked(added);
    }

    memory_pool* pool() { return pool_.get(); }

  private:
    void reset() {
        if (msg_state.log != nullptr) {
            std::fclose(msg_state.log);
        }
        msg_state = MsgState{};
        IgCmnMsgFree();
        taken_ = 0;
        resetRunState();
    }

    Pool pool_;
    std::size_t taken_ = 0;
};

#endif
