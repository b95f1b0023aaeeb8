#include "ini/IGIniTable.h"

#include <string>
#include <vector>

#include "../../support/every_allocation.h"
#include "../../support/run_fixture.h"
#include "common/base/IGCmnList.h"

namespace {

class IGIniTable : public RunTest {};

TEST_F(IGIniTable, ReturnsNothingWhenMemoryRunsOut) {
    const std::vector<bool (*)(memory_pool*)> calls = {
        [](memory_pool* p) { return IgIniGetPickPtn(p) == nullptr; },
        [](memory_pool* p) { return IgIniGetPickPtnBlock(p) == nullptr; },
        [](memory_pool* p) { return IgIniGetPickPtnCmdData(p, ITEM_TOOL) == nullptr; },
        [](memory_pool* p) { return IgIniGetPickPtnCmdData(p, ITEM_DATA) == nullptr; },
        [](memory_pool* p) {
            IgCmnListHeader* list = nullptr;
            const bool failed = IgIniCollectList("text", &list, p) == -1;
            EXPECT_EQ(list == nullptr, failed);
            return failed;
        },
    };
    expectNothingWhenMemoryRunsOut(calls);
}

TEST_F(IGIniTable, FillsEveryRecordWithItsDefaults) {
    const pickptn_tbl* ptn = IgIniGetPickPtn(pool());
    ASSERT_NE(ptn, nullptr);
    EXPECT_EQ(ptn->flags, 0U);
    EXPECT_EQ(ptn->blocks, nullptr);

    const ptn_block* block = IgIniGetPickPtnBlock(pool());
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(block->skip, 1);
    EXPECT_EQ(block->flags, 0U);
    EXPECT_EQ(block->items, nullptr);

    const collect_item* tool = IgIniGetPickPtnCmdData(pool(), ITEM_TOOL);
    ASSERT_NE(tool, nullptr);
    EXPECT_EQ(tool->kind, 0);
    EXPECT_EQ(tool->flags, 0U);
    EXPECT_EQ(tool->tool.timeout, 10);
    EXPECT_EQ(tool->tool.timeout_signal, 15);
    EXPECT_EQ(tool->tool.wait_termination, 10);
    EXPECT_EQ(tool->tool.command_line, nullptr);
    EXPECT_EQ(tool->tool.redirect_path, nullptr);
    EXPECT_EQ(tool->tool.start_stamp[0], '\0');

    const collect_item* data = IgIniGetPickPtnCmdData(pool(), ITEM_DATA);
    ASSERT_NE(data, nullptr);
    EXPECT_EQ(data->kind, 1);
    EXPECT_EQ(data->flags, 0U);
    EXPECT_EQ(data->data.file_type, 0);
    EXPECT_EQ(data->data.file_type_word, nullptr);
    EXPECT_EQ(data->data.description, nullptr);
}

TEST_F(IGIniTable, CollectsCopiesOfStrings) {
    IgCmnListHeader* list = nullptr;
    std::string text = "first";
    EXPECT_EQ(IgIniCollectList(text.c_str(), &list, pool()), 0);
    text = "second";
    EXPECT_EQ(IgIniCollectList(text.c_str(), &list, pool()), 0);
    EXPECT_EQ(IgIniCollectList("", &list, pool()), 0);
    EXPECT_THAT(strings(list), ::testing::ElementsAre("first", "second", ""));
}

TEST_F(IGIniTable, AssertsItsArgumentsAreNotNull) {
    EXPECT_DEATH(IgIniGetPickPtn(nullptr), "memoryp != \\(\\(void \\*\\)0\\)");
    EXPECT_DEATH(IgIniGetPickPtnBlock(nullptr), "memoryp != \\(\\(void \\*\\)0\\)");
    EXPECT_DEATH(IgIniGetPickPtnCmdData(nullptr, ITEM_TOOL), "memoryp != \\(\\(void \\*\\)0\\)");
}

}  // namespace
