"""quendil-check: what it says of each mistake, and its formats, options and exit statuses."""

from __future__ import annotations

import json
import re
from pathlib import Path

import jsonschema
import pytest
from support import checking, pattern_text
from support.checking import CHECK, decoded, used
from support.machine import CONFIGURATION, PATTERN_DIRECTORY, Completed, Machine
from support.pattern_grammar import PatternMaker

ROOT = Path(__file__).resolve().parents[2]
CASES = Path(__file__).parent / "check_cases"
RULES = re.findall(r'^    \{"([a-z-]+)", Level::(ERROR|WARNING), ',
                   (ROOT / "src/check/IGCheckRule.cpp").read_text(), re.M)

GOOD = pattern_text.pattern(pattern_text.data("/etc/os-release")).replace("PP_VRS = 1.0\n", "")
DESCRIBED = """FORMAT_VERSION = 1.0
PP_GROUP = demo
BLOCK {
    DATA_BLOCK {
        PATH_NAME = "%s"
        DESCRIPTION = "A file"
    }
}
"""
TOOL = """FORMAT_VERSION = 1.0
PP_GROUP = demo
BLOCK {
    TOOL_BLOCK {
        COMMAND_LINE = "%s"
        TIMEOUT = 10
        REDIRECT_PATH = "%%d%%/output.txt"
    }
    DATA_BLOCK {
        PATH_NAME = "%%d%%/output.txt"
        DESCRIPTION = "Output"
    }
}
"""


def check(machine: Machine, *arguments: str, cwd: str = "/tmp", **how) -> Completed:
    """Runs quendil-check where the files of a test are."""
    return checking.check(machine, *arguments, cwd=cwd, **how)


def rules_of(done: Completed) -> list[str]:
    """The rules that a text output names, in its order."""
    return re.findall(r"\[([a-z-]+)\]$", done.stdout, re.M)


# ---- What is found ------------------------------------------------------------------------------


@pytest.mark.parametrize("case", sorted(CASES.iterdir()), ids=lambda path: path.name)
def test_a_mistake_is_shown_with_its_place(machine: Machine, case: Path):
    text, _, rest = case.read_bytes().decode().rpartition("\n$ quendil-check ")
    command, _, expected = rest.partition("\n")
    words = command.split()
    machine.file(f"/tmp/{'quendil_conf' if '-c' in words else '90_demo'}", text)
    machine.directory("/tmp/empty")
    done = check(machine, *words)
    assert (done.stdout, done.stderr) == (expected, "")
    assert done.status == (1 if " error: " in expected else 0)


ONLINE = {"program-missing", "program-writable", "file-writable", "directory-writable",
          "path-unmatched", "output-missing", "file-leftover", "link-dangling", "space-short",
          "limit-exceeded"}


def test_every_rule_has_a_case_or_a_test():
    names = {name for name, _ in RULES}
    assert len(names) == len(RULES) > 50
    assert names == {path.name for path in CASES.iterdir()} - {"configuration"} | ONLINE


def test_the_installed_files_have_no_finding_but_for_this_machine(machine: Machine):
    done = check(machine, "--offline", "--fail-level=warning")
    count = len(list((ROOT / "patterns").iterdir())) + 1
    assert (done.status, done.stdout, done.stderr) == (
        0, f"{count} files: no errors, no warnings\n", "")


def test_the_templates_have_no_error(machine: Machine):
    directory = "/opt/norvale/quendil/template"
    done = check(machine, "--offline", *machine.list(directory), cwd=directory)
    assert (done.status, set(rules_of(done))) == (0, {"keyword-unused"})


@pytest.mark.parametrize("pattern, rule, detail", [
    (TOOL % "/no/program -a", "program-missing", "/no/program is not on this machine"),
    (TOOL % "/opt/norvale/quendil/tool/run -m -l 5 nosuchprogram -x", "program-missing",
     "nosuchprogram is not"),
    (TOOL % "/opt/norvale/quendil/tool/run -c nosuch", "program-missing", "nosuch is not"),
    (TOOL % "/opt/norvale/quendil/tool/run -e /no/path nosuchprogram", None, ""),
    (TOOL % "/opt/norvale/quendil/tool/run -e /no/path -e /et* nosuchprogram", "program-missing",
     "nosuchprogram"),
    (TOOL % "/opt/norvale/quendil/tool/run -n /etc/pass* nosuchprogram", None, ""),
    (TOOL % "/opt/norvale/quendil/tool/run -m -t5 cat /etc/hosts", None, ""),
    (TOOL % "%d%/made", None, ""),
    (TOOL % "/opt/theirs/tool", "program-writable", "root runs /opt/theirs/tool"),
    (TOOL % "/opt/link", "program-writable", "root runs /opt/theirs/tool"),
    (DESCRIBED % "/no/file", "path-unmatched", "nothing on this machine matches /no/file"),
    (DESCRIBED % "/etc/*.none", "path-unmatched", "/etc/*.none"),
    (DESCRIBED % "/etc/pass*", None, ""),
    (DESCRIBED % "/usr/%HOST%/..", None, ""),
    (DESCRIBED % "/opt/theirs/tool", "directory-writable", "can change /opt/theirs"),
    (DESCRIBED % "/opt/theirs", None, ""),
])
def test_what_this_machine_lacks_is_a_warning(machine: Machine, pattern: str, rule: str | None,
                                              detail: str):
    machine.directory("/opt/theirs", owner=(1000, 1000))
    machine.file("/opt/theirs/tool", "#!/bin/sh\n", mode=0o755)
    machine.link("/opt/link", "/opt/theirs/tool")
    machine.file("/tmp/90_demo", pattern)
    done = check(machine, "90_demo")
    assert (done.status, rules_of(done)) == (0, [] if rule is None else [rule]), done.stdout
    assert detail in done.stdout
    assert rules_of(check(machine, "--offline", "90_demo")) == []


def test_an_output_directory_that_is_not_there_is_a_warning(machine: Machine):
    machine.conf("QUENDIL_DATA_DIRECTORY=/no/directory\n")
    done = check(machine, "-c", CONFIGURATION, "/opt/norvale/quendil/template/example_file")
    assert "/no/directory is not a directory on this machine [output-missing]" in done.stdout


@pytest.mark.parametrize("name, found", [
    ("90_demo", []), ("90_demo~", ["file-leftover"]), ("#90_demo#", ["file-leftover"]),
    (".90_demo.swp", ["file-leftover"]), ("90_demo.rpmnew", ["file-leftover"]),
    ("90_demo.dpkg-dist", ["file-leftover"]), ("90_demo.bak", ["file-leftover"]),
    ("90_backup", []),
])
def test_a_leftover_in_a_directory_is_a_warning(machine: Machine, name: str, found: list[str]):
    machine.no_patterns()
    machine.file(f"{PATTERN_DIRECTORY}/{name}", DESCRIBED % "/etc/passwd")
    done = check(machine, PATTERN_DIRECTORY)
    assert rules_of(done) == found
    # Only what a run would read: a file that is named may have any name.
    assert rules_of(check(machine, f"{PATTERN_DIRECTORY}/{name}")) == []


def test_a_dangling_link_in_a_directory_is_an_error_because_no_run_starts(machine: Machine):
    machine.pattern("90_demo", GOOD)
    machine.link(f"{PATTERN_DIRECTORY}/91_demo", "/no/where")
    done = check(machine, PATTERN_DIRECTORY)
    assert done.status == 1
    assert done.stdout.startswith(f"{PATTERN_DIRECTORY}/91_demo: error: a link to nothing: no run "
                                  "starts while it is here [link-dangling]\n")
    assert machine.run("-g", "demo").status == 255


@pytest.mark.parametrize("mode, owner, found", [
    (0o644, 0, False), (0o664, 0, True), (0o646, 0, True), (0o600, 1000, True)])
def test_a_pattern_that_others_can_change_is_a_warning(machine: Machine, mode: int, owner: int,
                                                       found: bool):
    machine.no_patterns()
    machine.file(f"{PATTERN_DIRECTORY}/90_demo", DESCRIBED % "/etc/passwd", mode=mode,
                 owner=(owner, owner))
    assert rules_of(check(machine)) == (["file-writable"] if found else [])


def test_a_configuration_that_others_can_change_is_a_warning(machine: Machine):
    machine.no_patterns()
    machine.file(CONFIGURATION, "QUENDIL_CLEANUP=ON\n", mode=0o666)
    assert rules_of(check(machine)) == ["file-writable"]


def test_a_directory_above_the_one_that_others_can_change_counts_for_deeper_paths(machine: Machine):
    machine.directory("/opt/theirs", owner=(1000, 1000))
    machine.file("/opt/theirs/a/b/file")
    machine.file("/tmp/90_demo", DESCRIBED % "/opt/theirs/a/b/file")
    done = check(machine, "90_demo")
    assert "others than root can change /opt/theirs [directory-writable]\n" in done.stdout


@pytest.mark.parametrize("path, collected", [
    ("%d%/output.txt", True), ("%d%/./output.txt", True), ("%d%/../output.txt", False), ("%d%", True), ("%d%/*", True),
    ("%d%/out*.txt", True), ("%d%/*.log", False), ("%d%/output", False), ("%d%/output.txt/x", False),
    ("/output.txt", False), ("%d%/o?tput.[a-z]xt", True),
])
def test_the_path_of_a_data_item_collects_an_output(machine: Machine, path: str, collected: bool):
    machine.file("/tmp/90_demo", (TOOL % "/bin/true").replace('PATH_NAME = "%d%/output.txt"',
                                                              f'PATH_NAME = "{path}"'))
    done = check(machine, "--offline", "90_demo")
    assert rules_of(done) == ([] if collected else ["output-uncollected"])


def test_a_name_that_looks_like_a_wildcard_is_collected_by_itself(machine: Machine):
    machine.file("/tmp/90_demo", (TOOL % "/bin/true").replace("output.txt", "output[1].txt"))
    assert rules_of(check(machine, "--offline", "90_demo")) == []


@pytest.mark.parametrize("command, found", [
    ("/bin/cat /etc/shadow", True), ("/opt/norvale/quendil/tool/run cat /etc/shadow", True),
    ("/opt/norvale/quendil/tool/run -m cat /etc/shadow", False),
    ("/opt/norvale/quendil/tool/run -e /etc/shadow df", False),
    ("/opt/norvale/quendil/tool/show /etc/ssh", False), ("/bin/ls /etc/hosts", False),
])
def test_a_tool_that_prints_secrets(machine: Machine, command: str, found: bool):
    machine.file("/tmp/90_demo", TOOL % command)
    assert rules_of(check(machine, "--offline", "90_demo")) == (["path-secret"] if found else [])


@pytest.mark.parametrize("path, found", [
    ("/etc", True), ("/etc/shad*", True), ("/etc/ssl/private", True), ("/home", True),
    ("/home/ann/.ssh", True), ("/home/ann/.ssh/*", True), ("/root/.ssh/id_*", True),
    ("/srv/app/server.key", True), ("/srv/app/*.pem", True), ("/etc/security/opasswd", True),
    ("/", True), ("/home/ann/.pgpass", True), ("/etc/hosts", False), ("/etc/ssh/sshd_config", False),
    ("/var/log", False), ("%d%/../shadow", False), ("/etc/ssl/certs", False),
])
def test_a_path_that_may_bring_secrets(machine: Machine, path: str, found: bool):
    machine.file("/tmp/90_demo", DESCRIBED % path)
    assert rules_of(check(machine, "--offline", "90_demo")) == (["path-secret"] if found else [])


def test_secrets_are_named_first_when_not_all_findings_are_shown(machine: Machine):
    item = DESCRIBED.split("BLOCK {\n", 1)[1].removesuffix("}\n").replace(
        '        DESCRIPTION = "A file"\n', "")
    text = DESCRIBED % "/etc/hosts"
    machine.file("/tmp/90_demo", text.removesuffix("}\n") + item % "/etc/hosts" * 150
                 + item % "/etc/shadow" + "}\n")
    found = rules_of(check(machine, "--offline", "90_demo"))
    assert len(found) == 100 and found[-1] == "path-secret"


def test_a_program_behind_a_link_that_others_can_change(machine: Machine):
    machine.directory("/opt/theirs", mode=0o777)
    machine.link("/opt/theirs/ls", "/bin/ls")
    machine.file("/tmp/90_demo", TOOL % "/opt/theirs/ls")
    assert rules_of(check(machine, "90_demo")) == ["program-writable"]


def test_a_file_that_is_named_twice_shares_no_output_with_itself(machine: Machine):
    machine.file("/tmp/90_demo", TOOL % "/bin/true")
    assert rules_of(check(machine, "--offline", "90_demo", "90_demo")) == []


def test_a_link_that_a_user_may_not_follow_is_not_taken_for_dangling(machine: Machine):
    machine.no_patterns()
    machine.file("/opt/closed/pattern", GOOD)
    machine.directory("/opt/closed", mode=0o700)
    machine.link(f"{PATTERN_DIRECTORY}/90_demo", "/opt/closed/pattern")
    done = check(machine, "--offline", PATTERN_DIRECTORY, user=1000)
    assert (done.status, rules_of(done)) == (2, [])
    assert check(machine, "--offline", PATTERN_DIRECTORY).status == 0


def test_the_order_of_items_counts_for_an_output(machine: Machine):
    text = TOOL % "/bin/true"
    tool = text[text.index("    TOOL_BLOCK"):text.index("    DATA_BLOCK")]
    machine.file("/tmp/90_demo", text.replace(tool, "").removesuffix("}\n") + tool + "}\n")
    assert rules_of(check(machine, "--offline", "90_demo")) == ["output-uncollected"]
    machine.file("/tmp/90_demo", text.replace("    DATA_BLOCK", "}\nBLOCK {\n    DATA_BLOCK"))
    assert rules_of(check(machine, "--offline", "90_demo")) == []


def test_patterns_with_the_same_targets_share_their_outputs(machine: Machine):
    machine.no_patterns()
    for name in ("90_a", "91_b"):
        machine.file(f"{PATTERN_DIRECTORY}/{name}", TOOL % "/bin/true")
    done = check(machine, PATTERN_DIRECTORY)
    assert rules_of(done) == ["output-shared"]
    assert f"the tool at {PATTERN_DIRECTORY}/90_a:7 writes the same file" in done.stdout
    machine.file(f"{PATTERN_DIRECTORY}/91_b",
                 (TOOL % "/bin/true").replace("BLOCK {\n    TOOL", "BLOCK {\n    TARGET = b\n    TOOL"))
    assert rules_of(check(machine, PATTERN_DIRECTORY)) == []


# ---- Formats ------------------------------------------------------------------------------------

SAMPLE = "FORMAT_VERSION = 1.0\nBLOCK {\n    DATA_BLOCK\n    {\n        PATH_NAME = /a b\n    }\n}\n"


def test_the_findings_as_json(machine: Machine):
    machine.file("/tmp/90_demo", SAMPLE)
    done = check(machine, "--offline", "--format=json", "90_demo")
    assert done.status == 1
    found = decoded("check", done.stdout)
    assert found["findings"][0] == {
        "file": "90_demo", "line": 4, "column": 5, "level": "error", "rule": "brace-missing",
        "message": "the block has no { on the line of its keyword",
        "note": {"line": 3, "column": 5, "message": "the keyword of the block"}}
    assert found["summary"] == {"files": 1, "errors": 2, "warnings": 0, "truncated": 0,
                                "unreadable": 0}


def test_the_findings_of_all_rules_fit_the_schemas(machine: Machine):
    machine.no_patterns()
    for case in CASES.iterdir():
        text, _, _ = case.read_bytes().decode().rpartition("\n$ quendil-check ")
        machine.file(f"/tmp/all/{case.name} \u00e4", text)
    machine.file("/tmp/all/\udcff\n%", "x\n")
    machine.link("/tmp/all/link", "nowhere")
    done = check(machine, "--format=json", "-c", "/tmp/all/line-empty \u00e4", "/tmp/all")
    assert len(decoded("check", done.stdout)["findings"]) > 60
    done = check(machine, "--format=sarif", "-c", "/tmp/all/line-empty \u00e4", "/tmp/all")
    log = json.loads(done.stdout)
    jsonschema.validate(log, json.loads((ROOT / "tests/support/sarif-2.1.0.json").read_text()))
    results = log["runs"][0]["results"]
    rules = log["runs"][0]["tool"]["driver"]["rules"]
    assert [rule["id"] for rule in rules] == [name for name, _ in RULES]
    assert len(results) > 60
    for result in results:
        assert rules[result["ruleIndex"]]["id"] == result["ruleId"]
    uris = {result["locations"][0]["physicalLocation"]["artifactLocation"]["uri"]
            for result in results}
    assert "file:///tmp/all/%FF%0A%25" in uris and "file:///tmp/all/link" in uris


def test_the_standard_input_is_checked_for_an_editor(machine: Machine):
    done = check(machine, "--format=json", "-", stdin=SAMPLE.encode())
    found = json.loads(done.stdout)
    assert (done.status, {finding["file"] for finding in found["findings"]}) == (1, {"<stdin>"})
    assert found["findings"] == [
        finding | {"file": "<stdin>"} for finding in json.loads(check(
            machine, "--format=json", machine.file("/tmp/90_demo", SAMPLE)).stdout)["findings"]]
    done = check(machine, "-", stdin=b"#" * (8 << 20) + b"#")
    assert (done.status, done.stderr) == (
        2, "quendil-check: <stdin>: more than 8 MiB: name the file instead\n")


def test_colour_is_for_terminals_only(machine: Machine):
    machine.file("/tmp/90_demo", SAMPLE)
    script = f"script -qec '{CHECK} --offline 90_demo' /dev/null"
    for env, coloured in [({}, True), ({"NO_COLOR": "1"}, False), ({"NO_COLOR": ""}, True),
                          ({"TERM": "dumb"}, False)]:
        done = machine.exec(["/bin/sh", "-c", script], check=False, cwd="/tmp",
                            env={"TERM": "xterm", **env})
        assert ("\033[1;31merror:\033[0m" in done.stdout) == coloured, (env, done.stdout)
    assert "\033" not in check(machine, "--offline", "90_demo", env={"TERM": "xterm"}).stdout


# ---- Options and exit statuses ------------------------------------------------------------------


@pytest.mark.parametrize("arguments", [
    ["--format=xml"], ["--fail-level=note"], ["--nosuch"], ["-x"], ["-g"], ["-g", "a"],
    ["--list", "--preview"], ["--preview", "--list", "-g", "a"], ["--preview"],
    ["--list", "file"], ["--list", "-g", "a"], ["--list", "--format=sarif"],
    ["--preview", "-g", "a", "file"], ["--preview", "-g", "a", "--format=sarif"], ["-d", "/tmp"],
    ["--list", "--offline"], ["--preview", "-g", "a", "--fail-level=error"],
])
def test_wrong_usage(machine: Machine, arguments: list[str]):
    done = check(machine, *arguments)
    assert (done.status, done.stdout) == (2, "")
    assert done.stderr.startswith("quendil-check: ") or done.stderr.startswith(f"{CHECK}: ")
    assert done.stderr.endswith("Try 'quendil-check --help'.\n")


def test_the_commands_of_the_tool_directory_are_known_as_they_are():
    source = (ROOT / "src/check/IGCheckTool.cpp").read_text()
    run = (ROOT / "tools/run").read_text()
    listed = re.search(r"directories\{(.*?)\};", source, re.S)
    searched = re.search(r"^    for directory in (.*?); do$", run, re.M | re.S)
    assert listed and searched
    assert re.findall(r'"(.*?)"', listed.group(1)) == searched.group(1).replace("\\\n", " ").split()
    assert "RUN_MIB = 20;" in source and re.search("^mib=20$", run, re.M)
    show = (ROOT / "src/tool/show.cpp").read_text()
    assert "SHOW_MIB = 5;" in source and "int mib = 5;" in show
    assert "SHOW_FILES = 4;" in source and "LIMIT_FACTOR = 4;" in show
    assert f'use.words, "{"".join(re.findall("(.):", "0cmpl:e:n:s:t:u:"))}"' in source
    assert "getopts 0cmpl:e:n:s:t:u: option" in run


def test_help_and_version(machine: Machine):
    for arguments in (["--help"], ["-h"], ["--list", "--help"]):
        done = check(machine, *arguments)
        assert (done.status, done.stderr) == (0, "") and done.stdout.startswith("usage: quendil-check ")
        assert max(len(line) for line in done.stdout.splitlines()) <= 92
    version = re.search(r"^project\(quendil VERSION (\S+) ",
                        (ROOT / "CMakeLists.txt").read_text(), re.M)
    assert version is not None
    assert check(machine, "--version").stdout == f"quendil-check {version.group(1)}\n"


@pytest.mark.parametrize("text, level, status", [
    (DESCRIBED % "/etc/passwd", "warning", 0), (DESCRIBED % "/etc/shadow", "error", 0),
    (DESCRIBED % "/etc/shadow", "warning", 1), (SAMPLE, "error", 1), (SAMPLE, "warning", 1)])
def test_the_exit_status_follows_the_fail_level(machine: Machine, text: str, level: str, status: int):
    machine.file("/tmp/90_demo", text)
    assert check(machine, "--offline", f"--fail-level={level}", "90_demo").status == status


def test_a_file_that_cannot_be_read(machine: Machine):
    machine.file("/tmp/90_demo", SAMPLE)
    machine.file("/tmp/secret", SAMPLE, mode=0)
    done = check(machine, "--offline", "none", "secret", "90_demo", user=1000)
    assert done.status == 2
    assert done.stderr == ("quendil-check: none: No such file or directory\n"
                           "quendil-check: secret: Permission denied\n")
    assert "90_demo:4:5: error" in done.stdout  # the others are checked all the same
    assert done.stdout.endswith("1 file: 2 errors, no warnings, 2 not readable\n")


def test_a_closed_input_cannot_be_read(machine: Machine):
    done = machine.exec(f"{CHECK} - <&-", check=False)
    assert (done.status, done.stderr) == (2, "quendil-check: <stdin>: Bad file descriptor\n")


def test_a_full_output_is_not_taken_for_success(machine: Machine):
    done = machine.exec(f"{CHECK} --version >/dev/full", check=False)
    assert done.status == 2 and "No space left on device" in done.stderr


def test_any_user_may_check(machine: Machine):
    done = check(machine, "--fail-level=warning", "--offline", user=1000)
    assert (done.status, done.stderr) == (0, "")


# ---- Hostile input ------------------------------------------------------------------------------


def test_only_regular_files_are_opened(machine: Machine):
    machine.fifo("/tmp/fifo")
    for path in ("/tmp/fifo", "/dev/null", "/dev/tty", "/dev/zero"):
        done = check(machine, path)
        assert (done.status, done.stderr) == (2, f"quendil-check: {path}: not a regular file\n")
    done = check(machine, "-c", "/tmp", "/tmp/empty")
    assert (done.status, done.stderr.splitlines()[0]) == (
        2, "quendil-check: /tmp: not a regular file")


def test_a_line_of_a_gigabyte(machine: Machine):
    with open(machine.path("/tmp/huge"), "wb") as file:
        file.write(b"FORMAT_VERSION = 1.0\nPP_NAME = ")
        file.seek(1 << 30)
        file.write(b"\nBLOCK {\n}\n")
    done = check(machine, "--offline", "--format=json", "/tmp/huge")
    found = json.loads(done.stdout)["findings"]
    assert [(finding["line"], finding["rule"]) for finding in found if finding["level"] == "error"] == [
        (2, "character-invalid")]


def test_a_hundred_findings_of_a_file_are_shown(machine: Machine):
    machine.file("/tmp/bad", "FORMAT_VERSION = 1.0\n" + "x\n" * 100000)
    done = check(machine, "--offline", "bad")
    assert done.stdout.count(" error: ") == 100
    assert done.stdout.endswith("bad: 100 findings are shown, the rest is left out\n"
                                "1 file: 100 errors, no warnings\n")
    machine.file("/tmp/full", "FORMAT_VERSION = 1.0\nBLOCK {\n}\n" + "x\n" * 100)
    assert check(machine, "--offline", "full").stdout.endswith(
        "1 file: 100 errors, no warnings\n")
    summary = json.loads(check(machine, "--offline", "--format=json", "bad").stdout)["summary"]
    assert summary["truncated"] == 1
    machine.file("/tmp/open", "FORMAT_VERSION = 1.0\n" + "x {\n" * 100000)
    assert check(machine, "--offline", "open").stdout.count(" error: ") == 100


@pytest.mark.parametrize("data, rule", [
    (b"\0", "character-invalid"), (b"FORMAT_VERSION = 1.0\0\n", "character-invalid"),
    (b"\xef\xbb\xbfFORMAT_VERSION = 1.0\n", "character-invalid"),
    (b"\xff\xfeF\0O\0", "character-invalid"), (b"", "format-version-missing"),
    (b"\x1b]0;title\x07", "character-invalid"),
])
def test_no_byte_of_a_file_reaches_the_terminal_unescaped(machine: Machine, data: bytes, rule: str):
    machine.file("/tmp/bad\033[31m\n", data)
    done = check(machine, "--offline", "bad\033[31m\n")
    assert rules_of(done)[0] == rule
    assert re.search(r"[\x00-\x09\x0b-\x1f\x7f]", done.stdout) is None
    assert re.match(r"bad\\033\[31m\\012:1:\d+: error: ", done.stdout)


@pytest.mark.plain_binary  # a sanitizer starts a thread
def test_nothing_is_run_and_nothing_written(machine: Machine):
    machine.file("/tmp/90_demo", SAMPLE)
    for arguments in (["/tmp/90_demo"], [], ["--list"], ["--preview", "-g", "linux"]):
        machine.exec(["/usr/bin/strace", "-f", "-e", "trace=execve,execveat,open,openat,openat2,creat,"
                      "mkdir,unlink,rename,symlink,link,chmod,chown,truncate,fork,vfork,clone,clone3",
                      "-o", "/tmp/trace", CHECK, *arguments], check=False)
        calls = [line.split(None, 1)[1] for line in machine.read("/tmp/trace").splitlines()]
        made = [call for call in calls
                if not call.startswith(("open", "+++", "---"))
                or re.search(r"O_WRONLY|O_RDWR|O_CREAT|O_TRUNC|O_APPEND", call)]
        assert len(made) == 1 and made[0].startswith(f'execve("{CHECK}"'), made


@pytest.mark.plain_binary
def test_very_many_items_take_no_very_long_time(machine: Machine):
    tool = "TOOL_BLOCK {\nCOMMAND_LINE = /bin/x\nREDIRECT_PATH = %%d%%/%d\n}\n"
    data = "DATA_BLOCK {\nPATH_NAME = %%d%%/%d\n}\n"
    text = "FORMAT_VERSION = 1.0\nBLOCK {\n" + "".join(f"TARGET = t{i}\n" for i in range(4000))
    text += "".join(tool % i for i in range(4000)) + "".join(data % i for i in range(4000)) + "}\n"
    machine.file("/tmp/many", text)
    seconds, _ = used(machine, "--offline", "/tmp/many")
    assert seconds < 3  # 0.1 s, and minutes if it were quadratic


@pytest.mark.plain_binary
def test_the_installed_files_are_checked_at_once(machine: Machine):
    seconds, kib = used(machine)
    assert seconds < 0.2  # 0.02 s; a test machine may be busy
    assert kib < 16 * 1024


@pytest.mark.plain_binary
def test_the_time_and_the_memory_have_bounds(machine: Machine):
    maker = PatternMaker(4)
    machine.no_patterns()
    item = "".join((TOOL % "/usr/bin/df -k").splitlines(keepends=True)[2:])
    text = "FORMAT_VERSION = 1.0\nPP_GROUP = demo\n" + item * 45
    assert 480 < len(text.splitlines()) < 520
    for number in range(1000):
        data = text.encode() if number % 10 else maker.mutation(text.encode())
        machine.file(f"{PATTERN_DIRECTORY}/{number:04}", data)
    seconds, kib = used(machine, "--offline", PATTERN_DIRECTORY)
    assert seconds < 5  # 0.5 s; a test machine may be busy
    assert kib < 16 * 1024
