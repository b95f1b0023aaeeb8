#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "../../support/masked.h"

namespace {

TEST(IGSecretAudit, TheWordsOfARecordedCommandLineAreCheckedTogether) {
    expectHidden({
        R"(type=EXECVE msg=audit(1.1:2): argc=4 a0="mysql" a1="--password" a2="{}" a3="-h")",
        R"(type=EXECVE msg=audit(1.1:2): argc=4 a0="mysql" a1="-u" a2="root" a3="-p{}")",
        R"(audit: type=1309 audit(1.1:2): argc=4 a0="redis-cli" a1="-a" a2="{}" a3="info")",
        R"(type=EXECVE msg=audit(1.1:2): a7[0]="--pass" a7[1]="word" a8="{}")",
    });
}

TEST(IGSecretAudit, ATextInHexadecimalDigitsIsHiddenWholeWhereItHasASecret) {
    const std::string nul(1, '\0');
    for (const std::string& text :
         {"mysql -p" + std::string("Zq7c06pX4w"), "curl" + nul + "-u" + nul + "a:Zq7c06pX4w",
          std::string("DB_PASSWORD=x y"), std::string(9000, 'a') + " password=x "}) {
        EXPECT_EQ(masked("x proctitle=" + hexadecimal(text) + " y\n"),
                  "x proctitle=" + MASK + " y\n");
        EXPECT_EQ(masked("x argc=1 a0=" + hexadecimal(text) + " y\n"),
                  "x argc=1 a0=" + MASK + " y\n");
    }
    for (const std::string& text :
         {std::string("/usr/sbin/sshd -D"), "passwd" + nul + "root", std::string("pw=\1\2\3\4\5x"),
          "x=" + hexadecimal("password=abc ")}) {
        const std::string line = "x cmd=" + hexadecimal(text) + " y\n";
        EXPECT_EQ(masked(line), line);
    }
    const std::string odd = "x cmd=" + hexadecimal("password=abc ") + "1\n";
    EXPECT_EQ(masked(odd), odd);
}

TEST(IGSecretAudit, AnArgumentInHexadecimalDigitsIsOneWord) {
    EXPECT_EQ(masked("EXECVE argc=2 x a0=\"--password\" a1=" + hexadecimal("no abc def") + "\n"),
              "EXECVE argc=2 x a0=\"--password\" a1=" + MASK + "\n");
}

TEST(IGSecretAudit, ATextTypedAtATerminalIsHiddenWhereItLooksLikeASecret) {
    const std::string typed = hexadecimal("su -\rZq7c06pX4w\r");
    EXPECT_EQ(masked("type=TTY msg=audit(1.1:2): tty pid=1 data=" + typed + "\n"),
              "type=TTY msg=audit(1.1:2): tty pid=1 data=" + MASK + "\n");
    const std::string line =
        "type=TTY msg=audit(1.1:2): tty pid=1 data=" + hexadecimal("ls -l /etc\r") + "\n";
    EXPECT_EQ(masked(line), line);
}

TEST(IGSecretAudit, OnlyInATypedTextAWordThatLooksLikeASecretIsHiddenWithoutAName) {
    const std::string digits = hexadecimal("bash Zq7c06pX4w");
    for (const std::string& line :
         std::vector<std::string>{"x data=" + digits + "\n", "type=TTY tty comm=" + digits + "\n",
                                  "x cmd=" + hexadecimal("password=abc  ") + "z y\n"}) {
        EXPECT_EQ(masked(line), line);
    }
}

}  // namespace
