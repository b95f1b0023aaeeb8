// Where the run's result is: the output directory, the archives, and which of them a return code
// means.
#ifndef QUENDIL_INI_IGRESULTNAME_H
#define QUENDIL_INI_IGRESULTNAME_H

#include "common/base/IGCmnMemory.h"

struct root_tbl;

/// Names the output directory and, without -o, the archive.
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

/// Path of what a return code means: the output directory for RETCODE_DIRECTORY, the ".tar" archive
/// for RETCODE_ARCHIVE, else the output file, which is the compressed archive once there is one.
char* resultPath(memory_pool* memoryp, const root_tbl& root, int ret_code);

/// Whether the names that the archive will have are free: tarName and compressedName of `base`. 0;
/// 1 after ZEPA109-E with the first that is taken; -1 when memory ran out.
int resultNamesTaken(memory_pool* memoryp, const char* base);

#endif
