#include <gmock/gmock.h>

#include "../../support/masked.h"

namespace {

TEST(IGSecretDirective, TheValueOfADirectiveIsHidden) {
    expectHidden({
        "setx DB_PASSWORD {}",
        "rocommunity {} 10.0.0.0/8",
        "rocommunity6 {} default -V systemonly",
        R"(    proxy_set_header Authorization "{}";)",
        "AuthLDAPBindPassword {}",
        "auth_pass {}",
        "db_password {}",
        "    proxy_set_header X-Api-Key {};",
        "SetEnv DB_PASSWORD {}",
        "    set $db_password {};",
        "    fastcgi_param DB_PASSWORD {};",
        " key-string {}",
        "option key '{}'",
        "ENV DB_PASSWORD {}",
    });
}

TEST(IGSecretDirective, ADirectiveInFrontOfANameEndsWithItsValue) {
    expectMasked({
        {lines({"fastcgi_param DB_PASSWORD abc;", "SetEnv DB_PASS \"a b\""}),
         lines({"fastcgi_param DB_PASSWORD " + MASK + ";", "SetEnv DB_PASS \"" + MASK + "\""})},
    });
}

}  // namespace
