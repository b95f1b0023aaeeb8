// A run whose tests start a child and compare how it ended.
#ifndef QUENDIL_TESTS_SUPPORT_PROCESS_FIXTURE_H
#define QUENDIL_TESTS_SUPPORT_PROCESS_FIXTURE_H

#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <ostream>
#include <string>
#include <vector>

#include "child_fixture.h"
#include "process/IGCurrentChild.h"

using Words = std::vector<std::string>;

inline constexpr std::int32_t UNTOUCHED = 12345;

// The runner's results for a request.
struct Outcome {
    int result;
    std::int32_t exit_cd;
    std::int32_t status;
    bool operator==(const Outcome&) const = default;
};

inline void PrintTo(const Outcome& outcome, std::ostream* out) {
    *out << "result " << outcome.result << ", exit code " << outcome.exit_cd << ", status "
         << outcome.status;
}

// A signal action of the test's own process, restored in the end.
class SignalAction {
  public:
    SignalAction(int signo, void (*handler)(int)) : signo_(signo) {
        struct sigaction action = {};
        action.sa_handler = handler;
        ::sigaction(signo, &action, &saved_);
    }
    ~SignalAction() { ::sigaction(signo_, &saved_, nullptr); }
    SignalAction(const SignalAction&) = delete;
    SignalAction& operator=(const SignalAction&) = delete;

  private:
    int signo_;
    struct sigaction saved_ = {};
};

inline bool sameFile(int fd, const struct stat& st) {
    struct stat now = {};
    return ::fstat(fd, &now) == 0 && now.st_dev == st.st_dev && now.st_ino == st.st_ino;
}

inline mode_t modeOf(const std::string& file) {
    struct stat st = {};
    return ::stat(file.c_str(), &st) == 0 ? st.st_mode & 07777 : 0;
}

class ProcessTest : public ChildTest {
  protected:
    void SetUp() override {
        ChildTest::SetUp();
        ASSERT_EQ(::fstat(STDOUT_FILENO, &stdout_), 0);
        ASSERT_EQ(::fstat(STDERR_FILENO, &stderr_), 0);
        descriptors_ = openDescriptors();
    }

    Outcome execute(const std::string& program, const Words& words, exec_req request = {}) {
        Words all = words;
        all.insert(all.begin(), program);
        ::Arguments arguments(all);
        request.command_path = program.c_str();
        request.argv = arguments.vector();
        Outcome outcome{UNTOUCHED, UNTOUCHED, 0};
        const mode_t mask = ::umask(022);
        outcome.result = IgCmnExecProcess(&request, &outcome.exit_cd, &outcome.status);
        EXPECT_EQ(::umask(mask), 022U);  // the parent's umask is restored
        EXPECT_EQ(crnt_child.pid, 0);
        return outcome;
    }
    Outcome behave(const Words& words, exec_req request = {}) {
        return execute(BEHAVE, words, request);
    }

    // The parent keeps no descriptor of a redirection.
    void expectOwnDescriptors() const {
        EXPECT_TRUE(sameFile(STDOUT_FILENO, stdout_));
        EXPECT_TRUE(sameFile(STDERR_FILENO, stderr_));
        EXPECT_EQ(openDescriptors(), descriptors_);
    }

    struct stat stdout_ = {};
    struct stat stderr_ = {};
    std::size_t descriptors_ = 0;
};

#endif
