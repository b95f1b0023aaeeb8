// The word reader: every input ends, every word is a terminated text, lines only go up.
#include "common/IGCmnFileWord.h"
#include "fuzz.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzzStart();
    const FuzzFile input(data, size);
    IgCmnFileHandle file{};
    fuzzRequire(IgCmnFileOpen(&file, input.path(), "r") == 0);
    read_word word{};
    std::int32_t line_no = 1;
    // A word takes a character, and one that cannot be decoded may be met again.
    for (std::size_t words = 0; words <= size; ++words) {
        const int result = IgCmnFileWordRead(nullptr, &file, &word, &file.pool);
        fuzzRequire(file.line_no >= line_no && file.column <= WORD_LINE_LIMIT + 1);
        line_no = file.line_no;
        if (result != 0 || word.type == WORD_INVALID) {
            IgCmnFileClose(&file);
            return 0;
        }
        fuzzRequire(word.text != nullptr && std::string(word.text).size() < word.text_size);
    }
    std::abort();
}
