#!/usr/bin/env python3
"""Makes the seeds of the fuzz targets anew: tests/data/fuzz/make_corpus.py writes corpus/<target>/ beside itself.

Nothing else there is touched: neither what is written by hand (xml, registry) nor what `scripts/fuzz --merge` added.
Another zlib may deflate otherwise; then the archives differ, and are as good.
"""

import os
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
sys.dont_write_bytecode = True
sys.path.insert(0, os.path.join(HERE, "..", "archives"))
import make_archives  # noqa: E402

KEYS = os.path.join(HERE, "..", "keys")


def arguments(*texts):
    return b"\0".join(text if isinstance(text, bytes) else text.encode() for text in texts)


def command_line():
    return {
        "switches": arguments("-start", "-stop", "-m", "-u", "-p", "-f", "-z", "-k", "-nostart", "-version"),
        "values": arguments("-checkHF", "5.7", "-conflictList", "A,B", "-d", "/tmp", "-e", "h:1", "-U", "a", "-P", "s",
                            "-l", "log"),
        "properties": arguments(*[part for n in range(1, 5) for part in (f"-CustomProps{n}", f"Prop {n}")]),
        "help": arguments("-m", "--help", "-u"),
        "short_help": arguments("-h"),
        "question_for_value": arguments("-P", "?", "-m"),
        "option_for_value": arguments("-d", "-m", "-u"),
        "secret_refused": arguments("-P", "-secret", "-P", "other", "-P"),
        "stray": arguments("foo", "-m", b"b\xe4r\xff"),
        "empty_argument": arguments("-m", "", "-u"),
        "empty_value": arguments("-CustomProps2", "", "-u"),
        "unsupported": arguments("-start", "-mu", "-stop"),
        "lone_dash": arguments("-"),
    }


def splitter():
    wide = b"".join(ord(c).to_bytes(4, "big") for c in 'x "\u00e9 \u4e2d\U0001f600"\t')
    odd = b"".join(n.to_bytes(4, "big") for n in (0xDC80, 0xD800, 0x20, 0x110000, 0xFFFFFFFF, 0x22, 0xDC20, 0x20, 0x41))
    return {
        "shell": b'\0sh -c "echo a b"',
        "blanks": b"\0 a  b\tc\v\f\r\nd ",
        "quote_in_word": b'\0x"y z"w ""  "',
        "open_quote": b'\0a "b c ',
        "bytes": b"\0/opt/\xe4\xa0\x85 \xff",
        "zero": b"\0a b\0c d",
        "wide": b"\1" + wide,
        "no_text": b"\1" + odd,
    }


def keys():
    names = ["rsa1024.pkcs1.der", "rsa1024.pkcs1.pem", "rsa1024.pkcs1pub.der", "rsa1024.pkcs1pub.pem", "rsa1024.pkcs8.der",
             "rsa1024.pkcs8.pem", "rsa1024.spki.der", "rsa1024.spki.pem", "ec.pkcs8.der", "ec.spki.pem", "certificate.pem",
             "encrypted.pkcs1.pem", "encrypted.pkcs8.der", "encrypted.pkcs8.pem", "rsapss.spki.der"]
    made = {}
    for name in names:
        with open(os.path.join(KEYS, name), "rb") as file:
            made[name] = file.read()
    made["blanks_around.pem"] = b" \r\n\t" + made["rsa1024.spki.pem"].replace(b"\n", b"\r\n") + b" \n"
    made["something_after.pem"] = made["rsa1024.spki.pem"] + b"x"
    made["something_after.der"] = made["rsa1024.spki.der"] + b"x"
    made["cut.der"] = made["rsa1024.pkcs8.der"][:-1]
    return made


def server():
    texts = ["host", "srv:443", "10.0.0.5:8444", "[fe80::1]:8444", "[fe80::1%lo]:8443", "[fe80::1%lo]", "[fe80::1]:",
             "fe80::1%7", "[ff02::1%1]:1", "[2001:db8::1%3]:65535", "[fe80:1111:2222:3333:4444:5555:6666:7777%42]:1",
             "a]b]:1", "[a]:1]", ":443", "]", "[::ffff:192.0.2.1]:1", "[fe80::1%4294967295]:1", "[fe80::1%0]:00443"]
    return {f"{number:02}": text.encode() for number, text in enumerate(texts)}


def site_list():
    whole = make_archives.SITE_LIST
    return {
        "ascii": whole,
        "latin_1": b'<?xml version="1.0" encoding="ISO-8859-1"?>\n<a b="M\xfcller"/>\n',
        "utf_8": "é中😀".encode(),
        "every_byte": bytes(range(1, 256)),
        "zero": b"before\0after",
    }


def archives():
    """Those of the archives that are small and always come out alike."""
    made = {**make_archives.good(), **make_archives.hostile()}
    random = {"cut_in_content", "cut_in_directory", "cut_by_one", "damaged_content"}
    return {name + ".zip": data for name, data in made.items() if 0 < len(data) <= 1500 and name not in random}


def reply():
    good = make_archives.good()
    lists = {
        "fips": make_archives.SITE_LIST,
        "no_mode": b"<ns:SiteLists><SiteList/></ns:SiteLists>",
        "latin_1": b'<?xml version="1.0" encoding="ISO-8859-1"?><ns:SiteLists><SiteList FipsMode="\xe9"/></ns:SiteLists>',
        "no_list": b"<ns:SiteLists/>",
        "no_xml": b"no XML",
    }
    made = {"list_" + name: b"\2\0" + data for name, data in lists.items()}
    made["list_in_pieces"] = b"\2\7" + lists["fips"]
    made["package"] = b"\1\0" + good["package"]
    made["streamed_in_pieces"] = b"\1\x3d" + good["streamed"]
    made["tree"] = b"\1\0" + good["tree"]
    made["empty_archive"] = b"\1\0" + good["empty"]
    mode_taken = make_archives.archive(("sitelist.xml", lists["fips"]), ("agentfipsmode/", b"", make_archives.DIRECTORY))
    made["mode_is_a_directory"] = b"\1\0" + mode_taken
    made["final_name_is_a_directory"] = b"\1\0" + make_archives.archive(
        ("keltconfig_keystemp.zip", b"x"), ("SiteList.xml/", b"", make_archives.DIRECTORY))
    made["nothing"] = b"\0\0"
    made["success_alone"] = b"\0\0OK:\r\n"
    made["mark_in_pieces"] = b"\0\1OK:\r\nUEsF BgAA\r\nAAAAAAAAAAAAAAAAAAAAAA\t=="
    made["padding_first"] = b"\0\0OK:\r\n=AAA"
    made["padding_thrice"] = b"\0\0OK:\r\nA==="
    made["text_after_padding"] = b"\0\0OK:\r\nAA==AAAA"
    made["other_alphabet"] = b"\0\0OK:\r\nAA-_"
    made["wrong_mark"] = b"\0\0OK:\nAAAA"
    return made


def write(target, seeds):
    directory = os.path.join(HERE, "corpus", target)
    os.makedirs(directory, exist_ok=True)
    for name, data in seeds.items():
        with open(os.path.join(directory, name), "wb") as file:
            file.write(data)


def main():
    for target, seeds in (("command_line", command_line()), ("splitter", splitter()), ("keys", keys()),
                          ("server", server()), ("site_list", site_list()), ("zip", archives()), ("reply", reply())):
        write(target, seeds)


if __name__ == "__main__":
    main()
