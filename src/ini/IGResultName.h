// Paths of the run's result: the output directory, the archives, and which of them belongs to a
// return code.
#ifndef QUENDIL_INI_IGRESULTNAME_H
#define QUENDIL_INI_IGRESULTNAME_H

#include "common/base/IGCmnMemory.h"

struct root_tbl;

/// Name of the output directory and, without -o, of the archive, before its special strings are
/// expanded.
inline constexpr const char* OUTPUT_NAME_TEMPLATE = "%HOST%_%YY%%MM%%DD%%hh%%mm%%ss%";

// Every path is a string of the pool; null when memory runs out (reported).

/// The output directory.
char* outputDirectory(memory_pool* memoryp, const root_tbl& root);
/// The archive without its suffix.
char* archiveBase(memory_pool* memoryp, const root_tbl& root);
/// The archive as tar makes it: `base` with ".tar".
char* tarName(memory_pool* memoryp, const char* base);
/// The archive as gzip leaves it: `base` with ".tar.gz".
char* compressedName(memory_pool* memoryp, const char* base);

/// Path of the result for a return code: the output directory for RETCODE_DIRECTORY, the ".tar"
/// archive for RETCODE_ARCHIVE, else the output file, which is the compressed archive once there is
/// one.
char* resultPath(memory_pool* memoryp, const root_tbl& root, int ret_code);

/// Checks that the archive's names, tarName and compressedName of `base`, are free. Returns 0; 1
/// after ZEPA109-E with the first name that is taken; -1 when memory ran out.
int resultNamesTaken(memory_pool* memoryp, const char* base);

#endif
