#include "view/IGViewPageFile.h"

#include <string_view>
#include <vector>

#include "view/IGViewContent.h"
#include "view/IGViewPage.h"

std::string pageNameOf(const std::string& path) {
    std::string name = path;
    while (name.size() > 1 && name.ends_with("/")) {
        name.pop_back();
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
    return writePage(result, contents, write_contents, sink) && page.commit();
}
