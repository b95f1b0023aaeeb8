#include "ini/IGIniReadPtn.h"

#include <algorithm>
#include <array>

#include "../../support/pattern_fixture.h"
#include "ini/IGIniTable.h"

namespace {

class IGIniReadPtn : public PatternTest {};

struct KeywordRow {
    std::string name;
    std::string place;  // where it is valid: "top", "block", "tool" or "data"
    std::string value;  // a good one; "{" opens a block
    bool only_once;
    bool may_be_empty;
    std::size_t longest;  // bytes of a value; 0 no limit
    std::uint32_t flag;   // in the flags of its place
};

const std::vector<KeywordRow> KEYWORDS = {
    {"FORMAT_VERSION", "top", "1.0", true, false, 0, PTN_FORMAT_VERSION},
    {"PP_VRS", "top", "v", true, true, 10, PTN_VRS},
    {"PP_KATAMEI", "top", "k", true, true, 256, PTN_KATAMEI},
    {"PP_NAME", "top", "n", true, true, 256, PTN_NAME},
    {"PP_GROUP", "top", "g", false, true, 256, PTN_GROUP},
    {"BLOCK", "top", "{\n}", false, false, 0, PTN_BLOCK},
    {"TARGET", "block", "t", false, true, 256, BLOCK_TARGET},
    {"TOOL_BLOCK", "block", "{\nCOMMAND_LINE = /x\n}", false, false, 0, 0},
    {"DATA_BLOCK", "block", "{\nPATH_NAME = /x\n}", false, false, 0, 0},
    {"TIMEOUT", "tool", "1", true, true, 0, TOOL_TIMEOUT},
    {"TIMEOUT_SIGNAL", "tool", "2", true, true, 0, TOOL_TIMEOUT_SIGNAL},
    {"WAIT_TERMINATION", "tool", "3", true, true, 0, TOOL_WAIT_TERMINATION},
    {"COMMAND_LINE", "tool", "/c", true, false, 260, TOOL_COMMAND_LINE},
    {"REDIRECT_PATH", "tool", "/r", true, false, 260, TOOL_REDIRECT_PATH},
    {"DESCRIPTION", "data", "d", false, true, 256, DATA_DESCRIPTION},
    {"FILE_TYPE", "data", "text", true, true, 20, DATA_FILE_TYPE},
    {"PATH_NAME", "data", "/p", true, false, 260, DATA_PATH_NAME},
};

struct Place {
    std::string name;
    std::string before;
    std::string required;  // a statement without which the place cannot be closed
    std::string after;
    std::size_t line;  // of the first statement
};

const std::vector<Place> PLACES = {
    {"top", "", "", "BLOCK {\n}\n", 2},
    {"block", "BLOCK {\n", "", "}\n", 3},
    {"tool", "BLOCK {\nTOOL_BLOCK {\n", "COMMAND_LINE = /x\n", "}\n}\n", 4},
    {"data", "BLOCK {\nDATA_BLOCK {\n", "PATH_NAME = /x\n", "}\n}\n", 4},
};

const Place& placeOf(const KeywordRow& keyword) {
    return *std::find_if(PLACES.begin(), PLACES.end(),
                         [&](const Place& place) { return place.name == keyword.place; });
}

std::string statement(const std::string& keyword, const std::string& value) {
    return keyword + (value.starts_with("{") ? " " : " = ") + value + "\n";
}

// A file with the given statements in their place, and all other required statements.
std::string fileWith(const Place& place, const std::string& statements,
                     const std::string& keyword = "") {
    const bool given = !keyword.empty() && place.required.starts_with(keyword + " ");
    return VERSION + place.before + statements + (given ? "" : place.required) + place.after;
}

class EveryKeyword : public IGIniReadPtn {
  protected:
    // The reports for a file with an error in the given line, and for one without an error.
    static std::string syntax(std::size_t line) { return "syntax " + std::to_string(line); }
    void expectGood(const std::string& text) {
        SCOPED_TRACE(text);
        EXPECT_THAT(read(text), ::testing::EndsWith("}"));
    }
    void expectFault(const std::string& text, std::size_t line) {
        SCOPED_TRACE(text);
        EXPECT_EQ(read(text), syntax(line));
    }
};

TEST_F(EveryKeyword, IsAcceptedInItsOwnPlaceOnly) {
    for (const KeywordRow& keyword : KEYWORDS) {
        for (const Place& place : PLACES) {
            const std::string text =
                fileWith(place, statement(keyword.name, keyword.value), keyword.name);
            if (place.name == keyword.place && keyword.name != "FORMAT_VERSION") {
                expectGood(text);
            } else {
                expectFault(text, place.line);
            }
        }
    }
    for (const Place& place : PLACES) {
        for (char digit = '0'; digit <= '9'; ++digit) {
            expectFault(fileWith(place, std::string("REG") + digit + " = x\n"), place.line);
        }
        expectFault(fileWith(place, "UNKNOWN = x\n"), place.line);
    }
}

TEST_F(EveryKeyword, IsMatchedInAnyCase) {
    for (const KeywordRow& keyword : KEYWORDS) {
        std::string lower = keyword.name;
        std::transform(lower.begin(), lower.end(), lower.begin(), ::tolower);
        std::string mixed = lower;
        mixed[0] = keyword.name[0];
        const Place& place = placeOf(keyword);
        for (const std::string& name : {lower, mixed}) {
            if (keyword.name == "FORMAT_VERSION") {
                expectGood(name + " = 1.0\nBLOCK {\n}\n");
            } else {
                expectGood(fileWith(place, statement(name, keyword.value), keyword.name));
            }
        }
        expectFault(fileWith(place, statement(keyword.name + "S", "x")), place.line);
        expectFault(fileWith(place, statement(keyword.name.substr(1), "x")), place.line);
    }
}

TEST_F(EveryKeyword, IsAcceptedOnceOrRepeatedly) {
    for (const KeywordRow& keyword : KEYWORDS) {
        const Place& place = placeOf(keyword);
        const std::string once = statement(keyword.name, keyword.value);
        const std::string text = fileWith(place, once + once, keyword.name);
        if (keyword.name == "FORMAT_VERSION") {
            expectFault(VERSION + once, 2);
        } else if (keyword.only_once) {
            expectFault(text, place.line + 1);
        } else {
            expectGood(text);
            // As often as in the file, also with another statement between them.
            expectGood(fileWith(place, once + "\n# note\n" + once + once, keyword.name));
        }
    }
}

TEST_F(EveryKeyword, SetsItsOwnFlagWithAndWithoutAValue) {
    for (const KeywordRow& keyword : KEYWORDS) {
        const Place& place = placeOf(keyword);
        if (keyword.name == "FORMAT_VERSION" || keyword.value.starts_with("{")) {
            continue;
        }
        for (const std::string& value : {keyword.value, std::string()}) {
            if (value.empty() && !keyword.may_be_empty) {
                continue;
            }
            const std::string text = fileWith(place, statement(keyword.name, value), keyword.name);
            SCOPED_TRACE(text);
            ASSERT_THAT(read(text), ::testing::EndsWith("}"));
            const std::uint32_t top = PTN_FORMAT_VERSION | PTN_BLOCK;
            EXPECT_EQ(ptn_->flags, top | (place.name == "top" ? keyword.flag : 0));
            const ptn_block& block = *ptn_->current;
            EXPECT_EQ(block.flags, place.name == "block" ? keyword.flag : 0);
            if (place.name == "tool") {
                EXPECT_EQ(block.current->flags, keyword.flag | TOOL_COMMAND_LINE);
            } else if (place.name == "data") {
                EXPECT_EQ(block.current->flags, keyword.flag | DATA_PATH_NAME);
            }
        }
    }
}

TEST_F(EveryKeyword, AcceptsOrRefusesAnEmptyValue) {
    for (const KeywordRow& keyword : KEYWORDS) {
        const Place& place = placeOf(keyword);
        for (const char* empty : {"", "\"\"", "  ", "\"\"\"\"", "\t\"\"\t# note"}) {
            const std::string text =
                fileWith(place, keyword.name + " =" + empty + "\n", keyword.name);
            if (keyword.name == "FORMAT_VERSION") {
                SCOPED_TRACE(empty);
                EXPECT_EQ(read(keyword.name + " =" + empty + "\nBLOCK {\n}\n"), "format");
            } else if (keyword.may_be_empty) {
                expectGood(text);
            } else {
                expectFault(text, place.line);
            }
        }
    }
}

TEST_F(EveryKeyword, AcceptsAValueUpToItsLimit) {
    for (const KeywordRow& keyword : KEYWORDS) {
        if (keyword.longest == 0) {
            continue;
        }
        const Place& place = placeOf(keyword);
        const std::string start = keyword.value.substr(0, 1);
        const std::string full = start + times(keyword.longest - 1, "x");
        expectGood(fileWith(place, statement(keyword.name, full), keyword.name));
        expectGood(fileWith(place, statement(keyword.name, '"' + full + '"'), keyword.name));
        expectFault(fileWith(place, statement(keyword.name, full + "x"), keyword.name), place.line);
        expectFault(fileWith(place, statement(keyword.name, '"' + full + "\"x"), keyword.name),
                    place.line);
        // Percent signs and escaped characters count as they are written.
        const std::string percents = start + times(keyword.longest / 2, "%%");
        expectFault(fileWith(place, statement(keyword.name, percents), keyword.name), place.line);
        expectGood(fileWith(place, statement(keyword.name, start + "\\\\" + full.substr(2)),
                            keyword.name));
    }
}

TEST_F(EveryKeyword, ChecksTheSpecialStringsOfItsValue) {
    for (const KeywordRow& keyword : KEYWORDS) {
        if (keyword.value.starts_with("{") || keyword.name == "FORMAT_VERSION") {
            continue;
        }
        const Place& place = placeOf(keyword);
        const std::string start = keyword.value.substr(0, 1);
        for (const char* bad : {"%FOO%", "%", "%%%", "%reg0%", "%host%", "\"% %\"", "%HOST"}) {
            expectFault(fileWith(place, statement(keyword.name, start + bad), keyword.name),
                        place.line);
        }
        if (keyword.longest > 0) {
            for (const char* good : {"%%", "%YY%", "%ss%\"%MM%\"", "%d%", "%%%%"}) {
                expectGood(fileWith(place, statement(keyword.name, start + good), keyword.name));
            }
        }
    }
}

// Rows: states; columns: the next word. "+" and a text: the table that the file becomes; a number:
// the line with the error.
TEST_F(IGIniReadPtn, AcceptsOrRefusesEveryWordInEveryState) {
    constexpr std::array<const char*, 11> WORDS{"\"x\"", "=",      "#x", "x", "{", "}",
                                                " ",     "%HOST%", "\n", "%", "\v"};
    struct State {
        const char* before;
        const char* after;
        std::array<const char*, WORDS.size()> outcomes;
    };
    const std::string block = "\nBLOCK {\n}\n";
    const std::vector<State> states = {
        {"",
         block.c_str(),  // a statement
         {"2", "2", "+{}", "2", "2", "2", "+{}", "2", "+{}", "2", "2"}},
        {"PP_GROUP ",
         block.c_str(),  // its equals sign
         {"2", "+{}", "2", "2", "2", "2", "2", "2", "2", "2", "2"}},
        {"PP_GROUP =",
         block.c_str(),  // its value
         {"+group=x {}", "2", "3", "+group=x {}", "2", "2", "+{}", "+group=%HOST% {}", "+{}", "2",
          "2"}},
        {"PP_GROUP =\"a\"",
         block.c_str(),  // more of its value
         {"+group=ax {}", "2", "3", "+group=ax {}", "2", "2", "+group=a {}", "+group=a%HOST% {}",
          "+group=a {}", "2", "2"}},
        {"PP_GROUP =\"a\" ",
         block.c_str(),  // the text after its value
         {"2", "2", "+group=a {}", "2", "2", "2", "+group=a {}", "2", "+group=a {}", "2", "2"}},
        {"BLOCK ",
         "\n}\n",  // its brace
         {"2", "2", "2", "2", "+{}", "2", "3", "2", "4", "2", "2"}},
        {"BLOCK { ",
         "\n}\n",  // the text after its brace
         {"2", "2", "2", "2", "2", "2", "+{}", "2", "+{}", "2", "2"}},
    };
    for (const State& state : states) {
        for (std::size_t i = 0; i < WORDS.size(); ++i) {
            const std::string text = VERSION + state.before + WORDS[i] + state.after;
            SCOPED_TRACE(text);
            const std::string outcome = state.outcomes[i];
            EXPECT_EQ(read(text), outcome[0] == '+' ? outcome.substr(1) : "syntax " + outcome);
        }
    }
}

}  // namespace
