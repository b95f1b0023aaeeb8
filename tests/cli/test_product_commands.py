"""The commands of the tool directory for products, run with fake clients and servers."""

from __future__ import annotations

import os
import re
import shlex
from pathlib import Path

import pytest
from support.check_patterns import PatternFile, split_command
from support.machine import Completed, Machine
from support.tool_directory import TOOLS, add_users, lay_over, stop_at_time_limit, with_changes

CERTIFICATES, JVM, PROCESS, SQL = (
    f"{TOOLS}/{name}" for name in ("certificates", "jvm", "process", "sql"))
HIDDEN = "********"
ROOT = Path(__file__).resolve().parents[2]


# ---- Databases -----------------------------------------------------------------------------------

#: Listens on sockets, each of which belongs to a user, while it runs a command.
LISTENER = """
import os, socket, subprocess, sys
kept = []
for place in sys.argv[1].split():
    path, uid = place.split("=")
    os.makedirs(os.path.dirname(path), exist_ok=True)
    kept.append(socket.socket(socket.AF_UNIX))
    kept[-1].bind(path.replace("|", "\\n"))
    kept[-1].listen()
    os.chown(path.replace("|", "\\n"), int(uid), 0)
sys.exit(subprocess.run(sys.argv[2:]).returncode)
"""
CLIENT = """#!/bin/sh
case $* in
    *'FROM pg_database'*)
        printf '%s\\n' database:postgres database:shop 'not asked because of its name: a b' \\
            'not asked because of its name: a\\ndatabase:b\\cd' ;;
    *) echo "user $(id -u)"; printf '<%s>\\n' "$@" | tr -s ' \\n' ' '; echo ;;
esac
[ ! -e /tmp/fail ] || exit 2
"""


#: A client that only prints that it was started.
ASKED = "#!/bin/sh\necho asked\n"


def listening(machine: Machine, sockets: str) -> list[str]:
    """The beginning of a command line: the command after it finds these sockets, each given with
    the user ID of its owner, and no others."""
    add_users(machine)
    machine.file("/tmp/listener.py", LISTENER)
    return ["unshare", "-n", "python3", "/tmp/listener.py", sockets]


def ask(machine: Machine, sockets: str, *arguments: str, tools: str = TOOLS) -> Completed:
    """Runs "sql" where it finds these sockets, each given with the user ID of its owner."""
    return machine.exec([*listening(machine, sockets), f"{tools}/sql", *arguments], check=False)


def test_every_postgresql_server_is_asked_as_its_user_with_limits(system: Machine):
    lay_over(system, "/usr/sbin", "psql", CLIENT)
    sockets = "/tmp/pg/.s.PGSQL.5432=4713 /tmp/pg/.s.PGSQL.5433=4713"
    done = ask(system, sockets, "postgresql", "-x", "SELECT 1")
    assert (done.status, done.stderr) == (0, "")
    first, second = done.stdout.split("==> ")[1:]
    assert first.startswith("/tmp/pg/.s.PGSQL.5432\nuser 4713\n<-X> <-w> ")
    assert second.startswith("/tmp/pg/.s.PGSQL.5433\nuser 4713\n")
    for wanted in ("<-x>", "<-c> <SELECT 1>", "host='/tmp/pg' port=5432 dbname='postgres'",
                   "requirepeer=postgres", "statement_timeout=10s", "lock_timeout=2s",
                   "default_transaction_read_only=on", "connect_timeout=5", "log_statement=none",
                   "log_min_duration_statement=-1",
                   "search_path=pg_catalog", "passfile=/nonexistent/pgpass"):
        assert wanted in first, wanted


def test_every_database_of_a_server_is_asked(system: Machine):
    lay_over(system, "/usr/sbin", "psql", CLIENT)
    done = ask(system, "/tmp/pg/.s.PGSQL.5432=4713", "postgresql", "-a", "SELECT 1")
    lines = [line for line in done.stdout.splitlines() if not line.startswith("<")]
    assert lines == ["==> /tmp/pg/.s.PGSQL.5432", "not asked because of its name: a b",
                     "not asked because of its name: a\\ndatabase:b\\cd",
                     "--- postgres", "user 4713", "--- shop", "user 4713"]
    assert "dbname='shop'" in done.stdout


def test_every_mariadb_server_is_asked_as_root_without_a_password(system: Machine):
    lay_over(system, "/usr/sbin", "mariadb", CLIENT)
    done = ask(system, "/tmp/my/mysqld.sock=4715 /tmp/my/mysqlx.sock=4715", "mariadb", "SHOW STATUS")
    assert (done.status, done.stderr) == (0, "")
    assert done.stdout.startswith("==> /tmp/my/mysqld.sock\nuser 0\n<--no-defaults> <--protocol=socket>")
    assert "mysqlx" not in done.stdout
    for wanted in ("--socket=/tmp/my/mysqld.sock", "--skip-password", "--local-infile=0",
                   "lock_wait_timeout = 2", "max_statement_time = 10", "tx_read_only = 1", " */; SHOW STATUS>",
                   "SET SESSION sql_log_off = 1", "slow_query_log = 0", "--connect-timeout=5",
                   "/*!80000 , max_execution_time = 10000, transaction_read_only = 1 */"):
        assert wanted in done.stdout, wanted
    done = ask(system, "/tmp/o/mysqld.sock=4715", "mariadb", "-x", "SHOW STATUS")
    assert "; SELECT 1 AS quendil_rows_follow; SHOW STATUS>" in done.stdout
    # In that form the client would not escape line feeds.
    assert "<--batch>" in done.stdout and "--vertical" not in done.stdout


def test_a_socket_of_any_other_user_is_named_and_not_asked(machine: Machine):
    lay_over(machine, "/usr/sbin", "psql", CLIENT)
    lay_over(machine, "/usr/sbin", "mariadb", CLIENT)
    odd = "/tmp/o/.s.PGSQL.1x=4713 /tmp/o/a|FORGED.s.PGSQL.5432=4711 /tmp/o/a'b/.s.PGSQL.2=4713"
    done = ask(machine, f"/tmp/pg/.s.PGSQL.5432=4711 {odd}", "postgresql", "SELECT 1")
    assert (done.status, done.stdout) == (
        0, "==> /tmp/pg/.s.PGSQL.5432\nnot asked: it belongs to user 4711\n")
    done = ask(machine, "/tmp/my/mysql.sock=4711", "mariadb", "SELECT 1")
    assert (done.status, done.stdout) == (
        0, "==> /tmp/my/mysql.sock\nnot asked: it belongs to user 4711\n")


#: The mark that "sql" puts before rows, and what the client of MariaDB escapes in rows.
MARK = "quendil_rows_follow\n1\n"
ESCAPES = str.maketrans({"\\": "\\\\", "\n": "\\n", "\t": "\\t"})


def rows(*values: str | tuple[str, ...], names: tuple[str, ...] = ("Type", "Status")) -> str:
    """What the client of MariaDB prints of these rows, each in one line; a text is a row of InnoDB's state."""
    lines = [names, *(("InnoDB", value) if isinstance(value, str) else value for value in values)]
    return MARK + "".join("\t".join(value.translate(ESCAPES) for value in line) + "\n" for line in lines)


def shown(system: Machine, answer: str, query: str = "SHOW ENGINE INNODB STATUS") -> str:
    """The output of "sql" for this answer of a MariaDB server."""
    if not system.exists("/tmp/answer"):
        lay_over(system, "/usr/sbin", "mariadb", "#!/bin/sh\ncat /tmp/answer\n")
    system.file("/tmp/answer", answer)
    system.exec("rm -f /tmp/my/mysqld.sock")
    return ask(system, "/tmp/my/mysqld.sock=4715", "mariadb", "-x", query).stdout.partition("\n")[2]


ROW = f"{'*' * 27} {{}}. row {'*' * 27}\n"
STATE = ROW.format(1) + "  Type: InnoDB\nStatus: "


def test_values_of_users_in_the_state_of_innodb_are_left_out(system: Machine):
    assert shown(system, rows("""
MariaDB thread id 13, OS thread handle 1, query id 2 localhost root Updating
UPDATE t SET a='b', c="d" WHERE e=5 AND f='g'
RECORD LOCKS space id 5
 0: len 4; hex 80000005; asc     ;;
---TRANSACTION 24
it's a text
""")).splitlines()[4:] == [
        "UPDATE t SET a=?, c=? WHERE e=? AND f=?", "RECORD LOCKS space id 5",
        " 0: len 4; hex (left out)", "---TRANSACTION 24", "it's a text", ""]


#: Statements as InnoDB shows them, and what is left of each.
STATEMENTS = [
    ("UPDATE `t'x` SET a='b\nc', d=\"e\\\\\", f='it''s' WHERE g=5", "UPDATE `t'x` SET a=?\n, d=?, f=? WHERE g=?"),
    ("UPDATE t1 SET `4b`=4929123412341234, c$2=-1.5e+10, d=0x6d79, e=b'0101' WHERE f2=.5\n7;",
     "UPDATE t1 SET `4b`=?, c$2=-?.?+?, d=?, e=b? WHERE f2=.?\n?;"),
    ("SELECT 'a' -- don't\nAND 'b' # it's\n\nAND 'c'", "SELECT ? --?\nAND ? #?\n\nAND ?"),
    ("SELECT 'it\\'s', 'b'", "SELECT ?(left out)"),
    ("SELECT 'C:\\', 'b'", "SELECT ?(left out)"),
    ("SELECT 'cut\n--------\nb", "SELECT ?"),
    ("SELECT `cut\nb", "SELECT (left out)"),
    ("SELECT /* don't */ 'a' /*!40001 SQL_NO_CACHE */ FROM t", "SELECT /*?*/ ? /*?*/ FROM t"),
    ("SELECT /*!40001 'a' */ 'b'", "SELECT /*?*/(left out)"),
    ("INSERT INTO notes VALUES ('from the log:\nERROR 1045 (28000): no\n---\nLOG\n---TRANSACTION 5\n*** (1) WAITING\n"
     "MySQL thread id 1, OS thread handle 2, query id 3\nquendil_rows_follow\nmariadb: stopped here by the time limit\n"
     + "*" * 27 + " 2. row " + "*" * 27 + "\n   info: a\nthe gate code is swordfish', 1, 'b')",
     "INSERT INTO notes VALUES (?\n, ?, ?)"),
    ("SELECT 1 FROM\nLOG\nWHERE a='b'", "SELECT ? FROM\nLOG\nWHERE a=?"),
    ("SELECT 5--1, 'a'", "SELECT ?(left out)"),
    ("SELECT 'a" + "x" * 5000 + "', b", "(left out)"),
]
#: Statements as PostgreSQL shows them, and what is left of each.
QUERIES = [
    ("SELECT \"It's\", 'a\nb\\\\', 'c' -- don't\n\nAND 'd'", "SELECT \"It's\", ?\n, ? --?\n\nAND ?"),
    ("SELECT $1, $$a'$$, $q$b\n$$c'$q$, 'd'", "SELECT $1, ?, ?\n, ?"),
    ("SELECT E'a\\'b', 'c'", "SELECT E?(left out)"),
    ("SELECT é5, é$$a$$, 'b'", "SELECT é5, é?(left out)"),
    ("SELECT a$$b$$, 'c'", "SELECT a?(left out)"),
    ("SELECT /* a /* b */ 'c' */ 'd'", "SELECT /*?*/(left out)"),
    ("SELECT '{}'::jsonb #> 'a'", "SELECT ?::jsonb #> ?"),
    ("SELECT 'a\n-[ RECORD 2 ]-+---\nERROR: \nquery | b', 'c'", "SELECT ?\n, ?"),
    ("SELECT 'cut", "SELECT ?"),
    ("SELECT \"5a\", $1, $4929123412341234, 0x6d79+1_000, -2e-5, a1 FROM t2",
     "SELECT \"5a\", $1, $?, ?+?, -?-?, a1 FROM t2"),
]


def test_values_in_statements_of_innodb_are_left_out_over_lines(system: Machine):
    begin = "MariaDB thread id 13, OS thread handle 1, query id 2 localhost root Updating\n"
    cut = "(left out)\n"
    end = "------------\nTRANSACTIONS\n------------\n---TRANSACTION 5, not started\nit's a text\n"
    assert shown(system, rows("".join(f"{begin}{given}\n{end}" for given, _ in STATEMENTS))) == STATE + "".join(
        f"{begin}{left}\n" + cut * ("'cut" in given) + end for given, left in STATEMENTS) + "\n"
    stopped = "mariadb: stopped here after 15 seconds\n"
    assert shown(system, rows(f"{begin}SELECT 'a\nb") + stopped) == f"{STATE}{begin}SELECT ?\n{stopped}"
    system.file("/tmp/answer", "InnoDB\t\ta\\nMariaDB thread id 13, OS thread handle 1\\nSELECT 'a\\\\'b'\\n\n")
    done = ask(system, "/tmp/other/mysqld.sock=4715", "mariadb", "SHOW ENGINE INNODB STATUS")
    assert done.stdout.partition("\n")[2] == (
        "InnoDB\t\ta\\nMariaDB thread id 13, OS thread handle (left out)\n")


#: Why a replica stopped, and what is left of it.
FAILURES = [
    ("Error 'Duplicate entry '7' for key 'PRIMARY'' on query. Default database: 'shop'. Query: 'INSERT INTO customer "
     "VALUES (7, 'Mary Miller', '4929 1234 1234 1234', 'swordfish')'",
     "Error 'Duplicate entry '?' for key 'PRIMARY' on query. Query: ?"),
    ("Could not execute Write_rows_v1 event on table shop.t; Duplicate entry 'it's b' for key 'u1', Error_code: 1062; "
     "handler error HA_ERR_FOUND_DUPP_KEY; the event's master log a.1, end_log_pos 9",
     "Could not execute Write_rows_v1 event on table shop.t; Duplicate entry '?' for key 'u1', Error_code: 1062; "
     "handler error HA_ERR_FOUND_DUPP_KEY, end_log_pos 9"),
    ("Error 'Duplicate entry 'cut 'b", "Error 'Duplicate entry '?'"),
    ("Query: a\nId: 'b'", "Query: ?"),
    ("Relay log read failure", "Relay log read failure"),
    ("", ""),
]


@pytest.mark.parametrize("name", ["Last_Error", "Last_SQL_Error", "last_error_message", "Last_Worker_Error"])
def test_values_in_the_last_errors_of_a_replica_are_left_out(machine: Machine, name: str):
    names = ("Id", name, "Last_IO_Error", "Seconds")
    output = shown(machine, rows(*(("5", given, "can't log in to 'a@b:3306' - retry-time: 60 'c", "7\n8")
                                   for given, _ in FAILURES), names=names), "SHOW ALL SLAVES STATUS")
    width = max(map(len, names))
    assert output == "".join(
        ROW.format(number + 1) + "".join(f"{column:>{width}}: {value}\n" for column, value in zip(
            names, ("5", left, "can't log in to '?' - retry-time: 60 '?'", "7\\n8")))
        for number, (_, left) in enumerate(FAILURES))


def test_words_of_the_client_are_no_rows(machine: Machine):
    warning, error = "WARNING: not encrypted\n", "ERROR 1146 (42S02) at line 1: Table 'a.b' doesn't exist\n"
    for answer in (error, warning + error):
        assert shown(machine, answer) == answer
    query = f"{'-' * 14}\nSELECT 5\n{'-' * 14}\n\n"
    assert shown(machine, warning + MARK + error) == warning + error
    assert shown(machine, warning + MARK + query + error) == warning + query + error
    assert shown(machine, f"{MARK}info\n{'-' * 14}\n'a'\n") == (
        f"{ROW.format(1)}info: (left out)\n{ROW.format(2)}info: ?\n")
    assert shown(machine, MARK + "info\nERROR 1 (a): 'b'\n") == f"{ROW.format(1)}info: ERROR ? (a): ?\n"
    assert shown(machine, MARK + "id\tinfo\n5\t'a'\t'b'\n") == f"{ROW.format(1)}  id: 5\ninfo: ?\n    : ?\n"


def test_values_in_columns_of_statements_are_left_out(system: Machine):
    assert shown(system, rows(*(("5", given) for given, _ in STATEMENTS), names=("id", "info")),
                 "SHOW FULL PROCESSLIST") == "".join(
        f"{ROW.format(number + 1)}  id: 5\ninfo: " + left.replace("\n", "\\n") + "\n"
        for number, (_, left) in enumerate(STATEMENTS))
    answer = "-[ RECORD 1 ]-+-----\nstate | it's\nquery | {}\npid   | 5\n"
    system.file("/tmp/answer", "".join(
        answer.format(given.replace("\n", " +\n      | ")) for given, _ in QUERIES))
    lay_over(system, "/usr/sbin", "psql", "#!/bin/sh\ncat /tmp/answer\n")
    done = ask(system, "/tmp/pg/.s.PGSQL.5432=4713", "postgresql", "-x", "SELECT * FROM pg_stat_activity")
    assert done.stdout.partition("\n")[2].replace(" +\n", "\n") == "".join(
        answer.format(left.replace("\n", "\n      | ")) for _, left in QUERIES)


def test_a_user_hides_no_server_behind_sockets_of_his_own(system: Machine):
    lay_over(system, "/usr/sbin", "mariadb", ASKED)
    places = [f"/tmp/a{number}/mysqld.sock" for number in range(18)]
    sockets = " ".join(f"{place}=4711" for place in places) + " /tmp/z/mysqld.sock=4715"
    done = ask(system, sockets, "mariadb", "SELECT 1")
    refused = "".join(f"==> {place}\nnot asked: it belongs to user 4711\n" for place in sorted(places)[:16])
    assert done.stdout == f"==> /tmp/z/mysqld.sock\nasked\n{refused}==> 2 more were left out\n"
    done = ask(system, " ".join(f"{place}=4715" for place in places).replace("/a", "/b"), "mariadb", "SELECT 1")
    assert done.stdout.count("asked\n") == 16 and done.stdout.endswith("asked\n==> 2 more were left out\n")


@pytest.mark.parametrize("owner, mode, refused", [
    (0, 0o755, False), (4715, 0o755, False), (0, 0o1777, False), (4711, 0o755, True), (0, 0o777, True),
    (4715, 0o775, True)])
def test_no_socket_is_asked_that_others_can_exchange(system: Machine, owner: int, mode: int, refused: bool):
    lay_over(system, "/usr/sbin", "mariadb", ASKED)
    system.directory("/tmp/my", mode, (owner, 0))
    done = ask(system, "/tmp/my/run/mysqld.sock=4715", "mariadb", "SELECT 1")
    assert done.stdout == "==> /tmp/my/run/mysqld.sock\n" + (
        "not asked: others can change /tmp/my\n" if refused else "asked\n")


def test_a_socket_is_asked_once_and_by_its_path_without_links(system: Machine):
    lay_over(system, "/usr/sbin", "mariadb", "#!/bin/sh\necho \"$@\"\n")
    # The path of the second one leads to the first one; that of the third one does not exist.
    sockets = "/tmp/my/mysqld.sock=4715 /tmp/u/mysqld.sock=0 /tmp/v/mysqld.sock=0"
    done = system.exec([*listening(system, sockets), "sh", "-c",
                        f"rm -r /tmp/u /tmp/v; ln -s my /tmp/u; exec {SQL} mariadb 'SELECT 1'"])
    assert done.stdout.startswith("==> /tmp/my/mysqld.sock\n")
    assert done.stdout.endswith("\n==> /tmp/v/mysqld.sock\nnot asked: there is no such file here\n")
    assert done.stdout.count("--socket=/tmp/my/mysqld.sock ") == 1 and "/tmp/u" not in done.stdout


def test_a_socket_on_a_network_mount_is_not_asked(system: Machine):
    tools = with_changes(system, "sql", ("/proc/self/mountinfo", "/tmp/mountinfo"))
    system.file("/tmp/mountinfo", "1 0 8:1 / / rw - ext4 /dev/sda1 rw\n"
                "2 1 0:31 / /tmp/net rw shared:1 - nfs4 server:/a rw\n")
    lay_over(system, "/usr/sbin", "mariadb", ASKED)
    done = ask(system, "/tmp/net/mysqld.sock=4715 /tmp/network/mysqld.sock=4715", "mariadb", "SELECT 1", tools=tools)
    assert (done.status, done.stdout) == (
        0, "==> /tmp/network/mysqld.sock\nasked\n"
        "==> /tmp/net/mysqld.sock\nnot asked: it lies on a network file system\n")


def test_no_link_of_another_user_is_followed_to_a_socket(system: Machine):
    lay_over(system, "/usr/sbin", "mariadb", ASKED)
    lay_over(system, "/usr/sbin", "stat", "#!/bin/sh\necho \"$@\" >>/tmp/checked\nexec /usr/bin/stat \"$@\"\n")
    sockets = "/tmp/my/mysqld.sock=4715 /tmp/u/a/mysqld.sock=4711 /tmp/v/mysqld.sock=4715"
    done = system.exec([*listening(system, sockets), "sh", "-c",
                        "mv /tmp/u /tmp/dead; mv /tmp/v /tmp/w; ln -s dead /tmp/u; ln -s w /tmp/v; "
                        f"chown -h 4711 /tmp/u; chown -h 4715 /tmp/v; exec {SQL} mariadb 'SELECT 1'"])
    assert done.stdout == ("==> /tmp/my/mysqld.sock\nasked\n==> /tmp/w/mysqld.sock\nasked\n"
                           "==> /tmp/u/a/mysqld.sock\nnot asked: a link on its path belongs to user 4711\n")
    checked = system.read("/tmp/checked")
    assert "/tmp/my/mysqld.sock" in checked and "/tmp/u/a" not in checked


def test_a_socket_on_a_file_system_that_does_not_answer_hides_no_other(system: Machine):
    # Time for several programs to start, on a busy machine too, before the limit is reached.
    tools = with_changes(system, "sql", ("timeout -k 1 5", "timeout -k 1 3"))
    lay_over(system, "/usr/sbin", "mariadb", ASKED)
    lay_over(system, "/usr/sbin", "stat", "#!/bin/sh\ncase $* in\n    *-L*/dead/*) exec sleep 20 ;;\nesac\n"
             "exec /usr/bin/stat \"$@\"\n")
    done = ask(system, "/tmp/dead/mysqld.sock=4715 /tmp/my/mysqld.sock=4715", "mariadb", "SELECT 1", tools=tools)
    assert (done.status, done.stdout) == (
        0, "==> /tmp/my/mysqld.sock\nasked\n"
        "==> /tmp/dead/mysqld.sock\nnot asked: its file system does not answer\n")


def test_sockets_are_found_where_nothing_limits_the_time_of_stat(machine: Machine):
    tools = with_changes(machine, "sql", ("command -v timeout", "command -v no_such_program"),
                         ("timeout -k", "no_such_program -k"))
    lay_over(machine, "/usr/sbin", "mariadb", ASKED)
    done = ask(machine, "/tmp/my/mysqld.sock=4715", "mariadb", "SELECT 1", tools=tools)
    assert (done.status, done.stdout) == (0, "==> /tmp/my/mysqld.sock\nasked\n")


def test_the_client_of_mysql_is_taken_where_there_is_no_other(machine: Machine):
    tools = with_changes(machine, "sql", ("command -v mariadb", "command -v no_such_program"))
    lay_over(machine, "/usr/sbin", "mysql", ASKED)
    done = ask(machine, "/tmp/my/mysqld.sock=4715", "mariadb", "SELECT 1", tools=tools)
    assert (done.status, done.stdout) == (0, "==> /tmp/my/mysqld.sock\nasked\n")


def test_databases_beyond_the_limit_are_counted(system: Machine):
    tools = with_changes(system, "sql", ("most_databases=50", "most_databases=1"))
    lay_over(system, "/usr/sbin", "psql", CLIENT)
    done = ask(system, "/tmp/pg/.s.PGSQL.1=4713", "postgresql", "-a", "SELECT 1", tools=tools)
    assert done.status == 0
    assert [line for line in done.stdout.splitlines() if not line.startswith("<")] == [
        "==> /tmp/pg/.s.PGSQL.1", "not asked because of its name: a b", "==> 1 more were left out",
        "--- postgres", "user 4713", "==> 1 more were left out"]


def test_the_time_limit_says_which_servers_were_not_asked(system: Machine):
    lay_over(system, "/usr/sbin", "psql", "#!/bin/sh\n: >/tmp/there\nexec sleep 1000\n")
    system.exec(["chmod", "1777", "/tmp"])
    around = shlex.join(listening(system, "/tmp/pg/.s.PGSQL.1=4713 /tmp/pg/.s.PGSQL.2=4713"))
    assert stop_at_time_limit(system, f'{SQL} postgresql "SELECT 1"', "not asked", around) == (
        "==> /tmp/pg/.s.PGSQL.1\npsql: stopped here by the time limit\n"
        "==> stopped here by the time limit; not asked: /tmp/pg/.s.PGSQL.2\n")


#: Where Debian keeps the programs of servers; a directory with clients alone has no initdb.
SERVERS = sorted(path.parent for path in Path("/usr/lib/postgresql").glob("*/bin/initdb"))
AS_POSTGRES = "setpriv --reuid 4713 --regid 4714 --clear-groups"


def shipped_query(item: str) -> list[str]:
    """The command line of the tool in PostgreSQL's pattern that writes this file, as words."""
    shipped = PatternFile("82_postgresql", (ROOT / "patterns/82_postgresql").read_bytes())
    tool, = [tool for tool in shipped.items("TOOL_BLOCK") if tool.text("REDIRECT_PATH") == f"%d%/{item}"]
    return split_command(tool.text("COMMAND_LINE").replace("%%", "%"))


@pytest.mark.skipif(not SERVERS, reason="there is no server of PostgreSQL")
def test_a_real_server_reports_checkpoints_and_statements(machine: Machine):
    add_users(machine)
    machine.directory("/tmp/pg", 0o755, (4713, 4714))
    machine.exec(f"{AS_POSTGRES} {SERVERS[-1]}/initdb -N -U postgres -D /tmp/pg/data >/tmp/initdb.out 2>&1")
    # Its shared memory is in an IPC namespace, which ends with the server.
    machine.exec(f"setsid unshare --ipc {AS_POSTGRES} {SERVERS[-1]}/postgres -D /tmp/pg/data -k /tmp/pg"
                 " -c listen_addresses= -c dynamic_shared_memory_type=mmap >/tmp/server.out 2>&1 &")
    client = f"{AS_POSTGRES} psql -X -h /tmp/pg -U postgres"
    machine.wait_for(lambda: machine.exec(f"{client} -c 'SELECT 1'", check=False).status == 0, 60)
    # A later version has this view; a view of that name that a user made must not be queried.
    machine.exec(f"{client} -c 'CREATE VIEW public.pg_stat_checkpointer AS SELECT 7 forged'")
    machine.exec(f"{client} -c 'SET allow_system_table_mods = on' -c 'CREATE VIEW pg_catalog.pg_stat_checkpointer"
                 " AS SELECT 5::bigint num_timed'", check=False)
    machine.file("/tmp/query.sql", "SELECT 'it''s', 'a\nb' FROM pg_sleep(1000) -- don't\n, pg_sleep(0) x;\n")
    machine.exec(f"setsid {client} -f /tmp/query.sql >/tmp/client.out 2>&1 &")
    machine.wait_for(lambda: "pg_sleep(1000)" in machine.exec(
        f"{client} -A -t -c \"SELECT query FROM pg_stat_activity WHERE query LIKE '%don%'\"").stdout)
    checkpoints, activity = (machine.exec(shipped_query(name)).stdout for name in ("checkpoints.txt", "activity.txt"))
    machine.exec("kill -INT $(head -n 1 /tmp/pg/data/postmaster.pid)")
    machine.wait_for(lambda: not machine.exists("/tmp/pg/data/postmaster.pid"))
    rows = [[part.strip() for part in line.split("|")] for line in checkpoints.splitlines()]
    assert ["relname", "counter", "value"] in rows
    assert "pg_stat_bgwriter" in {row[0] for row in rows}
    assert [row[1] for row in rows if row[0] == "pg_stat_checkpointer"][0] == "num_timed"
    assert "forged" not in checkpoints
    assert re.search(r"^query +\| SELECT \?, \?\n +\|  FROM pg_sleep\(\?\) --\?\n +\| , pg_sleep\(\?\) x;$",
                     activity, re.MULTILINE)


@pytest.mark.parametrize("kind", ["postgresql", "mariadb"])
def test_the_lack_of_a_server_is_one_line_and_a_failure_is_the_exit_status(system: Machine,
                                                                           kind: str):
    done = ask(system, "/tmp/other.sock=0", kind, "SELECT 1")
    assert (done.status, done.stdout, done.stderr) == (
        0, f"{kind}: not in use on this machine: no server listens on a socket\n", "")
    lay_over(system, "/usr/sbin", "psql", CLIENT)
    lay_over(system, "/usr/sbin", "mariadb", CLIENT)
    system.file("/tmp/fail")
    done = ask(system, "/tmp/.s.PGSQL.1=4713 /tmp/mysqld.sock=4715", kind, "SELECT 1")
    assert done.status == 2


@pytest.mark.parametrize("arguments", [
    (), ("postgresql",), ("mariadb", "-a", "SELECT 1"), ("oracle", "SELECT 1"), ("mariadb", "-y", "SELECT 1"),
    ("mariadb", "SELECT", "1")])
def test_wrong_usage_of_sql_ends_with_2(machine: Machine, arguments: tuple[str, ...]):
    done = machine.exec([SQL, *arguments], check=False)
    assert (done.status, done.stdout) == (2, "")
    assert "usage: sql postgresql [-a] [-x] QUERY\n" in done.stderr


# ---- Processes and Java virtual machines ---------------------------------------------------------

#: A process named java; its arguments say whether it handles SIGQUIT and has the files of a virtual machine.
VIRTUAL_MACHINE = """
import os, signal, socket, sys, time
os.setgid(4712)
os.setuid(4711)
where = "/tmp/hsperfdata_owner"
if "counters" in sys.argv:
    os.makedirs(where, exist_ok=True)
    open(f"{where}/{os.getpid()}", "w").close()
if "handler" in sys.argv:
    signal.signal(signal.SIGQUIT, lambda *_: None)
if "socket" in sys.argv:
    kept = socket.socket(socket.AF_UNIX)
    kept.bind(f"/tmp/.java_pid{os.getpid()}")
with open("/tmp/pid.new", "w") as file:
    file.write(str(os.getpid()))
os.rename("/tmp/pid.new", "/tmp/pid")
if "stopped" in sys.argv:
    os.kill(os.getpid(), signal.SIGSTOP)
while True:
    time.sleep(1)
"""
#: A program of the JDK. It never ends if /tmp/slow exists.
JDK = ('#!/bin/sh\n[ ! -e /tmp/slow ] || { : >/tmp/there; exec sleep 1000; }\n'
       'echo "${0##*/} of $(id -u):$(id -g)"; printf "<%s>" "$@"; echo\n')


class VirtualMachine:
    """A process that the commands take for a Java virtual machine; it ends with its `with` block."""

    def __init__(self, machine: Machine, *kinds: str) -> None:
        self.machine = machine
        machine.exec(["chmod", "1777", "/tmp"])
        for name in ("jcmd", "jstat"):
            lay_over(machine, "/usr/sbin", name, JDK)
        python = Path(os.path.realpath("/usr/bin/python3"))
        machine.install(python, "/tmp/jdk/bin/java")
        machine.file("/tmp/jdk/release", 'JAVA_VERSION="21"\n')
        machine.file("/tmp/main.py", VIRTUAL_MACHINE)
        machine.exec("setsid /tmp/jdk/bin/java -E /tmp/main.py --password=abc " + " ".join(kinds)
                     + " >/tmp/java.out 2>&1 &")
        machine.wait_for("/tmp/pid")
        self.pid = machine.read("/tmp/pid")

    def __enter__(self) -> VirtualMachine:
        return self

    def __exit__(self, *_: object) -> None:
        self.machine.exec(["kill", "-KILL", self.pid])

    def ask(self, *arguments: str) -> str:
        return self.machine.exec([JVM, *arguments]).stdout.replace(self.pid, "PID")


def test_a_process_is_shown_with_its_limits_and_without_its_arguments(system: Machine):
    with VirtualMachine(system) as one:
        text = system.exec([PROCESS, "nothing", "java"]).stdout
        assert system.exec([PROCESS, "-p", "java", "nothing"]).stdout == f"{one.pid}\n"
    assert text.splitlines()[0].split()[:3] == ["PID", "PPID", "UID"]
    assert f"\n{one.pid}: " in text and " open files, 0 kB swapped, oom_score_adj " in text
    assert "program /tmp/jdk/bin/java\n" in text
    assert f"\nLimits and control group of {one.pid}:\nLimit " in text and "\nMax open files " in text
    assert "abc" not in text and "main.py" not in text


def test_the_path_of_a_program_forges_no_line(system: Machine):
    with VirtualMachine(system) as one:
        system.exec("mv /tmp/jdk/bin \"$(printf '/tmp/jdk/a\\nFORGED\\\\nFORGED\\\\cb')\"")
        shown = "program /tmp/jdk/a?FORGED\\nFORGED\\cb/java"
        text = system.exec([PROCESS, "java"]).stdout
        options = one.ask("options")
    assert f"{shown}\n\nLimits and control group of {one.pid}:\n" in text
    assert f"{shown}\n-E\nstarts /tmp/main.py\n" in options
    assert "\nFORGED" not in text + options


def test_a_user_hides_no_process_of_the_system_behind_his_own(system: Machine):
    tools = with_changes(system, "process", ("most=200", "most=2"))
    system.install(Path(os.path.realpath("/bin/sleep")), "/tmp/java")
    for user in (4711, 4711, 0):
        system.exec(f"setsid setpriv --reuid {user} --clear-groups /tmp/java 1000 >/dev/null 2>&1 &"
                    " echo $! >>/tmp/pids")
    pids = system.read("/tmp/pids").split()
    system.wait_for(lambda: all(
        system.exec(["readlink", f"/proc/{pid}/exe"]).stdout == "/tmp/java\n" for pid in pids))
    first, second, last = pids
    short = system.exec([f"{tools}/process", "-p", "java"]).stdout
    text = system.exec([f"{tools}/process", "java"]).stdout
    asked = system.exec([f"{tools}/jvm", "jstat", "-gc", "{}"]).stdout
    system.exec(["kill", *pids])
    assert short == f"{last}\n{first}\n==> 1 more were left out\n"
    assert text.endswith("\n==> 1 more were left out\n") and f"\n{last}: " in text
    assert f"{second}: " not in text
    assert asked == (f"==> {last} of user 0\nnot asked: it publishes no counters\n"
                     f"==> {first} of user 4711\nnot asked: it publishes no counters\n"
                     "==> 1 more were left out\n")


def test_the_time_limit_says_which_virtual_machines_were_not_asked(system: Machine):
    with VirtualMachine(system, "counters") as one:
        system.exec("setsid setpriv --reuid 4711 --clear-groups /tmp/jdk/bin/java -E -c"
                    " 'import time; open(\"/tmp/second\", \"w\"); time.sleep(1000)' >/dev/null 2>&1 &"
                    " echo $! >/tmp/second.pid")
        system.wait_for("/tmp/second")
        other = system.read("/tmp/second.pid").strip()
        system.file("/tmp/slow")
        output = stop_at_time_limit(system, f"{JVM} jstat -gc {{}}", "not asked")
        system.exec(["kill", other])
        assert output == (
            f"==> {one.pid} of user 4711\njstat: stopped here by the time limit\n"
            f"==> stopped here by the time limit; not asked: {other}\n")


def test_a_missing_process_and_wrong_usage_are_reported(system: Machine):
    assert system.exec([PROCESS, "no-such", "other"]).stdout == (
        "no-such other: not in use on this machine: no such process\n")
    for arguments in ((), ("-x", "java"), ("a b",), ("../java",), ("",)):
        done = system.exec([PROCESS, *arguments], check=False)
        assert (done.status, done.stdout) == (2, "")
        assert done.stderr.endswith("usage: process [-p] NAME...\n")


@pytest.mark.parametrize("kinds, command, answer", [
    (("counters",), "jstat -gc {} 1 2", None),
    ((), "jstat -gc {}", "it publishes no counters"),
    (("handler", "socket"), "jcmd {} VM.flags", None),
    (("handler",), "jcmd {} VM.flags", "it was never asked before, and would open a socket"),
    (("handler",), "-a jcmd {} VM.flags", None),
    (("socket",), "jcmd {} VM.flags", "it does not handle SIGQUIT"),
    (("socket",), "-a jcmd {} VM.flags", "it does not handle SIGQUIT"),
    (("handler", "socket", "stopped"), "-a jcmd {} VM.flags", "it is stopped or about to end"),
])
def test_a_java_virtual_machine_is_asked_as_its_user_where_that_does_no_harm(
        system: Machine, kinds: tuple[str, ...], command: str, answer: str | None):
    with VirtualMachine(system, *kinds) as one:
        if "stopped" in kinds:
            status = f"/proc/{one.pid}/status"
            system.wait_for(lambda: "\nState:\tT" in system.exec(["cat", status]).stdout)
        text = one.ask(*command.split())
    assert text.startswith("==> PID of user 4711\n")
    rest = text.partition("\n")[2]
    if answer:
        assert rest == f"not asked: {answer}\n"
    else:
        name, *arguments = command.removeprefix("-a ").replace("{}", "PID").split()
        assert rest.startswith(f"{name} of 4711:4712\n<-J-XX:-UsePerfData>")
        assert rest.endswith("".join(f"<{argument}>" for argument in arguments) + "\n")


def test_a_file_that_jcmd_leaves_when_it_is_stopped_is_removed(machine: Machine):
    with VirtualMachine(machine, "handler") as one:
        left = f"/tmp/.attach_pid{one.pid}"
        machine.file(left, owner=(4711, 4712))
        one.ask("-a", "jcmd", "{}", "VM.flags")
        assert not machine.exists(left)


def test_the_options_of_a_java_virtual_machine_are_shown_without_values_that_may_be_secret(
        system: Machine):
    add_users(system)
    given = ["-Xmx64m", "-Ddb.login=abc", "-Djava.io.tmpdir=/t", "-javaagent:/a.jar=key", "-cp", "/a:/b",
             "--add-opens", "java.base/x=ALL-UNNAMED",
             "-XX:OnError=x --password abc", "Main", "abc"]
    system.install(Path(os.path.realpath("/bin/sleep")), "/tmp/jdk/bin/java")
    system.file("/tmp/jdk/release", 'JAVA_VERSION="21"\n')
    system.file("/tmp/cmdline", "\0".join(["java", *given]) + "\0")
    system.exec("setsid /tmp/jdk/bin/java 1000 >/tmp/java.out 2>&1 &")
    system.wait_for(lambda: system.exec(f"{PROCESS} -p java").stdout.split())
    pid = system.exec(f"{PROCESS} -p java").stdout.split()[0]
    system.mount("--bind", "/tmp/cmdline", f"/proc/{pid}/cmdline")
    text = system.exec([JVM, "options"]).stdout
    system.exec(["umount", f"/proc/{pid}/cmdline"])
    system.exec(["kill", pid])
    assert text == (
        f'==> {pid} of user 0\n==> /tmp/jdk/release\nJAVA_VERSION="21"\n\nprogram /tmp/jdk/bin/java\n'
        "-Xmx64m\n-Ddb.login=...\n-Djava.io.tmpdir=/t\n-javaagent:/a.jar=...\n-cp with 2 entries\n"
        "--add-opens\n  java.base/x=ALL-UNNAMED\n"
        f"-XX:OnError=x --password {HIDDEN}\nstarts Main\n")


def test_a_missing_java_virtual_machine_and_wrong_usage_are_reported(system: Machine):
    for name in ("jstat -gc {}", "jcmd {} VM.flags", "options"):
        assert system.exec(f"{JVM} {name}").stdout == (
            f"{name.split()[0]}: not in use on this machine: no Java virtual machine runs\n")
    for arguments in ("", "jmap {}", "options x", "-a options", "-a jstat -gc {}", "jcmd {}", "jstat"):
        done = system.exec(f"{JVM} {arguments}", check=False)
        assert (done.status, done.stdout) == (2, "") and "usage: jvm options\n" in done.stderr


# ---- Certificates --------------------------------------------------------------------------------


def test_certificates_are_read_as_the_user_who_could_lead_to_another_file(system: Machine):
    lay_over(system, "/usr/sbin", "openssl", '#!/bin/sh\necho "$(id -u):$(id -g) $3"\n')
    system.file("/tmp/a/file.crt", owner=(4711, 4712))
    system.file("/tmp/a/roots.crt")
    system.link("/tmp/a/link.crt", "/tmp/a/file.crt")
    system.link("/tmp/a/users_link.crt", "/tmp/a/roots.crt", owner=(4711, 4712))
    system.link("/tmp/a/via.crt", "users_link.crt")
    system.directory("/tmp/b", owner=(4711, 4712))
    system.file("/tmp/b/roots.crt")
    system.link("/tmp/a/way.crt", "/tmp/b/roots.crt")
    done = system.exec([CERTIFICATES, "/tmp/a/*.crt", "/tmp/b/*.crt", "/tmp/none/*.pem"])
    user, root = "4711:4712", "0:0"
    assert done.stdout == "".join(f"==> {path}\n{who} {path}\n" for path, who in [
        ("/tmp/a/file.crt", user), ("/tmp/a/link.crt", user), ("/tmp/a/roots.crt", root),
        ("/tmp/a/users_link.crt", user), ("/tmp/a/via.crt", user), ("/tmp/a/way.crt", user),
        ("/tmp/b/roots.crt", user)])
    assert system.exec([CERTIFICATES, "/tmp/none/*.pem"]).stdout == "certificates: there are none\n"
    assert system.exec([CERTIFICATES], check=False).status == 2


def test_certificates_beyond_the_limit_are_counted(machine: Machine):
    lay_over(machine, "/usr/sbin", "openssl", "#!/bin/sh\n")
    tools = with_changes(machine, "certificates", ("most=100", "most=2"))
    for number in (1, 2, 3):
        machine.file(f"/tmp/{number}.crt")
    assert machine.exec([f"{tools}/certificates", "/tmp/*.crt"]).stdout == (
        "==> /tmp/1.crt\n==> /tmp/2.crt\n==> 1 more were left out\n")
