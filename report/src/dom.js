// Elements are made here alone. What comes out of a log gets into the page as text, never as markup.

// element("p", { class: "note", onclick: run }, "text", child, ...)
export function element(name, attributes = {}, ...children) {
  return fill(document.createElement(name), attributes, children);
}

function fill(made, attributes, children) {
  for (const [key, value] of Object.entries(attributes)) {
    if (key.startsWith("on")) made.addEventListener(key.slice(2), value);
    else if (value === true) made.setAttribute(key, "");
    else if (value !== false && value !== null && value !== undefined) made.setAttribute(key, value);
  }
  made.append(...children.flat().filter((child) => child !== null && child !== undefined));
  return made;
}

export function section(id, title, ...children) {
  return element("section", { id, "aria-labelledby": `${id}-title`, class: "card" },
    element("h2", { id: `${id}-title` }, title), ...children);
}

export function button(label, run, attributes = {}) {
  return element("button", { type: "button", onclick: run, ...attributes }, label);
}

// A canvas fitted to its place at the screen's own resolution; its context draws in CSS pixels.
export function fitCanvas(canvas, width, height) {
  const scale = window.devicePixelRatio || 1;
  canvas.width = Math.round(width * scale);
  canvas.height = Math.round(height * scale);
  canvas.style.width = `${width}px`;
  canvas.style.height = `${height}px`;
  const context = canvas.getContext("2d");
  context.setTransform(scale, 0, 0, scale, 0, 0);
  context.clearRect(0, 0, width, height);
  return context;
}

// A colour of the theme that is on.
export function colour(name) {
  return getComputedStyle(document.documentElement).getPropertyValue(name).trim();
}

export const UI_FONT = "system-ui, -apple-system, 'Segoe UI', Roboto, 'DejaVu Sans', sans-serif";
