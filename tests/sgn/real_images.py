#!/usr/bin/python3
"""Compares the certificates of real signed images, and what their signatures say, with what openssl, asn1crypto and the
fixtures' own readers find.

real_images.py FOLDER SCRATCH PROGRAM...: every signed .efi image below FOLDER is scanned with PROGRAM (perhaps with an
emulator before it). In which order names come is the fixtures' business."""
import json
import os
import pathlib
import shutil
import sys

sys.path.insert(0, str(pathlib.Path(__file__).parents[1] / "fixtures" / "scripts"))
from asn1crypto import cms  # noqa: E402
from expected import as_pem, certificates_of, signatures_of  # noqa: E402
from facts import facts  # noqa: E402
from oneline import stem  # noqa: E402
from tools import extract_signature, run  # noqa: E402

# What the sample packages hold at least; fewer would mean that nothing was compared.
EXPECTED_IMAGES = 2


def extracted(program, image, scratch, *options):
    """What the program writes, by stem; it goes by an image's extension."""
    shutil.rmtree(scratch, ignore_errors=True)
    (scratch / "out").mkdir(parents=True)
    run(*program, shutil.copy(image, scratch / "image.exe"), scratch / "out", "-O", *options)
    return {path.stem: path.read_bytes() for path in (scratch / "out").iterdir()}


def signer_text(one):
    found = [one["certificate"][:16]] if "certificate" in one else []
    return "|".join(found + [one.get(key, "") for key in ("issuer", "serial", "digest_algorithm", "key_algorithm",
                                                           "program_name", "program_url")])


def told(one):
    """A signature of the details in the words of the fixtures' reader."""
    stamps = ("stamp %s %s %s%s" % (stamp["kind"], stamp["time"], signer_text(stamp["signer"]),
                                    " (%s)" % " ".join(cert[:16] for cert in stamp.get("certificates", []))
                                    if stamp["kind"] == "rfc3161" else "") for stamp in one.get("stamps", []))
    return "; ".join([one["content_type"], one["digest_algorithm"], "%(algorithm)s:%(value)s" % one["signed_digest"],
                      *("signer " + signer_text(signer) for signer in one["signers"]),
                      *("certificate " + cert[:16] for cert in one["certificates"]), *stamps,
                      *("nested [%s]" % told(inner) for inner in one.get("nested", []))])


def compare_details(program, image, scratch, signatures):
    extracted(program, image, scratch)
    run(*program, scratch / "image.exe", scratch / "out", env={**os.environ, "BRANTLE_DETAILS": "digests"})
    lines = [json.loads(line) for line in (scratch / "out" / "details.jsonl").read_text("utf-8").splitlines()]
    (file,) = [line for line in lines if line["type"] == "file"]
    assert [told(one) for one in file["signatures"]] == [facts(cms.ContentInfo.load(one)) for one in signatures], image
    assert all(one["signed_digest_matches"] for one in file["signatures"]), image


def compare(program, image, scratch):
    data = image.read_bytes()
    signatures = list(signatures_of(data))
    if len(signatures) == 1:  # osslsigncode refuses a table of several
        assert signatures[0].rstrip(b"\0") == extract_signature(data).rstrip(b"\0")
    compare_details(program, image, scratch, signatures)
    for options, lists in zip(([], ["-A"]), zip(*map(certificates_of, signatures))):
        expected = {stem(certificate): as_pem(certificate) for one in lists for certificate in one}
        assert extracted(program, image, scratch, *options) == expected != {}, image
        print(f"{image}: {len(signatures)} signatures, {len(expected)} certificates")


images = sorted(pathlib.Path(sys.argv[1]).rglob("*.efi*.signed"))
assert len(images) >= EXPECTED_IMAGES, images
for signed in images:
    compare(sys.argv[3:], signed, pathlib.Path(sys.argv[2]))
