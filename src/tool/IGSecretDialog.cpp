// Passwords that a client sends to a mail, file or directory server, in logs and traces: AUTH PLAIN
// x, USER me and PASS x, a1 LOGIN me x.
#include <iterator>

#include "tool/IGSecretLine.h"
#include "tool/IGSecretLoginRules.h"
#include "tool/IGSecretMark.h"

namespace {

constexpr int ANSWERS = 3;  // number of lines in which a password may follow its user

// Whether a word is an answer in Base64, which has "=" only at its end. A word of capitals is the
// name of another mechanism.
bool isAnswer(const SecretLine& line, std::size_t from, std::size_t to) {
    bool small = false;
    for (std::size_t place = from; place < to; ++place) {
        const char c = line.at(place);
        small = small || (c >= 'a' && c <= 'z');
        if (!line.in(place, BASE64) || (c == '=' && place + 2 < to)) {
            return false;
        }
    }
    return to >= from + 4 && small;
}

// AUTH PLAIN x, AUTHENTICATE PLAIN x, *cmd* AUTH LOGIN x
// @param word the end of the word that begins with AUTH
void markMechanism(SecretLine& line, std::size_t word) {
    const std::size_t kind = line.skip(word, BLANK);
    if (kind == word) {
        return;
    }
    const std::size_t end = line.skip(kind, KEY);
    const std::size_t from = line.skip(end, BLANK);
    if (from == end || !line.isOneOf(kind, end, LOGIN_MECHANISMS)) {
        return;
    }
    const std::size_t last = line.until(from, BLANK | QUOTE);
    if (isAnswer(line, from, last)) {
        line.hide(from, last, secret_rest::WORD);
    }
}

// AUTH x, AUTH me x, "AUTH" "me" "x" of Redis, where x looks like a secret.
void markPlainAuth(SecretLine& line, std::size_t at) {
    if ((at > 0 && line.in(at - 1, NAME)) || !line.in(at + 4, BLANK | QUOTE)) {
        return;
    }
    std::size_t from = at + 4;
    for (int word = 0; word < 2; ++word) {
        from = line.skip(from, BLANK | QUOTE);
        const std::size_t end = line.until(from, BLANK | QUOTE);
        if (line.looksSecret(from, end)) {
            line.hide(from, end, secret_rest::WORD);
        }
        from = end;
    }
}

void markAuth(SecretLine& line) {
    for (std::size_t at = line.find("AUTH"); at != NOWHERE;) {
        const std::size_t word = line.skip(at, LETTER);
        markMechanism(line, word);
        markPlainAuth(line, at);
        at = line.find("AUTH", word);
    }
}

// The answer to "334 UGFzc3dvcmQ6" is the last word of the next line.
void markAnswer(SecretLine& line) {
    secret_state& state = line.state();
    if (state.challenged) {
        std::size_t end = line.size();
        while (end > 0 && (line.in(end - 1, BLANK) || line.at(end - 1) == '\r')) {
            --end;
        }
        std::size_t from = end;
        while (from > 0 && !line.in(from - 1, BLANK)) {
            --from;
        }
        if (line.skip(from, BASE64) == end && (end - from) % 4 == 0) {
            line.hide(from, end, secret_rest::WORD);
        }
    }
    state.challenged = std::any_of(std::begin(LOGIN_CHALLENGES), std::end(LOGIN_CHALLENGES),
                                   [&](std::string_view one) { return line.find(one) != NOWHERE; });
}

// The first place where the words begin, not inside a longer name; NOWHERE when there is none.
std::size_t findWord(const SecretLine& line, std::string_view words) {
    std::size_t at = line.find(words);
    while (at != NOWHERE && at > 0 && line.in(at - 1, NAME)) {
        at = line.find(words, at + 1);
    }
    return at;
}

// PASS x, in the same line as USER me or in one of the next.
void markPass(SecretLine& line) {
    secret_state& state = line.state();
    if (findWord(line, "USER ") != NOWHERE) {
        state.user_lines = ANSWERS;
    }
    const std::size_t pass = state.user_lines == 0 ? NOWHERE : findWord(line, "PASS ");
    if (pass != NOWHERE) {
        const std::size_t from = line.skip(pass + 5, BLANK);
        if (!line.isPlain(from, line.size())) {
            line.hideToEnd(from);
        }
    }
    if (line.ends() && state.user_lines != 0) {
        --state.user_lines;
    }
}

// a1 LOGIN me x: a tag with a number, the word, a user and a password end the line.
void markTagged(SecretLine& line) {
    constexpr std::string_view WORD = " LOGIN ";
    std::size_t at = line.find(WORD);
    while (at != NOWHERE && (at == 0 || !line.in(at - 1, DIGIT))) {
        at = line.find(WORD, at + WORD.size() - 1);
    }
    if (at == NOWHERE || line.find("ROLE ") != NOWHERE) {
        return;  // CREATE ROLE bob1 LOGIN INHERIT NOSUPERUSER
    }
    const std::size_t user = at + WORD.size();
    const std::size_t quote = line.in(user, QUOTE) ? line.untilByte(user + 1, line.at(user)) : user;
    const std::size_t from = line.skip(line.until(quote, BLANK), BLANK);
    const std::size_t end = line.until(from, BLANK);
    if (from > user && line.hasEnd(line.skip(end, BLANK))) {
        line.hideWord(from);
    }
}

}  // namespace

void markDialogs(SecretLine& line) {
    markAuth(line);
    markAnswer(line);
    markPass(line);
    markTagged(line);
}
