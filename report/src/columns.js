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
    // By its share of each column, so that even records make an even lane.
    const [left, right] = [(i * bucketMs - view.min) / msPerColumn, ((i + 1) * bucketMs - view.min) / msPerColumn];
    const end = Math.min(Math.ceil(right), columns.length);
    for (let x = Math.max(Math.floor(left), 0); x < end; ++x) {
      columns[x] += (values[i] * (Math.min(right, x + 1) - Math.max(left, x))) / (right - left);
    }
  }
}
