// The built-in rules, each with what it must find and what it must not: view/rules/RULE has
//   hit/ITEM   items in which this rule and no other finds something
//   miss/ITEM  the same items of a machine without the problem
//   cited      the first place that the rule cites, ITEM:LINE
//   cases/CASE/ITEM, cases/CASE.text
//              if there are any: items of another machine, and the exact text of the finding, or
//              "clear" if it must find nothing
#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "../../support/judge_fixture.h"
#include "view/IGViewTable.h"

namespace {

using testing::ElementsAre;

const fs::path RULES = "view/rules";

std::vector<std::string> namesOfRules() {
    std::vector<std::string> names;
    for (const RuleDefinition& rule : builtIn().table().rules) {
        names.push_back(rule.name);
    }
    return names;
}

const Finding& findingOf(const Result& result, const std::string& rule) {
    const auto found = std::find_if(result.findings.begin(), result.findings.end(),
                                    [&](const Finding& one) { return one.rule == rule; });
    EXPECT_NE(found, result.findings.end());
    return *found;
}

std::vector<std::string> foundIn(const Result& result) {
    std::vector<std::string> names;
    for (const Finding& finding : result.findings) {
        if (finding.verdict == Verdict::FOUND) {
            names.push_back(finding.rule);
        }
    }
    return names;
}

class IGViewRules : public testing::TestWithParam<std::string> {
  protected:
    const fs::path directory_ = RULES / GetParam();
};

TEST_P(IGViewRules, FindsTheProblemAndNoOther) {
    const Result result = judged(builtIn(), itemsBelow(directory_ / "hit"));
    EXPECT_THAT(foundIn(result), ElementsAre(GetParam()));
    const Finding& finding = findingOf(result, GetParam());
    ASSERT_FALSE(finding.places.empty());
    const Place& place = finding.places[0];
    EXPECT_EQ(result.items[place.item].name + ':' + std::to_string(place.line) + '\n',
              contentOf(directory_ / "cited"));
    EXPECT_NE(finding.text, "");
    EXPECT_NE(finding.remedy, "");
    EXPECT_EQ(finding.text.find("  "), std::string::npos) << "an empty capture: " << finding.text;
    EXPECT_EQ(finding.text.find(": ."), std::string::npos) << "an empty list: " << finding.text;
}

TEST_P(IGViewRules, FindsNothingOnAMachineWithoutIt) {
    const Result result = judged(builtIn(), itemsBelow(directory_ / "miss"));
    const Finding& finding = findingOf(result, GetParam());
    EXPECT_EQ(finding.verdict, Verdict::CLEAR) << finding.text;
}

TEST_P(IGViewRules, DoesNotJudgeWithoutItsItem) {
    const Finding finding = findingOf(judged(builtIn(), {}), GetParam());
    EXPECT_EQ(finding.verdict, Verdict::NOT_JUDGED);
    EXPECT_NE(finding.text.find("not in the archive"), std::string::npos) << finding.text;
}

TEST_P(IGViewRules, DoesNotJudgeWhatAToolCouldNotTell) {
    std::vector<TestItem> items = itemsBelow(directory_ / "miss");
    for (TestItem& item : items) {
        item.text = "tool: not installed on this machine\n";
    }
    EXPECT_EQ(findingOf(judged(builtIn(), items), GetParam()).verdict, Verdict::NOT_JUDGED);
}

TEST_P(IGViewRules, TellsEachCaseExactly) {
    if (!fs::exists(directory_ / "cases")) {
        return;
    }
    for (const fs::directory_entry& entry : fs::directory_iterator(directory_ / "cases")) {
        if (!entry.is_directory()) {
            continue;
        }
        const Finding finding = findingOf(judged(builtIn(), itemsBelow(entry.path())), GetParam());
        const std::string text = finding.verdict == Verdict::CLEAR ? "clear" : finding.text;
        EXPECT_EQ(text + '\n', contentOf(entry.path().string() + ".text")) << entry.path();
        EXPECT_NE(finding.verdict, Verdict::NOT_JUDGED) << entry.path();
    }
}

INSTANTIATE_TEST_SUITE_P(Rule, IGViewRules, testing::ValuesIn(namesOfRules()), nameOfParameter);

TEST(IGViewRulesDirectory, IsThatOfARule) {
    expectDirectories(RULES, namesOfRules());
    EXPECT_GE(namesOfRules().size(), 40U);
}

}  // namespace
