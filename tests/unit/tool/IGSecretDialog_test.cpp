#include <gmock/gmock.h>

#include "../../support/masked.h"

namespace {

TEST(IGSecretDialog, ThePasswordThatAClientSendsIsHidden) {
    expectHidden({
        "AUTH {}",
        "redis> AUTH bob {}",
        R"(1616.1 [0 127.0.0.1:1] "AUTH" "bob" "{}")",
        "C: AUTH PLAIN {}",
        "AUTH LOGIN {}",
        "AUTH USER AUTH PLAIN {}",
        "x LOGIN y a1 LOGIN bob {}",
        "a1 AUTHENTICATE PLAIN {}",
        "a1 LOGIN bob {}",
        R"(C: 12 LOGIN "bob" "{}")",
        "USER bob BYPASS 1 PASS {}",
        "USER bob PASS {}",
    });
}

TEST(IGSecretDialog, TheAnswerToAQuestionForAPasswordIsHidden) {
    expectMasked({
        {lines({"S: 334 UGFzc3dvcmQ6", "C: WnE4a1czcGFzcw==", "S: 235 done"}),
         lines({"S: 334 UGFzc3dvcmQ6", "C: " + MASK, "S: 235 done"})},
        {lines({"S: 334 UGFzc3dvcmQ6", "C: abandon", "USER bob", "PASS $(X)"}),
         lines({"S: 334 UGFzc3dvcmQ6", "C: abandon", "USER bob", "PASS $(X)"})},
    });
}

TEST(IGSecretDialog, APasswordFollowsItsUserInOneOfTheNextLines) {
    expectMasked({
        {lines({"USER bob", "331 go on", "PASS all day", "230 in", "PASS all tests"}),
         lines({"USER bob", "331 go on", "PASS " + MASK, "230 in", "PASS all tests"})},
    });
}

}  // namespace
