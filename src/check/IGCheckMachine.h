// Warnings that ask this machine: whether programs, paths and directories are there, and who may
// change them.
#ifndef QUENDIL_CHECK_IGCHECKMACHINE_H
#define QUENDIL_CHECK_IGCHECKMACHINE_H

#include <string>
#include <unordered_map>
#include <unordered_set>

#include "check/IGCheckFile.h"

struct root_tbl;
struct ToolUse;

class MachineCheck {
  public:
    explicit MachineCheck(const root_tbl& root) : root_(root) {}

    /// Adds the warnings about the file, its programs and its paths.
    void warn(CheckedFile& file);

  private:
    void checkFile(CheckedFile& file);
    void checkTool(CheckedFile& file, const PlacedItem& item);
    void checkProgram(CheckedFile& file, const PlacedValue& command, const std::string& path);
    void checkData(CheckedFile& file, const PlacedItem& item);
    void checkAbove(CheckedFile& file, TextPlace place, const std::string& path);
    void checkConfiguration(CheckedFile& file);
    const std::string& writableAbove(const std::string& directory);
    bool isChangeable(const std::string& path, const std::string& real);
    bool isThere(const std::string& wildcard, bool last_only);
    struct Program {
        std::string name;
        std::string path;  // "" when it is missing
    };
    const std::string& findProgram(const std::string& name);
    Program programOf(const ToolUse& use);
    bool isNotAsked(const ToolUse& use);

    const root_tbl& root_;
    // answers, because many items ask the same
    std::unordered_map<std::string, std::string> writable_;
    std::unordered_map<std::string, bool> there_;
    std::unordered_map<std::string, std::string> programs_;
    std::unordered_map<std::string, std::string> changeable_;  // programs that others can change
    std::unordered_set<std::string> missing_;  // programs: each is named once in a file
};

#endif
