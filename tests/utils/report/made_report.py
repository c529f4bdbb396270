"""Made reports, and the report program run on them."""
import base64
import hashlib
import json
import pathlib
import shutil
import ssl
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


def der(path, letter):
    return ssl.PEM_cert_to_DER_cert((path / f"{STEMS[letter]}.cer").read_text())


def signature(path, signer, stamp="", **more):
    """A signature by the certificate of a letter; the root's stamps it at the time `stamp`."""
    by = lambda letter: {"certificate": hashlib.sha256(der(path, letter)).hexdigest()}
    stamps = [{"kind": "rfc3161", "time": stamp, "signer": by("c")}] if stamp else []
    return {"signers": [by(signer)], "stamps": stamps, **more}


def details(path, files, letters="ac", records=None):
    """The details of the report in `path`: lines of its files in their order, as a dictionary each, by name."""
    lines = [{"type": "header", "format": "brantle-details", "version": 1, "reading": 1, "program": "x", "system": "linux",
              "request": {"path": "/", "share": False, "all_certificates": False, "digests": True}, "started": "2026-01-01T00:00:00Z"}]
    for letter in letters:
        lines.append({"type": "certificate", "sha256": hashlib.sha256(der(path, letter)).hexdigest(), "name": STEMS[letter],
                      "key_bits": 0, "ca": False, "self_issued": False, "der": base64.b64encode(der(path, letter)).decode()})
    for number, (name, more) in enumerate(files.items()):
        if members := more.get("catalogue", {}).pop("list", None):
            lines.append({"type": "members", "ordinal": number, "members": [{"algorithm": "sha1", "value": one} for one in members]})
        lines.append({"type": "file", "ordinal": number, "name": name, "kind": "image", "size": 1, "read_at": "2026-01-01T00:00:00Z",
                      "record": {"bare": False}, "complete": True, **more})
    lines.append({"type": "end", "ended": "2026-01-01T00:00:00Z", "files": len(files), "records": records or len(files), "certificates": 0,
                  "left_out_directories": 0, "left_out_files": 0, "ended_early": False, "info_sha256": hashlib.sha256((path / "info.xml").read_bytes()).hexdigest()})
    text = "".join(json.dumps({key: value for key, value in line.items() if value is not None}) + "\n" for line in lines)
    (path / "details.jsonl").write_text(text, newline="\n")


def run(*arguments, now=1760000000):
    """The program's exit code, output and error output, both as bytes."""
    done = programs.run(programs.OPTIONS.report, *arguments, SOURCE_DATE_EPOCH=str(now))
    return done.returncode, done.stdout, done.stderr
