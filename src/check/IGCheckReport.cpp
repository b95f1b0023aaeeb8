#include "check/IGCheckReport.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "common/base/IGPrintable.h"
#include "companion/IGText.h"

namespace {

constexpr std::size_t LINE_WIDTH = 160;  // characters of a source line that are shown
constexpr std::size_t BEFORE_CARET = 100;

bool wantsColour() {
    const char* no_colour = std::getenv("NO_COLOR");
    const char* terminal = std::getenv("TERM");
    return ::isatty(STDOUT_FILENO) == 1 && (no_colour == nullptr || *no_colour == '\0') &&
           terminal != nullptr && std::strcmp(terminal, "dumb") != 0;
}

// Messages as compilers write them.
class TextReport final : public Report {
  public:
    void begin() override {}

    void add(CheckedFile& file) override {
        for (const Finding& finding : file.findings) {
            const bool error = finding.rule->level == Level::ERROR;
            write(file, finding.place, nameOf(finding.rule->level), error ? RED : MAGENTA,
                  finding.text + " [" + finding.rule->name + "]");
            if (finding.note_place.line != 0) {
                write(file, finding.note_place, "note", CYAN, finding.note);
            }
        }
        if (file.truncated) {
            std::printf("%s: %zu findings are shown, the rest is left out\n",
                        shown(file.name).c_str(), file.findings.size());
        }
    }

    void end(const Totals& totals) override {
        const std::string unreadable =
            totals.unreadable == 0 ? ""
                                   : ", " + std::to_string(totals.unreadable) + " not readable";
        std::printf("%s: %s, %s%s\n", counted(totals.files, "file").c_str(),
                    counted(totals.errors, "error").c_str(),
                    counted(totals.warnings, "warning").c_str(), unreadable.c_str());
    }

  private:
    static constexpr const char* RED = "\033[1;31m";
    static constexpr const char* MAGENTA = "\033[1;35m";
    static constexpr const char* CYAN = "\033[1;36m";
    static constexpr const char* GREEN = "\033[1;32m";
    static constexpr const char* BOLD = "\033[1m";
    static constexpr const char* PLAIN = "\033[0m";

    [[nodiscard]] std::string coloured(const char* colour, const std::string& text) const {
        return colour_ ? colour + text + PLAIN : text;
    }

    void write(CheckedFile& file, TextPlace place, const char* level, const char* colour,
               const std::string& text) const {
        std::string where = shown(file.name);
        if (place.line != 0) {
            where += ":" + std::to_string(place.line) + ":" + std::to_string(place.column);
        }
        std::printf("%s %s %s\n", coloured(BOLD, where + ":").c_str(),
                    coloured(colour, std::string(level) + ":").c_str(), shown(text).c_str());
        if (place.line != 0) {
            writeSource(file, place);
        }
    }

    // The source line with a caret below the place. All characters before the place are ASCII: the
    // first one that is not is a mistake itself.
    void writeSource(CheckedFile& file, TextPlace place) const {
        const auto column = static_cast<std::size_t>(place.column) - 1;
        const std::size_t begin = column > BEFORE_CARET ? column - BEFORE_CARET : 0;
        std::string line = file.source.line(place.line, begin, LINE_WIDTH + 1);
        const bool is_cut = line.size() > LINE_WIDTH;
        line.resize(std::min(line.size(), LINE_WIDTH));
        const std::string before = line.substr(0, column - begin);
        const std::string rest = before.size() < line.size() ? line.substr(before.size()) : "";
        std::string margin;
        for (const char c : withoutReturns(before)) {
            margin += c == '\t' ? '\t' : ' ';
        }
        std::printf("%5d | %s%s%s%s\n", place.line, begin > 0 ? "..." : "",
                    shown(withoutReturns(before)).c_str(), shown(withoutReturns(rest)).c_str(),
                    is_cut ? "..." : "");
        std::printf("      | %s%s%s\n", begin > 0 ? "   " : "", margin.c_str(),
                    coloured(GREEN, "^").c_str());
    }

    static std::string withoutReturns(std::string text) {
        std::erase(text, '\r');
        return text;
    }

    bool colour_ = wantsColour();
};

}  // namespace

void Totals::count(const CheckedFile& file) {
    ++files;
    truncated += file.truncated ? 1 : 0;
    for (const Finding& finding : file.findings) {
        ++(finding.rule->level == Level::ERROR ? errors : warnings);
    }
}

std::unique_ptr<Report> makeTextReport() {
    return std::make_unique<TextReport>();
}
