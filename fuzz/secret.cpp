// The filter for secrets: for any input, in blocks and parts of any size, it adds only masks and a
// last line feed, and a value next to its name on a separate line is always masked.
#include <algorithm>
#include <memory>
#include <string_view>

#include "fuzz.h"
#include "tool/IGSecretText.h"

namespace {

bool append(void* to, const char* bytes, std::size_t size) {
    static_cast<std::string*>(to)->append(bytes, size);
    return true;
}

std::string masked(std::string_view given, std::size_t block, std::size_t part) {
    static secret_text text;
    text.state = secret_state{};
    text.used = text.scanned = text.carried = text.collected = 0;
    text.goes_on = text.masking = text.failed = false;
    text.part = part;
    std::string result;
    text.write = append;
    text.to = &result;
    while (!given.empty()) {
        const std::span<char> room = secretRoom(&text);
        fuzzRequire(!room.empty() && room.size() <= part);
        const std::size_t size = given.copy(room.data(), std::min(block, room.size()));
        fuzzRequire(secretTake(&text, size));
        given.remove_prefix(size);
    }
    fuzzRequire(secretEnd(&text));
    return result;
}

// Whether a text is another one with some parts removed or replaced by a mask. A mask in the
// original text counts as a mask too.
bool isPartOf(const std::string& result, std::string_view given) {
    std::size_t at = 0;
    for (std::size_t i = 0; i < result.size();) {
        if (result.compare(i, SECRET_MASK.size(), SECRET_MASK) == 0) {
            i += SECRET_MASK.size();
            continue;
        }
        at = given.find(result[i], at);
        if (at == std::string_view::npos) {
            return i + 1 == result.size() && result[i] == '\n';
        }
        ++at;
        ++i;
    }
    return true;
}

std::size_t linesOf(std::string_view text) {
    return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string given(reinterpret_cast<const char*>(data), size);
    const std::string whole = masked(given, SECRET_PART, SECRET_PART);
    fuzzRequire(whole == masked(given, 7, SECRET_PART));
    fuzzRequire(linesOf(whole) <= linesOf(given) + 1 && whole.size() <= 9 * given.size() + 9);
    fuzzRequire(isPartOf(whole, given));
    const std::string in_parts = masked(given, 64, 64);
    fuzzRequire(linesOf(in_parts) <= linesOf(given) + 1 && isPartOf(in_parts, given));
    if (given.find("plantedQ7") != std::string::npos) {
        return 0;
    }
    // After any text, on earlier lines or earlier on the same line.
    for (const char* planted : {"\npassword=plantedQ7\n", " password=plantedQ7 x\n"}) {
        fuzzRequire(masked(given + planted, 100, SECRET_PART).find("plantedQ7") ==
                    std::string::npos);
    }
    // A new file is shown, even if the previous one ended inside a secret.
    const std::string next = masked(given + "\n==> /next\nseen\n", SECRET_PART, SECRET_PART);
    fuzzRequire(next.size() >= 5 && next.compare(next.size() - 5, 5, "seen\n") == 0);
    return 0;
}
