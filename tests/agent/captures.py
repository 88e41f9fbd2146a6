"""Reads captures as docs/capture.md describes them, without the project's own code."""

import struct

HEAD = b"QOS-CAPTURE 2\n"
BATCH, PASS_END, LOG_LINE, MISSED, GONE = 1, 2, 3, 4, 5


def records(data):
    """(kind, subscription, pass, what follows the alias) of each record."""
    assert data.startswith(HEAD), data[:20]
    at = len(HEAD)
    while at < len(data):
        length, kind, alias, _run, subscription, number = struct.unpack_from("<IBBQIQ", data, at)
        yield kind, subscription, number, data[at + 26 + alias:at + 4 + length]
        at += 4 + length
    assert at == len(data), "the last record is cut off"


def passes(data):
    """For each subscription the payloads of each pass that ended, in their order."""
    found, payloads = {}, {}
    for kind, subscription, _, content in records(data):
        if kind == BATCH:
            payloads.setdefault(subscription, []).append(content[33:])
        elif kind == PASS_END:
            found.setdefault(subscription, []).append(payloads.pop(subscription, []))
    return found
