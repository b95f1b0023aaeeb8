// Runs the unit tests of one unit, with the memory pool ready for use.
#include <gmock/gmock.h>

#include "common/IGCmnMemory.h"

int main(int argc, char** argv) {
    ::testing::InitGoogleMock(&argc, argv);
    IgCmnMemoryInit();
    const int result = RUN_ALL_TESTS();
    IgCmnMemoryEnd();
    return result;
}
