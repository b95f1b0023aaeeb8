#include "view/IGViewPageFile.h"

#include <filesystem>
#include <string_view>
#include <system_error>
#include <vector>

#include "view/IGViewContent.h"
#include "view/IGViewPage.h"

namespace {

std::string withoutSlashes(std::string path) {
    while (path.size() > 1 && path.ends_with("/")) {
        path.pop_back();
    }
    return path;
}

// "." and ".." name a directory by its place.
bool hasName(const std::string& path) {
    const std::string last = path.substr(path.rfind('/') + 1);
    return last != "." && last != "..";
}

}  // namespace

std::string pageNameOf(const std::string& path) {
    std::string name = withoutSlashes(path);
    std::error_code error;
    if (!hasName(name)) {
        const std::filesystem::path directory = std::filesystem::canonical(name, error);
        name = error ? name : directory.string();
    }
    for (const std::string_view end : {".gz", ".tar"}) {
        if (name.ends_with(end)) {
            name.resize(name.size() - end.size());
        }
    }
    return name + ".html";
}

bool writePageFile(OutputFile& page, ArchiveReader& archive, const Result& result,
                   std::uint64_t limit) {
    std::vector<ItemContent> contents = planContents(result, limit);
    const auto sink = [&](std::string_view bytes) { return page.write(bytes); };
    const auto write_contents = [&](const Sink& chunk) {
        return writeContents(archive, result, contents, chunk);
    };
    return writePage(result, contents, write_contents, sink);
}
