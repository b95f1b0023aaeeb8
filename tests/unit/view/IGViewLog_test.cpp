#include "view/IGViewLog.h"

#include <string>
#include <vector>

#include <gmock/gmock.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// The run log of a text; items have the numbers of the names.
RunLog runOf(const std::string& text, const std::vector<std::string>& names = {}) {
    RunLog run;
    LogReader reader(run);
    for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t end = std::min(text.find('\n', begin), text.size());
        reader.line(std::string_view(text).substr(begin, end - begin));
        begin = end + 1;
    }
    std::unordered_map<std::string, std::uint32_t> items;
    for (std::uint32_t number = 0; number < names.size(); ++number) {
        items[names[number]] = number;
    }
    reader.finish(items);
    return run;
}

constexpr const char* BEGINNING =
    "ZEPA201-I:quendil [Ver. 01-02] started at 2026/11/23 16:25:38.\n"
    "ZEPA204-I:quendil argument is \"-g linux -o '/tmp/a \"b\"'\".\n"
    "ZEPA202-I:Started initializing.\n"
    "ZEPA205-I:Summary of parameters.\n"
    "    Configuration file = /etc/quendil_conf\n"
    "    Output path of collected information = /data/vm_261123162538\n"
    "    Max output data size = 8388608 KB\n"
    "    Cleanup = ON\n"
    "    Output file = vm_261123162538\n"
    "    TARGET = \n"
    "    PP_GROUP = linux\n"
    "    PP_GROUP = web = 1\n"
    "    PP_NAME = \n"
    "ZEPA203-I:Ended initializing.\n";

std::string tool(const std::string& command, const std::string& start, const std::string& end,
                 int exit_code = 0, const std::string& messages = "") {
    return "ZEPA206-I:Information collecting tool start.\n    Command  = \"" + command +
           "\"\n    Start time = 2026/11/23 " + start + "\n    Timeout = 10\n" + messages +
           "ZEPA207-I:Information collecting tool end.\n    Return code = " +
           std::to_string(exit_code) + "\n    Status code = " + std::to_string(exit_code * 256) +
           "\n    End time = 2026/11/23 " + end + "\n";
}

std::string output(const std::string& name) {
    return "ZEPA209-I:It copied collecting data = /data/vm_261123162538/" + name +
           ". size = 68 bytes.\nZEPA210-I:Total data size: 1068 bytes.\n";
}

TEST(IGViewLog, HasWhatTheRunWasAskedFor) {
    const RunLog run = runOf(BEGINNING);
    EXPECT_EQ(run.version, "01-02");
    EXPECT_EQ(run.arguments, "-g linux -o '/tmp/a \"b\"'");
    EXPECT_EQ(run.started, "2026/11/23 16:25:38");
    EXPECT_EQ(run.start_time, 1795451138);
    EXPECT_EQ(run.configuration, "/etc/quendil_conf");
    EXPECT_EQ(run.output, "/data/vm_261123162538");
    EXPECT_EQ(run.limit, "8388608 KB");
    EXPECT_EQ(run.cleanup, "ON");
    EXPECT_THAT(run.groups, ElementsAre("linux", "web = 1"));
    EXPECT_THAT(run.targets, IsEmpty());
    EXPECT_EQ(run.bytes, -1);
}

TEST(IGViewLog, HasStartAndEndOfEveryTool) {
    const RunLog run = runOf(BEGINNING + tool("/bin/a \"x = y\"", "16:25:40", "16:26:38") +
                             tool("/bin/b", "16:26:38", "16:26:39", 3));
    ASSERT_EQ(run.tools.size(), 2U);
    EXPECT_EQ(run.tools[0].command, "/bin/a \"x = y\"");
    EXPECT_EQ(run.tools[0].start, 2);
    EXPECT_EQ(run.tools[0].end, 60);
    EXPECT_EQ(run.tools[0].timeout, 10);
    EXPECT_EQ(run.tools[0].line, 15U);
    EXPECT_TRUE(run.tools[0].ended);
    EXPECT_FALSE(run.tools[0].timed_out);
    EXPECT_EQ(run.tools[1].exit_code, 3);
    EXPECT_EQ(run.tools[1].wait_status, 768);
    EXPECT_EQ(run.seconds, 61);
    EXPECT_EQ(run.last, "2026/11/23 16:26:39");
}

TEST(IGViewLog, GivesAToolTheMessagesBetweenItsStartAndItsEnd) {
    const RunLog run = runOf(
        BEGINNING +
        tool("/bin/a", "16:25:40", "16:25:50", 255,
             "ZEPA126-W:A timeout occurred while information collecting tool(/bin/a) was being "
             "executed.\nZEPA148-W:An attempt to wait or stop a process (7) has failed.\n") +
        tool("/bin/b", "16:25:50", "16:25:50") +
        "ZEPA129-W:A system information(/x) is not found.\n");
    ASSERT_EQ(run.messages.size(), 3U);
    EXPECT_EQ(run.messages[0].id, "ZEPA126-W");
    EXPECT_EQ(run.messages[0].line, 19U);
    EXPECT_EQ(run.messages[1].text, "An attempt to wait or stop a process (7) has failed.");
    EXPECT_THAT(run.tools[0].messages, ElementsAre(0, 1));
    EXPECT_TRUE(run.tools[0].timed_out);
    EXPECT_THAT(run.tools[1].messages, IsEmpty());
}

TEST(IGViewLog, KeepsTheBeginningOfALongMessage) {
    const RunLog run = runOf("ZEPA129-W:" + std::string(60000, 'x'));
    ASSERT_EQ(run.messages.size(), 1U);
    EXPECT_EQ(run.messages[0].text, std::string(400, 'x'));
}

TEST(IGViewLog, TakesNoLinesOfAnotherMessageForThoseOfATool) {
    const RunLog run =
        runOf(std::string(BEGINNING) +
              "ZEPA206-I:Information collecting tool start.\n    Command  = \"/bin/a\"\n"
              "ZEPA114-E:A call has failed.\n    Command  = \"/bin/b\"\n    Timeout = 7\n");
    ASSERT_EQ(run.tools.size(), 1U);
    EXPECT_EQ(run.tools[0].command, "/bin/a");
    EXPECT_EQ(run.tools[0].timeout, 0);
}

TEST(IGViewLog, CountsWarningsAndErrorsByTheirNumbers) {
    std::string text = BEGINNING;
    for (std::size_t number = 0; number < MOST_MESSAGES + 5; ++number) {
        text += "ZEPA129-W:A system information(/x) is not found.\n";
    }
    const RunLog run = runOf(text + "ZEPA136-E:quendil was interrupted. signal no = 2.\n");
    EXPECT_EQ(run.messages.size(), MOST_MESSAGES);
    ASSERT_EQ(run.counts.size(), 2U);
    EXPECT_EQ(run.counts[0].number, MOST_MESSAGES + 5);
    EXPECT_EQ(run.counts[1].id, "ZEPA136-E");
}

TEST(IGViewLog, FindsTheItemOfATool) {
    const std::string log = BEGINNING + tool("/bin/a", "16:25:40", "16:25:40") +
                            output("system/uname.txt") + tool("/bin/b", "16:25:40", "16:25:40") +
                            output("system/missing.txt");
    const RunLog run = runOf(log, {"other", "system/uname.txt"});
    EXPECT_EQ(run.tools[0].item, 1U);
    EXPECT_EQ(run.tools[1].item, NONE);
    EXPECT_EQ(run.bytes, 1068);
}

TEST(IGViewLog, GuessesNoItemWhereTheLogDoesNotTell) {
    const std::string two =
        tool("/bin/a", "16:25:40", "16:25:40") + tool("/bin/b", "16:25:40", "16:25:40");
    const std::string copied =
        "ZEPA209-I:It copied collecting data = /etc/hosts. size = 1 bytes.\n";
    const RunLog run = runOf(BEGINNING + two + output("a") + copied +
                                 tool("/bin/c", "16:25:41", "16:25:41") + copied + output("b"),
                             {"a", "b", "etc/hosts"});
    EXPECT_EQ(run.tools[0].item, NONE);
    EXPECT_EQ(run.tools[1].item, NONE);
    EXPECT_EQ(run.tools[2].item, 1U);
}

TEST(IGViewLog, EndsAToolWithTheLogWhereItsEndIsMissing) {
    const RunLog run = runOf(
        BEGINNING + tool("/bin/a", "16:25:40", "16:25:48") +
        "ZEPA206-I:Information collecting tool start.\n    Command  = \"/bin/b\"\n"
        "    Start time = 2026/11/23 16:25:50\n    Timeout = 10\nZEPA126-W:A timeout occurred");
    ASSERT_EQ(run.tools.size(), 2U);
    EXPECT_FALSE(run.tools[1].ended);
    EXPECT_TRUE(run.tools[1].timed_out);
    EXPECT_EQ(run.tools[1].start, 12);
    EXPECT_EQ(run.tools[1].end, 12);
}

TEST(IGViewLog, GivesAToolWithoutAnEndTheLastTimeOfTheLog) {
    const RunLog run = runOf(std::string(BEGINNING) +
                             "ZEPA206-I:Information collecting tool start.\n"
                             "    Start time = 2026/11/23 16:25:50\n"
                             "ZEPA213-I:quendil ended at 2026/11/23 16:26:38. return code = 0.\n");
    ASSERT_EQ(run.tools.size(), 1U);
    EXPECT_FALSE(run.tools[0].ended);
    EXPECT_EQ(run.tools[0].start, 12);
    EXPECT_EQ(run.tools[0].end, 60);
}

TEST(IGViewLog, KeepsTimesThatRunBackwardsInOrder) {
    const RunLog run = runOf(BEGINNING + tool("/bin/a", "16:25:50", "16:25:45") +
                             tool("/bin/b", "16:20:00", "16:26:00"));
    EXPECT_EQ(run.tools[0].start, 12);
    EXPECT_EQ(run.tools[0].end, 12);
    EXPECT_EQ(run.tools[1].start, 0);
    EXPECT_EQ(run.seconds, 22);
}

TEST(IGViewLog, SkipsWhatItDoesNotUnderstand) {
    const RunLog run = runOf(
        "    Command  = \"/bin/x\"\nZEPA207-I:\n    Return code = 1\nZEPA20\nZEPA206-X:text\n"
        "ZEPA205-I:\n    TARGET\n    = \n\xff\xfe\nno message\n    PP_GROUP = not a parameter\n"
        "ZEPA206-I:\n    Timeout = 99999999999999999999\n    Start time = 2026/13/40 99:99:99\n");
    ASSERT_EQ(run.tools.size(), 1U);
    EXPECT_EQ(run.tools[0].timeout, 0);
    EXPECT_EQ(run.tools[0].start, 0);
    EXPECT_THAT(run.groups, IsEmpty());
    EXPECT_THAT(run.messages, IsEmpty());
}

TEST(IGViewLog, ReadsTimes) {
    EXPECT_EQ(timeOf("1970/01/01 00:00:00"), 0);
    EXPECT_EQ(timeOf("2026/11/23 16:25:38"), 1795451138);
    EXPECT_EQ(timeOf("10000/01/01 00:00:00"), 253402300800);
    for (const char* text : {"", "2026/11/23", "2026-11-23 16:25:38", "2026/11/23 16:25:3x",
                             "26/11/23 16:25:38", "2026/00/23 16:25:38", "2026/11/-3 16:25:38"}) {
        EXPECT_EQ(timeOf(text), -1) << text;
    }
}

// A small archive may have a log whose texts would fill all memory, or a page of gigabytes.
TEST(IGViewLog, CutsLongTextsAndLongLists) {
    std::string text =
        "ZEPA205-I:Summary of parameters.\n    Output path of collected information = "
        "/data/vm_261123162538\n";
    for (int number = 0; number < 2000; ++number) {
        text += "    TARGET = t" + std::to_string(number) +
                "\n    PP_GROUP = " + std::string(1000, 'g') + "\n";
    }
    const std::string name(5000, 'n');
    text += tool(std::string(9000, 'c'), "16:25:40", "16:25:41") + output(name);
    const RunLog run = runOf(text, {name});
    EXPECT_EQ(run.targets.size(), 1000U);
    EXPECT_EQ(run.targets.back(), "t999");
    EXPECT_EQ(run.groups.size(), 1000U);
    EXPECT_EQ(run.groups.back().size(), LONGEST_EXCERPT);
    EXPECT_EQ(run.tools.at(0).command.size(), 4096U);
    EXPECT_EQ(run.tools.at(0).item, NONE);
}

class IGViewIndex : public testing::Test {
  protected:
    void read(const std::vector<std::string>& lines) {
        for (const std::string& line : lines) {
            reader_.line(line);
        }
    }
    std::vector<IndexRecord> records_;
    IndexReader reader_{records_};
};

TEST_F(IGViewIndex, HasTheDescriptionOfEveryFile) {
    read({"quendil [Ver. 01-02]", "FILE:no record", "", "FILE:system/uname.txt", "FILE:system/b",
          "DESC:Host name", "DESC:Kernel", "DATE:261123162538", "TYPE:text", "",
          "FILE:", "DESC:", "DATE:261123162539", "TYPE:binary"});
    ASSERT_EQ(records_.size(), 2U);
    EXPECT_EQ(reader_.recordOf("system/uname.txt"), 0U);
    EXPECT_EQ(reader_.recordOf("system/b"), 0U);
    EXPECT_EQ(reader_.recordOf("no record"), NONE);
    EXPECT_EQ(reader_.recordOf(""), NONE);
    EXPECT_EQ(records_[0].description, "Host name; Kernel");
    EXPECT_EQ(records_[0].date, "261123162538");
    EXPECT_EQ(records_[1].type, "binary");
}

TEST_F(IGViewIndex, FindsANameWithControlCharacters) {
    read({"quendil", "quendil", "",
          R"(FILE:log/a\012b\033c)"
          "\u202e",
          "DESC:Hostile"});
    EXPECT_EQ(reader_.recordOf("log/a\nb\033c\u202e"), 0U);
}

// Each of very many items may have the same record.
TEST_F(IGViewIndex, CutsLongTexts) {
    const std::string text(1000, 'x');
    read({"quendil", "quendil", "", "FILE:a", "DESC:" + text, "DESC:" + text, "DATE:" + text,
          "TYPE:" + text});
    EXPECT_EQ(records_[0].description, text.substr(0, LONGEST_EXCERPT));
    EXPECT_EQ(records_[0].date, text.substr(0, LONGEST_EXCERPT));
    EXPECT_EQ(records_[0].type, text.substr(0, LONGEST_EXCERPT));
}

TEST_F(IGViewIndex, TakesABoundedAmountOfMemory) {
    const std::string name(1000, 'x');
    read({"quendil", "quendil"});
    for (int number = 0; number < 100000; ++number) {
        read({"", "FILE:" + std::to_string(number) + name, "DESC:" + name});
    }
    EXPECT_LT(records_.size(), 20000U);
    EXPECT_EQ(reader_.recordOf("0" + name), 0U);
    EXPECT_EQ(reader_.recordOf("99999" + name), NONE);
}

}  // namespace
