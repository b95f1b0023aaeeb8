#include "common/base/IGRunState.h"
#include "common/file/IGCmnFile.h"

#include <signal.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "../../support/file_fixture.h"
#include "../../support/mounted.h"
#include "../../support/wrapped_calls.h"
#include "common/base/IGCmnStr.h"
#include "common/file/IGCmnTree.h"
#include "common/report/IGCmnMessage.h"

namespace {

namespace fs = std::filesystem;

// Removing

TEST_F(IGCmnFile, RemovesAFileOrAWholeTree) {
    writeText(path("file"), "");
    fs::create_directories(path("tree/a/b"));
    writeText(path("tree/a/b/file"), "");
    fs::create_symlink(path("kept"), path("tree/link"));
    writeText(path("kept"), "");
    for (const char* name : {"file", "tree", "missing"}) {
        EXPECT_EQ(IgCmnFileRemoveAll(path(name).c_str()), 0) << name;
        EXPECT_FALSE(fs::exists(path(name))) << name;
    }
    EXPECT_TRUE(fs::exists(path("kept"))) << "links are not followed";
    EXPECT_EQ(takeLog(), "");
}

const std::vector<std::string> HOSTILE_NAMES{"two words",      "$(touch ran)",
                                             "`touch ran`",    "\"; touch ran; \"",
                                             "back\\slash",    "$HOME",
                                             "semi;touch ran", "a\nb",
                                             "it's",           "*",
                                             "trailing\\",     "!x"};

TEST_F(IGCmnFile, RemovesExactlyTheGivenName) {
    for (const std::string& name : HOSTILE_NAMES) {
        SCOPED_TRACE(name);
        fs::current_path(path());
        writeText(path("bystander"), "");
        fs::create_directory(path(name));
        EXPECT_EQ(IgCmnFileRemoveAll(path(name).c_str()), 0);
        EXPECT_FALSE(fs::exists(path(name)));
        EXPECT_TRUE(fs::exists(path("bystander")));
        EXPECT_FALSE(fs::exists(path("ran")));
        fs::current_path("/");
    }
}

TEST_F(IGCmnFile, ReportsAShellThatCannotBeStarted) {
    writeText(path("file"), "x");
    const std::string name = path("file");
    const FailingCall failing(Call::FORK, 1, EAGAIN);
    EXPECT_EQ(reported([&] { EXPECT_EQ(IgCmnFileRemoveAll(name.c_str()), 1); }),
              "ZEPA113-E:An error occurred during the following system call. system call name = "
              "system, error code = 11, msg = Resource temporarily unavailable.\n"
              "ZEPA151-E:Additional information, command = /bin/rm -rf \"" +
                  name +
                  "\" 2> /dev/null.\n"
                  "ZEPA114-E:source = IGCmnFile, line no = N.\n");
    EXPECT_TRUE(fs::exists(name));
}

TEST_F(IGCmnFile, ReportsAShellThatCannotBeStartedWithoutAnError) {
    const FailingCall failing(Call::FORK, 1, 0);
    EXPECT_EQ(reported([&] { EXPECT_EQ(IgCmnFileRemoveAll("/x"), 1); }),
              "ZEPA113-E:An error occurred during the following system call. system call name = "
              "system, error code = -1, msg = rm command failed.\n"
              "ZEPA151-E:Additional information, command = /bin/rm -rf \"/x\" 2> /dev/null.\n"
              "ZEPA114-E:source = IGCmnFile, line no = N.\n");
}

TEST_F(IGCmnFile, ReportsNothingOfACopyWithoutAShell) {
    writeText(path("source"), "x");
    const FailingCall failing(Call::FORK, 1, EAGAIN);
    EXPECT_EQ(reported([&] {
                  EXPECT_EQ(IgCmnFileCopy(path("source").c_str(), path("copy").c_str(), 1, 0), 0);
              }),
              "");
    EXPECT_EQ(run_state.interrupted, 0);
}

// Each byte alone, and where it could begin and end a construct that the shell interprets.
TEST_F(IGCmnFile, CopiesAndRemovesNamesOfEveryByte) {
    fs::current_path(path());
    fs::create_directory(path("to"));
    const auto survives = [this](const std::string& name) {
        const std::string from = path(name);
        const std::string to = path("to/" + name);
        writeText(from, name);
        EXPECT_EQ(IgCmnFileCopy(from.c_str(), to.c_str(), 0, 0), 1);
        EXPECT_EQ(readText(to), name);
        EXPECT_EQ(IgCmnFileRemoveAll(to.c_str()), 0);
        EXPECT_FALSE(fs::exists(to));
        EXPECT_EQ(readText(from), name);
        EXPECT_EQ(IgCmnFileRemoveAll(from.c_str()), 0);
        EXPECT_FALSE(fs::exists(from));
        EXPECT_FALSE(fs::exists(path("ran")));
    };
    std::string all;
    for (int byte = 1; byte < 256; ++byte) {
        if (byte == '/') {
            continue;
        }
        const auto c = static_cast<char>(byte);
        SCOPED_TRACE(byte);
        all += c;
        // The shell treats all letters and digits the same.
        if (IgCmnStrIsAlnum(static_cast<wchar_t>(byte)) == 0 || c == 'n') {
            survives(std::string("x") + c + "touch ran" + c);
        }
    }
    survives(all);
    survives(std::string(all.rbegin(), all.rend()));
    fs::current_path("/");
    EXPECT_EQ(takeLog(), "");
}

TEST_F(IGCmnFile, ReportsARemovalThatFails) {
    fs::create_directories(path("tree/sub"));
    const ReadOnly read_only(path("tree"));
    const std::string tree = path("tree");
    EXPECT_EQ(reported([&] { EXPECT_EQ(IgCmnFileRemoveAll(tree.c_str()), 1); }),
              "ZEPA113-E:An error occurred during the following system call. system call name = "
              "system, error code = 256, msg = rm command failed.\n"
              "ZEPA151-E:Additional information, command = /bin/rm -rf \"" +
                  tree +
                  "\" 2> /dev/null.\n"
                  "ZEPA114-E:source = IGCmnFile, line no = N.\n");
}

TEST_F(IGCmnFile, ReportsARemovalThatFailsAsWarningsDuringACollection) {
    fs::create_directories(path("tree/sub"));
    const ReadOnly read_only(path("tree"));
    IgCmnMsgSetMode(MSGMODE_COLLECTING);
    Capture err(stderr);
    EXPECT_EQ(IgCmnFileRemoveAll(path("tree").c_str()), 1);
    EXPECT_EQ(err.take(), "");
    EXPECT_EQ(takeLog(),
              "ZEPA140-W:An error occurred during the following system call. system call name = "
              "system, error code = 256, msg = rm command failed.\n"
              "ZEPA152-W:Additional information, command = /bin/rm -rf \"" +
                  path("tree") +
                  "\" 2> /dev/null.\n"
                  "ZEPA141-W:source = IGCmnFile, line no = N.\n");
}

// Copying

TEST_F(IGCmnFile, CopiesAFileWithItsModeAndTime) {
    writeText(path("source"), "text");
    ASSERT_EQ(::chmod(path("source").c_str(), 04711), 0);
    const std::array<struct timespec, 2> times{{{1000000000, 0}, {1100000000, 0}}};
    ASSERT_EQ(::utimensat(AT_FDCWD, path("source").c_str(), times.data(), 0), 0);
    EXPECT_EQ(IgCmnFileCopy(path("source").c_str(), path("copy").c_str(), 0, 0), 1);
    EXPECT_EQ(readText(path("copy")), "text");
    EXPECT_EQ(modeOf(path("copy")), 04711U);
    struct stat st = {};
    ASSERT_EQ(::stat(path("copy").c_str(), &st), 0);
    EXPECT_EQ(st.st_mtim.tv_sec, 1100000000);
}

TEST_F(IGCmnFile, ReplacesAnExistingCopyOnlyOnRequest) {
    writeText(path("source"), "new");
    for (const int overwrite : {0, 2, -1}) {
        writeText(path("copy"), "old");
        EXPECT_EQ(IgCmnFileCopy(path("source").c_str(), path("copy").c_str(), overwrite, 0), 0);
        EXPECT_EQ(readText(path("copy")), "old");
    }
    EXPECT_EQ(IgCmnFileCopy(path("source").c_str(), path("copy").c_str(), 1, 0), 1);
    EXPECT_EQ(readText(path("copy")), "new");
}

TEST_F(IGCmnFile, ReportsNothingOfACopyThatFails) {
    writeText(path("source"), "x");
    EXPECT_EQ(reported([&] {
                  EXPECT_EQ(IgCmnFileCopy(path("no").c_str(), path("copy").c_str(), 1, 0), 0);
                  EXPECT_EQ(IgCmnFileCopy(path("source").c_str(), path("no/copy").c_str(), 1, 0),
                            0);
                  EXPECT_EQ(IgCmnFileCopy(path().c_str(), path("copy").c_str(), 1, 0), 0);
              }),
              "");
    EXPECT_FALSE(fs::exists(path("copy")));
    EXPECT_EQ(run_state.interrupted, 0);
}

TEST_F(IGCmnFile, CopiesExactlyTheGivenNames) {
    fs::create_directories(path("from"));
    fs::create_directories(path("to"));
    for (const std::string& name : HOSTILE_NAMES) {
        SCOPED_TRACE(name);
        fs::current_path(path());
        writeText(path("from/" + name), name);
        EXPECT_EQ(IgCmnFileCopy(path("from/" + name).c_str(), path("to/" + name).c_str(), 0, 0), 1);
        EXPECT_EQ(readText(path("to/" + name)), name);
        EXPECT_FALSE(fs::exists(path("ran")));
        fs::current_path("/");
    }
}

TEST_F(IGCmnFile, LinksInsteadOfCopying) {
    writeText(path("source"), "text");
    EXPECT_EQ(IgCmnFileCopy(path("source").c_str(), path("link").c_str(), 0, 1), 1);
    EXPECT_EQ(fs::read_symlink(path("link")), path("source"));
}

TEST_F(IGCmnFile, ReplacesAnExistingFileByALinkOnlyOnRequest) {
    writeText(path("source"), "text");
    writeText(path("link"), "old");
    EXPECT_EQ(IgCmnFileCopy(path("source").c_str(), path("link").c_str(), 0, 1), 0);
    EXPECT_EQ(readText(path("link")), "old");
    EXPECT_EQ(IgCmnFileCopy(path("source").c_str(), path("link").c_str(), 1, 1), 1);
    EXPECT_EQ(fs::read_symlink(path("link")), path("source"));
}

TEST_F(IGCmnFile, MakesNoLinkWithoutItsSourceOrDirectory) {
    writeText(path("link"), "old");
    EXPECT_EQ(reported([&] {
                  EXPECT_EQ(IgCmnFileCopy(path("no").c_str(), path("link").c_str(), 1, 1), 0);
                  EXPECT_EQ(IgCmnFileCopy(path("link").c_str(), path("no/link").c_str(), 1, 1), 0);
              }),
              "");
    EXPECT_EQ(readText(path("link")), "old");
}

TEST_F(IGCmnFile, LeavesNoDescriptorOpen) {
    writeText(path("source"), "text");
    const std::size_t before = openDescriptors();
    EXPECT_EQ(IgCmnFileCopy(path("source").c_str(), path("link").c_str(), 0, 1), 1);
    EXPECT_EQ(IgCmnFileGetSize(path().c_str()), 8);
    EXPECT_EQ(openDescriptors(), before);
}

// Commands that SIGINT ends

class InterruptedCommand : public IGCmnFile {
  protected:
    void SetUp() override {
        IGCmnFile::SetUp();
        for (std::size_t i = 0; i < actions_.size(); ++i) {
            ::sigaction(INTERRUPTING_SIGNALS[i], nullptr, &actions_[i]);
        }
    }
    void TearDown() override {
        for (std::size_t i = 0; i < actions_.size(); ++i) {
            ::sigaction(INTERRUPTING_SIGNALS[i], &actions_[i], nullptr);
        }
        IGCmnFile::TearDown();
    }
    // The path of a command that runs the given script.
    std::string script(const std::string& body) {
        writeText(path("script"), "#!/bin/sh\n" + body + "\n");
        ::chmod(path("script").c_str(), 0755);
        return path("script");
    }
    static bool ignored(int signal_no) {
        struct sigaction action = {};
        ::sigaction(signal_no, nullptr, &action);
        return action.sa_handler == SIG_IGN;
    }

  private:
    std::array<struct sigaction, INTERRUPTING_SIGNALS.size()> actions_ = {};
};

TEST_F(InterruptedCommand, InterruptsTheRunWhenItWasACopy) {
    for (const char* ending : {"kill -INT $$", "exit 130"}) {
        SCOPED_TRACE(ending);
        run_state.interrupted = 0;
        run_state.signal_no = 0;
        const Mounted copy(script(ending), "/bin/cp");
        EXPECT_EQ(IgCmnFileCopy(path("a").c_str(), path("b").c_str(), 1, 0), 0);
        EXPECT_EQ(run_state.interrupted, 1);
        EXPECT_EQ(run_state.signal_no, SIGINT);
        EXPECT_TRUE(ignored(SIGINT));
        EXPECT_TRUE(ignored(SIGTERM));
    }
}

TEST_F(InterruptedCommand, InterruptsTheRunWhenItWasARemoval) {
    const Mounted remove(script("kill -INT $$"), "/bin/rm");
    Capture err(stderr);
    EXPECT_EQ(IgCmnFileRemoveAll(path("a").c_str()), 1);
    EXPECT_EQ(run_state.interrupted, 1);
    EXPECT_EQ(run_state.signal_no, SIGINT);
}

TEST_F(InterruptedCommand, IsNotAssumedForEveryFailedCommand) {
    for (const char* ending : {"kill -TERM $$", "kill -QUIT $$", "exit 1", "exit 2", "exit 143"}) {
        SCOPED_TRACE(ending);
        const Mounted copy(script(ending), "/bin/cp");
        EXPECT_EQ(IgCmnFileCopy(path("a").c_str(), path("b").c_str(), 1, 0), 0);
        EXPECT_EQ(run_state.interrupted, 0);
        EXPECT_FALSE(ignored(SIGINT));
    }
}

TEST_F(InterruptedCommand, LeavesSignalsIgnoredWhenTheRunWasInterruptedBefore) {
    writeText(path("source"), "text");
    run_state.interrupted = 1;
    IgMainIgnoreSignals();
    EXPECT_EQ(IgCmnFileCopy(path("source").c_str(), path("copy").c_str(), 0, 0), 1);
    EXPECT_TRUE(ignored(SIGINT));
    EXPECT_TRUE(ignored(SIGTERM));
}

TEST_F(IGCmnFile, CopiesAndRemovesNothingWhenMemoryRunsOut) {
    writeText(path("file"), "x");
    const std::pair<int, std::function<int()>> calls[] = {
        {0, [&] { return IgCmnFileCopy(path("file").c_str(), path("copy").c_str(), 0, 0); }},
        {1, [&] { return IgCmnFileRemoveAll(path("file").c_str()); }},
    };
    for (const auto& [failure, call] : calls) {
        bool failed = true;
        for (int nth = 1; failed; ++nth) {
            SCOPED_TRACE(::testing::Message() << failure << ", allocation " << nth);
            Capture err(stderr);
            const FailingCall failing(Call::POOL, nth, ENOMEM);
            const int result = call();
            failed = FailingCall::happened();
            EXPECT_EQ(result, failed ? failure : 1 - failure);
            EXPECT_EQ(err.take(), failed ? "ZEPA122-E:Memory is insufficient.\n" : "");
            EXPECT_TRUE(!failed || fs::exists(path("file")));
            EXPECT_TRUE(!failed || failure == 1 || !fs::exists(path("copy")));
            EXPECT_TRUE(failed || nth > 2);
        }
    }
}

TEST(IGCmnFileDeathTest, AssertsPaths) {
    EXPECT_DEATH(IgCmnFileRemoveAll(nullptr), nullOf("`path"));
}

TEST(IGCmnFileDeathTest, AssertsSourceAndDestination) {
    EXPECT_DEATH(IgCmnFileCopy(nullptr, "/x", 0, 0), nullOf("`src"));
    EXPECT_DEATH(IgCmnFileCopy("/x", nullptr, 0, 0), nullOf("`dest"));
}

}  // namespace
