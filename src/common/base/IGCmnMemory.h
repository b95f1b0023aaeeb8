// The memory pool: every dynamic allocation of the program names a pool handle. Small requests get
// slots of shared 4096-byte chunks, larger ones a chunk of their own. Freeing a pool frees all its
// blocks at once, as functions do with their temporaries.
#ifndef QUENDIL_COMMON_BASE_IGCMNMEMORY_H
#define QUENDIL_COMMON_BASE_IGCMNMEMORY_H

#include <cstddef>
#include <type_traits>

struct MemoryPool;
/// A pool handle: a variable of its owner, null until the first allocation makes the pool.
using memory_pool = MemoryPool*;

/// Initialises the one mutex that guards all pools. Called once, before the first allocation.
void IgCmnMemoryInit();
/// Destroys the mutex. Called once, after the last free.
void IgCmnMemoryEnd();

/// Returns a zero-filled block of `size` bytes, aligned to 8 bytes; the pool owns it. Null when
/// `size` is 0 or memory runs out, after reporting ZEPA122-E.
[[nodiscard]] void* IgCmnMemoryAlloc(memory_pool* memoryp, std::size_t size);

/// Returns a block of at least `new_size` bytes that begins with the old block's `old_size` bytes;
/// the old block is freed. `old` may be null (with `old_size` 0). Blocks never shrink: when
/// `old_size` is at least `new_size`, the result is `old`. Null when memory runs out (ZEPA122-E),
/// with the old block unchanged.
[[nodiscard]] void* IgCmnMemoryRealloc(memory_pool* memoryp, void* old, std::size_t old_size,
                                       std::size_t new_size);

/// Frees one block; `size` is the size in bytes with which it was allocated (a text: length + 1). A
/// pointer that is no block of that size is ignored. Never free a block twice. A null pointer
/// with size 0 frees the whole pool and sets the handle to null.
void IgCmnMemoryFree(memory_pool* memoryp, void* block, std::size_t size);

/// `count` zero-filled objects of type T from the pool; null when memory runs out.
template <typename T>
[[nodiscard]] T* newFromPool(memory_pool* memoryp, std::size_t count = 1) {
    // A pool block is zeroed bytes: no constructor or destructor runs.
    static_assert(std::is_trivially_destructible_v<T> && std::is_trivially_copyable_v<T>);
    static_assert(alignof(T) <= 8);
    std::size_t bytes = 0;
    if (__builtin_mul_overflow(count, sizeof(T), &bytes)) {
        bytes = static_cast<std::size_t>(-1);  // more than any system has: the pool reports it
    }
    return static_cast<T*>(IgCmnMemoryAlloc(memoryp, bytes));
}

#endif
