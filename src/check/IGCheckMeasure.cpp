#include "check/IGCheckMeasure.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <functional>

#include "common/base/IGGuards.h"
#include "common/file/IGCmnTree.h"
#include "common/file/IGKernelFileSystem.h"
#include "common/file/IGSource.h"

namespace {

// The status of an entry as a run would collect it. An ordinary user cannot open every file, but
// can ask for its size.
bool statusOf(const FileEntry& entry, const char* path, SourceOpener& opener, struct stat& st,
              bool& is_kernel_file) {
    Source source;
    if (sourceOfEntry(entry, path, opener, source)) {
        st = source.st;
        is_kernel_file = kernelFileSystemOf(source.fd.get(), st.st_dev, source.path.data()) == 1;
        return true;
    }
    return errno == EACCES && ::stat(path, &st) == 0;
}

}  // namespace

Measured Measure::item(const std::string& path, const std::string& directory) {
    Measured measured;
    LocalPool local;
    EntryList list(local.get());
    if (IgCmnFileMakeTreeList(path.c_str(), list) != 0) {
        return measured;
    }
    SourceOpener opener;
    EntryPath entry_path(local.get(), "");
    for (const FileEntry* entry = list.first(); entry != nullptr; entry = entry->next) {
        measured.found = true;
        if (entry->is_directory || !entry_path.set(*entry) ||
            !collected_.insert(std::hash<std::string>{}(directory + "\n" + entry_path.path()))
                 .second) {
            continue;
        }
        struct stat st = {};
        bool is_kernel_file = false;
        if (!statusOf(*entry, entry_path.path(), opener, st, is_kernel_file) ||
            !S_ISREG(st.st_mode)) {
            ++measured.unreadable;
            continue;
        }
        ++measured.files;
        if (is_kernel_file) {
            ++measured.kernel_files;
        } else {
            measured.bytes += std::min<std::int64_t>(st.st_size, INT64_MAX - measured.bytes);
        }
    }
    return measured;
}
