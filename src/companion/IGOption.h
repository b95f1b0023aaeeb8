// The options of a companion command.
#ifndef QUENDIL_COMPANION_IGOPTION_H
#define QUENDIL_COMPANION_IGOPTION_H

#include <getopt.h>

#include <functional>

/// Takes an option. False after it has reported what is wrong with it.
/// @param option its letter, or its number in the table
/// @param value null if it has none
using OptionTaker = std::function<bool(int option, const char* value)>;

/// Reads all options with getopt_long(3), and then `optind` is the first operand. An option that is
/// unknown or lacks its value is reported in the name of the program.
/// @param letters of short options, each with a colon if it has a value
/// @param names the long options; the last one is all zeros
/// @return false after something was reported
bool takeOptions(const char* program, int argc, char** argv, const char* letters,
                 const option* names, const OptionTaker& take);

#endif
