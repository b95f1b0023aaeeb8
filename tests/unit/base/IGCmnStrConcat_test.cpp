
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "../../support/file_fixture.h"
#include "../../support/wrapped_calls.h"
#include "common/base/IGCmnStr.h"

namespace {

class IGCmnConcatData : public FileTest {};

TEST_F(IGCmnConcatData, AppendsToABufferThatGrowsToTheNeededLength) {
    char* buffer = nullptr;
    std::uint32_t size = 0;
    ASSERT_EQ(concat_data(pool(), &buffer, &size, ""), 0);
    EXPECT_STREQ(buffer, "");
    EXPECT_EQ(size, 1U);
    ASSERT_EQ(concat_data(pool(), &buffer, &size, "abc"), 0);
    EXPECT_STREQ(buffer, "abc");
    EXPECT_EQ(size, 4U);
    ASSERT_EQ(concat_data(pool(), &buffer, &size, std::string(1000, 'd').c_str()), 0);
    EXPECT_EQ(buffer, "abc" + std::string(1000, 'd'));
    EXPECT_EQ(size, 1004U);
}

TEST_F(IGCmnConcatData, AppendsInPlaceWhereThereIsRoom) {
    auto* buffer = newFromPool<char>(pool(), 10);
    char* const start = buffer;
    std::uint32_t size = 10;
    ASSERT_EQ(concat_data(pool(), &buffer, &size, "12345"), 0);
    ASSERT_EQ(concat_data(pool(), &buffer, &size, "6789"), 0);
    EXPECT_EQ(buffer, start);
    EXPECT_EQ(size, 10U);
    EXPECT_STREQ(buffer, "123456789");
    ASSERT_EQ(concat_data(pool(), &buffer, &size, "0"), 0);
    EXPECT_EQ(size, 11U);
    EXPECT_STREQ(buffer, "1234567890");
}

TEST_F(IGCmnConcatData, KeepsTheBufferWhenItCannotGrow) {
    const std::string more(1000, 'm');
    char* buffer = nullptr;
    std::uint32_t size = 0;
    ASSERT_EQ(concat_data(pool(), &buffer, &size, "abc"), 0);
    char* const start = buffer;
    {
        Capture err(stderr);
        const FailingCall failing(Call::CALLOC, 1, ENOMEM);
        EXPECT_EQ(concat_data(pool(), &buffer, &size, more.c_str()), -1);
        EXPECT_EQ(err.take(), "ZEPA122-E:Memory is insufficient.\n");
    }
    EXPECT_EQ(buffer, start);
    EXPECT_EQ(size, 4U);
    EXPECT_STREQ(buffer, "abc");
    EXPECT_EQ(concat_data(pool(), &buffer, &size, more.c_str()), 0);
    EXPECT_EQ(buffer, "abc" + more);
}

TEST(IGCmnConcatDataDeathTest, AssertsWhatIsAppended) {
    memory_pool pool = nullptr;
    char* buffer = nullptr;
    std::uint32_t size = 0;
    EXPECT_DEATH(concat_data(nullptr, &buffer, &size, ""), nullOf("`memoryp"));
    EXPECT_DEATH(concat_data(&pool, nullptr, &size, ""), "Assertion `[a-z]+ != \\(\\(void");
    EXPECT_DEATH(concat_data(&pool, &buffer, nullptr, ""), "Assertion `[a-z]+ != \\(\\(void");
    EXPECT_DEATH(concat_data(&pool, &buffer, &size, nullptr), "Assertion `[a-z]+ != \\(\\(void");
}

}  // namespace
