#include "ini/IGIniReadCompDef.h"

#include <sys/stat.h>

#include <utility>

#include "../../support/run_fixture.h"
#include "ini/IGIniCtrl.h"
#include "ini/IGIniTable.h"

namespace {

class IGIniReadCompDef : public RunTest {
  protected:
    void SetUp() override {
        RunTest::SetUp();
        file_ = directory_.path("quendil_conf");
    }

    // "DIRECTORY CLEANUP SIZE" of the root table, with "syntax N: " in front when line N was
    // refused.
    std::string read(const std::string& text) {
        writeText(file_, text);
        root_ = IgIniGetCmnRoot(pool());
        Capture errors(stderr);
        const int result = IgIniReadCompDef(file_.c_str(), root_, pool());
        const std::string shown = errors.take();
        EXPECT_EQ(takeLog(), shown);
        return outcome(result, shown) + root_->output_dir + " " +
               (root_->cleanup == CLEANUP_ON ? "ON" : "OFF") + " " +
               std::to_string(root_->max_output_size);
    }

    // The result and messages for the file.
    std::pair<int, std::string> readFile(const std::string& file) {
        root_ = IgIniGetCmnRoot(pool());
        Capture errors(stderr);
        const int result = IgIniReadCompDef(file.c_str(), root_, pool());
        return {result, errors.take()};
    }

    TempDir directory_;
    std::string file_;
    root_tbl* root_ = nullptr;

  private:
    std::string outcome(int result, const std::string& shown) const {
        const std::string before =
            "ZEPA119-E:A syntax error occurred.\nZEPA120-E:filename = " + file_ + ", line no = ";
        if (result == 0 && shown.empty()) {
            return "";
        }
        if (result == -1 && shown.starts_with(before)) {
            return "syntax " + shown.substr(before.size(), shown.size() - before.size() - 2) + ": ";
        }
        return std::to_string(result) + " " + shown;
    }
};

const std::string DEFAULTS = std::string(DATA_DIR) + " OFF -1";

TEST_F(IGIniReadCompDef, ReadsSettingsAndComments) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"", DEFAULTS},
        {"#\n", DEFAULTS},
        {"# one\n#two\n", DEFAULTS},
        {"# without an end", DEFAULTS},
        {"# a \r\n", DEFAULTS},
        {"#" + std::string(1023, 'x') + "\n", DEFAULTS},
        {"QUENDIL_CLEANUP=ON\n", std::string(DATA_DIR) + " ON -1"},
        {"QUENDIL_CLEANUP=OFF\n", DEFAULTS},
        {"QUENDIL_CLEANUP=ON", std::string(DATA_DIR) + " ON -1"},
        {"QUENDIL_MAX_OUTPUT_DATA_SIZE=0\n", std::string(DATA_DIR) + " OFF 0"},
        {"QUENDIL_MAX_OUTPUT_DATA_SIZE=-1\n", DEFAULTS},
        {"QUENDIL_MAX_OUTPUT_DATA_SIZE=1\n", std::string(DATA_DIR) + " OFF 1"},
        {"QUENDIL_MAX_OUTPUT_DATA_SIZE=2147483647\n", std::string(DATA_DIR) + " OFF 2147483647"},
        {"QUENDIL_DATA_DIRECTORY=/data\n", "/data OFF -1"},
        {"QUENDIL_DATA_DIRECTORY=\"/data\"\n", "/data OFF -1"},
        {"QUENDIL_DATA_DIRECTORY=\"/my data\"\n", "/my data OFF -1"},
        {"QUENDIL_DATA_DIRECTORY=/my data \n", "/my data  OFF -1"},
        {"QUENDIL_DATA_DIRECTORY=/data/%HOST%\n", "/data/testhost OFF -1"},
        {"QUENDIL_DATA_DIRECTORY=/data/100%%\n", "/data/100% OFF -1"},
        {"QUENDIL_DATA_DIRECTORY=%d%/data\n", "/data OFF -1"},
        {"QUENDIL_DATA_DIRECTORY=/a=b\n", "/a=b OFF -1"},
        {"QUENDIL_DATA_DIRECTORY=/data/link/../%HOST%/.//\n", "/data/testhost OFF -1"},
        {"QUENDIL_DATA_DIRECTORY=/a\"b\n", "/a\"b OFF -1"},
        {"QUENDIL_MAX_OUTPUT_DATA_SIZE=7\n# c\nQUENDIL_DATA_DIRECTORY=/d\nQUENDIL_CLEANUP=ON\n",
         "/d ON 7"},
    };
    for (const auto& [text, expected] : cases) {
        EXPECT_EQ(read(text), expected) << text;
    }
}

TEST_F(IGIniReadCompDef, RefusesEverythingElse) {
    const std::vector<std::string> lines = {
        "",
        " ",
        " # comment",
        " QUENDIL_CLEANUP=ON",
        "QUENDIL_CLEANUP",
        "QUENDIL_CLEANUP=",
        "QUENDIL_CLEANUP= ON",
        "QUENDIL_CLEANUP =ON",
        "QUENDIL_CLEANUP=ON ",
        "QUENDIL_CLEANUP=on",
        "QUENDIL_CLEANUP=On",
        "QUENDIL_CLEANUP=OFFF",
        "QUENDIL_CLEANUP=\"ON\"",
        "QUENDIL_CLEANUP=ON\r",
        "quendil_cleanup=ON",
        "Quendil_cleanup=ON",
        "QUENDIL_CLEANUPS=ON",
        "QUENDIL_CLEAN=ON",
        "QUENDIL=ON",
        "Q",
        "=ON",
        "CLEANUP=ON",
        "QUENDIL_MAX_OUTPUT_DATA_SIZE=007",
        "QUENDIL_MAX_OUTPUT_DATA_SIZE=-2",
        "QUENDIL_MAX_OUTPUT_DATA_SIZE=+5",
        "QUENDIL_MAX_OUTPUT_DATA_SIZE=-0",
        "QUENDIL_MAX_OUTPUT_DATA_SIZE=-",
        "QUENDIL_MAX_OUTPUT_DATA_SIZE=5k",
        "QUENDIL_MAX_OUTPUT_DATA_SIZE=5 ",
        "QUENDIL_MAX_OUTPUT_DATA_SIZE=0x10",
        "QUENDIL_MAX_OUTPUT_DATA_SIZE=1.5",
        "QUENDIL_MAX_OUTPUT_DATA_SIZE=2147483648",
        "QUENDIL_MAX_OUTPUT_DATA_SIZE=4294967295",
        "QUENDIL_MAX_OUTPUT_DATA_SIZE=18446744073709551615",
        "QUENDIL_MAX_OUTPUT_DATA_SIZE=-18446744073709551617",
        "QUENDIL_DATA_DIRECTORY=data",
        "QUENDIL_DATA_DIRECTORY=./data",
        "QUENDIL_DATA_DIRECTORY=\"\"",
        "QUENDIL_DATA_DIRECTORY=\"data\"",
        "QUENDIL_DATA_DIRECTORY=\"/data",
        "QUENDIL_DATA_DIRECTORY=%HOST%/data",
        "QUENDIL_DATA_DIRECTORY=/%FOO%",
        "QUENDIL_DATA_DIRECTORY=/%reg0%",
        "QUENDIL_DATA_DIRECTORY=/50%",
        "QUENDIL_DATA_DIRECTORY=%d%",
    };
    for (const std::string& line : lines) {
        // The lines before it are used, those after it are not read.
        EXPECT_EQ(read("# first\n" + line + "\nQUENDIL_DATA_DIRECTORY=/x\n"),
                  "syntax 2: " + DEFAULTS)
            << line;
        const bool other = line.find("MAX_OUTPUT") == std::string::npos;
        EXPECT_EQ(read((other ? "QUENDIL_MAX_OUTPUT_DATA_SIZE=5\n" : "QUENDIL_CLEANUP=ON\n") +
                       line + "\n"),
                  "syntax 2: " + std::string(DATA_DIR) + (other ? " OFF 5" : " ON -1"))
            << line;
    }
}

TEST_F(IGIniReadCompDef, UsesNothingOfAFileWithAForbiddenCharacter) {
    const std::vector<std::string> lines = {"#\ttab",
                                            "QUENDIL_CLEANUP=ON\t",
                                            "\t",
                                            "# \xc3\xa4",
                                            "# \xff",
                                            "# \v",
                                            "# \f",
                                            "# \x01",
                                            "# \x7f",
                                            std::string("# \0 NUL", 7),
                                            "QUENDIL_DATA_DIRECTORY=/\xc3\xa4",
                                            std::string("QUENDIL_CLEANUP=ON\0", 19)};
    for (const std::string& line : lines) {
        EXPECT_EQ(read("QUENDIL_MAX_OUTPUT_DATA_SIZE=5\n" + line + "\n"), "syntax 2: " + DEFAULTS)
            << line;
    }
}

TEST_F(IGIniReadCompDef, RefusesAKeyGivenTwiceAtItsSecondLine) {
    EXPECT_EQ(read("QUENDIL_CLEANUP=ON\nQUENDIL_CLEANUP=OFF\n"),
              "syntax 2: " + std::string(DATA_DIR) + " ON -1");
    EXPECT_EQ(read("QUENDIL_DATA_DIRECTORY=/a\n#\nQUENDIL_DATA_DIRECTORY=/a\n"),
              "syntax 3: /a OFF -1");
    EXPECT_EQ(read("QUENDIL_MAX_OUTPUT_DATA_SIZE=1\nQUENDIL_MAX_OUTPUT_DATA_SIZE=2\n"),
              "syntax 2: " + std::string(DATA_DIR) + " OFF 1");
}

TEST_F(IGIniReadCompDef, LimitsALineTo1024Bytes) {
    EXPECT_EQ(read("#" + std::string(1024, 'x') + "\n"), "syntax 1: " + DEFAULTS);
    EXPECT_EQ(read("#" + std::string(1023, 'x') + "\n#" + std::string(1025, 'x') + "\n"),
              "syntax 2: " + DEFAULTS);
    EXPECT_EQ(read("#" + std::string(5000, 'x') + "\n"), "syntax 1: " + DEFAULTS);
    EXPECT_EQ(read("#" + std::string(1023, 'x')), DEFAULTS);
    EXPECT_EQ(read("#" + std::string(1024, 'x')), "syntax 1: " + DEFAULTS);
}

TEST_F(IGIniReadCompDef, LimitsTheDirectoryBeforeAndAfterExpansion) {
    const std::string key = "QUENDIL_DATA_DIRECTORY=";
    const std::string full = "/" + std::string(259, 'd');
    EXPECT_EQ(read(key + full + "\n"), full + " OFF -1");
    EXPECT_EQ(read(key + full + "d\n"), "syntax 1: " + DEFAULTS);
    EXPECT_EQ(read(key + "\"/" + std::string(257, 'd') + "\"\n"),
              "/" + std::string(257, 'd') + " OFF -1");
    EXPECT_EQ(read(key + "\"/" + std::string(258, 'd') + "\"\n"), "syntax 1: " + DEFAULTS);
    const std::string percent = "/" + std::string(258, '%');
    EXPECT_EQ(read(key + percent + "\n"), "/" + std::string(129, '%') + " OFF -1");
    // %HOST% has 6 bytes and expands to 8.
    EXPECT_EQ(read(key + "/" + std::string(251, 'd') + "%HOST%\n"),
              "/" + std::string(251, 'd') + "testhost OFF -1");
    EXPECT_EQ(read(key + "/" + std::string(252, 'd') + "%HOST%\n"), "syntax 1: " + DEFAULTS);
}

TEST_F(IGIniReadCompDef, DoesNotCheckWhetherTheDirectoryExists) {
    EXPECT_EQ(read("QUENDIL_DATA_DIRECTORY=/no/where\n"), "/no/where OFF -1");
}

TEST_F(IGIniReadCompDef, ReportsAFileThatCannotBeOpened) {
    EXPECT_EQ(readFile(directory_.path()),
              (std::pair<int, std::string>{-1, "ZEPA106-E:The specified configuration file(" +
                                                   directory_.path() + ") does not exist.\n"}));
    EXPECT_EQ(readFile(file_),
              (std::pair<int, std::string>{
                  -1, "ZEPA118-E:A configuration file(" + file_ + ") does not exist.\n"}));
    std::filesystem::create_symlink(file_, file_);  // a link to itself
    EXPECT_EQ(readFile(file_),
              (std::pair<int, std::string>{
                  -1, "ZEPA112-E:You do not have access permissions for the specified file(" +
                          file_ + ").\n"}));
    writeText(directory_.path("file"), "");
    const std::string below = directory_.path("file/conf");
    EXPECT_EQ(readFile(below),
              (std::pair<int, std::string>{
                  -1, "ZEPA112-E:You do not have access permissions for the specified file(" +
                          below + ").\n"}));
}

TEST_F(IGIniReadCompDef, KeepsNoDescriptor) {
    const std::size_t before = openDescriptors();
    EXPECT_EQ(read("#\n"), DEFAULTS);
    EXPECT_EQ(read("x\n"), "syntax 1: " + DEFAULTS);
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(IGIniReadCompDef, AssertsItsArgumentsAreNotNull) {
    root_tbl* root = IgIniGetCmnRoot(pool());
    EXPECT_DEATH(IgIniReadCompDef(nullptr, root, pool()), "compdef_file != \\(\\(void \\*\\)0\\)");
    EXPECT_DEATH(IgIniReadCompDef("/x", nullptr, pool()), "root_tbl != \\(\\(void \\*\\)0\\)");
    EXPECT_DEATH(IgIniReadCompDef("/x", root, nullptr), "memoryp != \\(\\(void \\*\\)0\\)");
}

}  // namespace
