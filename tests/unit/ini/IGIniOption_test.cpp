#include "ini/IGIniOption.h"

#include <sys/stat.h>

#include <utility>

#include "../../support/run_fixture.h"
#include "common/base/IGCmnList.h"
#include "common/base/IGRunState.h"
#include "ini/IGIniCtrl.h"
#include "ini/IGIniTable.h"

namespace {

std::string invalid(const std::string& option) {
    return "ZEPA101-E:The specified option(" + option + ") is invalid.\n";
}
std::string needsArgument(const std::string& option) {
    return "ZEPA102-E:The specified option(" + option + ") requires an argument.\n";
}
std::string noDirectory(const std::string& directory) {
    return "ZEPA104-E:The specified directory(" + directory + ") does not exist.\n";
}
std::string notWritable(const std::string& directory) {
    return "ZEPA105-E:You do not have write permissions for the specified directory(" + directory +
           ").\n";
}
std::string noConfig(const std::string& file) {
    return "ZEPA106-E:The specified configuration file(" + file + ") does not exist.\n";
}
std::string twice(const std::string& option) {
    return "ZEPA107-W:The specified option(" + option + ") cannot be specified twice or more.\n";
}
std::string tooLong(const std::string& option) {
    return "ZEPA108-E:The specified argument of the option(" + option + ") is too long.\n";
}
std::string exists(const std::string& file) {
    return "ZEPA109-E:The specified file(" + file + ") already exists.\n";
}
std::string notReadable(const std::string& file) {
    return "ZEPA112-E:You do not have access permissions for the specified file(" + file + ").\n";
}
std::string notAbsolute(const std::string& file) {
    return "ZEPA144-E:The specified output file(" + file + ") must be absolute path name.\n";
}
const std::string NOTHING_SELECTED = "ZEPA115-E:A required option is not specified.\n";

class IGIniOption : public RunTest {
  protected:
    void SetUp() override {
        RunTest::SetUp();
        root_ = IgIniGetCmnRoot(pool());
        ASSERT_NE(root_, nullptr);
    }

    // The result and the text on the standard error, which the run log must hold too.
    std::pair<int, std::string> parse(std::vector<std::string> options) {
        options.insert(options.begin(), "quendil");
        root_ = IgIniGetCmnRoot(pool());
        ::Arguments arguments(options);
        Capture errors(stderr);
        const int result = IgIniOption(arguments.count(), arguments.vector(), pool(), root_);
        const std::string shown = errors.take();
        EXPECT_EQ(takeLog(), shown);
        return {result, shown};
    }

    static std::pair<int, std::string> good(const std::string& shown = "") { return {0, shown}; }
    static std::pair<int, std::string> bad(const std::string& shown) {
        return {OPTION_ERROR, shown};
    }

    TempDir directory_;
    root_tbl* root_ = nullptr;
};

TEST_F(IGIniOption, FindsAnArgumentAnywhere) {
    ::Arguments arguments({"-h", "-t", "-x", "a-h"});
    EXPECT_EQ(IgIniCkOption(4, arguments.vector(), "-h"), 1);  // the command's own name counts
    EXPECT_EQ(IgIniCkOption(4, arguments.vector(), "-x"), 1);
    EXPECT_EQ(IgIniCkOption(2, arguments.vector(), "-x"), 0);
    EXPECT_EQ(IgIniCkOption(4, arguments.vector(), "-H"), 0);
    EXPECT_EQ(IgIniCkOption(4, arguments.vector(), "-"), 0);
    EXPECT_EQ(IgIniCkOption(0, arguments.vector(), "-h"), 0);
}

TEST_F(IGIniOption, PrintsTheUsageForEitherSpellingOfHelp) {
    run_state.cmd_name = "quendil";
    const std::string usage =
        "quendil [Ver. 01-02]\n\nusage:\tquendil\t{ -g pp_group | -t target } ...\n"
        "\t\t[ -c configfile ] [ -d directory ] [ -o output_file ]\n\tquendil\t-h\n\n";
    for (const std::vector<std::string>& line :
         std::vector<std::vector<std::string>>{{"quendil", "-h"},
                                               {"quendil", "-H"},
                                               {"quendil", "-t", "-h"},
                                               {"quendil", "-t", "a", "-h"},
                                               {"quendil", "-bad", "-H"}}) {
        ::Arguments arguments(line);
        Capture output(stdout);
        const int result = IgIniCkHelp(arguments.count(), arguments.vector());
        EXPECT_EQ(output.take(), usage);
        EXPECT_EQ(result, OPTION_HELP);
    }
    ::Arguments arguments({"quendil", "-help", "--h", "h", "-t"});
    Capture output(stdout);
    const int result = IgIniCkHelp(arguments.count(), arguments.vector());
    EXPECT_EQ(output.take(), "");
    EXPECT_EQ(result, 0);
}

TEST_F(IGIniOption, CollectsTargetsAndGroupsInOrder) {
    EXPECT_EQ(parse({"-t", "a", "-G", "g1", "-T", "b c", "-g", "g2", "-t", "a"}), good());
    EXPECT_THAT(strings(root_->opt_target), ::testing::ElementsAre("a", "b c", "a"));
    EXPECT_THAT(strings(root_->opt_group), ::testing::ElementsAre("g1", "g2"));
    EXPECT_EQ(root_->target, nullptr);
    EXPECT_EQ(root_->pp_group, nullptr);
    EXPECT_EQ(root_->output_file, std::string(root_->output_name));
    EXPECT_STREQ(root_->output_dir, DATA_DIR);
    EXPECT_EQ(root_->opt_config, nullptr);
    EXPECT_EQ(parse({"-g", "only"}), good());
    EXPECT_EQ(root_->opt_target, nullptr);
    EXPECT_EQ(parse({"-t", ""}), good());
    EXPECT_THAT(strings(root_->opt_target), ::testing::ElementsAre(""));
}

TEST_F(IGIniOption, RefusesUnknownOptionsAndMissingValues) {
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{"a"}, invalid("a")},
        {{""}, invalid("")},
        {{"-"}, invalid("-")},
        {{"--"}, invalid("--")},
        {{"-x"}, invalid("-x")},
        {{"-gweb"}, invalid("-gweb")},
        {{"-g=web"}, invalid("-g=web")},
        {{"--target", "a"}, invalid("--target")},
        {{"-t", "a", "b"}, invalid("b")},
        {{"-t", "a", "-x", "b"}, invalid("-x")},
        {{"-g"}, needsArgument("-g")},
        {{"-G"}, needsArgument("-G")},
        {{"-t"}, needsArgument("-t")},
        {{"-T"}, needsArgument("-T")},
        {{"-d"}, needsArgument("-d")},
        {{"-D"}, needsArgument("-D")},
        {{"-o"}, needsArgument("-o")},
        {{"-O"}, needsArgument("-O")},
        {{"-c"}, needsArgument("-c")},
        {{"-C"}, needsArgument("-C")},
        {{"-t", "a", "-g"}, needsArgument("-g")},
        {{"-g", "-t", "a"}, needsArgument("-g")},
        {{"-t", "-"}, needsArgument("-t")},
        {{"-d", "-x"}, needsArgument("-d")},
        {{"-O", "-x"}, needsArgument("-O")},
        {{"-c", "--"}, needsArgument("-c")},
        {{"-g", "-" + std::string(300, 'x')}, needsArgument("-g")},
        {{}, NOTHING_SELECTED},
        {{"-c", CONFIG_FILE}, NOTHING_SELECTED},
        {{"-d", "/nowhere", "-o", "/nowhere/x"}, NOTHING_SELECTED},
    };
    for (const auto& [line, message] : cases) {
        SCOPED_TRACE(message);
        EXPECT_EQ(parse(line), bad(message));
    }
}

TEST_F(IGIniOption, LimitsAValueInBytes) {
    const std::string text256(256, 'v');
    const std::string umlauts = [] {
        std::string text;
        for (int i = 0; i < 128; ++i) {
            text += "\xc3\xa4";
        }
        return text;
    }();
    for (const std::string option : {"-t", "-T", "-g", "-G"}) {
        EXPECT_EQ(parse({option, text256}), good());
        EXPECT_EQ(parse({option, umlauts}), good());
        EXPECT_EQ(parse({option, text256 + "v"}), bad(tooLong(option)));
        EXPECT_EQ(parse({option, umlauts + "v"}), bad(tooLong(option)));
    }
    const auto path = [](std::size_t length) {
        return "/" + std::string(100, 'a') + "/" + std::string(length - 102, 'b');
    };
    for (const std::string option : {"-d", "-D"}) {
        EXPECT_EQ(parse({"-t", "a", option, path(260)}), bad(noDirectory(path(260))));
        EXPECT_EQ(parse({"-t", "a", option, path(261)}), bad(tooLong(option)));
    }
    for (const std::string option : {"-o", "-O"}) {
        EXPECT_EQ(parse({"-t", "a", option, path(260)}),
                  bad(noDirectory("/" + std::string(100, 'a'))));
        EXPECT_EQ(parse({"-t", "a", option, path(261)}), bad(tooLong(option)));
    }
    for (const std::string option : {"-c", "-C"}) {
        EXPECT_EQ(parse({"-t", "a", option, path(260)}), bad(noConfig(path(260))));
        EXPECT_EQ(parse({"-t", "a", option, path(261)}), bad(tooLong(option)));
    }
}

TEST_F(IGIniOption, MakesTheDirectoryAbsolute) {
    const std::string path = directory_.path("out");
    std::filesystem::create_directory(path);
    EXPECT_EQ(parse({"-t", "a", "-d", path}), good());
    EXPECT_EQ(root_->output_dir, path);
    EXPECT_EQ(root_->opt_directory, path);
    EXPECT_EQ(parse({"-t", "a", "-D", directory_.path() + "//./x/../out/"}), good());
    EXPECT_EQ(root_->output_dir, path);

    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(directory_.path());
    EXPECT_EQ(parse({"-t", "a", "-d", "out"}), good());
    EXPECT_EQ(root_->output_dir, path);
    EXPECT_EQ(parse({"-t", "a", "-d", "none"}), bad(noDirectory("none")));  // as it was given
    std::filesystem::current_path(before);
}

TEST_F(IGIniOption, RequiresADirectoryThatItsOwnerMayWriteToAndEnter) {
    const std::string path = directory_.path("out");
    std::filesystem::create_directory(path);
    const std::vector<std::pair<mode_t, bool>> modes = {{0700, true},  {0300, true},  {0500, false},
                                                        {0600, false}, {0400, false}, {0077, false},
                                                        {0000, false}, {0777, true}};
    for (const auto& [mode, writable] : modes) {
        ASSERT_EQ(::chmod(path.c_str(), mode), 0);
        EXPECT_EQ(parse({"-t", "a", "-d", path}), writable ? good() : bad(notWritable(path)))
            << std::oct << mode;
    }
    const std::string file = directory_.path("file");
    writeText(file, "");
    EXPECT_EQ(parse({"-t", "a", "-d", file}), bad(noDirectory(file)));
    EXPECT_EQ(parse({"-t", "a", "-d", file + "/x"}), bad(noDirectory(file + "/x")));
}

TEST_F(IGIniOption, WarnsOfASecondValueAndUsesTheLast) {
    const std::string one = directory_.path("one");
    const std::string two = directory_.path("two");
    std::filesystem::create_directory(one);
    std::filesystem::create_directory(two);
    EXPECT_EQ(parse({"-d", one, "-t", "a", "-d", two}), good(twice("-d")));
    EXPECT_EQ(root_->output_dir, two);
    EXPECT_EQ(parse({"-t", "a", "-d", one, "-D", two, "-d", one}), good(twice("-D") + twice("-d")));
    EXPECT_EQ(parse({"-t", "a", "-d", "/none", "-d", two}), good(twice("-d")));

    EXPECT_EQ(parse({"-t", "a", "-o", one + "/x", "-O", two + "/y"}), good(twice("-O")));
    EXPECT_EQ(root_->output_file, two + "/y");
    EXPECT_EQ(parse({"-t", "a", "-o", one + "/x", "-o", "y"}), bad(twice("-o") + notAbsolute("y")));

    const std::string config = directory_.path("conf");
    writeText(config, "");
    EXPECT_EQ(parse({"-t", "a", "-c", "/none", "-c", config}), good(twice("-c")));
    EXPECT_EQ(root_->opt_config, config);
}

TEST_F(IGIniOption, RequiresAFreeAbsoluteOutputFile) {
    const std::string path = directory_.path("out");
    EXPECT_EQ(parse({"-t", "a", "-o", path}), good());
    EXPECT_EQ(root_->output_file, path);
    EXPECT_EQ(root_->opt_output_file, path);
    EXPECT_EQ(root_->output_name, "testhost_" + std::string(root_->output_name).substr(9));
    EXPECT_STREQ(root_->output_dir, DATA_DIR);

    EXPECT_EQ(parse({"-t", "a", "-o", "/in_the_root"}), good());
    EXPECT_EQ(parse({"-t", "a", "-o", directory_.path() + "/./x"}), good());
    EXPECT_EQ(root_->output_file, directory_.path() + "/./x");  // as given

    EXPECT_EQ(parse({"-t", "a", "-o", "out"}), bad(notAbsolute("out")));
    EXPECT_EQ(parse({"-t", "a", "-o", "./out"}), bad(notAbsolute("./out")));
    EXPECT_EQ(parse({"-t", "a", "-o", ""}), bad(notAbsolute("")));
    EXPECT_EQ(parse({"-t", "a", "-o", "%d%/out"}), bad(notAbsolute("%d%/out")));
    EXPECT_EQ(parse({"-t", "a", "-o", "/"}), bad(notAbsolute("/")));
    EXPECT_EQ(parse({"-t", "a", "-o", path + "/"}), bad(notAbsolute(path + "/")));
    EXPECT_EQ(parse({"-t", "a", "-o", "/none/out"}), bad(noDirectory("/none")));
    EXPECT_EQ(parse({"-t", "a", "-o", directory_.path()}), bad(exists(directory_.path())));

    writeText(path + ".tar.gz", "");
    EXPECT_EQ(parse({"-t", "a", "-o", path}), bad(exists(path + ".tar.gz")));
    EXPECT_EQ(parse({"-t", "a", "-o", directory_.path() + "/./x/../out"}),
              bad(noDirectory(directory_.path() + "/./x/..")));
    EXPECT_EQ(parse({"-t", "a", "-o", directory_.path() + "//out"}),
              bad(exists(path + ".tar.gz")));  // the absolute name
    writeText(path + ".tar", "");
    EXPECT_EQ(parse({"-t", "a", "-o", path}), bad(exists(path + ".tar")));
    writeText(path, "");
    EXPECT_EQ(parse({"-t", "a", "-o", path}), bad(exists(path)));
    EXPECT_EQ(parse({"-t", "a", "-o", path + "/x"}), bad(noDirectory(path)));
}

TEST_F(IGIniOption, ReportsAnOutputFileThatTheLocaleCannotDecode) {
    ::Arguments arguments({"quendil", "-t", "a", "-o", "/\xff"});
    Capture errors(stderr);
    EXPECT_EQ(IgIniOption(arguments.count(), arguments.vector(), pool(), root_), -1);
    EXPECT_EQ(takeLog(),
              "ZEPA113-E:An error occurred during the following system call. system call name = "
              "mbstowcs, error code = 84, msg = Invalid or incomplete multibyte or wide "
              "character.\nZEPA114-E:source = IGCmnStr, line no = N.\n");
}

TEST_F(IGIniOption, RequiresAReadableConfigurationFile) {
    const std::string path = directory_.path("conf");
    EXPECT_EQ(parse({"-t", "a", "-c", path}), bad(noConfig(path)));
    EXPECT_EQ(parse({"-t", "a", "-c", directory_.path()}), bad(noConfig(directory_.path())));
    writeText(path, "");
    EXPECT_EQ(parse({"-t", "a", "-c", path}), good());
    EXPECT_EQ(root_->opt_config, path);
    EXPECT_EQ(parse({"-t", "a", "-C", directory_.path() + "/x/..//conf"}), good());
    EXPECT_EQ(root_->opt_config, path);
    ASSERT_EQ(::chmod(path.c_str(), 0277), 0);
    EXPECT_EQ(parse({"-t", "a", "-c", path}), bad(notReadable(path)));
    ASSERT_EQ(::chmod(path.c_str(), 0400), 0);
    EXPECT_EQ(parse({"-t", "a", "-c", path}), good());

    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(directory_.path());
    EXPECT_EQ(parse({"-t", "a", "-c", "conf"}), good());
    EXPECT_EQ(root_->opt_config, path);
    EXPECT_EQ(parse({"-t", "a", "-c", "none"}), bad(noConfig("none")));
    std::filesystem::current_path(before);
}

TEST_F(IGIniOption, StopsAtTheFirstErrorInOrder) {
    const std::string none = directory_.path("none");
    EXPECT_EQ(parse({"-c", none, "-o", none + "/x", "-d", none, "-t", "a"}),
              bad(noDirectory(none)));
    EXPECT_EQ(parse({"-c", none, "-o", none + "/x", "-t", "a"}), bad(noDirectory(none)));
    EXPECT_EQ(parse({"-o", "x", "-t"}), bad(notAbsolute("x")));
    EXPECT_EQ(parse({"-t", std::string(257, 'x'), "-x"}), bad(tooLong("-t")));
}

TEST_F(IGIniOption, AppendsAValueToANewOrExistingList) {
    IgCmnListHeader* list = nullptr;
    EXPECT_EQ(setCollectOptValue("-g", "a", pool(), &list, root_), 0);
    EXPECT_EQ(setCollectOptValue("-g", "b", pool(), &list, root_), 0);
    EXPECT_THAT(strings(list), ::testing::ElementsAre("a", "b"));
    Capture errors(stderr);
    const int result = setCollectOptValue("-G", "-c", pool(), &list, root_);
    EXPECT_EQ(errors.take(), needsArgument("-G"));
    EXPECT_EQ(result, OPTION_ERROR);
    EXPECT_EQ(list->count, 2U);
}

TEST_F(IGIniOption, AssertsItsArgumentsAreNotNull) {
    ::Arguments arguments({"quendil", "-t", "a"});
    IgCmnListHeader* list = nullptr;
    EXPECT_DEATH(IgIniCkOption(1, nullptr, "-h"), "argv != \\(\\(void \\*\\)0\\)");
    EXPECT_DEATH(IgIniCkOption(1, arguments.vector(), nullptr), "ckopt != \\(\\(void \\*\\)0\\)");
    EXPECT_DEATH(IgIniOption(3, nullptr, pool(), root_), "argv != \\(\\(void \\*\\)0\\)");
    EXPECT_DEATH(IgIniOption(3, arguments.vector(), nullptr, root_),
                 "memoryp != \\(\\(void \\*\\)0\\)");
    EXPECT_DEATH(IgIniOption(3, arguments.vector(), pool(), nullptr),
                 "root != \\(\\(void \\*\\)0\\)");
    EXPECT_DEATH(setCollectOptValue("-t", nullptr, pool(), &list, root_),
                 "crntValue != \\(\\(void \\*\\)0\\)");
}

}  // namespace
