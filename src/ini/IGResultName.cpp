#include "ini/IGResultName.h"

#include "common/base/IGCmnStr.h"
#include "common/base/IGRunState.h"
#include "common/file/IGCmnFile.h"
#include "common/file/IGCmnPath.h"
#include "common/report/IGCmnMessage.h"
#include "ini/IGIniTable.h"

char* outputDirectory(memory_pool* memoryp, const root_tbl& root) {
    return IgCmnStrCatDir(memoryp, root.output_dir, root.output_name);
}

char* archiveBase(memory_pool* memoryp, const root_tbl& root) {
    return IgCmnIsAbsPath(root.output_file) != 0
               ? root.output_file
               : IgCmnStrCatDir(memoryp, root.output_dir, root.output_file);
}

char* tarName(memory_pool* memoryp, const char* base) {
    return IgCmnStrCat(memoryp, base, ".tar");
}

char* compressedName(memory_pool* memoryp, const char* base) {
    const char* tar = tarName(memoryp, base);
    return tar == nullptr ? nullptr : IgCmnStrCat(memoryp, tar, ".gz");  // gzip appends it
}

char* resultPath(memory_pool* memoryp, const root_tbl& root, int ret_code) {
    if (ret_code == RETCODE_DIRECTORY) {
        return outputDirectory(memoryp, root);
    }
    char* base = archiveBase(memoryp, root);
    return base == nullptr || ret_code != RETCODE_ARCHIVE ? base : tarName(memoryp, base);
}

int resultNamesTaken(memory_pool* memoryp, const char* base) {
    for (const auto nameOf : {tarName, compressedName}) {
        const char* name = nameOf(memoryp, base);
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
