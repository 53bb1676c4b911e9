// The charts: how both paths fill as a knob is turned. A click turns it to the nearest state.
import { data, knobs } from "./data.js";
import { byId, svg } from "./dom.js";
import { number } from "./words.js";

const HEIGHT = 250;
const TOP = 22;
const BOTTOM = 212;
const LEFT = 58;
const EDGE = 14; // on the right
const AGENT = ["other", "facts", "seeds", "note", "listing", "bodies", "body seeds"];
const API = ["facts", "listing", "bodies", "joins"];
const { growth } = data;
const reach = knobs.budget[knobs.budget.length - 1];

// A round step that a few of bring to the greatest value.
function step(greatest) {
  const power = 10 ** Math.floor(Math.log10(Math.max(greatest, 1e-6) / 4));
  return [1, 2, 2.5, 5, 10].map((factor) => factor * power).find((each) => each * 4.5 >= greatest);
}

function axes(chart, drawing) {
  const { width, most, tall, knob } = chart;
  const across = (value) => LEFT + (value / most) * (width - LEFT - EDGE);
  const up = (value) => BOTTOM - (value / tall) * (BOTTOM - TOP);
  for (let value = 0; value <= tall; value += step(tall)) {
    const y = up(value);
    drawing.append(svg("line", { x1: LEFT, x2: width - EDGE, y1: y, y2: y, class: "grid" }));
    drawing.append(svg("text", { x: LEFT - 6, y: y + 4, class: "end" }, number(value)));
  }
  const each = step((most * 420) / width); // fewer where it is narrow
  for (let value = 0; value <= most * 1.0001; value += each) {
    const place = { x: across(value), y: BOTTOM + 17, class: "middle" };
    drawing.append(svg("text", place, number(Number(value.toFixed(4)))));
  }
  drawing.append(svg("text", { x: width - EDGE, y: BOTTOM + 34, class: "end" }, units[knob]));
  return { across, up };
}

const stacked = (sizes) =>
  sizes.reduce((ends, size) => [...ends, ends[ends.length - 1] + Math.max(0, size)], [0]);

// An answer of the agent path stands between two values of a knob and is the same all along.
function steps(rows, most) {
  const within = rows.filter(([from]) => from <= most);
  return within.map(([from, last, ...sizes], at) => {
    const next = within[at + 1]?.[0];
    const joined = next !== undefined && last !== null && next - last <= 1;
    const to = joined ? next : Math.min(last ?? most, most);
    return { from, to, start: stacked(sizes), end: stacked(sizes) };
  });
}

// A text of the API path is known at some budgets, with a line from each to the next.
const slopes = (rows) =>
  rows.slice(1).map(([to, ...sizes], at) => {
    const [from, ...before] = rows[at];
    return { from, to, start: stacked(before), end: stacked(sizes) };
  });

// The outline of one part of the stack, along columns that stand side by side.
function outline(columns, index, { across, up }) {
  const edge = (level) =>
    columns.flatMap(({ from, to, start, end }) => [
      `${across(from).toFixed(1)} ${up(start[level]).toFixed(1)}`,
      `${across(to).toFixed(1)} ${up(end[level]).toFixed(1)}`,
    ]);
  return `M${[...edge(index + 1), ...edge(index).reverse()].join("L")}Z`;
}

function drawStack({ parts, columns }, scales, drawing) {
  const runs = [];
  columns.forEach((column, at) => {
    if (!at || columns[at - 1].to < column.from) runs.push([]);
    runs[runs.length - 1].push(column);
  });
  parts.forEach((part, index) => {
    const d = runs.map((run) => outline(run, index, scales)).join("");
    const name = part.replace(" ", "-");
    drawing.append(svg("path", { d, class: `ink ${name}` }));
    drawing.append(svg("path", { d, class: "pattern", fill: `url(#pattern-${name})` }));
  });
}

// What nothing may pass: the cap is the same at any budget, the budget is as large as itself.
function drawLimit({ id, most, tall }, { across, up }, drawing) {
  const ends = id === "api-chart" ? [0, Math.min(most, tall)] : [data.cap, data.cap];
  const x2 = id === "api-chart" ? across(ends[1]) : across(most);
  const line = { x1: LEFT, x2, y1: up(ends[0]), y2: up(ends[1]), class: "limit" };
  const words = id === "api-chart" ? "the budget" : `the cap, ${number(data.cap)}`;
  drawing.append(svg("line", line));
  const place = { x: LEFT + 6, y: TOP - 8, class: "limit-name" };
  drawing.append(svg("text", place, `red line: ${words}`));
}

const ranges = { budget: [0, reach], floor: [0, 1] };
const units = { budget: "token budget", floor: "code floor" };
const charts = [
  { id: "agent-chart", knob: "budget", parts: AGENT, columns: steps(growth.agent, reach) },
  { id: "api-chart", knob: "budget", parts: API, columns: slopes(growth.api) },
  { id: "floor-chart", knob: "floor", parts: AGENT, columns: steps(growth.floors, 1) },
];

function draw(chart) {
  const box = byId(chart.id);
  chart.width = Math.max(280, box.clientWidth);
  chart.most = ranges[chart.knob][1];
  const tops = chart.columns.flatMap(({ start, end }) => [start.at(-1), end.at(-1)]);
  chart.tall = 1.04 * Math.max(1, ...tops, chart.id === "api-chart" ? 0 : data.cap);
  const drawing = svg("svg", { viewBox: `0 0 ${chart.width} ${HEIGHT}`, role: "img" });
  const caption = box.previousElementSibling.textContent;
  drawing.setAttribute("aria-label", `${caption}; the knobs tell its numbers`);
  const scales = axes(chart, drawing);
  drawStack(chart, scales, drawing);
  drawLimit(chart, scales, drawing);
  const own = Number(data.own[chart.knob]);
  if (own <= chart.most && own >= 0) {
    const x = scales.across(own);
    drawing.append(svg("line", { x1: x, x2: x, y1: TOP, y2: BOTTOM, class: "own" }));
  }
  chart.cursor = svg("line", { y1: TOP - 4, y2: BOTTOM + 4, class: "cursor" });
  chart.scales = scales;
  drawing.append(chart.cursor);
  box.replaceChildren(drawing);
}

export function pointAt(state) {
  for (const chart of charts) {
    if (!chart.cursor) continue;
    const value = Math.min(Math.max(Number(state[chart.knob]) || 0, 0), chart.most);
    const x = chart.scales.across(value);
    chart.cursor.setAttribute("x1", x);
    chart.cursor.setAttribute("x2", x);
  }
}

const there = charts.filter(({ columns }) => columns.length);

export function drawCharts(state) {
  there.forEach(draw);
  pointAt(state);
}

// A click turns a knob to the state that is nearest.
export function offerCharts(turn) {
  for (const chart of there) {
    byId(chart.id).addEventListener("click", (event) => {
      const box = byId(chart.id).getBoundingClientRect();
      const part = (event.clientX - box.left - LEFT) / (chart.width - LEFT - EDGE);
      const distances = knobs[chart.knob].map((value) => Math.abs(value - part * chart.most));
      turn(chart.knob, distances.indexOf(Math.min(...distances)));
    });
  }
}
