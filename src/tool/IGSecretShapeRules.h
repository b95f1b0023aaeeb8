// Tables: secrets with a known format.
#ifndef QUENDIL_TOOL_IGSECRETSHAPERULES_H
#define QUENDIL_TOOL_IGSECRETSHAPERULES_H

#include <cstddef>
#include <string_view>

/// Hashes of passwords: "$6$...".
inline constexpr std::string_view CRYPT_SCHEMES[] = {
    "1",  "2",   "2a",   "2b",   "2x",     "2y",     "5",      "6",       "7",       "y",
    "gy", "md5", "apr1", "sha1", "scrypt", "bcrypt", "argon2", "argon2i", "argon2d", "argon2id",
};

/// Hashes of passwords: "{SSHA}...". A scheme is known by its beginning.
inline constexpr std::string_view DIRECTORY_SCHEMES[] = {
    "SSHA",      "SHA",  "SMD5",      "MD5",      "CRYPT",      "PBKDF2",
    "crypt",     "sha",  "BLF-CRYPT", "CRAM-MD5", "DIGEST-MD5", "LDAP-MD5",
    "PLAIN-MD5", "NTLM", "LANMAN",    "ARGON",    "SCRAM",
};

/// Schemes in front of the password itself, which is not hashed.
inline constexpr std::string_view CLEAR_SCHEMES[] = {"{PLAIN}", "{plain}", "{CLEARTEXT}",
                                                     "{cleartext}", "{CLEAR}"};

/// Keys of well known services, known by their beginning.
struct secret_shape {
    std::string_view beginning;
    char then;             ///< the byte that must end the first part; NUL when there is one part
    bool dots;             ///< dots are part of it
    bool apart;            ///< no letter or digit is in front of it
    std::size_t shortest;  ///< its size in bytes, with its beginning
};
inline constexpr secret_shape SECRET_SHAPES[] = {
    {"AKIA", '\0', false, false, 20},
    {"ASIA", '\0', false, false, 20},
    {"AIza", '\0', false, false, 20},
    {"github_pat_", '\0', false, false, 20},
    {"npm_", '\0', false, true, 20},
    {"sk_live_", '\0', false, false, 20},
    {"rk_live_", '\0', false, false, 20},
    {"sk_test_", '\0', false, false, 20},
    {"glpat-", '\0', false, false, 20},
    {"sk-", '\0', false, true, 20},
    {"AGE-SECRET-KEY-", '\0', false, false, 20},
    {"SG.", '.', false, false, 20},
    {"hvs.", '\0', false, true, 20},
    {"hvb.", '\0', false, true, 20},
    {"eyJ", '.', true, false, 20},
    {"grub.pbkdf2", '\0', true, false, 12},
    {"dop_v1_", '\0', false, true, 20},
    {"doo_v1_", '\0', false, true, 20},
    {"dor_v1_", '\0', false, true, 20},
    {"pypi-", '\0', false, true, 40},
    {"dckr_pat_", '\0', false, true, 20},
    {"dckr_oat_", '\0', false, true, 20},
    {"whsec_", '\0', false, true, 20},
    {"shpat_", '\0', false, true, 20},
    {"shpss_", '\0', false, true, 20},
    {"shpca_", '\0', false, true, 20},
    {"glsa_", '\0', false, true, 20},
    {"glrt-", '\0', false, true, 20},
    {"glptt-", '\0', false, true, 20},
    {"gldt-", '\0', false, true, 20},
    {"lin_api_", '\0', false, true, 20},
    {"ATATT3x", '\0', false, true, 20},
    {"ATCTT3x", '\0', false, true, 20},
    {"xapp-", '\0', false, true, 20},
    {"tskey-", '\0', false, true, 20},
    {"sntrys_", '\0', false, true, 20},
    {"PMAK-", '\0', false, true, 20},
    {"hf_", '\0', false, true, 30},
};

/// Parts of an address that its secret follows.
inline constexpr std::string_view HOOK_ADDRESSES[] = {"hooks.slack.com/", "/webhook/",
                                                      "/webhooks/"};

/// Headers of an encrypted private key, in front of its text.
inline constexpr std::string_view KEY_HEADERS[] = {
    "Proc-Type:", "DEK-Info:", "Version:",   "Comment:",
    "Hash:",      "Charset:",  "MessageID:", "Subject:",
};

#endif
