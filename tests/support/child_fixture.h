// A run whose tests start children: the program "behave" plays them.
#ifndef QUENDIL_TESTS_SUPPORT_CHILD_FIXTURE_H
#define QUENDIL_TESTS_SUPPORT_CHILD_FIXTURE_H

#include <ctime>
#include <fstream>
#include <map>
#include <sstream>
#include <string>

#include "collect/IGCmnProcess.h"
#include "run_fixture.h"

/// What a child wrote with "report", by key.
inline std::map<std::string, std::string> readReport(const std::string& path) {
    std::map<std::string, std::string> report;
    std::istringstream lines(readText(path));
    for (std::string line; std::getline(lines, line);) {
        const std::size_t equal = line.find('=');
        report[line.substr(0, equal)] = line.substr(equal + 1);
    }
    return report;
}

/// Whether a process runs: false for a zombie that nobody has fetched, and for one that is gone.
/// One that goes between the opening of its file and the reading is gone too: the read fails with
/// ESRCH, and getline() takes that for the end of the file.
inline bool runs(pid_t pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
    std::string line;
    std::getline(file, line);
    const std::size_t name_end = line.rfind(')');
    return name_end != std::string::npos && line.substr(name_end + 2, 1) != "Z";
}

/// Waits until a process that is not ours has ended; false when it still runs after half a minute.
inline bool awaitEnd(pid_t pid) {
    for (int round = 0; round < 3000; ++round) {
        if (!runs(pid)) {
            return true;
        }
        const struct timespec pause = {0, 10000000};
        ::nanosleep(&pause, nullptr);
    }
    return false;
}

class ChildTest : public RunTest {
  protected:
    void SetUp() override {
        RunTest::SetUp();
        crnt_child.pid = 0;
        crnt_child.reaped = 0;
        crnt_child.reaped_status = 0;
        crnt_child.stop_failure = 0;
        crnt_child.failed_call = nullptr;
    }

    std::string path(const std::string& name) const { return directory_.path(name); }

    TempDir directory_;
};

#endif
