"""The pattern files that are shipped: checked as texts, then run for real."""

from __future__ import annotations

import re
import shutil
import subprocess
import sys
from collections import Counter
from pathlib import Path

import pytest
from support import behave, expect, grammar, hostile_names, masking, pattern_text, secrets
from support.check_patterns import PatternFile
from support.collecting import complete_output
from support.machine import PATTERN_DIRECTORY, Machine
from support.run import Run
from support.tree import Tree

ROOT = Path(__file__).resolve().parents[2]
CHECKER = ROOT / "tests/support/check_patterns.py"
PATTERNS = ROOT / "patterns"
AREAS = {
    "boot", "container", "crash", "firewall", "hardware", "kernel", "locale", "log", "memory",
    "network", "package", "performance", "process", "schedule", "security", "service", "storage",
    "system", "time", "user",
}
PRODUCTS = {
    "apache", "java", "java_threads", "kubernetes", "mariadb", "nginx", "pacemaker", "postgresql",
}
LONGEST_ITEM = 50 << 20
LARGEST_OUTPUT = 100 << 20
LOGS = {"quendil_index", "quendil.log", "quendil_hist.log", "quendil_hist_old.log"}


def files(of_product: bool) -> list[PatternFile]:
    """The shipped files of the system, or those of products, in their order."""
    every = [PatternFile(path.name, path.read_bytes()) for path in sorted(PATTERNS.iterdir())]
    return [file for file in every if file.of_product == of_product]


SYSTEM_FILES, PRODUCT_FILES = files(of_product=False), files(of_product=True)
PRODUCT_GROUPS = [word for file in PRODUCT_FILES for word in ("-g", file.root.text("PP_GROUP"))]


def check(directory: Path) -> subprocess.CompletedProcess[str]:
    return subprocess.run([sys.executable, str(CHECKER), str(directory)], capture_output=True,
                          text=True, check=False)


# ---- As texts -----------------------------------------------------------------------------------


def test_the_shipped_files_keep_every_rule():
    done = check(PATTERNS)
    assert (done.returncode, done.stderr) == (0, ""), done.stdout
    assert done.stdout.startswith(f"{len(list(PATTERNS.iterdir()))} files, ")


def test_the_shipped_set_has_every_area_and_enough_items():
    counts = re.fullmatch(r"(\d+) files, (\d+) tools, (\d+) data items\n", check(PATTERNS).stdout)
    assert counts is not None
    number, tools, items = map(int, counts.groups())
    assert (number, tools > 150, items >= 250) == (len(AREAS | PRODUCTS), True, True)
    assert {file.name.partition("_")[2] for file in SYSTEM_FILES} == AREAS
    assert {file.name.partition("_")[2] for file in PRODUCT_FILES} == PRODUCTS


def test_every_shipped_file_has_a_target_of_its_name_and_a_group_of_its_own():
    for file in SYSTEM_FILES + PRODUCT_FILES:
        name = file.name.partition("_")[2]
        assert {block.text("TARGET") for block in file.blocks} == {name}, file.name
        groups = file.root.texts("PP_GROUP")
        assert name in groups, file.name
        assert ("linux" in groups) != file.of_product, file.name
        assert len(groups) == len(set(groups)), file.name


RUN = "/opt/norvale/quendil/tool/run"


def item_rows(text: str) -> list[list[str]]:
    """The cells of each row of the item table."""
    return [[cell.strip().replace("\\", "") for cell in line.strip("|").split("|")]
            for line in text.splitlines() if re.match(r"\| (?!item )", line)]


@pytest.mark.parametrize("page, described", [
    ("linux-items.md", SYSTEM_FILES), ("product-items.md", PRODUCT_FILES)])
def test_the_documentation_lists_every_item(page: str, described: list[PatternFile]):
    rows = [row[1] for row in item_rows((ROOT / "docs" / page).read_text())]
    assert rows == [item.text("DESCRIPTION") for file in described for item in file.items("DATA_BLOCK")]


def test_every_product_group_is_named_by_the_documents():
    readme, page = ((ROOT / name).read_text() for name in ("README.md", "man/quendil.8"))
    for name in PRODUCTS:
        assert re.search(rf"`{name}`", readme), name
        assert re.search(rf"^\.It (\w+ , )*{name}\b", page, re.MULTILINE), name


GOOD = pattern_text.pattern(pattern_text.block(
    pattern_text.tool(f"{RUN} -m df -lk", "%d%/df.txt", timeout=10),
    pattern_text.data("%d%/df.txt", "Disk space", file_type="text"), targets=["disk"]),
    groups=["linux"]).replace("PP_VRS = 1.0\n", "")


def test_the_checker_accepts_a_file_that_keeps_every_rule(tmp_path: Path):
    (tmp_path / "10_good").write_text(GOOD)
    done = check(tmp_path)
    assert (done.returncode, done.stdout) == (0, "1 files, 1 tools, 1 data items\n")


@pytest.mark.parametrize("present, wrong, reported", [
    (f"{RUN} -m df", "df", "the command df is none of the tool directory"),
    (f"{RUN} -m df", "/bin/df", "the command /bin/df is none of the tool directory"),
    ("-m df", "-m /bin/df", "the program /bin/df is not given by its name"),
    ("-m df", "df", "the output of df is not masked"),
    ("df -lk", "df -lk | cat", "the word | needs a shell"),
    ("df -lk", "df -k", "df lacks the argument ^-l"),
    ("df -lk", "du -0 -x /boot", "run lacks -0: du"),
    ("df -lk", "-0 find /proc -print", "find lacks the argument -print0"),
    ("df -lk", "sh -c ls", "sh may change, wake or wait for something"),
    ("df -lk", "lspci", "lspci is not run by the command of the tool directory"),
    ("df -lk", "top -b -n 2", "top is not run by the command of the tool directory"),
    ("df -lk", "-c mask", "mask is no command of the tool directory"),
    ("df -lk", "ls -ln /etc", "run lacks -p: ls"),
    ("df -lk", "nft list ruleset", "nft is run on no condition"),
    ("df -lk", "ps -ef -o pid,args", "the arguments of processes cannot be turned off"),
    ("df -lk", "-c names -eo pid,comm", "names lacks the argument"),
    ("df -lk", "-l 51 df -l", "51 MiB are too much"),
    ("df -lk", "-e /run/docker.pid docker ps -a", "docker lacks the argument"),
    ("df -lk", "-0 find /proc -name exe -print0", "find lacks the argument"),
    ("df -lk", "iw dev", "iw is run on no condition"),
    ("df -lk", "cat /etc/shadow", "may hold secrets"),
    ("run -m df -lk", "show /etc/shadow", "may collect secrets"),
    ("run -m df -lk", "show /etc", "may collect secrets"),
    ("run -m df -lk", "show -l 13 /var/log/messages", "13 MiB are too much"),
    ("run -m df -lk", "run -m -c each disk smartctl -a /dev/{}",
     "smartctl lacks the argument ^-n standby"),
    ("run -m df -lk", "run -c each disk smartctl -n standby", "the output of each is not masked"),
    ("run -m df -lk", "run -m -c each disk btrfs device stats", "btrfs is run on no condition"),
    ("run -m df -lk", "run -m -c each namespace nsenter --net={} sh", "nsenter lacks the argument"),
    ("run -m df -lk", "run -m -c each namespace nsenter --net={} nft list ruleset", "nft is run on no condition"),
    ("run -m df -lk", "show /var/spool/cron", "may collect secrets"),
    ('PATH_NAME = "%d%/df.txt"', 'PATH_NAME = "/etc/sha*"', "may collect secrets"),
    ('PATH_NAME = "%d%/df.txt"', 'PATH_NAME = "/proc/self/mountinfo"', "may collect secrets"),
    ('PATH_NAME = "%d%/df.txt"', 'PATH_NAME = "/var/log/messages"', "may be of any size"),
    ('PATH_NAME = "%d%/df.txt"', 'PATH_NAME = "%d%/other"', "no DATA_BLOCK directly behind"),
    ("TIMEOUT = 10", "TIMEOUT = -1", "TIMEOUT is no number"),
    ("TIMEOUT = 10", "TIMEOUT = 600", "a run cannot wait longer"),
    ("    TIMEOUT = 10\n", "", "TOOL_BLOCK without TIMEOUT"),
    ('        DESCRIPTION = "Disk space"\n', "", "DATA_BLOCK without DESCRIPTION"),
    ("Disk space", "df", "df is no sentence"),
    ("TARGET = disk\n", "", "BLOCK without TARGET"),
    ("Disk space", "%FOO%", "unknown special string"),
    ("Disk space", "\u00e4", "a character that no pattern file may hold"),
    ("}\n}", "}\n", "is never closed"),
    ('"linux"', '"other"', "the group linux is missing"),
    ("FORMAT_VERSION = 1.0", "FORMAT_VERSION = 2.0", "FORMAT_VERSION is not 1.0"),
])
def test_the_checker_finds_what_breaks_a_rule(tmp_path: Path, present: str, wrong: str,
                                              reported: str):
    assert present in GOOD
    (tmp_path / "10_wrong").write_text(GOOD.replace(present, wrong, 1))
    done = check(tmp_path)
    assert done.returncode == 1 and reported in done.stdout


SQL, JVM = "/opt/norvale/quendil/tool/sql", "/opt/norvale/quendil/tool/jvm"
ASKED = [f"{SQL} postgresql -x \"SELECT now()\"", f"{JVM} jstat -gc {{}}"]
PRODUCT = GOOD.replace('"linux"', '"disk"')


@pytest.mark.parametrize("command", [
    *ASKED, f"{SQL} mariadb \"SHOW GLOBAL STATUS\"", f"{JVM} options", f"{JVM} -a jcmd {{}} Thread.print -l"])
def test_the_checker_accepts_commands_that_only_read_a_product(tmp_path: Path, command: str):
    escaped = command.replace('"', '\\"')
    (tmp_path / "80_disk").write_text(PRODUCT.replace(f"{RUN} -m df -lk", escaped))
    done = check(tmp_path)
    assert (done.returncode, done.stdout) == (0, "1 files, 1 tools, 1 data items\n")


@pytest.mark.parametrize("command, reported", [
    (f"{SQL} postgresql -x \"DELETE FROM pg_class\"", "this is no query that only reads"),
    (f"{SQL} postgresql \"SELECT 1; DROP TABLE x\"", "this is no query that only reads"),
    (f"{SQL} postgresql \"SELECT * FROM public.orders\"", "public.orders is not the database's own"),
    (f"{SQL} postgresql \"SELECT * FROM pg_stat_statements s JOIN mine USING (x)\"", "mine is not"),
    (f"{SQL} postgresql \"SELECT pg_reload_conf()\"", "pg_reload_conf may change or wait"),
    (f"{SQL} postgresql \"SELECT pg_total_relation_size(1)\"", "may change or wait"),
    (f"{SQL} postgresql \"SELECT rolpassword FROM pg_authid\"", "rolpassword is a secret"),
    (f"{SQL} mariadb \"FLUSH TABLES\"", "FLUSH may change or wait"),
    (f"{SQL} mariadb \"SELECT * FROM mysql.user\"", "the columns are not named"),
    (f"{SQL} oracle \"SELECT 1\"", "oracle is no database that is known"),
    (f"{JVM} jcmd {{}} GC.run", "not to be asked jcmd {} GC.run"),
    (f"{JVM} jcmd {{}} VM.system_properties", "not to be asked"),
    (f"{JVM} -a jcmd {{}} GC.heap_dump /tmp/x", "not to be asked"),
    (f"{RUN} psql -l", "psql may change, wake or wait for something"),
    (f"{RUN} -u postgres -t 5 psql -l", "psql may change, wake or wait for something"),
    (f"{RUN} nginx -T", "nginx lacks the argument ^-[vV]$"),
    (f"{RUN} apache2ctl -S", "apache2ctl may change"),
    (f"{RUN} cibadmin -Q", "cibadmin is run on no condition"),
    (f"{RUN} -e /run/x crm_mon -1", "the output of crm_mon is not masked"),
    (f"{RUN} -m -e /run/x curl -s -S -m 5 http://example.org/", "curl lacks the argument"),
    ("/opt/norvale/quendil/tool/show /etc/mysql", "may collect secrets"),
    ("/opt/norvale/quendil/tool/show /etc/kubernetes/*.conf", "may collect secrets"),
])
def test_the_checker_reports_commands_that_may_harm_a_product(tmp_path: Path, command: str,
                                                              reported: str):
    escaped = command.replace('"', '\\"')
    (tmp_path / "80_disk").write_text(PRODUCT.replace(f"{RUN} -m df -lk", escaped))
    done = check(tmp_path)
    assert done.returncode == 1 and reported in done.stdout


@pytest.mark.parametrize("name, group, reported", [
    ("80_disk", "linux", "the group linux collects no product"),
    ("80_disk", "other", "the first group is not disk"),
    ("79_disk", "disk", "the group linux is missing"),
])
def test_the_checker_keeps_products_out_of_the_system(tmp_path: Path, name: str, group: str,
                                                      reported: str):
    (tmp_path / name).write_text(GOOD.replace('"linux"', f'"{group}"'))
    done = check(tmp_path)
    assert done.returncode == 1 and reported in done.stdout


# ---- For real -----------------------------------------------------------------------------------


def commands(collected: list[PatternFile]) -> list[str]:
    """The command lines of these files' tools as a run shows them, in their order."""
    return [tool.text("COMMAND_LINE").replace("%%", "%")
            for file in collected for tool in file.items("TOOL_BLOCK")]


def data_items(collected: list[PatternFile]) -> int:
    """The number of these files' data items."""
    return sum(len(file.items("DATA_BLOCK")) for file in collected)


def check_logs(run: Run, arguments: str, collected: list[PatternFile]) -> None:
    """Both logs have expected lines only; every tool ran, and ended before its time limit."""
    items = grammar.read_run_log(run.raw["log"] or "")
    assert [text for kind, text in items if kind == "tool"] == commands(collected)
    assert "ZEPA126-W" not in (run.raw["log"] or "")
    assert "Return code = 255" not in (run.raw["log"] or "")
    assert grammar.read_history(run.raw["history"] or "") == 1
    assert run.history == expect.history(arguments, 0, f"{expect.OUTPUT_DIRECTORY}.tar.gz")


def check_archive(tree: Tree) -> None:
    """The archive has only files and directories, and the logs as they were before the packing."""
    assert masking.mask(tree.top) == expect.OUTPUT_NAME
    for name, member in tree.members().items():
        assert member.kind in ("file", "directory", "hard link"), name
        assert member.kind != "hard link" or member.target.removeprefix(f"{tree.top}/") in tree
    assert tree.read("quendil.log").endswith(b"\nZEPA202-I:Started making.\n")
    assert tree.read("quendil_hist.log").count(b"\n") == 2
    assert tree.read("quendil_hist_old.log") == b"x" * 10_000


def check_index(run: Run, tree: Tree) -> None:
    """The index names every file of the archive but the logs once, and no missing one."""
    named = [name for record in grammar.read_index(run.raw_index) for name in record]
    assert [name for name, count in Counter(named).items() if count > 1] == []
    assert [name for name in named if name not in tree] == []
    assert set(tree.files()) - set(named) == LOGS
    assert len(named) > 50


def check_no_secret(tree: Tree) -> None:
    """The archive has no planted secret, and no file with the name of one."""
    name_of_secret = re.compile(
        r"(^|/)(g?shadow-?|sudoers|crypttab|environ|\w*_key|authkey|[^/]*\.key|\d+/cmdline)$")
    assert [name for name in tree.names if name_of_secret.search(name)] == []
    assert [name for name in tree.names if secrets.MARK in name] == []
    mark = secrets.MARK.encode()
    reported = [f"{name}: {line!r}" for name, content in tree.files().items()
                for line in content.splitlines() if mark in line]
    assert reported == []


def check_filtered(tree: Tree) -> None:
    """The text next to the secrets is in the archive: the patterns reached each of them."""
    for name, kept in [
            ("network/nm_profiles.txt", b"[wifi-security]\npsk=*"),
            ("storage/fstab.txt", b"username=me"),
            ("schedule/cron_tables.txt", b"mysqldump -u root -p*"),
            ("schedule/cron_user_tables.txt", b"1 2 * * * dump --password *"),
            ("user/sudo_rules.txt", b"me ALL=(ALL) NOPASSWD: ALL"),
            ("user/failed_logins.txt", b"******** " if shutil.which("lastb") else b"lastb"),
            ("user/login_log.txt", b"sshd[1]: Invalid user ****"),
            ("log/syslog.txt", b"user=me"),
            ("time/chrony_conf.txt", b"server ntp.example.org"),
            ("package/apt_sources.txt", b"deb https://me:*"),
            ("user/accounts.txt", b":root:/root:"),
            ("kernel/cmdline.txt", b"root=/dev/sda1"),
            ("container/docker_conf.txt", b'"cluster"')]:
        assert kept in tree.read(name), name


#: What each item shows of the names that users have chosen.
HOSTILE = {
    "process/process_names.txt": b"/comm:a\n",
    "process/program_files.txt": rb"/tmp/planted/pa\012FORGED\033[7m\233 (deleted)",
    "process/deleted_programs.txt": rb"/tmp/planted/pa\012FORGED\033[7m\233 (deleted)",
    "process/deleted_open_files.txt": rb"/tmp/planted/oa\012FORGED\033[7m\233 (deleted)",
    "network/sockets.txt": rb'users:(("a\012FORGED\033[7m\233",pid=',
    "network/sockets_unix.txt": rb'users:(("a\012FORGED\033[7m\233",pid=',
    "log/log_files.txt": rb" /var/log/f\012FORGED\033",
    "log/log_sizes.txt": rb"/var/log/postgresql/d\012FORGED\033",
    "crash/crash_files.txt": rb" /var/crash/f\012FORGED\033",
    "crash/crash_messages.txt": b"==> /var/crash/d\\012FORGED\\033/dmesg.1\nof a crash\n",
}


def check_names(tree: Tree) -> None:
    """No name that a user has chosen forges a line of a tool's output, or controls a terminal."""
    printed = {name: content for name, content in tree.files().items()
               if re.fullmatch(r"[a-z]+/\w+\.txt", name)}
    assert len(printed) > 150
    assert {name: faults for name, content in printed.items()
            if (faults := hostile_names.faults(content))} == {}
    for name, shown in HOSTILE.items():
        assert shown in printed[name], name


def make_table(machine: Machine, run: Run, directory: Path, kind: str, collected: list[PatternFile]
               ) -> list[list[str]]:
    """Makes the documents' table from the run; it has a row for each item, a time for each tool."""
    (directory / "quendil.log").write_text(run.raw["log"] or "")
    done = subprocess.run(
        [sys.executable, "-B", str(ROOT / "scripts/item-table"), kind, str(directory / "quendil.log"),
         str(machine.path(run.result))], capture_output=True, text=True, check=False)
    assert (done.returncode, done.stderr) == (0, "")
    rows = item_rows(done.stdout)
    assert len(rows) == data_items(collected)
    assert sum(re.fullmatch(r"\d+ s", row[2]) is not None for row in rows) == len(commands(collected))
    return rows


def test_the_shipped_set_runs_for_real_and_collects_no_secret(machine: Machine, tmp_path: Path):
    # One run for all checks, because some of the tools take seconds.
    assert machine.list(PATTERN_DIRECTORY) == sorted(path.name for path in PATTERNS.iterdir())
    secrets.plant(machine, hostile_names.VAR)
    hostile_names.start(machine)
    machine.file("/var/opt/norvale/quendil/log/quendil_hist.log", "x" * 10_000)
    machine.exec(f"SECRET={secrets.MARK} exec " + behave.command(
        behave.daemon(), behave.ready("/tmp/there"), behave.wait_for("/tmp/over"),
        behave.exit(0), behave.out(f"--password={secrets.MARK}")))
    machine.wait_for("/tmp/there")
    run = machine.run("-g", "linux", seconds=120)
    machine.file("/tmp/over")
    hostile_names.stop(machine)
    assert (run.status, run.stderr) == (0, "")
    assert run.stdout == complete_output(len(commands(SYSTEM_FILES)) + data_items(SYSTEM_FILES))
    assert machine.exists(run.result)
    assert machine.outputs() == [expect.OUTPUT_NAME + ".tar.gz"]
    run.check_times()
    tree = run.archive
    check_logs(run, "-g linux", SYSTEM_FILES)
    assert {name.partition("/")[0] for name in tree.files()} - LOGS <= AREAS
    check_archive(tree)
    check_index(run, tree)
    check_no_secret(tree)
    check_filtered(tree)
    check_names(tree)
    rows = make_table(machine, run, tmp_path, "linux", SYSTEM_FILES)
    assert ["/etc/hostname", "Host name set at boot", "",
            f"{len(tree.read('system/etc/hostname'))} B"] in rows
    sizes = [len(content) for content in tree.files().values()]
    assert (max(sizes) <= LONGEST_ITEM, sum(sizes) <= LARGEST_OUTPUT) == (True, True)


def test_a_site_can_forbid_the_arguments_of_processes(machine: Machine):
    asking, = [command for command in commands(SYSTEM_FILES) if command.endswith("args")]
    machine.exec("setsid sh -c 'sleep 1000; : --password not-shown --verbose' </dev/null >/dev/null 2>&1 &")
    machine.wait_for(lambda: "--verbose" in machine.exec(asking).stdout)
    assert "--password ******** --verbose" in machine.exec(asking).stdout
    machine.file("/etc/opt/norvale/quendil/config/no_process_arguments")
    assert machine.exec(asking).stdout == (
        "ps: forbidden on this machine: there is /etc/opt/norvale/quendil/config/no_process_arguments\n")
    machine.exec("pkill -x sleep", check=False)


#: What the product files show next to the secrets.
SHOWN = [
    ("nginx/conf_main.txt", b"worker_processes 4;\nset $db_password \"*"),
    ("nginx/conf_sites.txt", b"proxy_set_header X-Api-Key *"),
    ("nginx/log_access.txt", b"GET /x?token=*"),
    ("apache/conf_main.txt", b"AuthLDAPBindPassword ********\nListen 80"),
    ("apache/conf_sites.txt", b"ProxyPass / http://me:*"),
    ("postgresql/conf_debian.txt", b"ldapserver=h ldapbindpasswd=*"),
    ("postgresql/conf_auto.txt", b"port = '5432'\nprimary_conninfo = 'host=h user=me password=*"),
    ("postgresql/log_debian.txt", b"CREATE ROLE me PASSWORD '*"),
    ("mariadb/conf_parts.txt", b"user = me\npassword = *"),
    ("mariadb/log_slow.txt", b"CREATE USER me IDENTIFIED BY '*"),
    ("kubernetes/files.txt", b"/etc/kubernetes/admin.conf"),
    ("kubernetes/kubelet_conf.txt", b"kind: KubeletConfiguration\nbootstrapToken: *"),
    ("pacemaker/conf_corosync.txt", b"cluster_name: demo\n  key: *"),
    ("pacemaker/conf_files.txt", b"authkey"),
    ("pacemaker/log_pacemaker.txt", b'name="passwd" value="*'),
]
#: What they show of a product that does not run.
NOT_IN_USE = [
    ("nginx/processes.txt", b"nginx: not in use on this machine: no such process\n"),
    ("apache/processes.txt", b"apache2 httpd: not in use on this machine: no such process\n"),
    ("postgresql/activity.txt", b"postgresql: not in use on this machine: no server listens on a socket\n"),
    ("mariadb/status.txt", b"mariadb: not in use on this machine: no server listens on a socket\n"),
    ("java/gc_use.txt", b"jstat: not in use on this machine: no Java virtual machine runs\n"),
    ("java_threads/threads_first.txt", b"jcmd: not in use on this machine: no Java virtual machine runs\n"),
]


def keep_from_databases(machine: Machine) -> None:
    """Hides the servers of the host from "sql"."""
    tool = "/opt/norvale/quendil/tool/sql"
    machine.file(f"{tool}.real", machine.read(tool), 0o755)
    machine.file(tool, '#!/bin/sh\nexec unshare -n "$0.real" "$@"\n', 0o755)


def test_the_products_are_collected_on_request_without_a_secret(machine: Machine, tmp_path: Path):
    secrets.plant(machine, hostile_names.VAR)
    keep_from_databases(machine)
    machine.file("/var/opt/norvale/quendil/log/quendil_hist.log", "x" * 10_000)
    run = machine.run(*PRODUCT_GROUPS, seconds=240)
    assert (run.status, run.stderr) == (0, "")
    assert run.stdout == complete_output(len(commands(PRODUCT_FILES)) + data_items(PRODUCT_FILES))
    tree = run.archive
    check_logs(run, " ".join(PRODUCT_GROUPS), PRODUCT_FILES)
    check_archive(tree)
    check_index(run, tree)
    check_no_secret(tree)
    assert {name.partition("/")[0] for name in tree.files()} - LOGS == PRODUCTS
    assert {name: shown for name, shown in SHOWN if shown not in tree.read(name)} == {}
    assert {name: tree.read(name) for name, _ in NOT_IN_USE} == dict(NOT_IN_USE)
    make_table(machine, run, tmp_path, "products", PRODUCT_FILES)


def test_web_servers_have_a_group_in_common(machine: Machine):
    run = machine.run("-g", "web", seconds=60)
    assert {name.partition("/")[0] for name in run.archive.files()} - LOGS == {"apache", "nginx"}


@pytest.mark.parametrize("option", ["-g", "-t"])
def test_one_area_can_be_collected_alone(machine: Machine, option: str):
    run = machine.run(option, "locale")
    assert (run.status, run.stderr) == (0, "")
    collected = {name.partition("/")[0] for name in run.archive.files()} - LOGS
    assert collected == {"locale"}
