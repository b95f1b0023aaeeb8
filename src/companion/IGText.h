// Texts that the companion commands show.
#ifndef QUENDIL_COMPANION_IGTEXT_H
#define QUENDIL_COMPANION_IGTEXT_H

#include <cstddef>
#include <string>

#include "common/base/IGPrintable.h"

/// A text without characters that control a terminal.
std::string shown(const std::string& text, Tabs tabs = Tabs::KEPT);
/// "1 file", "2 files".
std::string counted(std::size_t number, const char* what);

/// Writes what is left for the standard output. False after it has said, in the name of the
/// program, why that is not possible: what could not be written was not said.
bool finishOutput(const char* program);

#endif
