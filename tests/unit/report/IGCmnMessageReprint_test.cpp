#include "common/base/IGRunState.h"
#include "common/report/IGCmnMessage.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "../../support/in_child.h"
#include "../../support/message_catalogue.h"
#include "../../support/message_fixture.h"
#include "common/report/IGCmnMessageState.h"
#include "common/report/IGCmnProgress.h"

namespace {

using namespace std::string_literals;

class SavedWarning : public MessageTest {
  protected:
    Outputs reprint() { return outputs(IgCmnMsgReprint); }
    static constexpr const char* LOOK =
        "ZEPA216-I:Look at /var/opt/norvale/quendil/log/quendil.log.\n";
};

TEST_F(SavedWarning, IsShownAgainAtTheEndWithTheRunLogsPath) {
    outputs([] { IgCmnMsg<ZEPA129_W>("/etc/one"); });
    EXPECT_EQ(
        reprint(),
        (Outputs{"", "ZEPA129-W:A system information(/etc/one) is not found.\n"s + LOOK, ""}));
}

TEST_F(SavedWarning, IsTheLastOne) {
    outputs([] {
        IgCmnMsg<ZEPA129_W>("/a/very/long/name/that/needs/a/larger/buffer/than/the/one/after/it");
        IgCmnMsg<ZEPA129_W>("/short");
        IgCmnMsg<ZEPA129_W>("/longer/again");
    });
    EXPECT_EQ(reprint().err,
              "ZEPA129-W:A system information(/longer/again) is not found.\n"s + LOOK);
}

TEST_F(SavedWarning, MayBeOfAnyLength) {
    const std::string name(5000, 'n');
    outputs([&] { IgCmnMsg<ZEPA129_W>(name.c_str()); });
    EXPECT_EQ(reprint().err, "ZEPA129-W:A system information(" + name + ") is not found.\n" + LOOK);
}

TEST_F(SavedWarning, IsNotShownWhenTheStandardErrorHasSeenAMessage) {
    outputs([] {
        IgCmnMsg<ZEPA129_W>("/etc/one");
        IgCmnMsg<ZEPA115_E>();
    });
    EXPECT_EQ(reprint().err, LOOK);
}

TEST_F(SavedWarning, IsNotShownAgainWhenNothingWasSaved) {
    EXPECT_EQ(reprint().err, LOOK);
}

TEST_F(SavedWarning, NamesNoRunLogThatWasNeverOpened) {
    closeLog();
    msg_state.log_opened = 0;
    EXPECT_EQ(reprint(), Outputs());
}

TEST_F(SavedWarning, NamesTheRunLogAlsoAfterItWasClosed) {
    closeLog();
    EXPECT_EQ(reprint().err, LOOK);
}

TEST_F(SavedWarning, IsNotKeptWithoutAnOpenRunLog) {
    closeLog();
    outputs([] { IgCmnMsg<ZEPA129_W>("/etc/one"); });
    EXPECT_EQ(reprint().err, LOOK);
}

TEST_F(SavedWarning, IsKeptForNumbersUpTo40Except10) {
    for (const Entry& entry : CATALOGUE) {
        SCOPED_TRACE(entry.number);
        IgCmnMsgFree();
        outputs([&] { issue(entry); });
        msg_state.stderr_used = 0;
        const bool kept = entry.kind == 0 && entry.number <= 40 && entry.number != 10;
        EXPECT_EQ(reprint().err, (kept ? filledIn(entry.text) : "") + LOOK);
    }
}

TEST_F(SavedWarning, IsKeptOnlyWhileTheReturnCodeIsAbove20) {
    for (const int code : {0, 10, 20, 21, 255}) {
        SCOPED_TRACE(code);
        IgCmnMsgFree();
        msg_state.stderr_used = 0;
        IgMainSetRetCode(code);
        outputs([] { IgCmnMsg<ZEPA137_W>(); });
        EXPECT_EQ(reprint().err, (code > 20 ? "ZEPA137-W:Internal error occurred.\n"s : "") + LOOK);
    }
}

TEST_F(SavedWarning, IsTheFailedCallOfACollectionAsTheRunLogShowedIt) {
    IgCmnMsgSetMode(MSGMODE_COLLECTING);
    outputs([] { IgCmnSysErrPath("open", ENOENT, "/x"); });
    EXPECT_EQ(reprint().err,
              "ZEPA140-W:An error occurred during the following system call. system call name = "
              "open, error code = 2, msg = No such file or directory.\n"s +
                  LOOK);
}

TEST_F(SavedWarning, KeepsItsPercentSigns) {
    outputs([] { IgCmnMsg<ZEPA129_W>("/100%s%n"); });
    EXPECT_EQ(reprint().err, "ZEPA129-W:A system information(/100%s%n) is not found.\n"s + LOOK);
}

TEST_F(SavedWarning, EndsTheProgressLineFirst) {
    const ChildResult child = inChild([] {
        IgCmnMsg<ZEPA129_W>("/etc/one");
        IgCmnProgressEnable();
        IgCmnProgressInit();
        IgCmnMsgReprint();
        std::fputs("end", stdout);
    });
    EXPECT_EQ(child.out, "initialize:" + std::string(68, '_') + "\r\nend");
    EXPECT_EQ(child.err, "ZEPA129-W:A system information(/etc/one) is not found.\n"s + LOOK);
}

TEST_F(SavedWarning, IsNotShownAfterItIsFreed) {
    outputs([] { IgCmnMsg<ZEPA129_W>("/etc/one"); });
    IgCmnMsgFree();
    EXPECT_EQ(reprint().err, LOOK);
    outputs([] { IgCmnMsg<ZEPA137_W>(); });
    msg_state.stderr_used = 0;
    EXPECT_EQ(reprint().err, "ZEPA137-W:Internal error occurred.\n"s + LOOK);
}

TEST_F(SavedWarning, IsDroppedWhenThereIsNoMemoryForIt) {
    if (ADDRESS_SANITIZER) {
        GTEST_SKIP() << "the sanitizer's allocator does not obey limits";
    }
    const std::string name(3000, 'n');
    const ChildResult child = inChild([&name] {
        IgCmnMsg<ZEPA137_W>();
        exhaustMemory();
        IgCmnMsg<ZEPA129_W>(name.c_str());
        msg_state.stderr_used = 0;
        IgCmnMsgReprint();
    });
    EXPECT_EQ(child.err, "ZEPA122-E:Memory is insufficient.\n"s + LOOK);
    EXPECT_EQ(takeLog(), "ZEPA137-W:Internal error occurred.\nZEPA129-W:A system information(" +
                             name + ") is not found.\nZEPA122-E:Memory is insufficient.\n");
}

}  // namespace
