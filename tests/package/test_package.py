"""The Debian package: what it holds, what it needs, and that it works and goes away where it is installed.

Installed for real by dpkg into a root of its own, on a private device, and run from there.
"""
import os
import re
import shutil
import subprocess
from pathlib import Path

import pytest

SOURCE = Path(__file__).resolve().parents[2]
ENTER = SOURCE / "device" / "enter"
BUILD = Path(os.environ.get("KELT_BINARY", SOURCE / "build/release/keltconfig")).parent


def run(*command, **options):
    return subprocess.run([str(word) for word in command], capture_output=True, text=True, timeout=3600, **options)


@pytest.fixture(scope="module")
def package(tmp_path_factory):
    into = tmp_path_factory.mktemp("package")
    made = run("cpack", "--config", BUILD / "CPackConfig.cmake", "-B", into, cwd=BUILD)
    assert made.returncode == 0, made.stdout + made.stderr
    (deb,) = into.glob("keltconfig_4.6.0.2545_*.deb")
    return deb


@pytest.fixture(scope="module")
def contents(package):
    listed = run("dpkg-deb", "--contents", package).stdout.splitlines()
    return {words[5].lstrip("."): (words[0], words[1]) for words in (line.split() for line in listed)}


def test_package_holds_the_tool_its_loadable_parts_and_its_documents(contents):
    files = {path for path, (mode, _) in contents.items() if mode.startswith("-")}
    library = next(path.rsplit("/", 1)[0] for path in files if path.endswith("/keltconfig-crypto.so"))
    assert re.fullmatch(r"/usr/lib/[a-z0-9_]+-linux-gnu/keltconfig", library)
    assert files == {
        "/usr/sbin/keltcheck",
        "/usr/sbin/keltconfig",
        f"{library}/keltconfig-crypto.so",
        f"{library}/keltconfig-provision.so",
        "/usr/share/man/man8/keltcheck.8.gz",
        "/usr/share/man/man8/keltconfig.8.gz",
        "/usr/share/keltconfig/keltcheck.schema.json",
        "/usr/share/doc/keltconfig/examples/keltcheck.cfg",
        "/usr/share/bash-completion/completions/keltcheck",
        "/usr/share/zsh/vendor-completions/_keltcheck",
        "/usr/share/bash-completion/completions/keltconfig",
        "/usr/share/zsh/vendor-completions/_keltconfig",
        "/usr/share/lintian/overrides/keltconfig",
        "/usr/share/doc/keltconfig/changelog.gz",
        "/usr/share/doc/keltconfig/copyright",
    }


def test_everything_in_the_package_is_roots_and_writable_by_root_alone(contents):
    for path, (mode, owner) in contents.items():
        assert owner == "root/root", path
        assert mode[5] == "-" and mode[8] == "-", f"{path}: {mode}"


def test_package_names_the_libraries_that_its_files_need(package):
    needed = run("dpkg-deb", "--field", package, "Depends").stdout
    for library in ("libc6", "libcurl4", "libssl3", "libzip4"):
        assert re.search(rf"\b{library}\b", needed), needed


def test_lintian_finds_no_error(package):
    assert shutil.which("lintian"), "lintian is not installed"
    found = run("lintian", "--allow-root", package)
    errors = [line for line in found.stdout.splitlines() if line.startswith("E:")]
    assert errors == [] and found.returncode in (0, 2), found.stdout + found.stderr


INSTALL_AND_RUN = r"""
set -eu
PATH=/usr/sbin:/usr/bin:/sbin:/bin  # of root; whoever runs the tests may have less
root=$1/root
mkdir -p "$root/var/lib/dpkg/info" "$root/var/lib/dpkg/updates"
: >"$root/var/lib/dpkg/status"
dpkg --root="$root" --force-depends --install "$2" >/dev/null 2>&1
# The machine's /usr with the installed files on top: what an administrator sees after the installation.
mount -t overlay -o "lowerdir=$root/usr:/usr" device /usr
command -v keltconfig
keltconfig -version
keltcheck --plain
"$3/device/make-package" "$1/keys" >/dev/null
keltconfig -m -d "$1/keys" -nostart >"$1/switch" || echo "switch: $?"
ls /opt/Quorvane/orv/scratch/keystore
keltcheck --plain
man -w keltconfig 2>/dev/null || ls /usr/share/man/man8/keltconfig.8.gz
umount --lazy /usr
dpkg --root="$root" --purge keltconfig >/dev/null 2>&1
find "$root" ! -type d ! -path "$root/var/*"
find "$root" -type d -name '*keltconfig*'
"""


def test_installed_tool_runs_from_the_path_with_its_parts_and_removal_leaves_nothing(package, tmp_path):
    done = run(ENTER, "--sealed", tmp_path, "--", "sh", "-c", INSTALL_AND_RUN, "install", tmp_path, package, SOURCE)
    assert done.returncode == 0, done.stdout + done.stderr
    assert done.stdout.splitlines() == [
        "/usr/sbin/keltconfig",
        "Unable to find existing mode, assuming non_fips mode",
        "4.6.0.2545",
        "KELTCHECK OK - unmanaged",
        "keyconf.ini",
        "server-public.der",
        "server-request-secret.der",
        "KELTCHECK OK - managed by 192.0.2.10, key 2048 bits",
        "/usr/share/man/man8/keltconfig.8.gz",
    ]


def test_install_tree_honours_destdir(tmp_path):
    done = run("cmake", "--install", BUILD, env={**os.environ, "DESTDIR": str(tmp_path)})
    assert done.returncode == 0, done.stdout + done.stderr
    assert (tmp_path / "usr/sbin/keltconfig").is_file()
    assert (tmp_path / "usr/share/doc/keltconfig/copyright").is_file()
