#!/usr/bin/python3
"""Compares the certificates of real signed images with those that osslsigncode and openssl find.

real_images.py FOLDER SCRATCH PROGRAM...: every signed .efi image below FOLDER is scanned with PROGRAM (perhaps with an
emulator before it). In which order names come is the fixtures' business."""
import os
import pathlib
import re
import shutil
import struct
import subprocess
import sys

sys.path.insert(0, os.path.join(os.path.dirname(__file__), "..", "fixtures", "scripts"))
import oneline  # noqa: E402

# What the sample packages hold at least; fewer would mean that nothing was compared.
EXPECTED_IMAGES = 2


def output(*command, **options):
    return subprocess.run(command, check=True, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, **options).stdout


def table_entries(image):
    """The signatures of the attribute certificate table, taken apart here."""
    data = image.read_bytes()
    (nt,) = struct.unpack_from("<I", data, 60)
    (magic,) = struct.unpack_from("<H", data, nt + 24)
    offset, size = struct.unpack_from("<II", data, nt + 24 + (112 if magic == 0x20B else 96) + 4 * 8)
    end = offset + size
    entries = []
    while offset < end:
        (length,) = struct.unpack_from("<I", data, offset)
        entries.append(data[offset + 8:offset + length])
        offset += (length + 7) // 8 * 8
    return entries


def certificates(blob):
    text = output("openssl", "pkcs7", "-inform", "DER", "-print_certs", input=blob)
    return set(re.findall(rb"-----BEGIN CERTIFICATE-----\n.*?-----END CERTIFICATE-----\n", text, re.S))


def signer_serials(blob):
    text = output("openssl", "pkcs7", "-inform", "DER", "-print", "-noout", input=blob).decode(errors="replace")
    found = re.findall(r"issuer_and_serial:.*?serial: (0x)?([0-9A-Fa-f]+)", text[text.index("signer_info:"):], re.S)
    return {int(digits, 16 if prefix else 10) for prefix, digits in found}


def extracted(program, image, scratch, *options):
    """What the program writes, by stem; it goes by an image's extension."""
    shutil.rmtree(scratch, ignore_errors=True)
    (scratch / "out").mkdir(parents=True)
    output(*program, shutil.copy(image, scratch / "image.exe"), scratch / "out", "-O", *options)
    return {path.stem: path.read_bytes() for path in (scratch / "out").iterdir()}


def compare(program, image, scratch):
    entries = table_entries(image)
    if len(entries) == 1:  # osslsigncode refuses a table of several
        scratch.mkdir(parents=True, exist_ok=True)
        signature = scratch / "signature.der"
        signature.unlink(missing_ok=True)
        output("osslsigncode", "extract-signature", "-in", image, "-out", signature)
        assert entries[0].rstrip(b"\0") == signature.read_bytes().rstrip(b"\0")
    found = extracted(program, image, scratch, "-A")
    assert set(found.values()) == set.union(*map(certificates, entries)) != set(), image
    for stem, pem in found.items():
        assert stem == oneline.stem(output("openssl", "x509", "-outform", "DER", input=pem)), (image, stem)
    serials = {int(output("openssl", "x509", "-noout", "-serial", input=pem).split(b"=")[1], 16)
               for pem in extracted(program, image, scratch).values()}
    assert serials == set.union(*map(signer_serials, entries)) != set(), (image, serials)
    print(f"{image}: {len(entries)} signatures, {len(found)} certificates, {len(serials)} signers")


images = sorted(pathlib.Path(sys.argv[1]).rglob("*.efi*.signed"))
assert len(images) >= EXPECTED_IMAGES, images
for signed in images:
    compare(sys.argv[3:], signed, pathlib.Path(sys.argv[2]))
