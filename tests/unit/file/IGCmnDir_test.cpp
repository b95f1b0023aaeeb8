#include "common/file/IGCmnDir.h"
#include "common/base/IGCmnList.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include "../../support/run_fixture.h"
#include "../../support/wrapped_calls.h"
#include "common/base/IGCmnStr.h"

namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::UnorderedElementsAre;

class WildcardList : public RunTest {
  protected:
    void SetUp() override {
        RunTest::SetUp();
        for (const char* name : {"one.log", "two.log", "three.txt", ".hidden.log", "back\\slash"}) {
            writeText(path(name), "x");
        }
        fs::create_directory(path("dir.log"));
        writeText(path("dir.log/inner.log"), "x");
    }
    void TearDown() override {
        fs::current_path("/");
        RunTest::TearDown();
    }
    std::string path(const std::string& name = "") { return dir_.path(name); }

    std::vector<std::string> paths(const std::vector<std::string>& names) {
        std::vector<std::string> result;
        for (const std::string& name : names) {
            result.push_back(path(name));
        }
        return result;
    }
    // The three lines that the listing reports for a failed call.
    static std::string failure(const std::string& call, int error, const std::string& text,
                               const std::string& file) {
        return trio(call, error, text, file, "IGCmnDir");
    }
    int list(const std::string& search, int skip_directories = 0) {
        list_ = nullptr;
        return IgCmnFileMakeList(search.c_str(), &list_, pool(), skip_directories);
    }
    std::vector<std::string> listed() { return strings(list_); }

    TempDir dir_;
    IgCmnListHeader* list_ = nullptr;
};

TEST_F(WildcardList, HoldsAnExistingFileOrDirectoryAsGiven) {
    for (const int skip : {0, 1}) {
        for (const char* name : {"one.log", "dir.log", "dir.log/", "./one.log"}) {
            EXPECT_EQ(list(path(name), skip), 0);
            EXPECT_THAT(listed(), ElementsAre(path(name)));
        }
    }
}

TEST_F(WildcardList, HoldsAnExistingNameOfWildcardCharacters) {
    writeText(path("*.log"), "x");
    EXPECT_EQ(list(path("*.log")), 0);
    EXPECT_THAT(listed(), ElementsAre(path("*.log")));
}

TEST_F(WildcardList, HoldsEveryMatch) {
    struct Case {
        const char* wildcard;
        std::vector<std::string> names;
    };
    for (const Case& c : {
             Case{"*.log", {"one.log", "two.log", ".hidden.log", "dir.log"}},
             Case{"t*", {"two.log", "three.txt"}},
             Case{"???.log", {"one.log", "two.log", "dir.log"}},
             Case{"[ot]*", {"one.log", "two.log", "three.txt"}},
             Case{"[!o.]*.log", {"two.log", "dir.log"}},
             Case{"*hidden*", {".hidden.log"}},
             Case{"back\\*", {"back\\slash"}},
             Case{"*",
                  {"one.log", "two.log", "three.txt", ".hidden.log", "back\\slash", "dir.log"}},
         }) {
        SCOPED_TRACE(c.wildcard);
        EXPECT_EQ(list(path(c.wildcard)), 0);
        EXPECT_THAT(listed(), ::testing::UnorderedElementsAreArray(paths(c.names)));
    }
    EXPECT_EQ(takeLog(), "");
}

TEST_F(WildcardList, KeepsTheOrderOfTheDirectory) {
    for (int i = 0; i < 50; ++i) {
        writeText(path("n" + std::to_string(i * 37 % 50)), "");
    }
    std::vector<std::string> in_directory_order;
    for (const fs::directory_entry& entry : fs::directory_iterator(path())) {
        if (entry.path().filename().string()[0] == 'n') {
            in_directory_order.push_back(entry.path());
        }
    }
    EXPECT_EQ(list(path("n*")), 0);
    EXPECT_EQ(listed(), in_directory_order);
}

TEST_F(WildcardList, OmitsDirectoriesOnRequest) {
    EXPECT_EQ(list(path("*.log"), 1), 0);
    EXPECT_THAT(listed(),
                UnorderedElementsAre(path("one.log"), path("two.log"), path(".hidden.log")));
    EXPECT_EQ(list(path("dir*"), 1), 9) << "nothing is left";
    EXPECT_EQ(list_, nullptr);
}

TEST_F(WildcardList, IsFlat) {
    EXPECT_EQ(list(path("inner*")), 9);
    EXPECT_EQ(list(path("*/inner.log")), 9) << "only the last component is a wildcard";
    EXPECT_EQ(list(path("dir.log/*")), 0);
    EXPECT_THAT(listed(), ElementsAre(path("dir.log/inner.log")));
}

TEST_F(WildcardList, ReturnsNineAndKeepsTheListWhenNothingMatches) {
    char* first = IgCmnStrdup(pool(), "first");
    ASSERT_EQ(IgCmnListAppend(pool(), &list_, first), 1);
    EXPECT_EQ(IgCmnFileMakeList(path("*.none").c_str(), &list_, pool(), 0), 9);
    EXPECT_THAT(listed(), ElementsAre("first"));
    EXPECT_EQ(takeLog(), "");
}

TEST_F(WildcardList, AddsToAnExistingList) {
    EXPECT_EQ(list(path("one.log")), 0);
    EXPECT_EQ(IgCmnFileMakeList(path("th*").c_str(), &list_, pool(), 0), 0);
    EXPECT_THAT(listed(), ElementsAre(path("one.log"), path("three.txt")));
}

TEST_F(WildcardList, NamesEntriesOfTheRootWithOneSlash) {
    EXPECT_EQ(list("/us*r"), 0);
    EXPECT_THAT(listed(), ElementsAre("/usr"));
}

TEST_F(WildcardList, FindsABareNameInTheCurrentDirectory) {
    fs::current_path(path());
    EXPECT_EQ(list("th*"), 0);
    ASSERT_EQ(listed().size(), 1U);
    EXPECT_TRUE(fs::equivalent(listed().front(), path("three.txt")));
}

TEST_F(WildcardList, ReturnsNineForADirectoryThatCannotBeOpened) {
    Capture err(stderr);
    EXPECT_EQ(list(path("missing/*")), 9);
    EXPECT_EQ(takeLog(), failure("opendir", ENOENT, "No such file or directory", path("missing")));
    EXPECT_EQ(list(path("one.log/*")), 9);
    EXPECT_EQ(takeLog(), failure("opendir", ENOTDIR, "Not a directory", path("one.log")));
    EXPECT_EQ(list_, nullptr);
}

TEST_F(WildcardList, ReturnsNineAtAMissingEntry) {
    fs::create_symlink("nowhere", path("dangling.lnk"));
    Capture err(stderr);
    EXPECT_EQ(list(path("*.lnk")), 9);
    EXPECT_EQ(takeLog(),
              failure("stat", ENOENT, "No such file or directory", path("dangling.lnk")));
}

TEST_F(WildcardList, HoldsUndecodableNamesUnchanged) {
    writeText(path("\xff\xfe.log"), "x");
    fs::remove_all(path("dir.log"));
    for (const char* name : {"one.log", "two.log", ".hidden.log", "three.txt", "back\\slash"}) {
        fs::remove(path(name));
    }
    EXPECT_EQ(list(path("*")), 0);
    EXPECT_THAT(listed(), ElementsAre(path("\xff\xfe.log")));
    EXPECT_EQ(list(path("*.log")), 0);
    EXPECT_THAT(listed(), ElementsAre(path("\xff\xfe.log")));
    EXPECT_EQ(list(path("\xff\xfe.log")), 0);
    EXPECT_THAT(listed(), ElementsAre(path("\xff\xfe.log")));
    EXPECT_EQ(takeLog(), "");
}

TEST_F(WildcardList, DistinguishesNoMatchFromAReadError) {
    Capture err(stderr);
    EXPECT_EQ(listMatches(path("one.log").c_str(), &list_, pool(), 0), Listing::FOUND);
    EXPECT_EQ(listMatches(path("t*").c_str(), &list_, pool(), 0), Listing::FOUND);
    EXPECT_EQ(listMatches(path("*.none").c_str(), &list_, pool(), 0), Listing::NOTHING);
    EXPECT_EQ(listMatches(path("dir*").c_str(), &list_, pool(), 1), Listing::NOTHING);
    EXPECT_EQ(listMatches(path("missing/*").c_str(), &list_, pool(), 0), Listing::FAILED);
    fs::create_symlink("nowhere", path("dangling.lnk"));
    EXPECT_EQ(listMatches(path("*.lnk").c_str(), &list_, pool(), 0), Listing::FAILED);
}

TEST_F(WildcardList, ReturnsNineForADirectoryThatCannotBeReadToItsEnd) {
    for (const int nth : {1, 4, 9}) {  // the last call would find the end
        Capture err(stderr);
        const std::size_t before = openDescriptors();
        const FailingCall failing(Call::READDIR, nth, EIO);
        EXPECT_EQ(list(path("*.log")), 9);
        EXPECT_TRUE(FailingCall::happened());
        EXPECT_EQ(takeLog(), failure("readdir", EIO, "Input/output error", path()));
        EXPECT_EQ(list_, nullptr);
        EXPECT_EQ(openDescriptors(), before);
    }
}

TEST_F(WildcardList, FailsWhenMemoryRunsOut) {
    for (const char* search : {"*", "one.log"}) {
        bool failed = true;
        for (int nth = 1; failed; ++nth) {
            SCOPED_TRACE(::testing::Message() << search << ", allocation " << nth);
            Pool fresh;
            IgCmnListHeader* names = nullptr;
            const std::size_t before = openDescriptors();
            Capture err(stderr);
            const FailingCall failing(Call::CALLOC, nth, ENOMEM);
            const int result = IgCmnFileMakeList(path(search).c_str(), &names, fresh.get(), 0);
            failed = FailingCall::happened();
            EXPECT_EQ(result, failed ? -1 : 0);
            EXPECT_EQ(err.take(), failed ? "ZEPA122-E:Memory is insufficient.\n" : "");
            EXPECT_EQ(openDescriptors(), before);
            EXPECT_TRUE(failed || nth > 3);
        }
    }
}

TEST_F(WildcardList, LeavesNoDescriptorOpen) {
    const std::size_t before = openDescriptors();
    EXPECT_EQ(list(path("*")), 0);
    EXPECT_EQ(list(path("*.none")), 9);
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(WildcardList, IsCreatedByItsFirstName) {
    IgCmnListHeader* names = nullptr;
    const std::string name = "name";
    EXPECT_EQ(makeList(name.c_str(), &names, pool()), 0);
    EXPECT_EQ(makeList("other", &names, pool()), 0);
    EXPECT_THAT(strings(names), ElementsAre("name", "other"));
    EXPECT_NE(names->first->value, name.c_str()) << "a copy";
}

TEST_F(WildcardList, ReadsTheNamesOfADirectory) {
    IgCmnListHeader* names = nullptr;
    EXPECT_EQ(IgCmnDirReadNames(path().c_str(), nullptr, &names, pool()), 0);
    EXPECT_THAT(strings(names), UnorderedElementsAre("one.log", "two.log", "three.txt",
                                                     ".hidden.log", "back\\slash", "dir.log"));
    names = nullptr;
    EXPECT_EQ(IgCmnDirReadNames(path("dir.log").c_str(), "*.txt", &names, pool()), 0);
    EXPECT_EQ(names, nullptr);
}

// What must not be null

std::string nullOf(const std::string& name) {
    return "Assertion `" + name + " != \\(\\(void \\*\\)0\\)";
}

TEST(WildcardListDeathTest, AssertsWhatMustNotBeNull) {
    memory_pool pool = nullptr;
    IgCmnListHeader* list = nullptr;
    EXPECT_DEATH(makeList(nullptr, &list, &pool), nullOf("find_file"));
    EXPECT_DEATH(makeList("x", nullptr, &pool), nullOf("search_file_list"));
    EXPECT_DEATH(makeList("x", &list, nullptr), nullOf("memoryp"));
    EXPECT_DEATH(IgCmnFileMakeList(nullptr, &list, &pool, 0), nullOf("search_name"));
    EXPECT_DEATH(IgCmnFileMakeList("/x", nullptr, &pool, 0), nullOf("search_file_list"));
    EXPECT_DEATH(IgCmnFileMakeList("/x", &list, nullptr, 0), nullOf("memoryp"));
}

}  // namespace
