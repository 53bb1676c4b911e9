// The overview of a comparison: policies, kinds of fact blocks, and pages.
import { check, checkContrast, checkNothingFetched, report } from "./checks.js";
import { data, nameOf } from "./compared.js";
import { byId, fill, html } from "./dom.js";
import { Rows } from "./rows.js";
import { showKinds, showPolicies } from "./totals.js";
import { better, worse } from "./turns.js";
import { counted, number } from "./words.js";

const { failed, pages, policies } = data;
const OUTCOMES = { fits: "as given", "fits without prior_markdown": "without its old text" };

// Better and worse beside the first policy, fact blocks and bodies each for themselves.
function changes({ won, lost, more, outcome }) {
  const blocks = [
    lost.length && worse(number(lost.length)),
    won.length && better(number(won.length)),
  ].filter(Boolean);
  const lines = [
    outcome === "over the cap" && [html("b", { class: "lost" }, "over the cap")],
    blocks.length && [...blocks, lost.length + won.length === 1 ? "block" : "blocks"],
    more && [(more > 0 ? better : worse)(number(Math.abs(more))), Math.abs(more) === 1 ? "body" : "bodies"],
  ];
  const told = lines
    .filter(Boolean)
    .map((words) => html("span", { class: "line" }, ...words.flatMap((word) => [word, " "])));
  return told.length ? told : [html("span", { class: "faint" }, "=")];
}

// What a page is as it is; of a page that is rebuilt, what stands and what does not.
function asItIs({ outcome, left, bodies }) {
  const over = outcome === "over the cap" && html("b", { class: "line lost" }, outcome);
  if (outcome.startsWith("fits")) return [OUTCOMES[outcome]];
  return [over, html("span", { class: "line" }, `${number(left.length)} left out, `), html("span", { class: "line" }, counted(bodies, "body", "bodies"))];
}

function blocks(page, name, indices) {
  if (!indices.length) return "";
  const items = indices.map((index) => html("li", {}, html("bdi", {}, page.labels[index])));
  return html("div", {}, html("b", {}, `${name} ${number(indices.length)}`), html("ul", {}, ...items));
}

function opened(page, at) {
  const { won, lost, left } = page.results[at];
  const others = left.filter((index) => !lost.includes(index));
  return [
    html("p", {}, `${policies[at].name}: of ${counted(page.labels.length, "fact block", "fact blocks")}`),
    html("div", { class: "blocks" }, blocks(page, "Lost", lost), blocks(page, "Won", won), blocks(page, at ? "Left out as before" : "Left out", others)),
  ];
}

function rowOf(page, index) {
  const [first] = page.results;
  const row = {
    id: `page-${index}`,
    index,
    name: page.name,
    search: page.name,
    left: first.left.length,
    results: page.results,
    head: () => [nameOf(page)],
    cells: () =>
      page.results.map((result, at) => {
        const told = at ? changes(result) : asItIs(result);
        const some = result.left.length || result.won.length;
        return some ? table.opener(row, String(at), ...told) : told;
      }),
    opened: (what) => opened(page, Number(what)),
  };
  return row;
}

const isAny = (holds) => ({ results }) => results.some(holds);
const table = new Rows("page", {
  columns: ["Page", ...policies.map(({ name }) => name)],
  along: "grid",
  choices: {
    "changed by a policy": isAny(({ won, lost, more }) => won.length || lost.length || more),
    "loses blocks": isAny(({ lost }) => lost.length),
    "wins blocks": isAny(({ won }) => won.length),
    "loses bodies": isAny(({ more }) => more < 0),
    "over the cap": isAny(({ outcome }) => outcome === "over the cap"),
    all: () => true,
  },
  orders: {
    "most damaged first": (one, other) => one.index - other.index,
    "most left out first": (one, other) => other.left - one.left || one.index - other.index,
    "by name": (one, other) => (one.name < other.name ? -1 : 1),
  },
});

fill("said", data.said);
fill("marks", better("better"), ", ", worse("worse"), ", = the same.");
showPolicies();
showKinds();
byId("kinds").hidden = !data.kinds.length;
table.update(pages.map(rowOf));
byId("failed").hidden = !failed.length;
fill("failures", ...failed.map(([name, error]) => html("li", {}, html("bdi", {}, name), `: ${error}`)));
check(table.rows.length === pages.length, "every page has a row");
checkNothingFetched();
addEventListener("load", () => {
  checkContrast();
  report();
});
