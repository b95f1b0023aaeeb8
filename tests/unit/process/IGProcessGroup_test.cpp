#include "process/IGProcessGroup.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

namespace {

// Starts a child of this process that runs `body` and then waits to be killed.
template <typename Body>
pid_t start(Body body) {
    const pid_t pid = ::fork();
    if (pid == 0) {
        body();
        for (;;) {
            ::pause();
        }
    }
    return pid;
}

void awaitEnd(pid_t pid) {
    siginfo_t info = {};
    ASSERT_EQ(::waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT), 0);
}

void killAndAwait(pid_t pid) {
    ASSERT_EQ(::kill(pid, SIGKILL), 0);
    awaitEnd(pid);
}

void reap(pid_t pid) {
    ASSERT_EQ(::waitpid(pid, nullptr, 0), pid);
}

// A group whose leader has ended and is not reaped.
class IGProcessGroup : public testing::Test {
  protected:
    void SetUp() override {
        leader_ = start([] {
            ::setpgid(0, 0);
            ::_exit(0);
        });
        awaitEnd(leader_);
    }
    void TearDown() override { reap(leader_); }

    pid_t leader_ = 0;
};

TEST_F(IGProcessGroup, IsDeadAfterItsLeader) {
    EXPECT_FALSE(processGroupLives(leader_));
    EXPECT_EQ(::kill(-leader_, 0), 0);  // which a signal cannot detect
}

TEST_F(IGProcessGroup, LivesAsLongAsOneMember) {
    const pid_t member = start([] {});
    const pid_t other = start([] {});
    ASSERT_EQ(::setpgid(member, leader_), 0);
    ASSERT_EQ(::setpgid(other, leader_), 0);
    EXPECT_TRUE(processGroupLives(leader_));
    killAndAwait(member);
    EXPECT_TRUE(processGroupLives(leader_));
    killAndAwait(other);
    EXPECT_FALSE(processGroupLives(leader_));  // both are still to be reaped
    reap(member);
    reap(other);
    EXPECT_FALSE(processGroupLives(leader_));
}

TEST_F(IGProcessGroup, IsNotConfusedByTheNameOfAProcess) {
    const pid_t member = start([] { ::prctl(PR_SET_NAME, "a) Z 1 1 ("); });
    ASSERT_EQ(::setpgid(member, leader_), 0);
    EXPECT_TRUE(processGroupLives(leader_));
    killAndAwait(member);
    EXPECT_FALSE(processGroupLives(leader_));
    reap(member);
}

TEST_F(IGProcessGroup, DoesNotCountOtherGroups) {
    const pid_t other = start([] { ::setpgid(0, 0); });
    EXPECT_FALSE(processGroupLives(leader_));
    killAndAwait(other);
    reap(other);
}

TEST_F(IGProcessGroup, CountsAsAliveWhenItsStateIsUnknown) {
    EXPECT_TRUE(processGroupLives(1));  // not our child
    const pid_t living = start([] { ::setpgid(0, 0); });
    EXPECT_TRUE(processGroupLives(living));
    killAndAwait(living);
    reap(living);
    EXPECT_TRUE(processGroupLives(living));  // already reaped: its state is unknown
}

}  // namespace
