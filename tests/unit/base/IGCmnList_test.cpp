#include "common/base/IGCmnList.h"

#include <gmock/gmock.h>

#include <array>
#include <cerrno>
#include <string>
#include <vector>

#include "../../support/run_fixture.h"
#include "../../support/wrapped_calls.h"
#include "common/report/IGCmnMessage.h"

namespace {

class IGCmnList : public RunTest {
  protected:
    IgCmnListHeader* listOf(std::initializer_list<const char*> texts) {
        auto* list = newFromPool<IgCmnListHeader>(pool());
        for (const char* text : texts) {
            IgCmnListAdd(pool(), list, const_cast<char*>(text));
        }
        return list;
    }
};

TEST_F(IGCmnList, ReturnsTheNewCountOfEachAddition) {
    IgCmnListHeader list{};
    std::array<int, 100> values{};
    for (int i = 0; i < 100; ++i) {
        ASSERT_EQ(IgCmnListAdd(pool(), &list, &values[static_cast<std::size_t>(i)]), i + 1);
        ASSERT_EQ(list.count, static_cast<std::uint32_t>(i + 1));
    }
}

TEST_F(IGCmnList, ReturnsItsValuesInTheOrderAdded) {
    IgCmnListHeader list{};
    std::array<int, 100> values{};
    for (int& value : values) {
        IgCmnListAdd(pool(), &list, &value);
    }
    IgCmnListFindHandle handle{};
    void* found = IgCmnListFindFirst(&list, &handle);
    for (int& value : values) {
        ASSERT_EQ(found, &value);
        found = IgCmnListFindNext(&handle);
    }
    EXPECT_EQ(found, nullptr);
}

TEST_F(IGCmnList, IsEmptyAtFirst) {
    const IgCmnListHeader list{};
    int other = 0;
    IgCmnListFindHandle handle{&list, reinterpret_cast<IgCmnListNode*>(&other)};
    EXPECT_EQ(IgCmnListFindFirst(&list, &handle), nullptr);
    EXPECT_EQ(IgCmnListFindNext(&handle), nullptr);
    EXPECT_EQ(IgCmnListFindNext(&handle), nullptr);
}

TEST_F(IGCmnList, StaysAtItsEnd) {
    IgCmnListHeader list{};
    int value = 0;
    IgCmnListAdd(pool(), &list, &value);
    IgCmnListFindHandle handle{};
    EXPECT_EQ(IgCmnListFindFirst(&list, &handle), &value);
    EXPECT_EQ(IgCmnListFindNext(&handle), nullptr);
    EXPECT_EQ(IgCmnListFindNext(&handle), nullptr);
    int later = 0;
    IgCmnListAdd(pool(), &list, &later);
    EXPECT_EQ(IgCmnListFindNext(&handle), &later) << "the walk stands where it was";
    EXPECT_EQ(IgCmnListFindFirst(&list, &handle), &value) << "and can begin again";
}

TEST_F(IGCmnList, SupportsSeveralWalksAtOnce) {
    const IgCmnListHeader* list = listOf({"a", "b", "c"});
    std::string pairs;
    for (const char& outer : walkStrings(list)) {
        for (const char& inner : walkStrings(list)) {
            pairs += std::string(&outer) + &inner + " ";
        }
    }
    EXPECT_EQ(pairs, "aa ab ac ba bb bc ca cb cc ");
}

TEST_F(IGCmnList, HasTypedWalks) {
    struct Item {
        int number;
    };
    IgCmnListHeader* list = nullptr;
    Item one{1};
    Item two{2};
    EXPECT_EQ(IgCmnListAppend(pool(), &list, &one), 1);
    EXPECT_EQ(IgCmnListAppend(pool(), &list, &two), 2);
    for (Item& item : walkList<Item>(list)) {
        item.number *= 10;
    }
    EXPECT_EQ(one.number, 10);
    EXPECT_EQ(two.number, 20);
    for (const Item& item : walkList<Item>(nullptr)) {
        ADD_FAILURE() << item.number << " in a list that is not there";
    }
}

TEST_F(IGCmnList, IsCreatedByItsFirstValue) {
    IgCmnListHeader* list = nullptr;
    int value = 0;
    EXPECT_EQ(IgCmnListAppend(pool(), &list, &value), 1);
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(list->count, 1U);
    EXPECT_EQ(list->first, list->last);
    EXPECT_EQ(list->first->value, &value);
    EXPECT_EQ(list->first->next, nullptr);
}

TEST_F(IGCmnList, IsUnchangedWhenMemoryRunsOut) {
    IgCmnListHeader list{};
    int value = 0;
    ASSERT_EQ(IgCmnListAdd(pool(), &list, &value), 1);
    const IgCmnListNode* const node = list.first;
    for (const int nth : {1, 2}) {  // the pool itself, its chunk
        Pool fresh;
        Capture err(stderr);
        const FailingCall failing(Call::CALLOC, nth, ENOMEM);
        EXPECT_EQ(IgCmnListAdd(fresh.get(), &list, &value), -1);
        EXPECT_EQ(err.take(), "ZEPA122-E:Memory is insufficient.\n");
        EXPECT_EQ(list.count, 1U);
        EXPECT_EQ(list.first, node);
        EXPECT_EQ(list.last, node);
        EXPECT_EQ(node->next, nullptr);
    }
}

TEST_F(IGCmnList, StaysAbsentWhenMemoryRunsOut) {
    int value = 0;
    bool failed = true;
    for (int nth = 1; failed; ++nth) {  // the pool, the header's chunk, the node's chunk
        Pool fresh;
        IgCmnListHeader* list = nullptr;
        Capture err(stderr);
        const FailingCall failing(Call::CALLOC, nth, ENOMEM);
        const int count = IgCmnListAppend(fresh.get(), &list, &value);
        failed = FailingCall::happened();
        EXPECT_EQ(count, failed ? -1 : 1);
        EXPECT_EQ(list == nullptr, failed);
        EXPECT_TRUE(failed || nth > 2);
    }
}

TEST_F(IGCmnList, KnowsWhatItContains) {
    const IgCmnListHeader* list = listOf({"net", "disk", "", "caf\xc3\xa9"});
    struct Case {
        const char* text;
        int contained;
    };
    for (const Case& c :
         {Case{"net", 1}, Case{"disk", 1}, Case{"", 1}, Case{"caf\xc3\xa9", 1}, Case{"Net", 0},
          Case{"ne", 0}, Case{"nets", 0}, Case{"cafe", 0}, Case{nullptr, 0}}) {
        EXPECT_EQ(IgCmnListContains(c.text, list), c.contained) << c.text;
    }
    EXPECT_EQ(IgCmnListContains("net", nullptr), 0);
    EXPECT_EQ(IgCmnListContains(nullptr, nullptr), 0);
    EXPECT_EQ(IgCmnListContains("net", listOf({})), 0);
}

TEST_F(IGCmnList, KnowsWhetherItSharesAString) {
    const IgCmnListHeader* list = listOf({"a", "b"});
    EXPECT_EQ(IgCmnListIntersects(list, listOf({"x", "b"})), 1);
    EXPECT_EQ(IgCmnListIntersects(listOf({"x", "b"}), list), 1);
    EXPECT_EQ(IgCmnListIntersects(list, listOf({"A", "B"})), 0);
    EXPECT_EQ(IgCmnListIntersects(list, listOf({})), 0);
    EXPECT_EQ(IgCmnListIntersects(listOf({}), list), 0);
    EXPECT_EQ(IgCmnListIntersects(list, nullptr), 0);
    EXPECT_EQ(IgCmnListIntersects(nullptr, list), 0);
    EXPECT_EQ(IgCmnListIntersects(nullptr, nullptr), 0);
}

TEST_F(IGCmnList, HoldsStringsOfAnyLengthAndBytes) {
    const std::string longest(1 << 16, 'x');
    const IgCmnListHeader* list = listOf({longest.c_str(), "\xff\xfe", "a"});
    EXPECT_EQ(IgCmnListContains(longest.c_str(), list), 1);
    EXPECT_EQ(IgCmnListContains((longest + "x").c_str(), list), 0);
    EXPECT_EQ(IgCmnListContains("\xff\xfe", list), 1);
    EXPECT_EQ(IgCmnListContains("\xff", list), 0);
    EXPECT_EQ(IgCmnListContains("a", list), 1);
    EXPECT_EQ(IgCmnListContains("", list), 0);
    EXPECT_EQ(takeLog(), "") << "strings of a list are never decoded";
}

TEST_F(IGCmnList, PrintsAMessageForEachString) {
    IgCmnListPrint(ZEPA205_I_PP_GROUP, listOf({"net", "disk"}));
    EXPECT_EQ(takeLog(), "    PP_GROUP = net\n    PP_GROUP = disk\n");
    IgCmnListPrint(ZEPA205_I_TARGET, nullptr);
    EXPECT_EQ(takeLog(), "    TARGET = \n");
    IgCmnListPrint(ZEPA205_I_PP_NAME, listOf({}));
    EXPECT_EQ(takeLog(), "");
}

TEST(IGCmnListDeathTest, AssertsWhatMustNotBeNull) {
    memory_pool pool = nullptr;
    IgCmnListHeader list{};
    IgCmnListFindHandle handle{};
    const auto null_of = [](const std::string& name) {
        return "Assertion `" + name + " != \\(\\(void \\*\\)0\\)";
    };
    EXPECT_DEATH(IgCmnListAdd(nullptr, &list, &list), null_of("memoryp"));
    EXPECT_DEATH(IgCmnListAdd(&pool, nullptr, &list), null_of("list"));
    EXPECT_DEATH(IgCmnListFindFirst(nullptr, &handle), null_of("list"));
    EXPECT_DEATH(IgCmnListFindFirst(&list, nullptr), null_of("handle"));
    EXPECT_DEATH(IgCmnListFindNext(nullptr), null_of("handle"));
    EXPECT_DEATH(IgCmnListAppend(&pool, nullptr, &list), null_of("listp"));
    EXPECT_DEATH(IgCmnListAppend(nullptr, nullptr, &list), null_of("memoryp"));
}

}  // namespace
