"""The meanings of exit statuses."""

import pathlib
import re

import pytest
from ansible_collections.kelt.fleet.plugins.plugin_utils.statuses import STATUSES, meaning

DOCUMENT = pathlib.Path(__file__).resolve().parents[5] / "docs/console.md"


@pytest.mark.skipif(not DOCUMENT.exists(), reason="only in keltconfig's own tree")
def test_statuses_are_those_of_the_document():
    rows = re.findall(r"^\| (\d+) \| (.+?) \| (.+) \|$", DOCUMENT.read_text(), re.M)
    assert {int(number): (cause, remedy) for number, cause, remedy in rows} == STATUSES


def test_what_a_shell_makes_of_it_has_a_meaning_too():
    assert "not installed" in meaning(127)[0]
    assert "signal 9" in meaning(137)[0]
    assert "not known" in meaning(99)[0]
