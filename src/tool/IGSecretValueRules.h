// Tables: values that are no secret.
#ifndef QUENDIL_TOOL_IGSECRETVALUERULES_H
#define QUENDIL_TOOL_IGSECRETVALUERULES_H

#include <string_view>

/// Values that are no secret. A single digit is none either.
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

/// Endings of names of files with keys and certificates.
inline constexpr std::string_view KEY_FILES[] = {".key", ".pem", ".crt", ".p12", ".jks", ".cer"};

/// Architectures, which follow the name of a package and a colon.
inline constexpr std::string_view PACKAGE_ARCHITECTURES[] = {
    "all",    "amd64",    "any",    "arm64",   "armel",   "armhf", "i386",
    "mipsel", "mips64el", "native", "ppc64el", "riscv64", "s390x", "x86_64",
};

/// Other words behind the name of a package or a unit in a table.
inline constexpr std::string_view PACKAGE_STATES[] = {"install", "deinstall", "hold",  "purge",
                                                      "static",  "-",         "(libc6"};

/// Services that find names, in nsswitch.conf.
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

#endif
