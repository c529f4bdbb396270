"""Whole scans through the real command line, native or under Wine, against the fixtures' expected tables.

The tables were worked out with openssl, pefile and msiinfo; both platforms are held to the same ones.
"""
import argparse
import csv
import hashlib
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import time
import unittest
import xml.etree.ElementTree as ElementTree

import pefile

HERE = pathlib.Path(__file__).resolve().parent
FIXTURES = HERE.parent / "fixtures"
TREE = FIXTURES / "tree"
SCHEMA = HERE.parents[1] / "tessivator" / "utils" / "signing" / "brantle" / "info.xsd"
KINDS = ("exe", "dll", "cab", "cat", "ctl", "msi", "xpi", "ocx", "sys")
FULL = ["Name", "SHA1", "SHA256", "companyName", "isInstaller", "productName", "productVersion"]
BARE = [key for key in FULL if key != "SHA256"]
OPTIONS = None  # the command line of this script


def table(name):
    with open(FIXTURES / "expected" / name, encoding="utf-8", newline="") as file:
        return list(csv.DictReader(file, delimiter="\t", quoting=csv.QUOTE_NONE))


def shown(text):
    """A table's value as the report shows it: what XML 1.0 forbids has become U+FFFD."""
    units = re.sub(r"\\u([0-9a-f]{4})", lambda m: chr(int(m.group(1), 16)), text)
    text = units.encode("utf-16-le", "surrogatepass").decode("utf-16-le", "replace")
    return re.sub("[\x00-\x08\x0b-\x1f\ufffe\uffff]", "\ufffd", text)


class Result:
    def __init__(self, code, said, complained, out):
        self.code, self.said, self.complained, self.out = code, said, complained, out

    @property
    def files(self):
        return sorted(path.name for path in self.out.iterdir())

    @property
    def stems(self):
        return {path.stem for path in self.out.glob("*.cer")}

    def records(self, root):
        """Record by path relative to `root`, with slashes: {key: text}, and the list of stems under "stems"."""
        subprocess.run(["xmllint", "--noout", "--huge", "--schema", SCHEMA, self.out / "info.xml"], check=True,
                       capture_output=True)
        raw = (self.out / "info.xml").read_bytes()
        assert raw.startswith(b'<?xml version="1.0" encoding="UTF-8"?>\n') and b"\r\n" not in raw
        document = ElementTree.fromstring(raw)
        assert document.tag == "ExecutableData" and not document.attrib
        found = {}
        for element in document:
            keys = [child.tag for child in element]
            assert element.tag == "Executable" and keys in (FULL + ["CertificatesExtracted"],
                                                            BARE + ["CertificatesExtracted"]), keys
            record = {child.tag: child.text or "" for child in element}
            certificates = element[-1]
            record["stems"] = [child.attrib["name"] for child in certificates]
            assert certificates.attrib == {"count": str(len(record["stems"]))}
            assert record["Name"].startswith(told(root)), record["Name"]
            name = record["Name"][len(told(root)):].replace("\\", "/").lstrip("/")
            assert name not in found, name
            found[name] = record
        return found


def told(path):
    """A path as the program names it."""
    return "Z:" + str(path).replace("/", "\\") if OPTIONS.wine else str(path)


def scan(case, source, *options, out=None, timeout=120, environment=None):
    """One run of the program. The output folder is new unless it is given."""
    if out is None:
        out = fresh(case, "out")
    command = [*filter(None, [OPTIONS.wine]), OPTIONS.brantle, told(source), told(out), *options]
    done = subprocess.run(command, capture_output=True, timeout=timeout, check=False, env=environment)
    said, complained = (text.decode("utf-8", "replace").replace("\r\n", "\n") for text in (done.stdout, done.stderr))
    return Result(done.returncode, said, complained, out)


def fresh(case, name):
    path = pathlib.Path(OPTIONS.scratch) / case.id().split(".")[-1] / name
    shutil.rmtree(path, ignore_errors=True)
    path.mkdir(parents=True)
    return path


def opened(pid):
    """What a process of Linux has open."""
    for link in pathlib.Path(f"/proc/{pid}/fd").iterdir():
        try:
            yield os.readlink(link)
        except OSError:
            pass  # closed meanwhile


class Repository(unittest.TestCase):
    """The sample repository."""

    def check_tree(self, column, *options):
        result = scan(self, TREE, *options)
        self.assertEqual(result.code, 0)
        records = result.records(TREE)
        stems = set()
        for row in table("tree.tsv"):
            with self.subTest(row["file"]):
                wanted = [stem for stem in (row[column] or "").split(",") if stem]
                stems.update(wanted)
                if row["record"] == "none":
                    self.assertNotIn(row["file"], records)
                    continue
                record = records.pop(row["file"])
                self.assertEqual(record["stems"], wanted)
                self.assertEqual([key for key in FULL if key in record], FULL if row["record"] == "full" else BARE)
                for key in FULL[1:]:
                    if key in record:
                        self.assertEqual(record[key], shown(row[key] or ""), key)
        self.assertEqual(records, {}, "records that nothing is known of")
        self.assertEqual(result.files, sorted([f"{stem}.cer" for stem in stems] + ["info.xml"]))
        for stem in stems:
            self.assertEqual((result.out / f"{stem}.cer").read_bytes(),
                             (FIXTURES / "expected" / "certificates" / f"{stem}.cer").read_bytes())

    def test_signers(self):
        self.check_tree("signers")

    def test_all_certificates(self):
        self.check_tree("all", "-A")

    def test_d_echoes(self):
        loud = scan(self, TREE, "-d")
        self.assertEqual(loud.code, 0)
        self.assertIn("Could'nt get Installer Info for:[", loud.said)
        self.assertRegex(loud.said, r"(?m)^U\.\d{4,}\.\d{4,}: [A-Z][a-z]{2} \d\d 20\d\d:\d\d:\d\d:\d\d\.\d{3}:   "
                                    r"(ERROR|WARNING): \S+\.cpp *: +\d+: ")


@unittest.skipIf("--wine" in " ".join(sys.argv), "these folders are Linux's")
class ForeignImages(unittest.TestCase):
    """Every image that wine and MinGW-w64 bring, against pefile and hashlib."""

    FOLDERS = ("/usr/lib/x86_64-linux-gnu/wine", "/usr/lib/i386-linux-gnu/wine", "/usr/x86_64-w64-mingw32/lib")

    def wanted(self, data):
        """The strings of the first English or neutral tables, the first value of a key; None for what is no image."""
        try:
            image = pefile.PE(data=data, fast_load=True)
            image.parse_data_directories([pefile.DIRECTORY_ENTRY["IMAGE_DIRECTORY_ENTRY_RESOURCE"]])
        except pefile.PEFormatError:
            return None
        found = {}
        for block in getattr(image, "FileInfo", None) or []:
            for info in block:
                if info.Key != b"StringFileInfo":
                    break
                for strings in info.StringTable:
                    if strings.LangID[2:4] in (b"09", b"00"):
                        for key, value in strings.entries.items():
                            found.setdefault(key.decode(), value.decode("utf-8"))
            if found:
                break
        return found

    def test_strings_and_digests(self):
        images = strings = 0
        for folder in filter(os.path.isdir, self.FOLDERS):
            root = pathlib.Path(folder)
            records = scan(self, root, timeout=400).records(root)
            for path in root.rglob("*"):
                if not path.is_file() or (data := path.read_bytes())[:2] != b"MZ":
                    continue
                record, found = records.get(str(path.relative_to(root))), self.wanted(data)
                self.assertEqual(record is None or "SHA256" not in record, found is None, path)
                if found is None:
                    continue
                images += 1
                self.assertEqual((record["SHA1"], record["SHA256"]),
                                 (hashlib.sha1(data).hexdigest(), hashlib.sha256(data).hexdigest()), path)
                for key, column in (("companyName", "CompanyName"), ("productName", "ProductName"),
                                    ("productVersion", "ProductVersion")):
                    value = found.get(column, "")
                    value = value[:1] + value[1:].rstrip(" \t\n\v\f\r")
                    strings += bool(value)
                    self.assertEqual(record[key], shown(value), path)
        self.assertGreater(images, 300)
        self.assertGreater(strings, 500)


class Cabinets(unittest.TestCase):
    def test_only_cabinets_are_read_as_cabinets(self):
        source = fresh(self, "in")
        stems = set()
        names = {row["file"]: row for row in table("certificates.tsv")}
        for row in table("cabinets.tsv"):
            if not (row["extraction"] == "0" and row["named"] != "0"):
                continue
            shutil.copy(FIXTURES / row["file"], source)
            key = "cabinets/signed_ec.cab" if "signed_ec" in row["file"] else "cabinets/signed_rsa.cab"
            stems.add(names[key]["signers"])
        shutil.copy(FIXTURES / "images" / "exe32_ec.exe", source)
        for options in (("--cab", "-O"), ("--cab", "-A", "-O"), ("--cab", "-O", "-A")):
            with self.subTest(options):
                result = scan(self, source, *options)
                self.assertEqual(result.code, 0)
                self.assertNotIn("info.xml", result.files)
                self.assertGreaterEqual(result.stems, stems)
                self.assertEqual(len(result.stems) > len(stems), "-A" in options)


class Codes(unittest.TestCase):
    def test_the_message_of_an_invalid_path(self):
        result = scan(self, TREE / "absent")
        self.assertEqual(result.code, 20001 & 0xFF)  # as much of it as a shell sees
        self.assertEqual(result.said, f"\nInvalid Repos Path: [{told(TREE / 'absent')}] specified."
                                      "ecode 1008: No more values/keys left to iterate.\n")

    def test_empty_folder(self):
        empty = fresh(self, "empty")
        result = scan(self, empty)
        self.assertEqual((result.code, result.files), (0, ["info.xml"]))
        self.assertEqual((result.out / "info.xml").read_text(),
                         '<?xml version="1.0" encoding="UTF-8"?>\n<ExecutableData/>\n')


class Whole(unittest.TestCase):
    """Old results stay whole until new ones are complete, and what is missing is said."""

    def setUp(self):
        self.signed = (FIXTURES / "images" / "exe32_rsa.exe").read_bytes()

    def test_what_dead_writers_left_goes_and_is_never_scanned(self):
        source = fresh(self, "in")  # also the output
        (source / ".brantle-0123456789abcdef.tmp").write_bytes(self.signed)
        (source / ".brantle-0123456789abcdeg.tmp").write_bytes(self.signed)
        (source / "info.xml").write_text("old")
        result = scan(self, source, out=source)
        self.assertEqual((result.code, set(result.records(source))), (0, {".brantle-0123456789abcdeg.tmp"}))
        self.assertFalse((source / ".brantle-0123456789abcdef.tmp").exists())

    def test_a_package_of_another_name_is_signed_still(self):
        source = fresh(self, "in")
        for name in ("a.msi", "a.exe"):
            shutil.copy(FIXTURES / "packages" / "product_rsa.msi", source / name)
        records = scan(self, source).records(source)
        self.assertEqual(records["a.exe"]["stems"], records["a.msi"]["stems"])
        self.assertNotIn("SHA256", records["a.exe"])

    def test_progress_and_totals(self):
        source = fresh(self, "in")
        (source / "a.exe").write_bytes(self.signed)
        for setting in "1", "0", "":
            result = scan(self, source, environment={**os.environ, "BRANTLE_PROGRESS": setting})
            self.assertEqual((result.code, "1 files, 1 records, 1 certificates, " in result.complained),
                             (0, setting == "1"))


@unittest.skipIf("--wine" in " ".join(sys.argv), "names and links that Windows does not have")
class Linux(unittest.TestCase):
    def setUp(self):
        self.signed = (FIXTURES / "images" / "exe32_rsa.exe").read_bytes()
        self.stem = next(row["signers"] for row in table("certificates.tsv") if row["file"] == "images/exe32_rsa.exe")

    def test_odd_names(self):
        source = fresh(self, "in")
        names = [b"bad\xff\xfeutf8.exe", b"over\xc0\xaflong.exe", b"half\xed\xa0\x80pair.exe", b"line\nfeed.exe",
                 b"bell\x07.exe", b'a<b>&"c\'.exe', b"star*quest?.exe", b"back\\slash.exe", b"colon:c.exe", b" .exe",
                 b"-d.exe", "e\u0301\U0001f600.exe".encode(), b"x" * 251 + b".exe"]
        for name in names:
            with open(os.path.join(os.fsencode(source), name), "wb") as file:
                file.write(self.signed)
        result = scan(self, source)
        self.assertEqual((result.code, result.stems), (0, {self.stem}))
        document = ElementTree.parse(result.out / "info.xml").getroot()
        found = [element.findtext("Name").rsplit("/", 1)[1] for element in document]
        def reported(name):
            text = name.decode("utf-8", "surrogateescape")
            return re.sub("[\x00-\x08\x0b-\x1f\ud800-\udfff]", "\ufffd", text)
        self.assertEqual(sorted(found), sorted(reported(name) for name in names))
        self.assertTrue(all(element.find("CertificatesExtracted").attrib["count"] == "1" for element in document))

    def test_a_link_in_the_output_is_replaced_not_followed(self):
        out, outside = fresh(self, "out"), fresh(self, "outside") / "info.xml"
        outside.write_text("precious")
        (out / "info.xml").symlink_to(outside)
        self.assertEqual(scan(self, FIXTURES / "images" / "exe32_rsa.exe", out=out).code, 0)
        self.assertEqual((outside.read_text(), (out / "info.xml").is_symlink()), ("precious", False))

    def test_a_file_over_4_gib(self):
        source = fresh(self, "in")
        big = source / "big.exe"
        big.write_bytes(self.signed)
        os.truncate(big, (1 << 32) + (1 << 20))
        result = scan(self, source, timeout=180)
        self.assertEqual((result.code, result.stems), (0, {self.stem}))
        big.unlink()

    def test_a_signal_ends_the_scan_and_leaves_the_old_report(self):
        source, out = fresh(self, "in"), fresh(self, "out")
        (source / "big.exe").write_bytes(self.signed)
        os.truncate(source / "big.exe", 1 << 37)
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            (out / "info.xml").write_text("old")
            with subprocess.Popen([OPTIONS.brantle, source, out]) as child:
                while not any(link.endswith("big.exe") for link in opened(child.pid)):
                    time.sleep(0.01)
                child.send_signal(number)
                self.assertEqual(child.wait(60), 128 + number)
            self.assertEqual([(path.name, path.read_text()) for path in out.iterdir()], [("info.xml", "old")])

    def test_the_mode_of_a_report(self):
        out = fresh(self, "out")
        for before, after in ((None, 0o640), (0o600, 0o600), (0o666, 0o666)):
            if before:
                (out / "info.xml").chmod(before)
            self.assertEqual(subprocess.run([OPTIONS.brantle, FIXTURES / "images" / "exe32_rsa.exe", out],
                                            umask=0o027, check=False).returncode, 0)
            self.assertEqual((out / "info.xml").stat().st_mode & 0o777, after)


def main():
    global OPTIONS
    parser = argparse.ArgumentParser()
    parser.add_argument("--brantle", required=True)
    parser.add_argument("--scratch", required=True)
    parser.add_argument("--wine", help="the script that runs a Windows program")
    OPTIONS, rest = parser.parse_known_args()
    unittest.main(argv=[sys.argv[0], *rest], verbosity=1)


if __name__ == "__main__":
    main()
