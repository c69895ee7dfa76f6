"""The record of what a run did to files: what strace saw of its calls that change some."""

import re

CALLS = "open openat creat close dup dup2 dup3 fcntl write writev pwrite64 pwritev ftruncate truncate fallocate sendfile"
CALLS += " copy_file_range splice fsync fdatasync sync syncfs rename renameat renameat2 link linkat symlink symlinkat unlink"
CALLS += " unlinkat rmdir mkdir mkdirat mknod mknodat chmod fchmod fchmodat chown fchown lchown fchownat"
TRACE = f"strace -y -xx -s 1000000 -o /run/trace -e trace={CALLS.replace(' ', ',')}"

LINE = re.compile(r"^(\w+)\((.*)\)\s+= (-?\d+)")
WORD = re.compile(r'\s*("(?:[^"]*)"(?:\.\.\.)?|[^,\[{]+|\[[^\]]*\]|\{[^}]*\})\s*(?:,|$)')
ESCAPE = re.compile(r"\\x([0-9a-f]{2})")


def bytes_of(text):
    """What strace shows as \\xNN, each byte of it."""
    return bytes(int(digits, 16) for digits in ESCAPE.findall(text))


def words(arguments):
    """The arguments of a call, as strace shows them."""
    return WORD.findall(arguments)


def number(word):
    """A descriptor, which strace shows with the path after it."""
    return int(word.split("<")[0])


def record(trace):
    """The calls in what TRACE has written: (name, arguments, result)."""
    found = [LINE.match(line) for line in trace.decode().splitlines()]
    return [(match[1], match[2], int(match[3])) for match in found if match]
