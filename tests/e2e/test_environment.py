"""What the environment says to libraries has no effect on the tool, and reaches the agent's commands as it was."""

import os
import subprocess

import pytest

from device import AGENT_CONFIG, NO_MODE, Device
from provisioning import PROGRESS

ACCESS = ["-e", "127.0.0.1", "-U", "admin", "-P", "zentor 4711"]
WITNESS = "/run/witness"

# Whatever loads it leaves a file.
PLANTED = f"""
#include <fcntl.h>
#include <unistd.h>
__attribute__((constructor)) static void leave(void) {{ close(open("{WITNESS}", O_CREAT | O_WRONLY, 0600)); }}
int gconv(void) {{ return 1; }}
int gconv_init(void) {{ return 1; }}
"""

GCONV_MODULES = "".join(
    f"module {one} {other} PLANTED 1\n"
    for coded in ("ISO-8859-1//", "ISO_8859-1//")
    for name in ("UTF8//", "UTF-8//", "ISO-10646/UTF8/", "UCS-4LE//", "UCS-4BE//", "ISO-10646/UCS4/", "INTERNAL")
    for one, other in ((coded, name), (name, coded))
)

OPENSSL_CONF = """
openssl_conf = all
config_diagnostics = 1
[all]
engines = engines
providers = providers
ssl_conf = ssl
[engines]
planted = engine
[engine]
engine_id = planted
dynamic_path = /run/planted/PLANTED.so
init = 1
[providers]
planted = provider
[provider]
module = /run/planted/PLANTED.so
activate = 1
"""


@pytest.fixture
def planted(tmp_path):
    """Makes a device on which modules for every library stand in /run/planted."""
    source, library = tmp_path / "planted.c", tmp_path / "PLANTED.so"
    source.write_text(PLANTED)
    subprocess.run(["cc", "-shared", "-fPIC", "-o", library, source], check=True)

    def plant(device):
        for name in ("PLANTED.so", "fips.so", "legacy.so", "default.so", "base.so", "planted.so"):
            device.write("/run/planted/" + name, library.read_bytes(), 0o755)
        device.write("/run/planted/gconv-modules", GCONV_MODULES.encode())
        device.write("/run/planted/openssl.cnf", OPENSSL_CONF.encode())
        return device

    return plant


@pytest.fixture
def served(tmp_path, binary, _packages):
    return Device(tmp_path / "device", binary, "--server", "--package", str(_packages(())))


SAYING = {
    "GCONV_PATH": "/run/planted",
    "OPENSSL_CONF": "/run/planted/openssl.cnf",
    "OPENSSL_ENGINES": "/run/planted",
    "OPENSSL_MODULES": "/run/planted",
    "SSLKEYLOGFILE": "/run/keylog",
    "CURL_CA_BUNDLE": "/run/planted/none",
    "CURL_HOME": "/run/planted",
    "CURL_SSL_BACKEND": "none",
    "SSL_CERT_FILE": "/run/planted/none",
    "SSL_CERT_DIR": "/run/planted",
    "HOSTALIASES": "/run/planted/none",
    "LOCALDOMAIN": "example.invalid",
    "RES_OPTIONS": "attempts:1",
    "LOCPATH": "/run/planted",
    "NLSPATH": "/run/planted/%N",
    "TMPDIR": "/run/planted",
}




def saying(*names):
    """What goes before the name of the tool, so that nobody else heeds these variables."""
    return " ".join(["env", *(f"{name}={SAYING[name]}" for name in names)])


CONVERSION = saying("GCONV_PATH", "LOCPATH", "NLSPATH", "TMPDIR")
CRYPTOGRAPHY = saying(*(name for name in SAYING if "SSL" in name))
TRANSFER = saying(*(name for name in SAYING if name != "GCONV_PATH"))


def test_the_planted_modules_would_act(planted, device):
    """That the tests below can fail: a program that heeds its environment loads what they plant."""
    planted(device)
    for heeding in (f"echo a | {CONVERSION} iconv -f ISO-8859-1 -t UCS-4LE", f"{CRYPTOGRAPHY} openssl list -providers"):
        device.shell(heeding)
        assert device.path(WITNESS).exists(), heeding
        device.path(WITNESS).unlink()


def test_no_conversion_is_taken_from_the_environment(planted, device, package):
    planted(device)
    run = device.run("-m", "-d", package("--latin1"), via=CONVERSION)
    assert run.status == 0
    assert b"Successfully convert the sitelist.xml file to utf8\n" in run.out
    assert not device.path(WITNESS).exists()
    assert device.run("-CustomProps1", b"M\xe1laga", via=CONVERSION).status == 0
    assert not device.path(WITNESS).exists()


@pytest.mark.parametrize("options", [(), ("--fips",)], ids=["plain", "fips"])
def test_no_cryptography_is_taken_from_the_environment(planted, device, package, options):
    planted(device)
    run = device.run("-m", "-d", package(*options), via=CRYPTOGRAPHY)
    assert run.status == 0
    assert not device.path(WITNESS).exists()


def test_the_transfer_heeds_nothing_but_a_proxy(planted, served):
    planted(served)
    run = served.run("-m", "-d", "/run/keys", "-z", *ACCESS, before="mkdir /run/keys", via=TRANSFER)
    assert run.result() == (NO_MODE + PROGRESS, b"", 0)
    assert not served.path(WITNESS).exists()
    assert not served.path("/run/keylog").exists(), "with it, whoever reads along has the password"


@pytest.mark.parametrize("name", ["https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY"])
def test_a_proxy_is_heeded(served, name):
    run = served.run("-m", "-d", "/run", "-z", *ACCESS, env={name: "http://127.0.0.1:1"})
    assert run.status == 32
    for no_proxy in ("no_proxy", "NO_PROXY"):
        env = {name: "http://127.0.0.1:1", no_proxy: "127.0.0.1"}
        run = served.run("-m", "-d", "/run/keys", "-z", *ACCESS, before="mkdir -p /run/keys", env=env)
        assert run.status == 0
        assert run.out.endswith(PROGRESS)


def test_commands_get_the_environment_as_it_was_without_the_library_path(device):
    device.edit(AGENT_CONFIG, b"/opt/Quorvane/orv/bin/agent start", b"env --null")
    for product in ("SCANNER2000", "FIREWALL1000"):
        device.path(f"/etc/orv.d/{product}/config.xml").unlink()
    given = {**SAYING, "KEPT": "a b\n=c", "EMPTY": "", "LD_LIBRARY_PATH": "/nosuch", "https_proxy": "p"}
    # A name may stand there twice; it stays so. `env -i` leaves the order to us.
    done = device.enter("env", "-i", *(f"{name}={value}" for name, value in given.items()), device.binary, "-start")
    assert (done.stderr, done.returncode) == (b"", 0)
    assert done.stdout.startswith(NO_MODE)
    seen = done.stdout.removeprefix(NO_MODE).split(b"\0")[:-1]
    expected = [os.fsencode(f"{name}={value}") for name, value in given.items() if name != "LD_LIBRARY_PATH"]
    assert seen in (expected, expected[::-1])  # the emulator of the target hands them over in reverse


def test_commands_are_found_through_the_path_as_it_was(device):
    device.write("/run/programs/own", b"#!/bin/sh\necho found >/run/found\n", 0o755)
    device.edit(AGENT_CONFIG, b"/opt/Quorvane/orv/bin/agent start", b"own")
    assert device.enter(device.binary, "-start", env={"PATH": "/run/programs:/usr/bin:/bin"}).returncode == 0
    assert device.take("/run/found") == b"found\n"
