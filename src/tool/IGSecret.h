// Finds secrets in texts: passwords, private keys, tokens and the like.
//
// What counts is what is beside a value (password = x, "token": "x", <secret>x</secret>,
// --password x, user:x@host) or what it looks like (the hash of a password, a private key, the keys
// of well known services). In doubt it hides: a lost value costs a question, a spread one a
// password.
//
// The time is linear in the size of any text: each rule goes through a line once, and does not
// check again what it has checked in vain.
#ifndef QUENDIL_TOOL_IGSECRET_H
#define QUENDIL_TOOL_IGSECRET_H

#include <cstddef>
#include <cstdint>
#include <string_view>

/// What remains hidden at the beginning of the next part of a very long line. A later one hides
/// more.
enum class secret_rest : std::uint8_t {
    NOTHING,
    WORD,
    ELEMENT,
    DOUBLE_QUOTED,
    SINGLE_QUOTED,
    LINE
};

/// What the lines of a text leave for those after them. A text begins with a new one.
struct secret_state {
    // A private key: its lines are left out.
    bool in_key = false;
    bool key_alone = false;           ///< its first line held nothing else
    bool key_seen = false;            ///< a line of it that was long enough to be sure has come
    bool key_headers = false;         ///< headers of an encrypted key have come
    std::size_t key_column = 0;       ///< where its first line began
    std::size_t key_blank_lines = 0;  ///< empty lines that may belong to it or follow it

    // A value that goes on in the next lines: to the closing text, or as long as they are indented.
    std::string_view open_until;  ///< a constant; empty when no such value is open
    int open_lines = 0;           ///< so many more at most
    bool in_block = false;
    std::size_t block_indent = 0;

    bool next_word = false;         ///< a backslash ended the line between a name and its value
    bool after_name = false;        ///< "name: DB_PASSWORD" ended the line: "value: x" may follow
    bool random_passwords = false;  ///< lines of a user and a password follow
    bool dial_secrets = false;      ///< "# client server secret" has come: lines of these follow
    bool prompted = false;          ///< an expect script waits for "assword:": "send" may follow
    bool secret_object = false;     ///< "kind: Secret" has come: its "data:" is a block of them
    bool challenged = false;        ///< a server has asked for a password: it is the next line
    int user_lines = 0;             ///< a client has sent its user: so many lines may have "PASS x"
    bool decoded = false;           ///< the text was inside another one: none is sought in it

    // Of the line whose next part comes.
    secret_rest rest = secret_rest::NOTHING;
    bool dropped = false;        ///< the line is left out
    std::uint16_t commands = 0;  ///< programs that were named, as the unit of commands numbers them
    std::uint32_t flags = 0;     ///< and other words that it met
};

/// A line without its line feed; or, of a line that is too long to be held at once, a part.
struct secret_part {
    std::string_view text;
    unsigned char* hidden;  ///< one byte for each of the text: what is not 0 is hidden already
    bool starts;            ///< the line starts here
    bool ends;              ///< and ends here
};

/// What becomes of a line or part, beside the bytes that are hidden in it.
struct secret_fate {
    bool left_out = false;        ///< it is not printed at all, nor is its line feed
    bool mask_first = false;      ///< a mask comes before it
    std::size_t from = 0;         ///< it is printed from this place on
    std::size_t blank_lines = 0;  ///< so many empty lines are printed before it
};

/// Marks the secrets of a line as hidden.
secret_fate markSecrets(const secret_part& part, secret_state* state);

/// How many empty lines are still to be printed behind the last line of a text.
std::size_t blankLinesAtEnd(const secret_state& state);

#endif
