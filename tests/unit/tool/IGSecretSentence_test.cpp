#include <gmock/gmock.h>

#include <string>
#include <string_view>

#include "../../support/masked.h"
#include "tool/IGSecretSentenceRules.h"

namespace {

TEST(IGSecretSentence, TheValueThatFollowsANameWithoutASignIsHidden) {
    expectHidden({
        "Das Passwort ist jetzt {}",
        "Le mot de passe est « {} »",
        "# mot de passe root : {}",
        "# senha do banco: {}",
        "# PW -> {}",
        "# PW → {}.",
        "# pw „{}“, seit Mai",
        "# pw `{}`",
        "# pw [{}]",
        "# new pw for bob is {}",
        "# TICKET-12: pw bob {}",
        "# WiFi key {}",
        "# API key is {}",
        "# license key {}",
        "# the api key {} x",
        "consul kv put app/password {}",
        "a/pw b kv put shop/password {}",
        "zz pass 'q' ; user bob pass '{}'",
        "iscsiadm -m node -o update -n node.session.auth.password -v {}",
        "racadm set iDRAC.Users.2.Password {}",
        "# user (mdp {})",
        "# user (Passwort {}) since May",
        "bob:x:1000:1000:Bob (password {}),,,:/home/bob:/bin/bash",
        "bob:x:1000:1000:Bob (pw {}):/home/bob:/bin/bash",
        "bob:x:1000:1000:Bob password {}:/home/bob:/bin/bash",
        "bob:x:1000:1000:the token is {}:/home/bob:/bin/bash",
        "# sshpass {}",
        "keystore pass '{}' is set",
        "# storepass {}",
        "the db-pw {} is old",
        "    wpa-pwd {}",
        "ExecStart={ path=/bin/x ; argv[]=/bin/x --password {} ; ignore_errors=no ; pid=0 }",
        "Nov 22 10:00:00 h app[1]: the password is {}",
        "Nov 22 10:00:00 h app[1]: password is {}, keep it",
        "Nov 22 10:00:00 h app[1]: connecting with token {} to h",
        "Nov 22 10:00:00 h app[1]: registering with token {}",
        "Nov 22 10:00:00 h app[1]: using password '{}' for bob",
        "Nov 22 10:00:00 h app[1]: signing with key {}",
        "A temporary password is generated for root@localhost: {}",
        "Unseal Key 1: {}",
        "x: password set to {}",
        "x: changed the password to {}.",
        "Nov 22 10:00:00 h app[1]: user bob password {}",
        "Nov 22 10:00:00 h app[1]: bob pw {}",
        "ExecStart=/usr/local/bin/shop --listen 8443 --db-password {} --license {} -k {}",
        R"(ExecStart=/bin/sh -c 'echo "cannot reach db"; exit 3' --pw {})",
        "/opt/x --secret-key {} -v",
        "run-u12.service loaded active running /usr/bin/python3 -c import time --password {} "
        "--api-token={}",
        R"(Description=/usr/bin/python3 -c import\x20time --password {} --api-token={})",
        "  run-r1.service  loaded active running [systemd-run] /usr/bin/python3 -c time.sleep(9) "
        "--password {}",
        "1 redis-server --requirepass {} --port 1",
        "rclone copy a b --sftp-pass {} -v",
        "aws configure set aws_secret_access_key {}",
        "plink -pw {} h",
        "Console di servizio - parola d'ordine: {}",
        "scan:x:992:100:Scanner, wachtwoord {}:/nonexistent:/usr/sbin/nologin",
        "CREATE ROLE x LOGIN PASSWORD '{}' VALID UNTIL 'x'",
        "ALTER ROLE x PASSWORD '{}'",
        "x SET PASSWORD FOR 'u'@'h' = PASSWORD('{}')",
        "    user bob password {} groups g",
        "    user bob insecure-password {}",
        R"(poll h proto imap user "bob" pass "{}")",
        " isis password clear {}",
        "Das Passwort lautet {}",
        "Das Passwort ist {}",
        "bob:x:1000:1000:pw {}:/home/bob:/bin/sh",
        "bob:x:1000:1000:Bob, password {},,:/home/bob:/bin/sh",
        "curl --oauth2-bearer {} https://h",
        "\tPass \"{}\"",
        "nmcli con mod x wifi-sec.psk {}",
        "virsh set-user-password vm root {}",
        "npm config set //r/:_authToken {}",
        "kubeadm join h:6443 --token {} --discovery-token-ca-cert-hash sha256:x",
        "h app[1]: the passwords {}",
    });
}

TEST(IGSecretSentence, SentencesAboutASecretAreKeptAndItsValueIsNot) {
    for (const std::string_view word : ORDINARY_WORDS) {
        const std::string line = "so the token is " + std::string(word) + ", x\n";
        EXPECT_EQ(masked(line), line);
    }
    EXPECT_EQ(masked("so the token is Abc, x\n"), "so the token is " + MASK + ", x\n");
    EXPECT_EQ(masked("Token is abc def\n"), "Token " + MASK + "\n");
    EXPECT_EQ(masked("so the pin is 1234.\n"), "so the pin is " + MASK + ".\n");
}

TEST(IGSecretSentence, ASignInFrontOfAValueOrAtItsEndBelongsToIt) {
    expectMasked({
        {lines({"pw $3cretX, ok", "x pwd Ab1cde! y", "x pwd Ab1cde! ", "the token is $ecret!9.",
                "the token is Ab&cd!", "x pass=a&b&c=d y", "(pw $ecret!9)"}),
         lines({"pw " + MASK + ", ok", "x pwd " + MASK + " y", "x pwd " + MASK + " ",
                "the token is " + MASK + ".", "the token is " + MASK, "x pass=" + MASK + "&c=d y",
                "(pw " + MASK + ")"})},
    });
}

TEST(IGSecretSentence, APinIsANumberOfSeveralDigits) {
    expectMasked({
        {lines({"PIN 483920", "x PIN 12", "the pin 4839 x"}),
         lines({"PIN " + MASK, "x PIN 12", "the pin 4839 x"})},
        {lines({"/opt/x --pin 1234 -v"}), lines({"/opt/x --pin " + MASK + " -v"})},
    });
}

TEST(IGSecretSentence, ARemarkInParenthesesHoldsAPassword) {
    expectMasked({
        {lines({"# (pw hunter2) (mdp été-2026)", "# Zugang iLO: Administrator/Hunter-Summer"}),
         lines({"# (pw " + MASK + ") (mdp " + MASK + ")", "# Zugang iLO: Administrator/" + MASK})},
    });
}

}  // namespace
