// What quendil-report knows of the result of a run: of an archive, or of a directory that was not
// packed. Every text is a sequence of bytes from the archive: it may be hostile, and is made safe
// where it is written.
#ifndef QUENDIL_VIEW_IGVIEWRESULT_H
#define QUENDIL_VIEW_IGVIEWRESULT_H

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <limits>
#include <string>
#include <vector>

/// The number of no item, record or tool.
inline constexpr std::uint32_t NONE = std::numeric_limits<std::uint32_t>::max();

/// The longest excerpt of a line that is kept, in bytes.
inline constexpr std::size_t LONGEST_EXCERPT = 400;

enum class ItemKind : std::uint8_t { REGULAR, DIRECTORY, LINK, OTHER };

/// A member of the archive.
struct Item {
    std::string name;         // without the archive's top directory; "" for that directory itself
    std::string link_target;  // of a link, which is never followed
    std::uint64_t size = 0;   // bytes that were read
    std::uint64_t lines = 0;  // line feeds, and a last line without one
    std::time_t modified = 0;
    std::uint32_t record = NONE;  // in the index
    ItemKind kind = ItemKind::REGULAR;
    bool cut = false;      // the archive ends within it, or it could not be read to its end
    bool stopped = false;  // the run log says that the tool that wrote it was stopped
};

/// A record of the index: what one data item has brought.
struct IndexRecord {
    std::string description;  // several are separated by "; "
    std::string date;         // YYMMDDhhmmss
    std::string type;
};

/// A line of an item.
struct Place {
    std::uint32_t item = NONE;
    std::uint64_t line = 0;  // from 1; 0 for the whole item
    std::string text;        // an excerpt of the line

    [[nodiscard]] bool known() const { return item != NONE; }
};

/// A tool that the run has started.
struct ToolRun {
    std::string command;
    std::int64_t start = 0;  // seconds since the start of the run
    std::int64_t end = 0;    // the last known time if it has not ended
    int timeout = 0;         // seconds; below 1 for none
    int exit_code = 0;
    int wait_status = 0;
    bool ended = false;
    bool timed_out = false;
    std::uint32_t item = NONE;          // with its output, if it is known
    std::uint64_t line = 0;             // of its start in the run log
    std::vector<std::size_t> messages;  // in RunLog::messages: its time-out and how it was stopped
};

/// A warning or an error of the run log.
struct LogMessage {
    std::string id;          // "ZEPA126-W"
    std::string text;        // without it, and without the line feed
    std::uint64_t line = 0;  // in the run log
};

/// A count of all messages with one number, also of those that are not in RunLog::messages.
struct MessageCount {
    std::string id;
    std::size_t number = 0;
};

/// What the run log says. Fields that it lacks are empty.
struct RunLog {
    std::string version;
    std::string arguments;
    std::string started;  // "2026/11/23 16:25:38", local time of the machine
    std::string last;     // the last time that the log has, in the same form
    std::string configuration;
    std::string output;
    std::string limit;
    std::string cleanup;
    std::vector<std::string> groups;
    std::vector<std::string> targets;
    std::int64_t seconds = 0;     // from start to the last time
    std::int64_t start_time = 0;  // `started` as seconds since 1970 in an unknown time zone
    std::int64_t bytes = -1;      // collected in total; -1 if unknown
    std::vector<ToolRun> tools;
    std::vector<LogMessage> messages;  // at most MOST_MESSAGES
    std::vector<MessageCount> counts;  // of warnings and errors, by their numbers
    std::uint32_t log = NONE;          // the item of the run log
};

enum class Weight : std::uint8_t { CRITICAL, WARNING, NOTICE };

enum class Verdict : std::uint8_t {
    FOUND,      // the rule has found what it looks for
    CLEAR,      // its items are there, and have nothing of it
    NOT_JUDGED  // no item can tell
};

/// What one rule says about the result.
struct Finding {
    std::string rule;  // its name
    std::string title;
    Weight weight = Weight::NOTICE;
    Verdict verdict = Verdict::NOT_JUDGED;
    std::string text;  // what was found; why it is not judged
    std::string remedy;
    std::vector<Place> places;  // the first of them
    std::size_t found = 0;      // how many places there are
};

/// A line of the summary.
struct Fact {
    std::string group;  // "Machine"
    std::string label;  // "Kernel"
    std::string value;
    Place place;
};

enum class ChartKind : std::uint8_t { BARS, LINES };

/// A value of a chart. In a chart of bars each row has one value; in a chart of lines, the points
/// of a line follow one another and have the same label.
struct ChartRow {
    std::string label;
    std::string when;  // of a point of a line
    double value = 0;
    std::string note;  // "28G of 252G"
    Place place;
};

struct Chart {
    std::string name;  // of its definition
    std::string title;
    std::string unit;  // "%"
    ChartKind kind = ChartKind::BARS;
    double most = 0;  // the value at the end of the scale; 0: the largest one
    std::vector<ChartRow> rows;
};

enum class ResultForm : std::uint8_t { COMPRESSED, TAR, DIRECTORY };

/// Everything.
struct Result {
    std::string path;  // as it was named
    std::string name;  // of the archive's top directory: HOST_YYMMDDhhmmss
    ResultForm form = ResultForm::COMPRESSED;
    std::uint64_t bytes = 0;          // of the archive
    std::uint64_t content_bytes = 0;  // of all items that were read
    std::vector<Item> items;          // in the order of the archive
    std::uint64_t omitted = 0;        // members beyond MOST_ITEMS, which are not in `items`
    std::vector<IndexRecord> records;
    RunLog run;
    std::vector<Fact> facts;
    std::vector<Finding> findings;  // those that were found first, the heaviest first
    std::vector<Chart> charts;
    std::vector<std::string> notices;  // what a reader must know: "the archive is cut"
    bool damaged = false;              // exit status 1
};

/// More members than this are counted only.
inline constexpr std::size_t MOST_ITEMS = 100000;
/// More warnings and errors of the run log are counted only.
inline constexpr std::size_t MOST_MESSAGES = 1000;
/// More tools of the run log are left out.
inline constexpr std::size_t MOST_TOOLS = 10000;

#endif
