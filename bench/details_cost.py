#!/usr/bin/python3
"""Compares the CPU time of a scan with details with that of one without, side by side on a warm cache.

usage: details_cost.py SCANNER WORK_FOLDER [RUNS]

SCANNER is the command line program; the corpora are made in WORK_FOLDER, which wants 4 GiB; the scans write into memory
(/dev/shm). Both scans run by turns RUNS times (7 unless told); the median of the pairs' ratios of CPU time (user and
system) counts. Ends with 1 when a target is missed.
"""
import os
import statistics
import sys
import tempfile

from make_corpus import make
from scan_vs_digest import scan

TARGETS = (("small_signed", "1", 1.25), ("real", "1", 1.02), ("small", "digests", 2.1), ("all_signed", "digests", 1.65))
MEMORY_KIB = 32 << 10


def measure(scanner, folder, asked, runs):
    """The median ratio, and the peak of the scans with details in KiB."""
    ratios, peak = [], 0
    with tempfile.TemporaryDirectory(dir="/dev/shm") as place:
        for number in range(runs + 1):
            os.environ["BRANTLE_DETAILS"] = asked
            with_details, memory, _ = scan(scanner, folder, os.path.join(place, "output"))
            del os.environ["BRANTLE_DETAILS"]
            without, _, _ = scan(scanner, folder, os.path.join(place, "output"))
            peak = max(peak, memory)
            if number > 0:  # the first pair warms the cache
                ratios.append(with_details / without)
    return statistics.median(ratios), peak


def main():
    if len(sys.argv) not in (3, 4):
        sys.exit(__doc__)
    scanner, work = (os.path.abspath(a) for a in sys.argv[1:3])
    runs = int(sys.argv[3]) if len(sys.argv) == 4 else 7
    print("%-13s %-8s %6s %7s %9s" % ("corpus", "details", "ratio", "target", "peak MiB"))
    missed = False
    for kind, asked, target in TARGETS:
        ratio, peak = measure(scanner, make(kind, work), asked, runs)
        good = ratio <= target and peak < MEMORY_KIB
        missed = missed or not good
        print("%-13s %-8s %6.3f %7.2f %9.1f%s" % (kind, asked, ratio, target, peak / 1024, "" if good else "  missed"),
              flush=True)
    return 1 if missed else 0


if __name__ == "__main__":
    sys.exit(main())
