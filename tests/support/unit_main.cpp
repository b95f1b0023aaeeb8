// Runs the unit tests of one unit, with the memory pool ready for use.
#include <gmock/gmock.h>

#include "common/base/IGCmnMemory.h"
#include "common/base/IGRunState.h"
#include "wrapped_calls.h"

namespace {

// Checks after every test that it replaces no call any more and has reset the interruption.
class NothingLeft : public ::testing::EmptyTestEventListener {
    void OnTestEnd(const ::testing::TestInfo& /*test*/) override {
        EXPECT_TRUE(noCallIsReplaced());
        EXPECT_EQ(run_state.interrupted, 0);
        EXPECT_EQ(run_state.patience, PATIENCE);
    }
};

}  // namespace

int main(int argc, char** argv) {
    ::testing::InitGoogleMock(&argc, argv);
    ::testing::UnitTest::GetInstance()->listeners().Append(new NothingLeft);
    IgCmnMemoryInit();
    const int result = RUN_ALL_TESTS();
    IgCmnMemoryEnd();
    return result;
}
