"""A scan of 1 GiB on a share against what nobody can do without: fetching the same files with smbclient and digesting
them; then, on lines of 20 ms, a scan of 200 small files against fetching them, and four such scans of four servers at
once against one. Prints the times and their ratios; the servers are real ones on loopback.

    bench/share_speed.py BRANTLE [MEGABYTES]
"""
import contextlib
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
sys.path.insert(0, str(ROOT / "tests" / "share"))
from smb_server import DOMAIN, PASSWORD, USER, Relay, Server, enter_own_network  # noqa: E402

FILE_BYTES = 4 << 20


def make_images(tree, count):
    """Images of 4 MiB: a small one with data behind it."""
    image = (ROOT / "tests" / "fixtures" / "images" / "bare64.exe").read_bytes()
    for i in range(count):
        folder = tree / f"{i % 16:02}"
        folder.mkdir(exist_ok=True)
        (folder / f"image{i}.exe").write_bytes(image + os.urandom(FILE_BYTES - len(image)))


def timed(*command, **options):
    start = time.monotonic()
    subprocess.run(command, check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, **options)
    return time.monotonic() - start


def fetch(address, place):
    return timed("smbclient", "-s", os.devnull, "-W", DOMAIN, "-U", USER, f"//{address}/tree", "-c",
                 "prompt OFF; recurse ON; mget *", cwd=place, env=dict(os.environ, PASSWD=PASSWORD))


def scan(brantle, *addresses):
    """Of all of them at once."""
    with contextlib.ExitStack() as stack:
        outs = [stack.enter_context(tempfile.TemporaryDirectory()) for _ in addresses]
        start = time.monotonic()
        scans = [subprocess.Popen([brantle, rf"\\{address}\tree", out, "-n", DOMAIN, USER, PASSWORD],
                                  stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
                 for address, out in zip(addresses, outs)]
        if any([one.wait() for one in scans]):
            raise RuntimeError("a scan failed")
        return time.monotonic() - start


def large(brantle, megabytes):
    ratios = []
    with Server() as server:
        make_images(server.tree, (megabytes << 20) // FILE_BYTES)
        for _ in range(3):
            with tempfile.TemporaryDirectory(dir=server.home) as place:
                fetched = fetch(server.address, place)
                digests = sum(timed("find", place, "-type", "f", "-exec", tool, "{}", "+")
                              for tool in ("sha1sum", "sha256sum"))
            scanned = scan(brantle, server.address)
            ratios.append(scanned / (fetched + digests))
            print(f"smbclient {fetched:.2f} s + digests {digests:.2f} s, scan {scanned:.2f} s: ratio {ratios[-1]:.2f}",
                  flush=True)
    print(f"median {sorted(ratios)[1]:.2f} (target: at most 1)")
    return sorted(ratios)[1] <= 1


def slow_lines(brantle):
    with contextlib.ExitStack() as stack:
        servers = [stack.enter_context(Server()) for _ in range(4)]
        for server in servers:
            for i in range(200):
                shutil.copy(ROOT / "tests" / "fixtures" / "images" / "exe32_rsa.exe", server.tree / f"{i}.exe")
        lines = [stack.enter_context(Relay(server, delay=0.02)).address for server in servers]
        with tempfile.TemporaryDirectory() as place:
            fetched = fetch(lines[0], place)
        one, four = scan(brantle, lines[0]), scan(brantle, *lines)
    print(f"200 files at 20 ms: smbclient {fetched:.2f} s, scan {one:.2f} s: ratio {one / fetched:.2f} (target: at most 1.5)")
    print(f"four servers at once {four:.2f} s: ratio {four / one:.2f} (target: at most 1.3)")
    return one <= 1.5 * fetched and four <= 1.3 * one


def main():
    enter_own_network()
    good = large(sys.argv[1], int(sys.argv[2]) if len(sys.argv) > 2 else 1024)
    return 0 if slow_lines(sys.argv[1]) and good else 1


if __name__ == "__main__":
    sys.exit(main())
