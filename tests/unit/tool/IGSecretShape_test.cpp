#include <gmock/gmock.h>

#include <string>

#include "../../support/masked.h"
#include "tool/IGSecretShapeRules.h"

namespace {

TEST(IGSecretShape, EveryKeyOfAServiceIsHiddenWhenItIsLongEnough) {
    for (const secret_shape& shape : SECRET_SHAPES) {
        std::string key(shape.beginning);
        key += shape.then == '\0' ? "" : std::string("abc") + shape.then;
        const std::string line = "x " + key + "a\n";
        EXPECT_EQ(masked(line), key.size() + 1 < shape.shortest ? line : "x " + MASK + "\n");
        EXPECT_EQ(masked("x " + key + "abcdefghijklmnopqrstabcdefghijklmnopqrst\n"),
                  "x " + MASK + "\n");
    }
}

TEST(IGSecretShape, ValuesOfAKnownFormatAreHidden) {
    expectHidden({
        R"(SCRAM "bob" "SCRAM-SHA-256${}")",
        "bob:{PLAIN}{}",
        "bob:{PLAIN}{}::::::",
        R"("auth": "{}", "x": 1)",
        "bob:{CLEARTEXT}{}:1:2",
    });
}

TEST(IGSecretShape, HexadecimalDigitsAreHiddenBehindTheirKind) {
    expectMasked({
        {lines({R"("bob" "md50123456789abcdef0123456789abcdef")"}),
         lines({R"("bob" ")" + MASK + "\""})},
        {lines({"x md50123456789abcdef0123456789abcdef y"}), lines({"x md5" + MASK + " y"})},
        {lines({"x md5sum-0123456789abcdef0123456789abc y"}),
         lines({"x md5sum-0123456789abcdef0123456789abc y"})},
        {lines({"x HEX:00112233445566778899AABBCCDDEEFF y"}), lines({"x HEX:" + MASK + " y"})},
    });
}

TEST(IGSecretShape, TheCredentialsOfARegistryAreHidden) {
    expectMasked({
        {lines({R"({"auths": {"h": {"auth": "dTpw"}}})"}),
         lines({R"({"auths": {"h": {"auth": ")" + MASK + R"("}}})"})},
    });
}

}  // namespace
