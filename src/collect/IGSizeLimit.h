// The limit on the total size of what is collected.
#ifndef QUENDIL_COLLECT_IGSIZELIMIT_H
#define QUENDIL_COLLECT_IGSIZELIMIT_H

#include <cstdint>

struct root_tbl;

/// What the run has collected so far.
struct CollectedSize {
    std::int64_t total = 0;  // bytes counted by fitsLimit
    int exceeded = 0;        // 1 once a file was left out because of the size limit
};
extern CollectedSize collected_size;

/// The configured limit in bytes; 0 when there is none.
std::int64_t limitInBytes(const root_tbl& root);

/// Adds `size` bytes to the total. Returns false and adds nothing when the total would exceed the
/// configured limit (`max_output_size`, in units of 512 bytes).
bool fitsLimit(const root_tbl& root, std::int64_t size);

/// Reports a file of `size` bytes that is left out because of the limit (ZEPA153-W), and records
/// that for the end of the run.
void reportOverLimit(const char* shown, std::int64_t size);

/// Records whether a file was left out (1) because of the size limit.
void IgMainSetSizeOver(int flag);

#endif
