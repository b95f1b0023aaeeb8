// What the built-in comparisons take from the outputs of real tools: view/comparisons/NAME has
//   items/ITEM   outputs
//   expected     PART KEY=VALUE MORE for each line that is compared
#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "../../support/judge_fixture.h"
#include "view/IGViewTable.h"

namespace {

const fs::path COMPARISONS = "view/comparisons";

std::vector<std::string> namesOfComparisons() {
    std::vector<std::string> names;
    for (const ComparisonDefinition& comparison : builtIn().table().comparisons) {
        names.push_back(comparison.name);
    }
    return names;
}

std::string pairsOf(const Query& query, const std::vector<TestItem>& items) {
    const std::vector<const Query*> queries{&query};
    QueryIndex index(queries);
    ItemReader reader;
    std::string pairs;
    for (const TestItem& item : items) {
        if (index.find(item.name).empty()) {
            continue;
        }
        reader.begin(queries);
        const auto take = [&](std::string_view line) {
            reader.line(line, [&](std::size_t, const Match& match) {
                pairs.append(match["part"]).append(match["part"].empty() ? "" : " ");
                pairs.append(match["key"]).append("=").append(match["value"]);
                pairs.append(match["more"].empty() ? "" : " ").append(match["more"]).append("\n");
                return Want::CAPTURES;
            });
        };
        LineSplitter lines;
        lines.add(item.text, take);
        lines.finish(take);
    }
    return pairs;
}

class IGViewComparisons : public testing::TestWithParam<std::string> {};

TEST_P(IGViewComparisons, TakesKeysAndValues) {
    for (const ComparisonDefinition& comparison : builtIn().table().comparisons) {
        if (comparison.name == GetParam()) {
            const fs::path directory = COMPARISONS / GetParam();
            EXPECT_EQ(pairsOf(comparison.query, itemsBelow(directory / "items")),
                      contentOf(directory / "expected"));
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Comparison, IGViewComparisons, testing::ValuesIn(namesOfComparisons()),
                         nameOfParameter);

TEST(IGViewComparisonsDirectory, IsThatOfAComparison) {
    expectDirectories(COMPARISONS, namesOfComparisons());
}

}  // namespace
