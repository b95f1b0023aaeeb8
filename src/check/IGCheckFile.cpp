#include "check/IGCheckFile.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

#include "common/base/IGOpen.h"
#include "ini/IGIniReadCompDef.h"
#include "ini/IGIniReadPtn.h"

namespace {

constexpr std::size_t LINE_WINDOW = 1100;  // bytes: more than a pattern's line may have
constexpr int MOST_SKIPPED = 10000;        // lines of a block that is not known
constexpr const char* WORD_LETTERS =
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-";
constexpr const char* BLANKS = " \t\r\n";

std::string trimmed(const std::string& line) {
    const std::size_t begin = line.find_first_not_of(BLANKS);
    return begin == std::string::npos
               ? ""
               : line.substr(begin, line.find_last_not_of(BLANKS) - begin + 1);
}

// Whether a line is a word and an opening brace.
bool opensBlock(const std::string& line) {
    const std::size_t brace = line.find_first_not_of(WORD_LETTERS);
    return line.ends_with("{") && line.find_first_not_of(BLANKS, brace) == line.size() - 1;
}

// Keeps what a reader reports.
class FileObserver final : public IniObserver {
  public:
    explicit FileObserver(CheckedFile& file) : file_(file) {}

    bool refused(const Mistake& mistake) override {
        file_.add(findingOf(mistake));
        if (!file_.blocks.empty() && !file_.blocks.back().items.empty()) {
            file_.blocks.back().items.back().has_mistake = true;
        }
        return !file_.truncated;
    }

    bool resume(IgCmnFileHandle& file, std::int32_t line, Skipped skipped) override {
        std::int32_t column = 0;
        if (skipped == Skipped::OPENS) {
            line = afterBlock(line);
        } else if (skipped == Skipped::CLOSES && findBrace(line - 1, column)) {
            --line;
        }
        std::fclose(file.stream);
        file.stream = file_.source.streamFrom(file_.source.offsetOf(line) + column);
        if (file.stream == nullptr) {
            return false;
        }
        file.line_no = line;
        file.column = column;
        return true;
    }

    void accepted(const AcceptedValue& value) override {
        valuesOf(value.owner)
            .push_back(
                {value.keyword, value.keyword_place, value.place, value.value, value.joined});
    }

    void opened(TextPlace keyword, const ptn_block& block, const collect_item* item) override {
        if (item == nullptr) {
            file_.blocks.push_back({.place = keyword, .block = &block, .values = {}, .items = {}});
        } else {
            file_.blocks.back().items.push_back({.place = keyword, .item = item, .values = {}});
        }
    }

  private:
    std::vector<PlacedValue>& valuesOf(ValueOwner owner) {
        switch (owner) {
            case ValueOwner::BLOCK:
                return file_.blocks.back().values;
            case ValueOwner::ITEM:
                return file_.blocks.back().items.back().values;
            default:
                return file_.values;
        }
    }

    // Finds a closing brace at the end of a line, which has a good beginning.
    bool findBrace(std::int32_t line, std::int32_t& column) {
        const std::string text = file_.source.line(line, 0, LINE_WINDOW);
        const std::size_t last = text.find_last_not_of(BLANKS);
        if (last == std::string::npos || last == 0 || text[last] != '}' || text[last - 1] != ' ') {
            return false;
        }
        column = static_cast<std::int32_t>(last);
        return true;
    }

    // The line after the block that the line before `line` opens; `line` when it opens none, or
    // one that is not closed soon.
    std::int32_t afterBlock(std::int32_t line) {
        const FileGuard stream(file_.source.streamFrom(file_.source.offsetOf(line - 1)));
        std::array<char, LINE_WINDOW> text{};
        int depth = 0;
        std::int32_t next = line - 1;
        for (int lines = 0; stream && lines < MOST_SKIPPED; ++lines) {
            const std::size_t length = readTextLine(stream.get(), text.data(), text.size());
            if (length == 0) {
                return line;
            }
            const std::string bare = trimmed({text.data(), length});
            depth += opensBlock(bare) ? 1 : 0;
            depth -= bare.starts_with("}") ? 1 : 0;
            next += text[length - 1] == '\n' ? 1 : 0;
            if (depth <= 0 && text[length - 1] == '\n') {
                return next;
            }
        }
        return line;
    }

    CheckedFile& file_;
};

// Makes a place one of the text: readers do not count carriage returns in a pattern.
void settlePlace(CheckedFile& file, TextPlace& place, const std::string& token) {
    if (place.line == 0) {
        return;
    }
    const std::string line = file.source.line(place.line, 0, LINE_WINDOW);
    auto column = static_cast<std::size_t>(place.column);
    if (file.kind == FileKind::PATTERN) {
        for (std::size_t at = 0; at < line.size() && at < column; ++at) {
            column += line[at] == '\r' ? 1U : 0U;
        }
    }
    const std::size_t found = token.empty() ? std::string::npos : line.find(token, column - 1);
    place.column = static_cast<std::int32_t>(found == std::string::npos ? column : found + 1);
}

// A line that the end of the file interrupts is not read, unless it is a closing brace.
void warnOfLostLine(CheckedFile& file) {
    const std::string line = file.source.unfinishedLine();
    const std::size_t begin = line.find_first_not_of("} \t\r");
    if (begin != std::string::npos && line[begin] != '#') {
        file.warn(Warning::LINE_LOST, {file.source.lastLine(), 1});
    }
}

// Reads a pattern file. Returns 0, or the error number of a failed read.
int readPattern(CheckedFile& file, root_tbl& root, std::FILE* stream) {
    IgCmnFileHandle handle{};
    handle.stream = stream;
    handle.line_no = 1;
    handle.name = file.name.data();
    root.crnt_ptn_def = file.pattern = IgIniGetPickPtn(file.pool.get());
    errno = EIO;
    const int result = file.pattern == nullptr ? -1 : observePtnDef(handle, root, file.pool.get());
    const int error = result == -1 ? errno : 0;
    IgCmnFileClose(&handle);
    return error;
}

int readConfiguration(CheckedFile& file, root_tbl& root, std::FILE* stream) {
    const FileGuard guard(stream);
    errno = EIO;
    return observeCompDef(stream, root, file.pool.get()) == -1 ? errno : 0;
}

}  // namespace

const PlacedValue* PlacedItem::find(std::string_view keyword) const {
    const auto found = std::find_if(values.rbegin(), values.rend(), [&](const PlacedValue& value) {
        return value.keyword == keyword;
    });
    return found == values.rend() ? nullptr : &*found;
}

void CheckedFile::add(Finding finding) {
    if (findings.size() < MOST_FINDINGS) {
        findings.push_back(std::move(finding));
    } else {
        truncated = true;
    }
}

void CheckedFile::warn(Warning warning, TextPlace place, const Blanks& blanks) {
    add(warningOf(warning, place, blanks));
}

void CheckedFile::settle() {
    for (Finding& finding : findings) {
        settlePlace(*this, finding.place, finding.token);
        settlePlace(*this, finding.note_place, "");
    }
    std::stable_sort(findings.begin(), findings.end(), [](const Finding& a, const Finding& b) {
        return std::pair(a.place.line, a.place.column) < std::pair(b.place.line, b.place.column);
    });
}

bool CheckedFile::hasError() const {
    return std::any_of(findings.begin(), findings.end(),
                       [](const Finding& finding) { return finding.rule->level == Level::ERROR; });
}

bool readChecked(CheckedFile& file, root_tbl& root, std::string& reason) {
    FileObserver observer(file);
    std::FILE* stream = file.source.streamFrom(0);
    if (stream == nullptr) {
        reason = std::strerror(errno);
        return false;
    }
    root.observer = &observer;
    const int error = file.kind == FileKind::PATTERN ? readPattern(file, root, stream)
                                                     : readConfiguration(file, root, stream);
    root.observer = nullptr;
    if (error != 0) {
        reason = std::strerror(error);
        return false;
    }
    if (file.kind == FileKind::PATTERN) {
        warnOfLostLine(file);
    }
    return true;
}
