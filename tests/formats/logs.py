"""Logs for the tests of the other readers, and what `kestrav cat` says of them."""

import json
import os
import pathlib
import random
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
CONFORMANCE = ROOT / "tests/conformance"
TOOL = os.environ.get("KESTRAV_TOOL", str(ROOT / "build/release/bin/kestrav"))

sys.path[:0] = [str(CONFORMANCE), str(ROOT / "python")]
import generate  # noqa: E402  pylint: disable=wrong-import-position


def conformance_logs():
    """The logs that are logs, and of each the header, the records and the code of its dump."""
    for path in sorted((CONFORMANCE / "logs").glob("*.klog")):
        lines = [json.loads(line) for line in path.with_suffix(".jsonl").read_text().splitlines()]
        if lines != [None]:
            yield path, lines[0], lines[1:-1], lines[-1]["code"]


def cat(path):
    """The records that the tool delivers, and its exit code."""
    done = subprocess.run([TOOL, "cat", "--format", "jsonl", path], capture_output=True, check=False)
    return [json.loads(line) for line in done.stdout.splitlines()], done.returncode


def long_log(header_key, data_key, count, rng):
    log = generate.Log(header_key, data_key)
    log.dictionary({"Info Client": 12, "GPS": 3, "CAN": 5}, generate.START_CLOCK)
    for n in range(count):
        size = rng.choice([1, 2, 30, 30, 30, 60, 200])
        payload = bytes(rng.choice([0x4C, 0, 0xFF, rng.randrange(256)]) for _ in range(size))
        log.record(rng.choice([3, 5, 40]), rng.randrange(9), generate.START_CLOCK + 7 * n, payload)
    return log


def damage(data, rng):
    """Does one kind of harm, or several, behind the stream header."""
    for _ in range(rng.randrange(1, 5)):
        at = rng.randrange(128, len(data))
        kind = rng.randrange(5)
        if kind == 0:
            data[at] ^= 1 << rng.randrange(8)
        elif kind == 1:
            data[at:at + 40] = bytes(len(data[at:at + 40]))
        elif kind == 2:
            del data[at:at + rng.randrange(1, 90)]
        elif kind == 3:
            data[at:at] = bytes(rng.randrange(256) for _ in range(rng.randrange(1, 120)))
        elif rng.randrange(3) == 0:
            del data[max(at, 129):]
    return data


def damaged_log(seed, count=600):
    """Plain and scrambled ones in turn, long enough for the keys to come round."""
    rng = random.Random(seed)
    keys = (0, 0) if seed % 2 else (rng.randrange(256), rng.randrange(256))
    return bytes(damage(long_log(*keys, count, rng).finish(), rng))
