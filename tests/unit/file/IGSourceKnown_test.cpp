// Files of a directory that is known already, and files that are opened for reading at once. This
// file replaces the calls that open files: it records them.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "../../support/lease_holder.h"
#include "../../support/mounted.h"
#include "../../support/run_fixture.h"
#include "common/base/IGOpen.h"
#include "common/file/IGSource.h"

namespace {

struct Opened {
    std::string name;
    int flags;
};
std::vector<Opened> opened;

int openRecorded(int directory, const char* name, int flags, mode_t mode) {
    opened.push_back({name, flags});
    return static_cast<int>(::syscall(SYS_openat, directory, name, flags, mode));
}

}  // namespace

// With 64-bit file offsets the headers give the functions other names.
extern "C" {
int openReplaced(const char* name, int flags, mode_t mode) asm("open");
int open64Replaced(const char* name, int flags, mode_t mode) asm("open64");
int openatReplaced(int directory, const char* name, int flags, mode_t mode) asm("openat");
int openat64Replaced(int directory, const char* name, int flags, mode_t mode) asm("openat64");

int openReplaced(const char* name, int flags, mode_t mode) {
    return openRecorded(AT_FDCWD, name, flags, mode);
}
int open64Replaced(const char* name, int flags, mode_t mode) {
    return openRecorded(AT_FDCWD, name, flags, mode);
}
int openatReplaced(int directory, const char* name, int flags, mode_t mode) {
    return openRecorded(directory, name, flags, mode);
}
int openat64Replaced(int directory, const char* name, int flags, mode_t mode) {
    return openRecorded(directory, name, flags, mode);
}
}

namespace {

namespace fs = std::filesystem;

constexpr uid_t USER = 1000;

class IGSourceKnown : public RunTest {
  protected:
    void SetUp() override {
        RunTest::SetUp();
        Source source;
        ASSERT_TRUE(sourceFollow("/", source));  // no directory is known
        fs::create_directories(own("a/b"));
        for (const char* name : {"first", "second", "third"}) {
            writeText(own(std::string("a/b/") + name), name);
        }
    }

    std::string own(const std::string& name = "") { return own_.path(name); }

    // What a path leads to: "own NAME" or "foreign NAME" with the file's content, or the error.
    std::string found(const std::string& path, bool to_read = false) {
        const std::size_t before = openDescriptors();
        std::string result;
        {
            Source source;
            opened.clear();
            const bool followed = to_read ? sourceFollowToRead(path.c_str(), source)
                                          : sourceFollow(path.c_str(), source);
            const int error = errno;
            steps_ = opened.size();
            readable_ = source.readable;
            place_ = followed ? source.path.data() : "";
            expectOpen(source, followed);
            result = followed ? (source.own ? "own " : "foreign ") + content(source)
                              : "error " + std::to_string(error);
        }
        EXPECT_EQ(openDescriptors(), before);
        return result;
    }
    std::string foundToRead(const std::string& path) { return found(path, true); }

    // The descriptor is that of the status and of the path, and open for reading if it says so.
    static void expectOpen(const Source& source, bool followed) {
        ASSERT_EQ(static_cast<bool>(source.fd), followed);
        if (!followed) {
            return;
        }
        struct stat st = {};
        struct stat named = {};
        ASSERT_EQ(::fstat(source.fd.get(), &st), 0);
        const char* path = source.path[0] == '\0' ? "/" : source.path.data();
        ASSERT_EQ(::stat(path, &named), 0) << path;
        EXPECT_EQ(st.st_ino, source.st.st_ino);
        EXPECT_EQ(st.st_dev, source.st.st_dev);
        EXPECT_EQ(st.st_ino, named.st_ino);
        EXPECT_EQ(st.st_dev, named.st_dev);
        const int flags = ::fcntl(source.fd.get(), F_GETFL);
        EXPECT_EQ((flags & O_PATH) == 0, source.readable);
        EXPECT_EQ(::fcntl(source.fd.get(), F_GETFD), FD_CLOEXEC);
    }
    static std::string content(const Source& source) {
        const FdGuard fd(sourceOpenForReading(source));
        std::array<char, 16> text{};
        return fd && ::read(fd.get(), text.data(), text.size() - 1) >= 0 ? text.data() : "nothing";
    }

    // Gives the directories on the path of the files the same times, whatever has changed in them.
    void setTimes() {
        const struct timespec times[] = {{1, 0}, {2, 0}};
        for (const char* name : {"", "a", "a/b"}) {
            ::utimensat(AT_FDCWD, own(name).c_str(), times, 0);
        }
    }

    // Whether a call has opened anything but a directory in a way that is more than finding it.
    static bool openedForReading() {
        return std::any_of(opened.begin(), opened.end(), [](const Opened& one) {
            return (one.flags & (O_PATH | O_DIRECTORY)) == 0;
        });
    }

    TempDir own_{"/opt"};
    std::size_t steps_ = 0;  // calls that the last path took
    bool readable_ = false;
    std::string place_;  // what it resolved to
};

// --- the directory of the last file ---

TEST_F(IGSourceKnown, FindsTheNextFileOfADirectoryInOneStep) {
    EXPECT_EQ(found(own("a/b/first")), "own first");
    EXPECT_GT(steps_, 5U) << "the root and every name";
    EXPECT_EQ(found(own("a/b/second")), "own second");
    EXPECT_EQ(steps_, 1U);
    EXPECT_EQ(place_, own("a/b/second"));
    EXPECT_FALSE(readable_);
    EXPECT_EQ(foundToRead(own("a/b/third")), "own third");
    EXPECT_EQ(steps_, 1U);
    EXPECT_TRUE(readable_);
    EXPECT_EQ(found(own("a/b/first")), "own first");
    EXPECT_FALSE(readable_) << "only a file that is collected";
}

TEST_F(IGSourceKnown, FindsFilesOfAnotherDirectoryStepByStep) {
    writeText(own("a/other"), "other");
    fs::create_directories(own("a/bc"));
    writeText(own("a/bc/file"), "file");
    for (const auto& [name, wanted] : std::vector<std::pair<std::string, std::string>>{
             {"a/other", "own other"}, {"a/bc/file", "own file"}}) {
        EXPECT_EQ(found(own("a/b/first")), "own first");
        EXPECT_EQ(found(own(name)), wanted);
        EXPECT_GT(steps_, 3U) << name;
    }
}

TEST_F(IGSourceKnown, KnowsNoDirectoryBehindALink) {
    fs::create_directory_symlink("a", own("link"));
    EXPECT_EQ(found(own("link/b/first")), "own first");
    EXPECT_EQ(found(own("link/b/second")), "own second");
    EXPECT_GT(steps_, 1U);
    EXPECT_EQ(place_, own("a/b/second"));
}

TEST_F(IGSourceKnown, FindsTheErrorsOfAKnownDirectory) {
    EXPECT_EQ(found(own("a/b/first")), "own first");
    const std::string longest(NAME_MAX, 'x');
    EXPECT_EQ(found(own("a/b/none")), "error " + std::to_string(ENOENT));
    EXPECT_EQ(found(own("a/b/first")), "own first");
    EXPECT_EQ(found(own("a/b/" + longest)), "error " + std::to_string(ENOENT));
    EXPECT_EQ(found(own("a/b/" + longest + "x")), "error " + std::to_string(ENAMETOOLONG));
}

TEST_F(IGSourceKnown, FollowsALinkInAKnownDirectory) {
    writeText(own("target"), "target");
    fs::create_symlink("../../target", own("a/b/link"));
    fs::create_symlink("none", own("a/b/dangling"));
    for (const bool to_read : {false, true}) {
        EXPECT_EQ(found(own("a/b/first")), "own first");
        EXPECT_EQ(found(own("a/b/link"), to_read), "own target");
        EXPECT_EQ(place_, own("target"));
        EXPECT_EQ(found(own("a/b/first")), "own first");
        EXPECT_EQ(found(own("a/b/dangling"), to_read), "error " + std::to_string(ENOENT));
    }
}

// The link is in "a", its file in "a/b".
TEST_F(IGSourceKnown, DoesNotKnowTheDirectoryToWhichALinkLed) {
    fs::create_symlink("b/first", own("a/link"));
    writeText(own("a/second"), "outer");
    EXPECT_EQ(found(own("a/link")), "own first");
    EXPECT_EQ(found(own("a/second")), "own outer");
    EXPECT_EQ(place_, own("a/second"));
    EXPECT_EQ(found(own("a/b/first")), "own first");
    EXPECT_EQ(found(own("a/link")), "own first");
    EXPECT_EQ(found(own("a/third")), "error " + std::to_string(ENOENT));
}

TEST_F(IGSourceKnown, TakesADotOrTwoAtTheEndForNoName) {
    const std::string error = "error " + std::to_string(ENOENT);
    writeText(own("a/file"), "outer");
    EXPECT_EQ(found(own("a/b/first")), "own first");
    EXPECT_EQ(found(own("a/b/..")), "own nothing");
    EXPECT_EQ(place_, own("a"));
    EXPECT_EQ(found(own("a/b/file")), error);
    EXPECT_EQ(found(own("a/b/first")), "own first");
    EXPECT_EQ(found(own("a/b/.")), "own nothing");
    EXPECT_EQ(place_, own("a/b"));
    EXPECT_EQ(found(own("a/b/first")), "own first");
    EXPECT_EQ(found(own("a/b/")), "own nothing");
    EXPECT_EQ(place_, own("a/b"));
    EXPECT_EQ(found(own("a/b/../file")), "own outer");
    EXPECT_EQ(found(own("a/b/first")), "own first");
}

// Each change is made after a file of the directory was found.
TEST_F(IGSourceKnown, SeesWhatHasHappenedToAKnownDirectory) {
    struct Case {
        const char* what;
        std::function<void()> change;
        std::string found;
    };
    const std::string directory = own("a/b");
    const auto give = [](const std::string& path, uid_t user) {
        ASSERT_EQ(::lchown(path.c_str(), user, 0), 0);
    };
    const auto replace = [&] {
        fs::rename(directory, own("a/away"));
        fs::create_directory(directory);
        writeText(directory + "/second", "other");
    };
    const auto link = [&](const std::string& target) {
        fs::rename(directory, own("a/away"));
        fs::create_directory_symlink(target, directory);
    };
    fs::create_directories(own("users/roots"));
    writeText(own("users/second"), "his");
    writeText(own("users/roots/second"), "deep");
    give(own("users"), USER);
    for (const Case& c : std::vector<Case>{
             {"nothing", [] {}, "own second"},
             {"moved", [&] { fs::rename(directory, own("a/away")); },
              "error " + std::to_string(ENOENT)},
             {"replaced", replace, "own other"},
             {"replaced by a user's",
              [&] {
                  replace();
                  give(directory, USER);
              },
              "foreign other"},
             {"a link to it", [&] { link("away"); }, "own second"},
             {"a link to a user's", [&] { link("../users"); }, "foreign his"},
             {"a link to root's below a user's", [&] { link("../users/roots"); }, "foreign deep"},
             {"given to a user", [&] { give(directory, USER); }, "foreign second"},
             {"writable for its group", [&] { ::chmod(directory.c_str(), 0775); },
              "foreign second"},
             {"writable for all", [&] { ::chmod(directory.c_str(), 0757); }, "foreign second"},
             {"closed", [&] { ::chmod(directory.c_str(), 0); }, "own second"},
         }) {
        for (const bool to_read : {false, true}) {
            SCOPED_TRACE(c.what);
            setTimes();
            ASSERT_EQ(found(own("a/b/first")), "own first");
            c.change();
            setTimes();
            const std::uint64_t walks = sourceWalks();
            EXPECT_EQ(found(own("a/b/second"), to_read), c.found);
            EXPECT_EQ(sourceWalks() == walks, c.what == std::string("nothing"));
            EXPECT_TRUE(!readable_ || c.found.substr(0, 3) == "own");
            if (fs::exists(own("a/away"))) {
                fs::remove_all(directory);
                fs::rename(own("a/away"), directory);
            }
            give(directory, 0);
            ASSERT_EQ(::chmod(directory.c_str(), 0755), 0);
        }
    }
}

// The same for a directory above it.
TEST_F(IGSourceKnown, SeesWhatHasHappenedAboveAKnownDirectory) {
    struct Case {
        const char* what;
        std::function<void()> change;
        std::string found;
        std::string place;
    };
    const std::string above = own("a");
    fs::create_directories(own("users"));
    ASSERT_EQ(::chown(own("users").c_str(), USER, USER), 0);
    const auto moveTo = [&](const std::string& target) {
        fs::rename(above, target);
        fs::create_directory_symlink(target, above);
    };
    for (const Case& c : std::vector<Case>{
             {"nothing", [] {}, "own", own("a")},
             {"moved", [&] { fs::rename(above, own("away")); }, "error", ""},
             {"given to a user", [&] { ::chown(above.c_str(), USER, 0); }, "foreign", own("a")},
             {"writable for its group", [&] { ::chmod(above.c_str(), 0775); }, "foreign", own("a")},
             {"writable for all", [&] { ::chmod(above.c_str(), 0757); }, "foreign", own("a")},
             {"moved, and a link to it", [&] { moveTo(own("away")); }, "own", own("away")},
             {"moved to a user's, and a link to it", [&] { moveTo(own("users/away")); }, "foreign",
              own("users/away")},
         }) {
        for (const bool to_read : {false, true}) {
            SCOPED_TRACE(c.what);
            setTimes();
            ASSERT_EQ(found(own("a/b/first")), "own first");
            c.change();
            setTimes();
            const std::string result = found(own("a/b/second"), to_read);
            EXPECT_EQ(result.substr(0, result.find(' ')), c.found);
            EXPECT_EQ(place_, c.place.empty() ? "" : c.place + "/b/second");
            EXPECT_TRUE(!readable_ || c.found == "own");
            for (const std::string& away : {own("away"), own("users/away")}) {
                if (fs::exists(away)) {
                    fs::remove(above);
                    fs::rename(away, above);
                }
            }
            ASSERT_EQ(::chown(above.c_str(), 0, 0), 0);
            ASSERT_EQ(::chmod(above.c_str(), 0755), 0);
        }
    }
}

// Their copies in the output get these attributes.
TEST_F(IGSourceKnown, WalksAgainWhenADirectoryHasOtherAttributes) {
    const auto walksTo = [&](const std::string& name) {
        const std::uint64_t before = sourceWalks();
        found(own(name));
        return sourceWalks() - before;
    };
    for (const char* name : {"a/b", "a", ""}) {
        SCOPED_TRACE(name);
        const std::string directory = own(name);
        const struct timespec times[] = {{5, 0}, {7, 123}};
        const struct timespec later[] = {{5, 0}, {7, 124}};
        const std::vector<std::function<int()>> changes{
            [&] { return ::chmod(directory.c_str(), 0750); },
            [&] { return ::chown(directory.c_str(), 0, 77); },
            [&] { return ::utimensat(AT_FDCWD, directory.c_str(), times, 0); },
            [&] { return ::utimensat(AT_FDCWD, directory.c_str(), later, 0); },
        };
        walksTo("a/b/first");
        for (const auto& change : changes) {
            EXPECT_EQ(walksTo("a/b/second"), 0U);
            ASSERT_EQ(change(), 0);
            EXPECT_EQ(walksTo("a/b/second"), 1U);
        }
        ASSERT_EQ(::chmod(directory.c_str(), 0755), 0);
    }
    walksTo("a/b/first");
    EXPECT_EQ(walksTo("a/b/none"), 1U);
    EXPECT_EQ(walksTo("a/b/first"), 0U);
}

TEST_F(IGSourceKnown, KnowsNoDirectoryOfADeepPath) {
    std::string directory = own();
    constexpr int KNOWN = 15;  // names in a path; the root is one more directory
    for (int names = 2; names <= KNOWN + 2; ++names) {
        for (const char* name : {"first", "second"}) {
            writeText(directory + "/" + name, name);
        }
        EXPECT_EQ(found(directory + "/first"), "own first");
        EXPECT_EQ(found(directory + "/second"), "own second");
        EXPECT_EQ(steps_ == 1, names <= KNOWN) << names;
        directory += "/d";
        fs::create_directory(directory);
    }
}

// The directory gets another name, and the link follows it: the old name is free for a user.
TEST_F(IGSourceKnown, SeesThatAKnownDirectoryBehindALinkHasAnotherName) {
    fs::create_directory_symlink("a/b", own("link"));
    ASSERT_EQ(found(own("link/first")), "own first");
    fs::rename(own("a/b"), own("a/new"));
    fs::remove(own("link"));
    fs::create_directory_symlink("a/new", own("link"));
    fs::create_directory(own("a/b"));
    writeText(own("a/b/second"), "planted");
    ASSERT_EQ(::chown(own("a/b").c_str(), USER, USER), 0);
    EXPECT_EQ(found(own("link/second")), "own second");
    EXPECT_EQ(place_, own("a/new/second"));
}

TEST_F(IGSourceKnown, SeesTheOutputWithItsOwnRules) {
    const std::string ours = own("a");
    ASSERT_EQ(::chmod(own("a/b").c_str(), 0777), 0);
    Source source;
    ASSERT_TRUE(sourceFollow(own("a/b/first").c_str(), source, ours.c_str()));
    EXPECT_TRUE(source.own);
    EXPECT_EQ(found(own("a/b/second")), "foreign second");
}

TEST_F(IGSourceKnown, DoesNotKnowAUsersDirectory) {
    ASSERT_EQ(::chown(own("a").c_str(), USER, USER), 0);
    for (const char* name : {"a/b/first", "a/b/second"}) {
        EXPECT_EQ(foundToRead(own(name)).substr(0, 8), "foreign ");
        EXPECT_GT(steps_, 5U);
        EXPECT_FALSE(readable_);
    }
}

TEST_F(IGSourceKnown, ReportsAPathThatIsTooLong) {
    std::string directory = own("a");
    while (directory.size() + 191 < PATH_MAX - 60) {
        directory += "/" + std::string(190, 'x');
        fs::create_directory(directory);
    }
    const std::string link = own("l");
    fs::create_directory_symlink(directory, link);
    const std::size_t room = PATH_MAX - 1 - directory.size() - 1;  // of a name
    ASSERT_LT(room, std::size_t{NAME_MAX});
    const std::string fits(room, 'y');
    const std::string long_name(room + 1, 'z');
    writeText(link + "/first", "first");
    writeText(link + "/" + fits, "fits");
    writeText(link + "/" + long_name, "long");
    for (const bool to_read : {false, true}) {
        ASSERT_EQ(found(link + "/first"), "own first");
        EXPECT_EQ(found(link + "/" + fits, to_read), "own fits");
        EXPECT_EQ(found(link + "/" + long_name, to_read), "error " + std::to_string(ENAMETOOLONG));
    }
    const SourceDirectory listed{directory.c_str(), true};
    SourceOpener opener;
    Source source;
    EXPECT_TRUE(opener.open(listed, fits.c_str(), source));
    EXPECT_EQ(source.path.data(), directory + "/" + fits);
    EXPECT_FALSE(opener.open(listed, long_name.c_str(), source));
    EXPECT_EQ(errno, ENAMETOOLONG);
    EXPECT_FALSE(source.fd);
    EXPECT_TRUE(opener.open(listed, "first", source));
}

// --- opening for reading at once ---

// A way to open a file of a directory that is known.
struct Way {
    const char* what;
    std::function<bool(const std::string&, Source&)> open;
};

class OpensToRead : public IGSourceKnown {
  protected:
    // The ways, in which the directory "a/b" is known.
    std::vector<Way> ways() {
        return {{"opener",
                 [this](const std::string& name, Source& source) {
                     const std::string path = own("a/b");
                     const SourceDirectory directory{path.c_str(), true};
                     SourceOpener opener;
                     return opener.open(directory, "first", source) &&
                            recorded([&] { return opener.open(directory, name.c_str(), source); });
                 }},
                {"path", [this](const std::string& name, Source& source) {
                     const std::string path = own("a/b/" + name);
                     return sourceFollow(own("a/b/first").c_str(), source) &&
                            recorded([&] { return sourceFollowToRead(path.c_str(), source); });
                 }}};
    }
    static bool recorded(const std::function<bool()>& open) {
        opened.clear();
        return open();
    }
    // In every way, the file is found but not opened for reading.
    void expectNotRead(const std::string& name) {
        for (const Way& way : ways()) {
            SCOPED_TRACE(name + ", " + way.what);
            Source source;
            EXPECT_TRUE(way.open(name, source));
            EXPECT_FALSE(source.readable);
            EXPECT_FALSE(openedForReading());
            expectOpen(source, true);
        }
    }
};

TEST_F(OpensToRead, ARegularFileOfRootsOwnDirectory) {
    for (const Way& way : ways()) {
        SCOPED_TRACE(way.what);
        Source source;
        ASSERT_TRUE(way.open("second", source));
        EXPECT_TRUE(source.readable);
        EXPECT_TRUE(source.own);
        ASSERT_EQ(opened.size(), 1U);
        EXPECT_EQ(opened[0].flags & (O_ACCMODE | O_NONBLOCK | O_NOCTTY | O_NOFOLLOW | O_CLOEXEC),
                  O_RDONLY | O_NONBLOCK | O_NOCTTY | O_NOFOLLOW | O_CLOEXEC);
        expectOpen(source, true);
        EXPECT_EQ(content(source), "second");
        EXPECT_EQ(source.path.data(), own("a/b/second"));
    }
}

TEST_F(OpensToRead, NothingButARegularFile) {
    ASSERT_EQ(::mkfifo(own("a/b/fifo").c_str(), 0600), 0);
    ASSERT_EQ(::mknod(own("a/b/device").c_str(), S_IFCHR | 0600, ::makedev(1, 3)), 0);
    ASSERT_EQ(::mknod(own("a/b/socket").c_str(), S_IFSOCK | 0600, 0), 0);
    fs::create_directory(own("a/b/directory"));
    for (const char* name : {"fifo", "device", "socket", "directory"}) {
        expectNotRead(name);
    }
}

TEST_F(OpensToRead, NoLockFile) {
    const FdGuard lock(::open(own("a/b/lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    fs::create_hard_link(own("a/b/lock"), own("a/b/alias"));
    noteLockFile(LOCK_RUN, lock.get());
    expectNotRead("lock");
    expectNotRead("alias");
    noteLockFile(LOCK_RUN, -1);
    fs::create_hard_link(own("a/b/lock"), std::string(BIN_DIR) + "/.quendil_hist.lck");
    expectNotRead("lock");
    fs::remove(std::string(BIN_DIR) + "/.quendil_hist.lck");
}

TEST_F(OpensToRead, NoFileOfTheKernel) {
    writeText(own("a/b/mounted"), "");
    const Mounted mounted("/proc/version", own("a/b/mounted"));
    expectNotRead("mounted");
    const SourceDirectory proc{"/proc", true};
    Source source;
    SourceOpener opener;
    opened.clear();
    EXPECT_TRUE(opener.open(proc, "version", source));
    EXPECT_FALSE(source.readable);
    EXPECT_TRUE(sourceFollowToRead("/proc/sys/kernel/ostype", source));
    opened.clear();
    EXPECT_TRUE(sourceFollowToRead("/proc/sys/kernel/osrelease", source));
    EXPECT_EQ(opened.size(), 1U) << "its directory is known";
    EXPECT_FALSE(source.readable);
    EXPECT_FALSE(openedForReading());
}

// The first file that is found there is one of the kernel, and the next one is not.
TEST_F(OpensToRead, NoFileOfTheKernelAmongTheFirst) {
    const Mounted mounted("/proc/version", own("a/b/first"));
    writeText(own("a/b/plain"), "plain");
    Source source;
    ASSERT_TRUE(sourceFollowToRead(own("a/b/first").c_str(), source));
    EXPECT_FALSE(source.readable);
    EXPECT_EQ(foundToRead(own("a/b/plain")), "own plain");
    opened.clear();
    ASSERT_TRUE(sourceFollowToRead(own("a/b/first").c_str(), source));
    EXPECT_FALSE(source.readable);
    EXPECT_FALSE(openedForReading());
}

TEST_F(OpensToRead, NoFileOfAUsersDirectory) {
    const std::string path = own("a/b");
    const SourceDirectory directory{path.c_str(), false};
    SourceOpener opener;
    Source source;
    opened.clear();
    EXPECT_TRUE(opener.open(directory, "first", source));
    EXPECT_FALSE(source.readable);
    EXPECT_FALSE(source.own);
    EXPECT_FALSE(openedForReading());
    ASSERT_EQ(::chown(path.c_str(), USER, USER), 0);
    EXPECT_EQ(foundToRead(own("a/b/first")), "foreign first");
    EXPECT_EQ(foundToRead(own("a/b/second")), "foreign second");
    EXPECT_FALSE(readable_);
}

TEST_F(OpensToRead, TheFileThatALinkHasReplacedIsTheLinksFile) {
    const std::string path = own("a/b");
    const SourceDirectory directory{path.c_str(), true};
    fs::remove(own("a/b/second"));
    fs::create_symlink("third", own("a/b/second"));
    Source source;
    SourceOpener opener;
    EXPECT_TRUE(opener.open(directory, "second", source));
    EXPECT_FALSE(source.readable);
    EXPECT_EQ(content(source), "third");
    EXPECT_EQ(foundToRead(own("a/b/second")), "own third");
}

TEST_F(OpensToRead, AFileUnderALeaseLater) {
    for (const Way& way : ways()) {
        SCOPED_TRACE(way.what);
        const LeaseHolder holder({own("a/b/second")}, WhenAsked::GIVES_UP);
        ASSERT_TRUE(holder.holds());
        Source source;
        ASSERT_TRUE(way.open("second", source));
        EXPECT_EQ(source.path.data(), own("a/b/second"));
        EXPECT_TRUE(source.own);
        expectOpen(source, true);
        EXPECT_EQ(content(source), "second");
    }
}

// --- the opener's directory ---

TEST_F(OpensToRead, EveryEntryOfAMissingDirectoryHasTheSameError) {
    const std::string none = own("none");
    const std::string file = own("a/b/first");
    const std::string here = own("a/b");
    fs::create_directory_symlink("a", own("link"));
    const std::string linked = own("link/b");
    SourceOpener opener;
    const SourceDirectory directory{here.c_str(), true};
    struct Case {
        SourceDirectory directory;
        int error;
    };
    for (const Case& c : {Case{{none.c_str(), true}, ENOENT}, Case{{none.c_str(), false}, ENOENT},
                          Case{{file.c_str(), true}, ENOTDIR}, Case{{file.c_str(), false}, ENOTDIR},
                          Case{{linked.c_str(), false}, ELOOP}}) {
        const std::size_t before = openDescriptors();
        for (const char* name : {"first", "second", "third"}) {
            SCOPED_TRACE(std::string(c.directory.path) + " " + name);
            Source source;
            errno = 0;
            EXPECT_FALSE(opener.open(c.directory, name, source));
            EXPECT_EQ(errno, c.error);
            EXPECT_FALSE(source.fd);
        }
        EXPECT_LE(openDescriptors(), before);
        Source source;
        EXPECT_TRUE(opener.open(directory, "first", source)) << "another directory";
    }
}

TEST_F(OpensToRead, AnEntryThatIsMissingDoesNotHideTheNext) {
    const std::string here = own("a/b");
    const SourceDirectory directory{here.c_str(), true};
    SourceOpener opener;
    Source source;
    EXPECT_FALSE(opener.open(directory, "none", source));
    EXPECT_EQ(errno, ENOENT);
    EXPECT_FALSE(source.fd);
    EXPECT_TRUE(opener.open(directory, "first", source));
    EXPECT_FALSE(opener.open(directory, "none", source));
    EXPECT_FALSE(source.fd) << "that of the last file is closed";
}

TEST_F(OpensToRead, EntriesOfTheRootHaveItsSlashOnce) {
    const SourceDirectory root{"/", true};
    SourceOpener opener;
    Source source;
    ASSERT_TRUE(opener.open(root, "opt", source));
    EXPECT_STREQ(source.path.data(), "/opt");
    expectOpen(source, true);
}

TEST_F(OpensToRead, TheDirectoryOfTheLastEntryStaysOpen) {
    const std::string first = own("a/b");
    const std::string second = own("a");
    const SourceDirectory inner{first.c_str(), true};
    const SourceDirectory outer{second.c_str(), true};
    writeText(own("a/file"), "file");
    SourceOpener opener;
    Source source;
    opened.clear();
    for (const char* name : {"first", "second", "third"}) {
        EXPECT_TRUE(opener.open(inner, name, source));
    }
    EXPECT_EQ(opened.size(), 4U);
    const std::size_t before = openDescriptors();
    EXPECT_TRUE(opener.open(outer, "file", source));
    EXPECT_EQ(content(source), "file");
    EXPECT_TRUE(opener.open(inner, "first", source));
    EXPECT_EQ(openDescriptors(), before);
}

}  // namespace
