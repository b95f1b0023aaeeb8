#include "common/base/IGCmnSystem.h"

#include <cstring>

#include "common/base/IGAssert.h"
#include "common/report/IGCmnMessage.h"

namespace {

constexpr const char* TOP_DIR = "/opt/norvale/quendil";
constexpr const char* VAR_DIR = "/var/opt/norvale/quendil";
constexpr const char* ETC_DIR = "/etc/opt/norvale/quendil";

// Appends `text` to the buffer, which has `used` bytes (terminator included) or is empty (0). The
// buffer must be larger than the result by `spare` bytes. The new count, or 0 with the buffer
// unchanged.
std::size_t append(char* buf, std::size_t size, std::size_t used, const char* text,
                   std::size_t spare = 1) {
    const std::size_t start = used == 0 ? 0 : used - 1;
    const std::size_t length = std::strlen(text);
    if (start + length + 1 + spare > size) {
        return 0;
    }
    std::memcpy(buf + start, text, length + 1);
    return start + length + 1;
}

std::size_t getKestrumSubdir(const char* subdir, char* buf, std::size_t size) {
    const std::size_t used = IgCmnGetKestrumTopDir(buf, size);
    return used == 0 ? 0 : append(buf, size, used, subdir);
}

std::size_t getKestrumOutSubdir(const char* subdir, char* buf, std::size_t size) {
    IG_ASSERT_NOT_NULL(buf);
    const std::size_t used = append(buf, size, 0, VAR_DIR);
    if (used == 0) {
        return 0;
    }
    struct stat st = {};
    if (::stat(buf, &st) != 0) {
        IgCmnMsg<ZEPA104_E>(static_cast<const char*>(buf));
        return 0;
    }
    return append(buf, size, used, subdir, 0);
}

std::size_t getKestrumEtcSubdir(const char* subdir, char* buf, std::size_t size) {
    IG_ASSERT_NOT_NULL(buf);
    const std::size_t used = append(buf, size, 0, ETC_DIR);
    return used == 0 ? 0 : append(buf, size, used, subdir);
}

}  // namespace

std::size_t IgCmnGetKestrumTopDir(char* buf, std::size_t size) {
    IG_ASSERT_NOT_NULL(buf);
    return append(buf, size, 0, TOP_DIR);
}

std::size_t IgCmnGetKestrumBinDir(char* buf, std::size_t size) {
    return getKestrumSubdir("/bin", buf, size);
}

std::size_t IgCmnGetKestrumToolDir(char* buf, std::size_t size) {
    return getKestrumSubdir("/tool", buf, size);
}

std::size_t IgCmnGetKestrumTemplateDir(char* buf, std::size_t size) {
    return getKestrumSubdir("/template", buf, size);
}

std::size_t IgCmnGetKestrumOutputDir(char* buf, std::size_t size) {
    return getKestrumOutSubdir("/data", buf, size);
}

std::size_t IgCmnGetKestrumLogDir(char* buf, std::size_t size) {
    return getKestrumOutSubdir("/log", buf, size);
}

std::size_t IgCmnGetKestrumConfigDir(char* buf, std::size_t size) {
    return getKestrumEtcSubdir("/config", buf, size);
}

std::size_t IgCmnGetKestrumConfigFile(char* buf, std::size_t size) {
    return IgCmnGetKestrumFile(IgCmnGetKestrumConfigDir, "quendil_conf", buf, size);
}

std::size_t IgCmnGetKestrumPtnDir(char* buf, std::size_t size) {
    return getKestrumEtcSubdir("/pattern", buf, size);
}

std::size_t IgCmnGetKestrumFile(std::size_t (*directory)(char*, std::size_t), const char* name,
                                char* buf, std::size_t size) {
    IG_ASSERT_NOT_NULL(buf);
    const std::size_t used = directory(buf, size);
    if (used == 0 || used + 1 + std::strlen(name) + 1 > size) {
        return 0;
    }
    const std::size_t with_slash = append(buf, size, used, "/");
    return with_slash == 0 ? 0 : append(buf, size, with_slash, name);
}
