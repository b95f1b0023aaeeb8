#include <gmock/gmock.h>

#include <cerrno>
#include <string>
#include <vector>

#include "../../support/run_fixture.h"
#include "../../support/wrapped_calls.h"
#include "common/file/IGCmnTree.h"

namespace {

using ::testing::ElementsAre;

class TreeEntries : public RunTest {
  protected:
    FileEntry* add(const ListedDirectory* directory, const std::string& name) {
        FileEntry* entry = list_.make(directory, name.c_str());
        list_.append(entry);
        return entry;
    }
    // The path of every entry, with the prefix and without it.
    std::vector<std::string> paths(const char* prefix) {
        std::vector<std::string> result;
        EntryPath path(pool(), prefix);
        for (const FileEntry* entry = list_.first(); entry != nullptr; entry = entry->next) {
            EXPECT_TRUE(path.set(*entry));
            EXPECT_EQ(path.prefixed(), prefix + std::string(path.path()));
            result.emplace_back(path.path());
        }
        return result;
    }

    EntryList list_{pool()};
    ListedDirectory root_{{"/", true}, "/"};
    ListedDirectory a_{{"/real/a", true}, "/a"};
    ListedDirectory b_{{"/b", false}, "/a/b"};
};

TEST_F(TreeEntries, HaveTheNameAndNothingElse) {
    FileEntry* entry = list_.make(&a_, "name");
    EXPECT_STREQ(entry->name(), "name");
    EXPECT_EQ(entry->directory, &a_);
    EXPECT_FALSE(entry->is_directory || entry->is_link || entry->collected);
    EXPECT_EQ(list_.first(), nullptr) << "it is in no list yet";
    EXPECT_STREQ(list_.make(nullptr, "")->name(), "");
}

TEST_F(TreeEntries, KeepTheirOrderAndTheirNames) {
    EXPECT_EQ(list_.first(), nullptr);
    std::vector<std::string> expected;
    for (int i = 0; i < 1000; ++i) {
        const std::string name(static_cast<std::size_t>(i % 255 + 1),
                               static_cast<char>('a' + i % 26));
        add(i % 2 == 0 ? &a_ : nullptr, name)->collected = i % 3 == 0;
        expected.push_back(i % 2 == 0 ? "/a/" + name : name);
    }
    EXPECT_EQ(paths(""), expected);
    int i = 0;
    for (const FileEntry* entry = list_.first(); entry != nullptr; entry = entry->next, ++i) {
        EXPECT_EQ(entry->collected, i % 3 == 0);
    }
}

TEST_F(TreeEntries, EndWithTheEntryAppendedLast) {
    FileEntry* first = add(nullptr, "first");
    FileEntry* second = list_.make(nullptr, "second");
    second->next = first;  // as in the list of a directory
    list_.append(second);
    EXPECT_EQ(first->next, second);
    EXPECT_EQ(second->next, nullptr);
}

TEST_F(TreeEntries, HavePathsInTheirDirectories) {
    add(nullptr, "/search");
    add(&root_, "etc");
    add(&root_, "x");
    add(&a_, "file");
    add(&a_, "f");
    add(&b_, "");
    add(&b_, "longer name");
    for (const char* prefix : {"", "/", "/out", "/a/prefix/that/is/longer/than/the/paths"}) {
        EXPECT_THAT(paths(prefix), ElementsAre("/search", "/etc", "/x", "/a/file", "/a/f", "/a/b/",
                                               "/a/b/longer name"));
    }
}

TEST_F(TreeEntries, HavePathsInDirectoriesThatAlternate) {
    std::vector<std::string> expected;
    for (int i = 0; i < 50; ++i) {
        const std::string name = std::string(static_cast<std::size_t>(3 * i), 'n') + "/";
        const std::vector<std::pair<const ListedDirectory*, std::string>> places = {
            {&b_, "/a/b/"}, {&a_, "/a/"}, {nullptr, ""}, {&a_, "/a/"}, {&root_, "/"}};
        for (const auto& [directory, before] : places) {
            add(directory, name);
            expected.push_back(before + name);
        }
    }
    EXPECT_EQ(paths("/out/put"), expected);
}

// The text moves when its buffer grows: every part of it must move with it.
TEST_F(TreeEntries, HaveThePathOfALongNameAfterAShortOne) {
    for (std::size_t size = 1; size < 3000; size = size * 3 / 2 + 1) {
        const std::string name(size, 'n');
        EntryPath path(pool(), "/prefix");
        for (const ListedDirectory* directory :
             {&a_, static_cast<ListedDirectory*>(nullptr), &b_}) {
            const std::string before =
                directory == nullptr ? "" : directory->shown + std::string("/");
            ASSERT_TRUE(path.set(*list_.make(directory, "x")));
            EXPECT_EQ(path.prefixed(), "/prefix" + before + "x");
            ASSERT_TRUE(path.set(*list_.make(directory, name.c_str())));
            EXPECT_EQ(path.prefixed(), "/prefix" + before + name);
        }
    }
}

TEST_F(TreeEntries, HaveNoPathWhenMemoryRunsOutAndHaveItAgainLater) {
    const FileEntry* shorter = list_.make(&a_, "short");
    const FileEntry* other = list_.make(&b_, std::string(300, 'o').c_str());
    const FileEntry* longer = list_.make(&a_, std::string(2000, 'l').c_str());
    EntryPath path(pool(), "/prefix");
    bool failed = false;
    ASSERT_TRUE(path.set(*shorter));
    for (const FileEntry* entry : {other, longer}) {
        {
            Capture errors(stderr);
            const FailingCall failing(Call::CALLOC, 1, ENOMEM);
            const bool set = path.set(*entry);
            EXPECT_EQ(set, !FailingCall::happened());
            failed = failed || !set;
        }
        EXPECT_TRUE(path.set(*shorter));
        EXPECT_STREQ(path.path(), "/a/short");
        EXPECT_TRUE(path.set(*entry));
        EXPECT_EQ(path.path(), std::string(entry->directory->shown) + "/" + entry->name());
        EXPECT_TRUE(path.set(*shorter));
        EXPECT_STREQ(path.prefixed(), "/prefix/a/short");
    }
    EXPECT_TRUE(failed);
    static_cast<void>(takeLog());
}

}  // namespace
