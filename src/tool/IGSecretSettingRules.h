// Tables: lines of configuration files.
#ifndef QUENDIL_TOOL_IGSECRETSETTINGRULES_H
#define QUENDIL_TOOL_IGSECRETSETTINGRULES_H

#include <string_view>

/// Directives that are followed by a name and its value: SetEnv DB_PASSWORD x.
inline constexpr std::string_view NAMING_DIRECTIVES[] = {
    "proxy_set_header ", "fastcgi_param ",     "uwsgi_param ",
    "scgi_param ",       "grpc_set_header ",   "add_header ",
    "setenv ",           "requestheader set ", "requestheader add ",
    "header set ",       "header add ",        "env ",
    "option ",           "more_set_headers ",  "setx ",
};

/// Names that are followed by their value without a sign between them.
inline constexpr std::string_view SECRET_VALUED[] = {
    "auth_pass",      "auth-pass",      "auth_user_pass",   "auth-user-pass",
    "auth_user-pass", "auth-user_pass", "insecure-password"};

/// Names that are followed by their value and by other words, which are no secret.
inline constexpr std::string_view SECRET_COMMUNITIES[] = {"rocommunity", "rwcommunity",
                                                          "rocommunity6", "rwcommunity6"};

/// How the second word of a directive of PAM begins. Its first word may be "password".
inline constexpr std::string_view PAM_CONTROLS[] = {
    "required", "requisite", "sufficient", "optional", "include", "substack", "[",
};

/// Directives of SNMP with secrets behind their second word.
inline constexpr std::string_view SNMP_DIRECTIVES[] = {
    "com2sec", "com2sec6", "com2secunix", "createUser",
    "usmUser", "trapsink", "trap2sink",   "informsink",
};

/// Kinds of keys of time servers.
inline constexpr std::string_view TIME_KEYS[] = {"m",      "md5",    "sha",    "sha1",   "sha256",
                                                 "sha384", "sha512", "aes128", "aes256", "tiger"};

/// Kinds of secrets of tunnels.
inline constexpr std::string_view TUNNEL_KEYS[] = {"psk",   "eap",   "xauth", "ntlm", "rsa",
                                                   "ecdsa", "pkcs8", "p12",   "pin"};

#endif
