// Fields of lines of known files: their place in the line makes them secret.
#include <algorithm>

#include "tool/IGSecretLine.h"
#include "tool/IGSecretMark.h"
#include "tool/IGSecretSettingRules.h"

namespace {

// Lines with colons between their fields.
class ColonFields {
  public:
    explicit ColonFields(SecretLine& line) : line_(line) {}
    void mark() {
        const std::size_t first = line_.untilByte(0, ':');
        std::size_t name = 0;
        while (line_.in(name, NAME) || line_.at(name) == '*') {
            ++name;
        }
        if (first > 0 && name == first && !line_.hasEnd(first) && !isMacAddress(first) &&
            !markAccount(first) && !markDatabase(first)) {
            markOldHash(first);
        }
    }

  private:
    // The place of the colon behind a number, or NOWHERE.
    [[nodiscard]] std::size_t behindNumber(std::size_t from) const {
        const std::size_t end = line_.skip(from, DIGIT);
        return end > from && line_.at(end) == ':' ? end : NOWHERE;
    }
    // Whether the line begins like the MAC address of an interface: 00:16:3e:aa:bb:cc
    [[nodiscard]] bool isMacAddress(std::size_t first) const {
        const std::size_t second = line_.skip(first + 1, LETTER | DIGIT);
        return first == 2 && second == 5 && line_.at(second) == ':';
    }
    // passwd: me:x:1000:1000:
    // @return whether it is such a line, with a hash in it or without
    bool markAccount(std::size_t first) {
        const std::size_t second = line_.untilByte(first + 1, ':');
        const std::size_t third = line_.hasEnd(second) ? NOWHERE : behindNumber(second + 1);
        constexpr std::ptrdiff_t FIELDS = 7;  // at least
        if (third == NOWHERE || behindNumber(third + 1) == NOWHERE ||
            std::count(line_.text().begin(), line_.text().end(), ':') + 1 < FIELDS) {
            return false;
        }
        if (line_.until(first, BLANK) < second || line_.skip(first + 1, DIGIT) == second) {
            return true;  // numbers of something else
        }
        std::size_t place = first + 1;
        while (line_.at(place) == 'x' || line_.at(place) == '*' || line_.at(place) == '!') {
            ++place;
        }
        if (place < second) {
            line_.hide(first + 1, second, secret_rest::LINE);
        }
        return true;
    }
    // .pgpass: host:5432:db:user:x
    bool markDatabase(std::size_t first) {
        std::size_t place = line_.at(first + 1) == '*' && line_.at(first + 2) == ':'
                                ? first + 2
                                : behindNumber(first + 1);
        for (int field = 0; field < 2 && place != NOWHERE; ++field) {
            place = line_.until(place + 1, BLANK | SEPARATOR);
            while (line_.at(place) == '=') {
                place = line_.until(place + 1, BLANK | SEPARATOR);
            }
            place = line_.at(place) == ':' ? place : NOWHERE;
        }
        if (place == NOWHERE || line_.hasEnd(place + 1) ||
            !line_.hasEnd(line_.until(place, BLANK))) {
            return false;
        }
        std::size_t last = line_.size() - 1;
        while (last > place && (line_.at(last) != ':' || line_.at(last - 1) == '\\')) {
            --last;
        }
        if (line_.at(last + 1) != '*') {
            line_.hide(last + 1, line_.size(), secret_rest::LINE);
        }
        return true;
    }
    // A hash of DES, 13 bytes: me:abCDefGHij./1
    void markOldHash(std::size_t first) {
        std::size_t place = first + 1;
        bool large = false;
        while (line_.in(place, LETTER | DIGIT) || line_.at(place) == '.' ||
               line_.at(place) == '/') {
            large = large || (line_.at(place) >= 'A' && line_.at(place) <= 'Z');
            ++place;
        }
        if (large && line_.hasEnd(place) && place - first == 14) {
            line_.hide(first + 1, place, secret_rest::LINE);
        }
    }
    SecretLine& line_;
};

// chap-secrets: client * secret [address]
void markPppSecret(SecretLine& line) {
    secret_state& state = line.state();
    if (line.at(0) == '#' && line.find("client") != NOWHERE && line.find("server") != NOWHERE &&
        line.find("secret") != NOWHERE) {
        state.dial_secrets = true;
    }
    const std::size_t client = line.skip(0, BLANK);
    constexpr std::string_view NONE = "0123456789*/,@-#;";
    const std::size_t server = line.skip(line.until(client, BLANK), BLANK);
    const bool any = line.at(server) == '*' && line.in(server + 1, BLANK);
    if (line.hasEnd(client) || NONE.find(line.at(client)) != NOWHERE ||
        (!any && !state.dial_secrets)) {
        return;
    }
    const std::size_t secret = line.skip(line.until(server, BLANK), BLANK);
    const std::size_t address = line.skip(line.until(secret, BLANK), BLANK);
    const std::size_t end = line.until(secret, BLANK);
    const bool sure = state.dial_secrets || line.in(secret, QUOTE) || !line.hasEnd(address) ||
                      !line.hasEnd(line.until(secret, DIGIT)) || line.in(client, QUOTE);
    const std::size_t behind = line.until(client, BLANK);
    const bool title = line.at(behind - 1) == ':' || line.untilByte(client, '=') < behind ||
                       line.says(client, "select ");
    if (sure && !title && end > secret &&
        line.hasEnd(line.skip(line.until(address, BLANK), BLANK))) {
        line.hideToEnd(secret);
    }
}

// chrony.keys, ntp.keys: 1 SHA1 HEX:12AB, 2 MD5 x
void markTimeKey(SecretLine& line) {
    const std::size_t number = line.skip(0, DIGIT);
    const std::size_t type = line.skip(number, BLANK);
    const std::size_t end = line.skip(type, LETTER | DIGIT);
    const std::size_t key = line.skip(end, BLANK);
    if (number == 0 || type == number || key == end || !line.isOneOf(type, end, TIME_KEYS)) {
        return;
    }
    const bool typed = line.saysExactly(key, "HEX:") || line.saysExactly(key, "ASCII:");
    const std::size_t from = typed ? line.untilByte(key, ':') + 1 : key;
    const std::size_t last = line.until(from, BLANK);
    const std::size_t behind = line.skip(last, BLANK);
    if (line.hasEnd(behind) || line.at(behind) == '#') {
        line.hide(from, last, secret_rest::LINE);
    }
}

// bob : EAP "x", : RSA file "x": secrets of IPsec
void markTunnelSecret(SecretLine& line) {
    const std::size_t sign = line.untilByte(0, ':');
    if (line.at(sign + 1) != ' ' || (sign > 0 && line.at(sign - 1) != ' ')) {
        return;
    }
    const std::size_t type = line.skip(line.untilByte(sign, ':') + 1, BLANK);
    const std::size_t end = line.skip(type, LETTER | DIGIT);
    if (!line.isOneOf(type, end, TUNNEL_KEYS) || !line.in(end, BLANK)) {
        return;
    }
    std::size_t value = line.skip(end, BLANK);
    const bool typed = line.says(type, "ntlm") || line.says(type, "eap") || line.says(type, "psk");
    if (!line.in(value, QUOTE) && !typed) {
        value = line.skip(line.until(value, BLANK), BLANK);  // behind the name of a file
    }
    if (line.in(value, QUOTE) || (typed && line.looksSecret(value, line.until(value, BLANK)))) {
        line.hideWord(value);
    }
}

// Whether a stretch is an IPv4 address or a host name with a dot.
bool isHost(const SecretLine& line, std::size_t from, std::size_t to) {
    const std::string_view host = line.text().substr(from, to - from);
    return line.skip(from, NAME) == to && host.find('.') != NOWHERE &&
           line.in(from, LETTER | DIGIT);
}

// 10.0.0.1:1812 x 3: a RADIUS server, its secret and a time limit
void markRadiusServer(SecretLine& line) {
    const std::size_t from = line.skip(0, BLANK);
    const std::size_t host = line.skip(from, NAME);
    const bool port = line.at(host) == ':' && line.in(host + 1, DIGIT);
    const std::size_t behind = port ? line.skip(host + 1, DIGIT) : host;
    const std::size_t secret = line.skip(behind, BLANK);
    const std::size_t end = line.until(secret, BLANK);
    const std::size_t number = line.skip(end, BLANK);
    const std::size_t last = line.skip(number, DIGIT);
    if (secret == behind || number == end || last == number || last > number + 2 ||
        !line.hasEnd(line.skip(last, BLANK)) || !isHost(line, from, host)) {
        return;
    }
    if (line.looksSecret(secret, end)) {
        line.hide(secret, end, secret_rest::LINE);
    }
}

// [host]:587 me:x, host me@host:x, and host:me:x: users of a mail server
void markMailUser(SecretLine& line) {
    const std::size_t end = line.until(0, BLANK);
    const std::size_t user = line.skip(end, BLANK);
    if (line.hasEnd(user)) {
        const std::size_t first = line.skip(0, NAME);
        const std::size_t second = line.skip(first + 1, NAME);
        if (line.at(first) == ':' && line.at(second) == ':' && line.in(first + 1, LETTER) &&
            !line.says(first + 1, "uuid:") && isHost(line, 0, first) &&
            line.looksSecret(second + 1, end)) {
            line.hide(second + 1, end, secret_rest::LINE);
        }
        return;
    }
    const std::size_t name = line.skip(user, NAME);
    const bool whole = line.at(name) == '@';
    const std::size_t colon = whole ? line.skip(name + 1, NAME) : name;
    std::size_t port = line.untilByte(0, ']') + 1;
    port = line.at(port) == ':' ? line.skip(port + 1, DIGIT) : port;
    const bool bracket = line.at(0) == '[' && port == end && line.at(end - 1) != ':';
    if (name == user || line.at(colon) != ':' || line.hasEnd(colon + 1) ||
        !line.hasEnd(line.until(user, BLANK)) || (!bracket && (!whole || !isHost(line, 0, end))) ||
        !line.hasEnd(line.untilByte(colon + 1, '/')) || line.hasEnd(line.until(user, LETTER))) {
        return;
    }
    if (!line.hasEnd(line.skip(colon + 1, DIGIT))) {
        line.hideToEnd(colon + 1);
    }
}

// user bob on >x ~*, ACL SETUSER bob on >x: rights of a user of Redis
void markRights(SecretLine& line) {
    const std::size_t from = line.skip(0, BLANK);
    const std::size_t first = line.says(from, "acl ") ? line.skip(from + 4, BLANK) : from;
    const bool setter = line.says(first, "setuser ");
    if (!line.saysExactly(from, "user ") && !setter) {
        return;
    }
    bool rights = setter;
    for (std::size_t word = from; !line.hasEnd(word);) {
        const std::size_t end = line.until(word, BLANK);
        constexpr std::string_view SIGNS = "<>#!";
        rights = rights || line.text().substr(word, end - word) == "on" ||
                 line.text().substr(word, end - word) == "off";
        if (rights && SIGNS.find(line.at(word)) != NOWHERE && end > word + 4) {
            line.hide(word + 1, end, secret_rest::WORD);
        }
        word = line.skip(end, BLANK);
    }
}

// key 7 x: a key in a command of a router
void markNumberedKey(SecretLine& line) {
    const std::size_t from = line.skip(0, BLANK);
    if (line.at(from) != 'k') {
        return;
    }
    const std::size_t kind = line.skip(from + 3, BLANK);
    const std::size_t secret = line.skip(kind + 1, BLANK);
    const std::size_t end = line.until(secret, BLANK);
    if (line.saysExactly(from, "key ") && line.in(kind, DIGIT) && secret > kind + 1 &&
        line.hasEnd(end) && line.looksSecret(secret, end)) {
        line.hideToEnd(secret);
    }
}

// user=me:x: a user of a relay server
void markRelayUser(SecretLine& line) {
    const std::size_t colon = line.skip(5, NAME);
    if (line.saysExactly(0, "user=") && line.at(colon) == ':' && colon > 5 &&
        line.looksSecret(colon + 1, line.size())) {
        line.hideToEnd(colon + 1);
    }
}

void markShortLine(SecretLine& line) {
    markTunnelSecret(line);
    const char last = line.at(line.size() - 1);
    if (isIn(last, DIGIT | BLANK)) {
        markRadiusServer(line);
    }
    if (isIn(line.at(0), LETTER | DIGIT) || line.at(0) == '[') {
        markMailUser(line);
        markRelayUser(line);
    }
    markRights(line);
    markNumberedKey(line);
}

// "user" "x": the whole line
void markUserList(SecretLine& line) {
    if (line.at(0) != '"' || line.at(line.size() - 1) != '"') {
        return;
    }
    const std::size_t first = line.untilByte(1, '"');
    const std::size_t second = line.skip(first + 1, BLANK);
    if (second > first + 1 && line.at(second) == '"' &&
        line.untilByte(second + 1, '"') + 1 == line.size() &&
        line.looksSecret(second + 1, line.size() - 1)) {
        line.hide(second + 1, line.size() - 1, secret_rest::LINE);
    }
}

// com2sec NAME NETWORK community, createUser USER SHA x
void markSnmp(SecretLine& line) {
    std::size_t place = line.skip(0, BLANK);
    const std::size_t end = line.until(place, BLANK);
    bool known = false;
    for (const std::string_view directive : SNMP_DIRECTIVES) {
        known = known || (end - place == directive.size() && line.saysExactly(place, directive));
    }
    if (!known) {
        return;
    }
    place = line.skip(end, BLANK);
    while (line.at(place) == '-') {
        place = line.skip(line.until(place, BLANK), BLANK);
    }
    line.hideToEnd(line.skip(line.until(place, BLANK), BLANK));
}

}  // namespace

void markFields(SecretLine& line) {
    if (!line.starts() || !line.ends()) {
        return;
    }
    ColonFields(line).mark();
    markPppSecret(line);
    markSnmp(line);
    markTimeKey(line);
    markUserList(line);
    constexpr std::size_t LONGEST = 400;  // of a line of these files
    if (line.size() < LONGEST) {
        markShortLine(line);
    }
    // 32 bytes in Base64 alone in a line, such as a key of WireGuard.
    const std::size_t size = line.size();
    if (size == 44 && line.at(43) == '=' && line.skip(0, BASE64) == size && line.at(42) != '=') {
        line.hideToEnd(0);
    }
}
