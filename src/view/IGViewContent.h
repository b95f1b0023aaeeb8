// The contents of the items in a page: one stream of bytes, cut into chunks that are compressed one
// by one, so that a browser needs to open only those that hold an item.
#ifndef QUENDIL_VIEW_IGVIEWCONTENT_H
#define QUENDIL_VIEW_IGVIEWCONTENT_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "companion/IGArchive.h"
#include "view/IGViewResult.h"

/// Bytes of the stream in each chunk but the last.
inline constexpr std::size_t CHUNK_BYTES = std::size_t{512} * 1024;

/// What the stream has of one item: all of it, or its two ends. The items follow one another in the
/// order of Result::items.
struct ItemContent {
    std::uint64_t head = 0;           // bytes from its beginning
    std::uint64_t skipped = 0;        // bytes that the stream lacks
    std::uint64_t skipped_lines = 0;  // line feeds in them, known after writeContents
    std::uint64_t tail = 0;           // bytes to its end; 0 unless bytes are skipped
};

/// Chooses what is shown: if all items are larger than the limit, the largest ones lose their
/// middle, as many bytes as needed.
/// @param limit bytes of content in the page
std::vector<ItemContent> planContents(const Result& result, std::uint64_t limit);

/// Reads the archive a second time and calls `chunk` for every chunk, compressed in the format of
/// gzip (RFC 1952). An item that has changed since the plan, as in a directory, is cut to its
/// planned size or filled with blanks.
/// @return false if `chunk` has returned false
bool writeContents(ArchiveReader& archive, const Result& result, std::vector<ItemContent>& contents,
                   const std::function<bool(std::string_view)>& chunk);

#endif
