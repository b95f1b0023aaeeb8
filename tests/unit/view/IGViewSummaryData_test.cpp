// The built-in facts and charts over the outputs of one machine: view/summary has
//   items/ITEM   outputs
//   facts        GROUP/LABEL: VALUE (ITEM:LINE)
//   charts       CHART: LABEL WHEN = VALUE (NOTE)
#include <gmock/gmock.h>

#include <cstdio>
#include <string>
#include <vector>

#include "../../support/judge_fixture.h"
#include "view/IGViewTable.h"

namespace {

const fs::path SUMMARY = "view/summary";

Result judgedSample() {
    return judged(builtIn(), itemsBelow(SUMMARY / "items"));
}

TEST(IGViewSummaryData, HasTheFactsOfAMachine) {
    const Result result = judgedSample();
    std::string facts;
    for (const Fact& fact : result.facts) {
        facts += fact.group + '/' + fact.label + ": " + fact.value + " (" +
                 result.items[fact.place.item].name + ':' + std::to_string(fact.place.line) + ")\n";
    }
    EXPECT_EQ(facts, contentOf(SUMMARY / "facts"));
}

TEST(IGViewSummaryData, HasTheUptimeOfAMachineWhoseToolCountsNoUsers) {
    const Result result = judged(
        builtIn(), {{"system/uptime.txt", " 16:25:38 up 3 min,  load average: 0.1, 0, 0\n"}});
    ASSERT_FALSE(result.facts.empty());
    EXPECT_EQ(result.facts[0].label + ' ' + result.facts[0].value, "Uptime 3 min");
}

TEST(IGViewSummaryData, DrawsTheNumbersOfAMachine) {
    const Result result = judgedSample();
    std::string charts;
    for (const Chart& chart : result.charts) {
        for (const ChartRow& row : chart.rows) {
            char value[32];
            std::snprintf(value, sizeof value, "%.1f", row.value);
            charts += chart.name + ": " + row.label + (row.when.empty() ? "" : " " + row.when) +
                      " = " + value + " (" + row.note + ")\n";
        }
    }
    EXPECT_EQ(charts, contentOf(SUMMARY / "charts"));
    EXPECT_EQ(result.charts.size(), builtIn().table().charts.size());
}

TEST(IGViewSummaryData, FindsNothingWrongWithThisMachine) {
    for (const Finding& finding : judgedSample().findings) {
        EXPECT_NE(finding.verdict, Verdict::FOUND) << finding.rule;
    }
}

}  // namespace
