// Warnings that need nothing but the file.
#ifndef QUENDIL_CHECK_IGCHECKWARNING_H
#define QUENDIL_CHECK_IGCHECKWARNING_H

#include <string>

#include "check/IGCheckFile.h"

class Outputs;
struct root_tbl;

/// Adds the warnings about the file, and its outputs to `outputs`.
void warnOfPattern(CheckedFile& file, const root_tbl& root, Outputs& outputs);

/// The same for a configuration file.
void warnOfConfiguration(CheckedFile& file);

/// Whether a file name looks like the backup of an editor or the leftover of a package manager.
bool isLeftover(const std::string& name);

#endif
