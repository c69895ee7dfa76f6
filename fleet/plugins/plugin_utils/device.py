"""The shell scripts that work on a device, and what they say.

A device has a POSIX shell, its ordinary utilities and keltconfig, nothing else. Each script is one command of ssh; files
and the password reach it by its standard input, so that they are on no command line. What it says is in frames: lines that
begin with a word that nobody else knows, each with the name of what follows. The last one is "end": without it the
connection broke, or the script was killed.
"""

from __future__ import absolute_import, division, print_function

__metaclass__ = type

import re
import secrets
import shlex
import string

from ansible_collections.kelt.fleet.plugins.plugin_utils.standing import SWITCH_AGAIN

PRELUDE = r"""
umask 077
PATH=$PATH:/usr/sbin:/usr/bin:/sbin:/bin
base=/run/keltconfig-fleet-
frame() { printf '\n%s %s\n' "$frame" "$*"; }
began() {
  began=
  read -r began 2>/dev/null <"/proc/$1/stat" || return 1
  set -- ${began##*) }
  shift 19
  began=$1
}
sweep() {
  for left in "$base"*; do
    [ -d "$left" ] && [ ! -L "$left" ] || continue
    id=${left#"$base"}
    began "${id%-*}" && [ "$began" = "${id#*-}" ] && continue
    rm -rf "$left" && frame swept "$left"
  done
}
properties() {
  for config in /etc/orv.d/*ZENTORAGENT*/config.xml; do
    [ -f "$config" ] || continue
    data=/opt/Quorvane/orv/scratch
    while IFS= read -r line || [ -n "$line" ]; do
      case $line in
        *"<FrameworkDataDirectory>"*"</FrameworkDataDirectory>"*)
          data=${line#*"<FrameworkDataDirectory>"}
          data=${data%%"</FrameworkDataDirectory>"*} ;;
      esac
    done <"$config"
    frame properties "${config%/config.xml}"
    [ ! -f "$data/CustomProps.xml" ] || dd if="$data/CustomProps.xml" bs=65536 count=1 2>/dev/null
  done
}
look() {
  frame check
  keltcheck --json "$@" 2>/dev/null </dev/null
  frame checked $?
  properties
}
[ "$(id -u)" = 0 ] || { frame refused "not root on the device; use become"; frame end; exit 0; }
"""

NEEDS_TOOL = r"""
for program in keltconfig keltcheck; do
  command -v "$program" >/dev/null || { frame refused "$program is not installed on the device"; frame end; exit 0; }
done
"""

WORKPLACE = r"""
began $$ || began=0
work=$base$$-$began
mkdir "$work" || { frame refused "no directory can be made below /run"; frame end; exit 0; }
trap 'rm -rf "$work"' EXIT
trap 'exit 129' HUP INT TERM PIPE
mkdir "$work/keys"
incomplete() { frame refused "the files did not arrive whole: $1"; frame end; exit 0; }
arrived() { [ "$(wc -c <"$work/keys/$1")" -eq "$2" ] || incomplete "$1"; }
take() { dd of="$work/keys/$1" bs=1 count="$2" 2>/dev/null; arrived "$1" "$2"; }
rest() { cat >"$work/keys/$1"; arrived "$1" "$2"; }
run() {
  step=$1
  shift
  "$@" >"$work/out" 2>&1
  status=$?
  frame "$step" $status
  dd if="$work/out" bs=65536 count=1 2>/dev/null
}
rehearse() {
  blocked=
  keltcheck --plain --source "$work/keys" >"$work/rehearsal" 2>/dev/null </dev/null
  while read -r state id text; do
    [ "$state" = problem ] || continue
    case " $1 " in *" ${id%:} "*) continue ;; esac
    case $text in *" Remedy: $2"*) continue ;; esac
    blocked=1
    frame problem
    printf '%s %s\n' "$id" "$text"
  done <"$work/rehearsal"
  [ ! "$blocked" ]
}
status=0
"""


# What stands for itself, to a shell and to its printf.
PLAIN = frozenset(bytearray(string.ascii_letters.encode() + string.digits.encode() + b" ,.:/_@+="))


def quoted_bytes(content):
    """A word of the shell that stands for these bytes, whatever they are. Line feeds at the end would be lost."""
    return '"$(printf %s)"' % shlex.quote("".join(chr(byte) if byte in PLAIN else "\\%03o" % byte for byte in bytearray(content)))


class Script:
    """A script for a device, and the frames of its answer."""

    def __init__(self, needs_tool=True):
        self.word = secrets.token_hex(8)
        self.lines = ["frame=%s" % self.word, PRELUDE, NEEDS_TOOL if needs_tool else ""]
        self.data = b""

    def add(self, *lines):
        self.lines += lines

    def text(self):
        return "\n".join([*self.lines, "frame end"])

    def frames(self, answer):
        """The answer as a list of (name, argument, text). Empty where it is not whole."""
        parts = re.split(r"^%s (\S+) ?(.*)$\n?" % self.word, answer, flags=re.M)
        found = [(parts[i], parts[i + 1].rstrip("\r"), parts[i + 2]) for i in range(1, len(parts) - 2, 3)]
        return found if found and found[-1][0] == "end" else []


def looking(server=None, sweep=True):
    """Tells how the device stands, and with `sweep` removes what a killed run has left."""
    script = Script()
    script.add("sweep" if sweep else ":")
    script.add("look%s" % (" --server " + shlex.quote(server) if server else ""))
    return script


def working(steps, files=None, answers=None, mended=(), rehearse=False, health=None):
    """Does the work: `steps` are pairs of a name and a command of the shell, each done if all before it ended with 0.

    files    name and content of what is to stand in the directory "$work/keys", the largest last
    answers  lines for the prompts of the first step; without, it has no input
    """
    script = Script()
    script.add(WORKPLACE)
    sending = list((files or {}).items())
    for index, (name, content) in enumerate(sending):
        script.add("%s %s %d" % ("rest" if index == len(sending) - 1 else "take", name, len(content)))
        script.data += content
    if answers:
        script.data += b"".join(answer + b"\n" for answer in answers)
    if rehearse:
        script.add("rehearse %s %s || status=blocked" % (shlex.quote(" ".join(mended)), shlex.quote(SWITCH_AGAIN)))
    for name, command in steps:
        stdin = "" if answers and name == steps[0][0] else " </dev/null"
        script.add('[ "$status" != 0 ] || run %s %s%s' % (name, command, stdin))
    if health:
        script.add('[ "$status" != 0 ] || run health sh -c %s </dev/null' % shlex.quote(health))
    script.add("look")
    return script


# Many a busybox has a dpkg of its own, which its shell takes before any other and which knows no architecture.
FINDS_PROGRAMS = """
place_of() {
  (IFS=:; for place in $PATH; do [ ! -x "$place/$1" ] || { echo "$place/$1"; exit 0; }; done; exit 1)
}
"""


def asking_for_packages():
    """Tells what the device is, and which of the ways to install a package it has."""
    script = Script(needs_tool=False)
    script.add(
        FINDS_PROGRAMS,
        'frame machine "$(uname -m)"',
        'dpkg=$(place_of dpkg) && architecture=$("$dpkg" --print-architecture 2>/dev/null) && frame way dpkg',
        "! place_of opkg >/dev/null || frame way opkg",
        "! command -v tar >/dev/null || frame way tar",
        'frame architecture "$architecture"',
        VERSION,
    )
    return script


def installing(name, content, command):
    """Installs a package; `command` has its path in "$package"."""
    script = Script(needs_tool=False)
    script.add("sweep", WORKPLACE, FINDS_PROGRAMS, "rest %s %d" % (shlex.quote(name), len(content)))
    # What it makes is for everybody on the device to read.
    script.add('package="$work/keys/"%s' % shlex.quote(name), "install_it() (umask 022; %s)" % command)
    script.add("run install install_it </dev/null", VERSION)
    script.data = content
    return script


VERSION = """
version=
! command -v keltcheck >/dev/null || version=$(keltconfig -version 2>/dev/null </dev/null | tail -n 1)
frame version "$version"
"""
