// Tables: messages about logins; calls and dialogues with a password.
#ifndef QUENDIL_TOOL_IGSECRETLOGINRULES_H
#define QUENDIL_TOOL_IGSECRETLOGINRULES_H

#include <string_view>

/// Messages with a name that was typed at a login, which is between two texts. Messages with
/// another form are not in the table: IGSecretLogin.cpp has a function for each.
struct secret_login {
    std::string_view before;
    std::string_view behind;
    bool blanks;  ///< the name may have blanks
};
inline constexpr secret_login SECRET_LOGINS[] = {
    {"User ", " not known to the underlying", true},
    {"user ", " does not exist", false},
    {"bad username [", "]", true},
    {"no such user '", "'", true},
    {"USER ", ": no such user", true},
};

/// Names in such messages that are kept.
inline constexpr std::string_view KNOWN_ACCOUNTS[] = {"root", "(unknown)", "?"};

/// Functions that take a password. A name that ends with the word is one of them.
struct secret_call {
    std::string_view word;
    int quoted;           ///< the number, from 1, of the first text in quotes that is hidden
    bool inside = false;  ///< the word may be anywhere in the name
};
inline constexpr secret_call SECRET_CALLS[] = {
    {"pdo->__construct", 3},
    {"pdo", 3},
    {"mysqli->__construct", 3},
    {"mysqli", 3},
    {"connection->__construct", 3},
    {"soapclient->__construct", 3},
    {"ldap_bind", 2},
    {"ldap_exop_passwd", 2},
    {"imap_open", 3},
    {"imap_reopen", 3},
    {"ssh2_auth_password", 2},
    {"ssh2_auth_pubkey_file", 4},
    {"password_verify", 1},
    {"password_hash", 1},
    {"hash_equals", 1},
    {"hash_hmac", 3},
    {"openssl_encrypt", 3},
    {"openssl_decrypt", 3},
    {"redis->auth", 1},
    {"db.auth", 2},
    {"crypt", 1},
    {"pgp_sym_encrypt", 2},
    {"pgp_sym_decrypt", 2},
    {"aes_encrypt", 2},
    {"aes_decrypt", 2},
    {"login", 2, true},
    {"authenticate", 2, true},
    {"connect", 3, true},
};

/// Mechanisms of SASL for the login to a mail server. The answer of the client follows.
inline constexpr std::string_view LOGIN_MECHANISMS[] = {
    "plain", "login", "xoauth2", "oauthbearer", "ntlm", "external", "gssapi",
};

/// Questions of a mail server in Base64: "Username:", "Password:" and other spellings of them.
inline constexpr std::string_view LOGIN_CHALLENGES[] = {
    "VXNlcm5hbWU6", "UGFzc3dvcmQ6",     "dXNlcm5hbWU6",
    "cGFzc3dvcmQ6", "VXNlciBOYW1lAA==", "UGFzc3dvcmQA",
};

#endif
