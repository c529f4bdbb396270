"""Made reports, and the report program run on them."""
import pathlib
import shutil
import subprocess
import sys
from xml.sax.saxutils import escape

HERE = pathlib.Path(__file__).resolve().parent
sys.path.append(str(HERE.parents[1] / "support"))
import programs  # noqa: E402

KEYS = ("Name", "SHA1", "SHA256", "companyName", "isInstaller", "productName", "productVersion")
# Certificate files by a letter: the chain of the fixtures, one that is missing, one that holds something else.
STEMS = {letter: letter * 64 for letter in "0123456789abcdef"}
FILES = {"a": "leaf", "b": "intermediate", "c": "root", "d": "leaf2"}


def record(name, certificates="", content="1", **values):
    """One entry; `content` stands for the file's bytes, and without any there is no SHA256."""
    values = {"Name": name, "SHA1": content * 40, "SHA256": content * 64, "isInstaller": "no", **values}
    lines = [f"        <{key}>{escape(values.get(key, ''))}</{key}>" for key in KEYS if content or key != "SHA256"]
    listed = [f'<Certificate name="{STEMS[one]}"/>' for one in certificates]
    lines.append(f'        <CertificatesExtracted count="{len(listed)}">{"".join(listed)}</CertificatesExtracted>')
    return "\n".join(["    <Executable>", *lines, "    </Executable>\n"])


def folder(case, name, *records, comment=""):
    """A new folder with a report of these records and the certificate files beside it."""
    path = programs.fresh(case, name)
    comment = comment and f"    <!-- incomplete: {comment} -->\n"
    (path / "info.xml").write_text('<?xml version="1.0" encoding="UTF-8"?>\n<ExecutableData>\n' + "".join(records) +
                                   comment + "</ExecutableData>\n", encoding="utf-8", newline="\n")
    for letter, source in FILES.items():
        shutil.copy(programs.FIXTURES / "pki" / "rsa" / f"{source}.pem", path / f"{STEMS[letter]}.cer")
    (path / f"{STEMS['f']}.cer").write_text("no certificate")
    return path


def issue(path, subject, usages=""):
    """A certificate file for this subject, from the fixtures' root, with these extended usages."""
    rsa = programs.FIXTURES / "pki" / "rsa"
    extensions, key = path.with_suffix(".cnf"), path.with_suffix(".pub")
    extensions.write_text(usages and f"extendedKeyUsage={usages}\n")
    for command in (["-in", rsa / "leaf.pem", "-pubkey", "-noout", "-out", key],
                    ["-new", "-force_pubkey", key, "-subj", subject, "-CA", rsa / "root.pem", "-CAkey", rsa / "root.key",
                     "-set_serial", "7", "-days", "2000", "-extfile", extensions, "-out", path]):
        subprocess.run(["openssl", "x509", *command], check=True, capture_output=True)


def run(*arguments):
    """The program's exit code, output and error output, both as bytes."""
    done = programs.run(programs.OPTIONS.report, *arguments, SOURCE_DATE_EPOCH="1760000000")
    return done.returncode, done.stdout, done.stderr
