"""The manual page, the help text, the completions, the parser and the table of statuses agree."""
import json
import re
import subprocess
from pathlib import Path

import pytest

SOURCE = Path(__file__).resolve().parents[2]
PAGE = (SOURCE / "packaging/keltconfig.8").read_text()
DOCUMENTED = {"-m", "-d", "-z", "-e", "-U", "-P", "-nostart", "-u",
              "-CustomProps1", "-CustomProps2", "-CustomProps3", "-CustomProps4"}
HELP_SPELLINGS = {"-h", "--help", "?"}


def section(name):
    return re.search(rf"^\.Sh {name}\n(.*?)(?=^\.Sh |\Z)", PAGE, re.M | re.S).group(1)


def items(text):
    found = re.findall(r"^\.It (Fl (\S+)|\?\\&)", text, re.M)
    return {"?" if not name else "-" + name for _, name in found}


def parser_options():
    source = (SOURCE / "app/parser.cpp").read_text()
    names = set(re.findall(r'\{\s*L"([A-Za-z0-9-]+)"', source))
    assert len(names) >= 20, "the parser's table was not found in its source"
    return {"-" + name for name in names}


def help_options():
    return set(re.findall(r"(?<![\w-])-[A-Za-z][A-Za-z0-9]*", (SOURCE / "app/help.cpp").read_text()))


def test_manual_page_documents_exactly_the_parsers_options():
    on_page = items(section("OPTIONS")) | items(section("OPTIONS FOR INSTALLERS"))
    assert on_page == parser_options() | HELP_SPELLINGS


def test_options_section_holds_what_the_help_text_shows():
    assert items(section("OPTIONS")) == DOCUMENTED | HELP_SPELLINGS
    assert DOCUMENTED <= help_options()


def test_options_for_installers_are_not_in_the_help_text():
    hidden = items(section("OPTIONS FOR INSTALLERS"))
    assert hidden and not hidden & help_options()


@pytest.mark.parametrize("name", ["keltconfig.bash", "_keltconfig"])
def test_completion_offers_the_documented_options_and_no_others(name):
    text = (SOURCE / "packaging/completion" / name).read_text()
    offered = set(re.findall(r"(?<![\w-])-(?:CustomProps[1-4]|nostart|[mdzeUPu])(?![\w-])", text))
    assert offered == DOCUMENTED
    assert not re.search(r"-(start|stop|checkHF|conflictList|version|k)\b", text)


def test_statuses_of_the_page_are_those_of_the_console_table():
    on_page = re.findall(r"^\.It (\d+)$", section("EXIT STATUS"), re.M)
    table = re.findall(r"^\| (\d+) \|", (SOURCE / "docs/console.md").read_text(), re.M)
    assert on_page == table and len(table) == 20


def test_every_console_text_has_a_diagnostic():
    diagnostics = section("DIAGNOSTICS").replace("\\ ", " ").replace("\\e", "\\").replace("...", "…")
    table = re.findall(r'^\| "(.+?)" \| (?!Help)', (SOURCE / "docs/console.md").read_text(), re.M)
    missing = [text for text in table
               if text not in (" OK", " ERROR", "4.6.0.2545", "Initializing CURL...") and
               text.replace("...", "…") not in diagnostics]
    assert missing == []


@pytest.mark.parametrize("page", ["keltconfig.8", "keltcheck.8"])
@pytest.mark.parametrize("command", [["mandoc", "-Tlint"], ["groff", "-ww", "-mdoc", "-Tutf8", "-z"]])
def test_manual_page_has_no_formatting_fault(command, page):
    done = subprocess.run([*command, SOURCE / "packaging" / page], capture_output=True, text=True)
    assert (done.returncode, done.stdout, done.stderr) == (0, "", "")


# The drawing of the targets.

DRAW = SOURCE / "scripts/draw-architecture"


def test_the_drawing_is_that_of_the_build():
    done = subprocess.run([DRAW, "--check"], capture_output=True, text=True)
    assert (done.returncode, done.stderr) == (0, "")


def test_a_drawing_of_other_targets_is_found_out(tmp_path):
    dot = tmp_path / "targets.dot"
    subprocess.run(["cmake", "-S", SOURCE, "-B", tmp_path / "build", f"--graphviz={dot}", "-DKELT_BUILD_TESTS=OFF"],
                   check=True, stdout=subprocess.DEVNULL)

    def checked():
        return subprocess.run([DRAW, "--check", "--graph", dot], capture_output=True, text=True).returncode

    graph = dot.read_text()
    assert checked() == 0
    one_more = '"new" [ label = "kelt_new", shape = octagon ];\n"new" -> "node0"\n}'
    dot.write_text(graph.rstrip().removesuffix("}") + one_more)
    assert checked() == 1
    node = re.search(r'"(\w+)" \[ label = "kelt_modes', graph).group(1)
    dot.write_text(re.sub(rf'^ *"{node}" -> .*\n', "", graph, flags=re.M))
    assert checked() == 1


# keltcheck

CHECK_PAGE = (SOURCE / "packaging/keltcheck.8").read_text()
CHECK_SOURCES = "".join(path.read_text() for path in sorted((SOURCE / "check").glob("*.cpp")))


def check_options():
    return set(re.findall(r'option\{"([a-z]+)"', (SOURCE / "check/options.cpp").read_text()))


def test_options_of_keltcheck_are_those_of_its_page_its_help_and_its_completions():
    options = check_options()
    assert len(options) == 7
    described = re.search(r"^\.Sh OPTIONS\n(.*?)(?=^\.Sh )", CHECK_PAGE, re.M | re.S).group(1)
    assert set(re.findall(r"^\.It Fl -(\w+)", described, re.M)) == options
    source = (SOURCE / "check/options.cpp").read_text()
    assert set(re.findall(r"(?<![\w-])--([a-z]+)", source[source.index("usage:"):])) == options
    for name in ("keltcheck.bash", "_keltcheck"):
        assert set(re.findall(r"--([a-z]+)", (SOURCE / "packaging/completion" / name).read_text())) == options


def identifiers():
    groups = "config|command|directory|room|mode|key|trace|install|source|server|run"
    return set(re.findall(rf'"((?:{groups})\.[a-z0-9-]+)"', CHECK_SOURCES))


def test_groups_of_identifiers_are_on_the_page():
    listed = re.search(r"is its group\.\n(.*?)^\.Pp", CHECK_PAGE, re.M | re.S).group(1)
    assert set(re.findall(r"^\.It (\w+)$", listed, re.M)) == {name.split(".")[0] for name in identifiers()}


def test_identifiers_are_on_the_page():
    listed = re.findall(r"^\.It (\w+\.[\w-]+)$", CHECK_PAGE, re.M)
    assert set(listed) == identifiers() and len(listed) == len(identifiers()) >= 40


def test_facts_are_in_the_schema_and_on_the_page():
    schema = json.loads((SOURCE / "packaging/keltcheck.schema.json").read_text())
    properties = schema["properties"]["facts"]["properties"]
    told = set(re.findall(r'takeFact\("(\w+)"', CHECK_SOURCES))
    assert told == (set(properties) - {"versions"}) | set(properties["versions"]["properties"])
    assert all(f".Ql {name}" in CHECK_PAGE for name in properties)


def test_page_names_the_states_and_the_exit_statuses():
    assert re.findall(r"^\.It (\d)$", CHECK_PAGE, re.M) == ["0", "1", "2", "3"]
    for state in ("problem", "warning", "unknown", "ok"):
        assert re.search(rf"^\.It {state}$", CHECK_PAGE, re.M)
