#include "ini/IGIniCtrl.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <set>
#include <utility>

#include "../../support/every_allocation.h"
#include "../../support/run_fixture.h"
#include "../../support/wrapped_calls.h"
#include "common/base/IGCmnList.h"
#include "common/base/IGRunState.h"
#include "common/report/IGCmnMessageState.h"
#include "ini/IGIniOption.h"
#include "ini/IGIniTable.h"

namespace {

namespace fs = std::filesystem;

const std::string NO_SYSTEM_INFORMATION =
    "ZEPA145-W:There is not system information because an error occurred during reading of all "
    "collection pattern definition files.\n";
const std::string NOTHING_TO_COLLECT =
    "ZEPA121-E:There is not system information to be collected under the specified options.\n";

class IGIniGetCmnRoot : public RunTest {};

TEST_F(IGIniGetCmnRoot, BuildsARootTableThatRestrictsNothing) {
    const root_tbl* root = IgIniGetCmnRoot(pool());
    ASSERT_NE(root, nullptr);
    EXPECT_STREQ(root->HOST, "testhost");
    const std::string stamp =
        std::string(root->YY) + root->MM + root->DD + root->hh + root->mm + root->ss;
    EXPECT_EQ(stamp.size(), 12U);
    EXPECT_EQ(root->output_name, "testhost_" + stamp);
    EXPECT_STREQ(root->output_dir, DATA_DIR);
    EXPECT_EQ(root->output_file, nullptr);
    EXPECT_EQ(root->opt_mark, -2);
    EXPECT_EQ(root->output_mark, -1);
    EXPECT_EQ(root->cleanup, 1);  // OFF
    EXPECT_EQ(root->max_output_size, -1);
    for (const IgCmnListHeader* list :
         {root->opt_target, root->opt_group, root->target, root->pp_group, root->pp_name}) {
        EXPECT_EQ(list, nullptr);
    }
    for (const char* text : {root->opt_directory, root->opt_output_file, root->opt_config}) {
        EXPECT_EQ(text, nullptr);
    }
    EXPECT_EQ(root->selected.count, 0U);
    EXPECT_EQ(root->crnt_ptn_def, nullptr);
    EXPECT_EQ(takeLog(), "");
}

TEST_F(IGIniGetCmnRoot, IsNotBuiltWithoutTheVariableDataDirectory) {
    std::filesystem::rename("/var/opt/norvale/quendil", "/var/opt/norvale/elsewhere");
    Capture errors(stderr);
    const root_tbl* root = IgIniGetCmnRoot(pool());
    std::filesystem::rename("/var/opt/norvale/elsewhere", "/var/opt/norvale/quendil");
    EXPECT_EQ(root, nullptr);
    const std::string message =
        "ZEPA104-E:The specified directory(/var/opt/norvale/quendil) does not exist.\n";
    EXPECT_EQ(errors.take(), message);
    EXPECT_EQ(takeLog(), message);
}

TEST_F(IGIniGetCmnRoot, IsNotBuiltForAHostWithoutAName) {
    Capture errors(stderr);
    const FailingCall failing(Call::GETHOSTNAME, 1, EPERM);
    EXPECT_EQ(IgIniGetCmnRoot(pool()), nullptr);
    EXPECT_THAT(takeLog(), ::testing::HasSubstr("system call name = gethostname, error code = 1,"));
}

TEST_F(IGIniGetCmnRoot, ReturnsNothingWhenMemoryRunsOut) {
    const std::vector<bool (*)(memory_pool*)> calls = {
        [](memory_pool* p) { return IgIniGetCmnRoot(p) == nullptr; },
    };
    expectNothingWhenMemoryRunsOut(calls);
}

TEST_F(IGIniGetCmnRoot, AssertsItsArgumentIsNotNull) {
    EXPECT_DEATH(IgIniGetCmnRoot(nullptr), "memoryp != \\(\\(void \\*\\)0\\)");
}

class IGIniCtrl : public RunTest {
  protected:
    void SetUp() override {
        RunTest::SetUp();
        writeText(CONFIG_FILE, "# nothing\n");
        fs::remove_all(PATTERN_DIR);
        fs::create_directory(PATTERN_DIR);
        root_ = IgIniGetCmnRoot(pool());
        ASSERT_NE(root_, nullptr);
    }

    // A pattern whose blocks serve the targets; an empty text is a block without TARGET.
    static void pattern(const std::string& file, const std::string& name, const std::string& group,
                        const std::vector<std::string>& targets = {""}) {
        std::string text = "FORMAT_VERSION = 1.0\nPP_NAME = " + name + "\n";
        if (!group.empty()) {
            text += "PP_GROUP = " + group + "\n";
        }
        for (const std::string& target : targets) {
            text += "BLOCK {\n" + (target.empty() ? "" : "TARGET = " + target + "\n") + "}\n";
        }
        writeText(std::string(PATTERN_DIR) + "/" + file, text);
    }

    int control(std::vector<std::string> options) {
        options.insert(options.begin(), "quendil");
        ::Arguments arguments(options);
        root_ = IgIniGetCmnRoot(pool());
        Capture errors(stderr);
        const int result = IgIniCtrl(arguments.count(), arguments.vector(), pool(), root_);
        errors_ = errors.take();
        log_ = takeLog();
        return result;
    }

    // The selected patterns in order, each with a mark per block: "name++-".
    std::vector<std::string> selected() const {
        std::vector<std::string> result;
        for (const pickptn_tbl& ptn : walkList<const pickptn_tbl>(&root_->selected)) {
            std::string text = strings(ptn.name).at(0);
            for (const ptn_block& block : walkList<const ptn_block>(ptn.blocks)) {
                text += block.skip == 0 ? '+' : '-';
            }
            result.push_back(text);
        }
        return result;
    }

    std::string summary(const std::string& config, const std::string& directory,
                        const std::string& size, const std::string& cleanup,
                        const std::string& output_file, const std::string& selections) const {
        return "ZEPA205-I:Summary of parameters.\n    Configuration file = " + config +
               "\n    Output path of collected information = " + directory + "/" +
               root_->output_name + "\n    Max output data size = " + size +
               " KB\n    Cleanup = " + cleanup + "\n    Output file = " + output_file + "\n" +
               selections;
    }

    TempDir directory_;
    root_tbl* root_ = nullptr;
    std::string errors_;
    std::string log_;
};

using ::testing::ElementsAre;

TEST_F(IGIniCtrl, SelectsByGroupAndTarget) {
    pattern("a", "A", "net", {"web", "db", ""});
    pattern("b", "B", "disk", {"web"});
    pattern("c", "C", "", {""});
    pattern("d", "D", "net\nPP_GROUP = disk", {"db\nTARGET = web"});
    struct Case {
        std::vector<std::string> options;
        std::vector<std::string> expected;
    };
    const std::vector<Case> cases = {
        {{"-g", "net"}, {"A+++", "D+"}},
        {{"-g", "disk"}, {"B+", "D+"}},
        {{"-g", "net", "-g", "disk"}, {"A+++", "B+", "D+"}},
        {{"-t", "web"}, {"A+--", "B+", "D+"}},
        {{"-t", "db"}, {"A-+-", "D+"}},
        {{"-t", "web", "-t", "db"}, {"A++-", "B+", "D+"}},
        {{"-g", "net", "-t", "web"}, {"A+--", "D+"}},
        {{"-g", "disk", "-t", "db"}, {"D+"}},
    };
    for (const Case& one : cases) {
        EXPECT_EQ(control(one.options), 0);
        EXPECT_EQ(selected(), one.expected);
        EXPECT_EQ(errors_, "");
        for (const pickptn_tbl& ptn : walkList<const pickptn_tbl>(&root_->selected)) {
            EXPECT_EQ(ptn.targets, nullptr);
        }
    }
    for (const std::vector<std::string>& options :
         std::vector<std::vector<std::string>>{{"-g", "NET"},
                                               {"-g", "ne"},
                                               {"-t", "Web"},
                                               {"-g", "disk", "-t", "none"},
                                               {"-t", ""}}) {
        EXPECT_EQ(control(options), CTRL_NOTHING_SELECTED);
        EXPECT_EQ(errors_, NOTHING_TO_COLLECT);
        EXPECT_EQ(root_->selected.count, 0U);
    }
}

TEST_F(IGIniCtrl, ReadsThePatternFilesInByteOrder) {
    pattern("2_a", "second", "g");
    pattern("10_b", "first", "g");
    pattern("B", "third", "g");
    pattern("a", "fourth", "g");
    pattern(".hidden", "hidden", "g");
    EXPECT_EQ(control({"-g", "g"}), 0);
    EXPECT_THAT(selected(), ElementsAre("hidden+", "first+", "second+", "third+", "fourth+"));
}

TEST_F(IGIniCtrl, KeepsEveryOneOfEqualPatterns) {
    pattern("a", "same", "g");
    pattern("b", "same", "g");
    EXPECT_EQ(control({"-g", "g"}), 0);
    EXPECT_THAT(selected(), ElementsAre("same+", "same+"));
}

TEST_F(IGIniCtrl, ContinuesAfterAPatternFileThatFails) {
    writeText(std::string(PATTERN_DIR) + "/a", "FORMAT_VERSION = 1.0\nFOO\n");
    pattern("b", "B", "g");
    EXPECT_EQ(control({"-g", "g"}), 0);
    EXPECT_THAT(selected(), ElementsAre("B+"));
    EXPECT_EQ(errors_, "");
    EXPECT_THAT(log_, ::testing::EndsWith("ZEPA137-W:Internal error occurred.\nZEPA138-W:filename "
                                          "= " +
                                          std::string(PATTERN_DIR) + "/a, line no = 2.\n"));
    EXPECT_EQ(msg_state.mode, 0);
}

TEST_F(IGIniCtrl, FailsWhenEveryPatternFileFails) {
    writeText(std::string(PATTERN_DIR) + "/a", "");
    writeText(std::string(PATTERN_DIR) + "/b", "FORMAT_VERSION = 9.9\n");
    EXPECT_EQ(control({"-g", "g"}), CTRL_ALL_FAILED);
    EXPECT_EQ(errors_,
              "ZEPA159-W:quendil command is older than the collection pattern file. skip "
              "the file (" +
                  std::string(PATTERN_DIR) + "/b).\n" + NO_SYSTEM_INFORMATION);
    EXPECT_EQ(msg_state.mode, 0);
}

TEST_F(IGIniCtrl, FailsWithoutAnyPatternFile) {
    EXPECT_EQ(control({"-g", "g"}), -1);
    EXPECT_EQ(errors_, NO_SYSTEM_INFORMATION);
    fs::create_directory(std::string(PATTERN_DIR) + "/sub");  // a directory is no pattern file
    EXPECT_EQ(control({"-g", "g"}), -1);
}

TEST_F(IGIniCtrl, ReportsAMissingPatternDirectoryOnce) {
    fs::remove(PATTERN_DIR);
    EXPECT_EQ(control({"-g", "g"}), -1);
    EXPECT_THAT(log_, ::testing::EndsWith("    PP_NAME = \n" + trio("opendir", 2,
                                                                    "No such file or directory",
                                                                    PATTERN_DIR, "IGCmnDir")));
}

TEST_F(IGIniCtrl, DoesNotReportAnUnlistedDirectoryAsEmpty) {
    const std::string link = std::string(PATTERN_DIR) + "/link";
    fs::create_symlink("/nowhere", link);
    EXPECT_EQ(control({"-g", "g"}), -1);
    EXPECT_THAT(
        log_, ::testing::EndsWith("    PP_NAME = \n" +
                                  trio("stat", 2, "No such file or directory", link, "IGCmnDir")));
}

TEST_F(IGIniCtrl, SummarisesTheParameters) {
    pattern("a", "A", "g1", {"\"t 1\""});
    EXPECT_EQ(control({"-g", "g1"}), 0);
    EXPECT_EQ(log_, summary(CONFIG_FILE, DATA_DIR, "-1", "OFF", root_->output_name,
                            "    TARGET = \n    PP_GROUP = g1\n    PP_NAME = \n"));
    EXPECT_EQ(errors_, "");

    const std::string config = directory_.path("conf");
    writeText(config,
              "QUENDIL_CLEANUP=ON\nQUENDIL_MAX_OUTPUT_DATA_SIZE=20\n"
              "QUENDIL_DATA_DIRECTORY=" +
                  directory_.path() + "\n");
    EXPECT_EQ(control({"-c", config, "-t", "t 1", "-t", "t2", "-o", directory_.path("x")}), 0);
    EXPECT_EQ(log_, summary(config, directory_.path(), "20", "ON", directory_.path("x"),
                            "    TARGET = t 1\n    TARGET = t2\n    PP_GROUP = \n"
                            "    PP_NAME = \n"));
    EXPECT_EQ(root_->output_dir, directory_.path());
}

TEST_F(IGIniCtrl, PrefersTheCommandLineToTheConfiguration) {
    pattern("a", "A", "g");
    writeText(CONFIG_FILE, "QUENDIL_DATA_DIRECTORY=/nowhere\n");
    fs::create_directory(directory_.path("out"));
    EXPECT_EQ(control({"-g", "g", "-d", directory_.path("out")}), 0);
    EXPECT_EQ(root_->output_dir, directory_.path("out"));
    EXPECT_THAT(strings(root_->pp_group), ElementsAre("g"));
    EXPECT_EQ(root_->target, nullptr);
}

TEST_F(IGIniCtrl, ReportsErrorsInTheOptionsAndTheConfiguration) {
    pattern("a", "A", "g");
    EXPECT_EQ(control({}), -1);
    EXPECT_EQ(errors_, "ZEPA115-E:A required option is not specified.\n");
    EXPECT_EQ(control({"-x"}), OPTION_ERROR);
    EXPECT_EQ(errors_, "ZEPA101-E:The specified option(-x) is invalid.\n");
    EXPECT_EQ(log_, errors_);
    fs::remove(CONFIG_FILE);
    EXPECT_EQ(control({"-g", "g"}), -1);
    EXPECT_EQ(errors_,
              "ZEPA118-E:A configuration file(" + std::string(CONFIG_FILE) + ") does not exist.\n");
}

TEST_F(IGIniCtrl, RequiresAWritableOutputDirectory) {
    pattern("a", "A", "g");
    writeText(CONFIG_FILE, "QUENDIL_DATA_DIRECTORY=" + directory_.path("out") + "\n");
    EXPECT_EQ(control({"-g", "g"}), -1);
    EXPECT_EQ(errors_, "ZEPA104-E:The specified directory(" + directory_.path("out") +
                           ") does not exist.\n");
    fs::create_directory(directory_.path("out"));
    ASSERT_EQ(::chmod(directory_.path("out").c_str(), 0500), 0);
    EXPECT_EQ(control({"-g", "g"}), -1);
    EXPECT_EQ(errors_, "ZEPA105-E:You do not have write permissions for the specified directory(" +
                           directory_.path("out") + ").\n");
}

TEST_F(IGIniCtrl, RefusesADefaultArchiveThatExists) {
    pattern("a", "A", "g");
    // The name contains the time: each call builds a new run table and creates the file of its
    // name.
    const auto run = [this](const std::string& suffix) {
        ::Arguments arguments({"quendil", "-g", "g", "-d", directory_.path()});
        root_ = IgIniGetCmnRoot(pool());
        const std::string file = directory_.path(root_->output_name) + suffix;
        writeText(file, "");
        Capture errors(stderr);
        const int result = IgIniCtrl(arguments.count(), arguments.vector(), pool(), root_);
        fs::remove(file);
        EXPECT_EQ(result, -1);
        EXPECT_EQ(errors.take(), "ZEPA109-E:The specified file(" + file + ") already exists.\n");
    };
    run(".tar");
    run(".tar.gz");
}

TEST_F(IGIniCtrl, SortsNamesByTheirBytesWithNullLast) {
    std::vector<std::string> names = {"b", "a", "", "\xc3\xa4", "B", "10", "9", "a"};
    IgCmnListHeader list{};
    for (std::string& name : names) {
        ASSERT_GT(IgCmnListAdd(pool(), &list, name.data()), 0);
    }
    list.first->next->value = nullptr;  // instead of the first "a"
    const char* const* sorted = sortFileArray(&list, pool());
    ASSERT_NE(sorted, nullptr);
    const std::vector<std::string> expected = {"", "10", "9", "B", "a", "b", "\xc3\xa4"};
    for (std::size_t i = 0; i < expected.size(); ++i) {
        EXPECT_EQ(sorted[i], expected[i]);
    }
    EXPECT_EQ(sorted[expected.size()], nullptr);
}

TEST_F(IGIniCtrl, MatchesNamesAndGroupsEachInItsSelection) {
    IgCmnListHeader* a = nullptr;
    IgCmnListHeader* b = nullptr;
    IgCmnListHeader* ab = nullptr;
    IgIniCollectList("a", &a, pool());
    IgIniCollectList("b", &b, pool());
    IgIniCollectList("b", &ab, pool());
    IgIniCollectList("a", &ab, pool());
    EXPECT_EQ(IgIniMatchSelection(nullptr, nullptr, nullptr, nullptr), 1);
    EXPECT_EQ(IgIniMatchSelection(a, b, nullptr, nullptr), 1);
    EXPECT_EQ(IgIniMatchSelection(a, b, ab, nullptr), 1);
    EXPECT_EQ(IgIniMatchSelection(a, b, b, nullptr), 0);
    EXPECT_EQ(IgIniMatchSelection(a, b, nullptr, b), 1);
    EXPECT_EQ(IgIniMatchSelection(a, b, nullptr, a), 0);
    EXPECT_EQ(IgIniMatchSelection(a, b, a, b), 1);
    EXPECT_EQ(IgIniMatchSelection(a, b, a, a), 0);
    EXPECT_EQ(IgIniMatchSelection(a, b, b, b), 0);
    EXPECT_EQ(IgIniMatchSelection(nullptr, b, a, nullptr), 0);
    EXPECT_EQ(IgIniMatchSelection(a, nullptr, a, b), 0);
}

// Every selection for every kind of pattern, modelled by sets of words.
class Selection : public IGIniCtrl {
  protected:
    using Words = std::set<std::string>;
    struct Pattern {
        Words groups;
        std::string name;  // empty: the file has none
        std::vector<Words> blocks;
    };
    struct Wanted {
        Words groups;
        Words targets;
        Words names;
    };

    void SetUp() override {
        IGIniCtrl::SetUp();
        const std::vector<Words> groups = {{}, {"a"}, {"b"}, {"a", "b"}, {"A"}, {"ab"}};
        const std::vector<Words> targets = {{}, {"x"}, {"y"}, {"x", "y"}, {"X"}, {"xy"}};
        for (const Words& of_file : groups) {
            for (const char* name : {"", "n", "m", "N"}) {
                patterns_.push_back({of_file, name, targets});
                // And files with no target, or with one.
                patterns_.push_back({of_file, name, {{}}});
                patterns_.push_back({of_file, name, {{"x"}, {"x"}}});
            }
        }
        for (std::size_t i = 0; i < patterns_.size(); ++i) {
            writeText(std::string(PATTERN_DIR) + "/" + std::to_string(100 + i), text(patterns_[i]));
        }
    }

    static std::string text(const Pattern& pattern) {
        std::string text = "FORMAT_VERSION = 1.0\n";
        text += pattern.name.empty() ? "" : "PP_NAME = " + pattern.name + "\n";
        for (const std::string& group : pattern.groups) {
            text += "PP_GROUP = " + group + "\n";
        }
        for (const Words& targets : pattern.blocks) {
            text += "BLOCK {\n";
            for (const std::string& target : targets) {
                text += "TARGET = " + target + "\n";
            }
            text += "}\n";
        }
        return text;
    }

    static bool share(const Words& one, const Words& other) {
        return std::any_of(one.begin(), one.end(),
                           [&](const std::string& word) { return other.count(word) > 0; });
    }

    // A mark for each block of a selected pattern; empty when the pattern is not selected.
    static std::string marks(const Pattern& pattern, const Wanted& wanted) {
        const Words names = pattern.name.empty() ? Words{} : Words{pattern.name};
        if ((!wanted.groups.empty() && !share(pattern.groups, wanted.groups)) ||
            (!wanted.names.empty() && !share(names, wanted.names))) {
            return "";
        }
        std::string result;
        for (const Words& targets : pattern.blocks) {
            result += wanted.targets.empty() || share(targets, wanted.targets) ? '+' : '-';
        }
        return result.find('+') == std::string::npos ? "" : result;
    }

    [[nodiscard]] std::vector<std::string> expected(const Wanted& wanted) const {
        std::vector<std::string> result;
        for (const Pattern& pattern : patterns_) {
            if (const std::string marked = marks(pattern, wanted); !marked.empty()) {
                result.push_back(marked);
            }
        }
        return result;
    }

    IgCmnListHeader* listOf(const Words& words) {
        IgCmnListHeader* list = nullptr;
        for (const std::string& word : words) {
            IgIniCollectList(word.c_str(), &list, pool());
        }
        return list;
    }

    static std::string blockMarks(const pickptn_tbl& ptn) {
        std::string result;
        for (const ptn_block& block : walkList<const ptn_block>(ptn.blocks)) {
            result += block.skip == 0 ? '+' : '-';
        }
        return result;
    }

    // What a run selects; no option selects names, they are put into the root table.
    std::vector<std::string> run(const Wanted& wanted, int& result) {
        std::vector<std::string> options = {"quendil"};
        for (const std::string& group : wanted.groups) {
            options.insert(options.end(), {"-g", group});
        }
        for (const std::string& target : wanted.targets) {
            options.insert(options.end(), {"-t", target});
        }
        ::Arguments arguments(options);
        root_ = IgIniGetCmnRoot(pool());
        root_->pp_name = listOf(wanted.names);
        Capture errors(stderr);
        result = IgIniCtrl(arguments.count(), arguments.vector(), pool(), root_);
        std::vector<std::string> selected;
        for (const pickptn_tbl& ptn : walkList<const pickptn_tbl>(&root_->selected)) {
            selected.push_back(blockMarks(ptn));
        }
        return selected;
    }

    // The same by direct calls for each pattern, without options.
    std::vector<std::string> choose(const Wanted& wanted) {
        std::vector<std::string> selected;
        for (const Pattern& pattern : patterns_) {
            pickptn_tbl* ptn = IgIniGetPickPtn(pool());
            ptn->group = listOf(pattern.groups);
            ptn->name = listOf(pattern.name.empty() ? Words{} : Words{pattern.name});
            std::size_t wanted_blocks = 0;
            for (const Words& targets : pattern.blocks) {
                ptn_block* block = IgIniGetPickPtnBlock(pool());
                block->target = listOf(targets);
                IgCmnListAppend(pool(), &ptn->blocks, block);
                wanted_blocks += wanted.targets.empty() || share(targets, wanted.targets) ? 1U : 0U;
            }
            root_->crnt_ptn_def = ptn;
            root_->target = listOf(wanted.targets);
            if (IgIniMatchSelection(ptn->group, ptn->name, listOf(wanted.groups),
                                    listOf(wanted.names)) == 0) {
                continue;
            }
            const int marked = blockSelect(pool(), root_);
            EXPECT_EQ(static_cast<std::size_t>(marked), wanted_blocks);
            if (marked > 0) {
                selected.push_back(blockMarks(*ptn));
            }
        }
        return selected;
    }

    std::vector<Pattern> patterns_;
};

TEST_F(Selection, SelectsWhatSharesAWordWithEverySelection) {
    const std::vector<Words> groups = {{}, {"a"}, {"b"}, {"a", "b"}, {"c"}};
    const std::vector<Words> targets = {{}, {"x"}, {"y"}, {"x", "y"}, {"z"}};
    const std::vector<Words> names = {{}, {"n"}, {"m"}, {"m", "n"}, {"o"}};
    for (const Words& group : groups) {
        for (const Words& target : targets) {
            for (const Words& name : names) {
                const Wanted wanted{group, target, name};
                SCOPED_TRACE(::testing::PrintToString(group) + ::testing::PrintToString(target) +
                             ::testing::PrintToString(name));
                const std::vector<std::string> all = expected(wanted);
                EXPECT_EQ(choose(wanted), all);
                if (group.empty() && target.empty()) {
                    continue;  // the command line refuses this
                }
                int result = -1;
                EXPECT_EQ(run(wanted, result), all);
                EXPECT_EQ(result, all.empty() ? CTRL_NOTHING_SELECTED : 0);
            }
        }
    }
}

TEST_F(IGIniCtrl, StopsReadingPatternFilesOnceTheRunIsInterrupted) {
    writeText(std::string(PATTERN_DIR) + "/a", "FORMAT_VERSION = 9.9\n");
    pattern("b", "B", "g");
    run_state.signal_no = SIGTERM;
    run_state.interrupted = 1;
    EXPECT_EQ(control({"-g", "g"}), 0);
    EXPECT_EQ(errors_, "ZEPA136-E:quendil was interrupted. signal no = 15.\n");
    EXPECT_EQ(root_->selected.count, 0U);
    EXPECT_EQ(msg_state.mode, 0);
}

TEST_F(IGIniCtrl, ReadsTenThousandPatternFilesInByteOrder) {
    constexpr int COUNT = 10000;
    std::vector<std::string> names;
    for (int i = 0; i < COUNT; ++i) {
        names.push_back(std::to_string(i * 7919 % COUNT));
        writeText(std::string(PATTERN_DIR) + "/" + names.back(),
                  "FORMAT_VERSION=1.0\nPP_NAME=" + names.back() + "\nPP_GROUP=g\nBLOCK{\n}\n");
    }
    const std::size_t before = openDescriptors();
    EXPECT_EQ(control({"-g", "g"}), 0);
    std::sort(names.begin(), names.end());
    ASSERT_EQ(root_->selected.count, static_cast<std::uint32_t>(COUNT));
    auto name = names.begin();
    for (const pickptn_tbl& ptn : walkList<const pickptn_tbl>(&root_->selected)) {
        ASSERT_STREQ(static_cast<const char*>(ptn.name->first->value), (name++)->c_str());
    }
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(IGIniCtrl, FailsWhenMemoryRunsOut) {
    // Each of these texts needs a block of its own.
    for (int i = 0; i < 20; ++i) {
        pattern(std::to_string(i), std::string(200, 'n'), std::string(200, 'g'),
                {std::string(200, 't'), ""});
    }
    const std::string config = directory_.path("conf");
    writeText(config, "QUENDIL_CLEANUP=ON\nQUENDIL_DATA_DIRECTORY=" + directory_.path() + "\n");
    ::Arguments plain({"quendil", "-t", std::string(200, 't'), "-c", config});
    ::Arguments named({"quendil", "-t", std::string(200, 't'), "-c", config, "-o",
                       directory_.path("result"), "-d", directory_.path()});
    ::Arguments usual({"quendil", "-t", std::string(200, 't')});
    const std::pair<::Arguments&, Call> runs[] = {
        {plain, Call::CALLOC}, {plain, Call::POOL}, {named, Call::POOL}, {usual, Call::POOL}};
    for (const auto& [arguments, call] : runs) {
        bool failed = true;
        for (int nth = 1; failed; ++nth) {
            SCOPED_TRACE(nth);
            Pool fresh;
            root_tbl* root = IgIniGetCmnRoot(fresh.get());
            ASSERT_NE(root, nullptr);
            Capture errors(stderr);
            const std::size_t before = openDescriptors();
            const FailingCall failing(call, nth, ENOMEM);
            const int result = IgIniCtrl(arguments.count(), arguments.vector(), fresh.get(), root);
            failed = FailingCall::happened();
            EXPECT_EQ(result, failed ? -1 : 0);
            EXPECT_EQ(openDescriptors(), before);
            EXPECT_EQ(errors.take(), failed ? "ZEPA122-E:Memory is insufficient.\n" : "");
            EXPECT_EQ(msg_state.mode, 0);
            EXPECT_TRUE(failed || nth > 100);
        }
    }
}

TEST_F(IGIniCtrl, AssertsItsArgumentsAreNotNull) {
    ::Arguments arguments({"quendil"});
    EXPECT_DEATH(IgIniCtrl(1, nullptr, pool(), root_), "argv != \\(\\(void \\*\\)0\\)");
    EXPECT_DEATH(IgIniCtrl(1, arguments.vector(), nullptr, root_),
                 "memoryp != \\(\\(void \\*\\)0\\)");
    EXPECT_DEATH(IgIniCtrl(1, arguments.vector(), pool(), nullptr),
                 "root != \\(\\(void \\*\\)0\\)");
    EXPECT_DEATH(sortFileArray(nullptr, pool()), "list != \\(\\(void \\*\\)0\\)");
    const IgCmnListHeader list{};
    EXPECT_DEATH(sortFileArray(&list, nullptr), "memoryp != \\(\\(void \\*\\)0\\)");
    EXPECT_DEATH(blockSelect(nullptr, root_), "memoryp != \\(\\(void \\*\\)0\\)");
    EXPECT_DEATH(blockSelect(pool(), nullptr), "root != \\(\\(void \\*\\)0\\)");
}

}  // namespace
