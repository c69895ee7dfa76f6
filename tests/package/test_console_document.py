"""docs/console.md is complete: every text that the sources print is in its tables."""
import re
from pathlib import Path

SOURCE = Path(__file__).resolve().parents[2]
FOLDERS = ("app", "base", "helper", "keys", "modes", "platform", "provision")
LITERAL = r'L?"((?:[^"\\]|\\.)*)"'


def documented():
    rows = re.findall(r'^\| "(.+)" \| ', (SOURCE / "docs/console.md").read_text(), re.M)
    return [re.sub(r'" \| .*', "", row) for row in rows]


def literals(text):
    """The string literals of C++ source, adjacent ones joined, in the spelling of the document."""
    text = re.sub(r"//[^\n]*|^#[^\n]*", "", text, flags=re.M)
    for run in re.finditer(rf"(?:{LITERAL}\s*)+", text):
        joined = "".join(re.findall(LITERAL, run.group(0)))
        for line in joined.split("\\n"):
            yield line.replace('\\"', '"').replace("\\\\", "\\")


def printed():
    files = [path for folder in FOLDERS for path in sorted((SOURCE / folder).rglob("messages.h"))]
    files.append(SOURCE / "app/help.cpp")
    return [(path.relative_to(SOURCE), line) for path in files
            for line in literals(path.read_text()) if line.strip()]


def test_every_text_of_the_sources_is_in_the_table():
    texts = printed()
    assert len(texts) > 60, "the texts were not found in the sources"
    table = documented()
    missing = [(str(path), text) for path, text in texts if not any(text in row for row in table)]
    assert missing == []


def test_every_row_of_the_table_is_a_text_of_the_sources():
    sources = {text for _, text in printed()}
    unknown = []
    for row in documented():
        rest = row
        for text in sorted(sources, key=len, reverse=True):
            rest = rest.replace(text, "")
        if rest.replace("…", "").strip(", "):
            unknown.append(row)
    assert unknown == []


def test_no_text_is_printed_that_stands_outside_the_message_headers():
    stray = []
    for folder in FOLDERS:
        for path in sorted((SOURCE / folder).rglob("*.cpp")):
            found = re.findall(r'\bprint(?:Line|ErrorLine)?\(\s*L?"(?!\\n")[^"]*"', path.read_text())
            stray += [(str(path.relative_to(SOURCE)), text) for text in found]
    assert stray == []
