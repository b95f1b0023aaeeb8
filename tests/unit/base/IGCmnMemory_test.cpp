#include "common/base/IGCmnMemory.h"

#include <gmock/gmock.h>
#include <malloc.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <map>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "../../support/in_child.h"
#include "../../support/run_fixture.h"
#include "../../support/wrapped_calls.h"

// With the address sanitizer, a failed allocation must return null too, and not end the process.
extern "C" const char* __asan_default_options();
extern "C" const char* __asan_default_options() {
    return "allocator_may_return_null=1";
}

namespace {

using Bytes = std::uint8_t*;

constexpr const char* NO_MEMORY = "ZEPA122-E:Memory is insufficient.\n";
constexpr std::size_t SLOTS_BYTES = 4096 - 80;  // of a chunk, without its header

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

TEST_F(IGCmnMemory, PlacesTheBlocksOfAClassSideBySideUntilTheChunkIsFull) {
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

TEST_F(IGCmnMemory, AllocatesARequestAbove196BytesInItsOwnChunk) {
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

TEST_F(IGCmnMemory, FillsReusedBlocksWithZerosToo) {
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

TEST_F(IGCmnMemory, SearchesTheNewestChunkFirst) {
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

TEST_F(IGCmnMemory, FillsAChunkOf502SlotsAndThenASecond) {
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
    EXPECT_EQ(alloc(8), full[5]) << "its slot was released with the chunk";
}

TEST_F(IGCmnMemory, ReleasesChunksAtBothEndsAndBetween) {
    const std::array<std::vector<Bytes>, 3> chunks{alloc(196, 20), alloc(196, 20), alloc(196, 20)};
    for (const std::size_t released : {1U, 2U, 0U}) {
        for (const Bytes block : chunks[released]) {
            free(block, 196);
        }
    }
    const std::vector<Bytes> again = alloc(196, 21);
    EXPECT_EQ(again[19], again[0] + std::size_t{19} * 200);
    EXPECT_TRUE(again[20] < again[0] || again[20] >= again[0] + SLOTS_BYTES);
}

TEST_F(IGCmnMemory, ReturnsEverythingToTheSystem) {
    const auto in_use = [] { return ::mallinfo2().uordblks; };
    // The system's allocator caches a few small blocks that it counts as used.
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

TEST_F(IGCmnMemory, KeepsABlockThatIsFreedWithASizeOfAnotherClass) {
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

TEST_F(IGCmnMemory, IgnoresAPointerThatIsNoBlocksStart) {
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

TEST_F(IGCmnMemory, DoesNotAllocateABlockAgainThatWasFreedTwice) {
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

TEST_F(IGCmnMemory, FreesAnEmptyPoolWithoutAReport) {
    Capture error(stderr);
    free(nullptr, 0);
    std::array<std::uint8_t, 8> foreign{};
    free(foreign.data(), 8);
    EXPECT_EQ(*pool(), nullptr);
    EXPECT_EQ(error.take(), "");
}

TEST_F(IGCmnMemory, StartsANewPoolAfterTheWholePoolWasFreed) {
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

TEST_F(IGCmnMemory, KeepsPoolsSeparate) {
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

TEST_F(IGCmnMemory, ReportsARequestOfSizeZero) {
    Capture error(stderr);
    EXPECT_EQ(alloc(0), nullptr);
    EXPECT_EQ(error.take(), NO_MEMORY);
}

TEST_F(IGCmnMemory, ReportsARequestThatIsTooLarge) {
    for (const std::size_t size :
         {std::numeric_limits<std::size_t>::max(), std::numeric_limits<std::size_t>::max() - 79,
          std::numeric_limits<std::size_t>::max() / 2}) {
        const ChildResult child = inChild(
            [&] { std::exit(alloc(size) == nullptr ? 0 : 1); });  // in a child: a sanitizer warns
        EXPECT_EQ(child.status, 0) << size;
        EXPECT_THAT(child.err, ::testing::EndsWith(NO_MEMORY)) << size;
    }
}

TEST_F(IGCmnMemory, ReportsEachStepThatRunsOutOfMemory) {
    struct Step {
        std::size_t size;
        int nth;  // 1 is the pool's own record, 2 the chunk
    };
    for (const Step& step : {Step{8, 1}, Step{8, 2}, Step{196, 2}, Step{197, 1}, Step{197, 2}}) {
        SCOPED_TRACE(::testing::Message() << step.size << " bytes, call " << step.nth);
        Pool fresh;
        Capture error(stderr);
        {
            const FailingCall failing(Call::CALLOC, step.nth, ENOMEM);
            EXPECT_EQ(IgCmnMemoryAlloc(fresh.get(), step.size), nullptr);
            EXPECT_TRUE(FailingCall::happened());
        }
        EXPECT_EQ(*fresh.get() == nullptr, step.nth == 1);
        EXPECT_EQ(error.take(), NO_MEMORY);
        const auto block = static_cast<Bytes>(IgCmnMemoryAlloc(fresh.get(), step.size));
        ASSERT_NE(block, nullptr) << "the pool goes on as if nothing had been";
        EXPECT_TRUE(isZero(block, step.size));
    }
}

TEST_F(IGCmnMemory, ServesFromFreeSlotsWhenTheSystemHasNoMemory) {
    const Bytes block = alloc(8);
    Capture error(stderr);
    const FailingCall failing(Call::CALLOC, 1, ENOMEM);
    EXPECT_EQ(alloc(8), block + 8);
    EXPECT_EQ(alloc(9), nullptr);
    EXPECT_TRUE(FailingCall::happened());
    EXPECT_EQ(error.take(), NO_MEMORY);
    EXPECT_EQ(alloc(8), block + 16);
}

TEST_F(IGCmnMemory, AddsNothingWhenAnotherChunkCannotBeAllocated) {
    const std::vector<Bytes> full = alloc(196, 20);
    Capture error(stderr);
    {
        const FailingCall failing(Call::CALLOC, 1, ENOMEM);
        EXPECT_EQ(alloc(196), nullptr);
    }
    EXPECT_EQ(error.take(), NO_MEMORY);
    free(full[7], 196);
    EXPECT_EQ(alloc(196), full[7]);
    EXPECT_NE(alloc(196), nullptr);
}

TEST_F(IGCmnMemory, AllocatesItsRecordForARequestOfSizeZeroToo) {
    Capture error(stderr);
    EXPECT_EQ(alloc(0), nullptr);
    EXPECT_NE(*pool(), nullptr);
    EXPECT_EQ(alloc(0), nullptr);
    EXPECT_EQ(error.take(), std::string(NO_MEMORY) + NO_MEMORY);
}

TEST_F(IGCmnMemory, CountsADoubleFreeTwice) {
    const std::vector<Bytes> older = alloc(196, 20);
    const std::vector<Bytes> newer = alloc(196, 2);
    free(older[4], 196);
    free(newer[0], 196);
    free(newer[0], 196);
    EXPECT_EQ(alloc(196), older[4]) << "the newer chunk is released when its count reaches zero";
}

TEST_F(IGCmnMemory, FreesALargeBlockWithAnySizeOfItsClassThatReachesIt) {
    const std::size_t chunk_count = liveChunks();
    for (const std::size_t freed : {197U, 1000U, 5000U}) {
        const Bytes block = alloc(1000);
        ASSERT_EQ(liveChunks(), chunk_count + 2) << "the pool and the block";
        free(block, freed);
        EXPECT_EQ(liveChunks(), chunk_count + 1) << freed;
        free(nullptr, 0);
        EXPECT_EQ(liveChunks(), chunk_count);
    }
}

TEST_F(IGCmnMemory, FreesEachChunkWithItsLastUsedBlock) {
    const std::size_t before = liveChunks();
    for (const ClassRow& row : CLASSES) {
        SCOPED_TRACE(row.largest);
        const std::vector<Bytes> blocks = alloc(row.largest, 3 * row.capacity);
        EXPECT_EQ(liveChunks(), before + 4) << "the pool and three chunks";
        for (const std::size_t chunk : {1U, 0U, 2U}) {
            const std::size_t left = liveChunks();
            for (std::size_t i = 0; i < row.capacity; ++i) {
                EXPECT_EQ(liveChunks(), left);
                free(blocks[chunk * row.capacity + i], row.largest);
            }
            EXPECT_EQ(liveChunks(), left - 1);
        }
        free(nullptr, 0);
        EXPECT_EQ(liveChunks(), before);
    }
}

TEST_F(IGCmnMemory, ReleasesEveryChunkOfEveryClassWhenFreedWhole) {
    const std::size_t before = liveChunks();
    for (const ClassRow& row : CLASSES) {
        ASSERT_THAT(alloc(row.largest, row.capacity + 1), ::testing::Each(::testing::NotNull()));
    }
    ASSERT_THAT(alloc(1000, 5), ::testing::Each(::testing::NotNull()));
    EXPECT_EQ(liveChunks(), before + 1 + 2 * CLASSES.size() + 5);
    free(nullptr, 0);
    EXPECT_EQ(liveChunks(), before);
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

TEST_F(IGCmnMemory, MovesABlockWithinItsClassToo) {
    const Bytes block = alloc(10);
    *block = 'x';
    const auto grown = static_cast<Bytes>(IgCmnMemoryRealloc(pool(), block, 10, 12));
    EXPECT_EQ(grown, block + 24);
    EXPECT_EQ(*grown, 'x');
}

TEST_F(IGCmnMemory, ReallocatesANullPointer) {
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

TEST_F(IGCmnMemory, AllocatesTypedObjectsFilledWithZeros) {
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

TEST_F(IGCmnMemory, ReportsACountOfObjectsThatOverflowsASize) {
    Capture error(stderr);
    EXPECT_EQ(newFromPool<std::int64_t>(pool(), std::numeric_limits<std::size_t>::max() / 4),
              nullptr);
    EXPECT_EQ(error.take(), NO_MEMORY);
}

// A model of a pool: which slot of which chunk an operation uses, and which chunks exist. Each
// chunk has a number; the first block allocated from it maps the number to an address.
class PoolModel {
  public:
    struct Chunk {
        std::size_t number;
        std::vector<bool> taken;
        std::size_t used;
        std::size_t bytes;  // of its one slot, for a large request
    };
    struct Place {
        std::size_t chunk;
        std::size_t offset;  // bytes from the chunk's first slot
        bool operator==(const Place&) const = default;
    };

    Place alloc(std::size_t size) {
        const std::size_t index = classOf(size);
        std::vector<Chunk>& chunks = classes_[index];
        const std::size_t capacity = index < CLASSES.size() ? CLASSES[index].capacity : 1;
        const std::size_t distance = index < CLASSES.size() ? CLASSES[index].distance : size;
        if (index < CLASSES.size()) {
            for (auto chunk = chunks.rbegin(); chunk != chunks.rend(); ++chunk) {
                const auto slot = std::find(chunk->taken.begin(), chunk->taken.end(), false);
                if (chunk->used < capacity && slot != chunk->taken.end()) {
                    return take(*chunk, static_cast<std::size_t>(slot - chunk->taken.begin()),
                                distance);
                }
            }
        }
        chunks.push_back({next_number_++, std::vector<bool>(capacity, false), 0, size});
        return take(chunks.back(), 0, distance);
    }

    /// The number of the chunk that this releases, or 0.
    std::size_t free(const Place& place, std::size_t size) {
        const std::size_t index = classOf(size);
        std::vector<Chunk>& chunks = classes_[index];
        const auto chunk = std::find_if(chunks.begin(), chunks.end(),
                                        [&](const Chunk& c) { return c.number == place.chunk; });
        if (chunk == chunks.end()) {
            return 0;  // of another class
        }
        if (index < CLASSES.size()) {
            const std::size_t slot = place.offset / CLASSES[index].distance;
            chunk->taken[slot] = !chunk->taken[slot];
            if (--chunk->used > 0) {
                return 0;
            }
        }
        const std::size_t number = chunk->number;
        chunks.erase(chunk);
        return number;
    }

    void freeAll() { classes_ = {}; }

    [[nodiscard]] std::size_t chunks() const {
        std::size_t count = 0;
        for (const std::vector<Chunk>& chunks : classes_) {
            count += chunks.size();
        }
        return count;
    }

    static std::size_t classOf(std::size_t size) {
        const auto* row = std::find_if(CLASSES.begin(), CLASSES.end(),
                                       [size](const ClassRow& r) { return size <= r.largest; });
        return static_cast<std::size_t>(row - CLASSES.begin());
    }

  private:
    static Place take(Chunk& chunk, std::size_t slot, std::size_t distance) {
        chunk.taken[slot] = true;
        ++chunk.used;
        return {chunk.number, slot * distance};
    }

    std::array<std::vector<Chunk>, CLASSES.size() + 1> classes_;
    std::size_t next_number_ = 1;
};

// A pool and its model: every operation must use the same place and leave the same chunks.
class ModelledPool {
  public:
    struct Block {
        Bytes start;
        std::size_t size;
        PoolModel::Place place;
        std::uint8_t mark;
    };

    [[nodiscard]] std::size_t count() const { return blocks_.size(); }

    void alloc(std::size_t size, std::uint8_t mark) {
        add(static_cast<Bytes>(IgCmnMemoryAlloc(pool_.get(), size)), size, mark, 0);
    }

    void grow(std::size_t index, std::size_t size, std::uint8_t mark) {
        const Block old = blocks_[index];
        expectMark(old, old.size);
        const auto moved =
            static_cast<Bytes>(IgCmnMemoryRealloc(pool_.get(), old.start, old.size, size));
        if (size <= old.size) {
            ASSERT_EQ(moved, old.start);
            return;
        }
        ASSERT_NE(moved, nullptr);
        ASSERT_EQ(std::count(moved, moved + old.size, old.mark),
                  static_cast<std::ptrdiff_t>(old.size));
        ASSERT_NO_FATAL_FAILURE(add(moved, size, mark, old.size));
        drop(index, old.size);
    }

    void free(std::size_t index) {
        const Block block = blocks_[index];
        expectMark(block, block.size);
        IgCmnMemoryFree(pool_.get(), block.start, block.size);
        drop(index, block.size);
    }

    /// With the size of another class: nothing happens.
    void freeWrongly(std::size_t index, std::size_t size) {
        if (PoolModel::classOf(size) != PoolModel::classOf(blocks_[index].size)) {
            IgCmnMemoryFree(pool_.get(), blocks_[index].start, size);
            expectMark(blocks_[index], blocks_[index].size);
        }
    }

    /// Small blocks only: a large one is released by the first call.
    void freeTwice(std::size_t index) {
        const Block block = blocks_[index];
        if (block.size > CLASSES.back().largest) {
            return;
        }
        free(index);
        IgCmnMemoryFree(pool_.get(), block.start, block.size);
        forget(model_.free(block.place, block.size));
    }

    void freeAll() {
        for (const Block& block : blocks_) {
            expectMark(block, block.size);
        }
        IgCmnMemoryFree(pool_.get(), nullptr, 0);
        ASSERT_EQ(*pool_.get(), nullptr);
        model_.freeAll();
        blocks_.clear();
        starts_.clear();
    }

    /// Blocks of the system's allocator that the pool should hold.
    [[nodiscard]] std::size_t held() { return (*pool_.get() == nullptr ? 0 : 1) + model_.chunks(); }

  private:
    void add(Bytes start, std::size_t size, std::uint8_t mark, std::size_t copied) {
        ASSERT_NE(start, nullptr);
        const PoolModel::Place place = model_.alloc(size);
        const auto [chunk, is_new] = starts_.try_emplace(place.chunk, start - place.offset);
        ASSERT_EQ(start, chunk->second + place.offset) << "the model expects another place";
        ASSERT_EQ(reinterpret_cast<std::uintptr_t>(start) % 8, 0U);
        ASSERT_EQ(std::count(start + copied, start + size, 0),
                  static_cast<std::ptrdiff_t>(size - copied));
        std::memset(start, mark, size);
        blocks_.push_back({start, size, place, mark});
    }
    static void expectMark(const Block& block, std::size_t size) {
        ASSERT_EQ(std::count(block.start, block.start + size, block.mark),
                  static_cast<std::ptrdiff_t>(size));
    }
    void drop(std::size_t index, std::size_t size) {
        const std::size_t released = model_.free(blocks_[index].place, size);
        blocks_[index] = blocks_.back();
        blocks_.pop_back();
        forget(released);
    }
    // A released chunk invalidates all of its blocks.
    void forget(std::size_t chunk) {
        if (chunk != 0) {
            starts_.erase(chunk);
            std::erase_if(blocks_, [&](const Block& b) { return b.place.chunk == chunk; });
        }
    }

    Pool pool_;
    PoolModel model_;
    std::vector<Block> blocks_;
    std::map<std::size_t, Bytes> starts_;  // first slot of each chunk
};

TEST(IGCmnMemoryStress, UsesThePlacesOfTheModelInAMillionOperations) {
    std::mt19937 random(20261115);
    const auto below = [&random](std::size_t limit) { return random() % limit; };
    const std::size_t before = liveChunks();
    std::array<ModelledPool, 2> pools;
    // Grows and shrinks by turns, so that chunks fill up, empty and are released.
    for (std::size_t step = 0; step < 1000000; ++step) {
        ModelledPool& pool = pools[below(pools.size())];
        const std::size_t size = below(50) == 0 ? 197 + below(500) : 1 + below(196);
        const auto mark = static_cast<std::uint8_t>(1 + below(255));
        const std::size_t action = below(1000);
        const std::size_t share = step / 2000 % 2 == 0 ? 560 : 340;
        if (pool.count() == 0 || action < share) {
            pool.alloc(size, mark);
        } else if (action < 900) {
            pool.free(below(pool.count()));
        } else if (action < 970) {
            pool.grow(below(pool.count()), size, mark);
        } else if (action < 990) {
            pool.freeWrongly(below(pool.count()), size);
        } else if (action < 999) {
            pool.freeTwice(below(pool.count()));
        } else {
            pool.freeAll();
        }
        if (::testing::Test::HasFatalFailure()) {
            FAIL() << "in step " << step;
        }
        if (step % 64 == 0) {
            ASSERT_EQ(liveChunks(), before + pools[0].held() + pools[1].held()) << step;
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
