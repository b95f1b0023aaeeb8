#include "view/IGViewScan.h"

#include <sys/stat.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

#include "../../support/archive_text.h"
#include "../../support/file_fixture.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class IGViewScan : public FileTest {
  protected:
    // False if nothing of the archive could be read.
    bool scan(const std::string& bytes) {
        writeText(path("archive"), bytes);
        return scanPath("archive");
    }

    bool scanPath(const std::string& name) {
        std::string why;
        const auto archive = openArchive(path(name), false, why);
        result_ = Result();
        return archive != nullptr && scanArchive(*archive, definitions_, result_);
    }

    bool scanAsAnotherUser(const std::string& name) {
        EXPECT_EQ(::chmod(path().c_str(), 0755), 0);
        EXPECT_EQ(::chmod(path(name).c_str(), 0755), 0);
        EXPECT_EQ(::seteuid(65534), 0);
        const bool scanned = scanPath(name);
        EXPECT_EQ(::seteuid(0), 0);
        return scanned;
    }

    std::vector<std::string> names() {
        std::vector<std::string> found;
        for (const Item& item : result_.items) {
            found.push_back(item.name);
        }
        return found;
    }

    Definitions definitions_;
    Result result_;
};

TEST_F(IGViewScan, HasEveryMemberWithItsDescription) {
    ASSERT_TRUE(scan(ArchiveText(true)
                         .directory("vm_26/")
                         .file("vm_26/quendil_index",
                               "quendil [Ver. 01-02]\nquendil -g linux\n\nFILE:system/uname.txt\n"
                               "DESC:Kernel\nDATE:261123162538\nTYPE:text\n")
                         .file("vm_26/system/uname.txt", "Linux\nvm")
                         .file("vm_26/quendil.log",
                               "ZEPA201-I:quendil [Ver. 01-02] started at 2026/11/23 16:25:38.\n")
                         .end()));
    EXPECT_EQ(result_.name, "vm_26");
    EXPECT_EQ(result_.form, ResultForm::COMPRESSED);
    EXPECT_EQ(result_.bytes, std::filesystem::file_size(path("archive")));
    EXPECT_THAT(names(), ElementsAre("", "quendil_index", "system/uname.txt", "quendil.log"));
    const Item& item = result_.items[2];
    EXPECT_EQ(item.size, 8U);
    EXPECT_EQ(item.lines, 2U);
    EXPECT_EQ(item.modified, 1700000000);
    ASSERT_NE(item.record, NONE);
    EXPECT_EQ(result_.records[item.record].description, "Kernel");
    EXPECT_EQ(result_.run.log, 3U);
    EXPECT_EQ(result_.run.started, "2026/11/23 16:25:38");
    EXPECT_FALSE(result_.damaged);
    EXPECT_THAT(result_.notices, IsEmpty());
}

TEST_F(IGViewScan, SaysThatARunLogIsMissing) {
    ASSERT_TRUE(scan(ArchiveText().file("top/a", "").end()));
    EXPECT_THAT(result_.notices, ElementsAre(HasSubstr("no quendil.log")));
    EXPECT_FALSE(result_.damaged);
}

TEST_F(IGViewScan, KeepsNamesThatLeadOutOfTheArchive) {
    ASSERT_TRUE(scan(ArchiveText()
                         .file("../../etc/x", "")
                         .file("/etc/shadow", "")
                         .file("vm_26", "")
                         .file("vm_26/../../y", "")
                         .end()));
    EXPECT_THAT(names(), ElementsAre("../../etc/x", "/etc/shadow", "vm_26", "vm_26/../../y"));
    ASSERT_TRUE(scan(ArchiveText().directory("vm/").file("vm/../x", "").file("vm2/a", "").end()));
    EXPECT_THAT(names(), ElementsAre("", "../x", "vm2/a"));
}

TEST_F(IGViewScan, TellsWhereACutArchiveEnds) {
    const std::string whole =
        ArchiveText().file("top/a", "A\n").file("top/b", std::string(2000, 'b')).end();
    ASSERT_TRUE(scan(whole.substr(0, 512 * 4)));
    EXPECT_TRUE(result_.damaged);
    EXPECT_THAT(names(), ElementsAre("a", "b"));
    EXPECT_FALSE(result_.items[0].cut);
    EXPECT_TRUE(result_.items[1].cut);
    EXPECT_THAT(result_.notices, testing::Contains(HasSubstr("b could not be read to its end")));
    EXPECT_THAT(result_.notices, testing::Contains(HasSubstr("damaged or cut")));
}

// What a tool would have written after it was stopped is not in its output.
TEST_F(IGViewScan, KnowsItemsWhoseToolsWereStopped) {
    const auto tool = [](const std::string& name, const std::string& message,
                         const std::string& end) {
        return "ZEPA206-I:Information collecting tool start.\n    Command  = \"" + name + "\"\n" +
               message + end + "ZEPA209-I:It copied collecting data = /data/top_1/" + name +
               ". size = 5 bytes.\n";
    };
    const std::string ended = "ZEPA207-I:Information collecting tool end.\n    Return code = 0\n";
    const std::string log =
        "ZEPA201-I:quendil [Ver. 01-02] started at 2026/11/23 16:25:38.\n"
        "ZEPA205-I:Summary of parameters.\n"
        "    Output path of collected information = /data/top_1\n" +
        tool("good", "", ended + "    Status code = 256\n    End time = 2026/11/23 16:25:39\n") +
        tool("late", "ZEPA126-W:Information collecting tool timeout.\n",
             ended + "    Status code = 0\n    End time = 2026/11/23 16:25:40\n") +
        tool("killed", "", ended + "    Status code = 9\n    End time = 2026/11/23 16:25:41\n");
    ASSERT_TRUE(scan(ArchiveText()
                         .file("top_1/good", "text\n")
                         .file("top_1/late", "text\n")
                         .file("top_1/killed", "text\n")
                         .file("top_1/quendil.log", log)
                         .end()));
    EXPECT_FALSE(result_.items[0].stopped);
    EXPECT_TRUE(result_.items[1].stopped);
    EXPECT_TRUE(result_.items[2].stopped);
}

TEST_F(IGViewScan, IsOfNoUseWithoutAMember) {
    EXPECT_FALSE(scan(ArchiveText().file("top/a", "A\n").end().substr(0, 100)));
    EXPECT_FALSE(scan(ArchiveText().end()));
    EXPECT_FALSE(scan(ArchiveText(true).end()));
    EXPECT_FALSE(scan("no archive"));
    EXPECT_FALSE(scan(""));
}

TEST_F(IGViewScan, CountsMembersBeyondTheMostThatItLists) {
    ArchiveText text;
    for (std::size_t number = 0; number < MOST_ITEMS + 3; ++number) {
        text.file("top/" + std::to_string(number), "");
    }
    ASSERT_TRUE(scan(text.end()));
    EXPECT_EQ(result_.items.size(), MOST_ITEMS);
    EXPECT_EQ(result_.omitted, 3U);
    EXPECT_TRUE(result_.damaged);
    EXPECT_THAT(result_.notices, testing::Contains(HasSubstr("3 more members")));
}

TEST_F(IGViewScan, CutsLongNames) {
    ASSERT_TRUE(scan(ArchiveText()
                         .file("top/" + std::string(4092, 'a'), "")
                         .file("top/" + std::string(4093, 'b'), "")
                         .link("top/c", std::string(5000, 'd'))
                         .end()));
    EXPECT_THAT(names(), ElementsAre(std::string(4092, 'a'), std::string(4092, 'b'), "c"));
    EXPECT_EQ(result_.items[2].link_target, std::string(4096, 'd'));
    EXPECT_TRUE(result_.damaged);
    EXPECT_THAT(result_.notices, testing::Contains(HasSubstr("2 names of members or links are")));
}

TEST_F(IGViewScan, CountsMembersWhoseNamesWouldTakeTooMuchMemory) {
    constexpr std::size_t LENGTH = 4000;
    constexpr std::size_t LISTED = 16 * 1024 * 1024 / LENGTH;
    ArchiveText text;
    for (std::size_t number = 0; number < LISTED + 2; ++number) {
        const std::string name = "top/" + std::to_string(number);
        text.file(name + std::string(LENGTH - name.size(), 'x'), "");
    }
    ASSERT_TRUE(scan(text.end()));
    EXPECT_EQ(result_.items.size(), LISTED);
    EXPECT_EQ(result_.omitted, 2U);
    EXPECT_THAT(result_.notices, testing::Contains(HasSubstr("16777216 bytes of names")));
}

TEST_F(IGViewScan, EndsAfterSoManyBytesOfContent) {
    writeText(path("archive"), ArchiveText()
                                   .file("top/quendil.log", "")
                                   .file("top/a", std::string(600, 'a'))
                                   .file("top/b", std::string(600, 'b'))
                                   .file("top/c", "")
                                   .end());
    std::string why;
    const auto archive = openArchive(path("archive"), false, why);
    ASSERT_TRUE(scanArchive(*archive, definitions_, result_, nullptr, 1000));
    EXPECT_THAT(names(), ElementsAre("quendil.log", "a", "b"));
    EXPECT_FALSE(result_.items[1].cut);
    EXPECT_TRUE(result_.items[2].cut);
    EXPECT_TRUE(result_.damaged);
    EXPECT_THAT(result_.notices, ElementsAre(HasSubstr("more than 1000 bytes")));
}

TEST_F(IGViewScan, TakesTheFirstOfMembersWithTheSameName) {
    const std::string begin = "ZEPA201-I:quendil [Ver. 01-02] started at 2026/11/";
    ASSERT_TRUE(scan(ArchiveText()
                         .file("top/a", "1")
                         .file("top/quendil.log",
                               begin + "23 16:25:38.\nZEPA205-I:Summary of parameters.\n"
                                       "    Output path of collected information = /data\n"
                                       "ZEPA206-I:Information collecting tool start.\n"
                                       "ZEPA207-I:Information collecting tool end.\n"
                                       "    End time = 2026/11/23 16:25:38\n"
                                       "ZEPA209-I:It copied collecting data = /data/a. size = 1 "
                                       "bytes.\n")
                         .file("top/a", "2")
                         .file("top/quendil.log", begin + "24 16:25:38.\n")
                         .end()));
    EXPECT_EQ(result_.run.log, 1U);
    EXPECT_EQ(result_.run.started, "2026/11/23 16:25:38");
    ASSERT_EQ(result_.run.tools.size(), 1U);
    EXPECT_EQ(result_.run.tools[0].item, 0U);
}

TEST_F(IGViewScan, IsDamagedIfAFileOfADirectoryCannotBeRead) {
    std::filesystem::create_directories(path("vm_26"));
    writeText(path("vm_26/a"), "A\n");
    ASSERT_EQ(::chmod(path("vm_26/a").c_str(), 0), 0);
    ASSERT_TRUE(scanAsAnotherUser("vm_26"));
    EXPECT_TRUE(result_.damaged);
    EXPECT_TRUE(result_.items[1].cut);
    EXPECT_THAT(result_.notices, testing::Contains("a could not be read to its end: "
                                                   "Permission denied."));
}

TEST_F(IGViewScan, NamesOnlyTheFirstFilesThatCannotBeRead) {
    std::filesystem::create_directories(path("vm_26"));
    for (int number = 0; number < 15; ++number) {
        writeText(path("vm_26/") + std::to_string(number), "");
        ASSERT_EQ(::chmod((path("vm_26/") + std::to_string(number)).c_str(), 0), 0);
    }
    ASSERT_TRUE(scanAsAnotherUser("vm_26"));
    EXPECT_EQ(result_.notices.size(), 11U) << "with one that there is no run log";
}

TEST_F(IGViewScan, ReadsADirectoryThatWasNotPacked) {
    std::filesystem::create_directories(path("vm_26/system"));
    writeText(path("vm_26/system/uname.txt"), "Linux\n");
    ASSERT_TRUE(scanPath("vm_26"));
    EXPECT_EQ(result_.name, "vm_26");
    EXPECT_EQ(result_.form, ResultForm::DIRECTORY);
    EXPECT_THAT(names(), ElementsAre("", "system", "system/uname.txt"));
}

}  // namespace
