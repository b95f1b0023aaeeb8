#include "common/file/IGKernelFileSystem.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <cerrno>
#include <string>
#include <utility>

#include "../../support/run_fixture.h"
#include "common/base/IGGuards.h"

namespace {

class KernelFileSystem : public RunTest {
  protected:
    struct Opened {
        explicit Opened(const char* path) : fd(::open(path, O_PATH | O_CLOEXEC)) {
            EXPECT_EQ(::fstat(fd.get(), &st), 0);
        }
        FdGuard fd;
        struct stat st = {};
    };
};

TEST_F(KernelFileSystem, IsFoundForFilesOfAnyDeviceInTurn) {
    const Opened proc("/proc/version");
    const Opened sys("/sys/kernel");
    const Opened disk("/opt");
    const Opened memory("/tmp");
    for (int round = 0; round < 2; ++round) {
        for (const auto& [opened, kernels] : {std::pair<const Opened*, int>{&proc, 1},
                                              {&proc, 1},
                                              {&sys, 1},
                                              {&disk, 0},
                                              {&sys, 1},
                                              {&proc, 1},
                                              {&memory, 0},
                                              {&disk, 0}}) {
            EXPECT_EQ(kernelFileSystemOf(opened->fd.get(), opened->st.st_dev, nullptr), kernels);
        }
    }
    EXPECT_EQ(takeLog(), "");
}

TEST_F(KernelFileSystem, IsNotAskedForAgainOnTheSameDevice) {
    const Opened proc("/proc");
    const Opened disk("/opt");
    EXPECT_EQ(kernelFileSystemOf(proc.fd.get(), proc.st.st_dev, nullptr), 1);
    EXPECT_EQ(kernelFileSystemOf(-1, proc.st.st_dev, nullptr), 1);
    EXPECT_EQ(kernelFileSystemOf(-1, disk.st.st_dev, nullptr), -1);
    EXPECT_EQ(kernelFileSystemOf(-1, proc.st.st_dev, nullptr), 1) << "a failure changes nothing";
}

TEST_F(KernelFileSystem, IsReportedAsUnknownOnlyUnderAPath) {
    const Opened proc("/proc");
    const Opened disk("/opt");
    EXPECT_EQ(kernelFileSystemOf(proc.fd.get(), proc.st.st_dev, "/proc"), 1);
    EXPECT_EQ(kernelFileSystemOf(-1, disk.st.st_dev, nullptr), -1);
    EXPECT_EQ(takeLog(), "");
    Capture errors(stderr);
    EXPECT_EQ(kernelFileSystemOf(-1, disk.st.st_dev, "/some/file"), -1);
    EXPECT_EQ(takeLog(),
              trio("statfs", EBADF, "Bad file descriptor", "/some/file", "IGKernelFileSystem"));
}

}  // namespace
