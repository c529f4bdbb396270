"""The report program's commands on made reports: what comes out, byte for byte where it is short."""
import csv
import io
import json
import os
import re
import shutil
import subprocess
import sys
import unittest
import xml.etree.ElementTree as ElementTree

from made_report import HERE, STEMS, details, folder, issue, programs, record, run, signature

# Leaf certificates are of one signer; the key is of the root's RSAPublicKey, by openssl and sha256sum.
LEAF, ROOT = "Fixture Works (SE)", "Fixture Works (SE, self-issued, key d0d83151594c)"
SERVICE = "codeSigning,1.3.6.1.4.1.311.97.1.0,1.3.6.1.4.1.311.97."
# A signer's subject and usages, and what it is called.
IDENTITIES = [("/C=US/O=Jane/CN=x", SERVICE + "1.2.3.45", "Jane (US, subscriber \u202645)"),
              ("/C=US/O=Jane", SERVICE + "1.2.3", "Jane (US)"), ("/C=US/O=Jane", SERVICE + "1.2.3.4.5", "Jane (US)"),
              ("/C=US/O=Jane/serialNumber=77/CN=y", "codeSigning", "Jane (US, 77)"), ("/CN=y", "", "y"),
              ("/C=US/O=Stamps", "timeStamping", ""), ("/C=US/O=Both", "timeStamping,codeSigning", "Both (US)")]
HOSTILE = ["</script><script>alert(1)</script>", "<!--<script>", "a\u202egpj.exe", "\u2066x\u2069", "\u061c\u200e\u200f", "'\"&amp;\\", "=1+1",
           "x" * 8000]
# Names, and how spreadsheets may see them: a sign in front is one behind blanks, too, and semicolons and tabs separate.
CELLS = {"a;b": '"a;b"', "a\tb": '"a\tb"', "\n=1": "\"'\n=1\"", "\t1": "\"'\t1\"", "\uff1d1": "'\uff1d1", "\uff201": "'\uff201",
         " \u00a0\u3000-1": "' \u00a0\u3000-1", " a=1": " a=1"}
# The most memory, in KiB, that a command has held.
PEAK = ("import resource, subprocess, sys; subprocess.run(sys.argv[1:], check=True);"
        "print(resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss)")


class Commands(unittest.TestCase):
    def succeed(self, *arguments, status=0, said=()):
        code, out, error = run(*arguments)
        self.assertEqual(code, status, error)
        for words in said:
            self.assertIn(words, error.decode())
        if not said:
            self.assertEqual(error, b"")
        return out

    def test_csv(self):
        made = folder(self, "in", record('/a,"b".exe', "da", companyName="=cmd", productName="-1\n+2", isInstaller="yes"),
                      record("@sum", content=""), *(record(name, content="") for name in CELLS), comment="1 directory")
        table = self.succeed("csv", made, said=["incomplete: 1 directory"])
        self.assertEqual(table.decode(), "\ufeffName,SHA1,SHA256,companyName,productName,productVersion,isInstaller,"
                         f'signed,signers\r\n"/a,""b"".exe",{"1" * 40},{"1" * 64},\'=cmd,"\'-1\n+2",,yes,yes,'
                         f"{LEAF}\r\n'@sum,,,,,,no,not looked at,\r\n" +
                         "".join(f"{cell},,,,,,no,not looked at,\r\n" for cell in CELLS.values()))

    def test_signers(self):
        rows = {"abc": LEAF, "cba": LEAF, "da": LEAF, "c": ROOT, "ac": f"{LEAF}; {ROOT}", "": "",
                "ae": f"{LEAF}; (certificate eeeeeeeeeeee\u2026: its file is missing)",
                "fc": f"(certificate ffffffffffff\u2026: its file holds no certificate); {ROOT}"}
        made = folder(self, "in", *(record(f"/{letters}", letters) for letters in rows))
        table = self.succeed("csv", made, said=["e" * 64 + ": its file is missing", "f" * 64 + ": its file holds no"])
        found = list(csv.reader(io.StringIO(table.decode("utf-8-sig"))))[1:]
        self.assertEqual({row[0][1:]: row[-1] for row in found}, rows)
        self.assertEqual([row[-2] for row in found], ["yes" if letters else "not looked at" for letters in rows])

    def test_looked_at(self):
        names = {"/a.DLL": "no", "/b.Msi": "no", "/c.efi": "not looked at", "C:\\d.exe\\e": "not looked at", "/exe": "not looked at",
                 "C:\\f.x\\g.cat": "no"}
        table = self.succeed("csv", folder(self, "in", *map(record, names)))
        self.assertEqual({row[0]: row[7] for row in list(csv.reader(io.StringIO(table.decode())))[1:]}, names)

    def test_identities(self):
        made = folder(self, "in", *(record(f"/{n}", str(n)) for n in range(len(IDENTITIES))))
        for n, (subject, usages, _) in enumerate(IDENTITIES):
            issue(made / f"{STEMS[str(n)]}.cer", subject, usages)
        found = list(csv.reader(io.StringIO(self.succeed("csv", made).decode())))[1:]
        self.assertEqual([row[-1] for row in found], [label for _, _, label in IDENTITIES])
        # A service's next certificate for the same subscriber, under another name, is no other signer.
        later = folder(self, "later", *(record(f"/{n}", "9" if n == 0 else str(n)) for n in range(len(IDENTITIES))))
        for n in range(1, len(IDENTITIES)):
            shutil.copy(made / f"{STEMS[str(n)]}.cer", later)
        issue(later / f"{STEMS['9']}.cer", "/C=SE/O=Jane Renamed", SERVICE + "1.2.3.45")
        self.assertEqual(self.succeed("diff", made, later), b"")

    def test_verdicts(self):
        """What the details say of a file, and its verdict in 2025 and, where it is another one, in 2052."""
        inside = "2020-01-01T00:00:00Z"
        made = folder(self, "in", *(record(f"/{n}.efi") for n in range(14)))
        issue(made / f"{STEMS['1']}.cer", "/C=US/O=Short", "codeSigning,1.3.6.1.4.1.311.10.3.13")
        sign = lambda *arguments, **more: {"signatures": [signature(made, *arguments, **more)]}
        mismatch = signature(made, "1", signed_digest_matches=False)
        rows = [(sign("a", inside), "stamped,2020-01-01"), (sign("a", "2049-12-31T23:59:59.9Z"), "stamped,2049-12-31"),
                (sign("a", "2019-12-31T23:59:59Z"), "valid until,2049-12-31", "ended,2049-12-31"),
                (sign("a"), "valid until,2049-12-31", "ended,2049-12-31"),
                (sign("1", "2028-01-01T00:00:00Z"), "valid until", "ended"),
                (sign("1", nested=[signature(made, "a", nested=[signature(made, "a", inside)])]), "stamped,2020-01-01"),
                ({"signatures": [signature(made, "a", inside), mismatch]}, "does not match"),
                (sign("a", inside, nested=[mismatch]), "does not match"), (sign("b", inside), "undecodable"),
                ({"signatures": [{}]}, "undecodable"), ({"problems": [{"code": "signatures_unreadable", "count": 1}]}, "undecodable"),
                ({"authenticode_digests": [{"algorithm": "sha1", "value": "ab"}]}, "in catalogue,,d.cat"),
                ({"authenticode_digests": [{"algorithm": "sha1", "value": "cd"}]}, "unsigned"), ({"kind": "other"}, "not looked at")]
        catalogue = lambda name, signed, *members: {name: {"record": None, "catalogue": {"members": 2, "list": list(members)}, **signed}}
        details(made, {**catalogue("/x/no.cat", {}, "ab", "cd"), **catalogue("/x/d.cat", sign("1"), "ab"),
                       **{f"/{n}.efi": about for n, (about, *_) in enumerate(rows)}}, "ac1")
        for now, column in ((1760000000, 1), (2600000000, -1)):
            found = list(csv.reader(io.StringIO(run("csv", made, now=now)[1].decode())))[1:]
            for row, wanted in zip(found, rows, strict=True):
                self.assertTrue(",".join(row[9:]).startswith(wanted[column]), (row, wanted))
            self.assertEqual([row[8] for row in found[:6]], [LEAF] * 4 + ["Short (US)", f"Short (US); {LEAF}"])
        # What differs is told by verdict; a scan without details knows nothing of them.
        later = folder(self, "later", *(record(f"/{n}.efi") for n in range(14)))
        details(later, {f"/{n}.efi": rows[0][0] if n == 3 else about for n, (about, *_) in enumerate(rows) if n != 11} | {"/11.efi": {}})
        self.assertEqual(run("diff", made, later)[0], 2, "a line that is not in the report's order")
        (later / "details.jsonl").unlink()
        self.assertEqual(run("diff", made, later), (0, b"", b""))

    def test_foreign_details(self):
        made = folder(self, "in", record("/a.exe", "c"))
        details(made, {"/a.exe": {"signatures": [signature(made, "a")]}})
        old = folder(self, "old", record("/a.exe", "c"))
        details(old, {"/a.exe": {"signatures": [signature(made, "a", "2021-01-01T00:00:00Z")]}})
        self.assertIn(b"/a.exe (verdict stamped -> valid until)", self.succeed("diff", old, made, status=1))
        details(made, {"/a.exe": {"signatures": [signature(made, "a")]}}, records=100001)
        self.assertFalse(b'<script type="text/plain">' in self.succeed("html", made))
        (made / "details.jsonl").write_bytes((made / "details.jsonl").read_bytes().replace(b'"info_sha256": "', b'"info_sha256": "0'))
        for command in ("csv", "html", "cyclonedx"):
            code, out, error = run(command, made)
            self.assertEqual((code, error.decode().count("another report")), (0, 1))
            self.assertIn(ROOT.encode(), out)

    def test_damaged(self):
        """Each row is a good report of which one place was changed, and where the program must point."""
        made = folder(self, "in")
        target = made / "out"
        good = (HERE / "good.xml").read_text(encoding="ascii")
        for row in filter(lambda row: row["program"], programs.table("utils/report/reports.tsv")):
            new = row["new"].encode().decode("unicode_escape").replace("{long}", "x" * (1 << 20))
            text = re.sub(row["old"], lambda _: new, good, count=1)
            commands = [("csv", made, "-o", target), ("diff", made, made), ("merge", made / "all", made)]
            for command in commands[:1 if text else 3]:
                with self.subTest(old=row["old"], new=row["new"], command=command[0]):
                    (made / "info.xml").write_bytes(text.encode("latin-1"))
                    target.write_text("old")
                    code, _, error = run(*command)
                    self.assertEqual(code, 2)
                    self.assertRegex(error.decode(), rf"info\.xml:{row['program']}")
                    self.assertEqual(target.read_text(), "old")
                    self.assertEqual(sorted(p.name for p in made.iterdir() if p.suffix != ".cer" and p.name != "all"),
                                     ["info.xml", "out"])

    def test_arguments(self):
        made = folder(self, "in")
        for arguments, status, words in [
                (["-h"], 0, "usage: "), (["--version"], 0, "brantle-report "), ([], 2, "-h"), (["html"], 2, "-h"),
                (["csv", made, made], 2, "-h"), (["csv", made, "-o"], 2, "-h"), (["other", made], 2, "-h"),
                (["csv", made / "missing"], 2, "info.xml"), (["csv", made, "-o", made / "no" / "x"], 2, "x: "),
                (["diff", made], 2, "-h"), (["merge", made], 2, "-h"), (["csv", made, "-o", "-"], 0, "Name,SHA1"),
                (["diff", made, made, "-o", "-"], 0, "")]:
            with self.subTest(arguments):
                code, out, error = run(*arguments)
                self.assertEqual((code, words in (error if status else out).decode()), (status, True), error)

        lines = run("--help")[1].decode().splitlines()
        for command in ("html DIR", "csv DIR", "cyclonedx DIR", "diff OLD NEW", "merge OUT DIR..."):
            self.assertEqual(sum(line.startswith("  " + command) for line in lines), 1, command)

    def test_outputs(self):
        """A device or pipe takes the result as it comes, also through a link; nothing is put in its place."""
        made = folder(self, "in")
        if programs.OPTIONS.wine:
            self.succeed("csv", made, "-o", "NUL")
            return
        pipe, link, listed = made / "pipe", made / "link", made / "listed"
        os.mkfifo(pipe)
        link.symlink_to(pipe)
        with subprocess.Popen(["cat", pipe], stdout=subprocess.PIPE) as reader:
            self.succeed("csv", made, "-o", link)
            self.assertTrue(reader.communicate()[0].endswith(b"signers\r\n"))
        self.assertTrue(link.is_symlink() and pipe.is_fifo())
        link.unlink()
        link.symlink_to("/proc/self/fd/1")
        with open(listed, "wb") as out:
            subprocess.run([programs.OPTIONS.report, "csv", made, "-o", link], stdout=out, check=True)
        self.assertTrue(link.is_symlink() and listed.read_bytes().endswith(b"signers\r\n"))
        limited = subprocess.run(["prlimit", "--fsize=9", programs.OPTIONS.report, "csv", made, "-o", made / "x"],
                                 capture_output=True, check=False)
        self.assertEqual((limited.returncode, (made / "x").exists()), (2, False), limited.stderr)

    def test_refused_certificates(self):
        made = folder(self, "in", record("/1", "a"), record("/2", "b"))
        refused = {"b": ("its file cannot", lambda path: path.mkdir())}
        if not programs.OPTIONS.wine:  # to Windows programs a link of this system looks like its target
            refused["a"] = ("its file is a link", lambda path: path.symlink_to(made / f"{STEMS['c']}.cer"))
        for letter, (_, put) in refused.items():
            (made / f"{STEMS[letter]}.cer").unlink()
            put(made / f"{STEMS[letter]}.cer")
        table = self.succeed("csv", made, said=[f"{STEMS[letter]}: {words}" for letter, (words, _) in refused.items()])
        self.assertNotIn(ROOT, table.decode())

    def test_cyclonedx(self):
        made = folder(self, "in", record("/a&b/c.exe", "cab", companyName="<x>", productName="P", productVersion="1"),
                      record("C:\\x\\y.dll", content=""), record("/twice"), record("/twice"), comment="2 files")
        bill = self.succeed("cyclonedx", made, said=["incomplete"])
        self.assertEqual(bill, self.succeed("cyclonedx", made, said=["incomplete"]))
        root = ElementTree.fromstring(bill)
        space = "{http://cyclonedx.org/schema/bom/1.5}"
        self.assertEqual((root.tag, root.attrib), (space + "bom", {"version": "1"}))
        self.assertEqual([child.tag for child in root], [space + tag for tag in ("components", "compositions", "properties")])
        # The schema asks for this order, wants a name, and no reference twice.
        order = [space + tag for tag in ("publisher", "name", "version", "hashes", "properties", "evidence")]
        components = root.findall(f"{space}components/{space}component")
        self.assertEqual(len({one.attrib["bom-ref"] for one in components}), 4)
        for one in components:
            tags = [child.tag for child in one]
            self.assertEqual(tags, [tag for tag in order if tag in tags])
            self.assertTrue(one.find(space + "name").text and one.attrib["type"] == "file")
        texts = [[text for text in one.itertext() if text.strip()] for one in components[:2]]
        self.assertEqual(texts[0], ["<x>", "P", "1", "1" * 40, "1" * 64, "no", LEAF, "/a&b/c.exe"])
        self.assertEqual(texts[1], ["y.dll", "no", "C:\\x\\y.dll"])

    def test_diff(self):
        old = folder(self, "old", record("/same", "a"), record("/gone", content="2"), record("/from", content="3"),
                     record("/bare", content=""), record("/changed", "a", content="4", productVersion="1"))
        new = folder(self, "new", record("/changed", "c", content="5", productVersion="2"), record("/to", content="3"),
                     record("/new\u202e\x85", content="6"), record("/same", "d"), record("/bare", content=""))
        self.assertEqual(self.succeed("diff", old, old), b"")
        # For people, and so on Windows in the console's code page.
        words = self.succeed("diff", old, new, status=1).decode().replace("\r\n", "\n").replace("\ufffd", "?")
        self.assertEqual(words, "added    /new??\nremoved  /gone\n"
                         f"changed  /changed (content, productVersion 1 -> 2, signers {LEAF} -> {ROOT})\n"
                         "moved    /from -> /to\n"
                         f"signer came  {ROOT} (certificate cccccccccccc, 1 file)\n"
                         "1 added, 1 removed, 1 changed, 1 moved, signers: 1 came, 0 went\n")
        rows = list(csv.DictReader(io.StringIO(self.succeed("diff", old, new, "--csv", status=1).decode())))
        self.assertEqual([(row["change"], row["path"], row["old path"]) for row in rows],
                         [("added", "/new\u202e\x85", ""), ("removed", "/gone", ""), ("changed", "/changed", ""),
                          ("moved", "/to", "/from"), ("signer came", STEMS["c"], "")])

    def test_merge(self):
        one = folder(self, "one", record("/1&<", "ab", content=""), record("/2"), comment="1 directory, 3 files")
        two = folder(self, "two", record("/3", "ad"), comment="2 files")
        three = folder(self, "three", comment="the walk ended early")
        (two / f"{STEMS['d']}.cer").write_bytes((two / f"{STEMS['c']}.cer").read_bytes())
        (one / f"{STEMS['b']}.cer").unlink()
        out = one.parent / "out"
        shutil.rmtree(out, ignore_errors=True)
        out.mkdir()
        shutil.copy(one / f"{STEMS['a']}.cer", out / f"{STEMS['d']}.cer")
        self.succeed("merge", out, one, two, three, said=[STEMS["b"], STEMS["d"] + ".cer: another certificate"])
        self.assertEqual(sorted(path.name[0] for path in out.iterdir()), ["a", "d", "i"])
        self.assertEqual((out / f"{STEMS['d']}.cer").read_bytes(), (two / f"{STEMS['c']}.cer").read_bytes())
        merged = (out / "info.xml").read_text()
        self.assertIn("<!-- incomplete: 1 directory, 5 files, the walk ended early -->\n</ExecutableData>", merged)
        canonical = lambda text: ElementTree.canonicalize(re.sub("<!--.*?-->", "", text), strip_text=True)
        parts = "".join("".join((part / "info.xml").read_text().splitlines(True)[2:-1]) for part in (one, two, three))
        self.assertEqual(canonical(merged), canonical(f"<ExecutableData>{parts}</ExecutableData>"))
        subprocess.run(["xmllint", "--noout", "--schema", programs.SCHEMA, out / "info.xml"], check=True,
                       capture_output=True)
        files = lambda: {path.name: path.read_bytes() for path in out.iterdir()}
        before = files()
        marks = "/\u061c\u200e\u200f\u202a\u202e\u2066\u2069\u2028\x9f"  # turn or break a terminal's text
        twice = [folder(self, name, record(marks), record("/\ufffd", "d")) for name in ("once", "twice")]
        for target in (out, out / "new"):
            code, _, error = run("merge", target, *twice, three)
            self.assertEqual(code, 2)
            self.assertRegex(error.decode(), "/\ufffd{9}: stands in \\S*once and in \\S*twice")
            self.assertEqual(files(), before)

    def test_merge_refuses(self):
        """What another machine left in place of a certificate's file is not handed on."""
        made = folder(self, "in", record("/\ufffd", "abcd"), record("/\ufffd", "f"))
        leaf, secret = (made / f"{STEMS['a']}.cer").read_bytes(), made.parent / "secret"
        secret.write_bytes(leaf)
        for letter, content in {"b": leaf + leaf, "c": b"x\n" + leaf, "d": None, "f": leaf.replace(b"M", b"N", 1)}.items():
            path = made / f"{STEMS[letter]}.cer"
            path.unlink()
            # Wine shows a link as what it leads to.
            path.symlink_to(secret) if content is None and not programs.OPTIONS.wine else path.write_bytes(content or b"")
        out = made.parent / "out"
        shutil.rmtree(out, ignore_errors=True)
        self.succeed("merge", out, made, said=[f"{STEMS[letter]}.cer: its file" for letter in "bcdf"])
        self.assertEqual(sorted(path.name[0] for path in out.iterdir()), ["a", "i"])

    def test_page(self):
        made = folder(self, "in", *(record(f"/{name}", "a", companyName=name) for name in HOSTILE), comment="1 file")
        page = self.succeed("html", made, said=["incomplete"]).decode()
        # What the policy forbids a browser shows on its console; here it need only be strict.
        self.assertRegex(page[:600], r"""content="default-src 'none'; base-uri 'none'; form-action 'none'; """
                         r"""script-src 'sha256-[^' ]+' 'sha256-[^' ]+'; style-src 'sha256-[^' ]+'">""")
        self.assertEqual(re.findall(r'<[^<>]* (?:src|href)="[^#][^"]*', page), [])
        chunks = [json.loads(text) for text in re.findall('<script type="application/json"[^>]*>(.*?)</script', page, re.S)]
        self.assertEqual([chunks[0]["texts"][n] for n in chunks[0]["company"]], HOSTILE)
        self.assertEqual(len(chunks[0]["texts"]), len(set(chunks[0]["texts"])), "no text twice")
        self.assertEqual(chunks[1], {"now": 1760000000, "hasDetails": False, "incomplete": "1 file"})

    def test_memory(self):
        """What is kept of a report does not grow with its paths."""
        if not programs.OPTIONS.measure:
            return
        made = folder(self, "in", *(record(f"/{number}/{'x' * 60000}") for number in range(1500)))
        for command in (["csv", made, "-o", made / "x"], ["html", made, "-o", made / "x"],
                        ["cyclonedx", made, "-o", made / "x"], ["merge", made / "all", made], ["diff", made, made]):
            done = subprocess.run([sys.executable, "-c", PEAK, programs.OPTIONS.report, *command], check=True,
                                  capture_output=True)
            self.assertLess(int(done.stdout), 64 << 10, command[0])
        shutil.rmtree(made)


if __name__ == "__main__":
    programs.main()
