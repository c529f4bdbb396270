"""Reads off the built files how they defend themselves: hardening_test.py OBJDUMP FILE..."""
import re
import subprocess
import sys

objdump, *files = sys.argv[1:]


def shown(flag, file):
    return subprocess.run([objdump, flag, file], capture_output=True, text=True, check=True).stdout


def defences_of_elf(file):
    headers, symbols, code = shown("-p", file), shown("-T", file), shown("-d", file)
    yield "read-only relocations", re.search(r"^ +RELRO ", headers, re.M)
    yield "binding at the start", re.search(r"^ +FLAGS_1 +0x0*[0-9a-f]*[13579bdf]$", headers, re.M)
    yield "no code on the stack", re.search(r"^ +STACK .*\n.*flags rw-", headers, re.M)
    yield "a program at any address", "EXEC_P" not in shown("-f", file)
    yield "guarded stack", "__stack_chk_fail" in symbols
    yield "checked calls", re.search(r"__\w+_chk$", symbols.replace("__stack_chk_fail", ""), re.M)
    yield "marked branch targets", code.count("endbr64") > 20
    if "smb" not in file:  # too small to need these two
        yield "checked containers", "__glibcxx_assert_fail" in symbols
        yield "touched stack pages", "orq    $0x0,(%rsp)" in code


def defences_of_pe(file):
    headers, symbols = shown("-p", file), shown("-t", file)
    for flag in ("HIGH_ENTROPY_VA", "DYNAMIC_BASE", "NX_COMPAT"):
        yield flag, flag in headers
    yield "guarded stack", "__stack_chk_fail" in symbols
    yield "no network library until it is needed", not re.search(r"DLL Name: netapi32", headers, re.I)


faults = []
for file in files:
    checks = defences_of_pe if "pei-x86-64" in shown("-f", file) else defences_of_elf
    faults += [f"{file}: not found: {what}" for what, found in checks(file) if not found]
sys.exit("\n".join(faults) or 0)
