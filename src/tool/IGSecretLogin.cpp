// Names that were typed at a login and that no user has: people often type their password there. A
// name may have any bytes, blanks too, so it ends at the last place where it can.
#include "tool/IGSecretLine.h"
#include "tool/IGSecretLoginRules.h"
#include "tool/IGSecretMark.h"

namespace {

// Where the text occurs last, at or behind `from`; NOWHERE when it does not.
std::size_t lastOf(const SecretLine& line, std::string_view text, std::size_t from) {
    const std::size_t found = line.text().rfind(text);
    return found == NOWHERE || found < from ? NOWHERE : found;
}

// Where the name ends in "invalid user NAME from ADDRESS port 22", "invalid user NAME ADDRESS port
// 22" and "invalid user NAME [preauth]"; NOWHERE in a message of another program.
std::size_t typedEnd(const SecretLine& line, std::size_t from) {
    if (const std::size_t place = lastOf(line, " from ", from - 1); place != NOWHERE) {
        return place;
    }
    if (std::size_t place = lastOf(line, " port ", from); place != NOWHERE) {
        while (place > from && !line.in(place - 1, BLANK)) {
            --place;
        }
        return place > from ? place - 1 : from;
    }
    if (const std::size_t place = lastOf(line, " [preauth]", from); place != NOWHERE) {
        return place;
    }
    return line.find("sshd") == NOWHERE ? NOWHERE : line.size();
}

// Invalid user NAME, illegal user NAME
void markInvalidUser(SecretLine& line) {
    for (const std::string_view words : {"nvalid user ", "llegal user "}) {
        const std::size_t found = line.find(words);
        if (found == NOWHERE) {
            continue;
        }
        const std::size_t from = found + words.size();
        if (const std::size_t end = typedEnd(line, from); end != NOWHERE) {
            line.hide(from, end, secret_rest::LINE);
        }
    }
}

// FAILED LOGIN 1 FROM tty1 FOR NAME, Authentication failure; and with the name in quotes
void markFailedLogin(SecretLine& line) {
    const std::size_t failed = line.find("FAILED LOGIN");
    const std::size_t name = failed == NOWHERE ? NOWHERE : line.find(" FOR ", failed);
    const std::size_t comma = name == NOWHERE ? NOWHERE : lastOf(line, ", ", name);
    if (comma != NOWHERE) {
        const std::size_t from = line.skipByte(name + 5, '\'');
        line.hide(from, from > name + 5 ? comma - 1 : comma, secret_rest::LINE);
    }
}

// acct="NAME" and acct=4E414D45, in a record that says res=failed
void markAccount(SecretLine& line) {
    const std::size_t found = line.find("acct=");
    if (found == NOWHERE || (line.find("res=failed") == NOWHERE && line.find("res=0") == NOWHERE)) {
        return;
    }
    const std::size_t from = line.skipByte(found + 5, '"');
    const std::size_t end = from > found + 5 ? line.untilByte(from, '"') : line.until(from, BLANK);
    if (!line.isOneOf(from, end, KNOWN_ACCOUNTS)) {
        line.hide(from, end, secret_rest::LINE);
    }
}

// auth: pam(NAME,ADDRESS): unknown user
void markMailUser(SecretLine& line) {
    const std::size_t found = line.find("): unknown user");
    std::size_t from = found == NOWHERE ? 0 : found;
    while (from > 0 && line.at(from - 1) != '(') {
        --from;
    }
    if (from > 0) {
        line.hide(from, line.untilByte(from, ','), secret_rest::LINE);
    }
}

// [pid 3] [NAME] FAIL LOGIN: Client
void markFileTransferUser(SecretLine& line) {
    const std::size_t end = line.find("] FAIL LOGIN: Client");
    const std::size_t from = end == NOWHERE ? NOWHERE : line.find("] [");
    if (from != NOWHERE && from < end) {
        line.hide(from + 3, end, secret_rest::LINE);
    }
}

}  // namespace

void markLogins(SecretLine& line) {
    for (const secret_login& login : SECRET_LOGINS) {
        const std::size_t found = line.find(login.before);
        const std::size_t from = found + login.before.size();
        const std::size_t end = found == NOWHERE ? NOWHERE : lastOf(line, login.behind, from);
        if (end != NOWHERE && (login.blanks || line.until(from, BLANK) >= end)) {
            line.hide(from, end, secret_rest::LINE);
        }
    }
    markInvalidUser(line);
    markFailedLogin(line);
    markAccount(line);
    markMailUser(line);
    markFileTransferUser(line);
}
