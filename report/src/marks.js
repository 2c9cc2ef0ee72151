// Damage, gaps and jumps of time: how they are told, and the list of them.
import { button, element, section } from "./dom.js";
import { count, counted, span, time } from "./format.js";

const PRINTED = 40;  // as styles.css has it

const KINDS = {
  damage: { title: "damage", colour: "--bad", text: (m) => `${counted(m.amount, "byte", "bytes")} skipped` },
  tail: { title: "damaged end", colour: "--bad", text: (m) => `${counted(m.amount, "byte", "bytes")} lost at the end` },
  missing: { title: "missing", colour: "--warn", text: (m) => `${counted(m.amount, "record", "records")} missing in front of index ${count(m.index)}` },
  misplaced: { title: "out of order", colour: "--warn", text: (m) => `index ${count(m.index)} again, ${count(m.amount)} back` },
  back: { title: "time goes back", colour: "--jump", text: (m) => `by ${span(m.amount)}` },
  ahead: { title: "time jumps ahead", colour: "--jump", text: (m) => `by ${span(m.amount)}, without any record` },
  silence: { title: "silence", colour: "--muted", text: (m) => `${m.client} is silent for ${span(m.amount)}` },
};

export const markColour = (mark) => KINDS[mark.kind].colour;

export function describeMark(mark) {
  const { title, text } = KINDS[mark.kind];
  return `${title}: ${text(mark)}`;
}

// From when to when it reaches.
export function markTimes(mark) {
  if (mark.kind === "ahead") return { from: mark.at - mark.amount, to: mark.at };
  if (mark.kind === "silence") return { from: mark.at, to: mark.at + mark.amount };
  return { from: mark.at, to: mark.at };
}

function show(view, mark) {
  const { from, to } = markTimes(mark);
  const margin = Math.max((to - from) * 0.5, Math.min(view.endMs / 50, 2000));
  view.setRange(from - margin, to + margin);
  document.getElementById("timeline").scrollIntoView({ block: "start" });
}

function markRow(view, mark) {
  const { title, colour, text } = KINDS[mark.kind];
  return element("tr", {},
    element("td", { class: "number" }, button(time(mark.at), () => show(view, mark), { class: "link", title: "Show it in the timeline" })),
    element("td", {}, element("span", { class: `dot ${colour.slice(2)}` }), title),
    element("td", {}, text(mark)),
    element("td", { class: "number muted" }, mark.offset === undefined ? "" : count(mark.offset)));
}

export function marksSection(model, view) {
  const marks = [...model.marks, ...model.silences].sort((a, b) => a.at - b.at);
  const more = model.markCount - model.marks.length;
  if (marks.length === 0) {
    return section("marks", "Marks", element("p", { class: "muted" }, "No damage, no gap, no jump of time, no silence that stands out."));
  }
  const head = ["time", "what", "", "offset"].map((text, i) =>
    element("th", { scope: "col", class: i === 0 || i === 3 ? "number" : null }, text));
  return section("marks", "Marks",
    more > 0 ? element("p", { class: "note" }, `The first ${count(model.marks.length)} of ${count(model.markCount)}; the timeline shows all of them.`) : null,
    marks.length > PRINTED ? element("p", { class: "print-only muted" }, `On paper the first ${PRINTED} of ${count(marks.length)}.`) : null,
    element("div", { class: "scroll", tabindex: "0", role: "region", "aria-label": "Marks" },
      element("table", {}, element("thead", {}, element("tr", {}, head)),
        element("tbody", {}, marks.map((mark) => markRow(view, mark))))));
}
