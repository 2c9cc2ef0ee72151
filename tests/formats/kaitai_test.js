// Reads the plain conformance logs by docs/formats/klog.ksy, and compares with what a reader must
// give of them. The package that compiles it is where npm put it: the working directory.
"use strict";
const fs = require("node:fs");
const path = require("node:path");
const test = require("node:test");
const assert = require("node:assert/strict");
const { createRequire } = require("node:module");

const installed = createRequire(path.join(process.cwd(), "package.json"));
const { KaitaiStream } = installed("kaitai-struct");
const compiler = installed("kaitai-struct-compiler");
const yaml = installed("yaml");

const ROOT = path.join(__dirname, "../..");
const LOGS = path.join(ROOT, "tests/conformance/logs");

async function compile() {
  const text = fs.readFileSync(path.join(ROOT, "docs/formats/klog.ksy"), "utf8");
  const files = await compiler.compile("javascript", yaml.parse(text), null, false);
  const module = { exports: {} };
  new Function("module", "exports", "require", files["Klog.js"])(module, module.exports, installed);
  return module.exports.Klog;
}

const compiled = compile();
const xor = (bytes) => bytes.reduce((sum, byte) => sum ^ byte, 0);

// The bytes of a payload, whether it was parsed or not.
function payloadBytes(record) {
  return record._raw_payload ?? record.payload;
}

// Of the sound records those whose payload is whole.
function dumpRecords(log) {
  const lines = [];
  for (const record of log.records ?? []) {
    if (!record.isSound) break;
    const bytes = payloadBytes(record);
    if (xor(bytes) !== record.header.payloadChecksum) continue;
    const { clientId, dataId, timeStamp, payloadSize } = record.header;
    lines.push({ client_id: clientId, data_id: dataId, time_ms: timeStamp, size: payloadSize,
                 payload: Buffer.from(bytes).toString("hex") });
  }
  return lines;
}

function dumpHeader({ startTime, clientSelection, headerKey, dataKey, recordingDuration,
                      streamLength, clockRate, startClock }) {
  return { start_time: startTime, client_selection: clientSelection, header_key: headerKey,
           data_key: dataKey, recording_duration: recordingDuration, stream_length: streamLength,
           clock_rate: clockRate, start_clock: startClock };
}

const parse = (Klog, name) =>
  new Klog(new KaitaiStream(fs.readFileSync(path.join(LOGS, `${name}.klog`))));
const expected = (name) =>
  fs.readFileSync(path.join(LOGS, `${name}.jsonl`), "utf8").trim().split("\n").map(JSON.parse);

// How many records stand before the place where the definition ends its list.
const PLAIN = {
  plain: 12, no_records: 0, payload_damage: 11, endless_payload: 12,
  header_damage: 5, hole_of_zeros: 3, foreign_bytes_between: 4, record_within_a_record: 1,
  markers_before_a_header: 1, tail_of_zeros: 10,
};

for (const [name, count] of Object.entries(PLAIN)) {
  test(`${name} is read as its dump says`, async () => {
    const log = parse(await compiled, name);
    const [header, ...records] = expected(name);
    assert.deepEqual(dumpHeader(log.header), header);
    assert.deepEqual(dumpRecords(log), records.slice(0, count));
  });
}

test("a scrambled log shows its header and no records", async () => {
  const log = parse(await compiled, "scrambled");
  assert.deepEqual(dumpHeader(log.header), expected("scrambled")[0]);
  assert.equal(log.header.isScrambled, true);
  assert.equal(log.records, undefined);
});

test("what is no log is refused", async () => {
  const Klog = await compiled;
  assert.throws(() => parse(Klog, "wrong_magic"));
  assert.throws(() => parse(Klog, "header_cut"));
});

test("the dictionary and the extended selection are taken apart", async () => {
  const [dictionary, selection] = parse(await compiled, "plain").records;
  assert.deepEqual(dictionary.payload.entries.map((e) => [e.stringId, e.clientId]),
                   [["CAN", "5"], ["GPS", "3"], ["Info Client", "12"]]);
  assert.equal(Number(selection.payload.selection), 0);
});
