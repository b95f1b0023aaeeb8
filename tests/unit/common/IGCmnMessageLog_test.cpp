#include "common/base/IGRunHooks.h"
#include "common/base/IGRunState.h"
#include "common/report/IGCmnMessage.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "../../support/in_child.h"
#include "../../support/message_fixture.h"
#include "common/report/IGCmnProgress.h"

namespace {

class BrokenRunLog : public MessageTest {
  protected:
    // Puts a full device in the place of the run log; unbuffered, the write itself fails.
    static void breakLog(bool unbuffered) {
        std::fclose(msg_state.log);
        msg_state.log = std::fopen("/dev/full", "w");
        if (unbuffered) {
            std::setvbuf(msg_state.log, nullptr, _IONBF, 0);
        }
    }
    static void setHooks() {
        run_hooks.stop_child = [] { std::fputs("child stopped\n", stdout); };
        run_hooks.remove_output = [] { std::fputs("output removed\n", stdout); };
        run_hooks.end = [] {
            IgCmnMsg<ZEPA137_W>();  // is lost: the run log is closed
            std::fputs(msg_state.log == nullptr ? "end\n" : "end, log open\n", stdout);
            return 77;
        };
    }
    static std::string failure(const std::string& call) {
        return "ZEPA113-E:An error occurred during the following system call. system call name = " +
               call +
               ", error code = 28, msg = No space left on device.\n"
               "ZEPA151-E:Additional information, path = "
               "/var/opt/norvale/quendil/log/quendil.log.\n";
    }
};

TEST_F(BrokenRunLog, EndsTheRunWithTheEndRoutinesResult) {
    const ChildResult child = inChild([] {
        setHooks();
        breakLog(false);
        IgCmnMsgInfo<ZEPA202_I>("collecting");
        std::fputs("went on\n", stdout);
    });
    EXPECT_EQ(child.status, 77);
    EXPECT_EQ(child.out, "child stopped\noutput removed\nend\n");
    EXPECT_EQ(child.err, failure("fflush"));
}

TEST_F(BrokenRunLog, NamesTheFormattedWriteWhenThatFails) {
    const ChildResult child = inChild([] {
        setHooks();
        breakLog(true);
        IgCmnMsgInfo<ZEPA202_I>("collecting");
    });
    EXPECT_EQ(child.status, 77);
    EXPECT_EQ(child.err, failure("vfprintf"));
}

TEST_F(BrokenRunLog, ShowsATerminalMessageBeforeItEndsTheRun) {
    const ChildResult child = inChild([] {
        setHooks();
        breakLog(false);
        IgCmnMsg<ZEPA115_E>();
    });
    EXPECT_EQ(child.status, 77);
    EXPECT_EQ(child.err, "ZEPA115-E:A required option is not specified.\n" + failure("fflush"));
}

TEST_F(BrokenRunLog, ReportsItselfAsAnErrorInEveryMode) {
    const ChildResult child = inChild([] {
        setHooks();
        IgCmnMsgSetMode(1);
        breakLog(false);
        IgCmnMsg<ZEPA137_W>();
    });
    EXPECT_EQ(child.status, 77);
    EXPECT_EQ(child.err, failure("fflush"));
}

TEST_F(BrokenRunLog, LetsLaterFailuresReachTheTerminal) {
    const ChildResult child = inChild([] {
        run_hooks.end = [] {
            IgCmnSysErrPath("rmdir", EBUSY, "/out");
            return 5;
        };
        IgCmnMsgSetMode(1);
        breakLog(false);
        IgCmnMsg<ZEPA137_W>();
    });
    EXPECT_EQ(child.status, 5);
    EXPECT_EQ(child.err, failure("fflush") +
                             "ZEPA113-E:An error occurred during the following system call. system "
                             "call name = rmdir, error code = 16, msg = Device or resource busy.\n"
                             "ZEPA151-E:Additional information, path = /out.\n");
}

TEST_F(BrokenRunLog, KeepsAnOutputThatIsComplete) {
    for (const int code : {0, 10, 20, 255}) {
        SCOPED_TRACE(code);
        const ChildResult child = inChild([code] {
            setHooks();
            IgMainSetRetCode(code);
            breakLog(false);
            IgCmnMsg<ZEPA137_W>();
        });
        EXPECT_EQ(child.status, 77);
        EXPECT_EQ(child.out,
                  code == 20 ? "child stopped\nend\n" : "child stopped\noutput removed\nend\n");
    }
}

TEST_F(BrokenRunLog, ExitsWithTheReturnCodeBeforeThereIsAnEndRoutine) {
    const ChildResult child = inChild([] {
        breakLog(false);
        IgCmnMsg<ZEPA137_W>();
    });
    EXPECT_EQ(child.status, 255);
    EXPECT_EQ(child.err, failure("fflush"));
}

TEST_F(BrokenRunLog, EndsTheProgressLineFirst) {
    const ChildResult child = inChild([] {
        setHooks();
        IgCmnProgressEnable();
        IgCmnProgressInit();
        breakLog(false);
        IgCmnMsg<ZEPA137_W>();
    });
    EXPECT_EQ(child.out,
              "initialize:" + std::string(68, '_') + "\r\nchild stopped\noutput removed\nend\n");
}

TEST_F(BrokenRunLog, LeavesNothingToReprint) {
    const ChildResult child = inChild([] {
        run_hooks.end = [] {
            IgCmnMsgReprint();
            return 3;
        };
        IgCmnMsg<ZEPA129_W>("/etc/one");
        breakLog(false);
        IgCmnMsg<ZEPA137_W>();
    });
    EXPECT_EQ(child.status, 3);
    EXPECT_EQ(child.err,
              failure("fflush") + "ZEPA216-I:Look at /var/opt/norvale/quendil/log/quendil.log.\n");
}

}  // namespace
