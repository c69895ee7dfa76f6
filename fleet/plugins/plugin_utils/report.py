"""The table of all devices after a run: its rows, and how they are written as CSV and HTML."""

from __future__ import absolute_import, division, print_function

__metaclass__ = type

import csv
import io
import os
import re
import tempfile

import jinja2

# What a row can say first, the worst first.
STATES = ("failed", "unreachable", "problem", "untried", "unknown", "warning", "changed", "ok")
TEMPLATE = os.path.join(os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__)))), "templates")
COLUMNS = ("device", "state", "mode", "servers", "key", "agent", "tool", "verdict", "message", "remedy")
# Of the page, where the last two share one.
TITLES = ("Device", "State", "Mode", "Servers", "Server key", "Agent", "keltconfig", "keltcheck", "What is the case")
LABELS = dict((state, state) for state in STATES)
LABELS["untried"] = "not tried"
REMEDIES = {
    "unreachable": "See that the device is on and can be reached by ssh, and run this again.",
    "untried": "An earlier batch stopped the run. Put right what failed there, and run this again.",
}


def row(device, state, result=None):
    """What is known of a device, from the last result that speaks of it."""
    result = result or {}
    check = result.get("keltcheck", {})
    facts = check.get("facts", {})
    findings = check.get("findings", [])
    if state in ("ok", "changed") and check.get("verdict", "ok") != "ok":
        state = check["verdict"]
    told = state in ("problem", "warning", "unknown")
    said = [finding["fact"] for finding in findings] if told and findings else [result.get("msg", "")]
    remedies = [finding["remedy"] for finding in findings if finding.get("remedy")]
    return {
        "device": device,
        "state": state,
        "mode": facts.get("mode", ""),
        "servers": facts.get("servers", []),
        "key": facts.get("server_key_sha256", "") if facts.get("mode") == "managed" else "",
        "agent": facts.get("agent_version", ""),
        "tool": facts.get("versions", {}).get("keltcheck", ""),
        "verdict": check.get("verdict", ""),
        "message": without_name(device, said),
        "remedy": unique([REMEDIES[state]] if state in REMEDIES else remedies or remedy_of(result)),
    }


def without_name(device, sentences):
    """Each in one line, as what ssh says has several."""
    start = "%s: " % device
    lines = [" ".join(text.split()) for text in sentences]
    return unique(line[len(start):] if line.startswith(start) else line for line in lines if line)


def remedy_of(result):
    return [] if not result.get("remedy") else [result["remedy"]]


def unique(texts):
    found = []
    for text in texts:
        if text not in found:
            found.append(text)
    return found


def natural(name):
    """A key that sorts device9 before device10."""
    return [(0, int(part), "") if part.isdigit() else (1, 0, part) for part in re.split(r"(\d+)", name) if part]


def ordered(rows):
    """Problems first."""
    return sorted(rows, key=lambda one: (STATES.index(one["state"]), natural(one["device"])))


def counts(rows):
    """How many devices are in each state, those that there are."""
    found = [(state, sum(1 for one in rows if one["state"] == state)) for state in STATES]
    return [(state, count) for state, count in found if count]


def harmless(text):
    """A cell that no spreadsheet takes for a formula."""
    return "'" + text if text[:1] in ("=", "+", "-", "@", "\t", "\r") else text


def as_csv(rows):
    memory = io.StringIO()
    writer = csv.writer(memory)
    writer.writerow(COLUMNS)
    for one in rows:
        cells = [one[name] for name in COLUMNS]
        writer.writerow([harmless(" ".join(cell) if isinstance(cell, list) else cell) for cell in cells])
    return memory.getvalue()


def as_html(rows, title, when):
    loader = jinja2.FileSystemLoader(TEMPLATE)
    environment = jinja2.Environment(loader=loader, autoescape=True, trim_blocks=True, lstrip_blocks=True)
    environment.filters["natural"] = lambda name: "".join(
        "%012d" % number if kind == 0 else part for kind, number, part in natural(name)
    )
    page = environment.get_template("report.html.j2")
    return page.render(
        rows=rows, counts=counts(rows), titles=TITLES, states=STATES, labels=LABELS, title=title, when=when
    )


def write(directory, rows, title, when):
    """Writes report.csv and report.html, each replaced as a whole; the paths."""
    os.makedirs(directory, exist_ok=True)
    rows = ordered(rows)
    paths = []
    for name, content in (("report.csv", as_csv(rows)), ("report.html", as_html(rows, title, when))):
        paths.append(os.path.join(directory, name))
        replace(paths[-1], content)
    return paths


def replace(path, content):
    handle, temporary = tempfile.mkstemp(dir=os.path.dirname(path), prefix=".report-")
    try:
        with os.fdopen(handle, "w", encoding="utf-8", errors="replace", newline="") as file:
            file.write(content)
        mask = os.umask(0)
        os.umask(mask)
        os.chmod(temporary, 0o666 & ~mask)
        os.rename(temporary, path)
    except BaseException:
        os.unlink(temporary)
        raise
