#include "tool/IGSecretUserPair.h"

std::size_t hideLogin(SecretLine& line, std::size_t to) {
    const bool divided = line.at(to) == ':';
    std::size_t user = line.skip(divided ? to + 1 : to, BLANK);
    user = line.says(user, "with ") ? line.skip(user + 5, BLANK) : user;
    const std::size_t behind = line.skip(user, NAME);
    const std::size_t from = behindSlash(line, behind);
    if (!line.in(user, LETTER)) {
        return 0;
    }
    if (from == 0) {
        return hideJoined(line, behind);
    }
    const std::size_t end = line.until(from, BLANK);
    const bool number = line.skip(from, DIGIT) == end;
    const bool secret = divided ? !number : line.looksSecret(from, line.wordEnd(from, end));
    return secret ? line.hideWord(from) : 0;
}

std::size_t hideJoined(SecretLine& line, std::size_t sign) {
    constexpr std::size_t LONGEST = 128;
    std::size_t end = sign;
    while (end < sign + LONGEST && !line.hasEnd(end) && !line.in(end, VALUE_END)) {
        ++end;
    }
    const std::size_t value_end = line.wordEnd(sign + 1, end);
    if ((line.at(sign) != '/' && line.at(sign) != ':') || end <= sign ||
        !line.looksSecret(sign + 1, value_end)) {
        return 0;
    }
    line.hideWithoutEnd(sign + 1, end, SENTENCE_STOPS);
    return end;
}

std::size_t behindSlash(const SecretLine& line, std::size_t place) {
    const std::size_t sign = line.skip(place, BLANK);
    const std::size_t from = line.skip(sign + 1, BLANK);
    return line.at(sign) != '/' || from == sign + 1 || line.hasEnd(from) ? 0 : from;
}
