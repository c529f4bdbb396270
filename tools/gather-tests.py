#!/usr/bin/python3
"""Collects the tests of several build folders, and the linters, in one ctest directory.

gather-tests.py OUTPUT PRESET[:LABEL]...

Each preset's tests come from build/PRESET and are named PRESET.TEST there; with a LABEL only tests with it
are taken. A test that skips anything fails here, because the gate provides everything that tests need.
"""
import json
import os
import subprocess
import sys

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
# Properties that name other tests or fixtures, which get the preset's name as well.
NAMES = {"DEPENDS", "FIXTURES_SETUP", "FIXTURES_CLEANUP", "FIXTURES_REQUIRED"}
# The place where a test was defined is not needed here, and ctest rejects these names.
DROPPED = {"_BACKTRACE_TRIPLES", "ENVIRONMENT_MODIFICATION"}


def bracket(text):
    """TEXT as one CMake argument, whatever it contains."""
    level = ""
    while "]" + level + "]" in text or text.endswith("]" + level):
        level += "="
    return f"[{level}[{text}]{level}]"


def tests_of(preset, label):
    command = ["ctest", "--test-dir", os.path.join(ROOT, "build", preset), "--show-only=json-v1"]
    if label:
        command += ["-L", f"^{label}$"]
    shown = json.loads(subprocess.run(command, check=True, stdout=subprocess.PIPE).stdout)
    tests = shown["tests"]
    if not tests:
        sys.exit(f"gather-tests: {preset} has no tests")
    for test in tests:
        if "command" not in test:
            sys.exit(f"gather-tests: {preset}: {test['name']} was not built")
    return tests


def entry(preset, test):
    name = f"{preset}.{test['name']}"
    lines = ["add_test(" + " ".join(bracket(word) for word in [name, *test["command"]]) + ")"]
    properties = {"FAIL_REGULAR_EXPRESSION": [r"\[  SKIPPED \]"]}
    for item in test.get("properties", []):
        key, value = item["name"], item["value"]
        if key in DROPPED:
            continue
        values = value if isinstance(value, list) else [value]
        if key in NAMES:
            values = [f"{preset}.{one}" for one in values]
        properties[key] = properties.get(key, []) + values if key == "FAIL_REGULAR_EXPRESSION" else values
    words = []
    for key, values in properties.items():
        # A semicolon inside a value would otherwise split it.
        text = ";".join(("ON" if one else "OFF") if isinstance(one, bool) else str(one).replace(";", r"\;")
                        for one in values)
        words += [bracket(key), bracket(text)]
    lines.append(f"set_tests_properties({bracket(name)} PROPERTIES " + " ".join(words) + ")")
    return lines


def linters():
    # The limit ends tests that hang; even a busy machine stays far below it. clang-tidy takes longest and so begins
    # first: it needs a processor while the tests of shares, installations and Wine wait.
    lines = []
    for name, cost in (("rules", 0), ("clang-format", 0), ("clang-tidy", 1000)):
        script = os.path.join(ROOT, "tools", f"check-{name}.py")
        lines.append(f"add_test({name} /usr/bin/python3 {bracket(script)})")
        lines.append(f"set_tests_properties({name} PROPERTIES TIMEOUT 14400 COST {cost} LABELS lint)")
    # Fails above this many lines of tests to 100 of the product.
    share = os.path.join(ROOT, "tools", "test-share.py")
    lines.append(f"add_test(test-share /usr/bin/python3 {bracket(share)} 45)")
    lines.append("set_tests_properties(test-share PROPERTIES TIMEOUT 600 LABELS lint)")
    return lines


def main():
    output, presets = sys.argv[1], sys.argv[2:]
    lines = []
    for preset in presets:
        name, _, label = preset.partition(":")
        for test in tests_of(name, label):
            lines += entry(name, test)
    lines += linters()
    os.makedirs(output, exist_ok=True)
    with open(os.path.join(output, "CTestTestfile.cmake"), "w", encoding="utf-8") as out:
        out.write("\n".join(lines) + "\n")


if __name__ == "__main__":
    main()
