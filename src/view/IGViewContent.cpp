#include "view/IGViewContent.h"

#include <algorithm>
#include <array>
#include <unordered_set>

#include "view/IGViewGzip.h"
#include "view/IGViewScan.h"

namespace {

constexpr std::size_t BLOCK_BYTES = std::size_t{256} * 1024;

// The largest number of bytes for each item such that all together are within the limit.
std::uint64_t shareOf(const Result& result, std::uint64_t limit) {
    std::vector<std::uint64_t> sizes;
    for (const Item& item : result.items) {
        if (item.size > 0) {
            sizes.push_back(item.size);
        }
    }
    std::sort(sizes.begin(), sizes.end());
    std::uint64_t left = limit;
    for (std::size_t at = 0; at < sizes.size(); ++at) {
        const std::uint64_t share = left / (sizes.size() - at);
        if (sizes[at] > share) {
            return share;
        }
        left -= sizes[at];
    }
    return limit;
}

// Collects the stream and gives its chunks.
class ChunkWriter {
  public:
    ChunkWriter(const std::function<bool(std::string_view)>& chunk, int level)
        : chunk_(chunk), compressor_(level) {
        bytes_.reserve(CHUNK_BYTES);
    }

    void add(std::string_view piece) {
        while (good_ && !piece.empty()) {
            const std::size_t length = std::min(piece.size(), CHUNK_BYTES - bytes_.size());
            bytes_.append(piece.substr(0, length));
            piece.remove_prefix(length);
            if (bytes_.size() == CHUNK_BYTES) {
                flush();
            }
        }
    }

    void fill(std::uint64_t count) {
        constexpr std::string_view BLANKS = "                                ";
        for (; good_ && count > 0; count -= std::min<std::uint64_t>(count, BLANKS.size())) {
            add(BLANKS.substr(0, static_cast<std::size_t>(count)));
        }
    }

    void flush() {
        if (good_ && !bytes_.empty()) {
            const std::string_view compressed = compressor_.compressed(bytes_);
            good_ = !compressed.empty() && chunk_(compressed);
            bytes_.clear();
        }
    }

    [[nodiscard]] bool good() const { return good_; }

  private:
    const std::function<bool(std::string_view)>& chunk_;
    Compressor compressor_;
    std::string bytes_;
    bool good_ = true;
};

// Passes on the two ends of one item.
class EndsFilter {
  public:
    EndsFilter(ItemContent& content, ChunkWriter& out)
        : content_(content), out_(out), left_{content.head, content.skipped, content.tail} {}

    void add(std::string_view piece) {
        out_.add(take(piece, 0));
        const std::string_view skipped = take(piece, 1);
        content_.skipped_lines +=
            static_cast<std::uint64_t>(std::count(skipped.begin(), skipped.end(), '\n'));
        out_.add(take(piece, 2));
    }

    void finish() { out_.fill(left_[0] + left_[2]); }

  private:
    std::string_view take(std::string_view& piece, std::size_t part) {
        const std::size_t length =
            static_cast<std::size_t>(std::min<std::uint64_t>(piece.size(), left_.at(part)));
        const std::string_view taken = piece.substr(0, length);
        piece.remove_prefix(length);
        left_.at(part) -= length;
        return taken;
    }

    ItemContent& content_;
    ChunkWriter& out_;
    std::array<std::uint64_t, 3> left_;
};

}  // namespace

std::vector<ItemContent> planContents(const Result& result, std::uint64_t limit) {
    const std::uint64_t share = shareOf(result, limit);
    std::vector<ItemContent> contents;
    contents.reserve(result.items.size());
    for (const Item& item : result.items) {
        ItemContent content;
        content.head = item.size;
        if (item.size > share) {
            content.head = share - share / 2;
            content.tail = share / 2;
            content.skipped = item.size - share;
        }
        contents.push_back(content);
    }
    return contents;
}

namespace {

// Goes through an archive for the second time, member by member. One that was there the first time
// may be missing, and others may be new, if the archive is a directory.
class SecondPass {
  public:
    SecondPass(ArchiveReader& archive, const Result& result)
        : archive_(archive), result_(result), more_(archive.rewind()) {
        for (const Item& item : result.items) {
            names_.insert(item.name);
        }
    }

    // Passes on the content of an item. They are asked for in the order of the archive.
    void read(const Item& item, EndsFilter& ends, const ChunkWriter& out) {
        if (!held_) {
            hold();
        }
        if (!held_ || name_ != item.name) {
            return;
        }
        held_ = false;
        for (std::uint64_t left = item.size; left > 0 && out.good();) {
            const std::ptrdiff_t got = archive_.read(buffer_);
            if (got <= 0) {
                return;
            }
            const auto length = std::min(left, static_cast<std::uint64_t>(got));
            ends.add({buffer_.data(), static_cast<std::size_t>(length)});
            left -= length;
        }
    }

  private:
    void hold() {
        while (more_ && !held_) {
            more_ = archive_.next(member_) == ArchiveReader::Step::MEMBER;
            name_ = nameInResult(result_.name, member_.name);
            held_ = more_ && names_.contains(name_);
        }
    }

    ArchiveReader& archive_;
    const Result& result_;
    std::unordered_set<std::string_view> names_;
    std::vector<char> buffer_ = std::vector<char>(BLOCK_BYTES);
    Member member_;
    std::string name_;
    bool more_;
    bool held_ = false;  // member_ is the next one to be read
};

// A small page is worth more time: it is sent by mail.
int levelFor(const std::vector<ItemContent>& contents) {
    constexpr std::uint64_t SMALL = std::uint64_t{8} * 1024 * 1024;
    std::uint64_t bytes = 0;
    for (const ItemContent& content : contents) {
        bytes += content.head + content.tail;
    }
    return bytes <= SMALL ? BEST_COMPRESSION : USUAL_COMPRESSION;
}

}  // namespace

bool writeContents(ArchiveReader& archive, const Result& result, std::vector<ItemContent>& contents,
                   const std::function<bool(std::string_view)>& chunk) {
    ChunkWriter out(chunk, levelFor(contents));
    SecondPass pass(archive, result);
    for (std::size_t number = 0; number < contents.size() && out.good(); ++number) {
        EndsFilter ends(contents[number], out);
        pass.read(result.items[number], ends, out);
        ends.finish();
    }
    out.flush();
    return out.good();
}
