#include "main/IGOutputNames.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <random>
#include <set>
#include <utility>

#include "../../support/collect_fixture.h"
#include "../../support/wrapped_calls.h"
#include "common/base/IGCmnList.h"
#include "common/base/IGCmnStr.h"
#include "main/IGMainOutput.h"

namespace {

namespace fs = std::filesystem;

class IGOutputNames : public CollectTest {
  protected:
    // A selected pattern with one block.
    pickptn_tbl& pattern(const std::vector<std::string>& targets) {
        pickptn_tbl* ptn = IgIniGetPickPtn(pool());
        ptn_block* block = IgIniGetPickPtnBlock(pool());
        block->skip = 0;
        for (const std::string& target : targets) {
            EXPECT_EQ(makeList(target.c_str(), &block->target, pool()), 0);
        }
        EXPECT_NE(IgCmnListAppend(pool(), &ptn->blocks, block), -1);
        EXPECT_NE(IgCmnListAdd(pool(), &root_->selected, ptn), -1);
        return *ptn;
    }

    pickptn_tbl& pattern(const std::string& target) {
        return pattern({target, "other" + std::to_string(root_->selected.count)});
    }

    // Chooses the directory of a pattern and makes it, as a run does.
    std::string choose(pickptn_tbl& ptn) {
        ptn.output_dir = choosePatternDirectory(pool(), *root_, ptn);
        if (ptn.output_dir == nullptr) {
            return "(none)";
        }
        fs::create_directory(ptn.output_dir);
        return fs::path(ptn.output_dir).filename();
    }

    // What the directory of a pattern is to be called, from the entries of the output.
    std::string expected(const std::string& name) const {
        std::set<std::string> entries;
        for (const auto& entry : fs::directory_iterator(output_)) {
            entries.insert(entry.path().filename());
        }
        if (entries.count(name) == 0) {
            return name;
        }
        auto n = std::count_if(entries.begin(), entries.end(), [&name](const std::string& entry) {
            return entry.rfind(name, 0) == 0;
        });
        while (entries.count(name + "_" + std::to_string(n)) != 0) {
            ++n;
        }
        return name + "_" + std::to_string(n);
    }

    std::string in(const std::string& name) const { return output_ + "/" + name; }
};

TEST_F(IGOutputNames, NumbersPatternsWithOneFirstTarget) {
    std::vector<pickptn_tbl*> patterns;
    for (int i = 0; i < 5; ++i) {
        patterns.push_back(&pattern("a b"));
        patterns.push_back(&pattern("a"));
    }
    std::string chosen;
    for (pickptn_tbl* ptn : patterns) {
        chosen += choose(*ptn) + " ";
    }
    // Every entry that begins with "a" counts for it.
    EXPECT_EQ(chosen, "a_b a a_b_1 a_3 a_b_2 a_5 a_b_3 a_7 a_b_4 a_9 ");
    EXPECT_EQ(takeLog(), "");
}

TEST_F(IGOutputNames, SharesADirectoryOnlyBetweenEqualLists) {
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases{
        {{"a", "b"}, "a"},      {{"a", "c"}, "a_1"}, {{"a", "b"}, "a"}, {{"a", "b", "c"}, "a_2"},
        {{"a"}, "a_3"},         {{"a", "c"}, "a_1"}, {{"a"}, "a_3"},    {{"ab"}, "ab"},
        {{"a", "b", "a"}, "a"}, {{"b", "a"}, "b"},   {{"ab"}, "ab"},    {{"", "a"}, "_6"},
    };
    for (const auto& [targets, name] : cases) {
        SCOPED_TRACE(::testing::PrintToString(targets));
        EXPECT_EQ(choose(pattern(targets)), name);
    }
}

TEST_F(IGOutputNames, ReadsTheOutputOnceForAllPatterns) {
    constexpr int PATTERNS = 400;
    std::vector<pickptn_tbl*> patterns;
    for (int i = 0; i < PATTERNS; ++i) {
        patterns.push_back(&pattern(i % 2 == 0 ? "even" : "o" + std::to_string(i / 4)));
    }
    const FailingCall failing(Call::READDIR, PATTERNS, EIO);
    for (int i = 0; i < PATTERNS; ++i) {
        const std::string name = choose(*patterns[static_cast<std::size_t>(i)]);
        if (i % 2 == 0) {
            EXPECT_EQ(name, i == 0 ? "even" : "even_" + std::to_string(i / 2));
        }
    }
    EXPECT_FALSE(FailingCall::happened());
}

TEST_F(IGOutputNames, TriesNoTakenNumberTwice) {
    for (int n = 1000; n < 2000; ++n) {
        fs::create_directory(in("a_" + std::to_string(n)));
    }
    fs::create_directory(in("a"));
    pickptn_tbl& first = pattern("a");
    pickptn_tbl& second = pattern("a");
    pickptn_tbl& third = pattern("a");
    {
        const FailingCall failing(Call::POOL, 50, ENOMEM);
        ASSERT_EQ(choose(first), "a_2000");
        EXPECT_FALSE(FailingCall::happened()) << "a block for each number";
    }
    {
        const FailingCall failing(Call::LSTAT, 10, EACCES);
        EXPECT_EQ(choose(second), "a_2001");
        EXPECT_FALSE(FailingCall::happened());
    }
    fs::remove(in("a_1500"));
    EXPECT_EQ(choose(third), "a_1500");
}

TEST_F(IGOutputNames, CountsWhatToolsMakeAndRemove) {
    // The names begin with each other, and the changes hit those that were chosen.
    const std::vector<std::string> names{"a", "ab", "a_1", "a_1_1", "b", "quendil_index"};
    const std::vector<std::string> endings{"", "_1", "_2", "_3", "_4", "_5", "_7", "x"};
    std::mt19937 random(1);
    const auto oneOf = [&random](const std::vector<std::string>& of) {
        return of[random() % of.size()];
    };
    for (int round = 0; round < 30; ++round) {
        for (const auto& entry : fs::directory_iterator(output_)) {
            fs::remove_all(entry.path());
        }
        for (int step = 0; step < 60; ++step) {
            std::error_code ignored;
            const std::string path = in(oneOf(names) + oneOf(endings));
            const std::string other = in(oneOf(names) + oneOf(endings));
            switch (random() % 8) {
                case 0:
                    fs::create_directory(path, ignored);
                    break;
                case 1:
                    fs::create_symlink("nowhere", path, ignored);
                    break;
                case 2:
                    fs::remove_all(path, ignored);
                    break;
                case 3:
                    fs::rename(path, other, ignored);
                    break;
                default:
                    break;
            }
            const std::string target = oneOf(names);
            const std::string name = target == "quendil_index" ? target + "_1" : target;
            const std::string wanted = expected(name);
            ASSERT_EQ(choose(pattern(target)), wanted) << round << " " << step;
        }
    }
    EXPECT_EQ(takeLog(), "");
}

TEST_F(IGOutputNames, ReadsTheOutputAgainWhenItChangesMeanwhile) {
    static std::string made;
    made = in("a_x");
    fs::create_directory(in("a"));
    pickptn_tbl& first = pattern("a");
    pickptn_tbl& second = pattern("a");
    {
        const AtEndOfDirectory change([] { fs::create_directory(made); });
        EXPECT_EQ(choose(first), "a_1") << "counted before the change";
    }
    EXPECT_EQ(choose(second), "a_3");
}

TEST_F(IGOutputNames, ReadsTheOutputAgainWhenReportsAreLost) {
    EXPECT_EQ(choose(pattern("a")), "a");
    EXPECT_EQ(choose(pattern("a")), "a_1");
    constexpr int MORE = 20000;  // than the kernel keeps
    for (int i = 0; i < MORE; ++i) {
        fs::create_symlink("nowhere", in("a" + std::to_string(i)));
    }
    EXPECT_EQ(choose(pattern("a")), "a_" + std::to_string(MORE + 2));
    for (int i = 0; i < MORE; ++i) {
        fs::remove(in("a" + std::to_string(i)));
    }
    EXPECT_EQ(choose(pattern("a")), "a_3");
}

TEST_F(IGOutputNames, CountsInAnOutputThatWasMadeAgain) {
    enum class Change { REMOVED, MOVED, MOVED_WITH_ITS_PARENT };
    for (const Change change : {Change::REMOVED, Change::MOVED, Change::MOVED_WITH_ITS_PARENT}) {
        SCOPED_TRACE(static_cast<int>(change));
        fs::create_directory(in("a"));
        EXPECT_EQ(choose(pattern("a")), "a_1");
        const std::string aside = base_ + "_aside";
        fs::rename(change == Change::MOVED_WITH_ITS_PARENT ? base_ : output_, aside);
        if (change == Change::REMOVED) {
            fs::remove_all(aside);
        }
        fs::create_directories(output_);
        fs::permissions(output_, fs::perms::owner_all);
        ASSERT_TRUE(noteOutput(pool(), *root_, output_.c_str()));
        fs::create_directory(in("a"));
        fs::create_directory(in("ab"));
        EXPECT_EQ(choose(pattern("a")), "a_2");
        fs::remove_all(in("ab"));
        fs::remove_all(in("a_2"));
        fs::create_directories(aside + "/a_5");
        EXPECT_EQ(choose(pattern("a")), "a_1");
        fs::remove_all(in("a_1"));
        fs::remove_all(aside);
    }
}

TEST_F(IGOutputNames, CountsWithoutReports) {
    for (const Call call : {Call::INOTIFY_INIT, Call::INOTIFY_WATCH}) {
        root_->output_names = nullptr;
        for (const auto& entry : fs::directory_iterator(output_)) {
            fs::remove_all(entry.path());
        }
        const FailingCall failing(call, 1, ENOSPC);
        for (const char* name : {"a", "a_1", "a_2"}) {
            EXPECT_EQ(choose(pattern("a")), name);
        }
        fs::create_directory(in("a_3"));
        fs::create_directory(in("a_4"));
        fs::create_directory(in("a_5"));
        fs::remove(in("a_1"));
        EXPECT_EQ(choose(pattern("a")), "a_6") << "five entries, and a_5 is one of them";
        fs::remove(in("a_5"));
        EXPECT_EQ(choose(pattern("a")), "a_5") << "a number that was taken is free again";
        EXPECT_TRUE(FailingCall::happened());
    }
    EXPECT_EQ(takeLog(), "");
}

TEST_F(IGOutputNames, CountsWhatItHasReadOfADirectoryThatCannotBeRead) {
    fs::create_directory(in("a"));
    pickptn_tbl& ptn = pattern("a");
    Capture err(stderr);
    {
        const FailingCall failing(Call::READDIR, 1, EIO);
        EXPECT_EQ(choose(ptn), "a_1");
    }
    const std::string report = trio("readdir", EIO, "Input/output error", output_, "IGCmnDir");
    EXPECT_EQ(takeLog(), report);
    fs::create_directory(in("ab"));
    EXPECT_EQ(choose(pattern("a")), "a_3") << "it is read again";
    EXPECT_EQ(err.take(), report.substr(0, report.rfind("ZEPA1")));
}

TEST_F(IGOutputNames, ChoosesNoDirectoryWhenMemoryRunsOut) {
    fs::create_directory(in("a"));
    bool failed = true;
    for (int nth = 1; failed; ++nth) {
        SCOPED_TRACE(nth);
        root_->output_names = nullptr;
        pickptn_tbl& ptn = pattern("a");
        Capture err(stderr);
        const FailingCall failing(Call::POOL, nth, ENOMEM);
        const char* directory = choosePatternDirectory(pool(), *root_, ptn);
        failed = FailingCall::happened();
        EXPECT_EQ(directory == nullptr, failed);
        EXPECT_EQ(err.take(), failed ? "ZEPA122-E:Memory is insufficient.\n" : "");
        EXPECT_TRUE(failed || nth > 10);
    }
}

}  // namespace
