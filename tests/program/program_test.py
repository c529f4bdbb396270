"""Whole scans through the real command line, native or under Wine, against the fixtures' expected tables.

The tables were worked out with openssl, pefile and msiinfo; both platforms are held to the same ones.
"""
import base64
import hashlib
import os
import pathlib
import re
import shutil
import signal
import ssl
import subprocess
import sys
import time
import unittest
import xml.etree.ElementTree as ElementTree

import pefile

sys.path.append(str(pathlib.Path(__file__).resolve().parents[1] / "support"))
import programs  # noqa: E402
from programs import FIXTURES, OPTIONS, Scan, fresh, table, told  # noqa: E402

TREE = FIXTURES / "tree"
KEYS = ("SHA1", "SHA256", "companyName", "isInstaller", "productName", "productVersion")
SIGNED = FIXTURES / "images" / "exe32_rsa.exe"


def shown(text):
    """A table's value as the report shows it: what XML 1.0 forbids has become U+FFFD."""
    units = re.sub(r"\\u([0-9a-f]{4})", lambda m: chr(int(m.group(1), 16)), text)
    text = units.encode("utf-16-le", "surrogatepass").decode("utf-16-le", "replace")
    return re.sub("[\x00-\x08\x0b-\x1f\ufffe\uffff]", "\ufffd", text)


def has_open(pid, name):
    try:
        return any(os.readlink(link).endswith(name) for link in pathlib.Path(f"/proc/{pid}/fd").iterdir())
    except OSError:
        return False  # one was closed meanwhile


class Repository(unittest.TestCase):
    """The sample repository."""

    def test_records_and_certificates(self):
        for column, *options in (("signers",), ("all", "-A")):
            with self.subTest(column):
                result = Scan(self, TREE, *options)
                expected, stems = {}, set()
                for row in table("fixtures/expected/tree.tsv"):
                    keys = [key for key in KEYS if key != "SHA256" or row["record"] == "full"]
                    wanted = [stem for stem in row[column].split(",") if stem]
                    stems.update(wanted)
                    if row["record"] != "none":
                        expected[row["file"]] = {key: shown(row[key]) for key in keys} | {"stems": wanted}
                self.assertEqual((result.code, result.records()), (0, expected))
                self.assertEqual(result.files, sorted([f"{stem}.cer" for stem in stems] + ["info.xml"]))
                for stem in stems:
                    self.assertEqual((result.out / f"{stem}.cer").read_bytes(),
                                     (FIXTURES / "expected" / "certificates" / f"{stem}.cer").read_bytes())

    def test_the_log_goes_to_a_file_or_with_d_to_the_output(self):
        log = fresh(self, "log") / "program.log"
        self.assertEqual(Scan(self, TREE, BRANTLE_LOG=told(log)).said, "")
        for text in (log.read_bytes().replace(b"\0", b"").decode("latin-1"), Scan(self, TREE, "-d").said):
            sources = re.findall(r"^U\.\d{4,}\.\d{4,}: [A-Z][a-z]{2} \d\d 20\d\d:\d\d:\d\d:\d\d\.\d{3}:   "
                                 r"(?:ERROR|WARNING): (\S+)\.cpp *: +\d+: ", text, re.M)
            self.assertEqual(set(sources), {"brantle", "cert_sign", "msiExtractProductInfo", "sgn_pkcs7", "sgn_x509"})


class Packages(unittest.TestCase):
    def test_what_cannot_be_read_is_empty_and_the_log_says_why(self):
        result = Scan(self, FIXTURES / "packages", "-d")
        records = result.records()
        for row in table("fixtures/expected/packages.tsv"):
            if OPTIONS.wine and row["installer"] == "own":
                continue
            values = [re.sub("^!.*", "", shown(row[key])) for key in ("Manufacturer", "ProductName", "ProductVersion")]
            record = records.get(row["file"].removeprefix("packages/"))
            found = record and [record[key] for key in ("companyName", "isInstaller", "productName", "productVersion")]
            self.assertEqual(found, None if row["open"] != "0" else [values[0], "yes", *values[1:]], row["file"])
        said = re.findall(r"(?:Failed )?((?:\w+ )+rc =\d+|Checksum.*)", result.said)
        own = [] if OPTIONS.wine else ["View Fetch rc =1627", "Record get String rc =0"]
        self.assertEqual({"View Fetch rc =259", "Invalid Msi rc =110", "DB Open View rc =1615", *own}, set(said))


class Details(unittest.TestCase):
    """The lines beside the report tell the same as it, and of every file."""

    NAMES = dict(zip(KEYS, ("sha1", "sha256", "company_name", "is_installer", "product_name", "product_version")))

    def test_every_file_has_a_line_that_tells_what_the_report_does(self):
        for folder in ("tree", "images", "packages", "cabinets", "pkcs7"):
            with self.subTest(folder):
                plain = Scan(self, FIXTURES / folder)
                result = Scan(self, FIXTURES / folder, BRANTLE_DETAILS="digests")
                files, others = result.details()
                report, records = (result.out / "info.xml").read_bytes(), result.records()
                self.assertEqual((result.files, report), (sorted([*plain.files, "details.jsonl"]),
                                                          (plain.out / "info.xml").read_bytes()))
                self.assertEqual(others["end"][0]["info_sha256"], hashlib.sha256(report).hexdigest())
                ders = {}
                for line in others["certificate"]:
                    ders[line["sha256"]] = base64.b64decode(line.get("der", ""))
                    self.assertEqual(hashlib.sha256(ders[line["sha256"]]).hexdigest(), line["sha256"])
                paths = [path for path in (FIXTURES / folder).rglob("*") if path.is_file()]
                self.assertEqual(set(files), {path.relative_to(FIXTURES / folder).as_posix() for path in paths})
                self.assertEqual([line["ordinal"] for line in files.values()], list(range(len(files))))
                for path in paths:
                    name, about = path.relative_to(FIXTURES / folder).as_posix(), path.stat()
                    line = files[name]
                    self.assertEqual((line["size"], line["complete"]),
                                     (about.st_size, not re.search("_too_|_cut", str(line.get("problems")))), name)
                    second = time.strftime("%Y-%m-%dT%H:%M:%S", time.gmtime(about.st_mtime_ns // 10**9))
                    tick = about.st_mtime_ns % 10**9 // (100 if OPTIONS.wine else 1)
                    self.assertTrue(line["modified"].startswith(f"{second}.{tick:07}" if OPTIONS.wine else
                                                                f"{second}.{tick:09}Z"), name)
                    if not OPTIONS.wine:
                        self.assertEqual(line["file_number"], str(about.st_ino))
                    told_of = {key: line.get("record", {}).get(own, "") for key, own in self.NAMES.items()}
                    if line.get("record", {"bare": True})["bare"]:
                        del told_of["SHA256"]
                    told_of["stems"] = [one["name"] for one in line.get("certificates", [])]
                    self.assertEqual(told_of if "record" in line else None, records.get(name), name)
                    for one in line.get("certificates", []):
                        pem = (result.out / f"{one['name']}.cer").read_text()
                        if folder == "tree":  # elsewhere forged ones share a name
                            self.assertEqual(ssl.PEM_cert_to_DER_cert(pem), ders[one["sha256"]], name)

    def test_what_is_not_asked_for_is_not_written(self):
        for options, asked, line in (([], "2", True), (["-O"], "1", False)):
            result = Scan(self, SIGNED, *options, BRANTLE_DETAILS=asked)
            self.assertEqual((result.code, "details.jsonl" in result.files), (0, False))
            self.assertEqual("BRANTLE_DETAILS" in result.complained, line)


@unittest.skipIf(OPTIONS.wine, "these folders are Linux's")
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
            records = Scan(self, root, timeout=400).records()
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
        of = {row["file"]: row for row in table("fixtures/expected/certificates.tsv")}
        for column, *options in (("signers", "-O"), ("all", "-A", "-O"), ("all", "-O", "-A")):
            with self.subTest(options):
                stems = {stem for key in ("rsa", "ec") for stem in of[f"cabinets/signed_{key}.cab"][column].split(",")}
                result = Scan(self, FIXTURES, "--cab", *options)
                self.assertEqual((result.code, result.files), (0, sorted(f"{stem}.cer" for stem in stems)))


class Codes(unittest.TestCase):
    def test_the_message_of_an_invalid_path(self):
        result = Scan(self, TREE / "absent")
        self.assertEqual(result.code, 20001 & 0xFF)  # as much of it as a shell sees
        self.assertEqual(result.said, f"\nInvalid Repos Path: [{told(TREE / 'absent')}] specified."
                                      "ecode 1008: No more values/keys left to iterate.\n")

    def test_empty_folder(self):
        empty = fresh(self, "empty")
        result = Scan(self, empty)
        self.assertEqual((result.code, result.files), (0, ["info.xml"]))
        self.assertEqual((result.out / "info.xml").read_text(),
                         '<?xml version="1.0" encoding="UTF-8"?>\n<ExecutableData/>\n')


class Whole(unittest.TestCase):
    """Old results stay whole until new ones are complete, and what is missing is said."""

    def test_what_dead_writers_left_goes_and_is_never_scanned(self):
        source = fresh(self, "in")  # also the output
        for name in (".brantle-0123456789abcdef.tmp", ".brantle-0123456789abcdeg.tmp"):
            shutil.copy(SIGNED, source / name)
        (source / "info.xml").write_text("old")
        result = Scan(self, source, out=source)
        self.assertEqual((result.code, list(result.records())), (0, [".brantle-0123456789abcdeg.tmp"]))
        self.assertNotIn(".brantle-0123456789abcdef.tmp", result.files)

    def test_a_package_of_another_name_is_signed_still(self):
        source = fresh(self, "in")
        for name in ("a.msi", "a.exe"):
            shutil.copy(FIXTURES / "packages" / "product_rsa.msi", source / name)
        records = Scan(self, source).records()
        self.assertEqual(records["a.exe"]["stems"], records["a.msi"]["stems"])
        self.assertNotIn("SHA256", records["a.exe"])

    def test_what_cannot_be_written_is_said(self):
        missing, log = fresh(self, "in") / "missing", fresh(self, "log")
        done = programs.run(OPTIONS.brantle, SIGNED, missing, BRANTLE_LOG=told(log))
        lines = done.stderr.decode("utf-8").splitlines()
        self.assertEqual((done.returncode, done.stdout, missing.exists()), (0, b"", False))
        self.assertEqual(lines[1:], [f"brantle: {told(missing / 'info.xml')}: not written: No such file or directory",
                                     f"brantle: {told(missing)}: 1 certificate not written: No such file or directory"])
        self.assertTrue(lines[0].startswith(f"brantle: {told(log)}: not opened: "), lines)

    def test_progress_and_totals(self):
        for setting in "1", "0", "":
            result = Scan(self, SIGNED, BRANTLE_PROGRESS=setting)
            self.assertEqual((result.code, "1 files, 1 records, 1 certificates, " in result.complained),
                             (0, setting == "1"))


@unittest.skipIf(OPTIONS.wine, "names and links that Windows does not have")
class Linux(unittest.TestCase):
    def setUp(self):
        self.source = fresh(self, "in")
        self.big = self.source / "big.exe"
        self.stem = next(row["signers"] for row in table("fixtures/expected/certificates.tsv")
                         if row["file"] == "images/exe32_rsa.exe")

    def test_odd_names(self):
        names = [b"bad\xff\xfeutf8.exe", b"over\xc0\xaflong.exe", b"half\xed\xa0\x80pair.exe", b"line\nfeed.exe",
                 b"bell\x07.exe", b'a<b>&"c\'.exe', b"star*quest?.exe", b"back\\slash.exe", b"colon:c.exe", b" .exe",
                 b"-d.exe", "e\u0301\U0001f600.exe".encode(), b"x" * 251 + b".exe"]
        for name in names:
            shutil.copy(SIGNED, os.path.join(os.fsencode(self.source), name))
        result = Scan(self, self.source, BRANTLE_DETAILS="1")
        self.assertEqual({os.fsencode(name) for name in result.details()[0]}, {name.replace(b"\\", b"/") for name in names})
        document = ElementTree.parse(result.out / "info.xml").getroot()
        found = [element.findtext("Name").rsplit("/", 1)[1] for element in document]
        expected = [re.sub("[\x00-\x08\x0b-\x1f\ud800-\udfff]", "\ufffd", name.decode("utf-8", "surrogateescape"))
                    for name in names]
        self.assertEqual((result.code, result.stems, sorted(found)), (0, {self.stem}, sorted(expected)))
        self.assertEqual({element[-1].attrib["count"] for element in document}, {"1"})

    def test_a_link_in_the_output_is_replaced_not_followed(self):
        out, outside = fresh(self, "out"), fresh(self, "outside") / "info.xml"
        outside.write_text("precious")
        (out / "info.xml").symlink_to(outside)
        self.assertEqual(Scan(self, SIGNED, out=out).code, 0)
        self.assertEqual((outside.read_text(), (out / "info.xml").is_symlink()), ("precious", False))

    def test_a_reader_of_standard_error_that_goes_away_does_not_end_the_scan(self):
        for out in "", fresh(self, "out") / "missing":  # no OUTPUT is none, and not the root
            reader, writer = os.pipe()
            os.close(reader)
            command = [OPTIONS.brantle, SIGNED, out]
            self.assertEqual(subprocess.run(command, stderr=writer, check=False, restore_signals=True).returncode, 0)
            os.close(writer)
            done = subprocess.run(command, capture_output=True, check=True)
            self.assertEqual(done.stderr.count(b"not written"), 2 if out else 1)
            self.assertFalse(pathlib.Path("/", self.stem + ".cer").exists())

    def test_a_file_over_4_gib(self):
        shutil.copy(SIGNED, self.big)
        os.truncate(self.big, (1 << 32) + (1 << 20))
        result = Scan(self, self.source)
        self.assertEqual((result.code, result.stems), (0, {self.stem}))
        self.big.unlink()

    def test_a_signal_ends_the_scan_and_leaves_the_old_report(self):
        out = fresh(self, "out")
        shutil.copy(SIGNED, self.big)
        os.truncate(self.big, 1 << 37)
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            (out / "info.xml").write_text("old")
            with subprocess.Popen([OPTIONS.brantle, self.source, out]) as child:
                while not has_open(child.pid, "big.exe"):
                    time.sleep(0.01)
                child.send_signal(number)
                self.assertEqual(child.wait(60), 128 + number)
            self.assertEqual([(path.name, path.read_text()) for path in out.iterdir()], [("info.xml", "old")])

    def test_the_mode_of_a_report(self):
        out = fresh(self, "out")
        for before, after in ((None, 0o640), (0o600, 0o600), (0o666, 0o666)):
            if before:
                (out / "info.xml").chmod(before)
            subprocess.run([OPTIONS.brantle, SIGNED, out], umask=0o027, check=True)
            self.assertEqual((out / "info.xml").stat().st_mode & 0o777, after)

    def test_a_limit_of_file_sizes_fails_the_write_alone(self):
        out = fresh(self, "out")
        (out / "info.xml").write_text("old")
        subprocess.run(["prlimit", "--fsize=100", OPTIONS.brantle, TREE, out], check=True, capture_output=True)
        self.assertEqual([(path.name, path.read_text()) for path in out.iterdir()], [("info.xml", "old")])


if __name__ == "__main__":
    programs.main()
