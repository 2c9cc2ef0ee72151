// What the payloads say. A record's payload is text behind a "t", or hex behind an "h".
import { hex, printable } from "./format.js";

const INFO_CLIENT = 12;
const DICTIONARY = 1200;
const SELECTION = 134;

export function bytesOf({ payload }) {
  const isText = payload[0] === "t";
  const bytes = new Uint8Array((payload.length - 1) / (isText ? 1 : 2));
  for (let i = 0; i < bytes.length; ++i) {
    bytes[i] = isText ? payload.charCodeAt(1 + i) : 16 * digitAt(payload, 1 + 2 * i) + digitAt(payload, 2 + 2 * i);
  }
  return bytes;
}

// Of a hexadecimal digit in small letters.
function digitAt(text, at) {
  const code = text.charCodeAt(at);
  return code < 0x3a ? code - 0x30 : code - 0x57;
}

export const hexOf = (record) =>
  Array.from(bytesOf(record), (byte) => byte.toString(16).padStart(2, "0")).join(" ");

// { kind, label, text, fields }: `label` is a word or two, `fields` are pairs of name and value.
export function decode(record) {
  const isOwn = record.client === INFO_CLIENT;
  if (record.payload[0] === "t" && !isOwn) {
    const text = record.payload.slice(1);
    return decodeSentence(text) ?? plainText(text);
  }
  const bytes = bytesOf(record);
  return (isOwn ? decodeRecorder(record, bytes) : decodeFrame(record, bytes)) ?? decodeOther(bytes);
}

const plainText = (text) => ({ kind: "text", label: "text", text, fields: [] });

function decodeOther(bytes) {
  const text = decodeUtf8(bytes);
  if (text !== null) return decodeSentence(text.trimEnd()) ?? plainText(printable(text));
  return { kind: "bytes", label: "bytes", text: Array.from(bytes, (b) => hex(b)).join(" "), fields: [] };
}

// Null: it is not text, or hardly.
function decodeUtf8(bytes) {
  try {
    const text = new TextDecoder("utf-8", { fatal: true, ignoreBOM: true }).decode(bytes);
    return /[\u0000-\u0008\u000e-\u001f]/.test(text) ? null : text;
  } catch {
    return null;
  }
}

// --- the recorder's own records

function decodeRecorder(record, bytes) {
  if (record.dataId === DICTIONARY && bytes.length >= 4) return decodeDictionary(record, bytes);
  if (record.dataId !== SELECTION || bytes.length !== 8) return null;
  const ids = [];
  for (let bit = 0; bit < 64; ++bit) if (bytes[bit >> 3] & (1 << (bit & 7))) ids.push(bit + 16);
  const text = ids.length === 0 ? "none above 15" : ids.join(", ");
  return { kind: "recorder", label: "selection", text: `ids ${text}`, fields: [["ids selected", text]] };
}

function decodeDictionary(record, bytes) {
  const words = new TextDecoder().decode(bytes.subarray(4)).split("\0");
  if (record.size === bytes.length) words.pop();  // what was cut off has no end
  const fields = [];
  for (let i = 0; i + 1 < words.length; i += 2) fields.push([printable(words[i]), printable(words[i + 1])]);
  const text = fields.map(([name, id]) => `${name} = ${id}`).join(", ");
  return { kind: "recorder", label: "dictionary", text, fields };
}

// --- sentences of satellite receivers

const SENTENCES = {
  RMC: ["time", "status", "latitude", "N/S", "longitude", "E/W", "speed (knots)", "course (\u00b0)", "date",
    "magnetic variation", "E/W", "mode", "navigational status"],
  GGA: ["time", "latitude", "N/S", "longitude", "E/W", "fix quality", "satellites", "HDOP", "altitude", "unit",
    "geoid separation", "unit", "age of correction", "reference station"],
  GSA: ["mode", "fix", ...Array.from({ length: 12 }, (_, i) => `satellite ${i + 1}`), "PDOP", "HDOP", "VDOP", "system"],
  GSV: ["messages", "message", "satellites in view",
    ...Array.from({ length: 4 }, (_, i) => ["satellite", "elevation (\u00b0)", "azimuth (\u00b0)", "C/N0 (dB-Hz)"].map((n) => `${n} ${i + 1}`)).flat(),
    "signal"],
  VTG: ["course (\u00b0)", "true", "course (\u00b0)", "magnetic", "speed (knots)", "unit", "speed (km/h)", "unit", "mode"],
  GLL: ["latitude", "N/S", "longitude", "E/W", "time", "status", "mode"],
  ZDA: ["time", "day", "month", "year", "zone (h)", "zone (min)"],
  GST: ["time", "RMS", "major axis (m)", "minor axis (m)", "orientation (\u00b0)", "latitude error (m)", "longitude error (m)", "altitude error (m)"],
};

export function decodeSentence(text) {
  const match = /^[$!]([A-Z0-9]{4,})((?:,[^*]*)?)(?:\*(.*))?$/.exec(text);
  if (!match) return null;
  const [, address, body, stated] = match;
  const isProprietary = address[0] === "P";
  const type = isProprietary ? address : address.slice(-3);
  const names = SENTENCES[isProprietary ? "" : type] ?? [];
  const fields = [["talker", isProprietary ? "proprietary" : address.slice(0, -3)], ["sentence", type]];
  body.slice(1).split(",").forEach((value, i) => fields.push([names[i] ?? `field ${i + 1}`, printable(value)]));
  fields.push(["checksum", checksumText(text, stated)]);
  const isWrong = stated !== undefined && !checksumFits(text, stated);
  return { kind: "nmea", label: isWrong ? `${type} \u2717` : type, text: printable(text), fields, isWrong };
}

function checksumFits(text, stated) {
  let sum = 0;
  for (const c of text.slice(1, text.indexOf("*"))) sum ^= c.charCodeAt(0);
  return hex(sum & 0xff) === stated.toUpperCase();
}

function checksumText(text, stated) {
  if (stated === undefined) return "none";
  return `${printable(stated)}, ${checksumFits(text, stated) ? "right" : "wrong"}`;
}

// --- CAN frames: sixteen bytes, of which a frame leaves some 0

function decodeFrame(record, bytes) {
  if (record.size !== 16 || bytes.length !== 16 || bytes[4] > 8) return null;
  const word = (bytes[0] | (bytes[1] << 8) | (bytes[2] << 16) | (bytes[3] << 24)) >>> 0;
  const isExtended = word >= 0x80000000;
  const isRemote = (word & 0x40000000) !== 0;
  const isError = (word & 0x20000000) !== 0;
  const used = isRemote ? 0 : bytes[4];
  if (bytes.subarray(5, 8).some(Boolean) || bytes.subarray(8 + used).some(Boolean)) return null;
  const id = hex(word & (isExtended || isError ? 0x1fffffff : 0x7ff), isExtended || isError ? 8 : 3);
  const data = Array.from(bytes.subarray(8, 8 + used), (byte) => hex(byte)).join(" ");
  const kind = [isExtended ? "extended" : "standard", isRemote && "remote", isError && "error"].filter(Boolean).join(", ");
  return {
    kind: "can",
    label: isError ? "CAN error" : isRemote ? "CAN remote" : "CAN",
    text: `${id}  [${bytes[4]}]  ${isRemote ? "remote request" : data}`,
    fields: [["id", `0x${id}`], ["frame", kind], ["length (DLC)", String(bytes[4])], ["data", data || "none"]],
  };
}

// Lines of a table have the names of its columns: pairs as in `fields`. Null: it is no such line.
export function namedColumns(record, client) {
  const names = client.columns;
  const values = record.payload[0] === "t" ? record.payload.slice(1).split(",") : [];
  const isWhole = record.payload.length - 1 === record.size;
  if (names === null || !isWhole || values.length !== names.length) return null;
  return names.map((name, i) => [printable(name), printable(values[i])]);
}

// What a search looks through; kept, since it is asked at every key.
export function searchText(record) {
  if (record.text === null) {
    const decoded = decode(record);
    const bytes = record.payload[0] === "h" ? record.payload.slice(1) : "";
    record.text = `${decoded.label} ${decoded.text} ${bytes}`.toLowerCase();
  }
  return record.text;
}

// What the hex digits of four bytes or more spell, as `searchText` has it; other words stay. Fewer
// digits are more often a number than a text.
export function spelled(words) {
  const digits = words.replace(/\s+/g, "");
  if (!/^([0-9a-f]{2}){4,}$/.test(digits)) return words;
  return digits.replace(/../g, (pair) => String.fromCharCode(parseInt(pair, 16))).toLowerCase();
}

// Rows of eight bytes, which fit beside the table and on a phone: offset, hex, characters.
export function hexDump(record) {
  const bytes = bytesOf(record);
  const rows = [];
  for (let at = 0; at < bytes.length; at += 8) {
    const row = Array.from(bytes.subarray(at, at + 8));
    const left = row.map((byte) => byte.toString(16).padStart(2, "0")).join(" ").padEnd(23);
    const right = row.map((byte) => (byte >= 32 && byte < 127 ? String.fromCharCode(byte) : ".")).join("");
    rows.push(`${at.toString(16).padStart(4, "0")}  ${left}  ${right}`);
  }
  return rows.join("\n");
}
