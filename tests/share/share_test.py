"""The share layer and whole scans against a real SMB server on loopback, which this script starts and ends."""
import argparse
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import time
import unittest
import xml.etree.ElementTree as ElementTree

from smb_server import DOMAIN, PASSWORD, USER, Relay, Server

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
    shutil.copy(image, tree / "refused.exe")
    (tree / "refused.exe").chmod(0o600)


class ShareLayer(unittest.TestCase):
    def test_unit(self):
        environment = dict(os.environ, SHARE_PORT=str(SERVER.port), SHARE_LOCAL=str(SERVER.tree))
        self.assertEqual(subprocess.run([OPTIONS.unit], env=environment).returncode, 0)


if __name__ == "__main__":
    if os.geteuid() != 0:  # smbd serves as root and turns into the user it serves
        os.execvp("sudo", ["sudo", "-n", sys.executable, *sys.argv])
    parser = argparse.ArgumentParser()
    parser.add_argument("--brantle", required=True)
    parser.add_argument("--unit", required=True)
    OPTIONS, rest = parser.parse_known_args()
    with Server() as SERVER:
        make_tree(SERVER.tree)
        unittest.main(argv=[sys.argv[0], *rest])
