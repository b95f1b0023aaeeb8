// The command line of quendil-check.
#ifndef QUENDIL_CHECK_IGCHECKOPTION_H
#define QUENDIL_CHECK_IGCHECKOPTION_H

#include <cstdint>
#include <vector>

#include "check/IGCheckRule.h"

enum class Action : std::uint8_t { CHECK, LIST, PREVIEW, HELP, VERSION };
enum class Format : std::uint8_t { TEXT, JSON, SARIF };

/// The exit statuses besides 0.
enum ExitStatus : int {
    STATUS_FOUND = 1,
    STATUS_UNREADABLE = 2,  ///< wrong usage, too
};

struct CheckOptions {
    Action action = Action::CHECK;
    Format format = Format::TEXT;
    Level fail_level = Level::ERROR;
    bool offline = false;
    bool checks_only = false;         // an option was given that only checks have
    const char* config = nullptr;     // null: the installed one
    const char* directory = nullptr;  // -d
    std::vector<const char*> groups;
    std::vector<const char*> targets;
    std::vector<const char*> operands;
};

/// Reads the arguments. Returns false after it has said what is wrong.
bool readOptions(int argc, char** argv, CheckOptions& options);

/// The text of --help.
extern const char* const CHECK_USAGE;

#endif
