#include "check/IGCheckMachine.h"

#include <glob.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <vector>

#include "check/IGCheckTool.h"
#include "common/base/IGCmnStr.h"
#include "common/base/IGGuards.h"
#include "common/file/IGCmnDir.h"
#include "common/file/IGSource.h"
#include "ini/IGIniTable.h"

namespace {

// Whether nothing has this name. A name that cannot be looked up may exist.
bool isMissing(const std::string& path) {
    struct stat st = {};
    return ::stat(path.c_str(), &st) != 0 && leadsNowhere(errno);
}

bool isProgram(const std::string& path) {
    struct stat st = {};
    return ::stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode) && (st.st_mode & 0111) != 0;
}

// Whether others than root can change an entry of the file system.
bool isWritable(const std::string& path) {
    struct stat st = {};
    return ::stat(path.c_str(), &st) == 0 && !isRootsOwn(st);
}

std::string realPath(const std::string& path) {
    char* resolved = ::realpath(path.c_str(), nullptr);
    std::string result = resolved == nullptr ? path : resolved;
    std::free(resolved);  // NOLINT(cppcoreguidelines-no-malloc): realpath allocates it
    return result;
}

bool matchesShell(const std::string& wildcard) {
    glob_t found = {};
    const int result = ::glob(wildcard.c_str(), GLOB_NOSORT | GLOB_NOESCAPE, nullptr, &found);
    ::globfree(&found);
    return result != GLOB_NOMATCH;
}

// Whether an entry of the directory matches the last component; true when it cannot be read.
bool hasMatch(const std::string& path) {
    const DirGuard directory(::opendir(parentOf(path).c_str()));
    if (!directory) {
        return !leadsNowhere(errno);
    }
    bool found = false;
    readNames(directory.get(), "", lastComponent(path.c_str()), [&found](const struct dirent&) {
        found = true;
        return false;
    });
    return found;
}

}  // namespace

// The first directory on the path, from the root, that others than root can change; "" for none.
const std::string& MachineCheck::writableAbove(const std::string& directory) {
    const auto [known, is_new] = writable_.emplace(directory, "");
    std::string& first = known->second;  // stays where it is while others are added
    if (is_new) {
        first = directory == "/" ? "" : writableAbove(parentOf(directory));
        first = first.empty() && isWritable(directory) ? directory : first;
    }
    return first;
}

// As a shell expands a wildcard, or a data item its last component.
bool MachineCheck::isThere(const std::string& wildcard, bool last_only) {
    const auto [known, is_new] = there_.emplace((last_only ? "d" : "s") + wildcard, false);
    if (is_new) {
        known->second =
            !isMissing(wildcard) || (last_only ? hasMatch(wildcard) : matchesShell(wildcard));
    }
    return known->second;
}

// Where "run" finds a program of the system; "" when it is missing.
const std::string& MachineCheck::findProgram(const std::string& name) {
    const auto [known, is_new] = programs_.emplace(name, "");
    if (is_new) {
        const std::string tail = "/" + name;
        const std::vector<std::string>& directories = programDirectories();
        const auto found =
            std::find_if(directories.begin(), directories.end(),
                         [&](const std::string& directory) { return isProgram(directory + tail); });
        known->second = found == directories.end() ? "" : *found + tail;
    }
    return known->second;
}

// The program that a command line runs.
MachineCheck::Program MachineCheck::programOf(const ToolUse& use) {
    const std::string& command = use.words[0];
    if (!isProgram(command) || use.name.empty()) {
        return {command, isProgram(command) ? command : ""};
    }
    if (use.own) {
        const std::string path = toolPath(use.name);
        return {use.name, isProgram(path) ? path : ""};
    }
    return {use.name, findProgram(use.name)};
}

// Whether the command "run" leaves its program alone on this machine.
bool MachineCheck::isNotAsked(const ToolUse& use) {
    const bool lacks_path =
        !use.needed.empty() &&
        std::none_of(use.needed.begin(), use.needed.end(),
                     [this](const std::string& path) { return isThere(path, false); });
    return lacks_path || (!use.forbidden.empty() && isThere(use.forbidden, false));
}

// Whether others than root can change a file, or replace it or a link that leads to it.
bool MachineCheck::isChangeable(const std::string& path, const std::string& real) {
    return isWritable(real) || !writableAbove(parentOf(real)).empty() ||
           !writableAbove(parentOf(path)).empty();
}

void MachineCheck::checkAbove(CheckedFile& file, TextPlace place, const std::string& path) {
    if (const std::string& above = writableAbove(parentOf(path)); !above.empty()) {
        file.warn(Warning::DIRECTORY_WRITABLE, place, {.detail = above});
    }
}

void MachineCheck::checkProgram(CheckedFile& file, const PlacedValue& command,
                                const std::string& path) {
    const auto [known, is_new] = changeable_.emplace(path, "");
    if (is_new) {
        const std::string real = realPath(path);
        known->second = isChangeable(path, real) ? real : "";
    }
    if (!known->second.empty()) {
        file.warn(Warning::PROGRAM_WRITABLE, command.place, {.detail = known->second});
    }
}

void MachineCheck::checkTool(CheckedFile& file, const PlacedItem& item) {
    const PlacedValue* command = item.find("COMMAND_LINE");
    const PlacedValue* redirect = item.find("REDIRECT_PATH");
    if (redirect != nullptr) {
        const std::string path = pathOf(item.item->tool.redirect_path, root_);
        if (!isInOutput(path)) {
            checkAbove(file, redirect->place, path);
        }
    }
    if (command == nullptr) {
        return;
    }
    const ToolUse use = toolOf(item.item->tool.command_line, root_);
    if (use.words.empty() || use.words[0].find("%d%") != std::string::npos) {
        return;
    }
    if (isNotAsked(use)) {
        return;
    }
    const Program program = programOf(use);
    if (!program.path.empty()) {
        checkProgram(file, *command, program.path);
    } else if (missing_.insert(program.name).second) {
        file.warn(Warning::PROGRAM_MISSING, command->place, {.detail = program.name});
    }
}

void MachineCheck::checkData(CheckedFile& file, const PlacedItem& item) {
    const PlacedValue* value = item.find("PATH_NAME");
    if (value == nullptr) {
        return;
    }
    const std::string path = pathOf(item.item->data.path_name, root_);
    if (isInOutput(path)) {
        return;
    }
    if (!isThere(path, true)) {
        file.warn(Warning::PATH_UNMATCHED, value->place, {.detail = path});
    }
    checkAbove(file, value->place, path);
}

void MachineCheck::checkConfiguration(CheckedFile& file) {
    for (const PlacedValue& value : file.values) {
        struct stat st = {};
        if (value.keyword == "QUENDIL_DATA_DIRECTORY" &&
            (isMissing(root_.output_dir) ||
             (::stat(root_.output_dir, &st) == 0 && !S_ISDIR(st.st_mode)))) {
            file.warn(Warning::OUTPUT_MISSING, value.place, {.detail = root_.output_dir});
        }
    }
}

// A file that a run reads: who can change it can run any program as root.
void MachineCheck::checkFile(CheckedFile& file) {
    if (isChangeable(file.name, realPath(file.name))) {
        file.warn(Warning::FILE_WRITABLE, {});
    }
}

void MachineCheck::warn(CheckedFile& file) {
    missing_.clear();
    if (file.installed) {
        checkFile(file);
    }
    if (file.kind == FileKind::CONFIGURATION) {
        checkConfiguration(file);
    }
    for (const PlacedBlock& block : file.blocks) {
        for (const PlacedItem& item : block.items) {
            item.item->kind == ITEM_TOOL ? checkTool(file, item) : checkData(file, item);
        }
    }
}
