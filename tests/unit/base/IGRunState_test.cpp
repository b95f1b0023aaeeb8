#include "common/base/IGRunState.h"

#include <gmock/gmock.h>
#include <signal.h>

#include <array>
#include <string>

#include "../../support/in_child.h"
#include "../../support/run_fixture.h"
#include "common/base/IGRunHooks.h"

namespace {

class IGRunState : public RunTest {
  protected:
    void SetUp() override {
        RunTest::SetUp();
        reports = 0;
        for (std::size_t i = 0; i < actions_.size(); ++i) {
            ::sigaction(INTERRUPTING_SIGNALS[i], nullptr, &actions_[i]);
        }
    }
    void TearDown() override {
        for (std::size_t i = 0; i < actions_.size(); ++i) {
            ::sigaction(INTERRUPTING_SIGNALS[i], &actions_[i], nullptr);
        }
        RunTest::TearDown();
    }
    static inline int reports = 0;

  private:
    std::array<struct sigaction, INTERRUPTING_SIGNALS.size()> actions_ = {};
};

TEST_F(IGRunState, StartsAsAFailedRunThatNothingInterrupted) {
    const RunState start;
    EXPECT_EQ(start.ret_code, 255);
    EXPECT_EQ(start.interrupted, 0);
    EXPECT_EQ(start.signal_no, 0);
    EXPECT_EQ(start.super_user, 104);
}

TEST_F(IGRunState, KeepsTheReturnCode) {
    EXPECT_EQ(IgMainGetRetCode(), 255);
    for (const int code : {20, 10, 0, 255}) {
        IgMainSetRetCode(code);
        EXPECT_EQ(IgMainGetRetCode(), code);
    }
}

TEST_F(IGRunState, KnowsTheCommandsNameOrNone) {
    EXPECT_STREQ(IgMainGetCmdName(), "");
    run_state.cmd_name = "quendil";
    EXPECT_STREQ(IgMainGetCmdName(), "quendil");
}

TEST_F(IGRunState, ReportsNothingUntilItIsInterrupted) {
    EXPECT_EQ(IgMainIsInterrupted(), 0);
    EXPECT_EQ(takeLog(), "");
}

TEST_F(IGRunState, ReportsAnInterruptionOnce) {
    run_hooks.report_interruption = [] { ++reports; };
    run_state.signal_no = SIGTERM;
    run_state.interrupted = 1;
    EXPECT_EQ(IgMainIsInterrupted(), 1);
    EXPECT_EQ(IgMainIsInterrupted(), 1);
    EXPECT_EQ(reports, 1);
}

TEST_F(IGRunState, IsInterruptedWhereNothingReportsIt) {
    run_hooks.report_interruption = nullptr;
    run_state.interrupted = 1;
    EXPECT_EQ(IgMainIsInterrupted(), 1);
    EXPECT_EQ(takeLog(), "");
}

TEST_F(IGRunState, MayBeCheckedWhileTheInterruptionIsReported) {
    run_hooks.report_interruption = [] {
        ++reports;
        EXPECT_EQ(IgMainIsInterrupted(), 1);
    };
    run_state.interrupted = 1;
    Capture err(stderr);
    EXPECT_EQ(IgMainIsInterrupted(), 1);
    EXPECT_EQ(reports, 1);
}

TEST_F(IGRunState, IgnoresFurtherSignalsOnceItIsInterrupted) {
    IgMainSetInterrupted(SIGINT);
    EXPECT_EQ(run_state.interrupted, 1);
    EXPECT_EQ(run_state.signal_no, SIGINT);
    for (const int signal_no : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction action = {};
        ASSERT_EQ(::sigaction(signal_no, nullptr, &action), 0);
        EXPECT_EQ(action.sa_handler, SIG_IGN);
    }
}

}  // namespace
