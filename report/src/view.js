// What is looked at: the window of time that all plots share, the cursor, which clients are shown.

const NARROWEST_MS = 5;

export class View {
  constructor(endMs) {
    this.endMs = endMs;
    this.min = 0;
    this.max = endMs;
    this.cursor = null;
    this.listeners = { range: [], cursor: [], clients: [], layout: [] };
  }

  on(what, run) {
    this.listeners[what].push(run);
  }

  emit(what) {
    for (const run of this.listeners[what]) run();
  }

  get span() {
    return this.max - this.min;
  }

  get isWhole() {
    return this.min <= 0 && this.max >= this.endMs;
  }

  setRange(from, to) {
    const span = Math.min(Math.max(to - from, Math.min(NARROWEST_MS, this.endMs)), this.endMs);
    const middle = (from + to) / 2;
    const min = Math.min(Math.max(middle - span / 2, 0), this.endMs - span);
    if (min === this.min && min + span === this.max) return;
    this.min = min;
    this.max = min + span;
    this.emit("range");
  }

  reset() {
    this.setRange(0, this.endMs);
  }

  // Below 1: closer. The time `at` stays where it is.
  zoom(factor, at = (this.min + this.max) / 2) {
    const span = Math.max(this.span * factor, NARROWEST_MS);
    const share = (at - this.min) / this.span;
    this.setRange(at - share * span, at + (1 - share) * span);
  }

  // By a share of what is seen.
  pan(share) {
    const by = share * this.span;
    const held = Math.min(Math.max(by, -this.min), this.endMs - this.max);
    this.setRange(this.min + held, this.max + held);
  }

  setCursor(ms) {
    if (ms === this.cursor) return;
    this.cursor = ms;
    this.emit("cursor");
  }
}

// The wheel zooms what has the focus, or with Ctrl; sideways it pans. Otherwise the page scrolls.
export function wheelZooms(place, view, timeAt) {
  place.addEventListener("wheel", (event) => {
    const sideways = Math.abs(event.deltaX) > Math.abs(event.deltaY);
    if (!event.ctrlKey && !place.matches(":focus-within")) return;
    event.preventDefault();
    if (sideways || event.shiftKey) view.pan((event.deltaX || event.deltaY) / 800);
    else view.zoom(Math.exp(event.deltaY / 400), timeAt(event));
  }, { passive: false });
}
