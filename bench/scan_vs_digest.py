#!/usr/bin/python3
"""Compares the CPU time of a plain scan with that of bare digests of the same files, side by side on a warm cache.

usage: scan_vs_digest.py SCANNER DIGEST_LOOP WORK_FOLDER [RUNS]

SCANNER is the command line program, DIGEST_LOOP the bench program of that name; the corpora are made in WORK_FOLDER,
which wants 3 GiB; the scan writes into memory (/dev/shm). Both programs run by turns RUNS times (7 unless told); the
median of the pairs' ratios of CPU time (user and system) counts. Ends with 1 when a target is missed.
"""
import os
import shutil
import statistics
import subprocess
import sys
import tempfile

from make_corpus import make

TARGETS = (("real", 1.02), ("small", 1.10), ("small_signed", 1.25))
MEMORY_KIB, MEMORY_KIB_PER_RECORD = 32 << 10, 6


def run(command):
    """CPU seconds, peak KiB, and the standard output's first line of one run."""
    process = subprocess.Popen(command, stdout=subprocess.PIPE, text=True, errors="replace")
    first = process.stdout.readline()
    for _ in process.stdout:
        pass
    process.stdout.close()
    _, status, usage = os.wait4(process.pid, 0)
    process.returncode = os.waitstatus_to_exitcode(status)
    if process.returncode != 0:
        sys.exit("%s ended with %d" % (command, process.returncode))
    return usage.ru_utime + usage.ru_stime, usage.ru_maxrss, first


def scan(scanner, folder, output):
    shutil.rmtree(output, ignore_errors=True)
    os.makedirs(output)
    return run([scanner, folder, output])


def records_in(output):
    with open(os.path.join(output, "info.xml"), encoding="utf-8") as file:
        return sum(line.count("<Executable>") for line in file)


def measure(scanner, loop, work, kind, runs):
    with tempfile.TemporaryDirectory(dir="/dev/shm") as place:
        return measure_into(os.path.join(place, "output"), scanner, loop, make(kind, work), runs)


def measure_into(output, scanner, loop, folder, runs):
    run([loop, folder])  # warms the cache
    digests, scans, peak, counts = [], [], 0, ""
    for _ in range(runs):
        cpu, _, counts = run([loop, folder])
        digests.append(cpu)
        cpu, memory, _ = scan(scanner, folder, output)
        scans.append(cpu)
        peak = max(peak, memory)
    files, size = (int(n) for n in counts.split()[:2])
    ratio = statistics.median(one / other for one, other in zip(scans, digests))
    return files, size, statistics.median(digests), statistics.median(scans), ratio, peak, records_in(output)


def main():
    if len(sys.argv) not in (4, 5):
        sys.exit(__doc__)
    scanner, loop, work = (os.path.abspath(a) for a in sys.argv[1:4])
    runs = int(sys.argv[4]) if len(sys.argv) == 5 else 7
    print("%-13s %7s %9s %8s %10s %8s %6s %7s %9s %9s" % (
        "corpus", "files", "MiB", "records", "digests s", "scan s", "ratio", "target", "peak MiB", "limit MiB"))
    missed = False
    for kind, target in TARGETS:
        files, size, digest, scanned, ratio, peak, records = measure(scanner, loop, work, kind, runs)
        limit = MEMORY_KIB + MEMORY_KIB_PER_RECORD * records
        good = ratio <= target and peak < limit and records == files
        missed = missed or not good
        print("%-13s %7d %9.1f %8d %10.3f %8.3f %6.3f %7.2f %9.1f %9.1f%s" % (
            kind, files, size / 2**20, records, digest, scanned, ratio, target, peak / 1024, limit / 1024,
            "" if good else "  missed"), flush=True)
    return 1 if missed else 0


if __name__ == "__main__":
    sys.exit(main())
