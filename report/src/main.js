import { button, element } from "./dom.js";
import { printable, wallClock } from "./format.js";
import { bindKeys, keyHelp } from "./keys.js";
import { marksSection } from "./marks.js";
import { makeModel } from "./model.js";
import { ratePlots } from "./plots.js";
import { clientsSection, summarySection } from "./summary.js";
import { RecordTable } from "./table.js";
import { Timeline } from "./timeline.js";
import { trackSections } from "./track.js";
import { View } from "./view.js";

const root = document.documentElement;
const dark = window.matchMedia("(prefers-color-scheme: dark)");

function setTheme(name, view) {
  root.dataset.theme = name;
  view.emit("layout");
}

function header(model, actions) {
  const name = printable(model.summary.log.name);
  document.title = `${name} \u2013 Kestrav report`;
  return element("header", {},
    element("div", {}, element("p", { class: "overline" }, "Kestrav report"), element("h1", {}, name),
      element("p", { class: "muted" }, wallClock(model.startUnixMs))),
    element("div", { class: "buttons screen-only" }, actions));
}

function bindPrint(view) {
  let theme;
  window.addEventListener("beforeprint", () => {
    theme = root.dataset.theme;
    root.classList.add("printing");
    setTheme("light", view);
  });
  window.addEventListener("afterprint", () => {
    root.classList.remove("printing");
    setTheme(theme, view);
  });
}

function start() {
  const model = makeModel(JSON.parse(document.getElementById("data").textContent));
  const view = new View(model.endMs);
  const timeline = new Timeline(model, view);
  const plots = ratePlots(model, view);
  const table = new RecordTable(model, view);
  const help = keyHelp();
  const toggle = () => setTheme(root.dataset.theme === "dark" ? "light" : "dark", view);
  root.dataset.theme = dark.matches ? "dark" : "light";
  document.getElementById("report").append(
    header(model, [button("Light / dark", toggle, { id: "theme", title: "Light or dark (t)" }),
      button("Keys", () => help.showModal(), { title: "The keys (?)" }),
      button("Print", () => window.print())]),
    summarySection(model), timeline.place, element("div", { class: "plot-row" }, plots.map((plot) => plot.place)),
    ...trackSections(model, view), clientsSection(model), marksSection(model, view), table.place,
    element("footer", { class: "muted" }, `Made by kestrav ${model.summary.tool}. This page is complete in itself and asks no network for anything.`),
    help);
  bindKeys(view, { help, filter: table.text, theme: toggle });
  bindPrint(view);
  dark.addEventListener("change", () => setTheme(dark.matches ? "dark" : "light", view));
  let width = 0;
  new ResizeObserver(([entry]) => {
    if (Math.round(entry.contentRect.width) === width) return;
    width = Math.round(entry.contentRect.width);
    view.emit("layout");
  }).observe(document.getElementById("report"));
  view.emit("layout");
}

start();
