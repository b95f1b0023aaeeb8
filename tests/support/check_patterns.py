#!/usr/bin/env python3
"""Checks a directory of collection pattern files before they are shipped.

Usage: check_patterns.py DIR

The product skips a pattern file that it cannot read, with a warning in the run log
only, and gives no warning of a tool whose output no data item collects. This checker is
stricter than the product's reader. Besides the format it checks the rules that keep
the shipped files safe and readable: one statement per line, no comment after a value,
a time-out for every tool, one target for every block, a description for every item, programs that
are found by their names through the tool directory, arguments that do not change the machine, a size
limit for everything that can grow, and no item that could collect a secret.

It prints one line per finding and exits with 1, or prints the numbers of files, tools and
data items and exits with 0.
"""

from __future__ import annotations

import fnmatch
import re
import string
import sys
from dataclasses import dataclass, field
from pathlib import Path
from typing import NamedTuple

ALLOWED = frozenset((string.ascii_letters + string.digits + string.punctuation + " \t\r\n").encode())
MAX_LINE = 1025  # bytes, the line feed included
FILE_NAME = re.compile(r"[0-9]{2}_[a-z][a-z0-9_]*")

FORMAT_VERSION = "1.0"
GROUP = "linux"
FIRST_PRODUCT = 80  # files from this number on are of products, which are collected on request only
SPECIAL_STRINGS = {"", "YY", "MM", "DD", "hh", "mm", "ss", "d", "HOST"}  # "" is "%%", a plain "%"
FILE_TYPES = {"text", "binary", "archive", "directory"}

# What each kind of node may hold: the longest value of each keyword in bytes.
LIMITS = {
    "FILE": {"FORMAT_VERSION": 5, "PP_NAME": 256, "PP_GROUP": 256},
    "BLOCK": {"TARGET": 256},
    "TOOL_BLOCK": {"COMMAND_LINE": 260, "TIMEOUT": 5, "TIMEOUT_SIGNAL": 2, "WAIT_TERMINATION": 3,
                   "REDIRECT_PATH": 260},
    "DATA_BLOCK": {"PATH_NAME": 260, "FILE_TYPE": 9, "DESCRIPTION": 256},
}
OPTIONAL = {"TIMEOUT_SIGNAL", "WAIT_TERMINATION"}
REPEATABLE = {"PP_GROUP"}
RANGES = {"TIMEOUT": range(1, 36001), "TIMEOUT_SIGNAL": range(1, 65), "WAIT_TERMINATION": range(601)}
INNER = {"FILE": {"BLOCK"}, "BLOCK": {"TOOL_BLOCK", "DATA_BLOCK"}, "TOOL_BLOCK": set(), "DATA_BLOCK": set()}

# Paths of secrets. Everything below one of these directories is secret, too.
SECRETS = (
    "/etc/shadow", "/etc/shadow-", "/etc/gshadow", "/etc/gshadow-", "/etc/security/opasswd",
    "/etc/sudoers", "/etc/sudoers.d", "/etc/crypttab", "/etc/krb5.keytab", "/etc/sssd", "/etc/samba",
    "/etc/chrony.keys", "/etc/chrony/chrony.keys", "/etc/ntp.keys", "/etc/ntp/keys",
    "/etc/ipsec.secrets", "/etc/ppp/chap-secrets", "/etc/ppp/pap-secrets", "/etc/openvpn",
    "/etc/wireguard", "/etc/wpa_supplicant", "/etc/netplan", "/etc/network/interfaces",
    "/etc/NetworkManager/system-connections", "/run/NetworkManager/system-connections",
    "/etc/systemd/network/tunnel.netdev", "/etc/sysconfig/network-scripts",
    "/etc/ssh/ssh_host_ed25519_key", "/etc/ssl/private", "/etc/pki/tls/private",
    "/var/lib/sss", "/var/lib/NetworkManager/secret_key", "/var/spool/cron",
    "/var/log/auth.log", "/var/log/secure", "/var/log/btmp", "/var/log/audit",
    "/proc/self/mountinfo", "/proc/self/mountstats", "/proc/self/mounts",
    "/proc/1/cmdline", "/proc/1/environ", "/proc/self/environ", "/proc/keys", "/proc/kcore",
    "/proc/sys/net/core/netdev_rss_key", "/proc/sys/net/ipv4/tcp_fastopen_key",
    "/proc/sys/net/ipv6/conf/all/stable_secret", "/home/user/.ssh", "/root/.ssh",
    "/etc/mysql/debian.cnf", "/etc/kubernetes/admin.conf", "/etc/kubernetes/kubelet.conf",
    "/etc/kubernetes/manifests/etcd.yaml", "/etc/cni/net.d/calico-kubeconfig",
    "/var/lib/kubelet/pki/kubelet-client-current.pem", "/etc/rancher", "/etc/corosync/authkey",
    "/etc/pacemaker/authkey", "/etc/booth",
)
# Names of secrets in any directory.
SECRET_NAME = re.compile(
    r"/(g?shadow-?|id_(rsa|dsa|ecdsa|ed25519)|[^/]*\.(key|keys|keytab|netdev|p12|pfx|jks)|[^/]*_key"
    r"|\.pgpass|\.my\.cnf|system-connections|private)(/|$)|^/proc/[^/]+/(cmdline|environ)$")

# Files in which the filter masks the secrets: they may be shown, but not collected unfiltered.
FILTERED = (
    "/etc/netplan", "/etc/network/interfaces", "/etc/network/interfaces.d", "/etc/systemd/network",
    "/etc/NetworkManager/system-connections", "/run/NetworkManager/system-connections",
    "/etc/sysconfig/network-scripts/ifcfg-*",
    "/etc/sysconfig/network-scripts/route*", "/etc/sssd/sssd.conf", "/etc/sssd/conf.d",
    "/proc/self/mountinfo", "/proc/self/mountstats",  # some sources are addresses with a password
    "/etc/sudoers", "/etc/sudoers.d", "/var/log/auth.log", "/var/log/auth.log.1", "/var/log/secure",
    # The crontabs of all users, but not the jobs of at, which contain whole environments.
    "/var/spool/cron/[!a]*", "/var/spool/cron/a[!t]*", "/var/spool/cron/at[!js]*",
    "/var/spool/cron/at[js][!op]*", "/var/spool/cron/a", "/var/spool/cron/at",
    "/proc/sys/net/*/*", "/proc/sys/net/ipv?/conf/all/*", "/var/log/secure-2???????",
)

TOOL_DIRECTORY = "/opt/norvale/quendil/tool/"
TOOLS = {"run", "show", "jvm", "sql"}  # the last two filter what they print by themselves
OWN_COMMANDS = {"each", "names", "lvm", "firewall", "failed_logins", "descriptors", "pci",
                "certificates", "deleted_files", "expiry", "journal", "load", "namespaces", "process",
                "refusals"}  # of "run -c"
WRAPPER_FLAGS = {"-0", "-c", "-m", "-p"}
WRAPPER_OPTIONS = {"-l", "-e", "-s", "-n", "-t", "-u"}  # these take a value
# Programs that need no condition: "each" starts them only for devices that it finds.
EACH_FINDS = {"raid": {"mdadm"}, "btrfs": {"btrfs"}, "nvme": {"nvme"}}
LONGEST_TIMEOUT = 120
MOST_MIB = 20  # what "run" and four files of "show" print without an option

# Programs that change something, wake devices, enter network mounts or run unchecked programs.
FORBIDDEN_PROGRAMS = {
    "ash", "awk", "bash", "blkid", "dash", "depmod", "env", "fdisk", "hdparm", "hwclock", "insmod", "kill",
    "lslocks", "lsof", "mkdir", "modprobe", "mount", "mv", "parted", "perl", "python3",
    "rm", "sensors", "sfdisk", "sh", "strace", "sync", "tee", "touch", "umount", "xargs",
    # These run shell code, write where they should only read, or use the keys of an administrator.
    "apache2ctl", "apachectl", "corosync-blackbox", "crm", "crm_simulate", "kubectl", "pcs", "pg_ctlcluster",
    # Only "sql", "jvm" and "certificates" know how to run these.
    "jcmd", "jinfo", "jmap", "jstack", "jstat", "mariadb", "mariadb-admin", "mysql", "mysqladmin", "openssl",
    "psql",
}
# Programs that load modules or start services when what they query is not in use.
NEED_A_CONDITION = {
    "btrfs", "cibadmin", "corosync-cfgtool", "corosync-cmapctl", "corosync-qdevice-tool",
    "corosync-quorumtool", "crictl", "crm_mon", "crm_resource", "crm_verify", "curl", "dmsetup", "docker", "drbdsetup",
    "fail2ban-client", "firewall-cmd", "ipmitool", "ipset", "ipvsadm",
    "iscsiadm", "iw", "loginctl", "mdadm", "multipathd", "networkctl", "nft", "nmcli", "nvme",
    "ovs-vsctl", "perccli64", "podman",
    "resolvectl", "rpcinfo", "rpm", "ssacli", "stonith_admin", "storcli64", "systemctl", "timedatectl", "virsh",
    "wg", "xl", "zfs", "zpool",
}
# Programs that a command of the tool directory replaces: top, for one, asks a name service for every user.
HAVE_A_SAFE_FORM = {
    "arptables-save", "arptables-nft-save", "ebtables-save", "ebtables-nft-save", "faillock", "ip6tables-save",
    "ip6tables-nft-save", "iptables-save", "iptables-nft-save", "lastb", "lspci", "lvs", "pvs", "top", "vgs",
}
# Programs that print names of files unescaped: they must end their lines with NUL, and "run" needs -0.
NUL_ENDED = {"du", "find"}
# What a program needs: each expression must match in its arguments.
REQUIRED_ARGUMENTS = {
    "apt-cache": (r"Dir::Cache::pkgcache= ", r"Dir::Cache::srcpkgcache= "),
    "apt-mark": (r"Dir::Cache::pkgcache= ", r"Dir::Cache::srcpkgcache= ", r"showhold$"),
    "apache2": (r"^-[vl]$",), "httpd": (r"^-[vl]$",), "nginx": (r"^-[vV]$",),
    "cibadmin": (r"^-Q$",), "corosync": (r"^-v$",), "corosync-cfgtool": (r"^-[sn]$",),
    "corosync-cmapctl": (r"^(-m stats)?$",), "corosync-qdevice-tool": (r"^-s$",),
    "corosync-quorumtool": (r"^-i -[sl]$",), "crictl": (r"^--runtime-endpoint unix:///run/",),
    "crm_mon": (r"^-1( |$)",), "crm_resource": (r"^-l$",), "crm_verify": (r"^-L( |$)",),
    "curl": (r"^-q -s -S -m [0-9]+ http://127\.0\.0\.1[:/]",), "java": (r"^-XX:-UsePerfData .*-version$",),
    "kubeadm": (r"^version$",), "kubelet": (r"^--version$",), "pacemakerd": (r"^--features$",),
    "stonith_admin": (r"^-[LH]( |$)",),
    "chronyc": (r"^-n (tracking|source|activity)",), "ntpq": (r"^-n ",),
    "docker": (r"^(?!ps )|--format table ",), "podman": (r"^(?!ps )|--format table ",),
    "dmsetup": (r"^(?!status)|^status --noflush$",),  # or it commits the metadata of thin pools
    "ethtool": (r"^(?!-x)",),  # prints the key of the receive hash
    "dumpe2fs": (r"^-h ",), "lldpcli": (r"^show ",), "mdadm": (r"^-D ",), "nft": (r"^list ",),
    "df": (r"^-l",), "du": (r"^-0 -x ",),
    "find": (r"^(/proc|/sys|.* -xdev )", r"-print0$|-printf .*\\0( \))?$",
             r"^(?!.*-name exe )|-readable"),
    "drbdsetup": (r"^status ",), "fail2ban-client": (r"^banned$",), "ovs-vsctl": (r"^-t 10 --no-wait show$",),
    "storcli64": (r"show all nolog$",), "perccli64": (r"show all nolog$",), "ssacli": (r" show ",),
    "journal": (r"-n [0-9]+ |-n [0-9]+$",),
    "journalctl": (r"-n [0-9]+ |-n [0-9]+$|--disk-usage|--list-boots",),
    "ipcs": (r"^-[lu]$",),  # the others ask the name service
    "ls": (r"^-ln",),
    "timedatectl": (r"^--no-pager timesync-status$",),
    "names": (r"^-e", r"^(?!.*\b(args|cmd|command|comm)\b)"),
    "nvme": (r"^(smart-log|error-log|list-subsys)\b",),
    "nsenter": (r"^--net=\{\} (ip (addr|route show table all|rule)|nft list ruleset)$",),
    "ps": (r"^-(ww -)?e",), "rpm": (r"^-qa ",),
    "smartctl": (r"^-n standby ",), "sysctl": (r"^(?!.*-[aw])",),
    "systemctl": (r"--no-pager .*(list-|show|status|get-default)",), "virsh": (r"^-r ",),
}

LINE_EMPTY = re.compile(r"\s*(#.*)?")
LINE_CLOSE = re.compile(r"\s*\}\s*")
LINE_OPEN = re.compile(r"\s*(\w+)\s*\{\s*")
LINE_VALUE = re.compile(r"""\s*(\w+)\s*=\s*("(?:[^"\\]|\\.)*"|[^\s"#={}\\]+)\s*""")


class Finding(NamedTuple):
    """One broken rule."""

    file: str
    line: int
    text: str

    def __str__(self) -> str:
        return f"{self.file}:{self.line}: {self.text}"


class Value(NamedTuple):
    """One KEYWORD = value, the value as the product stores it."""

    keyword: str
    text: str
    line: int


@dataclass
class Node:
    """A file, a BLOCK, a TOOL_BLOCK or a DATA_BLOCK."""

    kind: str
    line: int
    values: list[Value] = field(default_factory=list)
    children: list[Node] = field(default_factory=list)

    def texts(self, keyword: str) -> list[str]:
        return [value.text for value in self.values if value.keyword == keyword]

    def text(self, keyword: str) -> str:
        return next(iter(self.texts(keyword)), "")

    def line_of(self, keyword: str) -> int:
        return next((value.line for value in self.values if value.keyword == keyword), self.line)


class Counts(NamedTuple):
    """The numbers of files, tools and data items in a directory."""

    files: int
    tools: int
    data_items: int

    def __str__(self) -> str:
        return f"{self.files} files, {self.tools} tools, {self.data_items} data items"


class PatternFile:
    """One pattern file: its tree of statements and the findings about it."""

    def __init__(self, name: str, content: bytes) -> None:
        self.name = name
        self.findings: list[Finding] = []
        self._check_bytes(content)
        self.root = self._parse(content.decode("latin-1"))
        self._check_values(self.root)
        self._check_head()
        for block in self.blocks:
            self._check_block(block)

    @property
    def of_product(self) -> bool:
        """Whether it is of a product, as its number says, and not of the system."""
        return self.name[:2].isdecimal() and int(self.name[:2]) >= FIRST_PRODUCT

    @property
    def blocks(self) -> list[Node]:
        return [node for node in self.root.children if node.kind == "BLOCK"]

    def items(self, kind: str) -> list[Node]:
        return [item for block in self.blocks for item in block.children if item.kind == kind]

    def report(self, line: int, text: str) -> None:
        self.findings.append(Finding(self.name, line, text))

    def _check_bytes(self, content: bytes) -> None:
        lines = content.split(b"\n")
        if lines[-1]:
            self.report(len(lines), "the last line does not end in a line feed")
        for number, line in enumerate(lines, 1):
            if not ALLOWED.issuperset(line):
                self.report(number, "a character that no pattern file may hold")
            if len(line) + 1 > MAX_LINE:
                self.report(number, f"a line longer than {MAX_LINE} bytes")

    def _parse(self, text: str) -> Node:
        """Reads the statements into a tree; any other line is reported and skipped."""
        root = Node("FILE", 1)
        path = [root]
        for number, line in enumerate(text.split("\n"), 1):
            if LINE_EMPTY.fullmatch(line):
                continue
            if LINE_CLOSE.fullmatch(line):
                if len(path) == 1:
                    self.report(number, "a closing brace without a block")
                else:
                    path.pop()
            elif opening := LINE_OPEN.fullmatch(line):
                if opening[1] not in INNER.get(path[-1].kind, set()):
                    self.report(number, f"{opening[1]} cannot be opened here")
                path.append(Node(opening[1], number))
                path[-2].children.append(path[-1])
            elif value := LINE_VALUE.fullmatch(line):
                path[-1].values.append(Value(value[1], unquote(value[2]), number))
            else:
                self.report(number, "neither KEYWORD = value nor an opening or a closing of a block")
        for node in path[1:]:
            self.report(node.line, f"{node.kind} is never closed")
        return root

    def _check_values(self, node: Node) -> None:
        """Every keyword is in its place, once, with a value the product accepts."""
        limits = LIMITS.get(node.kind, {})
        seen: set[str] = set()
        for keyword, text, line in node.values:
            if keyword not in limits:
                self.report(line, f"{keyword} is not allowed here")
                continue
            if keyword in seen and keyword not in REPEATABLE:
                self.report(line, f"{keyword} is given twice")
            seen.add(keyword)
            if not text:
                self.report(line, f"{keyword} is empty")
            if len(text) > limits[keyword]:
                self.report(line, f"{keyword} is longer than {limits[keyword]} bytes")
            if not special_strings_known(text):
                self.report(line, f"{keyword} holds an unknown special string or an odd percent sign")
            if keyword in RANGES and not (text.isdecimal() and int(text) in RANGES[keyword]):
                self.report(line, f"{keyword} is no number from {RANGES[keyword][0]} to {RANGES[keyword][-1]}")
        for keyword in limits.keys() - seen - OPTIONAL:
            self.report(node.line, f"{node.kind} without {keyword}")
        for child in node.children:
            self._check_values(child)

    def _check_head(self) -> None:
        first = self.root.values[0] if self.root.values else None
        if first and (first.keyword != "FORMAT_VERSION" or any(block.line < first.line for block in self.blocks)):
            self.report(first.line, "FORMAT_VERSION is not the first keyword")
        if self.root.text("FORMAT_VERSION") not in ("", FORMAT_VERSION):
            self.report(self.root.line_of("FORMAT_VERSION"), f"FORMAT_VERSION is not {FORMAT_VERSION}")
        groups = self.root.texts("PP_GROUP")
        if groups and not self.of_product and GROUP not in groups:
            self.report(self.root.line_of("PP_GROUP"), f"the group {GROUP} is missing")
        if self.of_product and GROUP in groups:
            self.report(self.root.line_of("PP_GROUP"), f"the group {GROUP} collects no product")
        if self.of_product and groups[:1] != [self.name[3:]]:
            self.report(self.root.line_of("PP_GROUP"), f"the first group is not {self.name[3:]}")
        if not self.blocks:
            self.report(1, "no BLOCK")
        # The first target of a run names the directory of the whole pattern.
        for block in self.blocks[1:]:
            if block.text("TARGET") != self.blocks[0].text("TARGET"):
                self.report(block.line, "the target differs from that of the first block")

    def _check_block(self, block: Node) -> None:
        if not block.children:
            self.report(block.line, "the block is empty")
        for item, following in zip(block.children, [*block.children[1:], None]):
            if item.kind == "TOOL_BLOCK":
                self._check_tool(item, following)
            elif item.kind == "DATA_BLOCK":
                self._check_data(item)

    def _check_tool(self, tool: Node, following: Node | None) -> None:
        command = tool.text("COMMAND_LINE")
        line = tool.line_of("COMMAND_LINE")
        if command.count('"') % 2:
            self.report(line, "a double quote of the command is never closed")
        words = split_command(command)
        for text in find_faults(words):
            self.report(line, text)
        timeout = tool.text("TIMEOUT")
        if timeout.isdecimal() and int(timeout) > LONGEST_TIMEOUT:
            self.report(tool.line_of("TIMEOUT"), f"a run cannot wait longer than {LONGEST_TIMEOUT} seconds")
        output = tool.text("REDIRECT_PATH")
        if output and not in_output_directory(output):
            self.report(tool.line_of("REDIRECT_PATH"), f"{output} is no file below %d%/")
        if following is None or following.kind != "DATA_BLOCK" or following.text("PATH_NAME") != output:
            self.report(tool.line, "no DATA_BLOCK directly behind the tool picks its output up")

    def _check_data(self, data: Node) -> None:
        path = data.text("PATH_NAME")
        line = data.line_of("PATH_NAME")
        if path and not path.startswith("/") and not in_output_directory(path):
            self.report(line, f"{path} is neither absolute nor a file below %d%/")
        if re.search(r"[*?[]", path.rpartition("/")[0]):
            self.report(line, f"{path} has a wildcard before its last part, which is not expanded")
        if re.match(r"/var/log/|/var/spool/|/var/crash/", path):
            self.report(line, f"{path} may be of any size; a tool that shows it has a limit")
        if collects_secret(path):
            self.report(line, f"{path} may collect secrets")
        description = data.text("DESCRIPTION")
        if description and not re.fullmatch(r"[A-Z0-9].{7,}[^.]", description):
            self.report(data.line_of("DESCRIPTION"), f"{description} is no sentence without a full stop")
        if data.text("FILE_TYPE") not in FILE_TYPES | {""}:
            self.report(data.line_of("FILE_TYPE"), f"FILE_TYPE is none of {', '.join(sorted(FILE_TYPES))}")


def unquote(text: str) -> str:
    """The value as the product stores it: quotes gone, escapes resolved."""
    return re.sub(r'\\(["\\#])', r"\1", text[1:-1]) if text.startswith('"') else text


def special_strings_known(text: str) -> bool:
    """Whether every name between percent signs is known and no percent sign is alone."""
    pieces = text.split("%")
    return len(pieces) % 2 == 1 and SPECIAL_STRINGS.issuperset(pieces[1::2])


def split_command(command: str) -> list[str]:
    """The words of a command line: blanks separate them, double quotes hold them together."""
    return [word.replace('"', "") for word in re.findall(r'(?:[^ \t"]|"[^"]*"?)+', command)]


def find_faults(words: list[str]) -> list[str]:
    """What is wrong with a command line, as texts."""
    tool, arguments = (words[0].removeprefix(TOOL_DIRECTORY), words[1:]) if words else ("", [])
    if tool not in TOOLS or not words[0].startswith(TOOL_DIRECTORY):
        return [f"the command {' '.join(words[:1])} is none of the tool directory"]
    faults = [f"the word {word} needs a shell, but none reads it" for word in arguments
              if re.fullmatch(r"[0-9&]*[<>|;&].*", word)]
    find = {"run": find_run_faults, "show": find_show_faults, "sql": find_sql_faults, "jvm": find_jvm_faults}
    return faults + (find[tool](arguments) if tool in find else [])


def find_show_faults(arguments: list[str]) -> list[str]:
    """What is wrong with the arguments of "show"."""
    limit = int(arguments[1]) if arguments[:1] == ["-l"] else 5
    paths = [word for word in arguments if word.startswith("/")]
    faults = [f"{path} may collect secrets" for path in paths if collects_secret(path)
              and not any(path == one for one in FILTERED)]
    return faults + [f"{limit} MiB are too much"] * (4 * limit > MOST_MIB) + ["no path"] * (not paths)


# The queries that a database may get: they change nothing and read its own tables and views only. A view or
# function of a user would run with the rights of the user who queries it.
QUERY = re.compile(r"(SELECT|SHOW) [^;]*")
NO_QUERY = re.compile(
    r"\b(COPY|INTO|FLUSH|ANALYZE|LOCK TABLE|FOR UPDATE|KILL|CALL|SLEEP|lo_\w+|dblink|set_config|setval|nextval"
    r"|load_file|get_lock|benchmark|pg_(sleep|terminate|cancel|reload|rotate|switch|create|drop|promote|advisory"
    r"|read|stat_reset|stat_file|log_|import|export|notify|relation_size|total_relation_size|table_size"
    r"|indexes_size)\w*)\b", re.IGNORECASE)
SOURCE = re.compile(r"\b(?:FROM|JOIN) (?:/\*M! )?([\w.]+)")
OWN_SOURCE = {
    "postgresql": re.compile(r"pg_\w+"),
    "mariadb": re.compile(r"(information_schema|performance_schema)\.\w+|mysql\.(user|innodb_table_stats)"),
}
SECRET_COLUMN = re.compile(r"\b(password|rolpassword|authentication_string|subconninfo|pg_authid|pg_shadow)\b")


def find_sql_faults(arguments: list[str]) -> list[str]:
    """What is wrong with the arguments of "sql"."""
    kind, query = (arguments[0], arguments[-1]) if len(arguments) > 1 else ("", "")
    if kind not in OWN_SOURCE:
        return [f"{kind} is no database that is known"]
    faults = [f"{word[0]} may change or wait for something" for word in NO_QUERY.finditer(query)]
    faults += [f"{name} is not the database's own" for name in SOURCE.findall(query)
               if not OWN_SOURCE[kind].fullmatch(name)]
    faults += [f"{name} is a secret" for name in SECRET_COLUMN.findall(query)]
    if "*" in query and re.search(r"\b(pg_subscription|pg_user_mapping\w*|mysql\.user)\b", query):
        faults.append("the columns are not named, and one is a secret")
    return faults + ["this is no query that only reads"] * (QUERY.fullmatch(query) is None)


#: The commands that a Java virtual machine may get: none collects garbage, writes a file or shows properties.
JVM_COMMANDS = re.compile(
    r"options|jstat -(class|compiler|gc|gccapacity|gccause|gcutil) \{\}( \d+ \d)?"
    r"|(-a )?jcmd \{\} (VM\.(flags( -all)?|native_memory summary|uptime|version)|GC\.heap_info"
    r"|Compiler\.codecache|Thread\.print -l)")


def find_jvm_faults(arguments: list[str]) -> list[str]:
    """What is wrong with the arguments of "jvm"."""
    command = " ".join(arguments)
    return [] if JVM_COMMANDS.fullmatch(command) else [f"a Java virtual machine is not to be asked {command}"]


def take_options(arguments: list[str]) -> tuple[dict[str, str], list[str]]:
    """The options of "run" with their values, and what follows them."""
    options = {}
    while arguments and arguments[0] in WRAPPER_FLAGS | WRAPPER_OPTIONS:
        count = 1 if arguments[0] in WRAPPER_FLAGS else 2
        options[arguments[0]] = arguments[count - 1]
        arguments = arguments[count:]
    return options, arguments


def find_run_faults(arguments: list[str]) -> list[str]:
    """What is wrong with the arguments of "run"."""
    options, arguments = take_options(arguments)
    name = arguments[0] if arguments else ""
    faults = find_program_faults(arguments, guarded=bool({"-e", "-s"} & options.keys()), own="-c" in options)
    if "-m" not in options:
        faults.append(f"the output of {name} is not masked")
    if name in NUL_ENDED and "-0" not in options:
        faults.append(f"run lacks -0: {name} prints names with line feeds")
    if name == "ls" and "-p" not in options and any(word.startswith("/") for word in arguments):
        faults.append("run lacks -p: ls would report missing paths")
    if name == "ps" and re.search(r"\b(args|cmd|command)\b", arguments[-1]) and "-n" not in options:
        faults.append("the arguments of processes cannot be turned off")
    if int(options.get("-l", MOST_MIB)) > MOST_MIB:
        faults.append(f"{options['-l']} MiB are too much")
    return faults


def find_each_faults(arguments: list[str], *, guarded: bool) -> list[str]:
    """What is wrong with the arguments of "each"."""
    kind, program = (arguments[:2] + ["", ""])[:2]
    faults = find_program_faults(
        arguments[1:], guarded=guarded or program in EACH_FINDS.get(kind, set()))
    if program == "nsenter" and "nft" in arguments and not guarded:
        faults.append("nft is run on no condition")
    return faults


def find_program_faults(words: list[str], *, guarded: bool, own: bool = False) -> list[str]:
    """What is wrong with a program and its arguments; `guarded` when it runs on a condition only, `own`
    when it is a command of the tool directory."""
    if not words or not re.fullmatch(r"[a-z0-9][\w.-]*", words[0]):
        return [f"the program {' '.join(words[:1])} is not given by its name"]
    name, arguments = words[0], words[1:]
    faults = []
    if own and name not in OWN_COMMANDS:
        faults.append(f"{name} is no command of the tool directory")
    if own and name == "each":
        return find_each_faults(arguments, guarded=guarded)
    if name in FORBIDDEN_PROGRAMS:
        faults.append(f"{name} may change, wake or wait for something")
    if name in HAVE_A_SAFE_FORM:
        faults.append(f"{name} is not run by the command of the tool directory")
    if name in NEED_A_CONDITION and not guarded:
        faults.append(f"{name} is run on no condition")
    faults += [f"{name} lacks the argument {rule}" for rule in REQUIRED_ARGUMENTS.get(name, ())
               if not re.search(rule, " ".join(arguments))]
    # Names and sizes of secret files are no secret, nor is the certificate of a key.
    faults += [f"the command names {word}, which may hold secrets" for word in arguments
               if name not in ("ls", "find", "certificates") and is_secret(word)]
    return faults


def in_output_directory(path: str) -> bool:
    """Whether the path is a plain file path below the pattern's output directory."""
    return re.fullmatch(r"%d%(/\w[\w.-]*)+", path, re.ASCII) is not None


def _parts(path: str) -> list[str]:
    return [part for part in path.split("/") if part]


def is_secret(path: str) -> bool:
    """Whether an absolute path, which may hold wildcards, is a secret or is below one."""
    parts = _parts(path)
    return path.startswith("/") and (
        SECRET_NAME.search("/" + "/".join(parts)) is not None
        or any(len(parts) >= len(_parts(secret)) and all(map(fnmatch.fnmatchcase, _parts(secret), parts))
               for secret in SECRETS))


def collects_secret(path: str) -> bool:
    """Whether collecting the path with all that is below it could collect a secret."""
    return is_secret(path) or path.startswith("/") and any(
        all(map(fnmatch.fnmatchcase, _parts(secret), _parts(path))) for secret in SECRETS)


def find_repeated(files: list[PatternFile]) -> list[Finding]:
    """Paths collected twice into one directory: the second item would have no file."""
    findings = []
    seen: dict[tuple[str, str], str] = {}
    for file in files:
        for block in file.blocks:
            for item in block.children:
                path = item.text("PATH_NAME")
                first = seen.setdefault((block.text("TARGET"), path), f"{file.name}:{item.line}")
                if path and first != f"{file.name}:{item.line}":
                    findings.append(Finding(file.name, item.line, f"{path} is collected at {first} already"))
    return findings


def check_directory(directory: Path) -> tuple[list[Finding], Counts]:
    """Checks every entry of the directory, because the product reads them all."""
    findings: list[Finding] = []
    files: list[PatternFile] = []
    for entry in sorted(directory.iterdir()):
        if not FILE_NAME.fullmatch(entry.name):
            findings.append(Finding(entry.name, 0, "a name that is not two digits, an underscore and a word"))
        if entry.is_symlink() or not entry.is_file():
            findings.append(Finding(entry.name, 0, "not a regular file"))
            continue
        files.append(PatternFile(entry.name, entry.read_bytes()))
        findings += files[-1].findings
    if not files:
        findings.append(Finding(directory.name, 0, "no pattern file"))
    counts = Counts(len(files), *(sum(len(file.items(kind)) for file in files)
                                  for kind in ("TOOL_BLOCK", "DATA_BLOCK")))
    return sorted(findings + find_repeated(files)), counts


def main(arguments: list[str]) -> int:
    if len(arguments) != 1 or not Path(arguments[0]).is_dir():
        print("usage: check_patterns.py DIR", file=sys.stderr)
        return 2
    findings, counts = check_directory(Path(arguments[0]))
    for finding in findings:
        print(finding)
    if not findings:
        print(counts)
    return 1 if findings else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
