#!/usr/bin/env python3
"""Makes the archives that the tests unpack: python3 make_archives.py DIRECTORY writes good/*.zip and hostile/*.zip.

Every archive is made here, byte by byte or with the zipfile module; none comes from elsewhere. The hostile ones carry
the harmless file "harmless.txt" first wherever they can, so that a test sees whether anything of a refused archive is
left behind.
"""

import io
import os
import struct
import sys
import warnings
import zipfile
import zlib

SITE_LIST = (b'<?xml version="1.0" encoding="UTF-8"?>\n<ns:SiteLists xmlns:ns="urn:test:site-list">'
             b'<SiteList Default="1" FipsMode="1"><SpipeSite ServerIP="192.0.2.1"/></SiteList></ns:SiteLists>\n')
FILE, DIRECTORY, LINK, FIFO, DEVICE = 0o100644, 0o040755, 0o120777, 0o010644, 0o020644


def entry(name, mode=FILE, method=zipfile.ZIP_DEFLATED):
    info = zipfile.ZipInfo(name, (2024, 1, 1, 0, 0, 0))
    info.create_system = 3
    info.external_attr = mode << 16
    info.compress_type = method
    return info


def archive(*entries, method=zipfile.ZIP_DEFLATED, first=True):
    """entries: (name, content) or (name, content, mode)."""
    memory = io.BytesIO()
    with warnings.catch_warnings():
        warnings.simplefilter("ignore")  # duplicate names are meant
        with zipfile.ZipFile(memory, "w") as target:
            for name, content, *mode in ([("harmless.txt", b"harmless")] if first else []) + list(entries):
                target.writestr(entry(name, *mode, method=method), content)
    return memory.getvalue()


def raw_name(placeholder, name, content=b"x"):
    """An archive whose entry name is the given bytes; placeholder is an ASCII name of the same length."""
    assert len(placeholder) == len(name)
    return archive((placeholder, content)).replace(placeholder.encode(), name)


class Unseekable(io.RawIOBase):
    """A pipe: zipfile then writes data descriptors behind the entries, as streaming tools do."""

    def __init__(self):
        self.written = bytearray()

    def writable(self):
        return True

    def write(self, data):
        self.written += bytes(data)
        return len(data)


def streamed():
    pipe = Unseekable()
    with zipfile.ZipFile(pipe, "w") as target:
        target.writestr(entry("sitelist.xml"), SITE_LIST)
        target.writestr(entry("srpubkey.bin", method=zipfile.ZIP_DEFLATED), b"key" * 100)
    return bytes(pipe.written)


def patched_directory(data, name, offset, replacement):
    """Overwrites bytes of the central directory record of an entry (offsets as in the format: 16 checksum, 24 size)."""
    at = data.rindex(b"PK\x01\x02", 0, data.rindex(name))
    return data[:at + offset] + replacement + data[at + offset + len(replacement):]


def understated():
    """An entry that unpacks to 1 MiB and says 10 bytes."""
    data = archive(("big.bin", b"\0" * (1 << 20)))
    return patched_directory(data, b"big.bin", 24, struct.pack("<I", 10))


def overstated():
    data = archive(("small.bin", b"small"))
    return patched_directory(data, b"small.bin", 24, struct.pack("<I", 1000))


def wrong_checksum():
    data = archive(("key.bin", b"secret key"))
    return patched_directory(data, b"key.bin", 16, struct.pack("<I", zlib.crc32(b"other")))


def damaged_content():
    content = os.urandom(4096)
    data = bytearray(archive(("key.bin", content), method=zipfile.ZIP_STORED))
    data[data.index(content) + 2000] ^= 0xFF
    return bytes(data)


def encrypted():
    """Marked as encrypted in both records; the content would be noise."""
    data = bytearray(archive(("key.bin", b"secret key"), method=zipfile.ZIP_STORED))
    local, central = data.rindex(b"PK\x03\x04"), data.rindex(b"PK\x01\x02")
    data[local + 6] |= 1
    data[central + 8] |= 1
    return bytes(data)


def single(name, packed, size, checksum, method=8):
    """An archive of one regular file, every field as given."""
    fields = struct.pack("<HHHHHIIIHH", 20, 0, method, 0, 0x5821, checksum, len(packed), size, len(name), 0)
    local = b"PK\x03\x04" + fields + name
    central = b"PK\x01\x02" + struct.pack("<H", 0x0314) + fields + struct.pack("<HHHII", 0, 0, 0, FILE << 16, 0) + name
    end = b"PK\x05\x06" + struct.pack("<HHHHIIH", 0, 0, 1, 1, len(central), len(local) + len(packed), 0)
    return local + packed + central + end


def bomb(declared=1 << 30):
    """1 GiB of zeros in about 1 MiB of deflated data: one flushed block, repeated."""
    packer = zlib.compressobj(9, zlib.DEFLATED, -15)
    once = packer.compress(b"\0" * (1 << 20)) + packer.flush(zlib.Z_FULL_FLUSH)
    checksum = 0x5B64C2B0  # of 1 GiB of zeros; computing it takes longer than all the rest
    return single(b"bomb.bin", once * 1024 + packer.flush(), declared, checksum)


def good():
    long_part = "n" * 255
    return {
        "package": archive(("sitelist.xml", SITE_LIST), ("srpubkey.bin", b"\x30\x82" + bytes(range(256))), first=False),
        "stored": archive(("a.bin", bytes(range(256))), method=zipfile.ZIP_STORED),
        "streamed": streamed(),
        "empty": archive(first=False),
        "empty_file": archive(("nothing.bin", b"")),
        "tree": archive(("keys/", b"", DIRECTORY), ("keys/deep/er/k.bin", b"deep"), ("keys/k.bin", b"top")),
        "modes": archive(("open.sh", b"#!", 0o104777), ("shut/", b"", 0o040000), ("shut/f", b"f", 0o100000)),
        "utf8_name": archive(("schlüssel-鍵.bin", b"key")),
        "no_attributes": archive(("plain.bin", b"plain", 0)),
        "longest_part": archive((long_part, b"long")),
        "longest_name": archive(("/".join(["n" * 127] * 4) + "n", b"long")),
        "deepest": archive(("/".join("d" * 16), b"deep")),
        "many": archive(*[(f"f{i}", b"x") for i in range(1023)]),
        "megabytes": archive(("m.bin", b"m" * (8 << 20))),
        "comment_behind": archive(("a", b"a"))[:-2] + struct.pack("<H", 5) + b"hello",
        "blank_name": archive((" a b ", b"blank")),
    }


def hostile():
    whole = archive(("key.bin", os.urandom(2000)))
    return {
        "no_bytes": b"",
        "short": b"PK\x05\x06",
        "text": b"<html>Service unavailable</html>" * 10,
        "cut_in_content": whole[:1000],
        "cut_in_directory": whole[:-60],
        "cut_by_one": whole[:-1],
        "wrong_checksum": wrong_checksum(),
        "damaged_content": damaged_content(),
        "encrypted": encrypted(),
        "understated": understated(),
        "overstated": overstated(),
        "bomb": bomb(),
        "bomb_that_lies": bomb(declared=1000),
        "two_halves_too_much": archive(("a.bin", b"\0" * (33 << 20)), ("b.bin", b"\0" * (33 << 20))),
        "entries_2000": archive(*[(f"f{i}", b"x") for i in range(2000)]),
        "entries_1025": archive(*[(f"f{i}", b"x") for i in range(1024)]),
        "parent": archive(("../outside.txt", b"x")),
        "parent_inside": archive(("keys/../../outside.txt", b"x")),
        "parent_only": archive(("..", b"x")),
        "parent_directory": archive(("../outside/", b"", DIRECTORY)),
        "dot": archive(("./a", b"x")),
        "dot_only": archive((".", b"x")),
        "double_slash": archive(("keys//a", b"x")),
        "slash_only": archive(("/", b"", DIRECTORY)),
        "no_name": single(b"", b"x", 1, zlib.crc32(b"x"), method=0),
        "absolute": archive(("/tmp/outside.txt", b"x")),
        "backslash": archive(("..\\outside.txt", b"x")),
        "drive": archive(("c:outside.txt", b"x")),
        "line_end_in_name": archive(("a\nb", b"x")),
        "escape_in_name": archive(("a\x1b[2Jb", b"x")),
        "delete_in_name": archive(("a\x7fb", b"x")),
        "latin1_name": raw_name("caf_", b"caf\xe9"),
        "overlong_utf8_name": raw_name("a__b", b"a\xc0\xafb"),
        "surrogate_name": raw_name("a___b", b"a\xed\xa0\x80b"),
        "link": archive(("link", b"/etc/passwd", LINK)),
        "file_through_link": archive(("link", b"/tmp", LINK), ("link/outside.txt", b"x")),
        "link_named_as_directory": archive(("link/", b"", LINK)),
        "fifo": archive(("fifo", b"", FIFO)),
        "device": archive(("null", b"", DEVICE)),
        "directory_without_slash": archive(("keys", b"", DIRECTORY)),
        "directory_with_content": archive(("keys/", b"content", DIRECTORY), method=zipfile.ZIP_STORED),
        "duplicate": archive(("a", b"1"), ("a", b"2")),
        "duplicate_in_other_case": archive(("sitelist.xml", SITE_LIST), ("SiteList.xml", b"x")),
        "duplicate_directory": archive(("keys/", b"", DIRECTORY), ("keys/", b"", DIRECTORY)),
        "file_then_directory": archive(("keys", b"x"), ("keys/a", b"x")),
        "directory_then_file": archive(("keys/a", b"x"), ("keys", b"x")),
        "file_and_directory_entry": archive(("keys", b"x"), ("keys/", b"", DIRECTORY)),
        "part_of_300": archive(("n" * 300, b"x")),
        "name_of_513": archive(("/".join(["n" * 127] * 4) + "/x", b"x")),
        "levels_17": archive(("/".join("d" * 17), b"x")),
        "bzip2": archive(("a", b"x"), method=zipfile.ZIP_BZIP2),
        "lzma": archive(("a", b"x"), method=zipfile.ZIP_LZMA),
    }


def write(directory, archives):
    os.makedirs(directory, exist_ok=True)
    for name, data in archives.items():
        with open(os.path.join(directory, name + ".zip"), "wb") as file:
            file.write(data)


def main():
    write(os.path.join(sys.argv[1], "good"), good())
    write(os.path.join(sys.argv[1], "hostile"), hostile())


if __name__ == "__main__":
    main()
