// Opening files so that nothing waits, no lock is lost, and what was checked is what is opened.
// Nothing here is reported: errno says what failed.
#ifndef QUENDIL_COMMON_BASE_IGOPEN_H
#define QUENDIL_COMMON_BASE_IGOPEN_H

#include <sys/stat.h>

#include <cstddef>
#include <cstdio>

/// Whether the file is one of our lock files, whatever name it was found by. Such a file is opened
/// only to be locked: closing any descriptor of it drops the lock.
bool isLockFile(const struct stat& st);

/// Opens a stream, close-on-exec, with an fopen mode of "r", "rb", "w" or "a". Opening never waits
/// (a FIFO in the way must not stop the run). `flags` are added to those of open(2). A file that is
/// made has mode 0600. Our own lock files are not read (EACCES): closing them would drop their
/// locks. Null with errno set; reports nothing.
std::FILE* openStream(const char* path, const char* mode, int flags = 0);

/// Reads a line with its line feed, or the next size - 1 bytes of a longer one, and terminates it.
/// Returns its length in bytes, which counts what follows a NUL too; 0 at the end of the file or
/// when reading fails (ferror tells).
std::size_t readTextLine(std::FILE* stream, char* line, std::size_t size);

/// Opens a regular file for reading. Nothing else is ever opened, whatever takes the name
/// meanwhile: opening could wait for ever, wake a device or make it our terminal. Where /proc is
/// not mounted the name has to be opened a second time: another file that has it by then is
/// refused, but only after it was opened. A file that another process holds a lease on is tried
/// again for up to a second.
/// @return the descriptor, close-on-exec; -1 with errno set (ENOTSUP when it is no regular file)
int openForReading(const char* path);

/// The same for a file that was found already.
/// @param found its O_PATH descriptor
/// @param st the status of that descriptor
/// @param path its name
int reopenForReading(int found, const struct stat& st, const char* path);

#endif
