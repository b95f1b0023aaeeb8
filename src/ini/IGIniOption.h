// The command line.
#ifndef QUENDIL_INI_IGINIOPTION_H
#define QUENDIL_INI_IGINIOPTION_H

#include "common/base/IGCmnList.h"
#include "common/base/IGCmnMemory.h"

struct root_tbl;

/// Results of the command line besides 0 and -1.
inline constexpr int OPTION_ERROR = 6;  ///< reported
inline constexpr int OPTION_HELP = 7;   ///< the usage text was printed

/// Returns 1 when some argument, the command's own name included, equals `ckopt` exactly, else 0.
int IgIniCkOption(int argc, char** argv, const char* ckopt);

/// Prints the usage text when any argument is "-h" or "-H", even one in the place of a value.
/// Returns OPTION_HELP then, else 0.
int IgIniCkHelp(int argc, char** argv);

/// Checks the arguments and stores them in the root table: target and group lists, output base
/// directory, output file, configuration file. Returns 0; OPTION_ERROR after the first error's
/// message; -1 when memory or a conversion failed.
int IgIniOption(int argc, char** argv, memory_pool* memoryp, root_tbl* root);

/// Appends one -g or -t value to the list at `listpp`, making the list first when it is null. A
/// value that begins with "-" is reported as a missing argument of `prevOpt` (ZEPA102-E). The root
/// table is not used. Returns 0, OPTION_ERROR or -1.
int setCollectOptValue(const char* prevOpt, const char* crntValue, memory_pool* memoryp,
                       IgCmnListHeader** listpp, root_tbl* root_tblp);

#endif
