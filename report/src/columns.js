// How many records stand in each column of pixels.

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
  const msPerColumn = view.span / width;
  if (msPerColumn < model.bucketMs && view.max < model.exactUntilMs) {
    const columns = new Float64Array(width);
    const end = lowerBound(client.times, view.max + 0.001);
    for (let i = lowerBound(client.times, view.min); i < end; ++i) {
      ++columns[Math.min(Math.floor((client.times[i] - view.min) / msPerColumn), width - 1)];
    }
    return columns;
  }
  return sumColumns(client.recordSums, view, width);
}

export function sumColumns(sums, view, width) {
  const columns = new Float64Array(width);
  let before = sums.upTo(view.min);
  for (let x = 0; x < width; ++x) {
    const after = sums.upTo(view.min + ((x + 1) * view.span) / width);
    columns[x] = after - before;
    before = after;
  }
  return columns;
}
