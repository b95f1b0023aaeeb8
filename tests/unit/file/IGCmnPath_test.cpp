#include "common/file/IGCmnPath.h"

#include <array>
#include <cerrno>
#include <climits>
#include <filesystem>
#include <functional>
#include <optional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "../../support/file_fixture.h"
#include "../../support/wrapped_calls.h"

namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;
using Text = std::optional<std::string>;

Text textOf(const char* text) {
    return text == nullptr ? Text() : Text(text);
}

class IGCmnPath : public FileTest {
  protected:
    void TearDown() override {
        fs::current_path("/");
        FileTest::TearDown();
    }

    static std::string conversionFailure() {
        return "ZEPA113-E:An error occurred during the following system call. system call name = "
               "mbstowcs, error code = 84, msg = Invalid or incomplete multibyte or wide "
               "character.\nZEPA114-E:source = IGCmnStr, line no = N.\n";
    }
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

TEST_F(IGCmnPath, SplitsOffTheRequestedPartOfAPath) {
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

TEST_F(IGCmnPath, ClearsThePartsThatACommandLineLacks) {
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
    };
    for (const Case& c : {
             Case{"/usr/bin/x", 1},
             Case{"/", 1},
             Case{"bin/x", 0},
             Case{"", 0},
             Case{"./x", 0},
             Case{" /x", 0},
             Case{"%HOST%", 0},
             Case{"%", 0},
             Case{"\"/usr/bin/x\"", 0},
             Case{"\"\"\"/x", 0},
             Case{"\"%d%/x\"", 0},
             Case{"\"bin/x\"", 0},
             Case{"\"", 0},
             Case{"'/x'", 0},
             Case{"\" /x\"", 0},
         }) {
        SCOPED_TRACE(c.path);
        EXPECT_EQ(IgCmnIsAbsPath(c.path), c.absolute);
    }
}

TEST_F(IGCmnPath, NormalisesPaths) {
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

// Every path of up to seven of these characters, compared with the rule itself.
TEST_F(IGCmnPath, NormalisesEveryPathOfSlashesDotsAndLetters) {
    const auto rule = [](const std::string& text) {
        std::vector<std::string> names;
        std::istringstream parts(text);
        for (std::string name; std::getline(parts, name, '/');) {
            if (name == ".." && !names.empty()) {
                names.pop_back();
            } else if (!name.empty() && name != "." && name != "..") {
                names.push_back(name);
            }
        }
        std::string normal;
        for (const std::string& name : names) {
            normal += "/" + name;
        }
        return normal.empty() ? "/" : normal;
    };
    std::vector<std::string> texts = {"/"};
    for (std::size_t i = 0; i < texts.size(); ++i) {
        const std::string text = texts[i];
        Pool fresh;
        char* normal = nullptr;
        ASSERT_EQ(IgCmnFileNormPath(fresh.get(), text.c_str(), &normal), 0);
        ASSERT_EQ(normal, rule(text)) << text;
        ASSERT_NE(normal, text.c_str());
        for (const char* more : {"/", ".", "a"}) {
            if (text.size() < 7) {
                texts.push_back(text + more);
            }
        }
    }
    EXPECT_EQ(texts.size(), 1093U);
}

TEST_F(IGCmnPath, NormalisesPathsWithoutAccessToTheDisk) {
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

TEST_F(IGCmnPath, ReturnsANormalPathThatTheCallerCanFree) {
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
              "ZEPA114-E:source = IGCmnPath, line no = N.\n");
    EXPECT_EQ(IgCmnFileNormPath(pool(), "/x", &normal), 0) << "an absolute one needs none";
}

TEST_F(IGCmnPath, HandlesPathsLongerThanTheSystemAccepts) {
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

TEST_F(IGCmnPath, ReturnsNothingWhenMemoryRunsOut) {
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
         [&](memory_pool* p) { return IgCmnFileNormPath(p, ("/./" + part).c_str(), &first); }},
        {"NormPath of a normal path",
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
            EXPECT_TRUE(failed || nth > (name == std::string("NormPath of a normal path") ? 2 : 3));
        }
    }
}

// What must not be null

std::string nullOf(const std::string& name) {
    return "Assertion `" + name + " != \\(\\(void \\*\\)0\\)";
}

TEST(IGCmnPathDeathTest, AssertsWhatMustNotBeNull) {
    memory_pool pool = nullptr;
    char* text = nullptr;
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
}

TEST_F(IGCmnPath, NamesTheCurrentDirectory) {
    std::array<char, PATH_MAX> buffer{};
    fs::current_path(path());
    EXPECT_EQ(IgCmnFileGetCwd(buffer.data(), buffer.size()), buffer.data());
    EXPECT_EQ(buffer.data(), path());
    fs::current_path("/");
}

TEST_F(IGCmnPath, ReportsACurrentDirectoryThatCannotBeNamed) {
    const std::string report =
        "ZEPA113-E:An error occurred during the following system call. system call name = getcwd, "
        "error code = ";
    const std::string place = "ZEPA114-E:source = IGCmnPath, line no = N.\n";
    std::array<char, PATH_MAX> buffer{};
    fs::current_path(path());
    EXPECT_EQ(reported([&] { EXPECT_EQ(IgCmnFileGetCwd(buffer.data(), 3), nullptr); }),
              report + "34, msg = Numerical result out of range.\n" + place);
    fs::create_directory(path("gone"));
    fs::current_path(path("gone"));
    fs::remove(path("gone"));
    EXPECT_EQ(reported([&] { EXPECT_EQ(IgCmnFileGetCwd(buffer.data(), PATH_MAX), nullptr); }),
              report + "2, msg = No such file or directory.\n" + place);
    fs::current_path("/");
}

TEST(IGCmnPathDeathTest, AssertsABufferForTheCurrentDirectory) {
    EXPECT_DEATH(IgCmnFileGetCwd(nullptr, 10), nullOf("buffer"));
}

}  // namespace
