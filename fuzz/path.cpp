// Paths: a normalised path is absolute, has no "." and "..", does not change when normalised again,
// and splits into its components. Escaping for the shell is reversible, and a text that is escaped
// for the terminal has no ASCII control character.
#include "common/base/IGCmnStr.h"
#include "common/file/IGCmnPath.h"
#include "fuzz.h"

namespace {

// The value of a text between double quotes in the shell. The text must not be expanded any
// further.
std::string unescaped(const std::string& text) {
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        fuzzRequire(text[i] != '$' && text[i] != '`' && text[i] != '"');
        if (text[i] == '\\') {
            ++i;
            fuzzRequire(i < text.size() &&
                        std::string("$`\"\\").find(text[i]) != std::string::npos);
        }
        result += text[i];
    }
    return result;
}

}  // namespace

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
    for (const char* gone : {"//", "/./", "/../"}) {
        fuzzRequire((path + "/").find(gone) == std::string::npos || path == "/");
    }
    char* directory = nullptr;
    char* file = nullptr;
    if (IgCmnFileSplitPath(normal, &directory, &file, &pool) == 0) {
        fuzzRequire(std::string(directory) + "/" + file == path);
    }
    const std::string shown = IgCmnStrPrintable(&pool, text.c_str());
    for (const char c : shown) {
        fuzzRequire(static_cast<unsigned char>(c) >= 0x20 && c != 0x7f);
    }
    const std::string escaped = IgCmnStrShellEscape(&pool, text.c_str());
    fuzzRequire(unescaped(escaped) == text);
    IgCmnMemoryFree(&pool, nullptr, 0);
    return 0;
}
