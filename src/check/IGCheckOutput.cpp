#include "check/IGCheckOutput.h"

#include <fnmatch.h>

#include <algorithm>

#include "check/IGCheckTool.h"

namespace {

bool matches(const std::string& path, const std::string& part) {
    return ::fnmatch(path.c_str(), part.c_str(), FNM_NOESCAPE | FNM_PATHNAME) == 0;
}

bool isWildcard(const std::string& path) {
    return path.find_first_of("*?[") != std::string::npos;
}

// Calls `test` with each directory above a file, and with the file, until it returns true.
template <typename Test>
bool anyPart(std::string_view file, Test test) {
    for (std::size_t end = file.find('/', 1);; end = file.find('/', end + 1)) {
        if (test(std::string(file.substr(0, end)))) {
            return true;
        }
        if (end == std::string_view::npos) {
            return false;
        }
    }
}

}  // namespace

bool collects(const std::string& path, std::string_view file) {
    return path == "/" || anyPart(file, [&path](const std::string& part) {
               return part == path || (parentOf(part) == parentOf(path) && matches(path, part));
           });
}

void DataPaths::add(const std::string& path, std::size_t index) {
    last_[path] = index;
    if (isWildcard(path)) {
        wildcards_[parentOf(path)].emplace_back(path, index);
    }
}

bool DataPaths::collectAfter(std::string_view file, std::size_t index) const {
    return anyPart(file, [&](const std::string& part) {
        const auto same = last_.find(part);
        if (same != last_.end() && same->second > index) {
            return true;
        }
        const auto near = wildcards_.find(parentOf(part));
        return near != wildcards_.end() &&
               std::any_of(near->second.rbegin(), near->second.rend(), [&](const auto& wildcard) {
                   return wildcard.second > index && matches(wildcard.first, part);
               });
    });
}

std::size_t Outputs::directoryOf(const std::string& targets) {
    return directories_.emplace(targets, directories_.size() + 1).first->second;
}

const std::string* Outputs::add(std::size_t directory, const std::string& path,
                                const std::string& where) {
    const auto [known, is_new] = files_.emplace(std::to_string(directory) + ":" + path, where);
    return is_new || known->second == where ? nullptr : &known->second;
}
