// The report of three real drives, as a person uses it.
import assert from "node:assert/strict";
import { after, afterEach, before, beforeEach, describe, test } from "node:test";
import { assertQuiet, folder, inked, open, run, source, startBrowser, windowOf } from "./browser.js";

const PLOTS = ["timeline", "rate", "bytes", "speed-21"];
const LANE = 40;
const FIRST_LANE = 24;

describe("The report of three drives", () => {
  const place = folder();
  let browser, records, gps, opened, page;

  before(async () => {
    const log = place.file("drive.klog");
    run("import", "-o", log, `GPS=nmea:${source}data/gnss-mountainview.nmea`, `CAN=candump:${source}data/can-falcon.log`,
      `IMU=csv:${source}data/imu-dresden.csv`);
    run("report", log, "-o", place.file("report.html"));
    run("report", log, "-o", place.file("all.html"), "--records", "1000000");
    records = run("cat", "--format", "jsonl", log).trim().split("\n").map((line) => JSON.parse(line));
    gps = records.find((record) => record.client === "GPS").client_id;
    PLOTS[3] = `speed-${gps}`;
    browser = await startBrowser();
  });
  after(async () => {
    await browser?.close();
    place.remove();
  });

  beforeEach(async () => {
    opened = await open(browser, place.file("all.html"));
    page = opened.page;
  });
  afterEach(async () => {
    assertQuiet(opened);
    await opened.context.close();
  });

  const found = async () => Number((await page.textContent("#record-count")).replaceAll(",", "").match(/\d+/)[0]);

  async function assertWindows(check) {
    const wanted = await windowOf(page, "timeline");
    for (const id of PLOTS) assert.deepEqual(await windowOf(page, id), wanted, id);
    assert.ok(check(...wanted), `the window is ${wanted}`);
  }

  async function stageBox() {
    await page.locator("#timeline-stage").scrollIntoViewIfNeeded();
    return page.locator("#timeline-stage").boundingBox();
  }

  async function dragStage(from, to) {
    const box = await stageBox();
    await page.mouse.move(box.x + from * box.width, box.y + 60);
    await page.mouse.down();
    await page.mouse.move(box.x + to * box.width, box.y + 60, { steps: 4 });
    await page.mouse.up();
  }

  test("draws every lane, every plot and the track", async () => {
    const width = await page.locator("#timeline canvas").evaluate((canvas) => canvas.clientWidth);
    const lanes = await page.locator("#timeline .lane-labels .name").allTextContents();
    assert.deepEqual([...lanes].sort(), ["CAN", "GPS", "IMU", "Info Client"]);
    for (let lane = 0; lane < lanes.length; ++lane) {
      const ink = await inked(page, "#timeline canvas", [0, FIRST_LANE + lane * LANE, width, 34]);
      assert.ok(ink > 20, `lane ${lanes[lane]} has ${ink} pixels`);
    }
    for (const id of ["rate", "bytes", `speed-${gps}`, `track-${gps}`]) {
      const ink = await inked(page, `#${id} canvas`);
      assert.ok(ink > 1000, `${id} has ${ink} pixels`);
    }
  });

  test("shows that the bus falls silent", async () => {
    await page.waitForSelector("#marks td >> text=CAN is silent for 5.3");
    const canvas = await page.locator("#timeline canvas").evaluate((c) => c.clientWidth);
    const [min, max] = await windowOf(page, "timeline");
    const lanes = await page.locator("#timeline .lane-labels .name").allTextContents();
    const can = records.filter((record) => record.client === "CAN").map((record) => record.time_ms - 1000);
    const gap = can.findIndex((at, i) => at - can[i - 1] > 5000);
    const x = (at) => ((at - min) / (max - min)) * canvas;
    const top = FIRST_LANE + LANE * lanes.indexOf("CAN");
    const strip = async (at) => inked(page, "#timeline canvas", [x(at), top + 28, x(2000), 5]);
    assert.equal(await strip((can[gap - 1] + can[gap]) / 2 - 1000), 0, "the lane is empty where the bus is silent");
    const busy = await page.locator("#timeline canvas").evaluate((c, [left, y]) => {
      const scale = c.width / c.clientWidth;
      const [lane, drawn] = [c.getContext("2d").getImageData(left[0] * scale, y * scale, 1, 1), c.getContext("2d").getImageData(left[1] * scale, y * scale, 1, 1)];
      return String(lane.data) !== String(drawn.data);
    }, [[x((can[gap - 1] + can[gap]) / 2), x(can[gap - 1] - 3000)], top + 30]);
    assert.ok(busy, "and is filled before");
  });

  test("tells what the log holds", async () => {
    const summary = await page.textContent("#summary");
    assert.match(summary, new RegExp(records.length.toLocaleString("en-US")));
    assert.match(summary, /Whole/);
    assert.match(summary, /Clients43 marks$/);
    assert.equal(await found(), records.length);
    for (const client of ["GPS", "CAN", "IMU"]) {
      const wanted = records.filter((record) => record.client === client).length.toLocaleString("en-US");
      const row = await page.locator("#clients tbody tr", { has: page.locator("th", { hasText: client }) }).textContent();
      assert.ok(row.includes(wanted), `${client}: ${row}`);
    }
  });

  test("zooms all plots together by dragging, by the wheel and by a double click", async () => {
    const [, end] = await windowOf(page, "timeline");
    await dragStage(0.25, 0.5);
    await assertWindows((min, max) => Math.abs(min - end / 4) < end / 50 && Math.abs(max - end / 2) < end / 50);
    const [left, right] = await windowOf(page, "timeline");
    await page.mouse.wheel(0, -200);
    await page.waitForFunction((before) => document.querySelector("#timeline").dataset.max !== String(before), right);
    await assertWindows((min, max) => max - min < 0.8 * (right - left));
    const box = await stageBox();
    await page.mouse.dblclick(box.x + 100, box.y + 60);
    await assertWindows((min, max) => min === 0 && max === end);
    await page.locator("#rate .u-over").scrollIntoViewIfNeeded();
    const plot = await page.locator("#rate .u-over").boundingBox();
    await page.mouse.move(plot.x + 0.5 * plot.width, plot.y + 50);
    await page.mouse.down();
    await page.mouse.move(plot.x + 0.75 * plot.width, plot.y + 50, { steps: 4 });
    await page.mouse.up();
    await assertWindows((min, max) => Math.abs(min - end / 2) < end / 50 && Math.abs(max - 0.75 * end) < end / 50);
    await page.mouse.dblclick(plot.x + 50, plot.y + 50);
    await assertWindows((min, max) => min === 0 && max === end);
  });

  test("leaves the wheel to the page until a plot is clicked", async () => {
    const whole = await windowOf(page, "timeline");
    const box = await stageBox();
    await page.mouse.move(box.x + 200, box.y + 60);
    await page.mouse.wheel(0, 100);
    await page.waitForFunction(() => window.scrollY > 0);
    assert.deepEqual(await windowOf(page, "timeline"), whole);
  });

  test("is driven by the keyboard", async () => {
    const [, end] = await windowOf(page, "timeline");
    await page.keyboard.press("+");
    await assertWindows((min, max) => Math.abs(max - min - end / 2) < 1);
    const [min] = await windowOf(page, "timeline");
    await page.keyboard.press("ArrowRight");
    await assertWindows((now) => now > min);
    await page.keyboard.press("Home");
    await assertWindows((now) => now === 0);
    await page.keyboard.press("End");
    await assertWindows((_, max) => Math.abs(max - end) < 1e-6);
    await page.keyboard.press("-");
    await page.keyboard.press("0");
    await assertWindows((now, max) => now === 0 && max === end);
    await page.keyboard.press("?");
    assert.ok(await page.locator("#help").isVisible());
    await page.keyboard.press("Escape");
    assert.ok(!(await page.locator("#help").isVisible()));
    await page.keyboard.press("/");
    assert.equal(await page.evaluate(() => document.activeElement.id), "filter-text");
    await page.keyboard.type("0+");
    await assertWindows((now, max) => now === 0 && max === end);
    await page.keyboard.press("Escape");
    assert.notEqual(await page.evaluate(() => document.activeElement.id), "filter-text");
  });

  test("filters by client, data id, time, text and the zoomed window", async () => {
    const hex = (record) => Buffer.from(record.payload, "hex");
    const expect = async (wanted) => assert.equal(await found(), records.filter(wanted).length);
    await page.selectOption("#filter-client", { label: "GPS" });
    await expect((record) => record.client === "GPS");
    await page.fill("#filter-id", "1, 2");
    await expect((record) => record.client === "GPS" && [1, 2].includes(record.data_id));
    await page.fill("#filter-from", "10");
    await page.fill("#filter-to", "20");
    const inTime = (record) => record.time_ms - 1000 >= 10000 && record.time_ms - 1000 <= 20000;
    await expect((record) => record.client === "GPS" && [1, 2].includes(record.data_id) && inTime(record));
    await page.click("#filter-clear");
    assert.equal(await found(), records.length);
    await page.fill("#filter-text", "$gnrmc,0224");
    await expect((record) => hex(record).toString("latin1").toLowerCase().includes("$gnrmc,0224"));
    await page.fill("#filter-text", "24 47 4E 52 4D 43 2C 30 32 32 34");
    await expect((record) => hex(record).toString("latin1").toLowerCase().includes("$gnrmc,0224"));
    await page.fill("#filter-text", "800000000a9a0001");
    await expect((record) => record.payload.includes("800000000a9a0001"));
    await page.click("#filter-clear");
    await page.keyboard.press("Escape");
    await page.locator("#records h2").click();
    await page.keyboard.press("+");
    await page.check("#filter-window");
    const [min, max] = await windowOf(page, "timeline");
    await expect((record) => record.time_ms - 1000 >= min && record.time_ms - 1000 <= max);
    await page.fill("#filter-text", "no record says this");
    assert.equal(await found(), 0);
    assert.match(await page.textContent(".rows"), /No record fits/);
  });

  test("scrolls through all records and draws few of them", async () => {
    assert.ok((await page.locator(".rows .row").count()) < 80);
    await page.locator(".records").evaluate((place) => { place.scrollTop = place.scrollHeight; });
    const last = `[data-at="${records.length - 1}"]`;
    await page.waitForSelector(last);
    assert.match(await page.textContent(last), new RegExp(String(records.at(-1).size)));
    assert.ok((await page.locator(".rows .row").count()) < 80);
  });

  test("shows what a record says, decoded and in hex", async () => {
    await page.fill("#filter-text", "$gnrmc");
    await page.click('[data-at="0"]');
    const sentence = await page.textContent(".detail");
    for (const part of ["RMC", "latitude", "3725.29414", "checksum", "6A, right"]) assert.ok(sentence.includes(part), part);
    await page.click("#filter-clear");
    await page.selectOption("#filter-client", { label: "CAN" });
    const first = records.find((record) => record.client === "CAN");
    assert.match(await page.textContent('[data-at="0"]'), /12D\s+\[8\]\s+80 00 00 00 0A 9A 00 01/);
    await page.click('[data-at="0"]');
    const frame = await page.textContent(".detail");
    for (const part of ["0x12D", "standard", "80 00 00 00 0A 9A 00 01"]) assert.ok(frame.includes(part), part);
    await page.click(".switch >> text=Hex");
    const row = (await page.textContent('[data-at="0"] .payload')).replaceAll(" ", "");
    assert.equal(row, first.payload);
    await page.click(".switch >> text=Decoded");
    await page.selectOption("#filter-client", { label: "IMU" });
    await page.click('[data-at="1"]');
    assert.match(await page.textContent(".detail"), /rollrate2\.713pitchrate0\.5565yawrate-18\.713/);
    await page.selectOption("#filter-client", { label: "Info Client" });
    assert.match(await page.textContent('[data-at="0"]'), /dictionary.*CAN = \d+, GPS = \d+, IMU = \d+/);
  });

  test("marks sentences that fail their checksum", async () => {
    await page.selectOption("#filter-client", { label: "GPS" });
    await page.fill("#filter-text", "\u2717");
    assert.equal(await found(), 5);
  });

  test("steps through records and goes to one in the timeline", async () => {
    await page.focus(".records");
    for (const key of ["ArrowDown", "ArrowDown", "ArrowDown", "ArrowUp"]) await page.keyboard.press(key);
    assert.equal(await page.locator(".row[aria-selected=true]").getAttribute("data-at"), "1");
    await page.keyboard.press("End");
    assert.equal(await page.locator(".row[aria-selected=true]").getAttribute("data-at"), String(records.length - 1));
    await page.click(".detail >> text=Show it in the timeline");
    await assertWindows((min, max) => max - min < 2000 && records.at(-1).time_ms - 1000 <= max + 1e-6 && min > 0);
  });

  test("switches clients off in the plots", async () => {
    const before = await inked(page, "#rate canvas");
    const chip = page.locator("#rate .chip", { hasText: "CAN" });
    await chip.click();
    assert.equal(await chip.getAttribute("aria-pressed"), "false");
    assert.notEqual(await inked(page, "#rate canvas"), before);
    await chip.click();
    assert.equal(await inked(page, "#rate canvas"), before);
  });

  test("is light or dark as the system is, and as one wishes", async () => {
    const becomes = (theme) => page.waitForFunction((wanted) => {
      const shade = Number(getComputedStyle(document.body).backgroundColor.match(/\d+/g)[0]);
      return wanted === "dark" ? shade < 60 : shade > 200;
    }, theme, { timeout: 5000 });
    await becomes("light");
    await page.keyboard.press("t");
    await becomes("dark");
    await page.keyboard.press("t");
    await becomes("light");
    await page.emulateMedia({ colorScheme: "dark" });
    await becomes("dark");
    await page.click("#theme");
    await becomes("light");
  });

  test("fits a narrow window and prints in light", async () => {
    await page.setViewportSize({ width: 800, height: 900 });
    await page.waitForFunction(() => document.querySelector("#rate canvas").clientWidth < 780);
    assert.ok(await page.evaluate(() => document.documentElement.scrollWidth <= window.innerWidth));
    await page.keyboard.press("t");
    const pdf = await page.pdf({ preferCSSPageSize: true });
    const pages = pdf.toString("latin1").match(/\/Type\s*\/Page\b/g).length;
    assert.ok(pages >= 2 && pages <= 6, `${pages} pages`);
    assert.equal(await page.evaluate(() => document.documentElement.dataset.theme), "dark");
  });

  test("is laid out for paper alike in any window", async () => {
    const layouts = [];
    for (const width of [1400, 700]) {
      await page.setViewportSize({ width, height: 900 });
      layouts.push(await page.evaluate(() => {
        dispatchEvent(new Event("beforeprint"));
        const widths = ["#timeline canvas", "#timeline-stage", "#rate canvas", ".row.head", ".rows .row .payload"].map((part) =>
          Math.floor(document.querySelector(part).clientWidth));
        const [rows, below] = [".rows", "footer"].map((part) => document.querySelector(part).getBoundingClientRect());
        dispatchEvent(new Event("afterprint"));
        return { widths, isBelow: below.top >= rows.bottom };
      }));
    }
    assert.deepEqual(layouts[0], layouts[1]);
    assert.equal(layouts[0].widths[0], layouts[0].widths[1], "the lanes fill their place");
    assert.ok(layouts[0].isBelow);
  });

  test("says that it carries the first records only", async () => {
    await opened.context.close();
    opened = await open(browser, place.file("report.html"));
    page = opened.page;
    assert.match(await page.textContent("#summary"), new RegExp(`first 20,000 of ${records.length.toLocaleString("en-US")} records`));
    assert.match(await page.textContent("#record-count"), /first 20,000 records, of/);
    await assertWindows((min, max) => min === 0 && max > 100000);
  });
});
