"""Scans of parts: together they are one scan, byte for byte, once merged."""
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import time
import unittest

sys.path.append(str(pathlib.Path(__file__).resolve().parents[1] / "support"))
import programs  # noqa: E402
from programs import FIXTURES, OPTIONS, Scan, fresh  # noqa: E402

SIGNED = FIXTURES / "images" / "exe32_rsa.exe"
# What stands in part 2's order instead, and what merging says of it.
ORDERS = [("brantle-order 1", "brantle-order 2", "damaged"), ("part 2/3", "part 4/3", "damaged"), (r"\n\d+\n", "\n", "not of"),
          (r"\n(\d+)\n(\d+)\n", r"\n\2\n\1\n", "damaged"), (r"\nend \d+", "\nend 1", "damaged"), (r"(?s)end.*", "", "damaged"),
          (r"[0-9a-f]{64}", "0" * 64, "not of"), (r"\n$", "\nmore", "damaged"), (r"\n(\d+)\n", "\n99999999999999999999\n", "damaged"),
          (r" [0-9a-f]{16} ", " 0123456789abcdef ", "the repository changed"), ("part 2/3", "part 1/3", "part 1 is there twice")]

# The same of part 3's details, of which none are merged then.
DETAILS = [('"info_sha256":"', '"info_sha256":"0', "not of"), (r'\n\{"type":"file"', '\n{"type":"fill"', "damaged"), ('"reading":1', '"reading":0', "of another"),
           (r'(?s)"type":"end".*', "", "damaged"), ('"ordinal":', '"ordinal":99999999', "damaged"), ('"sha256":"..', '"sha256":"', "damaged")]


def files(folder):
    """A folder's files, without what differs from scan to scan: the order, the clock."""
    clock = re.compile(rb'"(started|ended|read_at)":"[^"]*"|\{"type":"file"[^\n]*/dead.msi[^\n]*')
    return {path.name: clock.sub(b"", path.read_bytes()) for path in folder.iterdir() if path.name != "order"}


def merge(case, *parts):
    out = fresh(case, "merged")
    done = programs.run(OPTIONS.report, "merge", out, *parts)
    return done.returncode, files(out), done.stderr.decode()


class Parts(unittest.TestCase):
    def tree(self):
        """The sample repository, two certificates under one name in turns, a chain of folders, and on Linux also names
        that differ only in bytes that are no UTF-8, a link, a loop and a file that cannot be read."""
        top = fresh(self, "tree")
        shutil.copytree(FIXTURES / "tree", top / "sample")
        forged = SIGNED.read_bytes().replace(b"Signer RSA leaf", b"SIGNER RSA leaf", 1)
        for number in range(40):
            (top / f"{number}.exe").write_bytes(forged if number % 3 else SIGNED.read_bytes())
        (top / "/".join("abcdefgh")).mkdir(parents=True)
        shutil.copy(SIGNED, top / "a/b/c/&<>.exe")
        if not OPTIONS.wine:
            for name in (b"\xfe.exe", b"\xff.exe", b"line\n.exe"):
                shutil.copy(SIGNED, os.path.join(os.fsencode(top), name))
            (top / "link").symlink_to("sample")
            (top / "a/loop").symlink_to("..")
            (top / "dead.msi").symlink_to("/proc/self/mem")
        return top

    def scan(self, tree, count, *options):
        return [Scan(self, tree, *options, BRANTLE_PART=f"{number}/{count}", BRANTLE_DETAILS="1").out
                for number in range(1, count + 1)]

    def test_parts_are_the_scan(self):
        for tree, counts in ((self.tree(), (1, 3, 50)), (fresh(self, "empty"), (2,)), (SIGNED, (2,))):
            whole = Scan(self, tree, "-A", BRANTLE_DETAILS="1")
            for count in counts[1:2] or counts if OPTIONS.wine else counts:
                with self.subTest(tree=tree.name, count=count):
                    code, merged, said = merge(self, *reversed(self.scan(tree, count, "-A")))
                    self.assertEqual((code, merged), (0, files(whole.out)), said)

    def test_orders(self):
        parts = self.scan(self.tree(), 3)
        path = parts[1] / "order"
        good = path.read_text()
        records = sum(len(re.findall("<Executable>", (part / "info.xml").read_text())) for part in parts)
        for old, new, words in ORDERS[:2] if OPTIONS.wine else ORDERS:
            with self.subTest(old=old, new=new):
                path.write_text(re.sub(old, new, good, count=1), newline="\n")
                code, merged, said = merge(self, *parts)
                self.assertIn(words, said)
                self.assertEqual(code, 0 if "ignored" in said else 3)
                self.assertEqual(merged["info.xml"].count(b"<Executable>"), records)
        path.write_text(good, newline="\n")
        code, _, said = merge(self, *parts[:2])
        self.assertEqual((code, "part 3 of 3 is missing" in said), (3, True), said)
        path = parts[2] / "details.jsonl"
        good = path.read_text()
        for old, new, words in DETAILS[:1] if OPTIONS.wine else DETAILS:
            path.write_text(re.sub(old, new, good, count=1), newline="\n")
            code, merged, said = merge(self, *parts)
            self.assertEqual((code, words in said, "details.jsonl" in merged), (3, True, False), (old, said))

    def test_refused(self):
        for value, *options in ([""], ["0/1"], ["3/2"], ["1/65537"], ["1/2 "], ["+1/2"], ["1"], ["1/"], ["1/2", "-O"],
                                ["1/2", "-c", "D", "U", "P"]):
            if value or not OPTIONS.wine:  # an empty variable is none on Windows
                with self.subTest(value=value, options=options):
                    result = Scan(self, SIGNED, *options, BRANTLE_PART=value)
                    self.assertEqual((result.code, result.files, result.complained.count("\n")), (22, [], 1))


@unittest.skipIf(OPTIONS.wine, "the script is for Linux")
class Parallel(unittest.TestCase):
    def setUp(self):
        self.home = fresh(self, "home")
        shutil.copy(OPTIONS.parallel, self.home / "brantle-parallel")
        (self.home / "brantle").symlink_to(OPTIONS.brantle)
        (self.home / "brantle-report").symlink_to(OPTIONS.report)
        self.out = self.home / "out {} {= die =} $(touch x)\n"
        self.tree = self.home / "tree {} `touch x`"
        self.out.mkdir()
        shutil.copytree(FIXTURES / "tree", self.tree)

    def command(self, *arguments):
        return [sys.executable, self.home / "brantle-parallel", *map(str, arguments)]

    def test_the_result_is_one_scans(self):
        whole = Scan(self, self.tree)
        for options in ((), ("-j", "5", "--", "--delay", "0.01")):
            done = subprocess.run(self.command(self.tree, self.out, *options), capture_output=True, cwd=self.home)
            self.assertEqual((done.returncode, files(self.out)), (0, files(whole.out)), done.stderr)
        self.assertEqual(len(list(self.home.iterdir())), 5)

    def test_it_ends_whole_and_alone(self):
        with open(self.tree / "endless.exe", "wb") as file:
            file.write(SIGNED.read_bytes())
            file.truncate(1 << 38)
        with open(self.home / "words", "wb") as words, \
                subprocess.Popen(self.command(self.tree, self.out, "-j", "1"), stderr=words) as first:
            part = self.out / ".brantle-parallel" / "1"
            scans = []
            while not scans and first.poll() is None:
                time.sleep(0.05)
                scans = [pid for pid in os.listdir("/proc") if pid.isdecimal() and cwd_of(pid) == str(part)]
            second = subprocess.run(self.command(self.tree, self.out), capture_output=True, check=False)
            self.assertEqual((second.returncode, b"another run works" in second.stderr), (2, True), second.stderr)
            first.send_signal(signal.SIGTERM)
            self.assertEqual(first.wait(60), 143)
        self.assertEqual([pid for pid in scans if cwd_of(pid) == str(part)], [])

    def test_what_is_missing_is_said(self):
        for words, arguments in {"must exist": [self.tree, self.home / "no"], "does not exist": [self.home / "no", self.out],
                                 "names no machine": [self.tree, self.out, "--sshloginfile", os.devnull],
                                 "No such file": [self.tree, self.out, "--sshloginfile", self.home / "no"],
                                 "for shares": [self.tree, self.out, "--user", "u", "--password-file", os.devnull],
                                 "place of its own": [self.home, self.out]}.items():
            done = subprocess.run(self.command(*arguments), capture_output=True, check=False, text=True)
            self.assertEqual((done.returncode, done.stderr.count("\n"), words in done.stderr), (2, 1, True), done.stderr)
        done = subprocess.run(self.command(self.tree, self.out), capture_output=True, check=False, env={"PATH": "/"}, text=True)
        self.assertEqual((done.returncode, "parallel is not installed" in done.stderr), (2, True), done.stderr)


def cwd_of(pid):
    try:
        return os.readlink(f"/proc/{pid}/cwd")
    except OSError:
        return ""


if __name__ == "__main__":
    programs.main()
