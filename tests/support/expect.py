"""The masked texts that a run is expected to write: run log, history log, index, results.

The messages are repeated here on purpose: a test must not take its expected texts from the program
that it tests.
"""

from __future__ import annotations

import os
from collections.abc import Iterable, Mapping, Sequence

VERSION = "01-02"
LOG_DIRECTORY = "/var/opt/norvale/quendil/log"
DATA_DIRECTORY = "/var/opt/norvale/quendil/data"
CONFIGURATION = "/etc/opt/norvale/quendil/config/quendil_conf"
#: The size limit of the configuration file that is installed, in units of 512 bytes: 4 GiB.
SHIPPED_LIMIT = 8388608
RUN_LOG = f"{LOG_DIRECTORY}/quendil.log"
HOST = "testhost"
OUTPUT_NAME = f"{HOST}_<STAMP>"
OUTPUT_DIRECTORY = f"{DATA_DIRECTORY}/{OUTPUT_NAME}"

LOOK_AT_LOG = f"ZEPA216-I:Look at {RUN_LOG}.\n"


def argument_string(arguments: Sequence[str]) -> str:
    """The arguments as the logs and the index show them."""
    return " ".join(f"'{one}'" if " " in one else one for one in arguments)


def system_error(call: str, code: int, path: str | None = None, source: str | None = None,
                 warning: bool = False) -> str:
    """The report of a failed system call; `source` adds the line for the run log."""
    numbers = ("140-W", "152-W", "141-W") if warning else ("113-E", "151-E", "114-E")
    text = (f"ZEPA{numbers[0]}:An error occurred during the following system call. "
            f"system call name = {call}, error code = {code}, msg = {os.strerror(code)}.\n")
    if path is not None:
        text += f"ZEPA{numbers[1]}:Additional information, path = {path}.\n"
    if source is not None:
        text += f"ZEPA{numbers[2]}:source = {source}, line no = <LINE>.\n"
    return text


def output_file(base: str = OUTPUT_DIRECTORY) -> str:
    """The result line of a run that made its compressed archive."""
    return f"ZEPA214-I:Output file = {base}.tar.gz. size = <SIZE> bytes.\n"


def archive_file(base: str = OUTPUT_DIRECTORY) -> str:
    """The result line of a run whose archive stayed uncompressed."""
    return f"ZEPA211-I:Archive file = {base}.tar. size = <SIZE> bytes.\n"


def output_directory(path: str = OUTPUT_DIRECTORY) -> str:
    """The result line of a run whose output stayed unpacked."""
    return f"ZEPA215-I:Output = {path}.\n"


def history(arguments: str | None, code: int, output: str | None = None,
            middle: str = "") -> str:
    """The lines of one run in the history log; `middle` are refusals and errors."""
    text = f"ZEPA301-I:quendil [Ver. {VERSION}] started at <TIME>.\n"
    text += f"ZEPA302-I:quendil argument is {'(null)' if arguments is None else arguments}.\n"
    text += middle
    if output is not None:
        text += f"ZEPA303-I:Output = {output}.\n"
    return text + f"ZEPA304-I:quendil exit code = {code}.\nZEPA305-I:quendil ended at <TIME>.\n"


def index_header(arguments: str = "", command: str = "quendil") -> str:
    """The first two lines of the index file."""
    call = f"{command} {arguments}" if arguments else command
    return f"quendil [Ver. {VERSION}]\n{call}\n"


def index_record(*files: str, descriptions: Iterable[str] = ("",), file_type: str = "text") -> str:
    """The record of one data item; without files it has one empty FILE line."""
    lines = [f"FILE:{name}" for name in files or ("",)]
    lines += [f"DESC:{description}" for description in descriptions]
    return "\n" + "\n".join([*lines, "DATE:<STAMP>", f"TYPE:{file_type}"]) + "\n"


class RunLog:
    """A run log, built step by step; every method returns the log itself."""

    def __init__(self, arguments: str = "") -> None:
        self.text = (f"ZEPA201-I:quendil [Ver. {VERSION}] started at <TIME>.\n"
                     f'ZEPA204-I:quendil argument is "{arguments}".\n')
        self.started("initializing")

    def raw(self, text: str) -> RunLog:
        """Lines that have no method of their own: errors, warnings, a tool's error output."""
        self.text += text
        return self

    def started(self, phase: str) -> RunLog:
        """A phase begins."""
        return self.raw(f"ZEPA202-I:Started {phase}.\n")

    def ended(self, phase: str) -> RunLog:
        """A phase ends."""
        return self.raw(f"ZEPA203-I:Ended {phase}.\n")

    def parameters(self, groups: Sequence[str] = (), targets: Sequence[str] = (),
                   configuration: str = CONFIGURATION, output: str = OUTPUT_DIRECTORY,
                   limit: int = SHIPPED_LIMIT, cleanup: str = "ON",
                   output_file: str = OUTPUT_NAME) -> RunLog:
        """The summary of parameters."""
        self.raw(f"ZEPA205-I:Summary of parameters.\n"
                 f"    Configuration file = {configuration}\n"
                 f"    Output path of collected information = {output}\n"
                 f"    Max output data size = {limit} KB\n"
                 f"    Cleanup = {cleanup}\n"
                 f"    Output file = {output_file}\n")
        for key, values in (("TARGET", targets), ("PP_GROUP", groups), ("PP_NAME", ())):
            for value in values or ("",):
                self.raw(f"    {key} = {value}\n")
        return self

    def initialized(self, *groups: str, **settings) -> RunLog:
        """The summary and the end of an initializing phase without a warning."""
        return self.parameters(groups, **settings).ended("initializing")

    def tool(self, command: str, code: int = 0, status: int | None = None, timeout: int = 10,
             within: str = "", errors: str | None = None) -> RunLog:
        """A tool, from its phase's start to its end.

        `code` is the exit code shown; `status` the raw wait status, by default the one of that exit
        code; `within` are the lines between start and end; `errors` the tool's error output.
        """
        shown = code << 8 if status is None else status
        self.started("executing")
        self.raw(f"ZEPA206-I:Information collecting tool start.\n"
                 f'    Command  = "{command}"\n'
                 f"    Start time = <TIME>\n"
                 f"    Timeout = {timeout}\n")
        self.raw(within)
        self.raw(f"ZEPA207-I:Information collecting tool end.\n"
                 f"    Return code = {code}\n"
                 f"    Status code = {shown}\n"
                 f"    End time = <TIME>\n")
        if errors is not None:
            self.raw(f"ZEPA208-W:Information collecting tool error message.\n{errors}")
        return self.ended("executing")

    def timed_out_tool(self, command: str, program: str, code: int = 0, status: int = 15,
                       timeout: int = 10) -> RunLog:
        """A tool that overran; `program` is its path alone, `status` its wait status."""
        warning = ("ZEPA126-W:A timeout occurred while information collecting tool"
                   f"({program}) was being executed.\n")
        return self.tool(command, code, status, timeout, within=warning)

    def data(self, copied: Mapping[str, int], total: int, within: str = "") -> RunLog:
        """A data item: the paths copied with their sizes, and the total so far.

        `within` are warnings of the item, which are before the paths copied.
        """
        self.started("collecting")
        self.raw(within)
        for path, size in copied.items():
            self.raw(f"ZEPA209-I:It copied collecting data = {path}. size = {size} bytes.\n")
        self.raw(f"ZEPA210-I:Total data size: {total} bytes.\n")
        return self.ended("collecting")

    def made(self, directory: str = OUTPUT_DIRECTORY) -> RunLog:
        """The making phase of a run whose archive was made and compressed."""
        return self.started("making").deleted(directory).ended("making")

    def deleted(self, directory: str = OUTPUT_DIRECTORY) -> RunLog:
        """The removal of a directory."""
        return self.raw(f'ZEPA212-I:Deleted data below "{directory}".\n')

    def cleaned(self, deleted: str | None = None) -> RunLog:
        """The cleaning phase, with the directory that it deleted, if it did."""
        self.started("cleaning")
        if deleted is not None:
            self.deleted(deleted)
        return self.ended("cleaning")

    def finished(self, code: int, result: str = "") -> RunLog:
        """The end of the log, with the result lines that the terminal shows too."""
        self.raw(result)
        return self.raw(f"ZEPA213-I:quendil ended at <TIME>. return code = {code}.\n")

    def complete(self, base: str = OUTPUT_DIRECTORY, directory: str = OUTPUT_DIRECTORY) -> RunLog:
        """Everything after the last item of a run that made its compressed archive.

        `base` is the archive's path without its suffixes, `directory` what was packed into it.
        """
        return self.made(directory).cleaned().finished(0, output_file(base))
