#include "collect/IGSizeLimit.h"

#include "common/report/IGCmnMessage.h"
#include "ini/IGIniTable.h"

CollectedSize collected_size;

namespace {

// Converts the limit from units of 512 bytes.
constexpr int LIMIT_SHIFT = 9;

}  // namespace

std::int64_t limitInBytes(const root_tbl& root) {
    return root.max_output_size > 0 ? root.max_output_size << LIMIT_SHIFT : 0;
}

bool fitsLimit(const root_tbl& root, std::int64_t size) {
    std::int64_t total = 0;
    if (__builtin_add_overflow(collected_size.total, size, &total)) {
        total = INT64_MAX;
    }
    const std::int64_t limit = limitInBytes(root);
    if (limit > 0 && total > limit) {
        return false;
    }
    collected_size.total = total;
    return true;
}

void reportOverLimit(const char* shown, std::int64_t size) {
    IgCmnMsg<ZEPA153_W>(shown, size);
    IgMainSetSizeOver(1);
}

void IgMainSetSizeOver(int flag) {
    collected_size.exceeded = flag;
}
