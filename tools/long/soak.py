#!/usr/bin/python3
"""Runs Soak.java with servers on loopback: one good, one slow, one that comes and goes, one that never answers.

    tools/long/soak.py BUILD SECONDS CALLS      SECONDS of the one, then so many calls of the other; 0 for none
"""
import os
import pathlib
import random
import re
import shutil
import subprocess
import sys
import tempfile
import threading
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
sys.path.insert(0, str(ROOT / "tests" / "share"))
from smb_server import DOMAIN, PASSWORD, USER, Relay, Server, enter_own_network  # noqa: E402


def come_and_go(server, relay, done):
    """By turns the line is cut, and the server itself ends and is there again."""
    while not done.is_set():
        for _ in range(5):
            time.sleep(random.uniform(0.1, 2))
            relay.cut()
        server.stop()
        time.sleep(random.uniform(0, 2))
        server.start()


enter_own_network()
build = pathlib.Path(sys.argv[1]).resolve()
with tempfile.TemporaryDirectory(dir="/dev/shm") as scratch, Server() as good, Server(good.tree) as other, \
        Relay(good, delay=0.05) as slow, Relay(other) as dying, Relay(good, 1, Relay.silence) as silent:
    tree, small = good.tree / "software", good.tree / "small"
    classes = f"{build}/java/brantle.jar:{build}/tests/jvm/classes"
    shutil.copytree(ROOT / "tests/fixtures/tree", tree)
    small.mkdir()
    shutil.copy(tree / "tools" / "tool64.exe", small)
    subprocess.run(["chmod", "-R", "a+rX", good.tree], check=True)
    done = threading.Event()
    fate = threading.Thread(target=come_and_go, args=(other, dying, done))
    fate.start()
    subprocess.run(["javac", "-encoding", "UTF-8", "-cp", classes, "-d", good.home, ROOT / "tools/long/Soak.java"],
                   check=True)
    # The compiler's own memory, and a heap for each thread, would come and go by tens of megabytes.
    host = ["java", "-Xcheck:jni", "-XX:TieredStopAtLevel=1", "-Xmx96m", "-Xms96m", "-XX:+AlwaysPreTouch",
            "-XX:+UseSerialGC", "-XX:-UseDynamicNumberOfCompilerThreads", "-Dfile.encoding=UTF-8",
            "-Dsun.jnu.encoding=UTF-8", "-cp", f"{classes}:{good.home}", "Soak",
            build / "tessivator/utils/signing/brantle/libbrantle.so"]
    environment = dict(os.environ, BRANTLE_LOG=scratch + "/log", MALLOC_ARENA_MAX="2")
    servers = [DOMAIN, USER, PASSWORD, good.address, slow.address, dying.address, silent.address]
    failed = False
    for arguments in ([tree, scratch, sys.argv[2], *servers], [small, scratch, sys.argv[3]]):
        if arguments[0] == small:
            done.set()
        if failed or int(arguments[2]) == 0:
            continue
        with subprocess.Popen([*host, *arguments], env=environment, text=True, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT) as running:
            lines = []
            for line in running.stdout:
                if not re.match(r"\n|Netuseadd|Invalid Repos", line):
                    lines.append(line)
                    print(line, end="", flush=True)
        failed = running.returncode != 0 or re.search("in native method|FATAL|WARNING: JNI", "".join(lines))
    done.set()
    fate.join()
sys.exit(bool(failed))
