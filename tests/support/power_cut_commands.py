"""The commands that write, and what a device has before each of them. They prepare a `Device`, or any directory that is used like
one."""

from device import INSTALL, KEY_FILES, KEYSTORE, ROOT, SCRATCH, SITE_LIST

SOURCE = "/opt/Quorvane/keys"  # on the disk, unlike /run
KEYS = ROOT / "tests/data/keys"
SECTION = b"[SOFTWARE\\Tellwick\\Zentor\\Agent]\n"


def key(name):
    return (KEYS / name).read_bytes()


def put_source(device, directory, to=SOURCE):
    for path in directory.iterdir():
        device.write(f"{to}/{path.name}", path.read_bytes(), 0o600 if "seckey" in path.name else 0o644)


def put_agents_pair(device):
    """An agent that has a pair of its own, in another size than the new keys."""
    for name, content in (("agent-public.der", key("rsa1024.spki.der")), ("agent-secret.der", key("rsa1024.pkcs8.der"))):
        device.write(f"{KEYSTORE}/{name}", content, 0o600)
    device.write(f"{KEYSTORE}/keyconf.ini", b"mode=2\nkeysize=0\n", 0o600)
    device.path(KEYSTORE).chmod(0o700)


def put_caches(device):
    for name in ("ServerSiteList.xml", "etc/sitecache.bin"):
        device.write(f"{SCRATCH}/{name}", b"cached")


def value(name, content):
    if isinstance(content, int):
        return b"%s=dword:%08x\n" % (name, content)
    return b"%s=hex:%s\n" % (name, content.hex(",").encode())


def managed(*options):
    def prepare(device, package):
        put_source(device, package(*options))
        put_agents_pair(device)
        put_caches(device)
        return ["-m", "-d", SOURCE]

    return prepare


def provisioned(device, _package):
    device.path(SOURCE).mkdir()
    put_agents_pair(device)
    return ["-m", "-d", SOURCE, "-z", "-e", "127.0.0.1", "-U", "admin", "-P", "zentor 4711"]


def unmanaged(device, package):
    put_agents_pair(device)
    put_caches(device)
    device.write(SITE_LIST, (package() / "SiteList.xml").read_bytes())
    for name in KEY_FILES:
        device.write(f"{INSTALL}/{name}", b"left over", 0o600)
    return ["-u"]


def keys_from_files(device, package):
    put_agents_pair(device)
    put_source(device, package("--both"), SCRATCH + "/update")
    device.path(SCRATCH + "/update/SiteList.xml").unlink()
    return ["-k"]


def keys_from_registry(device, package):
    public, secret = key("rsa1024.spki.der"), key("rsa1024.pkcs8.der")
    server = [(b"ServerPubKeyBuffSize", len(public)), (b"ServerPublicKey", public)]
    server += [(b"ReqSecKeyBuffSize", len(secret)), (b"ReqSecretKey", secret)]
    agent = [(b"PubKeyBuffSize", len(public)), (b"AgentPublicKey", public)]
    agent += [(b"SecKeyBuffSize", len(secret)), (b"AgentSecretKey", secret), (b"AgentGUID", b"\1\2")]
    registry = SECTION + b"".join(value(*entry) for entry in server + agent)
    device.write(f"{SCRATCH}/registry.ini", registry, 0o600)
    return keys_from_files(device, package)


def custom_properties(device, _package):
    device.write(f"{SCRATCH}/CustomProps.xml", b'<CustomProperties><CustomProps1 value="before"/></CustomProperties>')
    return [word for n in "1234" for word in (f"-CustomProps{n}", f"value {n}")]


COMMANDS = {
    "managed-utf8": managed(),
    "managed-latin1": managed("--latin1"),
    "managed-provisioned": provisioned,
    "unmanaged": unmanaged,
    "keys-from-files": keys_from_files,
    "keys-from-registry": keys_from_registry,
    "custom-properties": custom_properties,
}
