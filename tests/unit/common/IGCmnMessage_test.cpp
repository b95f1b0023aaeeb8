#include "common/IGCmnMessage.h"

#include <gmock/gmock.h>

#include <array>
#include <cerrno>
#include <clocale>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "../../support/in_child.h"
#include "../../support/run_fixture.h"
#include "../../support/standing_in.h"
#include "common/IGCmnProgress.h"

namespace {

using namespace std::string_literals;

struct Entry {
    int number;
    int kind;
    unsigned f1;
    unsigned f2;
    const char* text;
};

// The catalogue once more, in the order of its numbers: what users, their scripts and our documents
// rely on. A change of a text has to be made in both places.
const std::vector<Entry> CATALOGUE{
    {0, 2, 0, 0, "ZEPA101-E:The specified option(%s) is invalid.\n"},
    {1, 2, 0, 0, "ZEPA102-E:The specified option(%s) requires an argument.\n"},
    {2, 2, 0, 0, "ZEPA104-E:The specified directory(%s) does not exist.\n"},
    {3, 2, 0, 0, "ZEPA105-E:You do not have write permissions for the specified directory(%s).\n"},
    {4, 2, 0, 0, "ZEPA106-E:The specified configuration file(%s) does not exist.\n"},
    {5, 2, 0, 0, "ZEPA107-W:The specified option(%s) cannot be specified twice or more.\n"},
    {6, 2, 0, 0, "ZEPA108-E:The specified argument of the option(%s) is too long.\n"},
    {7, 2, 0, 0, "ZEPA109-E:The specified file(%s) already exists.\n"},
    {8, 2, 0, 0, "ZEPA112-E:You do not have access permissions for the specified file(%s).\n"},
    {9, 2, 0, 0,
     "ZEPA113-E:An error occurred during the following system call. "
     "system call name = %s, error code = %d, msg = %s.\n"},
    {10, 0, 0, 0, "ZEPA114-E:source = %s, line no = %d.\n"},
    {11, 2, 0, 0, "ZEPA115-E:A required option is not specified.\n"},
    {12, 2, 0, 0, "ZEPA116-E:Another quendil is already running. Please try later.\n"},
    {13, 2, 0, 0, "ZEPA117-E:This cannot be executed because the user is not a super user.\n"},
    {14, 2, 0, 0, "ZEPA118-E:A configuration file(%s) does not exist.\n"},
    {15, 2, 0, 0, "ZEPA119-E:A syntax error occurred.\n"},
    {16, 2, 0, 0, "ZEPA120-E:filename = %s, line no = %d.\n"},
    {17, 2, 0, 0,
     "ZEPA121-E:There is not system information to be collected under the specified options.\n"},
    {18, 2, 0, 0, "ZEPA122-E:Memory is insufficient.\n"},
    {19, 0, 0, 0,
     "ZEPA125-W:An information collecting tool(%s) that collects system information does not "
     "exist.\n"},
    {20, 0, 0, 0,
     "ZEPA126-W:A timeout occurred while information collecting tool(%s) was being executed.\n"},
    {21, 0, 0, 0, "ZEPA129-W:A system information(%s) is not found.\n"},
    {22, 0, 0, 0, "ZEPA130-W:An attempt to collect the system information has failed.\n"},
    {23, 3, 0, 0, "ZEPA131-W:The size of the output data exceeded a limit size.\n"},
    {24, 2, 0, 0, "ZEPA150-W:The specified command(%s) does not exist.\n"},
    {25, 2, 0, 0, "ZEPA132-W:An error occurred while an archiver was being executed.\n"},
    {26, 2, 0, 0, "ZEPA133-W:An attempt to copy the logfile (%s) has failed.\n"},
    {27, 2, 0, 0,
     "ZEPA134-W:An error occurred while Norvale Self-Extractor was being executed. "
     "error code = %d.\n"},
    {28, 2, 0, 0, "ZEPA135-W:An error occurred while a compression was being executed.\n"},
    {29, 2, 0, 0, "ZEPA136-E:quendil was interrupted. signal no = %d.\n"},
    {30, 0, 0, 0, "ZEPA137-W:Internal error occurred.\n"},
    {31, 0, 0, 0, "ZEPA138-W:filename = %s, line no = %d.\n"},
    {32, 2, 0, 0, "ZEPA139-W:Invalid format number(%s).\n"},
    {33, 0, 0, 0, "ZEPA142-W:An attempt to copy the logfile (%s) has failed.\n"},
    {34, 2, 0, 0,
     "ZEPA145-W:There is not system information because an error occurred during reading of all "
     "collection pattern definition files.\n"},
    {35, 2, 0, 0, "ZEPA146-W:An attempt to delete a %s has failed.\n"},
    {36, 2, 0, 0, "ZEPA144-E:The specified output file(%s) must be absolute path name.\n"},
    {37, 0, 0, 0, "ZEPA147-W:An attempt to read the registry(%s) has failed.\n"},
    {38, 0, 0, 0, "ZEPA148-W:An attempt to wait or stop a process (%d) has failed.\n"},
    {39, 3, 1, 0,
     "ZEPA149-W:There were one or more information collection tools which could not be waited or "
     "be stopped.\n"},
    {40, 3, 0, 0,
     "ZEPA140-W:An error occurred during the following system call. "
     "system call name = %s, error code = %d, msg = %s.\n"},
    {41, 3, 0, 0, "ZEPA141-W:source = %s, line no = %d.\n"},
    {42, 2, 0, 0, "ZEPA151-E:Additional information, %s = %s.\n"},
    {43, 3, 0, 0, "ZEPA152-W:Additional information, %s = %s.\n"},
    {44, 0, 0, 0,
     "ZEPA153-W:The size of the output data exceeded a limit size. "
     "filename = %s, size = %lld bytes.\n"},
    {45, 0, 0, 0, "ZEPA154-W:Retrying to stop a process(%s). PID = %d, COUNT = %d.\n"},
    {46, 0, 0, 0, "ZEPA155-W:A process(%s) was stopped. PID = %d.\n"},
    {47, 0, 0, 0, "ZEPA156-W:Trying to terminate a process(%s). PID = %d.\n"},
    {48, 0, 0, 0, "ZEPA157-W:A process(%s) was forced to terminate. PID = %d.\n"},
    {49, 2, 0, 0,
     "ZEPA158-W:A process(%s) may remain because system call error occurred. PID = %d.\n"},
    {50, 0, 1, 0, "ZEPA201-I:"},
    {51, 0, 1, 0, "quendil [Ver. %s] started at %s.\n"},
    {52, 0, 1, 0, "ZEPA202-I:"},
    {53, 0, 1, 0, "Started %s.\n"},
    {54, 0, 1, 0, "ZEPA203-I:"},
    {55, 0, 1, 0, "Ended %s.\n"},
    {56, 0, 1, 0, "ZEPA204-I:"},
    {57, 0, 1, 1, "quendil argument is \"%s\".\n"},
    {58, 0, 1, 0, "ZEPA205-I:"},
    {59, 0, 1, 1,
     "Summary of parameters.\n"
     "    Configuration file = %s\n"
     "    Output path of collected information = %s\n"
     "    Max output data size = %lld KB\n"
     "    Cleanup = %s\n"
     "    Output file = %s\n"},
    {61, 0, 1, 1, "    PP_GROUP = %s\n"},
    {62, 0, 1, 1, "    TARGET = %s\n"},
    {63, 0, 1, 1, "    PP_NAME = %s\n"},
    {64, 0, 1, 0, "ZEPA206-I:"},
    {65, 0, 1, 1,
     "Information collecting tool start.\n"
     "    Command  = \"%s\"\n"
     "    Start time = %s\n"
     "    Timeout = %d\n"},
    {66, 0, 1, 0, "ZEPA207-I:"},
    {67, 0, 1, 1,
     "Information collecting tool end.\n"
     "    Return code = %d\n"
     "    Status code = %d\n"
     "    End time = %s\n"},
    {68, 0, 1, 0, "ZEPA208-W:"},
    {69, 0, 1, 0, "Information collecting tool error message.\n"},
    {70, 0, 1, 0, "ZEPA209-I:"},
    {71, 0, 1, 1, "It copied collecting data = %s. size = %lld bytes.\n"},
    {72, 0, 1, 0, "ZEPA210-I:"},
    {73, 0, 1, 1, "Total data size: %lld bytes.\n"},
    {74, 1, 1, 0, "ZEPA211-I:"},
    {75, 1, 1, 0, "Archive file = %s. size = %lld bytes.\n"},
    {76, 0, 1, 0, "ZEPA212-I:"},
    {77, 0, 1, 1, "Deleted data below \"%s\".\n"},
    {78, 0, 1, 0, "ZEPA213-I:"},
    {79, 0, 1, 0, "quendil ended at %s. return code = %d.\n"},
    {80, 1, 1, 0, "ZEPA214-I:"},
    {81, 1, 1, 0, "Output file = %s. size = %lld bytes.\n"},
    {82, 1, 1, 0, "ZEPA215-I:Output = %s.\n"},
    {83, 3, 1, 0, "ZEPA216-I:Look at %s.\n"},
    {84, 5, 1, 0, "ZEPA301-I:quendil [Ver. %s] started at %s.\n"},
    {85, 5, 1, 0, "ZEPA302-I:quendil argument is %s.\n"},
    {86, 5, 1, 0, "ZEPA303-I:Output = %s.\n"},
    {87, 5, 1, 0, "ZEPA304-I:quendil exit code = %d.\n"},
    {88, 5, 1, 0, "ZEPA305-I:quendil ended at %s.\n"},
    {89, 4, 1, 0, ""},
    {90, 1, 0, 0,
     "%s [Ver. %s]\n"
     "\n"
     "usage:\t%s\t{ -g pp_group | -t target } ...\n"
     "\t\t[ -c configfile ] [ -d directory ] [ -o output_file ]\n"
     "\t%s\t-h\n"
     "\n"},
    {91, 2, 0, 0,
     "ZEPA306-I:The archive file has not been compressed. Use a following file as is.\n"},
    {92, 2, 0, 0,
     "ZEPA159-W:quendil command is older than the collection pattern file. "
     "skip the file (%s).\n"},
};

// One value for each kind of placeholder, past 32 bits where the placeholder is.
constexpr const char* TEXT = "some text";
constexpr int NUMBER = -7;
constexpr long long LONG_NUMBER = 5'000'000'000;

std::string filledIn(std::string text) {
    for (const auto& [placeholder, value] : {std::pair{"%s"s, std::string(TEXT)},
                                             {"%d"s, std::to_string(NUMBER)},
                                             {"%lld"s, std::to_string(LONG_NUMBER)}}) {
        for (std::size_t at = text.find(placeholder); at != std::string::npos;
             at = text.find(placeholder, at + value.size())) {
            text.replace(at, placeholder.size(), value);
        }
    }
    return text;
}

// Issues a message with the values above, as its text wants them.
void issue(const Entry& entry) {
    std::string kinds;
    const std::string text = entry.text;
    for (std::size_t at = text.find('%'); at != std::string::npos; at = text.find('%', at + 1)) {
        kinds += text[at + 1];
    }
    const int n = entry.number;
    if (kinds.empty()) {
        IgCmnMsgOut(n);
    } else if (kinds == "s") {
        IgCmnMsgOut(n, TEXT);
    } else if (kinds == "d") {
        IgCmnMsgOut(n, NUMBER);
    } else if (kinds == "l") {
        IgCmnMsgOut(n, LONG_NUMBER);
    } else if (kinds == "ss") {
        IgCmnMsgOut(n, TEXT, TEXT);
    } else if (kinds == "sd") {
        IgCmnMsgOut(n, TEXT, NUMBER);
    } else if (kinds == "sl") {
        IgCmnMsgOut(n, TEXT, LONG_NUMBER);
    } else if (kinds == "sds") {
        IgCmnMsgOut(n, TEXT, NUMBER, TEXT);
    } else if (kinds == "sdd") {
        IgCmnMsgOut(n, TEXT, NUMBER, NUMBER);
    } else if (kinds == "ssd") {
        IgCmnMsgOut(n, TEXT, TEXT, NUMBER);
    } else if (kinds == "dds") {
        IgCmnMsgOut(n, NUMBER, NUMBER, TEXT);
    } else if (kinds == "ssss") {
        IgCmnMsgOut(n, TEXT, TEXT, TEXT, TEXT);
    } else if (kinds == "sslss") {
        IgCmnMsgOut(n, TEXT, TEXT, LONG_NUMBER, TEXT, TEXT);
    } else {
        FAIL() << "placeholders of message " << n << " are not known here";
    }
}

struct Outputs {
    std::string out;
    std::string err;
    std::string log;
    bool operator==(const Outputs&) const = default;
};
std::ostream& operator<<(std::ostream& stream, const Outputs& o) {
    return stream << "stdout <" << o.out << "> stderr <" << o.err << "> run log <" << o.log << ">";
}

class IGCmnMessage : public RunTest {
  protected:
    template <typename Body>
    Outputs outputs(Body body) {
        Capture out(stdout);
        Capture err(stderr);
        body();
        Outputs result;
        result.out = out.take();
        result.err = err.take();
        result.log = takeLog();
        return result;
    }
    Outputs outputsOf(const Entry& entry) {
        return outputs([&] { issue(entry); });
    }
    static void closeLog() { std::fclose(std::exchange(msg_state.log, nullptr)); }

    // Where a message of this kind goes, with an open run log.
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
    for (const int number : {60, 93, 94, -1, 1000}) {
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

TEST_F(IGCmnMessage, LeavesOutTheRunLogWhileItIsNotOpen) {
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

TEST_F(IGCmnMessage, TurnsFailuresIntoWarningsOfTheRunLogWhileACollectionIsUnderWay) {
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
        IgCmnMsgSetMode(mode);
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
    IgCmnMsgSetMode(1);
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

// The last warning

class SavedWarning : public IGCmnMessage {
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

TEST_F(SavedWarning, IsTheLastOfThem) {
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
        outputsOf(entry);
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
    IgCmnMsgSetMode(1);
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

TEST_F(SavedWarning, IsGoneWhenItIsFreed) {
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

// The progress line and messages

TEST_F(IGCmnMessage, EndsTheProgressLineBeforeItGoesToTheTerminal) {
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

TEST_F(IGCmnMessage, LeavesTheProgressLineToAWarningThatGoesToTheRunLogOnly) {
    const ChildResult child = inChild([] {
        IgCmnProgressEnable();
        IgCmnProgressInit();
        IgCmnMsgSetMode(1);
        IgCmnSysErrPath("open", ENOENT, "/x");
    });
    EXPECT_EQ(child.out, "initialize:" + std::string(68, '_') + "\r");
    EXPECT_EQ(child.err, "");
}

// Error texts and reports

TEST_F(IGCmnMessage, DescribesAnErrorInPlainEnglish) {
    EXPECT_STREQ(IgCmnStrError(ENOENT, 0), "No such file or directory");
    EXPECT_STREQ(IgCmnStrError(ENOSPC, 0), "No space left on device");
    EXPECT_STREQ(IgCmnStrError(0, 0), "Success");
    EXPECT_EQ(IgCmnStrError(ENOENT, 1), nullptr);
    EXPECT_EQ(IgCmnStrError(ENOENT, -1), nullptr);
}

TEST_F(IGCmnMessage, LeavesTheLocaleOfMessagesAsItWas) {
    ASSERT_NE(std::setlocale(LC_MESSAGES, "C.utf8"), nullptr);
    static_cast<void>(IgCmnStrError(ENOENT, 0));
    EXPECT_STREQ(std::setlocale(LC_MESSAGES, nullptr), "C.utf8");
}

TEST_F(IGCmnMessage, HasNoTextForAnErrorWhenTheLocaleCannotBeHad) {
    for (const int nth : {1, 2}) {  // asked for its name, changed
        const FailingCall failing(Call::SETLOCALE, nth, 0);
        EXPECT_EQ(IgCmnStrError(ENOENT, 0), nullptr) << nth;
    }
    EXPECT_STREQ(IgCmnStrError(ENOENT, 0), "No such file or directory");
}

constexpr SourcePlace SOME_PLACE{"/some/where/IGSomeUnit.cpp", 42};

TEST_F(IGCmnMessage, ReportsAFailedCallAsCallSubjectAndPlace) {
    const Outputs o = outputs([] { IgCmnSysErrPath("fopen", ENOENT, "/some/file", SOME_PLACE); });
    const std::string report =
        trio("fopen", ENOENT, "No such file or directory", "/some/file", "IGSomeUnit");
    EXPECT_EQ(o, (Outputs{"", report.substr(0, report.find("ZEPA114-E")), report}));
}

TEST_F(IGCmnMessage, NamesTheLineOfTheCallerInAReport) {
    const int line = __LINE__ + 1;
    outputs([] { IgCmnSysErrPlain("getcwd", ERANGE); });
    EXPECT_THAT(readText(std::string(LOG_DIR) + "/quendil.log"),
                ::testing::EndsWith("ZEPA114-E:source = IGCmnMessage_test, line no = " +
                                    std::to_string(line) + ".\n"));
}

TEST_F(IGCmnMessage, ReportsAFailedCallWithASubjectOfAnyName) {
    const Outputs o = outputs([] {
        IgCmnSysErr({.call = "system", .error = 256, .what = "command", .subject = "/bin/rm"});
    });
    EXPECT_EQ(o.err,
              "ZEPA113-E:An error occurred during the following system call. system call name = "
              "system, error code = 256, msg = Unknown error 256.\n"
              "ZEPA151-E:Additional information, command = /bin/rm.\n");
}

TEST_F(IGCmnMessage, ReportsAFailedCallWithoutASubject) {
    const Outputs o = outputs([] { IgCmnSysErrPlain("getcwd", ERANGE, SOME_PLACE); });
    EXPECT_EQ(o.log,
              "ZEPA113-E:An error occurred during the following system call. system call name = "
              "getcwd, error code = 34, msg = Numerical result out of range.\n"
              "ZEPA114-E:source = IGSomeUnit, line no = N.\n");
}

TEST_F(IGCmnMessage, ReportsAFailedCallAsWarningsWhileACollectionIsUnderWay) {
    for (const int mode : {1, 2}) {
        IgCmnMsgSetMode(mode);
        const Outputs o =
            outputs([] { IgCmnSysErrPath("stat", ENOENT, "/some/file", SOME_PLACE); });
        EXPECT_EQ(o, (Outputs{"", "",
                              trio("stat", ENOENT, "No such file or directory", "/some/file",
                                   "IGSomeUnit", true)}));
    }
}

TEST_F(IGCmnMessage, ReportsAFailedCallInWordsOfItsCaller) {
    const Outputs o = outputs([] {
        IgCmnSysErr({.call = "system", .error = 256, .text = "rm command failed"}, SOME_PLACE);
    });
    EXPECT_EQ(o.log,
              "ZEPA113-E:An error occurred during the following system call. system call name = "
              "system, error code = 256, msg = rm command failed.\n"
              "ZEPA114-E:source = IGSomeUnit, line no = N.\n");
}

TEST_F(IGCmnMessage, LetsNoFileNameForgeALineInAReport) {
    const Outputs o = outputs([] { IgCmnSysErrPath("stat", ENOENT, "/x\nZEPA999-E:\x1b[2J"); });
    EXPECT_THAT(o.err,
                ::testing::EndsWith(
                    "ZEPA151-E:Additional information, path = /x\\012ZEPA999-E:\\033[2J.\n"));
}

TEST_F(IGCmnMessage, CutsASubjectThatIsLongerThanAnyPath) {
    const std::string subject(20000, 's');
    const Outputs o = outputs([&] { IgCmnSysErrPath("stat", ENOENT, subject.c_str()); });
    EXPECT_THAT(o.err, ::testing::HasSubstr("path = " + std::string(4 * 4096 - 1, 's') + ".\n"));
}

TEST(IGCmnMsgPrintable, WritesControlCharactersAsThreeOctalDigits) {
    struct Case {
        std::string name;
        std::string shown;
    };
    const std::vector<Case> cases{
        {"", ""},
        {"plain name-1.txt", "plain name-1.txt"},
        {"\x01", "\\001"},
        {"a\tb\nc\rd", "a\\011b\\012c\\015d"},
        {"\x1f \x7f~", "\\037 \\177~"},
        {"back\\slash", "back\\slash"},
        {"\xc3\xa9", "\xc3\xa9"},
        {"\xe3\x81\x82", "\xe3\x81\x82"},
        {"\xff\xfe", "\xff\xfe"},
        {"\xc2\x9bK", "\\302\\233K"},
        {"\xc2\x80\xc2\x9f", "\\302\\200\\302\\237"},
        {"\xc2\xa0", "\xc2\xa0"},
        {"\xc2", "\xc2"},
        // Bytes of the C1 set that belong to no sequence, and sequences that are none.
        {"\x9b"
         "2J",
         "\\2332J"},
        {"\x7f\x80\x9f\xa0", "\\177\\200\\237\xa0"},
        {"\xc3\x9b\x9b", "\xc3\x9b\\233"},
        {"\xe3\x81", "\xe3\\201"},
        {"\xe3\x81/\x82", "\xe3\\201/\\202"},
        {"\xc1\x9b", "\xc1\\233"},
        {"\xe0\x82\x9b", "\xe0\\202\\233"},
        {"\xe0\xa0\x80", "\xe0\xa0\x80"},
        {"\xed\x9f\xbf", "\xed\x9f\xbf"},
        {"\xed\xa0\x80", "\xed\xa0\\200"},
        {"\xf0\x9f\x98\x80", "\xf0\x9f\x98\x80"},
        {"\xf0\x8f\xbf\xbf", "\xf0\\217\xbf\xbf"},
        {"\xf4\x8f\xbf\x9f", "\xf4\x8f\xbf\x9f"},
        {"\xf4\x90\x80\x80", "\xf4\\220\\200\\200"},
        {"\xf5\x80\x80\x80", "\xf5\\200\\200\\200"},
        {"\xc2\xc2\x9b", "\xc2\\302\\233"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(::testing::PrintToString(c.name));
        std::array<char, 64> out{};
        IgCmnMsgPrintable(c.name.c_str(), out.data(), out.size());
        EXPECT_EQ(out.data(), c.shown);
        EXPECT_EQ(IgCmnMsgPrintableSize(c.name.c_str()), c.shown.size() + 1);
    }
}

TEST(IGCmnMsgPrintable, KeepsTheTabsOfWhatWasTyped) {
    const char* typed = "a\tb\x1b\t\n";
    std::array<char, 64> out{};
    IgCmnMsgPrintable(typed, out.data(), out.size(), Tabs::KEPT);
    EXPECT_STREQ(out.data(), "a\tb\\033\t\\012");
    EXPECT_EQ(IgCmnMsgPrintableSize(typed, Tabs::KEPT), std::strlen(out.data()) + 1);
}

TEST(IGCmnMsgPrintable, CutsNoCharacterOfSeveralBytes) {
    for (const auto& [size, shown] : std::vector<std::pair<std::size_t, std::string>>{
             {2, "a"}, {4, "a"}, {5, "a\xe3\x81\x82"}, {6, "a\xe3\x81\x82z"}}) {
        std::array<char, 8> out{};
        IgCmnMsgPrintable("a\xe3\x81\x82z", out.data(), size);
        EXPECT_EQ(out.data(), shown);
    }
}

TEST_F(IGCmnMessage, LetsNoTextForgeALine) {
    const std::string text = "x\nZEPA999-E:\x1b[2J\x9b\t\xc3\xa9";
    const Outputs o = outputs([&] {
        IgCmnMsg<ZEPA101_E>(text.c_str());
        IgCmnMsg<ZEPA120_E>(text.data(), 7);
        IgCmnListHeader* list = nullptr;
        Pool pool;
        std::string element = text;
        IgCmnListAppend(pool.get(), &list, element.data());
        IgCmnListPrint(ZEPA205_I_TARGET, list);
    });
    const std::string shown = "x\\012ZEPA999-E:\\033[2J\\233\t\xc3\xa9";
    EXPECT_EQ(o.log, "ZEPA101-E:The specified option(" + shown + ") is invalid.\n" +
                         "ZEPA120-E:filename = " + shown + ", line no = 7.\n" +
                         "    TARGET = " + shown + "\n");
}

TEST_F(IGCmnMessage, LeavesOutATextThatItHasNoMemoryToEscape) {
    const Outputs o = outputs([&] {
        const FailingCall failing(Call::POOL, 1, ENOMEM);
        errno = EPERM;
        IgCmnMsg<ZEPA101_E>("\x1b");
        EXPECT_EQ(errno, EPERM);
    });
    EXPECT_THAT(o.log, ::testing::EndsWith("ZEPA101-E:The specified option(?) is invalid.\n"));
}

TEST(IGCmnMsgPrintable, CutsWholeCharactersOnlyAndAlwaysTerminates) {
    struct Case {
        std::size_t size;
        const char* shown;
    };
    // "a", "\001", "b", "\302\233", "c" take 1, 4, 1, 8 and 1 bytes.
    for (const Case& c : {Case{1, ""}, Case{2, "a"}, Case{3, "a"}, Case{5, "a"}, Case{6, "a\\001"},
                          Case{7, "a\\001b"}, Case{14, "a\\001b"}, Case{15, "a\\001b\\302\\233"},
                          Case{16, "a\\001b\\302\\233c"}}) {
        SCOPED_TRACE(c.size);
        std::array<char, 20> out{};
        out.fill('#');
        IgCmnMsgPrintable(
            "a\x01"
            "b\xc2\x9b"
            "c",
            out.data(), c.size);
        EXPECT_STREQ(out.data(), c.shown);
        EXPECT_EQ(out[c.size], '#') << "nothing is written behind the buffer";
    }
}

// A run log that cannot be written

class BrokenRunLog : public IGCmnMessage {
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
