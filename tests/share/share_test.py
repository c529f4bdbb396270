"""The share layer and whole scans against a real SMB server on loopback, which this script starts and ends."""
import argparse
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest
import xml.etree.ElementTree as ElementTree

from smb_server import DOMAIN, PASSWORD, USER, Relay, Server, enter_own_network

FIXTURES = pathlib.Path(__file__).resolve().parent.parent / "fixtures"
LOGON = (DOMAIN, USER, PASSWORD)
OPTIONS = None  # the command line of this script
SERVER = None


def make_tree(tree):
    shutil.copytree(FIXTURES / "tree", tree / "tree", symlinks=True)
    names = tree / "names" / "größe 100%"
    names.mkdir(parents=True)
    (names / "日 & %41#.txt").write_text("x")
    (tree / "loop" / "inner").mkdir(parents=True)
    (tree / "loop" / "inner" / "back").symlink_to("..")  # the server follows it and shows a directory
    for i in range(1000):
        folder = tree / "many" / str(i % 10) / str(i % 7)
        folder.mkdir(parents=True, exist_ok=True)
        (folder / f"file {i}.txt").write_text(str(i))
    block = b"".join(i.to_bytes(4, "little") for i in range(1 << 18))
    (tree / "large.bin").write_bytes(block * 3 + b"end")
    image = next((FIXTURES / "tree").rglob("*.exe"))
    for name in ["odd/good/a", "odd/bad/QQQ", *(f"few/{i}" for i in range(10)), *(f"more/{i}" for i in range(40)), "wide/after"]:
        (tree / name).parent.mkdir(parents=True, exist_ok=True)
        shutil.copy(image, tree / f"{name}.exe")
    (tree / "wide" / "all").mkdir()
    for i in range(1000):
        (tree / "wide" / "all" / f"{i}.txt").touch()
    shutil.copy(image, tree / "refused.exe")
    (tree / "refused.exe").chmod(0o600)


class Result:
    def __init__(self, done, out):
        self.code, self.out = done.returncode, out
        self.said = done.stdout.decode() + done.stderr.decode()

    def files(self):
        return sorted(path.name for path in self.out.iterdir())

    def records(self, root):
        """What the report says of each file, by the file's path below `root`."""
        records = {}
        for element in ElementTree.parse(self.out / "info.xml").getroot():
            record = {child.tag: child.text for child in element}
            record["certificates"] = [child.attrib for child in element[-1]]
            name = record.pop("Name")
            assert name.startswith(root), name
            records[name[len(root):].replace("\\", "/")] = record
        return records


class Scans(unittest.TestCase):
    def scan(self, path, *options, logon=LOGON, home=None, program=None):
        out = pathlib.Path(tempfile.mkdtemp(dir=SERVER.home))
        arguments = [*options, *logon] if options else []
        done = subprocess.run([program or OPTIONS.brantle, path, out, *arguments], capture_output=True, timeout=120,
                              env=dict(os.environ, HOME=str(home or SERVER.home)), check=False)
        result = Result(done, out)
        self.assertNotIn(PASSWORD, result.said)
        return result

    def test_a_share_and_a_disk_give_the_same_report(self):
        share, local = r"\\127.0.0.1\tree\tree", str(SERVER.tree / "tree")
        for options in (["-n"], ["-A", "-n"]):
            on_share, on_disk = self.scan(share, *options), self.scan(local, *options[:-1], logon=())
            self.assertEqual((on_share.code, on_share.files()), (0, on_disk.files()))
            for name in on_share.files():
                if name != "info.xml":
                    self.assertEqual((on_share.out / name).read_bytes(), (on_disk.out / name).read_bytes())
            records = on_share.records(share)
            self.assertGreater(len(records), 20)
            self.assertEqual(records, on_disk.records(local))

    def test_exit_codes(self):
        tree = r"\\127.0.0.1\tree"
        for path, logon, code in ((tree + r"\tree\deep", LOGON, 0), (tree, (DOMAIN, USER, "wr0ng!"), 20002),
                                  (r"\\127.0.0.1\nothing", LOGON, 20001), (tree + r"\nothing", LOGON, 20001),
                                  (r"\\127.0.0.1\empty", LOGON, 20001), (str(SERVER.tree), LOGON, 20001)):
            for option in ("-n", "-c"):
                with self.subTest(path, option=option):
                    result = self.scan(path, option, logon=logon)
                    self.assertEqual(result.code, code & 255, result.said)
                    self.assertEqual(result.files(), ["info.xml"] if code == 0 and option == "-n" else [])

    def test_without_credentials_the_program_is_a_guest(self):
        result = self.scan(r"\\127.0.0.1\guest\tree")
        self.assertEqual(result.code, 0)
        self.assertEqual(result.records(r"\\127.0.0.1\guest\tree"),
                         self.scan(r"\\127.0.0.1\tree\tree", "-n").records(r"\\127.0.0.1\tree\tree"))
        self.assertEqual(self.scan(r"\\127.0.0.1\tree\tree").code, 20001 & 255)

    def test_the_machines_configuration_does_not_decide(self):
        home = pathlib.Path(tempfile.mkdtemp(dir=SERVER.home))
        (home / ".smb").mkdir()
        (home / ".smb" / "smb.conf").write_text(
            "[global]\nclient max protocol = NT1\nname resolve order = wins\nclient smb encrypt = required\n"
            "client use kerberos = required\nlog level = 10\nnonsense = 1\n")
        before = sorted(home.rglob("*"))
        result = self.scan(r"\\localhost\tree\tree\deep", "-n", home=home)
        self.assertEqual(result.code, 0, result.said)
        self.assertEqual(result.said, "")
        self.assertEqual(sorted(home.rglob("*")), before)

    def test_a_cut_connection_costs_nothing(self):
        path = r"\\{}\tree\tree"
        with Relay(SERVER) as relay:
            whole = self.scan(path.format(relay.address), "-n").records(path.format(relay.address))
        for tenth in (1, 3, 5, 7, 9):
            with self.subTest(tenth=tenth), Relay(SERVER, relay.passed * tenth // 10, Relay.cut) as cut:
                result = self.scan(path.format(cut.address), "-n")
                self.assertEqual(result.code, 0, result.said)
                self.assertEqual(result.records(path.format(cut.address)), whole)

    def test_a_folder_with_a_name_that_cannot_be_is_left_out_alone(self):
        name = "QQQ".encode("utf-16le")
        for other in ("\ud800QQ", "/QQ", "\\QQ", "\0\0\0"):
            there = other.encode("utf-16le", "surrogatepass")
            with self.subTest(other), Relay(SERVER, change=lambda frame: frame.replace(name, there)) as relay:
                path = rf"\\{relay.address}\tree\odd"
                self.assertEqual(list(self.scan(path, "-n").records(path)), ["/good/a.exe"])

    def test_a_small_file_takes_four_messages(self):
        for options in (["-n"], ["--cab", "-O", "-n"]):
            counts = {}
            for folder in ("few", "more"):
                with Relay(SERVER) as relay:
                    self.assertEqual(self.scan(rf"\\{relay.address}\tree\{folder}", *options).code, 0)
                    counts[folder] = relay.requests
            with self.subTest(options):
                self.assertLessEqual(counts["more"] - counts["few"], 4 * 30 + 2, counts)

    def test_the_share_program_ends_with_its_host(self):
        for number, code in ((signal.SIGKILL, -signal.SIGKILL), (signal.SIGTERM, 143)):
            with self.subTest(code), Relay(SERVER, 20000, Relay.silence) as relay, subprocess.Popen(
                    [OPTIONS.brantle, rf"\\{relay.address}\tree", SERVER.home / "empty", "-n", *LOGON]) as host:
                while not relay.silent and host.poll() is None:
                    time.sleep(0.01)
                child, = pathlib.Path(f"/proc/{host.pid}/task/{host.pid}/children").read_text().split()
                host.send_signal(number)
                # Whoever waits for the silent server connects to it once more.
                self.assertEqual((host.wait(), len(relay.sockets)), (code, 2))
            state = pathlib.Path(f"/proc/{child}/stat")
            end = time.monotonic() + 5
            while state.exists() and " Z " not in state.read_text() and time.monotonic() < end:
                time.sleep(0.01)
            self.assertLess(time.monotonic(), end)

    def test_a_server_lost_in_the_middle(self):
        """Half of what a whole scan reads comes through; then the server ends, or says no more."""
        with Server(SERVER.tree) as other:
            for server, happening in ((other, lambda relay: other.stop()), (SERVER, Relay.silence)):
                with Relay(server) as relay:
                    path = rf"\\{relay.address}\tree\tree"
                    whole = len(self.scan(path, "-n").records(path))
                with self.subTest(happening), Relay(server, relay.passed // 2, happening) as relay:
                    path = rf"\\{relay.address}\tree\tree"
                    result = self.scan(path, "-n")
                    self.assertEqual(result.code, 0, result.said)
                    self.assertIn("incomplete: the walk ended early", result.said)
                    self.assertIn(len(result.records(path)), range(1, whole))

    def test_a_listing_without_end_is_left_out_alone(self):
        names, times = b"", 0

        def again(frame):
            """In place of "no more files" the last names come once more, more than a million in all."""
            nonlocal names, times
            if frame[12:14] != b"\x0e\0":
                return frame
            if frame[8:12] == bytes(4):
                names = frame[64:] if len(frame) > 20000 else b""
            elif names and times < 3000:
                times += 1
                return frame[:8] + bytes(4) + frame[12:64] + names
            return frame
        with Relay(SERVER, change=again) as relay:
            path = rf"\\{relay.address}\tree\wide"
            result = self.scan(path, "-n")
        self.assertEqual((result.code, list(result.records(path))), (0, ["/after.exe"]))
        self.assertIn("incomplete: 1 directory", result.said)

    def test_whatever_a_server_says_the_scan_ends_and_tells_what_is_missing(self):
        home = pathlib.Path(tempfile.mkdtemp(dir=SERVER.home))
        shutil.copy(OPTIONS.brantle, home / "brantle")
        shutil.copy(pathlib.Path(__file__).parent / "fake_smb.py", home / "brantle_smb")
        shutil.copy(FIXTURES / "images" / "bare64.exe", home / "image")
        early, whole = "the walk ended early", ["/a.exe", "/b.exe", "/d/c.exe", "/z.exe"]
        cases = (
            # Lost twice for one thing, the scan ends there with what it has.
            ("dies odd-error error-and-bytes newer other long short more-than-it-has too-much", whole[:1], early, 2),
            ("backwards zero cut nothing-more", whole[:2], early, 2),
            # Lost once, nothing is missing.
            ("honest", whole, None, 1),
            ("dies-once stumbles", whole, None, 2),
            ("refuses too-little", whole[:1] + whole[2:], "1 file", 1),
            ("changes", whole[:1] + whole[2:], "1 file", 2),
            ("full", whole[:2] + whole[3:], "1 directory", 2),
            ("endless", whole[:2], early, 1),  # it is cut when names have come
            ("branches", whole[:2] + whole[3:], "32 directories", 1),  # 16 ways to 256 levels, each with two more
            ("mute talks", None, None, 2),
        )
        for servers, names, incomplete, starts in cases:
            for server in servers.split():
                with self.subTest(server):
                    path = rf"\\{server}\tree"
                    result = self.scan(path, "-n", program=home / "brantle")
                    self.assertEqual(len((home / server).read_text()), starts)
                    if names is None:
                        self.assertEqual(result.code, 20002 & 255)
                        continue
                    self.assertEqual((result.code, sorted(result.records(path))), (0, names))
                    mark = f"<!-- incomplete: {incomplete} -->" if incomplete else ""
                    self.assertEqual(re.findall("<!--.*-->", (result.out / "info.xml").read_text()), [mark] * bool(mark))
                    self.assertEqual(f"brantle: incomplete: {incomplete}" in result.said, bool(mark))

    def test_without_the_share_program_every_share_fails(self):
        alone = shutil.copy(OPTIONS.brantle, tempfile.mkdtemp(dir=SERVER.home))
        result = self.scan(r"\\127.0.0.1\tree", "-n", program=alone)
        self.assertEqual(result.code, 20002 & 255)
        self.assertIn("Netuseadd() returned 50 ", result.said)


class ShareLayer(unittest.TestCase):
    def test_unit(self):
        with Relay(SERVER, 1, Relay.silence) as silent, Relay(SERVER, address="::1"):
            environment = dict(os.environ, SHARE_LOCAL=str(SERVER.tree), SHARE_SILENT=silent.address)
            self.assertEqual(subprocess.run([OPTIONS.unit], env=environment, check=False).returncode, 0)


if __name__ == "__main__":
    enter_own_network()
    parser = argparse.ArgumentParser()
    parser.add_argument("--brantle", required=True)
    parser.add_argument("--unit", required=True)
    OPTIONS, rest = parser.parse_known_args()
    with Server() as SERVER:
        make_tree(SERVER.tree)
        unittest.main(argv=[sys.argv[0], *rest])
