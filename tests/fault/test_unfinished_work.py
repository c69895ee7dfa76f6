"""A switch or an import that is killed where it cannot be done again by its own rules: the next run finishes it."""

import re

import pytest

from device import AGENT_CONFIG, INSTALL, KEYSTORE, KEY_FILES, LOG, ROOT, SCRATCH, SITE_LIST, changes

KEYS = ROOT / "tests/data/keys"
MARK = SCRATCH + "/unfinished-work"
UPDATE = SCRATCH + "/update"
REGISTRY = SCRATCH + "/registry.ini"
SERVER_DATA = [f"{INSTALL}/reqseckey.bin", f"{INSTALL}/srpubkey.bin", f"{SCRATCH}/ServerSiteList.xml"]
SERVER_DATA += [f"{SCRATCH}/etc/sitecache.bin"]
PAIR = [f"{KEYSTORE}/agent-public.der", f"{KEYSTORE}/agent-secret.der"]

# Runs "$@" once, with strace's options in FAULTS, with its calls in /run/trace and what it leaves in /run/after, and puts everything back as it was.
REHEARSAL = """
cp -a /etc/orv.d /run/kept.orv.d; cp -a /opt/Quorvane /run/kept.Quorvane
[ ! -d /run/keys ] || cp -a /run/keys /run/kept.keys
strace -o /run/trace -s 256 $FAULTS "$KELTCONFIG" "$@" >/run/undisturbed; echo $? >>/run/undisturbed
rm -rf /run/after; mkdir /run/after; cp -a /etc/orv.d /opt/Quorvane /run/after/
[ ! -d /run/keys ] || cp -a /run/keys /run/after/
rm -rf /etc/orv.d/* /opt/Quorvane/orv /run/keys
cp -a /run/kept.orv.d/. /etc/orv.d/; cp -a /run/kept.Quorvane/. /opt/Quorvane/
[ ! -d /run/kept.keys ] || mv /run/kept.keys /run/keys
rm -r /run/kept.*"""


@pytest.fixture
def device(device):
    """With an agent that takes no time, and that nobody has to wait for."""
    for config in device.path("/etc/orv.d").glob("*/config.xml"):
        config.write_bytes(re.sub(rb"/opt/Quorvane/orv/bin/agent \w+( \w+)?", b"/bin/true", config.read_bytes()))
    return device


def numbers_of(device, wanted, *arguments, faults=""):
    """The calls that show as `wanted`, a pattern that starts with their name, in a run with these arguments and faults:
    their name, and which of that name they are. The device is as it was before."""
    assert device.shell(f"FAULTS='{faults}'\n" + REHEARSAL, *arguments).returncode == 0
    name = re.match(r"\w+", wanted)[0]
    lines = device.take("/run/trace").decode(errors="replace").splitlines()
    calls = enumerate((line for line in lines if line.startswith(name + "(")), 1)
    found = [number for number, line in calls if re.match(wanted, line)]
    assert found, wanted
    return name, found


def number_of(device, wanted, *arguments, faults=""):
    """The first of them."""
    name, found = numbers_of(device, wanted, *arguments, faults=faults)
    return name, found[0]


def undisturbed(device, *arguments):
    """What the last rehearsal said and ended with."""
    *lines, status = device.take("/run/undisturbed").splitlines(keepends=True)
    return b"".join(lines), int(status)


def kill_before(device, wanted, *arguments):
    """Kills a run before that call. The run that was not killed had (output, status)."""
    name, number = number_of(device, wanted, *arguments)
    said = undisturbed(device, *arguments)
    run = device.run(*arguments, via=f"strace -qq -o /run/trace -e trace={name} -e inject={name}:signal=KILL:when={number}")
    assert run.status == 137
    return said


def files_below(device, directory):
    """Every file below it with its content and mode, log apart."""
    top = device.path(directory)
    found = {str(path.relative_to(top)): path for path in top.rglob("*") if path.is_file() and path.name != "keltcfg.log"}
    return {name: (path.read_bytes(), path.stat().st_mode & 0o7777) for name, path in found.items()}


def expect_as_undisturbed(device):
    """That the device is as the last rehearsal left it."""
    for directory in ("/etc/orv.d", "/opt/Quorvane", "/run/keys"):
        expected = files_below(device, "/run/after/" + directory.rsplit("/", 1)[-1])
        found = files_below(device, directory)
        assert sorted(found) == sorted(expected)
        assert [name for name in expected if found[name] != expected[name]] == []


def there(device, paths):
    return [path for path in paths if device.path(path).exists()]


def put_keys(device, directory, public="rsa2048", names=("sr2048pubkey.bin", "req2048seckey.bin")):
    device.write(f"{directory}/{names[0]}", (KEYS / f"{public}.spki.der").read_bytes())
    device.write(f"{directory}/{names[1]}", (KEYS / f"{public}.pkcs8.der").read_bytes(), 0o600)
    device.write(f"{directory}/agentfipsmode", b"0")


def put_pair(device):
    """An agent that has a pair of its own, of 1024 bits."""
    device.path(KEYSTORE).mkdir(mode=0o700, exist_ok=True)
    device.write(PAIR[0], (KEYS / "rsa1024.spki.der").read_bytes(), 0o600)
    device.write(PAIR[1], (KEYS / "rsa1024.pkcs8.der").read_bytes(), 0o600)
    device.write(f"{KEYSTORE}/keyconf.ini", b"mode=2\nkeysize=0\n", 0o600)


def put_registry(device, public="rsa1024"):
    """A registry that holds the keys of the server, by which the marker does not count, and of the agent."""
    lines = ["[SOFTWARE\\Tellwick\\Zentor\\Agent]"]
    names = [("ServerPubKeyBuffSize", "ServerPublicKey", "spki"), ("ReqSecKeyBuffSize", "ReqSecretKey", "pkcs8")]
    names += [("PubKeyBuffSize", "AgentPublicKey", "spki"), ("SecKeyBuffSize", "AgentSecretKey", "pkcs8")]
    for size, name, form in names:
        key = (KEYS / f"{public}.{form}.der").read_bytes()
        lines += [f"{size}=dword:{len(key):08x}", f"{name}=hex:" + ",".join(f"{byte:02x}" for byte in key)]
    device.write(REGISTRY, "\n".join([*lines, "AgentGUID=hex:01,02", ""]).encode(), 0o600)


@pytest.fixture
def managed(device):
    """An agent with a server, and all that belongs to it."""
    device.write(SITE_LIST, b'<ns:SiteLists><SiteList><SpipeSite ServerIP="192.0.2.1"/></SiteList></ns:SiteLists>\n')
    for path in SERVER_DATA:
        device.write(path, b"of the server")
    put_pair(device)
    return device


def log_says(device, text):
    return any(text in line for _, line in device.log())


# -- the switch to unmanaged mode ----------------------------------------------------------------------------------------


@pytest.mark.parametrize("path", SERVER_DATA, ids=lambda path: path.rsplit("/", 1)[-1])
def test_a_second_switch_to_unmanaged_mode_deletes_what_a_killed_one_has_not(managed, path):
    kill_before(managed, r"unlink\(.*" + path.rsplit("/", 1)[-1], "-u")
    assert path in there(managed, SERVER_DATA)
    assert b"SpipeSite" not in managed.read(SITE_LIST)
    assert managed.read(MARK) == b"work=unmanaged-switch\n"
    assert managed.path(MARK).stat().st_mode & 0o7777 == 0o600
    assert managed.run("-u").result() == (b"", b"", 0)
    assert there(managed, [*SERVER_DATA, MARK]) == []
    expect_as_undisturbed(managed)


def test_a_second_switch_to_unmanaged_mode_tells_what_it_cannot_delete(managed):
    kill_before(managed, r"unlink\(.*reqseckey", "-u")
    managed.path(SERVER_DATA[0]).unlink()
    managed.path(SERVER_DATA[0]).mkdir()
    run = managed.run("-u")
    assert run.result() == (b"Error : Failed to delete key file, /opt/Quorvane/orv//reqseckey.bin\n", b"", 1)
    assert there(managed, [*SERVER_DATA, MARK]) == [SERVER_DATA[0]]


@pytest.mark.parametrize("arguments", [["-k"], ["-m", "-d", "/run/nothing"]], ids=lambda words: words[0])
def test_other_runs_finish_a_killed_switch_to_unmanaged_mode_too_and_say_nothing_of_it(managed, arguments):
    said = managed.run(*arguments).result()
    kill_before(managed, r"unlink\(.*srpubkey", "-u")
    assert managed.run(*arguments).result() == said
    assert there(managed, [*SERVER_DATA, MARK]) == []
    assert log_says(managed, "Finishing the switch to unmanaged mode that an earlier run began.")


def test_a_switch_to_unmanaged_mode_that_was_killed_before_it_changed_anything_is_not_finished_by_others(managed):
    kill_before(managed, r'renameat\(.*"SiteList.xml"', "-u")
    assert managed.path(MARK).exists()
    managed.run("-k")
    assert there(managed, [*SERVER_DATA, MARK]) == SERVER_DATA
    assert b"SpipeSite" in managed.read(SITE_LIST)


# -- the import ----------------------------------------------------------------------------------------------------------


@pytest.mark.parametrize("both", [True, False], ids=["five key files", "three key files"])
@pytest.mark.parametrize("name", KEY_FILES)
def test_a_second_import_succeeds_where_the_first_was_killed_while_it_deleted_key_files(device, name, both):
    put_pair(device)
    put_keys(device, UPDATE)
    if both:
        put_keys(device, UPDATE, "rsa1024", ("srpubkey.bin", "reqseckey.bin"))
    said = kill_before(device, r"unlink\(.*/" + name, "-k")
    before = device.files()
    run = device.run("-k")
    assert (run.err, run.status) == (b"", said[1])
    assert said[1] == 0
    texts = {f"Could not delete file, {SCRATCH}//update/{file}".encode() for file in KEY_FILES}
    assert set(run.out.splitlines()) <= texts
    assert not (UPDATE + "/" + name).encode() in run.out or not both
    assert there(device, [f"{UPDATE}/{file}" for file in KEY_FILES] + [MARK] + PAIR) == []
    assert device.read(KEYSTORE + "/keyconf.ini") == b"mode=2\nkeysize=1\n"
    assert changes(before, device.files())["changed"] == [LOG]
    expect_as_undisturbed(device)
    assert device.run("-k").status == 16


def test_a_second_import_goes_by_the_rules_of_the_first_once_the_registry_is_cleared(device):
    put_keys(device, UPDATE)
    put_keys(device, UPDATE, "rsa1024", ("srpubkey.bin", "reqseckey.bin"))
    put_pair(device)
    put_registry(device)
    kill_before(device, r"unlink\(.*update/sr2048pubkey", "-k")
    assert b"ServerPublicKey" not in device.read(REGISTRY)
    assert device.run("-k").result() == (b"", b"", 0)
    expect_as_undisturbed(device)
    # The marker would have chosen 2048 bits, and thrown the agent's pair away.
    assert device.read(KEYSTORE + "/keyconf.ini") == b"mode=2\nkeysize=0\n"
    assert there(device, PAIR) == PAIR
    assert there(device, [f"{UPDATE}/{file}" for file in KEY_FILES] + [MARK]) == []


def test_a_second_import_discards_the_old_pair_where_the_first_has_recorded_the_new_size(device):
    put_pair(device)
    put_keys(device, UPDATE)
    said = kill_before(device, r"unlink\(.*agent-secret", "-k")
    assert device.read(KEYSTORE + "/keyconf.ini") == b"mode=2\nkeysize=1\n"
    assert there(device, PAIR) == PAIR
    assert device.run("-k").result() == (said[0], b"", 0)
    expect_as_undisturbed(device)
    assert there(device, [*PAIR, MARK, UPDATE + "/sr2048pubkey.bin"]) == []


def test_a_second_managed_switch_discards_the_old_pair_where_the_first_has_recorded_the_new_size(device, package):
    put_pair(device)
    package("--both", to=device.path("/run/keys"))
    said = kill_before(device, r"unlink\(.*agent-secret", "-m", "-d", "/run/keys")
    assert there(device, PAIR) == PAIR
    assert device.run("-m", "-d", "/run/keys").result() == (said[0], b"", 0)
    assert there(device, [*PAIR, MARK] + [f"{INSTALL}/{file}" for file in KEY_FILES]) == []
    expect_as_undisturbed(device)


@pytest.mark.parametrize("arguments", [["-u"], ["-m", "-d", "/run/nothing"]], ids=lambda words: words[0])
def test_other_runs_finish_a_killed_import_too_and_say_nothing_of_it(managed, arguments):
    put_keys(managed, UPDATE)
    kill_before(managed, r"unlink\(.*update/req2048seckey", "-k")
    run = managed.run(*arguments)
    assert b"update" not in run.out
    assert there(managed, [f"{UPDATE}/{file}" for file in KEY_FILES] + [MARK]) == []
    assert log_says(managed, "Finishing the key import that an earlier run began.")


def test_key_files_that_have_come_since_are_imported_and_not_taken_for_those_of_the_killed_import(device):
    put_pair(device)
    put_keys(device, UPDATE)
    kill_before(device, r"unlink\(.*update/req2048seckey", "-k")
    put_keys(device, UPDATE, "rsa1024", ("srpubkey.bin", "reqseckey.bin"))
    assert device.run("-k").status == 0
    assert device.read(KEYSTORE + "/server-public.der") == (KEYS / "rsa1024.spki.der").read_bytes()
    assert device.read(KEYSTORE + "/keyconf.ini") == b"mode=2\nkeysize=0\n"
    assert there(device, [f"{UPDATE}/{file}" for file in KEY_FILES] + [MARK]) == []


def test_key_files_that_were_exchanged_before_the_import_is_repeated_are_chosen_from_anew(device):
    put_pair(device)
    put_keys(device, UPDATE)
    kill_before(device, r"unlink\(.*agent-secret", "-k")
    device.path(UPDATE + "/sr2048pubkey.bin").unlink()
    put_keys(device, UPDATE, "rsa1024", ("srpubkey.bin", "reqseckey.bin"))
    assert device.run("-k").status == 0
    assert device.read(KEYSTORE + "/server-public.der") == (KEYS / "rsa1024.spki.der").read_bytes()
    # As if the first run had never been: of that size.
    assert device.read(KEYSTORE + "/keyconf.ini") == b"mode=2\nkeysize=0\n"
    assert there(device, [*PAIR, MARK]) == PAIR
    assert log_says(device, "Beginning anew the key import that an earlier run began.")


CUTS = [r'renameat\(.*"server-public.der"', r'renameat\(.*"keyconf.ini"', r'renameat\(.*"config.xml"']
CUTS += [r"unlink\(.*agent-secret", r"unlink\(.*agent-public", r'renameat\(.*"registry.ini"', r"unlink\(.*/sr2048pubkey"]
CUTS += [r"unlink\(.*/req2048seckey", r"unlink\(.*/srpubkey", r"unlink\(.*/agentfipsmode", r"unlinkat\(.*unfinished"]


@pytest.mark.parametrize("wanted", CUTS, ids=lambda wanted: re.search(r"[\w-]+$|[\w-]+(?=\.|\"$)", wanted)[0])
def test_a_second_managed_switch_ends_as_the_first_would_have_where_the_registry_makes_the_rules(device, package, wanted):
    put_pair(device)
    device.write(f"{KEYSTORE}/keyconf.ini", b"mode=2\nkeysize=1\n", 0o600)
    put_registry(device)
    package("--both", to=device.path("/run/keys"))
    said = kill_before(device, wanted, "-m", "-d", "/run/keys")
    assert device.run("-m", "-d", "/run/keys").result() == (said[0], b"", 0)
    expect_as_undisturbed(device)


def test_a_second_managed_switch_from_the_installation_itself_ends_as_the_first_would_have(device, package):
    put_pair(device)
    package("--both", to=device.path("/run/package"))
    for path in device.path("/run/package").iterdir():
        device.write(f"{INSTALL}/{path.name}", path.read_bytes(), 0o600)
    said = kill_before(device, r"unlink\(.*agent-secret", "-m", "-d", INSTALL)
    assert device.run("-m", "-d", INSTALL).result() == (said[0], b"", 0)
    expect_as_undisturbed(device)
    assert there(device, PAIR) == []


# -- the mark itself -----------------------------------------------------------------------------------------------------


def changing_calls(device, *arguments):
    """The calls of a run that change a directory or bring something to the disk, with the paths of descriptors."""
    traced = "fsync,rename,renameat,renameat2,unlink,unlinkat"
    assert device.run(*arguments, via=f"strace -y -s 256 -o /run/trace -e trace={traced}").status == 0
    lines = device.take("/run/trace").decode(errors="replace").splitlines()
    return [line.replace("//", "/") for line in lines if re.match(r"\w+\(.* = 0$", line)]


def index_of(lines, pattern, start=0):
    return next((n for n in range(start, len(lines)) if re.search(pattern, lines[n])), len(lines))


@pytest.mark.parametrize("arguments", [["-u"], ["-k"]], ids=lambda words: words[0])
def test_the_mark_is_on_the_disk_before_the_first_change_and_goes_after_the_last_one_is(managed, arguments):
    put_keys(managed, UPDATE)
    put_registry(managed)
    lines = changing_calls(managed, *arguments)
    marked = [n for n, line in enumerate(lines) if re.match(r"renameat.*unfinished-work\"", line)]
    # The first mark is there before anything is renamed or removed; each one is synced before the next change.
    assert marked[0] == index_of(lines, "^(rename|unlink)")
    assert [re.match(rf"fsync\(\d+<[^>]*{SCRATCH}>\)", lines[n + 1]) is not None for n in marked] == [True] * len(marked)
    # What was removed is synced, each directory, before the mark goes, and that is the last thing.
    end = index_of(lines, 'unlinkat.*"unfinished-work"')
    removals = [n for n, line in enumerate(lines) if line.startswith("unlink(") and "/opt/" in line]
    assert removals and max(removals) < end
    for n in removals:
        directory = re.search(r'"(/[^"]*)/[^"/]*"', lines[n])[1]
        assert index_of(lines, rf"^fsync\(\d+<[^>]*{directory}>\)", n) < end, lines[n]
    assert re.match(rf"fsync\(\d+<[^>]*{SCRATCH}>\)", lines[end + 1])
    assert [line for line in lines[end + 2 :] if "/opt/" in line or "/etc/" in line] == []


def test_a_failed_import_leaves_no_mark(device):
    device.write(UPDATE + "/sr2048pubkey.bin", b"no key")
    device.write(UPDATE + "/agentfipsmode", b"0")
    assert device.run("-k").status == 16
    assert there(device, [MARK]) == []


@pytest.mark.parametrize("arguments", [["-u"], ["-k"]], ids=lambda words: words[0])
def test_a_mark_that_cannot_be_made_changes_nothing(managed, arguments):
    put_keys(managed, UPDATE)
    said = managed.shell(REHEARSAL, *arguments) and undisturbed(managed)
    managed.path(MARK).mkdir()
    run = managed.run(*arguments)
    assert (run.out, run.err, run.status) == (said[0], b"", said[1])
    assert log_says(managed, "No mark of unfinished work could be made: ")
    assert managed.path(MARK).is_dir()


def test_a_link_in_the_place_of_the_mark_is_removed_and_not_followed(managed):
    managed.write("/run/elsewhere", b"work=unmanaged-switch\n", 0o600)
    managed.path(MARK).symlink_to("/run/elsewhere")
    managed.write(SITE_LIST, b"<ns:SiteLists><SiteList/></ns:SiteLists>")
    assert managed.run("-u").result() == (b"", b"", 0)
    assert there(managed, SERVER_DATA) == SERVER_DATA
    assert managed.read("/run/elsewhere") == b"work=unmanaged-switch\n"
    assert not managed.path(MARK).is_symlink()
    assert log_says(managed, f"Removed, being no mark of unfinished work: {MARK} is not a regular file")


# -- the taking back of a failed switch to managed mode ------------------------------------------------------------------

SWITCH = ["-m", "-d", "/run/keys"]
COPIES = [f"{INSTALL}/{name}" for name in KEY_FILES if name != "agentfipsmode"]


@pytest.fixture
def failing(device, package):
    """A switch that cannot copy one of its files."""
    device.shell('cp -a "$1" /run/keys', package())
    device.path(f"{INSTALL}/agentfipsmode").mkdir()
    return device


@pytest.mark.parametrize("path", COPIES, ids=lambda path: path.rsplit("/", 1)[-1])
def test_the_next_switch_takes_back_what_a_failed_one_that_was_killed_has_not(failing, path):
    _, status = kill_before(failing, r'unlink\(".*orv//' + path.rsplit("/", 1)[-1], *SWITCH)
    assert status == 1
    assert path in there(failing, COPIES)
    assert failing.read(MARK).startswith(b"work=take-back\ncopy=reqseckey.bin ")
    assert failing.path(MARK).stat().st_mode & 0o7777 == 0o600
    assert failing.run(*SWITCH).status == 1, "the site list of the source was taken back first"
    expect_as_undisturbed(failing)
    assert there(failing, [*COPIES, MARK]) == []
    assert log_says(failing, "Taking back what is left of a failed switch to managed mode.")


@pytest.mark.parametrize("arguments", [["-k"], ["-u"]], ids=lambda words: words[0])
def test_other_runs_take_back_a_failed_switch_that_was_killed_too(failing, arguments):
    kill_before(failing, r'unlink\(".*orv//req2048seckey', *SWITCH)
    failing.run(*arguments)
    assert there(failing, [*COPIES, MARK]) == []


def test_what_came_after_a_failed_switch_that_was_killed_stays(failing):
    kill_before(failing, r'unlink\(".*orv//req2048seckey', *SWITCH)
    copy = f"{INSTALL}/req2048seckey.bin"
    content = failing.read(copy)
    failing.path(copy).unlink()
    failing.write(copy, content, 0o600)
    failing.run("-k")
    assert there(failing, [*COPIES, MARK]) == [copy]


def test_a_failed_switch_that_is_not_killed_leaves_no_mark(failing):
    assert failing.run(*SWITCH).status == 1
    assert there(failing, [*COPIES, MARK]) == []


# -- after a single refused call -----------------------------------------------------------------------------------------


@pytest.mark.parametrize(
    "refused",
    [
        r"openat\(.*update/req2048seckey",
        r"newfstatat\(.*update/sr2048pubkey",
        r"openat\(.*server-public",
        r"openat\(.*ZENTORAGENT3000/config.xml",
        r"renameat\(.*unfinished-work",
        r"renameat\(.*config.xml",
    ],
)
def test_a_single_refused_call_before_a_kill_makes_no_difference_to_the_next_import(device, refused):
    put_keys(device, UPDATE)
    put_registry(device)
    put_pair(device)
    name, numbers = numbers_of(device, refused, "-k")
    for number in numbers:
        fault = f"-e inject={name}:error=EIO:when={number}"
        _, kill = number_of(device, r"unlink\(.*update/req2048seckey", "-k", faults=fault)
        number_of(device, r"unlink\(.*update/req2048seckey", "-k")  # with what is undisturbed in /run/after
        device.shell("cp -a /etc/orv.d /run/first.orv.d; cp -a /opt/Quorvane /run/first.Quorvane")
        via = f"strace -qq -o /run/trace -e trace={name},unlink {fault} -e inject=unlink:signal=KILL:when={kill}"
        assert device.run("-k", via=via).status == 137
        assert b"(INJECTED)" in device.read("/run/trace")
        assert device.run("-k").status == 0
        expect_as_undisturbed(device)
        assert not device.path(MARK).exists()
        put_back = "rm -rf /etc/orv.d/* /opt/Quorvane/orv; cp -a /run/first.orv.d/. /etc/orv.d/"
        device.shell(put_back + "; cp -a /run/first.Quorvane/. /opt/Quorvane/; rm -r /run/first.*")


@pytest.mark.parametrize("refused", [r"openat\(.*orv/scratch\"", r"unlinkat\(.*unfinished-work"])
def test_a_single_refused_call_leaves_no_mark(managed, refused):
    name, numbers = numbers_of(managed, refused, "-u")
    for number in numbers:
        number_of(managed, r"renameat\(.*unfinished-work", "-u", faults=f"-e inject={name}:error=EIO:when={number}")
        assert managed.read("/run/undisturbed") == b"0\n"
        assert not managed.path("/run/after/Quorvane/orv/scratch/unfinished-work").exists()
