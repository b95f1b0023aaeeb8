"""The manual pages: their form, and that they leave out nothing that the program has."""

import re
import subprocess
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]
SOURCE = ROOT / "src"
PAGES = sorted((ROOT / "man").iterdir())

# Long enough that no line of a page is broken.
WIDTH = 400


def rendered(name):
    """A page as a reader sees it, without its bold and underlined letters."""
    page = subprocess.run(
        ["mandoc", "-Tutf8", f"-Owidth={WIDTH}", ROOT / "man" / name],
        capture_output=True,
        encoding="utf-8",
        check=True,
    ).stdout
    return re.sub(".\b", "", page)


def source(name):
    return (SOURCE / name).read_text()


def entries(page):
    """The entries of a page's lists: what is outdented, with the lines below it."""
    page = re.sub(r"^( {5}\S(?:.{0,4}\S)?) {2,}(?<=^.{13})(?=\S)", "\\1\n" + " " * 13, page, flags=re.M)
    found = re.finditer(r"^ {5}(\S.*)\n((?:(?: {6,}\S.*)?\n)*)", page, re.M)
    return {entry[1]: re.sub(r"\s+", " ", entry[2]).strip() for entry in found}


# ---- Form ---------------------------------------------------------------------------------------


def test_the_programs_each_format_and_the_messages_have_a_page():
    names = {page.name for page in PAGES}
    assert names - {f"quendil_{command}.8" for command in usages()} == {
        "quendil-check.8", "quendil-report.8", "quendil.8", "quendil_archive.7", "quendil_conf.5",
        "quendil_messages.7", "quendil_pattern.5", "quendil_tools.8"}


@pytest.mark.parametrize("page", PAGES, ids=lambda page: page.name)
@pytest.mark.parametrize(
    "checker",
    [["mandoc", "-T", "lint", "-W", "warning"], ["groff", "-mandoc", "-Tutf8", "-ww", "-z"]],
    ids=lambda checker: checker[0],
)
def test_a_page_gives_no_warning(page, checker):
    done = subprocess.run([*checker, page], capture_output=True, text=True)
    assert (done.returncode, done.stdout, done.stderr) == (0, "", "")


@pytest.mark.parametrize("page", PAGES, ids=lambda page: page.name)
def test_a_page_has_the_usual_sections(page):
    sections = re.findall(r"^\.Sh (.*)", page.read_text(), re.M)
    wanted = {"NAME", "DESCRIPTION", "SEE ALSO", "SECURITY CONSIDERATIONS"}
    if page.name == "quendil.8":
        wanted |= {"SYNOPSIS", "FILES", "EXIT STATUS", "EXAMPLES", "DIAGNOSTICS"}
    elif page.suffix == ".5":
        wanted |= {"FILES", "EXAMPLES", "DIAGNOSTICS"}
    elif page.suffix == ".8":
        wanted |= {"SYNOPSIS", "FILES", "EXIT STATUS", "EXAMPLES"}
    assert wanted <= set(sections)


def test_references_lead_to_existing_pages():
    own = {tuple(page.name.rsplit(".", 1)) for page in PAGES}
    for page in PAGES:
        for name, section in re.findall(r"^\.Xr (\S+) (\d)", page.read_text(), re.M):
            assert (name, section) in own or not name.startswith("quendil"), page.name


# ---- Messages -----------------------------------------------------------------------------------

ROW = re.compile(r'IG_MSG\(\d+, (\w+), \w+, \d, \d,\s*((?:"(?:[^"\\]|\\.)*"\s*)+)\)')
ESCAPES = {"n": "\n", "t": "\t", '"': '"'}


def messages():
    """The texts of all messages by their identifier; parts that make one message are joined."""
    texts = {}
    for name, literals in ROW.findall(source("common/report/IGCmnMessageTable.inc")):
        text = "".join(re.findall(r'"((?:[^"\\]|\\.)*)"', literals))
        text = re.sub(r"\\(.)", lambda escape: ESCAPES[escape[1]], text)
        part = re.match(r"ZEPA\d+_[EWI]", name)
        key = part[0] if part else name
        texts[key] = texts.get(key, "") + text
    memory = re.search(r'MEMORY_WARNING = "(.*)\\n"', source("common/report/IGCmnMessage.cpp"))[1]
    return {**texts, "ZEPA143_W": memory + "\n"}


def documented():
    """The heads of the page's entries by identifier: a message with all of its lines."""
    page = rendered("quendil_messages.7")
    heads = re.findall(r"^ {5}(ZEPA\d+-[EWI]):(.*\n(?: {17}\S.*\n)*)", page, re.M)
    return {name.replace("-", "_"): f"{name}:{text}" for name, text in heads}


def test_the_source_has_the_messages_that_are_compared():
    rows = len(re.findall(r"^IG_MSG\(", source("common/report/IGCmnMessageTable.inc"), re.M))
    assert len(ROW.findall(source("common/report/IGCmnMessageTable.inc"))) == rows
    assert len(messages()) > 60


def test_every_message_is_explained_under_exactly_its_text():
    texts = {name: text for name, text in messages().items() if name.startswith("ZEPA")}
    shown = {name: re.sub("^ {13}", "", text, flags=re.M) for name, text in documented().items()}
    assert shown == texts


def test_a_message_that_asks_for_something_says_what_to_do():
    page = entries(rendered("quendil_messages.7"))
    for head, text in page.items():
        if re.match(r"ZEPA\d+-[EW]:", head):
            assert "Action: " in text or "does not issue it" in text, head


#: Where a message of each kind appears, and the exceptions: messages before the run log is open, and
#: those that go to the run log only while patterns are read and data is collected.
PLACES = {
    "LOG": "run log", "STDOUT_LOG": "terminal, run log", "STDERR_LOG": "terminal, run log",
    "STDERR": "terminal", "HISTORY": "history log",
}
OTHER_PLACES = {
    "ZEPA116-E": "terminal, history log", "ZEPA117-E": "terminal",
    **dict.fromkeys(["ZEPA140-W", "ZEPA141-W", "ZEPA152-W"],
                    "run log; terminal before the run log is open"),
}


def test_each_message_is_documented_with_the_places_of_its_kind():
    rows = re.findall(r"IG_MSG\(\d+, (ZEPA\d+)_([EWI])\w*, MSGKIND_(\w+),",
                      source("common/report/IGCmnMessageTable.inc"))
    wanted = {f"{number}-{letter}": PLACES[kind] for number, letter, kind in rows} | OTHER_PLACES
    reported = {head[:9]: re.search(r"\(((?:terminal|run log|history log)\b[^)]*)\)", text)
                for head, text in entries(rendered("quendil_messages.7")).items()}
    places = {name: place[1] for name, place in reported.items() if name in wanted and place}
    assert places == wanted


def test_messages_documented_as_not_issued_are_not_in_the_source():
    files = [*SOURCE.rglob("*.cpp"), *SOURCE.rglob("*.h")]
    code = "".join(re.sub("//.*", "", path.read_text()) for path in files)
    page = entries(rendered("quendil_messages.7"))
    for head, text in page.items():
        if found := re.match(r"ZEPA\d+-[EWI]", head):
            used = re.search(rf"{found[0].replace('-', '.')}\b", code) is not None
            assert used != ("does not issue it" in text), head


def test_the_usage_text_is_shown_as_the_program_prints_it():
    page = rendered("quendil_messages.7")
    for line in messages()["MSG_USAGE"].replace("\t", " ").splitlines():
        assert re.search(r"\s+".join(map(re.escape, line.split())), page), line


# ---- Command line -------------------------------------------------------------------------------


def test_every_option_is_explained_with_its_longest_value():
    page = entries(rendered("quendil.8"))
    rows = re.findall(r'\{"(-\w)", "(-\w)", (\d+), take', source("ini/IGIniOption.cpp"))
    assert len(rows) == 5
    for upper, lower, longest in rows:
        head = next(head for head in page if re.match(rf"{lower} (\w+), {upper} \1$", head))
        assert f"At most {longest} bytes." in page[head]
    assert any(head.startswith("-h, -H") for head in page)


def test_every_option_is_in_the_synopsis():
    synopsis = rendered("quendil.8").split("SYNOPSIS")[1].split("DESCRIPTION")[0]
    usage = messages()["MSG_USAGE"]
    assert set(re.findall(r"-\w\b", synopsis)) == set(re.findall(r"-[a-z]\b", usage))


def test_every_exit_status_is_explained():
    page = rendered("quendil.8").split("EXIT STATUS")[1].split("EXAMPLES")[0]
    codes = re.findall(r"RETCODE_\w+ = (\d+)", source("common/base/IGRunState.h"))
    assert sorted(codes) == ["0", "10", "20", "255"]
    assert sorted(re.findall(r"^ {5}(\d+) ", page, re.M)) == sorted(codes)


def test_every_place_of_the_installation_is_named():
    page = rendered("quendil.8")
    for name in ("bin", "tool", "template"):
        assert f"/opt/norvale/quendil/{name}" in page
    for name in ("config/quendil_conf", "pattern"):
        assert f"/etc/opt/norvale/quendil/{name}" in page
    for name in ("data", "log/quendil.log", "log/quendil_hist.log"):
        assert f"/var/opt/norvale/quendil/{name}" in page


# ---- Configuration ------------------------------------------------------------------------------


def limit(text, name):
    """The value of a named constant of the source."""
    return int(re.search(rf"\b{name} = (\d+)", text)[1])


def name(head):
    """The key that an entry explains, if it explains one."""
    found = re.match(r"(QUENDIL_\w+)=", head)
    return found and found[1]


def test_every_setting_is_explained_with_its_bounds():
    code = source("ini/IGIniReadCompDef.cpp")
    page = rendered("quendil_conf.5")
    settings = {name(head): text for head, text in entries(page).items() if name(head)}
    assert set(settings) == set(re.findall(r'\{"(QUENDIL_\w+)", set', code))
    assert f"at most {limit(code, 'DIRECTORY_LIMIT')} bytes" in settings["QUENDIL_DATA_DIRECTORY"]
    assert "from 0 to 2147483647" in settings["QUENDIL_MAX_OUTPUT_DATA_SIZE"]
    assert "no limit, and so does -1" in settings["QUENDIL_MAX_OUTPUT_DATA_SIZE"]
    assert f"more than {limit(code, 'LINE_LIMIT')} bytes" in re.sub(r"\s+", " ", page)
    for word in re.findall(r'strcmp\(value, "(\w+)"\)', code):
        assert word in settings["QUENDIL_CLEANUP"]


def test_the_shipped_configuration_names_the_settings_of_the_page():
    shipped = (ROOT / "config/quendil_conf").read_text()
    page = entries(rendered("quendil_conf.5"))
    names = set(re.findall(r"^#?(QUENDIL_\w+)=", shipped, re.M))
    assert {name(head) for head in page if name(head)} == names


# ---- Pattern files ------------------------------------------------------------------------------

REPEATED = {True: "Once", False: "Any number of times"}
EMPTY = {False: "must not be empty", True: "may be empty"}


def begin_of(code, fields):
    """How the entry of a keyword with these fields must begin."""
    repeated = REPEATED[fields.get("only_once") == "true"]
    if "opens" in fields:
        return repeated
    begin = f"{repeated}; {EMPTY[fields.get('may_be_empty') == 'true']}"
    if "longest" in fields:
        begin += f"; at most {limit(code, fields['longest'])} bytes"
    if "number" in fields:
        high = fields["highest"].replace("INT_MAX", str(2**31 - 1))
        begin += f"; from {fields['lowest']} to {high}"
    return begin


def keywords():
    """How the entry of every keyword of a pattern file must begin, by the parser's own table."""
    code = source("ini/IGIniReadPtn.cpp")
    table = code.split("constexpr Keyword KEYWORDS[]")[1].split("};")[0]
    begin = {}
    for row in re.findall(r"\{(\.name.*?)\}", table, re.DOTALL):
        fields = dict(re.findall(r"\.(\w+) = ([^,}]+)", row))
        begin[fields["name"].strip('"')] = begin_of(code, fields)
    assert len(begin) == len(re.findall(r'"[A-Z_]+"', table))
    # Limited by the function that stores it, because only its first value is.
    assert "std::strlen(value) > TEXT_LIMIT" in code.split("Outcome storeDescription")[1]
    begin["DESCRIPTION"] += f"; the first one at most {limit(code, 'TEXT_LIMIT')} bytes"
    return begin


@pytest.mark.parametrize("name, begin", keywords().items())
def test_a_keyword_is_explained_with_its_limits(name, begin):
    text = entries(rendered("quendil_pattern.5"))[name]
    assert re.match(rf"{re.escape(begin)}[.,]", text)


def test_no_unknown_keyword_is_explained():
    page = entries(rendered("quendil_pattern.5"))
    assert {head for head in page if re.fullmatch("[A-Z]+(_[A-Z]+)*", head)} == set(keywords())


def test_every_special_string_is_explained():
    table = source("ini/IGCmnReplaceStr.cpp")
    known = set(re.findall(r'"%([A-Za-z]+)"', table))
    assert {"HOST", "YY", "d"} <= known
    page = rendered("quendil_pattern.5")
    for name in known:
        assert f"‘%{name}%’" in page


def test_every_mark_that_a_pattern_file_may_hold_is_shown():
    marks = re.search(r'ALLOWED_MARKS = L"((?:[^"\\]|\\.)*)"', source("common/base/IGCmnStr.h"))[1]
    marks = set(re.sub(r"\\[nrt]", "", marks).replace("\\", "")) - {" "} | {"\\"}
    shown = next(line for line in rendered("quendil_pattern.5").splitlines() if " ! " in line)
    assert set(shown.split()) == marks


def test_the_defaults_of_a_tool_are_those_of_the_program():
    page = entries(rendered("quendil_pattern.5"))
    table = source("ini/IGIniTable.cpp")
    for field in ("timeout", "timeout_signal", "wait_termination"):
        default = limit(table, re.search(rf"tool\.{field} = (\w+);", table)[1])
        assert re.search(rf"\b{default}\b[^.]* when it is not given", page[field.upper()])


# ---- Commands of the tool directory -------------------------------------------------------------

TOOLS = ROOT / "tools"
DIRECTORY = "/opt/norvale/quendil/tool/"
OVERVIEW = "quendil_tools.8"
USAGE = re.compile(r"^(?:#|//) usage: (.*\n(?:(?:#|//) {8}\w.*\n)*)", re.M)
OPTION = re.compile(r"(?<!\w)-\w\b(?: [A-Z]+)?")


def usages():
    """The usage lines of every command that is installed in the tool directory."""
    found = {}
    for path in (*TOOLS.iterdir(), *(SOURCE / "tool").glob("*.cpp")):
        if usage := USAGE.search(path.read_text()):
            lines = [line.strip("#/ ") for line in usage[1].splitlines()]
            found[path.stem] = [line.split("  ")[0] for line in lines]
    return found


def tool_pages():
    """The pages of the commands: not the overview of all."""
    return [page.name for page in PAGES if page.suffix == ".8" and page.name.startswith("quendil_")
            and page.name != OVERVIEW]


def synopses(page):
    """The commands of a page's synopsis, each with its lines."""
    found = {}
    for line in rendered(page).split("SYNOPSIS")[1].split("DESCRIPTION")[0].splitlines():
        if line.strip():
            assert line.strip().startswith(DIRECTORY)
            line = line.strip().removeprefix(DIRECTORY)
            found.setdefault(line.split()[0], []).append(line)
    return found


def explanation(command):
    """The page of a command."""
    return rendered(f"quendil_{command}.8")


def section(page, name):
    return re.search(rf"^{name}\n((?: .*\n|\n)*)", rendered(page), re.M)[1]


def test_every_command_of_the_tool_directory_has_a_usage():
    installed = (ROOT / "cmake/Install.cmake").read_text()
    programs = re.search(r"install\(TARGETS ([a-z ]+) RUNTIME DESTINATION \S+/tool", installed)[1]
    commands = {path.name for path in TOOLS.iterdir() if path.suffix != ".sh"}  # "*.sh" are no commands
    assert set(usages()) == commands | set(programs.split())
    assert {"run", "show", "pci"} <= set(usages())


def test_every_command_has_its_usage_line_as_synopsis_in_a_page_of_its_own():
    for command, usage in usages().items():
        assert synopses(f"quendil_{command}.8") == {command: usage}
    assert set(tool_pages()) == {f"quendil_{command}.8" for command in usages()}


def options_of_script(text):
    """The options that a script takes: of getopts, or compared with all arguments in a case."""
    options = {f"-{letter}" for letters in re.findall(r"\bgetopts ([\w:]+) ", text)
               for letter in letters.replace(":", "")}
    return options | set(re.findall(r"^ *(?:\d:)?(-\w)(?::\d)?\)", text, re.M))


@pytest.mark.parametrize("command, usage", sorted(usages().items()))
def test_the_usage_has_the_options_that_the_command_takes(command, usage):
    named = {option[:2] for line in usage for option in OPTION.findall(line)}
    if (TOOLS / command).exists():
        assert options_of_script((TOOLS / command).read_text()) == named
    elif command == "escape":
        assert set(re.findall(r'\{"(-\w)", LineEnd', source("tool/escape.cpp"))) == named
    else:
        letters = re.findall(r'getopt\(argc, argv, "\+?([\w:]+)"', source(f"tool/{command}.cpp"))
        assert {f"-{letter}" for letter in "".join(letters).replace(":", "")} == named


def test_the_overview_lists_every_command_with_the_purpose_that_its_page_has():
    page = (ROOT / "man" / OVERVIEW).read_text()
    listed = dict(re.findall(r"^\.It Xr (quendil_\w+) 8\n\.Nm (\w+)\n", page, re.M))
    assert listed == {f"quendil_{command}": command for command in usages()}
    named = set(re.findall(r"(quendil_\w+)\(8\)", section(OVERVIEW, "SEE ALSO")))
    assert named == set(listed)


def test_a_page_of_a_command_says_what_is_in_each_column():
    """The first line of such a table names the columns in the script; the page explains each."""
    tables = {path.name: found[1] for path in TOOLS.iterdir()
              if (found := re.search(r"^echo '(\w\S* [^']*)'$", path.read_text(), re.M))}
    assert set(tables) == {"deleted_files", "descriptors", "expiry", "namespaces", "pci"}
    for command, columns in tables.items():
        heads = [word for head in entries(explanation(command)) for word in head.split(", ")]
        assert [head for head in heads if head in columns.split()] == columns.split(), command


@pytest.mark.parametrize("command, usage", sorted(usages().items()))
def test_every_option_of_a_command_is_explained(command, usage):
    heads = {head for head in entries(explanation(command)) if head.startswith("-")}
    assert heads == {option for line in usage for option in OPTION.findall(line)}


def test_every_kind_of_each_is_explained():
    kinds = re.search(r"echo 'usage: each (\S+) NAME", (TOOLS / "each").read_text())[1].split("|")
    heads = {head for head in entries(explanation("each")) if re.fullmatch("[a-z]+", head)}
    assert len(kinds) > 8
    assert heads == set(kinds)


def test_every_variable_that_a_program_gets_is_explained():
    code = re.search(r"^start\(\) \{\n(.*?)^\}", (TOOLS / "run").read_text(), re.M | re.S)[1]
    heads = entries(section("quendil_run.8", "ENVIRONMENT"))
    reported = {name for head in heads for name in re.findall(r"\b[A-Z_]+(?=,|$)", head)}
    assert reported == set(re.findall(r"\b([A-Z_]+)=", code))


def test_the_bounds_of_the_commands_are_documented():
    run, each = (entries(explanation(name)) for name in ("run", "each"))
    code = {path.name: path.read_text() for path in TOOLS.iterdir()}
    assert f"; {re.search('^mib=(.*)', code['run'], re.M)[1]} without this option" in run["-l MIB"]
    most = re.search("^MOST_NAMESPACES=(.*)", code["each"], re.M)[1]
    assert f"At most {most} are asked" in each["namespace"]
    seconds = re.search("^LIMIT=([0-9]+)", code["each"], re.M)[1]
    assert f"Each run of the program has {seconds} seconds." in explanation("each")
    assert "head -n 6\n" in code["each"] and "the six days before today" in each["day"]
    show = source("tool/show.cpp")
    text = entries(explanation("show"))["-l MIB"]
    assert f"; {limit(show, 'int mib')} without this option" in text
    assert limit(show, "LIMIT_FACTOR") == 4 and "truncated at four times as much" in text


@pytest.mark.parametrize("command, bound, phrase", [
    ("certificates", r"^most=(\d+)", "At most {} files are read"),
    ("failed_logins", r"lastb .* -n (\d+)", "the last {} failed logins"),
    ("failed_logins", r"^most_users=(\d+)", "At most {} users are shown"),
    ("failed_logins", r"^most_records=(\d+)", "and {} failures of each"),
    ("jvm", r"as_its_user .* (\d+) \"\$name\"", "each has {} seconds"),
    ("load", r"^seconds=(\d+)", "a whole number; {} without this option"),
    ("load", r"print_most\((\d+), passed", "the {} processes with the most processor time"),
    ("load", r"print_most\((\d+), resident", "and the {} with the most memory"),
    ("process", r"^most=(\d+)", "At most {} processes are shown"),
    ("refusals", r"tail -n (\d+)", "the last {} records"),
    ("sql", r"^most_servers=(\d+)", "At most {} servers are queried"),
    ("sql", r"^most_databases=(\d+)", "and {} databases of each"),
    ("sql", r"run\" -u \w+ -t (\d+)", "The client has {} seconds."),
])
def test_the_bounds_of_a_command_are_documented(command, bound, phrase):
    values = set(re.findall(bound, (TOOLS / command).read_text(), re.M))
    assert len(values) == 1
    assert phrase.format(values.pop()) in re.sub(r"\s+", " ", explanation(command))


@pytest.mark.parametrize("page", tool_pages())
def test_every_way_of_a_command_to_end_is_explained(page):
    statuses = set(re.findall(r"^ {5}(\d+) ", section(page, "EXIT STATUS"), re.M))
    command = page.removeprefix("quendil_").removesuffix(".8")
    wanted = {"0"} if usages()[command] in ([command], [f"{command} <FILE"]) else {"0", "2"}
    if command == "show":
        wanted |= {"1"}
    elif command == "each":
        wanted |= {"143"}
    elif command in ("mask", "escape"):
        wanted |= {"1", "153"}
    elif command == "prune":
        wanted |= {"1"}
    elif command == "unattended":
        wanted |= {"75"}
    assert statuses == wanted
    text = re.sub(r"\s+", " ", section(page, "EXIT STATUS"))
    assert ("it is the exit status of" in text) == (command in ("journal", "lvm", "run", "sql"))


def test_related_pages_refer_to_the_pages_of_the_commands():
    for_units = {"quendil_prune.8", "quendil_unattended.8"}  # no pattern runs them
    for page in ["quendil.8", "quendil_pattern.5"]:
        named = set(re.findall(r"(quendil\w*)\(8\)", section(page, "SEE ALSO")))
        assert named >= {f"quendil_{name}" for name in ("each", "mask", "run", "show", "tools")}
    for page in tool_pages():
        named = set(re.findall(r"(quendil\w*\(\d\))", section(page, "SEE ALSO")))
        wanted = {"quendil(8)", "quendil_tools(8)"}
        wanted |= set() if page in for_units else {"quendil_pattern(5)", "quendil_run(8)"}
        assert named >= wanted - {f"{page[:-2]}(8)"}
    assert {"quendil_prune", "quendil_unattended"} <= set(
        re.findall(r"(quendil\w*)\(8\)", section("quendil.8", "SEE ALSO")))
