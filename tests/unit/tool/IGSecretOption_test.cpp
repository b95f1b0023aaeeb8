#include <gmock/gmock.h>

#include <string>

#include "../../support/masked.h"
#include "tool/IGSecretCommandRules.h"

namespace {

TEST(IGSecretOption, TheValueOfAnOptionOfEachProgramOfTheTableIsHidden) {
    for (const secret_program& program : SECRET_PROGRAMS) {
        std::string command =
            "1 " + std::string(program.name) + (program.letter_follows ? "x" : "");
        command += program.next.empty() ? "" : " " + std::string(program.next);
        command += " -v -" + std::string(program.letters.substr(0, 1));
        command += program.with_user ? " me:" : " ";
        EXPECT_EQ(masked(command + "abc y\n"), command + MASK + " y\n");
        EXPECT_EQ(masked(command + "abc -d -e | x\n"), command + MASK + " -d -e | x\n");
    }
}

TEST(IGSecretOption, ThePasswordThatAnOptionTakesIsHidden) {
    expectHidden({
        "nsupdate -y hmac-sha256:{}",
        "swaks -au u -ap {}",
        "doctl auth init -t {}",
        "hdparm --security-unlock {} /dev/sda",
        "dsconf -D x -w {} ldap://h",
        "fence_ipmilan -a h -l u -p {} -o status",
        "rpcclient -U bob%{} h",
        "deploy --user bob:{} y",
        "deploy -u 'bob:{}' y",
        R"(Popen(["sshpass", "-p", "{}", "ssh", "h"]))",
        "ExecStart={ path=/bin/x ; argv[]=/bin/x -p {} ; ignore_errors=no ; pid=0 }",
        "5 4 * * * root /usr/local/bin/backup -p {} --to /srv",
        "ExecStart=/usr/local/bin/shop --listen 8443 -k {}",
        "ExecStart=/usr/local/bin/shop --license={} -v",
        "/opt/x --auth {} -v",
        "1 mysql -u root -p{}",
        "1 sshpass -p{} ssh h",
        "docker login -u x -p {} registry",
        "podman login -u x -p {} registry",
        "mosquitto_pub -h h -u u -P {} -t t",
        "mosquitto_sub -h h -u u -P {} -t t",
        "rdesktop -u u -p {} h",
        "ldapsearch -x -w {} -b x",
        R"(    -D cn=reader,dc=example -w {} \)",
        "-D 'uid=bob,dc=example' -w {} -b dc=example",
        "boot: iscsistart -i iqn.a -u chap -w {} -g 1",
        "snmpwalk -v3 -A {} -X {} h",
        "ipmitool -H h -P {} sdr",
        "smbclient //h/s -U u%{} -c ls",
        "curl -su u:{} https://h",
        "curl -sku u:{} https://h",
        "http -a u:{} https://h",
        "rar a -hp{} x",
        "check_snmp -H h -C {} -o x",
        "check_http -H h -a u:{}",
        "kubectl create secret generic x --from-literal=a={}",
        "jenkins-cli -auth b:{} x",
        "java -jar cli.jar -auth b:{} x",
    });
}

TEST(IGSecretOption, BehindTheUserOfADirectoryTheOptionTakesAnyWord) {
    EXPECT_EQ(masked("  -D cn=a,dc=b -w plain -b dc=b\n"),
              "  -D cn=a,dc=b -w " + MASK + " -b dc=b\n");
    for (const std::string user : {"cn=a", "uid=a", "\"cn=a\"", "\"uid=a\"", "'cn=a'", "'uid=a'"}) {
        EXPECT_EQ(masked("x -D " + user + " -w plain y\n"),
                  "x -D " + user + " -w " + MASK + " y\n");
    }
    EXPECT_EQ(masked("  -w plain -D cn=a,dc=b\n"), "  -w plain -D cn=a,dc=b\n");
}

TEST(IGSecretOption, AnOptionOfAnUnknownProgramIsHiddenWhereItsValueLooksLikeASecret) {
    expectMasked({
        {lines({R"(x='[\"-k\", \"a1B2c3d4\"]')"}), lines({R"(x='[\"-k\", \")" + MASK + R"(\"]')"})},
        {lines({"x --license P@ssw0rd1 -v"}), lines({"x --license " + MASK + " -v"})},
        {lines({"x -k hunter -p 2222 -p 10.1.2.3 -p enp0s31f6"}),
         lines({"x -k hunter -p 2222 -p 10.1.2.3 -p enp0s31f6"})},
    });
}

}  // namespace
