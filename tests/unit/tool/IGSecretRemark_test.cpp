#include <gmock/gmock.h>

#include "../../support/masked.h"

namespace {

TEST(IGSecretRemark, SecretsInRemarksAreHidden) {
    expectHidden({
        "# credenziali iLO: Administrator/{}",
        "# iLO (Administrator/{}), slot 2",
        "# accès: admin/{}",
        "# BMC USERID/{}.",
        "x: root/{}",
        R"([{}@41058 tag="rsyslog"])",
        R"(template(name="t" type="string" string="<%pri%>1 [{}@41058 tag=\"a\"]"))",
    });
}

}  // namespace
