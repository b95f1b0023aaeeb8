#include "common/file/IGCmnFile.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "../../support/file_fixture.h"
#include "../../support/in_child.h"
#include "../../support/wrapped_calls.h"
#include "common/base/IGCmnSystem.h"
#include "common/base/IGOpen.h"
#include "common/report/IGCmnMessage.h"

namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;

// Handles

class FileHandle : public IGCmnFile {
  protected:
    ~FileHandle() override { IgCmnFileClose(&handle_); }
    IgCmnFileHandle handle_{};
};

TEST_F(FileHandle, OpensAFileAtItsFirstLine) {
    writeText(path("file"), "text");
    std::memset(static_cast<void*>(&handle_), 0xa5, sizeof handle_);
    const std::string name = path("file");
    ASSERT_EQ(IgCmnFileOpen(&handle_, name.c_str(), "r"), 0);
    EXPECT_NE(handle_.stream, nullptr);
    EXPECT_STREQ(handle_.name, name.c_str());
    EXPECT_NE(handle_.name, name.c_str()) << "a copy";
    EXPECT_NE(handle_.pool, nullptr);
    EXPECT_EQ(handle_.line_no, 1);
    EXPECT_EQ(handle_.column, 0);
    EXPECT_EQ(std::getc(handle_.stream), 't');
}

TEST_F(FileHandle, IsEmptyAfterItIsClosed) {
    writeText(path("file"), "text");
    const std::size_t before = openDescriptors();
    ASSERT_EQ(IgCmnFileOpen(&handle_, path("file").c_str(), "r"), 0);
    IgCmnFileClose(&handle_);
    EXPECT_EQ(handle_.stream, nullptr);
    EXPECT_EQ(handle_.pool, nullptr);
    EXPECT_EQ(handle_.name, nullptr);
    EXPECT_EQ(handle_.line_no, 0);
    EXPECT_EQ(handle_.column, 0);
    EXPECT_EQ(openDescriptors(), before);
    IgCmnFileClose(&handle_);
    EXPECT_EQ(handle_.stream, nullptr);
}

TEST_F(FileHandle, WritesAccordingToItsMode) {
    const auto write = [this](const char* mode, const char* text) {
        ASSERT_EQ(IgCmnFileOpen(&handle_, path("file").c_str(), mode), 0);
        std::fputs(text, handle_.stream);
        IgCmnFileClose(&handle_);
    };
    write("w", "first");
    EXPECT_EQ(readText(path("file")), "first");
    write("a", " second");
    EXPECT_EQ(readText(path("file")), "first second");
    write("w", "third");
    EXPECT_EQ(readText(path("file")), "third");
}

TEST_F(FileHandle, CreatesFilesForTheirOwnerAlone) {
    ASSERT_EQ(IgCmnFileOpen(&handle_, path("file").c_str(), "w"), 0);
    EXPECT_EQ(modeOf(path("file")), 0600U);
}

TEST_F(FileHandle, IsNotInheritedByTools) {
    ASSERT_EQ(IgCmnFileOpen(&handle_, path("file").c_str(), "w"), 0);
    EXPECT_EQ(::fcntl(::fileno(handle_.stream), F_GETFD), FD_CLOEXEC);
}

TEST_F(FileHandle, ReportsAFileThatCannotBeOpened) {
    const std::string name = path("missing");
    EXPECT_EQ(reported([&] { EXPECT_EQ(IgCmnFileOpen(&handle_, name.c_str(), "r"), 17); }),
              failure("fopen", ENOENT, "No such file or directory", name));
    EXPECT_EQ(handle_.stream, nullptr);
    writeText(path("file"), "");
    const std::string below = path("file/below");
    EXPECT_EQ(reported([&] { EXPECT_EQ(IgCmnFileOpen(&handle_, below.c_str(), "w"), 17); }),
              failure("fopen", ENOTDIR, "Not a directory", below));
    EXPECT_EQ(reported([&] { EXPECT_EQ(IgCmnFileOpen(&handle_, path().c_str(), "w"), 17); }),
              failure("fopen", EISDIR, "Is a directory", path()));
    const std::string long_name = path(std::string(300, 'n'));
    EXPECT_EQ(reported([&] { EXPECT_EQ(IgCmnFileOpen(&handle_, long_name.c_str(), "w"), 17); }),
              failure("fopen", ENAMETOOLONG, "File name too long", long_name));
}

TEST_F(FileHandle, ReportsAWarningDuringACollection) {
    const std::string name = path("missing");
    for (const int mode : {1, 2}) {
        IgCmnMsgSetMode(static_cast<MsgMode>(mode));
        Capture err(stderr);
        EXPECT_EQ(IgCmnFileOpen(&handle_, name.c_str(), "r"), 17);
        EXPECT_EQ(err.take(), "");
        EXPECT_EQ(takeLog(),
                  trio("fopen", ENOENT, "No such file or directory", name, "IGCmnFile", true));
    }
}

TEST_F(FileHandle, WritesNothingThroughASymbolicLink) {
    writeText(path("precious"), "precious");
    fs::create_symlink(path("precious"), path("link"));
    const std::string name = path("link");
    EXPECT_EQ(reported([&] { EXPECT_EQ(IgCmnFileOpen(&handle_, name.c_str(), "w"), 17); }),
              failure("fopen", ELOOP, "Too many levels of symbolic links", name));
    EXPECT_EQ(readText(path("precious")), "precious");
    EXPECT_EQ(IgCmnFileOpen(&handle_, name.c_str(), "r"), 0) << "reading follows links";
}

TEST_F(FileHandle, DoesNotWaitForTheOtherEndOfAFifo) {
    ASSERT_EQ(::mkfifo(path("fifo").c_str(), 0600), 0);
    EXPECT_EQ(IgCmnFileOpen(&handle_, path("fifo").c_str(), "r"), 0);
}

TEST_F(FileHandle, OpensOnlyRegularFilesForReading) {
    ASSERT_EQ(::mkfifo(path("fifo").c_str(), 0600), 0);
    for (const std::string& name : {path("fifo"), path(), std::string("/dev/zero")}) {
        errno = 0;
        EXPECT_EQ(openForReading(name.c_str()), -1) << name;
        EXPECT_EQ(errno, ENOTSUP) << name;
    }
}

TEST_F(FileHandle, ClosesTheFileWhenItsNameCannotBeStored) {
    writeText(path("file"), "");
    const std::size_t before = openDescriptors();
    for (const int nth : {1, 2}) {  // the handle's pool, its chunk
        Capture err(stderr);
        const FailingCall failing(Call::CALLOC, nth, ENOMEM);
        EXPECT_EQ(IgCmnFileOpen(&handle_, path("file").c_str(), "r"), -1);
        EXPECT_EQ(err.take(), "ZEPA122-E:Memory is insufficient.\n");
        EXPECT_EQ(handle_.stream, nullptr);
        EXPECT_EQ(handle_.pool, nullptr);
        EXPECT_EQ(handle_.name, nullptr);
        EXPECT_EQ(handle_.line_no, 0);
        EXPECT_EQ(openDescriptors(), before);
    }
}

TEST_F(FileHandle, FlushesToTheFile) {
    ASSERT_EQ(IgCmnFileOpen(&handle_, path("file").c_str(), "w"), 0);
    std::fputs("text", handle_.stream);
    EXPECT_EQ(readText(path("file")), "");
    EXPECT_EQ(IgCmnFileFlush(&handle_), 0);
    EXPECT_EQ(readText(path("file")), "text");
}

TEST_F(FileHandle, ReportsAFlushThatFails) {
    ASSERT_EQ(IgCmnFileOpen(&handle_, "/dev/full", "w"), 0);
    std::fputs("text", handle_.stream);
    EXPECT_EQ(reported([&] { EXPECT_EQ(IgCmnFileFlush(&handle_), 17); }),
              failure("fflush", ENOSPC, "No space left on device", "/dev/full"));
}

TEST_F(FileHandle, HasNothingToFlushWhenItIsClosed) {
    EXPECT_EQ(IgCmnFileFlush(&handle_), 0);
    EXPECT_EQ(takeLog(), "");
}

// Streams and lines

TEST_F(IGCmnFile, ReadsLinesInPiecesOfItsBuffer) {
    writeText(path("file"), "ab\n\nabcdefg\nx\0y\nend"s);
    std::FILE* stream = openStream(path("file").c_str(), "r");
    ASSERT_NE(stream, nullptr);
    std::vector<std::string> lines;
    std::array<char, 5> line{};
    for (std::size_t length = readTextLine(stream, line.data(), line.size()); length > 0;
         length = readTextLine(stream, line.data(), line.size())) {
        EXPECT_EQ(line[length], '\0');
        lines.emplace_back(line.data(), length);
    }
    EXPECT_EQ(std::ferror(stream), 0);
    std::fclose(stream);
    EXPECT_THAT(lines, ::testing::ElementsAre("ab\n", "\n", "abcd", "efg\n", "x\0y\n"s, "end"));
}

TEST_F(IGCmnFile, DistinguishesAReadErrorFromTheEnd) {
    std::FILE* stream = openStream(path().c_str(), "r");
    ASSERT_NE(stream, nullptr);
    std::array<char, 5> line{};
    EXPECT_EQ(readTextLine(stream, line.data(), line.size()), 0U);
    EXPECT_NE(std::ferror(stream), 0);
    std::fclose(stream);
}

TEST_F(IGCmnFile, LeavesAFailedStreamToItsCaller) {
    EXPECT_EQ(reported([&] {
                  errno = 0;
                  EXPECT_EQ(openStream(path("missing").c_str(), "r"), nullptr);
                  EXPECT_EQ(errno, ENOENT);
                  EXPECT_EQ(openForReading(path("missing").c_str()), -1);
                  EXPECT_EQ(errno, ENOENT);
              }),
              "");
}

TEST_F(IGCmnFile, DoesNotWaitForAReaderOfAFifoThatItOpens) {
    ASSERT_EQ(::mkfifo(path("fifo").c_str(), 0600), 0);
    for (const char* mode : {"w", "a"}) {
        errno = 0;
        EXPECT_EQ(openStream(path("fifo").c_str(), mode), nullptr) << mode;
        EXPECT_EQ(errno, ENXIO) << mode;
    }
}

TEST_F(IGCmnFile, OpensForReadingWithoutPassingTheDescriptorToTools) {
    writeText(path("regular"), "x");
    const int fd = openForReading(path("regular").c_str());
    ASSERT_GE(fd, 0);
    EXPECT_EQ(::fcntl(fd, F_GETFD), FD_CLOEXEC);
    ::close(fd);
}

// Whether another process finds a record lock on the file.
bool isLocked(const std::string& file) {
    const ChildResult child = inChild([&] {
        const int fd = ::open(file.c_str(), O_RDWR);
        struct flock lock = {};
        lock.l_type = F_WRLCK;
        ::_exit(::fcntl(fd, F_GETLK, &lock) == 0 && lock.l_type != F_UNLCK ? 1 : 0);
    });
    return child.status == 1;
}

TEST_F(IGCmnFile, DoesNotReadALockFileWhoseLockItWouldRelease) {
    for (const char* name : {RUN_LOCK_NAME, HISTORY_LOCK_NAME}) {
        SCOPED_TRACE(name);
        const std::string lock_file = BIN_DIR + "/"s + name;
        const int held = ::open(lock_file.c_str(), O_RDWR | O_CREAT, 0600);
        struct flock lock = {};
        lock.l_type = F_WRLCK;
        ASSERT_EQ(::fcntl(held, F_SETLK, &lock), 0);
        std::filesystem::create_symlink(lock_file, path("link"));
        std::filesystem::create_hard_link(lock_file, BIN_DIR + "/hard"s);
        for (const std::string& found : {lock_file, path("link"), BIN_DIR + "/hard"s}) {
            errno = 0;
            EXPECT_EQ(openStream(found.c_str(), "r"), nullptr) << found;
            EXPECT_EQ(errno, EACCES) << found;
            EXPECT_TRUE(isLocked(lock_file)) << found;
        }
        ::close(held);
        for (const std::string& made : {lock_file, path("link"), BIN_DIR + "/hard"s}) {
            std::filesystem::remove(made);
        }
    }
}

TEST_F(IGCmnFile, MakesFilesForTheirOwnerAloneUnderEveryUmaskAndDefaultAcl) {
    // u::rwx,u:1000:rwx,g::rwx,m::rwx,o::rwx, as the kernel stores it
    struct [[gnu::packed]] Entry {
        std::uint16_t tag, permissions;
        std::uint32_t id;
    };
    const struct [[gnu::packed]] {
        std::uint32_t version = 2;
        Entry entries[5] = {{1, 7, ~0U}, {2, 7, 1000}, {4, 7, ~0U}, {0x10, 7, ~0U}, {0x20, 7, ~0U}};
    } everything;
    ASSERT_EQ(
        ::setxattr(path().c_str(), "system.posix_acl_default", &everything, sizeof everything, 0),
        0);
    const mode_t before = ::umask(0);
    for (const char* mode : {"w", "a"}) {
        std::fclose(openStream(path(mode).c_str(), mode));
        struct stat st = {};
        ASSERT_EQ(::stat(path(mode).c_str(), &st), 0);
        EXPECT_EQ(st.st_mode & 07777, 0600U) << mode;  // the group's bits are the mask of the list
    }
    ::umask(before);
}

// Tests of files

TEST_F(IGCmnFile, ReportsWhetherAFileExists) {
    writeText(path("file"), "");
    fs::create_symlink(path("file"), path("link"));
    fs::create_symlink(path("nowhere"), path("dangling"));
    fs::create_symlink(path(), path("dirlink"));
    struct Case {
        const char* name;
        int exists;
        int is_directory;
        int is_taken;
    };
    for (const Case& c :
         {Case{"", 1, 1, 1}, Case{"file", 1, 0, 1}, Case{"link", 1, 0, 1}, Case{"dirlink", 1, 1, 1},
          Case{"dangling", 0, 0, 1}, Case{"missing", 0, 0, 0}, Case{"file/below", 0, 0, 0}}) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(IgCmnFileExists(path(c.name).c_str()), c.exists);
        EXPECT_EQ(IgCmnFileIsDir(path(c.name).c_str()), c.is_directory);
        EXPECT_EQ(IgCmnFileIsTaken(path(c.name).c_str()), c.is_taken);
    }
    EXPECT_EQ(IgCmnFileExists(""), 0);
    EXPECT_EQ(takeLog(), "");
}

// What must not be null

TEST(IGCmnFileDeathTest, AssertsHandleNameAndMode) {
    IgCmnFileHandle handle{};
    EXPECT_DEATH(IgCmnFileOpen(nullptr, "/x", "r"), nullOf(" Assertion `handle"));
    EXPECT_DEATH(IgCmnFileOpen(&handle, nullptr, "r"), nullOf("`name"));
    EXPECT_DEATH(IgCmnFileOpen(&handle, "/x", nullptr), nullOf("`mode"));
    EXPECT_DEATH(IgCmnFileClose(nullptr), nullOf("`handle"));
    EXPECT_DEATH(IgCmnFileFlush(nullptr), nullOf("`handle"));
}

TEST(IGCmnFileDeathTest, AssertsPaths) {
    EXPECT_DEATH(IgCmnFileExists(nullptr), nullOf("`path"));
    EXPECT_DEATH(IgCmnFileIsDir(nullptr), nullOf("`path"));
    EXPECT_DEATH(IgCmnFileIsTaken(nullptr), nullOf("`path"));
}

}  // namespace
