#!/usr/bin/python3
"""Reads a CSV table as Python's csv module and as a data frame library do, checks that both see the
same, that the rows are of one length, and that a spreadsheet would compute none of the cells. Then
prints the rows: index, data_id and the payload in hex.

usage: csv_rows.py TABLE"""
import csv
import re
import sys

import pandas

FORMULA = re.compile(r"[=+\-@\t\r\n]")
NUMBER = re.compile(r"[+-]?(\d+(\.\d*)?|\.\d+)([eE][+-]?\d+)?")


def main():
    with open(sys.argv[1], encoding="utf-8", newline="") as file:
        head, *rows = csv.reader(file, strict=True)
    frame = pandas.read_csv(sys.argv[1], dtype=str, keep_default_na=False)
    assert list(frame.columns) == head, frame.columns
    assert frame.values.tolist() == rows, "pandas reads something else"
    for row in rows:
        assert len(row) == len(head), row
        for cell in row:
            assert not FORMULA.match(cell) or NUMBER.fullmatch(cell), row
    for row in rows:
        record = dict(zip(head, row))
        if "can_id" in record:
            payload = record["can_id"] + "#" + record["data"].removeprefix("0x")
        else:
            assert not (record["text"] and record["payload_hex"]), row
            text = record["text"].encode("utf-8").hex()
            payload = text or record["payload_hex"].removeprefix("0x")
            assert len(payload) == 2 * int(record["size"]), row
        print(record["index"], record["time_ms"], record["time"], record["data_id"], payload)


main()
