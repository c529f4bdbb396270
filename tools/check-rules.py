#!/usr/bin/python3
"""Checks what no compiler does: the platform seam, the layers, and what must not stand in the tree."""
import os
import re
import sys

from sources import ROOT, all_files

PRODUCT = "tessivator/"
SEAM = re.compile(r"_(winnt|posix)_user\.(h|cpp)$")
# The one header that must know the platform to mark what the shared library exports.
EXPORT_HEADER = re.compile(r"_export\.h$")
PLATFORM_MACRO = re.compile(r"\b(_WIN32|_WIN64|__linux__|__unix__|__MINGW32__|__MINGW64__)\b")
SYSTEM_HEADER = re.compile(
    r"#\s*include\s*<(windows|winnt|winbase|winioctl|winsock2?|lm|lmcons|lmuse|lmerr|msi|msiquery|io|conio|"
    r"unistd|fcntl|dirent|dlfcn|pthread|poll|termios|iconv|mntent|pwd|sys/[^>]*|linux/[^>]*|gsf/[^>]*|glib[^>]*|"
    r"libsmbclient)\.?h?>")
INCLUDE = re.compile(r'#\s*include\s*"([^"]+)"')
UNFINISHED = re.compile(r"\b(TODO|FIXME|XXX)\b")
MACHINE_PATH = re.compile(r"(?<![\w.])/(work|root|tmp/team)/|\bhttps?://[\w.-]*(debian|npmjs|pypi)[\w.-]*/")

# What each component's files may include, lowest first; a component always sees itself.
BASE = ("common/qlib", "cfg")
BELOW = {
    "common/qlib": ("cfg",),
    "cfg": (),
    "blib": BASE,
    "utl": (*BASE, "blib"),
    "scan": (*BASE, "blib", "utl"),
    "cert": (*BASE, "blib", "utl", "scan"),
    "msi": (*BASE, "blib", "utl", "scan"),
    # Installer detection and the information record ask each other, so both are one target.
    "inv": (*BASE, "blib", "utl", "scan", "cert", "msi"),
    "sgn": (*BASE, "blib", "utl", "scan", "cert", "msi"),
    "utils/signing/brantle": (*BASE, "blib", "utl", "scan", "cert", "msi", "inv", "sgn"),
}
# Installer detection lives beside the path helpers but is built with the record, so it may look up to it.
UPWARD = {("tessivator/utl/utl.cpp", "inv")}


def component_of(path):
    """The component that a path below tessivator/ belongs to."""
    return max((one for one in BELOW if path.startswith(one + "/")), key=len, default=None)


def layer_faults(name, text):
    own = component_of(name[len(PRODUCT):])
    if own is None:
        return
    for number, line in enumerate(text.splitlines(), 1):
        found = INCLUDE.match(line)
        used = component_of(found.group(1)) if found else None
        if used and used != own and used not in BELOW[own] and (name, used) not in UPWARD:
            yield number, f"{own} may not include {used}"


def seam_faults(name, text):
    if SEAM.search(name):
        return
    for number, line in enumerate(text.splitlines(), 1):
        if SYSTEM_HEADER.match(line):
            yield number, "an operating-system header outside the platform seam"
        if PLATFORM_MACRO.search(line) and not EXPORT_HEADER.search(name):
            yield number, "a platform test outside the platform seam"


def text_faults(name, text):
    for number, line in enumerate(text.splitlines(), 1):
        if UNFINISHED.search(line):
            yield number, "unfinished work"
        if MACHINE_PATH.search(line):
            yield number, "a path or host of one machine"


def faults(name, text):
    if name.startswith(PRODUCT) and name.endswith((".h", ".cpp")):
        yield from seam_faults(name, text)
        yield from layer_faults(name, text)
    if name != "tools/check-rules.py":
        yield from text_faults(name, text)


def main():
    count = 0
    for name in all_files():
        try:
            with open(os.path.join(ROOT, name), encoding="utf-8") as file:
                text = file.read()
        except UnicodeDecodeError:
            continue  # a binary fixture
        if "\0" in text:
            continue
        for number, fault in faults(name, text):
            print(f"{name}:{number}: {fault}")
            count += 1
    print(f"{count} faults")
    return 1 if count else 0


if __name__ == "__main__":
    sys.exit(main())
