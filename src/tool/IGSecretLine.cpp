#include "tool/IGSecretLine.h"

std::size_t SecretLine::closing(std::size_t from, std::string_view quote) const {
    if (quote.size() > 1) {
        const std::size_t found = find(quote, from);
        return found == NOWHERE ? size() : found;
    }
    std::size_t place = untilByte(from, quote[0]);
    while (!hasEnd(place)) {
        if (place > from && at(place - 1) == '\\') {
            ++place;
        } else if (at(place + 1) == quote[0]) {
            place += 2;
        } else {
            return place;
        }
        place = untilByte(place, quote[0]);
    }
    return size();
}

std::size_t SecretLine::wordBefore(std::size_t place) const {
    if (place == NOWHERE) {
        return NOWHERE;
    }
    while (place > 0 && in(place - 1, BLANK)) {
        --place;
    }
    const std::size_t end = place;
    while (place > 0 && !in(place - 1, BLANK)) {
        --place;
    }
    return place < end ? place : NOWHERE;
}

std::size_t SecretLine::hideQuoted(std::size_t quote) {
    const std::size_t end = closing(quote + 1, text_.substr(quote, 1));
    hide(quote + 1, end,
         at(quote) == '"' ? secret_rest::DOUBLE_QUOTED : secret_rest::SINGLE_QUOTED);
    return hasEnd(end) ? end : end + 1;
}

std::size_t SecretLine::hideWord(std::size_t from) {
    if (in(from, QUOTE)) {
        return hideQuoted(from);
    }
    const std::size_t end = until(from, BLANK);
    // A quote at the end of the word closes the text around it, not the word.
    const std::size_t last = end > from + 1 && in(end - 1, QUOTE) ? end - 1 : end;
    hide(from, last, secret_rest::WORD);
    return end;
}
