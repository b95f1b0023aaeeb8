"""The expected texts that runs are compared with."""

from __future__ import annotations

import pytest
from support import expect, pattern_text, progress


# ---- The progress line --------------------------------------------------------------------------


def bars(text: str) -> list[tuple[str, int]]:
    """Label and stars of every line drawn."""
    drawn = [line for line in text.rstrip("\n").split("\r") if line]
    assert all(len(line) == 11 + 68 for line in drawn)
    return [(line[:11], line.count("*")) for line in drawn]


def test_the_bar_appears_empty_and_takes_a_star_a_step():
    assert bars(progress.initialized().text) == [("initialize:", stars) for stars in range(5)]
    assert progress.Terminal().init().text == "initialize:" + "_" * 68 + "\r"


def test_a_finished_phase_runs_through_the_rest_of_its_steps():
    text = progress.initialized().collect(3).text
    assert bars(text) == bars(progress.initialized().text) + [("initialize:", 4)] * 64 + [
        ("collect   :", 4)]


def test_a_phase_without_a_step_has_no_stars():
    text = progress.Terminal().init().collect(1).step().archive().cleanup().text
    assert bars(text)[-1] == ("cleanup   :", 52)


@pytest.mark.parametrize("items, new", [
    (1, [52]), (2, [26, 26]), (3, [17, 17, 18]), (52, [1] * 52), (104, [1] * 52),
    (5, [10, 10, 11, 10, 11]),
])
def test_the_collect_phase_spreads_its_stars_evenly(items: int, new: list[int]):
    run = progress.initialized().collect(items)
    before = len(bars(run.text))
    stars = [count for _, count in bars(run.step(items).text)][before - 1:]
    assert [after - earlier for earlier, after in zip(stars, stars[1:])] == new


def test_of_a_hundred_items_fifty_two_add_a_star_each():
    run = progress.initialized().collect(100)
    added = []
    for _ in range(100):
        before = run.text
        drawn = bars(run.step().text)
        added.append(drawn[-1][1] - bars(before)[-1][1] if run.text != before else None)
    assert added.count(1) == 52 and added.count(None) == 48


def test_a_collect_phase_without_items_draws_no_steps():
    empty = progress.initialized().collect(0)
    assert bars(empty.text)[-1] == ("collect   :", 4)
    assert empty.text == progress.initialized().collect(0).step(3).text


def test_the_phases_fill_the_bar():
    text = progress.complete(7).text
    drawn = bars(text)
    assert drawn[-1] == ("cleanup   :", 68)
    ends = {label: stars for label, stars in drawn}
    assert ends == {"initialize:": 4, "collect   :": 56, "archive   :": 66, "cleanup   :": 68}
    assert text.endswith("\r\n")


def test_a_message_starts_on_a_line_of_its_own():
    run = progress.Terminal().init()
    run.message("first").message("second").step().newline().newline()
    assert progress.screen(run.text) == ["initialize:" + "_" * 68, "first", "second",
                                         "initialize:*" + "_" * 67, ""]


# ---- Expected texts -----------------------------------------------------------------------------


def test_the_run_log_of_a_whole_run():
    log = expect.RunLog("-g demo").initialized("demo").tool("/opt/tool", code=3, errors="bad\n")
    log.data({"/opt/data/a": 5}, total=5).complete()
    assert log.text == '''\
ZEPA201-I:quendil [Ver. 01-02] started at <TIME>.
ZEPA204-I:quendil argument is "-g demo".
ZEPA202-I:Started initializing.
ZEPA205-I:Summary of parameters.
    Configuration file = /etc/opt/norvale/quendil/config/quendil_conf
    Output path of collected information = /var/opt/norvale/quendil/data/testhost_<STAMP>
    Max output data size = 8388608 KB
    Cleanup = ON
    Output file = testhost_<STAMP>
    TARGET = \n    PP_GROUP = demo
    PP_NAME = \nZEPA203-I:Ended initializing.
ZEPA202-I:Started executing.
ZEPA206-I:Information collecting tool start.
    Command  = "/opt/tool"
    Start time = <TIME>
    Timeout = 10
ZEPA207-I:Information collecting tool end.
    Return code = 3
    Status code = 768
    End time = <TIME>
ZEPA208-W:Information collecting tool error message.
bad
ZEPA203-I:Ended executing.
ZEPA202-I:Started collecting.
ZEPA209-I:It copied collecting data = /opt/data/a. size = 5 bytes.
ZEPA210-I:Total data size: 5 bytes.
ZEPA203-I:Ended collecting.
ZEPA202-I:Started making.
ZEPA212-I:Deleted data below "/var/opt/norvale/quendil/data/testhost_<STAMP>".
ZEPA203-I:Ended making.
ZEPA202-I:Started cleaning.
ZEPA203-I:Ended cleaning.
ZEPA214-I:Output file = /var/opt/norvale/quendil/data/testhost_<STAMP>.tar.gz. size = <SIZE> bytes.
ZEPA213-I:quendil ended at <TIME>. return code = 0.
'''


def test_the_report_of_a_failed_system_call():
    assert expect.system_error("open", 2, "/f", "IGMain") == (
        "ZEPA113-E:An error occurred during the following system call. system call name = open, "
        "error code = 2, msg = No such file or directory.\n"
        "ZEPA151-E:Additional information, path = /f.\n"
        "ZEPA114-E:source = IGMain, line no = <LINE>.\n")


def test_the_history_of_a_run():
    assert expect.history(None, 255, middle="ZEPA116-E:busy\n") == (
        "ZEPA301-I:quendil [Ver. 01-02] started at <TIME>.\nZEPA302-I:quendil argument is (null).\n"
        "ZEPA116-E:busy\nZEPA304-I:quendil exit code = 255.\nZEPA305-I:quendil ended at <TIME>.\n")


def test_arguments_with_a_blank_are_quoted():
    assert expect.argument_string(["-g", "a b", "c\td"]) == "-g 'a b' c\td"


def test_a_pattern_file_is_written_out():
    text = pattern_text.pattern(
        pattern_text.tool('/opt/t "a b"', redirect="%d%/o", timeout=5, signal=2, wait=1),
        pattern_text.data("/opt/data/*", "some data", file_type="binary"))
    assert text == '''\
FORMAT_VERSION = 1.0
PP_VRS = 1.0
PP_NAME = "demo"
PP_GROUP = "demo"
BLOCK {
    TOOL_BLOCK {
        COMMAND_LINE = "/opt/t \\"a b\\""
        REDIRECT_PATH = "%d%/o"
        TIMEOUT = 5
        TIMEOUT_SIGNAL = 2
        WAIT_TERMINATION = 1
    }
    DATA_BLOCK {
        DESCRIPTION = "some data"
        FILE_TYPE = binary
        PATH_NAME = "/opt/data/*"
    }
}
'''
