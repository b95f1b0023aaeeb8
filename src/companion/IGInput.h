// Small files that a user names on the command line.
#ifndef QUENDIL_COMPANION_IGINPUT_H
#define QUENDIL_COMPANION_IGINPUT_H

#include <cstddef>
#include <string>

/// Reads a whole file, or a pipe until nobody writes to it any more.
/// @param most bytes that it may have
/// @param text gets its content
/// @param why it cannot be read, or is too large; set when false is returned
bool readInput(const std::string& path, std::size_t most, std::string& text, std::string& why);

#endif
