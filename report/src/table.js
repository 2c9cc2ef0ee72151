// The records that the page carries: filtered, in the order of the log, drawn only where one looks.
import { button, element, section } from "./dom.js";
import { count, counted, time, wallClock } from "./format.js";
import { decode, hexDump, hexOf, namedColumns, searchText, spelled } from "./decode.js";

const ROW = 28;
const SPARE = 8;
const PRINTED = 40;
// In pixels. Browsers end somewhere above it; a longer list goes by faster than it is scrolled.
const HIGHEST = 8e6;

export class RecordTable {
  constructor(model, view) {
    Object.assign(this, { model, view, found: model.records, selected: -1, asHex: false });
    this.status = element("output", { class: "muted", id: "record-count", "aria-live": "polite" });
    this.rows = element("div", { class: "rows", role: "rowgroup" });
    this.spacer = element("div", { class: "spacer" }, this.rows);
    this.scroller = element("div", {
      class: "records", role: "grid", tabindex: "0", "aria-label": "Records", "aria-colcount": "6",
      onscroll: () => this.draw(), onkeydown: (event) => this.onKey(event),
    }, this.header(), this.spacer);
    this.detail = element("aside", { class: "detail", "aria-live": "polite", "aria-label": "The selected record" });
    this.place = section("records", "Records", this.filters(), this.status,
      element("p", { class: "print-only muted" }, `On paper at most the first ${PRINTED} of them.`),
      element("div", { class: "record-panes" }, this.scroller, this.detail));
    this.rows.addEventListener("click", (event) => {
      const row = event.target.closest("[data-at]");
      if (row) this.select(Number(row.dataset.at));
    });
    view.on("range", () => this.inWindow.checked && this.filter());
    view.on("layout", () => this.draw());
    this.filter();
    this.showDetail();
  }

  header() {
    const names = ["index", "time", "client", "data id", "size", "payload"];
    return element("div", { class: "row head", role: "row" }, names.map((name) => element("span", { role: "columnheader" }, name)));
  }

  filters() {
    const changed = () => this.filter();
    const { model } = this;
    this.client = element("select", { id: "filter-client", onchange: changed }, element("option", { value: "" }, "all clients"),
      model.clients.map((client) => element("option", { value: String(client.id) }, client.name)));
    this.dataId = element("input", { id: "filter-id", type: "text", inputmode: "numeric", placeholder: "any", size: "6", oninput: changed });
    this.from = element("input", { id: "filter-from", type: "number", min: "0", step: "any", placeholder: "0", oninput: changed });
    this.to = element("input", { id: "filter-to", type: "number", min: "0", step: "any", placeholder: (model.endMs / 1000).toFixed(1), oninput: changed });
    this.text = element("input", { id: "filter-text", type: "search", placeholder: "text or hex", oninput: changed });
    this.inWindow = element("input", { id: "filter-window", type: "checkbox", onchange: changed });
    const label = (text, input) => element("label", {}, element("span", {}, text), input);
    return element("form", { class: "filters screen-only", onsubmit: (event) => event.preventDefault() },
      label("Client", this.client), label("Data id", this.dataId), label("From (s)", this.from), label("To (s)", this.to),
      label("Text", this.text), element("label", { class: "check" }, this.inWindow, element("span", {}, "only what is zoomed to")),
      this.viewSwitch(), button("Clear", () => this.clear(), { id: "filter-clear" }));
  }

  viewSwitch() {
    const make = (asHex, text) => button(text, () => {
      this.asHex = asHex;
      for (const one of this.switch.children) one.setAttribute("aria-pressed", String(one.textContent === text));
      this.draw();
    }, { "aria-pressed": String(asHex === this.asHex) });
    this.switch = element("div", { class: "switch", role: "group", "aria-label": "How payloads are shown" }, make(false, "Decoded"), make(true, "Hex"));
    return this.switch;
  }

  clear() {
    for (const input of [this.client, this.dataId, this.from, this.to, this.text]) input.value = "";
    this.inWindow.checked = false;
    this.filter();
  }

  // The window of time that is asked for, in ms.
  window() {
    const seconds = (input, otherwise) => (input.value === "" ? otherwise : Number(input.value) * 1000);
    const [from, to] = [seconds(this.from, -Infinity), seconds(this.to, Infinity)];
    if (!this.inWindow.checked) return [from, to];
    return [Math.max(from, this.view.min), Math.min(to, this.view.max)];
  }

  filter() {
    const client = this.client.value;
    const ids = this.dataId.value.split(/[\s,]+/).filter(Boolean).map(Number);
    const words = this.text.value.toLowerCase().trim();
    const texts = [...new Set([words, words.replace(/\s+/g, ""), spelled(words)])];
    const [from, to] = this.window();
    const clientId = (record) => String(this.model.clientOf(record.client)?.id);
    this.found = this.model.records.filter((record) =>
      (client === "" || clientId(record) === client) && (ids.length === 0 || ids.includes(record.dataId)) &&
      record.at >= from && record.at <= to &&
      (words === "" || texts.some((text) => searchText(record).includes(text))));
    this.selected = -1;
    this.scroller.scrollTop = 0;
    this.showStatus();
    this.showDetail();
    this.draw();
  }

  showStatus() {
    const { model } = this;
    const carried = model.records.length;
    const held = model.isWhole ? counted(carried, "record", "records")
      : `the first ${count(carried)} records, of ${count(model.summary.records)} in the log`;
    this.status.textContent = this.found.length === carried ? (model.isWhole ? held : `Here are ${held}`)
      : `${count(this.found.length)} of ${held}`;
    this.scroller.setAttribute("aria-rowcount", String(this.found.length + 1));
  }

  // How many pixels of the list a pixel of scrolling stands for.
  get pace() {
    const full = this.found.length * ROW;
    const beyond = ROW - this.scroller.clientHeight;
    return full > HIGHEST ? (full + beyond) / (HIGHEST + beyond) : 1;
  }

  // What is seen, and a little more; on paper nothing scrolls.
  draw() {
    const onPaper = document.documentElement.classList.contains("printing");
    this.spacer.style.height = onPaper ? "auto" : `${Math.min(this.found.length * ROW, HIGHEST)}px`;
    const { scrollTop, clientHeight } = this.scroller;
    const top = scrollTop * this.pace;
    const first = onPaper ? 0 : Math.max(Math.floor(top / ROW) - SPARE, 0);
    const last = onPaper ? PRINTED : first + Math.ceil(clientHeight / ROW) + 2 * SPARE;
    this.rows.style.transform = `translateY(${first * ROW - (top - scrollTop)}px)`;
    const rows = this.found.slice(first, last).map((record, i) => this.row(record, first + i));
    if (this.found.length === 0) rows.push(element("p", { class: "empty" }, "No record fits."));
    this.rows.replaceChildren(...rows);
  }

  row(record, at) {
    const client = this.model.clientOf(record.client);
    const decoded = decode(record);
    const cut = record.size > (record.payload.length - 1) / (record.payload[0] === "h" ? 2 : 1);
    const payload = this.asHex ? hexOf(record) : decoded.text;
    const cell = (kind, ...content) => element("span", { role: "gridcell", class: kind }, content);
    return element("div", {
      class: "row", role: "row", id: `record-${at}`, "data-at": String(at),
      "aria-rowindex": String(at + 2), "aria-selected": String(at === this.selected),
    }, cell("number muted", count(record.index)), cell("number", time(record.at)),
    cell("", element("span", { class: `dot ${client.colour.slice(2)}` }), client.name), cell("number", String(record.dataId)),
    cell("number muted", count(record.size)),
    cell("payload", this.asHex ? null : element("span", { class: `tag ${decoded.isWrong ? "bad" : decoded.kind}` }, decoded.label), payload, cut ? " \u2026" : null));
  }

  select(at) {
    this.selected = Math.min(Math.max(at, 0), this.found.length - 1);
    const [top, bottom] = [this.selected * ROW, (this.selected + 1) * ROW];
    const room = this.scroller.clientHeight - ROW;
    const seen = this.scroller.scrollTop * this.pace;
    if (top < seen) this.scroller.scrollTop = top / this.pace;
    if (bottom > seen + room) this.scroller.scrollTop = (bottom - room) / this.pace;
    this.draw();
    this.showDetail();
    if (this.selected < 0) return;
    this.scroller.setAttribute("aria-activedescendant", `record-${this.selected}`);
    this.view.setCursor(this.found[this.selected].at);
  }

  onKey(event) {
    const page = Math.max(Math.floor(this.scroller.clientHeight / ROW) - 2, 1);
    const steps = { ArrowDown: 1, ArrowUp: -1, PageDown: page, PageUp: -page, Home: -Infinity, End: Infinity };
    if (!(event.key in steps) || event.ctrlKey || event.altKey || event.metaKey) return;
    event.preventDefault();
    event.stopPropagation();
    this.select(Math.min(Math.max(this.selected + steps[event.key], 0), this.found.length - 1));
  }

  showDetail() {
    const record = this.found[this.selected];
    if (!record) {
      this.detail.replaceChildren(element("p", { class: "muted" }, "Select a record to see all of it."));
      return;
    }
    const decoded = decode(record);
    const client = this.model.clientOf(record.client);
    const fields = (decoded.kind === "text" ? namedColumns(record, client) : null) ?? decoded.fields;
    const { payload_limit: limit } = this.model.summary;
    const facts = [["index", count(record.index)], ["time", time(record.at)], ["", wallClock(this.model.startUnixMs + record.at, true)],
      ["client", `${client.name} (${record.client})`], ["data id", String(record.dataId)], ["size", counted(record.size, "byte", "bytes")]];
    const list = (pairs) => element("dl", {}, pairs.flatMap(([name, value]) => [element("dt", {}, name), element("dd", {}, value)]));
    this.detail.replaceChildren(
      element("h3", {}, element("span", { class: `tag ${decoded.kind}` }, decoded.label), ` record ${count(record.index)}`),
      list(facts),
      fields.length > 0 ? list(fields) : element("p", { class: "decoded" }, decoded.text),
      element("pre", { tabindex: "0", "aria-label": "Payload in hex" }, hexDump(record)),
      record.size > limit ? element("p", { class: "note" }, `The first ${count(limit)} of ${count(record.size)} bytes.`) : "",
      button("Show it in the timeline", () => this.zoomTo(record), { class: "screen-only" }));
  }

  zoomTo(record) {
    const margin = Math.max(this.view.endMs / 200, 500);
    this.view.setRange(record.at - margin, record.at + margin);
    document.getElementById("timeline").scrollIntoView({ block: "start" });
  }
}
