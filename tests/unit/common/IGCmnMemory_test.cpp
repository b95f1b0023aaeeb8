#include "common/IGCmnMemory.h"

#include <gmock/gmock.h>
#include <malloc.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <limits>
#include <map>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "../../support/in_child.h"
#include "../../support/run_fixture.h"

// An allocation that the system refuses must come back as null here too.
extern "C" const char* __asan_default_options();
extern "C" const char* __asan_default_options() {
    return "allocator_may_return_null=1";
}

namespace {

using Bytes = std::uint8_t*;

constexpr const char* NO_MEMORY = "ZEPA122-E:Memory is insufficient.\n";
constexpr std::size_t SLOTS_BYTES = 4096 - 80;  // what a chunk's header leaves of it

struct ClassRow {
    std::size_t smallest;
    std::size_t largest;
    std::size_t distance;  // from one slot to the next
    std::size_t capacity;  // slots of a chunk
};
constexpr std::array<ClassRow, 6> CLASSES{{
    {1, 8, 8, 502},
    {9, 24, 24, 167},
    {25, 48, 48, 83},
    {49, 72, 72, 55},
    {73, 96, 96, 41},
    {97, 196, 200, 20},
}};

class IGCmnMemory : public ::testing::Test {
  protected:
    Bytes alloc(std::size_t size) {
        return static_cast<Bytes>(IgCmnMemoryAlloc(pool_.get(), size));
    }
    std::vector<Bytes> alloc(std::size_t size, std::size_t count) {
        std::vector<Bytes> blocks(count);
        std::generate(blocks.begin(), blocks.end(), [&] { return alloc(size); });
        return blocks;
    }
    void free(void* block, std::size_t size) { IgCmnMemoryFree(pool_.get(), block, size); }
    memory_pool* pool() { return pool_.get(); }

    static bool isZero(Bytes block, std::size_t size) {
        return std::all_of(block, block + size, [](std::uint8_t byte) { return byte == 0; });
    }

  private:
    Pool pool_;
};

TEST_F(IGCmnMemory, LaysTheBlocksOfAClassSideBySideUntilTheChunkIsFull) {
    for (const ClassRow& row : CLASSES) {
        for (const std::size_t size : {row.smallest, row.largest}) {
            SCOPED_TRACE(size);
            const std::vector<Bytes> blocks = alloc(size, row.capacity + 1);
            for (std::size_t i = 1; i < row.capacity; ++i) {
                ASSERT_EQ(blocks[i], blocks[0] + i * row.distance) << "slot " << i;
            }
            const Bytes beyond = blocks[row.capacity];
            EXPECT_TRUE(beyond < blocks[0] || beyond >= blocks[0] + SLOTS_BYTES)
                << "one more than the chunk holds needs a chunk of its own";
            IgCmnMemoryFree(pool(), nullptr, 0);
        }
    }
}

TEST_F(IGCmnMemory, ServesEveryRequestUpTo196BytesFromAClass) {
    for (const ClassRow& row : CLASSES) {
        for (std::size_t size = row.smallest; size <= row.largest; ++size) {
            SCOPED_TRACE(size);
            const Bytes first = alloc(size);
            EXPECT_EQ(alloc(size), first + row.distance);
            IgCmnMemoryFree(pool(), nullptr, 0);
        }
    }
}

TEST_F(IGCmnMemory, GivesARequestAbove196BytesAChunkOfItsOwn) {
    for (const std::size_t size : {197U, 198U, 4096U, 100000U}) {
        SCOPED_TRACE(size);
        const Bytes first = alloc(size);
        const Bytes second = alloc(size);
        ASSERT_NE(first, nullptr);
        ASSERT_NE(second, nullptr);
        EXPECT_GE(static_cast<std::size_t>(first < second ? second - first : first - second),
                  size + 80);
    }
}

TEST_F(IGCmnMemory, AlignsEveryBlockTo8Bytes) {
    for (std::size_t size = 1; size <= 300; ++size) {
        for (const Bytes block : alloc(size, 3)) {
            ASSERT_EQ(reinterpret_cast<std::uintptr_t>(block) % 8, 0U) << size;
        }
    }
}

TEST_F(IGCmnMemory, FillsBlocksWithZerosAlsoWhereOthersHaveBeen) {
    for (const std::size_t size : {1U, 8U, 24U, 48U, 72U, 96U, 97U, 196U, 197U, 5000U}) {
        SCOPED_TRACE(size);
        const std::vector<Bytes> blocks = alloc(size, 4);
        for (const Bytes block : blocks) {
            ASSERT_TRUE(isZero(block, size));
            std::memset(block, 0xa5, size);
        }
        free(blocks[1], size);
        free(blocks[3], size);
        for (const Bytes block : alloc(size, 4)) {
            ASSERT_TRUE(isZero(block, size));
        }
    }
}

TEST_F(IGCmnMemory, TakesTheLowestFreeSlotOfAChunk) {
    const std::vector<Bytes> blocks = alloc(8, 20);
    for (const std::size_t i : {17U, 3U, 9U}) {
        free(blocks[i], 8);
    }
    EXPECT_EQ(alloc(8), blocks[3]);
    EXPECT_EQ(alloc(8), blocks[9]);
    EXPECT_EQ(alloc(8), blocks[17]);
    EXPECT_EQ(alloc(8), blocks[19] + 8);
}

TEST_F(IGCmnMemory, LooksForRoomInTheNewestChunkFirst) {
    const std::vector<Bytes> oldest = alloc(196, 20);
    const std::vector<Bytes> middle = alloc(196, 20);
    const std::vector<Bytes> newest = alloc(196, 20);
    free(oldest[2], 196);
    free(middle[5], 196);
    free(newest[7], 196);
    EXPECT_EQ(alloc(196), newest[7]);
    EXPECT_EQ(alloc(196), middle[5]);
    EXPECT_EQ(alloc(196), oldest[2]);
}

TEST_F(IGCmnMemory, FillsAChunkOf502SlotsAndGoesOnInASecond) {
    const std::vector<Bytes> blocks = alloc(8, 503);
    EXPECT_EQ(blocks[501], blocks[0] + std::size_t{501} * 8);
    EXPECT_EQ(alloc(8), blocks[502] + 8);
}

TEST_F(IGCmnMemory, ReleasesAChunkWithItsLastUsedSlot) {
    const std::vector<Bytes> full = alloc(8, 502);
    const std::vector<Bytes> second = alloc(8, 2);
    free(full[5], 8);
    free(second[0], 8);
    EXPECT_EQ(alloc(8), second[0]) << "one slot in use keeps the chunk";
    free(second[0], 8);
    free(second[1], 8);
    EXPECT_EQ(alloc(8), full[5]) << "with the chunk its room is gone";
}

TEST_F(IGCmnMemory, ReleasesChunksAtBothEndsAndBetween) {
    const std::array<std::vector<Bytes>, 3> chunks{alloc(196, 20), alloc(196, 20), alloc(196, 20)};
    for (const std::size_t gone : {1U, 2U, 0U}) {
        for (const Bytes block : chunks[gone]) {
            free(block, 196);
        }
    }
    const std::vector<Bytes> again = alloc(196, 21);
    EXPECT_EQ(again[19], again[0] + std::size_t{19} * 200);
    EXPECT_TRUE(again[20] < again[0] || again[20] >= again[0] + SLOTS_BYTES);
}

TEST_F(IGCmnMemory, ReturnsEverythingToTheSystem) {
    const auto in_use = [] { return ::mallinfo2().uordblks; };
    // The system's allocator keeps a few small blocks at hand that it counts as used.
    const std::size_t limit = in_use() + 8192;
    for (const std::size_t size : {8U, 196U, 197U, 3000U}) {
        for (const Bytes block : alloc(size, 1000)) {
            free(block, size);
        }
    }
    EXPECT_LT(in_use(), limit) << "freed block by block";
    for (const std::size_t size : {8U, 196U, 197U, 3000U}) {
        ASSERT_THAT(alloc(size, 1000), ::testing::Each(::testing::NotNull()));
    }
    free(nullptr, 0);
    EXPECT_LT(in_use(), limit) << "freed whole";
}

TEST_F(IGCmnMemory, FreesWithAnySizeOfTheBlocksClass) {
    const std::vector<Bytes> blocks = alloc(9, 2);
    free(blocks[0], 24);
    EXPECT_EQ(alloc(16), blocks[0]);
}

TEST_F(IGCmnMemory, LeavesABlockAloneThatIsFreedWithASizeOfAnotherClass) {
    struct Case {
        std::size_t allocated;
        std::size_t freed;
    };
    for (const Case& c :
         {Case{8, 9}, Case{24, 8}, Case{48, 49}, Case{72, 97}, Case{196, 197}, Case{197, 196}}) {
        SCOPED_TRACE(c.allocated);
        const std::vector<Bytes> blocks = alloc(c.allocated, 2);
        ASSERT_NE(alloc(c.freed), nullptr);  // the other class has a chunk too
        std::memset(blocks[0], 'x', c.allocated);
        free(blocks[0], c.freed);
        EXPECT_EQ(std::count(blocks[0], blocks[0] + c.allocated, 'x'),
                  static_cast<std::ptrdiff_t>(c.allocated));
        EXPECT_NE(alloc(c.allocated), blocks[0]);
    }
}

TEST_F(IGCmnMemory, IgnoresAPointerThatBeginsNoBlock) {
    const std::vector<Bytes> blocks = alloc(24, 3);
    const Bytes large = alloc(1000);
    std::memset(blocks[1], 'x', 24);
    std::memset(large, 'y', 1000);
    std::array<std::uint8_t, 24> foreign{};
    free(blocks[1] + 8, 24);
    free(blocks[0] - 8, 24);
    free(foreign.data(), 24);
    free(large + 8, 1000);
    free(large - 8, 1000);
    EXPECT_EQ(std::count(blocks[1], blocks[1] + 24, 'x'), 24);
    EXPECT_EQ(std::count(large, large + 1000, 'y'), 1000);
    EXPECT_EQ(alloc(24), blocks[2] + 24);
}

TEST_F(IGCmnMemory, DoesNotHandOutABlockThatWasFreedTwice) {
    const std::vector<Bytes> blocks = alloc(24, 4);
    free(blocks[1], 24);
    free(blocks[1], 24);
    EXPECT_EQ(alloc(24), blocks[3] + 24);
}

TEST_F(IGCmnMemory, FreesNothingForANullPointerWithASizeOrAPointerWithoutOne) {
    const Bytes block = alloc(24);
    const memory_pool handle = *pool();
    std::memset(block, 'x', 24);
    free(nullptr, 24);
    free(block, 0);
    EXPECT_EQ(*pool(), handle);
    EXPECT_EQ(std::count(block, block + 24, 'x'), 24);
    EXPECT_EQ(alloc(24), block + 24);
}

TEST_F(IGCmnMemory, FreesAnEmptyPoolInSilence) {
    Capture error(stderr);
    free(nullptr, 0);
    std::array<std::uint8_t, 8> foreign{};
    free(foreign.data(), 8);
    EXPECT_EQ(*pool(), nullptr);
    EXPECT_EQ(error.take(), "");
}

TEST_F(IGCmnMemory, StartsAFreshPoolAfterItWasFreedWhole) {
    ASSERT_EQ(*pool(), nullptr);
    std::memset(alloc(8), 'x', 8);
    EXPECT_NE(*pool(), nullptr);
    free(nullptr, 0);
    EXPECT_EQ(*pool(), nullptr);
    const Bytes block = alloc(8);
    ASSERT_NE(block, nullptr);
    EXPECT_TRUE(isZero(block, 8));
    EXPECT_NE(*pool(), nullptr);
}

TEST_F(IGCmnMemory, KeepsPoolsApart) {
    Pool other;
    const Bytes mine = alloc(8);
    const auto theirs = static_cast<Bytes>(IgCmnMemoryAlloc(other.get(), 8));
    *mine = 'm';
    *theirs = 't';
    free(theirs, 8);
    IgCmnMemoryFree(other.get(), mine, 8);
    EXPECT_EQ(*mine, 'm');
    EXPECT_EQ(*theirs, 't');
}

TEST_F(IGCmnMemory, ReportsARequestOfNothing) {
    Capture error(stderr);
    EXPECT_EQ(alloc(0), nullptr);
    EXPECT_EQ(error.take(), NO_MEMORY);
}

TEST_F(IGCmnMemory, ReportsARequestThatNobodyCanServe) {
    for (const std::size_t size :
         {std::numeric_limits<std::size_t>::max(), std::numeric_limits<std::size_t>::max() - 79,
          std::numeric_limits<std::size_t>::max() / 2}) {
        const ChildResult child = inChild(
            [&] { std::exit(alloc(size) == nullptr ? 0 : 1); });  // apart: a sanitizer warns
        EXPECT_EQ(child.status, 0) << size;
        EXPECT_THAT(child.err, ::testing::EndsWith(NO_MEMORY)) << size;
    }
}

TEST_F(IGCmnMemory, ReportsEachStepThatTheSystemHasNoMemoryFor) {
    if (ADDRESS_SANITIZER) {
        GTEST_SKIP() << "the sanitizer's allocator does not obey limits";
    }
    const Bytes block = alloc(8);
    const ChildResult child = inChild([&] {
        memory_pool fresh = nullptr;
        const bool has_slots = alloc(8) == block + 8;
        exhaustMemory();
        const bool no_descriptor = IgCmnMemoryAlloc(&fresh, 8) == nullptr && fresh == nullptr;
        const bool no_chunk = alloc(9) == nullptr;
        const bool no_large_chunk = alloc(197) == nullptr;
        const bool still_serves = alloc(8) == block + 16;
        std::exit(has_slots && no_descriptor && no_chunk && no_large_chunk && still_serves ? 0 : 1);
    });
    EXPECT_EQ(child.status, 0);
    EXPECT_EQ(child.err, std::string(NO_MEMORY) + NO_MEMORY + NO_MEMORY);
}

TEST_F(IGCmnMemory, NeverShrinksABlock) {
    const Bytes block = alloc(10);
    EXPECT_EQ(IgCmnMemoryRealloc(pool(), block, 10, 8), block);
    EXPECT_EQ(IgCmnMemoryRealloc(pool(), block, 10, 10), block);
    EXPECT_EQ(IgCmnMemoryRealloc(pool(), block, 10, 0), block);
    EXPECT_EQ(IgCmnMemoryRealloc(pool(), nullptr, 10, 8), nullptr);
}

TEST_F(IGCmnMemory, MovesAGrowingBlockAndFreesTheOldOne) {
    const Bytes block = alloc(8);
    ASSERT_NE(alloc(8), nullptr);
    std::memcpy(block, "1234567", 8);
    const auto grown = static_cast<Bytes>(IgCmnMemoryRealloc(pool(), block, 8, 300));
    ASSERT_NE(grown, nullptr);
    EXPECT_STREQ(reinterpret_cast<char*>(grown), "1234567");
    EXPECT_TRUE(isZero(grown + 8, 292));
    EXPECT_EQ(alloc(8), block) << "the old block is free";
}

TEST_F(IGCmnMemory, MovesABlockAlsoWithinItsClass) {
    const Bytes block = alloc(10);
    *block = 'x';
    const auto grown = static_cast<Bytes>(IgCmnMemoryRealloc(pool(), block, 10, 12));
    EXPECT_EQ(grown, block + 24);
    EXPECT_EQ(*grown, 'x');
}

TEST_F(IGCmnMemory, ReallocatesFromNothing) {
    const auto block = static_cast<Bytes>(IgCmnMemoryRealloc(pool(), nullptr, 0, 30));
    ASSERT_NE(block, nullptr);
    EXPECT_TRUE(isZero(block, 30));
    EXPECT_EQ(alloc(30), block + 48);
}

TEST_F(IGCmnMemory, KeepsTheOldBlockWhenItCannotGrow) {
    const Bytes block = alloc(8);
    std::memcpy(block, "1234567", 8);
    Capture error(stderr);
    EXPECT_EQ(IgCmnMemoryRealloc(pool(), block, 8, std::numeric_limits<std::size_t>::max()),
              nullptr);
    EXPECT_EQ(error.take(), NO_MEMORY);
    EXPECT_STREQ(reinterpret_cast<char*>(block), "1234567");
    EXPECT_EQ(alloc(8), block + 8) << "the old block is still taken";
}

TEST_F(IGCmnMemory, GivesTypedObjectsFilledWithZeros) {
    struct Record {
        std::int64_t number;
        const char* text;
    };
    const auto* records = newFromPool<Record>(pool(), 3);
    ASSERT_NE(records, nullptr);
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(records[i].number, 0);
        EXPECT_EQ(records[i].text, nullptr);
    }
    EXPECT_EQ(alloc(48), reinterpret_cast<const std::uint8_t*>(records) + 48);
}

TEST_F(IGCmnMemory, ReportsACountOfObjectsThatNoSizeCanHold) {
    Capture error(stderr);
    EXPECT_EQ(newFromPool<std::int64_t>(pool(), std::numeric_limits<std::size_t>::max() / 4),
              nullptr);
    EXPECT_EQ(error.take(), NO_MEMORY);
}

// Any sequence of operations behaves like one in which every block is an array of its own: blocks
// are zero when they come, never overlap, and hold what was written until they go.
TEST(IGCmnMemoryStress, BehavesLikeSeparateArrays) {
    struct Block {
        std::size_t size;
        std::size_t pool;
        std::uint8_t mark;
    };
    std::mt19937 random(20261115);
    const auto below = [&random](std::size_t limit) {
        return std::uniform_int_distribution<std::size_t>(0, limit - 1)(random);
    };
    const auto randomSize = [&] { return below(20) == 0 ? 197 + below(6000) : 1 + below(196); };
    std::array<Pool, 3> pools;
    std::map<Bytes, Block> live;

    const auto add = [&](Bytes start, const Block& block) {
        const auto after = live.lower_bound(start);
        if (after != live.end()) {
            ASSERT_LE(start + block.size, after->first) << "overlap with the block after";
        }
        if (after != live.begin()) {
            const auto& [other, held] = *std::prev(after);
            ASSERT_LE(other + held.size, start) << "overlap with the block before";
        }
        std::memset(start, block.mark, block.size);
        live[start] = block;
    };
    const auto holdsMark = [](Bytes start, std::size_t size, std::uint8_t mark) {
        return std::all_of(start, start + size, [mark](std::uint8_t b) { return b == mark; });
    };
    const auto any = [&] {
        const auto span =
            static_cast<std::size_t>(std::prev(live.end())->first - live.begin()->first);
        return live.lower_bound(live.begin()->first + below(span + 1));
    };

    for (int step = 0; step < 60000; ++step) {
        SCOPED_TRACE(step);
        const auto mark = static_cast<std::uint8_t>(1 + below(255));
        const std::size_t action = below(1000);
        if (live.size() < 2 || action < 480) {
            const std::size_t pool = below(pools.size());
            const std::size_t size = randomSize();
            const auto start = static_cast<Bytes>(IgCmnMemoryAlloc(pools[pool].get(), size));
            ASSERT_NE(start, nullptr);
            ASSERT_TRUE(holdsMark(start, size, 0));
            ASSERT_NO_FATAL_FAILURE(add(start, {size, pool, mark}));
        } else if (action < 880) {
            const auto it = any();
            const auto [start, block] = *it;
            ASSERT_TRUE(holdsMark(start, block.size, block.mark));
            live.erase(it);
            IgCmnMemoryFree(pools[block.pool].get(), start, block.size);
        } else if (action < 999) {
            const auto it = any();
            const auto [start, block] = *it;
            const std::size_t size = randomSize();
            const auto moved = static_cast<Bytes>(
                IgCmnMemoryRealloc(pools[block.pool].get(), start, block.size, size));
            ASSERT_NE(moved, nullptr);
            ASSERT_TRUE(holdsMark(moved, block.size, block.mark));
            if (size <= block.size) {
                ASSERT_EQ(moved, start);
                continue;
            }
            ASSERT_TRUE(holdsMark(moved + block.size, size - block.size, 0));
            live.erase(it);
            ASSERT_NO_FATAL_FAILURE(add(moved, {size, block.pool, mark}));
        } else {
            const std::size_t pool = below(pools.size());
            for (const auto& [start, block] : live) {
                ASSERT_TRUE(holdsMark(start, block.size, block.mark));
            }
            std::erase_if(live, [pool](const auto& entry) { return entry.second.pool == pool; });
            IgCmnMemoryFree(pools[pool].get(), nullptr, 0);
            ASSERT_EQ(*pools[pool].get(), nullptr);
        }
    }
}

TEST(IGCmnMemoryThreads, ShareAPoolSafely) {
    Pool pool;
    std::array<bool, 4> intact{};
    std::vector<std::thread> threads;
    for (std::size_t number = 0; number < intact.size(); ++number) {
        threads.emplace_back([&, number] {
            const auto mark = static_cast<std::uint8_t>(number + 1);
            bool good = true;
            for (std::size_t round = 0; round < 3000; ++round) {
                const std::size_t size = 1 + round % 250;
                const auto block = static_cast<Bytes>(IgCmnMemoryAlloc(pool.get(), size));
                good = good && std::count(block, block + size, 0) == static_cast<long>(size);
                std::memset(block, mark, size);
                good = good && std::count(block, block + size, mark) == static_cast<long>(size);
                if (round % 3 != 0) {
                    IgCmnMemoryFree(pool.get(), block, size);
                }
            }
            intact[number] = good;
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_THAT(intact, ::testing::Each(true));
}

TEST(IGCmnMemoryDeathTest, AssertsItsHandle) {
    const char* text = "memoryp != \\(\\(void \\*\\)0\\)";
    EXPECT_DEATH(static_cast<void>(IgCmnMemoryAlloc(nullptr, 8)), text);
    EXPECT_DEATH(static_cast<void>(IgCmnMemoryRealloc(nullptr, nullptr, 0, 8)), text);
    EXPECT_DEATH(IgCmnMemoryFree(nullptr, nullptr, 0), text);
}

}  // namespace
