// Bundles src/ and the libraries into one page, template.html, and writes it as a C++ source too:
// report_template.cc, whose two parts stand around the data.
import { createHash } from "node:crypto";
import { readFileSync, writeFileSync } from "node:fs";
import { build } from "esbuild";

const DATA_MARK = "KESTRAV_DATA";

async function bundle(entry) {
  const result = await build({
    entryPoints: [entry],
    bundle: true,
    minify: true,
    format: "iife",
    target: "es2020",
    charset: "ascii",
    legalComments: "none",
    write: false,
  });
  return result.outputFiles[0].text.trim();
}

// What the page lets run: this text and nothing else.
function hashOf(text) {
  return `'sha256-${createHash("sha256").update(text).digest("base64")}'`;
}

function policy(script, style) {
  return [
    "default-src 'none'",
    `script-src ${hashOf(script)}`,
    `style-src ${hashOf(style)}`,
    "base-uri 'none'",
    "form-action 'none'",
  ].join("; ");
}

function licence(name) {
  const text = readFileSync(`node_modules/${name}/LICENSE`, "utf8");
  return `${name}\n\n${text.replaceAll("--", "- -").trim()}`;
}

async function page() {
  const script = await bundle("src/main.js");
  const style = await bundle("src/styles.css");
  if (/<\/script|<!--/i.test(script) || /<\/style/i.test(style)) {
    throw new Error("the bundle would end its own element");
  }
  const parts = { POLICY: policy(script, style), STYLE: style, SCRIPT: script, LICENCES: licence("uplot") };
  return readFileSync("src/index.html", "utf8").replace(/\{\{(\w+)\}\}/g, (_, name) => parts[name]);
}

function byteArray(name, text) {
  const rows = [];
  const bytes = Buffer.from(text, "utf8");
  for (let at = 0; at < bytes.length; at += 64) rows.push([...bytes.subarray(at, at + 64)].join(","));
  return `constexpr char ${name}[] = {\n${rows.join(",\n")}};\n`;
}

function cppSource(head, tail) {
  return `#include "report_template.h"

// Made of report/ by its build.js.

namespace kestrav::tool {
namespace {

${byteArray("kHead", head)}
${byteArray("kTail", tail)}
}  // namespace

std::string_view ReportHead() { return {kHead, sizeof(kHead)}; }
std::string_view ReportTail() { return {kTail, sizeof(kTail)}; }

}  // namespace kestrav::tool
`;
}

const html = await page();
if (/[^\x00-\x7f]/.test(html)) throw new Error("the page is not all ASCII");
const [head, tail, ...more] = html.split(DATA_MARK);
if (tail === undefined || more.length > 0) throw new Error(`not one ${DATA_MARK} in the page`);
writeFileSync("template.html", html);
writeFileSync("report_template.cc", cppSource(head, tail));
