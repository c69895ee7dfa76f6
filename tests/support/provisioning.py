"""What provisioning says, and where it runs."""

import os
import subprocess
import time

from device import PATIENCE, ROOT

CONTACTED = b"Initializing CURL...\nCurl initialization OK\nContacting Zentor..."
HINT = (
    b"No response from Zentor, possibly due to invalid Zentor credentials, check Zentor credentials and retry.\n"
)
NO_SUCCESS = CONTACTED + b" OK\nExamining response... ERROR\n"
NO_ARCHIVE = (
    CONTACTED
    + b""" OK
Examining response... OK
Creating keys zip file... OK
Writing decoded data to zip file... OK
Unzipping key files... ERROR
"""
)
UNPACKED = NO_ARCHIVE.replace(b"files... ERROR", b"files... OK")
PROGRESS = (
    UNPACKED
    + b"""Reading FIPS mode from sitelist... OK
Writing agentfipsmode file... OK
Renaming sitelist.xml to SiteList.xml... OK
"""
)


def make_reply(package):
    """The body of a good reply with the files of a directory."""
    made = subprocess.run([ROOT / "device/server/make-reply", package], check=True, capture_output=True)
    return made.stdout


EMULATOR = b"/usr/bin/qemu-ppc-static\0"  # as which an emulated tool runs


def tool_process(device):
    """The process id, as this machine counts, of the tool running with the device's state directory as an argument."""
    name, argument = os.fsencode(device.binary) + b"\0", b"\0" + os.fsencode(device.state)
    deadline = time.monotonic() + PATIENCE
    while time.monotonic() < deadline:
        for entry in filter(str.isdigit, os.listdir("/proc")):
            try:
                with open(f"/proc/{entry}/cmdline", "rb") as file:
                    line = file.read()
            except OSError:
                continue  # it has ended meanwhile
            if line.removeprefix(EMULATOR).startswith(name) and argument in line:
                return int(entry)
        time.sleep(0.02)
    raise AssertionError("the tool does not run")
