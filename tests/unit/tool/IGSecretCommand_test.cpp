#include <gmock/gmock.h>

#include "../../support/masked.h"

namespace {

TEST(IGSecretCommand, PasswordsBehindKnownWordsAreHidden) {
    expectHidden({
        "expdp system/{} directory=x",
        "sqlplus -s sys/{} as sysdba",
        "db2 connect to d user u using {}",
        "samba-tool user create bob {}",
        "1 vault login {}",
        "1 mc alias set n https://h ACCESS {}",
        "gh auth login --with-token <<< {}",
        "xfreerdp /v:h /u:u /p:{}",
        "sqlplus u/{}@db",
        R"(net use x: \\srv\share {} /user:bob)",
        R"(net use \\srv\share /user:bob {})",
        "net user bob {} /add",
        "server 10.0.0.1 key {}",
        "tacacs-server key 7 {}",
        "tacacs-server key {}",
        "radius-server host 10.0.0.1 key {}",
        "radius-server key 7 {}",
        "enable password 8 {}",
        " ip ospf authentication-key {}",
        " ip ospf message-digest-key 1 md5 {}",
        " ip rip authentication string {}",
        "cryptsetup open --key-file <(echo -n {}) /dev/sda x",
        "schtasks /create /u bob /rp {} /tn x",
        "runas /user:bob {}",
        "jdbc:oracle:thin:bob/{}@h:1521:x",
        "isql -v dsn bob {}",
        "ipmitool user set password 2 {}",
        R"(ipmitool user set password 2 "{}")",
        "snmp-server user bob g v3 auth sha {} priv aes 128 {}",
        "crypto isakmp key {} address 1.2.3.4",
        "ppp chap password 0 {}",
        "ppp pap sent-username bob password 0 {}",
        " standby 1 authentication {}",
        " ntp authentication-key 1 md5 {} 7",
        R"(set security ike policy x pre-shared-key ascii-text "{}")",
        "set vpn ipsec site-to-site peer x authentication pre-shared-secret {}",
        "wireless-security key {}",
        "virsh secret-set-value u --base64 {}",
        "openssl passwd -1 {}",
        "vault operator unseal {}",
        "rclone obscure {}",
        "net use z: {} /user:bob",
    });
}

TEST(IGSecretCommand, PasswordsThatAreWrittenToAPipeAreHidden) {
    expectHidden({
        "echo {} | realm join -U bob x",
    });
}

TEST(IGSecretCommand, PasswordsInSettingsThatAreWrittenLikeCommandsAreHidden) {
    expectHidden({
        "qemu -object secret,id=s0,data={},format=raw -m 1",
        R"(qemu -object {"qom-type":"secret","id":"s0","data":"{}"} -m 1)",
    });
}

TEST(IGSecretCommand, TheTextThatAScriptSendsAfterAPasswordPromptIsHidden) {
    expectMasked({
        {lines({"expect \"assword:\"", "send \"abc\\r\"", "send \"ls\\r\""}),
         lines({"expect \"assword:\"", "send \"" + MASK + "\"", "send \"ls\\r\""})},
    });
}

}  // namespace
