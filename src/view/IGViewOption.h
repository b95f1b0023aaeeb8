// The command line of quendil-report.
#ifndef QUENDIL_VIEW_IGVIEWOPTION_H
#define QUENDIL_VIEW_IGVIEWOPTION_H

#include <cstdint>
#include <string>
#include <vector>

enum class ReportAction : std::uint8_t { PAGE, TEXT, JSON, RULES, HELP, VERSION };

/// What the page, the text or the JSON is about.
enum class ReportSubject : std::uint8_t {
    RESULT,   // of one run
    DIFF,     // of two: --diff
    OVERVIEW  // all below a directory: --overview
};

/// The exit statuses besides 0.
enum ReportStatus : int {
    STATUS_DAMAGED = 1,   ///< the result was read only in part
    STATUS_UNUSABLE = 2,  ///< wrong usage, no result, or an output that cannot be written
};

/// The content of a page without --limit, and the most that the option takes, in MiB.
inline constexpr std::uint64_t DEFAULT_LIMIT = 64;
inline constexpr std::uint64_t MOST_LIMIT = 4096;

struct ReportOptions {
    ReportAction action = ReportAction::PAGE;
    ReportSubject subject = ReportSubject::RESULT;
    const char* output = nullptr;         // -o
    std::uint64_t limit = DEFAULT_LIMIT;  // MiB
    bool follow_links = false;
    bool limited = false;  // --limit was given
    bool all = false;      // --all
    std::vector<const char*> rules;
    std::vector<const char*> operands;
};

/// Reads the arguments. Returns false after it has said what is wrong.
bool readOptions(int argc, char** argv, ReportOptions& options);

/// The text of --help.
extern const char* const REPORT_USAGE;

#endif
