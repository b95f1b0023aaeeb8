// The files of a check: those that are named, those of a directory, and the installed ones.
#ifndef QUENDIL_CHECK_IGCHECKINPUT_H
#define QUENDIL_CHECK_IGCHECKINPUT_H

#include <memory>
#include <string>
#include <vector>

#include "check/IGCheckFile.h"

struct root_tbl;

/// "/etc/opt/norvale/quendil/pattern" and ".../config/quendil_conf".
std::string installedPatterns();
std::string installedConfiguration();

/// The name for the standard input on the command line.
inline constexpr const char* STANDARD_INPUT = "-";

/// The name of a file without its directory.
std::string nameOf(const std::string& path);

/// Prints a message about a file to the standard error.
void complain(const std::string& path, const std::string& what);

/// A directory that a run would read: every entry that is no directory, in the order of a run.
struct PatternDirectory {
    std::vector<std::string> files;     // paths
    std::vector<std::string> dangling;  // links to nothing
};
/// Returns false after it has said why the directory cannot be read.
bool readDirectory(const std::string& path, PatternDirectory& directory);

/// Says that no run starts while links in the directory lead nowhere.
void complainOfLinks(const PatternDirectory& directory);

/// Opens and reads one file. Null after it has said why this is not possible.
std::unique_ptr<CheckedFile> readFile(const std::string& path, FileKind kind, root_tbl& root);

#endif
