#include "check/IGCheckInput.h"

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>

#include "common/base/IGCmnStr.h"
#include "common/base/IGCmnSystem.h"
#include "common/base/IGGuards.h"
#include "common/file/IGSource.h"
#include "companion/IGText.h"

std::string installedPatterns() {
    std::array<char, PATH_MAX> path{};
    IgCmnGetKestrumPtnDir(path.data(), path.size());
    return path.data();
}

std::string installedConfiguration() {
    std::array<char, PATH_MAX> path{};
    IgCmnGetKestrumConfigFile(path.data(), path.size());
    return path.data();
}

std::string nameOf(const std::string& path) {
    return lastComponent(path.c_str());
}

void complain(const std::string& path, const std::string& what) {
    complain("quendil-check", path, what);
}

bool readDirectory(const std::string& path, PatternDirectory& directory) {
    const DirGuard dir(::opendir(path.c_str()));
    if (!dir) {
        complain(path, std::strerror(errno));
        return false;
    }
    const std::string prefix = path.ends_with("/") ? path : path + "/";
    errno = 0;
    while (const struct dirent* entry = ::readdir(dir.get())) {
        const std::string name = entry->d_name;
        struct stat st = {};
        if (name == "." || name == "..") {
            continue;
        }
        const bool found = ::stat((prefix + name).c_str(), &st) == 0;
        if (!found && leadsNowhere(errno)) {
            directory.dangling.push_back(prefix + name);
        } else if (!S_ISDIR(st.st_mode)) {
            directory.files.push_back(prefix + name);
        }
        errno = 0;
    }
    if (errno != 0) {
        complain(path, std::strerror(errno));
        return false;
    }
    std::sort(directory.files.begin(), directory.files.end());
    std::sort(directory.dangling.begin(), directory.dangling.end());
    return true;
}

void complainOfLinks(const PatternDirectory& directory) {
    for (const std::string& link : directory.dangling) {
        complain(link, ruleOf(Warning::LINK_DANGLING).text);
    }
}

std::unique_ptr<CheckedFile> readFile(const std::string& path, FileKind kind, root_tbl& root) {
    auto file = std::make_unique<CheckedFile>();
    const bool is_input = path == STANDARD_INPUT;
    file->name = is_input ? "<stdin>" : path;
    file->kind = kind;
    file->installed = !is_input && (path == installedConfiguration() ||
                                    path.starts_with(installedPatterns() + "/"));
    std::string reason;
    if (!(is_input ? file->source.openStandardInput() : file->source.open(path.c_str()))) {
        reason = file->source.error();
    } else if (readChecked(*file, root, reason)) {
        return file;
    }
    complain(file->name, reason);
    return nullptr;
}
