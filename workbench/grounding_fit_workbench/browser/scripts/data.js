// What the writer of the page has stored, with the states of the knobs spelled out.
import { byId } from "./dom.js";

export const data = JSON.parse(byId("data").textContent);
export const facts = data.facts.map((fact, index) => ({ ...fact, index }));

const { states, symbols } = data;
const TOLD = facts.filter(({ empty }) => !empty);

const piece = (part, size, name, row = null) => ({ part, size, name, row });
const sum = (pieces) => pieces.reduce((total, { size }) => total + size, 0);

function agentPieces(agent) {
  const [other, note, listing] = agent.sizes;
  if (agent.own_stuff) return [piece("other", other, "the answer as the host gave it")];
  const pieces = [piece("other", other, "other fields, names and punctuation")];
  for (const { index, label, adds, empty } of facts) {
    if (index in agent.left) continue;
    if (!empty) pieces.push(piece("facts", adds[0], label, `fact-${index + 1}`));
    if (!empty) pieces.push(piece("seeds", adds[1], `the seeds of ${label}`, `fact-${index + 1}`));
  }
  pieces.push(piece("note", note, "the note that says what was left out"));
  pieces.push(piece("listing", listing, "the listing"));
  for (let rank = 0; rank < agent.bodies; rank += 1) {
    const [text, seeds] = symbols.adds[rank];
    const name = symbols.names[rank];
    pieces.push(piece("bodies", text, name, `symbol-${rank + 1}`));
    pieces.push(piece("body seeds", seeds, `the seed of ${name}`, `symbol-${rank + 1}`));
  }
  return pieces;
}

function apiPieces(api) {
  const [inFacts, listing, joins] = api.sizes;
  const pieces = TOLD.slice(0, api.whole).map(({ index, label, tokens }) =>
    piece("facts", tokens, label, `fact-${index + 1}`),
  );
  const rest = inFacts - sum(pieces);
  for (const index of api.cut) {
    const { label } = facts[index];
    pieces.push(piece("facts", rest, `what stands of ${label}`, `fact-${index + 1}`));
  }
  if (!api.cut.length) pieces.push(piece("facts", rest, "blank lines between fact blocks"));
  pieces.push(piece("listing", listing, "the listing"));
  for (let rank = 0; rank < api.bodies; rank += 1) {
    pieces.push(piece("bodies", symbols.tokens[rank], symbols.names[rank], `symbol-${rank + 1}`));
  }
  pieces.push(piece("joins", joins, "blank lines and rounding"));
  return pieces;
}

function factOutcome(api, { index, empty }) {
  if (empty) return "no text";
  if (api.cut.includes(index)) return "cut";
  return TOLD.findIndex((fact) => fact.index === index) < api.whole ? "whole" : "left out";
}

function stateOf(stored, knob) {
  const agent = states.agents[stored.agent];
  const api = states.apis[stored.api];
  return {
    floor: data.own.floor,
    ...stored,
    knob,
    agent: { ...agent, room: data.cap, pieces: agentPieces(agent) },
    api: {
      ...api,
      room: stored.budget,
      reserve: api.share,
      pieces: apiPieces(api),
      facts: facts.map((fact) => factOutcome(api, fact)),
    },
  };
}

// The states of a knob by their number, spelled out when they are first asked for.
export const knobs = {
  budget: states.budgets.map(({ budget }) => budget),
  floor: states.floors.map(({ floor }) => floor),
};
export const ownAt = {
  budget: knobs.budget.indexOf(data.own.budget),
  floor: knobs.floor.indexOf(data.own.floor),
};
const spelled = new Map();
export function stateAt(knob, at) {
  const key = `${knob} ${at}`;
  const stored = { budget: states.budgets, floor: states.floors }[knob][at];
  if (!spelled.has(key)) spelled.set(key, stateOf(stored, knob));
  return spelled.get(key);
}

// Why a block was left out for an agent; undefined for one that was kept.
export function refusalOf(agent, index) {
  if (!(index in agent.left)) return undefined;
  const [short, told, ...values] = states.refusals[agent.left[index]];
  const [verdict, sentence] = states.sentences[told];
  return { short, verdict, sentence, values };
}

export function outcomeOf(path, rank) {
  if (rank < path.bodies) return "body";
  return rank < path.bodies + path.listed ? "listed" : "not shown";
}
