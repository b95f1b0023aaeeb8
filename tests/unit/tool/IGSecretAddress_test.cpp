#include <gmock/gmock.h>

#include "../../support/masked.h"

namespace {

TEST(IGSecretAddress, ThePasswordOfAnAddressIsHidden) {
    expectHidden({
        "DSN=bob:{}@tcp(h:3306)/d",
        "bob:{}@tcp(h)/d eve:{}@tcp(h)/d",
        R"(dsn: "bob:{}@unix(/run/x)/d")",
        "ffmpeg -i rtsp://u:{}@h/s x",
        "What=curlftpfs#bob:{}@ftp.example",
        "What=curlftpfs#ftp://bob:{}@ftp.example",
        "sshfs#bob:{}@h:/x /mnt fuse noauto 0 0",
        "mongodb://u:{}@h/d",
        "amqp://u:{}@h/",
        "cvs -d :pserver:bob:{}@h:/x",
    });
}

}  // namespace
