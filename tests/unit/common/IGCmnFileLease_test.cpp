#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <numeric>
#include <string>

#include "../../support/fake_wait.h"
#include "../../support/run_fixture.h"
#include "common/IGCmnFile.h"
#include "common/IGGuards.h"

namespace {

constexpr int FILES = 12;

// A user's process that holds leases on files and never gives them up.
class IGCmnFileLease : public RunTest {
  protected:
    void SetUp() override {
        RunTest::SetUp();
        std::array<int, 2> ready{};
        ASSERT_EQ(::pipe2(ready.data(), O_CLOEXEC), 0);
        const FdGuard reader(ready[0]);
        const FdGuard writer(ready[1]);
        for (int number = 0; number < FILES; ++number) {
            writeText(file(number), "x");
        }
        holder_ = ::fork();
        if (holder_ == 0) {
            hold(writer.get());
        }
        char held = 0;
        ASSERT_EQ(::read(reader.get(), &held, 1), 1);
        ASSERT_EQ(held, 'y');
        fake_wait = FakeWait{};
        fake_wait.active = true;
    }
    void TearDown() override {
        fake_wait.active = false;
        ::kill(holder_, SIGKILL);
        EXPECT_EQ(::waitpid(holder_, nullptr, 0), holder_);
        RunTest::TearDown();
    }
    std::string file(int number) { return directory_.path("file" + std::to_string(number)); }

    // Tries to open a file; how long that took, in microseconds.
    long open(int number) {
        fake_wait.sleeps.clear();
        const FdGuard fd(IgCmnFileOpenForReading(file(number).c_str()));
        EXPECT_EQ(errno, EWOULDBLOCK);
        EXPECT_FALSE(fd);
        return std::accumulate(fake_wait.sleeps.begin(), fake_wait.sleeps.end(), 0L);
    }

  private:
    [[noreturn]] void hold(int ready) {
        sigset_t asked;
        ::sigemptyset(&asked);
        ::sigaddset(&asked, SIGIO);
        ::sigprocmask(SIG_BLOCK, &asked, nullptr);
        char held = 'y';
        for (int number = 0; number < FILES; ++number) {
            const int fd = ::open(file(number).c_str(), O_RDWR | O_CLOEXEC);
            if (fd == -1 || ::fcntl(fd, F_SETLEASE, F_WRLCK) != 0) {
                held = 'n';
            }
        }
        static_cast<void>(!::write(ready, &held, 1));
        for (;;) {
            ::pause();
        }
    }

    TempDir directory_;
    pid_t holder_ = 0;
};

// The time is the whole program's, so this is the only test here.
TEST_F(IGCmnFileLease, CostsAFileOneSecondAndARunTen) {
    for (int number = 0; number < 10; ++number) {
        EXPECT_EQ(open(number), 1000000) << number;
    }
    for (int number = 10; number < FILES; ++number) {
        EXPECT_EQ(open(number), 0) << number;
    }
}

}  // namespace
