// The run's output: its name and directories, its removal, and the result that is left.
#ifndef QUENDIL_MAIN_IGMAINOUTPUT_H
#define QUENDIL_MAIN_IGMAINOUTPUT_H

#include "common/base/IGCmnMemory.h"

struct pickptn_tbl;
struct root_tbl;

// Paths are strings of the pool; null or false means a failure that has been reported.

/// Makes the output name unique in the base directory with "_N" where it is taken; without -o the
/// archive gets the same name.
bool chooseOutputName(memory_pool* memoryp, root_tbl& root);
/// Makes the directory under the name just found free. Somebody else's that has appeared meanwhile
/// is not taken.
bool makeOutputDirectory(memory_pool* memoryp, root_tbl& root);
/// Makes a directory unless it is there.
bool makeDirectory(const char* path);
/// The directory in the output that takes the pattern's data, named after its first target;
/// patterns with equal targets share one, a pattern without any uses the output directory itself.
char* choosePatternDirectory(memory_pool* memoryp, const root_tbl& root, pickptn_tbl& ptn);

/// Removes the output directory of a run that failed, after saying so (ZEPA212-I).
void IgMainCleanup();
/// Removes the output directory when cleanup is ON; for a run that ends because its run log cannot
/// be written.
void IgMainRemoveOutput();

/// Path of what the run leaves (resultPath); null too before there is a root table.
char* IgMainGetOutputPath(memory_pool* memoryp);
/// Writes the result's path to the history log (ZEPA303-I) unless the run failed.
void IgMainHistOutput();
/// Names the result on the terminal and in the run log: ZEPA215-I, or ZEPA211-I and ZEPA214-I with
/// its size; nothing when it has none.
void IgMainReportOutput();

#endif
