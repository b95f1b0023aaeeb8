// Operations on paths as texts.
#ifndef QUENDIL_COMMON_FILE_IGCMNPATH_H
#define QUENDIL_COMMON_FILE_IGCMNPATH_H

#include <cstddef>

#include "common/base/IGCmnMemory.h"

// All returned strings are blocks of the caller's pool. Pointers are asserted non-null unless said
// otherwise; 0 is success, -1 a memory or conversion failure (reported).

/// Splits at the last "/": `directory` is the part before it (empty for "/name"), `file` the part
/// after it. Without a slash, `directory` is the whole text and `file` is null, so callers find the
/// name of a bare file in `directory`. Either output may be null when not needed.
int IgCmnFileSplitPath(const char* path_name, char** directory, char** file, memory_pool* memoryp);

/// Returns the buffer with the current directory, or null after reporting. `size` in bytes; callers
/// pass PATH_MAX or one more.
char* IgCmnFileGetCwd(char* buffer, std::size_t size);

/// Makes the path absolute with the current directory, without empty and "." components and without
/// a trailing slash; ".." removes the component before it and stops at "/". Works on bytes and
/// follows no symlinks.
int IgCmnFileNormPath(memory_pool* memoryp, const char* path, char** result);

/// 1 when the path begins with "/", else 0.
int IgCmnIsAbsPath(const char* path);

/// Splits a command line into the command, with its quotes, and the text after the one separator
/// that follows; either is null when there is none.
int IgCmnFileSplitCmdOpt(const char* path_name, char** command, char** options,
                         memory_pool* memoryp);

#endif
