"""The release for the device: what is in build/release-powerpc, and that it works on a system with nothing else.

scripts/test-powerpc runs this after scripts/release-powerpc.
"""

import hashlib
import io
import json
import pathlib
import re
import shutil
import subprocess
import tarfile

import pytest

import vm

SOURCE = pathlib.Path(__file__).resolve().parents[2]
RELEASE = SOURCE / "build/release-powerpc"
BARE = SOURCE / "tests/powerpc/bare"
VERSION = "4.6.0.2545"
BASE = f"keltconfig_{VERSION}_powerpc"
DOC = f"keltconfig-doc_{VERSION}_all"
PARTS = ["keltconfig-crypto.so", "keltconfig-provision.so"]
FILES = {
    "/usr/sbin/keltconfig": 0o755,
    "/usr/lib/keltconfig/keltconfig-crypto.so": 0o644,
    "/usr/lib/keltconfig/keltconfig-libraries.so": 0o644,
    "/usr/lib/keltconfig/keltconfig-provision.so": 0o644,
    "/usr/share/doc/keltconfig/copyright": 0o644,
    "/usr/share/doc/keltconfig/licences.gz": 0o644,
}
NO_MODE = "Unable to find existing mode, assuming non_fips mode\n"


def run(*command, **options):
    return subprocess.run([str(word) for word in command], capture_output=True, text=True, timeout=1800, **options)


def said(*command):
    done = run(*command)
    assert done.returncode == 0, done.stdout + done.stderr
    return done.stdout


def members_of_package(path, what="data"):
    """The tar file inside, as dpkg-deb gives it (--fsys-tarfile) or with the control files (--ctrl-tarfile)."""
    option = {"data": "--fsys-tarfile", "control": "--ctrl-tarfile"}[what]
    tar = subprocess.run(["dpkg-deb", option, path], check=True, stdout=subprocess.PIPE).stdout
    return tarfile.open(fileobj=io.BytesIO(tar))


def entries(archive):
    """Path -> (mode, content), of the files alone."""
    return {"/" + entry.name.removeprefix("./"): (entry.mode, archive.extractfile(entry).read())
            for entry in archive if entry.isfile()}


@pytest.fixture(scope="session")
def package():
    return entries(members_of_package(RELEASE / f"{BASE}.deb"))


@pytest.fixture(scope="session")
def programs(package, tmp_path_factory):
    """The ELF files of the package, unpacked: name -> path."""
    directory = tmp_path_factory.mktemp("programs")
    for path, (_, content) in package.items():
        if content.startswith(b"\x7fELF"):
            (directory / pathlib.Path(path).name).write_bytes(content)
    return {path.name: path for path in directory.iterdir()}


def test_the_release_is_complete_and_its_sums_are_right():
    names = {f"{base}.{kind}" for base in (BASE, DOC) for kind in ("deb", "ipk", "tar.gz")}
    assert {path.name for path in RELEASE.iterdir()} == names | {"CONTENTS", "SHA256SUMS", f"{BASE}.spdx.json"}
    lines = (RELEASE / "SHA256SUMS").read_text().splitlines()
    assert len(lines) == len(names) + 2
    for line in lines:
        digest, name = line.split("  ")
        assert hashlib.sha256((RELEASE / name).read_bytes()).hexdigest() == digest, name


def test_the_package_holds_the_program_its_parts_and_what_their_licences_ask_for(package):
    assert {path: mode for path, (mode, _) in package.items()} == FILES
    links = {entry.name: entry.linkname for entry in members_of_package(RELEASE / f"{BASE}.deb") if entry.issym()}
    assert links == {"./usr/sbin/keltcheck": "keltconfig"}


@pytest.mark.parametrize("base", [BASE, DOC])
@pytest.mark.parametrize("what", ["data", "control"])
def test_all_that_is_unpacked_is_roots_and_of_the_day_of_the_release(base, what):
    date = int(said("dpkg-parsechangelog", "--file", SOURCE / "packaging/changelog", "--show-field", "Timestamp"))
    for entry in members_of_package(RELEASE / f"{base}.deb", what):
        assert (entry.uid, entry.gid, entry.mtime) == (0, 0, date), entry.name
        assert entry.issym() or entry.mode & 0o022 == 0, entry.name


@pytest.mark.parametrize("base", [BASE, DOC])
def test_the_three_kinds_of_package_unpack_to_the_same(base):
    deb = entries(members_of_package(RELEASE / f"{base}.deb"))
    assert (RELEASE / f"{base}.ipk").read_bytes() == (RELEASE / f"{base}.deb").read_bytes()
    archive = tarfile.open(RELEASE / f"{base}.tar.gz")
    assert entries(archive) == deb
    assert {entry.name for entry in archive if entry.isdir()} <= {
        "usr/lib/keltconfig", "usr/share/doc/keltconfig", "usr/share/doc/keltconfig-doc", "usr/share/keltconfig"}


def test_what_is_installed_takes_no_more_than_three_megabytes(package):
    assert sum(len(content) for _, content in package.values()) <= 3_000_000


def test_the_programs_are_of_the_target_and_need_the_c_library_alone(programs):
    assert set(programs) == {"keltconfig", "keltconfig-libraries.so", *PARTS}
    for name, path in programs.items():
        header = said("powerpc-linux-gnu-readelf", "--file-header", path)
        assert "ELF32" in header and "big endian" in header and "PowerPC" in header
        dynamic = said("powerpc-linux-gnu-readelf", "--dynamic", "--wide", path)
        needed = set(re.findall(r"\(NEEDED\).*\[(.*)\]", dynamic))
        own = {"keltconfig-libraries.so"} if name in PARTS else set()
        assert needed - {"libc.so.6", "libm.so.6", "ld.so.1"} == own, name
        assert re.findall(r"\(RPATH\).*\[(.*)\]", dynamic) == (["$ORIGIN"] if name in PARTS else [])
        assert "RUNPATH" not in dynamic and "TEXTREL" not in dynamic and "BIND_NOW" in dynamic


def test_no_file_names_the_directory_in_which_it_was_built(programs):
    home = str(pathlib.Path.home()).encode()
    for path in programs.values():
        content = path.read_bytes()
        for place in (str(SOURCE).encode(), home + b"/.cache", b"/tmp/", b"/work-"):
            assert place not in content, (path.name, place)


def versions_wanted(path):
    return {tuple(map(int, version.split(".")))
            for version in re.findall(r"Name: GLIBC_([0-9.]+) ", said("powerpc-linux-gnu-readelf", "-V", path))}


def test_the_versions_of_the_c_library_are_listed_and_none_is_newer_than_the_compiler_asks_for(programs):
    wanted = set().union(*(versions_wanted(path) for path in programs.values()))
    listed = re.findall(r"^  (\d+\.[0-9.]+): ", (RELEASE / "CONTENTS").read_text(), re.M)
    assert {tuple(map(int, version.split("."))) for version in listed} == wanted
    # _dl_find_object, of the unwinding code of GCC 12.
    assert max(wanted) == (2, 35)
    assert "(>= 2.35)" in said("dpkg-deb", "--field", RELEASE / f"{BASE}.deb", "Depends")


def test_the_list_of_contents_has_every_file_with_its_sum_and_its_licences(package):
    text = (RELEASE / "CONTENTS").read_text()
    for path, (_, content) in package.items():
        line = re.search(rf"^ *{len(content)} {hashlib.sha256(content).hexdigest()} {re.escape(path)}  (\S.*)$", text, re.M)
        assert line, path
    assert re.search(r"keltconfig-libraries.so  Apache-2.0 AND BSD-3-Clause AND .*Zlib AND curl$", text, re.M)


def test_the_bill_of_materials_is_whole(package):
    bill = json.loads((RELEASE / f"{BASE}.spdx.json").read_text())
    assert bill["spdxVersion"] == "SPDX-2.3" and bill["SPDXID"] == "SPDXRef-DOCUMENT" and bill["dataLicense"] == "CC0-1.0"
    things = bill["packages"] + bill["files"]
    ids = [thing["SPDXID"] for thing in things]
    assert len(ids) == len(set(ids)) and all(re.fullmatch(r"SPDXRef-[A-Za-z0-9.-]+", name) for name in ids)
    assert {thing["fileName"].removeprefix(".") for thing in bill["files"]} == set(package)
    for thing in bill["files"]:
        content = package[thing["fileName"].removeprefix(".")][1]
        for check in thing["checksums"]:
            assert hashlib.new(check["algorithm"].lower(), content).hexdigest() == check["checksumValue"]
    names = {thing["name"] for thing in bill["packages"]}
    assert {"keltconfig", "openssl", "curl", "libzip", "zlib", "expat", "pugixml"} <= names
    for thing in bill["packages"]:
        assert thing["versionInfo"] and thing["licenseDeclared"] and thing["downloadLocation"]
    ends = {end for line in bill["relationships"] for end in (line["spdxElementId"], line["relatedSpdxElement"])}
    assert ends == set(ids) | {"SPDXRef-DOCUMENT"}


def test_the_texts_of_the_licences_are_there(package):
    import gzip
    text = gzip.decompress(package["/usr/share/doc/keltconfig/licences.gz"][1]).decode()
    for words in ("Apache License", "Daniel Stenberg", "Dieter Baron", "Jean-loup Gailly", "Expat", "Arseny Kapoulkine",
                  "Milo Yip"):
        assert words in text, words


# A bare system


AGENT = """#!/bin/sh
echo "agent $*" >>/opt/Quorvane/calls
"""


class Bare:
    """A system with busybox and the C library, an agent, and nothing else."""

    def __init__(self, root):
        self.root = root
        vm.make_root(root, AGENT)

    def run(self, *command, server=None):
        return run(BARE, *(("--server", server) if server else ()), self.root, *command)

    def shell(self, line, **options):
        return self.run("/bin/sh", "-c", line, **options)

    def files(self):
        """All paths but those of the agent."""
        agents = {self.root / "etc/orv.d", self.root / "opt"}
        return {str(path.relative_to(self.root)) for path in self.root.rglob("*") if not agents & {path, *path.parents}}

    def calls(self):
        path = self.root / "opt/Quorvane/calls"
        calls = path.read_text().split("\n")[:-1] if path.exists() else []
        path.unlink(missing_ok=True)
        return calls


@pytest.fixture
def bare(tmp_path):
    return Bare(tmp_path / "root")


@pytest.fixture
def keys(tmp_path):
    """What a management server hands out, and what is imported by hand."""
    def make(name, *options):
        said(SOURCE / "device/make-package", *options, tmp_path / name)
        return tmp_path / name
    return make


INSTALL = {
    "dpkg": f"dpkg -i /tmp/{BASE}.deb",
    "opkg": f"mkdir /tmp/u && cd /tmp/u && dpkg-deb -x /tmp/{BASE}.ipk / && rmdir /tmp/u",
    "tar": f"tar -xzf /tmp/{BASE}.tar.gz -C /",
}
LIST = f"tar -tzf /tmp/{BASE}.tar.gz"
BY_HAND = f"{LIST} | sort -r | while read f; do if [ -d /$f ] && [ ! -L /$f ]; then rmdir /$f; else rm /$f; fi; done; " \
          "rmdir /run/orv-locks; rmdir /usr/share/doc /usr/share 2>/dev/null; true"
REMOVE = {"dpkg": "dpkg -P keltconfig", "opkg": BY_HAND, "tar": BY_HAND}


def managed(bare):
    return {path.name for path in (bare.root / "opt/Quorvane/orv/scratch/keystore").iterdir()}


def test_a_bare_system_has_no_library_but_the_c_library(bare):
    libraries = {path.name for path in bare.root.rglob("*") if path.is_file() and ".so" in path.name}
    assert libraries == {"ld.so.1", "libc.so.6", "libm.so.6", "ISO8859-1.so"}
    assert bare.shell("keltconfig -version").returncode == 127


@pytest.mark.parametrize("way", ["dpkg", "opkg", "tar"])
def test_the_main_job_on_a_bare_system(bare, keys, way):
    for kind in ("deb", "ipk", "tar.gz"):
        shutil.copy(RELEASE / f"{BASE}.{kind}", bare.root / "tmp")
    before = bare.files()

    installed = bare.shell(INSTALL[way])
    assert installed.returncode == 0, installed.stdout + installed.stderr

    assert bare.run("keltconfig", "-version").stdout == NO_MODE + VERSION + "\n"
    assert bare.run("keltcheck", "--plain").stdout == "KELTCHECK OK - unmanaged\n"

    server = keys("server", "--server", "127.0.0.1")
    (bare.root / "root/keys").mkdir(mode=0o700)
    switch = bare.shell("keltconfig -m -d /root/keys -z -e 127.0.0.1 -U admin -P 'zentor 4711'", server=server)
    assert switch.returncode == 0, switch.stdout + switch.stderr
    assert "Contacting Zentor... OK\nExamining response... OK\n" in switch.stdout and switch.stderr == ""
    assert managed(bare) == {"keyconf.ini", "server-public.der", "server-request-secret.der"}
    assert "127.0.0.1" in (bare.root / "opt/Quorvane/orv/scratch/etc/SiteList.xml").read_text()
    calls = bare.calls()
    assert calls[-4:].count("agent start") == 1 and "agent stop" in calls
    assert bare.run("keltcheck", "--plain").stdout == "KELTCHECK OK - managed by 127.0.0.1, key 2048 bits\n"
    (bare.root / "root/keys").rmdir()

    assert bare.run("keltconfig", "-u").returncode == 0
    assert "SpipeSite" not in (bare.root / "opt/Quorvane/orv/scratch/etc/SiteList.xml").read_text()

    update = bare.root / "opt/Quorvane/orv/scratch/update"
    shutil.copytree(keys("import", "--both"), update)
    (update / "SiteList.xml").unlink()
    imported = bare.run("keltconfig", "-k")
    assert imported.returncode == 0, imported.stdout + imported.stderr
    assert list(update.iterdir()) == []

    assert bare.run("keltconfig", "-CustomProps1", "rack 7").returncode == 0
    assert "rack 7" in (bare.root / "opt/Quorvane/orv/scratch/CustomProps.xml").read_text()

    removed = bare.shell(REMOVE[way])
    assert removed.returncode == 0, removed.stdout + removed.stderr
    assert bare.files() - {"var/lib/dpkg/status.udeb", "var/lib/dpkg/status.udeb.bak"} - before == set()
    assert before - bare.files() == set()


def test_dpkg_itself_installs_verifies_and_removes_it(bare):
    state = bare.root / "var/lib/dpkg"
    (state / "updates").mkdir()
    (state / "available").touch()
    # It removes directories that nobody has anything in, and its scripts write to a file where no device is.
    for path in ("usr/sbin/other", "dev/null"):
        (bare.root / path).touch()

    def dpkg(*words):
        return said(SOURCE / "tests/powerpc/emulate", "dpkg", f"--root={bare.root}", *words)

    dpkg("--add-architecture", "powerpc")
    before = bare.files()
    dpkg("--install", RELEASE / f"{BASE}.deb")
    assert dpkg("--verify", "keltconfig:powerpc") == ""
    assert dpkg("--status", "keltconfig:powerpc").splitlines()[1] == "Status: install ok installed"
    assert bare.run("keltconfig", "-version").stdout == NO_MODE + VERSION + "\n"
    dpkg("--purge", "keltconfig:powerpc")
    assert {path for path in bare.files() ^ before if not path.startswith("var/lib/dpkg")} == set()


def test_the_builds_own_target_packs_the_same_bytes():
    before = (RELEASE / "SHA256SUMS").read_bytes()
    built = run("cmake", "--build", "--preset", "ppc-release", "--target", "package", cwd=SOURCE)
    assert built.returncode == 0, built.stdout + built.stderr
    assert (RELEASE / "SHA256SUMS").read_bytes() == before


def test_a_site_list_in_latin_1_is_converted_on_a_bare_system(bare, keys):
    shutil.copy(RELEASE / f"{BASE}.tar.gz", bare.root / "tmp")
    assert bare.shell(INSTALL["tar"]).returncode == 0
    shutil.copytree(keys("latin", "--latin1"), bare.root / "root/keys")
    switch = bare.run("keltconfig", "-m", "-d", "/root/keys")
    assert switch.returncode == 0, switch.stdout + switch.stderr
    assert "Zentor Málaga" in (bare.root / "opt/Quorvane/orv/scratch/etc/SiteList.xml").read_text()


def test_a_fips_module_that_the_system_has_is_the_one_that_computes(bare, keys):
    shutil.copy(RELEASE / f"{BASE}.tar.gz", bare.root / "tmp")
    assert bare.shell(INSTALL["tar"]).returncode == 0
    log = bare.root / "opt/Quorvane/orv/scratch/logs/keltcfg.log"

    shutil.copytree(keys("without", "--fips"), bare.root / "root/without")
    assert bare.run("keltconfig", "-m", "-d", "/root/without").returncode == 0
    assert "no usable FIPS module of OpenSSL. Its default module is used instead" in log.read_text()

    # It starts, and computes nothing.
    modules = bare.root / "usr/lib/ossl-modules"
    modules.mkdir()
    said("powerpc-linux-gnu-g++", "-shared", "-fPIC", "-std=c++20", "-I", SOURCE / "build/ppc/libraries/include",
         "-o", modules / "fips.so", SOURCE / "tests/unit/platform/crypto/openssl/fips_module.cpp")
    shutil.copytree(keys("with", "--fips"), bare.root / "root/with")
    switch = bare.run("keltconfig", "-m", "-d", "/root/with")
    assert switch.returncode == 1
    assert "was not imported: not an RSA public key" in switch.stdout
