"""A small shell script in the program's place, for the tests of the harness."""

from __future__ import annotations

from pathlib import Path

from . import behave
from .machine import QUENDIL, Installation, Machine, environment_path
from .run import Run

#: Performs its first argument: "exec COMMAND...", "shell TEXT", or "collect", a whole small run.
SCRIPT = r"""#!/bin/sh
log=/var/opt/norvale/quendil/log
data=/var/opt/norvale/quendil/data
collect() {
    name=$(hostname)_$(date +%y%m%d%H%M%S)
    now=$(date '+%Y/%m/%d %H:%M:%S')
    echo "ZEPA201-I:quendil [Ver. 01-02] started at $now." > $log/quendil.log
    echo "ZEPA302-I:quendil argument is $*." >> $log/quendil_hist.log
    mkdir $data/$name
    printf 'quendil [Ver. 01-02]\nquendil %s\n\nFILE:a\nDESC:\nDATE:%s\nTYPE:text\n' \
        "$*" "$(date +%y%m%d%H%M%S)" > $data/$name/quendil_index
    printf 'hello' > $data/$name/a
    chmod 640 $data/$name/a
    chown 12:34 $data/$name/a
    touch -d @1000000000 $data/$name/a
    cd $data && /bin/tar cfh $name.tar $name && /bin/gzip $name.tar || exit 20
    rm -r $name
    echo "ZEPA214-I:Output file = $data/$name.tar.gz. size = $(stat -c %s $name.tar.gz) bytes."
}
case $1 in
exec) shift; exec "$@" ;;
shell) eval "$2" ;;
collect) collect "$@" ;;
esac
"""


def install(stage: Path) -> Installation:
    """An installation of the script, with the directories that the program has."""
    for tree in ("opt/norvale/quendil/bin", "var/opt/norvale/quendil/data",
                 "var/opt/norvale/quendil/log", "etc/opt/norvale/quendil/config",
                 "etc/opt/norvale/quendil/pattern"):
        (stage / tree).mkdir(parents=True)
    program = stage / QUENDIL.lstrip("/")
    program.write_text(SCRIPT)
    program.chmod(0o755)
    (stage / "etc/opt/norvale/quendil/pattern/shipped").write_text("# shipped\n")
    return Installation(stage, environment_path("QUENDIL_BEHAVE"))


def play(machine: Machine, *actions: behave.Action, **how) -> Run:
    """A run of the script that executes `behave`."""
    return machine.run("exec", *machine.tool(*actions).split(), **how)
