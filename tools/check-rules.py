#!/usr/bin/python3
"""Checks what no compiler checks: where platform code is, the layers, and what must not be in the tree."""
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
    r"unistd|fcntl|dirent|dlfcn|pthread|poll|termios|iconv|mntent|pwd|sys/[^>]*|linux/[^>]*|"
    r"libsmbclient)\.?h?>")
INCLUDE = re.compile(r'#\s*include\s*"([^"]+)"')
UNFINISHED = re.compile(r"\b(TODO|FIXME|XXX)\b")
MACHINE_PATH = re.compile(r"(?<![\w.])/(work|root|tmp/team)/|\bhttps?://[\w.-]*(debian|npmjs|pypi)[\w.-]*/")

LAYERS = os.path.join(ROOT, "build", "linux-release", "layers.txt")


class Layers:
    """Which headers a source may include, by what its target links (cmake/component.cmake lists that)."""

    def __init__(self):
        self.folder, self.direct, self.public = {}, {}, {}
        self.compiled, self.interface = {}, {}
        try:
            with open(LAYERS, encoding="utf-8") as file:
                lines = file.read().splitlines()
        except OSError:
            sys.exit("check-rules: first configure: cmake --preset linux-release")
        for line in lines:
            target, folder, sources, headers, links, seen = [field.split(";") for field in line.split("|")]
            target, folder = target[0], os.path.relpath(folder[0], ROOT)
            self.folder.setdefault(folder, set()).add(target)
            self.direct[target], self.public[target] = set(links), set(seen)
            for source in sources:
                if source.startswith(".."):
                    sys.exit(f"check-rules: {target} compiles {source}, which belongs to another component")
                self.compiled.setdefault(os.path.join(folder, source), set()).add(target)
            for header in headers:
                self.interface[os.path.relpath(header, ROOT)] = target

    def owners(self, name):
        """The targets that NAME belongs to: those that compile or install it, else those of its folder,
        or of the nearest above that has any."""
        if name in self.interface:
            return {self.interface[name]}
        if name in self.compiled:
            return self.compiled[name]
        folder = os.path.dirname(name)
        while folder and folder not in self.folder:
            folder = os.path.dirname(folder)
        return self.folder.get(folder, set())

    def visible(self, target):
        """TARGET and the targets that it links, with those that they pass on to their users."""
        seen, todo = {target}, self.direct[target] & self.direct.keys()
        while todo:
            one = todo.pop()
            seen.add(one)
            todo |= (self.public[one] & self.direct.keys()) - seen
        return seen

    def faults(self, name, text):
        own = self.owners(name)
        allowed = set().union(*map(self.visible, own))
        for number, line in enumerate(text.splitlines(), 1):
            found = INCLUDE.match(line)
            if not found:
                continue
            used = PRODUCT + found.group(1)
            # A folder may include its own headers and those below it.
            inside = os.path.dirname(used).startswith(os.path.dirname(name))
            if not inside and not self.owners(used) & allowed:
                yield number, f"{', '.join(sorted(own))} may not include {found.group(1)}"


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


def faults(name, text, layers):
    if name.startswith(PRODUCT) and name.endswith((".h", ".cpp")):
        yield from seam_faults(name, text)
        yield from layers.faults(name, text)
    if name != "tools/check-rules.py":
        yield from text_faults(name, text)


def main():
    count = 0
    layers = Layers()
    for name in all_files():
        try:
            with open(os.path.join(ROOT, name), encoding="utf-8") as file:
                text = file.read()
        except UnicodeDecodeError:
            continue  # a binary fixture
        if "\0" in text:
            continue
        for number, fault in faults(name, text, layers):
            print(f"{name}:{number}: {fault}")
            count += 1
    print(f"{count} faults")
    return 1 if count else 0


if __name__ == "__main__":
    sys.exit(main())
