// The knobs: each goes through its states, and the other one back to the page's own value.
import { data, knobs, ownAt, stateAt } from "./data.js";
import { byId, fill, html } from "./dom.js";
import { counted, number, spokenRun, within } from "./words.js";

const listeners = [];
const positions = { ...ownAt };
let shown = stateAt("budget", ownAt.budget);

export const state = () => shown;
export const isOwn = () => positions.budget === ownAt.budget && positions.floor === ownAt.floor;
export const whenTurned = (listener) => listeners.push(listener);

const values = {
  budget: (at) => `${number(knobs.budget[at])} tokens`,
  floor: (at) => knobs.floor[at],
};

function tellKnob(knob) {
  const at = positions[knob];
  const slider = byId(`${knob}-knob`);
  const own = at === ownAt[knob] ? ", the page’s own" : "";
  slider.value = at;
  slider.setAttribute("aria-valuetext", `${values[knob](at)}${own}`);
  fill(`${knob}-value`, html("b", {}, values[knob](at)), own);
}

function reachOfBudget({ holds }) {
  const [agent, api] = holds.map((run) => {
    const all = run[0] === 0 && run[1] === null;
    return all ? "any budget" : `budgets of ${spokenRun(run)}`;
  });
  return `For an agent the answer is the same at ${agent}. For the API the same bodies
    and whole blocks stand at ${api}; what is told of it is of this very budget.`;
}

function reachOfFloor({ floor, told }) {
  if (!told.length) return `A floor of ${floor} is none from 0 to 1.`;
  return `For an agent the answer is the same at floors of ${told.join(" to ")}.
    The code floor does nothing for the API.`;
}

export function turn(knob, at) {
  const other = { budget: "floor", floor: "budget" }[knob];
  positions[knob] = Math.min(Math.max(at, 0), knobs[knob].length - 1);
  positions[other] = ownAt[other];
  shown = stateAt(knob, positions[knob]);
  tell();
}

function tell() {
  tellKnob("budget");
  if (knobs.floor.length) tellKnob("floor");
  const reach = shown.knob === "budget" ? reachOfBudget(shown) : reachOfFloor(shown);
  fill("beside", shown.beside || "This is the page as saved.");
  fill("reach", reach);
  byId("reset").disabled = isOwn();
  for (const listener of listeners) listener(shown);
}

// The state of a value of a knob, if one is stored: another value may lead to the same answer.
export function stateWith(knob, value) {
  if (knob === "budget") return knobs.budget.indexOf(value);
  const holds = data.states.floors.map((each) => each.holds);
  return holds.findIndex((each) => each && within([each], value));
}

function tellStored() {
  const answers = new Set(data.states.budgets.map(({ holds }) => holds[0][0])).size;
  const floors = data.states.floors.filter(({ holds }) => holds).length;
  const all = counted(data.symbols.bodies.length, "answer", "answers");
  const told = [`${number(answers)} of the ${all} that token budgets lead to`];
  const ofFloors = number(data.states.floor_ranges);
  if (floors) told.push(`${number(floors)} of the ${ofFloors} of code floors`);
  fill("stored", `Stored here: ${told.join(", and ")}.`);
}

export function offerKnobs() {
  for (const knob of ["budget", "floor"]) {
    const slider = byId(`${knob}-knob`);
    slider.max = knobs[knob].length - 1;
    slider.addEventListener("input", () => turn(knob, Number(slider.value)));
  }
  if (!knobs.floor.length) {
    byId("floor-knob").hidden = true;
    fill("floor-value", `${data.own.floor}: with any other from 0 to 1 this page is the same`);
  }
  byId("reset").addEventListener("click", () => {
    turn("budget", ownAt.budget);
    byId("budget-knob").focus();
  });
  tellStored();
  tell();
}
