// Files and directories: open, check, make, copy and remove. Every failed system call is reported
// (call, path, place) before the function returns its code. Pointers are asserted non-null unless
// said otherwise.
#ifndef QUENDIL_COMMON_FILE_IGCMNFILE_H
#define QUENDIL_COMMON_FILE_IGCMNFILE_H

#include <sys/stat.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "common/base/IGCmnMemory.h"

/// Result of the handle functions after a reported failure of the stream.
inline constexpr int FILE_FAILED = 17;

/// An open file: the index writer and the word reader use it.
struct IgCmnFileHandle {
    std::FILE* stream;     // null when closed
    memory_pool pool;      // owned by the handle, freed on close
    char* name;            // copy of the path it was opened with
    std::int32_t line_no;  // 1 after opening, 0 when closed; the word reader increments it
    std::int32_t column;   // characters read on the current line
};

/// Clears the handle and opens the file; a symlink is never followed to write. 0; -1 when the name
/// cannot be copied; 17 after reporting "fopen".
int IgCmnFileOpen(IgCmnFileHandle* handle, const char* name, const char* mode);
/// Closes the stream, if any, and frees the handle's pool.
void IgCmnFileClose(IgCmnFileHandle* handle);
/// Flushes: 0 (also for a closed handle), or 17 after reporting "fflush".
int IgCmnFileFlush(IgCmnFileHandle* handle);

/// 1 when the path exists (symlinks followed), else 0.
int IgCmnFileExists(const char* path);
/// 1 when the name exists, also as a dangling symlink; else 0.
int IgCmnFileIsTaken(const char* path);
/// 1 when the path exists and is a directory (symlinks followed), else 0.
int IgCmnFileIsDir(const char* path);

/// Makes one directory with mode 0777, regardless of the umask. 0, or 1 after reporting.
int IgCmnFileMkdir(const char* path);
/// The same with another mode.
int makeDirectoryWithMode(const char* path, mode_t mode);
/// Makes every missing directory of an absolute path, up to its last "/", so that a file's path
/// makes the directories above the file. They get `mode`, regardless of the umask. 0, or -1 after
/// reporting; a relative path gives -1 without a report.
int IgCmnFileCreateDirAllPath(const char* dirpath, mode_t mode = 0777);

/// Removes a file or a whole tree with "/bin/rm". 0, or 1 after reporting.
int IgCmnFileRemoveAll(const char* path);

/// Copies a file with "/bin/cp -p"; with `link`, makes the destination a symlink to the source,
/// which must be readable. Replaces an existing destination only with `overwrite` 1. 1 on success,
/// 0 on failure, unreported: callers report it in their own words. A copy ended by SIGINT
/// interrupts the run.
int IgCmnFileCopy(const char* src, const char* dest, int overwrite, int link);

/// Changes the current directory. 0, or -1 after reporting.
int IgCmnFileChdir(const char* path);

#endif
