"""The directory of site list and keys on the controller, as `keltconfig -m -d` takes it on the device."""

from __future__ import absolute_import, division, print_function

__metaclass__ = type

import hashlib
import os
from xml.parsers import expat

from ansible.errors import AnsibleError
from cryptography.exceptions import UnsupportedAlgorithm
from cryptography.hazmat.primitives import serialization

SITE_LIST = "SiteList.xml"
SERVER_KEYS = ("sr2048pubkey.bin", "srpubkey.bin")
REQUIRED = ("req2048seckey.bin", "sr2048pubkey.bin", "agentfipsmode", SITE_LIST)
# Made empty on the device where they are missing.
OPTIONAL = ("reqseckey.bin", "srpubkey.bin")
MOST_OF_A_KEY = 64 * 1024
MOST_OF_A_SITE_LIST = 16 * 1024 * 1024
MOST_SERVERS = 1000  # that keltcheck names


class Source:
    """What is to reach the device, and how the device stands once it has been imported.

    files    name and content, the site list last
    servers  the addresses in the site list, in its order
    keys     SHA-256 of each server key, as keltcheck spells it
    """

    def __init__(self, files):
        self.files = files
        self.servers = servers_of(files[SITE_LIST])
        self.keys = [key_hash(name, files[name]) for name in SERVER_KEYS if files.get(name)]


def read_source(loader, directory):
    """Reads the directory; files that a vault encrypts are decrypted. AnsibleError names what is missing or wrong."""
    if not os.path.isdir(directory):
        raise AnsibleError("source: there is no directory %s on the controller" % directory)
    missing = [name for name in REQUIRED if not os.path.isfile(os.path.join(directory, name))]
    if missing:
        raise AnsibleError("source: %s lacks %s" % (directory, ", ".join(missing)))
    names = [name for name in REQUIRED + OPTIONAL if os.path.isfile(os.path.join(directory, name))]
    names.sort(key=lambda name: name == SITE_LIST)
    return Source(dict((name, read_file(loader, os.path.join(directory, name))) for name in names))


def read_file(loader, path):
    most = MOST_OF_A_SITE_LIST if os.path.basename(path) == SITE_LIST else MOST_OF_A_KEY
    if os.path.getsize(path) > 2 * most:  # a vault makes twice as much of it, and a little more
        raise AnsibleError("source: %s is too large" % path)
    plain = loader.get_real_file(path)
    try:
        with open(plain, "rb") as file:
            content = file.read()
    except OSError as error:
        raise AnsibleError("source: %s cannot be read: %s" % (path, error.strerror))
    finally:
        loader.cleanup_tmp_file(plain)
    if len(content) > most:
        raise AnsibleError("source: %s has more than %d bytes" % (path, most))
    return content


def key_hash(name, content):
    """SHA-256 of a public key as DER SubjectPublicKeyInfo, from DER or PEM, in that form or PKCS#1."""
    load = serialization.load_pem_public_key if b"-----BEGIN" in content else serialization.load_der_public_key
    try:
        key = load(content)
    except (ValueError, UnsupportedAlgorithm):
        raise AnsibleError("source: %s is no public key" % name)
    der = key.public_bytes(serialization.Encoding.DER, serialization.PublicFormat.SubjectPublicKeyInfo)
    return hashlib.sha256(der).hexdigest().upper()


def servers_of(content):
    """The addresses in a site list. One that does not load is read as ISO-8859-1, as the device does."""
    try:
        found = addresses(content, None)
    except expat.ExpatError:
        try:
            found = addresses(content, "ISO-8859-1")
        except expat.ExpatError as error:
            raise AnsibleError("source: %s does not load: %s" % (SITE_LIST, error))
    if not any(found):
        raise AnsibleError("source: %s names no server" % SITE_LIST)
    return [address for address in found if address][:MOST_SERVERS]


def addresses(content, encoding):
    found, path = [], []

    def begin(name, attributes):
        path.append(name)
        if path == ["ns:SiteLists", "SiteList", "SpipeSite"]:
            found.append(attributes.get("ServerIP", ""))

    def refuse(*_ignored):
        raise AnsibleError("source: %s has a DOCTYPE, which no device takes" % SITE_LIST)

    parser = expat.ParserCreate(encoding)
    parser.StartElementHandler = begin
    parser.EndElementHandler = lambda name: path.pop()
    parser.StartDoctypeDeclHandler = refuse
    parser.Parse(content, True)
    return found
