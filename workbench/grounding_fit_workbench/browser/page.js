"use strict";
const problems = [];

function report() {
  const state = problems.length ? `failed: ${problems.join("; ")}` : "ok";
  document.documentElement.dataset.checks = state;
  document.getElementById("checks").textContent = state;
}

function check(holds, what) {
  if (!holds) problems.push(what);
}

addEventListener("error", (event) => {
  problems.push(event.message);
  report();
});

const data = JSON.parse(document.getElementById("data").textContent);
const namespace = document.getElementById("patterns").namespaceURI;
const WIDTH = 1000; // of every drawing, in its own units
const number = (value) => value.toLocaleString("en-US");
const last = (list) => list[list.length - 1];

function fill(node, attributes, children) {
  for (const [name, value] of Object.entries(attributes)) {
    if (value !== null && value !== false) node.setAttribute(name, value);
  }
  node.append(...children);
  return node;
}
const html = (tag, attributes = {}, ...children) =>
  fill(document.createElement(tag), attributes, children);
const svg = (tag, attributes = {}, ...children) =>
  fill(document.createElementNS(namespace, tag), attributes, children);

// What a piece tells on hover and on keyboard focus, and to a screen reader.
const told = (text) => ({ "data-tip": text, "aria-label": text, tabindex: 0, role: "img" });

const CLASSES = { note: "note-part", "body seeds": "body-seeds" };
const classOf = (part) => CLASSES[part] ?? part;
const PARTS = {
  other: "other fields",
  facts: "facts",
  seeds: "seeds of facts",
  note: "note",
  listing: "listing",
  bodies: "bodies",
  "body seeds": "seeds of bodies",
  free: "free",
};

function legend(entries) {
  return html(
    "ul",
    { class: "legend" },
    ...entries.map(([name, text]) => html("li", {}, html("b", { class: name }), text)),
  );
}

// --- bars ---

const pinned = new Set(
  data.facts
    .filter(({ report }) => ["always kept", "kept first"].includes(report.verdict))
    .map(({ report }) => report.label),
);

function barPieces(bar, scale, drawing) {
  let at = 0;
  for (const { part, name, size } of bar.segments) {
    if (!size) continue;
    const always = bar.unit !== "tokens" && part === "facts" && pinned.has(name);
    const text = `${name}: ${number(size)} ${bar.unit}${always ? ", always kept" : ""}`;
    const place = { x: at * scale, width: size * scale };
    drawing.append(
      svg("rect", { ...place, y: 4, height: 36, class: `piece ${classOf(part)}`, ...told(text) }),
    );
    if (always) drawing.append(svg("rect", { ...place, y: 42, height: 4, class: "always" }));
    at += size;
  }
  return at;
}

// A thin bar for each kind of block that has a share: what it used, what fell to it, its limit.
function shareBars(scale, drawing, top) {
  const kinds = new Map();
  for (const { report } of data.facts) {
    if (report.share == null) continue;
    if (!kinds.has(report.key)) kinds.set(report.key, []);
    kinds.get(report.key).push(report);
  }
  for (const [key, blocks] of kinds) {
    let used = 0;
    const pieces = [];
    for (const { label, kept, verdict, text, seeds } of blocks) {
      const size = text + seeds;
      const tip = `${label}: ${number(size)} of text and seeds, ${verdict}`;
      const place = { x: used * scale, width: size * scale, y: top, height: 14 };
      const look = kept ? "piece facts" : "piece left-out";
      if (kept) used += size;
      if (kept || verdict === "over its share") {
        pieces.push([size, svg("rect", { ...place, class: look, ...told(tip) })]);
      }
    }
    pieces.sort(([one], [other]) => other - one); // those that fell to the share lie on each other
    drawing.append(...pieces.map(([, piece]) => piece));
    const limit = blocks[0].share * scale;
    const widest = Math.max(limit, ...blocks.map((each) => (used + each.text + each.seeds) * scale));
    const tip = `${key} blocks may take ${number(Math.floor(blocks[0].share))} characters`;
    const tick = { x1: limit, x2: limit, y1: top - 5, y2: top + 19, class: "limit", ...told(tip) };
    const text = `${key}: ${number(used)} used of its share of ${number(Math.floor(blocks[0].share))}`;
    drawing.append(svg("line", tick));
    const left = widest + 12 < WIDTH * 0.65;
    const place = { x: left ? widest + 12 : limit, y: left ? top + 11 : top + 34 };
    drawing.append(svg("text", place, text));
    top += left ? 32 : 52;
  }
  return top;
}

// One stop of the Tab key for the bar; the arrow keys go on from piece to piece.
function rove(drawing) {
  const pieces = [...drawing.querySelectorAll("[data-tip]")];
  pieces.slice(1).forEach((piece) => piece.setAttribute("tabindex", -1));
  drawing.addEventListener("keydown", (event) => {
    const at = pieces.indexOf(document.activeElement);
    const to = { ArrowRight: at + 1, ArrowLeft: at - 1, Home: 0, End: pieces.length - 1 }[event.key];
    if (!pieces[to]) return;
    pieces[at]?.setAttribute("tabindex", -1);
    pieces[to].setAttribute("tabindex", 0);
    pieces[to].focus();
    event.preventDefault();
  });
}

function drawBar(bar) {
  const total = bar.segments.reduce((sum, { size }) => sum + size, 0);
  const scale = WIDTH / Math.max(total, bar.room, 1);
  const drawing = svg("svg", { role: "group", "aria-label": bar.title });
  drawing.append(svg("rect", { x: 0, y: 4, width: WIDTH, height: 36, class: "free" }));
  const drawn = barPieces(bar, scale, drawing);
  const start = Math.max(0, bar.room - bar.reserve) * scale;
  if (bar.reserve) {
    const place = { x: start, y: 4, width: bar.room * scale - start, height: 36 };
    drawing.append(svg("rect", { ...place, class: "reserve-zone" }));
  }
  let bottom = 50;
  if (total > bar.room) {
    const x = bar.room * scale;
    drawing.append(svg("line", { x1: x, x2: x, y1: 0, y2: 48, class: "limit" }));
    const end = x > WIDTH * 0.8;
    const place = { x: end ? x - 4 : x + 4, y: 60, class: end ? "end" : "start" };
    drawing.append(svg("text", place, `room ${number(bar.room)}`));
    bottom = 68;
  }
  if (bar.unit !== "tokens") bottom = shareBars(scale, drawing, bottom + 8);
  drawing.setAttribute("viewBox", `0 0 ${WIDTH} ${bottom}`);
  rove(drawing);

  const sizes = new Map(Object.keys(PARTS).map((part) => [part, 0]));
  for (const { part, size } of bar.segments) sizes.set(part, sizes.get(part) + size);
  sizes.set("free", Math.max(0, bar.room - total));
  const entries = [...sizes]
    .filter(([, size]) => size)
    .map(([part, size]) => [classOf(part), `${PARTS[part]} ${number(size)}`]);
  if (bar.reserve) entries.push(["reserve", `${bar.reserved} ${number(bar.reserve)}`]);
  const over = total - bar.room;
  const state = over > 0 ? `${number(over)} over` : `${number(sizes.get("free"))} free`;
  const caption = ` ${number(total)} of ${number(bar.room)} ${bar.unit}, ${state}`;
  const figure = html(
    "figure",
    {},
    html("figcaption", {}, bar.title, html("span", {}, caption)),
    drawing,
    legend(entries),
    html("ul", { class: "reasons" }, ...bar.reasons.map((reason) => html("li", {}, reason))),
  );
  if (bar.note) figure.append(html("p", { class: "note" }, `truncated: ${bar.note}`));
  document.getElementById("bars").append(figure);
  for (const warning of bar.warnings) {
    const text = `${bar.title}: ${warning}.`;
    document.getElementById("warnings").append(html("p", { class: "warning" }, text));
  }
  check(drawn === total, `the pieces of the ${bar.title}'s bar add up`);
}

// --- how the page fills ---

const { budgets, fills } = data;
const AREAS = ["facts", "bodies", "listing", "blank"];
const AREA_NAMES = ["facts", "bodies", "listing", "blank lines"];
const LENGTH = 4;
const TOKENS = 5;
const CHART = { left: 62, right: 980, top: 20, bottom: 270 };
const ESTIMATE = { top: 304, bottom: 394 };
const logarithm = (budget) => Math.log(Math.max(1, budget));
const lowest = logarithm(budgets[0]);
let shown = budgets.length; // budgets of the run that are drawn, from the least on
let charts = [];

// Where a budget stands from the least one drawn, 0, to the greatest, 1.
const along = (budget, count = shown) =>
  (logarithm(budget) - lowest) / (logarithm(budgets[count - 1]) - lowest);
const acrossChart = (budget) => CHART.left + along(budget) * (CHART.right - CHART.left);

// A round number that a few steps bring to the greatest value.
function step(greatest) {
  const rough = Math.max(1, greatest / 4);
  const power = 10 ** Math.floor(Math.log10(rough));
  return [1, 2, 5, 10].map((factor) => factor * power).find((value) => value >= rough);
}

function axis(drawing, greatest, { top, bottom }, unit) {
  const scale = (bottom - top) / greatest;
  const each = step(greatest);
  for (let value = 0; value <= greatest; value += each) {
    const y = bottom - value * scale;
    drawing.append(svg("line", { x1: CHART.left, x2: CHART.right, y1: y, y2: y, class: "grid" }));
    drawing.append(svg("text", { x: CHART.left - 6, y: y + 4, class: "end" }, number(value)));
  }
  drawing.append(svg("text", { x: CHART.left, y: top - 8 }, unit));
  return (value) => bottom - value * scale;
}

function drawAreas(drawing, run, up) {
  const points = run.map((row, index) => ({ x: acrossChart(budgets[index]), row }));
  let below = points.map(() => 0);
  AREAS.forEach((area, index) => {
    const above = points.map(({ row }, at) => below[at] + row[index]);
    const edge = points.map(({ x }, at) => `${x.toFixed(1)},${up(above[at]).toFixed(1)}`);
    const floor = points.map(({ x }, at) => `${x.toFixed(1)},${up(below[at]).toFixed(1)}`).reverse();
    drawing.append(svg("polygon", { points: [...edge, ...floor].join(" "), class: area }));
    below = above;
  });
  return below;
}

function drawEstimate(drawing, run) {
  const tokens = Math.max(1, ...run.map((row) => row[TOKENS]));
  const up = axis(drawing, tokens, ESTIMATE, "tokens (estimate); dashed: the budget");
  const line = (value) =>
    run
      .map((row, at) => [acrossChart(budgets[at]), value(row, budgets[at])])
      .filter(([, height]) => height <= tokens)
      .map(([x, height]) => `${x.toFixed(1)},${up(height).toFixed(1)}`)
      .join(" ");
  const budgetLine = line((row, budget) => budget);
  drawing.append(svg("polyline", { points: budgetLine, class: "budget-line" }));
  drawing.append(svg("polyline", { points: line((row) => row[TOKENS]), class: "estimate" }));
}

function upright(drawing, budget, look, label) {
  const x = acrossChart(budget);
  const line = svg("line", { x1: x, x2: x, y1: CHART.top, y2: ESTIMATE.bottom, class: look });
  drawing.append(line);
  const anchor = x > CHART.right - 80 ? "end" : "middle";
  if (label) drawing.append(svg("text", { x, y: CHART.top - 8, class: anchor }, label));
  return line;
}

function drawFill({ bar, whole, drawing }) {
  const run = whole.slice(0, shown);
  drawing.replaceChildren();
  const up = axis(drawing, Math.max(1, ...run.map((row) => row[LENGTH])), CHART, "characters");
  const tops = drawAreas(drawing, run, up);
  drawEstimate(drawing, run);
  for (let budget = budgets[0]; budget <= budgets[shown - 1]; budget *= 2) {
    drawing.append(svg("text", { x: acrossChart(budget), y: 412, class: "middle" }, number(budget)));
  }
  if (data.budget >= budgets[0] && data.budget <= budgets[shown - 1]) {
    upright(drawing, data.budget, "own", "this page's budget");
  }
  check(
    whole.length === budgets.length && run.every((row, at) => tops[at] === row[LENGTH]),
    `the areas of the ${bar.title} add up to the text's length`,
  );
  return upright(drawing, budgets[0], "cursor");
}

function addFill(bar, whole) {
  const drawing = svg("svg", {
    viewBox: `0 0 ${WIDTH} 420`,
    tabindex: 0,
    role: "slider",
    "aria-label": `${bar.title}: budget in tokens`,
    "aria-valuemin": budgets[0],
    "aria-valuemax": last(budgets),
  });
  const readout = html("p", { class: "readout" });
  const entries = AREAS.map((area, index) => [area, AREA_NAMES[index]]);
  const caption = html("span", {}, " the text of the grounding by the budget in tokens");
  const figure = html(
    "figure",
    {},
    html("figcaption", {}, bar.title, caption),
    drawing,
    legend([...entries, ["estimate", "estimate in tokens"]]),
    readout,
  );
  charts.push({ bar, whole, drawing, readout, cursor: null });
  listen(drawing);
  document.getElementById("fills").append(figure);
}

function moveCursor({ whole, drawing, readout, cursor }, at) {
  const row = whole[at];
  const sizes = AREA_NAMES.map((name, index) => `${name} ${number(row[index])}`).join(" + ");
  const text =
    `budget ${number(budgets[at])}: ${sizes} = ${number(row[LENGTH])} characters, ` +
    `${number(row[TOKENS])} tokens`;
  const x = acrossChart(budgets[at]);
  cursor.setAttribute("x1", x);
  cursor.setAttribute("x2", x);
  readout.textContent = text;
  drawing.setAttribute("aria-valuenow", budgets[at]);
  drawing.setAttribute("aria-valuetext", text);
}

function drawFills() {
  for (const chart of charts) chart.cursor = drawFill(chart);
  choose(Math.min(chosen, shown - 1));
}

function offerZoom() {
  const upTo = document.getElementById("up-to");
  for (let budget = budgets[0] * 4; budget < last(budgets); budget *= 2) {
    upTo.append(html("option", { value: budget }, number(budget)));
  }
  upTo.append(html("option", { value: last(budgets), selected: "" }, number(last(budgets))));
  upTo.addEventListener("change", () => {
    shown = budgets.filter((budget) => budget <= Number(upTo.value)).length;
    drawFills();
  });
}

let chosen = 0;
function choose(at) {
  chosen = Math.min(shown - 1, Math.max(0, at));
  for (const chart of charts) moveCursor(chart, chosen);
}

function nearest(budget) {
  const distances = budgets.map((each) => Math.abs(logarithm(each) - logarithm(budget)));
  return distances.indexOf(Math.min(...distances));
}

function listen(drawing) {
  drawing.addEventListener("pointermove", (event) => {
    const box = drawing.getBoundingClientRect();
    const x = ((event.clientX - box.left) / box.width) * WIDTH;
    const part = (x - CHART.left) / (CHART.right - CHART.left);
    choose(nearest(Math.exp(lowest + part * (logarithm(budgets[shown - 1]) - lowest))));
  });
  const keys = { ArrowRight: 1, ArrowUp: 1, ArrowLeft: -1, ArrowDown: -1, PageUp: 20, PageDown: -20 };
  const ends = { Home: 0, End: Infinity };
  drawing.addEventListener("keydown", (event) => {
    if (event.key in ends) choose(ends[event.key]);
    else if (event.key in keys) choose(chosen + keys[event.key]);
    else return;
    event.preventDefault();
  });
}

// --- tables ---

const spokenRun = ([from, to]) =>
  to === null ? `${number(from)} on` : from === to ? number(from) : `${number(from)}–${number(to)}`;
const spoken = (runs) => runs.map(spokenRun).join(", ") || "no budget";

// The budgets with which something stands, as a strip as far as the charts reach, and in words.
function runsCell(runs, look) {
  const across = (budget) =>
    along(Math.min(Math.max(budget ?? Infinity, budgets[0]), last(budgets)), budgets.length) * 140;
  const strip = svg("svg", { class: "strip", viewBox: "0 0 140 9", "aria-hidden": "true" });
  strip.append(svg("rect", { width: 140, height: 9, class: "free" }));
  for (const [from, to] of runs) {
    const width = Math.max(1.5, across(to) - across(from));
    strip.append(svg("rect", { x: across(from), width, height: 9, class: look }));
  }
  const cell = html("td", { class: "runs" }, strip);
  const whole = runs.length === 1 && runs[0][0] === 0 && runs[0][1] === null;
  if (runs.length <= 3) {
    cell.append(html("small", {}, whole ? "all" : spoken(runs)));
  } else {
    const text = `${runs.length} stretches in ${spokenRun([runs[0][0], last(runs)[1]])}`;
    cell.append(html("small", told(spoken(runs)), text));
  }
  return cell;
}

const state = (text, kept) => html("span", { class: `verdict ${kept}` }, text);
const count = (value) => html("td", { class: "number" }, value === null ? "?" : number(value));

function fillTable(id, columns, rows) {
  const heads = columns.map(([name, look]) => html("th", { scope: "col", class: look }, name));
  const body = html("tbody");
  for (const { name, small, text, cells } of rows) {
    const button = html("button", { type: "button", "aria-expanded": "false" }, name);
    const opened = html("tr", { class: "text", hidden: "" });
    button.addEventListener("click", () => {
      if (!opened.hasChildNodes()) {
        opened.append(html("td", { colspan: columns.length }, html("pre", {}, text)));
      }
      opened.hidden = !opened.hidden;
      button.setAttribute("aria-expanded", String(!opened.hidden));
    });
    const head = html("th", { scope: "row" }, button);
    if (small) head.append(html("small", {}, small));
    body.append(html("tr", { class: "row" }, head, ...cells), opened);
  }
  document.getElementById(id).append(html("thead", {}, html("tr", {}, ...heads)), body);
  checkTable(body, id, rows);
}

function checkTable(body, id, rows) {
  const shown = [...body.querySelectorAll("tr.row button")];
  const names = shown.map((button) => button.textContent);
  const opens = shown.every((button, at) => {
    button.click();
    const opened = button.closest("tr").nextSibling;
    const right = !opened.hidden && opened.textContent === rows[at].text;
    button.click();
    opened.replaceChildren();
    return right && opened.hidden;
  });
  check(rows.every(({ name }, at) => names[at] === name), `the table of ${id} has every block`);
  check(names.length === rows.length && opens, `each row of ${id} opens its text`);
}

const advised = (advice) => [
  ...(advice?.changes ?? []).map(({ words }) => html("small", {}, `+ ${words}`)),
  ...(advice?.refused ?? []).map((words) => html("small", {}, `− ${words}`)),
];

function factRow({ report, text, tokens, api, reason, advice, runs }) {
  const always = pinned.has(report.label) ? "always kept on the agent path" : "";
  const why = html("td", { class: "why" }, state(report.verdict, report.kept ? "kept" : "lost"));
  if (reason) why.append(html("small", {}, reason));
  why.append(...advised(advice));
  const half = api === "cut" ? "half" : "lost";
  return {
    name: report.label,
    small: [report.key && `kind: ${report.key}`, always].filter(Boolean).join(", "),
    text,
    cells: [
      why,
      count(report.text),
      count(report.seeds),
      report.kept ? html("td") : count(report.short_by),
      runsCell(runs[1], "facts"),
      html("td", {}, state(api, api === "whole" ? "kept" : half)),
      count(tokens),
      runsCell(runs[0], "facts"),
    ],
  };
}

function symbolRow({ name, text, tokens, least, api, agent, runs }, rank) {
  const looks = { body: "kept", listed: "half", "not shown": "lost" };
  return {
    name,
    small: `rank ${number(rank + 1)}`,
    text,
    cells: [
      count(tokens),
      html("td", {}, state(api, looks[api])),
      least === 0 ? html("td", { class: "number" }, "any") : count(least),
      html("td", {}, state(agent, looks[agent])),
      runsCell(runs[0], "bodies"),
    ],
  };
}

// --- tooltip ---

const tip = document.getElementById("tip");
function showTip(event) {
  const target = event.target.closest?.("[data-tip]");
  tip.hidden = !target;
  if (!target) return;
  tip.textContent = target.dataset.tip;
  const box = target.getBoundingClientRect();
  const left = Math.min(Math.max(8, box.left), innerWidth - tip.offsetWidth - 8);
  tip.style.left = `${left}px`;
  tip.style.top = `${Math.max(4, box.top - tip.offsetHeight - 6)}px`;
}
document.addEventListener("pointerover", showTip);
document.addEventListener("focusin", showTip);
document.addEventListener("keydown", (event) => {
  if (event.key === "Escape") tip.hidden = true;
});

// --- the page ---

document.querySelector("h1").textContent = data.head[0];
document.getElementById("policy").textContent = data.head.slice(1).join("; ");
data.bars.forEach(drawBar);
data.bars.forEach((bar, at) => addFill(bar, fills[at]));
offerZoom();
chosen = nearest(data.budget);
drawFills();

fillTable(
  "facts",
  [
    ["block"],
    ["agent path: verdict"],
    ["text", "number"],
    ["seeds", "number"],
    ["short by", "number"],
    ["budgets that keep it"],
    ["API path"],
    ["tokens", "number"],
    ["budgets at which it is whole"],
  ].map(([name, look]) => [name, look ?? null]),
  data.facts.map(factRow),
);
fillTable(
  "symbols",
  [
    ["symbol"],
    ["tokens", "number"],
    ["API path"],
    ["least budget", "number"],
    ["agent path"],
    ["budgets that keep its body"],
  ].map(([name, look]) => [name, look ?? null]),
  data.symbols.map(symbolRow),
);
if (data.next_body) {
  const body = document.getElementById("next-body");
  body.append(`For the body of ${data.next_body.what}:`, ...advised(data.next_body));
}
check(budgets.length >= 200, "the run has 200 budgets");
check(data.symbols.every(({ least }, at, all) => !at || least >= all[at - 1].least), "least budgets grow");
check(!performance.getEntriesByType("resource").length, "nothing is fetched");
addEventListener("load", report);
