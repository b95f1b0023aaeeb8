// Tables: commands that take a secret.
#ifndef QUENDIL_TOOL_IGSECRETCOMMANDRULES_H
#define QUENDIL_TOOL_IGSECRETCOMMANDRULES_H

#include <string_view>

/// Programs that take a password from the environment: PGPASSWORD=x psql.
inline constexpr std::string_view ASSIGNED_PROGRAMS[] = {
    "aws",     "borg",         "curl",      "duplicity",  "mysql",      "mysqldump",
    "mariadb", "mariadb-dump", "pg_dump",   "pg_dumpall", "pg_restore", "pg_basebackup",
    "psql",    "rclone",       "redis-cli", "restic",     "sshpass",    "vault",
};

/// Programs that take a password with an option.
struct secret_program {
    std::string_view name;     ///< the beginning of the name of the program
    std::string_view next;     ///< the word that must follow the name; empty when any may
    std::string_view letters;  ///< the letters of the options that take a password
    bool letter_follows;       ///< a letter follows in the name: smbclient, snmpget
    bool apart;                ///< a blank must follow the option: -a X, not -aX
    bool with_user;            ///< the option takes a user and a password: -u me:X
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

/// Options of any program that may take a user and a password, if that looks like a secret.
inline constexpr std::string_view DOUBTFUL_PAIRS[] = {
    "-u", "-U", "--user", "--username", "--login",
};

/// Options of any program that may take a secret, if their value looks like one.
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

/// How names of network interfaces and disks begin.
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

/// Commands in which a word is in front of a secret.
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

/// Commands whose password has a fixed place among the words behind them.
struct secret_argument {
    std::string_view command;
    /// The word behind it: the whole word, "-" and an option letter, or its beginning up to ":".
    std::string_view next;
    int between;            ///< number of words between that one and the password
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

/// Programs and options that, behind a pipe, read a password that echo or printf writes.
inline constexpr std::string_view PASSWORD_READERS[] = {
    "passwd", "--stdin", "-S",          "password", "cryptsetup", "kinit",
    "gpg",    "openssl", "debconf-set", "su - ",    "realm join", "adcli join",
};

/// Programs that take user/password@database, known by the beginning of their names.
inline constexpr std::string_view ORACLE_PROGRAMS[] = {"sqlplus", "rman",   "expdp",
                                                       "impdp",   "sqlldr", "jdbc"};

#endif
