// Pairs of a user and a password with a sign between them: login me / x, credentials me:x. Only the
// units of the filter include this.
#ifndef QUENDIL_TOOL_IGSECRETUSERPAIR_H
#define QUENDIL_TOOL_IGSECRETUSERPAIR_H

#include "tool/IGSecretLine.h"

/// Hides the password behind a word such as "login": login: me / x; and, where x looks like a
/// secret, login me / x, login with me/x.
/// @param to where the word ends
/// @return the place where to continue, or 0 when no user and password follow
std::size_t hideLogin(SecretLine& line, std::size_t to);

/// Hides a password behind a user and "/" or ":", where it looks like a secret: me/x, me:x.
/// @param sign where the user ends
/// @return the place behind the password, or 0 when none is there
std::size_t hideJoined(SecretLine& line, std::size_t sign);

/// Where the word behind "/ " begins; 0 when the place, apart from blanks, has no such sign.
std::size_t behindSlash(const SecretLine& line, std::size_t place);

#endif
