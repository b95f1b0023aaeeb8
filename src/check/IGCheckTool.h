// What the command line of a tool runs: the program, and how much it can print. Knows the commands
// of the tool directory, through which patterns run programs of the system.
#ifndef QUENDIL_CHECK_IGCHECKTOOL_H
#define QUENDIL_CHECK_IGCHECKTOOL_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

struct root_tbl;

struct ToolUse {
    std::vector<std::string> words;   // of the expanded command line; its own directory is "%d%"
    std::size_t arguments = 1;        // index of the first word for the program itself
    std::string name;                 // the program that the command "run" looks for; "" without it
    bool own = false;                 // `name` is a command of the tool directory
    bool masked = false;              // secrets in its output are masked
    std::vector<std::string> needed;  // wildcards: the program runs only if one of them matches
    std::string forbidden;            // and not if this one does; "" for none
    std::int64_t most_bytes = -1;     // of output; -1 when there is no limit
};

/// Expands and splits a command line as it is written in a pattern.
ToolUse toolOf(const char* command_line, const root_tbl& root);

/// A value with its special strings replaced; %d% stays as it is.
std::string expanded(const char* value, const root_tbl& root);

/// A path in its normal form: without "." and ".." components and double slashes. One that begins
/// with "%d%" and leaves that directory stays as it is, because it names a file of the run's
/// output.
std::string normalPath(const std::string& path);
/// The normal path of a value of a pattern, with its special strings replaced.
std::string pathOf(const char* value, const root_tbl& root);
/// Whether a normal path is in the pattern's directory.
bool isInPatternDirectory(const std::string& normal_path);
/// Whether a path is in the run's output, or depends on where that is.
bool isInOutput(const std::string& path);

/// The directory of a path; "/" for one in the root.
std::string parentOf(const std::string& path);

/// "/opt/norvale/quendil/tool/" and the name.
std::string toolPath(const std::string& name);
/// Where the command "run" looks for a program, in this order.
const std::vector<std::string>& programDirectories();

#endif
