#include <algorithm>
#include <array>
#include <deque>

#include "view/IGViewExpression.h"
#include "view/IGViewQuery.h"
#include "view/IGViewResult.h"

namespace {

constexpr std::size_t MOST_PROGRAMS = 4;

bool contains(std::string_view text, std::string_view part) {
    return text.find(part) != std::string_view::npos;
}

// Whether a tool of the collection ended its output with this line because it was stopped.
bool reportsStop(std::string_view line) {
    return (line.ends_with(" by the time limit") && contains(line, ": stopped here ")) ||
           (line.ends_with(" seconds") && contains(line, ": stopped here after ")) ||
           (line.ends_with(" MiB") && contains(line, ": the output was cut here, after "));
}

// Whether a tool of the collection reports with this line that it has looked, and there is none.
bool reportsNone(std::string_view line) {
    return line.ends_with(" is not there") || line.ends_with(": there are none") ||
           line.ends_with(": there are no rules");
}

// Whether a tool of the collection reports with this line that it has nothing to show.
bool reportsNothing(std::string_view line) {
    constexpr std::array<std::string_view, 9> ENDS{
        " not installed on this machine",   " and was not opened",
        " is not a regular file",           " that cannot be read",
        " is known to hold volumes of LVM", " keeps no records here",
        ": there is not enough memory",     " on this machine",
        " device of this machine",
    };
    constexpr std::array<std::string_view, 8> PARTS{
        ": not asked: ",
        ": forbidden on this machine: ",
        ": nothing to show on this machine: ",
        ": not in use on this machine: ",
        ": there is no ",
        " was not asked: ",
        "(reading failed: ",
        "==> not asked:",
    };
    const auto ends = [&](std::string_view end) { return line.ends_with(end); };
    const auto has = [&](std::string_view part) { return contains(line, part); };
    return reportsNone(line) || std::any_of(ENDS.begin(), ENDS.end(), ends) ||
           std::any_of(PARTS.begin(), PARTS.end(), has);
}

// A blank line, or the name of what follows.
bool isTitle(std::string_view line) {
    return line.find_first_not_of(" \t\r") == std::string_view::npos ||
           (line.starts_with("==> ") && !reportsNothing(line));
}

}  // namespace

/// The last few programs.
class ItemReader::Programs {
  public:
    Program& find(std::span<const Query* const> queries) {
        const auto known =
            std::find_if(programs_.begin(), programs_.end(),
                         [&](const auto& program) { return program->isFor(queries); });
        if (known != programs_.end()) {
            std::rotate(programs_.begin(), known, known + 1);
        } else {
            programs_.push_front(std::make_unique<Program>(queries));
            programs_.resize(std::min(programs_.size(), MOST_PROGRAMS));
        }
        return *programs_.front();
    }

  private:
    std::deque<std::unique_ptr<Program>> programs_;  // the latest first
};

ItemReader::ItemReader() : programs_(std::make_unique<Programs>()) {
}
ItemReader::~ItemReader() = default;

void ItemReader::begin(std::span<const Query* const> queries) {
    program_ = &programs_->find(queries);
    progress_.assign(queries.size(), {});
    before_.clear();
    reason_.clear();
    number_ = 0;
    answered_ = false;
    stopped_ = false;
    only_none_ = true;
}

void ItemReader::note(std::string_view text) {
    const bool stopped = reportsStop(text);
    stopped_ = stopped_ || stopped;
    only_none_ = only_none_ && (text.empty() || reportsNone(text));
    if (answered_ || isTitle(text)) {
        return;
    }
    if (!stopped && !reportsNothing(text)) {
        answered_ = true;
    } else if (reason_.empty()) {
        reason_ = text.substr(0, LONGEST_EXCERPT);
    }
}

void ItemReader::line(std::string_view text, const Found& found) {
    ++number_;
    note(text);
    if (program_->scan(text)) {
        for (std::size_t query = 0; query < progress_.size(); ++query) {
            readFor(query, text, found);
        }
    }
    if (program_->looksBack()) {
        before_ = text;
    }
}

// Whether the line is one that the query wants; then match_ describes it.
bool ItemReader::findIn(std::size_t query, std::string_view text) {
    QueryExpressions& expressions = program_->expressions(query);
    const Progress& progress = progress_[query];
    if (progress.unwanted || progress.want == Want::NOTHING) {
        return false;
    }
    match_.captures_.clear();
    match_.begin = 0;
    std::size_t number = expressions.first;
    const bool found =
        std::any_of(expressions.find.begin(), expressions.find.end(), [&](Expression& expression) {
            if (!program_->mayMatch(number++)) {
                return false;
            }
            return progress.want == Want::CAPTURES
                       ? expression.matches(text, match_.captures_, match_.begin)
                       : expression.matches(text);
        });
    match_.expression = number - expressions.first - 1;
    if (!found) {
        return false;
    }
    if (!program_->query(query).after.empty() &&
        (number_ == 1 || !expressions.after.matches(before_))) {
        return false;
    }
    return std::none_of(expressions.unless.begin(), expressions.unless.end(),
                        [&](Expression& expression) { return expression.matches(text); });
}

void ItemReader::readContext(std::size_t query, std::string_view text) {
    QueryExpressions& expressions = program_->expressions(query);
    Progress& progress = progress_[query];
    std::size_t begin = 0;
    Captures captures;
    if (expressions.context.matches(text, captures, begin)) {
        progress.context.assign(captures.begin(), captures.end());
        progress.unwanted =
            std::any_of(expressions.unless.begin(), expressions.unless.end(),
                        [&](Expression& expression) { return expression.matches(text); });
    }
}

void ItemReader::readFor(std::size_t query, std::string_view text, const Found& found) {
    QueryExpressions& expressions = program_->expressions(query);
    Progress& progress = progress_[query];
    if (findIn(query, text)) {
        match_.line = text;
        match_.number = number_;
        match_.captures_.insert(match_.captures_.end(), progress.context.begin(),
                                progress.context.end());
        progress.want = std::max(progress.want, found(query, match_));
    }
    const Query& asked = program_->query(query);
    const std::size_t context = expressions.first + expressions.find.size();
    if (!asked.context.empty() && program_->mayMatch(context)) {
        readContext(query, text);
    }
    if (!progress.judged && !asked.needs.empty() && program_->mayMatch(context + 1)) {
        progress.judged = expressions.needs.matches(text);
    }
}

Answer ItemReader::answer(std::size_t query) const {
    const Query& asked = program_->query(query);
    const Answer full = stopped_ ? Answer::STOPPED : Answer::FULL;
    if (asked.empty && !answered_ && reason_.empty()) {
        return full;
    }
    if (!answered_) {
        return Answer::NOTHING;
    }
    return asked.needs.empty() || progress_[query].judged ? full : Answer::LACKING;
}
