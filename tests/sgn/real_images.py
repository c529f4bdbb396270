#!/usr/bin/python3
"""Compares the certificates of real signed images with those that openssl and the fixtures' own readers find.

real_images.py FOLDER SCRATCH PROGRAM...: every signed .efi image below FOLDER is scanned with PROGRAM (perhaps with an
emulator before it). In which order names come is the fixtures' business."""
import pathlib
import shutil
import sys

sys.path.insert(0, str(pathlib.Path(__file__).parents[1] / "fixtures" / "scripts"))
from expected import as_pem, certificates_of, signatures_of  # noqa: E402
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


def compare(program, image, scratch):
    data = image.read_bytes()
    signatures = list(signatures_of(data))
    if len(signatures) == 1:  # osslsigncode refuses a table of several
        assert signatures[0].rstrip(b"\0") == extract_signature(data).rstrip(b"\0")
    for options, lists in zip(([], ["-A"]), zip(*map(certificates_of, signatures))):
        expected = {stem(certificate): as_pem(certificate) for one in lists for certificate in one}
        assert extracted(program, image, scratch, *options) == expected != {}, image
        print(f"{image}: {len(signatures)} signatures, {len(expected)} certificates")


images = sorted(pathlib.Path(sys.argv[1]).rglob("*.efi*.signed"))
assert len(images) >= EXPECTED_IMAGES, images
for signed in images:
    compare(sys.argv[3:], signed, pathlib.Path(sys.argv[2]))
