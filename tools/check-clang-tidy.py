#!/usr/bin/python3
"""Runs clang-tidy over the Linux and the Windows sources of the product, two at a time.

A source is skipped when nothing that its result depends on has changed since it was last found clean: its compile
command, the contents of every file of this tree that it includes, the checks and this script.
"""
import concurrent.futures
import hashlib
import json
import os
import re
import shlex
import subprocess
import sys

from sources import ROOT, sources

TIDY = "clang-tidy-14"
# Limit the static analyser to a third of its default steps per function: without that, the few functions that need more
# would take most of the gate's time.
ANALYSER = ["-Xclang", "-analyzer-config", "-Xclang", "max-nodes=75000"]
CACHE = os.path.join(ROOT, "build", "tidy-cache")
MINGW = "x86_64-w64-mingw32-g++-posix"


def digest(*parts):
    whole = hashlib.sha256()
    for part in parts:
        whole.update(part if isinstance(part, bytes) else part.encode())
        whole.update(b"\0")
    return whole.hexdigest()


class Contents:
    """Digests of files, each read once."""

    def __init__(self):
        self.known = {}

    def of(self, path):
        if path not in self.known:
            try:
                with open(path, "rb") as file:
                    self.known[path] = digest(file.read())
            except OSError:
                self.known[path] = "absent"
        return self.known[path]


def dependencies(build):
    """Object file -> the files that it was compiled from, as ninja recorded them."""
    listed = subprocess.run(["ninja", "-C", build, "-t", "deps"], check=True, stdout=subprocess.PIPE, text=True).stdout
    found, current = {}, None
    for line in listed.splitlines():
        if line.startswith("    ") and current is not None:
            current.append(os.path.normpath(os.path.join(build, line.strip())))
        elif ": #deps" in line:
            current = found.setdefault(line.split(": #deps")[0], [])
    return found


def mingw_arguments():
    """Options that make clang read a Windows source as MinGW-w64's own compiler does."""
    shown = subprocess.run([MINGW, "-E", "-v", "-x", "c++", os.devnull], check=True, text=True,
                           stdout=subprocess.DEVNULL, stderr=subprocess.PIPE).stderr
    folders = re.search(r"#include <\.\.\.> search starts here:\n(.*?)End of search list", shown, re.S).group(1)
    arguments = ["--target=x86_64-w64-windows-gnu", "-nostdinc", "-nostdinc++"]
    # Clang has its own intrinsics; the compiler's include folders have those of GCC.
    arguments += [f"-isystem{clang_headers()}"]
    for folder in folders.split():
        folder = os.path.realpath(folder)
        if not re.search(r"/gcc/[^/]+/[^/]+/include(-fixed)?$", folder):
            arguments.append(f"-isystem{folder}")
    return arguments


def clang_headers():
    resource = subprocess.run(["clang-14", "-print-resource-dir"], check=True, stdout=subprocess.PIPE, text=True)
    return os.path.join(resource.stdout.strip(), "include")


def jobs(preset, wanted, extra, contents):
    """(key, source, command) of every source of PRESET that WANTED accepts."""
    build = os.path.join(ROOT, "build", preset)
    with open(os.path.join(build, "compile_commands.json"), encoding="utf-8") as file:
        entries = json.load(file)
    deps = dependencies(build)
    settings = [contents.of(os.path.join(ROOT, name)) for name in sources(".clang-tidy")]
    own = contents.of(os.path.abspath(__file__))
    for entry in entries:
        source = os.path.normpath(os.path.join(entry["directory"], entry["file"]))
        name = os.path.relpath(source, ROOT)
        if name.startswith(("build/", "..")) or not wanted(name):
            continue
        output = re.search(r" -o (\S+)", entry["command"])
        used = [path for path in deps.get(output.group(1), []) if path.startswith(ROOT + os.sep)]
        key = digest(own, *settings, entry["command"], *extra, *(contents.of(path) for path in [source, *used]))
        yield key, name, tidy_command(source, entry, extra)


def tidy_command(source, entry, extra):
    """clang-tidy with the source's compile flags, without those that only GCC knows or that write files."""
    words = shlex.split(entry["command"])
    if os.path.basename(words[0]) == "ccache":
        words = words[1:]
    flags, skip = [], False
    for word in words[1:]:
        if skip:
            skip = False
        elif word in ("-o", "-MF", "-MT", "-MQ"):
            skip = True
        elif word not in ("-c", "-MD", entry["file"], source) and not word.startswith(("-fsanitize", "-Werror", "-Wno-")):
            flags.append(word)
    return [TIDY, "--quiet", source, "--", *extra, *flags, *ANALYSER]


def run(job):
    key, name, command = job
    result = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, cwd=ROOT)
    if result.returncode == 0:
        with open(os.path.join(CACHE, key), "w", encoding="utf-8") as file:
            file.write(name + "\n")
    # Standard error also counts the warnings that were suppressed; show it only if there is no other output.
    return name, result.returncode, result.stdout or result.stderr


def main():
    os.makedirs(CACHE, exist_ok=True)
    contents = Contents()
    windows = re.compile(r"_winnt_user\.cpp$")
    # Only what is shipped. GoogleTest's headers would take most of the gate's time, and tests are checked by the
    # compiler's warnings and the sanitizers.
    shipped = re.compile(r"(tessivator|java)/")
    work = [*jobs("linux-release", shipped.match, [], contents),
            *jobs("windows-release", windows.search, mingw_arguments(), contents)]
    todo = [job for job in work if not os.path.exists(os.path.join(CACHE, job[0]))]
    print(f"{len(work)} sources, {len(todo)} of them new or changed", flush=True)
    failed = 0
    with concurrent.futures.ThreadPoolExecutor(max_workers=2) as pool:
        for name, code, text in pool.map(run, todo):
            if code != 0:
                failed += 1
                print(f"{name}:\n{text}", flush=True)
    print(f"{failed} sources with findings")
    return 1 if failed or not work else 0


if __name__ == "__main__":
    sys.exit(main())
