#!/usr/bin/env python3
"""Reads Kestrav logs (.klog), plain and scrambled, with nothing but the standard library.

    import kestrav_log

    with kestrav_log.open_log("drive.klog") as log:
        for record in log:
            print(record.time, record.client, record.payload)

A record that is damaged is left out, and the reader finds its way again as the recorder's own does:
it delivers the same records. When the iteration is over, `log.damaged` says whether the log ends in
damage, and `log.loss()` in words what is missing. `to_dataframe` makes a pandas data frame of a log where pandas is installed.
"""

import argparse
import datetime
import itertools
import json
import mmap
import os
import signal
import struct
import sys
from typing import NamedTuple, Optional

__all__ = ["Header", "Log", "NotALog", "Record", "open_log", "to_dataframe"]

HEADER_SIZE = 128
RECORD_HEADER_SIZE = 20
MARKER = 0x4C
NO_ID = 0xFFFF
INFO_CLIENT, DICTIONARY = 12, 1200
SCAN_BLOCK = 50
REACH = 0xFFFFFFFF  # positions in a log have 32 bits

_HEADER = struct.Struct("<4sIHBBIIII")
_RECORD = struct.Struct("<BBBBIHHII")
_XOR_TABLES = [bytes(byte ^ key for byte in range(256)) for key in range(256)]


class NotALog(ValueError):
    """The file does not begin as a log does."""


class Header(NamedTuple):
    """The fields of the stream header."""

    start_time: int  # seconds since 1970-01-01 UTC
    client_selection: int
    header_key: int  # 0: not scrambled
    data_key: int
    duration_ms: int
    stream_length: int  # 0: the recording was not finished
    clock_rate: int
    start_clock: int  # ms


class Record(NamedTuple):
    """One message of one client."""

    index: int  # how many records were delivered before it
    client_id: int
    client: Optional[str]  # None: the dictionary does not name it
    data_id: int
    time_ms: int  # of the recorder's clock
    time: datetime.datetime  # wall clock, UTC
    payload: bytes


class _RecordHeader(NamedTuple):
    payload_checksum: int
    index: int
    client_id: int
    data_id: int
    time_ms: int
    size: int


def _checksum(data):
    """The XOR of all bytes: of one large integer, folded in halves until a byte is left."""
    value = int.from_bytes(data, "little")
    bits = 8
    while bits < 8 * len(data):
        bits *= 2
    while bits > 8:
        bits //= 2
        value = (value >> bits) ^ (value & ((1 << bits) - 1))
    return value


def _unscramble(data, stream_key, index):
    if stream_key == 0:
        return bytes(data)
    return bytes(data).translate(_XOR_TABLES[(stream_key + index) % 256 or 1])


def _client_id(text):
    """A decimal with blanks around and one sign; None: it is no number of 32 bits."""
    text = text.strip(b" \t")
    digits = text[1:] if text[:1] in (b"+", b"-") else text
    if not digits.isdigit() or len(digits.lstrip(b"0")) > 10 or int(digits) >= 2**32:
        return None
    return (-int(digits) if text[:1] == b"-" else int(digits)) % 65536


def _read_dictionary(payload):
    """From client id to name; empty: the payload is no dictionary."""
    ids = {}
    fields = payload[4:].split(b"\0")[:-1]
    for name, digits in itertools.zip_longest(fields[::2], fields[1::2]):
        if not name:
            return {}
        if digits is None:
            break
        client_id = _client_id(digits)
        if client_id is None:
            return {}
        ids.setdefault(name, client_id)
    names = {}
    for name, client_id in sorted(ids.items()):
        names.setdefault(client_id, name.decode("utf-8", "replace"))
    return names


class Log:
    """A log in memory: bytes, or whatever else gives slices of bytes. Iterating yields `Record`s.

    `header` and `names`, from client id to name, are there at once. When the iteration is over,
    `end` is where the last whole record ends, `missing` how many records lack by their indices,
    `damaged` whether the log ends in damage. One iteration at a time.
    """

    def __init__(self, data, close=None):
        self._data = data
        self._close = close
        self._size = min(len(data), REACH)
        if self._size < HEADER_SIZE or data[:4] != b"LOG:":
            raise NotALog("not a log")
        self.header = Header(*_HEADER.unpack(data[:_HEADER.size])[1:])
        self.names = self._find_names()
        self._start()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def close(self):
        if self._close:
            self._close()

    def loss(self):
        """What the iteration that is over did not find, in words; empty: nothing is lost."""
        records = "record" if self.missing == 1 else "records"
        behind = self._size - self.end
        parts = [f"{self.missing} {records} missing"] if self.missing else []
        if behind:
            parts.append(f"{behind} {'byte' if behind == 1 else 'bytes'} behind the last whole record")
        return ", ".join(parts)

    def wall_time(self, time_ms):
        """The time of the day at this time stamp."""
        since_start = (time_ms - self.header.start_clock) % 2**32
        start = datetime.datetime.fromtimestamp(self.header.start_time, datetime.timezone.utc)
        return start + datetime.timedelta(milliseconds=since_start)

    def __iter__(self):
        """Starts at the beginning of the log, each time."""
        self._start()
        for count in itertools.count():
            found = self._next()
            if found is None:
                return
            header, payload = found
            yield Record(count, header.client_id, self.names.get(header.client_id), header.data_id,
                         header.time_ms, self.wall_time(header.time_ms), payload)

    def _start(self):
        self._position, self._expected = HEADER_SIZE, 0
        self._whole = 0  # the index that follows the last whole record
        self.end, self.damaged, self.missing = HEADER_SIZE, False, 0

    def _find_names(self):
        """From the first dictionary, which is the first record unless clients were faster."""
        self._start()
        names, found = {}, self._next()
        while found and not names:
            header, payload = found
            if (header.client_id, header.data_id) == (INFO_CLIENT, DICTIONARY):
                names = _read_dictionary(payload)
            found = self._next()
        return names

    # The walk. What it does after damage is told in docs/log-format.md.

    def _next(self):
        """The next whole record, as header and payload; None: the log, or what is sound of it, ends."""
        if self._position == self._size:
            return None
        header, failed = self._read_header()
        if failed and self._search():
            header, failed = self._read_header()
        if header is None:
            self.damaged = failed
            return None
        self._expected = (header.index + 1) % 2**32
        payload, failed = self._read_payload(header)
        if failed and self._search():
            header, _ = self._read_header()
            self._expected = (header.index + 1) % 2**32
            payload, failed = self._read_payload(header)
        self.damaged = failed or (payload is not None and NO_ID in (header.client_id, header.data_id))
        if payload is None or self.damaged:
            return None
        self.end = self._position
        self.missing += max(header.index - self._whole, 0)
        self._whole = header.index + 1
        return header, payload

    def _left(self):
        return self._size - self._position

    def _read_header(self):
        """The header at the position, or None, and whether that is for damage."""
        if self._left() < RECORD_HEADER_SIZE:
            return None, False
        start, self._position = self._position, self._position + RECORD_HEADER_SIZE
        header = self._header_at(start)
        return header, header is None

    def _header_at(self, at):
        data = _unscramble(self._data[at:at + RECORD_HEADER_SIZE], self.header.header_key,
                           self._expected)
        marker, checksum, payload_checksum, _, *fields = _RECORD.unpack(data)
        if marker != MARKER or checksum != _checksum(data[2:]):
            return None
        return _RecordHeader(payload_checksum, *fields)

    def _read_payload(self, header):
        """The payload at the position, or None, and whether that is for damage."""
        if self._left() < header.size:
            return None, False
        if header.size == 0:
            return None, True
        start, self._position = self._position, self._position + header.size
        payload = _unscramble(self._data[start:self._position], self.header.data_key, header.index)
        good = _checksum(payload) == header.payload_checksum
        return (payload, False) if good else (None, True)

    def _search(self):
        """Stands before the next sound record; False: none was found."""
        while self._left() >= RECORD_HEADER_SIZE:
            start = self._position
            size = SCAN_BLOCK if self._left() >= SCAN_BLOCK else RECORD_HEADER_SIZE
            block = self._data[start:start + size]
            front = _unscramble(block[:RECORD_HEADER_SIZE], self.header.header_key, self._expected)
            at = (front + bytes(block[RECORD_HEADER_SIZE:])).find(MARKER)
            self._position = start + size
            if at >= 0 and self._is_record(start + at):
                return True
        return False

    def _is_record(self, candidate):
        """If so, stands before it; otherwise where the search goes on."""
        if self._size - candidate < RECORD_HEADER_SIZE:
            self._position = candidate + 1
            return False
        header = self._header_at(candidate)
        if header is None:
            self._position = candidate + 1
            return False
        self._position = candidate + RECORD_HEADER_SIZE
        payload, _ = self._read_payload(header)
        if payload is None:
            return False
        self._position = candidate
        return True


def open_log(path):
    """Opens a log file, without reading it whole. Raises OSError and `NotALog`."""
    with open(path, "rb") as file:
        if os.fstat(file.fileno()).st_size == 0:
            raise NotALog("not a log")
        data = mmap.mmap(file.fileno(), 0, access=mmap.ACCESS_READ)
    try:
        return Log(data, data.close)
    except NotALog:
        data.close()
        raise


def to_dataframe(log):
    """A row a record, the wall time as index. `log`: a `Log` or the path of one. Needs pandas."""
    import pandas  # pylint: disable=import-outside-toplevel

    if not isinstance(log, Log):
        with open_log(log) as opened:
            return to_dataframe(opened)
    frame = pandas.DataFrame(list(log), columns=Record._fields)
    numbers = dict.fromkeys(("index", "client_id", "data_id", "time_ms"), "int64")
    kinds = {**numbers, "time": "datetime64[ns, UTC]", "client": "category"}
    return frame.astype(kinds).set_index("time")  # a log without records too


def _json_line(record):
    line = record._replace(time=record.time.isoformat(timespec="milliseconds"),
                           payload=record.payload.hex())
    return json.dumps(line._asdict())


def _text_line(record):
    payload = record.payload
    printable = all(0x20 <= byte <= 0x7E for byte in payload)
    client = record.client if record.client is not None else str(record.client_id)
    return "{}  {}  {}  {}".format(
        record.time.isoformat(timespec="milliseconds"),
        "".join(c if c.isprintable() else "?" for c in client), record.data_id,
        payload.decode("ascii") if printable else payload.hex())


def main(arguments=None):
    parser = argparse.ArgumentParser(description="Prints the records of a Kestrav log.",
                                     epilog="Exit codes: 0 done, 1 failed, 2 wrong usage, "
                                     "3 something is lost.")
    parser.add_argument("log", metavar="LOG", help="the log to read")
    parser.add_argument("--client", action="append", metavar="NAME|ID",
                        help="only this client's records (repeatable)")
    parser.add_argument("--jsonl", action="store_true", help="one JSON object a line")
    options = parser.parse_args(arguments)
    show = _json_line if options.jsonl else _text_line
    try:
        with open_log(options.log) as log:
            for record in log:
                if not options.client or {record.client, str(record.client_id)} & {*options.client}:
                    print(show(record))
            if not log.loss():
                return 0
            print(f"kestrav_log: {options.log}: {log.loss()}", file=sys.stderr)
            return 3
    except (OSError, NotALog) as error:
        reason = error.strerror if isinstance(error, OSError) else error
        print(f"kestrav_log: {options.log}: {reason}", file=sys.stderr)
        return 1


if __name__ == "__main__":
    if hasattr(signal, "SIGPIPE"):
        signal.signal(signal.SIGPIPE, signal.SIG_DFL)  # a reader that leaves early, as head does
    sys.exit(main())
