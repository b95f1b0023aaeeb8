// The check of pattern and configuration files: it finds an error exactly where the program refuses
// the file, and all its places are in the file. The first byte chooses the kind of the file.
#include <algorithm>

#include "check/IGCheckFile.h"
#include "check/IGCheckOutput.h"
#include "check/IGCheckWarning.h"
#include "fuzz.h"
#include "ini/IGCmnReplaceStr.h"
#include "ini/IGIniReadCompDef.h"
#include "ini/IGIniReadPtn.h"
#include "ini/IGIniTable.h"

namespace {

// Whether the program reads the file without an error.
bool isAccepted(const char* path, FileKind kind, root_tbl root, memory_pool* pool) {
    if (kind == FileKind::CONFIGURATION) {
        return IgIniReadCompDef(path, &root, pool) == 0;
    }
    root.crnt_ptn_def = IgIniGetPickPtn(pool);
    return IgIniReadPtnDef(path, &root, pool) == 0;
}

void requirePlace(const TextPlace& place, std::int32_t lines) {
    fuzzRequire(place.line >= 0 && place.line <= lines && place.column >= 0 &&
                (place.line == 0) == (place.column == 0));
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzzStart();
    if (size == 0) {
        return 0;
    }
    const FileKind kind = data[0] == 'c' ? FileKind::CONFIGURATION : FileKind::PATTERN;
    const FuzzFile input(data + 1, size - 1);
    memory_pool pool = nullptr;
    auto* root = newFromPool<root_tbl>(&pool);
    fuzzRequire(IgCmnSpecialStrInit(root, &pool) == 0);
    {
        CheckedFile file;
        file.name = "input";
        file.kind = kind;
        std::string reason;
        fuzzRequire(file.source.open(input.path()) && readChecked(file, *root, reason));
        fuzzRequire(file.hasError() != isAccepted(input.path(), kind, *root, &pool));
        Outputs outputs;
        if (kind == FileKind::PATTERN) {
            warnOfPattern(file, *root, outputs);
        } else {
            warnOfConfiguration(file);
        }
        file.settle();
        const auto lines = static_cast<std::int32_t>(std::count(data, data + size, '\n')) + 1;
        fuzzRequire(file.findings.size() <= MOST_FINDINGS);
        for (const Finding& finding : file.findings) {
            requirePlace(finding.place, lines);
            requirePlace(finding.note_place, lines);
            fuzzRequire(!finding.text.empty());
        }
    }
    IgCmnMemoryFree(&pool, nullptr, 0);
    return 0;
}
