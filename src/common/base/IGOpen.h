// Opens files so that nothing blocks, no lock is lost, and the file that is opened is the one that
// was checked. Nothing is reported here; errno has the error.
#ifndef QUENDIL_COMMON_BASE_IGOPEN_H
#define QUENDIL_COMMON_BASE_IGOPEN_H

#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>

/// The files that the program locks.
enum LockFile : std::uint8_t {
    LOCK_RUN,      ///< one run at a time
    LOCK_HISTORY,  ///< one writer of the history log at a time
};

/// Records which file a lock's descriptor is of, so that isLockFile needs no system call.
/// @param fd the open lock file; -1 when it was closed for good
void noteLockFile(LockFile which, int fd);

/// Whether the file is one of the program's lock files, under any name. Such a file is opened only
/// to be locked: closing any descriptor of it drops the lock.
bool isLockFile(const struct stat& st);

/// Opens a stream, close-on-exec, with an fopen mode of "r", "rb", "w" or "a". It never waits: a
/// FIFO must not block the run. `flags` are added to those of open(2). A new file gets mode 0600.
/// The program's own lock files are not read (EACCES): closing them would drop the locks. Null with
/// errno set.
std::FILE* openStream(const char* path, const char* mode, int flags = 0);

/// Reads a line with its line feed, or the next size - 1 bytes of a longer one, and terminates it.
/// Returns its length in bytes, including bytes after a NUL; 0 at the end of the file or on a read
/// error (check with ferror).
std::size_t readTextLine(std::FILE* stream, char* line, std::size_t size);

/// Opens a regular file for reading. It never opens another file type, even if the name is replaced
/// meanwhile: opening could block for ever, wake a device or make it the controlling terminal.
/// Without /proc the name must be opened a second time; a replaced file is then refused, but only
/// after it was opened. While another process holds a lease on the file, it retries for up to a
/// second.
/// @return the descriptor, close-on-exec; -1 with errno set (ENOTSUP when it is no regular file)
int openForReading(const char* path);

/// The same for a file that is already found.
/// @param found its O_PATH descriptor, which the caller keeps
/// @param st the status of that descriptor
/// @param path its name
int reopenForReading(int found, const struct stat& st, const char* path);

#endif
