#include "companion/IGArchive.h"

#include <archive.h>
#include <archive_entry.h>
#include <fcntl.h>
#include <fts.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <utility>

#include "common/base/IGGuards.h"
#include "common/base/IGOpen.h"
#include "companion/IGInput.h"

namespace {

constexpr std::size_t BLOCK_BYTES = std::size_t{256} * 1024;

std::string textOf(const char* text) {
    return text == nullptr ? "" : text;
}

MemberKind kindOf(mode_t mode) {
    switch (mode & S_IFMT) {
        case S_IFREG:
            return MemberKind::REGULAR;
        case S_IFDIR:
            return MemberKind::DIRECTORY;
        case S_IFLNK:
            return MemberKind::LINK;
        default:
            return MemberKind::OTHER;
    }
}

// Gives the bytes of a file, decompressed if it is one of gzip. libarchive could do that too, but
// it does not verify the checksum at the end, and a damaged archive would pass for a good one.
class InflatedFile {
  public:
    explicit InflatedFile(int fd) : fd_(fd) {}
    ~InflatedFile() { endStream(); }
    InflatedFile(const InflatedFile&) = delete;
    InflatedFile& operator=(const InflatedFile&) = delete;

    // Goes to the beginning of the file, and finds out what it is. False after an error.
    bool begin() {
        endStream();
        error_.clear();
        ended_ = false;
        input_ = {};
        if (::lseek(fd_.get(), 0, SEEK_SET) != 0 || !fill()) {
            return false;
        }
        compressed_ = input_.starts_with(MAGIC);
        return !compressed_ || beginStream();
    }

    // The next bytes, in `block`: their number, 0 at the end, -1 after an error.
    std::ptrdiff_t read(std::string_view& block) {
        return compressed_ ? inflated(block) : plain(block);
    }

    [[nodiscard]] bool compressed() const { return compressed_; }
    [[nodiscard]] const std::string& error() const { return error_; }

  private:
    bool fail(const char* why) {
        error_ = why;
        return false;
    }

    // Reads a block of the file, after all input was used. At its end, input_ stays empty.
    bool fill() {
        bytes_.resize(BLOCK_BYTES);
        ssize_t got = 0;
        do {
            got = ::read(fd_.get(), bytes_.data(), bytes_.size());
        } while (got < 0 && errno == EINTR);
        if (got < 0) {
            return fail(std::strerror(errno));
        }
        input_ = std::string_view(bytes_.data(), static_cast<std::size_t>(got));
        return true;
    }

    bool beginStream() {
        constexpr int GZIP_ONLY = 16;  // zlib's flag, beside the size of the window
        stream_ = {};
        in_stream_ = ::inflateInit2(&stream_, MAX_WBITS + GZIP_ONLY) == Z_OK;
        return in_stream_ || fail("memory ran out");
    }

    void endStream() {
        if (in_stream_) {
            ::inflateEnd(&stream_);
        }
        in_stream_ = false;
    }

    // gzip takes files that were appended to each other for one. What else follows, such as
    // padding, belongs to nothing.
    bool beginNextStream() {
        if (input_.empty() && !fill()) {
            return false;
        }
        ended_ = input_.empty() || input_.front() != MAGIC.front();
        return !ended_ && ::inflateReset(&stream_) == Z_OK;
    }

    std::ptrdiff_t plain(std::string_view& block) {
        if (input_.empty() && !fill()) {
            return -1;
        }
        block = input_;
        input_ = {};
        return static_cast<std::ptrdiff_t>(block.size());
    }

    std::ptrdiff_t inflated(std::string_view& block) {
        output_.resize(BLOCK_BYTES);
        stream_.next_out = reinterpret_cast<Bytef*>(output_.data());
        stream_.avail_out = BLOCK_BYTES;
        while (!ended_ && error_.empty() && stream_.avail_out > 0) {
            if (input_.empty() && (!fill() || (input_.empty() && !fail("it ends early")))) {
                break;
            }
            if (!step()) {
                break;
            }
        }
        block = std::string_view(output_.data(), BLOCK_BYTES - stream_.avail_out);
        // What precedes a damaged place is given first.
        return block.empty() && !error_.empty() ? -1 : static_cast<std::ptrdiff_t>(block.size());
    }

    bool step() {
        // zlib does not change its input, but has no const for it.
        stream_.next_in = reinterpret_cast<Bytef*>(bytes_.data() + (input_.data() - bytes_.data()));
        stream_.avail_in = static_cast<uInt>(input_.size());
        const int result = ::inflate(&stream_, Z_NO_FLUSH);
        input_.remove_prefix(input_.size() - stream_.avail_in);
        if (result == Z_STREAM_END) {
            return beginNextStream();
        }
        return result == Z_OK || result == Z_BUF_ERROR ||
               fail(stream_.msg == nullptr ? "it is damaged" : stream_.msg);
    }

    static constexpr std::string_view MAGIC = "\x1f\x8b";  // RFC 1952

    FdGuard fd_;
    std::string bytes_;       // of the file
    std::string_view input_;  // those that were not used yet
    std::string output_;
    std::string error_;
    z_stream stream_ = {};
    bool compressed_ = false;
    bool in_stream_ = false;  // stream_ must be ended
    bool ended_ = false;
};

// A tar archive, compressed by gzip or not.
class TarReader final : public ArchiveReader {
  public:
    TarReader(int fd, std::uint64_t bytes) : file_(fd), bytes_(bytes) {}
    ~TarReader() override { close(); }
    TarReader(const TarReader&) = delete;
    TarReader& operator=(const TarReader&) = delete;

    Step next(Member& member) override {
        struct archive_entry* entry = nullptr;
        const int result = ::archive_read_next_header(archive_, &entry);
        if (result == ARCHIVE_EOF) {
            return endsEarly() || !readsToEnd() ? broken() : Step::END;
        }
        if (!isGood(result)) {
            return broken();
        }
        describe(entry, member);
        hole_ = position_ = 0;
        block_ = {};
        return Step::MEMBER;
    }

    // By blocks: a call for a buffer's worth of data would lose what precedes a damaged place.
    std::ptrdiff_t read(std::span<char> buffer) override {
        while (hole_ == 0 && block_.empty()) {
            const void* data = nullptr;
            std::size_t size = 0;
            la_int64_t offset = 0;
            const int result = ::archive_read_data_block(archive_, &data, &size, &offset);
            if (!isGood(result) && result != ARCHIVE_EOF) {
                broken();
                return -1;
            }
            if (result == ARCHIVE_EOF && offset <= position_) {
                return 0;
            }
            // A sparse file may end with a hole.
            block_ =
                std::string_view(static_cast<const char*>(data), result == ARCHIVE_EOF ? 0 : size);
            hole_ = offset > position_ ? offset - position_ : 0;  // of a sparse file
            position_ = std::max(position_, offset) + static_cast<la_int64_t>(block_.size());
        }
        return static_cast<std::ptrdiff_t>(hole_ > 0 ? fillHole(buffer) : copyBlock(buffer));
    }

    bool rewind() override {
        close();
        given_ = 0;
        last_ = {};
        return open();
    }

    // Opens the archive and looks at its beginning.
    bool open() {
        archive_ = ::archive_read_new();
        if (archive_ == nullptr || !file_.begin()) {
            error_ = archive_ == nullptr ? "memory ran out" : file_.error();
            return false;
        }
        ::archive_read_support_format_tar(archive_);
        if (::archive_read_open(archive_, this, nullptr, give, nullptr) == ARCHIVE_OK) {
            return true;
        }
        broken();
        return false;
    }

    [[nodiscard]] ArchiveForm form() const override {
        return file_.compressed() ? ArchiveForm::COMPRESSED : ArchiveForm::TAR;
    }
    [[nodiscard]] std::uint64_t bytes() const override { return bytes_; }

  private:
    // libarchive skips a damaged header, and would take the content that follows for headers.
    static bool isGood(int result) { return result == ARCHIVE_OK || result == ARCHIVE_WARN; }

    std::size_t fillHole(std::span<char> buffer) {
        const auto size = std::min(buffer.size(), static_cast<std::size_t>(hole_));
        std::fill_n(buffer.begin(), size, '\0');
        hole_ -= static_cast<la_int64_t>(size);
        return size;
    }

    std::size_t copyBlock(std::span<char> buffer) {
        const std::size_t size = block_.copy(buffer.data(), buffer.size());
        block_.remove_prefix(size);
        return size;
    }

    static la_ssize_t give(struct archive* archive, void* reader, const void** block) {
        auto& self = *static_cast<TarReader*>(reader);
        const std::ptrdiff_t got = self.file_.read(self.last_);
        *block = self.last_.data();
        if (got < 0) {
            ::archive_set_error(archive, EIO, "%s", self.file_.error().c_str());
            return ARCHIVE_FATAL;
        }
        self.given_ += static_cast<std::uint64_t>(got);
        return self.given_ > MOST_TAR_BYTES ? ARCHIVE_FATAL : got;
    }

    // Sets the error: why the file cannot be read, or why it is no archive.
    Step broken() {
        const char* text = ::archive_error_string(archive_);
        error_ = text == nullptr ? "it ends early" : text;
        if (!file_.error().empty()) {
            error_ = file_.error();
        } else if (given_ > MOST_TAR_BYTES) {
            error_ = "it unpacks to more than " + std::to_string(MOST_TAR_BYTES) + " bytes";
        }
        return Step::BROKEN;
    }

    // libarchive takes the end of the file for the end of the archive: a tar that was cut between
    // two members lacks the block of zeros there.
    [[nodiscard]] bool endsEarly() const {
        return ::archive_read_header_position(archive_) >= ::archive_filter_bytes(archive_, 0);
    }

    // After the members there are only zeros; the checksum of gzip is after the last one. A header
    // that was overwritten by zeros would look like the end, and hide all that follows.
    bool readsToEnd() {
        const auto end = static_cast<std::uint64_t>(::archive_read_header_position(archive_));
        const std::uint64_t begin = given_ - last_.size();  // of the last block
        std::string_view block = last_.substr(std::min(end - std::min(end, begin), last_.size()));
        std::uint64_t left = MOST_AFTER_END;
        std::ptrdiff_t got = 1;
        while (got > 0) {
            if (block.find_first_not_of('\0') != std::string_view::npos || block.size() > left) {
                ::archive_set_error(archive_, EINVAL, "it goes on after its end");
                return false;
            }
            left -= block.size();
            got = file_.read(block);
        }
        return got == 0;
    }

    static void describe(struct archive_entry* entry, Member& member) {
        member.name = textOf(::archive_entry_pathname(entry));
        const char* hard_link = ::archive_entry_hardlink(entry);
        member.kind =
            hard_link != nullptr ? MemberKind::LINK : kindOf(::archive_entry_filetype(entry));
        member.link_target =
            hard_link != nullptr ? hard_link : textOf(::archive_entry_symlink(entry));
        const la_int64_t size = ::archive_entry_size(entry);
        member.size = size < 0 ? 0 : static_cast<std::uint64_t>(size);
        member.modified = ::archive_entry_mtime(entry);
    }

    void close() {
        if (archive_ != nullptr) {
            ::archive_read_free(archive_);
        }
        archive_ = nullptr;
    }

    // A file of some megabytes can unpack to terabytes: of members that are skipped, or of zeros
    // at the end, where tar pads an archive to 10 KiB.
    static constexpr std::uint64_t MOST_TAR_BYTES = std::uint64_t{16} * 1024 * 1024 * 1024;
    static constexpr std::uint64_t MOST_AFTER_END = std::uint64_t{64} * 1024 * 1024;

    InflatedFile file_;
    std::uint64_t bytes_;
    struct archive* archive_ = nullptr;
    std::string_view last_;    // of the bytes of the tar, those that libarchive was given last
    std::uint64_t given_ = 0;  // all of them
    std::string_view block_;   // of the current member, what was not read yet
    la_int64_t hole_ = 0;      // zeros before it
    la_int64_t position_ = 0;  // in the member, after it
};

// A directory that was not packed. Its members are sorted, so that equal trees give equal results.
class DirectoryReader final : public ArchiveReader {
  public:
    DirectoryReader(std::string path, bool follow_links)
        : path_(std::move(path)), follow_links_(follow_links) {}
    ~DirectoryReader() override { close(); }
    DirectoryReader(const DirectoryReader&) = delete;
    DirectoryReader& operator=(const DirectoryReader&) = delete;

    Step next(Member& member) override {
        file_.reset();
        for (;;) {
            errno = 0;
            FTSENT* entry = ::fts_read(tree_);
            if (entry == nullptr) {
                error_ = std::strerror(errno);
                return errno == 0 ? Step::END : Step::BROKEN;
            }
            // A directory is a member before its entries only.
            if (entry->fts_info != FTS_DP && (entry->fts_info != FTS_DNR || !told_)) {
                describe(*entry, member);
                return Step::MEMBER;
            }
        }
    }

    std::ptrdiff_t read(std::span<char> buffer) override {
        if (!file_) {
            return 0;
        }
        const ssize_t got = ::read(file_.get(), buffer.data(), buffer.size());
        if (got < 0) {
            error_ = std::strerror(errno);
        }
        return got;
    }

    bool rewind() override {
        close();
        return open();
    }

    bool open() {
        root_.reset(::open(path_.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
        std::array<char*, 2> paths{path_.data(), nullptr};
        // The path itself may be a link; below it, none is followed.
        tree_ = ::fts_open(paths.data(), FTS_PHYSICAL | FTS_COMFOLLOW | FTS_NOCHDIR, byName);
        if (tree_ == nullptr || !root_) {
            error_ = std::strerror(errno);
        }
        return tree_ != nullptr && root_;
    }

    [[nodiscard]] ArchiveForm form() const override { return ArchiveForm::DIRECTORY; }
    [[nodiscard]] std::uint64_t bytes() const override { return 0; }

  private:
    static int byName(const FTSENT** one, const FTSENT** other) {
        return std::strcmp((*one)->fts_name, (*other)->fts_name);
    }

    void describe(const FTSENT& entry, Member& member) {
        struct stat st = {};
        member.problem = entry.fts_errno == 0 ? "" : std::strerror(entry.fts_errno);
        if (entry.fts_info != FTS_NS) {
            st = *entry.fts_statp;
        }
        const bool follows = S_ISLNK(st.st_mode) && follow_links_;
        member.link_target = S_ISLNK(st.st_mode) ? targetOf(entry) : "";
        if (S_ISREG(st.st_mode) || follows) {
            openFile(entry, follows, st, member.problem);
        }
        told_ = entry.fts_info == FTS_D && !isReadable(belowRoot(entry), member.problem);
        member.name = std::string(entry.fts_path).substr(prefix());
        member.kind = kindOf(st.st_mode);
        member.size = S_ISREG(st.st_mode) ? static_cast<std::uint64_t>(st.st_size) : 0;
        member.modified = st.st_mtime;
    }

    // What is no file is not opened: a FIFO could block, and opening some devices does something.
    void openFile(const FTSENT& entry, bool follows, struct stat& st, std::string& problem) {
        FdGuard directory;
        const std::string name = descend(belowRoot(entry), directory);
        const int flags = O_PATH | O_CLOEXEC | (follows ? 0 : O_NOFOLLOW);
        const FdGuard found(directory ? ::openat(directory.get(), name.c_str(), flags) : -1);
        struct stat found_st = {};
        if (!found || ::fstat(found.get(), &found_st) != 0) {
            problem = std::strerror(errno);
            return;
        }
        if (!S_ISREG(found_st.st_mode)) {
            return;
        }
        st = found_st;
        file_.reset(reopenForReading(found.get(), found_st, entry.fts_path));
        if (!file_) {
            problem = std::strerror(errno);
        }
    }

    bool isReadable(std::string_view path, std::string& problem) {
        FdGuard directory;
        const std::string name = descend(path, directory);
        const int flags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
        const FdGuard opened(directory ? ::openat(directory.get(), name.c_str(), flags) : -1);
        problem = opened ? "" : std::strerror(errno);
        return bool(opened);
    }

    // Opens the directory of a path, and returns the last component. By its path alone, a directory
    // that was replaced by a link since it was listed would lead to a file outside of the tree.
    std::string descend(std::string_view path, FdGuard& directory) const {
        const std::size_t slash = path.rfind('/');
        const bool is_deeper = slash != std::string_view::npos;
        directory.reset(openDirectoryBelow(root_.get(), is_deeper ? path.substr(0, slash) : ""));
        return std::string(is_deeper ? path.substr(slash + 1) : path);
    }

    // The path of an entry, relative to the root.
    [[nodiscard]] std::string_view belowRoot(const FTSENT& entry) const {
        std::string_view path(entry.fts_path, entry.fts_pathlen);
        path.remove_prefix(std::min(path.size(), path_.size()));
        path.remove_prefix(path.starts_with('/') ? 1 : 0);
        return path.empty() ? "." : path;
    }

    static std::string targetOf(const FTSENT& entry) {
        std::array<char, PATH_MAX> target{};
        const ssize_t length = ::readlink(entry.fts_accpath, target.data(), target.size());
        return length < 0 ? "" : std::string(target.data(), static_cast<std::size_t>(length));
    }

    // The directory's own name is the first component of every name, as in an archive.
    [[nodiscard]] std::size_t prefix() const { return path_.rfind('/') + 1; }

    void close() {
        if (tree_ != nullptr) {
            ::fts_close(tree_);
        }
        tree_ = nullptr;
    }

    std::string path_;  // absolute, without links
    bool follow_links_;
    bool told_ = false;  // that the last directory cannot be read
    FTS* tree_ = nullptr;
    FdGuard root_;
    FdGuard file_;
};

std::unique_ptr<ArchiveReader> openDirectory(const std::string& path, bool follow_links,
                                             std::string& why) {
    char* absolute = ::realpath(path.c_str(), nullptr);
    if (absolute == nullptr) {
        why = std::strerror(errno);
        return nullptr;
    }
    auto reader = std::make_unique<DirectoryReader>(absolute, follow_links);
    std::free(absolute);
    if (!reader->open()) {
        why = reader->error();
        return nullptr;
    }
    return reader;
}

}  // namespace

std::unique_ptr<ArchiveReader> openArchive(const std::string& path, bool follow_links,
                                           std::string& why) {
    // Opening a FIFO must not block.
    FdGuard fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    struct stat st = {};
    if (!fd || ::fstat(fd.get(), &st) != 0) {
        why = std::strerror(errno);
        return nullptr;
    }
    if (S_ISDIR(st.st_mode)) {
        return openDirectory(path, follow_links, why);
    }
    if (!S_ISREG(st.st_mode)) {
        why = "it is neither a file nor a directory";
        return nullptr;
    }
    auto reader = std::make_unique<TarReader>(fd.release(), static_cast<std::uint64_t>(st.st_size));
    if (!reader->open()) {
        why = "it is no tar archive: " + reader->error();
        return nullptr;
    }
    return reader;
}
