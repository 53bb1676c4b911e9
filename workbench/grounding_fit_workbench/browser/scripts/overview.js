// The overview of a comparison: policies, kinds of fact blocks, and pages.
import { check, checkContrast, checkNothingFetched, report } from "./checks.js";
import { data, nameOf } from "./compared.js";
import { byId, fill, html } from "./dom.js";
import { Rows } from "./rows.js";
import { showKinds, showPolicies } from "./totals.js";
import { better, worse } from "./turns.js";
import { breakable, counted, number, signed } from "./words.js";

const { failed, pages, policies } = data;
const OUTCOMES = { fits: "fits", "fits without prior_markdown": "fits without its old text" };

const overBy = (over) => html("b", { class: "lost" }, `over the cap by ${number(over)}`);
const line = (...words) => html("span", { class: "line" }, ...words);

// Better and worse beside the first policy, fact blocks and bodies each for themselves.
function changes({ won, lost, more, over }) {
  const turned = more > 0 ? better : worse;
  const blocks = [
    lost.length && worse(signed(-lost.length)),
    won.length && better(signed(won.length)),
  ].filter(Boolean);
  const lines = [
    over && [overBy(over)],
    blocks.length && [...blocks, lost.length + won.length === 1 ? "block" : "blocks"],
    more && [turned(signed(more)), Math.abs(more) === 1 ? "body" : "bodies"],
  ];
  const told = lines.filter(Boolean).map((words) => line(...words.flatMap((word) => [word, " "])));
  return told.length ? told : [html("span", { class: "faint" }, "=")];
}

// What a page is unchanged; of a page that is rebuilt, what stands and what does not.
function unchanged({ outcome, over, left, bodies }) {
  if (outcome.startsWith("fits")) return [OUTCOMES[outcome]];
  const leftOut = line(`${number(left.length)} left out, `);
  return [over > 0 && line(overBy(over)), leftOut, line(counted(bodies, "body", "bodies"))];
}

function blocks(page, name, indices) {
  if (!indices.length) return "";
  const items = indices.map((index) => html("li", {}, html("bdi", {}, page.labels[index])));
  const head = html("b", {}, `${name} ${number(indices.length)}`);
  return html("div", {}, head, html("ul", {}, ...items));
}

function bodies(more, names) {
  if (!more) return "";
  const head = html("b", {}, `Bodies ${more > 0 ? "won" : "lost"} ${number(Math.abs(more))}`);
  return html("div", {}, head, html("p", {}, html("bdi", {}, names)));
}

function opened(page, at) {
  const { won, lost, left, over, more, names } = page.results[at];
  const others = left.filter((index) => !lost.includes(index));
  const all = counted(page.labels.length, "fact block", "fact blocks");
  const lists = [
    blocks(page, "Lost", lost),
    blocks(page, "Won", won),
    blocks(page, at ? "Left out as before" : "Left out", others),
    bodies(more, names),
  ];
  const head = html("p", {}, `${policies[at].name}: of ${all}`);
  const excess = over > 0 && html("p", {}, overBy(over), " JSON characters");
  return [head, excess, html("div", { class: "blocks" }, ...lists)];
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
        const told = at ? changes(result) : unchanged(result);
        const some = result.left.length || result.won.length || result.more;
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
    "over the cap": isAny(({ over }) => over),
    all: () => true,
  },
  orders: {
    "most damaged first": (one, other) => one.index - other.index,
    "most left out first": (one, other) => other.left - one.left || one.index - other.index,
    "by name": (one, other) => (one.name < other.name ? -1 : 1),
  },
});

fill("said", data.said);
fill("marks", better("+ is won"), ", ", worse("− is lost"), ", = is the same.");
const wordRow = ([word, meaning]) =>
  html("div", {}, html("dt", {}, breakable(word)), html("dd", {}, meaning));
fill("trial-words", ...data.words.map(wordRow));
showPolicies();
showKinds();
byId("kinds").hidden = !data.kinds.length;
table.update(pages.map(rowOf));
byId("failed").hidden = !failed.length;
const failure = ([name, error]) => html("li", {}, html("bdi", {}, name), `: ${error}`);
fill("failures", ...failed.map(failure));
check(table.rows.length === pages.length, "every page has a row");
checkNothingFetched();
addEventListener("load", () => {
  checkContrast();
  report();
});
