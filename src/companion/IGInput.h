// What a user names on the command line: small files, and directories with what is below them.
#ifndef QUENDIL_COMPANION_IGINPUT_H
#define QUENDIL_COMPANION_IGINPUT_H

#include <cstddef>
#include <string>
#include <string_view>

/// Reads a whole file, or a pipe until its end.
/// @param most bytes that it may have
/// @param text gets its content
/// @param why it cannot be read, or is too large; set when false is returned
bool readInput(const std::string& path, std::size_t most, std::string& text, std::string& why);

/// Opens a directory below another one without following a link: not even one that has taken the
/// place of a directory since the path was read.
/// @param root a descriptor of the other directory; of any kind, also O_PATH
/// @param path relative; "" for `root` itself
/// @return a descriptor (O_PATH) that the caller owns, or -1 with errno
int openDirectoryBelow(int root, std::string_view path);

#endif
