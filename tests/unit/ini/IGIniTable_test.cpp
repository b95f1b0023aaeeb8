#include "ini/IGIniTable.h"

#include <cerrno>
#include <cstring>

#include "../../support/every_allocation.h"
#include "../../support/run_fixture.h"
#include "../../support/standing_in.h"
#include "common/base/IGCmnList.h"
#include "ini/IGIniCtrl.h"

namespace {

class IGIniTable : public RunTest {};

TEST_F(IGIniTable, BuildsARootTableThatRestrictsNothing) {
    const root_tbl* root = IgIniGetCmnRoot(pool());
    ASSERT_NE(root, nullptr);
    EXPECT_STREQ(root->HOST, "testhost");
    const std::string stamp =
        std::string(root->YY) + root->MM + root->DD + root->hh + root->mm + root->ss;
    EXPECT_EQ(stamp.size(), 12U);
    EXPECT_EQ(root->output_name, "testhost_" + stamp);
    EXPECT_STREQ(root->output_dir, DATA_DIR);
    EXPECT_EQ(root->output_file, nullptr);
    EXPECT_EQ(root->opt_mark, -2);
    EXPECT_EQ(root->output_mark, -1);
    EXPECT_EQ(root->cleanup, 1);  // OFF
    EXPECT_EQ(root->max_output_size, -1);
    for (const IgCmnListHeader* list :
         {root->opt_target, root->opt_group, root->target, root->pp_group, root->pp_name}) {
        EXPECT_EQ(list, nullptr);
    }
    for (const char* text : {root->opt_directory, root->opt_output_file, root->opt_config}) {
        EXPECT_EQ(text, nullptr);
    }
    EXPECT_EQ(root->selected.count, 0U);
    EXPECT_EQ(root->crnt_ptn_def, nullptr);
    EXPECT_EQ(takeLog(), "");
}

TEST_F(IGIniTable, IsNotBuiltWithoutTheVariableDataDirectory) {
    std::filesystem::rename("/var/opt/norvale/quendil", "/var/opt/norvale/elsewhere");
    Capture errors(stderr);
    const root_tbl* root = IgIniGetCmnRoot(pool());
    std::filesystem::rename("/var/opt/norvale/elsewhere", "/var/opt/norvale/quendil");
    EXPECT_EQ(root, nullptr);
    const std::string message =
        "ZEPA104-E:The specified directory(/var/opt/norvale/quendil) does not exist.\n";
    EXPECT_EQ(errors.take(), message);
    EXPECT_EQ(takeLog(), message);
}

TEST_F(IGIniTable, IsNotBuiltForAHostWithoutAName) {
    Capture errors(stderr);
    const FailingCall failing(Call::GETHOSTNAME, 1, EPERM);
    EXPECT_EQ(IgIniGetCmnRoot(pool()), nullptr);
    EXPECT_THAT(takeLog(), ::testing::HasSubstr("system call name = gethostname, error code = 1,"));
}

TEST_F(IGIniTable, ReturnsNothingWhenMemoryRunsOut) {
    const std::vector<bool (*)(memory_pool*)> calls = {
        [](memory_pool* p) { return IgIniGetCmnRoot(p) == nullptr; },
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
    EXPECT_DEATH(IgIniGetCmnRoot(nullptr), "memoryp != \\(\\(void \\*\\)0\\)");
    EXPECT_DEATH(IgIniGetPickPtn(nullptr), "memoryp != \\(\\(void \\*\\)0\\)");
    EXPECT_DEATH(IgIniGetPickPtnBlock(nullptr), "memoryp != \\(\\(void \\*\\)0\\)");
    EXPECT_DEATH(IgIniGetPickPtnCmdData(nullptr, ITEM_TOOL), "memoryp != \\(\\(void \\*\\)0\\)");
}

}  // namespace
