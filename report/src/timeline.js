// One lane a client over the shared window of time: the more records, the stronger the colour.
import { colour, element, fitCanvas, section, button, UI_FONT } from "./dom.js";
import { count, niceStep, span, time } from "./format.js";
import { columnsOf, sumColumns } from "./columns.js";
import { describeMark, markColour, markTimes } from "./marks.js";
import { wheelZooms } from "./view.js";

const LANE = 34;
const LANE_GAP = 6;
const MARK_ROW = 24;
const AXIS = 24;
// More lanes than this have the times above them too.
const FEW = 10;

export class Timeline {
  constructor(model, view) {
    this.model = model;
    this.view = view;
    this.canvas = element("canvas", { "aria-hidden": "true" });
    this.selection = element("div", { class: "selection", hidden: true });
    this.line = element("div", { class: "cursor-line", hidden: true });
    this.tip = element("div", { class: "tip", hidden: true });
    this.stage = element("div", {
      class: "stage", tabindex: "0", role: "application", id: "timeline-stage",
      "aria-label": "Timeline. Arrow keys move the window, plus and minus zoom, 0 shows all.",
    }, this.canvas, this.selection, this.line, this.tip);
    this.window = element("output", { class: "window", "aria-live": "polite" });
    this.place = section("timeline", "Timeline", this.toolbar(),
      element("div", { class: "lanes" }, this.labels(), this.stage),
      element("p", { class: "hint screen-only" },
        "Drag to zoom, double click for all. Shift and drag moves, and so do the arrow keys. " +
        "The wheel zooms what was clicked. Press ? for all keys."));
    this.bindPointer();
    wheelZooms(this.stage, view, (event) => this.timeAt(event));
    for (const what of ["range", "layout"]) view.on(what, () => this.draw());
    view.on("cursor", () => this.drawCursor());
  }

  // Where the lanes begin.
  get top() {
    return MARK_ROW + (this.model.clients.length > FEW ? AXIS : 0);
  }

  get height() {
    return this.top + this.model.clients.length * (LANE + LANE_GAP) + AXIS;
  }

  toolbar() {
    const { view } = this;
    return element("div", { class: "toolbar" }, this.window, element("div", { class: "buttons screen-only" },
      button("\u2190", () => view.pan(-0.25), { "aria-label": "Earlier", title: "Earlier (\u2190)" }),
      button("\u2192", () => view.pan(0.25), { "aria-label": "Later", title: "Later (\u2192)" }),
      button("+", () => view.zoom(0.5), { "aria-label": "Zoom in", title: "Zoom in (+)" }),
      button("\u2212", () => view.zoom(2), { "aria-label": "Zoom out", title: "Zoom out (-)" }),
      button("All", () => view.reset(), { title: "The whole log (0)", id: "reset" })));
  }

  labels() {
    const rows = this.model.clients.map((client) => element("li", {},
      element("span", { class: "name", title: client.name }, client.name),
      element("span", { class: "muted" }, count(client.records))));
    const list = element("ul", { class: "lane-labels" }, element("li", { class: "muted marks-label" }, "marks"), rows);
    list.style.paddingTop = `${this.top}px`;
    return list;
  }

  timeAt(event) {
    const box = this.stage.getBoundingClientRect();
    const share = Math.min(Math.max((event.clientX - box.left) / box.width, 0), 1);
    return this.view.min + share * this.view.span;
  }

  xOf(ms) {
    return ((ms - this.view.min) / this.view.span) * this.width;
  }

  bindPointer() {
    const { stage, view } = this;
    let start = null;
    const held = { min: 0, max: 0 };
    stage.addEventListener("pointerdown", (event) => {
      if (event.button !== 0) return;
      start = event;
      Object.assign(held, { min: view.min, max: view.max, at: this.timeAt(event) });
      stage.setPointerCapture(event.pointerId);
    });
    stage.addEventListener("pointermove", (event) => {
      if (start?.shiftKey) {
        const by = ((start.clientX - event.clientX) / this.width) * (held.max - held.min);
        const kept = Math.min(Math.max(by, -held.min), view.endMs - held.max);
        view.setRange(held.min + kept, held.max + kept);
      } else if (start) {
        this.showSelection(held.at, this.timeAt(event));
      }
      view.setCursor(this.timeAt(event));
      this.showTip(event);
    });
    stage.addEventListener("pointerup", (event) => {
      const dragged = start && !start.shiftKey && Math.abs(event.clientX - start.clientX) > 4;
      const to = this.timeAt(event);
      start = null;
      this.selection.hidden = true;
      if (dragged) view.setRange(Math.min(held.at, to), Math.max(held.at, to));
    });
    stage.addEventListener("pointercancel", () => { start = null; this.selection.hidden = true; });
    stage.addEventListener("pointerleave", () => { view.setCursor(null); this.tip.hidden = true; });
    stage.addEventListener("dblclick", () => view.reset());
  }

  showSelection(a, b) {
    const [from, to] = [this.xOf(Math.min(a, b)), this.xOf(Math.max(a, b))];
    this.selection.hidden = false;
    this.selection.style.left = `${from}px`;
    this.selection.style.width = `${to - from}px`;
  }

  drawCursor() {
    const ms = this.view.cursor;
    const seen = ms !== null && ms >= this.view.min && ms <= this.view.max;
    this.line.hidden = !seen;
    if (seen) this.line.style.transform = `translateX(${this.xOf(ms)}px)`;
  }

  // What is under the pointer: a mark, or a client's records in some pixels.
  showTip(event) {
    const box = this.stage.getBoundingClientRect();
    const [x, y] = [event.clientX - box.left, event.clientY - box.top];
    const mark = this.markAt(x);
    const client = this.model.clients[Math.floor((y - this.top) / (LANE + LANE_GAP))];
    const lines = [time(this.timeAt(event), this.view.span / 200)];
    if (mark && (y < MARK_ROW || !client)) lines.push(describeMark(mark));
    else if (client) lines.push(`${client.name}: ${this.nearText(client, x)}`);
    this.tip.replaceChildren(...lines.map((line) => element("div", {}, line)));
    this.tip.hidden = false;
    const left = x + 14 + this.tip.offsetWidth > box.width ? x - 14 - this.tip.offsetWidth : x + 14;
    this.tip.style.transform = `translate(${Math.max(left, 0)}px, ${Math.max(y - 10, 0)}px)`;
  }

  nearText(client, x) {
    const columns = this.columns.get(client);
    let records = 0;
    for (let i = Math.max(Math.floor(x) - 2, 0); i <= Math.min(x + 2, columns.length - 1); ++i) records += columns[i];
    const over = span((5 / this.width) * this.view.span);
    return records === 0 ? "silent" : `about ${count(Math.max(Math.round(records), 1))} in ${over}`;
  }

  markAt(x) {
    let best = null;
    let nearest = 7;
    for (const mark of this.model.marks) {
      const far = Math.abs(this.xOf(mark.at) - x);
      if (far < nearest) [best, nearest] = [mark, far];
    }
    return best;
  }

  draw() {
    const { view } = this;
    this.width = Math.max(Math.floor(this.stage.clientWidth), 50);
    this.context = fitCanvas(this.canvas, this.width, this.height);
    this.columns = new Map();
    const step = this.drawAxis();
    this.model.clients.forEach((client, i) => this.drawLane(client, this.top + i * (LANE + LANE_GAP)));
    this.drawMarks();
    this.drawCursor();
    this.place.dataset.min = String(view.min);
    this.place.dataset.max = String(view.max);
    this.window.textContent =
      `${time(view.min, step / 10)} \u2013 ${time(view.max, step / 10)}  (${span(view.span)})`;
  }

  drawLane(client, top) {
    const { context, width } = this;
    const columns = columnsOf(this.model, client, this.view, width);
    this.columns.set(client, columns);
    const most = columns.reduce((a, b) => Math.max(a, b), 0);
    context.fillStyle = colour("--lane");
    context.fillRect(0, top, width, LANE);
    this.drawSilences(client, top);
    context.fillStyle = colour(client.colour);
    const top_of_scale = Math.log1p(8);
    for (let x = 0; x < width; ++x) {
      if (columns[x] === 0) continue;
      const strength = Math.log1p((8 * columns[x]) / most) / top_of_scale;
      const height = Math.max(LANE * (0.3 + 0.7 * strength), 4);
      context.globalAlpha = 0.35 + 0.65 * strength;
      context.fillRect(x, top + LANE - height, 1, height);
    }
    context.globalAlpha = 1;
  }

  drawSilences(client, top) {
    const { context } = this;
    context.font = `11px ${UI_FONT}`;
    context.textAlign = "center";
    context.textBaseline = "middle";
    for (const [from, length] of client.silences) {
      const left = Math.max(this.xOf(from), -20);
      const right = Math.min(this.xOf(from + length), this.width + 20);
      if (right - left < 3) continue;
      context.strokeStyle = context.fillStyle = colour("--muted");
      context.beginPath();
      context.moveTo(left + 1, top + LANE / 2);
      context.lineTo(right - 1, top + LANE / 2);
      context.setLineDash([2, 3]);
      context.stroke();
      context.setLineDash([]);
      const text = `silent ${span(length)}`;
      const room = context.measureText(text).width + 12;
      if (right - left < room + 8) continue;
      const middle = (left + right) / 2;
      context.fillStyle = colour("--lane");
      context.fillRect(middle - room / 2, top + LANE / 2 - 7, room, 14);
      context.fillStyle = colour("--muted");
      context.fillText(text, middle, top + LANE / 2 + 1);
    }
  }

  // Those beyond the list as faint strokes, the listed ones with a line through all lanes.
  drawMarks() {
    const { context, model, view } = this;
    const bottom = this.height - AXIS;
    if (model.markCount > model.marks.length) {
      const columns = sumColumns(model.markSums, view, this.width);
      context.fillStyle = colour("--bad");
      columns.forEach((value, x) => { if (value > 0) context.fillRect(x, MARK_ROW - 6, 1, 4); });
    }
    // Damage last, on top of the records that are missing for it.
    const isBad = (mark) => Number(markColour(mark) === "--bad");
    for (const mark of [...model.marks].sort((a, b) => isBad(a) - isBad(b))) {
      const { from, to } = markTimes(mark);
      if (to < view.min || from > view.max) continue;
      const x = Math.min(Math.max(this.xOf(mark.at), 6), this.width - 7);
      context.strokeStyle = context.fillStyle = colour(markColour(mark));
      context.globalAlpha = 0.55;
      context.beginPath();
      context.moveTo(Math.round(x) + 0.5, 12);
      context.lineTo(Math.round(x) + 0.5, bottom);
      context.stroke();
      context.globalAlpha = 1;
      drawGlyph(context, mark, x);
    }
  }

  // Returns how far the times on the axis stand apart.
  drawAxis() {
    const { context, view } = this;
    const step = niceStep((view.span / this.width) * 90);
    const bottom = this.height - AXIS;
    context.font = `11px ${UI_FONT}`;
    context.textBaseline = "top";
    context.strokeStyle = colour("--grid");
    for (let ms = Math.ceil(view.min / step) * step; ms <= view.max; ms += step) {
      const x = this.xOf(ms);
      context.beginPath();
      context.moveTo(Math.round(x) + 0.5, MARK_ROW);
      context.lineTo(Math.round(x) + 0.5, bottom);
      context.stroke();
      context.fillStyle = colour("--muted");
      context.textAlign = x < 24 ? "left" : x > this.width - 24 ? "right" : "center";
      context.fillText(time(ms, step), x, bottom + 7);
      if (this.top > MARK_ROW) context.fillText(time(ms, step), x, MARK_ROW + 5);
    }
    return step;
  }
}

function drawGlyph(context, mark, x) {
  const isJump = mark.kind === "back" || mark.kind === "ahead";
  context.beginPath();
  if (isJump) {
    const way = mark.kind === "back" ? -1 : 1;
    context.moveTo(x - 4 * way, 3);
    context.lineTo(x + 6 * way, 9);
    context.lineTo(x - 4 * way, 15);
  } else {
    context.moveTo(x, 2);
    context.lineTo(x + 6, 9);
    context.lineTo(x, 16);
    context.lineTo(x - 6, 9);
  }
  context.fill();
}
