"""The report as a browser shows it: at 20 and at 1 000 devices, on a phone, in the dark, by keyboard."""

import sys

import pytest
from PIL import Image

from browser import Browser
from fleet import COLLECTION

sys.path.insert(0, str(COLLECTION / "plugins/plugin_utils"))
import report  # noqa: E402  (it needs nothing of Ansible)

LONG = "StartCommand: examine /opt/Quorvane/orv/bin/a-program-with-a-long-name: No such file or directory, so that it is not started."


def result(verdict, mode, servers, findings=()):
    facts = {"mode": mode, "servers": servers, "agent_version": "5.7.8", "versions": {"keltcheck": "4.6.0.2545"}}
    if mode == "managed":
        facts["server_key_sha256"] = "AB" * 32
    return {"msg": f"done: {mode}", "keltcheck": {"verdict": verdict, "summary": mode, "facts": facts, "findings": list(findings)}}


def rows(count):
    """Of each 20 devices one has failed, one is not reached, one has a warning, and the rest is well."""
    finding = {"id": "command.start", "state": "problem", "fact": LONG, "remedy": "Install the program."}
    found = []
    for number in range(1, count + 1):
        name = f"site{number % 7}-device{number:04}.example.net"
        if number % 20 == 7:
            found.append(report.row(name, "failed", result("problem", "unmanaged", [], [finding]) | {"msg": f"{name}: {LONG}"}))
        elif number % 20 == 8:
            found.append(report.row(name, "unreachable", {"msg": "Connection refused"}))
        elif number % 20 == 9:
            found.append(report.row(name, "ok", result("warning", "managed", ["192.0.2.10"] * 5, [dict(finding, state="warning")])))
        else:
            found.append(report.row(name, "changed" if number % 2 else "ok", result("ok", "managed", ["192.0.2.10"])))
    return found


@pytest.fixture(scope="module")
def browser(tmp_path_factory):
    browser = Browser(tmp_path_factory.mktemp("browser") / "log")
    yield browser
    browser.close()


@pytest.fixture
def shown(tmp_path, browser):
    """shown(count, ...): the page for so many devices, as Browser.open gives it."""

    def show(count, **how):
        path = tmp_path / "report.html"
        path.write_text(report.as_html(report.ordered(rows(count)), "managed", "now"))
        return browser.open(path, **how)

    return show


NAMES = "[...document.querySelectorAll('tbody tr')].filter((row) => !row.hidden).map((row) => row.cells[0].textContent)"


@pytest.mark.parametrize("count", [20, 1000])
def test_all_devices_are_shown_with_problems_first_and_counts_at_the_top(shown, count):
    with shown(count) as page:
        found = page.ask(f"""
            return {{shown: document.getElementById("shown").textContent,
                     tiles: [...document.querySelectorAll(".tile")].map((tile) => tile.textContent),
                     first: {NAMES}[0], states: [...document.querySelectorAll("tbody tr")].map((row) => row.dataset.state)}}""")
    share = count // 20
    assert found["shown"] == f"All {count} devices"
    assert found["tiles"][:3] == [f"{share}failed", f"{share}unreachable", f"{share}warning"]
    assert found["first"] == "site0-device0007.example.net"
    assert found["states"] == sorted(found["states"], key=report.STATES.index)


@pytest.mark.parametrize("count", [20, 1000])
def test_it_asks_for_nothing_but_itself_and_its_policy_forbids_none_of_it(shown, count):
    with shown(count) as page:
        assert [address.rpartition("/")[2] for address in page.asked_for()] == ["report.html"]
        assert page.complaints() == []


def test_it_is_filtered_by_words_and_by_a_count_and_escape_shows_all_again(shown):
    with shown(20) as page:
        page.press("/")
        page.type("device0007")
        assert page.ask("return [document.activeElement.id, filter.value]") == ["filter", "device0007"]
        assert page.ask(f"return {NAMES}") == ["site0-device0007.example.net"]
        page.press("Escape")
        assert len(page.ask(f"return {NAMES}")) == 20
        page.ask("document.querySelector('.tile.unreachable').click()")
        assert page.ask(f"return {NAMES}") == ["site1-device0008.example.net"]
        assert page.ask("return shown.textContent") == "1 of 20 devices"


def test_it_is_sorted_by_each_heading_in_both_directions(shown):
    with shown(20) as page:
        for column in range(page.ask("return headers.length")):
            keys = f"return [...document.querySelectorAll('tbody tr')].map((row) => rows.find((one) => one.row === row).keys[{column}])"
            heading = f"document.querySelectorAll('thead th')[{column}]"
            directions = {}
            for _ in range(2):
                page.ask(f"{heading}.firstElementChild.click()")
                directions[page.ask(f"return {heading}.getAttribute('aria-sort')")] = page.ask(keys)
            assert directions["ascending"] == directions["descending"][::-1] and len(directions) == 2
            assert page.ask("return document.querySelectorAll('th[aria-sort]').length") == 1
        page.ask(f"{heading.replace(str(column), '0')}.firstElementChild.click()")
        names = page.ask(f"return {NAMES}")
        assert names == sorted(names)


def test_all_of_it_is_done_by_keyboard_alone(shown):
    with shown(20) as page:
        focused = "document.activeElement"
        page.press("Tab")
        assert page.ask(f"return {focused}.className") == "tile failed"
        assert page.ask(f"return getComputedStyle({focused}).outlineStyle") == "solid", "one sees where one is"
        page.press("Enter")
        assert page.ask("return shown.textContent") == "1 of 20 devices"
        page.press("Enter")
        reached = []
        while (name := page.ask(f"return {focused}.id || {focused}.textContent")) not in reached:
            reached.append(name)
            page.press("Tab")
        assert [name for name in reached if name in report.TITLES] == list(report.TITLES)
        assert "filter" in reached
        page.press("/")
        page.press("Tab")
        page.press("Enter")
        assert page.ask("return document.querySelector('th[aria-sort]').textContent") == report.TITLES[0]
        assert page.ask(f"return {NAMES}") == sorted(page.ask(f"return {NAMES}"))


@pytest.mark.parametrize("count", [20, 1000])
def test_a_phone_shows_it_without_scrolling_sideways(shown, tmp_path, count):
    with shown(count, width=390, height=844, phone=True) as page:
        assert page.ask("return [innerWidth, document.documentElement.scrollWidth]") == [390, 390]
        assert page.ask("return getComputedStyle(document.querySelector('tbody tr')).display") == "block"
        wide = "return [...document.querySelectorAll('tbody td, tbody th')].filter((cell) => cell.getBoundingClientRect().right > 390).length"
        assert page.ask(wide) == 0
        small = "return [...document.querySelectorAll('.tile, input, select')].filter((one) => one.offsetHeight && one.offsetHeight < 32).length"
        assert page.ask(small) == 0, "a finger is broad"


@pytest.mark.parametrize("dark, ground", [(False, (0xF6, 0xF7, 0xF9)), (True, (0x12, 0x16, 0x1C))], ids=["light", "dark"])
@pytest.mark.parametrize("count", [20, 1000])
def test_a_picture_of_it_has_its_colours_by_day_and_by_night(shown, tmp_path, count, dark, ground):
    with shown(count, width=600, height=400, dark=dark) as page:
        page.picture(tmp_path / "picture.png")
    picture = Image.open(tmp_path / "picture.png").convert("RGB")
    assert picture.size == (600, 400)
    colours = {colour: count for count, colour in picture.getcolors(600 * 400)}
    assert colours.get(ground, 0) > 600 * 400 // 10
    assert len(colours) > 50, "there is text on it"


# Of what is read, against what it stands on; 4.5 is what the guidelines for accessible pages ask for (WCAG 2, AA).
CONTRAST = """
const part = (value) => (value /= 255) <= 0.03928 ? value / 12.92 : ((value + 0.055) / 1.055) ** 2.4;
const light = (colour) => [0.2126, 0.7152, 0.0722].reduce((sum, weight, i) => sum + weight * part(colour[i]), 0);
const colour = (text) => text.match(/[0-9.]+/g).map(Number);
const ground = (one) => { while (one) { const found = colour(getComputedStyle(one).backgroundColor); if (found[3] !== 0) return found; one = one.parentElement; } };
return [...document.querySelectorAll(".state, .tile b, .tile span, h1, .when, thead button, td p, code, tbody th, .quiet, output")]
  .map((one) => { const [a, b] = [light(colour(getComputedStyle(one).color)), light(ground(one))];
                  return [one.className || one.tagName, (Math.max(a, b) + 0.05) / (Math.min(a, b) + 0.05)]; })
  .filter((found) => !(found[1] >= 4.5))
"""


@pytest.mark.parametrize("dark", [False, True], ids=["light", "dark"])
def test_all_text_stands_out_from_its_ground(shown, dark):
    with shown(20, dark=dark) as page:
        assert page.ask(CONTRAST) == []
