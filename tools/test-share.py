#!/usr/bin/python3
"""Prints how many lines of tests there are to 100 of the product: test-share.py [MOST] fails above MOST.

Blank lines do not count. Tests are all programs, scripts, tables and fixture makers of tests/ and fuzz/; the tables
that fixture makers read (tests/fixtures/scripts) are data.
"""
import collections
import os
import sys

from sources import ROOT, sources

KINDS = (".cpp", ".h", ".py", ".sh", ".java", ".tsv")


def main():
    lines, parts = collections.Counter(), collections.Counter()
    for name in sources(*KINDS):
        top = name.split("/")[0]
        if top not in ("tests", "fuzz", "tessivator", "java"):
            continue
        if name.startswith("tests/fixtures/scripts/") and name.endswith(".tsv"):
            continue
        with open(os.path.join(ROOT, name), encoding="utf-8") as file:
            count = sum(1 for line in file if line.strip())
        lines["tests" if top in ("tests", "fuzz") else "product"] += count
        parts["/".join(name.split("/")[:2])] += count
    share = 100 * lines["tests"] / lines["product"]
    for part, count in sorted(parts.items()):
        print(f"{count:6} {part}")
    print(f"{lines['tests']} lines of tests, {lines['product']} of the product: {share:.1f} to 100")
    return 1 if len(sys.argv) > 1 and share > float(sys.argv[1]) else 0


if __name__ == "__main__":
    sys.exit(main())
