"""The share layer and whole scans against a real SMB server on loopback, which this script starts and ends."""
import os
import pathlib
import re
import select
import shutil
import signal
import socket
import subprocess
import sys
import time
import unittest

HERE = pathlib.Path(__file__).resolve().parent
sys.path.append(str(HERE.parent / "support"))
import programs  # noqa: E402
from programs import FIXTURES, OPTIONS, Scan, fresh  # noqa: E402
from smb_server import DOMAIN, PASSWORD, USER, Relay, Server, enter_own_network  # noqa: E402

LOGON = (DOMAIN, USER, PASSWORD)
TREE = r"\\127.0.0.1\tree"
SERVER = None


def setUpModule():
    global SERVER
    enter_own_network()
    SERVER = unittest.enterModuleContext(Server())
    OPTIONS.scratch = SERVER.home
    make_tree(SERVER.tree)


def make_tree(tree):
    shutil.copytree(FIXTURES / "tree", tree / "tree", symlinks=True)
    for i in range(1000):
        for folder in (tree / "many" / str(i % 10) / str(i % 7), tree / "wide" / "all"):
            folder.mkdir(parents=True, exist_ok=True)
            (folder / f"file {i}{' and more' * 15}.txt").write_text(str(i))  # a thousand take more than one answer
    for name in ["names/größe 100%/日 & %41#", "loop/inner/once", "odd/good/a", "odd/bad/QQQ", "wide/after", "refused",
                 "short/a", "long/a", *(f"few/{i}" for i in range(10)), *(f"more/{i}" for i in range(40))]:
        (tree / name).parent.mkdir(parents=True, exist_ok=True)
        shutil.copy(FIXTURES / "images" / "exe64_rsa.exe", tree / f"{name}.exe")
    (tree / "refused.exe").chmod(0o600)
    (tree / "loop" / "inner" / "back").symlink_to("..")  # the server follows it and shows a directory
    block = b"".join(i.to_bytes(4, "little") for i in range(1 << 18))
    (tree / "large.bin").write_bytes(block * 3 + b"end")
    for name, blocks in (("short", 1), ("long", 9)):
        with (tree / name / "a.exe").open("ab") as file:
            file.write(block * blocks)


class Scans(unittest.TestCase):
    def scan(self, path, *options, logon=LOGON, **more):
        result = Scan(self, path, *options, *(logon if options else ()), **{"HOME": str(SERVER.home), **more})
        result.said += result.complained
        self.assertNotIn(PASSWORD, result.said)
        return result

    def through(self, relay, folder, *options):
        result = self.scan(rf"\\{relay.address}\tree\{folder}", *(options or ["-n"]))
        self.assertEqual(result.code, 0, result.said)
        return result

    def test_a_share_and_a_disk_give_the_same_report(self):
        for folder, options in (("", ["-n"]), (r"\tree", ["-A", "-n"])):
            on_share = self.scan(TREE + folder, *options, BRANTLE_PROGRESS="1")
            on_disk = self.scan(SERVER.tree / folder[1:], *options[:-1], logon=(), BRANTLE_PROGRESS="1")
            self.assertEqual((on_share.code, on_share.files), (0, on_disk.files))
            for stem in on_share.stems:
                self.assertEqual(*((one.out / f"{stem}.cer").read_bytes() for one in (on_share, on_disk)))
            records = on_disk.records()
            refused = records.pop("refused.exe", None)  # by the server; root may read it
            self.assertEqual(list(on_share.records().items()), list(records.items()))  # in the server's order
            self.assertEqual("incomplete: 1 file\n" in on_share.said, refused is not None, on_share.said)
            self.assertEqual(*(re.findall(r"(\d+) files, ", one.said)[-1] for one in (on_share, on_disk)))

    def test_where_a_scan_starts(self):
        for start, found in ((r"names", ["names/größe 100%/日 & %41#.exe"]), (r"tree\SETUP.*", ["tree/SETUP.EXE"]),
                             (r"tree\SETUP.EXE", ["tree/SETUP.EXE"]), ("loop", ["loop/inner/once.exe"])):
            with self.subTest(start):
                self.assertEqual(list(self.scan(rf"{TREE}\{start}", "-n").records(TREE)), found)

    def test_each_failure_has_its_codes(self):
        """The system's error of the connection, and the program's own."""
        for path, logon, error, code in (
                (TREE + r"\tree\deep", LOGON, 0, 0),
                (r"\\[::1]\tree\tree\deep", LOGON, 0, 0),
                (TREE + r"\nothing", LOGON, 0, 20001),
                (r"\\127.0.0.1\empty", LOGON, 0, 20001),
                (TREE, (DOMAIN, USER, "wr0ng!"), 1326, 20002),
                (TREE, (DOMAIN, USER, ""), 1326, 20002),
                (TREE, (DOMAIN, "no-such-user", "x"), 1326, 20002),
                (r"\\127.0.0.1\guest", (DOMAIN, USER, "wr0ng!"), 1326, 20002),  # no guest instead
                (TREE, (DOMAIN, USER, "p" * 300), 87, 20002),  # not cut and tried
                (r"\\127.0.0.1\denied", LOGON, 5, 20002),
                (r"\\127.0.0.1\nothing", LOGON, 67, 20001),
                (r"\\127.0.0.1", LOGON, 67, 20001),
                (SERVER.tree, LOGON, 67, 20001),
                (r"\\0\tree", LOGON, 53, 20001),
                (r"\\127.0.9.9\tree", LOGON, 53, 20001),
                (r"\\no-such-server.invalid\tree", LOGON, 53, 20001)):
            for option in ("-n", "-c"):
                with self.subTest(path, logon=logon, option=option), Relay(SERVER, address="::1"):
                    result = self.scan(path, option, logon=logon)
                    self.assertEqual(result.code, code & 255, result.said)
                    told = re.findall(r"Netuseadd\(\) returned (\d+) ", result.said)
                    self.assertEqual(told, [str(error)] if error else [])
                    self.assertEqual(result.files, ["info.xml"] if code == 0 and option == "-n" else [])

    def test_parts_with_a_password_from_a_file(self):
        secret = fresh(self, "secret") / "file"
        whole = self.scan(TREE + r"\tree", "-n").records(TREE)
        for content, code in ((f"{PASSWORD}\r\nmore", 0), ("wr0ng!\n", 20002), (None, 22)):
            secret.unlink() if content is None else secret.write_text(content, newline="")
            found = {}
            for part in ("1/2", "2/2"):
                result = self.scan(TREE + r"\tree", "-n", logon=(DOMAIN, USER, "-"), BRANTLE_PART=part,
                                   BRANTLE_PASSWORD_FILE=str(secret))
                self.assertEqual(result.code, code & 255, result.said)
                found |= result.records(TREE) if code == 0 else {}
            self.assertEqual(found, whole if code == 0 else {})

    def test_without_credentials_the_program_is_a_guest(self):
        guest = r"\\127.0.0.1\guest\tree"
        self.assertEqual(self.scan(guest).records(), self.scan(TREE + r"\tree", "-n").records())
        for path in (TREE + r"\tree", r"\\no-such-server.invalid\tree"):
            self.assertEqual(self.scan(path).code, 20001 & 255)

    def test_the_machines_configuration_does_not_decide(self):
        home = fresh(self, "home")
        (home / ".smb").mkdir()
        (home / ".smb" / "smb.conf").write_text(
            "[global]\nclient max protocol = NT1\nname resolve order = wins\nclient smb encrypt = required\n"
            "client use kerberos = required\nlog level = 10\nnonsense = 1\n")
        before = sorted(home.rglob("*"))
        result = self.scan(r"\\localhost\tree\tree\deep", "-n", HOME=str(home))
        self.assertEqual((result.code, result.said), (0, ""))
        self.assertEqual(sorted(home.rglob("*")), before)

    def test_a_cut_connection_costs_nothing(self):
        with Relay(SERVER) as relay:
            whole = self.through(relay, "tree").records()
        for tenth in (1, 3, 5, 7, 9):
            with self.subTest(tenth=tenth), Relay(SERVER, relay.passed * tenth // 10, Relay.cut) as cut:
                self.assertEqual(self.through(cut, "tree").records(), whole)

    def test_a_folder_with_a_name_that_cannot_be_is_left_out_alone(self):
        name = "QQQ".encode("utf-16le")
        for other in ("\ud800QQ", "/QQ", "\\QQ", "\0\0\0"):
            there = other.encode("utf-16le", "surrogatepass")
            with self.subTest(other), Relay(SERVER, change=lambda frame: frame.replace(name, there)) as relay:
                self.assertEqual(list(self.through(relay, "odd").records()), ["good/a.exe"])

    def test_a_name_that_is_listed_twice_counts_once(self):
        one, other = (name.encode("utf-16le") for name in ("1.exe", "2.exe"))
        with Relay(SERVER, change=lambda frame: frame.replace(one, other)) as relay:
            self.assertEqual(len(self.through(relay, "few").records()), 9)

    def test_what_a_file_costs(self):
        """A small one four messages, a long one some more; few bytes come twice, when a reader stalls."""
        for few, more, most, *options in (("few", "more", 4 * 30 + 2, "-n"), ("short", "long", 32, "-n"),
                                          ("few", "more", 4 * 30 + 2, "--cab", "-O", "-n")):
            with self.subTest(more, options=options), Relay(SERVER) as first, Relay(SERVER) as second:
                self.through(first, few, *options)
                self.through(second, more, *options)
                short, long = (sum(one.stat().st_size for one in (SERVER.tree / folder).iterdir())
                               for folder in (few, more))
                self.assertLessEqual(second.requests - first.requests, most)
                self.assertLessEqual(second.passed - first.passed, long - short + (most << 16))

    def test_the_share_program_ends_with_its_host(self):
        for number, code in ((signal.SIGKILL, -signal.SIGKILL), (signal.SIGTERM, 143)):
            with self.subTest(code), Relay(SERVER, 20000, Relay.silence) as relay, subprocess.Popen(
                    [OPTIONS.brantle, rf"\\{relay.address}\tree", SERVER.home / "empty", "-n", *LOGON]) as host:
                while not relay.silent and host.poll() is None:
                    time.sleep(0.01)
                child, = pathlib.Path(f"/proc/{host.pid}/task/{host.pid}/children").read_text().split()
                self.assertIn("CapPrm:\t0000000000000000\n", pathlib.Path(f"/proc/{child}/status").read_text())
                ended = os.pidfd_open(int(child))
                host.send_signal(number)
                # Whoever waits for the silent server connects to it once more.
                self.assertEqual((host.wait(), len(relay.sockets)), (code, 2))
                self.assertEqual(select.select([ended], [], [], 5)[0], [ended])
                os.close(ended)

    def test_the_share_program_hides_its_memory_before_it_gets_a_password(self):
        program = shutil.copy(pathlib.Path(OPTIONS.brantle).with_name("brantle_smb"), fresh(self, "program"))
        ours, theirs = socket.socketpair()
        with ours, theirs, subprocess.Popen([program], user="nobody", pass_fds=[3],
                                            preexec_fn=lambda: os.dup2(theirs.fileno(), 3)) as child:
            memory, end = pathlib.Path(f"/proc/{child.pid}/mem"), time.monotonic() + 10
            while (owner := memory.stat().st_uid) != 0 and time.monotonic() < end:
                time.sleep(0.01)
            child.kill()
        self.assertEqual(owner, 0)  # its user's no more

    def test_a_server_lost_in_the_middle(self):
        """Half of what a whole scan reads comes through; then the server ends, or says no more."""
        with Server(SERVER.tree) as other:
            for server, happening in ((other, lambda relay: other.stop()), (SERVER, Relay.silence)):
                with Relay(server) as relay:
                    whole = len(self.through(relay, "tree").records())
                with self.subTest(happening), Relay(server, relay.passed // 2, happening) as relay:
                    result = self.through(relay, "tree")
                    self.assertIn("incomplete: the walk ended early", result.said)
                    self.assertIn(len(result.records()), range(1, whole))

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
            result = self.through(relay, "wide")
        self.assertEqual(list(result.records()), ["after.exe"])
        self.assertIn("incomplete: 1 directory", result.said)

    def test_whatever_a_server_says_the_scan_ends_and_tells_what_is_missing(self):
        home = fresh(self, "home")
        shutil.copy(OPTIONS.brantle, home / "brantle")
        shutil.copy(HERE / "fake_smb.py", home / "brantle_smb")
        shutil.copy(FIXTURES / "images" / "bare64.exe", home / "image")
        early, whole = "the walk ended early", ["a.exe", "b.exe", "d/c.exe", "z.exe"]
        cases = (
            # Lost twice for one thing, the scan ends there with what it has.
            ("dies odd-error error-and-bytes newer other long short more-than-it-has too-much", whole[:1], early, 2),
            ("nameless zero cut nothing-more", whole[:2], early, 2),
            # Lost once, nothing is missing.
            ("honest", whole, None, 1),
            ("dies-once stumbles", whole, None, 2),
            ("reorders", ["a.exe", "b.exe", "d/e.exe", "d/c.exe", "d/f.exe", "d/d.exe", "z.exe"], None, 2),
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
                    result = self.scan(rf"\\{server}\tree", "-n", program=home / "brantle")
                    self.assertEqual(len((home / server).read_text()), starts)
                    if names is None:
                        self.assertEqual(result.code, 20002 & 255)
                        continue
                    self.assertEqual((result.code, list(result.records())), (0, names))
                    mark = f"<!-- incomplete: {incomplete} -->" if incomplete else ""
                    self.assertEqual(re.findall("<!--.*-->", (result.out / "info.xml").read_text()), [mark] * bool(mark))
                    self.assertEqual(f"brantle: incomplete: {incomplete}" in result.said, bool(mark))

    def test_without_the_share_program_every_share_fails(self):
        alone = shutil.copy(OPTIONS.brantle, fresh(self, "alone"))
        result = self.scan(TREE, "-n", program=alone)
        self.assertEqual(result.code, 20002 & 255)
        self.assertIn("Netuseadd() returned 50 ", result.said)
        for path, told in ((TREE, ["shares need the program brantle_smb (package brantle-smb)"]), ("/nothing", [])):
            plain = self.scan(path, program=alone)
            self.assertEqual((plain.code, re.findall("brantle: (.*)", plain.complained)), (20001 & 255, told))


class ShareLayer(unittest.TestCase):
    def test_unit(self):
        with Relay(SERVER, 1, Relay.silence) as silent, Relay(SERVER, address="::1"):
            environment = dict(os.environ, SHARE_LOCAL=str(SERVER.tree), SHARE_SILENT=silent.address)
            self.assertEqual(subprocess.run([OPTIONS.unit], env=environment, check=False).returncode, 0)


if __name__ == "__main__":
    programs.main()
