// Files and directories: handles, tests, sizes, making, copying and removing. Every failed system
// call is reported (call, path, place) before the function returns its code. Pointers are asserted
// non-null unless said otherwise.
#ifndef QUENDIL_COMMON_FILE_IGCMNFILE_H
#define QUENDIL_COMMON_FILE_IGCMNFILE_H

#include <sys/stat.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "common/base/IGCmnMemory.h"

/// Result of the handle functions after a reported failure: the stream could not be used.
inline constexpr int FILE_FAILED = 17;

/// An open file: the index writer's and the word reader's.
struct IgCmnFileHandle {
    std::FILE* stream;     // null when closed
    memory_pool pool;      // the handle's own, freed on close
    char* name;            // copy of the path it was opened with
    std::int32_t line_no;  // 1 after opening, 0 when closed; the word reader counts it up
    std::int32_t column;   // characters read on the current line
};

/// Clears the handle and opens the file; a file to be written is never reached through a symbolic
/// link. 0; -1 when the name cannot be copied; 17 after reporting "fopen".
int IgCmnFileOpen(IgCmnFileHandle* handle, const char* name, const char* mode);
/// Closes the stream, if any, and frees the handle's pool.
void IgCmnFileClose(IgCmnFileHandle* handle);
/// Flushes: 0 (also for a closed handle), or 17 after reporting "fflush".
int IgCmnFileFlush(IgCmnFileHandle* handle);

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

/// Copies a file with "/bin/cp -p", or with `link` makes the destination a symbolic link to a
/// source that can be opened for reading. An existing destination is replaced only with
/// `overwrite` 1. 1 on success, 0 on failure, unreported: callers have words of their own. A copy
/// ended by SIGINT interrupts the run.
int IgCmnFileCopy(const char* src, const char* dest, int overwrite, int link);

/// 0, or -1 after reporting.
int IgCmnFileChdir(const char* path);

#endif
