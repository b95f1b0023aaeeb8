#include "view/IGViewOverview.h"

#include <fts.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string_view>

#include "companion/IGOutputFile.h"
#include "view/IGViewPageFile.h"
#include "view/IGViewScan.h"
#include "view/IGViewSection.h"

namespace {

constexpr const char* INDEX = "quendil_index";

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
    }
    ::fts_close(tree);
    return found;
}

Overview::Overview(const Definitions& definitions, const std::string& index, std::uint64_t limit,
                   bool follow_links)
    : definitions_(definitions), limit_(limit), follow_links_(follow_links) {
    pages_.insert(canonical(index));
}

void Overview::add(const std::string& path) {
    rows_.push_back(read(path));
}

OverviewRow Overview::read(const std::string& path) {
    OverviewRow row;
    row.path = path;
    const auto archive = openArchive(path, follow_links_, row.reason);
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
    if (isResult(result) || result.damaged) {
        describe(result, row);
        row.page = pageFor(path, *archive, result);
    } else {
        row.state = OverviewState::NO_RESULT;
        row.reason = "it has neither quendil.log nor quendil_index";
    }
    return row;
}

// The path of the page, which is made if it is missing; "" if there is none.
std::string Overview::pageFor(const std::string& path, ArchiveReader& archive,
                              const Result& result) {
    std::string name = pageNameOf(path);
    if (!pages_.insert(canonical(name)).second) {
        return "";  // it is the page of another row, or the overview
    }
    OutputFile page;
    if (isRegular(name) ||
        (page.open(name) && writePageFile(page, archive, result, limit_) && page.commit())) {
        return name;
    }
    return "";
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
        return row.state == OverviewState::DAMAGED || row.state == OverviewState::UNREADABLE;
    });
}
