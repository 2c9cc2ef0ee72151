// The way of a satellite receiver: seen from above, without a map, and its speed.
import { colour, element, fitCanvas, section, UI_FONT } from "./dom.js";
import { count, time } from "./format.js";
import { lowerBound } from "./columns.js";
import { Plot } from "./plots.js";
import { speedData, wayOf } from "./way.js";

const MARGIN = 34;
const HEIGHT = 300;

const NICE = [1, 2, 5, 10, 20, 50, 100, 200, 500, 1000, 2000, 5000, 10000, 20000, 50000, 100000, 200000, 500000, 1000000];

class Track {
  constructor(model, view, client) {
    Object.assign(this, { view, client });
    this.points = wayOf(client.track.points);
    this.times = this.points.map((p) => p.at);
    this.fastest = this.points.reduce((most, p) => Math.max(most, p.speed ?? 0), 0);
    this.canvas = element("canvas", { role: "img", "aria-label": this.description() });
    this.readout = element("p", { class: "readout muted" });
    this.stage = element("div", { class: "track" }, this.canvas);
    this.stage.addEventListener("pointermove", (event) => this.pick(event));
    this.stage.addEventListener("pointerleave", () => view.setCursor(null));
    for (const what of ["range", "cursor", "layout"]) view.on(what, () => this.draw());
  }

  description() {
    const { fixes, points } = this.client.track;
    const kept = points.length < fixes ? `, of which ${count(points.length)} are drawn` : "";
    return `Track of ${this.client.name}: ${count(fixes)} positions${kept}, up to ${this.fastest.toFixed(0)} km/h`;
  }

  place() {
    const { view } = this;
    const data = speedData(this.points);
    const id = `track-${this.client.id}`;
    const speed = new Plot({
      id: `speed-${this.client.id}`, height: HEIGHT + 24, title: `Speed of ${this.client.name}`, unit: "km/h", view,
      series: [{ name: "", colour: this.client.colour, isFilled: true }],
      dataOf: () => data,
      valueText: (value) => `${value.toFixed(1)} km/h`, axisText: (value) => `${value}`,
    });
    return element("div", { class: "track-row" },
      section(id, `Track of ${this.client.name}`, element("p", { class: "muted" }, this.description()), this.stage, this.readout),
      speed.place);
  }

  scaleTo(width, height) {
    const xs = this.points.map((p) => p.x);
    const ys = this.points.map((p) => p.y);
    const across = Math.max(Math.max(...xs) - Math.min(...xs), 1);
    const along = Math.max(Math.max(...ys) - Math.min(...ys), 1);
    this.pixelsPerMetre = Math.min((width - 2 * MARGIN) / across, (height - 2 * MARGIN - 20) / along);
    for (const p of this.points) {
      p.px = width / 2 + p.x * this.pixelsPerMetre;
      p.py = (height - 14) / 2 - p.y * this.pixelsPerMetre;
    }
  }

  draw() {
    const width = Math.max(Math.floor(this.stage.clientWidth), 120);
    const context = fitCanvas(this.canvas, width, HEIGHT);
    this.scaleTo(width, HEIGHT);
    context.lineCap = context.lineJoin = "round";
    this.strokeAll(context);
    this.strokeBySpeed(context);
    this.drawEnds(context);
    this.drawScale(context, width, HEIGHT);
    this.drawCursor(context);
  }

  strokeAll(context) {
    context.lineWidth = 2;
    context.strokeStyle = colour("--grid-strong");
    context.beginPath();
    for (const p of this.points) context.lineTo(p.px, p.py);
    context.stroke();
  }

  // What lies in the window of time; the faster, the stronger.
  strokeBySpeed(context) {
    const first = lowerBound(this.times, this.view.min);
    const last = lowerBound(this.times, this.view.max + 1);
    context.strokeStyle = colour(this.client.colour);
    for (let i = Math.max(first, 1); i < last; ++i) {
      if (this.points[i].isAfterGap) continue;
      const share = this.fastest > 0 ? (this.points[i].speed ?? 0) / this.fastest : 1;
      context.globalAlpha = 0.4 + 0.6 * share;
      context.lineWidth = 2.5 + 2.5 * share;
      context.beginPath();
      context.moveTo(this.points[i - 1].px, this.points[i - 1].py);
      context.lineTo(this.points[i].px, this.points[i].py);
      context.stroke();
    }
    context.globalAlpha = 1;
  }

  drawEnds(context) {
    context.font = `600 11px ${UI_FONT}`;
    for (const [point, text] of [[this.points[0], "start"], [this.points.at(-1), "end"]]) {
      context.fillStyle = colour("--card");
      context.strokeStyle = colour("--text");
      context.lineWidth = 2;
      context.beginPath();
      context.arc(point.px, point.py, 4.5, 0, 7);
      context.fill();
      context.stroke();
      context.fillStyle = colour("--text");
      context.textAlign = "left";
      context.textBaseline = "middle";
      context.fillText(text, point.px + 9, point.py - (text === "start" ? 8 : -8));
    }
  }

  drawScale(context, width, height) {
    const metres = NICE.findLast((length) => length * this.pixelsPerMetre <= width / 3) ?? NICE[0];
    const length = metres * this.pixelsPerMetre;
    const y = height - 12;
    context.strokeStyle = context.fillStyle = colour("--muted");
    context.lineWidth = 1.5;
    context.beginPath();
    context.moveTo(8, y - 4);
    context.lineTo(8, y);
    context.lineTo(8 + length, y);
    context.lineTo(8 + length, y - 4);
    context.stroke();
    context.font = `11px ${UI_FONT}`;
    context.textAlign = "left";
    context.textBaseline = "alphabetic";
    context.fillText(metres >= 1000 ? `${metres / 1000} km` : `${metres} m`, 8 + length + 8, y + 1);
    context.textAlign = "right";
    context.fillText("north \u2191", width - 8, y + 1);
  }

  drawCursor(context) {
    const { cursor } = this.view;
    if (cursor === null || this.points.length === 0) {
      this.readout.textContent = "\u00a0";
      return;
    }
    const point = this.points[Math.min(lowerBound(this.times, cursor), this.points.length - 1)];
    context.fillStyle = colour("--accent");
    context.strokeStyle = colour("--card");
    context.lineWidth = 2;
    context.beginPath();
    context.arc(point.px, point.py, 6, 0, 7);
    context.fill();
    context.stroke();
    const speed = point.speed === null ? "" : `, ${point.speed.toFixed(1)} km/h`;
    this.readout.textContent = `${time(point.at)}: ${point.lat.toFixed(6)}, ${point.lon.toFixed(6)}${speed}`;
  }

  // The nearest point becomes the cursor.
  pick(event) {
    const box = this.stage.getBoundingClientRect();
    const [x, y] = [event.clientX - box.left, event.clientY - box.top];
    let best = null;
    let nearest = 40;
    for (const p of this.points) {
      const far = Math.hypot(p.px - x, p.py - y);
      if (far < nearest) [best, nearest] = [p, far];
    }
    this.view.setCursor(best?.at ?? null);
  }
}

export function trackSections(model, view) {
  return model.clients.filter((client) => client.track !== null).map((client) => new Track(model, view, client).place());
}
