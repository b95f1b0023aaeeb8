#include "tool/IGSecretElement.h"

#include "tool/IGSecretNameValue.h"

void ElementScan::atName(const secret_name& name) {
    if (tag_ == Tag::NAME && name.word.from != NOWHERE && !isHarmlessName(line_, name)) {
        secret_element_ = true;
    }
}

std::size_t ElementScan::atTagSign(std::size_t place) {
    const char c = line_.at(place);
    if (c == '<') {
        tag_ = Tag::NAME;
        tag_value_ = NOWHERE;
        secret_element_ = false;
    } else if (c == '>' && tag_ != Tag::NONE) {
        tag_ = Tag::NONE;
        secret_element_ = secret_element_ && line_.at(place - 1) != '/';
        return secret_element_ ? element(line_.skip(place + 1, BLANK)) : place + 1;
    } else if (tag_ == Tag::NAME && c != ':') {
        tag_ = Tag::INSIDE;
    }
    return place + 1;
}

std::size_t ElementScan::element(std::size_t text) {
    if (line_.hasEnd(text)) {
        return text;
    }
    secret_element_ = false;
    const std::size_t end = line_.untilByte(text, '<');
    // A quote behind "<key>" is that of a command line with a placeholder for a key.
    const bool is_element = !line_.in(text, QUOTE) || line_.hasEnd(end) || line_.at(end + 1) == '/';
    if (is_element && !line_.isPlain(text, end)) {
        line_.hide(text, end, secret_rest::ELEMENT);
    }
    return end;
}

ElementScan::Region& ElementScan::regionAt(std::size_t place) {
    if (region_.from > place || region_.to < place) {
        region_ = Region{};
        region_.from = place;
        region_.to = line_.until(place, QUOTE);
        region_.word = lastSecretWord(line_, place, region_.to);
        if (region_.word.from == NOWHERE && line_.skip(place, NAME) == region_.to) {
            const secret_name name = readSecretName(line_, place, region_.to);
            const bool part = (name.is_short || name.ends_in_pass) && region_.to > place + 4;
            region_.word = part ? secret_word{place, region_.to} : region_.word;
            region_.part = part;
        }
        if (region_.word.from != NOWHERE) {
            region_.divided = line_.until(region_.word.to, SEPARATOR) < region_.to;
        }
    }
    return region_;
}

std::size_t ElementScan::attribute(const secret_name& name) {
    const bool in_quotes = line_.at(name.to) == '=' && line_.in(name.to + 1, QUOTE);
    if (inTag() && in_quotes && line_.is(name.from, name.to, "value")) {
        tag_value_ = name.to + 1;
    }
    const std::size_t place = attributeValue(name);
    if (place == NOWHERE) {
        return 0;
    }
    const bool id = line_.endsWith(name.from, name.to, "id");
    Region& region = regionAt(place);
    if (region.word.from == NOWHERE || region.word.from < place || (id && region.part)) {
        return 0;
    }
    if (inTag() && tag_value_ != NOWHERE) {
        const std::size_t value = tag_value_;  // <a value="x" name="password"/>
        tag_value_ = NOWHERE;
        hideQuotedValue(line_, value, false);
    }
    if (inTag() && in_quotes && !region.element_searched) {
        region.element_searched = true;
        region.element = elementBehind(region.to);
        if (region.element != NOWHERE) {
            tag_ = Tag::NONE;
            return element(region.element);
        }
    }
    return id || region.divided ? 0 : valueBehind(region.to);
}

// Where the value of an attribute begins whose name ends with "id", "key" or "name"; NOWHERE when
// the name is no such attribute.
std::size_t ElementScan::attributeValue(const secret_name& name) const {
    const bool id = line_.endsWith(name.from, name.to, "id");
    const std::size_t size = id ? 2 : line_.endsWith(name.from, name.to, "key") ? 3 : 4;
    if ((size == 4 && !line_.endsWith(name.from, name.to, "name")) ||
        (name.to - size > name.from && line_.in(name.to - size - 1, LETTER | DIGIT))) {
        return NOWHERE;
    }
    const std::size_t sign = line_.skip(line_.skipOne(name.to, QUOTE), BLANK);
    return line_.in(sign, SEPARATOR) ? line_.skipOne(line_.skip(sign + 1, BLANK), QUOTE) : NOWHERE;
}

// Where the text of an element begins whose tag has fewer than four attributes behind a quote;
// NOWHERE for any other element.
std::size_t ElementScan::elementBehind(std::size_t quote) const {
    int attributes = 0;
    for (std::size_t place = quote + 1; place < line_.size(); ++place) {
        const char c = line_.at(place);
        if (c == '>') {
            place = line_.skip(place + 1, BLANK);
            const bool closed = line_.at(place - 2) == '/';
            if (!closed && line_.says(place, "<value>")) {
                place += 7;
            }
            return line_.at(place) == '<' || line_.hasEnd(place) ? NOWHERE : place;
        }
        if (c == '=' && line_.in(place + 1, QUOTE) && ++attributes < 4 &&
            !line_.endsWith(quote, place, "value")) {
            place = line_.untilByte(place + 2, line_.at(place + 1));
        } else if (c == '<' || c == '=') {
            break;
        }
    }
    return NOWHERE;
}

// The place of the attribute "value", a few attributes behind a quote; the place behind the quote
// when there is none.
std::size_t ElementScan::behindAttributes(std::size_t quote) const {
    constexpr int MOST = 4;
    std::size_t place = line_.skip(quote + 1, BLANK);
    for (int count = 0; count < MOST && tag_ != Tag::NONE && !line_.says(place, "value=");
         ++count) {
        const std::size_t sign = line_.skip(place, NAME);
        if (sign == place || line_.at(sign) != '=' || !line_.in(sign + 1, QUOTE)) {
            break;
        }
        const std::size_t end = line_.untilByte(sign + 2, line_.at(sign + 1));
        place = line_.skip(end + 1, BLANK);
    }
    return line_.says(place, "value=") ? place : quote + 1;
}

// Hides the value of the attribute or pair "value" behind a quote.
// @return the place behind the value, or 0 when there is none
std::size_t ElementScan::valueBehind(std::size_t quote) {
    if (!region_.value_searched) {
        region_.value_searched = true;
        std::size_t place = behindAttributes(quote);
        place = line_.skipByte(place, ',');
        place = line_.skip(place, BLANK);
        if (line_.hasEnd(place)) {
            line_.state().after_name = line_.ends();
            return 0;
        }
        place = line_.skipOne(place, QUOTE);
        if (line_.says(place, "value")) {
            place = line_.skipOne(place + 5, QUOTE);
            place = line_.skip(place, BLANK);
            if (line_.in(place, SEPARATOR)) {
                place = line_.skip(place + 1, BLANK);
                region_.value = line_.in(place, QUOTE) ? place : NOWHERE;
            }
        }
    }
    return region_.value != NOWHERE ? hideQuotedValue(line_, region_.value, false) : 0;
}
