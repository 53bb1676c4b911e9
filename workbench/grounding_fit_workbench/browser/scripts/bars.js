// The bar of each path: where its room went, piece by piece.
import { data } from "./data.js";
import { byId, fill, html, patch, strip, svg, swatch } from "./dom.js";
import { rove } from "./rove.js";
import { number } from "./words.js";

const SHARE = 1000; // the width of a share's bar, in its own units
const HEIGHT = 44;
const UNITS = { agent: "JSON characters", api: "tokens" };
const RESERVES = {
  agent: ["reserved for bodies", "hatched: facts end before it, bodies may take more"],
  api: ["the code’s share", "hatched: so much is for bodies, the listing comes on top"],
};
const NAMES = {
  other: ["other fields", "what the host’s answer has beside the grounding"],
  facts: ["facts", "fact blocks, in reading order"],
  seeds: ["their seeds", "the lines that a fact block may be cited for"],
  note: ["note", "what tells the agent what was left out"],
  listing: ["listing", "a line each for the next symbols, 30 at most"],
  bodies: ["bodies", "symbol blocks that stand whole, best first"],
  "body seeds": ["their seeds", "the lines that a body may be cited for"],
  joins: ["joints", "blank lines, and what rounding adds when all is estimated at once"],
  free: ["free", "room that nothing takes"],
};
const HOW = "Point at a piece to read what it is, or go along the bar with the arrow keys.";
const rovers = {};

function tell(path, text, row) {
  const link = row ? [" ", html("a", { href: `#${row}`, tabindex: -1 }, "its row below")] : [];
  fill(`${path}-told`, text, ...link);
}

function drawnPiece(path, { part, size, name, row }, at, scale) {
  const always = path === "agent" && part === "facts" && row && data.facts[row.slice(5) - 1].always;
  const text = `${name}: ${number(size)} ${UNITS[path]}${always ? `, ${always}` : ""}`;
  const place = { x: at * scale, y: 0, width: size * scale, height: HEIGHT };
  const attributes = { class: "piece", role: "img", tabindex: -1, "aria-label": text };
  const drawn = patch(part, place, attributes);
  if (always) drawn.append(svg("rect", { ...place, y: HEIGHT + 3, height: 4, class: "always" }));
  drawn.addEventListener("pointerenter", () => tell(path, text, row));
  drawn.addEventListener("focus", () => tell(path, text, row));
  const go = () => row && (location.hash = row);
  drawn.addEventListener("click", (event) => event.pointerType !== "touch" && go());
  drawn.addEventListener("keydown", (event) => event.key === "Enter" && go());
  return drawn;
}

function drawing(path, { room, reserve, pieces }, total) {
  const width = Math.max(200, byId(`${path}-bar`).clientWidth);
  const scale = width / Math.max(total, room, 1);
  const bar = svg("svg", {
    class: "bar",
    viewBox: `0 0 ${width} ${HEIGHT + 8}`,
    preserveAspectRatio: "none",
    role: "group",
    "aria-label": "the pieces of the bar; the arrow keys go along it",
  });
  bar.append(svg("rect", { width: room * scale, height: HEIGHT, class: "ink free" }));
  let at = 0;
  for (const piece of pieces) {
    if (piece.size > 0) bar.append(drawnPiece(path, piece, at, scale));
    at += piece.size;
  }
  if (reserve > 0) {
    const from = Math.max(0, room - reserve) * scale;
    const place = { x: from, y: 0, width: room * scale - from, height: HEIGHT };
    bar.append(svg("rect", { ...place, class: "reserve", fill: "url(#pattern-reserve)" }));
  }
  if (total > room) {
    const x = room * scale;
    bar.append(svg("line", { x1: x, x2: x, y1: 0, y2: HEIGHT + 8, class: "limit" }));
  }
  return bar;
}

function legend(path, { room, reserve, pieces }, total) {
  const sizes = new Map(Object.keys(NAMES).map((part) => [part, 0]));
  for (const { part, size } of pieces) sizes.set(part, sizes.get(part) + size);
  sizes.set("free", Math.max(0, room - total));
  sizes.set("reserve", reserve);
  const entries = [...sizes].filter(([, size]) => size !== 0);
  return entries.map(([part, size]) => {
    const [name, about] = NAMES[part] ?? RESERVES[path];
    return html(
      "li",
      {},
      swatch(part),
      html("span", {}, `${name} `, html("b", {}, number(size)), html("small", {}, about)),
    );
  });
}

// A thin bar for each kind of block that has a share: what is used of it, and where it ends.
function shareRow([key, used, limit]) {
  const scale = SHARE / Math.max(used, limit, 1);
  const bar = strip(
    "share",
    `0 0 ${SHARE} 12`,
    svg("rect", { width: limit * scale, height: 12, class: "ink free" }),
    patch("facts", { x: 0, y: 0, width: used * scale, height: 12 }),
    svg("line", { x1: limit * scale, x2: limit * scale, y1: 0, y2: 12, class: "limit" }),
  );
  const share = `${number(Math.floor(limit))} JSON characters of their share`;
  return html("li", {}, bar, `${key} blocks use ${number(used)} of the ${share}`);
}

export function drawBar(path, fitted) {
  const total = fitted.pieces.reduce((sum, { size }) => sum + size, 0);
  const unit = UNITS[path];
  const free = fitted.room - total;
  const left = free < 0 ? `${number(-free)} over` : `${number(free)} free`;
  fill(`${path}-total`, `${number(total)} of ${number(fitted.room)} ${unit}, ${left}`);
  byId(`${path}-bar`).replaceChildren(drawing(path, fitted, total));
  fill(`${path}-told`, HOW);
  fill(`${path}-legend`, ...legend(path, fitted, total));
  fill(`${path}-reasons`, ...fitted.reasons.map((reason) => html("li", {}, reason)));
  if (path === "agent") {
    fill("shares", ...fitted.shares.map(shareRow));
    fill("note", fitted.note ? `The note (its field is called truncated): ${fitted.note}` : "");
  }
  rovers[path] ??= rove(byId(`${path}-bar`), ".piece", "row");
  rovers[path]();
}
