// The value of a name: where it begins and ends. Only the units of the filter include this.
#ifndef QUENDIL_TOOL_IGSECRETNAMEVALUE_H
#define QUENDIL_TOOL_IGSECRETNAMEVALUE_H

#include "tool/IGSecretLine.h"
#include "tool/IGSecretWord.h"

/// Hides the value of a name.
/// @param from where the value begins, with its quote or bracket
/// @param at_start the name is the first word of its line: the line is the end of a bare value
/// @return the place behind the value
std::size_t hideValue(SecretLine& line, std::size_t from, const secret_name& name, bool at_start);

/// Hides a text in quotes, which may be escaped: \"x\".
/// @param from where the quote, or the backslashes in front of it, begins
/// @param at_start the name is the first word of its line: the text may end in a later line
/// @return the place behind the closing quote, or the end of the line
std::size_t hideQuotedValue(SecretLine& line, std::size_t from, bool at_start);

#endif
