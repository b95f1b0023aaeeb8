#include "common/base/IGRunHooks.h"
#include "common/report/IGCmnMessage.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "../../support/in_child.h"
#include "../../support/message_fixture.h"
#include "common/report/IGCmnMessageState.h"
#include "common/report/IGCmnProgress.h"

namespace {

class BrokenRunLog : public MessageTest {
  protected:
    // Replaces the run log by a full device; unbuffered, the write itself fails.
    static void breakLog(bool unbuffered) {
        std::fclose(msg_state.log);
        msg_state.log = std::fopen("/dev/full", "w");
        if (unbuffered) {
            std::setvbuf(msg_state.log, nullptr, _IONBF, 0);
        }
    }
    static void setHook() {
        run_hooks.end_after_log_failure = [] {
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
        setHook();
        breakLog(false);
        IgCmnMsgInfo<ZEPA202_I>("collecting");
        std::fputs("went on\n", stdout);
    });
    EXPECT_EQ(child.status, 77);
    EXPECT_EQ(child.out, "end\n");
    EXPECT_EQ(child.err, failure("fflush"));
}

TEST_F(BrokenRunLog, NamesTheFormattedWriteWhenThatFails) {
    const ChildResult child = inChild([] {
        setHook();
        breakLog(true);
        IgCmnMsgInfo<ZEPA202_I>("collecting");
    });
    EXPECT_EQ(child.status, 77);
    EXPECT_EQ(child.err, failure("vfprintf"));
}

TEST_F(BrokenRunLog, ShowsATerminalMessageBeforeItEndsTheRun) {
    const ChildResult child = inChild([] {
        setHook();
        breakLog(false);
        IgCmnMsg<ZEPA115_E>();
    });
    EXPECT_EQ(child.status, 77);
    EXPECT_EQ(child.err, "ZEPA115-E:A required option is not specified.\n" + failure("fflush"));
}

TEST_F(BrokenRunLog, ReportsItselfAsAnErrorInEveryMode) {
    const ChildResult child = inChild([] {
        setHook();
        IgCmnMsgSetMode(MSGMODE_COLLECTING);
        breakLog(false);
        IgCmnMsg<ZEPA137_W>();
    });
    EXPECT_EQ(child.status, 77);
    EXPECT_EQ(child.err, failure("fflush"));
}

TEST_F(BrokenRunLog, ShowsLaterFailuresOnTheTerminal) {
    const ChildResult child = inChild([] {
        run_hooks.end_after_log_failure = [] {
            IgCmnSysErrPath("rmdir", EBUSY, "/out");
            return 5;
        };
        IgCmnMsgSetMode(MSGMODE_COLLECTING);
        breakLog(false);
        IgCmnMsg<ZEPA137_W>();
    });
    EXPECT_EQ(child.status, 5);
    EXPECT_EQ(child.err, failure("fflush") +
                             "ZEPA113-E:An error occurred during the following system call. system "
                             "call name = rmdir, error code = 16, msg = Device or resource busy.\n"
                             "ZEPA151-E:Additional information, path = /out.\n");
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
        setHook();
        IgCmnProgressEnable();
        IgCmnProgressInit();
        breakLog(false);
        IgCmnMsg<ZEPA137_W>();
    });
    EXPECT_EQ(child.out, "initialize:" + std::string(68, '_') + "\r\nend\n");
}

TEST_F(BrokenRunLog, LeavesNothingToReprint) {
    const ChildResult child = inChild([] {
        run_hooks.end_after_log_failure = [] {
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
