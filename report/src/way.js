// The places of a satellite receiver as a way with speeds.

const EARTH_M = 6371008.8;
const RADIANS = Math.PI / 180;

// Metres east and north of the middle of the way; good for a drive, not for a voyage.
function project(points) {
  const middle = (values) => (Math.min(...values) + Math.max(...values)) / 2;
  const latitude = middle(points.map((p) => p[1]));
  // Across the date line they go on counting.
  const east = (lon) => ((lon - points[0][2] + 540) % 360) - 180;
  const longitude = middle(points.map((p) => east(p[2])));
  const narrow = Math.cos(latitude * RADIANS);
  return points.map(([at, lat, lon, speed]) => ({
    at, lat, lon, speed,
    x: (east(lon) - longitude) * RADIANS * EARTH_M * narrow,
    y: (lat - latitude) * RADIANS * EARTH_M,
  }));
}

// Where sentences tell no speed it follows from the places.
function addSpeeds(points) {
  if (points.some((p) => p.speed !== null)) return points;
  points.forEach((p, i) => {
    const before = points[i - 1];
    if (!before || p.at <= before.at) return;
    p.speed = (3600 * Math.hypot(p.x - before.x, p.y - before.y)) / (p.at - before.at);
  });
  return points;
}

// Where no place is known for long: ten times the usual, and some seconds.
function markGaps(points) {
  const steps = points.slice(1).map((p, i) => p.at - points[i].at);
  const usual = [...steps].sort((a, b) => a - b)[steps.length >> 1] ?? 0;
  points.forEach((p, i) => { p.isAfterGap = i > 0 && steps[i - 1] > Math.max(10 * usual, 3000); });
  return points;
}

// The times and speeds for a plot, in which a gap is one without a value.
export function speedData(points) {
  const rows = points.flatMap((p, i) =>
    p.isAfterGap ? [[(points[i - 1].at + p.at) / 2, null], [p.at, p.speed]] : [[p.at, p.speed]]);
  return [rows.map(([at]) => at), rows.map(([, speed]) => speed)];
}

// Of points as the data has them: time, latitude, longitude and speed.
export const wayOf = (points) => markGaps(addSpeeds(project(points)));
