#include "ini/IGIniCtrl.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cstdint>
#include <cstring>

#include "common/base/IGAssert.h"
#include "common/base/IGCmnList.h"
#include "common/base/IGCmnStr.h"
#include "common/base/IGCmnSystem.h"
#include "common/base/IGRunState.h"
#include "common/file/IGCmnDir.h"
#include "common/report/IGCmnMessage.h"
#include "common/report/IGCmnProgress.h"
#include "ini/IGCmnReplaceStr.h"
#include "ini/IGIniCheck.h"
#include "ini/IGIniOption.h"
#include "ini/IGIniReadCompDef.h"
#include "ini/IGIniReadPtn.h"
#include "ini/IGIniTable.h"
#include "ini/IGResultName.h"

namespace {

// The arguments of one IgIniCtrl, for its steps.
struct Ctrl {
    int argc;
    char** argv;
    memory_pool* memoryp;
    root_tbl* root;
    const char* config_file;
};

int readOptions(Ctrl& ctrl) {
    if (ctrl.argc <= 1) {
        IgCmnMsg<ZEPA115_E>();
        return -1;
    }
    const int result = IgIniOption(ctrl.argc, ctrl.argv, ctrl.memoryp, ctrl.root);
    if (result == 0) {
        IgCmnProgressStep();
    }
    return result;
}

int readConfiguration(Ctrl& ctrl) {
    ctrl.config_file = ctrl.root->opt_config;
    if (ctrl.config_file == nullptr) {
        std::array<char, PATH_MAX> path{};
        if (IgCmnGetKestrumConfigFile(path.data(), path.size()) == 0) {
            return -1;
        }
        ctrl.config_file = IgCmnStrdup(ctrl.memoryp, path.data());
        if (ctrl.config_file == nullptr) {
            return -1;
        }
    }
    const int result = IgIniReadCompDef(ctrl.config_file, ctrl.root, ctrl.memoryp);
    if (result == 0) {
        IgCmnProgressStep();
    }
    return result;
}

// Options override the configuration file.
int applyOptions(Ctrl& ctrl) {
    root_tbl& root = *ctrl.root;
    if (root.opt_directory != nullptr) {
        root.output_dir = root.opt_directory;
    }
    if (root.opt_group != nullptr) {
        root.pp_group = root.opt_group;
    }
    if (root.opt_target != nullptr) {
        root.target = root.opt_target;
    }
    return 0;
}

int checkOutputDirectory(Ctrl& ctrl) {
    const char* directory = ctrl.root->output_dir;
    return directory == nullptr || isWritableDirectory(directory, directory) ? 0 : -1;
}

// Checks that the archive's default names are free; a name given with -o was checked before.
int checkDefaultNames(Ctrl& ctrl) {
    const root_tbl& root = *ctrl.root;
    if (root.output_file == nullptr || IgCmnIsAbsPathIgnoreDQ(root.output_file) != 0) {
        return 0;
    }
    const char* base = archiveBase(ctrl.memoryp, root);
    return base != nullptr && resultNamesTaken(ctrl.memoryp, base) == 0 ? 0 : -1;
}

int printSummary(Ctrl& ctrl) {
    const root_tbl& root = *ctrl.root;
    const char* output_path = "";
    if (root.output_dir != nullptr) {
        output_path = outputDirectory(ctrl.memoryp, root);
        if (output_path == nullptr) {
            return -1;
        }
    }
    const char* output_file = root.output_file;
    IgCmnMsgInfo<ZEPA205_I>(ctrl.config_file, output_path, root.max_output_size,
                            root.cleanup == CLEANUP_ON ? "ON" : "OFF",
                            output_file == nullptr ? "" : output_file);
    IgCmnListPrint(ZEPA205_I_TARGET, root.target);
    IgCmnListPrint(ZEPA205_I_PP_GROUP, root.pp_group);
    IgCmnListPrint(ZEPA205_I_PP_NAME, root.pp_name);
    IgCmnProgressStep();
    return 0;
}

int listPatterns(Ctrl& ctrl, IgCmnListHeader** files) {
    std::array<char, PATH_MAX> directory{};
    if (IgCmnGetKestrumPtnDir(directory.data(), directory.size()) == 0) {
        return -1;
    }
    const char* search = IgCmnStrCatDir(ctrl.memoryp, directory.data(), "*");
    if (search == nullptr) {
        return -1;
    }
    const Listing listing = listMatches(search, files, ctrl.memoryp, 1);
    if (listing == Listing::NOTHING) {
        IgCmnMsg<ZEPA145_W>();
    }
    return listing == Listing::FOUND ? 0 : -1;
}

bool isSelected(const root_tbl& root, const pickptn_tbl& ptn) {
    return IgIniMatchSelection(ptn.group, ptn.name, root.pp_group, root.pp_name) != 0;
}

// Keeps the current pattern when some of its blocks are selected. Returns their number, or -1.
int selectPattern(memory_pool* memoryp, root_tbl& root) {
    pickptn_tbl* ptn = root.crnt_ptn_def;
    const int blocks = isSelected(root, *ptn) ? blockSelect(memoryp, &root) : 0;
    if (blocks > 0 && IgCmnListAdd(memoryp, &root.selected, ptn) == -1) {
        return -1;
    }
    return blocks;
}

// Reads one file and adds the number of selected blocks to `blocks`. Returns 0, PTN_SKIPPED or -1.
int readPattern(Ctrl& ctrl, const char* file, int& blocks) {
    ctrl.root->crnt_ptn_def = IgIniGetPickPtn(ctrl.memoryp);
    if (ctrl.root->crnt_ptn_def == nullptr) {
        return -1;
    }
    {
        const MessageMode warn(MSGMODE_READING);  // an unreadable pattern file is only a warning
        const int result = IgIniReadPtnDef(file, ctrl.root, ctrl.memoryp);
        if (result != 0) {
            return result;
        }
    }
    const int selected = selectPattern(ctrl.memoryp, *ctrl.root);
    if (selected == -1) {
        return -1;
    }
    blocks += selected;
    return 0;
}

int readPatterns(Ctrl& ctrl) {
    IgCmnListHeader* files = nullptr;
    if (listPatterns(ctrl, &files) != 0) {
        return -1;
    }
    char** sorted = sortFileArray(files, ctrl.memoryp);
    if (sorted == nullptr) {
        return -1;
    }
    std::uint32_t failed = 0;
    int blocks = 0;
    for (std::uint32_t i = 0; i < files->count; ++i) {
        const int result = readPattern(ctrl, sorted[i], blocks);
        if (result == -1) {
            return -1;
        }
        if (IgMainIsInterrupted() != 0) {
            return 0;  // the collection then ends at its start, with its cleanup
        }
        failed += result == 0 ? 0 : 1;
    }
    if (failed == files->count) {
        IgCmnMsg<ZEPA145_W>();
        return CTRL_ALL_FAILED;
    }
    if (blocks == 0) {
        IgCmnMsg<ZEPA121_E>();
        return CTRL_NOTHING_SELECTED;
    }
    IgCmnProgressStep();
    return 0;
}

}  // namespace

root_tbl* IgIniGetCmnRoot(memory_pool* memoryp) {
    IG_ASSERT_NOT_NULL(memoryp);
    auto* root = newFromPool<root_tbl>(memoryp);
    if (root == nullptr || IgCmnSpecialStrInit(root, memoryp) != 0) {
        return nullptr;
    }
    std::array<char, PATH_MAX> output_dir{};
    if (IgCmnGetKestrumOutputDir(output_dir.data(), output_dir.size()) == 0) {
        return nullptr;
    }
    root->output_dir = IgCmnStrdup(memoryp, output_dir.data());
    if (root->output_dir == nullptr) {
        return nullptr;
    }
    root->output_name = IgCmnReplaceStrs(OUTPUT_NAME_TEMPLATE, 1, root, memoryp, nullptr);
    if (root->output_name == nullptr) {
        return nullptr;
    }
    root->opt_mark = -2;
    root->output_mark = -1;
    root->cleanup = CLEANUP_OFF;
    root->max_output_size = -1;
    return root;
}

int IgIniCtrl(int argc, char** argv, memory_pool* memoryp, root_tbl* root) {
    IG_ASSERT_NOT_NULL(argv);
    IG_ASSERT_NOT_NULL(memoryp);
    IG_ASSERT_NOT_NULL(root);
    Ctrl ctrl{argc, argv, memoryp, root, nullptr};
    for (const auto step : {readOptions, readConfiguration, applyOptions, checkOutputDirectory,
                            checkDefaultNames, printSummary, readPatterns}) {
        if (const int result = step(ctrl); result != 0) {
            return result;
        }
    }
    return 0;
}

int blockSelect(memory_pool* memoryp, root_tbl* root) {
    IG_ASSERT_NOT_NULL(memoryp);
    IG_ASSERT_NOT_NULL(root);
    int marked = 0;
    for (ptn_block& block : walkList<ptn_block>(root->crnt_ptn_def->blocks)) {
        if (root->target == nullptr || IgCmnListIntersects(block.target, root->target) != 0) {
            block.skip = 0;
            ++marked;
        }
    }
    return marked;
}

char** sortFileArray(const IgCmnListHeader* list, memory_pool* memoryp) {
    IG_ASSERT_NOT_NULL(list);
    IG_ASSERT_NOT_NULL(memoryp);
    auto** names = newFromPool<char*>(memoryp, list->count);
    if (names == nullptr) {
        return nullptr;
    }
    std::size_t count = 0;
    for (const IgCmnListNode* node = list->first; node != nullptr; node = node->next) {
        names[count++] = static_cast<char*>(node->value);
    }
    std::sort(names, names + count, [](const char* a, const char* b) {
        return a != nullptr && (b == nullptr || std::strcmp(a, b) < 0);
    });
    return names;
}

int IgIniMatchSelection(const IgCmnListHeader* groups, const IgCmnListHeader* names,
                        const IgCmnListHeader* group_selection,
                        const IgCmnListHeader* name_selection) {
    const bool group =
        group_selection == nullptr || IgCmnListIntersects(groups, group_selection) != 0;
    const bool name = name_selection == nullptr || IgCmnListIntersects(names, name_selection) != 0;
    return group && name ? 1 : 0;
}
