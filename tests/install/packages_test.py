#!/usr/bin/python3
"""Makes the packages and looks at them: packages_test.py SOURCE_TREE SCRATCH

The packages are unpacked, not installed: their programs are run from where they lie.
"""
import pathlib
import re
import shutil
import subprocess
import sys
import unittest

ROOT, SCRATCH = (pathlib.Path(one).resolve() for one in sys.argv[1:3])
PACKAGES, UNPACKED = SCRATCH / "made", SCRATCH / "unpacked"
# package -> what it must hold, what none of its files may be, what it must depend on
DEBIAN = {
    "brantle": (["usr/bin/brantle", "usr/bin/brantle-report", "usr/bin/brantle-parallel", "usr/share/brantle/info.xsd",
                 "usr/share/man/man1/brantle-parallel.1.gz", "usr/share/man/man5/brantle-info.5.gz", "usr/share/brantle/details.schema.json",
                 "usr/share/bash-completion/completions/brantle-report"], r"smb|\.(h|a|jar|so)$", ["libssl3", "python3"]),
    "brantle-smb": (["usr/libexec/brantle/brantle_smb"], r"/lib/|/include/|/bin/", ["libsmbclient"]),
    "libbrantle-java": (["usr/share/java/brantle.jar"], r"\.(h|a)$|/bin/", ["libssl3"]),
    "libtessivator-dev": (["usr/include/tessivator/sgn/sgn_x509.h"], r"/bin/|\.(so|jar)$", ["libssl-dev"]),
}


def output(*command):
    return subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True).stdout


def scan(programs, suffix="", *runner):
    """Surveys the fixtures with an unpacked program and converts the report with the other."""
    found = UNPACKED / f"found{suffix}"
    found.mkdir()
    output(*runner, programs / f"brantle{suffix}", ROOT / "tests/fixtures/tree", found)
    return output(*runner, programs / f"brantle-report{suffix}", "csv", found).count("\n")


class Packages(unittest.TestCase):
    def test_debian(self):
        for name, (wanted, foreign, needs) in DEBIAN.items():
            with self.subTest(name):
                root = UNPACKED / name
                package, = PACKAGES.glob(f"{name}_*_amd64.deb")
                output("dpkg-deb", "-x", package, root)
                files = [str(one.relative_to(root)) for one in root.rglob("*") if not one.is_dir()]
                self.assertEqual({*wanted, f"usr/share/doc/{name}/copyright"} - {*files}, set())
                self.assertEqual([one for one in files if re.search(foreign, "/" + one)], [])
                depends = output("dpkg-deb", "-f", package, "Depends")
                self.assertEqual([one for one in needs if not re.search(rf"\b{one}\b", depends)], [])
                subprocess.run(["lintian", "--fail-on", "error", "--tag-display-limit", "0", package], check=True)
        self.assertGreater(scan(UNPACKED / "brantle/usr/bin"), 5)
        for page in (UNPACKED / "brantle/usr/share/man").glob("man*/*"):
            said = subprocess.run(["mandoc", "-T", "lint", page], stdout=subprocess.PIPE, text=True, check=False).stdout
            self.assertEqual([line for line in said.splitlines() if "referenced manual not found" not in line], [])

    def test_windows(self):
        archive, = PACKAGES.glob("brantle-*-windows-x64.zip")
        shutil.unpack_archive(archive, UNPACKED / "windows")
        top, = (UNPACKED / "windows").glob("brantle-*")
        for one in ("bin/brantle.dll", "manuals/brantle.txt", "licences/OpenSSL.txt", "share/java/brantle.jar"):
            self.assertTrue((top / one).exists(), one)
        self.assertGreater(scan(top / "bin", ".exe", ROOT / "tools/wine-run.sh"), 5)


shutil.rmtree(UNPACKED, ignore_errors=True)
UNPACKED.mkdir(parents=True)
# The gate's own options, so that its compiler cache has the objects.
output(ROOT / "tools/package.sh", PACKAGES, "-DTESSIVATOR_WERROR=ON")
unittest.main(argv=sys.argv[:1])
