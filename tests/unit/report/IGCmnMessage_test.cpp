#include "common/report/IGCmnMessage.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <set>
#include <string>
#include <vector>

#include "../../support/in_child.h"
#include "../../support/message_catalogue.h"
#include "../../support/message_fixture.h"
#include "common/report/IGCmnMessageState.h"
#include "common/report/IGCmnProgress.h"

namespace {

class IGCmnMessage : public MessageTest {
  protected:
    Outputs outputsOf(const Entry& entry) {
        return outputs([&] { issue(entry); });
    }

    // The text on each output for a message of this kind, with an open run log.
    static Outputs expected(int kind, const std::string& text) {
        switch (kind) {
            case 0:
                return {"", "", text};
            case 1:
                return {text, "", text};
            case 2:
                return {"", text, text};
            case 3:
                return {"", text, ""};
            case 4:
                return {text, "", ""};
            default:
                return {"", "", ""};
        }
    }
};

TEST_F(IGCmnMessage, HoldsTheWholeCatalogueAndNothingElse) {
    ASSERT_EQ(CATALOGUE.size(), 92U);
    EXPECT_EQ(std::size(msg_tbl), 93U);
    for (const Entry& entry : CATALOGUE) {
        SCOPED_TRACE(entry.number);
        const MsgEntry& found = msgEntry(entry.number);
        EXPECT_EQ(found.number, entry.number);
        EXPECT_STREQ(found.text, entry.text);
        EXPECT_EQ(found.kind, entry.kind);
        EXPECT_EQ(found.f1, entry.f1);
        EXPECT_EQ(found.f2, entry.f2);
        EXPECT_STREQ(IgCmnMsgGetText(entry.number), entry.text);
    }
}

TEST_F(IGCmnMessage, EndsItsCatalogueWithATerminator) {
    const MsgEntry& last = *std::prev(std::end(msg_tbl));
    EXPECT_EQ(last.number, 93);
    EXPECT_EQ(last.text, nullptr);
    EXPECT_EQ(last.kind, 0);
    EXPECT_EQ(last.f1, 0U);
    EXPECT_EQ(last.f2, 0U);
}

TEST_F(IGCmnMessage, HasNoTextForAnUnknownNumber) {
    for (const int number : {60, 93, 500, -1, 1000}) {
        EXPECT_EQ(IgCmnMsgGetText(number), nullptr) << number;
        EXPECT_EQ(outputs([&] { IgCmnMsgOut(number); }), Outputs()) << number;
    }
    EXPECT_EQ(msg_state.stderr_used, 0);
}

TEST_F(IGCmnMessage, HasEveryNumberAndEveryIdentifierOnce) {
    std::set<int> numbers;
    std::set<std::string> identifiers;
    for (const MsgEntry& entry : msg_tbl) {
        EXPECT_TRUE(numbers.insert(entry.number).second) << entry.number;
        if (entry.text != nullptr && std::strncmp(entry.text, "ZEPA", 4) == 0) {
            EXPECT_TRUE(identifiers.insert(std::string(entry.text, 9)).second) << entry.text;
        }
    }
}

TEST_F(IGCmnMessage, GoesWhereItsKindSays) {
    for (const Entry& entry : CATALOGUE) {
        SCOPED_TRACE(entry.number);
        msg_state.stderr_used = 0;
        EXPECT_EQ(outputsOf(entry), expected(entry.kind, filledIn(entry.text)));
        EXPECT_EQ(msg_state.stderr_used, entry.kind == 2 || entry.kind == 3 ? 1 : 0);
    }
}

TEST_F(IGCmnMessage, OmitsTheRunLogWhileItIsNotOpen) {
    closeLog();
    for (const Entry& entry : CATALOGUE) {
        SCOPED_TRACE(entry.number);
        msg_state.stderr_used = 0;
        Outputs without_log = expected(entry.kind, filledIn(entry.text));
        without_log.log = "";
        EXPECT_EQ(outputsOf(entry), without_log);
        EXPECT_EQ(msg_state.stderr_used, entry.kind == 2 || entry.kind == 3 ? 1 : 0);
    }
}

TEST_F(IGCmnMessage, TurnsFailuresIntoWarningsOfTheRunLogDuringACollection) {
    struct Replacement {
        int number;
        int mode;
        int kind;
        std::string text;
    };
    const std::vector<Replacement> replacements{
        {9, 1, 0, IgCmnMsgGetText(40)},
        {9, 2, 0, IgCmnMsgGetText(40)},
        {10, 1, 0, IgCmnMsgGetText(41)},
        {10, 2, 0, IgCmnMsgGetText(41)},
        {42, 1, 0, IgCmnMsgGetText(43)},
        {42, 2, 0, IgCmnMsgGetText(43)},
        {18, 1, 2, "ZEPA143-W:Memory is insufficient.\n"},
    };
    for (const int mode : {1, 2, 0}) {
        IgCmnMsgSetMode(static_cast<MsgMode>(mode));
        for (const Entry& entry : CATALOGUE) {
            SCOPED_TRACE("mode " + std::to_string(mode) + ", message " +
                         std::to_string(entry.number));
            Outputs wanted = expected(entry.kind, filledIn(entry.text));
            for (const Replacement& r : replacements) {
                if (r.number == entry.number && r.mode == mode) {
                    wanted = expected(r.kind, filledIn(r.text));
                }
            }
            EXPECT_EQ(outputsOf(entry), wanted);
        }
    }
}

TEST_F(IGCmnMessage, MarksTheStandardErrorAsUsedOnlyWhenItWas) {
    IgCmnMsgSetMode(MSGMODE_COLLECTING);
    outputs([] { IgCmnSysErrPath("open", ENOENT, "/x"); });
    EXPECT_EQ(msg_state.stderr_used, 0);
    outputs([] { IgCmnMsg<ZEPA122_E>(); });
    EXPECT_EQ(msg_state.stderr_used, 1);
}

TEST_F(IGCmnMessage, JoinsIdentifierAndTextToOneLine) {
    const Outputs o = outputs([] { IgCmnMsgInfo<ZEPA202_I>("initializing"); });
    EXPECT_EQ(o, (Outputs{"", "", "ZEPA202-I:Started initializing.\n"}));
}

TEST_F(IGCmnMessage, KeepsErrno) {
    errno = ECHILD;
    outputs([] {
        errno = ECHILD;
        IgCmnMsg<ZEPA115_E>();
        EXPECT_EQ(errno, ECHILD);
    });
}

TEST_F(IGCmnMessage, IgnoresStandardStreamsThatCannotBeWritten) {
    const ChildResult child = inChild([] {
        const int full = ::open("/dev/full", O_WRONLY);
        ::dup2(full, STDOUT_FILENO);
        ::dup2(full, STDERR_FILENO);
        IgCmnMsg<ZEPA115_E>();
        IgCmnMsg<ZEPA215_I>("x");
        IgCmnMsg<ZEPA216_I>("x");
        std::_Exit(msg_state.log != nullptr ? 0 : 1);
    });
    EXPECT_EQ(child.status, 0);
    EXPECT_EQ(takeLog(), "ZEPA115-E:A required option is not specified.\nZEPA215-I:Output = x.\n");
}

// The progress line and messages

TEST_F(IGCmnMessage, EndsTheProgressLineBeforeItIsShownOnTheTerminal) {
    for (const Entry& entry : CATALOGUE) {
        SCOPED_TRACE(entry.number);
        const ChildResult child = inChild([&entry] {
            IgCmnProgressEnable();
            IgCmnProgressInit();
            std::fputs("|", stdout);
            issue(entry);
            issue(entry);
        });
        const std::string bar = "initialize:" + std::string(68, '_') + "\r|";
        const bool terminal = entry.kind >= 1 && entry.kind <= 4;
        const std::string text = filledIn(entry.text);
        const bool to_stdout = entry.kind == 1 || entry.kind == 4;
        EXPECT_EQ(child.out, bar + (terminal ? "\n" : "") + (to_stdout ? text + text : ""));
    }
}

TEST_F(IGCmnMessage, KeepsTheProgressLineForAWarningThatOnlyTheRunLogGets) {
    const ChildResult child = inChild([] {
        IgCmnProgressEnable();
        IgCmnProgressInit();
        IgCmnMsgSetMode(MSGMODE_COLLECTING);
        IgCmnSysErrPath("open", ENOENT, "/x");
    });
    EXPECT_EQ(child.out, "initialize:" + std::string(68, '_') + "\r");
    EXPECT_EQ(child.err, "");
}

}  // namespace
