"""A scan of 1 GiB on a share against what nobody can do without: fetching the same files with smbclient and digesting
them. Prints the times and their ratio; the server is a real one on loopback.

    bench/share_speed.py BRANTLE [MEGABYTES]
"""
import os
import pathlib
import subprocess
import sys
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
sys.path.insert(0, str(ROOT / "tests" / "share"))
from smb_server import DOMAIN, PASSWORD, USER, Server, enter_own_network  # noqa: E402

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


def fetch_and_digest(server, place):
    environment = dict(os.environ, PASSWD=PASSWORD)
    fetch = timed("smbclient", "-s", os.devnull, "-W", DOMAIN, "-U", USER,
                  "//127.0.0.1/tree", "-c", "prompt OFF; recurse ON; mget *", cwd=place, env=environment)
    digests = sum(timed("find", place, "-type", "f", "-exec", tool, "{}", "+") for tool in ("sha1sum", "sha256sum"))
    return fetch, digests


def main():
    brantle = sys.argv[1]
    megabytes = int(sys.argv[2]) if len(sys.argv) > 2 else 1024
    enter_own_network()
    with Server() as server:
        make_images(server.tree, (megabytes << 20) // FILE_BYTES)
        ratios = []
        for _ in range(3):
            with tempfile.TemporaryDirectory(dir=server.home) as place:
                fetch, digests = fetch_and_digest(server, place)
            with tempfile.TemporaryDirectory(dir=server.home) as out:
                scan = timed(brantle, r"\\127.0.0.1\tree", out, "-n", DOMAIN, USER, PASSWORD)
            ratios.append(scan / (fetch + digests))
            print(f"smbclient {fetch:.2f} s + digests {digests:.2f} s, scan {scan:.2f} s: ratio {ratios[-1]:.2f}",
                  flush=True)
        print(f"best ratio {min(ratios):.2f}, median {sorted(ratios)[1]:.2f} (target: at most 1.50)")
        return 0 if sorted(ratios)[1] <= 1.5 else 1


if __name__ == "__main__":
    sys.exit(main())
