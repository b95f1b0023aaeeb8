// The word reader: it reaches the end of every input, every word is a terminated text of its kind,
// and lines are counted correctly.
#include "common/file/IGCmnFile.h"
#include "fuzz.h"
#include "ini/IGCmnFileWord.h"

namespace {

bool isOfItsKind(std::int32_t type, const std::string& text) {
    switch (type) {
        case WORD_OPEN:
            return text == "{";
        case WORD_CLOSE:
            return text == "}";
        case WORD_EQUAL:
            return text == "=";
        case WORD_PERCENT:
            return text == "%";
        case WORD_NEWLINE:
            return text.empty();
        case WORD_BLANK:
            return !text.empty() && text.find_first_not_of(" \t") == std::string::npos;
        case WORD_SPECIAL:
            return text.size() > 1 && text[0] == '%';
        case WORD_TEXT:
            return !text.empty() && text.find('\n') == std::string::npos;
        case WORD_QUOTED:
        case WORD_COMMENT:
            return text.find('\n') == std::string::npos;
        default:
            return false;
    }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzzStart();
    const FuzzFile input(data, size);
    IgCmnFileHandle file{};
    fuzzRequire(IgCmnFileOpen(&file, input.path(), "r") == 0);
    read_word word{};
    std::int32_t line_no = 1;
    std::int32_t lines = 1;
    // Each word takes at least one character; an undecodable character may be returned again.
    for (std::size_t words = 0; words <= size; ++words) {
        const int result = IgCmnFileWordRead(nullptr, &file, &word, &file.pool);
        fuzzRequire(file.line_no >= line_no && file.column <= WORD_LINE_LIMIT + 1);
        line_no = file.line_no;
        if (result != 0 || word.type == WORD_INVALID) {
            IgCmnFileClose(&file);
            return 0;
        }
        fuzzRequire(word.text != nullptr && std::string(word.text).size() < word.text_size);
        fuzzRequire(isOfItsKind(word.type, word.text));
        lines += word.type == WORD_NEWLINE || word.type == WORD_COMMENT ? 1 : 0;
        fuzzRequire(file.line_no == lines || file.line_no == lines - 1);
    }
    std::abort();
}
