"""The report as a browser shows it: at 20 and at 1 000 devices, on a phone, in the dark, by keyboard."""

import html
import json
import re
import subprocess
import sys

import pytest
from PIL import Image

from device import PATIENCE
from fleet import COLLECTION

sys.path.insert(0, str(COLLECTION / "plugins/plugin_utils"))
import report  # noqa: E402  (it needs nothing of Ansible)

DARK = ["--force-dark-mode", "--blink-settings=preferredColorScheme=0"]
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


def browse(tmp_path, *options):
    quiet = ["--no-first-run", "--disable-background-networking", "--disable-component-update", "--disable-sync"]
    shown = ["--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage", "--hide-scrollbars"]
    command = ["setpriv", "--pdeathsig", "KILL", "chromium", *shown, *quiet, f"--user-data-dir={tmp_path}/browser"]
    environment = {"HOME": str(tmp_path), "PATH": "/usr/bin:/bin", "XDG_RUNTIME_DIR": str(tmp_path)}
    done = subprocess.run([*command, *options], capture_output=True, text=True, timeout=PATIENCE, env=environment)
    assert done.returncode == 0, done.stderr[-2000:]
    return done.stdout


def asked(tmp_path, count, script, *options):
    """What a script that runs on the page comes to."""
    page = report.as_html(report.ordered(rows(count)), "managed", "now")
    answer = f'<script>document.title = JSON.stringify((() => {{ {script} }})());</script></body>'
    (tmp_path / "page.html").write_text(page.replace("</body>", answer))
    shown = browse(tmp_path, "--dump-dom", *options, (tmp_path / "page.html").as_uri())
    return json.loads(html.unescape(re.search(r"<title>(.*?)</title>", shown, re.S).group(1)))


NAMES = "[...document.querySelectorAll('tbody tr')].filter((row) => !row.hidden).map((row) => row.cells[0].textContent)"


@pytest.mark.parametrize("count", [20, 1000])
def test_all_devices_are_shown_with_problems_first_and_counts_at_the_top(tmp_path, count):
    found = asked(tmp_path, count, f"""
        return {{shown: document.getElementById("shown").textContent,
                 tiles: [...document.querySelectorAll(".tile")].map((tile) => tile.textContent),
                 first: {NAMES}[0], states: [...document.querySelectorAll("tbody tr")].map((row) => row.dataset.state)}}""")
    share = count // 20
    assert found["shown"] == f"All {count} devices"
    assert found["tiles"][:3] == [f"{share}failed", f"{share}unreachable", f"{share}warning"]
    assert found["states"] == sorted(found["states"], key=report.STATES.index)


def test_it_is_filtered_by_words_and_by_a_count_and_escape_shows_all_again(tmp_path):
    found = asked(tmp_path, 20, f"""
        const key = (name) => document.dispatchEvent(new KeyboardEvent("keydown", {{key: name, cancelable: true, bubbles: true}}));
        const seen = {{}};
        key("/");
        seen.focus = document.activeElement.id;
        filter.value = "device0007";
        filter.dispatchEvent(new Event("input"));
        seen.word = {NAMES};
        key("Escape");
        seen.all = {NAMES}.length;
        document.querySelector(".tile.unreachable").click();
        seen.tile = {NAMES};
        seen.told = shown.textContent;
        seen.pressed = document.querySelector(".tile.unreachable").getAttribute("aria-pressed");
        return seen""")
    assert found == {"focus": "filter", "word": ["site0-device0007.example.net"], "all": 20, "tile": ["site1-device0008.example.net"],
                     "told": "1 of 20 devices", "pressed": "true"}


def test_it_is_sorted_by_each_heading_in_both_directions(tmp_path):
    found = asked(tmp_path, 20, f"""
        const heading = document.querySelector("thead th"), seen = {{}};
        heading.firstElementChild.click();
        seen.up = {NAMES}; seen.told = heading.getAttribute("aria-sort");
        heading.firstElementChild.click();
        seen.down = {NAMES};
        return seen""")
    assert found["up"] == sorted(found["up"]) and found["down"] == found["up"][::-1] and found["told"] == "ascending"


def test_everything_that_can_be_clicked_can_be_reached_by_the_keyboard(tmp_path):
    found = asked(tmp_path, 20, """
        return [...document.querySelectorAll(".tile, thead th > *, input, select")].map((one) => [one.tagName, one.tabIndex])""")
    assert len(found) > 10
    assert {name for name, _ in found} == {"BUTTON", "INPUT", "SELECT"} and {index for _, index in found} == {0}


@pytest.mark.parametrize("count", [20, 1000])
def test_a_phone_shows_it_without_scrolling_sideways(tmp_path, count):
    """In a frame of a phone's width, as a window cannot be so narrow."""
    page = report.as_html(report.ordered(rows(count)), "managed", "now")
    (tmp_path / "page.html").write_text(f"""<!DOCTYPE html><title></title>
<iframe style="width: 390px; height: 844px; border: 0" srcdoc="{html.escape(page)}"
 onload="const inside = this.contentDocument; document.title = JSON.stringify([inside.documentElement.scrollWidth,
 inside.defaultView.getComputedStyle(inside.querySelector('tbody tr')).display])"></iframe>""")
    shown = browse(tmp_path, "--dump-dom", "--virtual-time-budget=60000", (tmp_path / "page.html").as_uri())
    width, display = json.loads(html.unescape(re.search(r"<title>(.*?)</title>", shown).group(1)))
    assert width <= 390 and display == "block"


@pytest.mark.parametrize("options, ground", [([], (0xF6, 0xF7, 0xF9)), (DARK, (0x12, 0x16, 0x1C))], ids=["light", "dark"])
@pytest.mark.parametrize("count", [20, 1000])
def test_a_picture_of_it_has_its_colours_by_day_and_by_night(tmp_path, count, options, ground):
    (tmp_path / "page.html").write_text(report.as_html(report.ordered(rows(count)), "managed", "now"))
    picture = tmp_path / "picture.png"
    browse(tmp_path, "--window-size=600,400", f"--screenshot={picture}", *options, (tmp_path / "page.html").as_uri())
    colours = {colour: count for count, colour in Image.open(picture).convert("RGB").getcolors(600 * 400)}
    assert colours.get(ground, 0) > 600 * 400 // 10
    assert len(colours) > 50, "there is text on it"
