// The table of symbols: those around a cut first, since there a change shows.
import { data, outcomeOf } from "./data.js";
import { fill, html } from "./dom.js";
import { addressOf, adviceOn, budgetsOf, named, verdict } from "./facts.js";
import { state } from "./knobs.js";
import { Rows } from "./rows.js";
import { textBox } from "./texts.js";
import { number, spoken } from "./words.js";

const AROUND = 4; // symbols on either side of a cut
const LOOKS = { body: "kept", listed: "part", "not shown": "lost" };
const { symbols } = data;

// The budgets with which a symbol has its body on the agent path.
function agentRuns(rank) {
  const runs = [];
  for (const [least, most, bodies] of symbols.bodies) {
    if (bodies <= rank) continue;
    const before = runs[runs.length - 1];
    if (before && before[1] === least - 1) before[1] = most;
    else runs.push([least, most]);
  }
  return runs;
}

function nearCut(rank) {
  return [state().agent, state().api].some(({ bodies, listed }) =>
    [bodies, bodies + listed].some((cut) => rank >= cut - AROUND && rank < cut + AROUND),
  );
}

function rowOf(name, rank) {
  const agent = outcomeOf(state().agent, rank);
  const api = outcomeOf(state().api, rank);
  const tokens = symbols.tokens[rank];
  const [text, seeds] = symbols.adds[rank];
  const least = symbols.least[rank];
  const place = symbols.places[rank];
  const from = least === null ? "no budget" : `budgets of ${number(least)} on`;
  const where = `rank ${number(rank + 1)}${place && `, ${place}`}`;
  const size = `${number(text)} + ${number(seeds)} of its seed`;
  const row = {
    id: `symbol-${rank + 1}`,
    index: rank,
    name,
    search: `${name} ${place}`,
    near: nearCut(rank),
    tokens,
    agent,
    api,
    head: () => [named(table, row, name), html("small", {}, where)],
    cells: () => [
      [verdict(agent, LOOKS[agent]), html("small", {}, size)],
      budgetsOf(agentRuns(rank), "bodies"),
      [verdict(api, LOOKS[api]), html("small", {}, `${number(tokens)} tokens; body at ${from}`)],
    ],
    opened: () => [
      html("p", {}, `With the page’s own code floor an agent has its body at budgets of
        ${spoken(agentRuns(rank))}.`),
      addressOf(row),
      textBox("symbol", rank),
    ],
  };
  return row;
}

const table = new Rows("symbol", {
  columns: ["Symbol", "For an agent, JSON characters", "Body at budgets of", "For the API"],
  choices: {
    "around the cuts": ({ near }) => near,
    "without a body for an agent": ({ agent }) => agent !== "body",
    "without a body for the API": ({ api }) => api !== "body",
    all: () => true,
  },
  orders: {
    "best first": (one, other) => one.index - other.index,
    "most tokens first": (one, other) => other.tokens - one.tokens,
    "by name": (one, other) => (one.name < other.name ? -1 : 1),
  },
  gap: (before, row, order) => {
    const between = before && order === "best first" ? row.index - before.index - 1 : 0;
    return between > 0 ? `${number(between)} between, of the same outcomes or filtered out` : "";
  },
});

export const symbolTable = table;
export function tellSymbols() {
  table.update(symbols.names.map(rowOf));
  const next = data.next_body;
  const advice = adviceOn(next);
  const head = advice && html("p", {}, `What would give ${next.what} its body, too:`);
  fill("next-body", head, advice);
}
