#include <gtest/gtest.h>

#include <cerrno>
#include <numeric>
#include <string>
#include <vector>

#include "../../support/fake_wait.h"
#include "../../support/lease_holder.h"
#include "../../support/run_fixture.h"
#include "common/base/IGOpen.h"

namespace {

class IGCmnFileLease : public RunTest {
  protected:
    void TearDown() override {
        fake_wait.active = false;
        RunTest::TearDown();
    }
    // Tries to open a file; returns how long that took, in microseconds.
    static long open(const std::string& path) {
        fake_wait = FakeWait{};
        fake_wait.active = true;
        const FdGuard fd(openForReading(path.c_str()));
        EXPECT_EQ(errno, EWOULDBLOCK);
        EXPECT_FALSE(fd);
        return std::accumulate(fake_wait.sleeps.begin(), fake_wait.sleeps.end(), 0L);
    }

    TempDir directory_;
};

// The process keeps the rest of a run's waiting time, so this is the only test of its program.
TEST_F(IGCmnFileLease, WaitsOneSecondForAFileAndTenForARun) {
    std::vector<std::string> files;
    for (int number = 0; number < 12; ++number) {
        files.push_back(directory_.path("file" + std::to_string(number)));
        writeText(files.back(), "x");
    }
    const LeaseHolder holder(files, WhenAsked::KEEPS);
    ASSERT_TRUE(holder.holds());
    for (std::size_t number = 0; number < files.size(); ++number) {
        EXPECT_EQ(open(files[number]), number < 10 ? 1000000 : 0) << number;
    }
}

}  // namespace
