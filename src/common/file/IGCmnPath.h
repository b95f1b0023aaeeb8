// Paths as texts, and lists of the paths that a directory or wildcard names.
#ifndef QUENDIL_COMMON_FILE_IGCMNPATH_H
#define QUENDIL_COMMON_FILE_IGCMNPATH_H

#include <dirent.h>
#include <fnmatch.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

#include "common/base/IGCmnMemory.h"

// All strings that come out are blocks of the caller's pool. Pointers are asserted non-null unless
// said otherwise; 0 is success, -1 memory or conversion failure (reported).

/// Splits at the last "/": `directory` is what stands before it (empty for "/name"), `file` what
/// follows. Without a slash the whole text is the `directory` and `file` is null, so the file part
/// of a bare name is taken from the directory. Either output may be null when not wanted.
int IgCmnFileSplitPath(const char* path_name, char** directory, char** file, memory_pool* memoryp);

/// The buffer, or null after reporting. `size` in bytes; callers pass PATH_MAX or one more.
char* IgCmnFileGetCwd(char* buffer, std::size_t size);

/// The path made absolute with the current directory, without empty and "." components and trailing
/// slash; ".." removes the component before it and stops at "/". Works on bytes and resolves no
/// links.
int IgCmnFileNormPath(memory_pool* memoryp, const char* path, char** result);

/// 1 when the path begins with "/", else 0.
int IgCmnIsAbsPath(const char* path);

/// Splits a command line into the command, with its quotes, and everything after the one separator
/// behind it; either is null when there is none.
int IgCmnFileSplitCmdOpt(const char* path_name, char** command, char** options,
                         memory_pool* memoryp);

#endif
