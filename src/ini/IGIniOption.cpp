#include "ini/IGIniOption.h"

#include <array>
#include <cstdint>
#include <cstring>
#include <cwchar>

#include "common/base/IGAssert.h"
#include "common/base/IGCmnList.h"
#include "common/base/IGCmnStr.h"
#include "common/base/IGGuards.h"
#include "common/base/IGRunState.h"
#include "common/file/IGCmnFile.h"
#include "common/file/IGCmnPath.h"
#include "common/report/IGCmnMessage.h"
#include "ini/IGCmnReplaceStr.h"
#include "ini/IGIniCheck.h"
#include "ini/IGIniTable.h"
#include "ini/IGResultName.h"

namespace {

// The owner permission that a file needs to be read.
constexpr std::uint16_t OWNER_READ = 0400;

// The command line while it is read.
struct Parse {
    memory_pool* memoryp;
    root_tbl* root;
    bool selected;            // at least one -g or -t value was given
    const char* directory;    // last -d value
    const char* output_file;  // last -o value
    const char* config;       // last -c value
};

// Handles an option's value. Returns 0, OPTION_ERROR or -1. `option` is its spelling on the line.
using TakeValue = int (*)(Parse& parse, const char* option, const char* value);

int takeTarget(Parse& parse, const char* option, const char* value) {
    parse.selected = true;
    return setCollectOptValue(option, value, parse.memoryp, &parse.root->opt_target, parse.root);
}

int takeGroup(Parse& parse, const char* option, const char* value) {
    parse.selected = true;
    return setCollectOptValue(option, value, parse.memoryp, &parse.root->opt_group, parse.root);
}

// An option given twice is a warning; the last value wins.
void warnRepeated(const char* option, const char* former) {
    if (former != nullptr) {
        IgCmnMsg<ZEPA107_W>(option);
    }
}

int keep(Parse& parse, const char* value, const char** kept) {
    *kept = IgCmnStrdup(parse.memoryp, value);
    return *kept == nullptr ? -1 : 0;
}

int takeDirectory(Parse& parse, const char* option, const char* value) {
    warnRepeated(option, parse.directory);
    return keep(parse, value, &parse.directory);
}

int takeOutputFile(Parse& parse, const char* option, const char* value) {
    warnRepeated(option, parse.output_file);
    LocalPool local;
    const wchar_t* wide = IgCmnMBS2WCS(local.get(), value);
    if (wide == nullptr) {
        return -1;
    }
    const std::size_t length = std::wcslen(wide);
    if (IgCmnIsAbsPath(value) == 0 || wide[length - 1] == L'/') {
        IgCmnMsg<ZEPA144_E>(value);
        return OPTION_ERROR;
    }
    return keep(parse, value, &parse.output_file);
}

int takeConfig(Parse& parse, const char* option, const char* value) {
    warnRepeated(option, parse.config);
    return keep(parse, value, &parse.config);
}

struct Option {
    const char* upper;
    const char* lower;
    std::size_t longest;  // value in bytes
    TakeValue take;
};

constexpr std::array<Option, 5> OPTIONS{{
    {"-T", "-t", 256, takeTarget},
    {"-G", "-g", 256, takeGroup},
    {"-D", "-d", 260, takeDirectory},
    {"-O", "-o", 260, takeOutputFile},
    {"-C", "-c", 260, takeConfig},
}};

const Option* findOption(const char* argument) {
    for (const Option& option : OPTIONS) {
        if (std::strcmp(argument, option.upper) == 0 || std::strcmp(argument, option.lower) == 0) {
            return &option;
        }
    }
    return nullptr;
}

int parseArguments(int argc, char** argv, Parse& parse) {
    for (int i = 1; i < argc; i += 2) {
        const char* spelling = argv[i];
        const Option* option = findOption(spelling);
        if (option == nullptr) {
            IgCmnMsg<ZEPA101_E>(spelling);
            return OPTION_ERROR;
        }
        if (i + 1 == argc || argv[i + 1][0] == '-') {
            IgCmnMsg<ZEPA102_E>(spelling);
            return OPTION_ERROR;
        }
        if (std::strlen(argv[i + 1]) > option->longest) {
            IgCmnMsg<ZEPA108_E>(spelling);
            return OPTION_ERROR;
        }
        if (const int result = option->take(parse, spelling, argv[i + 1]); result != 0) {
            return result;
        }
    }
    return 0;
}

int checkDirectory(const Parse& parse) {
    if (parse.directory == nullptr) {
        return 0;
    }
    char* path = nullptr;
    if (IgCmnFileNormPath(parse.memoryp, parse.directory, &path) != 0) {
        return -1;
    }
    if (!isWritableDirectory(path, parse.directory)) {
        return OPTION_ERROR;
    }
    parse.root->opt_directory = path;
    parse.root->output_dir = path;
    return 0;
}

// Checks that the archive's name is free with each of the suffixes that packing appends.
int checkArchiveNames(const Parse& parse) {
    char* absolute = nullptr;
    if (IgCmnFileNormPath(parse.memoryp, parse.output_file, &absolute) != 0) {
        return -1;
    }
    const int taken = resultNamesTaken(parse.memoryp, absolute);
    return taken == 1 ? OPTION_ERROR : taken;
}

int checkOutputFile(const Parse& parse) {
    root_tbl& root = *parse.root;
    if (parse.output_file == nullptr) {
        root.output_file = IgCmnReplaceStrs(OUTPUT_NAME_TEMPLATE, 1, &root, parse.memoryp, nullptr);
        return root.output_file == nullptr ? -1 : 0;
    }
    if (IgCmnFileIsTaken(parse.output_file) != 0) {
        IgCmnMsg<ZEPA109_E>(parse.output_file);
        return OPTION_ERROR;
    }
    char* directory = nullptr;
    char* file = nullptr;
    if (IgCmnFileSplitPath(parse.output_file, &directory, &file, parse.memoryp) != 0) {
        return -1;
    }
    if (file != nullptr && directory[0] != '\0' && IgCmnFileIsDir(directory) == 0) {
        IgCmnMsg<ZEPA104_E>(static_cast<const char*>(directory));
        return OPTION_ERROR;
    }
    if (const int result = checkArchiveNames(parse); result != 0) {
        return result;
    }
    root.opt_output_file = IgCmnStrdup(parse.memoryp, parse.output_file);
    root.output_file = root.opt_output_file;
    return root.output_file == nullptr ? -1 : 0;
}

int checkConfig(const Parse& parse) {
    if (parse.config == nullptr) {
        return 0;
    }
    char* path = nullptr;
    if (IgCmnFileNormPath(parse.memoryp, parse.config, &path) != 0) {
        return -1;
    }
    if (IgCmnFileExists(path) == 0 || IgCmnFileIsDir(path) != 0) {
        IgCmnMsg<ZEPA106_E>(parse.config);
        return OPTION_ERROR;
    }
    if (IgCmnFileCheckMode(path, OWNER_READ) == 0) {
        IgCmnMsg<ZEPA112_E>(parse.config);
        return OPTION_ERROR;
    }
    parse.root->opt_config = path;
    return 0;
}

}  // namespace

int IgIniCkOption(int argc, char** argv, const char* ckopt) {
    IG_ASSERT_NOT_NULL(argv);
    IG_ASSERT_NOT_NULL(ckopt);
    for (int i = 0; i < argc; ++i) {
        if (std::strcmp(argv[i], ckopt) == 0) {
            return 1;
        }
    }
    return 0;
}

int IgIniCkHelp(int argc, char** argv) {
    if (IgIniCkOption(argc, argv, "-h") == 0 && IgIniCkOption(argc, argv, "-H") == 0) {
        return 0;
    }
    const char* command = IgMainGetCmdName();
    IgCmnMsg<MSG_USAGE>(command, QUENDIL_VERSION, command, command);
    return OPTION_HELP;
}

int setCollectOptValue(const char* prevOpt, const char* crntValue, memory_pool* memoryp,
                       IgCmnListHeader** listpp, root_tbl* root_tblp) {
    IG_ASSERT_NOT_NULL(prevOpt);
    IG_ASSERT_NOT_NULL(crntValue);
    IG_ASSERT_NOT_NULL(memoryp);
    IG_ASSERT_NOT_NULL(listpp);
    IG_ASSERT_NOT_NULL(root_tblp);
    if (crntValue[0] == '-') {
        IgCmnMsg<ZEPA102_E>(prevOpt);
        return OPTION_ERROR;
    }
    return IgIniCollectList(crntValue, listpp, memoryp);
}

int IgIniOption(int argc, char** argv, memory_pool* memoryp, root_tbl* root) {
    IG_ASSERT_NOT_NULL(argv);
    IG_ASSERT_NOT_NULL(memoryp);
    IG_ASSERT_NOT_NULL(root);
    Parse parse{memoryp, root, false, nullptr, nullptr, nullptr};
    if (const int result = parseArguments(argc, argv, parse); result != 0) {
        return result;
    }
    if (!parse.selected) {
        IgCmnMsg<ZEPA115_E>();
        return OPTION_ERROR;
    }
    for (const auto check : {checkDirectory, checkOutputFile, checkConfig}) {
        if (const int result = check(parse); result != 0) {
            return result;
        }
    }
    return 0;
}
