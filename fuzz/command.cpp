// Splitting command lines: the parts occur in the line, and the command has no separator outside
// quotes.
#include "common/base/IGCmnStr.h"
#include "common/file/IGCmnPath.h"
#include "fuzz.h"

namespace {

bool isSeparator(char c) {
    return c == ' ' || c == '\t';
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzzStart();
    const std::string text = fuzzText(data, size);
    memory_pool pool = nullptr;
    char* command = nullptr;
    char* options = nullptr;
    if (IgCmnFileSplitCmdOpt(text.c_str(), &command, &options, &pool) == 0) {
        if (command == nullptr) {
            fuzzRequire(options == nullptr && text.find_first_not_of(" \t") == std::string::npos);
        } else {
            const std::string first = command;
            const std::string rest = options == nullptr ? "" : options;
            const std::size_t separator = options == nullptr ? 0 : 1;
            const std::size_t start = text.find_first_not_of(" \t");
            fuzzRequire(text.compare(start, first.size(), first) == 0);
            fuzzRequire(start + first.size() + separator + rest.size() == text.size());
            fuzzRequire(text.compare(text.size() - rest.size(), rest.size(), rest) == 0);
            fuzzRequire(options == nullptr || isSeparator(text[start + first.size()]));
            const std::size_t quote = first[0] == '"' ? first.find('"', 1) : 0;
            fuzzRequire(quote == std::string::npos ||
                        first.find_first_of(" \t", quote) == std::string::npos);
            fuzzRequire(IgCmnStrRemoveDQ(&pool, command) != nullptr);
        }
    }
    IgCmnMemoryFree(&pool, nullptr, 0);
    return 0;
}
