// Passwords in settings of programs that are written like words of a command line.
#include "tool/IGSecretLine.h"
#include "tool/IGSecretMark.h"

namespace {

// :ommysql:host,db,user,x
void markLogSettings(SecretLine& line) {
    for (const std::string_view name : {":ommysql:", ":ompgsql:"}) {
        const std::size_t found = line.find(name);
        if (found == NOWHERE) {
            continue;
        }
        const std::size_t end = line.until(found, BLANK);
        std::size_t comma = end;
        while (comma > found && line.at(comma) != ',') {
            --comma;
        }
        if (comma > found) {
            const std::size_t stop = line.untilByte(comma, ';');
            line.hide(comma + 1, stop < end ? stop : end, secret_rest::WORD);
        }
    }
}

// -object secret,id=a,data=x, and the same in JSON: secrets of a virtual machine
void markObjects(SecretLine& line) {
    for (const std::string_view kind : {"secret,", R"("qom-type":"secret")"}) {
        for (std::size_t at = line.find(kind); at != NOWHERE; at = line.find(kind, at)) {
            const std::size_t end = line.until(at, BLANK);
            const std::size_t data = line.text().substr(at, end - at).find("data");
            std::size_t from = data == NOWHERE ? end : at + data + 4;
            from = line.skipOne(line.skipOne(line.skipOne(from, QUOTE), SEPARATOR), QUOTE);
            std::size_t last = from;
            while (last < end && line.at(last) != ',' && !line.in(last, QUOTE)) {
                ++last;
            }
            line.hide(from, last, secret_rest::WORD);
            at = end;
        }
    }
}

// stats auth user:x
void markStatistics(SecretLine& line) {
    for (std::size_t at = line.find("stats"); at != NOWHERE; at = line.find("stats", at + 5)) {
        const std::size_t auth = line.skip(at + 5, BLANK);
        const std::size_t user = line.skip(auth + 4, BLANK);
        if (auth == at + 5 || !line.saysExactly(auth, "auth") || user == auth + 4) {
            continue;
        }
        const std::size_t end = line.until(user, BLANK | SEPARATOR);
        if (end > user && line.at(end) == ':') {
            line.hideToEnd(end + 1);
            return;
        }
    }
}

}  // namespace

void markSettings(SecretLine& line) {
    if (line.find("sql:") != NOWHERE) {
        markLogSettings(line);
    }
    markStatistics(line);
    if (line.find("data") != NOWHERE) {
        markObjects(line);
    }
}
