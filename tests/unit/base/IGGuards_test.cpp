#include "common/base/IGGuards.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <malloc.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <type_traits>

#include "../../support/run_fixture.h"
#include "common/base/IGAssert.h"
#include "common/base/IGSourcePlace.h"

namespace {

template <typename Guard>
constexpr bool COPIES = std::is_copy_constructible_v<Guard> || std::is_copy_assignable_v<Guard>;
static_assert(!COPIES<ErrnoKeeper> && !COPIES<FdGuard> && !COPIES<FileGuard> && !COPIES<DirGuard> &&
              !COPIES<UmaskGuard> && !COPIES<InterruptionBlock> && !COPIES<LocalPool>);

bool isOpen(int fd) {
    return ::fcntl(fd, F_GETFD) != -1;
}

bool isBlocked(int signal_no) {
    sigset_t mask;
    ::sigprocmask(SIG_SETMASK, nullptr, &mask);
    return ::sigismember(&mask, signal_no) == 1;
}

TEST(IGGuards, KeepErrnoInAScope) {
    errno = ENOENT;
    {
        const ErrnoKeeper keeper;
        errno = EACCES;
    }
    EXPECT_EQ(errno, ENOENT);
}

TEST(IGGuards, CloseADescriptor) {
    int fd = -1;
    {
        const FdGuard guard(::open("/", O_RDONLY | O_CLOEXEC));
        fd = guard.get();
        EXPECT_TRUE(static_cast<bool>(guard));
        EXPECT_TRUE(isOpen(fd));
        errno = ENOENT;
    }
    EXPECT_EQ(errno, ENOENT);
    EXPECT_FALSE(isOpen(fd));
}

TEST(IGGuards, CloseTheOldDescriptorForANewOne) {
    FdGuard guard(::open("/", O_RDONLY | O_CLOEXEC));
    const int first = guard.get();
    const int second = ::open("/", O_RDONLY | O_CLOEXEC);
    guard.reset(second);
    EXPECT_FALSE(isOpen(first));
    EXPECT_TRUE(isOpen(second));
    guard.reset();
    EXPECT_FALSE(isOpen(second));
    EXPECT_FALSE(static_cast<bool>(guard));
}

TEST(IGGuards, ReleaseADescriptor) {
    int fd = -1;
    {
        FdGuard guard(::open("/", O_RDONLY | O_CLOEXEC));
        fd = guard.release();
        EXPECT_EQ(guard.get(), -1);
    }
    EXPECT_TRUE(isOpen(fd));
    ::close(fd);
}

TEST(IGGuards, CloseOrReleaseAStream) {
    const std::size_t before = openDescriptors();
    {
        const FileGuard guard(std::fopen("/dev/full", "w"));
        ASSERT_TRUE(static_cast<bool>(guard));
        std::fputs("cannot be written", guard.get());
        errno = ENOENT;
    }
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(openDescriptors(), before);
    std::FILE* stream = nullptr;
    {
        FileGuard guard(std::fopen("/dev/null", "w"));
        stream = guard.release();
        EXPECT_FALSE(static_cast<bool>(guard));
    }
    EXPECT_EQ(openDescriptors(), before + 1);
    std::fclose(stream);
    EXPECT_FALSE(static_cast<bool>(FileGuard(nullptr)));
}

TEST(IGGuards, CloseADirectory) {
    const std::size_t before = openDescriptors();
    {
        const DirGuard guard(::opendir("/"));
        EXPECT_TRUE(static_cast<bool>(guard));
        EXPECT_NE(::readdir(guard.get()), nullptr);
        errno = ENOENT;
    }
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(openDescriptors(), before);
    EXPECT_FALSE(static_cast<bool>(DirGuard(nullptr)));
}

TEST(IGGuards, RestoreTheUmask) {
    ::umask(027);
    {
        const UmaskGuard outer(066);
        {
            const UmaskGuard inner(0);
            EXPECT_EQ(::umask(0), 0U);
        }
        EXPECT_EQ(::umask(066), 066U);
    }
    EXPECT_EQ(::umask(022), 027U);
}

TEST(IGGuards, BlockInterruptionsAndRestoreTheMask) {
    sigset_t term;
    ::sigemptyset(&term);
    ::sigaddset(&term, SIGTERM);
    ASSERT_EQ(::sigprocmask(SIG_BLOCK, &term, nullptr), 0);
    {
        const InterruptionBlock block;
        EXPECT_TRUE(isBlocked(SIGINT));
        EXPECT_TRUE(isBlocked(SIGTERM));
        EXPECT_TRUE(isBlocked(SIGHUP));
        EXPECT_FALSE(isBlocked(SIGUSR1));
        EXPECT_EQ(::sigismember(&block.saved(), SIGINT), 0);
        EXPECT_EQ(::sigismember(&block.saved(), SIGTERM), 1);
    }
    EXPECT_FALSE(isBlocked(SIGINT));
    EXPECT_TRUE(isBlocked(SIGTERM)) << "it was blocked before";
    ::sigprocmask(SIG_UNBLOCK, &term, nullptr);
}

TEST(IGGuards, FreeALocalPool) {
    const std::size_t before = ::mallinfo2().uordblks;
    for (int i = 0; i < 1000; ++i) {
        LocalPool pool;
        ASSERT_EQ(*pool.get(), nullptr);
        ASSERT_NE(IgCmnMemoryAlloc(pool.get(), 8), nullptr);
        errno = ENOENT;
    }
    EXPECT_EQ(errno, ENOENT);
    // The system's allocator caches a few small blocks; a thousand chunks are 4 MB.
    EXPECT_LT(::mallinfo2().uordblks, before + 8192);
}

TEST(IGSourcePlace, NamesTheUnitOfAFile) {
    struct Case {
        const char* file;
        std::string unit;
    };
    for (const Case& c : {Case{"/build/src/common/IGCmnFile.cpp", "IGCmnFile"},
                          Case{"IGMain.cpp", "IGMain"}, Case{"src/IGList.h", "IGList"},
                          Case{"IGNoSuffix", "IGNoSuffix"}, Case{"IGTwo.x.cpp", "IGTwo"},
                          Case{"dir.d/IGName.cpp", "IGName"}, Case{"", ""}, Case{"/", ""}}) {
        EXPECT_EQ((SourcePlace{c.file, 1}.unit().data()), c.unit);
    }
    const std::string name(100, 'n');
    EXPECT_EQ((SourcePlace{name.c_str(), 1}.unit().data()), std::string(63, 'n'));
}

int lineOf(SourcePlace place = SourcePlace::current()) {
    return place.line;
}

TEST(IGSourcePlace, IsThePlaceOfTheCaller) {
    const SourcePlace here = SourcePlace::current();
    EXPECT_EQ(here.line, __LINE__ - 1);
    EXPECT_STREQ(here.file, __FILE__);
    EXPECT_EQ(lineOf(), __LINE__);
    EXPECT_STREQ(here.unit().data(), "IGGuards_test");
}

TEST(IGAssertDeathTest, NamesThePlaceAndThePointer) {
    const char* name = nullptr;
    EXPECT_DEATH(IG_ASSERT_NOT_NULL(name),
                 "^.*IGGuards_test\\.cpp:[0-9]+: .*: Assertion `name != \\(\\(void \\*\\)0\\)' "
                 "failed\\.\n$");
    EXPECT_EXIT(IG_ASSERT_NOT_NULL(name), ::testing::KilledBySignal(SIGABRT), "");
}

TEST(IGAssert, AcceptsAPointer) {
    const char* name = "x";
    IG_ASSERT_NOT_NULL(name);
    EXPECT_STREQ(name, "x");
}

}  // namespace
