"""large_packages.py FOLDER: makes packages that are too large to keep, with the table of what they must answer.

`reads` bounds the pieces of the file that are read for the record and the signature together.
"""
import os
import pathlib
import struct
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "fixtures" / "scripts"))
from msi import ANSWERS, CLASS, Package, fingerprint  # noqa: E402
from ole import Compound  # noqa: E402

WORKS = [("ProductName", b"Fixture Product"), ("Manufacturer", b"Fixture Works"), ("ProductVersion", b"1.2.3")]
FOUND = ["0", "Fixture Product", "Fixture Works", "1.2.3", "-"]
REFUSED = ["110", "", "", "", "-"]


def with_streams(count, line):
    streams = list(Package(WORKS).streams.items())
    return Compound(streams + [("s%05d" % i, b"") for i in range(count - len(streams) - 1)], CLASS, line=line).bytes()


def with_chains_that_run_on():
    """The streams' chains do not end: each goes on into the next one's, through 8 MB of small streams."""
    file = Compound([*Package(WORKS).streams.items(), *(("small stream %d" % i, b"s" * 4032) for i in range(2000))], CLASS)
    data, count = bytearray(file.bytes()), file.minifat_sectors * 128 - 128
    struct.pack_into("<%dI" % count, data, file.minifat_entry(0), *range(1, count + 1))
    return bytes(data)


def with_cabinet(version):
    return Compound([*Package(WORKS).streams.items(), ("Cabinet", b"c" * (30 << 20))], CLASS, version).bytes()


def patched(data, offset):
    """DATA with a sector number at OFFSET that lies past the end of any file."""
    return data[:offset] + b"\xff\xff\xff\x7f" + data[offset + 4:]


def with_rows(count, wide):
    """The three properties behind as many others."""
    return Package([("P%d" % i, b"V%d" % i) for i in range(count)] + WORKS, wide=wide).bytes()


# One byte more than anybody decodes is read of a longer signature: here zeros behind the header.
MOST = (16 << 20) + 1
HEAD = b"\x30\x84\x01\x10\0\0"


def cut_signature():
    head = int(fingerprint(HEAD).split(":")[1], 16)
    return "%d:%08x" % (MOST, head * pow(0x01000193, MOST - len(HEAD), 1 << 32) % (1 << 32))


def main(folder):
    cabinet = with_cabinet(3)
    difat = 512 * (1 + int.from_bytes(cabinet[68:72], "little"))
    packages = [
        ("streams_1030_in_line", with_streams(1030, True), FOUND, 40),
        ("streams_60000_in_line", with_streams(60000, True), FOUND, 600),
        ("streams_4200_balanced", with_streams(4200, False), FOUND, 100),
        ("streams_65540", with_streams(65540, False), REFUSED, 1200),
        ("mini_chains_run_on", with_chains_that_run_on(), FOUND, 60),
        ("sectors_512_30_MB", cabinet, FOUND, 60),
        ("difat_past_end", patched(cabinet, 68), REFUSED, 60),
        ("difat_place_past_end", patched(cabinet, difat), REFUSED, 60),
        ("sectors_4096_30_MB", with_cabinet(4), FOUND, 40),
        ("signature_17_MiB", Package(WORKS, signature=HEAD + bytes(17 << 20)).bytes(), [*FOUND[:4], cut_signature()], 120),
        ("rows_5000", with_rows(5000, False), FOUND, 60),
        ("strings_70000", with_rows(35000, True), FOUND, 120),
    ]
    for part in ("expected", "packages"):
        os.makedirs(os.path.join(folder, part), exist_ok=True)
    lines = ["\t".join(["file", *ANSWERS, "reads"])]
    for name, data, found, reads in packages:
        pathlib.Path(folder, "packages", name + ".msi").write_bytes(data)
        lines.append("\t".join(["packages/%s.msi" % name, *found, str(reads)]))
    pathlib.Path(folder, "expected", "packages.tsv").write_text("\n".join(lines) + "\n")


main(sys.argv[1])
