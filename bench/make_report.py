#!/usr/bin/python3
"""Makes a folder like that of a large scan: make_report.py FOLDER RECORDS [PATH-LENGTH [SEED]].

Two calls with different seeds differ in one record of a hundred: in content, in name, or altogether.
"""
import hashlib
import os
import shutil
import sys
from xml.sax.saxutils import escape

CERTIFICATES = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tests", "fixtures", "expected",
                            "certificates")
MAKERS = ["Northwind Tools", "Lumen & Sons", "Acme <Systems>", "\u00dcbersicht GmbH", "Harbour Software",
          "\u7a0b\u5e8f\u516c\u53f8", "Quill", ""]
WORDS = "setup driver update core server client codec helper agent viewer bridge monitor".split()
ENDINGS = [".exe", ".dll", ".sys", ".msi", ".ocx"]


def entry(number, length, stems, seed):
    changed = seed and number % 100 == 7
    folder = f"/srv/repository/{number // 5000:04d}/{WORDS[number // 500 % len(WORDS)]}-{number // 50 % 10}"
    name = f"{WORDS[number % len(WORDS)]}-{number}{'-new' if changed and number % 3 else ''}{ENDINGS[number % 5]}"
    filler = "p" * max(0, length - len(folder) - len(name) - 2)
    path = f"{folder}/{filler}/{name}" if filler else f"{folder}/{name}"
    digest = hashlib.sha256(f"{number}{'x' if changed and number % 2 else ''}".encode()).hexdigest()
    listed = stems[number % len(stems):][:1 + number % 2] if number % 3 else []
    maker = MAKERS[number % len(MAKERS)]
    values = [("Name", path), ("SHA1", digest[:40]), ("SHA256", digest), ("companyName", maker),
              ("isInstaller", "yes" if number % 5 == 3 or number % len(WORDS) == 0 else "no"),
              ("productName", f"{maker.split(' ')[0]} {WORDS[number // 7 % len(WORDS)]}"),
              ("productVersion", f"{number % 17}.{number % 23}.{number % 101}.0")]
    lines = ["    <Executable>"] + [f"        <{key}>{escape(value)}</{key}>" for key, value in values]
    if listed:
        lines += [f'        <CertificatesExtracted count="{len(listed)}">']
        lines += [f'            <Certificate name="{stem}"/>' for stem in listed]
        lines += ["        </CertificatesExtracted>"]
    else:
        lines += ['        <CertificatesExtracted count="0"/>']
    return "\n".join(lines + ["    </Executable>\n"])


def main():
    folder, count = sys.argv[1], int(sys.argv[2])
    length = int(sys.argv[3]) if len(sys.argv) > 3 else 0
    seed = int(sys.argv[4]) if len(sys.argv) > 4 else 0
    os.makedirs(folder, exist_ok=True)
    stems = sorted(name[:-4] for name in os.listdir(CERTIFICATES))
    for stem in stems:
        shutil.copy(os.path.join(CERTIFICATES, stem + ".cer"), folder)
    with open(os.path.join(folder, "info.xml"), "w", encoding="utf-8") as out:
        out.write('<?xml version="1.0" encoding="UTF-8"?>\n<ExecutableData>\n')
        for number in range(count):
            out.write(entry(number, length, stems, seed))
        out.write("</ExecutableData>\n")


if __name__ == "__main__":
    main()
