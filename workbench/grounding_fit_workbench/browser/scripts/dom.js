// Makes elements. Texts go in as text and never as markup, whatever a host wrote.

const SVG = "http://www.w3.org/2000/svg";

function made(node, attributes, children) {
  for (const [name, value] of Object.entries(attributes)) {
    if (value !== null && value !== undefined && value !== false) {
      node.setAttribute(name, value === true ? "" : value);
    }
  }
  node.append(...children.filter((child) => child !== null && child !== false && child !== ""));
  return node;
}

export const html = (tag, attributes = {}, ...children) =>
  made(document.createElement(tag), attributes, children);

export const svg = (tag, attributes = {}, ...children) =>
  made(document.createElementNS(SVG, tag), attributes, children);

export const byId = (id) => document.getElementById(id);

export const fill = (id, ...children) => byId(id).replaceChildren(...children);

// A drawing as wide as there is room; what it shows is told beside it in words.
export const strip = (look, viewBox, ...children) =>
  svg(
    "svg",
    { class: look, viewBox, preserveAspectRatio: "none", "aria-hidden": "true" },
    ...children,
  );

// A piece of a drawing in a part's colour, and in its pattern, for eyes that see no colour.
export function patch(part, place, attributes = {}) {
  const name = part.replace(" ", "-");
  return svg(
    "g",
    attributes,
    svg("rect", { ...place, class: `ink ${name}` }),
    svg("rect", { ...place, class: "pattern", fill: `url(#pattern-${name})` }),
  );
}

export const swatch = (part) =>
  svg(
    "svg",
    { class: "swatch", viewBox: "0 0 16 16", "aria-hidden": "true" },
    patch(part, { x: 1, y: 1, width: 14, height: 14 }),
  );
