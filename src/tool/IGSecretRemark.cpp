// Secrets in remarks of administrators, which have no fixed format ("iLO: Administrator/x"), and
// tokens of log services ("[x@41058]").
#include <iterator>

#include "tool/IGSecretLine.h"
#include "tool/IGSecretMark.h"
#include "tool/IGSecretSentenceRules.h"

namespace {

constexpr std::string_view STOPS = ".,;:)\r";

// Administrator/x behind a colon, or behind a word that announces it.
class AccountScan {
  public:
    explicit AccountScan(SecretLine& line) : line_(line) {}
    void run() {
        for (std::size_t sign = line_.untilByte(0, '/'); !line_.hasEnd(sign);) {
            const std::size_t from = accountBefore(sign);
            const std::size_t end = from == NOWHERE ? sign + 1 : line_.until(sign, BLANK | QUOTE);
            if (from != NOWHERE &&
                isPassword(from, sign + 1, line_.withoutEnd(sign + 1, end, STOPS))) {
                line_.hideWithoutEnd(sign + 1, end, STOPS);
            }
            sign = line_.untilByte(end, '/');
        }
    }

  private:
    // Where the name of an administrator begins that ends at a place, or NOWHERE.
    [[nodiscard]] std::size_t accountBefore(std::size_t end) const {
        constexpr std::size_t LONGEST = 16;
        std::size_t from = end;
        while (from > 0 && end - from < LONGEST && line_.in(from - 1, LETTER)) {
            --from;
        }
        const bool apart =
            from == 0 || line_.in(from - 1, BLANK | QUOTE | SEPARATOR) || line_.at(from - 1) == '(';
        return apart && line_.isOneOf(from, end, SECRET_ACCOUNTS) ? from : NOWHERE;
    }
    // Whether a password is behind the slash, and not a file in a directory.
    bool isPassword(std::size_t account, std::size_t from, std::size_t to) {
        constexpr std::size_t SHORTEST = 6;
        const std::string_view value = line_.text().substr(from, to - from);
        std::size_t before = account;
        while (before > 0 && line_.in(before - 1, BLANK)) {
            --before;
        }
        const bool announced = isAnnounced(account);
        if (!announced && (before == 0 || line_.at(before - 1) != ':')) {
            return false;
        }
        return line_.looksSecret(from, to) ||
               (announced && value.size() >= SHORTEST && !line_.looksOrdinary(from, to) &&
                value.find_first_of("./\\@") == NOWHERE);
    }
    bool isAnnounced(std::size_t account) {
        for (; !announced_ && searched_ < account; ++searched_) {
            if (searched_ == 0 || !line_.in(searched_ - 1, NAME)) {
                const std::size_t end = line_.skip(searched_, NAME);
                announced_ = line_.isOneOf(searched_, end, ACCESS_WORDS);
            }
        }
        return announced_;
    }

    SecretLine& line_;
    std::size_t searched_ = 0;  // the end of the stretch that was searched for such a word
    bool announced_ = false;    // one was found
};

// [x@41058 tag="a"]: in front of the number of a company is the name of its data or, in settings of
// log services, the token of a customer.
void markStructuredData(SecretLine& line) {
    constexpr std::size_t SHORTEST = 8;
    for (std::size_t at = line.untilByte(0, '['); !line.hasEnd(at);) {
        const std::size_t from = at + 1;
        const std::size_t sign = line.skip(from, KEY);
        const std::size_t number = line.skip(sign + 1, DIGIT);
        const bool ends = line.in(number, BLANK) || line.at(number) == ']';
        if (line.at(sign) == '@' && number > sign + 3 && ends && sign - from >= SHORTEST &&
            line.has(from, sign, DIGIT) && line.has(from, sign, LETTER)) {
            line.hide(from, sign, secret_rest::WORD);
        }
        at = line.untilByte(sign, '[');
    }
}

}  // namespace

void markRemarks(SecretLine& line) {
    AccountScan(line).run();
    if (!line.hasEnd(line.untilByte(0, '@'))) {
        markStructuredData(line);
    }
}
