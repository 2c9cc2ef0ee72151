#!/usr/bin/env python3
"""Writes the logs in logs/ and beside each the dump that a reader must give of it.

The bytes are put together here and the surviving records are named by hand, so neither depends on
the library. With --verify nothing is written: it fails when a file differs from what would be.
"""

import argparse
import functools
import json
import operator
import pathlib
import struct
import sys

LOGS = pathlib.Path(__file__).resolve().parent / "logs"

DAMAGED, NOT_ENOUGH_DATA = 1, 2
INFO_CLIENT, DICTIONARY, EXTENDED_SELECTION = 12, 1200, 134
START_TIME, CLOCK_RATE, START_CLOCK = 1700000000, 1000, 5000


def xor(data):
    return functools.reduce(operator.xor, data, 0)


def scramble(data, stream_key, index):
    if stream_key == 0:
        return bytes(data)
    key = (stream_key + index) % 256 or 1
    return bytes(byte ^ key for byte in data)


class Log:
    """One log in the making: its bytes, where its records start, and what survives of it."""

    def __init__(self, header_key=0, data_key=0):
        self.keys = header_key, data_key
        self.selection = 0
        self.duration = 0
        self.body = b""
        self.starts = []
        self.records = []
        self.final = True
        self.index = 0

    def record(self, client, data_id, time, payload):
        index, self.index = self.index, self.index + 1
        checked = struct.pack("<BBIHHII", xor(payload), 0, index, client, data_id, time,
                              len(payload))
        header = struct.pack("<BB", 0x4C, xor(checked)) + checked
        self.starts.append(128 + len(self.body))
        self.records.append((client, data_id, time, payload))
        self.body += scramble(header, self.keys[0], index) + scramble(payload, self.keys[1], index)
        return self

    def dictionary(self, entries, time):
        payload = struct.pack("<I", len(entries))
        for name in sorted(entries):
            payload += f"{name}\0{entries[name]}\0".encode()
        return self.record(INFO_CLIENT, DICTIONARY, time, payload)

    def raw(self, data):
        self.body += bytes(data)
        return self

    def finish(self):
        """The bytes of the log, still whole: damage is done to them."""
        length = 128 + len(self.body) if self.final else 0
        head = struct.pack("<4sIHBBIIII", b"LOG:", START_TIME, self.selection, *self.keys,
                           self.duration, length, CLOCK_RATE, START_CLOCK)
        return bytearray(head.ljust(128, b"\0") + self.body)

    def dump(self, data, surviving, code):
        """What a walk delivers: the stream header, the records of these numbers, the last code."""
        lines = [{
            "start_time": START_TIME,
            "client_selection": self.selection,
            "header_key": self.keys[0],
            "data_key": self.keys[1],
            "recording_duration": self.duration,
            "stream_length": int.from_bytes(data[16:20], "little"),
            "clock_rate": CLOCK_RATE,
            "start_clock": START_CLOCK,
        }]
        for record in surviving:
            client, data_id, time, payload = (self.records[record] if isinstance(record, int)
                                              else record)
            lines.append({"client_id": client, "data_id": data_id, "time_ms": time,
                          "size": len(payload), "payload": payload.hex()})
        lines.append({"code": code})
        return lines


def drive(header_key=0, data_key=0):
    """A short drive of two clients with everything that a real log starts with."""
    log = Log(header_key, data_key)
    log.selection, log.duration = 1 << 12 | 1 << 3 | 1 << 5, 2000
    log.dictionary({"Info Client": 12, "GPS": 3, "CAN": 5}, START_CLOCK)
    log.record(INFO_CLIENT, EXTENDED_SELECTION, START_CLOCK, bytes(8))
    for step in range(5):
        time = START_CLOCK + 400 * step
        log.record(3, 1, time, f"$GPRMC,08183{step}.00,A*4L".encode())
        log.record(5, 1, time + 7, struct.pack("<IB3x8s", 0x1A0 + step, 8, b"LLdata" + b"\0\xff"))
    return log


def whole(log):
    data = log.finish()
    return data, log.dump(data, range(len(log.records)), NOT_ENOUGH_DATA)


def without(log, *lost):
    return [number for number in range(len(log.records)) if number not in lost]


def plain():
    return whole(drive())


def scrambled():
    # The header key passes 0 at the second record.
    return whole(drive(0xFF, 0x4C))


def no_records():
    return whole(Log())


def extended_selection():
    log = Log(0x10, 0x20)
    log.selection, log.duration = 0x8000 | 1 << 12, 1000
    log.dictionary({"Info Client": 12, "Radio": 21, "Camera": 63}, START_CLOCK)
    selection = 1 << 12 | 1 << 21 | 1 << 63
    log.record(INFO_CLIENT, EXTENDED_SELECTION, START_CLOCK,
               struct.pack("<Q", selection >> 16 & 0x7FFFFFFFFFFF))
    log.record(21, 0, START_CLOCK + 1, b"low")
    log.record(63, 0xFFFE, START_CLOCK + 2, b"high")
    log.record(64, 1, 0xFFFFFFFF, b"nobody can select this")
    log.record(0xFFFE, 1, 0, b"nor this")
    return whole(log)


def unfinished_header():
    log = drive(0x77, 0x88)
    log.duration, log.final = 0, False
    return whole(log)


def payload_damage(header_key=0, data_key=0):
    log = drive(header_key, data_key)
    data = log.finish()
    data[log.starts[4] + 25] ^= 0x08
    return data, log.dump(data, without(log, 4), NOT_ENOUGH_DATA)


def payload_damage_scrambled():
    return payload_damage(0xA0, 0x5B)


def header_damage():
    log = drive()
    data = log.finish()
    data[log.starts[5] + 9] ^= 0x80
    return data, log.dump(data, without(log, 5), NOT_ENOUGH_DATA)


def header_damage_scrambled():
    # The search knows the damaged record's index alone, so the rest is lost.
    log = drive(0xA0, 0x5B)
    data = log.finish()
    data[log.starts[5] + 9] ^= 0x80
    return data, log.dump(data, range(5), DAMAGED)


def hole_of_zeros():
    log = drive()
    data = log.finish()
    first, last = log.starts[3] + 4, log.starts[6] + 12
    data[first:last] = bytes(last - first)
    return data, log.dump(data, without(log, 3, 4, 5, 6), NOT_ENOUGH_DATA)


def foreign_bytes_between():
    log = drive()
    data = log.finish()
    data[log.starts[4]:log.starts[4]] = bytes(range(0x80, 0x80 + 70))
    return data, log.dump(data, range(len(log.records)), NOT_ENOUGH_DATA)


def record_within_a_record():
    # The outer header is damaged: the whole record in its payload comes to light.
    inner = Log()
    inner.index = 40
    inner.record(9, 9, 9, b"inner")
    log = Log()
    log.record(1, 1, 1, b"before").record(1, 1, 2, b"outer " + inner.body)
    log.record(1, 1, 3, b"after")
    data = log.finish()
    data[log.starts[1] + 17] ^= 0x01
    return data, log.dump(data, [0, (9, 9, 9, b"inner"), 2], NOT_ENOUGH_DATA)


def markers_before_a_header():
    # Behind a damaged header the search takes "LL" and the bytes of the next header for a header
    # of its own, whose payload is out of reach: that record is lost too.
    log = Log()
    log.record(1, 1, 1, b"before").record(1, 1, 2, b"HALL").record(1, 1, 3, b"hidden")
    log.record(1, 1, 4, b"after")
    data = log.finish()
    data[log.starts[1] + 17] ^= 0x01
    return data, log.dump(data, [0, 3], NOT_ENOUGH_DATA)


def cut_in_payload():
    log = drive(0x31, 0x32)
    data = log.finish()[:-1]
    return data, log.dump(data, without(log, len(log.records) - 1), NOT_ENOUGH_DATA)


def cut_in_header():
    log = drive(0x31, 0x32)
    data = log.finish()[:log.starts[-1] + 19]
    return data, log.dump(data, without(log, len(log.records) - 1), NOT_ENOUGH_DATA)


def tail_of_zeros():
    # What a file system leaves when power fails: the length is right, the bytes never came.
    log = drive()
    data = log.finish()
    data[log.starts[-2] + 10:] = bytes(len(data) - log.starts[-2] - 10)
    return data, log.dump(data, range(len(log.records) - 2), DAMAGED)


def endless_payload():
    log = drive()
    checked = struct.pack("<BBIHHII", 0, 0, log.index, 3, 1, START_CLOCK, 0xFFFFFFFF)
    log.raw(struct.pack("<BB", 0x4C, xor(checked)) + checked + b"much less")
    return whole(log)


def ids_not_set():
    # Such a record is reported as damaged, which ends this walk.
    log = Log()
    log.record(1, 1, 1, b"before").record(0xFFFF, 1, 2, b"no client").record(1, 1, 3, b"after")
    data = log.finish()
    return data, log.dump(data, [0], DAMAGED)


def wrong_magic():
    data = drive().finish()
    data[3] = ord(";")
    return data, [None]


def header_cut():
    return drive().finish()[:127], [None]


CASES = [
    plain, scrambled, no_records, extended_selection, unfinished_header, payload_damage,
    payload_damage_scrambled, header_damage, header_damage_scrambled, hole_of_zeros,
    foreign_bytes_between, record_within_a_record, markers_before_a_header, cut_in_payload,
    cut_in_header, tail_of_zeros, endless_payload, ids_not_set, wrong_magic, header_cut,
]


def all_files():
    files = {}
    for case in CASES:
        data, lines = case()
        files[f"{case.__name__}.klog"] = bytes(data)
        text = "".join(json.dumps(line, separators=(",", ":")) + "\n" for line in lines)
        files[f"{case.__name__}.jsonl"] = text.encode()
    return files


def verify(files):
    present = {path.name: path.read_bytes() for path in LOGS.glob("*")}
    wrong = sorted(name for name in files.keys() | present.keys()
                   if files.get(name) != present.get(name))
    for name in wrong:
        print(f"{LOGS / name}: differs from what generate.py writes", file=sys.stderr)
    return not wrong


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--verify", action="store_true", help="compare, write nothing")
    files = all_files()
    if parser.parse_args().verify:
        return 0 if verify(files) else 1
    LOGS.mkdir(exist_ok=True)
    for name, content in files.items():
        (LOGS / name).write_bytes(content)
    return 0


if __name__ == "__main__":
    sys.exit(main())
