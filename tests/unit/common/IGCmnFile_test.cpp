#include "common/IGCmnFile.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "../../support/in_child.h"
#include "../../support/mounted.h"
#include "../../support/run_fixture.h"
#include "../../support/standing_in.h"
#include "common/IGCmnStr.h"
#include "common/IGCmnSystem.h"

namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;

mode_t modeOf(const std::string& path) {
    struct stat st = {};
    return ::lstat(path.c_str(), &st) == 0 ? st.st_mode & 07777 : 0;
}

mode_t umaskNow() {
    const mode_t mask = ::umask(0);
    ::umask(mask);
    return mask;
}

/// Takes all descriptors away for a scope: what opens a file fails with EMFILE.
class NoDescriptors {
  public:
    NoDescriptors() {
        ::getrlimit(RLIMIT_NOFILE, &before_);
        const struct rlimit none = {0, before_.rlim_max};
        ::setrlimit(RLIMIT_NOFILE, &none);
    }
    ~NoDescriptors() { ::setrlimit(RLIMIT_NOFILE, &before_); }
    NoDescriptors(const NoDescriptors&) = delete;
    NoDescriptors& operator=(const NoDescriptors&) = delete;

  private:
    struct rlimit before_ = {};
};

class IGCmnFile : public RunTest {
  protected:
    void SetUp() override {
        RunTest::SetUp();
        ::umask(027);
    }
    void TearDown() override {
        ::umask(022);
        RunTest::TearDown();
    }
    std::string path(const std::string& name = "") { return dir_.path(name); }

    /// What a call reports, that is what it adds to the run log; the terminal shows the same
    /// without the place.
    template <typename Body>
    std::string reported(Body body) {
        Capture err(stderr);
        body();
        const std::string shown = err.take();
        std::string log = takeLog();
        std::string without_places = log;
        for (std::size_t at = without_places.find("ZEPA114-E"); at != std::string::npos;
             at = without_places.find("ZEPA114-E")) {
            without_places.erase(at, without_places.find('\n', at) - at + 1);
        }
        EXPECT_EQ(shown, without_places);
        return log;
    }
    static std::string failure(const std::string& call, int error, const std::string& text,
                               const std::string& file) {
        return trio(call, error, text, file, "IGCmnFile");
    }

    TempDir dir_;
};

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

TEST_F(FileHandle, WritesInTheWayThatItsModeNames) {
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

TEST_F(FileHandle, ReportsAsAWarningWhileACollectionIsUnderWay) {
    const std::string name = path("missing");
    for (const int mode : {1, 2}) {
        IgCmnMsgSetMode(mode);
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

TEST_F(FileHandle, LooksAtWhatIsNoRegularFileWithoutOpeningIt) {
    ASSERT_EQ(::mkfifo(path("fifo").c_str(), 0600), 0);
    for (const std::string& name : {path("fifo"), path(), std::string("/dev/zero")}) {
        errno = 0;
        EXPECT_EQ(IgCmnFileOpenForReading(name.c_str()), -1) << name;
        EXPECT_EQ(errno, ENOTSUP) << name;
    }
}

TEST_F(FileHandle, ClosesTheFileWhenItsNameCannotBeKept) {
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
    std::FILE* stream = IgCmnFileOpenStream(path("file").c_str(), "r");
    ASSERT_NE(stream, nullptr);
    std::vector<std::string> lines;
    std::array<char, 5> line{};
    for (std::size_t length = IgCmnFileReadLine(stream, line.data(), line.size()); length > 0;
         length = IgCmnFileReadLine(stream, line.data(), line.size())) {
        EXPECT_EQ(line[length], '\0');
        lines.emplace_back(line.data(), length);
    }
    EXPECT_EQ(std::ferror(stream), 0);
    std::fclose(stream);
    EXPECT_THAT(lines, ::testing::ElementsAre("ab\n", "\n", "abcd", "efg\n", "x\0y\n"s, "end"));
}

TEST_F(IGCmnFile, TellsAReadErrorFromTheEnd) {
    std::FILE* stream = IgCmnFileOpenStream(path().c_str(), "r");
    ASSERT_NE(stream, nullptr);
    std::array<char, 5> line{};
    EXPECT_EQ(IgCmnFileReadLine(stream, line.data(), line.size()), 0U);
    EXPECT_NE(std::ferror(stream), 0);
    std::fclose(stream);
}

TEST_F(IGCmnFile, LeavesAFailedStreamToItsCaller) {
    EXPECT_EQ(reported([&] {
                  errno = 0;
                  EXPECT_EQ(IgCmnFileOpenStream(path("missing").c_str(), "r"), nullptr);
                  EXPECT_EQ(errno, ENOENT);
                  EXPECT_EQ(IgCmnFileOpenForReading(path("missing").c_str()), -1);
                  EXPECT_EQ(errno, ENOENT);
              }),
              "");
}

TEST_F(IGCmnFile, WaitsForNobodyToReadFromAFifoThatItOpens) {
    ASSERT_EQ(::mkfifo(path("fifo").c_str(), 0600), 0);
    for (const char* mode : {"w", "a"}) {
        errno = 0;
        EXPECT_EQ(IgCmnFileOpenStream(path("fifo").c_str(), mode), nullptr) << mode;
        EXPECT_EQ(errno, ENXIO) << mode;
    }
}

TEST_F(IGCmnFile, OpensForReadingWithoutLendingTheDescriptorToTools) {
    writeText(path("regular"), "x");
    const int fd = IgCmnFileOpenForReading(path("regular").c_str());
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

TEST_F(IGCmnFile, ReadsNoLockFileWhoseLockItWouldDrop) {
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
            EXPECT_EQ(IgCmnFileOpenStream(found.c_str(), "r"), nullptr) << found;
            EXPECT_EQ(errno, EACCES) << found;
            EXPECT_TRUE(isLocked(lock_file)) << found;
        }
        ::close(held);
        for (const std::string& made : {lock_file, path("link"), BIN_DIR + "/hard"s}) {
            std::filesystem::remove(made);
        }
    }
}

TEST_F(IGCmnFile, OpensWhatItMakesForItsOwnerAloneWhateverTheUmaskAndADefaultAcl) {
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
        std::fclose(IgCmnFileOpenStream(path(mode).c_str(), mode));
        struct stat st = {};
        ASSERT_EQ(::stat(path(mode).c_str(), &st), 0);
        EXPECT_EQ(st.st_mode & 07777, 0600U) << mode;  // the group's bits are the mask of the list
    }
    ::umask(before);
}

// concat_data

TEST_F(IGCmnFile, AppendsToABufferThatGrowsToTheNeededLength) {
    char* buffer = nullptr;
    std::uint32_t size = 0;
    ASSERT_EQ(concat_data(pool(), &buffer, &size, ""), 0);
    EXPECT_STREQ(buffer, "");
    EXPECT_EQ(size, 1U);
    ASSERT_EQ(concat_data(pool(), &buffer, &size, "abc"), 0);
    EXPECT_STREQ(buffer, "abc");
    EXPECT_EQ(size, 4U);
    ASSERT_EQ(concat_data(pool(), &buffer, &size, std::string(1000, 'd').c_str()), 0);
    EXPECT_EQ(buffer, "abc" + std::string(1000, 'd'));
    EXPECT_EQ(size, 1004U);
}

TEST_F(IGCmnFile, AppendsInPlaceWhereThereIsRoom) {
    auto* buffer = newFromPool<char>(pool(), 10);
    char* const start = buffer;
    std::uint32_t size = 10;
    ASSERT_EQ(concat_data(pool(), &buffer, &size, "12345"), 0);
    ASSERT_EQ(concat_data(pool(), &buffer, &size, "6789"), 0);
    EXPECT_EQ(buffer, start);
    EXPECT_EQ(size, 10U);
    EXPECT_STREQ(buffer, "123456789");
    ASSERT_EQ(concat_data(pool(), &buffer, &size, "0"), 0);
    EXPECT_EQ(size, 11U);
    EXPECT_STREQ(buffer, "1234567890");
}

TEST_F(IGCmnFile, KeepsTheBufferWhenItCannotGrow) {
    const std::string more(1000, 'm');
    char* buffer = nullptr;
    std::uint32_t size = 0;
    ASSERT_EQ(concat_data(pool(), &buffer, &size, "abc"), 0);
    char* const start = buffer;
    {
        Capture err(stderr);
        const FailingCall failing(Call::CALLOC, 1, ENOMEM);
        EXPECT_EQ(concat_data(pool(), &buffer, &size, more.c_str()), -1);
        EXPECT_EQ(err.take(), "ZEPA122-E:Memory is insufficient.\n");
    }
    EXPECT_EQ(buffer, start);
    EXPECT_EQ(size, 4U);
    EXPECT_STREQ(buffer, "abc");
    EXPECT_EQ(concat_data(pool(), &buffer, &size, more.c_str()), 0);
    EXPECT_EQ(buffer, "abc" + more);
}

TEST_F(IGCmnFile, CopiesAndRemovesNothingWhereverMemoryRunsOut) {
    writeText(path("file"), "x");
    const std::pair<int, std::function<int()>> calls[] = {
        {0, [&] { return IgCmnFileCopy(path("file").c_str(), path("copy").c_str(), 0, 0); }},
        {1, [&] { return IgCmnFileRemoveAll(path("file").c_str()); }},
    };
    for (const auto& [failure, call] : calls) {
        bool failed = true;
        for (int nth = 1; failed; ++nth) {
            SCOPED_TRACE(::testing::Message() << failure << ", allocation " << nth);
            Capture err(stderr);
            const FailingCall failing(Call::POOL, nth, ENOMEM);
            const int result = call();
            failed = FailingCall::happened();
            EXPECT_EQ(result, failed ? failure : 1 - failure);
            EXPECT_EQ(err.take(), failed ? "ZEPA122-E:Memory is insufficient.\n" : "");
            EXPECT_TRUE(!failed || fs::exists(path("file")));
            EXPECT_TRUE(!failed || failure == 1 || !fs::exists(path("copy")));
            EXPECT_TRUE(failed || nth > 2);
        }
    }
}

// Tests of files

TEST_F(IGCmnFile, KnowsWhatExists) {
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

TEST_F(IGCmnFile, ComparesTheModeWithTheRequestedBits) {
    struct Case {
        mode_t mode;
        std::uint16_t bits;
        int file;
        int directory;
    };
    for (const Case& c : {Case{0600, 0400, 1, 0}, Case{0600, 0200, 1, 0}, Case{0600, 0100, 0, 0},
                          Case{0600, 0600, 1, 0}, Case{0400, 0600, 0, 0}, Case{0700, 0200, 1, 1},
                          Case{0500, 0200, 0, 0}, Case{0100, 0000, 1, 1}, Case{0000, 0000, 1, 0},
                          Case{0077, 0200, 0, 0}, Case{0077, 0022, 1, 0}, Case{0755, 0055, 1, 1}}) {
        SCOPED_TRACE(::testing::Message() << std::oct << c.mode << " asked for " << c.bits);
        writeText(path("file"), "");
        fs::create_directory(path("directory"));
        ASSERT_EQ(::chmod(path("file").c_str(), c.mode), 0);
        ASSERT_EQ(::chmod(path("directory").c_str(), c.mode), 0);
        EXPECT_EQ(IgCmnFileCheckMode(path("file").c_str(), c.bits), c.file);
        EXPECT_EQ(IgCmnFileCheckMode(path("directory").c_str(), c.bits), c.directory);
    }
    EXPECT_EQ(IgCmnFileCheckMode(path("missing").c_str(), 0), 0);
    EXPECT_EQ(takeLog(), "");
}

// Making directories

TEST_F(IGCmnFile, MakesADirectoryForEverybodyWhateverTheUmask) {
    EXPECT_EQ(IgCmnFileMkdir(path("new").c_str()), 0);
    EXPECT_EQ(modeOf(path("new")), 0777U);
    EXPECT_EQ(umaskNow(), 027U);
}

TEST_F(IGCmnFile, ReportsADirectoryThatCannotBeMade) {
    const std::string taken = path();
    EXPECT_EQ(reported([&] { EXPECT_EQ(IgCmnFileMkdir(taken.c_str()), 1); }),
              failure("mkdir", EEXIST, "File exists", taken));
    const std::string deep = path("a/b");
    EXPECT_EQ(reported([&] { EXPECT_EQ(IgCmnFileMkdir(deep.c_str()), 1); }),
              failure("mkdir", ENOENT, "No such file or directory", deep));
    EXPECT_EQ(umaskNow(), 027U);
}

TEST_F(IGCmnFile, MakesTheDirectoriesOfAPathUpToItsLastSlash) {
    EXPECT_EQ(IgCmnFileCreateDirAllPath(path("a/b/c").c_str()), 0);
    EXPECT_TRUE(fs::is_directory(path("a/b")));
    EXPECT_FALSE(fs::exists(path("a/b/c")));
    EXPECT_EQ(IgCmnFileCreateDirAllPath(path("a/b/c/").c_str()), 0);
    EXPECT_TRUE(fs::is_directory(path("a/b/c")));
    EXPECT_EQ(modeOf(path("a/b/c")), 0777U);
    EXPECT_EQ(IgCmnFileCreateDirAllPath(path("a/b/c/").c_str()), 0) << "nothing left to make";
}

TEST_F(IGCmnFile, SkipsEmptyComponentsOfAPathToMake) {
    EXPECT_EQ(IgCmnFileCreateDirAllPath(("//" + path("a///b//")).c_str()), 0);
    EXPECT_TRUE(fs::is_directory(path("a/b")));
    EXPECT_EQ(IgCmnFileCreateDirAllPath("/"), 0);
    EXPECT_EQ(IgCmnFileCreateDirAllPath("/name"), 0);
    EXPECT_FALSE(fs::exists("/name"));
}

TEST_F(IGCmnFile, MakesDirectoriesOfAbsolutePathsOnly) {
    EXPECT_EQ(reported([] {
                  EXPECT_EQ(IgCmnFileCreateDirAllPath("a/b/"), -1);
                  EXPECT_EQ(IgCmnFileCreateDirAllPath(""), -1);
              }),
              "");
    EXPECT_FALSE(fs::exists("a"));
}

TEST_F(IGCmnFile, StopsAtTheFirstDirectoryThatCannotBeMade) {
    writeText(path("file"), "");
    const std::string deep = path("file/b/c/");
    EXPECT_EQ(reported([&] { EXPECT_EQ(IgCmnFileCreateDirAllPath(deep.c_str()), -1); }),
              failure("mkdir", EEXIST, "File exists", path("file")));
}

// Removing

TEST_F(IGCmnFile, RemovesAFileOrAWholeTree) {
    writeText(path("file"), "");
    fs::create_directories(path("tree/a/b"));
    writeText(path("tree/a/b/file"), "");
    fs::create_symlink(path("kept"), path("tree/link"));
    writeText(path("kept"), "");
    for (const char* name : {"file", "tree", "missing"}) {
        EXPECT_EQ(IgCmnFileRemoveAll(path(name).c_str()), 0) << name;
        EXPECT_FALSE(fs::exists(path(name))) << name;
    }
    EXPECT_TRUE(fs::exists(path("kept"))) << "links are not followed";
    EXPECT_EQ(takeLog(), "");
}

const std::vector<std::string> HOSTILE_NAMES{"two words",      "$(touch ran)",
                                             "`touch ran`",    "\"; touch ran; \"",
                                             "back\\slash",    "$HOME",
                                             "semi;touch ran", "a\nb",
                                             "it's",           "*",
                                             "trailing\\",     "!x"};

TEST_F(IGCmnFile, RemovesExactlyTheNameThatItIsGiven) {
    for (const std::string& name : HOSTILE_NAMES) {
        SCOPED_TRACE(name);
        fs::current_path(path());
        writeText(path("bystander"), "");
        fs::create_directory(path(name));
        EXPECT_EQ(IgCmnFileRemoveAll(path(name).c_str()), 0);
        EXPECT_FALSE(fs::exists(path(name)));
        EXPECT_TRUE(fs::exists(path("bystander")));
        EXPECT_FALSE(fs::exists(path("ran")));
        fs::current_path("/");
    }
}

TEST_F(IGCmnFile, ReportsAShellThatCannotBeStarted) {
    writeText(path("file"), "x");
    const std::string name = path("file");
    const FailingCall failing(Call::FORK, 1, EAGAIN);
    EXPECT_EQ(reported([&] { EXPECT_EQ(IgCmnFileRemoveAll(name.c_str()), 1); }),
              "ZEPA113-E:An error occurred during the following system call. system call name = "
              "system, error code = 11, msg = Resource temporarily unavailable.\n"
              "ZEPA151-E:Additional information, command = /bin/rm -rf \"" +
                  name +
                  "\" 2> /dev/null.\n"
                  "ZEPA114-E:source = IGCmnFile, line no = N.\n");
    EXPECT_TRUE(fs::exists(name));
}

TEST_F(IGCmnFile, ReportsAShellThatCannotBeStartedForNoReason) {
    const FailingCall failing(Call::FORK, 1, 0);
    EXPECT_EQ(reported([&] { EXPECT_EQ(IgCmnFileRemoveAll("/x"), 1); }),
              "ZEPA113-E:An error occurred during the following system call. system call name = "
              "system, error code = -1, msg = rm command failed.\n"
              "ZEPA151-E:Additional information, command = /bin/rm -rf \"/x\" 2> /dev/null.\n"
              "ZEPA114-E:source = IGCmnFile, line no = N.\n");
}

TEST_F(IGCmnFile, SaysNothingOfACopyWithoutAShell) {
    writeText(path("source"), "x");
    const FailingCall failing(Call::FORK, 1, EAGAIN);
    EXPECT_EQ(reported([&] {
                  EXPECT_EQ(IgCmnFileCopy(path("source").c_str(), path("copy").c_str(), 1, 0), 0);
              }),
              "");
    EXPECT_EQ(run_state.interrupted, 0);
}

// A byte by itself, and where it could begin and end something that the shell obeys.
TEST_F(IGCmnFile, CopiesAndRemovesNamesOfEveryByte) {
    fs::current_path(path());
    fs::create_directory(path("to"));
    const auto survives = [this](const std::string& name) {
        const std::string from = path(name);
        const std::string to = path("to/" + name);
        writeText(from, name);
        EXPECT_EQ(IgCmnFileCopy(from.c_str(), to.c_str(), 0, 0), 1);
        EXPECT_EQ(readText(to), name);
        EXPECT_EQ(IgCmnFileRemoveAll(to.c_str()), 0);
        EXPECT_FALSE(fs::exists(to));
        EXPECT_EQ(readText(from), name);
        EXPECT_EQ(IgCmnFileRemoveAll(from.c_str()), 0);
        EXPECT_FALSE(fs::exists(from));
        EXPECT_FALSE(fs::exists(path("ran")));
    };
    std::string all;
    for (int byte = 1; byte < 256; ++byte) {
        if (byte == '/') {
            continue;
        }
        const auto c = static_cast<char>(byte);
        SCOPED_TRACE(byte);
        all += c;
        // Letters and digits mean the same to the shell wherever they stand.
        if (IgCmnStrIsAlnum(static_cast<wchar_t>(byte)) == 0 || c == 'n') {
            survives(std::string("x") + c + "touch ran" + c);
        }
    }
    survives(all);
    survives(std::string(all.rbegin(), all.rend()));
    fs::current_path("/");
    EXPECT_EQ(takeLog(), "");
}

TEST_F(IGCmnFile, ReportsARemovalThatFails) {
    fs::create_directories(path("tree/sub"));
    const ReadOnly read_only(path("tree"));
    const std::string tree = path("tree");
    EXPECT_EQ(reported([&] { EXPECT_EQ(IgCmnFileRemoveAll(tree.c_str()), 1); }),
              "ZEPA113-E:An error occurred during the following system call. system call name = "
              "system, error code = 256, msg = rm command failed.\n"
              "ZEPA151-E:Additional information, command = /bin/rm -rf \"" +
                  tree +
                  "\" 2> /dev/null.\n"
                  "ZEPA114-E:source = IGCmnFile, line no = N.\n");
}

TEST_F(IGCmnFile, ReportsARemovalThatFailsAsWarningsWhileACollectionIsUnderWay) {
    fs::create_directories(path("tree/sub"));
    const ReadOnly read_only(path("tree"));
    IgCmnMsgSetMode(1);
    Capture err(stderr);
    EXPECT_EQ(IgCmnFileRemoveAll(path("tree").c_str()), 1);
    EXPECT_EQ(err.take(), "");
    EXPECT_EQ(takeLog(),
              "ZEPA140-W:An error occurred during the following system call. system call name = "
              "system, error code = 256, msg = rm command failed.\n"
              "ZEPA152-W:Additional information, command = /bin/rm -rf \"" +
                  path("tree") +
                  "\" 2> /dev/null.\n"
                  "ZEPA141-W:source = IGCmnFile, line no = N.\n");
}

// Sizes

TEST_F(IGCmnFile, GivesTheSizeOfAFile) {
    writeText(path("file"), std::string(1234, 'x'));
    fs::create_symlink("file", path("link"));
    EXPECT_EQ(IgCmnFileGetSize(path("file").c_str()), 1234);
    EXPECT_EQ(IgCmnFileGetSize(path("link").c_str()), 1234);
    writeText(path("large"), "");
    fs::resize_file(path("large"), std::uintmax_t{5} << 30);
    EXPECT_EQ(IgCmnFileGetSize(path("large").c_str()), std::int64_t{5} << 30);
}

TEST_F(IGCmnFile, AddsUpTheFilesBelowADirectory) {
    fs::create_directories(path("tree/a/b"));
    fs::create_directories(path("tree/empty"));
    writeText(path("tree/one"), "1");
    writeText(path("tree/.hidden"), "12");
    writeText(path("tree/a/three"), "123");
    writeText(path("tree/a/b/four"), "1234");
    writeText(path("outside"), std::string(100, 'x'));
    EXPECT_EQ(IgCmnFileGetSize(path("tree").c_str()), 10);
    EXPECT_EQ(IgCmnFileGetSize(path("tree/").c_str()), 10);
    EXPECT_EQ(IgCmnFileGetSize(path("tree/empty").c_str()), 0);
    fs::create_symlink(path("outside"), path("tree/link"));
    fs::create_directory(path("other"));
    writeText(path("other/file"), std::string(1000, 'x'));
    fs::create_symlink(path("other"), path("tree/a/dirlink"));
    EXPECT_EQ(IgCmnFileGetSize(path("tree").c_str()), 1110) << "links are followed";
}

TEST_F(IGCmnFile, DoesNotWalkInCircles) {
    fs::create_directories(path("tree/a"));
    writeText(path("tree/a/file"), "12345");
    fs::create_symlink("..", path("tree/a/up"));
    fs::create_symlink(".", path("tree/self"));
    EXPECT_EQ(IgCmnFileGetSize(path("tree").c_str()), 5);
}

TEST_F(IGCmnFile, EntersEachDirectoryOfAGraphOfLinksOnce) {
    constexpr int LEVELS = 30;  // 2^30 ways through it
    for (int level = 0; level < LEVELS; ++level) {
        const std::string here = path(std::to_string(level));
        fs::create_directory(here);
        writeText(here + "/file", "x");
        for (const char* name : {"/a", "/b"}) {
            fs::create_directory_symlink(path(std::to_string((level + 1) % LEVELS)), here + name);
        }
    }
    EXPECT_EQ(IgCmnFileGetSize(path("0").c_str()), LEVELS);
}

TEST_F(IGCmnFile, CountsNoFurtherWhenTheRunIsInterrupted) {
    fs::create_directories(path("tree/a"));
    writeText(path("tree/a/file"), "12345");
    run_state.signal_no = 2;
    run_state.interrupted = 1;
    Capture err(stderr);
    EXPECT_EQ(IgCmnFileGetSize(path("tree").c_str()), 0);
}

TEST_F(IGCmnFile, CountsNamesThatTheLocaleCannotDecode) {
    fs::create_directory(path("tree"));
    writeText(path("tree/\xff\xfe"), "123");
    EXPECT_EQ(IgCmnFileGetSize(path("tree").c_str()), 3);
    EXPECT_EQ(takeLog(), "");
}

TEST_F(IGCmnFile, ReportsWhatHasNoSizeAndCountsTheRest) {
    const std::string missing = path("missing");
    EXPECT_EQ(reported([&] { EXPECT_EQ(IgCmnFileGetSize(missing.c_str()), 0); }),
              failure("stat", ENOENT, "No such file or directory", missing));
    fs::create_directory(path("tree"));
    writeText(path("tree/file"), "12");
    fs::create_symlink("nowhere", path("tree/dangling"));
    EXPECT_EQ(reported([&] { EXPECT_EQ(IgCmnFileGetSize(path("tree").c_str()), 2); }),
              failure("stat", ENOENT, "No such file or directory", path("tree/dangling")));
}

TEST_F(IGCmnFile, ReportsADirectoryThatCannotBeListedAsEmpty) {
    writeText(path("file"), "12");
    const std::string tree = path();
    std::int64_t size = -1;
    Capture err(stderr);
    {
        const NoDescriptors none;
        size = IgCmnFileGetSize(tree.c_str());
    }
    EXPECT_EQ(size, 0);
    EXPECT_EQ(takeLog(), trio("opendir", EMFILE, "Too many open files", tree, "IGCmnPath"));
}

TEST_F(IGCmnFile, CountsWhatWasReadOfADirectoryBeforeReadingFailed) {
    for (const char* name : {"a", "b", "c"}) {
        writeText(path(name), "x");
    }
    const FailingCall failing(Call::READDIR, 5, EIO);  // "." and ".." are entries too
    EXPECT_EQ(reported([&] {
                  // Two of the three, unless "." or ".." would have been the last.
                  const std::int64_t size = IgCmnFileGetSize(path().c_str());
                  EXPECT_GE(size, 2);
                  EXPECT_LE(size, 3);
              }),
              trio("readdir", EIO, "Input/output error", path(), "IGCmnPath"));
}

// Copying

TEST_F(IGCmnFile, CopiesAFileWithItsModeAndTime) {
    writeText(path("source"), "text");
    ASSERT_EQ(::chmod(path("source").c_str(), 04711), 0);
    const std::array<struct timespec, 2> times{{{1000000000, 0}, {1100000000, 0}}};
    ASSERT_EQ(::utimensat(AT_FDCWD, path("source").c_str(), times.data(), 0), 0);
    EXPECT_EQ(IgCmnFileCopy(path("source").c_str(), path("copy").c_str(), 0, 0), 1);
    EXPECT_EQ(readText(path("copy")), "text");
    EXPECT_EQ(modeOf(path("copy")), 04711U);
    struct stat st = {};
    ASSERT_EQ(::stat(path("copy").c_str(), &st), 0);
    EXPECT_EQ(st.st_mtim.tv_sec, 1100000000);
}

TEST_F(IGCmnFile, ReplacesAnExistingCopyOnlyWhenToldTo) {
    writeText(path("source"), "new");
    for (const int overwrite : {0, 2, -1}) {
        writeText(path("copy"), "old");
        EXPECT_EQ(IgCmnFileCopy(path("source").c_str(), path("copy").c_str(), overwrite, 0), 0);
        EXPECT_EQ(readText(path("copy")), "old");
    }
    EXPECT_EQ(IgCmnFileCopy(path("source").c_str(), path("copy").c_str(), 1, 0), 1);
    EXPECT_EQ(readText(path("copy")), "new");
}

TEST_F(IGCmnFile, SaysNothingOfACopyThatFails) {
    writeText(path("source"), "x");
    EXPECT_EQ(reported([&] {
                  EXPECT_EQ(IgCmnFileCopy(path("no").c_str(), path("copy").c_str(), 1, 0), 0);
                  EXPECT_EQ(IgCmnFileCopy(path("source").c_str(), path("no/copy").c_str(), 1, 0),
                            0);
                  EXPECT_EQ(IgCmnFileCopy(path().c_str(), path("copy").c_str(), 1, 0), 0);
              }),
              "");
    EXPECT_FALSE(fs::exists(path("copy")));
    EXPECT_EQ(run_state.interrupted, 0);
}

TEST_F(IGCmnFile, CopiesExactlyTheNamesThatItIsGiven) {
    fs::create_directories(path("from"));
    fs::create_directories(path("to"));
    for (const std::string& name : HOSTILE_NAMES) {
        SCOPED_TRACE(name);
        fs::current_path(path());
        writeText(path("from/" + name), name);
        EXPECT_EQ(IgCmnFileCopy(path("from/" + name).c_str(), path("to/" + name).c_str(), 0, 0), 1);
        EXPECT_EQ(readText(path("to/" + name)), name);
        EXPECT_FALSE(fs::exists(path("ran")));
        fs::current_path("/");
    }
}

TEST_F(IGCmnFile, LinksInsteadOfCopying) {
    writeText(path("source"), "text");
    EXPECT_EQ(IgCmnFileCopy(path("source").c_str(), path("link").c_str(), 0, 1), 1);
    EXPECT_EQ(fs::read_symlink(path("link")), path("source"));
}

TEST_F(IGCmnFile, ReplacesWhatIsInTheWayOfALinkOnlyWhenToldTo) {
    writeText(path("source"), "text");
    writeText(path("link"), "old");
    EXPECT_EQ(IgCmnFileCopy(path("source").c_str(), path("link").c_str(), 0, 1), 0);
    EXPECT_EQ(readText(path("link")), "old");
    EXPECT_EQ(IgCmnFileCopy(path("source").c_str(), path("link").c_str(), 1, 1), 1);
    EXPECT_EQ(fs::read_symlink(path("link")), path("source"));
}

TEST_F(IGCmnFile, LinksToNothingThatCannotBeRead) {
    writeText(path("link"), "old");
    EXPECT_EQ(reported([&] {
                  EXPECT_EQ(IgCmnFileCopy(path("no").c_str(), path("link").c_str(), 1, 1), 0);
                  EXPECT_EQ(IgCmnFileCopy(path("link").c_str(), path("no/link").c_str(), 1, 1), 0);
              }),
              "");
    EXPECT_EQ(readText(path("link")), "old");
}

TEST_F(IGCmnFile, LeavesNoDescriptorOpen) {
    writeText(path("source"), "text");
    const std::size_t before = openDescriptors();
    EXPECT_EQ(IgCmnFileCopy(path("source").c_str(), path("link").c_str(), 0, 1), 1);
    EXPECT_EQ(IgCmnFileGetSize(path().c_str()), 8);
    EXPECT_EQ(openDescriptors(), before);
}

// Commands that SIGINT ends

class InterruptedCommand : public IGCmnFile {
  protected:
    void SetUp() override {
        IGCmnFile::SetUp();
        for (std::size_t i = 0; i < actions_.size(); ++i) {
            ::sigaction(INTERRUPTING_SIGNALS[i], nullptr, &actions_[i]);
        }
    }
    void TearDown() override {
        for (std::size_t i = 0; i < actions_.size(); ++i) {
            ::sigaction(INTERRUPTING_SIGNALS[i], &actions_[i], nullptr);
        }
        IGCmnFile::TearDown();
    }
    // A command whose script takes the place of another.
    std::string script(const std::string& body) {
        writeText(path("script"), "#!/bin/sh\n" + body + "\n");
        ::chmod(path("script").c_str(), 0755);
        return path("script");
    }
    static bool ignored(int signal_no) {
        struct sigaction action = {};
        ::sigaction(signal_no, nullptr, &action);
        return action.sa_handler == SIG_IGN;
    }

  private:
    std::array<struct sigaction, INTERRUPTING_SIGNALS.size()> actions_ = {};
};

TEST_F(InterruptedCommand, InterruptsTheRunWhenItWasACopy) {
    for (const char* ending : {"kill -INT $$", "exit 130"}) {
        SCOPED_TRACE(ending);
        run_state.interrupted = 0;
        run_state.signal_no = 0;
        const Mounted copy(script(ending), "/bin/cp");
        EXPECT_EQ(IgCmnFileCopy(path("a").c_str(), path("b").c_str(), 1, 0), 0);
        EXPECT_EQ(run_state.interrupted, 1);
        EXPECT_EQ(run_state.signal_no, SIGINT);
        EXPECT_TRUE(ignored(SIGINT));
        EXPECT_TRUE(ignored(SIGTERM));
    }
}

TEST_F(InterruptedCommand, InterruptsTheRunWhenItWasARemoval) {
    const Mounted remove(script("kill -INT $$"), "/bin/rm");
    Capture err(stderr);
    EXPECT_EQ(IgCmnFileRemoveAll(path("a").c_str()), 1);
    EXPECT_EQ(run_state.interrupted, 1);
    EXPECT_EQ(run_state.signal_no, SIGINT);
}

TEST_F(InterruptedCommand, IsNotAnyCommandThatFails) {
    for (const char* ending : {"kill -TERM $$", "kill -QUIT $$", "exit 1", "exit 2", "exit 143"}) {
        SCOPED_TRACE(ending);
        const Mounted copy(script(ending), "/bin/cp");
        EXPECT_EQ(IgCmnFileCopy(path("a").c_str(), path("b").c_str(), 1, 0), 0);
        EXPECT_EQ(run_state.interrupted, 0);
        EXPECT_FALSE(ignored(SIGINT));
    }
}

TEST_F(InterruptedCommand, LeavesSignalsIgnoredWhenTheRunWasInterruptedBefore) {
    writeText(path("source"), "text");
    run_state.interrupted = 1;
    IgMainIgnoreSignals();
    EXPECT_EQ(IgCmnFileCopy(path("source").c_str(), path("copy").c_str(), 0, 0), 1);
    EXPECT_TRUE(ignored(SIGINT));
    EXPECT_TRUE(ignored(SIGTERM));
}

// Current directory

TEST_F(IGCmnFile, ChangesTheCurrentDirectory) {
    std::array<char, PATH_MAX> buffer{};
    EXPECT_EQ(IgCmnFileChdir(path().c_str()), 0);
    EXPECT_EQ(IgCmnFileGetCwd(buffer.data(), buffer.size()), buffer.data());
    EXPECT_EQ(buffer.data(), path());
    fs::current_path("/");
}

TEST_F(IGCmnFile, ReportsADirectoryThatCannotBeEntered) {
    const std::string missing = path("missing");
    EXPECT_EQ(reported([&] { EXPECT_EQ(IgCmnFileChdir(missing.c_str()), -1); }),
              failure("chdir", ENOENT, "No such file or directory", missing));
}

TEST_F(IGCmnFile, ReportsACurrentDirectoryThatCannotBeNamed) {
    const std::string report =
        "ZEPA113-E:An error occurred during the following system call. system call name = getcwd, "
        "error code = ";
    const std::string place = "ZEPA114-E:source = IGCmnFile, line no = N.\n";
    std::array<char, PATH_MAX> buffer{};
    fs::current_path(path());
    EXPECT_EQ(reported([&] { EXPECT_EQ(IgCmnFileGetCwd(buffer.data(), 3), nullptr); }),
              report + "34, msg = Numerical result out of range.\n" + place);
    fs::create_directory(path("gone"));
    fs::current_path(path("gone"));
    fs::remove(path("gone"));
    EXPECT_EQ(reported([&] { EXPECT_EQ(IgCmnFileGetCwd(buffer.data(), PATH_MAX), nullptr); }),
              report + "2, msg = No such file or directory.\n" + place);
    fs::current_path("/");
}

// What must not be null

std::string nullOf(const std::string& name) {
    return name + " != \\(\\(void \\*\\)0\\)";
}

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
    EXPECT_DEATH(IgCmnFileMkdir(nullptr), nullOf("`path"));
    EXPECT_DEATH(IgCmnFileRemoveAll(nullptr), nullOf("`path"));
    EXPECT_DEATH(IgCmnFileGetSize(nullptr), nullOf("`path"));
    EXPECT_DEATH(IgCmnFileCheckMode(nullptr, 0), nullOf("`path"));
    EXPECT_DEATH(IgCmnFileChdir(nullptr), nullOf("`path"));
    EXPECT_DEATH(IgCmnFileCreateDirAllPath(nullptr), nullOf("`dirpath"));
    EXPECT_DEATH(IgCmnFileGetCwd(nullptr, 10), nullOf("`buffer"));
}

TEST(IGCmnFileDeathTest, AssertsSourceAndDestination) {
    EXPECT_DEATH(IgCmnFileCopy(nullptr, "/x", 0, 0), nullOf("`src"));
    EXPECT_DEATH(IgCmnFileCopy("/x", nullptr, 0, 0), nullOf("`dest"));
}

TEST(IGCmnFileDeathTest, AssertsWhatIsAppended) {
    memory_pool pool = nullptr;
    char* buffer = nullptr;
    std::uint32_t size = 0;
    EXPECT_DEATH(concat_data(nullptr, &buffer, &size, ""), nullOf("`memoryp"));
    EXPECT_DEATH(concat_data(&pool, nullptr, &size, ""), "Assertion `[a-z]+ != \\(\\(void");
    EXPECT_DEATH(concat_data(&pool, &buffer, nullptr, ""), "Assertion `[a-z]+ != \\(\\(void");
    EXPECT_DEATH(concat_data(&pool, &buffer, &size, nullptr), "Assertion `[a-z]+ != \\(\\(void");
}

}  // namespace
