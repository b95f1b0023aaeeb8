#include "common/file/IGCmnTree.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "../../support/run_fixture.h"
#include "../../support/wrapped_calls.h"
#include "common/base/IGRunState.h"

namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;
using ::testing::ElementsAre;
using ::testing::UnorderedElementsAre;

class TreeList : public RunTest {
  protected:
    std::string path(const std::string& name = "") { return dir_.path(name); }

    int list(const std::string& search) {
        list_.emplace(pool());
        return IgCmnFileMakeTreeList(search.c_str(), *list_);
    }
    std::vector<std::string> listed() {
        std::vector<std::string> result;
        EntryPath text(pool(), "");
        for (const FileEntry* entry = list_->first(); entry != nullptr; entry = entry->next) {
            EXPECT_TRUE(text.set(*entry));
            result.push_back(text.path() + std::string(entry->is_directory ? " (dir)" : ""));
        }
        return result;
    }

    TempDir dir_;
    std::optional<EntryList> list_;
};

TEST_F(TreeList, HoldsAFileAlone) {
    writeText(path("file"), "x");
    EXPECT_EQ(list(path("file")), 0);
    EXPECT_THAT(listed(), ElementsAre(path("file")));
}

TEST_F(TreeList, HoldsADirectoryAndThenAllBelowItParentsFirst) {
    fs::create_directories(path("tree/a/b"));
    writeText(path("tree/a/b/file"), "x");
    EXPECT_EQ(list(path("tree")), 0);
    EXPECT_THAT(listed(), ElementsAre(path("tree") + " (dir)", path("tree/a") + " (dir)",
                                      path("tree/a/b") + " (dir)", path("tree/a/b/file")));
}

TEST_F(TreeList, EntersEachDirectoryInTheOrderOfItsParent) {
    for (const char* name : {"tree/z", "tree/a", "tree/m"}) {
        fs::create_directories(path(name));
        writeText(path(name + "/file"s), "x");
    }
    std::vector<std::string> expected{path("tree") + " (dir)"};
    for (const fs::directory_entry& entry : fs::directory_iterator(path("tree"))) {
        expected.push_back(entry.path().string() + " (dir)");
        expected.push_back(entry.path().string() + "/file");
    }
    EXPECT_EQ(list(path("tree")), 0);
    EXPECT_EQ(listed(), expected);
}

TEST_F(TreeList, EntersTheDirectoriesThatAWildcardMatches) {
    fs::create_directories(path("dir1"));
    writeText(path("dir1/file"), "x");
    writeText(path("dir2"), "x");
    writeText(path("other"), "x");
    EXPECT_EQ(list(path("dir*")), 0);
    EXPECT_THAT(listed(),
                UnorderedElementsAre(path("dir1") + " (dir)", path("dir1/file"), path("dir2")));
}

TEST_F(TreeList, FollowsLinksButNotBackToAnAncestor) {
    fs::create_directories(path("tree/a"));
    fs::create_directories(path("outside"));
    writeText(path("outside/file"), "x");
    fs::create_symlink("..", path("tree/a/up"));
    fs::create_symlink(path("outside"), path("tree/a/out"));
    EXPECT_EQ(list(path("tree")), 0);
    EXPECT_THAT(listed(),
                UnorderedElementsAre(path("tree") + " (dir)", path("tree/a") + " (dir)",
                                     path("tree/a/up") + " (dir)", path("tree/a/out") + " (dir)",
                                     path("tree/a/out/file")));
}

TEST_F(TreeList, HoldsTheContentsOfADirectoryUnderItsOwnNameOnly) {
    fs::create_directories(path("tree/real"));
    writeText(path("tree/real/file"), "x");
    fs::create_symlink("real", path("tree/again"));
    fs::create_symlink("real", path("tree/zlast"));
    EXPECT_EQ(list(path("tree")), 0);
    EXPECT_THAT(listed(), ElementsAre(path("tree") + " (dir)", path("tree/real") + " (dir)",
                                      path("tree/real/file"), path("tree/again") + " (dir)",
                                      path("tree/zlast") + " (dir)"));
}

TEST_F(TreeList, EntersTheLinkWithTheLowestPathInAnyDirectoryOrder) {
    fs::create_directories(path("outside/deep"));
    writeText(path("outside/deep/file"), "x");
    fs::create_directories(path("tree/m"));
    for (const char* name : {"tree/z", "tree/b", "tree/m/link", "tree/q"}) {
        fs::create_symlink(path("outside"), path(name));
    }
    EXPECT_EQ(list(path("tree")), 0);
    EXPECT_THAT(listed(), ElementsAre(path("tree") + " (dir)", path("tree/m") + " (dir)",
                                      path("tree/b") + " (dir)", path("tree/b/deep") + " (dir)",
                                      path("tree/b/deep/file"), path("tree/m/link") + " (dir)",
                                      path("tree/q") + " (dir)", path("tree/z") + " (dir)"));
}

TEST_F(TreeList, EntersADirectoryOnceThatAWildcardMatchesThroughManyLinks) {
    fs::create_directories(path("real"));
    writeText(path("real/file"), "x");
    for (const char* name : {"l3", "l1", "l2"}) {
        fs::create_symlink("real", path(name));
    }
    EXPECT_EQ(list(path("l*")), 0);
    EXPECT_THAT(listed(), ElementsAre(path("l1") + " (dir)", path("l1/file"), path("l2") + " (dir)",
                                      path("l3") + " (dir)"));
}

TEST_F(TreeList, HoldsALinkThatMustNotBeFollowedAsAnUnreadableFile) {
    fs::create_directories(path("tree"));
    fs::create_directories(path("secret"));
    writeText(path("secret/file"), "x");
    fs::create_symlink(path("secret"), path("tree/link"));
    ASSERT_EQ(::lchown(path("tree/link").c_str(), 1000, 1000), 0);
    EXPECT_EQ(list(path("tree")), 0);
    EXPECT_THAT(listed(), ElementsAre(path("tree") + " (dir)", path("tree/link")));
    EntryPath text(pool(), "");
    SourceOpener opener;
    for (const FileEntry* entry = list_->first(); entry != nullptr; entry = entry->next) {
        Source source;
        ASSERT_TRUE(text.set(*entry));
        EXPECT_EQ(sourceOfEntry(*entry, text.path(), opener, source), entry->is_directory);
    }
    EXPECT_EQ(takeLog(), "");
}

TEST_F(TreeList, DoesNotEnterADirectoryThatHasBecomeALinkSinceItWasListed) {
    fs::create_directories(path("tree/sub"));
    fs::create_directories(path("secret"));
    writeText(path("secret/file"), "x");
    ASSERT_EQ(list(path("tree/sub")), 0);
    ASSERT_TRUE(list_->first()->is_directory);
    const std::string place = path("tree/sub");
    const SourceDirectory listed_directory{place.c_str(), false};
    fs::remove(place);
    fs::create_symlink(path("secret"), place);
    EXPECT_EQ(sourceOpenDirectory(listed_directory), nullptr);
    EXPECT_EQ(errno, ELOOP);
}

TEST_F(TreeList, NeedsNoMoreStackForADeepTree) {
    fs::create_directory(path("tree"));
    FdGuard inner(::open(path("tree").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    for (int i = 0; i < 1900; ++i) {
        ASSERT_EQ(::mkdirat(inner.get(), "d", 0755), 0);
        inner.reset(::openat(inner.get(), "d", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    }
    pthread_attr_t small;
    ASSERT_EQ(pthread_attr_init(&small), 0);
    ASSERT_EQ(pthread_attr_setstacksize(&small, std::size_t{192} << 10), 0);
    pthread_t thread = 0;
    int result = -1;
    std::function<void()> walk = [&] { result = list(path("tree")); };
    const auto run = [](void* function) -> void* {
        (*static_cast<std::function<void()>*>(function))();
        return nullptr;
    };
    ASSERT_EQ(pthread_create(&thread, &small, run, &walk), 0);
    ASSERT_EQ(pthread_join(thread, nullptr), 0);
    pthread_attr_destroy(&small);
    EXPECT_EQ(result, 0);
    EXPECT_EQ(listed().size(), 1901U);
    fs::remove_all(path("tree"));
}

TEST_F(TreeList, ReportsABrokenLinkAndContinues) {
    fs::create_directories(path("tree"));
    fs::create_symlink("nowhere", path("tree/dangling"));
    writeText(path("tree/file"), "x");
    EXPECT_EQ(list(path("tree")), 0);
    EXPECT_THAT(listed(), ElementsAre(path("tree") + " (dir)", path("tree/file")));
    EXPECT_EQ(takeLog(),
              "ZEPA129-W:A system information(" + path("tree/dangling") + ") is not found.\n");
}

TEST_F(TreeList, HoldsNamesAsBytesAndShowsThemWithoutControlCharacters) {
    fs::create_directories(path("tree"));
    fs::create_symlink("nowhere", path("tree/a\nb"));
    writeText(path("tree/\xff"), "x");
    EXPECT_EQ(list(path("tree")), 0);
    EXPECT_THAT(listed(), ElementsAre(path("tree") + " (dir)", path("tree/\xff")));
    EXPECT_EQ(takeLog(),
              "ZEPA129-W:A system information(" + path("tree/a\\012b") + ") is not found.\n");
}

TEST_F(TreeList, HoldsNothingForABrokenLink) {
    fs::create_symlink("nowhere", path("dangling"));
    EXPECT_EQ(list(path("dangling")), 0);
    EXPECT_EQ(list_->first(), nullptr);
    EXPECT_EQ(takeLog(), "") << "its caller reports it";
}

TEST_F(TreeList, StaysNullWhenNothingIsFound) {
    EXPECT_EQ(list(path("*.none")), 0);
    EXPECT_EQ(list_->first(), nullptr);
    EXPECT_EQ(takeLog(), "");
}

TEST_F(TreeList, ReportsAMissingDirectory) {
    Capture err(stderr);
    EXPECT_EQ(list(path("missing/*")), 0);
    EXPECT_EQ(list_->first(), nullptr);
    EXPECT_EQ(takeLog(),
              trio("opendir", ENOENT, "No such file or directory", path("missing"), "IGCmnTree"));
}

TEST_F(TreeList, HoldsADirectoryThatCannotBeListed) {
    fs::create_directories(path("tree/sub"));
    writeText(path("tree/sub/file"), "x");
    const FailingCall failing(Call::READDIR, 1, EIO);
    Capture err(stderr);
    EXPECT_EQ(list(path("tree")), 0);
    EXPECT_THAT(listed(), ElementsAre(path("tree") + " (dir)"));
    EXPECT_EQ(takeLog(), trio("readdir", EIO, "Input/output error", path("tree"), "IGCmnDir"));
}

TEST_F(TreeList, ReportsAPathThatCannotBeChecked) {
    fs::create_directories(path("tree/sub"));
    const std::string tree = path("tree");
    Capture err(stderr);
    struct rlimit before = {};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
    const struct rlimit none = {0, before.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
    const int result = list(tree);
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
    EXPECT_EQ(result, 0);
    EXPECT_EQ(list_->first(), nullptr);
    EXPECT_EQ(takeLog(), trio("open", EMFILE, "Too many open files", tree, "IGCmnTree"));
}

TEST_F(TreeList, WalksADeepTreeWithoutKeepingDescriptors) {
    std::string deep = path("tree");
    for (int i = 0; i < 300; ++i) {
        deep += "/d";
    }
    fs::create_directories(deep);
    struct rlimit before = {};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
    const struct rlimit few = {40, before.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &few), 0);
    const int result = list(path("tree"));
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
    EXPECT_EQ(result, 0);
    EXPECT_EQ(listed().size(), 301U);
    EXPECT_EQ(takeLog(), "");
}

TEST_F(TreeList, FailsWhenMemoryRunsOut) {
    fs::create_directories(path("tree/a/b"));
    fs::create_directories(path("outside/c"));
    writeText(path("tree/a/file"), "x");
    fs::create_symlink(path("outside"), path("tree/link"));
    bool failed = true;
    for (int nth = 1; failed; ++nth) {
        SCOPED_TRACE(nth);
        Pool fresh;
        const std::size_t before = openDescriptors();
        std::optional<EntryList> entries(fresh.get());
        Capture err(stderr);
        const FailingCall failing(Call::CALLOC, nth, ENOMEM);
        const int result = IgCmnFileMakeTreeList(path("tree").c_str(), *entries);
        entries.reset();
        failed = FailingCall::happened();
        EXPECT_EQ(result, failed ? -1 : 0);
        EXPECT_EQ(err.take(), failed ? "ZEPA122-E:Memory is insufficient.\n" : "");
        EXPECT_EQ(openDescriptors(), before);
        EXPECT_TRUE(failed || nth > 3);
    }
}

TEST_F(TreeList, EntersNoDirectoryThatReplacedAUsersDirectory) {
    static std::string tree;
    tree = path("tree");
    fs::create_directories(tree + "/a");
    fs::create_directories(tree + "/b");
    writeText(tree + "/b/secret", "x");
    const AtEndOfDirectory exchange([] {
        fs::rename(tree + "/a", tree + "/c");
        fs::rename(tree + "/b", tree + "/a");
    });
    Capture err(stderr);
    EXPECT_EQ(list(tree + "/[a]*"), 0);
    EXPECT_THAT(listed(), ElementsAre(tree + "/a (dir)"));
    EXPECT_EQ(takeLog(), trio("opendir", ESTALE, "Stale file handle", tree + "/a", "IGCmnTree"));
}

TEST_F(TreeList, EndsWhenTheRunIsInterrupted) {
    fs::create_directories(path("tree/a"));
    run_state.signal_no = 2;
    run_state.interrupted = 1;
    Capture err(stderr);
    EXPECT_EQ(list(path("tree")), 0);
    EXPECT_THAT(listed(), ElementsAre(path("tree") + " (dir)"));
    EXPECT_EQ(takeLog(), "ZEPA136-E:quendil was interrupted. signal no = 2.\n");
}

}  // namespace
