// As in a release build: without the assertions of the C library.
#ifndef NDEBUG
#define NDEBUG
#endif
#include "common/base/IGAssert.h"

#include <gmock/gmock.h>

#include <cassert>
#include <csignal>

namespace {

TEST(IGAssertDeathTest, ChecksInAReleaseBuildToo) {
    const int* memoryp = nullptr;
    assert(memoryp != nullptr);  // expands to nothing here
    EXPECT_DEATH(IG_ASSERT_NOT_NULL(memoryp),
                 "^[^:]*IGAssert_test.cpp:[1-9][0-9]*: [A-Za-z]+: Assertion `memoryp != \\(\\(void "
                 "\\*\\)0\\)' failed\\.\n$");
}

TEST(IGAssertDeathTest, AbortsAndDoesNotExit) {
    const char* path = nullptr;
    EXPECT_EXIT(IG_ASSERT_NOT_NULL(path), ::testing::KilledBySignal(SIGABRT), "path != ");
}

TEST(IGAssert, AcceptsOtherPointersAndEvaluatesThemOnce) {
    int evaluations = 0;
    const auto pointer = [&evaluations] { return ++evaluations != 0 ? &evaluations : nullptr; };
    IG_ASSERT_NOT_NULL(pointer());
    EXPECT_EQ(evaluations, 1);
}

}  // namespace
