#!/usr/bin/python3
"""Plants one-line faults in a copy of the sources, one at a time, and prints those that the tests do not catch.

mutate.py [--count N] [--component NAME]... [--seed N] [--work FOLDER] [--minutes M] [--quick]

A fault is a changed operator, bound, constant or return, or a removed statement. The seed selects them, evenly over
the components. For each one the native release is built, then the suites of its component run, then all others, for
at most M minutes. Results are kept in FOLDER/results.tsv: a second run with the same seed continues where the first
ended. --quick runs only the suites of the component. A fault that does not compile, or that does not change the
object code, does not count.
"""
import argparse
import collections
import hashlib
import os
import random
import re
import shutil
import subprocess
import time

from sources import ROOT, all_files

PRESET = "linux-release"
# Components whose suites are not in the folder of the same name.
SUITES = {"cert": ["inv", "sgn"], "record": ["record", "inv"], "utl": ["utl", "inv"], "share/program": ["share"]}
# The programs that script tests run.
PROGRAMS = {"share": ["brantle_cli", "brantle_smb", "share_unit_test"], "utils/report": ["brantle_report"]}
SKIPPED = re.compile(r"^\s*(//|#|using |template|namespace|class |struct |enum |static_assert|friend |public:|private:|\*)|\[\[nodiscard\]\]")
# Pattern and replacements; each match outside strings and comments is a fault.
OPERATORS = [
    (r"(?<= )<(?= )", ["<="]), (r"<=(?!>)", ["<"]), (r"(?<= )>(?= )", [">="]), (r"(?<!<)>=", [">"]),
    (r"==", ["!="]), (r"!=", ["=="]), (r"&&(?= )", ["||"]), (r"\|\|", ["&&"]), (r" \+ 1\b", [""]), (r" - 1\b", [""]),
    (r" \+ (?!1\b)", [" - "]), (r" - (?!1\b)", [" + "]), (r" \|= ", [" = "]), (r" \+= ", [" -= "]),
    (r"\bstd::min\b", ["std::max"]), (r"\bstd::max\b", ["std::min"]), (r"\btrue\b", ["false"]), (r"\bfalse\b", ["true"]),
    (r"\bcontinue;", ["break;"]), (r"\bbreak;", [";"]), (r"(?<=\()!(?=\w)", [""]), (r"\breturn QERR_(?!OK\b)\w+;", ["return QERR_OK;"]),
    (r"\breturn QERR_OK;", ["return QERR_INVALID;"]), (r"(?<![\w.\"'\\])(0|[1-9]\d*)(?=[;,)\] ]|U\b)", ["+1"]), (r"\b0x[0-9A-Fa-f]+\b", ["+1"]),
    (r"& ~(?=\w|\()", ["& "]),
]
STATEMENT = re.compile(r"^\s+(?!return\b|case\b|const\b|auto\b|static\b|break\b|continue\b|goto\b|throw\b)"
                       r"(\(void\))?[\w.\->:\[\]*+]+(\(.*\)| [|+\-&]?= .*);\s*(//.*)?$")


class Fault(collections.namedtuple("Fault", "file line before after")):
    @property
    def key(self):
        return hashlib.sha1("\0".join([self.file, self.before, self.after, str(self.line)]).encode()).hexdigest()[:12]


def masked(line):
    """LINE with strings and comments blanked, so that nothing is changed there."""
    line = re.sub(r"\"(\\.|[^\"\\])*\"|'(\\.|[^'\\])*'", lambda m: "\"" + " " * (len(m.group()) - 2) + "\"", line)
    return line.split("//")[0]


def faults_of_line(line):
    plain = masked(line)
    if SKIPPED.search(line) or not plain.strip():
        return
    if STATEMENT.match(line):
        yield ""
    for pattern, replacements in OPERATORS:
        for match in re.finditer(pattern, plain):
            for put in replacements:
                if put == "+1":
                    put = str(int(match.group(), 0) + 1)
                yield line[:match.start()] + put + line[match.end():]


def component_of(name):
    return os.path.dirname(name)[len("tessivator/"):]


def candidates():
    """All faults of each component's native sources."""
    found = collections.defaultdict(list)
    for name in all_files():
        if not name.startswith("tessivator/") or not name.endswith((".cpp", ".h")) or "_winnt" in name:
            continue
        with open(os.path.join(ROOT, name), encoding="utf-8") as file:
            lines = file.read().split("\n")
        for number, line in enumerate(lines, 1):
            for changed in faults_of_line(line):
                found[component_of(name)].append(Fault(name, number, line.strip(), changed.strip()))
    return found


def chosen(found, components, seed):
    """Rounds with one fault of every component; no line is used twice before each was used once."""
    queues = {}
    for component in sorted(components or found):
        faults = sorted(found[component])
        random.Random(f"{seed} {component}").shuffle(faults)
        first, later, lines = [], [], set()
        for fault in faults:
            (later if (fault.file, fault.line) in lines else first).append(fault)
            lines.add((fault.file, fault.line))
        queues[component] = first + later
    while any(queues.values()):
        for component, queue in queues.items():
            if queue:
                yield component, queue.pop(0)


class Tree:
    """The copy in which faults are planted."""

    def __init__(self, work, only):
        self.source = os.path.join(work, "source")
        self.build = os.path.join(self.source, "build", PRESET)
        os.makedirs(os.path.join(self.source, "build"), exist_ok=True)
        for name in all_files():
            self.restore(name)
        real = os.path.join(self.source, "build", "real")
        if os.path.isdir(os.path.join(ROOT, "build", "real")) and not os.path.exists(real):
            os.symlink(os.path.realpath(os.path.join(ROOT, "build", "real")), real)
        subprocess.run(["cmake", "--preset", PRESET], cwd=self.source, check=True, stdout=subprocess.DEVNULL)
        targets, tests = (sorted(set().union(*(self.suites(one)[which] for one in only))) for which in (0, 1))
        if self.make(targets or ["all"], 7200) is not True or self.test(tests, 3600) is not True:
            raise SystemExit("mutate: the sources as they are do not pass their own tests")
        self.sound = {name: self.code(name) for name in all_files() if name.startswith("tessivator/")}

    def restore(self, name):
        """Copies NAME unless it is already there, to avoid needless builds."""
        origin, target = os.path.join(ROOT, name), os.path.join(self.source, name)
        os.makedirs(os.path.dirname(target), exist_ok=True)
        with open(origin, "rb") as file:
            content = file.read()
        if os.path.exists(target):
            with open(target, "rb") as file:
                if file.read() == content:
                    return
        shutil.copy(origin, target)
        os.utime(target)

    def plant(self, fault):
        path = os.path.join(self.source, fault.file)
        with open(path, encoding="utf-8") as file:
            lines = file.read().split("\n")
        line = lines[fault.line - 1]
        lines[fault.line - 1] = line[:len(line) - len(line.lstrip())] + fault.after
        with open(path, "w", encoding="utf-8") as file:
            file.write("\n".join(lines))

    def run(self, command, seconds):
        """Whether COMMAND succeeds; None after a timeout."""
        with subprocess.Popen(command, cwd=self.source, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                              stderr=subprocess.DEVNULL, start_new_session=True) as process:
            try:
                return process.wait(max(seconds, 1)) == 0
            except subprocess.TimeoutExpired:
                subprocess.run(["pkill", "-KILL", "-s", str(process.pid)], check=False)
                return None

    def make(self, targets, seconds):
        return self.run(["ninja", "-C", self.build, "-j", str(os.cpu_count()), *targets], seconds)

    def test(self, suites, seconds):
        """Runs SUITES, or everything."""
        only = ["-R", "^(" + "|".join(suites) + ")$"] if suites else []
        return self.run(["ctest", "--test-dir", self.build, "--stop-on-failure", "-j", str(os.cpu_count()), *only],
                        seconds)

    def code(self, name):
        """The object code of source NAME without line and column numbers; None for a header."""
        for folder, _, names in os.walk(os.path.join(self.build, os.path.dirname(name))):
            if os.path.basename(name) + ".o" in names:
                bare = os.path.join(self.build, "mutate.o")
                subprocess.run(["objcopy", "--strip-debug", os.path.join(folder, os.path.basename(name) + ".o"), bare], check=True)
                with open(bare, "rb") as file:
                    return hashlib.sha1(file.read()).hexdigest()
        return None

    def suites(self, component):
        """The targets and the tests of COMPONENT; if empty, all have to run."""
        targets, tests = [], []
        for folder in SUITES.get(component, [component]):
            path = os.path.join(self.source, "tests", folder, "CMakeLists.txt")
            if os.path.exists(path):
                with open(path, encoding="utf-8") as file:
                    text = file.read()
                names = re.findall(r"tessivator_test\((\w+)", text)
                targets += names + PROGRAMS.get(folder, [])
                tests += names + (re.findall(r"add_test\(NAME (\w+)", text) if folder in PROGRAMS else [])
        return targets, tests

    def verdict(self, component, fault, seconds, quick):
        end = time.monotonic() + seconds
        self.plant(fault)
        try:
            targets, tests = self.suites(component)
            built = self.make(targets or ["all"], seconds)
            if built is not True:
                return "no fault" if built is False else "out of time"
            if self.sound[fault.file] is not None and self.code(fault.file) == self.sound[fault.file]:
                return "no fault"
            # A suite that hangs has caught the fault: without a fault it takes seconds, or a minute with shares.
            if self.test(tests, min(240 if "share" in SUITES.get(component, []) else 60, end - time.monotonic())) is not True:
                return "caught by its component"
            if quick:
                return "survived"
            if self.make(["all"], end - time.monotonic()) is None:
                return "out of time"
            answer = self.test([], end - time.monotonic())
            return {False: "caught", True: "survived", None: "out of time"}[answer]
        finally:
            self.restore(fault.file)


def known(results):
    if not os.path.exists(results):
        return {}
    with open(results, encoding="utf-8") as file:
        return {row[0]: row for row in (line.rstrip("\n").split("\t") for line in file)}


def summary(rows):
    counts = collections.defaultdict(collections.Counter)
    for row in rows:
        counts[row[1]][row[2]] += 1
        if row[2] in ("survived", "out of time"):
            print(f"{row[2]}: {row[3]}:{row[4]}\n  {row[5]}\n  {row[6] or '(left out)'}")
    total = collections.Counter()
    for component, one in sorted(counts.items()):
        total.update(one)
        print(f"{component}: " + ", ".join(f"{count} {what}" for what, count in sorted(one.items())))
    planted = sum(total.values()) - total["no fault"]
    caught = total["caught"] + total["caught by its component"]
    if planted:
        print(f"{planted} faults, {caught} caught: {100 * caught / planted:.1f} in 100")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--count", type=int, default=150, help="faults that change the object code")
    parser.add_argument("--component", action="append", help="as below tessivator/, e.g. blib")
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--work", default=os.path.join(ROOT, "build", "mutate"))
    parser.add_argument("--minutes", type=float, default=5)
    parser.add_argument("--quick", action="store_true", help="only the suites of the fault's component")
    options = parser.parse_args()
    work = os.path.abspath(options.work)
    found = candidates()
    unknown = set(options.component or []) - set(found)
    if unknown:
        parser.error(f"no such component: {', '.join(sorted(unknown))}; there are {', '.join(sorted(found))}")
    tree = Tree(work, options.component or list(found) if options.quick else [])
    results = os.path.join(work, "results.tsv")
    old, rows = known(results), []
    for component, fault in chosen(found, options.component, options.seed):
        if sum(1 for row in rows if row[2] != "no fault") >= options.count:
            break
        row = old.get(fault.key)
        if row is None:
            answer = tree.verdict(component, fault, 60 * options.minutes, options.quick)
            row = [fault.key, component, answer, fault.file, str(fault.line), fault.before, fault.after]
            with open(results, "a", encoding="utf-8") as file:
                file.write("\t".join(row) + "\n")
            print(f"{answer}: {fault.file}:{fault.line}", flush=True)
        rows.append(row)
    summary(rows)


if __name__ == "__main__":
    main()
