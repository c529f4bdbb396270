#!/usr/bin/python3
"""Fails when clang-format would change a source of this tree."""
import subprocess
import sys

from sources import ROOT, sources

result = subprocess.run(["clang-format-14", "--dry-run", "--Werror", "--ferror-limit=20", *sources(".h", ".cpp", ".c", ".js")], cwd=ROOT)
sys.exit(result.returncode)
