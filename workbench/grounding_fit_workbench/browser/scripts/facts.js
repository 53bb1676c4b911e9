// The table of fact blocks: what became of each, why, and what would keep it.
import { data, facts, refusalOf } from "./data.js";
import { html, strip, svg } from "./dom.js";
import { isOwn, state, stateWith, turn } from "./knobs.js";
import { Rows } from "./rows.js";
import { textBox } from "./texts.js";
import { filled, number, spoken, spokenRun } from "./words.js";

const STRIP = 140; // the width of a strip of budgets, in its own units
const STRETCHES = 3; // that are told before a row is opened
const { states } = data;
const reach = states.budgets[states.budgets.length - 1].budget;

const MARKS = { kept: "✓ ", part: "◐ ", lost: "✕ " };

const mark = (sign) => html("i", { "aria-hidden": "true" }, sign);
export const verdict = (text, look) =>
  html("span", { class: `verdict ${look}` }, mark(MARKS[look]), text);

// The budgets with which something stands, as a strip as far as the knob reaches, and in words. For
// an agent they are those of the page's own code floor, whatever the knob of the floor shows.
export function budgetsOf(runs, part, path = "agent") {
  const across = (budget) => Math.min(STRIP, (budget / reach) * STRIP);
  const ground = svg("rect", { width: STRIP, height: 8, class: "ink free" });
  const drawn = strip("strip", `0 0 ${STRIP} 8`, ground);
  for (const [from, to] of runs) {
    if (from > reach) continue;
    const width = Math.max(1, across(to ?? reach) - across(from));
    drawn.append(svg("rect", { x: across(from), width, height: 8, class: `ink ${part}` }));
  }
  const elsewhere = path === "agent" && state().floor !== data.own.floor;
  const x = across(state().budget);
  if (!elsewhere) drawn.append(svg("line", { x1: x, x2: x, y1: 0, y2: 8, class: "cursor" }));
  const many = runs.length > STRETCHES;
  const between = many ? spokenRun([runs[0][0], runs[runs.length - 1][1]]) : "";
  const words = many ? `${runs.length} stretches in ${between}` : spoken(runs);
  return [drawn, html("small", {}, words, elsewhere && ` with a floor of ${data.own.floor}`)];
}

// A change that a knob can make here is one click away.
function change({ knob, to, words }) {
  const name = { budget: "budget", code_floor: "floor" }[knob];
  const at = name ? stateWith(name, to) : -1;
  const item = html("li", { class: "kept" }, mark("+ "), `${words} `);
  if (at >= 0) {
    const button = html("button", { type: "button", class: "try stop", tabindex: -1 }, "try it");
    button.addEventListener("click", () => turn(name, at));
    item.append(button);
  }
  return item;
}

export function adviceOn(advice) {
  if (!advice || !isOwn()) return "";
  const refused = advice.refused.map((words) => html("li", { class: "lost" }, mark("− "), words));
  return html("ul", { class: "advice" }, ...advice.changes.map(change), ...refused);
}

function agentCell({ index, always }) {
  const refusal = refusalOf(state().agent, index);
  if (!refusal) return verdict(always || "kept", "kept");
  const reason = filled(refusal.sentence, refusal.values);
  return [verdict(refusal.verdict, "lost"), html("small", {}, reason)];
}

function details({ cost, adds, runs }) {
  const [api, agent] = runs.map(spoken);
  const [counts, added] = [cost, adds].map((sizes) => sizes.map(number).join(" + "));
  return html(
    "p",
    {},
    `For its share it counts ${counts} JSON characters, with quotes, brackets and all its seeds; to
     an answer it adds ${added}. With the page’s own code floor an agent has it at budgets of
     ${agent}. For the API it is whole at ${api}.`,
  );
}

function rowOf(fact) {
  const { index, label, key, cost, tokens, runs, advice } = fact;
  const refusal = refusalOf(state().agent, index);
  const api = state().api.facts[index];
  const look = { whole: "kept", cut: "part", "no text": "kept" }[api] ?? "lost";
  const place = `block ${number(index + 1)}${key ? `, kind ${key}` : ""}`;
  const size = `${number(cost[0])} + ${number(cost[1])} of seeds`;
  const whole = html("small", {}, `${number(tokens)} tokens; whole at budgets of`);
  const row = {
    id: `fact-${index + 1}`,
    index,
    search: `${label} ${key}`,
    left: Boolean(refusal),
    cut: api !== "whole" && api !== "no text",
    size: cost[0] + cost[1],
    seeds: cost[1],
    tokens,
    short: refusal ? (refusal.short ?? Infinity) : -1,
    head: () => [named(table, row, label), html("small", {}, place, html("br"), size)],
    cells: () => [
      agentCell(fact),
      budgetsOf(runs[1], "facts"),
      [verdict(api, look), whole, ...budgetsOf(runs[0], "facts", "api")],
    ],
    under: () => refusal && adviceOn(advice),
    opened: () => [details(fact), addressOf(row), textBox("fact", index)],
  };
  return row;
}

// The name of a block or symbol opens its text, with what a link to it ends in.
export const named = (rows, row, name) => rows.opener(row, "text", html("bdi", {}, name));
export const addressOf = ({ id }) =>
  html("p", {}, html("a", { href: `#${id}` }, `#${id}`), " leads here from anywhere.");

const table = new Rows("fact", {
  columns: ["Block, JSON characters", "For an agent", "Kept at budgets of", "For the API"],
  choices: {
    "left out for an agent": ({ left }) => left,
    "cut or left out for the API": ({ cut }) => cut,
    all: () => true,
  },
  orders: {
    "reading order": (one, other) => one.index - other.index,
    "left out first, then largest": (one, other) => other.left - one.left || other.size - one.size,
    "largest first": (one, other) => other.size - one.size,
    "most seeds first": (one, other) => other.seeds - one.seeds,
    "closest to fitting first": (one, other) => other.left - one.left || one.short - other.short,
    "most tokens first": (one, other) => other.tokens - one.tokens,
  },
});

export const factTable = table;
export const tellFacts = () => table.update(facts.map(rowOf));
