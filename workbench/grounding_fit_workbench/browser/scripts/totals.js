// The tables of all pages together: by policy, and by kind of fact block.
import { check } from "./checks.js";
import { html, strip, svg } from "./dom.js";
import { data, nameOf } from "./compared.js";
import { Table } from "./table.js";
import { better, worse } from "./turns.js";
import { counted, number, signed } from "./words.js";

const HALF = 60; // the width of one side of a balance, in its own units
const COLUMNS = [
  "Policy",
  "Over the cap",
  "Rebuilt",
  "Fits without its old text",
  "Fits",
  "Fact blocks left out",
  "Fact blocks lost, won",
  "Bodies lost, won",
  "Bodies a page, median",
];
const { kinds, pages, policies } = data;

// A number of a policy: what it counts, and how much of it is each page's.
function counts(at, what, count, size, told) {
  const sizes = pages.map((page) => [page, size(page.results[at], page)]);
  const found = sizes.filter(([, each]) => each);
  const sum = found.reduce((total, [, each]) => total + each, 0);
  check(sum === count, `the pages behind ${what} of ${policies[at].name} add up`);
  found.sort((one, other) => other[1] - one[1]);
  return { what, count, found, told };
}

function numbersOf(policy, at) {
  const outcomes = Object.entries(policy.outcomes).map(([outcome, count]) =>
    counts(at, outcome, count, (result) => Number(result.outcome === outcome), ""),
  );
  const more = (sign) => (result) => Math.max(0, sign * result.more);
  return [
    ...outcomes.reverse(),
    counts(at, "left", policy.left, ({ left }) => left.length, "left out"),
    counts(at, "lost", policy.lost, ({ lost }) => lost.length, "lost"),
    counts(at, "won", policy.won, ({ won }) => won.length, "won"),
    counts(at, "bodies lost", policy.bodies[1], more(-1), "bodies lost"),
    counts(at, "bodies won", policy.bodies[0], more(1), "bodies won"),
    counts(at, "none", policy.none, ({ none }) => Number(none), ""),
  ];
}

function listed({ found, told }) {
  const items = found.map(([page, each]) => {
    const much = told && html("span", { class: "faint" }, ` ${number(each)} ${told}`);
    return html("li", {}, nameOf(page), much);
  });
  const head = `${counted(found.length, "page", "pages")}${told && ", most first"}:`;
  return [html("p", {}, head), html("ul", { class: "names" }, ...items)];
}

function opens(table, row, each, words = number(each.count)) {
  return each.count ? table.opener(row, each.what, words) : html("span", { class: "faint" }, "0");
}

// How much more or less than the first policy another one leaves out.
function beside({ count }, first) {
  const more = count - first.count;
  if (!more) return "";
  const told = more > 0 ? worse(`${number(more)} more`) : better(`${number(-more)} fewer`);
  return html("small", {}, told);
}

// What is lost on the left, what is won on the right, on one scale for all policies; below it, of
// one of them, what of it is within the cap.
function balance(table, row, [lost, won, most], counted, within) {
  const [down, up] = [lost, won].map(({ count }) => (HALF * count) / Math.max(1, most));
  const drawing = strip(
    "balance",
    `0 0 ${2 * HALF} 12`,
    svg("rect", { x: HALF - down, y: 2, width: down, height: 8, class: "fewer" }),
    svg("rect", { x: HALF, y: 2, width: up, height: 8, class: "more" }),
    svg("line", { x1: HALF, x2: HALF, y1: 0, y2: 12, class: "middle" }),
  );
  const ends = [
    opens(table, row, lost, worse(signed(-lost.count))),
    opens(table, row, won, better(signed(won.count))),
  ];
  const told = `${number(within)} of ${number(counted.count)} ${counted.what} within the cap`;
  const note = within < counted.count && html("small", {}, told);
  return [drawing, html("span", { class: "ends" }, ...ends), note];
}

function fewest(table, row, policy, none) {
  if (!none.count) return [`fewest ${number(policy.fewest)}`];
  return ["fewest 0, on ", opens(table, row, none, counted(none.count, "page", "pages"))];
}

export function showPolicies() {
  const table = new Table("policy", COLUMNS, "grid");
  const most = Math.max(...policies.flatMap(({ won, lost }) => [won, lost]));
  const mostBodies = Math.max(...policies.flatMap(({ bodies }) => bodies));
  const numbers = policies.map(numbersOf);
  const rows = policies.map((policy, at) => {
    const [over, rebuilt, without, fits, left, lost, won, fewer, more, none] = numbers[at];
    const [wonWithin, fewerWithin] = policy.within;
    const row = {
      id: `policy-${at}`,
      head: () => [policy.name, at ? "" : html("small", {}, data.present)],
      cells: () => [
        opens(table, row, over, worse(number(over.count))),
        ...[rebuilt, without, fits].map((each) => opens(table, row, each)),
        [opens(table, row, left), beside(left, numbers[0][4])],
        at ? balance(table, row, [lost, won, most], won, wonWithin) : "",
        at ? balance(table, row, [fewer, more, mostBodies], fewer, fewerWithin) : "",
        [number(policy.median), html("small", {}, ...fewest(table, row, policy, none))],
      ],
      opened: (what) => listed(numbers[at].find((each) => each.what === what)),
    };
    return row;
  });
  table.show(rows);
}

export function showKinds() {
  const table = new Table("kind", ["Kind", "Given", ...policies.map(({ name }) => name)], "grid");
  const rows = kinds.map(([kind, given, about], place) => {
    const numbers = policies.map((policy, at) => {
      const ofKind = ({ left }, page) => left.filter((index) => page.kinds[index] === place).length;
      return counts(at, `${kind} ${at}`, policy.kinds[place], ofKind, "left out");
    });
    const row = {
      id: `kind-${place}`,
      head: () => [html("bdi", {}, kind), about && html("small", {}, html("bdi", {}, about))],
      cells: () => [
        number(given),
        ...numbers.map((each) => [opens(table, row, each), beside(each, numbers[0])]),
      ],
      opened: (what) => listed(numbers.find((each) => each.what === what)),
    };
    return row;
  });
  table.show(rows);
}
