#include "tool/IGSecretNamedLine.h"

#include "tool/IGSecretSettingRules.h"

NamedLine::NamedLine(SecretLine& line) : line_(line) {
    first_ = line_.skip(0, BLANK);
    const std::size_t marks = line_.skipBytes(first_, " \t#;");
    start_ = line_.skipBytes(behindKeyword(marks), " \t");
    const std::size_t signs =
        line_.skipBytes(line_.skipBytes(line_.skipBytes(0, " \t"), "#;$"), " \t");
    naming_ = behindNaming(signs);
    directive_ = naming_ != 0             ? naming_
                 : line.says(signs, "- ") ? signs
                                          : line_.skipBytes(behindKeyword(signs), " \t");
    account_ = isAccount();
}

// The place behind a word that may be in front of an assignment; the same place without one.
std::size_t NamedLine::behindKeyword(std::size_t from) const {
    for (const std::string_view keyword : {"export ", "set ", "- "}) {
        if (line_.says(from, keyword)) {
            return from + keyword.size();
        }
    }
    return from;
}

// Where the name begins in "SetEnv NAME x" and "set $name x"; 0 for any other line.
std::size_t NamedLine::behindNaming(std::size_t from) const {
    if (!line_.in(from, LETTER)) {
        return 0;
    }
    for (const std::string_view word : NAMING_DIRECTIVES) {
        if (line_.says(from, word)) {
            return line_.skipBytes(from + word.size(), " \t\"'");
        }
    }
    return line_.says(from, "set $") ? from + 5 : 0;
}

// Whether the line is one of /etc/passwd, without a hash in it: bob:x:1000:1000:
bool NamedLine::isAccount() const {
    const std::size_t name = line_.skip(0, NAME);
    if (!line_.starts() || line_.at(name) != ':' || line_.at(name + 2) != ':') {
        return false;
    }
    const std::size_t user = line_.skip(name + 3, DIGIT);
    return user > name + 3 && line_.at(user) == ':' && line_.at(line_.skip(user + 1, DIGIT)) == ':';
}

bool NamedLine::isHome(std::size_t place) const {
    return account_ && line_.saysExactly(place, ":/");
}
