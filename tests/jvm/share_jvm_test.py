"""Runs JvmTest's share mode against a real SMB server on loopback: share_jvm_test.py COMMAND... (JvmTest's arguments)."""
import os
import pathlib
import shutil
import subprocess
import sys

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parent / "share"))
from smb_server import DOMAIN, PASSWORD, USER, Server  # noqa: E402

with Server() as server:
    shutil.copytree(HERE.parent / "fixtures" / "tree", server.tree / "software")
    subprocess.run(["chmod", "-R", "a+rX", server.tree], check=True)
    environment = dict(os.environ, BRANTLE_SMB_PORT=str(server.port))
    done = subprocess.run([*sys.argv[1:], str(server.tree / "software"), DOMAIN, USER, PASSWORD],
                          env=environment, timeout=200, check=False)
sys.exit(done.returncode)
