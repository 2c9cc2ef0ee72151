// What the log is, at a glance, and what each client recorded.
import { element, section } from "./dom.js";
import { count, counted, printable, rate, size, span, time, wallClock } from "./format.js";

function fact(name, value, note, attributes = {}) {
  return element("div", { class: "fact", ...attributes },
    element("dt", {}, name), element("dd", {}, value, note ? element("small", {}, note) : null));
}

function stateOf(summary) {
  if (summary.loss !== "") return { class: "bad", text: "Damaged", note: summary.loss };
  if (!summary.log.finished) return { class: "warn", text: "Not finished", note: "the recording was cut off or still runs" };
  return { class: "good", text: "Whole", note: "nothing is lost" };
}

function filterText(filter) {
  const parts = [];
  if (filter.clients.length > 0) parts.push(`of ${filter.clients.map(printable).join(", ")}`);
  if (filter.from_s !== undefined) parts.push(`from ${time(filter.from_s * 1000)}`);
  if (filter.to_s !== undefined) parts.push(`to ${time(filter.to_s * 1000)}`);
  return parts.join(" ");
}

// What the page does not hold, in words.
function limits(model) {
  const { summary } = model;
  const notes = [];
  const filtered = filterText(summary.filter);
  if (filtered !== "") {
    notes.push(`Only records ${filtered} are shown: ${count(summary.records)} of ${count(summary.all_records)}.`);
  }
  if (!model.isWhole) {
    notes.push(`The table holds the first ${count(model.records.length)} of ${count(summary.records)} records. ` +
      "Timeline, plots and counts are of all of them.");
  }
  return notes.map((text) => element("p", { class: "note" }, text));
}

export function summarySection(model) {
  const { summary } = model;
  const { log } = summary;
  const state = stateOf(summary);
  const bytes = model.clients.reduce((sum, client) => sum + client.bytes, 0);
  const duration = log.duration_ms > 0 ? log.duration_ms : summary.end_ms;
  const [day, ...clock] = wallClock(model.startUnixMs).split(" ");
  return section("summary", "Summary", element("dl", { class: "facts" },
    fact("State", state.text, state.note, { class: `fact state ${state.class}` }),
    fact("Started", day, clock.join(" ")),
    fact("Duration", time(duration, log.duration_ms > 0 ? 1000 : 1), `last record at ${time(summary.end_ms)}`),
    fact("Records", count(summary.records), `${rate(summary.end_ms > 0 ? (1000 * summary.records) / summary.end_ms : 0)} a second`),
    fact("Payload", size(bytes), `file ${size(log.size)}${log.scrambled ? ", scrambled" : ", plain"}`),
    fact("Clients", String(model.clients.length), counted(model.markCount + model.silences.length, "mark", "marks"))),
  limits(model));
}

const MOST_IDS = 12;

function dataIds(client) {
  const ids = client.dataIds.slice(0, MOST_IDS).map(([id, records]) =>
    element("span", { class: "tag", title: counted(records, "record", "records") }, String(id)));
  const more = client.dataIds.length - MOST_IDS;
  return more > 0 ? [...ids, element("span", { class: "muted" }, ` and ${more} more`)] : ids;
}

function clientRow(client, most) {
  const cell = (text) => element("td", { class: "number" }, text);
  const bar = element("div", { class: "bar", "aria-hidden": "true" });
  bar.style.width = `${Math.max((90 * client.records) / most, 1)}px`;
  bar.style.background = `var(${client.colour})`;
  return element("tr", {},
    element("th", { scope: "row", title: client.name }, element("span", { class: `dot ${client.colour.slice(2)}` }), client.name),
    cell(client.id === null ? "" : String(client.id)), cell(count(client.records)),
    element("td", { class: "screen-only" }, bar), cell(size(client.bytes)), cell(rate(client.perSecond)),
    cell(time(client.firstMs)), cell(time(client.lastMs)), cell(span(client.longestGapMs)),
    element("td", {}, dataIds(client)));
}

export function clientsSection(model) {
  const most = Math.max(...model.clients.map((client) => client.records), 1);
  const head = [["client", ""], ["id", "number"], ["records", "number"], ["", "screen-only"], ["bytes", "number"],
    ["a second", "number"], ["first", "number"], ["last", "number"], ["longest gap", "number"], ["data ids", ""]];
  return section("clients", "Clients", element("div", { class: "scroll", tabindex: "0", role: "region", "aria-label": "Clients" },
    element("table", {},
      element("thead", {}, element("tr", {}, head.map(([text, kind]) => element("th", { scope: "col", class: kind || null }, text)))),
      element("tbody", {}, model.clients.map((client) => clientRow(client, most))))));
}
