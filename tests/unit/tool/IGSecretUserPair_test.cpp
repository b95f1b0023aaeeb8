#include <gmock/gmock.h>

#include "../../support/masked.h"

namespace {

TEST(IGSecretUserPair, ThePasswordBesideAUserIsHidden) {
    expectHidden({
        "# login/password bob:{}",
        "Nov 22 10:00:00 h app[1]: login: bob / {}",
        "Emergency login: ops / {}",
        "default login admin / {}",
        "Zugangsdaten: bob/{}",
        "Zugangsdaten: bob / {}",
        "Zugang: bob / {}",
        "skopeo copy --src-creds b:{} --dest-creds b:{} x y",
        "login with bob/{}",
        "login with bob:{}",
        "creds bob:{}",
        "with credentials bob:{}",
        "wifi: guest / {}",
        "h app[1]: with credentials bob:{} to h",
    });
}

}  // namespace
