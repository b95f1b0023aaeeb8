#include "view/IGViewOption.h"

#include <array>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "companion/IGOption.h"
#include "companion/IGText.h"

const char* const REPORT_USAGE =
    "usage: quendil-report [-o PAGE.html] [--limit=MIB] [--rules=FILE]... [--follow-links] RESULT\n"
    "       quendil-report --text|--json [--rules=FILE]... [--follow-links] RESULT\n"
    "       quendil-report --diff [--all] [--text|--json|-o PAGE.html] [--rules=FILE]... OLD NEW\n"
    "       quendil-report --overview [-o INDEX.html] [--limit=MIB] [--rules=FILE]... DIRECTORY\n"
    "       quendil-report --print-rules\n"
    "Makes one page for a browser of what quendil has collected: what is wrong first, then a\n"
    "summary, the tools' times, the messages, and every file.\n"
    "\n"
    "  RESULT           an archive (.tar.gz or .tar), or the directory of a run that made none\n"
    "  -o PAGE.html     the page; default: the name of RESULT with .html, in the same directory\n"
    "  --diff           print what differs between two results: configuration, packages, units,\n"
    "                   modules, kernel settings, mounts, routes, sockets\n"
    "  --all            compare what changes by itself too, and all other files line by line\n"
    "  --overview       make a page with a row for each result below DIRECTORY, by default\n"
    "                   DIRECTORY/index.html, and the pages of the results that have none\n"
    "  --limit=MIB      the most content of files in the page (default: 64); of the largest files\n"
    "                   the two ends are kept\n"
    "  --text           print summary and findings instead\n"
    "  --json           print everything but the contents as JSON instead\n"
    "  --rules=FILE     use the definitions of this file too; may be repeated\n"
    "  --follow-links   in a directory, read what links lead to: only on the machine of the run\n"
    "  --print-rules    print the built-in definitions, as a start for your own\n"
    "  -h, --help       this text\n"
    "  --version        the version\n"
    "\n"
    "exit status: 0 done; 1 done, but a result was damaged or unreadable in part, or has no page\n"
    "in the overview; 2 wrong usage, no result of a run, or the page cannot be written\n";

namespace {

enum LongOption : int {
    LIMIT = 256,
    TEXT,
    JSON,
    RULES,
    FOLLOW_LINKS,
    PRINT_RULES,
    VERSION,
    DIFF,
    ALL,
    OVERVIEW
};

constexpr std::array<option, 12> LONG_OPTIONS{{
    {"limit", required_argument, nullptr, LIMIT},
    {"text", no_argument, nullptr, TEXT},
    {"json", no_argument, nullptr, JSON},
    {"rules", required_argument, nullptr, RULES},
    {"follow-links", no_argument, nullptr, FOLLOW_LINKS},
    {"diff", no_argument, nullptr, DIFF},
    {"all", no_argument, nullptr, ALL},
    {"overview", no_argument, nullptr, OVERVIEW},
    {"print-rules", no_argument, nullptr, PRINT_RULES},
    {"help", no_argument, nullptr, 'h'},
    {"version", no_argument, nullptr, VERSION},
    {nullptr, 0, nullptr, 0},
}};

constexpr const char* PROGRAM = "quendil-report";

bool fail(const char* what, const char* value = nullptr) {
    return refuseUsage(PROGRAM, what, value);
}

bool setLimit(ReportOptions& options, const char* text) {
    const std::string_view digits = text;
    const char* end = digits.data() + digits.size();
    const auto [stop, error] = std::from_chars(digits.data(), end, options.limit);
    options.limited = true;
    if (error != std::errc() || stop != end || options.limit == 0 || options.limit > MOST_LIMIT) {
        return fail("the limit is a number of MiB from 1 to 4096, not", text);
    }
    return true;
}

// --help and --version count wherever they stand; other actions exclude each other.
bool setAction(ReportOptions& options, ReportAction action) {
    if (options.action == ReportAction::HELP || options.action == ReportAction::VERSION) {
        return true;
    }
    const bool always = action == ReportAction::HELP || action == ReportAction::VERSION;
    if (!always && options.action != ReportAction::PAGE && options.action != action) {
        return fail("--text, --json and --print-rules exclude each other");
    }
    options.action = action;
    return true;
}

bool setSubject(ReportOptions& options, ReportSubject subject) {
    if (options.subject != ReportSubject::RESULT && options.subject != subject) {
        return fail("--diff and --overview exclude each other");
    }
    options.subject = subject;
    return true;
}

bool setOption(ReportOptions& options, int option, const char* value) {
    switch (option) {
        case 'o':
            options.output = value;
            return true;
        case LIMIT:
            return setLimit(options, value);
        case RULES:
            options.rules.push_back(value);
            return true;
        case FOLLOW_LINKS:
            options.follow_links = true;
            return true;
        case DIFF:
            return setSubject(options, ReportSubject::DIFF);
        case OVERVIEW:
            return setSubject(options, ReportSubject::OVERVIEW);
        case ALL:
            options.all = true;
            return true;
        case TEXT:
            return setAction(options, ReportAction::TEXT);
        case JSON:
            return setAction(options, ReportAction::JSON);
        case PRINT_RULES:
            return setAction(options, ReportAction::RULES);
        case 'h':
            return setAction(options, ReportAction::HELP);
        case VERSION:
            return setAction(options, ReportAction::VERSION);
        default:
            return false;
    }
}

bool fitsResult(const ReportOptions& options) {
    if (options.limited && options.action != ReportAction::PAGE) {
        return fail("--limit belongs to a page");
    }
    if (options.operands.size() != 1) {
        return fail(options.operands.empty() ? "an archive or a directory is needed"
                                             : "one archive or directory at a time");
    }
    return true;
}

// Differences are text unless a page is asked for.
bool fitsDiff(ReportOptions& options) {
    if (options.action == ReportAction::PAGE && options.output == nullptr) {
        options.action = ReportAction::TEXT;
    }
    if (options.limited) {
        return fail("--limit belongs to a page with contents, and --diff shows none");
    }
    return options.operands.size() == 2 || fail("--diff takes two results: OLD and NEW");
}

bool fitsOverview(const ReportOptions& options) {
    if (options.action != ReportAction::PAGE) {
        return fail("--overview makes a page: --text and --json do not belong to it");
    }
    return options.operands.size() == 1 || fail("--overview takes one directory");
}

bool fits(ReportOptions& options) {
    if (options.action == ReportAction::HELP || options.action == ReportAction::VERSION) {
        return true;
    }
    if (options.action == ReportAction::RULES) {
        const bool alone = options.operands.empty() && options.rules.empty() &&
                           options.subject == ReportSubject::RESULT && !options.limited &&
                           options.output == nullptr && !options.all;
        return alone || fail("--print-rules takes nothing else");
    }
    if (options.output != nullptr && options.action != ReportAction::PAGE) {
        return fail("-o belongs to a page, and excludes --text and --json");
    }
    if (options.all && options.subject != ReportSubject::DIFF) {
        return fail("--all belongs to --diff");
    }
    switch (options.subject) {
        case ReportSubject::DIFF:
            return fitsDiff(options);
        case ReportSubject::OVERVIEW:
            return fitsOverview(options);
        default:
            return fitsResult(options);
    }
}

}  // namespace

bool readOptions(int argc, char** argv, ReportOptions& options) {
    const auto take = [&](int option, const char* value) {
        return setOption(options, option, value);
    };
    if (!takeOptions(PROGRAM, argc, argv, "o:h", LONG_OPTIONS.data(), take)) {
        return false;
    }
    options.operands.assign(argv + optind, argv + argc);
    return fits(options);
}
