// The page of one fit: shows a state, and shows another when a knob is turned.
import { check, checkContrast, checkNothingFetched, report } from "./checks.js";
import { drawBar } from "./bars.js";
import { drawCharts, offerCharts, pointAt } from "./charts.js";
import { data, stateAt, knobs } from "./data.js";
import { byId, fill, html } from "./dom.js";
import { factTable, tellFacts } from "./facts.js";
import { offerKnobs, state, turn, whenTurned } from "./knobs.js";
import { followLinks } from "./links.js";
import { symbolTable, tellSymbols } from "./symbols.js";

function tellHead() {
  const [title, ...lines] = data.head;
  document.title = title;
  fill("title", html("bdi", {}, title));
  fill("policy", lines.join("; "));
  const { overview } = data;
  byId("back").hidden = !overview;
  const link = html("a", { href: overview }, "Policies over all pages");
  fill("back", link, "; this is one of them, as saved");
}

function drawBars(shown) {
  drawBar("agent", shown.agent);
  drawBar("api", shown.api);
}

function show(shown) {
  fill("said", shown.said);
  const warnings = [
    ...shown.agent.warnings.map((words) => `For an agent: ${words}.`),
    ...shown.api.warnings.map((words) => `For the API: ${words}.`),
  ];
  fill("warnings", ...warnings.map((words) => html("p", { class: "warning" }, words)));
  drawBars(shown);
  pointAt(shown);
  tellFacts();
  tellSymbols();
}

function checkStates() {
  for (const knob of Object.keys(knobs)) {
    knobs[knob].forEach((value, at) => {
      for (const path of ["agent", "api"]) {
        const { pieces, size } = stateAt(knob, at)[path];
        const sum = pieces.reduce((total, piece) => total + piece.size, 0);
        check(sum === size, `the pieces of the ${path} bar add up at ${knob} ${value}`);
      }
    });
  }
}

tellHead();
whenTurned(show);
offerKnobs();
byId("floor-figure").hidden = !knobs.floor.length;
drawCharts(state());
offerCharts(turn);
followLinks();
let width = document.body.clientWidth;
addEventListener("resize", () => {
  if (width === document.body.clientWidth) return; // a phone's own bars come and go
  width = document.body.clientWidth;
  drawBars(state());
  drawCharts(state());
});
check(factTable.rows.length === data.facts.length, "every fact block has a row");
check(symbolTable.rows.length === data.symbols.names.length, "every symbol has a row");
checkStates();
checkNothingFetched();
addEventListener("load", () => {
  checkContrast();
  report();
});
