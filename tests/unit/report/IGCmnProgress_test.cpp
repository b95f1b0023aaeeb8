#include "common/report/IGCmnProgress.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdlib>
#include <string>
#include <vector>

#include "../../support/in_child.h"
#include "../../support/run_fixture.h"
#include "common/base/IGGuards.h"
#include "common/base/IGRunState.h"

// The display keeps its state as long as the process: each test draws in a child process.

namespace {

using namespace std::string_literals;

constexpr const char* INITIALIZE = "initialize:";
constexpr const char* COLLECT = "collect   :";
constexpr const char* ARCHIVE = "archive   :";
constexpr const char* CLEANUP = "cleanup   :";

std::string bar(const char* label, std::size_t stars) {
    return label + std::string(stars, '*') + std::string(68 - stars, '_') + "\r";
}

template <typename Body>
std::string drawn(Body body) {
    return inChild(body).out;
}

// What each write(2) wrote: a socket of this type keeps them apart.
template <typename Body>
std::vector<std::string> writes(Body body) {
    std::array<int, 2> ends{};
    EXPECT_EQ(::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()), 0);
    const FdGuard reader(ends[0]);
    FdGuard writer(ends[1]);
    constexpr int ROOM = 1 << 20;  // for a message of one byte the kernel counts hundreds
    EXPECT_EQ(::setsockopt(ends[1], SOL_SOCKET, SO_SNDBUFFORCE, &ROOM, sizeof ROOM), 0);
    EXPECT_EQ(inChild([&] {
                  ASSERT_EQ(::dup2(writer.get(), STDOUT_FILENO), STDOUT_FILENO);
                  body();
              }).status,
              0);
    writer.reset();
    std::vector<std::string> each;
    std::array<char, 4096> bytes{};
    for (ssize_t length = 0; (length = ::read(reader.get(), bytes.data(), bytes.size())) > 0;) {
        each.emplace_back(bytes.data(), static_cast<std::size_t>(length));
    }
    return each;
}

void steps(int count) {
    for (int i = 0; i < count; ++i) {
        IgCmnProgressStep();
    }
}

// Draws up to the start of the collect phase with `items` items and four stars.
void startCollect(int items) {
    IgCmnProgressEnable();
    IgCmnProgressInit();
    steps(4);
    IgCmnProgressCollect(items);
}

std::string initPhase() {
    return bar(INITIALIZE, 0) + bar(INITIALIZE, 1) + bar(INITIALIZE, 2) + bar(INITIALIZE, 3) +
           bar(INITIALIZE, 4);
}

// What finishing the initializing phase adds: a bar for each of the 64 steps not taken.
std::string initFinished() {
    std::string text;
    for (int i = 4; i < 68; ++i) {
        text += bar(INITIALIZE, 4);
    }
    return text;
}

TEST(IGCmnProgress, DrawsNothingBeforeAPhaseStarts) {
    EXPECT_EQ(drawn([] {
                  IgCmnProgressStep();
                  IgCmnProgressEnd();
                  IgCmnProgressNewline();
                  IgCmnProgressEnable();
                  IgCmnProgressStep();
                  IgCmnProgressNewline();
              }),
              "");
}

TEST(IGCmnProgress, EndsItsLineEvenIfNoPhaseStarted) {
    EXPECT_EQ(drawn([] {
                  IgCmnProgressEnable();
                  IgCmnProgressEnd();
              }),
              "\n");
}

TEST(IGCmnProgress, DrawsLabelStarsAndPaddingIn68ColumnsAndACarriageReturn) {
    EXPECT_EQ(drawn([] {
                  IgCmnProgressEnable();
                  IgCmnProgressInit();
                  IgCmnProgressStep();
              }),
              "initialize:____________________________________________________________________\r"
              "initialize:*___________________________________________________________________\r");
}

TEST(IGCmnProgress, TakesFourColumnsForInitializing) {
    EXPECT_EQ(drawn([] {
                  IgCmnProgressEnable();
                  IgCmnProgressInit();
                  steps(4);
              }),
              initPhase());
}

TEST(IGCmnProgress, IgnoresStepsBeyondAPhase) {
    EXPECT_EQ(drawn([] {
                  IgCmnProgressEnable();
                  IgCmnProgressInit();
                  steps(6);
              }),
              initPhase() + bar(INITIALIZE, 4) + bar(INITIALIZE, 4));
}

TEST(IGCmnProgress, StaysWithinItsTableForAnyNumberOfSteps) {
    const std::string text = drawn([] {
        IgCmnProgressEnable();
        IgCmnProgressInit();
        steps(200);
    });
    EXPECT_THAT(text, ::testing::StartsWith(initPhase()));
    EXPECT_THAT(text, ::testing::EndsWith(bar(INITIALIZE, 4)));
    EXPECT_EQ(text.find(std::string(5, '*')), std::string::npos);
}

TEST(IGCmnProgress, DrawsMissingStepsWhenAPhaseIsFinished) {
    std::string expected =
        bar(INITIALIZE, 0) + bar(INITIALIZE, 1) + bar(INITIALIZE, 2) + bar(INITIALIZE, 3);
    for (int i = 3; i < 68; ++i) {
        expected += bar(INITIALIZE, 4);
    }
    EXPECT_EQ(drawn([] {
                  IgCmnProgressEnable();
                  IgCmnProgressInit();
                  steps(3);
                  IgCmnProgressArchive();
              }),
              expected + bar(ARCHIVE, 4));
}

TEST(IGCmnProgress, DrawsNoStarsForAPhaseWithoutSteps) {
    EXPECT_EQ(
        drawn([] {
            IgCmnProgressEnable();
            IgCmnProgressInit();
            IgCmnProgressCollect(1);
            IgCmnProgressArchive();
            IgCmnProgressCleanup();
        }),
        bar(INITIALIZE, 0) + bar(COLLECT, 0) + bar(COLLECT, 0) + bar(ARCHIVE, 0) + bar(CLEANUP, 0));
}

TEST(IGCmnProgress, Draws17And17And18StarsForThreeItems) {
    EXPECT_EQ(drawn([] {
                  startCollect(3);
                  steps(3);
              }),
              initPhase() + initFinished() + bar(COLLECT, 4) + bar(COLLECT, 21) + bar(COLLECT, 38) +
                  bar(COLLECT, 56));
}

TEST(IGCmnProgress, DrawsAllStarsForOneItem) {
    EXPECT_EQ(drawn([] {
                  startCollect(1);
                  IgCmnProgressStep();
              }),
              initPhase() + initFinished() + bar(COLLECT, 4) + bar(COLLECT, 56));
}

TEST(IGCmnProgress, SpreadsExactly52StarsEvenlyOverItsItems) {
    for (const int items : {1, 2, 3, 7, 13, 51, 52, 53, 100, 104, 1000}) {
        SCOPED_TRACE(items);
        std::string expected = initPhase() + initFinished() + bar(COLLECT, 4);
        for (int done = 1; done <= items; ++done) {
            const int stars = 52 * done / items;
            if (stars > 52 * (done - 1) / items) {  // a step without a star draws nothing
                expected += bar(COLLECT, static_cast<std::size_t>(4 + stars));
            }
        }
        EXPECT_EQ(drawn([items] {
                      startCollect(items);
                      steps(items);
                  }),
                  expected);
    }
}

TEST(IGCmnProgress, CountsItemsBeyond32BitsOfStars) {
    // 52 times the number of items is more than 32 bits hold.
    EXPECT_EQ(drawn([] {
                  startCollect(2'000'000'000);
                  steps(3);
              }),
              initPhase() + initFinished() + bar(COLLECT, 4));
}

TEST(IGCmnProgress, DrawsNoStarsForACollectionWithoutItems) {
    EXPECT_EQ(drawn([] {
                  startCollect(0);
                  steps(3);
                  IgCmnProgressArchive();
              }),
              initPhase() + initFinished() + bar(COLLECT, 4) + bar(COLLECT, 4) + bar(ARCHIVE, 4));
}

TEST(IGCmnProgress, RedrawsTheCollectPhaseUnchangedWhenItIsFinished) {
    EXPECT_EQ(drawn([] {
                  startCollect(2);
                  IgCmnProgressStep();
                  IgCmnProgressArchive();
              }),
              initPhase() + initFinished() + bar(COLLECT, 4) + bar(COLLECT, 30) + bar(COLLECT, 30) +
                  bar(ARCHIVE, 30));
}

TEST(IGCmnProgress, TakesTenColumnsForTheArchiveAndTwoForTheCleanup) {
    std::string finished;
    for (int i = 4; i < 68; ++i) {
        finished += bar(ARCHIVE, 66);
    }
    EXPECT_EQ(drawn([] {
                  startCollect(1);
                  steps(1);
                  IgCmnProgressArchive();
                  steps(4);
                  IgCmnProgressCleanup();
                  IgCmnProgressStep();
                  IgCmnProgressEnd();
              }),
              initPhase() + initFinished() + bar(COLLECT, 4) + bar(COLLECT, 56) + bar(COLLECT, 56) +
                  bar(ARCHIVE, 56) + bar(ARCHIVE, 59) + bar(ARCHIVE, 61) + bar(ARCHIVE, 64) +
                  bar(ARCHIVE, 66) + finished + bar(CLEANUP, 66) + bar(CLEANUP, 68) +
                  bar(CLEANUP, 68) + "\n");
}

TEST(IGCmnProgress, EndsWithAFullBarFromAnyPosition) {
    EXPECT_EQ(drawn([] {
                  IgCmnProgressEnable();
                  IgCmnProgressInit();
                  IgCmnProgressEnd();
              }),
              bar(INITIALIZE, 0) + bar(INITIALIZE, 68) + "\n");
}

TEST(IGCmnProgress, NeedsNoLineEndAfterItsOwnEnd) {
    EXPECT_EQ(drawn([] {
                  IgCmnProgressEnable();
                  IgCmnProgressInit();
                  IgCmnProgressEnd();
                  IgCmnProgressNewline();
              }),
              bar(INITIALIZE, 0) + bar(INITIALIZE, 68) + "\n");
}

TEST(IGCmnProgress, EndsTheLineOnceUntilItIsDrawnAgain) {
    EXPECT_EQ(drawn([] {
                  IgCmnProgressEnable();
                  IgCmnProgressInit();
                  IgCmnProgressNewline();
                  IgCmnProgressNewline();
                  IgCmnProgressStep();
                  IgCmnProgressNewline();
              }),
              bar(INITIALIZE, 0) + "\n" + bar(INITIALIZE, 1) + "\n");
}

TEST(IGCmnProgress, EndsTheLineOfACollectStep) {
    EXPECT_EQ(drawn([] {
                  startCollect(1);
                  IgCmnProgressNewline();
                  IgCmnProgressStep();
                  IgCmnProgressNewline();
              }),
              initPhase() + initFinished() + bar(COLLECT, 4) + "\n" + bar(COLLECT, 56) + "\n");
}

TEST(IGCmnProgress, StopsOnceTheRunIsInterrupted) {
    const ChildResult child = inChild([] {
        IgCmnProgressEnable();
        IgCmnProgressInit();
        resetRunState();  // the interruption is reported
        run_state.signal_no = 15;
        run_state.interrupted = 1;
        steps(3);
    });
    EXPECT_EQ(child.out, bar(INITIALIZE, 0) + "\n") << "the report ends the line";
    EXPECT_EQ(child.err, "ZEPA136-E:quendil was interrupted. signal no = 15.\n");
}

TEST(IGCmnProgress, HasNoPositionToStopAtBeforeAPhaseStarts) {
    const ChildResult child = inChild([] {
        run_state.interrupted = 1;
        IgCmnProgressStep();
    });
    EXPECT_EQ(child.out + child.err, "") << "the interruption is for others to report";
}

TEST(IGCmnProgress, NeverDrawsMoreStarsThanItHasColumns) {
    EXPECT_EQ(drawn([] {
                  startCollect(1);
                  IgCmnProgressStep();
                  IgCmnProgressCollect(1);
                  IgCmnProgressStep();
              }),
              initPhase() + initFinished() + bar(COLLECT, 4) + bar(COLLECT, 56) + bar(COLLECT, 56) +
                  bar(COLLECT, 56) + bar(COLLECT, 68));
}

TEST(IGCmnProgress, WritesEachDrawingAtOnce) {
    EXPECT_EQ(writes([] {
                  IgCmnProgressEnable();
                  IgCmnProgressInit();
                  steps(2);
                  IgCmnProgressNewline();
                  IgCmnProgressEnd();
              }),
              (std::vector<std::string>{bar(INITIALIZE, 0), bar(INITIALIZE, 1), bar(INITIALIZE, 2),
                                        "\n", bar(INITIALIZE, 68), "\n"}));
}

TEST(IGCmnProgress, WritesNoMoreThanAByteAtATimeOnceTheRunIsInterrupted) {
    // The terminal may have room for a single byte.
    const std::vector<std::string> bytes = writes([] {
        IgCmnProgressEnable();
        run_state.interrupted = 1;
        IgCmnProgressInit();
    });
    EXPECT_THAT(bytes, ::testing::Each(::testing::SizeIs(1)));
    EXPECT_EQ(bytes.size(), bar(INITIALIZE, 0).size());
}

TEST(IGCmnProgress, LosesOnlyTheByteThatWaitsWhenASignalComes) {
    // The drawing waits for a reader; the signal that ends its write does not interrupt the run.
    std::array<int, 2> ends{};
    ASSERT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
    const FdGuard reader(ends[0]);
    FdGuard writer(ends[1]);
    const int room = ::fcntl(writer.get(), F_SETPIPE_SZ, 4096);
    ASSERT_EQ(room, 4096);
    const std::string full(static_cast<std::size_t>(room), ' ');
    ASSERT_EQ(::write(writer.get(), full.data(), full.size()), room);
    static int read_end;
    read_end = reader.get();
    EXPECT_EQ(inChild([&] {
                  struct sigaction action = {};
                  action.sa_handler = [](int) {
                      static int signals;
                      static std::array<char, 4096> bytes;
                      if (++signals == 5 && ::read(read_end, bytes.data(), bytes.size()) < 0) {
                          std::abort();
                      }
                  };
                  ASSERT_EQ(::sigaction(SIGALRM, &action, nullptr), 0);
                  ASSERT_EQ(::dup2(writer.get(), STDOUT_FILENO), STDOUT_FILENO);
                  IgCmnProgressEnable();
                  const struct itimerval soon = {{0, 1000}, {0, 1000}};  // the fifth makes room
                  ASSERT_EQ(::setitimer(ITIMER_REAL, &soon, nullptr), 0);
                  IgCmnProgressInit();
                  const struct itimerval never = {};
                  ASSERT_EQ(::setitimer(ITIMER_REAL, &never, nullptr), 0);
              }).status,
              0);
    writer.reset();
    std::array<char, 4096> bytes{};
    const ssize_t length = ::read(reader.get(), bytes.data(), bytes.size());
    const std::string seen(bytes.data(), static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
    EXPECT_GE(seen.size(), bar(INITIALIZE, 0).size() - 5) << "one for each signal";
    EXPECT_THAT(bar(INITIALIZE, 0), ::testing::EndsWith(seen));
}

TEST(IGCmnProgress, ShowsEveryCharacterAtOnce) {
    // Nothing stays in the stream's buffer: an immediate end of the process loses nothing.
    const ChildResult child = inChild([] {
        IgCmnProgressEnable();
        IgCmnProgressInit();
        std::_Exit(0);
    });
    EXPECT_EQ(child.out, bar(INITIALIZE, 0));
}

}  // namespace
