#!/usr/bin/python3
"""Makes the packages and looks at them: packages_test.py SOURCE_TREE SCRATCH

The packages are unpacked, not installed: their programs are run from where they lie.
"""
import glob
import os
import re
import shutil
import subprocess
import sys
import unittest
import zipfile

ROOT, SCRATCH = (os.path.abspath(one) for one in sys.argv[1:3])
PACKAGES = os.path.join(SCRATCH, "made")
TREE, WINE_RUN = os.path.join(ROOT, "tests/fixtures/tree"), os.path.join(ROOT, "tools/wine-run.sh")
# package -> what it must hold, what none of its files may be, what it must depend on
DEBIAN = {
    "brantle": (["usr/bin/brantle", "usr/bin/brantle-report", "usr/bin/brantle-parallel", "usr/share/brantle/info.xsd",
                 "usr/share/man/man1/brantle-parallel.1.gz", "usr/share/man/man5/brantle-info.5.gz",
                 "usr/share/bash-completion/completions/brantle-report"], r"smb|\.(h|a|jar|so)$", ["libssl3", "python3"]),
    "brantle-smb": (["usr/libexec/brantle/brantle_smb"], r"/lib/|/include/|/bin/", ["libsmbclient"]),
    "libbrantle-java": (["usr/share/java/brantle.jar"], r"\.(h|a)$|/bin/", ["libssl3"]),
    "libtessivator-dev": (["usr/include/tessivator/sgn/sgn_x509.h"], r"/bin/|\.(so|jar)$", ["libssl-dev"]),
}


def output(*command, **more):
    return subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True, **more).stdout


def scan(prefix, program, report, runner=()):
    """Surveys the fixtures with an unpacked program and converts the report with the other."""
    found = os.path.join(SCRATCH, "out")
    shutil.rmtree(found, ignore_errors=True)
    os.makedirs(found)
    output(*runner, os.path.join(prefix, program), TREE, found)
    return output(*runner, os.path.join(prefix, report), "csv", found).count("\n")


class Packages(unittest.TestCase):
    def test_debian(self):
        root = os.path.join(SCRATCH, "root")
        shutil.rmtree(root, ignore_errors=True)
        for name, (wanted, foreign, needs) in DEBIAN.items():
            with self.subTest(name):
                (package,) = glob.glob(os.path.join(PACKAGES, f"{name}_*_amd64.deb"))
                subprocess.run(["dpkg-deb", "-x", package, root + name], check=True)
                files = [os.path.relpath(os.path.join(folder, one), root + name)
                         for folder, _, names in os.walk(root + name) for one in names]
                for one in wanted + [f"usr/share/doc/{name}/copyright"]:
                    self.assertIn(one, files)
                self.assertEqual([one for one in files if re.search(foreign, "/" + one)], [])
                depends = output("dpkg-deb", "-f", package, "Depends")
                self.assertEqual([one for one in needs if not re.search(rf"\b{one}\b", depends)], [])
                subprocess.run(["lintian", "--fail-on", "error", "--tag-display-limit", "0", package], check=True)
        self.assertGreater(scan(root + "brantle", "usr/bin/brantle", "usr/bin/brantle-report"), 5)
        for page in glob.glob(os.path.join(root + "brantle", "usr/share/man/man*/*")):
            said = subprocess.run(["mandoc", "-T", "lint", page], stdout=subprocess.PIPE, text=True).stdout
            self.assertEqual([line for line in said.splitlines() if "referenced manual not found" not in line], [])

    def test_windows(self):
        (archive,) = glob.glob(os.path.join(PACKAGES, "brantle-*-windows-x64.zip"))
        prefix = os.path.join(SCRATCH, "windows")
        shutil.rmtree(prefix, ignore_errors=True)
        with zipfile.ZipFile(archive) as opened:
            opened.extractall(prefix)
        (top,) = glob.glob(os.path.join(prefix, "brantle-*"))
        for one in ("bin/brantle.dll", "manuals/brantle.txt", "licences/OpenSSL.txt", "share/java/brantle.jar"):
            self.assertTrue(os.path.exists(os.path.join(top, one)), one)
        self.assertGreater(scan(top, "bin/brantle.exe", "bin/brantle-report.exe", [WINE_RUN]), 5)


# The gate's own options, so that its compiler cache has the objects.
subprocess.run([os.path.join(ROOT, "tools/package.sh"), PACKAGES, "-DTESSIVATOR_WERROR=ON"], check=True,
               stdout=subprocess.DEVNULL)
unittest.main(argv=sys.argv[:1])
