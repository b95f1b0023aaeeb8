#include "view/IGViewLog.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <ctime>

#include "companion/IGText.h"

namespace {

// The bytes of the index that are kept: items beyond them have no description.
constexpr std::size_t MOST_INDEX_BYTES = std::size_t{16} * 1024 * 1024;

// Longer texts and more names are cut: of a few lines of an index or a log, each item and each tool
// may have its own copy in the page.
constexpr std::size_t LONGEST_TEXT = LONGEST_EXCERPT;
constexpr std::size_t LONGEST_COMMAND = 4096;
constexpr std::size_t LONGEST_PATH = 4096;
constexpr std::size_t MOST_SELECTED = 1000;  // groups or targets

// Memory of a file in the table, beside its name.
constexpr std::size_t FILE_BYTES = 64;

// Takes a beginning off a text. False, and the text is unchanged, if it begins otherwise.
bool skip(std::string_view& text, std::string_view beginning) {
    if (!text.starts_with(beginning)) {
        return false;
    }
    text.remove_prefix(beginning.size());
    return true;
}

// The text between a beginning and an end; empty if it is not there.
std::string_view between(std::string_view text, std::string_view begin, std::string_view end) {
    const std::size_t from = text.find(begin);
    if (from == std::string_view::npos) {
        return {};
    }
    const std::size_t to = text.rfind(end);
    const std::size_t first = from + begin.size();
    return to == std::string_view::npos || to < first ? std::string_view{}
                                                      : text.substr(first, to - first);
}

template <typename Number>
Number numberOf(std::string_view text, Number otherwise) {
    Number value = otherwise;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    return error == std::errc() && stop == end ? value : otherwise;
}

// The number of digits at a place of a text; -1 if other characters are there.
int digitsAt(std::string_view text, std::size_t begin, std::size_t count) {
    const std::string_view digits = text.substr(begin, count);
    const bool plain =
        std::all_of(digits.begin(), digits.end(), [](char c) { return c >= '0' && c <= '9'; });
    return plain ? numberOf(digits, -1) : -1;
}

// "ZEPA126-W:" at the beginning of a line.
bool beginsMessage(std::string_view text) {
    constexpr std::string_view FORM = "ZEPA000-X:";
    if (text.size() < FORM.size() || !text.starts_with("ZEPA") || digitsAt(text, 4, 3) < 0) {
        return false;
    }
    const char letter = text[8];
    return text[7] == '-' && text[9] == ':' && (letter == 'E' || letter == 'W' || letter == 'I');
}

// A group or a target of the run.
void select(std::vector<std::string>& names, std::string_view name) {
    if (!name.empty() && names.size() < MOST_SELECTED) {
        names.emplace_back(name.substr(0, LONGEST_TEXT));
    }
}

constexpr std::array TOOL_MESSAGES{"ZEPA126-W", "ZEPA148-W"};

}  // namespace

std::int64_t timeOf(std::string_view text) {
    // The year has four digits or, for a clock that is far off, more.
    constexpr std::size_t REST = std::string_view("/MM/DD hh:mm:ss").size();
    if (text.size() < REST + 4 || text.size() > REST + 6) {
        return -1;
    }
    const std::size_t year = text.size() - REST;
    const std::string_view rest = text.substr(year);
    std::tm time = {};
    time.tm_year = digitsAt(text, 0, year) - 1900;
    time.tm_mon = digitsAt(rest, 1, 2) - 1;
    time.tm_mday = digitsAt(rest, 4, 2);
    time.tm_hour = digitsAt(rest, 7, 2);
    time.tm_min = digitsAt(rest, 10, 2);
    time.tm_sec = digitsAt(rest, 13, 2);
    const bool formed = rest[0] == '/' && rest[3] == '/' && rest[6] == ' ' && rest[9] == ':' &&
                        rest[12] == ':' && time.tm_year >= 70 && time.tm_mon >= 0 &&
                        time.tm_mon < 12 && time.tm_mday > 0 && time.tm_hour >= 0 &&
                        time.tm_min >= 0 && time.tm_sec >= 0;
    return formed ? static_cast<std::int64_t>(::timegm(&time)) : -1;
}

void LogReader::line(std::string_view text) {
    ++number_;
    if (beginsMessage(text)) {
        section_ = Section::OTHER;
        message(text.substr(0, 9), text.substr(10));
    } else if (section_ != Section::OTHER && skip(text, "    ")) {
        detail(text);
    } else {
        section_ = Section::OTHER;
    }
}

void LogReader::message(std::string_view id, std::string_view text) {
    if (id == "ZEPA201-I") {
        run_.version = between(text, "[Ver. ", "]");
        run_.started = between(text, " started at ", ".");
        run_.last = run_.started;
        run_.start_time = std::max<std::int64_t>(timeOf(run_.started), 0);
    } else if (id == "ZEPA204-I") {
        run_.arguments = between(text, "\"", "\"");
    } else if (id == "ZEPA205-I") {
        section_ = Section::PARAMETERS;
    } else if (id == "ZEPA206-I") {
        section_ = Section::TOOL_START;
        startTool();
    } else if (id == "ZEPA207-I") {
        section_ = Section::TOOL_END;
        endTool();
    } else if (id == "ZEPA209-I") {
        collected(text);
    } else if (id == "ZEPA210-I") {
        run_.bytes = numberOf<std::int64_t>(between(text, ": ", " bytes"), -1);
    } else if (id == "ZEPA213-I") {
        static_cast<void>(seconds(between(text, " ended at ", ". return code")));
    }
    if (id.back() != 'I') {
        count(id);
        toolMessage(id);
        if (run_.messages.size() < MOST_MESSAGES) {
            run_.messages.push_back(
                {std::string(id), std::string(text.substr(0, LONGEST_EXCERPT)), number_});
        }
    }
}

// A line of a message of several lines: "NAME = VALUE".
void LogReader::detail(std::string_view text) {
    const std::size_t sign = text.find(" = ");
    if (sign == std::string_view::npos) {
        return;
    }
    std::string_view name = text.substr(0, sign);
    name = name.substr(0, name.find_last_not_of(' ') + 1);
    const std::string_view value = text.substr(sign + 3);
    if (section_ == Section::PARAMETERS) {
        parameter(name, value);
        return;
    }
    if (run_.tools.empty() || !in_tool_) {
        return;
    }
    ToolRun& tool = run_.tools.back();
    if (section_ == Section::TOOL_START) {
        if (name == "Command") {
            tool.command = between(value, "\"", "\"").substr(0, LONGEST_COMMAND);
        } else if (name == "Start time") {
            tool.start = tool.end = seconds(value);
        } else if (name == "Timeout") {
            tool.timeout = numberOf(value, 0);
        }
    } else if (name == "Return code") {
        tool.exit_code = numberOf(value, 0);
    } else if (name == "Status code") {
        tool.wait_status = numberOf(value, 0);
    } else if (name == "End time") {
        tool.end = std::max(tool.start, seconds(value));
        in_tool_ = false;
    }
}

void LogReader::parameter(std::string_view name, std::string_view value) {
    if (name == "Configuration file") {
        run_.configuration = value;
    } else if (name == "Output path of collected information") {
        run_.output = value;
    } else if (name == "Max output data size") {
        run_.limit = value;
    } else if (name == "Cleanup") {
        run_.cleanup = value;
    } else if (name == "TARGET") {
        select(run_.targets, value);
    } else if (name == "PP_GROUP") {
        select(run_.groups, value);
    }
}

void LogReader::count(std::string_view id) {
    const auto [place, is_new] = counts_.try_emplace(std::string(id), run_.counts.size());
    if (is_new) {
        run_.counts.push_back({std::string(id), 0});
    }
    ++run_.counts[place->second].number;
}

void LogReader::startTool() {
    in_tool_ = run_.tools.size() < MOST_TOOLS;
    if (in_tool_) {
        run_.tools.emplace_back().line = number_;
        outputs_.emplace_back();
    }
}

void LogReader::endTool() {
    if (in_tool_) {
        run_.tools.back().ended = true;
        ++unmatched_;
    }
}

// What a tool has written is collected right after it. With several tools between two outputs, the
// log does not say whose it is.
void LogReader::collected(std::string_view text) {
    std::string_view path = between(text, " = ", ". size = ");
    if (run_.output.empty() || !skip(path, run_.output) || !skip(path, "/")) {
        return;
    }
    if (unmatched_ == 1 && path.size() <= LONGEST_PATH) {
        outputs_.back() = path;
    }
    unmatched_ = 0;
}

void LogReader::toolMessage(std::string_view id) {
    const bool known =
        std::find(TOOL_MESSAGES.begin(), TOOL_MESSAGES.end(), id) != TOOL_MESSAGES.end();
    if (!known || !in_tool_ || run_.messages.size() >= MOST_MESSAGES) {
        return;
    }
    ToolRun& tool = run_.tools.back();
    tool.timed_out = tool.timed_out || id == "ZEPA126-W";
    tool.messages.push_back(run_.messages.size());
}

// The seconds from the start of the run to a time, which becomes the last known one.
std::int64_t LogReader::seconds(std::string_view time) {
    const std::int64_t at = timeOf(time);
    if (at < 0 || run_.start_time == 0) {
        return run_.seconds;
    }
    run_.last = time;
    run_.seconds = std::max(run_.seconds, at - run_.start_time);
    return std::max<std::int64_t>(at - run_.start_time, 0);  // a clock may be set back
}

void LogReader::finish(const std::unordered_map<std::string, std::uint32_t>& items) {
    for (std::size_t number = 0; number < run_.tools.size(); ++number) {
        const auto found = items.find(outputs_[number]);
        if (!outputs_[number].empty() && found != items.end()) {
            run_.tools[number].item = found->second;
        }
    }
    if (in_tool_ && !run_.tools.empty()) {  // the log ends within a tool
        run_.tools.back().end = std::max(run_.tools.back().start, run_.seconds);
    }
}

void IndexReader::line(std::string_view text) {
    if (text.empty()) {
        open_ = bytes_ < MOST_INDEX_BYTES;
        bytes_ += sizeof(IndexRecord);
        if (open_) {
            records_.emplace_back();
        }
        return;
    }
    if (!open_ || bytes_ > MOST_INDEX_BYTES) {
        return;  // the two lines at the beginning, or an index that is too large
    }
    bytes_ += text.size();
    IndexRecord& record = records_.back();
    if (skip(text, "FILE:")) {
        if (!text.empty()) {
            bytes_ += FILE_BYTES;
            files_.try_emplace(std::string(text), static_cast<std::uint32_t>(records_.size() - 1));
        }
    } else if (skip(text, "DESC:")) {
        record.description += record.description.empty() ? "" : "; ";
        record.description += text;
        record.description.resize(std::min(record.description.size(), LONGEST_TEXT));
    } else if (skip(text, "DATE:")) {
        record.date = text.substr(0, LONGEST_TEXT);
    } else if (skip(text, "TYPE:")) {
        record.type = text.substr(0, LONGEST_TEXT);
    }
}

std::uint32_t IndexReader::recordOf(const std::string& name) const {
    auto found = files_.find(name);
    if (found == files_.end()) {
        found = files_.find(printable(name, Tabs::ESCAPED));  // the form in which the index has it
    }
    return found == files_.end() ? NONE : found->second;
}
