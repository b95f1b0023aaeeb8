"""`run`: finds, runs and limits a program, and passes its output through the filters."""

from __future__ import annotations

from pathlib import Path

import pytest
from support import expect, pattern_text
from support.collecting import collect
from support.machine import Machine
from support.tool_directory import TOOLS, add_users, lay_over, stop_at_many_moments, with_changes

RUN = f"{TOOLS}/run"
HIDDEN = "********"
ROOT = Path(__file__).resolve().parents[2]
PLACES = ("/usr/sbin", "/usr/bin", "/sbin", "/bin", "/usr/local/sbin", "/usr/local/bin")
VENDOR_PLACES = ("/opt/MegaRAID/storcli", "/opt/MegaRAID/perccli")


# ---- Finding and running a program --------------------------------------------------------------


def test_a_program_is_found_in_every_place(machine: Machine):
    for number, place in enumerate(PLACES):
        lay_over(machine, place, f"probe{number}", f"#!/bin/sh\necho found {number}\n")
    count = len(PLACES) + len(VENDOR_PLACES)
    for number, place in enumerate(VENDOR_PLACES, len(PLACES)):
        machine.file(f"{place}/probe{number}", f"#!/bin/sh\necho found {number}\n", 0o755)
    found = [machine.exec([RUN, f"probe{number}"]).stdout for number in range(count)]
    assert found == [f"found {number}\n" for number in range(count)]


def test_what_is_absent_or_not_in_use_is_reported_in_one_line(system: Machine):
    absent = system.exec([RUN, "-m", "no-such-program", "-x"])
    assert (absent.status, absent.stdout, absent.stderr) == (
        0, "no-such-program: not installed on this machine\n", "")
    idle = system.exec([RUN, "-e", "/proc/no-such-*", "cat", "/etc/hostname"])
    assert (idle.status, idle.stdout, idle.stderr) == (
        0, "cat: not asked: there is no /proc/no-such-*\n", "")
    idle = system.exec([RUN, "-e", "/proc/no-such-*", "-e", "/proc/none", "cat", "/etc/hostname"])
    assert idle.stdout == "cat: not asked: there is no /proc/no-such-* or /proc/none\n"
    assert system.exec([RUN, "-e", "/proc/no-such-*", "-e", "/proc", "echo"]).stdout == "\n"
    system.file("/tmp/or")  # the word "or" of the message must not count as a path that exists
    idle = system.exec(f"cd /tmp && {RUN} -e /proc/no-such -e /proc/none echo")
    assert idle.stdout == "echo: not asked: there is no /proc/no-such or /proc/none\n"
    used = system.exec([RUN, "-e", "/proc/self/lim*", "printf", "%s-", "a b", "*", ""])
    assert (used.stdout, used.stderr) == ("a b-*--", "")


def test_a_directory_or_a_file_without_execute_permission_is_no_program(machine: Machine):
    machine.directory("/opt/layer/probe1")
    machine.file("/opt/layer/probe2", "#!/bin/sh\n", 0o644)
    machine.mount("--bind", "/opt/layer", "/usr/local/bin")
    for name in ("probe1", "probe2"):
        assert machine.exec([RUN, name]).stdout == f"{name}: not installed on this machine\n"


def test_an_administrator_can_forbid_a_program(system: Machine):
    assert system.exec([RUN, "-n", "/opt/no-*", "echo", "a"]).stdout == "a\n"
    system.file("/opt/no-echo")
    assert system.exec([RUN, "-n", "/opt/no-*", "echo", "a"]).stdout == (
        "echo: forbidden on this machine: there is /opt/no-*\n")


def test_only_paths_that_exist_are_passed_where_asked(system: Machine):
    system.file("/tmp/a b")
    system.link("/tmp/dangling", "/nowhere")
    printed = ["printf", "%s|", "-n", "/tmp/none", "/tmp/a b", "x", "/tmp/dangling", "/other"]
    assert system.exec([RUN, "-p", *printed]).stdout == "-n|/tmp/a b|x|/tmp/dangling|"
    assert system.exec([RUN, "-p", "ls", "-ln", "/tmp/none", "/other"]).stdout == (
        "ls: nothing to show on this machine: there is no /tmp/none /other\n")
    done = system.exec([RUN, "ls", "-ln", "/tmp/none"], check=False)
    assert done.status == 2


@pytest.mark.parametrize("arguments", [(), ("-x", "ls"), ("-l", "x", "ls"), ("-l", "", "ls"),
                                       ("/bin/ls",), ("../ls",), ("-e",), ("",), ("-t", "x", "ls"),
                                       ("-n",), ("-u",), ("-u", "", "ls")])
def test_wrong_usage_ends_with_2(machine: Machine, arguments: tuple[str, ...]):
    done = machine.exec([RUN, *arguments], check=False)
    assert (done.status, done.stdout) == (2, "")
    assert done.stderr.endswith(
        "usage: run [-0] [-c] [-m] [-p] [-l MIB] [-e PATH] [-s SERVICE] [-n PATH] [-t SECONDS] [-u USER] "
        "NAME [ARG]...\n")


@pytest.mark.parametrize("zone, kept", [
    ("TZ='QTZ -05:45 ;$x'", {"TZ": "QTZ -05:45 ;$x"}), ("TZ=", {"TZ": ""}), ("-u TZ", {}),
], ids=["zone", "empty zone", "no zone"])
def test_a_program_gets_a_fixed_environment_and_nothing_to_read(system: Machine, zone: str,
                                                                kept: dict[str, str]):
    done = system.exec(f"env {zone} PAGER=less LS_COLORS=x SECRET=y {RUN} env")
    settings = dict(line.split("=", 1) for line in done.stdout.splitlines())
    for added in ("PWD", "SHLVL", "_", "OLDPWD"):  # a shell may add these
        settings.pop(added, None)
    assert settings == {
        "PATH": ":".join(PLACES), "LC_ALL": "C", "HOME": "/nonexistent", "TERM": "dumb",
        "NO_COLOR": "1", "PAGER": "cat", "SYSTEMD_PAGER": "cat", "SYSTEMD_COLORS": "0",
        "LVM_SUPPRESS_FD_WARNINGS": "1", "PROC_ROOT": "/proc",
        "QUOTING_STYLE": "escape", "PYTHONDONTWRITEBYTECODE": "1", **kept,
    }
    assert system.exec(f"echo typed | {RUN} cat").stdout == ""
    assert system.exec(f"echo typed | {RUN} -m cat").stdout == ""


def test_a_program_in_python_writes_nothing_beside_its_modules(system: Machine):
    system.file("/tmp/place/part.py", "print('read')\n")
    program = "import sys; sys.path.insert(0, '/tmp/place'); import part"
    assert system.exec([RUN, "python3", "-c", program]).stdout == "read\n"
    assert system.list("/tmp/place") == ["part.py"]


def test_the_exit_status_and_both_outputs_of_a_program_pass(system: Machine):
    for option in ("", "-m "):
        done = system.exec(f"{RUN} {option}sh -c 'echo a; echo b >&2; exit 3'", check=False)
        assert (done.status, done.stdout, done.stderr) == (3, "a\nb\n", "")


def test_the_output_of_a_program_is_truncated_at_the_limit_and_reports_it(system: Machine):
    for option in ("", "-m "):
        system.exec(f"{RUN} {option}-l 1 seq 1 500000 >/tmp/out", check=False)
        text = system.read("/tmp/out")
        assert text.startswith("1\n2\n")
        assert text.endswith("\nseq: the output was cut here, after 1 MiB\n")
        assert 1 << 20 <= len(text) <= (1 << 20) + 100
    system.exec(f"{RUN} -l 4 seq 1 500000 >/tmp/out")
    assert system.read("/tmp/out").endswith("\n500000\n")


def test_a_program_that_overruns_keeps_what_it_has_printed_masked(system: Machine):
    stuck = f'{RUN} -m sh -c "echo password=abc; exec sleep 1000"'
    # Time for several programs to start, on a busy machine too, before the limit is reached.
    run = collect(system, pattern_text.tool(stuck, "%d%/stuck.txt", timeout=3, wait=30),
                  pattern_text.data("%d%/stuck.txt"))
    assert "ZEPA126-W" in (run.log or "")
    assert run.archive.read("stuck.txt") == (
        f"password={HIDDEN}\nsh: stopped here by the time limit\n".encode())
    assert run.stdout.endswith(expect.output_file())


@pytest.mark.parametrize("options", [("-m",), ("-0",), ("-m", "-t", "30")])
def test_the_time_limit_of_a_program_is_noticed_at_every_moment(system: Machine, options: tuple[str, ...]):
    times = stop_at_many_moments(system, 250, "stopped", RUN, *options, "sleep", "77.7")
    assert len(times) >= 61
    assert set(times) <= {(-15, True, ""), (143, True, "sleep: stopped here by the time limit\n")}
    system.wait_for(lambda: not system.processes(), what="the end of all processes")


def test_the_sentinel_ends_when_its_shell_was_killed_before_it_could_catch_the_signal(
        system: Machine):
    directory = with_changes(system, "run", ("trap : TERM\n# The sentinel", "kill -s KILL $$\n# The sentinel"))
    assert system.exec([f"{directory}/run", "-m", "echo"], check=False).status == -9
    system.wait_for(lambda: not system.processes(), what="the end of all processes")


def test_an_interrupt_from_the_keyboard_leaves_no_process(system: Machine):
    lay_over(system, "/usr/local/bin", "probe", "#!/bin/sh\n: >/tmp/there\nexec sleep 1000\n")
    system.exec("setsid python3 -c 'import os, signal, sys; signal.signal(signal.SIGINT, signal.SIG_DFL);"
                f" os.execv(sys.argv[1], sys.argv[1:])' {RUN} -m probe >/dev/null 2>&1 & echo $! >/tmp/pid")
    system.wait_for("/tmp/there")
    system.exec("kill -INT -$(cat /tmp/pid)")
    system.wait_for(lambda: not system.processes(), what="the end of all processes")


def test_a_program_runs_where_the_state_of_processes_cannot_be_read(system: Machine):
    system.directory("/opt/empty")
    system.mount("--bind", "/opt/empty", "/proc")
    assert system.exec([RUN, "-m", "echo", "a"]).stdout == "a\n"


def test_a_service_that_runs_is_asked(system: Machine):
    for place in ("", "/systemd"):
        assert system.exec([RUN, "-s", "probe", "echo", "a"]).stdout == (
            "echo: not asked: there is no /sys/fs/cgroup/system.slice/probe.service or"
            " /sys/fs/cgroup/systemd/system.slice/probe.service\n")
        system.directory(f"/opt/cgroup{place}/system.slice/probe.service")
        system.mount("--bind", "/opt/cgroup", "/sys/fs/cgroup")
        assert system.exec([RUN, "-s", "probe", "echo", "a"]).stdout == "a\n"
        system.exec("umount /sys/fs/cgroup; rm -r /opt/cgroup")


def test_a_program_of_lines_that_end_with_nul_keeps_what_it_has_printed(system: Machine):
    stuck = f'{RUN} -0 sh -c "echo a; echo message >&2; exec sleep 1000"'
    run = collect(system, pattern_text.tool(stuck, "%d%/stuck.txt", timeout=3, wait=30),
                  pattern_text.data("%d%/stuck.txt"))
    assert "ZEPA126-W" in (run.log or "")
    text = run.archive.read("stuck.txt")
    assert text.endswith(b"sh: stopped here by the time limit\n")
    assert b"message\n" in text and b"a\\012" in text


# ---- As another user, and for some seconds -------------------------------------------------------


def words(machine: Machine, command: str) -> list[str]:
    return machine.exec(command).stdout.split()


@pytest.mark.parametrize("user", ["owner", "4711:4712"])
def test_a_program_runs_as_another_user_who_has_nothing_else(system: Machine, user: str):
    add_users(system)
    ids = words(system, f"setpriv --groups 4720 {RUN} -u {user} sh -c 'id -u; id -g; id -G'")
    assert ids == ["4711", "4712", "4712"]
    states = words(system, f"{RUN} -u {user} grep -E 'NoNewPrivs|CapEff|CapPrm' /proc/self/status")
    assert states == ["CapPrm:", "0" * 16, "CapEff:", "0" * 16, "NoNewPrivs:", "1"]
    assert words(system, f"SECRET=x {RUN} -u {user} env | grep SECRET || echo none") == ["none"]
    assert words(system, f"cd /root && {RUN} -u {user} pwd") == ["/"]


def test_a_program_of_another_user_has_no_terminal_to_type_on(machine: Machine):
    add_users(machine)
    machine.file("/tmp/on_terminal.py", """
import os, pty, sys
pid, terminal = pty.fork()
if pid == 0:
    os.execv(sys.argv[1], sys.argv[1:])
try:
    while text := os.read(terminal, 4096):
        os.write(1, text)
except OSError:
    pass
os.waitpid(pid, 0)
""")
    opens = "(: </dev/tty) 2>/dev/null && echo a terminal || echo none"
    for user, found in (("", "a terminal"), ("-u owner ", "none")):
        shown = machine.exec(f"python3 /tmp/on_terminal.py {RUN} {user}sh -c '{opens}'").stdout
        assert shown.strip() == found


@pytest.mark.parametrize("user", ["nobody-of-this-name", "1", "1:2:3", "1:", ":1"])
def test_a_user_who_is_not_in_the_file_of_users_is_refused(machine: Machine, user: str):
    done = machine.exec([RUN, "-u", user, "id"])
    assert (done.status, done.stdout) == (0, f"id: not asked: there is no user {user}\n")


def test_a_program_that_hangs_is_stopped_after_its_seconds(system: Machine):
    add_users(system)
    for user in ("", "-u owner "):
        done = system.exec(f"{RUN} {user}-t 1 sh -c 'echo a; exec sleep 1000'", check=False)
        assert (done.status, done.stdout) == (124, "a\nsh: stopped here after 1 seconds\n")
        done = system.exec(f"{RUN} {user}-t 100 sh -c 'echo a; exit 3'", check=False)
        assert (done.status, done.stdout) == (3, "a\n")


def test_a_time_limit_stops_a_program_of_another_user_too(system: Machine):
    add_users(system)
    stuck = f'{RUN} -m -u owner sh -c "echo password=abc; exec sleep 1000"'
    run = collect(system, pattern_text.tool(stuck, "%d%/stuck.txt", timeout=3, wait=30),
                  pattern_text.data("%d%/stuck.txt"))
    assert run.archive.read("stuck.txt") == (
        f"password={HIDDEN}\nsh: stopped here by the time limit\n".encode())


# ---- As texts -----------------------------------------------------------------------------------


def test_the_commands_are_installed_for_all_to_run(machine: Machine):
    scripts = [path.name for path in (ROOT / "tools").iterdir()]
    programs = [path.stem for path in (ROOT / "src/tool").glob("[a-z]*.cpp")]
    assert machine.list(TOOLS) == sorted(scripts + programs)
    for name in machine.list(TOOLS):
        status = machine.status(f"{TOOLS}/{name}")
        mode = "0644" if name.endswith(".sh") else "0755"  # "*.sh" are parts of commands
        assert (machine.mode(f"{TOOLS}/{name}"), status.st_uid, status.st_gid) == (mode, 0, 0)
