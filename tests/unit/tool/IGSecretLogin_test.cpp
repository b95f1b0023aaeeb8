#include <gmock/gmock.h>

#include "../../support/masked.h"

namespace {

TEST(IGSecretLogin, ANameThatNoUserHasIsHidden) {
    expectHidden({
        "h sshd[1]: Invalid user {} from 10.0.0.1 port 22",
        "h sshd[1]: Failed password for invalid user {} from 10.0.0.1 port 22 ssh2",
        "h sshd[1]: Failed none for illegal user {} from 10.0.0.1 port 22 ssh2",
        "h sshd[1]: Connection closed by invalid user {} 10.0.0.1 port 22 [preauth]",
        "h sshd[1]: Disconnected from invalid user {} 10.0.0.1 port 22 [preauth]",
        "h sshd[1]: input_userauth_request: invalid user {} [preauth]",
        "h sshd[1]: error: maximum authentication attempts exceeded for invalid user {} from "
        "10.0.0.1 "
        "port 22 ssh2 [preauth]",
        "h login[1]: User {} not known to the underlying authentication module",
        "h login[1]: FAILED LOGIN (1) on '/dev/tty1' FOR '{}', User not known",
        "h login[1]: FAILED LOGIN 1 FROM tty1 FOR {}, Authentication failure",
        "h login[1]: pam_unix(login:auth): bad username [{}]",
        R"(type=USER_AUTH msg=audit(1.1:2): pid=1 uid=0 msg='op=PAM:authentication grantors=? acct="{}" exe="/usr/sbin/sshd" hostname=h addr=10.0.0.1 terminal=ssh res=failed')",
        "h dovecot: auth: passwd-file({},10.0.0.1,<s>): unknown user",
        "h dovecot: auth-worker(12): pam({},10.0.0.1): unknown user",
        R"([pid 3] [{}] FAIL LOGIN: Client "10.0.0.1")",
        "h proftpd[1]: h (10.0.0.1[10.0.0.1]) - USER {}: no such user found from 10.0.0.1 "
        "[10.0.0.1] "
        "to 10.0.0.2:21",
        "h ftpd[1]: no such user '{}'",
        "su: user {} does not exist",
    });
}

TEST(IGSecretLogin, ANameMayHaveBlanksAndEndsAtTheLastPlace) {
    expectMasked({
        {lines({"sshd[1]: Invalid user a b from c from 10.0.0.1 port 22"}),
         lines({"sshd[1]: Invalid user " + MASK + " from 10.0.0.1 port 22"})},
        {lines({"sshd[1]: Invalid user  from 10.0.0.1 port 22"}),
         lines({"sshd[1]: Invalid user  from 10.0.0.1 port 22"})},
    });
}

TEST(IGSecretLogin, ARecordOfALoginHidesTheNameOnlyWhenItFailed) {
    expectMasked({
        {lines({"op=login acct=5A7137 res=failed"}),
         lines({"op=login acct=" + MASK + " res=failed"})},
        {lines({"op=login acct=5A7137 res=success"}), lines({"op=login acct=5A7137 res=success"})},
    });
}

}  // namespace
