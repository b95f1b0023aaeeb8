#include "view/IGViewOverview.h"

#include <fcntl.h>
#include <fts.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string_view>
#include <system_error>
#include <utility>

#include "common/base/IGGuards.h"
#include "companion/IGInput.h"
#include "companion/IGOutputFile.h"
#include "view/IGViewPage.h"
#include "view/IGViewPageFile.h"
#include "view/IGViewScan.h"
#include "view/IGViewSection.h"

namespace {

constexpr const char* INDEX = "quendil_index";
constexpr int DIRECTORY_FLAGS = O_PATH | O_DIRECTORY | O_CLOEXEC;  // it need not be readable

int byName(const FTSENT** one, const FTSENT** other) {
    return std::strcmp((*one)->fts_name, (*other)->fts_name);
}

bool isRegular(const std::string& path) {
    struct stat st = {};
    return ::lstat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

bool isArchiveName(std::string_view name) {
    return name.ends_with(".tar.gz") || name.ends_with(".tar");
}

// The path with its directory's links resolved, so that equal files have equal paths.
std::string canonical(const std::string& path) {
    std::error_code error;
    const std::filesystem::path plain(path);
    const std::filesystem::path parent = plain.has_parent_path() ? plain.parent_path() : ".";
    const std::filesystem::path directory = std::filesystem::canonical(parent, error);
    return error ? path : (directory / plain.filename()).string();
}

// The path of an open file, by which it is opened again: its own name may be that of another one
// now. Without /proc there is only that name.
std::string openPath(int file, const std::string& path) {
    const std::string proc = "/proc/self/fd/" + std::to_string(file);
    return ::access(proc.c_str(), F_OK) == 0 ? proc : path;
}

bool isOlder(const struct timespec& one, const struct timespec& other) {
    return one.tv_sec != other.tv_sec ? one.tv_sec < other.tv_sec : one.tv_nsec < other.tv_nsec;
}

// Why a file that is there is not shown as the page of a result; "" if it is. Anyone who may write
// to the directory can put a file there, and a page that was made before may be of another result.
std::string whyNotPageOf(int directory, const std::string& name, const struct stat& result_st,
                         const Result& result) {
    const FdGuard file(::openat(directory, name.c_str(),
                                O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    struct stat st = {};
    if (!file || ::fstat(file.get(), &st) != 0) {
        return name + (errno == ELOOP ? " is a link" : std::string(": ") + std::strerror(errno));
    }
    if (!S_ISREG(st.st_mode)) {
        return name + " is no file";
    }
    if (st.st_uid != ::geteuid()) {
        return name + " is a file of another user";
    }
    const std::string beginning = pageBeginning(result);
    std::string found(beginning.size(), '\0');
    if (::pread(file.get(), found.data(), found.size(), 0) != static_cast<ssize_t>(found.size()) ||
        found != beginning) {
        return name + " was not made from this result as it is now";
    }
    return isOlder(st.st_mtim, result_st.st_mtim) ? name + " is older than the result" : "";
}

void countFindings(const Result& result, OverviewRow& row) {
    for (const Finding& finding : result.findings) {
        if (finding.verdict == Verdict::NOT_JUDGED) {
            ++row.not_judged;
        } else if (finding.verdict == Verdict::FOUND) {
            ++row.found[static_cast<std::size_t>(finding.weight)];
            if (finding.weight == Weight::CRITICAL && row.critical.size() < MOST_TITLES) {
                row.critical.push_back(finding.title);
            }
        }
    }
}

void describe(const Result& result, OverviewRow& row) {
    row.host = hostOf(result);
    row.started = result.run.started;
    row.arguments = result.run.log == NONE ? "" : "quendil " + result.run.arguments;
    row.form = result.form;
    row.bytes = result.form == ResultForm::DIRECTORY ? result.content_bytes : result.bytes;
    row.state = result.damaged ? OverviewState::DAMAGED : OverviewState::READ;
    row.reason = result.damaged && !result.notices.empty() ? result.notices.front() : "";
    countFindings(result, row);
}

}  // namespace

// The directory is kept too: what is made beside the result is made there.
struct FoundFile {
    FdGuard directory;
    FdGuard file;
    struct stat st = {};

    bool open(const std::string& root, const std::string& path);
};

// Opens a result that was found below a directory, or the directory itself. False with errno.
bool FoundFile::open(const std::string& root, const std::string& path) {
    constexpr int FLAGS = O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
    const std::filesystem::path place = std::filesystem::path(path).lexically_relative(root);
    if (place.empty() || place == ".") {
        const std::filesystem::path parent = std::filesystem::path(pageNameOf(path)).parent_path();
        directory.reset(::open(parent.empty() ? "." : parent.c_str(), DIRECTORY_FLAGS));
        file.reset(::open(path.c_str(), FLAGS));
    } else {
        const FdGuard top(::open(root.c_str(), DIRECTORY_FLAGS));
        directory.reset(openDirectoryBelow(top.get(), place.parent_path().native()));
        file.reset(::openat(directory.get(), place.filename().c_str(), FLAGS | O_NOFOLLOW));
    }
    return file && ::fstat(file.get(), &st) == 0;
}

std::vector<std::string> findResults(const std::string& directory,
                                     std::vector<std::string>& problems) {
    std::vector<std::string> found;
    std::string root = directory;
    std::array<char*, 2> paths{root.data(), nullptr};
    FTS* tree = ::fts_open(paths.data(), FTS_PHYSICAL | FTS_COMFOLLOW | FTS_NOCHDIR, byName);
    if (tree == nullptr) {
        problems.push_back(directory + ": " + std::strerror(errno));
        return found;
    }
    errno = 0;
    while (FTSENT* entry = ::fts_read(tree)) {
        const std::string path = entry->fts_path;
        if (entry->fts_info == FTS_D && isRegular(path + "/" + INDEX)) {
            found.push_back(path);
            ::fts_set(tree, entry, FTS_SKIP);
        } else if (entry->fts_info == FTS_F && isArchiveName(entry->fts_name)) {
            found.push_back(path);
        } else if (entry->fts_info == FTS_DNR || entry->fts_info == FTS_ERR ||
                   entry->fts_info == FTS_NS) {
            problems.push_back(path + ": " + std::strerror(entry->fts_errno));
        }
        errno = 0;
    }
    if (errno != 0) {
        problems.push_back(directory + ": the search ended early: " + std::strerror(errno));
    }
    ::fts_close(tree);
    return found;
}

Overview::Overview(const Definitions& definitions, std::string directory, const std::string& index,
                   std::uint64_t limit, bool follow_links)
    : definitions_(definitions),
      directory_(std::move(directory)),
      index_(canonical(index)),
      limit_(limit),
      follow_links_(follow_links) {
}

const OverviewRow& Overview::add(const std::string& path) {
    return rows_.emplace_back(read(path));
}

OverviewRow Overview::read(const std::string& path) {
    OverviewRow row;
    row.path = path;
    FoundFile found;
    if (!found.open(directory_, path)) {
        row.reason = std::strerror(errno);
        return row;
    }
    const auto archive = openArchive(openPath(found.file.get(), path), follow_links_, row.reason);
    if (archive == nullptr) {
        return row;
    }
    Result result;
    result.path = path;
    row.bytes = archive->bytes();
    if (!scanArchive(*archive, definitions_, result)) {
        row.reason = archive->error().empty() ? "it is empty" : archive->error();
        return row;
    }
    if (isResult(result)) {
        describe(result, row);
        findPage(row, found, *archive, result);
    } else {
        row.state = OverviewState::NO_RESULT;
        row.reason = NO_RESULT_REASON;
    }
    return row;
}

// Sets the path of the page, which is made if it is missing, or why there is none.
void Overview::findPage(OverviewRow& row, const FoundFile& found, ArchiveReader& archive,
                        const Result& result) {
    const std::string path = pageNameOf(row.path);
    const std::string name = std::filesystem::path(path).filename();
    const int directory = found.directory.get();
    if (canonical(path) == index_) {
        row.no_page = name + " is this overview";
        return;
    }
    OutputFile page;
    struct stat st = {};
    if (::fstatat(directory, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0) {
        row.no_page = whyNotPageOf(directory, name, found.st, result);
    } else if (!page.openIn(directory, name) || !writePageFile(page, archive, result, limit_) ||
               !page.commit()) {
        row.no_page = name + ": " + page.error();
    }
    row.page = row.no_page.empty() ? path : "";
}

void Overview::sort() {
    std::stable_sort(
        rows_.begin(), rows_.end(), [](const OverviewRow& one, const OverviewRow& other) {
            const auto known = [](const OverviewRow& row) {
                return row.state == OverviewState::READ || row.state == OverviewState::DAMAGED;
            };
            if (known(one) != known(other)) {
                return known(one);
            }
            return one.found > other.found;
        });
}

bool Overview::damaged() const {
    return std::any_of(rows_.begin(), rows_.end(), [](const OverviewRow& row) {
        return row.state == OverviewState::DAMAGED || row.state == OverviewState::UNREADABLE ||
               !row.no_page.empty();
    });
}
