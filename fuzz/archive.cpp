// The reader of archives, and what quendil-report makes of one: the second pass over an archive
// gives exactly the bytes that the first one has counted.
#include "companion/IGArchive.h"

#include <string>

#include "fuzz.h"
#include "view/IGViewContent.h"
#include "view/IGViewScan.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzzStart();
    const FuzzFile input(data, size);
    std::string why;
    const auto archive = openArchive(input.path(), false, why);
    fuzzRequire((archive == nullptr) == !why.empty());
    static const Definitions definitions;
    Result result;
    constexpr std::uint64_t MOST = std::uint64_t{8} * 1024 * 1024;
    if (archive == nullptr || !scanArchive(*archive, definitions, result, nullptr, MOST)) {
        return 0;
    }
    std::uint64_t bytes = 0;
    for (const Item& item : result.items) {
        bytes += item.size;
        fuzzRequire(item.lines <= item.size);
        fuzzRequire(item.record == NONE || item.record < result.records.size());
    }
    fuzzRequire(bytes == result.content_bytes && bytes <= MOST + CHUNK_BYTES);
    fuzzRequire(result.damaged == !result.notices.empty() || result.run.log == NONE);

    constexpr std::uint64_t LIMIT = 1000;
    auto contents = planContents(result, LIMIT);
    std::uint64_t kept = 0;
    for (const ItemContent& content : contents) {
        kept += content.head + content.tail;
    }
    fuzzRequire(kept <= LIMIT);
    std::size_t chunks = 0;
    fuzzRequire(writeContents(*archive, result, contents, [&](std::string_view chunk) {
        ++chunks;
        return !chunk.empty();
    }));
    fuzzRequire(chunks == (kept == 0 ? 0 : 1));
    return 0;
}
