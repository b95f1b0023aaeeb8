// The memory pool: every dynamic allocation of the program names a pool handle. Small requests are
// served from slots of shared 4096-byte chunks, larger ones from a chunk of their own; a pool can
// be released whole, which is how temporaries are freed together.
#ifndef QUENDIL_COMMON_BASE_IGCMNMEMORY_H
#define QUENDIL_COMMON_BASE_IGCMNMEMORY_H

#include <cstddef>
#include <type_traits>

struct MemoryPool;
/// A pool handle: a variable of its owner, null before the first allocation makes the pool.
using memory_pool = MemoryPool*;

/// Initialises the one mutex that guards all pools. Called once, before the first allocation.
void IgCmnMemoryInit();
/// Destroys the mutex. Called once, after the last free.
void IgCmnMemoryEnd();

/// A zero-filled block of `size` bytes from the pool, aligned to 8 bytes; it belongs to the pool.
/// Null when `size` is 0 or the system has no memory left, after ZEPA122-E.
[[nodiscard]] void* IgCmnMemoryAlloc(memory_pool* memoryp, std::size_t size);

/// A block of at least `new_size` bytes that begins with the old block's `old_size` bytes.
/// `old` may be null (with `old_size` 0). Blocks never shrink: when `old_size` is at least
/// `new_size`, the old pointer comes back. Null when memory runs out (ZEPA122-E); the old block
/// then stays as it was.
[[nodiscard]] void* IgCmnMemoryRealloc(memory_pool* memoryp, void* old, std::size_t old_size,
                                       std::size_t new_size);

/// Frees one block, given the size it was allocated with (a text: length + 1). A pointer that is no
/// block of that size class is ignored; the same block must not be freed twice.
/// With a null pointer and size 0 the whole pool is freed and the handle set to null.
void IgCmnMemoryFree(memory_pool* memoryp, void* block, std::size_t size);

/// `count` zero-filled objects of type T from the pool; null when memory runs out.
template <typename T>
[[nodiscard]] T* newFromPool(memory_pool* memoryp, std::size_t count = 1) {
    // A pool block is raw zeros that nobody constructs or destroys.
    static_assert(std::is_trivially_destructible_v<T> && std::is_trivially_copyable_v<T>);
    static_assert(alignof(T) <= 8);
    std::size_t bytes = 0;
    if (__builtin_mul_overflow(count, sizeof(T), &bytes)) {
        bytes = static_cast<std::size_t>(-1);  // more than there is: the pool reports it
    }
    return static_cast<T*>(IgCmnMemoryAlloc(memoryp, bytes));
}

#endif
