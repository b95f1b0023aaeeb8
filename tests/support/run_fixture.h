// Shared by most unit tests: a run in its start state with an open run log that can be read back, a
// pool and a directory that free themselves, and capture of the standard streams.
#ifndef QUENDIL_TESTS_SUPPORT_RUN_FIXTURE_H
#define QUENDIL_TESTS_SUPPORT_RUN_FIXTURE_H

#include <gmock/gmock.h>

#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "common/base/IGCmnList.h"
#include "common/base/IGCmnMemory.h"

inline constexpr const char* LOG_DIR = "/var/opt/norvale/quendil/log";
inline constexpr const char* DATA_DIR = "/var/opt/norvale/quendil/data";
inline constexpr const char* BIN_DIR = "/opt/norvale/quendil/bin";
inline constexpr const char* PATTERN_DIR = "/etc/opt/norvale/quendil/pattern";
inline constexpr const char* CONFIG_FILE = "/etc/opt/norvale/quendil/config/quendil_conf";

/// The content of a file; empty when it cannot be opened or read, as the files of a process that
/// ends meanwhile (ESRCH).
std::string readText(const std::filesystem::path& path);

void writeText(const std::filesystem::path& path, const std::string& text);

/// Masks the source line of every reported place, which changes with every edit, as "line no = N".
/// A line of a user's file (ZEPA120-E, ZEPA138-W) is kept.
std::string masked(const std::string& text);

/// A text, with a replacement for each match of a regular expression.
std::string replaced(const std::string& text, const std::string& expression,
                     const std::string& replacement);

/// The report of a failed system call as the run log shows it, outside and inside a collection.
std::string trio(const std::string& call, int error, const std::string& text,
                 const std::string& path, const std::string& unit, bool warning = false);

/// The number of descriptors that this process has open.
std::size_t openDescriptors();

/// The strings of a list; a null list has none.
std::vector<std::string> strings(const IgCmnListHeader* list);

/// Writable copies of arguments, as main gets them.
class Arguments {
  public:
    explicit Arguments(std::vector<std::string> texts);
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
    explicit TempDir(const std::string& parent = "/tmp");
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    [[nodiscard]] std::string path(const std::string& name = "") const;

  private:
    std::string path_;
};

/// Redirects a standard stream's descriptor to a file until its text is taken or the scope ends.
class Capture {
  public:
    explicit Capture(std::FILE* stream);
    ~Capture();
    Capture(const Capture&) = delete;
    Capture& operator=(const Capture&) = delete;
    [[nodiscard]] std::string take();

  private:
    void restore();

    std::FILE* stream_;
    int file_;
    int saved_;
};

/// Sets the variables of the run to their start state.
void resetRunState();

/// A run in its start state, its run log open.
class RunTest : public ::testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override;

    /// The text added to the run log since the last call, places masked.
    std::string takeLog();

    memory_pool* pool() { return pool_.get(); }

  private:
    void reset();

    Pool pool_;
    std::size_t taken_ = 0;
};

#endif
