#include "common/base/IGCmnMemory.h"

#include <pthread.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "common/base/IGAssert.h"
#include "common/report/IGCmnMessage.h"

#if defined(__SANITIZE_ADDRESS__)
#define QUENDIL_POISON 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define QUENDIL_POISON 1
#endif
#endif
#ifdef QUENDIL_POISON
#include <sanitizer/asan_interface.h>
#endif

namespace {

constexpr std::size_t CHUNK_SIZE = 4096;

// A chunk's header; the slots follow it. The chunks of a class are linked from the newest to the
// oldest; allocation and free search them in this order.
struct Chunk {
    Chunk* older;
    std::uint32_t capacity;
    std::uint32_t used;
    std::array<std::uint64_t, 8> bitmap;  // slot i is bit i % 64 of word i / 64
};
static_assert(sizeof(Chunk) == 80);

struct SizeClass {
    std::size_t largest;  // request in bytes
    std::size_t slot;     // distance between two slots in bytes
    [[nodiscard]] constexpr std::uint32_t capacity() const {
        return static_cast<std::uint32_t>((CHUNK_SIZE - sizeof(Chunk)) / slot);
    }
};

// The slots of the last class are 200 bytes apart, not 196, so that every block is 8-byte aligned.
constexpr std::array<SizeClass, 6> SMALL_CLASSES{
    {{8, 8}, {24, 24}, {48, 48}, {72, 72}, {96, 96}, {196, 200}}};
constexpr std::size_t LARGE_CLASS = SMALL_CLASSES.size();
constexpr std::size_t NO_CLASS = LARGE_CLASS + 1;
static_assert(SMALL_CLASSES[0].capacity() == 502 && SMALL_CLASSES[5].capacity() == 20);

struct ClassChunks {
    Chunk* newest;
    std::size_t free_slots;  // over all chunks: a full class is not searched
};

pthread_mutex_t pool_mutex;

class PoolLock {
  public:
    PoolLock() { pthread_mutex_lock(&pool_mutex); }
    ~PoolLock() { pthread_mutex_unlock(&pool_mutex); }
    PoolLock(const PoolLock&) = delete;
    PoolLock& operator=(const PoolLock&) = delete;
};

void poison([[maybe_unused]] void* block, [[maybe_unused]] std::size_t size) {
#ifdef QUENDIL_POISON
    ASAN_POISON_MEMORY_REGION(block, size);
#endif
}

void unpoison([[maybe_unused]] void* block, [[maybe_unused]] std::size_t size) {
#ifdef QUENDIL_POISON
    ASAN_UNPOISON_MEMORY_REGION(block, size);
#endif
}

std::size_t sizeClassOf(std::size_t size) {
    if (size == 0) {
        return NO_CLASS;
    }
    const auto* fit = std::find_if(SMALL_CLASSES.begin(), SMALL_CLASSES.end(),
                                   [size](const SizeClass& c) { return size <= c.largest; });
    return static_cast<std::size_t>(fit - SMALL_CLASSES.begin());
}

std::uint8_t* slotsOf(Chunk* chunk) {
    return reinterpret_cast<std::uint8_t*>(chunk) + sizeof(Chunk);
}

Chunk* addChunk(ClassChunks& chunks, std::size_t bytes, std::uint32_t capacity) {
    auto* chunk = static_cast<Chunk*>(std::calloc(1, bytes));
    if (chunk == nullptr) {
        return nullptr;
    }
    poison(slotsOf(chunk), bytes - sizeof(Chunk));
    chunk->older = chunks.newest;
    chunk->capacity = capacity;
    chunks.newest = chunk;
    chunks.free_slots += capacity;
    return chunk;
}

// Takes the lowest free slot of the chunk; null when its bitmap has none.
std::uint8_t* takeSlot(ClassChunks& chunks, Chunk* chunk, std::size_t slot_size) {
    for (std::uint32_t word = 0; word * 64 < chunk->capacity; ++word) {
        std::uint64_t& bits = chunk->bitmap[word];
        if (~bits == 0) {
            continue;
        }
        const std::uint32_t index = word * 64 + static_cast<std::uint32_t>(__builtin_ctzll(~bits));
        if (index >= chunk->capacity) {
            return nullptr;
        }
        bits |= bits + 1;  // the lowest free one
        ++chunk->used;
        --chunks.free_slots;
        std::uint8_t* slot = slotsOf(chunk) + index * slot_size;
        unpoison(slot, slot_size);
        return slot;
    }
    return nullptr;
}

std::uint8_t* allocSmall(ClassChunks& chunks, const SizeClass& size_class) {
    if (chunks.free_slots > 0) {
        for (Chunk* chunk = chunks.newest; chunk != nullptr; chunk = chunk->older) {
            if (chunk->used >= chunk->capacity) {
                continue;
            }
            if (std::uint8_t* slot = takeSlot(chunks, chunk, size_class.slot); slot != nullptr) {
                return slot;
            }
        }
    }
    Chunk* chunk = addChunk(chunks, CHUNK_SIZE, size_class.capacity());
    return chunk == nullptr ? nullptr : takeSlot(chunks, chunk, size_class.slot);
}

std::uint8_t* allocLarge(ClassChunks& chunks, std::size_t size) {
    std::size_t bytes = 0;
    if (__builtin_add_overflow(size, sizeof(Chunk), &bytes)) {
        return nullptr;
    }
    Chunk* chunk = addChunk(chunks, bytes, 1);
    return chunk == nullptr ? nullptr : takeSlot(chunks, chunk, size);
}

void releaseChunk(ClassChunks& chunks, Chunk** link) {
    Chunk* chunk = *link;
    *link = chunk->older;
    chunks.free_slots -= chunk->capacity - chunk->used;
    std::free(chunk);
}

// Index of the slot that begins at `block`; the capacity when no slot does.
std::uint32_t slotIndex(Chunk* chunk, const void* block, std::size_t slot_size) {
    const auto offset =
        static_cast<std::size_t>(static_cast<const std::uint8_t*>(block) - slotsOf(chunk));
    if (offset % slot_size != 0 || offset / slot_size >= chunk->capacity) {
        return chunk->capacity;
    }
    return static_cast<std::uint32_t>(offset / slot_size);
}

bool holds(Chunk* chunk, const void* block, std::size_t span) {
    const auto start = reinterpret_cast<std::uintptr_t>(chunk);
    const auto address = reinterpret_cast<std::uintptr_t>(block);
    return start < address && address - start < span;
}

// Frees one small block, and the chunk when no slot of it is in use.
void freeSlot(ClassChunks& chunks, Chunk** link, std::uint32_t index, std::size_t slot_size) {
    Chunk* chunk = *link;
    chunk->bitmap[index / 64] ^= std::uint64_t{1} << index % 64;
    --chunk->used;
    ++chunks.free_slots;
    std::uint8_t* slot = slotsOf(chunk) + index * slot_size;
    unpoison(slot, slot_size);  // a block that is freed twice is already poisoned
    std::memset(slot, 0, slot_size);
    poison(slot, slot_size);
    if (chunk->used == 0) {
        releaseChunk(chunks, link);
    }
}

void freeBlock(ClassChunks& chunks, std::size_t class_index, const void* block, std::size_t size) {
    const bool large = class_index == LARGE_CLASS;
    const std::size_t span = large ? size : CHUNK_SIZE;
    const std::size_t slot_size = large ? size : SMALL_CLASSES[class_index].slot;
    for (Chunk** link = &chunks.newest; *link != nullptr; link = &(*link)->older) {
        if (!holds(*link, block, span)) {
            continue;
        }
        const std::uint32_t index = slotIndex(*link, block, slot_size);
        if (index == (*link)->capacity) {
            continue;
        }
        if (large) {
            releaseChunk(chunks, link);
        } else {
            freeSlot(chunks, link, index, slot_size);
        }
        return;
    }
}

}  // namespace

struct MemoryPool {
    std::array<ClassChunks, SMALL_CLASSES.size() + 1> classes;
};

namespace {

void freeAll(memory_pool* memoryp) {
    for (ClassChunks& chunks : (*memoryp)->classes) {
        while (chunks.newest != nullptr) {
            releaseChunk(chunks, &chunks.newest);
        }
    }
    std::free(*memoryp);
    *memoryp = nullptr;
}

void* allocLocked(memory_pool* memoryp, std::size_t size) {
    const PoolLock lock;
    if (*memoryp == nullptr) {
        *memoryp = static_cast<memory_pool>(std::calloc(1, sizeof(MemoryPool)));
        if (*memoryp == nullptr) {
            return nullptr;
        }
    }
    const std::size_t class_index = sizeClassOf(size);
    if (class_index == NO_CLASS) {
        return nullptr;
    }
    ClassChunks& chunks = (*memoryp)->classes[class_index];
    return class_index == LARGE_CLASS ? allocLarge(chunks, size)
                                      : allocSmall(chunks, SMALL_CLASSES[class_index]);
}

}  // namespace

void IgCmnMemoryInit() {
    pthread_mutex_init(&pool_mutex, nullptr);
}

void IgCmnMemoryEnd() {
    pthread_mutex_destroy(&pool_mutex);
}

void* IgCmnMemoryAlloc(memory_pool* memoryp, std::size_t size) {
    IG_ASSERT_NOT_NULL(memoryp);
    void* block = allocLocked(memoryp, size);
    if (block == nullptr) {
        // After the mutex is unlocked, because the report may allocate from a pool itself.
        IgCmnMsg<ZEPA122_E>();
    }
    return block;
}

void* IgCmnMemoryRealloc(memory_pool* memoryp, void* old, std::size_t old_size,
                         std::size_t new_size) {
    IG_ASSERT_NOT_NULL(memoryp);
    if (old_size >= new_size) {
        return old;
    }
    void* block = IgCmnMemoryAlloc(memoryp, new_size);
    if (block != nullptr && old != nullptr) {
        std::memcpy(block, old, old_size);
        IgCmnMemoryFree(memoryp, old, old_size);
    }
    return block;
}

void IgCmnMemoryFree(memory_pool* memoryp, void* block, std::size_t size) {
    IG_ASSERT_NOT_NULL(memoryp);
    const PoolLock lock;
    if (*memoryp == nullptr) {
        return;
    }
    if (block == nullptr && size == 0) {
        freeAll(memoryp);
        return;
    }
    const std::size_t class_index = sizeClassOf(size);
    if (block != nullptr && class_index != NO_CLASS) {
        freeBlock((*memoryp)->classes[class_index], class_index, block, size);
    }
}
