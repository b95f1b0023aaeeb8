#include <gmock/gmock.h>

#include "../../support/masked.h"

namespace {

TEST(IGSecretElement, TheValueOfAnElementOrAttributeThatNamesASecretIsHidden) {
    expectHidden({
        R"(<nvpair id="a" name="passwd" value="{}"/>)",
        R"(<nvpair name="ipmi_password" id="a-b" value="{}"/>)",
        R"(<nvpair value="{}" id="a-b" name="ipmi_password"/>)",
        R"(<nvpair name="passwd" id="a-b" value="{}"/>)",
        R"(<nvpair id="a-b" value="{}" name="passwd"/>)",
        R"(<property value="{}" name="password"/>)",
        R"(<bean:property name="password"><value>{}</value></bean:property>)",
        R"(<setting name="Password" serializeAs="String"><value>{}</value></setting>)",
        "<key>password</key><string>{}</string>",
        R"(<param name="password" type="x">{}</param>)",
    });
}

TEST(IGSecretElement, OnlyTheTextOfTheElementItselfIsHidden) {
    expectMasked({
        {lines({"<password>abc<user>me"}), lines({"<password>" + MASK + "<user>me"})},
        {lines({R"(x -H "K: <apikey>" --data "ip=<ip>")"}),
         lines({R"(x -H "K: <apikey>" --data "ip=<ip>")"})},
        {lines({"<x password>a"}), lines({"<x password>a"})},
        {lines({"<nvpair value=\"abc\" id=\"a\" name=\"password\"/><nvpair value=\"def\"/>"}),
         lines({"<nvpair value=\"" + MASK +
                "\" id=\"a\" name=\"password\"/><nvpair value=\"def\"/>"})},
    });
}

}  // namespace
