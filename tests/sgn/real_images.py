#!/usr/bin/python3
"""Compares the certificates of real signed images with those that osslsigncode and openssl find.

real_images.py FOLDER SCRATCH PROGRAM...: every signed .efi image below FOLDER goes through PROGRAM (sgn_extract, perhaps
with an emulator before it)."""
import glob
import os
import re
import shutil
import struct
import subprocess
import sys

sys.path.insert(0, os.path.join(os.path.dirname(__file__), "..", "fixtures", "scripts"))
import oneline  # noqa: E402

# What the sample packages hold at least; fewer would mean that nothing was compared.
EXPECTED_IMAGES = 2


def output(*command):
    return subprocess.run(command, check=True, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL).stdout


def table_entries(image):
    """The signatures of the attribute certificate table, taken apart here."""
    data = read(image)
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


def osslsigncode_signature(image, path):
    """What osslsigncode takes for the signature; it refuses a table of several."""
    if os.path.exists(path):
        os.remove(path)
    output("osslsigncode", "extract-signature", "-in", image, "-out", path)
    return read(path)


def openssl(blob, *options):
    return subprocess.run(("openssl", "pkcs7", "-inform", "DER") + options, input=blob, check=True,
                          stdout=subprocess.PIPE).stdout


def printed_certificates(blob):
    """A signature's certificates as PEM, in the order in which it lists them."""
    return re.findall(rb"-----BEGIN CERTIFICATE-----\n.*?-----END CERTIFICATE-----\n", openssl(blob, "-print_certs"), re.S)


def signer_serials(blob):
    text = openssl(blob, "-print", "-noout").decode(errors="replace")
    found = re.findall(r"issuer_and_serial:.*?serial: (0x)?([0-9A-Fa-f]+)", text[text.index("signer_info:"):], re.S)
    return [int(digits, 16 if prefix else 10) for prefix, digits in found]


def serial_of(path):
    return int(output("openssl", "x509", "-in", path, "-noout", "-serial").decode().strip().split("=")[1], 16)


def extracted(program, image, folder, every):
    shutil.rmtree(folder, ignore_errors=True)
    os.makedirs(folder)
    names = output(*program, image, folder, every).decode().split()
    files = sorted(os.listdir(folder))
    assert sorted({name + ".cer" for name in names}) == files, (image, names, files)
    return [os.path.join(folder, name + ".cer") for name in names]


def read(path):
    with open(path, "rb") as file:
        return file.read()


def compare(program, image, scratch):
    entries = table_entries(image)
    assert entries, image
    if len(entries) == 1:
        assert entries[0].rstrip(b"\0") == osslsigncode_signature(image, os.path.join(scratch, "signature.der")).rstrip(b"\0")
    folder = os.path.join(scratch, "certificates")
    expected = [one for blob in entries for one in printed_certificates(blob)]
    found = [read(path) for path in extracted(program, image, folder, "1")]
    stems = [oneline.stem(output("openssl", "x509", "-in", path, "-outform", "DER")) for path in extracted(program, image, folder, "1")]
    assert stems == [os.path.basename(path)[:-4] for path in extracted(program, image, folder, "1")], (image, stems)
    assert expected and found == expected[::-1], f"{image}: {len(found)} of {len(expected)} certificates, or other bytes"
    serials = [one for blob in entries for one in signer_serials(blob)]
    signers = [serial_of(path) for path in extracted(program, image, folder, "0")]
    assert serials and signers == serials[::-1], (image, signers, serials)
    print(f"{image}: {len(entries)} signatures, {len(found)} certificates, {len(signers)} signers")


def main():
    folder, scratch, program = sys.argv[1], sys.argv[2], sys.argv[3:]
    os.makedirs(scratch, exist_ok=True)
    images = sorted(glob.glob(os.path.join(folder, "**", "*.efi*"), recursive=True))
    signed = [image for image in images if image.endswith(".signed")]
    assert len(signed) >= EXPECTED_IMAGES, images
    for image in signed:
        compare(program, image, scratch)


if __name__ == "__main__":
    main()
