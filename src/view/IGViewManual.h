// The manual's entries of the messages: quendil_messages(7), which is part of the program.
#ifndef QUENDIL_VIEW_IGVIEWMANUAL_H
#define QUENDIL_VIEW_IGVIEWMANUAL_H

#include <string>
#include <string_view>

/// What a message means and what to do, as plain text: paragraphs with an empty line between them.
/// @param id "ZEPA126-W"
/// @return "" for a number that the manual does not have
std::string messageHelp(std::string_view id);

#endif
