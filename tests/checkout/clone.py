"""Runs tests from a checkout at another place, in namespaces of its own, and looks whether they changed it.

    clone.py PLACE PROGRAM BINARY

Copies what tests need of this checkout, with the test program and the tool, to the directory PLACE, which is in memory and
only there for this process; makes it a repository; runs unit and end-to-end tests from there; ends with status 0 when they
passed and everything below PLACE is as before.
"""

import ctypes
import hashlib
import os
import pathlib
import shutil
import subprocess
import sys

SOURCE = pathlib.Path(__file__).resolve().parents[2]
PARTS = ["device", "tests/conftest.py", "tests/pytest.ini", "tests/support", "tests/e2e", "tests/data", "docs"]
UNIT = "--gtest_filter=Device.*:ReplaceFile.Makes*:ModuleLoader.*"
END_TO_END = ["test_enter.py", "test_golden.py", "test_command_line.py::test_an_empty_argument_ends_the_command_line"]
GIT = ["git", "-c", "user.name=nobody", "-c", "user.email=nobody", "-c", "init.defaultBranch=main"]


def mount_memory(directory):
    libc = ctypes.CDLL(None, use_errno=True)
    if libc.mount(b"memory", os.fsencode(directory), b"tmpfs", 0, b"mode=755") != 0:
        sys.exit(f"cannot mount on {directory}: {os.strerror(ctypes.get_errno())}")


def copy(source, target):
    target.parent.mkdir(parents=True, exist_ok=True)
    if source.is_dir():
        shutil.copytree(source, target, symlinks=True)
    else:
        shutil.copy2(source, target)


def make_clone(place, program, binary):
    """Where all of it comes from may be what the place in memory covers; open directories stay what they are."""
    opened = {path: os.open(path, os.O_PATH) for path in {SOURCE, program.parent, binary.parent}}
    open_path = {path: pathlib.Path(f"/proc/self/fd/{fd}") for path, fd in opened.items()}
    for top in {"/tmp", "/" + place.parts[1]}:
        mount_memory(top)
    os.chmod("/tmp", 0o1777)
    for part in PARTS:
        copy(open_path[SOURCE] / part, place / part)
    build = place / "build/some"
    copy(open_path[program.parent] / program.name, build / program.name)
    for path in [binary.name, *(name for name in os.listdir(open_path[binary.parent]) if name.endswith(".so"))]:
        copy(open_path[binary.parent] / path, build / path)
    for fd in opened.values():
        os.close(fd)
    for words in (["init", "-q"], ["add", "device", "tests"], ["commit", "-qm", "all"]):
        subprocess.run([*GIT, *words], cwd=place, check=True)
    return build / program.name, build / binary.name


def tree(top):
    """Everything below a directory, with whatever a change would change."""
    found = {}
    for path in [top, *top.rglob("*")]:
        info = path.lstat()
        what = os.readlink(path) if path.is_symlink() else ""
        if path.is_file() and not path.is_symlink():
            what = hashlib.sha256(path.read_bytes()).hexdigest()
        found[path] = (info.st_mode, info.st_uid, info.st_gid, info.st_size, info.st_mtime_ns, what)
    return found


def passes(*command):
    print("$", *command, flush=True)
    return subprocess.run(command, stdin=subprocess.DEVNULL, check=False).returncode == 0


def main():
    place, program, binary = (pathlib.Path(word) for word in sys.argv[1:])
    program, binary = make_clone(place, program, binary)
    os.chdir(place)
    before = tree(place)
    tests = [place / "tests/e2e" / name for name in END_TO_END]
    passed = [
        passes(program, "--gtest_brief=1", UNIT),
        passes("/usr/bin/python3", "-m", "pytest", "-q", "-c", "tests/pytest.ini", "--binary", binary, *tests),
    ]
    after = tree(place)
    changed = sorted(str(path) for path in {*before, *after} if before.get(path) != after.get(path))
    print(f"{len(before)} files and directories, changed:", changed)
    return 0 if all(passed) and len(before) > 100 and not changed else 1


sys.exit(main())
