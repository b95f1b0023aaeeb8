// Files and directories: handles, tests, sizes, making, copying and removing. Every failed system
// call is reported (call, path, place) before the function returns its code. Pointers are asserted
// non-null unless said otherwise.
#ifndef QUENDIL_COMMON_IGCMNFILE_H
#define QUENDIL_COMMON_IGCMNFILE_H

#include <sys/stat.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "common/IGCmnMemory.h"

/// Result of the handle functions after a reported failure: the stream could not be used.
inline constexpr int FILE_FAILED = 17;
/// Result of the listing functions: nothing matched, or a reported failure.
inline constexpr int FILE_LIST_FAILED = 9;

/// An open file: the index writer's and the word reader's.
struct IgCmnFileHandle {
    std::FILE* stream;     // null when closed
    memory_pool pool;      // the handle's own, freed on close
    char* name;            // copy of the path it was opened with
    std::int32_t line_no;  // 1 after opening, 0 when closed; the word reader counts it up
    std::int32_t column;   // characters read on the current line
};

/// Opens a stream, close-on-exec, with an fopen mode of "r", "rb", "w" or "a". Opening never waits
/// (a FIFO in the way must not stop the run). `flags` are added to those of open(2). A file that is
/// made has mode 0600. Our own lock files are not read (EACCES): closing them would drop their
/// locks. Null with errno set; reports nothing.
std::FILE* IgCmnFileOpenStream(const char* path, const char* mode, int flags = 0);

/// Reads a line with its line feed, or the next size - 1 bytes of a longer one, and terminates it.
/// Returns its length in bytes, which counts what follows a NUL too; 0 at the end of the file or
/// when reading fails (ferror tells).
std::size_t IgCmnFileReadLine(std::FILE* stream, char* line, std::size_t size);

/// Clears the handle and opens the file; a file to be written is never reached through a symbolic
/// link. 0; -1 when the name cannot be copied; 17 after reporting "fopen".
int IgCmnFileOpen(IgCmnFileHandle* handle, const char* name, const char* mode);
/// Closes the stream, if any, and frees the handle's pool.
void IgCmnFileClose(IgCmnFileHandle* handle);
/// Flushes: 0 (also for a closed handle), or 17 after reporting "fflush".
int IgCmnFileFlush(IgCmnFileHandle* handle);

/// Appends `source` to the buffer at `*destination` of `*size` bytes, which is reallocated to
/// exactly the needed length plus one when it is missing or too small. 0, or -1 when memory runs
/// out.
int concat_data(memory_pool* memoryp, char** destination, std::uint32_t* size, const char* source);

/// 1 when the path exists (links followed), else 0.
int IgCmnFileExists(const char* path);
/// 1 when there is anything of that name, be it a link to nowhere: the name is taken. Else 0.
int IgCmnFileIsTaken(const char* path);
/// 1 when the path exists and is a directory (links followed), else 0.
int IgCmnFileIsDir(const char* path);

/// Makes one directory with mode 0777, whatever the umask. 0, or 1 after reporting.
int IgCmnFileMkdir(const char* path);
/// The same with another mode.
int makeDirectoryWithMode(const char* path, mode_t mode);
/// Makes every missing directory of an absolute path that is followed by a "/", so that a file's
/// path prepares its directories; they get `mode`, whatever the umask. 0, or -1.
int IgCmnFileCreateDirAllPath(const char* dirpath, mode_t mode = 0777);

/// Removes a file or a whole tree with "/bin/rm". 0, or 1 after reporting.
int IgCmnFileRemoveAll(const char* path);

/// Bytes of a file, or of all files below a directory (links followed, each directory entered once;
/// directories themselves count 0). 0 after a reported failure, or the partial sum, as when the run
/// is interrupted meanwhile.
std::int64_t IgCmnFileGetSize(const char* path);
/// The same; 0 without a report when there is no such file.
std::int64_t IgCmnFileSizeIfThere(const char* path);

/// 1 when the owner bits of the file's mode include all of `bits` (such as 0200), and for a
/// directory its owner may also enter it (0100). 0 otherwise. The super user could do all of it
/// anyhow; the bits tell what the owner means to allow.
int IgCmnFileCheckMode(const char* path, std::uint16_t bits);

/// Copies a file with "/bin/cp -p", or with `link` makes the destination a symbolic link to a
/// source that can be opened for reading. An existing destination is replaced only with
/// `overwrite` 1. 1 on success, 0 on failure, unreported: callers have words of their own. A copy
/// ended by SIGINT interrupts the run.
int IgCmnFileCopy(const char* src, const char* dest, int overwrite, int link);

/// 0, or -1 after reporting.
int IgCmnFileChdir(const char* path);
/// The buffer, or null after reporting. `size` in bytes; callers pass PATH_MAX or one more.
char* IgCmnFileGetCwd(char* buffer, std::size_t size);

/// Opens a regular file for reading. Anything else is looked at but never opened, whatever takes
/// the name meanwhile: opening could wait for ever, wake a device or become its terminal. The
/// descriptor, close-on-exec, or -1 with errno set (ENOTSUP for what is no regular file); reports
/// nothing. Without a mounted /proc the name has to be opened again: what has taken it since is
/// refused, but only after it was opened.
/// A file that another process holds a lease on is tried again for up to a second.
int IgCmnFileOpenForReading(const char* path);
/// The second half of it, for a file that was looked at already: `looked_at` is its O_PATH
/// descriptor, `st` what fstat(2) says of that, `path` its name.
int openLookedAt(int looked_at, const struct stat& st, const char* path);

#endif
