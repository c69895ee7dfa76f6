"""The table of all devices."""

import csv
import io
import re

from ansible_collections.kelt.fleet.plugins.plugin_utils.report import as_csv, as_html, counts, ordered, row, write

FINDING = {"id": "a.b", "state": "warning", "fact": "It is so.", "remedy": "Do this."}


def result(verdict="ok", findings=(), **facts):
    return {"msg": "done", "keltcheck": {"verdict": verdict, "summary": "", "facts": facts, "findings": list(findings)}}


def test_a_row_has_mode_servers_key_versions_verdict_and_remedy():
    facts = dict(mode="managed", servers=["192.0.2.10"], server_key_sha256="AB", agent_version="5", versions={"keltcheck": "4"})
    assert row("d", "ok", result("warning", [FINDING], **facts)) == {
        "device": "d", "state": "warning", "mode": "managed", "servers": ["192.0.2.10"], "key": "AB", "agent": "5", "tool": "4",
        "verdict": "warning", "message": ["It is so."], "remedy": ["Do this."],
    }


def test_a_key_that_is_left_in_an_unmanaged_device_is_no_servers():
    assert row("d", "ok", result(mode="unmanaged", server_key_sha256="AB"))["key"] == ""


def test_what_is_said_is_in_one_line_and_without_the_name_of_its_device():
    assert row("d", "failed", {"msg": "d: it says\r\n  this "})["message"] == ["it says this"]


def test_problems_come_first_and_names_in_the_order_of_their_numbers():
    rows = [row(*each) for each in (("d10", "ok"), ("d9", "ok"), ("a", "changed"), ("z", "unreachable"), ("y", "failed"))]
    assert [one["device"] for one in ordered(rows)] == ["y", "z", "a", "d9", "d10"]
    assert counts(rows) == [("failed", 1), ("unreachable", 1), ("changed", 1), ("ok", 2)]


def test_a_device_that_was_not_tried_says_what_to_do():
    assert "run this again" in row("d", "untried")["remedy"][0]


def test_no_cell_of_the_csv_is_a_formula():
    cells = list(csv.reader(io.StringIO(as_csv([row("d", "failed", {"msg": '=HYPERLINK("x")'})]))))
    assert cells[1][8] == "'=HYPERLINK(\"x\")"


def test_what_a_device_says_is_text_on_the_page():
    page = as_html([row("d", "failed", {"msg": "<script>alert(1)</script>"})], "t", "now")
    assert "&lt;script&gt;alert(1)" in page and "<script>alert" not in page


def test_the_page_refers_to_nothing_outside_of_it():
    page = as_html([row("d", "ok", result())], "t", "now")
    assert not re.search(r"(src|href)=|@import|url\(", page)
    assert "default-src 'none'" in page


def test_files_are_replaced_and_nothing_else_is_left(tmp_path):
    for _ in range(2):
        paths = write(str(tmp_path / "new"), [row("d", "ok", result())], "t", "now")
    assert sorted(path.name for path in (tmp_path / "new").iterdir()) == ["report.csv", "report.html"]
    assert paths[-1].endswith("report.html")
