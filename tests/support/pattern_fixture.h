// A run whose tests read a pattern file and compare the resulting table.
#ifndef QUENDIL_TESTS_SUPPORT_PATTERN_FIXTURE_H
#define QUENDIL_TESTS_SUPPORT_PATTERN_FIXTURE_H

#include <sstream>
#include <string>
#include <vector>

#include "common/base/IGCmnList.h"
#include "ini/IGIniReadPtn.h"
#include "ini/IGIniTable.h"
#include "run_fixture.h"

inline const std::string VERSION = "FORMAT_VERSION = 1.0\n";

// --- the table in one line ---

inline std::string joined(const IgCmnListHeader* list) {
    std::string text;
    for (const char& value : walkStrings(list)) {
        text += (text.empty() ? "" : "|") + std::string(&value);
    }
    return text;
}

inline std::string orNone(const char* text) {
    return text == nullptr ? "-" : text;
}

inline std::string toolText(const tool_block& tool) {
    std::ostringstream text;
    text << "tool(" << tool.timeout << ", " << tool.timeout_signal << ", " << tool.wait_termination
         << ", " << orNone(tool.command_line) << ", " << orNone(tool.redirect_path) << ")";
    return text.str();
}

inline std::string dataText(const data_block& data) {
    std::ostringstream text;
    text << "data(" << data.file_type << ", " << orNone(data.file_type_word) << ", "
         << orNone(data.path_name)
         << (data.description == nullptr ? "" : ", " + joined(data.description)) << ")";
    return text.str();
}

inline std::string blockText(const ptn_block& block) {
    std::string text = "{";
    if (block.target != nullptr) {
        text += " target=" + joined(block.target);
    }
    for (const collect_item& item : walkList<const collect_item>(block.items)) {
        text += " " + (item.kind == ITEM_TOOL ? toolText(item.tool) : dataText(item.data));
    }
    return text + (text.size() > 1 ? " }" : "}");
}

inline std::string patternText(const pickptn_tbl& ptn) {
    std::string text;
    const auto add = [&text](const std::string& part) { text += (text.empty() ? "" : " ") + part; };
    if (ptn.vrs != nullptr) {
        add("vrs=" + std::string(ptn.vrs));
    }
    if (ptn.katamei != nullptr) {
        add("katamei=" + joined(ptn.katamei));
    }
    if (ptn.name != nullptr) {
        add("name=" + joined(ptn.name));
    }
    if (ptn.group != nullptr) {
        add("group=" + joined(ptn.group));
    }
    for (const ptn_block& block : walkList<const ptn_block>(ptn.blocks)) {
        add(blockText(block));
    }
    return text;
}

// A text of the file and the result of reading it: the table in one line, or one of
//     "syntax N"   the file is skipped for a syntax error in line N
//     "format"     the file is skipped for its format version
//     "newer"      the file is skipped for a newer format version
struct Case {
    std::string text;
    std::string expected;
};

class PatternTest : public RunTest {
  protected:
    void SetUp() override {
        RunTest::SetUp();
        file_ = directory_.path("10_pattern");
    }

    // Reads the current file; returns the result.
    int readFile() {
        ptn_ = IgIniGetPickPtn(pool());
        root_.crnt_ptn_def = ptn_;
        Capture errors(stderr);
        const int result = IgIniReadPtnDef(file_.c_str(), &root_, pool());
        errors_ = errors.take();
        log_ = takeLog();
        return result;
    }

    std::string read(const std::string& text) {
        writeText(file_, text);
        const int result = readFile();
        const std::string shown = errors_ + "|" + log_;
        if (result == 0 && shown == "|") {
            return patternText(*ptn_);
        }
        if (result != PTN_SKIPPED) {
            return "result " + std::to_string(result) + " " + shown;
        }
        const std::string format = "ZEPA139-W:Invalid format number(" + file_ + ").\n";
        if (shown == format + "|" + format) {
            return "format";
        }
        const std::string newer =
            "ZEPA159-W:quendil command is older than the collection pattern file. skip the file (" +
            file_ + ").\n";
        if (shown == newer + "|" + newer) {
            return "newer";
        }
        const std::string before =
            "|ZEPA137-W:Internal error occurred.\nZEPA138-W:filename = " + file_ + ", line no = ";
        const std::string after = ".\n";
        if (shown.starts_with(before) && shown.ends_with(after)) {
            return "syntax " +
                   shown.substr(before.size(), shown.size() - before.size() - after.size());
        }
        return shown;
    }

    void expectAll(const std::vector<Case>& cases, const std::string& before = "",
                   const std::string& after = "") {
        for (const Case& one : cases) {
            SCOPED_TRACE(before + one.text + after);
            EXPECT_EQ(read(before + one.text + after), one.expected);
        }
    }

    TempDir directory_;
    std::string file_;
    root_tbl root_{};
    pickptn_tbl* ptn_ = nullptr;
    std::string errors_;
    std::string log_;
};

inline std::string times(std::size_t count, const std::string& text) {
    std::string result;
    for (std::size_t i = 0; i < count; ++i) {
        result += text;
    }
    return result;
}

#endif
