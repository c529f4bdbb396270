#!/usr/bin/python3
"""Makes the folders that scan_vs_digest.py and details_cost.py measure; does nothing for a folder that is complete.

  real           images of wine and MinGW-w64, copied until 1 GiB is there
  small          20,000 unsigned images of 4 to 64 KiB: the fixtures' images, each with bytes behind its end
  small_signed   the same with every fourth one signed
  all_signed     the same with every one signed
"""
import itertools
import os
import random
import re
import shutil
import sys

FIXTURES = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tests", "fixtures", "images")
SYSTEM = ("/usr/lib/x86_64-linux-gnu/wine", "/usr/x86_64-w64-mingw32", "/usr/lib/gcc/x86_64-w64-mingw32")
REAL_BYTES = 1 << 30
SMALL_FILES = 20000
A_FOLDER = 500  # files
COMPLETE = ".complete"
ORDINARY = re.compile("(exe|lib|driver|control)(32|64)(_rsa|_ec)?")


def system_images():
    """Paths of the installed images, links left out, without repeats, in a fixed order."""
    found = set()
    for folder in SYSTEM:
        for at, _, names in os.walk(folder):
            found.update(os.path.join(at, n) for n in names if n.lower().endswith((".dll", ".exe", ".sys", ".ocx", ".drv")))
    return sorted(p for p in found if not os.path.islink(p) and os.path.getsize(p) > 0)


def make_real(target):
    images = system_images()
    if not images:
        sys.exit("make_corpus: neither wine nor MinGW-w64 is installed")
    done = 0
    for turn in itertools.count():
        for path in images:
            folder = os.path.join(target, "copy%d" % turn, os.path.dirname(path).strip("/").replace("/", "_"))
            os.makedirs(folder, exist_ok=True)
            shutil.copyfile(path, os.path.join(folder, os.path.basename(path)))
            done += os.path.getsize(path)
        if done >= REAL_BYTES:
            return


def fixture_images(signed):
    out = []
    for name in sorted(os.listdir(FIXTURES)):
        stem, suffix = os.path.splitext(name)
        if ORDINARY.fullmatch(stem) and stem.endswith(("_rsa", "_ec")) == signed:
            with open(os.path.join(FIXTURES, name), "rb") as file:
                out.append((suffix, file.read()))
    return out


def make_small(target, signed_every):
    chance = random.Random(4711)
    filler = chance.randbytes(64 << 10)
    plain, signed = fixture_images(False), fixture_images(True)
    for number in range(SMALL_FILES):
        kinds = signed if signed_every and number % signed_every == 0 else plain
        suffix, image = kinds[chance.randrange(len(kinds))]
        size = chance.randrange(4 << 10, (64 << 10) + 1)
        folder = os.path.join(target, "%03d" % (number // A_FOLDER))
        os.makedirs(folder, exist_ok=True)
        with open(os.path.join(folder, "image%05d%s" % (number, suffix)), "wb") as file:
            file.write(image + filler[: max(0, size - len(image))])


KINDS = {
    "real": make_real,
    "small": lambda target: make_small(target, 0),
    "small_signed": lambda target: make_small(target, 4),
    "all_signed": lambda target: make_small(target, 1),
}


def make(kind, work):
    """The complete folder of one kind below `work`, made when it is missing."""
    target = os.path.join(work, kind)
    if not os.path.exists(os.path.join(work, kind + COMPLETE)):
        shutil.rmtree(target, ignore_errors=True)
        KINDS[kind](target)
        with open(os.path.join(work, kind + COMPLETE), "w"):
            pass
    return target


if __name__ == "__main__":
    if len(sys.argv) != 2:
        sys.exit("usage: make_corpus.py WORK_FOLDER")
    for each in KINDS:
        print(make(each, sys.argv[1]))
