#!/usr/bin/env python3
"""python/kestrav_log.py reads logs as the library does: the conformance logs as their dumps say,
damaged ones as `kestrav cat` does."""

import contextlib
import datetime
import io
import json
import pathlib
import sys
import tempfile
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).parent))
import logs  # noqa: E402
import kestrav_log  # noqa: E402

PLAIN = logs.CONFORMANCE / "logs/plain.klog"


def dump(record):
    return {"client_id": record.client_id, "data_id": record.data_id, "time_ms": record.time_ms,
            "size": len(record.payload), "payload": record.payload.hex()}


def as_cat_says(record):
    return {"index": record.index, "client": record.client, **dump(record)}


def run_main(*arguments):
    out, err = io.StringIO(), io.StringIO()
    with contextlib.redirect_stdout(out), contextlib.redirect_stderr(err):
        try:
            code = kestrav_log.main([str(argument) for argument in arguments])
        except SystemExit as end:
            code = end.code
    return code, out.getvalue(), err.getvalue()


class ConformanceLogs(unittest.TestCase):
    def test_are_read_as_their_dumps_say(self):
        count = 0
        for path, header, records, code in logs.conformance_logs():
            with self.subTest(path.name), kestrav_log.open_log(path) as log:
                fields = log.header._asdict()
                fields["recording_duration"] = fields.pop("duration_ms")
                self.assertEqual(fields, header)
                self.assertEqual([dump(record) for record in log], records)
                self.assertEqual(log.damaged, code == logs.generate.DAMAGED)
                count += 1
        self.assertGreater(count, 15)

    def test_that_are_none_are_refused(self):
        for name in ("wrong_magic", "header_cut"):
            with self.assertRaises(kestrav_log.NotALog):
                kestrav_log.open_log(logs.CONFORMANCE / f"logs/{name}.klog")


class DamagedLogs(unittest.TestCase):
    def test_are_read_as_the_tool_reads_them(self):
        ends, behind_damage = set(), 0
        with tempfile.TemporaryDirectory() as folder:
            path = pathlib.Path(folder, "damaged.klog")
            for seed in range(80):
                path.write_bytes(logs.damaged_log(seed))
                expected, code = logs.cat(path)
                with self.subTest(seed), kestrav_log.open_log(path) as log:
                    self.assertEqual([as_cat_says(record) for record in log], expected)
                    self.assertEqual(3 if log.damaged else 0, code)
                    ends.add(code)
                    behind_damage += log.damaged is False and len(expected) < 601
        self.assertEqual(ends, {0, 3})
        self.assertGreater(behind_damage, 15)


class Log(unittest.TestCase):
    def test_tells_names_and_the_time_of_the_day(self):
        with kestrav_log.open_log(PLAIN) as log:
            self.assertEqual(log.names, {3: "GPS", 5: "CAN", 12: "Info Client"})
            record = list(log)[3]
        self.assertEqual(record.client, "CAN")
        start = datetime.datetime(2023, 11, 14, 22, 13, 20, tzinfo=datetime.timezone.utc)
        self.assertEqual(record.time, start + datetime.timedelta(milliseconds=7))

    def test_can_be_iterated_again_and_from_bytes(self):
        log = kestrav_log.Log(PLAIN.read_bytes())
        self.assertEqual(list(log), list(log))
        self.assertEqual(log.end, len(PLAIN.read_bytes()))

    def test_counts_time_past_the_wrap_of_the_clock(self):
        log = logs.generate.Log()
        log.record(3, 1, 4999, b"a day later, so to speak")
        (record,) = kestrav_log.Log(bytes(log.finish()))
        self.assertEqual((record.time - datetime.datetime.fromtimestamp(
            logs.generate.START_TIME, datetime.timezone.utc)).total_seconds(), 4294967.295)

    def test_checks_sums_of_every_length(self):
        for size in range(1, 70):
            data = bytes((7 * n) % 256 for n in range(size))
            self.assertEqual(kestrav_log._checksum(data), logs.generate.xor(data))

    def test_takes_only_a_dictionary_that_makes_sense(self):
        for payload, names in [(b"....GPS\0 +3\t\0", {3: "GPS"}), (b"....GPS\0-1\0", {65535: "GPS"}),
                               (b"....GPS\0003\0CAN\0", {3: "GPS"}), (b"....GPS\0x\0", {}),
                               (b"....\0003\0", {}), (b"....GPS\0004294967296\0", {}),
                               (b"....GPS\0003\0GPS\0004\0", {3: "GPS"}), (b"..", {}),
                               (b"....GPS\0" + 5000 * b"9" + b"\0", {})]:
            self.assertEqual(kestrav_log._read_dictionary(payload), names, payload)


class DataFrame(unittest.TestCase):
    def test_has_a_row_a_record(self):
        frame = kestrav_log.to_dataframe(PLAIN)
        self.assertEqual(len(frame), 12)
        self.assertEqual(list(frame["client"][2:4]), ["GPS", "CAN"])
        self.assertEqual(frame["payload"].iloc[2], b"$GPRMC,081830.00,A*4L")
        self.assertEqual(str(frame.index[3]), "2023-11-14 22:13:20.007000+00:00")

    def test_has_the_same_types_without_any_record(self):
        empty = kestrav_log.to_dataframe(PLAIN.with_name("no_records.klog"))
        self.assertEqual(len(empty), 0)
        frame = kestrav_log.to_dataframe(PLAIN)
        self.assertEqual(list(empty.dtypes.astype(str)), list(frame.dtypes.astype(str)))
        self.assertEqual(len(empty["payload"].resample("1s").count()), 0)


class Program(unittest.TestCase):
    def test_prints_text_and_json(self):
        code, out, _ = run_main(PLAIN)
        self.assertEqual((code, len(out.splitlines())), (0, 12))
        self.assertIn("2023-11-14T22:13:20.000+00:00  GPS  1  $GPRMC,081830.00,A*4L", out)
        code, out, _ = run_main("--jsonl", "--client", "GPS", PLAIN)
        lines = [json.loads(line) for line in out.splitlines()]
        self.assertEqual([line["index"] for line in lines], [2, 4, 6, 8, 10])

    def test_tells_by_its_exit_code_how_it_went(self):
        damaged = logs.CONFORMANCE / "logs/header_damage_scrambled.klog"
        code, _, err = run_main(damaged)
        self.assertEqual(code, 3)
        self.assertRegex(err, r"^kestrav_log: .*: \d+ bytes behind the last whole record\n$")
        code, _, err = run_main(damaged.with_name("payload_damage.klog"))
        self.assertEqual(code, 3)
        self.assertTrue(err.endswith(": 1 record missing\n"), err)
        self.assertEqual(run_main(PLAIN)[2], "")
        code, _, err = run_main(damaged.with_name("wrong_magic.klog"))
        self.assertEqual(code, 1)
        self.assertIn("not a log", err)
        self.assertEqual(run_main("/nowhere/a.klog")[0], 1)
        self.assertEqual(run_main("--what")[0], 2)
        self.assertEqual(run_main("--help")[0], 0)

    def test_shows_a_terminal_no_control_characters(self):
        log = logs.generate.Log()
        log.dictionary({"E\x1b[2Jvil": 3}, 0).record(3, 1, 0, b"\x1b]0;evil\x07")
        with tempfile.TemporaryDirectory() as folder:
            path = pathlib.Path(folder, "a.klog")
            path.write_bytes(log.finish())
            _, out, _ = run_main(path)
        self.assertNotIn("\x1b", out)


if __name__ == "__main__":
    unittest.main()
