// A log made to hurt who looks at it, and damaged ones.
import assert from "node:assert/strict";
import { writeFileSync } from "node:fs";
import { after, before, describe, test } from "node:test";
import { assertQuiet, folder, inked, open, runAny, startBrowser } from "./browser.js";
import { LogBuilder } from "./log_builder.js";

const MANY = 400_000;

const NAME = '</script><script>window.pwned=1</script><img src="x" onerror="window.pwned=2">';
const TEXTS = [
  "<img src=x onerror=window.pwned=3>",
  "</script><script>window.pwned=4</script>",
  "<!--<script>window.pwned=5",
  "]]>\"'`&lt;&amp;\\u003cscript\\u003e",
  "$GPTXT,<svg onload=window.pwned=6>*00",
  "javascript:window.pwned=7",
  "{{constructor}}${window.pwned=8}",
];

function hostileLog() {
  const log = new LogBuilder();
  log.dictionary({ [NAME]: 21, "GPS\u202e<b>": 22, "constructor": 23, "__proto__x": 24 });
  TEXTS.forEach((text, i) => log.record(21 + (i % 4), i, 100 * i, text));
  log.record(22, 1, 800, Buffer.from([0xff, 0xfe, 0x3c, 0x73, 0x00, 0x1b, 0x5b, 0x32, 0x4a]));
  log.record(22, 1, 900, "\u2028\u2029\u0000\u0007\u001b[2J\u202e<script>");
  log.record(12, 1200, 950, Buffer.concat([Buffer.alloc(4, 255), Buffer.from("<script>\0<b>\0\0")]));
  log.record(65000, 65000, 1000, "<i>far</i>");
  return log.build();
}

describe("A report of hostile and damaged logs", () => {
  const place = folder();
  let browser;
  before(async () => { browser = await startBrowser(); });
  after(async () => {
    await browser?.close();
    place.remove();
  });

  async function report(name, bytes, wanted, ...more) {
    writeFileSync(place.file(name), bytes);
    const { status, stderr } = runAny("report", place.file(name), "-o", place.file("report.html"), ...more);
    assert.equal(status, wanted, stderr);
    return open(browser, place.file("report.html"));
  }

  test("runs nothing and shows all of it as text", async () => {
    const opened = await report(`<img src=x onerror=window.pwned=9>"'&.klog`, hostileLog(), 0);
    const { page, context } = opened;
    const table = await page.textContent(".rows");
    for (const text of TEXTS) assert.ok(table.includes(text), text);
    for (let at = 0; at < TEXTS.length + 5; ++at) {
      await page.click(`[data-at="${at}"]`);
      assert.match(await page.textContent(".detail"), /record \d/);
    }
    const box = await page.locator("#timeline-stage").boundingBox();
    await page.mouse.move(box.x + 20, box.y + 40);
    assert.equal(await page.evaluate(() => window.pwned), undefined);
    assert.equal(await page.locator("main script, main img, main svg, main b, main i").count(), 0);
    assert.ok((await page.textContent("#clients")).includes(NAME));
    assert.ok((await page.textContent("h1")).includes("<img src=x onerror=window.pwned=9>\"'&.klog"));
    assert.ok(!(await page.textContent("body main")).includes("\u202e"), "nothing turns the writing round");
    await page.setViewportSize({ width: 390, height: 800 });
    await page.waitForFunction(() => document.querySelector("#rate canvas").clientWidth < 390);
    const wide = await page.evaluate(() => [...document.querySelectorAll("main *")]
      .filter((one) => one.getBoundingClientRect().right > window.innerWidth && !one.closest(".scroll > *, .records > *, pre"))
      .map((one) => `${one.tagName} ${one.className} ${one.textContent.slice(0, 30)}`));
    assert.deepEqual(wide, [], "it fits a phone");
    assertQuiet(opened);
    await context.close();
  });

  test("would run no foreign script and fetch nothing even if one got in", async () => {
    const { page, context, watched } = await report("a.klog", hostileLog(), 0);
    const [fetchedAll, refused] = [[], []];
    page.on("requestfinished", (request) => fetchedAll.push(request.url()));
    page.on("requestfailed", (request) => refused.push(request.failure().errorText));
    await page.evaluate(() => {
      document.body.append(Object.assign(document.createElement("script"), { textContent: "window.pwned = 1" }));
      document.body.insertAdjacentHTML("beforeend", "<img src=x onerror='window.pwned=2'><iframe src='other.html'></iframe>");
    });
    const fetched = await page.evaluate(() => fetch("http://127.0.0.1:9/").then(() => "yes", () => "no"));
    assert.equal(fetched, "no");
    assert.equal(await page.evaluate(() => window.pwned), undefined);
    assert.ok(watched.errors.some((text) => text.includes("Content Security Policy")), "the policy speaks up");
    assert.deepEqual(fetchedAll, []);
    assert.ok(refused.every((why) => why === "csp"), String(refused));
    await context.close();
  });

  test("lists damage, gaps and jumps of time", async () => {
    const log = new LogBuilder(1000).dictionary({ GPS: 21 }, 1000);
    for (let i = 0; i < 200; ++i) log.record(21, 1, 1000 + 10 * i, `line ${i}`);
    log.raw([1, 2, 3]).record(21, 1, 3000, "lost").record(21, 1, 3000, "found");
    log.index += 7;
    log.record(21, 1, 3100, "gap").record(21, 1, 2500, "back").record(21, 1, 90000, "ahead").raw(Buffer.alloc(9));
    const opened = await report("damaged.klog", log.build(), 3);
    const { page, context } = opened;
    assert.match(await page.textContent("#summary"), /Damaged.*27 bytes damaged in 1 place, 8 records missing, 9 bytes behind/);
    const marks = await page.locator("#marks tbody tr").allTextContents();
    for (const wanted of [/2\.000damage27 bytes skipped/, /2\.000missing1 record missing/, /2\.100missing7 records missing/,
      /1\.500time goes backby 600 ms/, /1:29\.000time jumps aheadby 1:27/, /damaged end9 bytes lost/]) {
      assert.ok(marks.some((text) => wanted.test(text)), `${wanted} in ${marks}`);
    }
    await page.click("#marks tbody tr:first-child button");
    const whole = await page.locator("#timeline").evaluate((timeline) => Number(timeline.dataset.max));
    assert.ok(whole < 89000);
    assertQuiet(opened);
    await context.close();
  });

  test("keeps its shape with many clients", async () => {
    const log = new LogBuilder();
    for (let i = 0; i < 3000; ++i) log.record(100 + (i % 30), 1, i, "x");
    const opened = await report("many.klog", log.build(), 0);
    const { page, context } = opened;
    const width = await page.locator("#timeline canvas").evaluate((canvas) => canvas.clientWidth);
    assert.ok((await inked(page, "#timeline canvas", [0, 26, width, 14])) > 50, "times stand above the lanes");
    const heights = () => page.evaluate(() => ["rate", "bytes", "timeline"].map((id) => document.getElementById(id).offsetHeight));
    const before = await heights();
    const box = await page.locator("#timeline-stage").boundingBox();
    await page.mouse.move(box.x + 300, box.y + 60);
    assert.match(await page.textContent("#rate .readout"), /client 1\d\d/);
    assert.deepEqual(await heights(), before);
    assertQuiet(opened);
    await context.close();
  });

  test("scrolls through more records than a browser makes a list high", async () => {
    const log = new LogBuilder();
    for (let i = 0; i < MANY; ++i) log.record(21, 1, i >> 4, "x");
    const { page, context } = await report("long.klog", log.build(), 0, "--records", String(MANY));
    const seen = () => page.evaluate(() => {
      const list = document.querySelector(".records");
      const { top, bottom } = list.getBoundingClientRect();
      const rows = [...document.querySelectorAll(".rows .row")].filter((row) => {
        const box = row.getBoundingClientRect();
        return box.top >= top + 27 && box.bottom <= bottom + 1;
      });
      return { high: list.scrollHeight, first: Number(rows[0].dataset.at), last: Number(rows.at(-1).dataset.at) };
    });
    assert.ok((await seen()).high < 10e6);
    assert.equal((await seen()).first, 0);
    await page.focus(".records");
    await page.keyboard.press("End");
    assert.equal((await seen()).last, MANY - 1);
    for (const key of ["PageUp", "ArrowUp"]) await page.keyboard.press(key);
    const at = Number(await page.locator(".row[aria-selected=true]").getAttribute("data-at"));
    const { first, last } = await seen();
    assert.ok(first <= at && at <= last, `${at} in ${first} to ${last}`);
    await page.locator(".records").evaluate((list) => { list.scrollTop = list.scrollHeight / 2; });
    await page.waitForFunction((half) => Math.abs(Number(document.querySelector(".rows .row").dataset.at) - half) < 100, MANY / 2);
    await context.close();
  });

  test("draws a log whose clock leaps over a thousand years", async () => {
    const log = new LogBuilder();
    for (let i = 0; i < 20000; ++i) log.record(21, 1, (i * 0x7fffffff) % 2 ** 32, "x");
    const opened = await report("leaps.klog", log.build(), 0);
    assert.match(await opened.page.textContent("#marks"), /The first 500 of 19,999/);
    for (const key of ["+", "ArrowRight", "-", "0"]) await opened.page.keyboard.press(key);
    assertQuiet(opened);
    await opened.context.close();
  });

  test("shows a log without any record", async () => {
    const opened = await report("empty.klog", new LogBuilder().build(), 0);
    assert.match(await opened.page.textContent("#records"), /No record fits/);
    for (const key of ["+", "ArrowLeft", "0", "End"]) await opened.page.keyboard.press(key);
    assertQuiet(opened);
    await opened.context.close();
  });
});
