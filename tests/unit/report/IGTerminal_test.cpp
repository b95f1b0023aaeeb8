#include "common/report/IGTerminal.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <thread>

#include "../../support/in_child.h"
#include "common/base/IGGuards.h"
#include "common/base/IGRunState.h"

namespace {

// A stream into a pipe of one page.
class IGTerminal : public testing::Test {
  protected:
    void SetUp() override {
        std::array<int, 2> ends{};
        ASSERT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
        reader_.reset(ends[0]);
        ASSERT_EQ(::fcntl(ends[1], F_SETPIPE_SZ, 4096), 4096);
        stream_ = ::fdopen(ends[1], "w");
        ASSERT_NE(stream_, nullptr);
    }
    void TearDown() override {
        run_state.interrupted = 0;
        run_state.patience = PATIENCE;
        std::fclose(stream_);
    }

    void fill() const {
        const std::array<char, 4096> bytes{};
        ASSERT_EQ(::write(::fileno(stream_), bytes.data(), bytes.size()), 4096);
    }

    FdGuard reader_;
    std::FILE* stream_ = nullptr;
};

TEST_F(IGTerminal, AcceptsEverythingUntilTheRunIsInterrupted) {
    EXPECT_TRUE(terminalTakes(stream_));
    fill();
    EXPECT_TRUE(terminalTakes(stream_));
}

TEST_F(IGTerminal, AcceptsInAnInterruptedRunWhatTheReaderReadsInTime) {
    run_state.interrupted = 1;
    EXPECT_TRUE(terminalTakes(stream_));
    fill();
    std::thread reader([this] {
        std::array<char, 4096> bytes{};
        ASSERT_EQ(::read(reader_.get(), bytes.data(), bytes.size()), 4096);
    });
    EXPECT_TRUE(terminalTakes(stream_));
    reader.join();
}

TEST_F(IGTerminal, LimitsTheWaitForTheReaderOfAnInterruptedRun) {
    run_state.interrupted = 1;
    fill();
    using Clock = std::chrono::steady_clock;
    const ChildResult child = inChild([this] {
        const bool first = terminalTakes(stream_);
        const Clock::time_point began = Clock::now();
        const bool second = terminalTakes(stream_);  // no patience is left
        const bool at_once = Clock::now() - began < std::chrono::seconds(1);
        std::printf("%d %d %d", first, second, at_once);
    });
    EXPECT_EQ(child.out, "0 0 1");
}

TEST_F(IGTerminal, AcceptsAtOnceAWriteThatWillFail) {
    run_state.interrupted = 1;
    fill();
    reader_.reset();  // the write will fail without a wait
    EXPECT_TRUE(terminalTakes(stream_));
}

}  // namespace
