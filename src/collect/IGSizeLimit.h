// The limit on what is collected in all.
#ifndef QUENDIL_COLLECT_IGSIZELIMIT_H
#define QUENDIL_COLLECT_IGSIZELIMIT_H

#include <cstdint>

struct root_tbl;

/// What the run has collected so far.
struct CollectedSize {
    std::int64_t total = 0;  // bytes
    int exceeded = 0;        // 1 once a file was left out for the size limit
};
extern CollectedSize collected_size;

/// Counts so many bytes as collected. False, with nothing counted, when the configured limit has no
/// room for them.
bool fitsLimit(const root_tbl& root, std::int64_t size);

/// Reports a file that is left out for the limit (ZEPA153-W), and at the end of the run that there
/// was one.
void reportOverLimit(const char* shown, std::int64_t size);

/// Records that a file was left out (1) because of the output size limit.
void IgMainSetSizeOver(int flag);

#endif
