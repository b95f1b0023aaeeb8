"""`escape`: no name that a user has chosen begins a line or controls a terminal."""

from __future__ import annotations

from support import hostile_names
from support.machine import Machine
from support.tool_directory import TOOLS, lay_over, printed

RUN = f"{TOOLS}/run"
ESCAPE = f"{TOOLS}/escape"
HIDDEN = "********"


def test_control_characters_in_what_a_program_prints_are_shown(system: Machine):
    for option in ("", "-m "):
        done = system.exec(f"{RUN} {option}printf 'a\\033[7m\\233 \\303\\244\\t\\0\\nb'")
        assert printed(done).rstrip(b"\n") == b"a\\033[7m\\233 \xc3\xa4\t\\000\nb"


def test_a_line_feed_in_a_file_name_begins_no_line(system: Machine):
    system.file("/tmp/tree/a\nFORGED", "")
    assert system.exec([RUN, "-0", "find", "/tmp/tree", "-type", "f", "-print0"]).stdout == (
        "/tmp/tree/a\\012FORGED\n")
    listed = system.exec([RUN, "ls", "/tmp/tree"]).stdout
    assert listed == "a\\nFORGED\n"


def test_the_error_text_of_a_program_is_a_line_of_its_own(system: Machine):
    system.directory("/tmp/tree")
    done = system.exec([RUN, "-0", "find", "/tmp/tree", "/tmp/none", "-print0"], check=False)
    assert done.status == 1
    lines = done.stdout.splitlines()
    assert len(lines) == 2 and "/tmp/tree" in lines and any(
        line.endswith("No such file or directory") for line in lines)


def test_neither_messages_nor_lines_are_printed_in_parts(machine: Machine):
    lay_over(machine, "/usr/local/bin", "parts", """#!/bin/sh
printf 'a message, ' >&2
printf 'one\\0tw'
until grep -q one /tmp/printed; do :; done
echo whole >&2
until grep -q whole /tmp/printed; do :; done
printf 'o\\0'
exit 3
""")
    assert machine.exec(f"{RUN} -0 parts >/tmp/printed", check=False).status == 3
    assert machine.read("/tmp/printed") == "one\na message, whole\ntwo\n"


def test_the_messages_beside_lines_that_end_with_nul_are_masked_and_limited(system: Machine):
    done = system.exec(f"{RUN} -0 -m sh -c 'echo password=abc >&2; exit 3'", check=False)
    assert (done.status, done.stdout) == (3, f"password={HIDDEN}\n")
    system.exec(f"{RUN} -0 -l 1 sh -c 'seq 1 500000 >&2' >/tmp/out", check=False)
    assert system.read("/tmp/out").endswith("\nsh: the output was cut here, after 1 MiB\n")


def test_a_line_feed_in_the_name_of_a_process_begins_no_line(machine: Machine):
    name = "a\\nFORGED\\033[7m"
    lay_over(machine, "/usr/local/bin", "pidstat", "#!/bin/sh\nprintf '%b' "
             "'Linux 6.1 (host)\\n\\n12:30:15      UID       PID    %%usr  Command\\n"
             f"12:30:16        0        27    0.00  {name}\\n"
             "12:30:16        0        28    0.00  sh\\n'\n")
    assert machine.exec([RUN, "pidstat"]).stdout.endswith(
        "  0.00  a\\012FORGED\\033[7m\n12:30:16        0        28    0.00  sh\n")
    hostile_names.start(machine)
    done = machine.exec([RUN, "ss", "-tlnp"])
    hostile_names.stop(machine)
    assert 'users:(("a\\012FORGED\\033[7m\\233",pid=' in done.stdout
    assert hostile_names.faults(printed(done)) == []


def test_escape_prints_its_usage(machine: Machine):
    for arguments in (["-x"], ["-0", "-s"], [""]):
        done = machine.exec([ESCAPE, *arguments], check=False)
        assert (done.status, done.stdout, done.stderr) == (
            2, "", "usage: escape [-0 | -s | -u | -w] <FILE\n")
    assert machine.exec(f"echo a | {ESCAPE} >/dev/full", check=False).status == 1
