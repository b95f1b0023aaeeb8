#include "collect/IGCollectData.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "collect/IGAttributes.h"
#include "collect/IGCopy.h"
#include "collect/IGIndex.h"
#include "collect/IGOutput.h"
#include "collect/IGResult.h"
#include "collect/IGSizeLimit.h"
#include "common/base/IGAssert.h"
#include "common/base/IGCmnList.h"
#include "common/base/IGCmnStr.h"
#include "common/base/IGCmnTime.h"
#include "common/base/IGGuards.h"
#include "common/base/IGOpen.h"
#include "common/base/IGRunState.h"
#include "common/file/IGCmnFile.h"
#include "common/file/IGCmnPath.h"
#include "common/file/IGCmnTree.h"
#include "common/file/IGKernelFileSystem.h"
#include "common/file/IGSource.h"
#include "common/report/IGCmnMessage.h"
#include "ini/IGCmnReplaceStr.h"
#include "ini/IGIniTable.h"
#include "ini/IGResultName.h"

namespace {

// A directory that was made in the output, with the attributes it is to get in the end.
struct MadeDirectory {
    const char* path;
    struct stat source;
};

// One data item while it is collected.
struct Item {
    memory_pool* memoryp;
    root_tbl& root;
    const data_block& block;
    const char* data_dir = nullptr;   // normalised, without trailing slash
    const char* path_name = nullptr;  // expanded and normalised
    const char* place = nullptr;      // the data directory as pathInOutput gives it
    const char* index = nullptr;      // the index file, likewise
    bool own_output = false;          // what the pattern's own tools wrote is listed
    const char* ours = nullptr;       // then: the output directory without links
    IndexRecord record{};
    IgCmnListHeader* made = nullptr;     // MadeDirectory
    const char* first_source = nullptr;  // of the first entry: its ancestors get their attributes
    const char* first_destination = nullptr;
    const char* prepared = nullptr;  // the last destination whose directories are ready; or null
};

// How the steps over the entries go on.
enum class Step {
    NEXT,         // with the next entry
    INTERRUPTED,  // the item ends without a record
    FAILED,       // RESULT_FAILED
    SIZE_LIMIT,   // RESULT_SIZE_LIMIT
};

void reportCopied(const char* shown, std::int64_t size) {
    IgCmnMsgInfo<ZEPA209_I>(shown, size);
}

bool addFile(Item& item, const char* relative) {
    char* shown = IgCmnStrPrintable(item.memoryp, relative);
    return shown != nullptr && IgCmnListAppend(item.memoryp, &item.record.files, shown) != -1;
}

// The path below the data directory's place; empty for the directory itself.
const char* relativeName(const Item& item, const char* path) {
    const char* rest = path + std::strlen(item.place);
    return *rest == '/' ? rest + 1 : rest;
}

// --- data elsewhere ---

// Brings one regular file in. While the run makes an archive a link serves, because tar follows it,
// but only where no user can put something else in the file's place until then.
Collected collectFile(const Item& item, const Source& source, const char* destination,
                      std::int64_t& bytes) {
    const char* path = source.path.data();
    const int kernel_file = kernelFileSystemOf(source.fd.get(), source.st.st_dev, path);
    if (kernel_file != 0 || !source.own) {
        return copyContent(item.root, source, kernel_file, destination, bytes);
    }
    const int link = item.root.output_file != nullptr ? 1 : 0;
    return IgCmnFileCopy(path, destination, 0, link) == 1 ? Collected::WHOLE : Collected::FAILED;
}

Step reportFailed(const char* shown) {
    IgCmnMsg<ZEPA130_W>();
    IgCmnMsg<ZEPA151_E>("path", shown);
    return Step::NEXT;
}

// Opens what the entry stands for, in order to look at it. What the rules for links refuse is a
// failed copy and no failed call.
bool openEntry(const Item& item, const FileEntry& entry, Source& source) {
    if (sourceOfEntry(entry, source, item.ours)) {
        return true;
    }
    if (errno != LINK_REFUSED) {
        IgCmnSysErrPath("open", errno, entry.path);
    }
    return false;
}

// What is not data counts as a failed copy, and so do the lock files.
bool isData(const Source& source) {
    return S_ISREG(source.st.st_mode) && !isLockFile(source.st);
}

// Remembers a directory of the output for the attributes that it gets when everything is in it.
bool rememberDirectory(Item& item, const struct stat& source, const char* destination) {
    struct stat there = {};
    if (::lstat(destination, &there) != 0) {
        IgCmnSysErrPath("lstat", errno, destination);
        return true;
    }
    if (!S_ISDIR(there.st_mode)) {
        return true;  // a file brought in earlier has become a directory since: not ours to change
    }
    auto* made = newFromPool<MadeDirectory>(item.memoryp);
    if (made == nullptr) {
        return false;
    }
    *made = {destination, source};
    return IgCmnListAppend(item.memoryp, &item.made, made) != -1;
}

// The same with the attributes that the entry has now.
bool rememberEntry(Item& item, const FileEntry& entry, const char* destination) {
    Source source;
    // Where it cannot be opened there is nothing to take over.
    return !openEntry(item, entry, source) || rememberDirectory(item, source.st, destination);
}

Step collectDirectory(Item& item, const struct stat& source, const char* shown,
                      const char* destination) {
    if (IgCmnFileMkdir(destination) != 0) {
        IgCmnMsg<ZEPA130_W>();
        return Step::NEXT;
    }
    reportCopied(shown, 0);
    const bool kept = rememberDirectory(item, source, destination);
    return kept && addFile(item, relativeName(item, destination)) ? Step::NEXT : Step::FAILED;
}

// Brings a regular file in under a name that is free, when it fits.
Step collectRegular(Item& item, const Source& source, const char* shown, const char* destination) {
    const std::int64_t size = source.st.st_size;
    if (!fitsLimit(item.root, size)) {
        reportOverLimit(shown, size);
        return Step::NEXT;
    }
    std::int64_t bytes = 0;
    switch (collectFile(item, source, destination, bytes)) {
        case Collected::FAILED:
            return reportFailed(shown);
        case Collected::OVER_LIMIT:
            reportOverLimit(shown, bytes);
            return Step::NEXT;
        case Collected::TRUNCATED:
            reportFailed(shown);
            break;
        case Collected::WHOLE:
            break;
    }
    reportCopied(shown, size);
    return addFile(item, relativeName(item, destination)) ? Step::NEXT : Step::FAILED;
}

Step collectSource(Item& item, const Source& source, const char* shown, const char* destination) {
    if (S_ISDIR(source.st.st_mode)) {
        return collectDirectory(item, source.st, shown, destination);
    }
    return isData(source) ? collectRegular(item, source, shown, destination) : reportFailed(shown);
}

// Up to where the destination's directories are ready: those that the last one is in too. Else
// each entry of a tree would cost a look at every directory above it.
std::size_t readyLength(const Item& item, const char* destination) {
    std::size_t ready = std::strlen(item.place) + 1;
    if (item.prepared == nullptr) {
        return ready;
    }
    for (std::size_t i = ready; destination[i] != '\0' && destination[i] == item.prepared[i]; ++i) {
        if (destination[i] == '/') {
            ready = i + 1;
        }
    }
    return ready;
}

// Makes the directories that the destination is in. They lie in the output, which is ours
// alone: one that is a link is a file brought in earlier that its owner has made a directory since,
// and leads out.
bool prepareParents(Item& item, const char* destination) {
    const std::size_t ready = readyLength(item, destination);
    LocalPool local;
    char* prefix = IgCmnStrdup(local.get(), destination);
    if (prefix == nullptr) {
        return false;
    }
    for (char* slash = std::strchr(prefix + ready, '/'); slash != nullptr;
         slash = std::strchr(slash + 1, '/')) {
        *slash = '\0';
        struct stat st = {};
        const bool is_ready = ::lstat(prefix, &st) == 0 && S_ISDIR(st.st_mode);
        if (!is_ready && IgCmnFileMkdir(prefix) != 0) {
            return false;  // said so: something else is in the way
        }
        *slash = '/';
    }
    item.prepared = destination;
    return true;
}

// Brings an entry in under a name in the output.
Step collectTo(Item& item, const FileEntry& entry, const char* shown, const char* destination) {
    if (!prepareParents(item, destination)) {
        return Step::NEXT;
    }
    if (item.first_source == nullptr && !item.own_output) {
        item.first_source = entry.path;
        item.first_destination = destination;
    }
    if (IgMainIsInterrupted() != 0) {
        return Step::INTERRUPTED;
    }
    if (IgCmnFileIsTaken(destination) != 0) {
        // The first copy of a name stays. A directory may have been made for what lies below it;
        // that of the root of all paths is our own and keeps its mode.
        const bool ours = *relativeName(item, destination) == '\0';
        const bool kept = !entry.is_directory || ours || rememberEntry(item, entry, destination);
        return kept ? Step::NEXT : Step::FAILED;
    }
    Source source;
    const bool good =
        openEntry(item, entry, source) && S_ISDIR(source.st.st_mode) == entry.is_directory;
    return good ? collectSource(item, source, shown, destination) : reportFailed(shown);
}

Step collectEntry(Item& item, const FileEntry& entry) {
    LocalPool local;
    const char* destination = IgCmnStrCat(item.memoryp, item.place, entry.path);
    const char* shown = IgCmnStrPrintable(local.get(), entry.path);
    if (destination == nullptr || shown == nullptr) {
        return Step::FAILED;
    }
    return collectTo(item, entry, shown, destination);
}

// --- data that a tool wrote into the data directory ---

// The first symbolic link on the way from the data directory to the entry, the entry itself
// included, as a new text; null when there is none or memory ran out.
char* firstLink(const Item& item, const char* path, memory_pool* memoryp) {
    char* prefix = IgCmnStrdup(memoryp, path);
    if (prefix == nullptr) {
        return nullptr;
    }
    char* slash = prefix + std::strlen(item.place);
    while (slash != nullptr && *slash == '/') {
        slash = std::strchr(slash + 1, '/');
        if (slash != nullptr) {
            *slash = '\0';
        }
        struct stat st = {};
        if (::lstat(prefix, &st) == 0 && S_ISLNK(st.st_mode)) {
            return prefix;
        }
        if (slash != nullptr) {
            *slash = '/';
        }
    }
    return nullptr;
}

// Takes something out of the output that must not stay in it. False after reporting.
bool removeFromOutput(const char* path) {
    if (std::remove(path) == 0) {
        return true;
    }
    IgCmnSysErrPath("remove", errno, path);
    return false;
}

// What has been written there, or a link to what lies elsewhere, is counted as it stands.
Step countFile(Item& item, const char* path, const char* shown, std::int64_t size) {
    // The index may lie among a tool's output, but it is ours.
    const bool is_index = std::strcmp(path, item.index) == 0;
    if (!is_index && !fitsLimit(item.root, size)) {
        reportOverLimit(shown, size);
        return removeFromOutput(path) ? Step::NEXT : Step::SIZE_LIMIT;
    }
    reportCopied(shown, size);
    return addFile(item, relativeName(item, path)) ? Step::NEXT : Step::FAILED;
}

// Brings in what a tool's link leads to. A link stays only where it may stand for the file until
// tar follows it.
Step countLink(Item& item, const FileEntry& entry, const char* shown, const char* path) {
    Source source;
    const bool good = openEntry(item, entry, source);
    if (good && source.own && isData(source) &&
        kernelFileSystemOf(source.fd.get(), source.st.st_dev, entry.path) == 0) {
        return countFile(item, path, shown, source.st.st_size);
    }
    if (!removeFromOutput(path)) {
        return Step::NEXT;
    }
    return good ? collectSource(item, source, shown, path) : reportFailed(shown);
}

// An entry that lies in the output and behind no link there.
Step countWritten(Item& item, const FileEntry& entry, const char* shown, const char* path) {
    struct stat st = {};
    if (::lstat(path, &st) != 0) {
        if (errno == ENOENT) {
            // It lay behind a link that has become a directory.
            return collectTo(item, entry, shown, path);
        }
        IgCmnSysErrPath("lstat", errno, path);
        return reportFailed(shown);
    }
    if (S_ISLNK(st.st_mode)) {
        return countLink(item, entry, shown, path);
    }
    if (S_ISREG(st.st_mode)) {
        return countFile(item, path, shown, st.st_size);
    }
    if (S_ISDIR(st.st_mode)) {
        reportCopied(shown, 0);
        return addFile(item, relativeName(item, path)) ? Step::NEXT : Step::FAILED;
    }
    removeFromOutput(path);  // a socket, a FIFO, a device
    return reportFailed(shown);
}

// An entry whose path only begins like that of the output.
Step countOther(Item& item, const FileEntry& entry, const char* shown) {
    Source source;
    if (!openEntry(item, entry, source)) {
        return reportFailed(shown);
    }
    const std::int64_t size = S_ISDIR(source.st.st_mode) ? 0 : source.st.st_size;
    if (!fitsLimit(item.root, size)) {
        reportOverLimit(shown, size);
        return Step::NEXT;
    }
    reportCopied(shown, size);
    return addFile(item, entry.path + std::strlen(item.data_dir)) ? Step::NEXT : Step::FAILED;
}

// An entry to which a link on the way leads out of the output: a directory takes the link's place.
Step countBehind(Item& item, const FileEntry& entry, const char* shown, const char* path,
                 const char* link) {
    Source source;
    const bool good = openEntry(item, entry, source);
    if (!removeFromOutput(link) || IgCmnFileMkdir(link) != 0) {
        return reportFailed(shown);
    }
    if (!prepareParents(item, path)) {
        return Step::NEXT;
    }
    return good ? collectSource(item, source, shown, path) : reportFailed(shown);
}

Step countEntry(Item& item, const FileEntry& entry) {
    if (IgMainIsInterrupted() != 0) {
        return Step::INTERRUPTED;
    }
    LocalPool local;
    const char* shown = IgCmnStrPrintable(local.get(), entry.path);
    const char* path = pathInOutput(item.memoryp, item.root, entry.path);
    if (shown == nullptr || path == nullptr) {
        return Step::FAILED;
    }
    const char behind = entry.path[std::strlen(item.data_dir)];
    if (behind != '/' && behind != '\0') {
        return countOther(item, entry, shown);
    }
    const char* link = firstLink(item, path, local.get());
    return link != nullptr && std::strcmp(link, path) != 0
               ? countBehind(item, entry, shown, path, link)
               : countWritten(item, entry, shown, path);
}

// Gives a directory of the output the mode, owner and times of its source. Never through a link.
void restoreAttributes(const char* path, const struct stat& source) {
    const FdGuard fd(::open(path, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!fd) {
        IgCmnSysErrPath("open", errno, path);
        return;
    }
    for (const Attribute attribute : {Attribute::MODE, Attribute::OWNER, Attribute::TIMES}) {
        if (!giveAttribute(attribute, fd.get(), source, path)) {
            return;
        }
    }
}

// The directories above the first entry, upwards.
void restoreAncestors(const Item& item) {
    if (item.first_source == nullptr) {
        return;
    }
    LocalPool local;
    char* source = IgCmnStrdup(local.get(), item.first_source);
    char* destination = IgCmnStrdup(local.get(), item.first_destination);
    if (source == nullptr || destination == nullptr) {
        return;
    }
    while (cutToParent(source) && cutToParent(destination)) {
        struct stat st = {};
        if (::stat(source, &st) != 0) {
            IgCmnSysErrPath("stat", errno, source);
            continue;
        }
        restoreAttributes(destination, st);
    }
}

void restoreMade(const Item& item) {
    for (const MadeDirectory& made : walkList<const MadeDirectory>(item.made)) {
        restoreAttributes(made.path, made.source);
    }
}

// --- the item ---

// Expands and normalises; false ends the item silently.
bool prepare(Item& item) {
    char* data_dir = nullptr;
    char* path_name = nullptr;
    const char* expanded =
        IgCmnReplaceStrs(item.block.path_name, 1, &item.root, item.memoryp, nullptr);
    if (expanded == nullptr || IgCmnFileNormPath(item.memoryp, item.root.d, &data_dir) != 0 ||
        IgCmnFileNormPath(item.memoryp, expanded, &path_name) != 0) {
        return false;
    }
    item.data_dir = data_dir;
    item.path_name = path_name;
    item.record.path_name = path_name;
    const char* index = indexPath(item.memoryp, item.root);
    char* normal_index = nullptr;
    if (index == nullptr || IgCmnFileNormPath(item.memoryp, index, &normal_index) != 0) {
        return false;
    }
    item.index = normal_index;
    item.place = pathInOutput(item.memoryp, item.root, item.data_dir);
    return item.place != nullptr;
}

// Finds the output directory without links: what lies in it no other user can exchange. Where he
// can exchange the output itself, what stands under its path is looked at like anything else of
// his.
bool findOurs(Item& item) {
    if (item.root.output_held) {
        return true;
    }
    const char* output = outputDirectory(item.memoryp, item.root);
    Source source;
    if (output == nullptr) {
        return false;
    }
    if (!sourceFollow(output, source)) {
        IgCmnSysErrPath("open", errno, output);
        return false;
    }
    item.ours = IgCmnStrdup(item.memoryp, source.path.data());
    return item.ours != nullptr;
}

// Whether the item names output of the pattern's own tools: a comparison of texts, on the directory
// that is looked into.
bool isOwnOutput(const Item& item) {
    std::size_t length = std::strlen(item.path_name);
    if (IgCmnFileIsDir(item.path_name) == 0) {
        length = static_cast<std::size_t>(lastSlash(item.path_name) - item.path_name);
    }
    const std::size_t data_dir_length = std::strlen(item.data_dir);
    return length >= data_dir_length &&
           std::strncmp(item.path_name, item.data_dir, data_dir_length) == 0;
}

void describe(Item& item) {
    std::array<char, TIME_STAMP_SIZE> stamp{};
    IgCmnGetTimeStamp(stamp.data());
    std::memcpy(item.record.date.data(), stamp.data(), item.record.date.size() - 1);
    item.record.type = item.block.file_type;
    if (item.block.file_type_word != nullptr) {
        std::snprintf(item.record.type_word.data(), item.record.type_word.size(), "%s",
                      item.block.file_type_word);
    }
    item.record.description = item.block.description;
}

Step eachEntry(Item& item, const IgCmnListHeader* entries,
               Step (*take)(Item& item, const FileEntry& entry)) {
    for (const FileEntry& entry : walkList<const FileEntry>(entries)) {
        if (const Step step = take(item, entry); step != Step::NEXT) {
            return step;
        }
    }
    return Step::NEXT;
}

bool makeDataDirectory(const char* place) {
    return IgCmnFileExists(place) != 0 || IgCmnFileMkdir(place) == 0;
}

// RESULT_DONE with the record in `records` when there is one, else the item's result.
Result collectItem(Item& item, IgCmnListHeader** records) {
    if (!prepare(item)) {
        return RESULT_DONE;
    }
    item.own_output = isOwnOutput(item);
    IgCmnListHeader* entries = nullptr;
    if (item.own_output && !findOurs(item)) {
        return RESULT_DONE;
    }
    if (IgCmnFileMakeTreeList(item.path_name, &entries, item.memoryp, item.ours) == -1) {
        return RESULT_FAILED;
    }
    if (entries == nullptr) {
        if (IgMainIsInterrupted() == 0) {
            IgCmnMsg<ZEPA129_W>(item.path_name);
        }
        return RESULT_DONE;
    }
    if (!item.own_output && !makeDataDirectory(item.place)) {
        return RESULT_DONE;
    }
    describe(item);
    switch (eachEntry(item, entries, item.own_output ? countEntry : collectEntry)) {
        case Step::NEXT:
            break;
        case Step::INTERRUPTED:
            return RESULT_DONE;
        case Step::SIZE_LIMIT:
            return RESULT_SIZE_LIMIT;
        default:
            return RESULT_FAILED;
    }
    if (IgCmnListAppend(item.memoryp, records, &item.record) == -1) {
        return RESULT_FAILED;
    }
    restoreMade(item);
    restoreAncestors(item);
    return RESULT_DONE;
}

}  // namespace

Result IgCollectData(memory_pool* memoryp, root_tbl* root_tblp, data_block* data_block) {
    IG_ASSERT_NOT_NULL(memoryp);
    IG_ASSERT_NOT_NULL(root_tblp);
    IG_ASSERT_NOT_NULL(data_block);
    if (IgCmnFileIsDir(root_tblp->output_dir) == 0) {
        IgCmnMsg<ZEPA104_E>(static_cast<const char*>(root_tblp->output_dir));
        return RESULT_FAILED;
    }
    // A tree may hold very many long paths: they go with their item.
    LocalPool local;
    const char* directory = pathInOutput(local.get(), *root_tblp, root_tblp->d);
    if (directory == nullptr ||
        (IgCmnFileIsDir(directory) == 0 && IgCmnFileMkdir(directory) != 0)) {
        return RESULT_FAILED;
    }
    Item item{.memoryp = local.get(), .root = *root_tblp, .block = *data_block};
    IgCmnListHeader* records = nullptr;
    const Result result = collectItem(item, &records);
    if (result != RESULT_DONE) {
        return result;
    }
    IgCmnMsgInfo<ZEPA210_I>(collected_size.total);
    const bool written =
        records == nullptr || indexAppend(local.get(), *root_tblp, item.data_dir, records) == 0;
    return written ? RESULT_DONE : RESULT_FAILED;
}
