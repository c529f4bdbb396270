#!/usr/bin/python3
"""Compares the information record of every image that wine and MinGW-w64 bring with independent readers.

usage: compare_records.py DUMP_RECORDS

Version strings, type and kind come from pefile, digests from hashlib. Fails on any difference, and when too few images
are there to mean anything.
"""
import hashlib
import os
import subprocess
import sys

import pefile

FOLDERS = ("/usr/lib/x86_64-linux-gnu/wine", "/usr/lib/i386-linux-gnu/wine", "/usr/lib/wine", "/usr/x86_64-w64-mingw32/lib")
KEYS = ("CompanyName", "FileVersion", "ProductName", "ProductVersion", "OriginalFilename", "FileDescription", "InternalName")
FOLDED = ("OriginalFilename", "FileDescription", "InternalName")  # the installer check folds these for an exe
WHITE = " \t\n\v\f\r"
LEAST_IMAGES, LEAST_STRINGS = 300, 1000


def images():
    for folder in FOLDERS:
        for at, _, names in os.walk(folder):
            yield from (os.path.join(at, n) for n in sorted(names)
                        if n.lower().endswith((".dll", ".exe", ".sys", ".ocx", ".drv", ".acm", ".cpl", ".ax")))


def shown(text):
    if text is None:
        return "-"
    units = text.encode("utf-16-le", "surrogatepass")
    out = ""
    for i in range(0, len(units), 2):
        unit = units[i] | units[i + 1] << 8
        out += chr(unit) if 0x20 <= unit <= 0x7E and unit != 0x5C else "\\u%04x" % unit
    return "=" + out


def strings_of(image):
    """From English and neutral tables, the first value of a key wins."""
    found = {}
    for block in getattr(image, "FileInfo", None) or []:
        for info in block:
            if info.Key != b"StringFileInfo":
                break
            for table in info.StringTable:
                if table.LangID[2:4] in (b"09", b"00"):
                    for key, value in table.entries.items():
                        found.setdefault(key.decode(), value.decode("utf-8"))
        if found:
            break
    return found


def expected(path):
    with open(path, "rb") as file:
        data = file.read()
    try:
        image = pefile.PE(data=data, fast_load=True)
        image.parse_data_directories([pefile.DIRECTORY_ENTRY["IMAGE_DIRECTORY_ENTRY_RESOURCE"]])
    except pefile.PEFormatError:
        return [path, "1062"]
    flags = image.FILE_HEADER.Characteristics
    kind = 4 if path.lower().endswith(".sys") else 1 if flags & 0x2000 else 2 if flags & 2 else 0
    security = image.OPTIONAL_HEADER.DATA_DIRECTORY[pefile.DIRECTORY_ENTRY["IMAGE_DIRECTORY_ENTRY_SECURITY"]]
    found = strings_of(image)
    row = [path, "0", "32" if image.PE_TYPE == pefile.OPTIONAL_HEADER_MAGIC_PE_PLUS else "1", str(kind),
           "1" if security.VirtualAddress and security.Size else "0",
           hashlib.sha1(data).hexdigest(), hashlib.sha256(data).hexdigest(), str(len(data))]
    for key in KEYS:
        value = found.get(key)
        if value:
            value = value[0] + value[1:].rstrip(WHITE)
        if value and key in FOLDED and path.lower().endswith(".exe"):
            value = "".join(c.lower() if "A" <= c <= "Z" else c for c in value)
        row.append(shown(value))
    return row


def main():
    paths = list(images())
    done = subprocess.run([sys.argv[1]], input="\n".join(paths) + "\n", stdout=subprocess.PIPE, text=True, check=True)
    lines = done.stdout.splitlines()
    if len(lines) != len(paths):
        sys.exit("%d records for %d files" % (len(lines), len(paths)))
    wrong = strings = 0
    for path, line in zip(paths, lines):
        got, want = line.split("\t"), expected(path)
        strings += sum(column.startswith("=") for column in want)
        if got != want:
            wrong += 1
            print("got  %s\nwant %s" % ("\t".join(got), "\t".join(want)))
    print("%d images, %d version strings, %d differ" % (len(paths), strings, wrong))
    return 1 if wrong or len(paths) < LEAST_IMAGES or strings < LEAST_STRINGS else 0


if __name__ == "__main__":
    sys.exit(main())
