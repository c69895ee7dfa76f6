"""scripts/mutate on a project of two files: what its tests let through is printed, and nothing else."""

import pathlib
import re
import subprocess

import pytest

MUTATE = pathlib.Path(__file__).resolve().parents[2] / "scripts/mutate"

FILES = {
    "CMakeLists.txt": """
cmake_minimum_required(VERSION 3.25)
project(toy LANGUAGES CXX)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
add_executable(check calc/calc.cpp check/check.cpp)
target_include_directories(check PRIVATE ${CMAKE_SOURCE_DIR})
""",
    "calc/calc.h": """
bool positive(int number);
int larger(int one, int other);
int drained(int left);
""",
    "calc/calc.cpp": """
#include "calc/calc.h"
static_assert(sizeof(int) > 1, "1 > 0 is never changed");
bool positive(int number) {
  return number > 0;
}
int larger(int one, int other) {
  return one < other ? other : one;  // one < other
}
int drained(int left) {
  while (left > 0)
    --left;
  return left;
}
""",
    "check/check.cpp": """
#include "calc/calc.h"
#include <fstream>
int main() {
  if (std::ofstream("OUTSIDE").good()) return 2;
  const bool right = positive(1) && !positive(-1) && larger(1, 2) == 2 && larger(2, 1) == 2;
  return right && drained(3) == 0 ? 0 : 1;
}
""",
    "tests/mutation/plan.toml": """
build-directory = "build"
configure = ["cmake", "-S", ".", "-B", "build", "-G", "Ninja"]
build = ["cmake", "--build", "build", "--target"]
[folders]
calc = ["check"]
[tests.check]
targets = ["check"]
command = ["build/check"]
""",
    "tests/mutation/equivalent.toml": """
[[equivalent]]
file = "calc/calc.cpp"
function = "larger"
line = "return one {{<}} other ? other : one;  // one < other"
change = "< -> <="
reason = "Of two equal numbers either is the larger."
""",
}
ALIKE = "calc/calc.cpp:4 in positive: > -> >="


class Toy:
    def __init__(self, directory, outside):
        self.directory = directory
        for name, text in FILES.items():
            self.write(name, text.lstrip("\n").replace("OUTSIDE", str(outside)))
        subprocess.run("git init -q && git add .", shell=True, cwd=directory, check=True)

    def write(self, name, text):
        path = self.directory / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text)

    def edit(self, name, old, new):
        text = (self.directory / name).read_text()
        assert old in text
        self.write(name, text.replace(old, new))

    def mutate(self, *options):
        command = [MUTATE, "--project", self.directory, *options]
        return subprocess.run(command, capture_output=True, text=True, stdin=subprocess.DEVNULL)

    def files(self):
        return {p: p.read_bytes() for p in self.directory.rglob("*") if p.is_file() and ".git" not in p.parts}


@pytest.fixture
def toy(tmp_path):
    # Beside the test's own directory, which the confined tests do not see at all.
    outside = pathlib.Path("/var/tmp") / f"{tmp_path.parent.name}-{tmp_path.name}"
    yield Toy(tmp_path / "toy", outside)
    assert not outside.exists()


def test_a_survivor_is_printed_and_what_is_noticed_is_not(toy):
    before = toy.files()
    run = toy.mutate("--limit", "10")
    *survivors, summary = run.stdout.splitlines()
    assert survivors == [ALIKE, "    return number {{>}} 0;"]
    assert " 1 equivalent, 1 survived" in summary
    # A change by which the program does not end any more is noticed by the time limit.
    assert re.search(r"\([1-9] of them by the time limit\)", summary)
    assert run.returncode == 1, run.stderr
    assert toy.files() == before


def test_without_survivors_the_status_is_0(toy):
    toy.edit("check/check.cpp", "!positive(-1)", "!positive(0)")
    run = toy.mutate("--limit", "10")
    assert (run.stdout.count("\n"), run.returncode) == (1, 0), run.stderr


def test_a_sample_is_the_same_for_the_same_seed(toy):
    runs = [toy.mutate("--sample", "3", "--seed", seed, "--limit", "10") for seed in ("7", "7", "8")]
    tried = [[line for line in run.stderr.splitlines() if "calc.cpp:" in line] for run in runs]
    assert tried[0] == tried[1] != tried[2]
    assert [run.stdout.splitlines()[-1].split()[0] for run in runs] == ["3", "3", "3"]


def test_the_changes_leave_comments_texts_and_assertions_alone(toy):
    listed = toy.mutate("--list", "calc").stdout.splitlines()
    assert ALIKE in listed
    assert "calc/calc.cpp:11 in drained: --left -> (void)0" in listed
    assert not any(":2 " in line or "//" in line for line in listed)
    assert sum("in larger:" in line for line in listed) == 2
    assert toy.mutate("--list", "calc/calc.cpp:4").stdout.splitlines() == [line for line in listed if ":4 " in line]


def test_an_entry_that_fits_no_change_is_refused(toy):
    toy.edit("tests/mutation/equivalent.toml", "< -> <=", "< -> <<")
    run = toy.mutate()
    assert (run.stdout, run.returncode) == ("", 2)
    assert "does not exist any more: calc/calc.cpp, larger" in run.stderr


def test_an_entry_that_a_test_contradicts_is_reported(toy):
    toy.edit("tests/mutation/equivalent.toml", "< -> <=", "< -> >=")
    run = toy.mutate("--most", "100", "calc/calc.cpp:7")
    assert "calc/calc.cpp:7: listed as equivalent, but noticed: < -> >=" in run.stdout.splitlines()
    assert run.returncode == 1


def test_tests_that_fail_without_a_change_measure_nothing(toy):
    toy.edit("check/check.cpp", "positive(1)", "positive(0)")
    run = toy.mutate()
    assert (run.stdout, run.returncode) == ("", 2)
    assert "check does not build or pass even without a change" in run.stderr
