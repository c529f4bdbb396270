"""Whatever a scan writes, its readers read: the schema, brantle-report and, in a virtual machine, ScanReport."""
import os
import pathlib
import random
import shlex
import struct
import subprocess
import sys
import unittest

sys.path.append(str(pathlib.Path(__file__).resolve().parents[1] / "support"))
import programs  # noqa: E402
from programs import FIXTURES, OPTIONS, SCHEMA, Scan, fresh, run  # noqa: E402

MOST_NAMES = 65536
KINDS = (b"exe", b"dll", b"cab", b"cat", b"msi", b"txt")


def der(tag, *parts):
    body = b"".join(parts)
    size = len(body).to_bytes((len(body).bit_length() + 7) // 8, "big")
    return bytes([tag]) + (bytes([len(body)]) if len(body) < 128 else bytes([0x80 | len(size)]) + size) + body


def signature(certificates):
    """Signed data without signers that carries one small certificate so many times."""
    def oid(last):
        return bytes.fromhex("06092a864886f70d0107") + bytes([last])

    algorithm, empty, time = der(0x30, oid(9)), der(0x30), der(0x17, b"260101000000Z")
    key = der(0x30, algorithm, der(3, b"\0"))
    inner = der(0x30, der(2, b"\1"), algorithm, empty, der(0x30, time, time), empty, key)
    one = der(0x30, inner, algorithm, der(3, b"\0"))
    return der(0x30, oid(2), der(0xA0, der(0x30, der(2, b"\1"), der(0x31), der(0x30, oid(1)),
                                           der(0xA0, one * certificates), der(0x31))))


def image(signatures, certificates):
    data = bytearray((FIXTURES / "images" / "exe32.exe").read_bytes())
    data += bytes(-len(data) % 8)
    one = signature(certificates)
    entry = struct.pack("<IHH", 8 + len(one), 0x200, 2) + one + bytes(-len(one) % 8)
    directory = struct.unpack_from("<I", data, 60)[0] + 24 + 96 + 4 * 8
    struct.pack_into("<II", data, directory, len(data), len(entry) * signatures)
    return bytes(data) + entry * signatures


class Property(unittest.TestCase):
    def test_what_a_scan_writes_is_read(self):
        chance, folders = random.Random(17), []
        source = fresh(self, "names")
        (source / "many.exe").write_bytes(image(17, 4096))
        folders.append(Scan(self, source, "-A", "-d"))
        self.assertIn(f"Only the first {MOST_NAMES} certificates of", folders[0].said)
        self.assertNotIn("incomplete", folders[0].complained)
        models = [path.read_bytes() for kind in ("images", "packages", "cabinets")
                  for path in sorted((FIXTURES / kind).iterdir()) if path.is_file() and path.stat().st_size < 100000]
        for number in range(4):
            source = fresh(self, f"random{number}")
            for _ in range(50):
                data, name = bytearray(chance.choice(models)), bytes(chance.choices(range(1, 256), k=chance.randint(1, 99)))
                for _ in range(chance.randint(0, 9)):
                    data[chance.randrange(len(data))] = chance.randrange(256)
                name = name.replace(b"/", b"\x7f") + b"." + chance.choice(KINDS)
                pathlib.Path(os.fsdecode(os.fsencode(source) + b"/" + name)).write_bytes(data)
            folders.append(Scan(self, source, *chance.choice(([], ["-A"]))))
        for scan in folders:
            subprocess.run(["xmllint", "--noout", "--huge", "--schema", SCHEMA, scan.out / "info.xml"], check=True,
                           capture_output=True)
            text = (scan.out / "info.xml").read_text(encoding="utf-8")
            counts = [text.count("<Executable>"), text.count("<Certificate ")]
            self.assertGreater(counts[0], 0)
            table = run(OPTIONS.report, "csv", scan.out)
            self.assertEqual(table.returncode, 0, table.stderr)
            read = run(*shlex.split(os.environ["TESSIVATOR_READER"]), scan.out)
            self.assertEqual((read.stdout.decode().split()[:2], read.stderr), ([str(count) for count in counts], b""))
        self.assertIn(f'<CertificatesExtracted count="{MOST_NAMES}">', (folders[0].out / "info.xml").read_text())


if __name__ == "__main__":
    programs.main()
