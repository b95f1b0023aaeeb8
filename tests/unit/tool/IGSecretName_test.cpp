#include <gmock/gmock.h>

#include <string>
#include <string_view>

#include "../../support/masked.h"
#include "tool/IGSecretNameRules.h"
#include "tool/IGSecretValueRules.h"

namespace {

TEST(IGSecretName, EveryWordForASecretHidesItsValueAlsoInsideALongerName) {
    for (const std::string_view word : SECRET_WORDS) {
        if (word == "authorization") {
            continue;  // its value is the whole rest of the line
        }
        const bool optional = word.find('~') != std::string::npos;
        for (const std::string_view sign : {"-", "_", ".", ""}) {
            std::string name(word);
            if (optional) {
                name.replace(name.find('~'), 1, sign);
            }
            EXPECT_EQ(masked("x my" + name + "2=abc y\n"), "x my" + name + "2=" + MASK + " y\n");
        }
    }
}

TEST(IGSecretName, AShortWordHidesAValueOnlyAsAWholePartOfAName) {
    for (const std::string_view name : {"pass", "pass2", "my-key", "pw", "pwd", "key.x", "_auth"}) {
        EXPECT_EQ(masked("x " + std::string(name) + "=abc y\n"),
                  "x " + std::string(name) + "=" + MASK + " y\n");
    }
    for (const std::string_view name : {"passage", "monkey", "keys", "pwm", "author"}) {
        const std::string line = "x " + std::string(name) + "=abc y\n";
        EXPECT_EQ(masked(line), line);
    }
}

TEST(IGSecretName, HarmlessEndingsAndPlainValuesAreKept) {
    for (const std::string_view ending : HARMLESS_ENDINGS) {
        const std::string line = "x password_" + std::string(ending) + "=abc y\n";
        EXPECT_EQ(masked(line), line);
    }
    for (const std::string_view value : PLAIN_VALUES) {
        const std::string line = "x password=" + std::string(value) + " y\n";
        EXPECT_EQ(masked(line), line);
    }
}

TEST(IGSecretName, EachOfSeveralSecretsIsHiddenAndNothingElse) {
    EXPECT_EQ(masked(repeated("x token=abc y ", 1400) + "z\n"),
              repeated("x token=" + MASK + " y ", 1900) + "z\n");
}

TEST(IGSecretName, APartOfTheNameOfAUnitOrAFileIsHiddenWhereItLooksLikeASecret) {
    expectHidden({
        "x-token-{}.service loaded active running",
        "backup-key-{}.timer",
        "  /srv/x/dump_password_{}_old.sql.gz 12",
    });
}

}  // namespace
