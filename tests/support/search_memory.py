"""Looks for pieces of words in all the memory of a process, as its parent or as root.

    search_memory.py PID WORDS RESULT

WORDS and RESULT are JSON files. WORDS gives each word, as text, a name; RESULT gives each name the places where a piece of
that word stands, with the form that it has there. RESULT is written last and as a whole: a search that fails leaves none.
"""

import base64
import json
import os
import pathlib
import re
import sys

# Shorter pieces stand in any program by chance; longer ones would miss what the memory manager wrote over in part.
PIECE = 6
# Any piece holds one of these short ones, which begin every third character of the word; what is around it is then compared.
ANCHOR, STRIDE = 4, 3
# The kernel's own; what they hold is no memory of the process.
KERNELS = ("[vvar]", "[vvar_vclock]", "[vdso]", "[vsyscall]", "[vectors]")
MAPPING = re.compile(r"([0-9a-f]+)-([0-9a-f]+) (....) \S+ \S+ \S+ *(.*)")


def mappings(pid):
    """What the process can read: from where to where, and its name. A file that is mapped and has no page changed is left
    out: it holds what the file holds."""
    found = []
    for line in pathlib.Path(f"/proc/{pid}/smaps").read_text().splitlines():
        if mapping := MAPPING.fullmatch(line):
            start, end, access, name = mapping.groups()
            wanted = access[0] == "r" and name not in KERNELS
        elif wanted and line.startswith("Anonymous:"):
            if not name.startswith("/") or int(line.split()[1]) > 0:
                found.append((int(start, 16), int(end, 16), name or "anonymous"))
    return found


def matched(content, word, at, offset):
    """The piece of `word` around its character `offset`, which stands at `at`."""
    first, last = offset, offset
    while first > 0 and at - (offset - first) > 0 and content[at - (offset - first) - 1] == word[first - 1]:
        first -= 1
    while last < len(word) and at + last - offset < len(content) and content[at + last - offset] == word[last]:
        last += 1
    return word[first:last]


def pieces_in(content, word):
    """The pieces of `word` in `content`, each with its place."""
    for offset in range(0, len(word) - ANCHOR + 1, STRIDE):
        anchor = word[offset : offset + ANCHOR]
        at = content.find(anchor)
        while at >= 0:
            piece = matched(content, word, at, offset)
            if len(piece) >= PIECE:
                yield at, piece
            at = content.find(anchor, at + 1)


def coded(word):
    """The word as it stands within base64, for each place in a group of three bytes where it may begin."""
    for before, unsure in ((0, 0), (1, 2), (2, 3)):
        whole = base64.b64encode(b"u" * before + word)
        yield whole.rstrip(b"=")[unsure : None if (before + len(word)) % 3 == 0 else -1]


def places(content, word):
    for at, piece in pieces_in(content, word):
        yield at, "narrow", piece
    # The bytes of one significance of wide characters; the others are zero.
    for width in (2, 4):
        for first in range(width):
            for at, piece in pieces_in(content[first::width], word):
                yield at * width + first, "wide", piece
    for form in coded(word):
        for at, piece in pieces_in(content, form):
            yield at, "base64", piece


def read(memory, start, end, name):
    """All that stands there. Only a mapping that is longer than its file ends early."""
    content = b""
    while len(content) < end - start:
        try:
            content += os.pread(memory, end - start - len(content), start + len(content))
        except OSError:
            if not name.startswith("/"):
                raise
            break
    return content


def main():
    pid, words, result = sys.argv[1:]
    asked = json.loads(pathlib.Path(words).read_text())
    found = {name: set() for name in asked}
    memory = os.open(f"/proc/{pid}/mem", os.O_RDONLY)
    for start, end, where in mappings(pid):
        content = read(memory, start, end, where)
        for name, word in asked.items():
            for at, form, piece in places(content, word.encode()):
                found[name].add(f"{form} at {start + at:x} in {where}: {piece!r}")
    done = pathlib.Path(result + ".part")
    done.write_text(json.dumps({name: sorted(lines) for name, lines in found.items()}))
    done.rename(result)


if __name__ == "__main__":
    main()
