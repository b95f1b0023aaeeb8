// The run's output: its name, directories and removal, and the report of the result.
#ifndef QUENDIL_MAIN_IGMAINOUTPUT_H
#define QUENDIL_MAIN_IGMAINOUTPUT_H

#include "common/base/IGCmnMemory.h"

struct pickptn_tbl;
struct root_tbl;

// Paths are strings of the pool; null or false means a failure that has been reported.

/// Makes the output name unique in the base directory by appending "_N" if it is taken; without -o
/// the archive gets the same name.
bool chooseOutputName(memory_pool* memoryp, root_tbl& root);
/// Makes the output directory under the chosen name and records it (noteOutput). Fails when another
/// user has taken the name meanwhile.
bool makeOutputDirectory(memory_pool* memoryp, root_tbl& root);
/// Makes a directory unless it exists.
bool makeDirectory(const char* path);
/// Returns the directory in the output for the pattern's data, named after its first target;
/// patterns with equal targets share one, a pattern without targets uses the output directory
/// itself.
char* choosePatternDirectory(memory_pool* memoryp, root_tbl& root, pickptn_tbl& ptn);

/// Removes the output directory of a failed run (RETCODE_FAILED), after reporting that (ZEPA212-I),
/// unless it is the last complete copy or is no longer this run's.
void IgMainCleanup();
/// The same without a report and for any return code, if cleanup is ON: for a run that ends because
/// its run log cannot be written.
void IgMainRemoveOutput();

/// Path of the run's result (resultPath); null too if there is no root table yet.
char* IgMainGetOutputPath(memory_pool* memoryp);
/// Writes the result's path to the history log (ZEPA303-I) unless the run failed.
void IgMainHistOutput();
/// Reports the result on the terminal and in the run log: the directory with ZEPA215-I, an archive
/// with ZEPA211-I or ZEPA214-I and its size in bytes; nothing when its size is 0 or unknown.
void IgMainReportOutput();

#endif
