#include "common/IGCmnPath.h"

#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <cerrno>
#include <clocale>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "../../support/run_fixture.h"
#include "../../support/standing_in.h"
#include "common/IGCmnStr.h"

namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;
using ::testing::ElementsAre;
using ::testing::UnorderedElementsAre;
using Text = std::optional<std::string>;

Text textOf(const char* text) {
    return text == nullptr ? Text() : Text(text);
}

class IGCmnPath : public RunTest {
  protected:
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
    // The trio of a report that the listing makes.
    static std::string failure(const std::string& call, int error, const std::string& text,
                               const std::string& file) {
        return trio(call, error, text, file, "IGCmnPath");
    }
    static std::string conversionFailure() {
        return "ZEPA113-E:An error occurred during the following system call. system call name = "
               "mbstowcs, error code = 84, msg = Invalid or incomplete multibyte or wide "
               "character.\nZEPA114-E:source = IGCmnStr, line no = N.\n";
    }

    TempDir dir_;
};

// Splitting

TEST_F(IGCmnPath, SplitsAPathAtItsLastSlash) {
    struct Case {
        const char* path;
        Text directory;
        Text file;
    };
    for (const Case& c : {
             Case{"/etc/hosts", "/etc", "hosts"},
             Case{"/name", "", "name"},
             Case{"/", "", ""},
             Case{"/etc/", "/etc", ""},
             Case{"//x", "/", "x"},
             Case{"a/b/c", "a/b", "c"},
             Case{"name", "name", {}},
             Case{"", "", {}},
             Case{"/tmp/\xc3\xa9/\xe3\x81\x82", "/tmp/\xc3\xa9", "\xe3\x81\x82"},
             Case{"/var/log/*.log", "/var/log", "*.log"},
         }) {
        SCOPED_TRACE(c.path);
        char* directory = nullptr;
        char* file = nullptr;
        EXPECT_EQ(IgCmnFileSplitPath(c.path, &directory, &file, pool()), 0);
        EXPECT_EQ(textOf(directory), c.directory);
        EXPECT_EQ(textOf(file), c.file);
    }
}

TEST_F(IGCmnPath, SplitsAPathIntoThePartThatIsWanted) {
    char* part = nullptr;
    EXPECT_EQ(IgCmnFileSplitPath("/etc/hosts", &part, nullptr, pool()), 0);
    EXPECT_STREQ(part, "/etc");
    EXPECT_EQ(IgCmnFileSplitPath("/etc/hosts", nullptr, &part, pool()), 0);
    EXPECT_STREQ(part, "hosts");
    EXPECT_EQ(IgCmnFileSplitPath("hosts", nullptr, &part, pool()), 0);
    EXPECT_EQ(part, nullptr);
    EXPECT_EQ(IgCmnFileSplitPath("/etc/hosts", nullptr, nullptr, pool()), 0);
}

TEST_F(IGCmnPath, SplitsNoPathThatTheLocaleCannotDecode) {
    Capture err(stderr);
    char* part = nullptr;
    EXPECT_EQ(IgCmnFileSplitPath("/\xff/x", &part, nullptr, pool()), -1);
    EXPECT_EQ(part, nullptr);
    EXPECT_EQ(takeLog(), conversionFailure());
}

TEST_F(IGCmnPath, SplitsACommandLineIntoCommandAndOptions) {
    struct Case {
        const char* line;
        Text command;
        Text options;
    };
    for (const Case& c : {
             Case{"", {}, {}},
             Case{"  \t ", {}, {}},
             Case{"/bin/ls", "/bin/ls", {}},
             Case{" \t/bin/ls", "/bin/ls", {}},
             Case{"/bin/ls -l", "/bin/ls", "-l"},
             Case{"/bin/ls\t-l", "/bin/ls", "-l"},
             Case{"/bin/ls  -l  -a ", "/bin/ls", " -l  -a "},
             Case{"/bin/ls ", "/bin/ls", ""},
             Case{"/bin/ls \"a b\"", "/bin/ls", "\"a b\""},
             Case{"/bin/l\"s x\" y", "/bin/l\"s", "x\" y"},
             Case{"\"/opt/my tool\" -a -b", "\"/opt/my tool\"", "-a -b"},
             Case{"\"/opt/my tool\"", "\"/opt/my tool\"", {}},
             Case{"\"/opt/my tool\"\t-a", "\"/opt/my tool\"", "-a"},
             Case{"  \"/opt/my tool\"  -a", "\"/opt/my tool\"", " -a"},
             Case{"\"/opt/my tool\"x -a", "\"/opt/my tool\"x", "-a"},
             Case{"\"/opt/my tool -a", "\"/opt/my tool -a", {}},
             Case{"\"a\"b\" c\" d", "\"a\"b\"", "c\" d"},
             Case{"\"\" x", "\"\"", "x"},
             Case{"\"", "\"", {}},
             Case{"/\xc3\xa9 \xe3\x81\x82", "/\xc3\xa9", "\xe3\x81\x82"},
             Case{"a\\ b", "a\\", "b"},
             Case{"a\nb c", "a\nb", "c"},
         }) {
        SCOPED_TRACE(c.line);
        char* command = nullptr;
        char* options = nullptr;
        EXPECT_EQ(IgCmnFileSplitCmdOpt(c.line, &command, &options, pool()), 0);
        EXPECT_EQ(textOf(command), c.command);
        EXPECT_EQ(textOf(options), c.options);
    }
}

TEST_F(IGCmnPath, ClearsWhatACommandLineDoesNotHave) {
    char stale[] = "stale";
    char* command = stale;
    char* options = stale;
    EXPECT_EQ(IgCmnFileSplitCmdOpt("ls", &command, &options, pool()), 0);
    EXPECT_EQ(options, nullptr);
    EXPECT_EQ(IgCmnFileSplitCmdOpt(" ", &command, &options, pool()), 0);
    EXPECT_EQ(command, nullptr);
}

TEST_F(IGCmnPath, SplitsNoCommandLineThatTheLocaleCannotDecode) {
    Capture err(stderr);
    char* command = nullptr;
    char* options = nullptr;
    EXPECT_EQ(IgCmnFileSplitCmdOpt("/bin/\xff x", &command, &options, pool()), -1);
    EXPECT_EQ(takeLog(), conversionFailure());
}

// Absolute paths

TEST_F(IGCmnPath, KnowsAbsolutePaths) {
    struct Case {
        const char* path;
        int absolute;
        int ignoring_quotes;
    };
    for (const Case& c : {
             Case{"/usr/bin/x", 1, 1},
             Case{"/", 1, 1},
             Case{"bin/x", 0, 0},
             Case{"", 0, 0},
             Case{"./x", 0, 0},
             Case{" /x", 0, 0},
             Case{"%HOST%", 0, 1},
             Case{"%", 0, 1},
             Case{"\"/usr/bin/x\"", 0, 1},
             Case{"\"\"\"/x", 0, 1},
             Case{"\"%d%/x\"", 0, 1},
             Case{"\"bin/x\"", 0, 0},
             Case{"\"", 0, 0},
             Case{"'/x'", 0, 0},
             Case{"\" /x\"", 0, 0},
         }) {
        SCOPED_TRACE(c.path);
        EXPECT_EQ(IgCmnIsAbsPath(c.path), c.absolute);
        EXPECT_EQ(IgCmnIsAbsPathIgnoreDQ(c.path), c.ignoring_quotes);
    }
}

TEST_F(IGCmnPath, MakesPathsNormal) {
    struct Case {
        const char* path;
        std::string normal;
    };
    fs::create_directories(path("here"));
    fs::current_path(path("here"));
    const std::string here = path("here");
    for (const Case& c : {
             Case{"/", "/"},
             Case{"//", "/"},
             Case{"/a/b", "/a/b"},
             Case{"/a/b/", "/a/b"},
             Case{"/a//b///c//", "/a/b/c"},
             Case{"/./a/./b/.", "/a/b"},
             Case{"/a/../b", "/b"},
             Case{"/a/b/..", "/a"},
             Case{"/a/b/../..", "/"},
             Case{"/..", "/"},
             Case{"/../../a", "/a"},
             Case{"/a/../../b", "/b"},
             Case{"/a/...", "/a/..."},
             Case{"/a/..b/.c", "/a/..b/.c"},
             Case{"/a /b\\", "/a /b\\"},
             Case{"", here},
             Case{".", here},
             Case{"./", here},
             Case{"x", here + "/x"},
             Case{"./x/../y/", here + "/y"},
             Case{"..", path()},
             Case{"../z", path("z")},
             Case{"../../../../../../z", "/z"},
             Case{"/\xff/\xc3\xa9/..", "/\xff"},
         }) {
        SCOPED_TRACE(c.path);
        char* normal = nullptr;
        ASSERT_EQ(IgCmnFileNormPath(pool(), c.path, &normal), 0);
        EXPECT_EQ(normal, c.normal);
    }
    EXPECT_EQ(takeLog(), "");
}

TEST_F(IGCmnPath, MakesPathsNormalWithoutLookingAtTheDisk) {
    fs::create_directory_symlink("/usr/lib", path("link"));
    char* normal = nullptr;
    ASSERT_EQ(IgCmnFileNormPath(pool(), path("link/../x").c_str(), &normal), 0);
    EXPECT_EQ(normal, path("x"));
}

TEST_F(IGCmnPath, JoinsRelativePathsToTheRootWithoutADoubleSlash) {
    fs::current_path("/");
    char* normal = nullptr;
    ASSERT_EQ(IgCmnFileNormPath(pool(), "a/b", &normal), 0);
    EXPECT_STREQ(normal, "/a/b");
}

TEST_F(IGCmnPath, GivesANormalPathThatItsOwnerCanFree) {
    char* normal = nullptr;
    ASSERT_EQ(IgCmnFileNormPath(pool(), "/a/b/../c/", &normal), 0);
    ASSERT_STREQ(normal, "/a/c");
    ASSERT_NE(IgCmnMemoryAlloc(pool(), sizeof("/a/c")), nullptr);  // keeps the chunk
    IgCmnMemoryFree(pool(), normal, sizeof("/a/c"));
    EXPECT_EQ(IgCmnMemoryAlloc(pool(), sizeof("/a/c")), normal);
}

TEST_F(IGCmnPath, ReportsARelativePathWithoutACurrentDirectory) {
    fs::create_directory(path("gone"));
    fs::current_path(path("gone"));
    fs::remove(path("gone"));
    char* normal = nullptr;
    Capture err(stderr);
    EXPECT_EQ(IgCmnFileNormPath(pool(), "x", &normal), -1);
    EXPECT_EQ(normal, nullptr);
    EXPECT_EQ(takeLog(),
              "ZEPA113-E:An error occurred during the following system call. system call name = "
              "getcwd, error code = 2, msg = No such file or directory.\n"
              "ZEPA114-E:source = IGCmnFile, line no = N.\n");
    EXPECT_EQ(IgCmnFileNormPath(pool(), "/x", &normal), 0) << "an absolute one needs none";
}

TEST_F(IGCmnPath, HandlesPathsLongerThanTheSystemTakes) {
    const std::string name(100000, 'n');
    char* normal = nullptr;
    ASSERT_EQ(IgCmnFileNormPath(pool(), ("/" + name + "/./x/..//" + name).c_str(), &normal), 0);
    EXPECT_EQ(normal, "/" + name + "/" + name);
    char* directory = nullptr;
    char* file = nullptr;
    ASSERT_EQ(IgCmnFileSplitPath(normal, &directory, &file, pool()), 0);
    EXPECT_EQ(directory, "/" + name);
    EXPECT_EQ(file, name);
    ASSERT_EQ(IgCmnFileSplitCmdOpt(("/" + name + " " + name).c_str(), &directory, &file, pool()),
              0);
    EXPECT_EQ(directory, "/" + name);
    EXPECT_EQ(file, name);
    std::string slashes(100000, '/');
    ASSERT_EQ(IgCmnFileNormPath(pool(), slashes.c_str(), &normal), 0);
    EXPECT_STREQ(normal, "/");
    std::string up;
    for (int i = 0; i < 30000; ++i) {
        up += "/..";
    }
    ASSERT_EQ(IgCmnFileNormPath(pool(), ("/a" + up).c_str(), &normal), 0);
    EXPECT_STREQ(normal, "/");
}

TEST_F(IGCmnPath, GivesNothingWhereverMemoryRunsOut) {
    const std::string part(300, 'p');
    char* first = nullptr;
    char* second = nullptr;
    const std::vector<std::pair<const char*, std::function<int(memory_pool*)>>> calls = {
        {"SplitPath",
         [&](memory_pool* p) {
             return IgCmnFileSplitPath(("/" + part + "/" + part).c_str(), &first, &second, p);
         }},
        {"SplitCmdOpt",
         [&](memory_pool* p) {
             return IgCmnFileSplitCmdOpt((part + " " + part).c_str(), &first, &second, p);
         }},
        {"NormPath",
         [&](memory_pool* p) { return IgCmnFileNormPath(p, ("/" + part).c_str(), &first); }},
    };
    for (const auto& [name, call] : calls) {
        bool failed = true;
        for (int nth = 1; failed; ++nth) {
            SCOPED_TRACE(::testing::Message() << name << ", allocation " << nth);
            Pool fresh;
            Capture err(stderr);
            const FailingCall failing(Call::CALLOC, nth, ENOMEM);
            const int result = call(fresh.get());
            failed = FailingCall::happened();
            EXPECT_EQ(result, failed ? -1 : 0);
            EXPECT_EQ(err.take(), failed ? "ZEPA122-E:Memory is insufficient.\n" : "");
            EXPECT_TRUE(failed || nth > 3);
        }
    }
}

// Lists by wildcard

class WildcardList : public IGCmnPath {
  protected:
    void SetUp() override {
        IGCmnPath::SetUp();
        for (const char* name : {"one.log", "two.log", "three.txt", ".hidden.log", "back\\slash"}) {
            writeText(path(name), "x");
        }
        fs::create_directory(path("dir.log"));
        writeText(path("dir.log/inner.log"), "x");
    }
    int list(const std::string& search, int skip_directories = 0) {
        list_ = nullptr;
        return IgCmnFileMakeList(search.c_str(), &list_, pool(), skip_directories);
    }
    std::vector<std::string> listed() { return strings(list_); }

    IgCmnListHeader* list_ = nullptr;
};

TEST_F(WildcardList, HoldsAnExistingFileOrDirectoryAsItStands) {
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

TEST_F(WildcardList, HoldsWhatMatches) {
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

TEST_F(WildcardList, LeavesDirectoriesOutWhenToldTo) {
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

TEST_F(WildcardList, GivesNineAndLeavesTheListWhenNothingMatches) {
    char* first = IgCmnStrdup(pool(), "first");
    ASSERT_EQ(IgCmnListAppend(pool(), &list_, first), 1);
    EXPECT_EQ(IgCmnFileMakeList(path("*.none").c_str(), &list_, pool(), 0), 9);
    EXPECT_THAT(listed(), ElementsAre("first"));
    EXPECT_EQ(takeLog(), "");
}

TEST_F(WildcardList, AddsToAListThatIsThere) {
    EXPECT_EQ(list(path("one.log")), 0);
    EXPECT_EQ(IgCmnFileMakeList(path("th*").c_str(), &list_, pool(), 0), 0);
    EXPECT_THAT(listed(), ElementsAre(path("one.log"), path("three.txt")));
}

TEST_F(WildcardList, NamesEntriesOfTheRootWithOneSlash) {
    EXPECT_EQ(list("/us*r"), 0);
    EXPECT_THAT(listed(), ElementsAre("/usr"));
}

TEST_F(WildcardList, LooksForABareNameInTheCurrentDirectory) {
    fs::current_path(path());
    EXPECT_EQ(list("th*"), 0);
    ASSERT_EQ(listed().size(), 1U);
    EXPECT_TRUE(fs::equivalent(listed().front(), path("three.txt")));
}

TEST_F(WildcardList, GivesNineForADirectoryThatCannotBeOpened) {
    Capture err(stderr);
    EXPECT_EQ(list(path("missing/*")), 9);
    EXPECT_EQ(takeLog(), failure("opendir", ENOENT, "No such file or directory", path("missing")));
    EXPECT_EQ(list(path("one.log/*")), 9);
    EXPECT_EQ(takeLog(), failure("opendir", ENOTDIR, "Not a directory", path("one.log")));
    EXPECT_EQ(list_, nullptr);
}

TEST_F(WildcardList, StopsWithNineAtAnEntryThatIsNotThere) {
    fs::create_symlink("nowhere", path("dangling.lnk"));
    Capture err(stderr);
    EXPECT_EQ(list(path("*.lnk")), 9);
    EXPECT_EQ(takeLog(),
              failure("stat", ENOENT, "No such file or directory", path("dangling.lnk")));
}

TEST_F(WildcardList, HoldsNamesThatTheLocaleCannotDecodeAsTheyAre) {
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

TEST_F(WildcardList, TellsNothingFoundFromNothingReadable) {
    Capture err(stderr);
    EXPECT_EQ(listMatches(path("one.log").c_str(), &list_, pool(), 0), Listing::FOUND);
    EXPECT_EQ(listMatches(path("t*").c_str(), &list_, pool(), 0), Listing::FOUND);
    EXPECT_EQ(listMatches(path("*.none").c_str(), &list_, pool(), 0), Listing::NOTHING);
    EXPECT_EQ(listMatches(path("dir*").c_str(), &list_, pool(), 1), Listing::NOTHING);
    EXPECT_EQ(listMatches(path("missing/*").c_str(), &list_, pool(), 0), Listing::FAILED);
    fs::create_symlink("nowhere", path("dangling.lnk"));
    EXPECT_EQ(listMatches(path("*.lnk").c_str(), &list_, pool(), 0), Listing::FAILED);
}

TEST_F(WildcardList, GivesNineForADirectoryThatCannotBeReadToItsEnd) {
    for (const int nth : {1, 4, 9}) {  // the last call is the one that would find the end
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

TEST_F(WildcardList, GivesUpWhereverMemoryRunsOut) {
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

TEST_F(WildcardList, IsMadeByItsFirstName) {
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

TEST(IGCmnPathDeathTest, AssertsWhatMustNotBeNull) {
    memory_pool pool = nullptr;
    char* text = nullptr;
    IgCmnListHeader* list = nullptr;
    EXPECT_DEATH(IgCmnFileSplitPath(nullptr, &text, &text, &pool), nullOf("path_name"));
    EXPECT_DEATH(IgCmnFileSplitPath("/x", &text, &text, nullptr), nullOf("memoryp"));
    EXPECT_DEATH(IgCmnFileSplitCmdOpt(nullptr, &text, &text, &pool), nullOf("path_name"));
    EXPECT_DEATH(IgCmnFileSplitCmdOpt("/x", &text, &text, nullptr), nullOf("memoryp"));
    EXPECT_DEATH(IgCmnFileSplitCmdOpt("/x", nullptr, &text, &pool), nullOf("command"));
    EXPECT_DEATH(IgCmnFileSplitCmdOpt("/x", &text, nullptr, &pool), nullOf("options"));
    EXPECT_DEATH(IgCmnFileNormPath(&pool, "/x", nullptr), nullOf("result"));
    EXPECT_DEATH(IgCmnFileNormPath(nullptr, "/x", &text), nullOf("memoryp"));
    EXPECT_DEATH(IgCmnFileNormPath(&pool, nullptr, &text), nullOf("path"));
    EXPECT_DEATH(IgCmnIsAbsPath(nullptr), nullOf("path"));
    EXPECT_DEATH(IgCmnIsAbsPathIgnoreDQ(nullptr), nullOf("path"));
    EXPECT_DEATH(makeList(nullptr, &list, &pool), nullOf("find_file"));
    EXPECT_DEATH(makeList("x", nullptr, &pool), nullOf("search_file_list"));
    EXPECT_DEATH(makeList("x", &list, nullptr), nullOf("memoryp"));
    EXPECT_DEATH(IgCmnFileMakeList(nullptr, &list, &pool, 0), nullOf("search_name"));
    EXPECT_DEATH(IgCmnFileMakeList("/x", nullptr, &pool, 0), nullOf("search_file_list"));
    EXPECT_DEATH(IgCmnFileMakeList("/x", &list, nullptr, 0), nullOf("memoryp"));
}

}  // namespace
