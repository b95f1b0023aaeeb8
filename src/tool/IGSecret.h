// Finds secrets in texts: passwords, private keys, tokens and the like.
//
// A value is a secret because of the name beside it (password = x, "token": "x",
// <secret>x</secret>, --password x, user:x@host), or because of its format (the hash of a password,
// a private key, the keys of well known services). In doubt the filter hides a value: a value that
// is missing costs a question, a password that is published has to be changed.
//
// The time is linear in the size of any text: each rule goes through a line once, and does not
// search a stretch again in which it found nothing.
#ifndef QUENDIL_TOOL_IGSECRET_H
#define QUENDIL_TOOL_IGSECRET_H

#include "tool/IGSecretState.h"

/// Marks the secrets of a line, or of a part of one, as hidden. Does not fail.
/// @param part its bytes `hidden` are set, never cleared
/// @param state of the text; changed for the next line or part
/// @return how the line is printed
secret_fate markSecrets(const secret_part& part, secret_state* state);

/// How many empty lines at the end of a text were left out because they could have been part of a
/// key, and must still be printed.
std::size_t blankLinesAtEnd(const secret_state& state);

#endif
