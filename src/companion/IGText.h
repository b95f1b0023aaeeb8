// Texts that the companion commands show.
#ifndef QUENDIL_COMPANION_IGTEXT_H
#define QUENDIL_COMPANION_IGTEXT_H

#include <cstddef>
#include <string>

#include "common/base/IGPrintable.h"

/// A text as the collector writes it in its messages and in the index: without characters that
/// control a terminal. Each of their bytes is a backslash and three octal digits.
std::string printable(const std::string& text, Tabs tabs);
/// The same, also without those that control the direction of a text.
std::string shown(const std::string& text, Tabs tabs = Tabs::KEPT);
/// "1 file", "2 files".
std::string counted(std::size_t number, const char* what);

/// Prints a message about a file or directory to the standard error, in the name of the program.
void complain(const char* program, const std::string& path, const std::string& what);
/// Prints what is wrong with the command line, with the wrong value if there is one, and where help
/// is. Always false, for functions that read it.
bool refuseUsage(const char* program, const char* what, const char* value = nullptr);
/// The same for an option that getopt_long has refused: with opterr 0 it does not print the option
/// itself, which may be any text.
/// @param option what getopt_long has returned: ':' if a value is missing
/// @param word the argument that it has read last
bool refuseOption(const char* program, int option, const char* word);
/// The last part of it.
bool suggestHelp(const char* program);

/// Writes what is left for the standard output. False after it has said, in the name of the
/// program, why that is not possible: what could not be written was not said.
bool finishOutput(const char* program);

#endif
