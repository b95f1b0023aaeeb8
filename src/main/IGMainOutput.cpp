#include "main/IGMainOutput.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "collect/IGIndex.h"
#include "collect/IGOutput.h"
#include "common/base/IGCmnList.h"
#include "common/base/IGCmnStr.h"
#include "common/base/IGGuards.h"
#include "common/base/IGRunState.h"
#include "common/file/IGCmnDir.h"
#include "common/file/IGCmnFile.h"
#include "common/file/IGCmnPath.h"
#include "common/file/IGCmnTree.h"
#include "common/report/IGCmnLog.h"
#include "common/report/IGCmnMessage.h"
#include "ini/IGIniTable.h"
#include "ini/IGResultName.h"
#include "main/IGMainRun.h"
#include "main/IGOutputNames.h"

namespace {

// The mode of the output directory. Collected data is secret, and no other user may add to it; the
// directories in it can then have the modes of their sources.
constexpr mode_t PRIVATE_DIRECTORY = 0700;

// 1 when the directory has an entry of that name, 0 when it has none; -1 after a failure.
int isTaken(const char* directory, const char* name) {
    LocalPool local;
    const char* path = IgCmnStrCatDir(local.get(), directory, name);
    return path == nullptr ? -1 : IgCmnFileIsTaken(path);
}

// The name with the first free "_N" from `number` on, which becomes N. Null after a failure.
char* numberedName(memory_pool* memoryp, const char* directory, const char* name,
                   std::uint32_t& number) {
    LocalPool local;
    const char* path = IgCmnStrCatDir(local.get(), directory, name);
    const std::size_t size = path == nullptr ? 0 : std::strlen(path) + sizeof "_4294967295";
    char* candidate = path == nullptr ? nullptr : newFromPool<char>(local.get(), size);
    if (candidate == nullptr) {
        return nullptr;
    }
    for (;; ++number) {
        std::snprintf(candidate, size, "%s_%u", path, number);
        if (IgCmnFileIsTaken(candidate) == 0) {
            return IgCmnStrdup(memoryp, candidate + std::strlen(path) - std::strlen(name));
        }
    }
}

// The name itself when the directory has no such entry, else the name with the first free "_N",
// where N begins with the number of entries whose names begin with the name. Null after a failure.
char* makeUnique(memory_pool* memoryp, const char* directory, char* name) {
    if (const int taken = isTaken(directory, name); taken != 1) {
        return taken == 0 ? name : nullptr;
    }
    std::uint32_t number = std::max(countEntries(directory, name), 1U);
    return numberedName(memoryp, directory, name, number);
}

// The first target of the pattern's selected blocks; null when there is none.
const char* firstTarget(const pickptn_tbl& ptn) {
    for (const ptn_block& block : walkList<ptn_block>(ptn.blocks)) {
        if (block.skip == 0 && block.target != nullptr) {
            return static_cast<const char*>(block.target->first->value);
        }
    }
    return nullptr;
}

// Names the directory of a pattern that has targets after the first one.
bool namePattern(memory_pool* memoryp, pickptn_tbl& ptn) {
    if (ptn.output_name != nullptr) {
        return true;
    }
    char* name = nullptr;
    if (IgCmnStrToFileName(memoryp, firstTarget(ptn), &name) != 0) {
        return false;
    }
    if (std::strcmp(name, INDEX_NAME) == 0) {
        name = IgCmnStrCat(memoryp, name, "_1");  // the index is made later: the name is still free
    }
    ptn.output_name = name;
    return name != nullptr;
}

// Prepares the search for numbers: all names are counted together.
bool countNames(memory_pool* memoryp, root_tbl& root) {
    if (root.output_names != nullptr) {
        return true;
    }
    if (!makeOutputNames(memoryp, root)) {
        return false;
    }
    for (pickptn_tbl& ptn : walkList<pickptn_tbl>(&root.selected)) {
        if (firstTarget(ptn) != nullptr &&
            !(namePattern(memoryp, ptn) && addOutputName(memoryp, root, ptn.output_name))) {
            return false;
        }
    }
    return true;
}

// As makeUnique, in the output directory.
char* uniqueInOutput(memory_pool* memoryp, root_tbl& root, const char* output, char* name) {
    if (const int taken = isTaken(output, name); taken != 1) {
        return taken == 0 ? name : nullptr;
    }
    if (!countNames(memoryp, root) || !addOutputName(memoryp, root, name)) {
        return nullptr;
    }
    const std::uint32_t first = firstNumber(root, output, name);
    std::uint32_t number = first;
    char* unique = numberedName(memoryp, output, name, number);
    if (unique != nullptr) {
        noteTaken(root, name, first, number);
    }
    return unique;
}

// Lists the distinct targets of the pattern's selected blocks in `ptn.targets`, in file order; it
// stays null when there are none. False when memory runs out.
bool listTargets(memory_pool* memoryp, pickptn_tbl& ptn) {
    std::uint32_t hash = EMPTY_HASH;
    for (const ptn_block& block : walkList<ptn_block>(ptn.blocks)) {
        if (block.skip != 0) {
            continue;
        }
        for (char& target : walkStrings(block.target)) {
            if (IgCmnListContains(&target, ptn.targets) != 0) {
                continue;
            }
            if (IgCmnListAppend(memoryp, &ptn.targets, &target) == -1) {
                return false;
            }
            for (const char* c = &target; *c != '\0'; ++c) {
                hash = extendHash(hash, *c);
            }
            hash = extendHash(hash, '\0');
        }
    }
    ptn.targets_hash = hash;
    return true;
}

bool equalLists(const IgCmnListHeader& first, const IgCmnListHeader& second) {
    const IgCmnListNode* a = first.first;
    const IgCmnListNode* b = second.first;
    while (a != nullptr && b != nullptr &&
           std::strcmp(static_cast<const char*>(a->value), static_cast<const char*>(b->value)) ==
               0) {
        a = a->next;
        b = b->next;
    }
    return a == nullptr && b == nullptr;
}

// The directory of an earlier pattern with the same targets; null when there is none.
char* sharedDirectory(const root_tbl& root, const pickptn_tbl& ptn) {
    for (const pickptn_tbl& earlier : walkList<pickptn_tbl>(&root.selected)) {
        if (&earlier == &ptn) {
            break;
        }
        if (earlier.targets_hash == ptn.targets_hash && earlier.output_dir != nullptr &&
            earlier.targets != nullptr && equalLists(*earlier.targets, *ptn.targets)) {
            return earlier.output_dir;
        }
    }
    return nullptr;
}

// Removes this run's own output directory; with `message`, reports that first.
void removeOwnOutput(bool message) {
    const root_tbl* root = main_run.root;
    if (root == nullptr || !root->output_made || root->output_kept || !outputIsOurs(*root)) {
        return;
    }
    if (message) {
        IgCmnMsgInfo<ZEPA212_I>(root->output_path);
    }
    removeOutput(*root);
}

}  // namespace

bool chooseOutputName(memory_pool* memoryp, root_tbl& root) {
    char* name = makeUnique(memoryp, root.output_dir, root.output_name);
    if (name == nullptr) {
        return false;
    }
    root.output_name = name;
    if (IgCmnIsAbsPath(root.output_file) == 0) {
        root.output_file = name;
    }
    return true;
}

bool makeDirectory(const char* path) {
    return IgCmnFileIsDir(path) != 0 || IgCmnFileMkdir(path) == 0;
}

bool makeOutputDirectory(memory_pool* memoryp, root_tbl& root) {
    const char* path = outputDirectory(memoryp, root);
    root.output_made = false;
    if (path == nullptr || makeDirectoryWithMode(path, PRIVATE_DIRECTORY) != 0) {
        return false;
    }
    root.output_made = noteOutput(memoryp, root, path);
    if (!root.output_made) {
        ::unlinkat(AT_FDCWD, path, AT_REMOVEDIR);  // it is empty, and no later step would remove it
    }
    return root.output_made;
}

char* choosePatternDirectory(memory_pool* memoryp, root_tbl& root, pickptn_tbl& ptn) {
    char* output = outputDirectory(memoryp, root);
    if (output == nullptr || !listTargets(memoryp, ptn)) {
        return nullptr;
    }
    if (ptn.targets == nullptr) {
        return output;
    }
    if (char* shared = sharedDirectory(root, ptn); shared != nullptr) {
        return shared;
    }
    if (!namePattern(memoryp, ptn)) {
        return nullptr;
    }
    const char* unique = uniqueInOutput(memoryp, root, output, ptn.output_name);
    return unique == nullptr ? nullptr : IgCmnStrCatDir(memoryp, output, unique);
}

void IgMainCleanup() {
    if (IgMainGetRetCode() == RETCODE_FAILED) {
        removeOwnOutput(true);
    }
}

void IgMainRemoveOutput() {
    if (main_run.root != nullptr && main_run.root->cleanup == CLEANUP_ON) {
        removeOwnOutput(false);
    }
}

char* IgMainGetOutputPath(memory_pool* memoryp) {
    const root_tbl* root = main_run.root;
    return root == nullptr ? nullptr : resultPath(memoryp, *root, IgMainGetRetCode());
}

void IgMainHistOutput() {
    const int code = IgMainGetRetCode();
    if (code != RETCODE_COMPRESSED && code != RETCODE_ARCHIVE && code != RETCODE_DIRECTORY) {
        return;
    }
    const char* path = IgMainGetOutputPath(&main_run.memoryp);
    if (path != nullptr) {
        IgCmnMsgHist(ZEPA303_I, ShownText(path).get());
    }
}

void IgMainReportOutput() {
    const char* path = IgMainGetOutputPath(&main_run.memoryp);
    if (path == nullptr) {
        return;
    }
    const int code = IgMainGetRetCode();
    if (code == RETCODE_DIRECTORY) {
        IgCmnMsg<ZEPA215_I>(path);
        return;
    }
    const std::int64_t size = IgCmnFileGetSize(path);
    if (size <= 0) {
        return;
    }
    if (code == RETCODE_ARCHIVE) {
        IgCmnMsgInfo<ZEPA211_I>(path, size);
    } else {
        IgCmnMsgInfo<ZEPA214_I>(path, size);
    }
}
