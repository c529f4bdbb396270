"""Runs JvmTest's share mode against a real SMB server on loopback: share_jvm_test.py COMMAND... (JvmTest's arguments)."""
import pathlib
import shutil
import subprocess
import sys

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parent / "share"))
from smb_server import DOMAIN, PASSWORD, USER, Server, enter_own_network  # noqa: E402

enter_own_network()
with Server() as server:
    shutil.copytree(HERE.parent / "fixtures" / "tree", server.tree / "software")
    subprocess.run(["chmod", "-R", "a+rX", server.tree], check=True)
    done = subprocess.run([*sys.argv[1:], str(server.tree / "software"), DOMAIN, USER, PASSWORD], timeout=200,
                          check=False)
sys.exit(done.returncode)
