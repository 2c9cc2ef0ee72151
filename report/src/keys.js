// The keyboard, and the list of its keys.
import { button, element } from "./dom.js";

const KEYS = [
  ["\u2190  \u2192", "move the window"],
  ["+  \u2212", "zoom in, zoom out"],
  ["0", "show the whole log"],
  ["Home  End", "go to the start, to the end"],
  ["/", "search the records"],
  ["\u2191  \u2193", "step through the records, when they have the focus"],
  ["t", "light or dark"],
  ["?", "this list"],
  ["Esc", "leave a field, close this list"],
];

export function keyHelp() {
  const dialog = element("dialog", { id: "help", "aria-labelledby": "help-title" },
    element("h2", { id: "help-title" }, "Keys"),
    element("dl", { class: "keys" }, KEYS.flatMap(([key, text]) =>
      [element("dt", {}, key.split("  ").map((one) => element("kbd", {}, one))), element("dd", {}, text)])),
    button("Close", () => dialog.close()));
  return dialog;
}

export function bindKeys(view, { help, filter, theme }) {
  const run = {
    ArrowLeft: () => view.pan(-0.2),
    ArrowRight: () => view.pan(0.2),
    "+": () => view.zoom(0.5),
    "=": () => view.zoom(0.5),
    "-": () => view.zoom(2),
    0: () => view.reset(),
    Home: () => view.pan(-Infinity),
    End: () => view.pan(Infinity),
    "/": () => { filter.focus(); filter.scrollIntoView({ block: "center" }); },
    t: theme,
    "?": () => help.showModal(),
  };
  document.addEventListener("keydown", (event) => {
    const isField = event.target.matches?.("input, select, textarea");
    if (event.key === "Escape" && isField) event.target.blur();
    if (isField || help.open || event.ctrlKey || event.altKey || event.metaKey || !(event.key in run)) return;
    event.preventDefault();
    run[event.key]();
  });
}
