// A run with a directory of its own, whose tests compare the reports of a call.
#ifndef QUENDIL_TESTS_SUPPORT_FILE_FIXTURE_H
#define QUENDIL_TESTS_SUPPORT_FILE_FIXTURE_H

#include <sys/stat.h>

#include <string>

#include "run_fixture.h"

/// The permissions of a file; a link is not followed.
inline mode_t modeOf(const std::string& path) {
    struct stat st = {};
    return ::lstat(path.c_str(), &st) == 0 ? st.st_mode & 07777 : 0;
}

inline mode_t umaskNow() {
    const mode_t mask = ::umask(0);
    ::umask(mask);
    return mask;
}

/// The assertion message of a call that must not get a null pointer.
inline std::string nullOf(const std::string& name) {
    return name + " != \\(\\(void \\*\\)0\\)";
}

class FileTest : public RunTest {
  protected:
    void SetUp() override {
        RunTest::SetUp();
        ::umask(027);
    }
    void TearDown() override {
        ::umask(022);
        RunTest::TearDown();
    }
    std::string path(const std::string& name = "") { return dir_.path(name); }

    /// What a call adds to the run log; the terminal must show the same without the places.
    template <typename Body>
    std::string reported(Body body) {
        Capture err(stderr);
        body();
        const std::string shown = err.take();
        std::string log = takeLog();
        std::string without_places = log;
        for (std::size_t at = without_places.find("ZEPA114-E"); at != std::string::npos;
             at = without_places.find("ZEPA114-E")) {
            without_places.erase(at, without_places.find('\n', at) - at + 1);
        }
        EXPECT_EQ(shown, without_places);
        return log;
    }

    TempDir dir_;
};

/// The tests of IGCmnFile, which are in several files.
class IGCmnFile : public FileTest {
  protected:
    static std::string failure(const std::string& call, int error, const std::string& text,
                               const std::string& file) {
        return trio(call, error, text, file, "IGCmnFile");
    }
};

#endif
