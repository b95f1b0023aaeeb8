// The rules, each a function for one kind of secret. Only the units of the filter include this.
#ifndef QUENDIL_TOOL_IGSECRETMARK_H
#define QUENDIL_TOOL_IGSECRETMARK_H

#include "tool/IGSecretLine.h"

// Each function hides its secrets in a line. None fails.

/// Values of names of secrets: password = x, "token": "x", <secret>x</secret>, --password x.
void markNames(SecretLine& line);
/// Passwords in command lines, and in settings that look like them.
void markCommands(SecretLine& line);
/// Passwords that a command writes to a pipe, for a program that reads one.
void markPipes(SecretLine& line);
/// Passwords in settings of programs that are written like words of a command line.
void markSettings(SecretLine& line);
/// Names that were typed at a login and that no user has: people often type their password there.
void markLogins(SecretLine& line);
/// Passwords of addresses: user:x@host.
void markAddresses(SecretLine& line);
/// Fields of lines of known files.
void markFields(SecretLine& line);
/// Values of a known format: hashes of passwords, the keys of well known services.
void markShapes(SecretLine& line);
/// Passwords among the arguments of calls of functions.
void markCalls(SecretLine& line);
/// Passwords that a client sends to a server.
void markDialogs(SecretLine& line);
/// Secrets in remarks of administrators, and tokens of log services.
void markRemarks(SecretLine& line);
/// Secrets in command lines and other texts in the records of the audit system.
void markAudit(SecretLine& line);
/// Private keys that begin in the line.
/// @return whether the last one may continue in the next lines
bool markKeys(SecretLine& line);
/// Whether the line continues the private key of the lines before.
bool continuesKey(const SecretLine& line);
/// Where the last line of a key ends; text behind it is no part of the key.
/// @return the end of the line when no words are behind it, NOWHERE for any other line
std::size_t behindKeyEnd(const SecretLine& line);

#endif
