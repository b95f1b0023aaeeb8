// What the commands of the tool directory take for a secret, as tables.
#ifndef QUENDIL_TOOL_IGSECRETRULES_H
#define QUENDIL_TOOL_IGSECRETRULES_H

#include <cstddef>
#include <string_view>

/// What replaces a secret.
inline constexpr std::string_view SECRET_MASK = "********";

/// Names of secret values. Each may stand inside of a longer name: db_password, x-api-key-2. "~" is
/// one of "-", "_" and ".", or nothing.
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
    // As people mistype it.
    "passwrd",
    "pasword",
    "passwort",
    "paswd",
    "psswd",
    "pssword",
    "passowrd",
    "passwprd",
    // And in other languages.
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

/// Names too short to be inside of another word: one of the parts into which "-", "_" and "."
/// divide a name. Digits may follow where `numbered`.
struct secret_short {
    std::string_view word;
    bool numbered;
};
inline constexpr secret_short SECRET_SHORTS[] = {
    {"pass", true},    {"key", true},     {"pwd", false},   {"pw", false},    {"pin", false},
    {"creds", false},  {"pswd", false},   {"passw", false}, {"pwrd", false},  {"jwt", false},
    {"bearer", false}, {"puk", false},    {"passe", false}, {"mdp", false},   {"clave", false},
    {"senha", false},  {"parola", false}, {"haslo", false}, {"heslo", false}, {"kennw", false},
};

/// What is between a secret and its name in a sentence. Behind one of another language the
/// value must look like a secret.
inline constexpr std::string_view SAYING_VERBS[] = {"is",  "was", "ist", "lautet",
                                                    "war", "est", "es"};

/// Names of passwords that are words of other sentences too.
inline constexpr std::string_view SECRET_VERBS[] = {"pass", "pin", "pins", "key", "keys"};

/// Words whose object is no password although it follows one's name: password for x.
inline constexpr std::string_view OBJECT_WORDS[] = {
    "for", "of",   "from",  "by",   "on",   "at",   "in",  "user", "host", "server",
    "as",  "file", "hash",  "with", "für",  "von",  "vom", "an",   "de",   "del",
    "du",  "da",   "do",    "di",   "pour", "para", "per", "dla",  "na",   "для",
    "от",  "via",  "using", "and",  "or",   "und",  "et",  "y",    "e",
};

/// Words behind which a user and a password follow, with a sign between them.
inline constexpr std::string_view LOGIN_WORDS[] = {
    "login", "zugang", "zugangsdaten", "logindaten", "anmeldung", "wifi", "wlan"};

/// Words in front of a user and a password, or of a secret, which say how they are meant.
inline constexpr std::string_view LOGIN_SCHEMES[] = {"basic", "bearer", "digest", "token", "plain"};

/// Accounts of administrators that machines and programs come with.
inline constexpr std::string_view SECRET_ACCOUNTS[] = {
    "administrator",  "admin",          "root",     "sa",     "oracle",
    "postgres",       "userid",         "sysadmin", "sysdba", "system",
    "superuser",      "manager",        "mysql",    "ubnt",   "administrador",
    "amministratore", "administrateur", "sys",      "tomcat",
};

/// Words that announce a user and a password.
inline constexpr std::string_view ACCESS_WORDS[] = {
    "login",         "logins",       "logindaten",  "zugang",      "zugangsdaten",
    "zugriff",       "anmeldung",    "credential",  "credentials", "creds",
    "credenziali",   "accesso",      "acces",       "accès",       "identifiants",
    "identifiant",   "credenciales", "credenciais", "acceso",      "acesso",
    "inloggegevens", "dostęp",       "logowanie",   "account",     "konto",
    "user",          "pw",           "password",    "passwort",    "kennwort",
    "ilo",           "idrac",        "ipmi",        "bmc",         "console",
};

/// How the names of units and files end that may hold a secret behind its name.
inline constexpr std::string_view NAME_ENDINGS[] = {
    ".service", ".timer", ".socket", ".path", ".mount", ".target", ".scope", ".slice", ".sh",
    ".conf",    ".cfg",   ".env",    ".txt",  ".log",   ".json",   ".yml",   ".yaml",  ".xml",
    ".sql",     ".gz",    ".zip",    ".bak",  ".tar",   ".tgz",    ".list",  ".ini",
};

/// Programs that are given a password in the environment: PGPASSWORD=x psql.
inline constexpr std::string_view ASSIGNED_PROGRAMS[] = {
    "aws",     "borg",         "curl",      "duplicity",  "mysql",      "mysqldump",
    "mariadb", "mariadb-dump", "pg_dump",   "pg_dumpall", "pg_restore", "pg_basebackup",
    "psql",    "rclone",       "redis-cli", "restic",     "sshpass",    "vault",
};

/// Endings of names that need a letter or digit in front: dbpass, dbpw.
inline constexpr secret_short SECRET_ENDINGS[] = {{"pass", true}, {"pwd", false}, {"pw", false}};

/// Parameters of an address that sign it.
inline constexpr std::string_view SECRET_SIGNATURES[] = {
    "sig", "signature", "x-amz-sig", "x-amz-signature", "code", "auth"};

/// Directives that are followed by a name and its value: SetEnv DB_PASSWORD x.
inline constexpr std::string_view NAMING_DIRECTIVES[] = {
    "proxy_set_header ", "fastcgi_param ",     "uwsgi_param ",
    "scgi_param ",       "grpc_set_header ",   "add_header ",
    "setenv ",           "requestheader set ", "requestheader add ",
    "header set ",       "header add ",        "env ",
    "option ",           "more_set_headers ",  "setx ",
};

/// Names that are followed by their value without any sign between them.
inline constexpr std::string_view SECRET_VALUED[] = {
    "auth_pass",      "auth-pass",      "auth_user_pass",   "auth-user-pass",
    "auth_user-pass", "auth-user_pass", "insecure-password"};

/// Names that are followed by their value and by something else, which is none.
inline constexpr std::string_view SECRET_COMMUNITIES[] = {"rocommunity", "rwcommunity",
                                                          "rocommunity6", "rwcommunity6"};

/// Endings of names that are no secret although they are named like one: where it lies, how long it
/// may be, ...
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

/// What is before " key", "_key" or "-key" that is no secret. The keys that disks have for
/// senses and reservations are the heart of many a report.
inline constexpr std::string_view HARMLESS_KEYS[] = {
    "sense", "reservation", "public", "kernel", "foreign", "primary", "sort",
};

/// Values that tell nothing. So does a single digit.
inline constexpr std::string_view PLAIN_VALUES[] = {
    "yes",      "no", "true", "false", "on",   "off",     "none",     "null",      "required",
    "optional", "y",  "n",    "m",     "auth", "account", "session",  "chauthtok", "setcred",
    "(null)",   "-",  "--",   "||",    "&&",   "warning", "critical", "nominal",   "/",
};

/// Directories of the root: a value that begins with one is a path.
inline constexpr std::string_view TOP_DIRECTORIES[] = {
    "/bin",  "/boot", "/dev", "/etc",  "/home", "/lib", "/lib64", "/media", "/mnt", "/opt",
    "/proc", "/root", "/run", "/sbin", "/srv",  "/sys", "/tmp",   "/usr",   "/var",
};

/// How names of files end that hold keys and certificates.
inline constexpr std::string_view KEY_FILES[] = {".key", ".pem", ".crt", ".p12", ".jks", ".cer"};

/// What follows the name of a package and a colon.
inline constexpr std::string_view PACKAGE_ARCHITECTURES[] = {
    "all",    "amd64",    "any",    "arm64",   "armel",   "armhf", "i386",
    "mipsel", "mips64el", "native", "ppc64el", "riscv64", "s390x", "x86_64",
};

/// What else follows the name of a package or a unit, in columns.
inline constexpr std::string_view PACKAGE_STATES[] = {"install", "deinstall", "hold",  "purge",
                                                      "static",  "-",         "(libc6"};

/// Where names are looked up: nsswitch.conf.
inline constexpr std::string_view NAME_SERVICES[] = {
    "files",
    "systemd",
    "compat",
    "sss",
    "ldap",
    "nis",
    "nisplus",
    "winbind",
    "db",
    "cache",
    "extrausers",
    "altfiles",
    "mymachines",
    "[notfound=return]",
    "[success=merge]",
    "[unavail=return]",
    "[!unavail=return]",
};

/// Words that make a sentence of the words around them.
inline constexpr std::string_view SENTENCE_WORDS[] = {
    "a",    "an",  "and",  "are", "be",   "by",   "can",  "does", "for",  "from", "has",
    "if",   "in",  "is",   "it",  "may",  "must", "not",  "of",   "on",   "or",   "should",
    "that", "the", "this", "to",  "used", "was",  "when", "will", "with", "you",  "your",
};

/// What follows "the token is", "the password was" in a sentence, and is no value.
inline constexpr std::string_view ORDINARY_WORDS[] = {
    "a",
    "about",
    "absent",
    "accepted",
    "again",
    "allowed",
    "already",
    "also",
    "always",
    "an",
    "any",
    "as",
    "asked",
    "assigned",
    "associated",
    "at",
    "automatically",
    "available",
    "bad",
    "based",
    "be",
    "because",
    "been",
    "being",
    "blank",
    "bound",
    "by",
    "cached",
    "case",
    "case-sensitive",
    "changed",
    "checked",
    "cleared",
    "compared",
    "considered",
    "correct",
    "created",
    "currently",
    "defined",
    "deleted",
    "denied",
    "deprecated",
    "derived",
    "different",
    "disabled",
    "displayed",
    "done",
    "either",
    "empty",
    "enabled",
    "encoded",
    "encrypted",
    "entered",
    "expected",
    "expired",
    "false",
    "for",
    "found",
    "from",
    "generated",
    "given",
    "good",
    "handled",
    "hashed",
    "hidden",
    "identical",
    "if",
    "ignored",
    "in",
    "incorrect",
    "installed",
    "invalid",
    "invalidated",
    "issued",
    "it",
    "just",
    "kept",
    "known",
    "less",
    "limited",
    "loaded",
    "locked",
    "logged",
    "long",
    "longer",
    "looked",
    "lost",
    "made",
    "malformed",
    "mandatory",
    "masked",
    "matched",
    "meant",
    "mismatched",
    "missing",
    "more",
    "necessary",
    "needed",
    "neither",
    "never",
    "no",
    "none",
    "normally",
    "not",
    "null",
    "obtained",
    "often",
    "ok",
    "okay",
    "old",
    "on",
    "one",
    "only",
    "optional",
    "or",
    "part",
    "passed",
    "pending",
    "possible",
    "present",
    "printed",
    "private",
    "probably",
    "prompted",
    "protected",
    "provided",
    "public",
    "read",
    "ready",
    "received",
    "refreshed",
    "refused",
    "rejected",
    "removed",
    "replaced",
    "requested",
    "required",
    "reset",
    "returned",
    "reused",
    "revoked",
    "safe",
    "same",
    "saved",
    "sensitive",
    "sent",
    "set",
    "shared",
    "short",
    "shown",
    "signed",
    "simply",
    "skipped",
    "so",
    "specified",
    "still",
    "stored",
    "strong",
    "such",
    "supplied",
    "supported",
    "taken",
    "that",
    "the",
    "then",
    "there",
    "therefore",
    "this",
    "tied",
    "to",
    "too",
    "true",
    "typed",
    "unavailable",
    "unchanged",
    "undefined",
    "unknown",
    "unset",
    "unsupported",
    "unused",
    "up",
    "updated",
    "used",
    "something",
    "nothing",
    "really",
    "zero",
    "usually",
    "valid",
    "validated",
    "verified",
    "very",
    "weak",
    "what",
    "when",
    "where",
    "which",
    "with",
    "within",
    "without",
    "written",
    "wrong",
    "yes",
    "your",
};

/// What may stand in front of the word that directives of PAM begin with.
inline constexpr std::string_view PAM_CONTROLS[] = {
    "required", "requisite", "sufficient", "optional", "include", "substack", "[",
};

/// Programs that take a password with an option. A program is one by the beginning of its name.
struct secret_program {
    std::string_view name;     ///< how the name begins
    std::string_view next;     ///< the word behind it, which must follow where it is not empty
    std::string_view letters;  ///< options of one letter that take the password
    bool letter_follows;       ///< the name goes on with a letter: smbclient, snmpget
    bool apart;                ///< a blank is between option and password: -a X, not -aX
    bool with_user;            ///< what it takes is a user and a password: -u me:X
};
inline constexpr secret_program SECRET_PROGRAMS[] = {
    {"mysql", "", "p", false, false, false},
    {"mariadb", "", "p", false, false, false},
    {"sshpass", "", "p", false, false, false},
    {"mongo", "", "p", false, false, false},
    {"ncftp", "", "p", false, false, false},
    {"7z", "", "p", false, false, false},
    {"rar", "", "p", false, false, false},
    {"unrar", "", "p", false, false, false},
    {"useradd", "", "p", false, false, false},
    {"usermod", "", "p", false, false, false},
    {"docker", "login", "p", false, false, false},
    {"podman", "login", "p", false, false, false},
    {"az", "login", "p", false, false, false},
    {"acr", "login", "p", false, false, false},
    {"oc", "login", "p", false, false, false},
    {"ssh-keygen", "", "N", false, true, false},
    {"trapsess", "", "cAX", false, false, false},
    {"snmp", "", "cAX", true, false, false},
    {"ldap", "", "w", false, false, false},
    {"kadmin", "", "w", false, false, false},
    {"iscsistart", "", "w", false, true, false},
    {"redis-cli", "", "a", false, true, false},
    {"valkey-cli", "", "a", false, true, false},
    {"ipmitool", "", "P", false, false, false},
    {"ipmi-", "", "P", false, false, false},
    {"sqlcmd", "", "P", false, false, false},
    {"bcp", "", "P", false, false, false},
    {"zip", "", "P", false, false, false},
    {"unzip", "", "P", false, false, false},
    {"openssl", "", "kK", false, true, false},
    {"curl", "", "uUb", false, false, true},
    {"wget", "", "uUb", false, false, true},
    {"lftp", "", "uUb", false, false, true},
    {"smb", "", "uUb", true, false, true},
    {"rpcclient", "", "uUb", false, false, true},
    {"net", "use", "uUb", false, false, true},
    {"net", "ads", "uUb", false, false, true},
    {"net", "rpc", "uUb", false, false, true},
    {"rdesktop", "", "p", false, false, false},
    {"http", "-a", "a", false, true, true},
    {"check_http", "", "a", false, true, true},
    {"check_snmp", "", "CAX", false, true, false},
    {"check_mysql", "", "p", false, false, false},
    {"check_pgsql", "", "p", false, false, false},
    {"mosquitto_", "", "P", false, false, false},
    {"tsql", "", "P", false, false, false},
    {"dsconf", "", "w", false, true, false},
    {"dsctl", "", "w", false, true, false},
    {"dsidm", "", "w", false, true, false},
    {"ipa-server", "", "pa", false, true, false},
    {"ipa-replica", "", "pw", false, true, false},
    {"ipa-", "", "w", false, true, false},
    {"fence_", "", "p", false, true, false},
    {"racadm", "", "p", false, true, false},
    {"esxcli", "", "p", false, true, false},
    {"hdbsql", "", "p", false, true, false},
    {"cqlsh", "", "p", false, true, false},
    {"elasticsearch-users", "", "p", false, true, false},
    {"winexe", "", "U", false, false, true},
    {"wbinfo", "", "a", false, true, true},
    {"nsupdate", "", "y", false, true, true},
    {"dig", "", "y", false, true, true},
    {"doctl", "auth", "t", false, true, false},
};

/// Long options of the programs that take a user and a password.
inline constexpr std::string_view USER_OPTIONS[] = {"-user", "-proxy-user", "-cookie"};

/// Options of any program that take a user and a password.
inline constexpr std::string_view AUTH_OPTIONS[] = {"--auth",      "--proxy-auth", "--basic-auth",
                                                    "--http-auth", "--userpass",   "-auth",
                                                    "--src-creds", "--dest-creds"};

/// Options of any program that may take a user and a password, where that looks like a secret.
inline constexpr std::string_view DOUBTFUL_PAIRS[] = {
    "-u", "-U", "--user", "--username", "--login",
};

/// Options of any program that take a secret, where what they take looks like one.
inline constexpr std::string_view DOUBTFUL_OPTIONS[] = {"-p",
                                                        "-k",
                                                        "-w",
                                                        "--auth",
                                                        "--license",
                                                        "--licence",
                                                        "--serial",
                                                        "-ap",
                                                        "-xp",
                                                        "--initialsetup",
                                                        "--security-unlock",
                                                        "--security-erase",
                                                        "--security-disable"};

/// What names of network interfaces and disks begin with.
inline constexpr std::string_view DEVICE_NAMES[] = {"enp", "eno", "ens", "enx",
                                                    "wlp", "ibp", "nvme"};

/// Programs whose options "-p", "-k" and "-w" take no secret.
inline constexpr std::string_view OPEN_PROGRAMS[] = {
    "auditctl",   "ausearch",  "cp",   "df",    "install", "ip6tables", "iptables",
    "journalctl", "kubectl",   "ls",   "lsblk", "lsof",    "make",      "mkdir",
    "nc",         "nft",       "nmap", "patch", "perf",    "ps",        "rmdir",
    "rsync",      "scp",       "sftp", "sort",  "ss",      "ssh",       "strace",
    "sysctl",     "systemctl", "tar",  "touch", "udevadm",
};

/// Commands in which a word comes before a secret.
struct secret_keyword {
    std::string_view command;
    std::string_view word;
    bool doubtful = false;  ///< the secret must look like one
};
inline constexpr secret_keyword SECRET_KEYWORDS[] = {
    {"nmcli", "password"},
    {"nmcli", "secret"},
    {"nmcli", "wifi-sec.psk"},
    {"nmcli", "802-11-wireless-security.psk"},
    {"nmcli", "802-1x.password"},
    {"mysqladmin", "password"},
    {"mysqladmin", "secret"},
    {"neighbor", "password"},
    {"neighbor", "secret"},
    {"username", "password"},
    {"username", "secret"},
    {"enable", "password"},
    {"enable", "secret"},
    {"snmp-server", "community"},
    {"snmp-server", "auth"},
    {"snmp-server", "priv"},
    {"tacacs-server", "key"},
    {"radius-server", "key"},
    {"server", "key", true},
    {"ospf", "authentication-key"},
    {"message-digest-key", "md5"},
    {"authentication-key", "md5"},
    {"isis", "password", true},
    {"rip", "string", true},
    {"isakmp", "key", true},
    {"ppp", "password", true},
    {"standby", "authentication", true},
    {"vpn", "pre-shared-secret"},
    {"ike", "ascii-text"},
    {"ipmitool", "password"},
    {"option", "key", true},
    {"wireless-security", "key", true},
    {"db2", "using", true},
};

/// Commands whose password is the last of some words.
struct secret_argument {
    std::string_view command;
    std::string_view next;  ///< the word behind it, as far as it must have these letters
    int between;            ///< words between that one and the password
    bool doubtful = false;  ///< the password must look like one
};
inline constexpr secret_argument SECRET_ARGUMENTS[] = {
    {"htpasswd", "-b", 2},
    {"rabbitmqctl", "add_user", 1},
    {"rabbitmqctl", "change_password", 1},
    {"rabbitmqctl", "authenticate_user", 1},
    {"vault", "login", 0},
    {"mc", "alias", 4},
    {"mc", "config", 5},
    {"net", "use", 1, true},
    {"net", "use", 2, true},
    {"net", "user", 1, true},
    {"virsh", "set-user-password", 2},
    {"virsh", "secret-set-value", 2},
    {"vault", "operator", 1, true},
    {"openssl", "passwd", 1, true},
    {"rclone", "obscure", 0},
    {"runas", "/user:", 0, true},
    {"isql", "-v", 2, true},
    {"samba-tool", "user", 2, true},
    {"crypto", "isakmp", 1, true},
};

/// What, behind a pipe, reads a password that echo or printf writes.
inline constexpr std::string_view PASSWORD_READERS[] = {
    "passwd", "--stdin", "-S",          "password", "cryptsetup", "kinit",
    "gpg",    "openssl", "debconf-set", "su - ",    "realm join", "adcli join",
};

/// Programs that are given user/password@database.
inline constexpr std::string_view ORACLE_PROGRAMS[] = {"sqlplus", "rman",   "expdp",
                                                       "impdp",   "sqlldr", "jdbc"};

/// Directives of SNMP whose second word is followed by secrets.
inline constexpr std::string_view SNMP_DIRECTIVES[] = {
    "com2sec", "com2sec6", "com2secunix", "createUser",
    "usmUser", "trapsink", "trap2sink",   "informsink",
};

/// Kinds of keys with which servers of time know each other.
inline constexpr std::string_view TIME_KEYS[] = {"m",      "md5",    "sha",    "sha1",   "sha256",
                                                 "sha384", "sha512", "aes128", "aes256", "tiger"};

/// Kinds of secrets of tunnels.
inline constexpr std::string_view TUNNEL_KEYS[] = {"psk",   "eap",   "xauth", "ntlm", "rsa",
                                                   "ecdsa", "pkcs8", "p12",   "pin"};

/// Texts of programs about a name that was typed at a login, which is between the two. What
/// may follow the name of a user that does not exist in a message of sshd is found by itself.
struct secret_login {
    std::string_view before;
    std::string_view behind;
    bool blanks;  ///< the name may hold blanks
};
inline constexpr secret_login SECRET_LOGINS[] = {
    {"User ", " not known to the underlying", true},
    {"user ", " does not exist", false},
    {"bad username [", "]", true},
    {"no such user '", "'", true},
    {"USER ", ": no such user", true},
};

/// Accounts that are no such names.
inline constexpr std::string_view KNOWN_ACCOUNTS[] = {"root", "(unknown)", "?"};

/// Functions that take a password. A name that ends with the word is one of them.
struct secret_call {
    std::string_view word;
    int quoted;           ///< of the texts in quotes of a call, counted from 1, this and all later
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

/// Ways to log in to a mail server, behind which the answer of the client follows.
inline constexpr std::string_view LOGIN_MECHANISMS[] = {
    "plain", "login", "xoauth2", "oauthbearer", "ntlm", "external", "gssapi",
};

/// How servers ask for a user and for a password: "Username:", "Password:" in Base64.
inline constexpr std::string_view LOGIN_CHALLENGES[] = {
    "VXNlcm5hbWU6", "UGFzc3dvcmQ6",     "dXNlcm5hbWU6",
    "cGFzc3dvcmQ6", "VXNlciBOYW1lAA==", "UGFzc3dvcmQA",
};

/// Hashes of passwords: "$6$...".
inline constexpr std::string_view CRYPT_SCHEMES[] = {
    "1",  "2",   "2a",   "2b",   "2x",     "2y",     "5",      "6",       "7",       "y",
    "gy", "md5", "apr1", "sha1", "scrypt", "bcrypt", "argon2", "argon2i", "argon2d", "argon2id",
};

/// Hashes of passwords: "{SSHA}...", as far as their scheme begins so.
inline constexpr std::string_view DIRECTORY_SCHEMES[] = {
    "SSHA",      "SHA",  "SMD5",      "MD5",      "CRYPT",      "PBKDF2",
    "crypt",     "sha",  "BLF-CRYPT", "CRAM-MD5", "DIGEST-MD5", "LDAP-MD5",
    "PLAIN-MD5", "NTLM", "LANMAN",    "ARGON",    "SCRAM",
};

/// Such schemes behind which the password itself stands.
inline constexpr std::string_view CLEAR_SCHEMES[] = {"{PLAIN}", "{plain}", "{CLEARTEXT}",
                                                     "{cleartext}", "{CLEAR}"};

/// Keys of well known services, by how they begin.
struct secret_shape {
    std::string_view beginning;
    char then;             ///< what must end the first part; NUL when there is one part
    bool dots;             ///< dots belong to it
    bool apart;            ///< no letter or digit comes before it
    std::size_t shortest;  ///< in bytes, with its beginning
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

/// Places of an address behind which its secret begins.
inline constexpr std::string_view HOOK_ADDRESSES[] = {"hooks.slack.com/", "/webhook/",
                                                      "/webhooks/"};

/// Headers that stand in an encrypted private key, in front of its text.
inline constexpr std::string_view KEY_HEADERS[] = {
    "Proc-Type:", "DEK-Info:", "Version:",   "Comment:",
    "Hash:",      "Charset:",  "MessageID:", "Subject:",
};

#endif
