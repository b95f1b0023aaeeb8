// Values of names of secrets. Each name of a line is read once, and passed to the units that find
// one kind of value each.
#include <algorithm>
#include <iterator>

#include "tool/IGSecretAssignment.h"
#include "tool/IGSecretBeginning.h"
#include "tool/IGSecretDirective.h"
#include "tool/IGSecretElement.h"
#include "tool/IGSecretMark.h"
#include "tool/IGSecretNameRules.h"
#include "tool/IGSecretNamedLine.h"
#include "tool/IGSecretNotation.h"
#include "tool/IGSecretSentence.h"
#include "tool/IGSecretSentenceRules.h"
#include "tool/IGSecretUserPair.h"
#include "tool/IGSecretWord.h"

namespace {

constexpr auto LOGIN_BEGINNINGS = filterOf<BeginningFilter>(LOGIN_WORDS);

// Reads the names of one line from left to right. A step takes a name, hides the secret that
// belongs to it and returns the place where to continue, or 0 when it found nothing of its kind.
class NameScan {
  public:
    explicit NameScan(SecretLine& line) : line_(line), named_(line), elements_(line) {}
    void run();

  private:
    std::size_t atName(std::size_t from, std::size_t to);
    std::size_t atPlain(std::size_t from, std::size_t to);
    std::size_t atSecret(const secret_name& name);
    void hideParts(const secret_name& name);

    SecretLine& line_;
    NamedLine named_;
    ElementScan elements_;
    AssignmentScan assignments_{named_, elements_};
    DirectiveScan directives_{named_};
    NotationScan notations_{named_, elements_};
    SentenceScan sentences_{named_};
    // The end of the name before, if its last secret word is "password", as in "root-password".
    std::size_t password_to_ = NOWHERE;
};

void NameScan::run() {
    for (std::size_t place = 0; place < line_.size();) {
        if (line_.in(place, NAME)) {
            place = atName(place, line_.skip(place, NAME));
        } else {
            place = elements_.atSign(place);
        }
    }
    if (elements_.isOpen() && line_.ends() && line_.starts() &&
        line_.at(line_.skip(0, BLANK)) == '<') {
        line_.state().open_until = "</";
        line_.state().open_lines = 50;
    }
}

std::size_t NameScan::atName(std::size_t from, std::size_t to) {
    const secret_name name = readSecretName(line_, from, to);
    const bool after_password = password_to_ != NOWHERE && line_.skip(password_to_, BLANK) == from;
    password_to_ =
        name.word.from != NOWHERE && line_.says(name.word.from, "password") ? to : NOWHERE;
    elements_.atName(name);
    if (const std::size_t next = elements_.attribute(name); next != 0) {
        return next;
    }
    if (!name.isSecret()) {
        const std::size_t next = atPlain(from, to);
        return next != 0 ? next : to;
    }
    if (line_.is(from, to, "password") && line_.in(to, BLANK) && from > 0 &&
        line_.in(from - 1, BLANK) && (after_password || directives_.isNetrc(from))) {
        return directives_.netrc(name);
    }
    hideParts(name);
    const std::size_t next = atSecret(name);
    return next != 0 ? next : to;
}

// Takes a word that is no name of a secret; a secret may still follow it: IDENTIFIED BY 'x'.
std::size_t NameScan::atPlain(std::size_t from, std::size_t to) {
    if (line_.is(from, to, "identified")) {
        return notations_.identified(to);
    }
    if (line_.is(from, to, "define")) {
        return notations_.define(to);
    }
    return LOGIN_BEGINNINGS.has(line_, from) && line_.isOneOf(from, to, LOGIN_WORDS)
               ? hideLogin(line_, to)
               : 0;
}

// Hides x in backup-token-x.timer, the name of a unit or a file.
void NameScan::hideParts(const secret_name& name) {
    constexpr std::size_t SHORTEST = 8;
    const auto ends = [&](std::string_view ending) {
        return line_.endsWith(name.from, name.to, ending);
    };
    const std::size_t named = name.word.from != NOWHERE ? name.word.to : name.short_to;
    if (named >= name.to || std::none_of(std::begin(NAME_ENDINGS), std::end(NAME_ENDINGS), ends)) {
        return;
    }
    for (std::size_t from = named; from < name.to; ++from) {
        const std::size_t to = line_.skip(from, LETTER | DIGIT);
        if (to >= from + SHORTEST && line_.looksSecret(from, to)) {
            line_.hide(from, to, secret_rest::WORD);
        }
        from = to;
    }
}

std::size_t NameScan::atSecret(const secret_name& name) {
    if (const std::size_t next = notations_.escaped(name); next != 0) {
        return next;
    }
    if (const std::size_t next = directives_.mark(name); next != 0) {
        return next;
    }
    if (const std::size_t next = assignments_.mark(name); next != 0) {
        return next;
    }
    if (isHarmlessName(line_, name)) {
        return 0;
    }
    const std::size_t next = notations_.mark(name);
    return next != 0 ? next : sentences_.mark(name);
}

}  // namespace

void markNames(SecretLine& line) {
    NameScan(line).run();
}
