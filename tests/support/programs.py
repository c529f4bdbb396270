"""What suites of whole programs share: command line, tables, scratch folders, runs (of Windows' under Wine), scans."""
import argparse
import base64
import collections
import csv
import itertools
import json
import os
import pathlib
import shutil
import subprocess
import sys
import unittest
import xml.etree.ElementTree as ElementTree

import jsonschema

FIXTURES = pathlib.Path(__file__).resolve().parents[1] / "fixtures"
SCHEMA = FIXTURES.parents[1] / "tessivator" / "utils" / "signing" / "brantle" / "info.xsd"
LINES = jsonschema.Draft202012Validator(json.loads((FIXTURES.parents[1] / "tessivator" / "details" /
                                                    "details.schema.json").read_text()))
PARSER = argparse.ArgumentParser()
for option in ("brantle", "report", "parallel", "unit", "scratch", "wine"):
    PARSER.add_argument(f"--{option}")
PARSER.add_argument("--measure", action="store_true")
OPTIONS, REST = PARSER.parse_known_args()
numbers = itertools.count()


def main():
    unittest.main(module="__main__", argv=[sys.argv[0], *REST])


def table(name):
    """Rows of a table below tests/."""
    with open(FIXTURES.parent / name, encoding="utf-8", newline="") as file:
        return list(csv.DictReader(file, delimiter="\t", quoting=csv.QUOTE_NONE, restval=""))


def fresh(case, name):
    path = pathlib.Path(OPTIONS.scratch) / case.id().split(".")[-1] / name
    shutil.rmtree(path, ignore_errors=True)
    path.mkdir(parents=True)
    return path


def told(argument):
    """An argument as the program is told it: a path in the form of its system."""
    is_path = isinstance(argument, pathlib.Path) and OPTIONS.wine
    return "Z:" + str(argument).replace("/", "\\") if is_path else str(argument)


def run(program, *arguments, timeout=300, **environment):
    command = [*filter(None, [OPTIONS.wine]), program, *map(told, arguments)]
    return subprocess.run(command, capture_output=True, timeout=timeout, check=False, env={**os.environ, **environment})


def base64_text(line, key, system):
    """The path of which `key` has what was no text; else `key`'s own name."""
    if f"{key}_bytes" not in line:
        return line[key]
    octets = base64.b64decode(line[f"{key}_bytes"], validate=True)
    return os.fsdecode(octets) if system == "linux" else octets.decode("utf-16-le", "surrogatepass")


class Scan:
    """A run of the scanner. The output folder is new unless it is given."""

    def __init__(self, case, source, *options, out=None, program=None, **more):
        self.source, self.out = source, out or fresh(case, f"out{next(numbers)}")
        done = run(program or OPTIONS.brantle, source, self.out, *options, **more)
        self.code = done.returncode
        self.said, self.complained = (text.decode("utf-8", "replace").replace("\r\n", "\n")
                                      for text in (done.stdout, done.stderr))
        self.files = sorted(path.name for path in self.out.iterdir())
        self.stems = {path.stem for path in self.out.glob("*.cer")}

    def records(self, root=None):
        """Record by path below `root` (the source), with slashes: {key: text}, and the list of stems under "stems"."""
        root = told(root or self.source)
        subprocess.run(["xmllint", "--noout", "--huge", "--schema", SCHEMA, self.out / "info.xml"], check=True,
                       capture_output=True)
        raw = (self.out / "info.xml").read_bytes()
        assert raw.startswith(b'<?xml version="1.0" encoding="UTF-8"?>\n') and b"\r\n" not in raw
        found = {}
        for element in ElementTree.fromstring(raw):
            record = {child.tag: child.text or "" for child in element[:-1]}
            record["stems"] = [child.attrib["name"] for child in element[-1]]
            assert element[-1].attrib == {"count": str(len(record["stems"]))}
            name = record.pop("Name")
            assert name.startswith(root), name
            name = name[len(root):].replace("\\", "/").lstrip("/")
            assert name not in found, name
            found[name] = record
        return found

    def details(self):
        """The lines, each valid: {path below the source, with slashes: line}, and those of other types by type."""
        files, others = {}, collections.defaultdict(list)
        for text in (self.out / "details.jsonl").read_text(encoding="utf-8").splitlines():
            line = json.loads(text)
            LINES.validate(line)
            if line["type"] != "file":
                others[line["type"]].append(line)
                continue
            name = base64_text(line, "name", others["header"][0]["system"])[len(told(self.source)):]
            files[name.replace("\\", "/").lstrip("/")] = line
        assert len(others["header"]) == len(others["end"]) == 1 and others["end"][0]["files"] == len(files)
        return files, others
