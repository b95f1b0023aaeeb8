// Passwords in command lines.
#include <algorithm>
#include <array>
#include <iterator>

#include "tool/IGSecretBeginning.h"
#include "tool/IGSecretCommandRules.h"
#include "tool/IGSecretLine.h"
#include "tool/IGSecretMark.h"
#include "tool/IGSecretOption.h"
#include "tool/IGSecretSentenceRules.h"

namespace {

// Words that were read in a line, for the words behind them.
enum command_flag : std::uint32_t {
    HAS_KEYS = 1,        ///< ip xfrm, macsec: every hexadecimal number is a key
    HAS_ORACLE = 2,      ///< user/password@database
    HAS_PROMPT = 4,      ///< "assword:": the next text that is sent is a password
    HAS_WIRELESS = 8,    ///< iw, iwconfig
    HAS_AWS = 16,        ///< aws configure
    HAS_CRYPTO = 32,     ///< the line begins with crypto
    HAS_CHPASSWD = 64,   ///< chpasswd: user:password
    HAS_LOGIN = 128,     ///< user, acct: a login may follow
    FIRST_KEYWORD = 256  ///< and higher: a bit for each command of SECRET_KEYWORDS
};

// The flag of each row of SECRET_KEYWORDS. Rows of the same command follow each other.
constexpr std::array<std::uint32_t, std::size(SECRET_KEYWORDS)> keywordFlags() {
    std::array<std::uint32_t, std::size(SECRET_KEYWORDS)> flags{};
    std::uint32_t flag = FIRST_KEYWORD;
    for (std::size_t row = 0; row < flags.size(); ++row) {
        const bool other =
            row > 0 && SECRET_KEYWORDS[row].command != SECRET_KEYWORDS[row - 1].command;
        flag <<= other ? 1 : 0;
        flags[row] = flag;
    }
    return flags;
}
constexpr auto KEYWORD_FLAGS = keywordFlags();
static_assert(KEYWORD_FLAGS.back() != 0, "each command needs a bit");

// The beginnings of the words that setFlags() knows, and of hexadecimal numbers.
constexpr BeginningFilter makeWordFilter() {
    BeginningFilter filter;
    for (const std::string_view program : ORACLE_PROGRAMS) {
        filter.add(program);
    }
    for (const std::string_view word :
         {"0x", "xfrm", "macsec", "iw", "chpasswd", "configure", "assword", "password", "Password",
          "user", "User", "USER", "LOGIN", "acct"}) {
        filter.add(word);
    }
    return filter;
}
constexpr BeginningFilter WORD_BEGINNINGS = makeWordFilter();

constexpr auto KEYWORD_BEGINNINGS =
    filterOf<BeginningFilter>(SECRET_KEYWORDS, &secret_keyword::command);
constexpr auto ARGUMENT_BEGINNINGS =
    filterOf<BeginningFilter>(SECRET_ARGUMENTS, &secret_argument::command);
constexpr auto PROGRAM_BEGINNINGS = filterOf<PairFilter>(SECRET_PROGRAMS, &secret_program::name);
constexpr auto OPEN_BEGINNINGS = filterOf<PairFilter>(OPEN_PROGRAMS);

// Goes through the words of a command line once. What it remembers of the words before is in the
// state of the line, so that the next part of a very long line has it too.
class CommandScan {
  public:
    explicit CommandScan(SecretLine& line) : line_(line), state_(line.state()), options_(line) {}
    void run();

  private:
    std::size_t atName(std::size_t from, std::size_t to);
    std::size_t atWord(std::size_t from, std::size_t to);
    std::size_t atOther(std::size_t place);
    std::size_t slash(std::size_t place);
    [[nodiscard]] bool isOpen(std::size_t from, std::size_t to) const;
    void setFlags(std::size_t from, std::size_t to);
    void setKeywordFlags(std::size_t from, std::size_t to);
    void setProgram(std::size_t from, std::size_t to);
    [[nodiscard]] bool isProgram(const secret_program& program, std::size_t from,
                                 std::size_t to) const;
    [[nodiscard]] bool hasFlag(unsigned flag) const { return (state_.flags & flag) != 0; }
    void set(unsigned flag) { state_.flags |= flag; }

    std::size_t keyword(std::size_t from, std::size_t to);
    [[nodiscard]] std::size_t behindKind(std::size_t from) const;
    [[nodiscard]] bool isSentenceWord(std::size_t from) const;
    std::size_t argument(std::size_t from, std::size_t to);
    std::size_t hereString(std::size_t place);
    std::size_t login(std::size_t sign);
    std::size_t oracle(std::size_t sign);
    std::size_t percent(std::size_t sign);
    [[nodiscard]] bool namesUser(std::size_t from, std::size_t to) const;

    SecretLine& line_;
    secret_state& state_;
    OptionScan options_;
    std::size_t word_from_ = 0;  // where the last stretch without blanks, "/", "@" and quotes began
    std::size_t user_from_ = 0;  // where the last stretch without blanks, "%", "," and quotes began
};

void CommandScan::run() {
    if (line_.starts()) {
        const std::size_t from = line_.skip(0, BLANK);
        if (line_.saysExactly(from, "crypto") && line_.in(from + 6, BLANK)) {
            set(HAS_CRYPTO);
        }
        if (state_.prompted) {
            set(HAS_PROMPT);
            state_.prompted = false;
        }
    }
    for (std::size_t place = 0; place < line_.size();) {
        if (line_.in(place, NAME)) {
            place = atName(place, line_.skip(place, NAME));
        } else {
            place = atOther(place);
        }
    }
}

// ---- Words that change the words behind them ------------------------------------------------

void CommandScan::setFlags(std::size_t from, std::size_t to) {
    const std::string_view word = line_.text().substr(from, to - from);
    if (word == "user" || word == "username" || word == "User" || word == "USER" ||
        word == "LOGIN" || word == "acct") {
        set(HAS_LOGIN);
        return;
    }
    if (word.find("xfrm") != NOWHERE || word.find("macsec") != NOWHERE) {
        set(HAS_KEYS);
    }
    if (word.find("assword") != NOWHERE) {
        set(HAS_PROMPT);
    }
    if (word == "iw" || word == "iwconfig") {
        set(HAS_WIRELESS);
    }
    if (word == "chpasswd") {
        set(HAS_CHPASSWD);
    }
    if (word == "configure" && line_.endsWith(0, from, "aws ")) {
        set(HAS_AWS);
    }
    for (const std::string_view program : ORACLE_PROGRAMS) {
        if (word.substr(0, program.size()) == program) {
            set(HAS_ORACLE);
        }
    }
}

void CommandScan::setKeywordFlags(std::size_t from, std::size_t to) {
    for (std::size_t row = 0; row < KEYWORD_FLAGS.size(); ++row) {
        if (line_.isExactly(from, to, SECRET_KEYWORDS[row].command) && line_.in(to, BLANK)) {
            set(KEYWORD_FLAGS[row]);
        }
    }
}

bool CommandScan::isProgram(const secret_program& program, std::size_t from, std::size_t to) const {
    const std::size_t end = from + program.name.size();
    if (end > to || !line_.saysExactly(from, program.name) ||
        (program.letter_follows && !line_.in(end, LETTER))) {
        return false;
    }
    return program.next.empty() ||
           (end == to && line_.at(to) == ' ' && line_.saysExactly(to + 1, program.next));
}

void CommandScan::setProgram(std::size_t from, std::size_t to) {
    for (const secret_program& program : SECRET_PROGRAMS) {
        if (isProgram(program, from, to)) {
            state_.commands =
                static_cast<std::uint16_t>(&program - std::begin(SECRET_PROGRAMS) + 1);
            return;
        }
    }
}

bool CommandScan::isOpen(std::size_t from, std::size_t to) const {
    return line_.in(to, BLANK) &&
           std::any_of(std::begin(OPEN_PROGRAMS), std::end(OPEN_PROGRAMS),
                       [&](std::string_view one) { return line_.isExactly(from, to, one); });
}

std::size_t CommandScan::atName(std::size_t from, std::size_t to) {
    const bool behind_blank = from == 0 || line_.in(from - 1, BLANK);
    const bool in_list = from > 0 && line_.in(from - 1, QUOTE);
    if ((behind_blank || in_list) && line_.at(from) == '-') {
        const std::size_t next = options_.mark(from, to);
        return next != 0 ? next : to;
    }
    if (behind_blank && state_.flags != 0) {
        if (const std::size_t next = keyword(from, to); next != 0) {
            return next;
        }
    }
    const char first = line_.at(from);
    const char second = line_.at(from + 1);
    if (PROGRAM_BEGINNINGS.has(first, second)) {
        setProgram(from, to);
    }
    if (state_.commands == NO_PROGRAM && OPEN_BEGINNINGS.has(first, second) && isOpen(from, to)) {
        state_.commands = OPEN_PROGRAM;
    }
    return atWord(from, to);
}

std::size_t CommandScan::atWord(std::size_t from, std::size_t to) {
    if (ARGUMENT_BEGINNINGS.has(line_, from)) {
        if (const std::size_t next = argument(from, to); next != 0) {
            return next;
        }
    }
    if (KEYWORD_BEGINNINGS.has(line_, from)) {
        setKeywordFlags(from, to);
    }
    if (!WORD_BEGINNINGS.has(line_, from)) {
        return to;
    }
    setFlags(from, to);
    if (hasFlag(HAS_KEYS) && line_.saysExactly(from, "0x") && to > from + 2) {
        line_.hide(from, line_.skip(from, LETTER | DIGIT), secret_rest::WORD);
    }
    return to;
}

std::size_t CommandScan::atOther(std::size_t place) {
    switch (line_.at(place)) {
        case '<':
            return hereString(place);
        case '@':
            return oracle(place);
        case '%':
            return percent(place);
        case '/':
            return slash(place);
        case ' ':
        case '\t':
        case '"':
        case '\'':
            word_from_ = place + 1;
            user_from_ = place + 1;
            return place + 1;
        case ',':
            user_from_ = place + 1;
            return place + 1;
        default:
            return place + 1;
    }
}

// sqlplus me/x, and options that begin with a slash: /p:x, /rp x, /user:me x
std::size_t CommandScan::slash(std::size_t place) {
    if (const std::size_t next = login(place); next != 0) {
        return next;
    }
    word_from_ = place + 1;
    if (line_.saysExactly(place, "/rp ") &&
        line_.looksSecret(place + 4, line_.until(place + 4, BLANK))) {
        return line_.hideWord(place + 4);
    }
    if (line_.says(place, "/user:") && line_.endsWith(0, place, " ")) {
        const std::size_t word = line_.skip(line_.until(place, BLANK), BLANK);
        return line_.looksSecret(word, line_.until(word, BLANK)) ? line_.hideWord(word) : place + 6;
    }
    if (line_.saysExactly(place, "/p:") && place > 0 && line_.at(place - 1) == ' ') {
        const std::size_t end = line_.until(place + 3, BLANK);
        line_.hide(place + 3, end, secret_rest::WORD);
        return end;
    }
    return place + 1;
}

// ---- Passwords behind known words -----------------------------------------------------------

// chpasswd me:x, nmcli ... password x, aws configure set x.secret x, crypto ... pw x, iw ... key
// 0:x, send "x"
std::size_t CommandScan::keyword(std::size_t from, std::size_t to) {
    if (hasFlag(HAS_CHPASSWD) && line_.at(to) == ':' && !line_.hasEnd(to + 1)) {
        return line_.hideWord(to + 1);
    }
    const std::size_t next = line_.skip(to, BLANK);
    if (next == to || line_.hasEnd(next)) {
        return 0;
    }
    for (std::size_t i = 0; i < KEYWORD_FLAGS.size(); ++i) {
        const secret_keyword& row = SECRET_KEYWORDS[i];
        if (hasFlag(KEYWORD_FLAGS[i]) && line_.isExactly(from, to, row.word) &&
            !isSentenceWord(next)) {
            const std::size_t value = behindKind(next);
            const std::size_t begin = line_.skipOne(value, QUOTE);
            const std::size_t end = line_.until(begin, BLANK | QUOTE);
            return row.doubtful && !line_.looksSecret(begin, end) ? 0 : line_.hideWord(value);
        }
    }
    if (hasFlag(HAS_CRYPTO) && line_.isExactly(from, to, "pw")) {
        return line_.hideWord(next);
    }
    if (hasFlag(HAS_WIRELESS) && line_.isExactly(from, to, "key")) {
        const std::size_t colon = line_.at(next) == 's' ? next + 1 : line_.skip(next, DIGIT);
        return colon > next && line_.at(colon) == ':' ? line_.hideWord(next) : 0;
    }
    if (hasFlag(HAS_PROMPT) && line_.isExactly(from, to, "send")) {
        const std::size_t quote = line_.saysExactly(next, "-- ") ? next + 3 : next;
        return line_.at(quote) == '"' && line_.at(quote + 1) != '$' ? line_.hideQuoted(quote) : 0;
    }
    if (hasFlag(HAS_AWS) && line_.isExactly(from, to, "set")) {
        const std::size_t end = line_.until(next, BLANK);
        const std::string_view name = line_.text().substr(next, end - next);
        const bool secret = name.find("secret") != NOWHERE || name.find("pass") != NOWHERE ||
                            name.find("token") != NOWHERE;
        return secret ? line_.hideWord(line_.skip(end, BLANK)) : 0;
    }
    return 0;
}

// The place behind the kind of encryption in commands of routers: 7 x, md5 x, aes 128 x.
std::size_t CommandScan::behindKind(std::size_t from) const {
    constexpr std::string_view KINDS[] = {"md5", "sha", "aes", "des", "3des", "clear", "ENC"};
    for (int words = 0; words < 2; ++words) {
        const std::size_t end = line_.until(from, BLANK);
        const std::size_t next = line_.skip(end, BLANK);
        const bool number = line_.skip(from, DIGIT) == end && end <= from + (words == 0 ? 1 : 3);
        if (line_.hasEnd(next) || (!number && !line_.isOneOf(from, end, KINDS))) {
            break;
        }
        from = next;
    }
    return from;
}

// Whether a word is one of a sentence: "username and password for the initiator".
bool CommandScan::isSentenceWord(std::size_t from) const {
    return line_.at(from) == '(' || line_.isOneOf(from, line_.skip(from, LETTER), ORDINARY_WORDS);
}

// htpasswd -b FILE USER x, rabbitmqctl add_user USER x
std::size_t CommandScan::argument(std::size_t from, std::size_t to) {
    for (const secret_argument& row : SECRET_ARGUMENTS) {
        if (!line_.isExactly(from, to, row.command)) {
            continue;
        }
        std::size_t place = line_.skip(to, BLANK);
        const std::size_t end = line_.until(place, BLANK);
        const bool option = row.next[0] == '-';
        const bool has_letter =
            option && line_.at(place) == '-' &&
            line_.text().substr(place, end - place).find(row.next[1]) != NOWHERE;
        const bool beginning = row.next.back() == ':' && line_.says(place, row.next);
        if (!has_letter && !beginning && !line_.isExactly(place, end, row.next)) {
            continue;
        }
        place = line_.skip(end, BLANK);
        for (int word = 0; word < row.between; ++word) {
            place = line_.skip(line_.until(place, BLANK), BLANK);
        }
        if (row.doubtful && !line_.looksSecret(place, line_.until(place, BLANK))) {
            continue;
        }
        return line_.hasEnd(place) || line_.at(place) == '-' ? 0 : line_.hideWord(place);
    }
    return 0;
}

// <<<x: exactly three signs, because the marks of conflicts in sources have more.
std::size_t CommandScan::hereString(std::size_t place) {
    if (line_.saysExactly(place, "<(echo ") || line_.saysExactly(place, "<(printf ")) {
        std::size_t word = line_.skip(line_.until(place, BLANK), BLANK);
        word = line_.at(word) == '-' ? line_.skip(line_.until(word, BLANK), BLANK) : word;
        const std::size_t begin = line_.skipOne(word, QUOTE);
        const std::size_t end = line_.untilOneOf(begin, BLANK | QUOTE, ")");
        if (!line_.looksSecret(begin, end)) {
            return place + 2;
        }
        line_.hide(word, end, secret_rest::WORD);
        return end;
    }
    std::size_t end = place;
    while (line_.at(end) == '<') {
        ++end;
    }
    const std::size_t word = line_.skip(end, BLANK);
    const bool quoted = place > 0 && line_.in(place - 1, QUOTE);
    const bool begins = line_.in(end, BLANK | LETTER | DIGIT | QUOTE) || line_.at(end) == '$';
    if (end - place != 3 || line_.hasEnd(word) || quoted || !begins) {
        return end;
    }
    if (hasFlag(HAS_CHPASSWD)) {
        return options_.userAndPassword(word);
    }
    return line_.hideWord(word);
}

// sqlplus me/x, where x is neither a file nor a word of a sentence.
std::size_t CommandScan::login(std::size_t sign) {
    const bool user = hasFlag(HAS_ORACLE) && sign > word_from_ && word_from_ > 0 &&
                      line_.in(word_from_ - 1, BLANK | QUOTE) && line_.in(word_from_, LETTER) &&
                      line_.skip(word_from_, NAME) == sign;
    if (!user) {
        return 0;
    }
    const std::size_t end = line_.untilOneOf(sign + 1, BLANK | QUOTE, "/@.:");
    if (line_.looksOrdinary(sign + 1, end) ||
        (!line_.hasEnd(end) && !line_.in(end, BLANK | QUOTE))) {
        return 0;
    }
    line_.hide(sign + 1, end, secret_rest::WORD);
    return end;
}

// sqlplus me/x@db
std::size_t CommandScan::oracle(std::size_t sign) {
    if (hasFlag(HAS_ORACLE) && word_from_ > 0 && line_.at(word_from_ - 1) == '/') {
        line_.hide(word_from_, sign, secret_rest::WORD);
    }
    word_from_ = sign + 1;
    return sign + 1;
}

// -U me%x, user=me%x
std::size_t CommandScan::percent(std::size_t sign) {
    const std::size_t from = user_from_;
    user_from_ = sign + 1;
    if (from >= sign || !namesUser(from, sign)) {
        return sign + 1;
    }
    const std::size_t end = line_.untilOneOf(sign + 1, BLANK | QUOTE, ",");
    line_.hide(sign + 1, end, secret_rest::WORD);
    return end;
}

bool CommandScan::namesUser(std::size_t from, std::size_t to) const {
    const std::string_view word = line_.text().substr(from, to - from);
    if (word.substr(0, 2) == "-U") {
        return word.size() > 2;
    }
    for (const std::string_view name : {"user=", "username="}) {
        const std::size_t found = word.find(name);
        if (found != NOWHERE && found + name.size() < word.size()) {
            return true;
        }
    }
    std::size_t end = from > 0 && line_.in(from - 1, QUOTE) ? from - 1 : from;
    for (const std::string_view name : {"user=", "username=", "user ", "username "}) {
        if (line_.endsWith(0, end, name)) {
            return true;
        }
    }
    while (end > 0 && line_.in(end - 1, BLANK)) {
        --end;
    }
    return line_.endsWith(0, end, "-u") && line_.at(end - 1) == 'U';
}

}  // namespace

void markCommands(SecretLine& line) {
    if (line.hasEnd(line.until(0, BLANK)) && line.hasEnd(line.untilByte(0, '@'))) {
        return;
    }
    CommandScan(line).run();
    markPipes(line);
    markSettings(line);
    if ((line.state().flags & HAS_PROMPT) != 0 && line.ends()) {
        const std::size_t first = line.skip(0, BLANK);
        line.state().prompted = line.saysExactly(first, "expect") && line.find("send") == NOWHERE;
    }
    if ((line.state().flags & HAS_LOGIN) != 0) {
        markLogins(line);
    }
}
