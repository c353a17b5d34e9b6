#!/usr/bin/env python3
"""Decodes every leaf of every message of a folder with Python's own parser, for the corpus test to
compare with. One line a leaf:

    file TAB index TAB content type TAB length TAB crc32 TAB length as text TAB crc32 as text

The last two are those of the leaf as UTF-8: bytes that form UTF-8 stay, any other byte from 0x80 up
is its Windows-1252 character. A message that the two parsers must read differently has one line

    file TAB skip TAB reason

whose reason is seen from the message alone.

Every message is read with CRLF line ends: one with bare LFs reads as if it had them.

usage: decode_leaves.py FOLDER
"""
import codecs
import email
import os
import re
import sys
import zlib
from email import errors
from email.policy import compat32

# Header lines end at the blank line alone: what Python calls a defect is a line that is passed over.
SKIPPED_DEFECTS = {
    errors.MissingHeaderBodySeparatorDefect: "a header that Python ends before its blank line",
    errors.MalformedHeaderDefect: "a header that Python ends before its blank line",
    errors.FirstHeaderLineIsContinuationDefect: "a header that begins with a continuation",
    errors.CloseBoundaryNotFoundDefect: "a part that is not closed keeps its last line end",
    errors.NoBoundaryInMultipartDefect: "a multipart without a boundary is text",
    errors.StartBoundaryNotFoundDefect: "a multipart without a part is text",
    errors.MultipartInvariantViolationDefect: "a multipart without a part is text",
}
CODINGS = {"", "7bit", "8bit", "binary", "quoted-printable", "base64"}
CONTENT_FIELDS = ("content-type", "content-transfer-encoding", "content-disposition")


def one_windows_byte(fault):
    byte = fault.object[fault.start : fault.start + 1]
    try:
        character = byte.decode("cp1252")
    except UnicodeDecodeError:
        character = chr(byte[0])  # the five that are not assigned
    return character, fault.start + 1


codecs.register_error("windows", one_windows_byte)


def as_text(data):
    return data.decode("utf-8", "windows").encode("utf-8")


def crc(data):
    return "%d\t%08x" % (len(data), zlib.crc32(data))


class Unlike(Exception):
    """The two parsers read this message differently, by rule."""


def check(part):
    for defect in part.defects:
        if type(defect) in SKIPPED_DEFECTS:
            raise Unlike(SKIPPED_DEFECTS[type(defect)])
    for name in CONTENT_FIELDS:
        values = part.get_all(name, [])
        if len(values) > 1:
            raise Unlike("a field given twice: the last counts, not the first")
        if values and "=?" in str(values[0]) and name != "content-disposition":
            raise Unlike("an encoded word in a structured field is decoded")
    raw = str(part.get("content-type", ""))
    kind = raw.split(";")[0].strip().lower()
    if kind != part.get_content_type() and not (kind == "" and part.get_content_type()
                                                in ("text/plain", "message/rfc822")):
        raise Unlike("a type that Python takes for another")
    coding = str(part.get("content-transfer-encoding", "")).lower()
    # Python takes the value as it stands, we without the blanks around it.
    if coding.strip() not in CODINGS:
        raise Unlike("a transfer encoding that one of the two does not know")
    if coding != coding.strip():
        raise Unlike("blanks around a transfer encoding")
    if part.is_multipart() and kind.startswith("multipart/"):
        if coding.strip() in ("quoted-printable", "base64"):
            raise Unlike("an encoded multipart")


def check_coding(part):
    coding = str(part.get("content-transfer-encoding", "")).lower()
    coded = part.get_payload()
    if coding == "quoted-printable" and re.search(r"=(?![0-9A-Fa-f]{2}|\r?\n|\Z)", coded):
        raise Unlike("a sign that codes nothing stays, and blanks behind one go with the line end")
    if coding == "base64":
        plain = re.sub(r"\s", "", coded)
        if len(plain) % 4 != 0 or not re.fullmatch(r"[A-Za-z0-9+/]*={0,2}", plain):
            raise Unlike("base64 that is not: what is no base64 is passed over, and no end is final")


def leaves(part, boundaries):
    check(part)
    if part.get_content_maintype() == "multipart":
        if not part.is_multipart():
            raise Unlike("a multipart without a part is text")
        boundary = part.get_boundary()
        raw = str(part["content-type"])
        if not boundary:
            raise Unlike("an empty boundary is none")
        if re.search(r"boundary\*", raw, re.I):
            raise Unlike("a boundary in the extended form")
        if boundary not in raw or (boundary + " ") in raw.split(";")[0]:
            raise Unlike("a boundary with escapes")
        if re.search(re.escape(boundary) + r"[ \t]+\"", raw):
            raise Unlike("a boundary that ends in blanks")
        for other in boundaries:
            if other.startswith(boundary) or boundary.startswith(other):
                raise Unlike("a boundary that begins like another")
        boundaries.append(boundary)
        for child in part.get_payload():
            yield from leaves(child, boundaries)
    else:
        yield part


def lines(path, data):
    data = data.replace(b"\r\n", b"\n")
    if b"\r" in data:
        raise Unlike("a bare CR ends a line for Python")
    if b"\n\n" not in data and not data.startswith(b"\n"):
        raise Unlike("no blank line")
    if data.startswith(b"\n"):
        raise Unlike("a message that begins with a blank line")
    if data.startswith((b"From ", b">From ")):
        raise Unlike("a mailbox line before the header")
    message = email.message_from_bytes(data.replace(b"\n", b"\r\n"), policy=compat32)
    boundaries = []
    found = []
    for part in leaves(message, boundaries):
        kind = re.sub(r"\s", " ", part.get_content_type())
        if part.get_content_maintype() == "message":
            found.append((kind, None))
            continue
        check_coding(part)
        found.append((kind, part.get_payload(decode=True) or b""))
    for boundary in boundaries:
        own = b"--" + boundary.encode("ascii", "surrogateescape")
        for line in data.split(b"\n"):
            if line.startswith(own) and line[len(own):].strip(b" \t") not in (b"", b"--"):
                raise Unlike("a line that merely begins with a boundary")
        if re.search(rb"^" + re.escape(own) + rb"[ \t]+--", data, re.M):
            raise Unlike("a line that merely begins with a boundary")
        if data.startswith(own):
            raise Unlike("a boundary in the header")
    for index, (kind, payload) in enumerate(found):
        if payload is None:
            yield "%s\t%d\t%s\t-\t-\t-\t-" % (path, index, kind)
        else:
            yield "%s\t%d\t%s\t%s\t%s" % (path, index, kind, crc(payload), crc(as_text(payload)))


def main():
    for directory, folders, names in os.walk(sys.argv[1]):
        folders.sort()
        for name in sorted(names):
            path = os.path.join(directory, name)
            with open(path, "rb") as file:
                data = file.read()
            try:
                text = "\n".join(lines(path, data))
            except Unlike as reason:
                text = "%s\tskip\t%s" % (path, reason)
            except Exception as fault:  # Python's parser has faults of its own
                text = "%s\tskip\tPython failed: %s" % (path, type(fault).__name__)
            sys.stdout.write(text.encode("utf-8", "surrogateescape").decode("latin-1") + "\n")


if __name__ == "__main__":
    sys.stdout.reconfigure(encoding="latin-1")
    main()
