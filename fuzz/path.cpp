// Paths: a normalised one is absolute, stays as it is when normalised again, and splits into its
// parts.
#include "common/IGCmnMessage.h"
#include "common/IGCmnPath.h"
#include "common/IGCmnStr.h"
#include "fuzz.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzzStart();
    const std::string text = fuzzText(data, size);
    memory_pool pool = nullptr;
    char* normal = nullptr;
    char* again = nullptr;
    fuzzRequire(IgCmnFileNormPath(&pool, text.c_str(), &normal) == 0);
    fuzzRequire(IgCmnFileNormPath(&pool, normal, &again) == 0);
    const std::string path = normal;
    fuzzRequire(path == again && IgCmnIsAbsPath(normal) == 1);
    fuzzRequire(path.find("//") == std::string::npos && path.find("/./") == std::string::npos);
    char* directory = nullptr;
    char* file = nullptr;
    if (IgCmnFileSplitPath(normal, &directory, &file, &pool) == 0) {
        fuzzRequire(std::string(directory) + "/" + file == path);
    }
    const std::string shown = IgCmnStrPrintable(&pool, text.c_str());
    fuzzRequire(shown.find('\n') == std::string::npos && shown.find('\033') == std::string::npos);
    const std::string escaped = IgCmnStrShellEscape(&pool, text.c_str());
    fuzzRequire(escaped.size() >= text.size() && escaped.size() <= 2 * text.size());
    IgCmnMemoryFree(&pool, nullptr, 0);
    return 0;
}
