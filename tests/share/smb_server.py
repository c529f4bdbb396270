"""A real SMB server on loopback with a configuration, users and folders of its own, ended with the test."""
import contextlib
import ctypes
import itertools
import os
import pathlib
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import threading
import time

USER = "daemon"  # any account that every Debian system has
DOMAIN = "TESTGROUP"
PASSWORD = "pässword, \"long\" €"

FOLDERS = ("private dir", "lock directory", "state directory", "cache directory", "pid directory", "ncalrpc dir")
CONFIGURATION = """[global]
workgroup = {domain}
netbios name = TESTSERVER
smb ports = 445
interfaces = {address}/32
bind interfaces only = yes
{folders}
log file = {home}/log
load printers = no
disable spoolss = yes
map to guest = never
guest account = nobody
force user = nobody
[tree]
path = {tree}
[guest]
path = {tree}
guest ok = yes
[empty]
path = {home}/empty
[denied]
path = {tree}
valid users = bin
"""


ADDRESSES = (f"127.0.0.{i}" for i in itertools.count(1))


def enter_own_network():
    """For scripts that start servers: root, in a network of their own, where port 445 is free on every address."""
    if os.geteuid() != 0:  # smbd serves as root and turns into the user it serves
        os.execvp("sudo", ["sudo", "-n", sys.executable, *sys.argv])
    new_network = 0x40000000  # CLONE_NEWNET
    if ctypes.CDLL(None, use_errno=True).unshare(new_network) != 0:
        raise OSError(ctypes.get_errno(), "no network of its own")
    subprocess.run(["ip", "link", "set", "lo", "up"], check=True)


def new_address():
    address = next(ADDRESSES)
    if address != "127.0.0.1":
        subprocess.run(["ip", "address", "add", address + "/8", "dev", "lo"], check=True)
    return address


class Server:
    """with Server() as server: server.tree is the folder behind the shares "tree" and "guest"."""

    def __init__(self, tree=None):
        self.home = pathlib.Path(tempfile.mkdtemp(prefix="smb", dir="/tmp"))  # short: it holds sockets
        self.home.chmod(0o755)  # the server reads as nobody
        for name in (*FOLDERS, "empty"):
            (self.home / name).mkdir()
        self.tree = pathlib.Path(tree) if tree else self.home / "tree"
        self.tree.mkdir(exist_ok=True)
        self.process = None
        self.address = new_address()

    def __enter__(self):
        try:
            self.start()
        except BaseException:
            self.__exit__()
            raise
        return self

    def __exit__(self, *_):
        self.stop()
        shutil.rmtree(self.home, ignore_errors=True)

    def start(self):
        configuration = self.home / "smb.conf"
        folders = "\n".join(f"{name} = {self.home / name}" for name in FOLDERS)
        configuration.write_text(CONFIGURATION.format(domain=DOMAIN, folders=folders, **vars(self)))
        subprocess.run(["smbpasswd", "-c", configuration, "-s", "-a", USER], check=True, stdout=subprocess.DEVNULL,
                       input=f"{PASSWORD}\n{PASSWORD}\n".encode())
        self.process = subprocess.Popen(
            ["smbd", "--foreground", "--no-process-group", f"--configfile={configuration}"],
            stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, start_new_session=True)
        end = time.monotonic() + 30
        while time.monotonic() < end:
            with socket.socket() as probe:
                if probe.connect_ex((self.address, 445)) == 0:
                    return
            if self.process.poll() is not None:
                break
            time.sleep(0.05)
        raise RuntimeError("smbd did not start:\n" + (self.home / "log").read_text(errors="replace"))

    def stop(self):
        """Ends the server and what serves its connections, at once."""
        if self.process is not None:
            with contextlib.suppress(ProcessLookupError):
                os.killpg(self.process.pid, signal.SIGKILL)
            self.process.wait()
            self.process = None


def end(connection):
    with contextlib.suppress(OSError):
        connection.shutdown(socket.SHUT_RDWR)


class Relay:
    """Stands between client and server: calls `then(relay)` once so many bytes have come from the server, and sends on
    what `change` makes of each of its messages, after `delay` seconds."""

    def __init__(self, server, limit=1 << 60, then=None, change=lambda frame: frame, address=None, delay=0):
        self.server, self.limit, self.then, self.change, self.delay = server, limit, then, change, delay
        self.requests = 0
        self.silent = False
        self.passed = 0
        self.sockets = []
        self.lock = threading.Lock()
        self.address = address or new_address()
        family = socket.AF_INET6 if ":" in self.address else socket.AF_INET
        self.listener = socket.create_server((self.address, 445), family=family)
        self.threads = []
        self.start(self.accept)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        """Closes nothing that a thread may use: its number could be another relay's by the time that it does."""
        end(self.listener)
        self.threads[0].join()
        self.cut()
        for thread in self.threads:
            thread.join()
        for one in (self.listener, *self.sockets):
            one.close()

    def start(self, *work):
        self.threads.append(threading.Thread(target=work[0], args=work[1:], daemon=True))
        self.threads[-1].start()

    def cut(self):
        for one in self.sockets:
            end(one)

    def silence(self):
        self.silent = True

    def accept(self):
        with contextlib.suppress(OSError):
            while True:
                client, server = self.listener.accept()[0], socket.socket()
                self.sockets += client, server
                if server.connect_ex((self.server.address, 445)) == 0:
                    self.start(self.pump, client, server, False)
                    self.start(self.pump, server, client, True)
                else:
                    end(client)

    def pump(self, source, target, from_server):
        frames = source.makefile("rb")
        with contextlib.suppress(OSError):
            while len(head := frames.read(4)) == 4:
                frame = frames.read(int.from_bytes(head[1:], "big"))
                if from_server:
                    time.sleep(self.delay)
                    frame = self.change(frame)
                    with self.lock:
                        before, self.passed = self.passed, self.passed + len(frame)
                    if before < self.limit <= self.passed:
                        self.then(self)
                else:
                    self.requests += 1
                if not self.silent:
                    target.sendall(len(frame).to_bytes(4, "big") + frame)
        if not self.silent:
            end(source)
            end(target)
