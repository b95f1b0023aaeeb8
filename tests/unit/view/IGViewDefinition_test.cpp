#include "view/IGViewDefinition.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "../../support/judge_fixture.h"
#include "view/IGViewTable.h"

namespace {

using testing::HasSubstr;
using testing::IsEmpty;

// A rule with more keys.
std::string rule(const std::string& more, const std::string& find = "x") {
    return R"j({"version": 1, "rules": [{"name": "r", "weight": "warning", "title": "T",
        "remedy": "R", "items": "a.txt", "find": ")j" +
           find + "\"" + (more.empty() ? "" : ", " + more) + "}]}";
}
std::string ruleWithText(const std::string& more, const std::string& find = "x") {
    return rule(R"j("text": "t")j" + (more.empty() ? "" : ", " + more), find);
}
std::string chart(const std::string& more, const std::string& find = "(?P<value>\\\\d)") {
    return R"j({"version": 1, "charts": [{"name": "c", "title": "T", "unit": "%", "items": "a",
        "find": ")j" +
           find + "\", " + more + "}]}";
}

std::string mistakeIn(const std::string& text) {
    Definitions definitions;
    std::string why;
    EXPECT_FALSE(definitions.add(text, why)) << text;
    EXPECT_THAT(definitions.table().rules, IsEmpty());
    return why;
}

void expectRead(const std::string& text) {
    Definitions definitions;
    std::string why;
    EXPECT_TRUE(definitions.add(text, why)) << text << why;
}

TEST(IGViewDefinition, ReadsAllKeysOfARule) {
    Definitions definitions;
    std::string why;
    ASSERT_TRUE(definitions.add(
        R"j({"version": 1, "rules": [ // a comment
            {"name": "a-b", "weight": "critical", "title": "Title", "text": "t {value} {name}",
             "remedy": "Do", "items": ["a", "b*"], "find": ["(?P<value>1)", "2"], "unless": "3",
             "after": "4", "context": "(?P<name>5)", "needs": "6", "empty": true, "above": 80,
             "below": 95.5, "at_least": 3, "same": true,
             "of": {"items": "c", "find": "(?P<value>7)"}}]})j",
        why))
        << why;
    ASSERT_EQ(definitions.table().rules.size(), 1U);
    const RuleDefinition& rule = definitions.table().rules[0];
    EXPECT_EQ(rule.name, "a-b");
    EXPECT_EQ(rule.weight, Weight::CRITICAL);
    EXPECT_EQ(rule.title, "Title");
    EXPECT_EQ(rule.remedy, "Do");
    EXPECT_THAT(rule.query.items, testing::ElementsAre("a", "b*"));
    EXPECT_THAT(rule.query.find, testing::ElementsAre("(?P<value>1)", "2"));
    EXPECT_THAT(rule.query.unless, testing::ElementsAre("3"));
    EXPECT_EQ(rule.query.after, "4");
    EXPECT_EQ(rule.query.context, "(?P<name>5)");
    EXPECT_EQ(rule.query.needs, "6");
    EXPECT_TRUE(rule.query.empty);
    EXPECT_EQ(rule.above, 80);
    EXPECT_EQ(rule.below, 95.5);
    EXPECT_EQ(rule.at_least, 3U);
    EXPECT_TRUE(rule.same);
    EXPECT_TRUE(rule.measure.percent);
    ASSERT_TRUE(rule.measure.of);
    EXPECT_THAT(rule.measure.of->items, testing::ElementsAre("c"));
}

TEST(IGViewDefinition, ReadsFactsChartsAndComparisons) {
    Definitions definitions;
    std::string why;
    ASSERT_TRUE(definitions.add(
        R"j({"version": 1,
            "facts": [{"name": "f", "group": "G", "label": "L", "value": "{v}", "all": true,
                       "items": "a", "find": "(?P<v>.)"}],
            "charts": [{"name": "c", "title": "T", "unit": "%", "kind": "lines", "most": 100,
                        "rows": 7, "rest": true, "values": {"u": "user", "s": "system"},
                        "note": "{when}", "items": "a",
                        "find": "(?P<when>1)(?P<u>.)(?P<s>.)(?P<of>.)"}],
            "comparisons": [{"name": "d", "title": "T", "volatile": true, "items": "a",
                             "find": "(?P<key>.)=(?P<value>.)"}]})j",
        why))
        << why;
    const DefinitionTable& table = definitions.table();
    ASSERT_EQ(table.facts.size(), 1U);
    EXPECT_TRUE(table.facts[0].all);
    EXPECT_EQ(table.facts[0].group, "G");
    EXPECT_EQ(table.facts[0].label, "L");
    ASSERT_EQ(table.charts.size(), 1U);
    EXPECT_EQ(table.charts[0].kind, ChartKind::LINES);
    EXPECT_EQ(table.charts[0].most, 100);
    EXPECT_EQ(table.charts[0].rows, 7U);
    EXPECT_TRUE(table.charts[0].rest);
    EXPECT_TRUE(table.charts[0].measure.percent);
    EXPECT_EQ(table.charts[0].values.size(), 2U);
    ASSERT_EQ(table.comparisons.size(), 1U);
    EXPECT_TRUE(table.comparisons[0].is_volatile);
    EXPECT_EQ(table.comparisons[0].query.find[0], "(?P<key>.)=(?P<value>.)");
}

TEST(IGViewDefinition, TheLaterDefinitionOfANameReplacesTheEarlierOne) {
    Definitions definitions;
    std::string why;
    ASSERT_TRUE(definitions.add(ruleWithText(""), why)) << why;
    ASSERT_TRUE(definitions.add(ruleWithText(R"j("at_least": 5)j"), why)) << why;
    ASSERT_EQ(definitions.table().rules.size(), 1U);
    EXPECT_EQ(definitions.table().rules[0].at_least, 5U);
}

TEST(IGViewDefinition, AddsNothingOfAWrongText) {
    Definitions definitions;
    std::string why;
    ASSERT_TRUE(definitions.add(ruleWithText(""), why)) << why;
    EXPECT_FALSE(
        definitions.add(R"j({"version": 1, "comparisons": [{"name": "d"}], "rules": []})j", why));
    EXPECT_EQ(definitions.table().rules.size(), 1U);
    EXPECT_THAT(definitions.table().comparisons, IsEmpty());
}

TEST(IGViewDefinition, TellsWhatIsWrongWithTheWholeText) {
    EXPECT_EQ(mistakeIn("{"), "the definitions are not JSON");
    EXPECT_EQ(mistakeIn(""), "the definitions are not JSON");
    EXPECT_EQ(mistakeIn("{\"version\": 1, \"\xff\": 1}"), "the definitions are not JSON");
    EXPECT_EQ(mistakeIn("[1]"), "the definitions must be an object in braces");
    EXPECT_EQ(mistakeIn("{}"), "the definitions: \"version\" must be 1");
    EXPECT_EQ(mistakeIn(R"j({"version": 2})j"), "the definitions: \"version\" must be 1");
    EXPECT_EQ(mistakeIn(R"j({"version": "1"})j"), "the definitions: \"version\" must be a number");
    EXPECT_EQ(mistakeIn(R"j({"version": 1, "rule": []})j"),
              "the definitions: unknown key \"rule\"");
    EXPECT_EQ(mistakeIn(R"j({"version": 1, "rules": {}})j"),
              "the definitions: \"rules\" must be a list");
    EXPECT_EQ(mistakeIn(R"j({"version": 1, "facts": [1]})j"),
              "fact 1: it must be an object in braces");
}

TEST(IGViewDefinition, NamesTheDefinitionThatIsWrong) {
    EXPECT_EQ(mistakeIn(R"j({"version": 1, "facts": [{}]})j"), "fact 1: it has no \"name\"");
    EXPECT_EQ(mistakeIn(R"j({"version": 1, "facts": [{"name": 5}]})j"),
              "fact 1: \"name\" must be a text");
    EXPECT_EQ(mistakeIn(R"j({"version": 1, "charts": [{"name": "a B"}]})j"),
              "chart \"a B\": a name has only the letters a to z and \"-\"");
    EXPECT_EQ(mistakeIn(rule("")), "rule \"r\": it has no \"text\"");
    EXPECT_EQ(mistakeIn(ruleWithText(R"j("tilte": "x")j")), "rule \"r\": unknown key \"tilte\"");
}

TEST(IGViewDefinition, TellsAWrongType) {
    EXPECT_EQ(mistakeIn(ruleWithText(R"j("above": "5")j")),
              "rule \"r\": \"above\" must be a number");
    EXPECT_EQ(mistakeIn(ruleWithText(R"j("same": 1)j")),
              "rule \"r\": \"same\" must be true or false");
    EXPECT_EQ(mistakeIn(ruleWithText(R"j("of": 1)j")),
              "rule \"r\": \"of\" must be an object in braces");
    EXPECT_EQ(mistakeIn(ruleWithText(R"j("unless": {})j")),
              "rule \"r\": \"unless\" must be a text or a list of texts");
    EXPECT_EQ(mistakeIn(ruleWithText(R"j("unless": [])j")),
              "rule \"r\": \"unless\" must be a text or a list of texts");
    EXPECT_EQ(mistakeIn(ruleWithText(R"j("unless": ["a", 1])j")),
              "rule \"r\": \"unless\" must be a text");
    EXPECT_EQ(mistakeIn(ruleWithText(R"j("after": "")j")),
              "rule \"r\": \"after\" must not be empty");
    EXPECT_EQ(mistakeIn(ruleWithText(R"j("at_least": 0)j")),
              "rule \"r\": \"at_least\" must be a number from 1 to 1000000");
    EXPECT_EQ(mistakeIn(ruleWithText(R"j("at_least": 1e300)j")),
              "rule \"r\": \"at_least\" must be a number from 1 to 1000000");
    EXPECT_EQ(mistakeIn(ruleWithText(R"j("weight": "heavy")j")),
              "rule \"r\": \"weight\" must be \"critical\", \"warning\" or \"notice\"");
    EXPECT_EQ(mistakeIn(chart(R"j("kind": "pie", "label": "l")j")),
              "chart \"c\": \"kind\" must be \"bars\" or \"lines\"");
    EXPECT_EQ(mistakeIn(chart(R"j("kind": "bars", "values": {"a": 1})j")),
              "chart \"c\": \"values\" must have a text for every capture");
}

TEST(IGViewDefinition, TellsThatAChartDrawsNothing) {
    EXPECT_EQ(mistakeIn(chart(R"j("kind": "bars", "values": {})j")),
              "chart \"c\": \"values\" must have a text for every capture");
}

TEST(IGViewDefinition, TellsAWrongExpression) {
    EXPECT_THAT(mistakeIn(ruleWithText("", "a(")),
                HasSubstr("rule \"r\": the expression \"a(\" is wrong: missing )"));
    for (const char* key : {"unless", "after", "context", "needs"}) {
        EXPECT_THAT(mistakeIn(ruleWithText('"' + std::string(key) + R"j(": "b[")j")),
                    HasSubstr("the expression \"b[\" is wrong"));
    }
    EXPECT_THAT(mistakeIn(ruleWithText("", "(?=a)")), HasSubstr("is wrong"));
}

TEST(IGViewDefinition, TellsACaptureThatIsMissing) {
    const std::string missing = "no expression captures (?P<";
    EXPECT_EQ(mistakeIn(rule(R"j("text": "{unit}")j")), "rule \"r\": " + missing + "unit>...)");
    EXPECT_EQ(mistakeIn(rule(R"j("text": "{each unit}")j")),
              "rule \"r\": " + missing + "unit>...)");
    EXPECT_EQ(mistakeIn(ruleWithText(R"j("above": 5)j")), "rule \"r\": " + missing + "value>...)");
    EXPECT_EQ(mistakeIn(ruleWithText(R"j("above": 5, "of": {"items": "a", "find": "b"})j",
                                     "(?P<value>1)")),
              "rule \"r\": \"of\": " + missing + "value>...)");
    EXPECT_EQ(mistakeIn(chart(R"j("kind": "lines", "label": "l")j")),
              "chart \"c\": " + missing + "when>...)");
    EXPECT_EQ(mistakeIn(chart(R"j("kind": "bars", "values": {"x": "y"})j")),
              "chart \"c\": " + missing + "x>...)");
    EXPECT_EQ(mistakeIn(R"j({"version": 1, "comparisons": [{"name": "d", "title": "T", "items": "a",
                            "find": "b"}]})j"),
              "comparison \"d\": " + missing + "key>...)");
}

TEST(IGViewDefinition, TellsKeysThatDoNotGoTogether) {
    EXPECT_EQ(mistakeIn(ruleWithText(R"j("date": "%Y")j", "(?P<value>1)")),
              "rule \"r\": \"of\" and \"date\" need \"above\" or \"below\"");
    EXPECT_EQ(mistakeIn(ruleWithText(R"j("above": 1, "date": "%Y")j", "(?P<value>1)(?P<of>1)")),
              "rule \"r\": a date has no percentage: \"date\" and \"of\" exclude each other");
    EXPECT_EQ(mistakeIn(chart(R"j("kind": "bars", "label": "l", "date": "%Y")j")),
              "chart \"c\": a chart cannot draw a \"date\"");
}

TEST(IGViewDefinition, ARuleForAMissingLineHasNoCaptures) {
    const std::string mistake =
        "rule \"r\": \"absent\" is found without a match: it has no captures and no numbers";
    EXPECT_EQ(mistakeIn(ruleWithText(R"j("absent": true, "above": 1)j", "(?P<value>1)")), mistake);
    EXPECT_EQ(mistakeIn(rule(R"j("absent": true, "text": "{value}")j", "(?P<value>1)")), mistake);
    EXPECT_EQ(mistakeIn(ruleWithText(R"j("absent": 1)j")),
              "rule \"r\": \"absent\" must be true or false");
    expectRead(ruleWithText(R"j("absent": true)j"));
    expectRead(ruleWithText(R"j("bits": 16)j", "(?P<value>1)"));
}

TEST(IGViewDefinition, TellsThatTheTextsAreNotThoseOfTheExpressions) {
    const std::string mistake =
        "rule \"r\": \"text\" is one text, or one for each expression in \"find\"";
    EXPECT_EQ(mistakeIn(rule(R"j("text": ["a", "b"])j")), mistake);
    EXPECT_EQ(mistakeIn(rule(R"j("text": ["a", 1])j")), "rule \"r\": \"text\" must be a text");
    expectRead(rule(R"j("text": ["a"])j"));
}

TEST(IGViewDefinition, TellsWrongNamesOfBits) {
    const std::string mistake =
        "rule \"r\": \"bits\" must have a text for each bit, such as \"16\"";
    for (const char* bits : {R"j({"3": "a"})j", R"j({"0": "a"})j", R"j({"x": "a"})j",
                             R"j({"16 ": "a"})j", R"j({"16": 1})j", R"j({"-1": "a"})j", "{}"}) {
        EXPECT_EQ(mistakeIn(ruleWithText(R"j("bits": )j" + std::string(bits), "(?P<value>1)")),
                  mistake)
            << bits;
    }
    expectRead(rule(R"j("bits": {"1": "a", "2": "b"}, "text": "{bits}")j", "(?P<value>1)"));
    EXPECT_EQ(mistakeIn(rule(R"j("bits": 1, "text": "{bits}")j", "(?P<value>1)")),
              "rule \"r\": no expression captures (?P<bits>...)");
    EXPECT_EQ(mistakeIn(rule(R"j("text": "{of}")j")),
              "rule \"r\": no expression captures (?P<of>...)");
}

TEST(IGViewDefinition, TellsAWrongTemplate) {
    EXPECT_EQ(mistakeIn(rule(R"j("text": "a {value")j", "(?P<value>1)")),
              "rule \"r\": \"text\": a \"{\" without its \"}\"; \"{{\" is a brace");
    EXPECT_EQ(mistakeIn(rule(R"j("text": "{value of it}")j", "(?P<value>1)")),
              "rule \"r\": \"text\": {value of it} is no place for a capture");
    EXPECT_EQ(mistakeIn(chart(R"j("kind": "bars", "label": "{count}")j")),
              "chart \"c\": \"label\" is filled from one match: it cannot count");
    expectRead(rule(R"j("text": "{count unit|units} {each value} {item} {{")j", "(?P<value>1)"));
}

TEST(IGViewDefinition, TheExampleInTheDocumentationIsRight) {
    const std::string manual = contentOf("../docs/formats.md");
    const std::size_t section = manual.find("## Definitions of quendil-report");
    const std::size_t begin = manual.find("```json\n", section) + 8;
    ASSERT_LT(section, begin);
    const std::string example = manual.substr(begin, manual.find("```", begin) - begin);
    expectRead(example);
    const Result result = judgedBy(example, {{"app/status.txt", "queue mail: 90 of 100\n"}});
    EXPECT_EQ(result.findings.at(0).text, "1 queue is nearly full: mail.");
}

TEST(IGViewDefinition, EveryBuiltInDefinitionIsRight) {
    const std::string copy(builtInDefinitions());  // another place: it is checked like a user's
    expectRead(copy);
    Definitions definitions;
    std::string why;
    EXPECT_TRUE(definitions.add(builtInDefinitions(), why)) << why;
}

}  // namespace
