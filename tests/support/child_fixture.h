// A run whose tests start children: the program "behave" acts as each of them.
#ifndef QUENDIL_TESTS_SUPPORT_CHILD_FIXTURE_H
#define QUENDIL_TESTS_SUPPORT_CHILD_FIXTURE_H

#include <ctime>
#include <map>
#include <sstream>
#include <string>

#include "process/IGCmnProcess.h"
#include "process/IGCurrentChild.h"
#include "run_fixture.h"

/// The report that a child wrote with "report", by key.
inline std::map<std::string, std::string> readReport(const std::string& path) {
    std::map<std::string, std::string> report;
    std::istringstream lines(readText(path));
    for (std::string line; std::getline(lines, line);) {
        const std::size_t equal = line.find('=');
        report[line.substr(0, equal)] = line.substr(equal + 1);
    }
    return report;
}

/// Waits until a process that is not a child of this one has ended or is a zombie; false when it
/// still runs after half a minute.
inline bool awaitEnd(pid_t pid) {
    const std::string stat = "/proc/" + std::to_string(pid) + "/stat";
    for (int round = 0; round < 3000; ++round) {
        const std::string text = readText(stat);
        const std::size_t name_end = text.rfind(')');
        if (name_end == std::string::npos || text.substr(name_end + 2, 1) == "Z") {
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
