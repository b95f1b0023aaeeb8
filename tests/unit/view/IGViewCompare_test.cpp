#include "view/IGViewCompare.h"

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "../../support/archive_text.h"
#include "../../support/file_fixture.h"
#include "view/IGViewDiffOutput.h"
#include "view/IGViewDiffSide.h"

namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::Field;
using testing::Ge;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

using Files = std::vector<std::pair<std::string, std::string>>;

constexpr const char* SETTINGS = R"json({"version": 1, "comparisons": [{
    "name": "settings", "title": "Settings", "items": "a.txt",
    "find": "^(?P<key>\\w+)=(?P<value>.*)"}]})json";

constexpr const char* FILES = R"json({"version": 1, "comparisons": [{
    "name": "files", "title": "Files", "items": "etc/*", "empty": true,
    "find": "^(?P<key>.+)"}]})json";

class IGViewCompare : public FileTest {
  protected:
    // The differences by the definitions, of two results that have these files.
    Comparison compare(const char* definitions, const Files& before, const Files& after,
                       bool all = false) {
        write("old.tar", "vm_261123162538", before);
        write("new.tar", "vm_261124162538", after);
        Definitions table;
        std::string why;
        EXPECT_TRUE(table.add(definitions, why)) << why;
        diff_ = Diff();
        const auto old_archive = openArchive(path("old.tar"), false, why);
        const auto new_archive = openArchive(path("new.tar"), false, why);
        EXPECT_TRUE(compareArchives({"old.tar", *old_archive}, {"new.tar", *new_archive}, table,
                                    all, diff_, why))
            << why;
        return diff_.comparisons.empty() ? Comparison() : diff_.comparisons[0];
    }

    // "changed a.txt key 'old':1 'new':2"
    static std::vector<std::string> texts(const Comparison& comparison) {
        std::vector<std::string> result;
        for (const Difference& one : comparison.differences) {
            result.push_back(std::string(nameOf(one.change)) + " " + one.item + " " + one.key +
                             " '" + one.old_value + "':" + std::to_string(one.old_line) + " '" +
                             one.new_value + "':" + std::to_string(one.new_line));
        }
        return result;
    }

    static std::vector<std::string> reasons(const Comparison& comparison) {
        std::vector<std::string> result;
        for (const NotCompared& one : comparison.not_compared) {
            result.push_back(one.item + " " + reasonOf(one));
        }
        return result;
    }

    Diff diff_;

  private:
    void write(const std::string& name, const std::string& top, const Files& files) {
        ArchiveText archive;
        for (const auto& [file, text] : files) {
            archive.file(top + "/" + file, text);
        }
        writeText(path(name), archive.end());
    }
};

TEST_F(IGViewCompare, TellsWhatWasChangedAddedAndRemoved) {
    const Comparison comparison = compare(SETTINGS, {{"a.txt", "one=1\ntwo=2\nthree=3\n"}},
                                          {{"a.txt", "zero=0\nthree=3\none=11\n"}});
    EXPECT_THAT(texts(comparison),
                ElementsAre("changed a.txt one '1':1 '11':3", "removed a.txt two '2':2 '':0",
                            "added a.txt zero '':0 '0':1"));
    EXPECT_EQ(comparison.state(), ComparisonState::DIFFERENT);
    EXPECT_EQ(changesOf(comparison), "1 changed, 1 added, 1 removed");
    EXPECT_FALSE(diff_.damaged());
}

TEST_F(IGViewCompare, IgnoresOrderRepetitionAndTheWidthOfColumns) {
    const Comparison comparison = compare(SETTINGS, {{"a.txt", "one=a   b\ntwo=2\ntwo=2\n"}},
                                          {{"a.txt", "two=2\none=a b  \n"}});
    EXPECT_THAT(texts(comparison), IsEmpty());
    EXPECT_EQ(comparison.state(), ComparisonState::EQUAL);
    EXPECT_EQ(comparison.entries, 2U);
}

TEST_F(IGViewCompare, ShowsADifferenceOfARepeatedLineOnce) {
    const Comparison comparison =
        compare(SETTINGS, {{"a.txt", "k=1\nk=1\n"}}, {{"a.txt", "k=2\n\nk=2\n"}});
    EXPECT_THAT(texts(comparison), ElementsAre("changed a.txt k '1':1 '2':1"));
    EXPECT_EQ(comparison.entries, 1U);
}

TEST_F(IGViewCompare, PairsTheValuesOfAKeyThatHasSeveral) {
    const Comparison comparison =
        compare(SETTINGS, {{"a.txt", "k=a\nk=b\nk=c\n"}}, {{"a.txt", "k=b\nk=d\n"}});
    EXPECT_THAT(texts(comparison),
                ElementsAre("changed a.txt k 'a':1 'd':2", "removed a.txt k 'c':3 '':0"));
}

// Both sides are sorted; to look for each value in all values of the other side would take minutes.
TEST_F(IGViewCompare, ComparesAKeyThatHasVeryManyValues) {
    constexpr int VALUES = 100000;
    std::string before;
    std::string after;
    for (int i = 0; i < VALUES; ++i) {
        before += "k=" + std::to_string(i) + "\n";
        after += "k=" + std::to_string(i) + "x\n";
    }
    const Comparison comparison = compare(SETTINGS, {{"a.txt", before}}, {{"a.txt", after}});
    EXPECT_THAT(comparison.differences, SizeIs(VALUES));
}

TEST_F(IGViewCompare, KeepsKeysOfDifferentPartsApart) {
    const char* parts = R"json({"version": 1, "comparisons": [{
        "name": "files", "title": "Files", "items": "a.txt", "context": "^==> (?P<part>.*)",
        "find": "^(?P<key>\\w+)=(?P<value>.*)"}]})json";
    const Comparison comparison = compare(parts, {{"a.txt", "==> /x\nk=1\n==> /y\nk=2\n"}},
                                          {{"a.txt", "==> /x\nk=2\n==> /y\nk=2\n"}});
    EXPECT_THAT(texts(comparison), ElementsAre("changed a.txt /x: k '1':2 '2':2"));
}

TEST_F(IGViewCompare, SeesADifferenceBeyondWhatItKeeps) {
    const std::string value(1000, 'v');
    const Comparison comparison =
        compare(SETTINGS, {{"a.txt", "k=" + value + "1\n"}}, {{"a.txt", "k=" + value + "2\n"}});
    ASSERT_THAT(comparison.differences, SizeIs(1));
    EXPECT_THAT(comparison.differences[0].old_value, SizeIs(LONGEST_EXCERPT));
    EXPECT_THAT(comparison.differences[0].old_value, testing::EndsWith("v..."));
}

TEST_F(IGViewCompare, NeverCallsEqualWhatOneSideDoesNotSay) {
    const std::string said = "lsmod: not installed on this machine";
    EXPECT_THAT(reasons(compare(SETTINGS, {{"a.txt", said + "\n"}}, {{"a.txt", "k=1\n"}})),
                ElementsAre("a.txt OLD: " + said));
    EXPECT_EQ(diff_.comparisons[0].state(), ComparisonState::NOT_COMPARED);
    EXPECT_THAT(reasons(compare(SETTINGS, {{"a.txt", "k=1\n"}}, {{"b.txt", ""}})),
                ElementsAre("a.txt NEW: it is not in the archive"));
    EXPECT_THAT(reasons(compare(SETTINGS, {{"a.txt", "k=1\n"}}, {{"a.txt", ""}})),
                ElementsAre("a.txt NEW: it is empty"));
    EXPECT_THAT(reasons(compare(SETTINGS, {{"a.txt", "k=1\nx: stopped here after 5 seconds\n"}},
                                {{"a.txt", "k=1\n"}})),
                ElementsAre("a.txt OLD: its tool was stopped, or its output was cut"));
}

TEST_F(IGViewCompare, HasNoDataIfNeitherSideSaysAnything) {
    const Comparison comparison =
        compare(SETTINGS, {{"a.txt", "rpm: not installed on this machine\n"}}, {{"b.txt", ""}});
    EXPECT_EQ(comparison.state(), ComparisonState::NO_DATA);
    EXPECT_THAT(comparison.not_compared, IsEmpty());
}

TEST_F(IGViewCompare, TakesAListThatIsKnownToBeEmptyForAnEmptySet) {
    const Comparison comparison =
        compare(SETTINGS, {{"a.txt", "==> /etc/x is not there\n"}}, {{"a.txt", "k=1\n"}});
    EXPECT_THAT(texts(comparison), ElementsAre("added a.txt k '':0 '1':1"));
}

TEST_F(IGViewCompare, ShowsAWholeFileThatWasAddedOrRemoved) {
    const Comparison comparison =
        compare(FILES, {{"etc/a", "1\n2\n"}, {"etc/same", "x\n"}},
                {{"etc/b", "1\n"}, {"etc/same", "x\n"}, {"etc/empty", ""}});
    EXPECT_THAT(texts(comparison), ElementsAre("removed etc/a  '':0 '':0", "added etc/b  '':0 '':0",
                                               "added etc/empty  '':0 '':0"));
    EXPECT_EQ(comparison.differences[0].entries, 2U);
}

TEST_F(IGViewCompare, DoesNotCallAFileRemovedThatADamagedArchiveMayHaveLost) {
    const std::string whole = ArchiveText().file("vm/etc/a", "1\n").file("vm/etc/b", "2\n").end();
    writeText(path("old.tar"), whole);
    writeText(path("new.tar"), whole.substr(0, 1024));
    Definitions table;
    std::string why;
    ASSERT_TRUE(table.add(FILES, why)) << why;
    const auto old_archive = openArchive(path("old.tar"), false, why);
    const auto new_archive = openArchive(path("new.tar"), false, why);
    ASSERT_TRUE(
        compareArchives({"o", *old_archive}, {"n", *new_archive}, table, false, diff_, why));
    EXPECT_TRUE(diff_.damaged());
    EXPECT_THAT(diff_.comparisons[0].differences, IsEmpty());
    EXPECT_THAT(reasons(diff_.comparisons[0]), ElementsAre("etc/b NEW: it is not in the archive"));
    EXPECT_THAT(diff_.warnings, testing::Contains(StartsWith("NEW: The archive is damaged")));
}

TEST_F(IGViewCompare, ComparesTheFirstOfMembersWithTheSameName) {
    EXPECT_THAT(
        texts(compare(SETTINGS, {{"a.txt", "k=1\n"}, {"a.txt", "k=2\n"}}, {{"a.txt", "k=1\n"}})),
        IsEmpty());
}

TEST_F(IGViewCompare, ComparesNoFileThatAnArchiveHasInPart) {
    const std::string text = "k=1\n" + std::string(2000, '#') + "\nl=1\n";
    const std::string whole = ArchiveText().file("vm/a.txt", text).end();
    writeText(path("old.tar"), whole);
    writeText(path("new.tar"), whole.substr(0, 1024));
    Definitions table;
    std::string why;
    ASSERT_TRUE(table.add(SETTINGS, why)) << why;
    const auto old_archive = openArchive(path("old.tar"), false, why);
    const auto new_archive = openArchive(path("new.tar"), false, why);
    ASSERT_TRUE(
        compareArchives({"o", *old_archive}, {"n", *new_archive}, table, false, diff_, why));
    EXPECT_THAT(diff_.comparisons[0].differences, IsEmpty());
    EXPECT_THAT(reasons(diff_.comparisons[0]),
                ElementsAre("a.txt NEW: the archive has it only in part"));
}

TEST_F(IGViewCompare, ComparesNoFileWithTooManyEntries) {
    std::string text;
    for (std::size_t number = 0; number <= MOST_ENTRIES; ++number) {
        text += "k" + std::to_string(number) + "=1\n";
    }
    const Comparison comparison = compare(SETTINGS, {{"a.txt", text}}, {{"a.txt", "k0=1\n"}});
    EXPECT_THAT(reasons(comparison), ElementsAre(HasSubstr("more than 200000 entries")));
    EXPECT_THAT(comparison.differences, IsEmpty());
}

TEST_F(IGViewCompare, ComparesNoFileWithEntriesThatTakeTooMuchMemory) {
    std::string text;
    for (std::size_t number = 0; number * LONGEST_EXCERPT < MOST_ENTRY_BYTES; ++number) {
        text += "k" + std::to_string(number) + "=" + std::string(LONGEST_EXCERPT, 'v') + "\n";
    }
    const Comparison comparison = compare(SETTINGS, {{"a.txt", text}}, {{"a.txt", "k0=1\n"}});
    EXPECT_THAT(reasons(comparison), ElementsAre(HasSubstr("too many entries")));
}

TEST_F(IGViewCompare, ComparesOnlySoManyLines) {
    const std::string text(MOST_COMPARED_LINES, '\n');
    compare(SETTINGS, {{"log", text}}, {{"log", "x" + text}}, true);
    ASSERT_THAT(diff_.files, SizeIs(1));
    EXPECT_EQ(diff_.files[0].reason, "");
    compare(SETTINGS, {{"log", text}}, {{"log", "x\n" + text}}, true);
    ASSERT_THAT(diff_.files, SizeIs(1));
    EXPECT_THAT(diff_.files[0].reason, HasSubstr("more than 2000000 lines"));
}

TEST_F(IGViewCompare, LeavesOutWhatIsVolatileUnlessAllIsCompared) {
    const char* counters = R"json({"version": 1, "comparisons": [{
        "name": "counters", "title": "Counters", "items": "a.txt", "volatile": true,
        "find": "^(?P<key>\\w+)=(?P<value>.*)"}]})json";
    compare(counters, {{"a.txt", "k=1\n"}}, {{"a.txt", "k=2\n"}});
    EXPECT_THAT(diff_.comparisons, IsEmpty());
    EXPECT_THAT(diff_.files, IsEmpty());
    EXPECT_THAT(texts(compare(counters, {{"a.txt", "k=1\n"}}, {{"a.txt", "k=2\n"}}, true)),
                SizeIs(1));
}

TEST_F(IGViewCompare, ComparesOtherFilesLineByLineIfAllIsCompared) {
    std::string many;
    for (int line = 0; line < 30; ++line) {
        many += "line " + std::to_string(line) + "\n";
    }
    compare(SETTINGS,
            {{"same", "x\n"},
             {"log", "a\nb\nb\n"},
             {"order", "1\n2\n"},
             {"gone", "x"},
             {"quendil_index", "1\n"}},
            {{"same", "x\n"},
             {"log", "b\n" + many},
             {"order", "2\n1\n"},
             {"quendil.log", "t"},
             {"quendil_index", "2\n"}},
            true);
    EXPECT_THAT(diff_.files,
                ElementsAre(Field(&FileDifference::item, "log"),
                            AllOf(Field(&FileDifference::item, "order"),
                                  Field(&FileDifference::reason, HasSubstr("another order")))));
    const FileDifference& log = diff_.files[0];
    EXPECT_EQ(log.added, 30U);
    EXPECT_EQ(log.removed, 2U);
    ASSERT_THAT(log.first_removed, SizeIs(2));
    EXPECT_EQ(log.first_removed[1].text, "b");
    EXPECT_EQ(log.first_removed[1].line, 3U);  // one "b" of two is left
    ASSERT_THAT(log.first_added, SizeIs(MOST_SHOWN_LINES));
    EXPECT_EQ(log.first_added[0].text, "line 0");
    EXPECT_EQ(log.first_added[0].line, 2U);
    EXPECT_THAT(diff_.only_old, ElementsAre("gone"));
    EXPECT_THAT(diff_.only_new, ElementsAre("quendil.log"));
}

TEST_F(IGViewCompare, LeavesOutOnlyTheFilesOfTheRunItself) {
    const auto files = [](const std::string& text) {
        return Files{{"quendil.log", text},
                     {"quendil_index", text},
                     {"quendil_evil/x.txt", text},
                     {"quendil.log.1", text},
                     {"sub/quendil.log", text}};
    };
    compare(SETTINGS, files("a\n"), files("b\n"), true);
    EXPECT_THAT(diff_.files, ElementsAre(Field(&FileDifference::item, "quendil.log.1"),
                                         Field(&FileDifference::item, "quendil_evil/x.txt"),
                                         Field(&FileDifference::item, "sub/quendil.log")));
}

TEST_F(IGViewCompare, WarnsOfNamesThatAreThereTwice) {
    Files many;
    for (int number = 100; number < 112; ++number) {
        many.emplace_back(std::to_string(number), "");
        many.emplace_back(std::to_string(number), "");
    }
    const Comparison comparison =
        compare(SETTINGS, many, {{"a.txt", "k=1\n"}, {"a.txt", "k=2\n"}, {"a.txt", "k=3\n"}});
    ASSERT_THAT(diff_.warnings, SizeIs(Ge(12U)));
    const std::vector<std::string> last(diff_.warnings.end() - 3, diff_.warnings.end());
    EXPECT_THAT(last, ElementsAre("OLD: 109 is there twice; the first one was compared.",
                                  "OLD: 2 more names are there twice.",
                                  "NEW: a.txt is there twice; the first one was compared."));
}

TEST_F(IGViewCompare, SaysOnlyThatABinaryFileDiffers) {
    compare(SETTINGS, {{"bin", std::string("a\0b", 3)}}, {{"bin", std::string("a\0c", 3)}}, true);
    ASSERT_THAT(diff_.files, SizeIs(1));
    EXPECT_THAT(diff_.files[0].reason, HasSubstr("no text"));
}

TEST_F(IGViewCompare, WarnsOfTwoMachinesAndOfTheWrongOrder) {
    const std::string begin = "ZEPA201-I:quendil [Ver. 01-02] started at 2026/11/";
    writeText(path("old.tar"),
              ArchiveText().file("vm_261124162538/quendil.log", begin + "24 16:25:38.\n").end());
    writeText(path("new.tar"),
              ArchiveText().file("web_261123162538/quendil.log", begin + "23 16:25:38.\n").end());
    std::string why;
    const auto old_archive = openArchive(path("old.tar"), false, why);
    const auto new_archive = openArchive(path("new.tar"), false, why);
    ASSERT_TRUE(compareArchives({"o", *old_archive}, {"n", *new_archive}, Definitions(), false,
                                diff_, why));
    EXPECT_EQ(diff_.old_head.host, "vm");
    EXPECT_EQ(diff_.new_head.started, "2026/11/23 16:25:38");
    EXPECT_THAT(diff_.warnings,
                ElementsAre("Two machines: vm and web.", StartsWith("OLD is newer than NEW")));
}

}  // namespace
