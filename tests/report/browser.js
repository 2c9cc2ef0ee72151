// A browser that opens reports from disk and notices whatever a page must not do.
import assert from "node:assert/strict";
import { execFileSync, spawnSync } from "node:child_process";
import { mkdtempSync, rmSync } from "node:fs";
import { createRequire } from "node:module";
import { tmpdir } from "node:os";
import { join } from "node:path";
import { pathToFileURL } from "node:url";

const { chromium } = createRequire(`${process.env.KESTRAV_PACKAGES}/`)("playwright-core");
const tool = process.env.KESTRAV_TOOL;

export const source = new URL("../../", import.meta.url).pathname;

export function run(...args) {
  return execFileSync(tool, args, { encoding: "utf8", maxBuffer: 1 << 28 });
}

// The exit code and what was said.
export function runAny(...args) {
  const { status, stderr } = spawnSync(tool, args, { encoding: "utf8" });
  return { status, stderr };
}

export function folder() {
  const path = mkdtempSync(join(tmpdir(), "kestrav-report-"));
  return { path, file: (name) => join(path, name), remove: () => rmSync(path, { recursive: true }) };
}

export async function startBrowser() {
  const executablePath = process.env.KESTRAV_CHROMIUM;
  assert.ok(executablePath && !executablePath.endsWith("NOTFOUND"), "no Chromium; scripts/setup installs it");
  return chromium.launch({
    executablePath,
    args: ["--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run", "--disable-background-networking",
      "--disable-component-update", "--disable-sync"],
  });
}

// Opens a page and waits until it has drawn. `watched` gathers requests and errors.
export async function open(browser, path, options = {}) {
  const context = await browser.newContext({ viewport: { width: 1400, height: 900 }, ...options });
  const page = await context.newPage();
  const watched = { requests: [], errors: [] };
  page.on("request", (request) => watched.requests.push(request.url()));
  page.on("console", (message) => {
    const isComplaint = message.type() === "error" || message.type() === "warning";
    // That one is about the tests, which read canvases back.
    if (isComplaint && !message.text().includes("willReadFrequently")) watched.errors.push(message.text());
  });
  page.on("pageerror", (error) => watched.errors.push(String(error)));
  const url = pathToFileURL(path).href;
  await page.goto(url);
  await page.waitForSelector("#timeline[data-max]");
  return { page, context, watched, url };
}

// It asked for itself alone, and complained of nothing.
export function assertQuiet({ watched, url }) {
  assert.deepEqual(watched.requests, [url]);
  assert.deepEqual(watched.errors, []);
}

// How many pixels of a canvas, or of a part of it in CSS pixels, are not as its first one.
export async function inked(page, selector, area = null) {
  return page.locator(selector).first().evaluate((canvas, part) => {
    const scale = canvas.width / canvas.clientWidth;
    const [x, y, width, height] = (part ?? [0, 0, canvas.clientWidth, canvas.clientHeight]).map((n) => Math.round(n * scale));
    const { data } = canvas.getContext("2d").getImageData(x, y, width, height);
    const pixels = new Uint32Array(data.buffer);
    return pixels.filter((pixel) => pixel !== pixels[0]).length;
  }, area);
}

// The window of time that a section shows, in ms.
export async function windowOf(page, id) {
  return page.locator(`#${id}`).evaluate((place) => [Number(place.dataset.min), Number(place.dataset.max)]);
}
