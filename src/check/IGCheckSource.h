// The text of a file that is checked: by lines, without holding the file in memory.
#ifndef QUENDIL_CHECK_IGCHECKSOURCE_H
#define QUENDIL_CHECK_IGCHECKSOURCE_H

#include <sys/types.h>

#include <cstdint>
#include <cstdio>
#include <string>

#include "common/base/IGGuards.h"

/// A file, or the standard input.
class SourceText {
  public:
    /// Opens a regular file for reading; nothing else is opened. The standard input is read into
    /// memory, up to 8 MiB.
    /// @return false with the reason in error()
    bool open(const char* path);
    bool openStandardInput();
    [[nodiscard]] const std::string& error() const { return error_; }

    /// A new stream that reads from an offset, which the caller closes before it asks for another.
    /// Null with errno set.
    std::FILE* streamFrom(off_t offset);
    /// The offset of a line, counted from 1; of the end of the file when there are fewer lines.
    off_t offsetOf(std::int32_t line);
    /// A line without its line feed, at most `most` bytes of it from its byte `first` on.
    std::string line(std::int32_t number, std::size_t first, std::size_t most);
    /// The number of the last line; one more than there are when a line feed ends the file.
    std::int32_t lastLine();
    /// The last line, when no line feed ends it, at most 1 KiB of it; "" else.
    std::string unfinishedLine();

  private:
    bool fail(int error);
    ssize_t readAt(off_t offset, char* buffer, std::size_t size) const;

    FdGuard fd_;
    std::string error_;
    // The line found last: a search for a later one begins there.
    struct Position {
        std::int32_t line = 1;
        off_t offset = 0;
    };
    Position found_;
};

#endif
