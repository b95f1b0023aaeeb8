#include "collect/IGIndex.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "collect/IGOutput.h"
#include "common/base/IGCmnList.h"
#include "common/base/IGCmnStr.h"
#include "common/base/IGGuards.h"
#include "common/base/IGRunState.h"
#include "common/file/IGCmnFile.h"
#include "common/file/IGCmnPath.h"
#include "common/file/IGCmnTree.h"
#include "common/report/IGCmnMessage.h"
#include "ini/IGIniTable.h"
#include "ini/IGResultName.h"

namespace {

// False when memory ran out.
bool printFiles(IndexFile& index, const IndexRecord& record, const char* prefix) {
    LocalPool local;
    EntryPath path(local.get(), "");
    bool any = false;
    for (const FileEntry* entry = record.entries; entry != nullptr; entry = entry->next) {
        if (!entry->collected) {
            continue;
        }
        if (!path.set(*entry)) {
            return false;
        }
        LocalPool name_pool;
        const char* name =
            IgCmnStrShown(name_pool.get(), indexName(path.path(), record.base_length));
        if (name == nullptr) {
            return false;
        }
        index.print("FILE:%s%s%s\n", prefix, prefix[0] == '\0' ? "" : "/", name);
        any = true;
    }
    if (!any) {
        index.print("FILE:%s%s%s\n", "", "", "");
    }
    return true;
}

void printDescriptions(IndexFile& index, const IgCmnListHeader* description) {
    if (description == nullptr) {
        index.print("DESC:\n");
    }
    for (const char& text : walkStrings(description)) {
        index.print("DESC:%s\n", &text);
    }
}

const char* typeText(const IndexRecord& record) {
    switch (record.type) {
        case FILE_TEXT:
            return "text";
        case FILE_BINARY:
            return "binary";
        case FILE_ARCHIVE:
            return "archive";
        case FILE_DIRECTORY:
            return "directory";
        default:
            return record.type_word.data();
    }
}

bool printRecord(IndexFile& index, const IndexRecord& record, const char* prefix) {
    index.print("\n");
    if (!printFiles(index, record, prefix)) {
        return false;
    }
    printDescriptions(index, record.description);
    index.print("DATE:%s\n", record.date.data());
    index.print("TYPE:%s\n", typeText(record));
    return true;
}

}  // namespace

IndexFile::IndexFile(const char* path, const char* mode, SourcePlace place) : place_(place) {
    const UmaskGuard mask(PRIVATE_MASK);
    good_ = IgCmnFileOpen(&file_, path, mode) == 0;
}

IndexFile::~IndexFile() {
    IgCmnFileClose(&file_);
}

void IndexFile::print(const char* format, ...) {
    if (!good_) {
        return;
    }
    std::va_list args;
    va_start(args, format);
    const int written = std::vfprintf(file_.stream, format, args);
    va_end(args);
    if (written < 0) {
        IgCmnSysErrPath("fprintf", errno, file_.name, place_);
        good_ = false;
    }
}

int IndexFile::finish() {
    return good_ && IgCmnFileFlush(&file_) == 0 ? 0 : -1;
}

const char* indexPath(memory_pool* memoryp, const root_tbl& root) {
    const char* directory = outputDirectory(memoryp, root);
    const char* path =
        directory == nullptr ? nullptr : IgCmnStrCatDir(memoryp, directory, INDEX_NAME);
    return path == nullptr ? nullptr : pathInOutput(memoryp, root, path);
}

int indexAppend(memory_pool* memoryp, const root_tbl& root, const char* data_dir,
                const IgCmnListHeader* records) {
    const char* output = outputDirectory(memoryp, root);
    const char* path = indexPath(memoryp, root);
    char* directory = nullptr;  // normalised, like `data_dir`
    if (output == nullptr || path == nullptr ||
        IgCmnFileNormPath(memoryp, output, &directory) != 0) {
        return -1;
    }
    const char* prefix = std::strcmp(directory, data_dir) == 0 ? "" : lastComponent(data_dir);
    IndexFile index(path, "a");
    for (const IndexRecord& record : walkList<const IndexRecord>(records)) {
        if (!printRecord(index, record, prefix)) {
            return -1;
        }
    }
    return index.finish();
}
