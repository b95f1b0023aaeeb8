#include "check/IGCheckOption.h"

#include <array>
#include <cstdio>
#include <cstring>

#include "companion/IGOption.h"
#include "companion/IGText.h"

const char* const CHECK_USAGE =
    "usage: quendil-check [-c CONFIG] [--format=text|json|sarif] [--fail-level=error|warning]\n"
    "                     [--offline] [FILE|DIRECTORY]...\n"
    "       quendil-check --list [--format=text|json]\n"
    "       quendil-check --preview { -g GROUP | -t TARGET }... [-c CONFIG] [-d DIRECTORY]\n"
    "                     [--format=text|json]\n"
    "Checks pattern files and the configuration of quendil before a run, lists groups and\n"
    "targets, or shows what a run would collect. It runs nothing and writes nothing.\n"
    "\n"
    "  FILE|DIRECTORY        a pattern file, - for the standard input, or a directory of\n"
    "                        patterns; without any: the installed configuration and patterns\n"
    "  -c CONFIG             this configuration file instead of the installed one\n"
    "  --format=FORMAT       text, json or, for a check, sarif (default: text)\n"
    "  --fail-level=LEVEL    exit with 1 for an error (default), or for a warning too\n"
    "  --offline             no warnings that depend on this machine\n"
    "  --list                list the groups and targets of the installed patterns\n"
    "  --preview             list what a run with these options would collect\n"
    "  -g GROUP, -t TARGET   as for quendil\n"
    "  -d DIRECTORY          where the run would write\n"
    "  -h, --help            this text\n"
    "  --version             the version\n"
    "\n"
    "exit status: 0 nothing at the level of --fail-level; 1 findings; 2 wrong usage, or a file\n"
    "that cannot be read\n";

namespace {

enum LongOption : int { FORMAT = 256, FAIL_LEVEL, OFFLINE, LIST, PREVIEW, VERSION };

constexpr std::array<option, 8> LONG_OPTIONS{{
    {"format", required_argument, nullptr, FORMAT},
    {"fail-level", required_argument, nullptr, FAIL_LEVEL},
    {"offline", no_argument, nullptr, OFFLINE},
    {"list", no_argument, nullptr, LIST},
    {"preview", no_argument, nullptr, PREVIEW},
    {"help", no_argument, nullptr, 'h'},
    {"version", no_argument, nullptr, VERSION},
    {nullptr, 0, nullptr, 0},
}};

constexpr const char* PROGRAM = "quendil-check";

bool fail(const char* what, const char* value = nullptr) {
    return refuseUsage(PROGRAM, what, value);
}

template <typename Value>
struct Choice {
    const char* name;
    Value value;
};

template <typename Value, std::size_t Count>
bool choose(const std::array<Choice<Value>, Count>& choices, const char* option, const char* text,
            Value& value) {
    for (const Choice<Value>& choice : choices) {
        if (std::strcmp(choice.name, text) == 0) {
            value = choice.value;
            return true;
        }
    }
    return fail(option, text);
}

bool setFormat(CheckOptions& options, const char* text) {
    constexpr std::array<Choice<Format>, 3> FORMATS{
        {{"text", Format::TEXT}, {"json", Format::JSON}, {"sarif", Format::SARIF}}};
    return choose(FORMATS, "the format is text, json or sarif, not", text, options.format);
}

bool setFailLevel(CheckOptions& options, const char* text) {
    constexpr std::array<Choice<Level>, 2> LEVELS{
        {{"error", Level::ERROR}, {"warning", Level::WARNING}}};
    return choose(LEVELS, "the level is error or warning, not", text, options.fail_level);
}

// --help and --version count wherever they stand.
void setAction(CheckOptions& options, Action action) {
    if (options.action != Action::HELP && options.action != Action::VERSION) {
        options.action = action;
    }
}

bool setOption(CheckOptions& options, int option, const char* value) {
    switch (option) {
        case 'c':
            options.config = value;
            return true;
        case 'd':
            options.directory = value;
            return true;
        case 'g':
            options.groups.push_back(value);
            return true;
        case 't':
            options.targets.push_back(value);
            return true;
        case FORMAT:
            return setFormat(options, value);
        case FAIL_LEVEL:
            options.checks_only = true;
            return setFailLevel(options, value);
        case OFFLINE:
            options.offline = options.checks_only = true;
            return true;
        case LIST:
        case PREVIEW:
            if (options.action == (option == LIST ? Action::PREVIEW : Action::LIST)) {
                return fail("--list and --preview exclude each other");
            }
            setAction(options, option == LIST ? Action::LIST : Action::PREVIEW);
            return true;
        case 'h':
            setAction(options, Action::HELP);
            return true;
        case VERSION:
            setAction(options, Action::VERSION);
            return true;
        default:
            return false;
    }
}

bool fits(const CheckOptions& options) {
    const bool selects = !options.groups.empty() || !options.targets.empty();
    switch (options.action) {
        case Action::CHECK:
            return !selects && options.directory == nullptr
                       ? true
                       : fail("-g, -t and -d belong to --preview");
        case Action::LIST:
            if (selects || options.directory != nullptr || options.config != nullptr ||
                !options.operands.empty()) {
                return fail("--list takes no files and no other option than --format");
            }
            break;
        case Action::PREVIEW:
            if (!selects) {
                return fail("--preview needs -g or -t");
            }
            if (!options.operands.empty()) {
                return fail("--preview takes no files", options.operands[0]);
            }
            if (options.config != nullptr && std::strcmp(options.config, "-") == 0) {
                return fail("--preview reads its configuration from a file, as a run does");
            }
            break;
        default:
            return true;
    }
    return (options.format != Format::SARIF && !options.checks_only) ||
           fail("--format=sarif, --fail-level and --offline belong to a check");
}

}  // namespace

bool readOptions(int argc, char** argv, CheckOptions& options) {
    const auto take = [&](int option, const char* value) {
        return setOption(options, option, value);
    };
    if (!takeOptions(PROGRAM, argc, argv, "c:d:g:t:h", LONG_OPTIONS.data(), take)) {
        return false;
    }
    options.operands.assign(argv + optind, argv + argc);
    return fits(options);
}
