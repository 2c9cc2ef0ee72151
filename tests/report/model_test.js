// Sums over time, from which timeline and plots are drawn.
import assert from "node:assert/strict";
import { describe, test } from "node:test";
import { columnsOf, lowerBound, sumColumns } from "../../report/src/columns.js";
import { expandRuns, Sums } from "../../report/src/model.js";
import { speedData, wayOf } from "../../report/src/way.js";
import { niceStep, printable, size, time } from "../../report/src/format.js";

const total = (values) => values.reduce((sum, value) => sum + value, 0);

describe("The model of the report", () => {
  test("expands runs, of which negative numbers are zeros", () => {
    assert.deepEqual([...expandRuns([3, -2, 1], 6)], [3, 0, 0, 1, 0, 0]);
    assert.deepEqual([...expandRuns([-3, 5], 4)], [0, 0, 0, 5]);
  });

  test("tells how much lies between any two times", () => {
    const sums = new Sums([4, 0, 8, 2], 10, 35);
    assert.equal(sums.between(0, 35), 14);
    assert.equal(sums.between(-5, 100), 14);
    assert.equal(sums.between(10, 20), 0);
    assert.equal(sums.between(0, 5), 2);
    assert.equal(sums.between(25, 30), 4);
    assert.equal(sums.between(30, 35), 2);
    assert.equal(new Sums([1, 1], 10, 10).between(5, 10), 1.5);
    assert.equal(new Sums([7], 1, 0).between(0, 1000), 7);
  });

  test("gives every record to a column, at any width", () => {
    const counts = Array.from({ length: 1000 }, (_, i) => (i * 7919) % 5);
    const sums = new Sums(counts, 16, 15990);
    for (const width of [1, 7, 300, 999, 1400]) {
      const columns = sumColumns(sums, { min: 0, max: 15990, span: 15990 }, width);
      assert.ok(Math.abs(total(columns) - total(counts)) < 1e-6, `${width} columns`);
    }
  });

  test("takes the exact times where buckets are too wide and the records are there", () => {
    const client = { times: [100, 150, 150, 199, 200], recordSums: new Sums([5], 256, 200) };
    const view = { min: 100, max: 200, span: 100 };
    const model = { bucketMs: 256, exactUntilMs: Infinity };
    assert.deepEqual([...columnsOf(model, client, view, 4)], [1, 0, 2, 2]);
    const unknown = columnsOf({ ...model, exactUntilMs: 150 }, client, view, 4);
    assert.deepEqual([...unknown], [0.625, 0.625, 0.625, 0.625]);
  });

  test("finds places in sorted times", () => {
    assert.equal(lowerBound([], 5), 0);
    assert.equal(lowerBound([1, 3, 3, 7], 3), 1);
    assert.equal(lowerBound([1, 3, 3, 7], 8), 4);
  });

  test("writes times, sizes and text for people", () => {
    assert.equal(time(3723045), "1:02:03.045");
    assert.equal(time(-1500, 100), "-0:01.5");
    assert.equal(size(1), "1 byte");
    assert.equal(size(1250000), "1.3 MB");
    assert.equal(niceStep(11), 20);
    assert.ok(niceStep(1e16) >= 1e16);
    assert.equal(printable("a\u202eb\u0000\u00e4"), "a\\u202eb\\u0000\u00e4");
  });

  test("breaks a way where no place is known for long", () => {
    const points = [0, 1000, 2000, 3000, 43000, 44000].map((at) => [at, 50, 8, at / 100]);
    const way = wayOf(points);
    assert.deepEqual(way.map((p) => p.isAfterGap), [false, false, false, false, true, false]);
    assert.deepEqual(speedData(way), [[0, 1000, 2000, 3000, 23000, 43000, 44000], [0, 10, 20, 30, null, 430, 440]]);
    assert.deepEqual(speedData(wayOf(points.slice(0, 1))), [[0], [0]]);
  });

  test("goes on across the date line", () => {
    const way = wayOf([[0, 0, 179.999, null], [1000, 0, -179.999, null]]);
    assert.ok(Math.abs(way[1].x - way[0].x - 222.4) < 0.1, `${way[0].x} to ${way[1].x}`);
    assert.ok(Math.abs(way[1].speed - 800.6) < 0.1, `${way[1].speed} km/h`);
  });
});
