// Rates over the shared window of time.
import uPlot from "uplot";
import { button, colour, element, section, UI_FONT } from "./dom.js";
import { niceStep, rate, size, time, TIME_STEPS } from "./format.js";
import { wheelZooms } from "./view.js";

const HEIGHT = 200;
const PIXELS_PER_POINT = 3;
// Seen from afar, what comes once a second is a line and not a comb.
const CALM_MS = 1000;
const CLOSE_MS = 20000;

// The times and each client's rate: of stretches between round times, one more at both ends. A
// stretch is as exact as the buckets are, and one that the log does not fill is left out.
function ratesOf(model, view, width, sumsOf) {
  const finest = Math.max((view.span / width) * PIXELS_PER_POINT, model.bucketMs);
  const step = niceStep(view.span > CLOSE_MS ? Math.max(finest, CALM_MS) : finest);
  const edge = (at) => Math.floor(at / model.bucketMs) * model.bucketMs;
  const last = Math.min(view.max + step, Math.max(model.endMs - step, 0));
  const starts = [];
  for (let at = Math.max((Math.floor(view.min / step) - 1) * step, 0); at <= last; at += step) starts.push(at);
  const rateAt = (sums, at) => (1000 * sums.between(edge(at), edge(at + step))) / (edge(at + step) - edge(at));
  return [starts.map((at) => at + step / 2), ...model.clients.map((client) => starts.map((at) => rateAt(sumsOf(client), at)))];
}

function axis(values, room) {
  return {
    stroke: () => colour("--muted"),
    font: `11px ${UI_FONT}`,
    grid: { stroke: () => colour("--grid"), width: 1 },
    ticks: { show: false },
    values,
    size: room,
  };
}

// A plot whose window, cursor and zoom are those of `view`.
export class Plot {
  constructor({ id, title, unit, view, series, dataOf, valueText, axisText, controls, height = HEIGHT }) {
    Object.assign(this, { view, dataOf, series, valueText, unit, height });
    this.stage = element("div", { class: "plot", tabindex: "0", role: "application", "aria-label": `${title}. Keys as in the timeline.` });
    this.readout = element("p", { class: "readout muted" }, this.unit);
    this.place = section(id, title, controls ?? null, this.readout, this.stage);
    this.axisText = axisText;
    wheelZooms(this.stage, view, (event) => {
      const box = this.plot.over.getBoundingClientRect();
      return this.plot.posToVal(event.clientX - box.left, "x");
    });
    view.on("range", () => this.update());
    view.on("clients", () => this.updateSeries());
    view.on("layout", () => this.layout());
    view.on("cursor", () => this.followCursor());
  }

  layout() {
    const width = Math.max(Math.floor(this.stage.clientWidth), 120);
    if (!this.plot) this.plot = new uPlot(this.options(width), this.dataOf(width), this.stage);
    this.plot.setSize({ width, height: this.height });
    this.update();
    this.updateSeries();
    this.followCursor();
  }

  options(width) {
    const { view } = this;
    return {
      width,
      height: this.height,
      legend: { show: false },
      padding: [8, 8, 0, 0],
      cursor: {
        y: false,
        points: { size: 6 },
        drag: { x: true, y: false, setScale: false },
        bind: { dblclick: () => () => { view.reset(); return null; } },
      },
      scales: {
        x: { time: false, range: () => [view.min, view.max] },
        y: { range: (_, low, high) => [0, high > 0 ? high * 1.08 : 1] },
      },
      axes: [
        { ...axis((_, splits) => splits.map((ms) => time(ms, niceStep((view.span / width) * 90))), 30),
          space: 90, incrs: () => [...TIME_STEPS, niceStep((view.span / width) * 90)] },
        axis((_, splits) => splits.map((value) => this.axisText(value)), 58),
      ],
      series: [{}, ...this.series.map(({ colour: name, isFilled }) => ({
        stroke: () => colour(name),
        fill: isFilled ? () => colour("--fill") : undefined,
        width: 1.5,
        points: { show: false },
        spanGaps: false,
      }))],
      hooks: { setSelect: [(plot) => this.takeSelection(plot)], setCursor: [(plot) => this.takeCursor(plot)] },
    };
  }

  update() {
    if (!this.plot) return;
    this.plot.batch(() => {
      this.plot.setData(this.dataOf(this.plot.width), false);
      this.plot.setScale("x", { min: this.view.min, max: this.view.max });
    });
    this.place.dataset.min = String(this.view.min);
    this.place.dataset.max = String(this.view.max);
  }

  updateSeries() {
    if (!this.plot) return;
    this.series.forEach(({ isShown }, i) => this.plot.setSeries(i + 1, { show: isShown?.() ?? true }));
    this.plot.redraw(true, true);
  }

  takeSelection(plot) {
    const { left, width } = plot.select;
    if (width < 4) return;
    const [from, to] = [plot.posToVal(left, "x"), plot.posToVal(left + width, "x")];
    plot.setSelect({ left: 0, top: 0, width: 0, height: 0 }, false);
    this.view.setRange(from, to);
  }

  takeCursor(plot) {
    this.tell(plot.cursor.idx);
    if (!this.stage.matches(":hover")) return;
    this.view.setCursor(plot.cursor.left >= 0 ? plot.posToVal(plot.cursor.left, "x") : null);
  }

  followCursor() {
    if (!this.plot || this.stage.matches(":hover")) return;
    const { cursor, min, max } = this.view;
    const seen = cursor !== null && cursor >= min && cursor <= max;
    this.plot.setCursor({ left: seen ? this.plot.valToPos(cursor, "x") : -10, top: 10 }, true);
  }

  // What stands at the cursor.
  tell(index) {
    if (index === null || index === undefined) {
      this.readout.textContent = this.unit;
      return;
    }
    // The largest first: there is room for some.
    const values = this.series
      .map(({ name, isShown }, i) => ({ name, value: this.plot.data[i + 1][index] ?? null, isShown: isShown?.() ?? true }))
      .filter((one) => one.isShown)
      .sort((a, b) => b.value - a.value)
      .map(({ name, value }) => `${name} ${value === null ? "none" : this.valueText(value)}`.trim());
    this.readout.textContent = [time(this.plot.data[0][index], 100), ...values].join("   ");
  }
}

// One switch a client, for both rate plots.
function clientSwitches(model, view) {
  return element("div", { class: "chips", role: "group", "aria-label": "Clients in the plots" }, model.clients.map((client) => {
    const chip = button("", () => {
      client.shown = !client.shown;
      for (const one of document.querySelectorAll(`[data-client="${client.id}"]`)) one.setAttribute("aria-pressed", String(client.shown));
      view.emit("clients");
    }, { class: "chip", "aria-pressed": "true", "data-client": String(client.id) });
    chip.append(element("span", { class: `dot ${client.colour.slice(2)}` }), element("span", { class: "name" }, client.name));
    return chip;
  }));
}

export function ratePlots(model, view) {
  const series = model.clients.map((client) => ({ name: client.name, colour: client.colour, isShown: () => client.shown }));
  const perSecond = (value) => `${rate(value)}/s`;
  return [
    new Plot({
      id: "rate", title: "Records a second", unit: "of all data ids", view, series, controls: clientSwitches(model, view),
      dataOf: (width) => ratesOf(model, view, width, (client) => client.recordSums),
      valueText: perSecond, axisText: rate,
    }),
    new Plot({
      id: "bytes", title: "Bytes a second", unit: "of payload", view, series, controls: clientSwitches(model, view),
      dataOf: (width) => ratesOf(model, view, width, (client) => client.byteSums),
      valueText: (value) => `${size(Math.round(value))}/s`,
      axisText: (value) => (value < 10 ? `${Number(value.toPrecision(2))} B` : size(Math.round(value)).replace(" bytes", " B")),
    }),
  ];
}
