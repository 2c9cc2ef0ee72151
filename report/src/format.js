// Numbers, times and bytes as people read them.

const counts = new Intl.NumberFormat("en-US");

export const count = (value) => counts.format(value);

export function counted(value, one, many) {
  return `${count(value)} ${value === 1 ? one : many}`;
}

export function size(bytes) {
  if (bytes < 1000) return counted(bytes, "byte", "bytes");
  let value = bytes;
  for (const unit of ["kB", "MB", "GB"]) {
    value /= 1000;
    if (value < 999.95) return `${value.toFixed(1)} ${unit}`;
  }
  return `${(value / 1000).toFixed(1)} TB`;
}

export function rate(perSecond) {
  if (perSecond === 0) return "0";
  if (perSecond < 0.1) return perSecond.toPrecision(2);
  return perSecond < 10 ? perSecond.toFixed(2) : counts.format(Math.round(perSecond));
}

// 1:02.350, or 1:00:02.350 from an hour on; `step` is how far apart the times stand that are shown.
export function time(ms, step = 1) {
  const whole = Math.round(Math.abs(ms));
  const pad = (value, digits = 2) => String(value).padStart(digits, "0");
  const hours = Math.floor(whole / 3600000);
  const minutes = Math.floor(whole / 60000) % 60;
  const front = hours > 0 ? `${hours}:${pad(minutes)}` : String(minutes);
  const digits = step >= 1000 ? 0 : step >= 100 ? 1 : step >= 10 ? 2 : 3;
  const fraction = digits === 0 ? "" : `.${pad(whole % 1000, 3).slice(0, digits)}`;
  return `${ms < 0 ? "-" : ""}${front}:${pad(Math.floor(whole / 1000) % 60)}${fraction}`;
}

export function span(ms) {
  if (ms < 1000) return `${Math.round(ms)} ms`;
  if (ms < 60000) return `${(ms / 1000).toFixed(ms < 10000 ? 2 : 1)} s`;
  return time(ms, 1000);
}

// 2020-02-07 02:23:30 UTC
export function wallClock(unixMs, withMs = false) {
  const date = new Date(unixMs);
  if (Number.isNaN(date.getTime())) return "unknown";
  const text = date.toISOString().replace("T", " ");
  return `${text.slice(0, withMs ? 23 : 19)} UTC`;
}

// What would not be seen, or would turn the line round, as an escape.
export function printable(text) {
  return text.replace(
    /[\u0000-\u001f\u007f-\u009f\u200b-\u200f\u2028-\u202e\u2060-\u2069\ufeff]/g,
    (c) => `\\u${c.charCodeAt(0).toString(16).padStart(4, "0")}`);
}

const BYTES = Array.from({ length: 256 }, (_, value) => value.toString(16).toUpperCase().padStart(2, "0"));

export const hex = (value, digits = 2) =>
  digits === 2 ? BYTES[value] : value.toString(16).toUpperCase().padStart(digits, "0");

// What times on an axis may stand apart, in ms.
export const TIME_STEPS = [1, 2, 5, 10, 20, 50, 100, 200, 500, 1000, 2000, 5000, 10000, 15000, 30000, 60000, 120000,
  300000, 600000, 900000, 1800000, 3600000, 7200000, 14400000, 43200000, 86400000, 864000000];

// The first of them that is not below `least`; beyond them, so many of the last.
export function niceStep(least) {
  const last = TIME_STEPS.at(-1);
  return TIME_STEPS.find((step) => step >= least) ?? Math.ceil(least / last) * last;
}
