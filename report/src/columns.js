// How many records stand in each column of pixels.
import { levelFor } from "./model.js";

// The first place of a sorted array whose value is not below `wanted`.
export function lowerBound(values, wanted) {
  let low = 0;
  let high = values.length;
  while (low < high) {
    const middle = (low + high) >> 1;
    if (values[middle] < wanted) low = middle + 1;
    else high = middle;
  }
  return low;
}

// Counts of a client's records in `width` columns over the window of `view`. Where the window is
// narrower than the buckets can show, the carried records say it exactly, as far as they reach.
export function columnsOf(model, client, view, width) {
  const columns = new Float64Array(width);
  const msPerColumn = view.span / width;
  if (msPerColumn < model.bucketMs && view.max <= model.exactUntilMs) {
    const end = lowerBound(client.times, view.max);
    for (let i = lowerBound(client.times, view.min); i < end; ++i) {
      ++columns[Math.min(Math.floor((client.times[i] - view.min) / msPerColumn), width - 1)];
    }
    return columns;
  }
  spread(client.recordLevels, model, view, columns);
  return columns;
}

export function spread(levels, model, view, columns) {
  const msPerColumn = view.span / columns.length;
  const level = levelFor(model, msPerColumn);
  const bucketMs = model.bucketMs * 2 ** level;
  const values = levels[level];
  const first = Math.max(Math.floor(view.min / bucketMs), 0);
  const last = Math.min(Math.floor(view.max / bucketMs), values.length - 1);
  for (let i = first; i <= last; ++i) {
    if (values[i] === 0) continue;
    const from = Math.max(Math.floor((i * bucketMs - view.min) / msPerColumn), 0);
    const to = Math.min(Math.max(Math.ceil(((i + 1) * bucketMs - view.min) / msPerColumn), from + 1), columns.length);
    for (let x = from; x < to; ++x) columns[x] += values[i] / (to - from);
  }
}
