#include "ini/IGIniCheck.h"

#include <cstdint>

#include "common/IGCmnFile.h"
#include "common/IGCmnMessage.h"
#include "common/IGCmnStr.h"

namespace {

constexpr std::uint16_t OWNER_WRITE = 0200;

}  // namespace

bool isWritableDirectory(const char* path, const char* shown) {
    if (IgCmnFileIsDir(path) == 0) {
        IgCmnMsg<ZEPA104_E>(shown);
        return false;
    }
    if (IgCmnFileCheckMode(path, OWNER_WRITE) == 0) {
        IgCmnMsg<ZEPA105_E>(shown);
        return false;
    }
    return true;
}

int resultNamesTaken(memory_pool* memoryp, const char* base) {
    for (const char* suffix : {".tar", ".tar.gz"}) {
        const char* name = IgCmnStrCat(memoryp, base, suffix);
        if (name == nullptr) {
            return -1;
        }
        if (IgCmnFileIsTaken(name) != 0) {
            IgCmnMsg<ZEPA109_E>(name);
            return 1;
        }
    }
    return 0;
}
