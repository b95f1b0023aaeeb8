// Tables: names of secrets, and names that only look like one.
#ifndef QUENDIL_TOOL_IGSECRETNAMERULES_H
#define QUENDIL_TOOL_IGSECRETNAMERULES_H

#include <string_view>

/// Words that name a secret, also inside a longer name: db_password, x-api-key-2. "~" matches one
/// of "-", "_" and ".", or nothing.
inline constexpr std::string_view SECRET_WORDS[] = {
    "password",
    "passwd",
    "passphrase",
    "passcode",
    "secret",
    "token",
    "psk",
    "api~key",
    "access~key",
    "private~key",
    "preshared~key",
    "shared~key",
    "account~key",
    "auth~key",
    "encryption~key",
    "signing~key",
    "master~key",
    "wep~key",
    "wireless~key",
    "rss_key",
    "fastopen_key",
    "credential",
    "community",
    "bindpw",
    "rootpw",
    "masterauth",
    "requirepass",
    "authtok",
    "authorization",
    "mka~cak",
    "license~key",
    "phpsessid",
    "jsessid",
    "sessionid",
    "connect.sid",
    "aes~key",
    "hmac~key",
    "enc~key",
    "cipher~key",
    "key-string",
    "oauth2~bearer",
    "securestring",
    "sonar.login",
    "auth~salt",
    "nonce~salt",
    "recovery~code",
    "backup~code",
    "totp~seed",
    "passkey",
    // Frequent typing errors.
    "passwrd",
    "pasword",
    "passwort",
    "paswd",
    "psswd",
    "pssword",
    "passowrd",
    "passwprd",
    // In other languages.
    "kennwort",
    "wachtwoord",
    "motdepasse",
    "contrasena",
    "contraseña",
    "salasana",
    "adgangskode",
    "lösenord",
    "lizenzschlüssel",
    "jelszó",
    "hasło",
    "şifre",
    "пароль",
    "Пароль",
    "密码",
    "密碼",
    "パスワード",
};

/// Names of two words: recovery code: x.
struct secret_pair {
    std::string_view first;
    std::string_view second;
};
inline constexpr secret_pair SECRET_PAIRS[] = {
    {"recovery ", "code"}, {"recovery ", "codes"}, {"backup ", "code"}, {"backup ", "codes"},
    {"pass ", "phrase"},   {"pass ", "word"},      {"api ", "key"},     {"license ", "key"},
    {"licence ", "key"},   {"wifi ", "key"},       {"wlan ", "key"},    {"product ", "key"},
};

/// Words that are too short to name a secret inside another word: each is a whole part of a name,
/// between "-", "_" and ".".
struct secret_short {
    std::string_view word;
    bool numbered;  ///< digits may follow the word
};
inline constexpr secret_short SECRET_SHORTS[] = {
    {"pass", true},    {"key", true},     {"pwd", false},   {"pw", false},    {"pin", false},
    {"creds", false},  {"pswd", false},   {"passw", false}, {"pwrd", false},  {"jwt", false},
    {"bearer", false}, {"puk", false},    {"passe", false}, {"mdp", false},   {"clave", false},
    {"senha", false},  {"parola", false}, {"haslo", false}, {"heslo", false}, {"kennw", false},
};

/// Endings of names, with a letter or digit in front: dbpass, dbpw.
inline constexpr secret_short SECRET_ENDINGS[] = {{"pass", true}, {"pwd", false}, {"pw", false}};

/// Parameters of an address that sign it.
inline constexpr std::string_view SECRET_SIGNATURES[] = {
    "sig", "signature", "x-amz-sig", "x-amz-signature", "code", "auth"};

/// Endings of names of units and files that may have a secret inside.
inline constexpr std::string_view NAME_ENDINGS[] = {
    ".service", ".timer", ".socket", ".path", ".mount", ".target", ".scope", ".slice", ".sh",
    ".conf",    ".cfg",   ".env",    ".txt",  ".log",   ".json",   ".yml",   ".yaml",  ".xml",
    ".sql",     ".gz",    ".zip",    ".bak",  ".tar",   ".tgz",    ".list",  ".ini",
};

/// Endings of names that name no secret although they have such a word: its file, its length, ...
inline constexpr std::string_view HARMLESS_ENDINGS[] = {
    "file",
    "path",
    "chpasswd.list",
    "set-passwords",
    "fingerprint",
    "fingerprints",
    "warning",
    "dir",
    "directory",
    "timeout",
    "ttl",
    "expiry",
    "expires",
    "length",
    "len",
    "days",
    "min",
    "max",
    "policy",
    "type",
    "enabled",
    "allowed",
    "required",
    "flags",
    "mgmt",
    "management",
    "alg",
    "algorithm",
    "age",
    "count",
    "limit",
    "interval",
    "priority",
    "bypass",
    "compass",
    "sock",
    "secretmem",
    "oldpwd",
    "vipw",
    "authentication",
    "publickey",
    "public-key",
    "public_key",
    "reqd",
    "tries",
    "retries",
    "prompt",
    "lifetime",
    "command",
    "dialog",
    "nopasswd",
    "sig_key",
    "loadcredential",
    "loadcredentialencrypted",
    "importcredential",
    "conditioncredential",
    ".service",
    ".socket",
    ".timer",
    ".target",
    ".slice",
    ".scope",
    ".device",
    ".automount",
    "passwdd",
    ".mount",
    "secretname",
    "secret_name",
    "secretref",
    "size",
    "bits",
    "keyring",
    "encryption",
    "uuid",
    "passwordeval",
    "keyname",
    "key-name",
    "key_name",
    "pskidentity",
    "cert-hash",
};

/// Beginnings of such names: the keys of a keyboard.
inline constexpr std::string_view HARMLESS_BEGINNINGS[] = {"keyboard_key_",
                                                           "config_module_sig_key"};

/// Parts of such names: sizes and counters of the system.
inline constexpr std::string_view HARMLESS_PARTS[] = {"_buflen_", "tcpext", ".so."};

/// Words in front of " key", "_key" or "-key" that name no secret. Reports about disks need the
/// sense keys and reservation keys.
inline constexpr std::string_view HARMLESS_KEYS[] = {
    "sense", "reservation", "public", "kernel", "foreign", "primary", "sort",
};

#endif
