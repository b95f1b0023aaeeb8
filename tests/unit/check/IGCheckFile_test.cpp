#include "check/IGCheckFile.h"

#include <string>
#include <vector>

#include "../../support/file_fixture.h"
#include "check/IGCheckFinding.h"
#include "ini/IGCmnReplaceStr.h"
#include "ini/IGIniTable.h"

namespace {

class IGCheckFile : public FileTest {
  protected:
    // The findings of a text, such as "2:13 value-blank".
    std::vector<std::string> check(const std::string& text, FileKind kind = FileKind::PATTERN) {
        writeText(path("file"), text);
        root_ = newFromPool<root_tbl>(pool_.get());
        EXPECT_EQ(IgCmnSpecialStrInit(root_, pool_.get()), 0);
        file_ = std::make_unique<CheckedFile>();
        file_->name = "file";
        file_->kind = kind;
        std::string reason;
        EXPECT_TRUE(file_->source.open(path("file").c_str()));
        EXPECT_TRUE(readChecked(*file_, *root_, reason)) << reason;
        file_->settle();
        std::vector<std::string> found;
        for (const Finding& finding : file_->findings) {
            found.push_back(std::to_string(finding.place.line) + ":" +
                            std::to_string(finding.place.column) + " " + finding.rule->name);
        }
        return found;
    }

    LocalPool pool_;
    root_tbl* root_ = nullptr;
    std::unique_ptr<CheckedFile> file_;
};

using Found = std::vector<std::string>;

// A good file with one line in another form. The lines are counted from 1.
std::string withLine(std::size_t number, const std::string& line) {
    std::vector<std::string> lines{"FORMAT_VERSION = 1.0",
                                   "PP_NAME = Demo",
                                   "PP_GROUP = demo",
                                   "BLOCK {",
                                   "    TARGET = demo",
                                   "    TOOL_BLOCK {",
                                   "        TIMEOUT = 10",
                                   "        COMMAND_LINE = /bin/true",
                                   "    }",
                                   "    DATA_BLOCK {",
                                   "        PATH_NAME = /etc/x",
                                   "        DESCRIPTION = \"A b\"",
                                   "    }",
                                   "}"};
    lines.at(number - 1) = line;
    std::string text;
    for (const std::string& each : lines) {
        text += each + "\n";
    }
    return text;
}

TEST_F(IGCheckFile, SaysOneThingAboutOneMistake) {
    struct Case {
        std::size_t line;
        const char* text;
        const char* found;
    };
    const std::vector<Case> cases{
        {1, "FORMAT_VERSION = 1", "1:18 format-version-invalid"},
        {1, "FORMAT_VERSION 1.0", "1:16 equal-missing"},
        {1, "FORMATVERSION = 1.0", "1:1 keyword-unknown"},
        {1,
         "\xef\xbb\xbf"
         "FORMAT_VERSION = 1.0",
         "1:1 character-invalid"},
        {1, "FORMAT_VERSION = 2.0", "1:18 format-version-newer"},
        {1, "", "2:1 format-version-first"},
        {2, "PP_NAME = My demo", "2:13 value-blank"},
        {2, "PP_NAME = \"Demo", "2:11 quote-unclosed"},
        {2, "PP_NAME = \"Demo\" x", "2:17 value-blank"},
        {2, "PP_NAME: Demo", "2:1 keyword-unknown"},
        {2, "PP_NAME == Demo", "2:10 value-mark"},
        {2, "PP_NAME = Demo#1", "3:1 comment-joined"},
        {2, "NAME = Demo", "2:1 keyword-unknown"},
        {2, "TARGET = x", "2:1 keyword-misplaced"},
        {2, "REG1 = x", "2:1 keyword-reserved"},
        {9, "", "10:5 block-open"},
        {12, "        DESCRIPTION = x }\n    DATA_BLOCK {\n PATH_NAME = /z", "12:24 value-blank"},
        {9, "    }\n    }", "11:5 keyword-misplaced"},
        {2, "PP_VRS = 1.0.0.0.0.0", "2:10 value-too-long"},
        {2, "PP_NAME = 100%", "2:14 special-string-unclosed"},
        {2, "PP_NAME = %Host%", "2:11 special-string-unknown"},
        {2, "\"PP_NAME\" = x", "2:1 statement-invalid"},
        {3, "PP_NAME = Again", "3:1 keyword-repeated"},
        {4, "BLOCK", "5:5 brace-missing"},
        {4, "BLOCK = {", "4:7 brace-missing"},
        {4, "BLOCK { # x", "4:9 brace-text"},
        {4, "BLOCK {{", "4:8 brace-repeated"},
        {4, "BLOK {", "4:1 keyword-unknown"},
        {4, "BLOK {\n# BLOCK {\nPP_NAME = \"x {\"", "4:1 keyword-unknown"},
        {5, "    PP_GROUP = demo", "5:5 keyword-misplaced"},
        {6, "    TOOL_BLOCK", "7:9 brace-missing"},
        {6, "    TOOLBLOCK {", "6:5 keyword-unknown"},
        {7, "        TIMEOUT = 10s", "7:19 number-invalid"},
        {7, "        TIMEOUT = 99999", "7:19 number-range"},
        {7, "        TIMEOUT = 99999999999999999999", "7:19 number-range"},
        {7, "        PATH_NAME = /x", "7:9 keyword-misplaced"},
        {8, "        COMMAND_LINE = true", "8:24 path-relative"},
        {8, "        COMMAND_LINE = /bin/true -a", "8:33 value-blank"},
        {8, "        COMMAND = /bin/true", "8:9 keyword-unknown"},
        {8, "", "9:5 command-line-missing"},
        {9, "    } # end", ""},
        {10, "    DATA_BLOCK { PATH_NAME = /y }\n    DATA_BLOCK {", "10:18 brace-text"},
        {10, "    DATA_BLOCK { }\n    DATA_BLOCK {", "10:18 brace-text"},
        {11, "        PATH_NAME =", "11:20 value-empty"},
        {11, "", "13:5 path-name-missing"},
        {12,
         "        DESCRIPTION = \"gr\xc3\xb6\xc3\x9f"
         "er\"",
         "12:26 character-invalid"},
        {13, "    }}", "14:1 brace-unexpected"},
        {14, "", "14:1 block-unclosed"},
        {14, "}}", "14:2 brace-unexpected"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        Found found = check(withLine(c.line, c.text));
        // What follows from a file that stays open after a missing brace is said, too.
        const Found expected = *c.found == '\0' ? Found{} : Found{c.found};
        EXPECT_THAT(found, ::testing::ElementsAreArray(expected));
    }
}

TEST_F(IGCheckFile, FindsEveryMistake) {
    EXPECT_THAT(
        check("FORMAT_VERSION = 1.0\nPP_NAME = a b\nX = y\nBLOCK {\nTOOL_BLOCK {\n"
              "TIMEOUT = x\nCOMMAND_LINE = y\nTIMEOUT = 1\n}\nDATA_BLOCK {\n}\n}\n"),
        ::testing::ElementsAre("2:12 value-blank", "3:1 keyword-unknown", "6:11 number-invalid",
                               "7:16 path-relative", "11:1 path-name-missing"));
}

TEST_F(IGCheckFile, ReadsTheLineAfterAMissingBraceAgain) {
    EXPECT_THAT(check("FORMAT_VERSION = 1.0\nBLOCK\nTOOL_BLOCK {\nCOMMAND_LINE = /x\n}\n}\n"),
                ::testing::ElementsAre("3:1 brace-missing"));
}

TEST_F(IGCheckFile, CountsCharactersAndCarriageReturns) {
    EXPECT_THAT(check("FORMAT_VERSION = 1.0\r\n\r\n\tPP_NAME = a b\r\nBLOCK {\r\n}\r\n"),
                ::testing::ElementsAre("3:13 value-blank"));
    EXPECT_THAT(check("FORMAT_VERSION = 1.0\n\r\rPP_NAME = a b\nBLOCK {\n}\n"),
                ::testing::ElementsAre("2:14 value-blank"));
}

TEST_F(IGCheckFile, KeepsThePlaceOfEveryValue) {
    EXPECT_EQ(check(withLine(2, "pp_name   =   \"De\"mo # x")), Found{});
    ASSERT_EQ(file_->values.size(), 3U);
    EXPECT_EQ(file_->values[1].keyword, "PP_NAME");
    EXPECT_EQ(file_->values[1].value, "Demo");
    EXPECT_EQ(file_->values[1].keyword_place.column, 1);
    EXPECT_EQ(file_->values[1].place.line, 2);
    EXPECT_EQ(file_->values[1].place.column, 15);
    ASSERT_EQ(file_->blocks.size(), 1U);
    EXPECT_EQ(file_->blocks[0].values.size(), 1U);
    ASSERT_EQ(file_->blocks[0].items.size(), 2U);
    EXPECT_EQ(file_->blocks[0].items[1].place.line, 10);
    const PlacedValue* path_name = file_->blocks[0].items[1].find("PATH_NAME");
    ASSERT_NE(path_name, nullptr);
    EXPECT_EQ(path_name->value, "/etc/x");
    EXPECT_EQ(file_->blocks[0].items[1].find("TIMEOUT"), nullptr);
}

TEST_F(IGCheckFile, StopsAfterAHundredFindings) {
    std::string text = "FORMAT_VERSION = 1.0\n";
    for (int i = 0; i < 300; ++i) {
        text += "x\n";
    }
    EXPECT_EQ(check(text).size(), MOST_FINDINGS);
}

TEST_F(IGCheckFile, ReadsTheRestOfAConfigurationAfterAMistake) {
    EXPECT_THAT(
        check(std::string(3000, '#') + "\nQUENDIL_CLEANUP=on\n\nQUENDIL_CLEANUP=OFF\n",
              FileKind::CONFIGURATION),
        ::testing::ElementsAre("1:1025 line-too-long", "2:17 switch-invalid", "3:1 line-empty"));
    EXPECT_EQ(root_->cleanup, CLEANUP_OFF);
}

}  // namespace
