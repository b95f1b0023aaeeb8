#include <gmock/gmock.h>

#include "../../support/masked.h"

namespace {

TEST(IGSecretField, SecretsInFieldsOfKnownFilesAreHidden) {
    expectHidden({
        "1 SHA1 HEX:{}",
        "2 MD5 {}",
        "25 SHA256 ASCII:{}",
        R"("bob" "{}")",
        "host.example.net:5432:db:me:{}",
        "*:*:*:me:{}",
        "[smtp.example.net]:587 user:{}",
        "smtp.example.net user@example.net:{}",
        "[mail.x.de]:587    bob@x.de:{}",
        "mail.example.com:bob:{}",
        "10.0.0.1:1812 {} 3",
        "radius.example.net {} 3",
        "127.0.0.1 {} 1",
        " key 7 {}",
        R"(bob : EAP "{}")",
        R"(bob : XAUTH "{}")",
        R"(: RSA server.key "{}")",
        "bob : NTLM {}",
        "user default on >{} ~* +@all",
        "user bob on >{} ~* &* +@all",
        "user bob on #{} ~*",
        "ACL SETUSER bob on >{} ~* +@all",
        "user=bob:{}",
        "  key 7 {}",
    });
}

TEST(IGSecretField, LinesOfDialSecretsFollowTheirTitle) {
    expectMasked({
        {lines({"# client\tserver\tsecret\tIP addresses", "me h abc", "you * def *", "a b"}),
         lines({"# client\tserver\tsecret\tIP addresses", "me h " + MASK, "you * " + MASK, "a b"})},
    });
}

TEST(IGSecretField, RightsAndCredentialsKeepTheNameOfTheUser) {
    expectMasked({
        {lines({"user me on >abcd ~* +@all", "SetCredential=name:abc", "SetCredential=abc"}),
         lines({"user me on >" + MASK + " ~* +@all", "SetCredential=name:" + MASK,
                "SetCredential=" + MASK})},
    });
}

}  // namespace
