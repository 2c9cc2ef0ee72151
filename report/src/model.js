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

// The same counts in wider and wider buckets, each twice as wide as those before.
export function pyramid(finest) {
  const levels = [finest];
  while (levels.at(-1).length > 64) {
    const below = levels.at(-1);
    const level = new Float64Array(Math.ceil(below.length / 2));
    below.forEach((value, i) => { level[i >> 1] += value; });
    levels.push(level);
  }
  return levels;
}

// The level whose buckets are as wide as `ms`, or the next narrower.
export function levelFor(model, ms) {
  const level = Math.floor(Math.log2(Math.max(ms / model.bucketMs, 1)));
  return Math.min(level, model.levels - 1);
}

export const recordFields = { index: 0, at: 1, client: 2, dataId: 3, size: 4, payload: 5 };

function makeRecord(row) {
  return { index: row[0], at: row[1], client: row[2], dataId: row[3], size: row[4], payload: row[5], text: null };
}

function makeClient(json, buckets) {
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
    recordLevels: pyramid(expandRuns(json.record_runs, buckets)),
    byteLevels: pyramid(expandRuns(json.byte_runs, buckets)),
    track: json.track,
    times: [],
    isRecorder: json.id === INFO_CLIENT,
    shown: true,
  };
}

function makeMark([kind, at, amount, index, offset]) {
  return { kind, at, amount, index, offset };
}

export function makeModel({ records, summary }) {
  const buckets = Math.floor(summary.end_ms / summary.bucket_ms) + 1;
  const clients = summary.clients.map((json) => makeClient(json, buckets));
  clients.sort((a, b) => a.isRecorder - b.isRecorder);
  clients.forEach((client, i) => {
    client.colour = client.isRecorder ? "--client-recorder" : `--client-${i % COLOURS}`;
  });
  const byId = new Map(clients.map((client) => [client.id, client]));
  const others = byId.get(null);
  const carried = records.map(makeRecord);
  for (const record of carried) (byId.get(record.client) ?? others)?.times.push(record.at);
  for (const client of clients) client.times.sort((a, b) => a - b);
  const isWhole = carried.length === summary.records;
  return {
    summary,
    clients,
    clientOf: (id) => byId.get(id) ?? others,
    bucketMs: summary.bucket_ms,
    buckets,
    levels: clients[0]?.recordLevels.length ?? 1,
    endMs: summary.end_ms > 0 ? summary.end_ms : 1000,
    startUnixMs: summary.log.started * 1000,
    records: carried,
    isWhole,
    // Up to here every record is carried, so that its exact time can be drawn.
    exactUntilMs: isWhole ? Infinity : (carried.at(-1)?.at ?? -1),
    marks: summary.marks.list.map(makeMark),
    markCount: summary.marks.count,
    markLevels: pyramid(expandRuns(summary.marks.runs, buckets)),
  };
}
