#!/usr/bin/env python3
"""Writes the files from which fuzzing starts, hostile ones among them: log/, dictionary/, settings/
and configuration/.

Files that a fuzzer found stand beside them; their names begin with "found_". With --verify nothing
is written: it fails when a file differs from what would be."""

import argparse
import pathlib
import struct
import sys

HERE = pathlib.Path(__file__).resolve().parent
sys.dont_write_bytecode = True
sys.path.insert(0, str(HERE.parent / "conformance"))

import generate as conformance  # pylint: disable=wrong-import-position

Log, drive, scramble, xor = (conformance.Log, conformance.drive, conformance.scramble,
                             conformance.xor)

MARKER = 0x4C
KEYS = {"plain": (0, 0), "scrambled": (0xA7, 0x3D)}
TOP = 0xFFFFFFFF


def header(size, index=0, client=3, data_id=1, time=5000, payload_sum=0, reserved=0):
    """20 plain bytes of a record header with a checksum that is right, whatever the rest says."""
    checked = struct.pack("<BBIHHII", payload_sum, reserved, index, client, data_id, time, size)
    return struct.pack("<BB", MARKER, xor(checked)) + checked


def lying(keys, size, rest=b"some bytes that follow"):
    """Whole records around a header that announces `size` bytes."""
    log = drive(*keys)
    log.raw(scramble(header(size, log.index), keys[0], log.index))
    log.index += 1
    return log.raw(rest).record(3, 1, 9000, b"behind").finish()


def lying_behind_damage(keys, size):
    """The same where only the search after damage finds it."""
    log = drive(*keys)
    log.raw(b"\xEE" * 30).raw(scramble(header(size, log.index), keys[0], log.index))
    return log.record(3, 1, 9000, b"behind").finish()


def ids(keys):
    log = drive(*keys)
    for client in (0, 15, 16, 62, 63, 64, 0xFFFE):
        log.record(client, client, 6000, bytes([client % 256]) * 5)
    return log.record(3, 0xFFFE, 6001, b"data id").finish()


def unset_id(keys, client, data_id):
    log = drive(*keys)
    return log.record(client, data_id, 6000, b"?").record(3, 1, 6001, b"behind").finish()


def nested(keys, inner_keys, damaged):
    """A log within a record; with `damaged` the record around it cannot be read."""
    inner = bytes(drive(*inner_keys).finish())
    deeper = Log(*keys).record(5, 1, 5100, inner)
    log = drive(*keys).record(3, 2, 5200, bytes(deeper.finish())).record(3, 1, 9000, b"behind")
    data = log.finish()
    if damaged:
        data[log.starts[-2] + 17] ^= 0x01
    return data


def flood(keys, byte, count):
    log = drive(*keys).raw(bytes([byte]) * count)
    return log.record(3, 1, 9000, b"behind").finish()


def flood_in_payload(keys):
    log = drive(*keys).record(3, 1, 5300, bytes([MARKER]) * 1500)
    data = log.record(3, 1, 9000, b"behind").finish()
    data[log.starts[-2] + 1] ^= 0xFF
    return data


def headers(keys, size_of):
    """Nothing but good headers, each of which claims what `size_of` says of the bytes behind it."""
    count = 150
    log = Log(*keys)
    for number in range(count):
        behind = 20 * (count - number - 1)
        plain = header(size_of(behind), log.index, payload_sum=0x55)
        log.raw(scramble(plain, keys[0], log.index))
    return log.finish()


def indices(keys, numbers):
    log = Log(*keys)
    for number, index in enumerate(numbers):
        log.index = index
        log.record(3, 1, 5000 + number, b"index %d" % index)
    return log.finish()


def times(keys, stamps):
    log = Log(*keys)
    for number, stamp in enumerate(stamps):
        log.record(3, 1, stamp, b"%d at %d" % (number, stamp))
    return log.finish()


def damaged_every_third(keys):
    log = drive(*keys)
    for number in range(30):
        log.record(3, 1, 8000 + number, b"record %d" % number)
    data = log.finish()
    for start in log.starts[2::3]:
        data[start + 5] ^= 0x10
    return data


def unfinished(keys):
    log = drive(*keys)
    log.final = False
    return log.finish()


def with_dictionary(keys, payload):
    log = Log(*keys)
    log.selection = 1 << 3 | 1 << 12
    return log.record(12, 1200, 5000, payload).record(3, 1, 5001, b"data").finish()


def entry(name, number):
    return name + b"\0" + number + b"\0"


DICTIONARIES = {
    "usual": entry(b"CAN", b"5") + entry(b"GPS", b"3") + entry(b"Info Client", b"12"),
    "count_alone": b"",
    "one_zero": b"\0",
    "zeros": bytes(60),
    "no_number": entry(b"GPS", b""),
    "no_end": b"GPS\x003",
    "no_name": entry(b"", b"3"),
    "letters": entry(b"GPS", b"three"),
    "blanks_and_sign": entry(b"GPS", b" \t+3\t ") + entry(b"CAN", b"-65531"),
    "above_16_bits": entry(b"GPS", b"65539") + entry(b"CAN", b"4294967295"),
    "above_32_bits": entry(b"GPS", b"4294967296"),
    "endless_number": entry(b"GPS", b"9" * 400),
    "same_name": entry(b"GPS", b"3") + entry(b"GPS", b"5"),
    "same_id": entry(b"CAN", b"3") + entry(b"GPS", b"3"),
    "ids_at_the_limit": entry(b"CAN", b"64") + entry(b"GPS", b"63") + entry(b"Radio", b"65535"),
    "not_ascii": entry("Gerät".encode(), b"4") + entry(b"\xFF\xFE\x80", b"6"),
    "long_name": entry(b"x" * 3000, b"7"),
    "many": b"".join(entry(b"client %d" % n, b"%d" % n) for n in range(300)),
    "markers": entry(b"LLLLLLLLLLLLLLLLLLLLLLLL", b"3"),
}
COUNTS = {"no_number": 1, "usual": 3, "same_id": TOP, "many": 300}


def dictionary_payloads():
    files = {name: struct.pack("<I", COUNTS.get(name, 2)) + entries
             for name, entries in DICTIONARIES.items()}
    return {**files, "empty": b"", "short_count": b"\x01\0\0"}


SETTINGS = {
    "empty": b"",
    "usual": b"binary:GPS,Vehicle Bus\n",
    "comment_first": b"# recorder\r\nother:x\r\nbinary:CAN\r\nbinary:GPS\r\n",
    "number": b"binary:1",
    "other_number": b"binary:2\n",
    "comma_alone": b"binary:,",
    "commas": b"binary:,,GPS,,\n",
    "no_end": b"binary:GPS",
    "blank_before": b" binary:GPS\n",
    "blank_behind": b"binary:GPS ,CAN\n",
    "byte_order_mark": b"\xEF\xBB\xBFbinary:\xC3\x9Cber\xE2\x82\xAC,CAN\n",
    "late_byte_order_mark": b"\n\xEF\xBB\xBFbinary:CAN\n",
    "two_returns": b"binary:GPS\r\r\nbinary:CAN\n",
    "zeros": b"binary:GPS\0,CAN\0\n",
    "bad_utf8": b"binary:\xC3,\xFF\xFE,CAN\n",
    "one_character": b"binary:\xE2\x82\xAC\n",
    "long_line": b"x" * 3000 + b"\nbinary:CAN" + b",x" * 500,
}

CONFIGURATIONS = {
    "empty": b"",
    "usual": b"# of the car\n\n[Kestrav-Settings]\n# Kestrav Settings\nLogging = true\n"
             b"KEY_ENCRYPTION = false\nGPS = 1,mode=3\n\" odd = name\" = \"with a line\\nend\"\n",
    "no_last_end": b"[Kestrav-Settings]\nLogging = yes",
    "carriage_returns": b"[Kestrav-Settings]\r\nGPS = 1\r\n\r\n[Other]\r\na=b\r\n",
    "byte_order_mark": b"\xEF\xBB\xBF[Kestrav-Settings]\nGPS=0\n",
    "section_again": b"[A]\nx=1\n[B]\ny=2\n[A]\nx=3\nz=4\n",
    "bad_section": b"[A]\nx=1\n[B\ny=2\n[]\nz=3\n[\"\"]\n\"\"=\"\"\n",
    "before_a_section": b"a=1\n[A]\na=2\n",
    "no_entry": b"[A]\nneither this\n=nor this\n\"nor this\n",
    "bad_quotes": b"[Kestrav-Settings]\nGPS = \"1\nLogging = \"true\"x\nKEY_ENCRYPTION = \"\\q\"\n",
    "escapes": b"[A]\na = \"\\u0085\\u2028\\\"\\\\\\r\\t\"\nb = \"\\ud800\"\nc=\"\\u00\"\n",
    "refused": b"[Kestrav-Settings]\nLogging = perhaps\nGPS = " + b"9" * 300 + b"\n",
    "bad_utf8": b"[A]\na = \xFF\n\xC3 = 1\n[\xFE]\nb=2\n",
    "zeros": b"[A]\na\0b = c\0d\n\0\n",
    "lone_returns": b"[A]\ra=1\r[B]\nb\r=\r2\n",
    "blank_lines": b"\n\n \t\n[A]\n\n\n",
    "many_problems": b"x\n" * 150,
}


def cuts():
    """A short log that ends too early."""
    log = Log(0x10, 0x20)
    log.record(3, 1, 5000, b"first").record(3, 1, 5001, b"second")
    data = bytes(log.finish())
    return {f"cut_at_{size}": data[:size] for size in (0, 1, 4, 127, 128, 129, 147, 148, 149, 153,
                                                       len(data) - 1)}


def logs_of(kind, keys):
    files = {"usual": drive(*keys).finish(), "unfinished": unfinished(keys), "ids": ids(keys),
             "damaged_every_third": damaged_every_third(keys)}
    for name, size in {"0": 0, "below_2_31": 2**31 - 1, "2_31": 2**31, "wraps": TOP - 19,
                       "wraps_by_one": TOP - 18, "top": TOP}.items():
        files[f"size_{name}"] = lying(keys, size)
        files[f"size_{name}_behind_damage"] = lying_behind_damage(keys, size)
    for name, client, data_id in (("client", 0xFFFF, 1), ("data", 3, 0xFFFF)):
        files[f"{name}_id_not_set"] = unset_id(keys, client, data_id)
    for inner, inner_keys in KEYS.items():
        files[f"nested_{inner}"] = nested(keys, inner_keys, False)
        files[f"nested_{inner}_damaged"] = nested(keys, inner_keys, True)
    files["flood_of_markers"] = flood(keys, MARKER, 3000)
    files["flood_of_scrambled_markers"] = flood(keys, MARKER ^ (keys[0] + 12) % 256, 1000)
    files["flood_of_zeros"] = flood(keys, 0, 3000)
    files["flood_in_payload"] = flood_in_payload(keys)
    files["headers_without_payload"] = headers(keys, lambda behind: 0)
    files["headers_that_claim_the_rest"] = headers(keys, lambda behind: behind)
    files["headers_that_claim_more"] = headers(keys, lambda behind: behind + 1)
    files["headers_that_claim_the_next"] = headers(keys, lambda behind: 20)
    files["index_wraps"] = indices(keys, [TOP - 1, TOP, 0, 1])
    files["index_stands"] = indices(keys, [0, 0, 0, 1, 1])
    files["index_leaps"] = indices(keys, [0, 1, 2**31, 300, 2, TOP])
    files["time_wraps"] = times(keys, [TOP - 2, TOP, 0, 5])
    files["time_goes_back"] = times(keys, [9000, 5000, 1, 9001])
    for name in ("no_number", "above_32_bits", "same_id", "ids_at_the_limit", "many", "not_ascii"):
        files[f"dictionary_{name}"] = with_dictionary(keys, dictionary_payloads()[name])
    return {f"{kind}_{name}": data for name, data in files.items()}


def logs():
    files = {name: data for kind, keys in KEYS.items() for name, data in
             logs_of(kind, keys).items()}
    files.update(cuts())
    files["header_scrambled_alone"] = drive(0x31, 0).finish()
    files["data_scrambled_alone"] = drive(0, 0x31).finish()
    files["key_passes_0"] = drive(0xFE, 0xFF).finish()
    files["markers_alone"] = bytes([MARKER]) * 1000
    files["magic_and_markers"] = b"LOG:" + bytes([MARKER]) * 2000
    files["reserved_set"] = Log().raw(header(1, reserved=7, payload_sum=0x41) + b"A").finish()
    # The reserved bytes 28 and 29 make whoever hands in pieces cut one short.
    for piece in (0, 1, 2):
        data = drive().finish()
        data[28:30] = bytes([1, piece])
        files[f"piece_{piece}_cut"] = data
    return files


def all_files():
    files = {f"log/{name}.klog": data for name, data in logs().items()}
    files.update({f"dictionary/{name}": data for name, data in dictionary_payloads().items()})
    files.update({f"settings/{name}.txt": data for name, data in SETTINGS.items()})
    files.update({f"configuration/{name}.conf": data for name, data in CONFIGURATIONS.items()})
    return {name: bytes(data) for name, data in files.items()}


def verify(files):
    present = {str(path.relative_to(HERE)): path.read_bytes() for path in HERE.glob("*/*")
               if not path.name.startswith("found_")}
    wrong = sorted(name for name in files.keys() | present.keys()
                   if files.get(name) != present.get(name))
    for name in wrong:
        print(f"{HERE / name}: differs from what make_corpus.py writes", file=sys.stderr)
    return not wrong


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--verify", action="store_true", help="compare, write nothing")
    files = all_files()
    if parser.parse_args().verify:
        return 0 if verify(files) else 1
    for name, content in files.items():
        (HERE / name).parent.mkdir(exist_ok=True)
        (HERE / name).write_bytes(content)
    return 0


if __name__ == "__main__":
    sys.exit(main())
