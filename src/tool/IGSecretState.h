// The input of the filter for secrets, what it remembers between lines, and its result.
#ifndef QUENDIL_TOOL_IGSECRETSTATE_H
#define QUENDIL_TOOL_IGSECRETSTATE_H

#include <cstddef>
#include <cstdint>
#include <string_view>

/// What is hidden at the start of the next part of a line of several parts. The values are in
/// ascending order: SecretLine::hide() keeps the higher one.
enum class secret_rest : std::uint8_t {
    NOTHING,
    WORD,           ///< up to the next blank
    ELEMENT,        ///< up to the next "<"
    DOUBLE_QUOTED,  ///< up to the closing quote
    SINGLE_QUOTED,  ///< up to the closing quote
    LINE            ///< up to the end of the line
};

/// What the rules remember of the lines of a text for the lines after them. Each text starts with a
/// new one.
struct secret_state {
    // A private key, whose lines are not printed.
    bool in_key = false;
    bool key_alone = false;           ///< its first line had no other words
    bool key_seen = false;            ///< a line that is surely part of it was read
    bool key_headers = false;         ///< headers of an encrypted key were read
    std::size_t key_column = 0;       ///< where its first line began, in bytes
    std::size_t key_blank_lines = 0;  ///< empty lines that may belong to it or follow it

    // A value that continues in the next lines: up to a closing text, or while they are indented.
    // The closing text, a constant; empty when no such value is open.
    std::string_view open_until;
    int open_lines = 0;  ///< how many more lines it may have
    bool in_block = false;
    std::size_t block_indent = 0;  ///< the indentation of the name, in bytes

    bool next_word = false;         ///< a backslash ended the line between a name and its value
    bool after_name = false;        ///< "name: DB_PASSWORD" ended the line: "value: x" may follow
    bool random_passwords = false;  ///< lines of a user and a password follow
    bool dial_secrets = false;      ///< "# client server secret" was read: such lines follow
    bool prompted = false;          ///< an expect script waits for "assword:": "send" may follow
    bool secret_object = false;     ///< "kind: Secret" was read: its "data:" is a block
    bool challenged = false;        ///< a server has asked for a password: it is the next line
    int user_lines = 0;             ///< how many lines may have the "PASS x" of a user
    bool decoded = false;  ///< the text was decoded from another one: nothing in it is decoded

    // For the next part of the same line.
    secret_rest rest = secret_rest::NOTHING;
    bool dropped = false;        ///< the line is not printed
    std::uint16_t commands = 0;  ///< the program that was named last; see IGSecretOption.h
    std::uint32_t flags = 0;     ///< other words that were read; see IGSecretCommand.cpp
};

/// A line without its line feed, or a part of a line that is longer than the memory for it.
struct secret_part {
    std::string_view text;
    unsigned char* hidden;  ///< one byte for each byte of the text; not 0: it is hidden
    bool starts;            ///< the part is the first of its line
    bool ends;              ///< the part is the last of its line
};

/// How a line or part is printed, apart from the bytes that are hidden in it.
struct secret_fate {
    bool left_out = false;        ///< neither it nor its line feed is printed
    bool mask_first = false;      ///< a mask is printed before it
    std::size_t from = 0;         ///< the first byte that is printed
    std::size_t blank_lines = 0;  ///< how many empty lines are printed before it
};

#endif
