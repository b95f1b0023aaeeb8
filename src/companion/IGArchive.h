// Reads the result of a run: an archive of tar, compressed by gzip or not, or a directory that was
// not packed. Nothing is unpacked.
#ifndef QUENDIL_COMPANION_IGARCHIVE_H
#define QUENDIL_COMPANION_IGARCHIVE_H

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <memory>
#include <span>
#include <string>

enum class MemberKind : std::uint8_t { REGULAR, DIRECTORY, LINK, OTHER };

/// A member of an archive. The names are those of the archive, byte for byte: they may contain
/// "..", begin with a slash, and hold any byte but NUL.
struct Member {
    std::string name;
    std::string link_target;  // of a symbolic or hard link
    std::string problem;      // why it cannot be read; only in a directory
    MemberKind kind = MemberKind::REGULAR;
    std::uint64_t size = 0;  // bytes, as the archive says before its content is read
    std::time_t modified = 0;
};

enum class ArchiveForm : std::uint8_t { COMPRESSED, TAR, DIRECTORY };

class ArchiveReader {
  public:
    enum class Step : std::uint8_t {
        MEMBER,  // there is one
        END,     // the archive is complete
        BROKEN   // it ends early or is damaged here; error() says how
    };

    ArchiveReader() = default;
    virtual ~ArchiveReader() = default;
    ArchiveReader(const ArchiveReader&) = delete;
    ArchiveReader& operator=(const ArchiveReader&) = delete;

    /// Goes to the next member, whether the content of the current one was read or not.
    virtual Step next(Member& member) = 0;
    /// Reads content of the current member.
    /// @return bytes; 0 at its end, and -1 where it cannot be read further
    virtual std::ptrdiff_t read(std::span<char> buffer) = 0;
    /// Goes back to the first member: of the same file, even if its name is now that of another
    /// one.
    /// @return false after an error
    virtual bool rewind() = 0;

    [[nodiscard]] virtual ArchiveForm form() const = 0;
    /// The bytes of the archive's file; 0 for a directory.
    [[nodiscard]] virtual std::uint64_t bytes() const = 0;
    /// Why the last step or read has failed.
    [[nodiscard]] const std::string& error() const { return error_; }

  protected:
    std::string error_;
};

/// Opens a result.
/// @param follow_links whether links in a directory are read as the files that they lead to: those
/// of
///        the collector lead to files of its machine, others may lead to any file
/// @param why it cannot be opened, or is no archive; set with a null result
std::unique_ptr<ArchiveReader> openArchive(const std::string& path, bool follow_links,
                                           std::string& why);

#endif
