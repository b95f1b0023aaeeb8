#include <gmock/gmock.h>

#include "../../support/masked.h"

namespace {

TEST(IGSecretNotation, ValuesInNotationsOfLanguagesAndProgramsAreHidden) {
    expectHidden({
        "getenv('DB_PASSWORD') ?: '{}'",
        R"(os.environ["DB_PASSWORD"] or "{}")",
        "env('DB_PASSWORD', '{}')",
        R"(os.getenv("DB_PASSWORD", "{}"))",
        R"("CONFIG" "SET" "requirepass" "{}")",
        "argv ['/usr/local/bin/shop', '--db-password', '{}', '--license', '{}', '-k', '{}']",
        R"(["--db-password", "{}", "--port", "80"])",
        R"(ExecStart="/bin/x" "--password" "{}" "--api-token={}")",
        R"({"argv": ["/bin/x", "--token", "{}", "-v"], "n": 1})",
        R"("Cmd": "[\"--db-password\", \"{}\", \"-v\"]")",
        "CREATE USER u IDENTIFIED BY '{}'",
        "CREATE USER u IDENTIFIED WITH mysql_native_password BY '{}' REQUIRE NONE",
        "CREATE USER u IDENTIFIED WITH mysql_native_password AS '{}'",
        "| report_password | {} |",
        "| report_password            | {}    |",
        R"(foo@password\x3d{}.service loaded active)",
        R"(foo@--password\x20{}.service loaded active)",
        "ALTER USER bob IDENTIFIED BY {}",
        "CREATE USER bob IDENTIFIED BY {} QUOTA 1",
        "CREATE DATABASE LINK l CONNECT TO bob IDENTIFIED BY {} USING 'x'",
        "x IDENTIFIED BY {} y",
    });
}

TEST(IGSecretNotation, OnlyTheCellBesideTheNameIsHidden) {
    expectMasked({
        {lines({"| report_password | abc |", "| report_user | abc |"}),
         lines({"| report_password | " + MASK + " |", "| report_user | abc |"})},
    });
}

}  // namespace
