#!/usr/bin/python3
"""Stands in for the share program. The server's name says what is wrong with it: LIES has which question about which
path is answered by what instead of honestly; b"" is the program's end."""
import errno
import itertools
import pathlib
import socket
import struct

HOME = pathlib.Path(__file__).resolve().parent
IMAGE = (HOME / "image").read_bytes().ljust(1 << 20, b"\0")
CONNECT, OPEN, READ, LIST = range(1, 5)
PAIR = socket.socket(fileno=3)
QUESTIONS = PAIR.makefile("rb")
numbers = itertools.count()
server, starts = "", 0  # programs started for it, this one included


def frame(kind, payload=b"", result=0, version=2, size=None):
    return struct.pack("<2sHHHII", b"qs", version, kind, 0, result, len(payload) if size is None else size) + payload


def opened(number, size, first):
    return frame(OPEN, struct.pack("<IQQqIB", number, size, 0, starts if server == "changes" else 0, 0, 0) + first)


def listed(number, *names, more=0):
    return frame(LIST, struct.pack("<IQB", 1, number, more) + b"".join(
        struct.pack("<IQH", 0 if b"." in name else 0x10, 0, len(name)) + name for name in names))


LIES = {
    "mute": (CONNECT, "", lambda honest: b""),
    "talks": (CONNECT, "", lambda honest: frame(CONNECT, b"hello")),
    "dies": (OPEN, "b.exe", lambda honest: b""),
    "dies-once": (OPEN, "b.exe", lambda honest: honest if starts > 1 else b""),
    "refuses": (OPEN, "b.exe", lambda honest: frame(OPEN, result=errno.EACCES)),
    "odd-error": (OPEN, "b.exe", lambda honest: frame(OPEN, result=0x80000002)),
    "error-and-bytes": (OPEN, "b.exe", lambda honest: frame(OPEN, b"1234", errno.EACCES)),
    "newer": (OPEN, "b.exe", lambda honest: frame(OPEN, honest[16:], version=3)),
    "other": (OPEN, "b.exe", lambda honest: frame(READ, honest[16:])),
    "long": (OPEN, "b.exe", lambda honest: frame(OPEN, honest[16:], size=0xFFFFFFFF)),
    "short": (OPEN, "b.exe", lambda honest: frame(OPEN, honest[16:40])),
    "more-than-it-has": (OPEN, "b.exe", lambda honest: opened(2, 3, b"1234")),
    "too-much": (READ, "b.exe", lambda honest: frame(READ, honest[16:] + b"1")),
    "too-little": (READ, "b.exe", lambda honest: frame(READ, honest[17:])),
    "stumbles": (READ, "b.exe", lambda honest: honest if starts > 1 else b""),
    "changes": (READ, "b.exe", lambda honest: honest if starts > 1 else b""),
    "nameless": (LIST, "d", lambda honest: listed(2, b"")),
    "zero": (LIST, "d", lambda honest: listed(2, b"c\0.exe")),
    "cut": (LIST, "d", lambda honest: frame(LIST, honest[16:-1])),
    "nothing-more": (LIST, "d", lambda honest: listed(2, more=1)),
    "full": (LIST, "d", lambda honest: frame(LIST, result=errno.ENOMEM)),
    # Lost in the middle of a list, which then has another order and a new name.
    "reorders": (LIST, "d", lambda honest: listed(2, b"f.exe", b"c.exe", b"e.exe", b"d.exe") if starts > 1 else
                 b"" if next(numbers) else listed(2, b"e.exe", b"c.exe", more=1)),
    # Names that lead elsewhere, so that nothing is done with them but counting.
    "endless": (LIST, "d", lambda honest: listed(2, *(b"..\\%9d" % next(numbers) for _ in range(150000)), more=1)),
}


def answer(kind, question):
    """The path that is asked about, and an honest answer."""
    if kind == CONNECT:
        return "", frame(CONNECT)
    if kind == READ:
        number, offset, size = struct.unpack("<IQI", question)
        return "b.exe" if number == 2 else "", frame(READ, IMAGE[offset:offset + size])
    if kind == OPEN:
        path = question[6:].decode()
        size = len(IMAGE) if path == "b.exe" else 1024
        wanted, = struct.unpack("<I", question[:4])
        return path, opened(2 if path == "b.exe" else 1, size, IMAGE[:min(size, wanted)])
    path = question[10:].decode()
    if path == "":
        return path, listed(1, b"a.exe", b"b.exe", b"d", b"z.exe")
    if server == "branches":  # every folder has two more, and all of one level say that they are the same
        return path, listed(2 + path.count("/"), b"d", b"e")
    return path, listed(2, b"c.exe")


while len(head := QUESTIONS.read(16)) == 16:
    _, _, kind, _, _, size = struct.unpack("<2sHHHII", head)
    question = QUESTIONS.read(size)
    if kind == CONNECT:
        server = question[3:3 + question[1]].decode()
        with (HOME / server).open("a+") as log:
            log.write("x")
            starts = log.tell()
    if kind <= LIST:
        path, honest = answer(kind, question)
        wrong_kind, wrong_path, lie = LIES.get(server, (0, "", None))
        told = lie(honest) if (kind, path) == (wrong_kind, wrong_path) else honest
        if not told:
            break
        PAIR.sendall(told)
