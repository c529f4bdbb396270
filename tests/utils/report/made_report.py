"""Made reports, and the report program run on them."""
import argparse
import os
import pathlib
import shutil
import subprocess
import sys
import unittest
from xml.sax.saxutils import escape, quoteattr

PKI = pathlib.Path(__file__).resolve().parents[2] / "fixtures" / "pki" / "rsa"
KEYS = ("Name", "SHA1", "SHA256", "companyName", "isInstaller", "productName", "productVersion")
# Certificate files by a letter: the chain of the fixtures, one that is missing, one that holds something else.
STEMS = {letter: letter * 64 for letter in "abcdef"}
FILES = {"a": "leaf", "b": "intermediate", "c": "root", "d": "leaf2"}
OPTIONS = None  # the command line of the test


def record(name, certificates="", content="1", **values):
    """One entry; `content` stands for the file's bytes, and without any there is no SHA256."""
    values = {"Name": name, "SHA1": content * 40, "SHA256": content * 64, "companyName": "", "isInstaller": "no",
              "productName": "", "productVersion": "", **values}
    lines = [f"        <{key}>{escape(values[key])}</{key}>" for key in KEYS if content or key != "SHA256"]
    listed = [f"<Certificate name={quoteattr(STEMS[one])}/>" for one in certificates]
    lines.append(f'        <CertificatesExtracted count="{len(listed)}">{"".join(listed)}</CertificatesExtracted>')
    return "\n".join(["    <Executable>", *lines, "    </Executable>\n"])


def folder(case, name, *records, comment=""):
    """A new folder with a report of these records and the certificate files beside it."""
    path = pathlib.Path(OPTIONS.scratch) / case.id().split(".")[-1] / name
    shutil.rmtree(path, ignore_errors=True)
    path.mkdir(parents=True)
    comment = comment and f"    <!-- incomplete: {comment} -->\n"
    (path / "info.xml").write_text('<?xml version="1.0" encoding="UTF-8"?>\n<ExecutableData>\n' + "".join(records) +
                                   comment + "</ExecutableData>\n", encoding="utf-8", newline="\n")
    for letter, source in FILES.items():
        shutil.copy(PKI / f"{source}.pem", path / f"{STEMS[letter]}.cer")
    (path / f"{STEMS['f']}.cer").write_text("no certificate")
    return path


def run(*arguments, environment=None):
    """The program's exit code, output and error output, both as bytes."""
    told = ["Z:" + str(one).replace("/", "\\") if OPTIONS.wine and isinstance(one, pathlib.Path) else str(one)
            for one in arguments]
    command = ([OPTIONS.wine] if OPTIONS.wine else []) + [OPTIONS.report, *told]
    done = subprocess.run(command, capture_output=True, timeout=300, check=False,
                          env={**os.environ, "SOURCE_DATE_EPOCH": "1760000000", **(environment or {})})
    return done.returncode, done.stdout, done.stderr


def main():
    global OPTIONS
    parser = argparse.ArgumentParser()
    for name in ("report", "schema", "scratch", "wine"):
        parser.add_argument(f"--{name}", default="")
    parser.add_argument("--measure", action="store_true")
    OPTIONS, rest = parser.parse_known_args()
    unittest.main(module="__main__", argv=[sys.argv[0], *rest], verbosity=2)
