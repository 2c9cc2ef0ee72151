// What the page knows of the log, made of the data that it carries.
import { printable } from "./format.js";

const INFO_CLIENT = 12;
const COLOURS = 7;

// Numbers stand for themselves, a negative one for so many zeros.
export function expandRuns(runs, length) {
  const values = new Float64Array(length);
  let at = 0;
  for (const run of runs) {
    if (run < 0) at -= run;
    else values[at++] = run;
  }
  return values;
}

// Counts over time in buckets, kept as sums from the start on: what lies between any two times
// follows from two of them, so that every resolution is at hand.
export class Sums {
  // `endMs`: the time of the last record; the last bucket reaches up to it.
  constructor(counts, bucketMs, endMs) {
    Object.assign(this, { bucketMs, endMs });
    this.sums = new Float64Array(counts.length + 1);
    counts.forEach((value, i) => { this.sums[i + 1] = this.sums[i] + value; });
  }

  // Up to a time; within a bucket as if it were evenly filled.
  upTo(ms) {
    if (ms <= 0) return 0;
    if (ms >= this.endMs) return this.sums.at(-1);
    const whole = Math.floor(ms / this.bucketMs);
    const start = whole * this.bucketMs;
    const share = (ms - start) / Math.min(this.bucketMs, this.endMs - start);
    return this.sums[whole] + share * (this.sums[whole + 1] - this.sums[whole]);
  }

  between(from, to) {
    return this.upTo(to) - this.upTo(from);
  }
}

function makeRecord(row) {
  return { index: row[0], at: row[1], client: row[2], dataId: row[3], size: row[4], payload: row[5], text: null };
}

function makeClient(json, sumsOf) {
  return {
    id: json.id,
    name: json.name === null ? `client ${json.id}` : printable(json.name),
    records: json.records,
    bytes: json.bytes,
    firstMs: json.first_ms,
    lastMs: json.last_ms,
    longestGapMs: json.longest_gap_ms,
    perSecond: json.per_second,
    dataIds: json.data_ids,
    silences: json.silences,
    recordSums: sumsOf(json.record_runs),
    byteSums: sumsOf(json.byte_runs),
    track: json.track,
    carried: [],
    isRecorder: json.id === INFO_CLIENT,
    shown: true,
  };
}

// The names of columns, when the first record of a client is a line of such.
function columnNames(record) {
  const names = record?.payload[0] === "t" ? record.payload.slice(1).split(",") : [];
  const isName = (text) => /^[^\d$!-][^$!]*$/.test(text.trim());
  return names.length > 1 && names.every(isName) ? names : null;
}

const silencesOf = (client) =>
  client.silences.map(([at, amount]) => ({ kind: "silence", at, amount, client: client.name }));

function makeMark([kind, at, amount, index, offset]) {
  return { kind, at, amount, index, offset };
}

export function makeModel({ records, summary }) {
  const buckets = Math.floor(summary.end_ms / summary.bucket_ms) + 1;
  const sumsOf = (runs) => new Sums(expandRuns(runs, buckets), summary.bucket_ms, summary.end_ms);
  const clients = summary.clients.map((json) => makeClient(json, sumsOf));
  clients.sort((a, b) => a.isRecorder - b.isRecorder);
  clients.forEach((client, i) => {
    client.colour = client.isRecorder ? "--client-recorder" : `--client-${i % COLOURS}`;
  });
  const byId = new Map(clients.map((client) => [client.id, client]));
  const others = byId.get(null);
  const carried = records.map(makeRecord);
  for (const record of carried) (byId.get(record.client) ?? others)?.carried.push(record);
  for (const client of clients) {
    client.times = client.carried.map((record) => record.at).sort((a, b) => a - b);
    client.columns = columnNames(client.carried[0]);
  }
  const isWhole = carried.length === summary.records;
  return {
    summary,
    clients,
    clientOf: (id) => byId.get(id) ?? others,
    bucketMs: summary.bucket_ms,
    endMs: summary.end_ms > 0 ? summary.end_ms : 1000,
    startUnixMs: summary.log.started * 1000,
    records: carried,
    isWhole,
    // Before it every record is carried, so that its exact time can be drawn.
    exactUntilMs: summary.first_left_out_ms ?? Infinity,
    marks: summary.marks.list.map(makeMark),
    markCount: summary.marks.count,
    silences: clients.flatMap(silencesOf),
    markSums: sumsOf(summary.marks.runs),
  };
}
