// Warnings that need nothing but the file.
#ifndef QUENDIL_CHECK_IGCHECKWARNING_H
#define QUENDIL_CHECK_IGCHECKWARNING_H

#include <string>
#include <unordered_map>

#include "check/IGCheckFile.h"

struct root_tbl;

/// The files that tools write, of all patterns that are checked together: patterns with the same
/// targets share a directory. The value says which tool writes the file.
using Outputs = std::unordered_map<std::string, std::string>;

/// Adds the warnings about the file, and its outputs to `outputs`.
void warnOfPattern(CheckedFile& file, const root_tbl& root, Outputs& outputs);

/// The same for a configuration file.
void warnOfConfiguration(CheckedFile& file);

/// Whether a file name looks like the backup of an editor or the leftover of a package manager.
bool isLeftover(const std::string& name);

#endif
