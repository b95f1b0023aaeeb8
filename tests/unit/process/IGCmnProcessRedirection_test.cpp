#include "common/base/IGRunState.h"
#include "process/IGCmnProcess.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>

#include "../../support/process_fixture.h"
#include "../../support/wrapped_calls.h"

namespace {

class Redirection : public ProcessTest {};

TEST_F(Redirection, KeepsBothOutputsWithoutAPath) {
    Capture output(stdout);
    Capture errors(stderr);
    EXPECT_EQ(behave({"out", "one\n", "err", "two\n"}).result, EXEC_OK);
    EXPECT_EQ(errors.take(), "two\n");
    EXPECT_EQ(output.take(), "one\n");
}

TEST_F(Redirection, JoinsTheErrorOutputToTheOutputFile) {
    const std::string out = path("out");
    const std::string err = path("err");
    writeText(err, "of the tool before\n");
    exec_req request;
    request.stdout_path = out.c_str();
    request.stderr_path = err.c_str();
    EXPECT_EQ(behave({"out", "one\n", "err", "two\n", "out", "three\n"}, request).result, EXEC_OK);
    EXPECT_EQ(readText(out), "one\ntwo\nthree\n");
    EXPECT_FALSE(std::filesystem::exists(err));
    EXPECT_EQ(modeOf(out), 0600U);
    expectOwnDescriptors();
}

TEST_F(Redirection, SendsTheErrorOutputAloneToItsFile) {
    const std::string err = path("err");
    exec_req request;
    request.stderr_path = err.c_str();
    Capture output(stdout);
    EXPECT_EQ(behave({"out", "one\n", "err", "two\n"}, request).result, EXEC_OK);
    EXPECT_EQ(output.take(), "one\n");
    EXPECT_EQ(readText(err), "two\n");
    EXPECT_EQ(modeOf(err), 0600U);
    expectOwnDescriptors();
}

TEST_F(Redirection, KeepsTheArchiversOutputsSeparate) {
    const std::string out = path("out");
    const std::string err = path("err");
    exec_req request;
    request.stdout_path = out.c_str();
    request.stderr_path = err.c_str();
    for (const int code : {RETCODE_ARCHIVE, RETCODE_DIRECTORY}) {
        IgMainSetRetCode(code);
        EXPECT_EQ(behave({"out", "one\n", "err", "two\n"}, request).result, EXEC_OK);
        EXPECT_EQ(readText(out), "one\n");
        EXPECT_EQ(readText(err), "two\n");
    }
    expectOwnDescriptors();
}

TEST_F(Redirection, SendsBothOutputsAccordingToTheRequestAndThePhase) {
    // The paths of a request, and what the output file, the error file, the test's output and the
    // test's error output then hold. "-" is no path, "0" the null device; "x" means no file.
    struct Case {
        const char* stdout_path;
        const char* stderr_path;
        std::array<const char*, 4> collecting;
        std::array<const char*, 4> archiving;
    };
    const std::vector<Case> cases = {
        {"-", "-", {"x", "x", "O", "E"}, {"x", "x", "O", "E"}},
        {"-", "f", {"x", "E", "O", ""}, {"x", "E", "O", ""}},
        {"-", "0", {"x", "x", "O", ""}, {"x", "x", "O", ""}},
        {"f", "-", {"O", "x", "", "E"}, {"O", "x", "", "E"}},
        {"f", "f", {"OE", "x", "", ""}, {"O", "E", "", ""}},
        {"f", "0", {"OE", "x", "", ""}, {"O", "x", "", ""}},
        {"0", "-", {"x", "x", "", "E"}, {"x", "x", "", "E"}},
        {"0", "f", {"x", "x", "", ""}, {"x", "E", "", ""}},
        {"0", "0", {"x", "x", "", ""}, {"x", "x", "", ""}},
    };
    const std::string out = path("out");
    const std::string err = path("err");
    const auto chosen = [](const std::string& word, const std::string& file) {
        return word == "-" ? nullptr : word == "0" ? "/dev/null" : file.c_str();
    };
    for (const Case& one : cases) {
        for (const int code :
             {RETCODE_FAILED, RETCODE_COMPRESSED, RETCODE_ARCHIVE, RETCODE_DIRECTORY}) {
            SCOPED_TRACE(std::string(one.stdout_path) + one.stderr_path + std::to_string(code));
            IgMainSetRetCode(code);
            const bool archiving = code == RETCODE_ARCHIVE || code == RETCODE_DIRECTORY;
            exec_req request;
            request.stdout_path = chosen(one.stdout_path, out);
            request.stderr_path = chosen(one.stderr_path, err);
            Capture output(stdout);
            Capture errors(stderr);
            EXPECT_EQ(behave({"out", "O", "err", "E"}, request).result, EXEC_OK);
            const auto content = [](const std::string& file) {
                return std::filesystem::exists(file) ? readText(file) : "x";
            };
            const std::string own_errors = errors.take();
            EXPECT_THAT((std::array{content(out), content(err), output.take(), own_errors}),
                        ::testing::ElementsAreArray(archiving ? one.archiving : one.collecting));
            std::filesystem::remove(out);
            std::filesystem::remove(err);
        }
    }
    EXPECT_EQ(takeLog(), "");
    expectOwnDescriptors();
}

TEST_F(Redirection, ReplacesAnExistingFileByANewOne) {
    const std::string out = path("out");
    exec_req request;
    request.stdout_path = out.c_str();

    writeText(out, "a longer text than the new one\n");
    std::filesystem::create_hard_link(out, path("other"));
    EXPECT_EQ(behave({"out", "new\n"}, request).result, EXEC_OK);
    EXPECT_EQ(readText(out), "new\n");
    EXPECT_EQ(readText(path("other")), "a longer text than the new one\n");

    std::filesystem::remove(out);
    std::filesystem::create_symlink(path("other"), out);
    EXPECT_EQ(behave({"out", "new\n"}, request).result, EXEC_OK);
    EXPECT_FALSE(std::filesystem::is_symlink(out));
    EXPECT_EQ(readText(out), "new\n");
    EXPECT_EQ(readText(path("other")), "a longer text than the new one\n");
}

TEST_F(Redirection, NeitherRemovesNorWritesANonRegularFile) {
    struct Case {
        const char* name;
        mode_t type;
        int error;
        const char* text;
    };
    for (const Case& one :
         {Case{"fifo", S_IFIFO, 17, "File exists"}, Case{"socket", S_IFSOCK, 17, "File exists"},
          Case{"device", S_IFCHR, 17, "File exists"}, Case{"disk", S_IFBLK, 17, "File exists"},
          Case{"directory", S_IFDIR, 21, "Is a directory"}}) {
        SCOPED_TRACE(one.name);
        const std::string out = path(one.name);
        ASSERT_EQ(one.type == S_IFDIR ? ::mkdir(out.c_str(), 0700)
                                      : ::mknod(out.c_str(), one.type | 0600, 0),
                  0);
        exec_req request;
        request.stdout_path = out.c_str();
        Capture errors(stderr);
        EXPECT_EQ(behave({"write", path("ran"), "x"}, request), (Outcome{EXEC_FAILED, 0, 0}));
        EXPECT_EQ(takeLog(), trio("open", one.error, one.text, out, "IGCmnProcess"));
        struct stat st = {};
        ASSERT_EQ(::lstat(out.c_str(), &st), 0);
        EXPECT_EQ(st.st_mode & S_IFMT, one.type);
        EXPECT_FALSE(std::filesystem::exists(path("ran")));
    }
    expectOwnDescriptors();
}

TEST_F(Redirection, WritesNothingIntoAFileThatAnotherProcessCreatesFirst) {
    const std::string out = path("out");
    exec_req request;
    request.stdout_path = out.c_str();
    writeText(out, "mine\n");
    const std::string other = path("other");
    std::filesystem::create_hard_link(out, other);
    Capture errors(stderr);
    {
        const FailingCall back_again(Call::REMOVE, 1, 0);
        EXPECT_EQ(behave({"out", "secret\n"}, request), (Outcome{EXEC_FAILED, 0, 0}));
        EXPECT_TRUE(FailingCall::happened());
    }
    EXPECT_EQ(takeLog(), trio("open", 17, "File exists", out, "IGCmnProcess"));
    EXPECT_EQ(readText(other), "mine\n");
    static_cast<void>(errors.take());
    expectOwnDescriptors();
}

TEST_F(Redirection, MakesTheDirectoriesOfAnOutputFile) {
    const std::string out = path("a/b/out");
    exec_req request;
    request.stdout_path = out.c_str();
    EXPECT_EQ(behave({"out", "one\n"}, request).result, EXEC_OK);
    EXPECT_EQ(readText(out), "one\n");
    EXPECT_EQ(modeOf(path("a")), 0777U);
    EXPECT_EQ(modeOf(path("a/b")), 0777U);

    const std::string outside = path("outside/out");
    request.stdout_path = outside.c_str();
    request.directory_mode = 0755;
    EXPECT_EQ(behave({"out", "one\n"}, request).result, EXEC_OK);
    EXPECT_EQ(modeOf(path("outside")), 0755U);

    // Not those of an error output.
    const std::string err = path("c/err");
    request.stdout_path = nullptr;
    request.stderr_path = err.c_str();
    Capture errors(stderr);
    EXPECT_EQ(behave({"exit", "0"}, request), (Outcome{EXEC_FAILED, 0, 0}));
    EXPECT_EQ(takeLog(), trio("open", 2, "No such file or directory", err, "IGCmnProcess"));
}

TEST_F(Redirection, TakesAPathFromTheCurrentDirectory) {
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(directory_.path());
    exec_req request;
    request.stdout_path = "x/../out";
    EXPECT_EQ(behave({"out", "one\n"}, request).result, EXEC_OK);
    std::filesystem::current_path(before);
    EXPECT_EQ(readText(path("out")), "one\n");
    EXPECT_FALSE(std::filesystem::exists(path("x")));
}

TEST_F(Redirection, NeverRemovesTheNullDevice) {
    exec_req request;
    request.stdout_path = "/dev/null";
    request.stderr_path = "/dev/null";
    for (const int code : {RETCODE_FAILED, RETCODE_DIRECTORY}) {
        IgMainSetRetCode(code);
        EXPECT_EQ(behave({"out", "one\n", "err", "two\n", "exit", "255"}, request).result,
                  EXEC_NONZERO);
        struct stat st = {};
        ASSERT_EQ(::stat("/dev/null", &st), 0);
        EXPECT_TRUE(S_ISCHR(st.st_mode));
    }
    EXPECT_EQ(takeLog(), "");
}

TEST_F(Redirection, ReportsAnOutputFileThatCannotBeMade) {
    const std::string out = path("out");
    std::filesystem::create_directory(out);
    writeText(out + "/file", "");
    exec_req request;
    request.stdout_path = out.c_str();
    Capture errors(stderr);
    EXPECT_EQ(behave({"exit", "0"}, request), (Outcome{EXEC_FAILED, 0, 0}));
    EXPECT_EQ(takeLog(), trio("open", 21, "Is a directory", out, "IGCmnProcess"));
    EXPECT_TRUE(std::filesystem::exists(out + "/file"));

    const std::string below = out + "/file/x";
    request.stdout_path = below.c_str();
    EXPECT_EQ(behave({"exit", "0"}, request).result, EXEC_FAILED);
    EXPECT_EQ(takeLog(), trio("mkdir", 17, "File exists", out + "/file", "IGCmnFile"));
    static_cast<void>(errors.take());
    expectOwnDescriptors();
}

TEST_F(Redirection, KeepsTheOutputRedirectedWhenTheErrorOutputCannotBe) {
    const std::string out = path("out");
    const std::string err = path("err");
    std::filesystem::create_directory(err);
    writeText(err + "/file", "");
    IgMainSetRetCode(RETCODE_DIRECTORY);
    exec_req request;
    request.stdout_path = out.c_str();
    request.stderr_path = err.c_str();
    Capture output(stdout);
    Capture errors(stderr);
    EXPECT_EQ(behave({"exit", "0"}, request).result, EXEC_FAILED);
    struct stat st = {};
    ASSERT_EQ(::fstat(STDOUT_FILENO, &st), 0);
    EXPECT_EQ(st.st_nlink, 0U);  // the file that the failed request has left and removed
    EXPECT_FALSE(std::filesystem::exists(out));
    EXPECT_EQ(output.take(), "");
    EXPECT_EQ(takeLog(), trio("open", 21, "Is a directory", err, "IGCmnProcess"));
}

TEST_F(Redirection, ReportsADescriptorThatCannotBeSaved) {
    const std::string out = path("out");
    const std::string err = path("err");
    exec_req request;
    request.stdout_path = out.c_str();
    request.stderr_path = err.c_str();
    struct rlimit before = {};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
    Capture errors(stderr);
    const int lowest_free = ::fcntl(0, F_DUPFD, 3);
    ASSERT_NE(lowest_free, -1);
    ::close(lowest_free);
    // Room for the new file, none for the saved descriptor.
    const struct rlimit tight = {static_cast<rlim_t>(lowest_free) + 1, before.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &tight), 0);
    const Outcome outcome = behave({"exit", "0"}, request);
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
    EXPECT_EQ(outcome.result, EXEC_FAILED);
    EXPECT_EQ(takeLog(),
              "ZEPA113-E:An error occurred during the following system call. system call name = "
              "dup, error code = 24, msg = Too many open files.\n"
              "ZEPA114-E:source = IGCmnProcess, line no = N.\n");
    EXPECT_FALSE(std::filesystem::exists(out));
}

}  // namespace
