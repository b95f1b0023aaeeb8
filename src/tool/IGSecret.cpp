#include "tool/IGSecret.h"

#include "tool/IGSecretLine.h"
#include "tool/IGSecretMark.h"

namespace {

constexpr secret_fate LEFT_OUT{.left_out = true};

// ---- Lines that are secret because of those before them -----------------------------------------

// Leaves out a line of a private key. If the key ends in this line, `fate->from` is its end.
// @return whether the whole line is left out
bool leaveKeyOut(const SecretLine& line, secret_fate* fate) {
    secret_state& state = line.state();
    if (const std::size_t end = behindKeyEnd(line); end != NOWHERE) {
        state.in_key = false;
        fate->from = end;
        fate->left_out = end == line.size();
        if (!state.open_until.empty() && line.find(state.open_until) != NOWHERE) {
            state.open_until = {};
        }
        return fate->left_out;
    }
    if (continuesKey(line)) {
        *fate = LEFT_OUT;
        return true;
    }
    state.in_key = false;
    fate->blank_lines = state.key_blank_lines;
    state.key_blank_lines = 0;
    return false;
}

// Hides a value that began in a line before, up to its end.
// @return whether the whole line is hidden
bool hideOpenValue(SecretLine* line, secret_fate* fate) {
    secret_state& state = line->state();
    const std::size_t end = line->find(state.open_until);
    if (end == NOWHERE) {
        fate->mask_first = line->size() == 0;
        line->hideToEnd(0);
        if (--state.open_lines == 0) {
            state.open_until = {};
        }
        return true;
    }
    fate->mask_first = end == 0;
    line->hide(0, end, secret_rest::NOTHING);
    state.open_until = {};
    return false;
}

// Hides a line of the block that a name without a value opened: it lasts while its lines are
// indented.
// @return whether the line is part of the block
bool hideBlock(SecretLine* line, secret_fate* fate) {
    secret_state& state = line->state();
    const std::size_t indent = line->skip(0, BLANK);
    const bool entry = line->at(indent) == '-' && line->at(indent + 1) == ' ';
    if (line->saysExactly(indent, "Installed: ")) {  // the name was that of a package
        state.in_block = false;
        return false;
    }
    if (line->hasEnd(indent) || indent > state.block_indent ||
        (indent == state.block_indent && entry)) {
        fate->mask_first = line->size() == 0;
        line->hideToEnd(0);
        return true;
    }
    state.in_block = false;
    return false;
}

// Hides the password of a user in "me:x", which cloud-init prints for a new machine: one line for
// each user.
// @return whether the line has such a password
bool hideRandomPassword(SecretLine* line) {
    const std::size_t from = line->skip(0, BLANK);
    const std::size_t colon = line->skip(from, NAME);
    const std::size_t end = line->until(colon + 1, BLANK);
    if (!line->state().random_passwords || colon == from || line->at(colon) != ':' ||
        end == colon + 1 || !line->hasEnd(line->skip(end, BLANK))) {
        return false;
    }
    line->hideToEnd(colon + 1);
    return true;
}

// Hides a value whose name is in the line before, in front of a backslash.
void hideNextWord(SecretLine* line) {
    if (line->state().next_word) {
        line->state().next_word = false;
        const std::size_t from = line->skip(0, BLANK);
        line->hideWord(line->says(from, "- ") ? line->skip(from + 1, BLANK) : from);
    }
}

// Hides x in "value: x", with the name in the line before.
// @return whether the line has such a value
bool hideValueLine(SecretLine* line) {
    if (!line->state().after_name) {
        return false;
    }
    line->state().after_name = false;
    std::size_t place = line->skipOne(line->skip(0, BLANK), QUOTE);
    if (!line->says(place, "value")) {
        return false;
    }
    place = line->skip(line->skipOne(place + 5, QUOTE), BLANK);
    if (!line->in(place, SEPARATOR)) {
        return false;
    }
    line->hideToEnd(line->skip(place + 1, BLANK));
    return true;
}

// "keys:" alone in a line: a block of keys of tunnels.
bool opensKeys(const SecretLine& line) {
    const std::size_t from = line.skip(0, BLANK);
    std::size_t place = from;
    if (line.at(place) == '-' && line.at(place + 1) == ' ') {
        place = line.skip(place + 1, BLANK);
    }
    if (!line.says(place, "keys:") || !line.hasEnd(line.skip(place + 5, BLANK))) {
        return false;
    }
    line.state().in_block = true;
    line.state().block_indent = place;
    return true;
}

// "data:" behind "kind: Secret": the secrets of a Kubernetes object.
bool opensObject(const SecretLine& line) {
    secret_state& state = line.state();
    const std::size_t from = line.skip(0, BLANK);
    if (line.saysExactly(0, "---")) {
        state.secret_object = false;
    } else if (line.saysExactly(from, "kind:")) {
        state.secret_object = line.saysExactly(line.skip(from + 5, BLANK), "Secret");
    } else if (state.secret_object) {
        const std::size_t end = line.skip(from, LETTER);
        const bool data = line.saysExactly(from, "data:") || line.saysExactly(from, "stringData:");
        if (data && line.hasEnd(line.skip(end + 1, BLANK))) {
            state.in_block = true;
            state.block_indent = from;
            return true;
        }
    }
    return false;
}

// "Private-Lines: 14": the lines of a key follow.
bool opensKeyLines(SecretLine* line) {
    constexpr std::string_view TITLE = "Private-Lines: ";
    if (!line->saysExactly(0, TITLE)) {
        return false;
    }
    secret_state& state = line->state();
    state.in_key = state.key_alone = true;
    state.key_seen = state.key_headers = false;
    state.key_column = state.key_blank_lines = 0;
    line->hideToEnd(TITLE.size());
    return true;
}

// ---- A line by itself ---------------------------------------------------------------------------

void markLine(SecretLine* line) {
    secret_state& state = line->state();
    if (markKeys(*line)) {
        state.in_key = true;
    }
    markNames(*line);
    if (state.in_key) {
        state.in_block = false;
    }
    markAddresses(*line);
    markFields(*line);
    markCommands(*line);
    markShapes(*line);
    markCalls(*line);
    markDialogs(*line);
    markRemarks(*line);
    markAudit(*line);
}

// Hides the rest of a value that was hidden at the end of the part before.
void hideRest(SecretLine* line) {
    const secret_rest rest = line->state().rest;
    line->state().rest = secret_rest::NOTHING;
    if (rest == secret_rest::LINE) {
        line->hideToEnd(0);
    } else if (rest == secret_rest::WORD) {
        line->hide(0, line->until(0, BLANK), rest);
    } else if (rest == secret_rest::ELEMENT) {
        line->hide(0, line->untilByte(0, '<'), rest);
    } else if (rest != secret_rest::NOTHING) {
        line->hide(0, line->closing(0, rest == secret_rest::DOUBLE_QUOTED ? "\"" : "'"), rest);
    }
}

// Checks whether the line continues what the lines before have begun.
// @return whether this was decided for the whole line
bool followsOthers(SecretLine* line, secret_fate* fate) {
    secret_state& state = line->state();
    if (state.in_key && leaveKeyOut(*line, fate)) {
        return true;
    }
    if (!state.open_until.empty() && hideOpenValue(line, fate)) {
        return true;
    }
    if (state.in_block && hideBlock(line, fate)) {
        // A key in a block is left out like any other.
        state.in_key = markKeys(*line);
        return true;
    }
    return opensKeyLines(line) || hideRandomPassword(line);
}

secret_fate markStart(SecretLine* line) {
    secret_state& state = line->state();
    if (line->saysExactly(0, "==> /")) {
        state = secret_state{};  // the title of the next file that is printed
    }
    state.rest = secret_rest::NOTHING;
    state.dropped = false;
    state.commands = 0;
    state.flags = 0;
    secret_fate fate;
    if (followsOthers(line, &fate)) {
        state.dropped = fate.left_out;
        return fate;
    }
    state.random_passwords = line->find("random' passwords") != NOWHERE;
    hideNextWord(line);
    if (!hideValueLine(line) && !opensKeys(*line) && !opensObject(*line)) {
        markLine(line);
    }
    return fate;
}

}  // namespace

secret_fate markSecrets(const secret_part& part, secret_state* state) {
    SecretLine line(part, state);
    if (part.starts) {
        return markStart(&line);
    }
    if (state->dropped) {
        return LEFT_OUT;
    }
    hideRest(&line);
    if (state->rest != secret_rest::LINE) {
        markLine(&line);
    }
    return {};
}

std::size_t blankLinesAtEnd(const secret_state& state) {
    return state.in_key ? state.key_blank_lines : 0;
}
