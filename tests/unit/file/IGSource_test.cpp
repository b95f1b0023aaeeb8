#include "common/file/IGSource.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include "../../support/lease_holder.h"
#include "../../support/run_fixture.h"
#include "common/base/IGOpen.h"

namespace {

namespace fs = std::filesystem;

constexpr uid_t USER = 1000;
constexpr uid_t OTHER = 1001;

class IGSource : public RunTest {
  protected:
    // Whether the path can be followed, and is root's own.
    enum class Found { OWN, FOREIGN, REFUSED, NOT_THERE };
    Found follow(const std::string& path, const char* ours = nullptr) {
        const std::size_t before = openDescriptors();
        Found found = Found::NOT_THERE;
        {
            Source source;
            const bool followed = sourceFollow(path.c_str(), source, ours);
            place_ = source.path.data();
            if (followed) {
                found = source.own ? Found::OWN : Found::FOREIGN;
            } else if (errno == LINK_REFUSED) {
                found = Found::REFUSED;
            }
            EXPECT_EQ(static_cast<bool>(source.fd), followed);
        }
        EXPECT_EQ(openDescriptors(), before);
        return found;
    }
    std::string own(const std::string& name = "") { return own_.path(name); }

    // A user's directory with a file of his.
    std::string home(const std::string& name = "") {
        if (!fs::exists(own("home"))) {
            fs::create_directory(own("home"));
            writeText(own("home/file"), "his");
            give(own("home"), USER);
            give(own("home/file"), USER);
        }
        return own("home" + (name.empty() ? name : "/" + name));
    }
    static void give(const std::string& path, uid_t user) {
        ASSERT_EQ(::lchown(path.c_str(), user, user), 0);
    }
    std::string link(const std::string& target, const std::string& path, uid_t user = 0) {
        fs::create_symlink(target, path);
        give(path, user);
        return path;
    }

    TempDir own_{"/opt"};
    std::string place_;  // what the last path resolved to
};

// Owners of paths

TEST_F(IGSource, BelongsToRootWhereOnlyRootCanWrite) {
    fs::create_directories(own("a/b"));
    writeText(own("a/b/file"), "x");
    give(own("a/b/file"), USER);  // the file's owner does not count
    EXPECT_EQ(follow(own("a/b/file")), Found::OWN);
    EXPECT_EQ(place_, own("a/b/file"));
    EXPECT_EQ(follow("/"), Found::OWN);
    EXPECT_EQ(follow("/opt/./../opt"), Found::OWN);
}

TEST_F(IGSource, DoesNotBelongToRootBelowADirectoryThatOthersCanChange) {
    struct Case {
        mode_t mode;
        uid_t user;
        Found found;
    };
    fs::create_directories(own("a/b"));
    writeText(own("a/b/file"), "x");
    for (const Case& c : {
             Case{0755, 0, Found::OWN},
             Case{0700, 0, Found::OWN},
             Case{0775, 0, Found::FOREIGN},
             Case{0757, 0, Found::FOREIGN},
             Case{01777, 0, Found::FOREIGN},
             Case{0755, USER, Found::FOREIGN},
             Case{0555, USER, Found::FOREIGN},
         }) {
        SCOPED_TRACE(::testing::Message() << std::oct << c.mode << " of " << c.user);
        give(own("a"), c.user);
        ASSERT_EQ(::chmod(own("a").c_str(), c.mode), 0);
        EXPECT_EQ(follow(own("a/b/file")), c.found);
        EXPECT_EQ(follow(own("a")), Found::OWN) << "the directory's own name cannot be changed";
    }
}

TEST_F(IGSource, CountsTheOutputAsRoots) {
    const TempDir shared;  // below /tmp
    fs::create_directories(shared.path("out/sub"));
    ASSERT_EQ(::chmod(shared.path("out/sub").c_str(), 0777), 0);
    writeText(shared.path("out/sub/file"), "x");
    const std::string ours = shared.path("out");
    EXPECT_EQ(follow(shared.path("out/sub/file")), Found::FOREIGN);
    EXPECT_EQ(follow(shared.path("out/sub/file"), ours.c_str()), Found::OWN);
    writeText(shared.path("outside"), "x");
    EXPECT_EQ(follow(shared.path("outside"), ours.c_str()), Found::FOREIGN);
    link("../../outside", shared.path("out/sub/link"));
    EXPECT_EQ(follow(shared.path("out/sub/link"), ours.c_str()), Found::FOREIGN);
}

// Whose links are followed

TEST_F(IGSource, FollowsEveryLinkInDirectoriesOfRoot) {
    writeText(own("file"), "x");
    EXPECT_EQ(follow(link("file", own("relative"))), Found::OWN);
    EXPECT_EQ(place_, own("file"));
    EXPECT_EQ(follow(link(own("relative"), own("chain"))), Found::OWN);
    EXPECT_EQ(follow(link("../..", own("up")) + own("file")), Found::OWN);
    EXPECT_EQ(follow(link(home("file"), own("into"))), Found::FOREIGN);
    EXPECT_EQ(follow(link("/proc/version", own("kernel"))), Found::OWN);
}

TEST_F(IGSource, FollowsAUsersLinkOnlyToHisOwnFiles) {
    writeText(own("secret"), "x");
    writeText(own("others"), "x");
    give(own("others"), OTHER);
    EXPECT_EQ(follow(link("file", home("own"), USER)), Found::FOREIGN);
    EXPECT_EQ(follow(link(own("secret"), home("to-root"), USER)), Found::REFUSED);
    EXPECT_EQ(follow(link(own("others"), home("to-other"), USER)), Found::REFUSED);
    EXPECT_EQ(follow(link(own("others"), home("of-other"), OTHER)), Found::FOREIGN);
    EXPECT_EQ(follow(link(own("secret"), home("of-root"))), Found::FOREIGN);
    EXPECT_EQ(follow(link(own(), home("directory"), USER) + "/secret"), Found::REFUSED);
    EXPECT_EQ(follow(link(home("to-root"), home("chain"), USER)), Found::REFUSED);
    EXPECT_EQ(follow(link("none", home("dangling"), USER)), Found::NOT_THERE);
}

TEST_F(IGSource, FollowsNoUsersLinkIntoTheKernelsFiles) {
    EXPECT_EQ(follow(link("/proc/version", home("kernel"))), Found::REFUSED);
    EXPECT_EQ(follow(link("/sys", home("sys")) + "/kernel"), Found::REFUSED);
}

TEST_F(IGSource, IsNotRootsOwnBehindAUsersLink) {
    writeText(own("file"), "x");
    link(own(), home("back"));  // root's link points out of the user's directory
    EXPECT_EQ(follow(home("back/file")), Found::FOREIGN);
}

TEST_F(IGSource, FollowsTheLinksOfProcToTheirFiles) {
    const std::string removed = own("gone");
    writeText(removed, "still open");
    const FdGuard fd(::open(removed.c_str(), O_RDONLY | O_CLOEXEC));
    fs::remove(removed);
    Source source;
    const std::string path = "/proc/self/fd/" + std::to_string(fd.get());
    ASSERT_TRUE(sourceFollow(path.c_str(), source));
    EXPECT_FALSE(source.own);
    EXPECT_EQ(source.st.st_size, 10);
    EXPECT_EQ(follow("/proc/self/status"), Found::OWN);
    EXPECT_EQ(follow("/proc/mounts"), Found::OWN);
}

TEST_F(IGSource, EndsAtALoopOfLinks) {
    link("loop", own("loop"));
    EXPECT_EQ(follow(own("loop")), Found::NOT_THERE);
    for (int i = 0; i < 41; ++i) {
        link(std::to_string(i + 1), own(std::to_string(i)));
    }
    writeText(own("41"), "x");
    EXPECT_EQ(follow(own("0")), Found::NOT_THERE);
    EXPECT_EQ(follow(own("1")), Found::OWN);
}

TEST_F(IGSource, RefusesInvalidPaths) {
    writeText(own("file"), "x");
    Source source;
    struct Case {
        std::string path;
        int error;
    };
    const std::string longest(NAME_MAX, 'x');
    for (const Case& c : {
             Case{own("none"), ENOENT},
             Case{own("file/below"), ENOTDIR},
             Case{own("file/."), ENOTDIR},
             Case{own(longest), ENOENT},
             Case{own(longest + "x"), ENAMETOOLONG},
         }) {
        SCOPED_TRACE(c.path);
        EXPECT_FALSE(sourceFollow(c.path.c_str(), source));
        EXPECT_EQ(errno, c.error);
    }
}

// Opening

TEST_F(IGSource, OpensNoLinkInAUsersDirectory) {
    const std::string place = home();
    const SourceDirectory directory{place.c_str(), false};
    Source source;
    ASSERT_TRUE(SourceOpener().open(directory, "file", source));
    EXPECT_EQ(source.st.st_uid, USER);
    EXPECT_FALSE(source.own);
    writeText(own("secret"), "x");
    fs::remove(home("file"));
    link(own("secret"), home("file"), USER);
    EXPECT_FALSE(SourceOpener().open(directory, "file", source));
    EXPECT_EQ(errno, ELOOP);
    fs::rename(home(), own("moved"));
    link(own(), own("home"), USER);
    EXPECT_FALSE(SourceOpener().open(directory, "secret", source));
    EXPECT_EQ(errno, ELOOP);
}

TEST_F(IGSource, ReadsTheFileThatWasChecked) {
    const std::string place = own();
    const SourceDirectory directory{place.c_str(), true};
    writeText(own("file"), "first");
    Source source;
    ASSERT_TRUE(SourceOpener().open(directory, "file", source));
    fs::rename(own("file"), own("away"));
    writeText(own("file"), "second");
    const FdGuard fd(sourceOpenForReading(source));
    ASSERT_TRUE(fd);
    std::array<char, 8> text{};
    EXPECT_EQ(::read(fd.get(), text.data(), text.size()), 5);
    EXPECT_STREQ(text.data(), "first");
}

TEST_F(IGSource, ReadsRegularFilesOnly) {
    const std::string place = own();
    const SourceDirectory directory{place.c_str(), true};
    ASSERT_EQ(::mkfifo(own("fifo").c_str(), 0600), 0);
    for (const char* name : {"fifo", "."}) {
        Source source;
        ASSERT_TRUE(SourceOpener().open(directory, name, source));
        EXPECT_EQ(sourceOpenForReading(source), -1);
        EXPECT_EQ(errno, ENOTSUP);
    }
}

TEST_F(IGSource, WaitsForALeaseToBeReleased) {
    writeText(own("file"), "x");
    const LeaseHolder holder({own("file")}, WhenAsked::GIVES_UP);
    ASSERT_TRUE(holder.holds());
    const FdGuard fd(openForReading(own("file").c_str()));
    EXPECT_TRUE(fd);
}

}  // namespace
