// Passwords that echo or printf writes to a pipe.
#include <algorithm>
#include <iterator>

#include "tool/IGSecretCommandRules.h"
#include "tool/IGSecretLine.h"
#include "tool/IGSecretMark.h"

namespace {

// echo me:x | chpasswd: hides the text from the echo to the pipe in front of the reader.
class PipeScan {
  public:
    explicit PipeScan(SecretLine& line) : line_(line) {}
    void run() {
        for (std::size_t place = 0; place < line_.size(); ++place) {
            const char c = line_.at(place);
            if (c == '|') {
                pipe_ = place;
            } else if (written_ == NOWHERE && (c == 'e' || c == 'p')) {
                begin(place);
            } else if (written_ != NOWHERE && pipe_ != NOWHERE && pipe_ > written_ &&
                       reads(place)) {
                hide();
            }
        }
    }

  private:
    void begin(std::size_t place) {
        const std::size_t size = line_.saysExactly(place, "echo")     ? 4
                                 : line_.saysExactly(place, "printf") ? 6
                                                                      : 0;
        if (size != 0 && line_.in(place + size, BLANK)) {
            written_ = line_.skip(place + size, BLANK);
        }
    }
    [[nodiscard]] bool reads(std::size_t place) const {
        return std::any_of(
            std::begin(PASSWORD_READERS), std::end(PASSWORD_READERS),
            [&](std::string_view reader) { return line_.saysExactly(place, reader); });
    }
    void hide() {
        std::size_t end = pipe_;
        while (end > written_ && line_.in(end - 1, BLANK)) {
            --end;
        }
        line_.hide(written_, end, secret_rest::LINE);
        written_ = NOWHERE;
    }
    SecretLine& line_;
    std::size_t written_ = NOWHERE;  // where the text that echo writes begins
    std::size_t pipe_ = NOWHERE;     // the last pipe
};

}  // namespace

void markPipes(SecretLine& line) {
    if (line.find("|") != NOWHERE) {
        PipeScan(line).run();
    }
}
