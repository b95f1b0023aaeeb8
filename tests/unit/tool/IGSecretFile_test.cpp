#include "tool/IGSecretFile.h"

#include <gmock/gmock.h>

namespace {

TEST(IGSecretFile, FilesOfSecretsAreKnownByTheirNameOrDirectory) {
    for (const char* path : {"/a/x.key",
                             "/a/x.keys",
                             "/a/x.keytab",
                             "/a/x.p12",
                             "/a/x.pfx",
                             "/a/x.jks",
                             "/a/x.kdbx",
                             "/a/x.gpg",
                             "/a/x.psk",
                             "/a/x.der",
                             "/a/ssh_host_rsa_key",
                             "/a/x.private",
                             "/a/x.secret",
                             "/a/x.secrets",
                             "/a/chap-secrets",
                             "/a/x.password",
                             "/a/x.passwd",
                             "/a/id_rsa",
                             "/a/id_dsa",
                             "/a/id_ecdsa",
                             "/a/id_rsa.old",
                             "/a/id_ed25519",
                             "/a/id_ed25519_sk",
                             "/etc/shadow",
                             "/etc/shadow-",
                             "/etc/gshadow",
                             "/etc/ssl/private/x.pem",
                             "/a/private/b/c"}) {
        EXPECT_TRUE(isSecretFile(path)) << path;
    }
}

TEST(IGSecretFile, OtherFilesAreNotTakenForFilesOfSecrets) {
    for (const char* path : {"/etc/passwd", "/a/key", "/a/x.key.conf", "/a/keys/x", "/a/id_rs",
                             "/etc/ssl/privat/x", "/a/private", "/a/x.pem", ""}) {
        EXPECT_FALSE(isSecretFile(path)) << path;
    }
}

}  // namespace
