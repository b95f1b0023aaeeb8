#include "view/IGViewHash.h"

#include <gtest/gtest.h>

#include <string>

namespace {

// The key and the texts of the published test vectors: bytes 0, 1, 2 and so on.
constexpr HashKey KEY = {0x0706050403020100, 0x0f0e0d0c0b0a0908};

std::string bytes(std::size_t count) {
    std::string text;
    while (text.size() < count) {
        text += static_cast<char>(text.size());
    }
    return text;
}

TEST(IGViewHash, AgreesWithThePublishedVectors) {
    EXPECT_EQ(sipHash(KEY, bytes(0)), 0x726fdb47dd0e0e31U);
    EXPECT_EQ(sipHash(KEY, bytes(1)), 0x74f839c593dc67fdU);
    EXPECT_EQ(sipHash(KEY, bytes(8)), 0x93f5f5799a932462U);
    EXPECT_EQ(sipHash(KEY, bytes(15)), 0xa129ca6149be45e5U);
    EXPECT_EQ(sipHash(KEY, bytes(63)), 0x958a324ceb064572U);
}

TEST(IGViewHash, DependsOnTheKey) {
    EXPECT_NE(sipHash(KEY, "one"), sipHash({KEY[0] + 1, KEY[1]}, "one"));
    EXPECT_NE(sipHash(KEY, "one"), sipHash({KEY[0], KEY[1] + 1}, "one"));
}

TEST(IGViewHash, HasAKeyWithoutBeingGivenOne) {
    EXPECT_EQ(hashOf("one"), hashOf("one"));
    EXPECT_NE(hashOf("one"), hashOf("two"));
    EXPECT_NE(hashOf("one"), sipHash({}, "one"));
}

}  // namespace
