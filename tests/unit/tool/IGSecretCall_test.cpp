#include <gmock/gmock.h>

#include "../../support/masked.h"

namespace {

TEST(IGSecretCall, ThePasswordAmongTheArgumentsOfACallIsHidden) {
    expectHidden({
        "INSERT INTO users (name, password) VALUES ('bob', '{}'), ('eve', '{}');",
        "INSERT INTO `u` (`db_pass`, `n`) VALUES ('{}', f('a', 2))",
        "insert into u (n, api_key, t) values (concat('a', 'b'), '{}', 'c')",
        "SELECT crypt('{}', salt)",
        R"(db.auth("u", "{}"))",
        "#0 /var/www/Db.php(41): PDO->__construct('mysql:host=..', 'user', '{}', Array)",
        "#1 /var/www/a.php(4): mysqli_connect('h', 'user', '{}', '{}')",
        "#2 /var/www/a.php(4): mysqli_real_connect(Object(mysqli), 'h', 'u', '{}', '{}')",
        R"(#3 /var/www/a.php(4): ftp_login(Object(FTP\Connection), 'bob', '{}'))",
        "#4 /var/www/a.php(4): ldap_bind(Resource id #3, 'cn=x', '{}')",
        "#5 /var/www/a.php(4): App\\User::authenticate('bob', '{}')",
        "#6 /var/www/a.php(4): password_verify('{}', '{}')",
        "#7 x(2): ssh2_auth_password(Resource id #3, 'bob', '{}')",
        "#8 x(2): ldap_bind(Array(2), 'cn=x', '{}')",
        "$db = new PDO('mysql:host=h', 'u', '{}');",
        R"(    conn = psycopg2.connect("h", "u", "{}"))",
        R"(f(login("bob", "{}")))",
        R"(connect(login("bob", "{}")))",
    });
}

}  // namespace
