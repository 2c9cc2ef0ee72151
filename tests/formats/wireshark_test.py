#!/usr/bin/env python3
"""tshark with docs/formats/klog.lua shows what the dumps and `kestrav cat` say."""

import pathlib
import subprocess
import sys
import tempfile
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).parent))
import logs  # noqa: E402

READER = logs.ROOT / "docs/formats/klog.lua"
FIELDS = ["frame.number", "frame.time_epoch", "klog.index", "klog.client_id", "klog.client",
          "klog.data_id", "klog.time_ms", "klog.size", "klog.payload"]


def tshark(path, *more):
    """The output lines. Two passes: the second one reads the packets by their offsets."""
    command = ["tshark", "-2", "-X", f"lua_script:{READER}", "-r", path, *more]
    done = subprocess.run(command, capture_output=True, text=True, check=False)
    if done.returncode or "lua" in done.stderr.lower().replace("klog.lua", ""):
        raise AssertionError(f"{command}: {done.returncode}: {done.stderr}")
    return done.stdout.splitlines()


def fields(path, *more, names=tuple(FIELDS)):
    chosen = [argument for name in names for argument in ("-e", name)]
    lines = tshark(path, *more, "-T", "fields", "-E", "occurrence=f", *chosen)
    return [line.split("\t") for line in lines]


def packets(path):
    for number, epoch, _, client_id, client, data_id, time_ms, size, payload in fields(path):
        yield {"index": int(number) - 1, "client_id": int(client_id), "client": client or None,
               "data_id": int(data_id), "time_ms": int(time_ms), "size": int(size),
               "payload": payload.replace(":", "")}, epoch


def expected_epoch(time_ms):
    since_start = (time_ms - logs.generate.START_CLOCK) % 2**32
    return f"{logs.generate.START_TIME + since_start // 1000}.{since_start % 1000:03d}"


class Wireshark(unittest.TestCase):
    maxDiff = 2000

    def check(self, path):
        expected, _ = logs.cat(path)
        shown = list(packets(path))
        self.assertEqual([packet for packet, _ in shown], expected)
        for packet, epoch in shown:
            self.assertEqual(epoch[:-6], expected_epoch(packet["time_ms"]))
            self.assertEqual(epoch[-6:], "000000")
        return expected

    def test_shows_the_conformance_logs_as_their_dumps_say(self):
        for path, _, records, _ in logs.conformance_logs():
            with self.subTest(path.name):
                shown = self.check(path)
                self.assertEqual([{key: packet[key] for key in records[0]} for packet in shown]
                                 if records else shown, records)

    def test_shows_damaged_logs_as_the_tool_does(self):
        with tempfile.TemporaryDirectory() as folder:
            path = pathlib.Path(folder, "damaged.klog")
            for seed in range(6):
                path.write_bytes(logs.damaged_log(seed))
                with self.subTest(seed):
                    self.check(path)

    def test_filters_by_fields(self):
        path = logs.CONFORMANCE / "logs/scrambled.klog"
        shown = fields(path, "-Y", 'klog.client == "GPS" && klog.index > 4',
                       names=("klog.index", "klog.text"))
        self.assertEqual([line[0] for line in shown], ["6", "8", "10"])
        self.assertEqual(shown[0][1], "$GPRMC,081832.00,A*4L")
        (line,) = fields(path, "-Y", "klog.dictionary", names=("klog.index", "_ws.col.Info"))
        self.assertEqual(line, ["0", "Info Client 1200: dictionary of 3 clients"])

    def test_shows_a_long_payload_up_to_what_a_packet_holds(self):
        log = logs.generate.Log(0x12, 0x34)
        log.record(3, 1, 5000, bytes(300001)).record(3, 1, 5001, b"behind it")
        with tempfile.TemporaryDirectory() as folder:
            path = pathlib.Path(folder, "long.klog")
            path.write_bytes(log.finish())
            shown = fields(path, names=("frame.len", "frame.cap_len", "klog.size"))
        self.assertEqual(shown, [["300021", "262144", "300001"], ["29", "29", "9"]])

    def test_leaves_other_files_alone(self):
        for name in ("wrong_magic", "header_cut"):
            with self.assertRaises(AssertionError):
                tshark(logs.CONFORMANCE / f"logs/{name}.klog")


if __name__ == "__main__":
    unittest.main()
