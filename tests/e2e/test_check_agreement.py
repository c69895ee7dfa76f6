"""keltcheck and keltconfig on the same broken devices: what the one calls well, the other can do, and the other way round.

Each row is a damage, as shell lines on the device, and the work that keltconfig is then to do. What becomes of that is
judged by what it leaves: refused (a status other than 0), impaired (0, but the device is not as after good work) or fine.
keltcheck looks first, at the very same device:

    it says ok       -> the work is fine
    the work is refused  -> it says problem
    it says problem  -> the work is refused or impaired
    the work is impaired -> it says warning or problem
"""

import hashlib

import pytest

from check import OK, PROBLEM, WARNING, environment, found_in
from device import AGENT_CONFIG, INSTALL, KEYSTORE, SCRATCH

BIN = INSTALL + "/bin"
FIREWALL = "/etc/orv.d/FIREWALL1000/config.xml"

# What the scripts of the table can use.
PRELUDE = f"""
C=/etc/orv.d A={AGENT_CONFIG} O={INSTALL} S={SCRATCH} K={KEYSTORE} F={FIREWALL} L=/run/orv-locks
LOCK=$L/71D551C0-D2DA-42F0-BB87-E4CE5347DD14-sync_mutex
readonly_() {{ mount -n --bind "$1" "$1" && mount -n -o remount,bind,ro "$1"; }}
element() {{ sed -i "s|<$1>.*</$1>|$2|" "$3"; }}
named_() {{ element StartCommand "<StartCommand>$O/bin/other start</StartCommand>" $A; }}
small() {{ cp -a "$1" "$OUT/kept" && mount -n -t tmpfs -o "$2,mode=755" small "$1" && cp -a "$OUT/kept/." "$1"; }}
fill() {{ dd if=/dev/zero of="$1/fill" bs=4096 2>/dev/null || true; }}
parts() {{ mkdir "$OUT/bin"; cp "$KELTCONFIG" "$KELTCHECK" "${{KELTCONFIG%/*}}"/keltconfig-*.so "$OUT/bin"
  chmod 755 "$OUT" "$OUT/bin"; KELTCONFIG=$OUT/bin/keltconfig KELTCHECK=$OUT/bin/keltcheck; }}
"""

SERVICE = {
    "nothing is wrong": ":",
    "no configuration directory": "umount /etc/orv.d && rmdir /etc/orv.d",
    "configuration directory open to others": "chmod o+w $C",
    "configuration directory closed to all but root": "chmod 700 $C",
    "configuration directory empty": "rm -r $C/*",
    "no directory of the agent": "rm -r $C/ZENTORAGENT3000",
    "directory of the agent open to others": "chmod o+w $C/ZENTORAGENT3000",
    "directory of the agent open to its group": "chmod g+w $C/ZENTORAGENT3000",
    "directory of the agent is a file": "rm -r $C/ZENTORAGENT3000; : >$C/ZENTORAGENT3000",
    "directory of the agent is a link": "mv $C/ZENTORAGENT3000 $C/..agent; ln -s ..agent $C/ZENTORAGENT3000",
    "directory of the agent is a link that leads nowhere": "rm -r $C/ZENTORAGENT3000; ln -s gone $C/ZENTORAGENT3000",
    "no configuration file": "rm $A",
    "configuration file is a directory": "rm $A; mkdir $A",
    "configuration file is a FIFO": "rm $A; mkfifo $A",
    "configuration file is a link": "mv $A $C/kept.xml; ln -s ../kept.xml $A",
    "configuration file is a link into a directory of strangers":
        "mkdir -m 777 $OUT/open; mv $A $OUT/open/config.xml; ln -s $OUT/open/config.xml $A",
    "configuration file is a link that leads nowhere": "ln -sf gone $A",
    "configuration file is a link to itself": "ln -sf config.xml $A",
    "configuration file open to others": "chmod o+w $A",
    "configuration file empty": ": >$A",
    "configuration file no XML": "echo nothing >$A",
    "configuration file cut off": "head -c 400 $A >$A.new; mv $A.new $A",
    "configuration file with another root": "sed -i 's/Configuration>/Settings>/' $A",
    "configuration file with a DOCTYPE": "sed -i '2i <!DOCTYPE Configuration>' $A",
    "configuration file with a stray byte": "printf '<!-- \\351 -->' >>$A",
    "configuration file with something after its end": "echo more >>$A",
    "configuration file with an attribute twice": "sed -i 's/<FIPSmode>/<FIPSmode a=\"1\" a=\"1\">/' $A",
    "configuration file with a bare ampersand": "sed -i 's/5.7.8/5 \\& 7/' $A",
    "configuration file too large": "truncate -s 65M $A",
    "configuration file in UTF-16": "iconv -f UTF-8 -t UTF-16 $A | sed '1s/UTF-8/UTF-8/' >$A.new; mv $A.new $A",
    "configuration file in UTF-16, declared so":
        "sed -i 's/UTF-8/UTF-16/' $A; iconv -f UTF-8 -t UTF-16 $A >$A.new; mv $A.new $A",
    "configuration file with a byte order mark": "printf '\\357\\273\\277' | cat - $A >$A.new; mv $A.new $A",
    "configuration file in an encoding that is not known": "sed -i 's/UTF-8/KOI8-R/' $A",
    "start command of no program": "element StartCommand '<StartCommand>/nowhere/agent start</StartCommand>' $A",
    "start command in quotes":
        "element StartCommand '<StartCommand>\"/opt/Quorvane/orv/bin/agent\" start</StartCommand>' $A",
    "start command empty": "element StartCommand '<StartCommand></StartCommand>' $A",
    "start command missing": "element StartCommand '' $A",
    "start command is a directory": "element StartCommand '<StartCommand>/opt start</StartCommand>' $A",
    "start command not in the path": "element StartCommand '<StartCommand>agent start</StartCommand>' $A",
    "start command in the path":
        "element StartCommand '<StartCommand>agent start</StartCommand>' $A; PATH=$PATH:$O/bin",
    "start command below the binary directory": "element StartCommand '<StartCommand>./agent start</StartCommand>' $A",
    "start command after white space": "element StartCommand \"<StartCommand>  $O/bin/agent\tstart </StartCommand>\" $A",
    "start command that cannot be executed":
        "cp $O/bin/agent $O/bin/other; chmod 644 $O/bin/other;"
        " element StartCommand '<StartCommand>/opt/Quorvane/orv/bin/other start</StartCommand>' $A",
    "start command without its interpreter":
        "sed 's|#!/bin/sh|#!/bin/nosuch|' $O/bin/agent >$O/bin/other; chmod 755 $O/bin/other;"
        " element StartCommand '<StartCommand>/opt/Quorvane/orv/bin/other start</StartCommand>' $A",
    "start command where nothing may be executed":
        "mkdir $O/noexec; mount -n -t tmpfs -o noexec none $O/noexec; cp -p $O/bin/agent $O/noexec;"
        " element StartCommand '<StartCommand>/opt/Quorvane/orv/noexec/agent start</StartCommand>' $A",
    "start command is an empty program": ": >$O/bin/other; chmod 755 $O/bin/other; named_",
    "start command is a program cut off": "head -c 4000 $KELTCHECK >$O/bin/other; chmod 755 $O/bin/other; named_",
    "start command is a program for another machine":
        "cp $KELTCHECK $O/bin/other; for i in 5 18 19; do printf '\\377' | dd of=$O/bin/other bs=1 seek=$i conv=notrunc; done;"
        " named_",
    "start command is a script without a first line of its own":
        "sed 1d $O/bin/agent >$O/bin/other; chmod 755 $O/bin/other; named_",
    "stop command missing": "element StopCommand '' $A",
    "stop command of no program": "element StopCommand '<StopCommand>/nowhere/agent stop</StopCommand>' $A",
    "program of all commands missing": "rm $O/bin/agent.kept 2>/dev/null; mv $O/bin/agent $O/bin/agent.kept",
    "load command of no program": "element LoadOrvPluginCommand '<LoadOrvPluginCommand>x</LoadOrvPluginCommand>' $F",
    "unload command of no program":
        "element UnloadOrvPluginCommand '<UnloadOrvPluginCommand>x</UnloadOrvPluginCommand>' $F",
    "file of a product no XML": "echo nothing >$F",
    "file of a product open to others": "chmod o+w $F",
    "file of a product missing": "rm $F",
    "file of a product is a directory": "rm $F; mkdir $F",
    "directory of a product open to others": "chmod o+w $C/FIREWALL1000",
    "no binary directory": "element AgentBinDirectory '<AgentBinDirectory>/nowhere</AgentBinDirectory>' $A",
    "binary directory is a file":
        "element AgentBinDirectory '<AgentBinDirectory>/opt/Quorvane/orv/bin/agent</AgentBinDirectory>' $A",
    "binary directory not named": "element AgentBinDirectory '' $A",
    "directory of the lock is a file": ": >$L",
    "directory of the lock is a link": "mkdir -m 700 $OUT/locks; ln -s $OUT/locks $L",
    "directory of the lock open to others": "mkdir $L; chmod 777 $L",
    "directory of the lock readable by others": "mkdir -m 755 $L",
    "lock file open to others": "mkdir -m 700 $L; : >$LOCK; chmod 644 $LOCK",
    "lock file is a link": "mkdir -m 700 $L; ln -s $OUT/lock $LOCK",
    "lock file has another name": "mkdir -m 700 $L; : >$LOCK; chmod 600 $LOCK; ln $LOCK $L/other",
    "lock file is a directory": "mkdir -m 700 $L; mkdir $LOCK",
    "lock file left by a killed run": "mkdir -m 700 $L; : >$LOCK; chmod 600 $LOCK",
    "no room for the lock": "readonly_ /run",
}

MANAGED = {
    "nothing is wrong with the source": ":",
    "no source directory": "SOURCE=/nowhere",
    "source directory from where it runs": "cd $SOURCE/..; SOURCE=${SOURCE##*/}",
    "source is where it runs": "cd $SOURCE; SOURCE=.",
    "source beside a directory that is not complete": "mkdir $O/bin/keys; cp $SOURCE/SiteList.xml $O/bin/keys;"
        " cd $SOURCE/..; mv $SOURCE keys; SOURCE=keys",
    "name of the source in UTF-8": "mv $SOURCE $OUT/schl\303\274ssel; SOURCE=$OUT/schl\303\274ssel",
    "no site list in the source": "rm $SOURCE/SiteList.xml",
    "site list empty": ": >$SOURCE/SiteList.xml",
    "site list no XML": "echo nothing >$SOURCE/SiteList.xml",
    "site list cut off": "head -c 60 $SOURCE/SiteList.xml >$OUT/s; mv $OUT/s $SOURCE/SiteList.xml",
    "site list with another root": "sed -i 's/ns:SiteLists/ns:Sites/g' $SOURCE/SiteList.xml",
    "site list without sites": "echo '<ns:SiteLists/>' >$SOURCE/SiteList.xml",
    "site list without servers": "echo '<ns:SiteLists><SiteList/></ns:SiteLists>' >$SOURCE/SiteList.xml",
    "site list of a server without an address":
        "echo '<ns:SiteLists><SiteList><SpipeSite/></SiteList></ns:SiteLists>' >$SOURCE/SiteList.xml",
    "site list with a DOCTYPE": "sed -i '1a <!DOCTYPE a>' $SOURCE/SiteList.xml",
    "site list in Latin-1": "printf '<!-- \\351 -->' >>$SOURCE/SiteList.xml",
    "site list in Latin-1, declared so":
        "sed -i 's/UTF-8/ISO-8859-1/' $SOURCE/SiteList.xml; printf '<!-- \\351 -->' >>$SOURCE/SiteList.xml",
    "site list in Latin-1 behind a link":
        "printf '<!-- \\351 -->' >>$SOURCE/SiteList.xml; mv $SOURCE/SiteList.xml $OUT/list;"
        " ln -s $OUT/list $SOURCE/SiteList.xml",
    "site list in Latin-1 in a directory that is read-only":
        "printf '<!-- \\351 -->' >>$SOURCE/SiteList.xml; : >$SOURCE/reqseckey.bin; : >$SOURCE/srpubkey.bin;"
        " readonly_ $SOURCE",
    "site list behind a link": "mv $SOURCE/SiteList.xml $OUT/list; ln -s $OUT/list $SOURCE/SiteList.xml",
    "site list is a directory": "rm $SOURCE/SiteList.xml; mkdir $SOURCE/SiteList.xml",
    "source is the installation": "cp $SOURCE/* $O; SOURCE=$O",
    "source ends in slashes": "SOURCE=$SOURCE///",
    "source is a link": "ln -s $SOURCE $OUT/link; SOURCE=$OUT/link",
    "source is a link to itself": "ln -s self $OUT/self; SOURCE=$OUT/self",
    "source is a file": "SOURCE=$SOURCE/SiteList.xml",
    "source with a name of 300 characters": "SOURCE=/$(printf '%0300d' 1)",
    "site list with a zero byte": "printf '<!-- \\0 -->' >>$SOURCE/SiteList.xml",
    "site list with a zero byte after a stray byte": "printf '<!-- \\351 \\0 -->' >>$SOURCE/SiteList.xml",
    "site list of 300 levels":
        "{ echo '<ns:SiteLists><SiteList><SpipeSite ServerIP=\"192.0.2.10\"/></SiteList>'; for i in $(seq 300); do"
        " echo '<a>'; done; for i in $(seq 300); do echo '</a>'; done; echo '</ns:SiteLists>'; } >$SOURCE/SiteList.xml",
    "site list is a socket":
        "rm $SOURCE/SiteList.xml; cd $SOURCE; python3 -c 'import socket; socket.socket(socket.AF_UNIX)"
        ".bind(\"SiteList.xml\")'; cd $OUT",
    "site list is a device": "rm $SOURCE/SiteList.xml; ln -s /dev/zero $SOURCE/SiteList.xml",
    "server key is a device": "rm $SOURCE/sr2048pubkey.bin; ln -s /dev/zero $SOURCE/sr2048pubkey.bin",
    "server key of 1024 bits": "openssl genrsa -traditional 1024 2>/dev/null | openssl rsa -pubout -outform DER"
        " 2>/dev/null >$SOURCE/sr2048pubkey.bin",
    "server key on an elliptic curve":
        "openssl ecparam -name prime256v1 -genkey -noout | openssl ec -pubout -outform DER 2>/dev/null"
        " >$SOURCE/sr2048pubkey.bin",
    "server key in PEM": "openssl rsa -pubin -inform DER -in $SOURCE/sr2048pubkey.bin -out $OUT/k 2>/dev/null;"
        " mv $OUT/k $SOURCE/sr2048pubkey.bin",
    "request key empty": ": >$SOURCE/req2048seckey.bin",
    "request key is the public one": "cp $SOURCE/sr2048pubkey.bin $SOURCE/req2048seckey.bin",
    "legacy keys beside the others": "cp $SOURCE/sr2048pubkey.bin $SOURCE/srpubkey.bin;"
        " cp $SOURCE/req2048seckey.bin $SOURCE/reqseckey.bin",
    "FIPS marker is a directory": "rm $SOURCE/agentfipsmode; mkdir $SOURCE/agentfipsmode",
    "FIPS marker is a link to itself": "ln -sf agentfipsmode $SOURCE/agentfipsmode",
    "site list is a FIFO": "rm $SOURCE/SiteList.xml; mkfifo $SOURCE/SiteList.xml",
    "no request key": "rm $SOURCE/req2048seckey.bin",
    "no server key": "rm $SOURCE/sr2048pubkey.bin",
    "no FIPS marker": "rm $SOURCE/agentfipsmode",
    "FIPS marker empty": ": >$SOURCE/agentfipsmode",
    "FIPS marker says FIPS": "printf 1 >$SOURCE/agentfipsmode",
    "server key empty": ": >$SOURCE/sr2048pubkey.bin",
    "server key no key": "echo nothing >$SOURCE/sr2048pubkey.bin",
    "server key cut off": "head -c 100 $SOURCE/sr2048pubkey.bin >$OUT/k; mv $OUT/k $SOURCE/sr2048pubkey.bin",
    "server key with something after its end": "echo more >>$SOURCE/sr2048pubkey.bin",
    "server key is the secret one": "cp $SOURCE/req2048seckey.bin $SOURCE/sr2048pubkey.bin",
    "server key is a FIFO": "rm $SOURCE/sr2048pubkey.bin; mkfifo $SOURCE/sr2048pubkey.bin",
    "server key is a directory": "rm $SOURCE/sr2048pubkey.bin; mkdir $SOURCE/sr2048pubkey.bin",
    "server key too large": "truncate -s 65537 $SOURCE/sr2048pubkey.bin",
    "server key behind a link": "mv $SOURCE/sr2048pubkey.bin $OUT/k; ln -s $OUT/k $SOURCE/sr2048pubkey.bin",
    "request key no key": "echo nothing >$SOURCE/req2048seckey.bin",
    "legacy key is a FIFO": "mkfifo $SOURCE/srpubkey.bin",
    "source read-only, legacy keys there":
        ": >$SOURCE/reqseckey.bin; : >$SOURCE/srpubkey.bin; readonly_ $SOURCE",
    "source read-only, legacy keys to be made": "readonly_ $SOURCE",
    "no directory for the site list": "rm -r $S/etc",
    "directory for the site list is a file": "rm -r $S/etc; : >$S/etc",
    "directory for the site list read-only": "readonly_ $S/etc",
    "installation read-only": "readonly_ $O",
    "installed site list is a read-only mount": "readonly_ $S/etc/SiteList.xml",
    "installed site list is a mount of its own": "mount -n --bind $S/etc/SiteList.xml $S/etc/SiteList.xml",
    "configuration file is a read-only mount": "readonly_ $A",
    "configuration file is a mount of its own": "mount -n --bind $A $A",
    "cache is a mount of its own": ": >$S/etc/sitecache.bin; mount -n --bind $S/etc/sitecache.bin $S/etc/sitecache.bin",
    "cache is a read-only mount": ": >$S/etc/sitecache.bin; readonly_ $S/etc/sitecache.bin",
    "cache is a link to a read-only file":
        ": >$OUT/fixed; readonly_ $OUT/fixed; ln -s $OUT/fixed $S/etc/sitecache.bin",
    "legacy key in the installation is a read-only mount": ": >$O/srpubkey.bin; readonly_ $O/srpubkey.bin",
    "key store read-only": "mkdir -m 700 $K; readonly_ $K",
    "stored server key is a read-only mount":
        "mkdir -m 700 $K; echo x >$K/server-public.der; chmod 600 $K/server-public.der; readonly_ $K/server-public.der",
    "source is a read-only mount of its site list, which is in Latin-1":
        "printf '<!-- \\351 -->' >>$SOURCE/SiteList.xml; readonly_ $SOURCE/SiteList.xml",
    "no data directory":
        "element FrameworkDataDirectory '<FrameworkDataDirectory>/nowhere</FrameworkDataDirectory>' $A",
    "data directory is a file":
        "element FrameworkDataDirectory \"<FrameworkDataDirectory>$A</FrameworkDataDirectory>\" $A",
    "data directory read-only":
        "mkdir $O/data; readonly_ $O/data;"
        " element FrameworkDataDirectory \"<FrameworkDataDirectory>$O/data</FrameworkDataDirectory>\" $A",
    "directory in place of the server key": "mkdir $O/sr2048pubkey.bin",
    "directory in place of a legacy key": "mkdir $O/reqseckey.bin",
    "directory in place of the FIPS marker": "mkdir $O/agentfipsmode",
    "link to itself in place of the server key": "ln -s sr2048pubkey.bin $O/sr2048pubkey.bin",
    "FIFO in place of the request key": "mkfifo $O/req2048seckey.bin",
    "directory in place of a cache": "mkdir $S/ServerSiteList.xml",
    "link to itself in place of a cache": "ln -s sitecache.bin $S/etc/sitecache.bin",
    "directory in place of the installed site list": "rm $S/etc/SiteList.xml; mkdir $S/etc/SiteList.xml",
    "key store is a file": ": >$K",
    "key store is a link": "mkdir $OUT/store; ln -s $OUT/store $K",
    "key store open to others": "mkdir $K; chmod 777 $K",
    "stored server key is a link": "mkdir -m 700 $K; ln -s elsewhere $K/server-public.der",
    "stored server key is a directory": "mkdir -m 700 $K; mkdir $K/server-public.der",
    "stored server key has another name":
        "mkdir -m 700 $K; echo x >$K/server-public.der; ln $K/server-public.der $K/other",
    "stored server key no key": "mkdir -m 700 $K; echo x >$K/server-public.der",
    "recorded setting is a directory": "mkdir -m 700 $K; mkdir $K/keyconf.ini",
    "recorded setting does not read": "mkdir -m 700 $K; echo x >$K/keyconf.ini",
    "scratch directory full": "small $S size=64k; fill $S",
    "scratch directory without inodes": "small $S nr_inodes=14,size=1m; for i in 1 2 3 4 5 6 7 8 9; do : >$S/f$i; done",
    "installation nearly full": "small $O size=200k",
    "no element for the hash": "element binsphash '' $A",
    "element for the hash in short form": "element binsphash '<binsphash/>' $A",
    "element for the hash with an attribute": "element binsphash '<binsphash a=\"1\"></binsphash>' $A",
    "element for the hash in a comment": "sed -i 's|<FIPSmode>|<!-- <binsphash></binsphash> --><FIPSmode>|' $A",
    "end tag of the hash in a comment": "sed -i 's|<FIPSmode>|<!-- </binsphash> --><FIPSmode>|' $A",
    "end tag of the hash in a comment behind an element": "sed -i 's|</Version>|</Version><!-- </binsphash> -->|' $A",
    "configuration file of 4096 bytes":
        "size=$(wc -c <$A); printf '%*s' $((4096 - size)) >>$A",
    "configuration file of 4095 bytes": "size=$(wc -c <$A); printf '%*s' $((4095 - size)) >>$A",
    "configuration read-only": "readonly_ $C",
    "registry file with keys of the server":
        "printf '[SOFTWARE\\\\Tellwick\\\\Zentor\\\\Agent]\\nServerPubKeyBuffSize=dword:00000001\\nServerPublicKey=hex:30\\n"
        "ReqSecKeyBuffSize=dword:00000001\\nReqSecretKey=hex:30\\n' >$S/registry.ini",
    "registry file is a directory": "mkdir $S/registry.ini",
    "registry file with a zero byte": "printf 'a\\0b' >$S/registry.ini",
    "part for keys missing": "parts; rm $OUT/bin/keltconfig-crypto.so",
    "part for keys open to others": "parts; chmod o+w $OUT/bin/keltconfig-crypto.so",
    "part for keys no shared object": "parts; echo nothing >$OUT/bin/keltconfig-crypto.so",
    "part for keys cut off": "parts; truncate -s 20000 $OUT/bin/keltconfig-crypto.so",
    "part for keys another shared object": "parts; cp $OUT/bin/keltconfig-provision.so $OUT/bin/keltconfig-crypto.so",
    "directory of the parts open to others": "parts; chmod o+w $OUT/bin",
    "mark of unfinished work that is none": "echo nothing >$S/unfinished-work",
    "mark of unfinished work is a directory": "mkdir $S/unfinished-work",
    "temporary file of a killed run": ": >$S/etc/.SiteList.xml.kelt-abcdefghijkl",
    "a second directory of an agent": "cp -r $C/ZENTORAGENT3000 $C/XZENTORAGENT1",
}

UNMANAGED = {
    "nothing is wrong with a managed agent": ":",
    "no installed site list": "rm $S/etc/SiteList.xml",
    "installed site list no XML": "echo nothing >$S/etc/SiteList.xml",
    "installed site list is a directory": "rm $S/etc/SiteList.xml; mkdir $S/etc/SiteList.xml",
    "installed site list with another root": "sed -i 's/ns:SiteLists/ns:Sites/g' $S/etc/SiteList.xml",
    "installed site list is a FIFO": "rm $S/etc/SiteList.xml; mkfifo $S/etc/SiteList.xml",
    "directory of the installed site list read-only": "readonly_ $S/etc",
    "installed site list is a read-only mount": "readonly_ $S/etc/SiteList.xml",
    "cache is a directory": "mkdir $S/etc/sitecache.bin",
    "cache is a mount of its own": ": >$S/etc/sitecache.bin; mount -n --bind $S/etc/sitecache.bin $S/etc/sitecache.bin",
    "legacy key is a directory": "mkdir $O/srpubkey.bin",
    "caches of the server": ": >$S/etc/sitecache.bin; : >$S/ServerSiteList.xml",
    "start command of no program": SERVICE["start command of no program"],
    "configuration file open to others": SERVICE["configuration file open to others"],
}

WORK = {
    "service": '"$KELTCONFIG" -stop && "$KELTCONFIG" -start',
    "managed": '"$KELTCONFIG" -m -d "$SOURCE"',
    "unmanaged": '"$KELTCONFIG" -u',
}

LOOK_AND_WORK = """
cd "$OUT"
agent=$O/bin/agent
$agent start; $agent load scanner; $agent load firewall
PREPARE
rm -f /run/agent/calls
{ DAMAGE
} >"$OUT/damage" 2>&1
"$KELTCHECK" --json LOOK >"$OUT/report" 2>"$OUT/errors"
echo $? >"$OUT/checked"

{ WORK
} >"$OUT/worked" 2>&1 </dev/null
echo $? >"$OUT/status"
cp /run/agent/calls "$OUT/calls" 2>/dev/null
[ -x $agent ] || agent=$agent.kept
timeout 20 $agent status >"$OUT/standing" 2>/dev/null
if [ -f "$A" ]; then cp "$A" "$OUT/config"; fi
ls $K >"$OUT/keys" 2>/dev/null
"""

ROWS = [(work, name) for work, rows in (("service", SERVICE), ("managed", MANAGED), ("unmanaged", UNMANAGED)) for name in rows]
DAMAGES = {"service": SERVICE, "managed": MANAGED, "unmanaged": UNMANAGED}


def test_the_table_has_sixty_kinds_of_damage_and_more():
    assert len(ROWS) >= 60


def text(path):
    return path.read_text(errors="replace") if path.exists() else ""


def as_after_good_work(work, out, key):
    """Whether the device is as after work that went well."""
    calls = sorted(text(out / "calls").splitlines())
    plugins = [f"agent {verb} {name}" for verb in ("load", "unload") for name in ("firewall", "scanner")]
    if calls != sorted(["agent start", "agent stop", *plugins]):
        return False
    standing = text(out / "standing")
    if "service     running" not in standing or "plug-ins    firewall scanner" not in standing:
        return False
    if work == "unmanaged":
        return "mode        unmanaged" in standing
    if work == "managed":
        keys = text(out / "keys").split()
        sound = {"keyconf.ini", "server-public.der", "server-request-secret.der"} <= set(keys)
        recorded = f"<binsphash>{hashlib.sha256(key).hexdigest().upper()}</binsphash>"
        without_comments = text(out / "config").split("<!--")
        return sound and "managed by 192.0.2.10" in standing and any(
            recorded in (part.split("-->")[-1] if i else part) for i, part in enumerate(without_comments)
        )
    return True


@pytest.mark.parametrize(("work", "name"), ROWS, ids=[f"{work}: {name}" for work, name in ROWS])
def test_both_agree(device, package, tmp_path, work, name):
    source = package()
    key = (source / "sr2048pubkey.bin").read_bytes()
    out = tmp_path / "out"
    out.mkdir()
    prepare = '"$KELTCONFIG" -m -d "$SOURCE" -nostart >/dev/null; $agent start; $agent load scanner; $agent load firewall'
    script = (
        PRELUDE
        + LOOK_AND_WORK.replace("PREPARE", prepare if work == "unmanaged" else "")
        .replace("DAMAGE", DAMAGES[work][name])
        .replace("LOOK", '--source "$SOURCE"' if work == "managed" else "")
        .replace("WORK", WORK[work])
    )
    done = device.shell(script, env=environment(device, OUT=str(out), SOURCE=str(source)))
    assert done.stderr == b"", done.stderr
    assert text(out / "errors") == ""

    found = found_in(text(out / "report"), int(text(out / "checked")))
    status = int(text(out / "status"))
    refused = status != 0
    fine = not refused and as_after_good_work(work, out, key)
    shown = f"{found.verdict} {found.trouble()}; keltconfig: {status}, {'as it should be' if fine else 'not as it should be'}"
    shown += "\n" + text(out / "worked") + text(out / "damage") + text(out / "standing") + text(out / "calls")
    if found.verdict == OK:
        assert fine, shown
    if refused:
        assert found.verdict == PROBLEM, shown
    if found.verdict == PROBLEM:
        assert refused or not fine, shown
    if not refused and not fine:
        assert found.verdict in (WARNING, PROBLEM), shown
