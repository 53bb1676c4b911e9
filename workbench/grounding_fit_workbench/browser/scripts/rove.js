// One stop of the Tab key for many items: the arrow keys go on from one to the next.

const STEPS = {
  row: { ArrowRight: 1, ArrowLeft: -1 },
  column: { ArrowDown: 1, ArrowUp: -1 },
  grid: { ArrowRight: 1, ArrowLeft: -1 },
};
const ROWS = { ArrowDown: 1, ArrowUp: -1 };

// The number of the next item in the same column of a table.
function inColumn(all, at, step) {
  const place = (item) => item.closest("td, th").cellIndex;
  const row = all[at].closest("tr");
  let to = at;
  do to += step;
  while (all[to] && (all[to].closest("tr") === row || place(all[to]) !== place(all[at])));
  return to;
}

export function rove(container, selector, along) {
  let stop = null;
  const items = () => [...container.querySelectorAll(selector)];

  function stopAt(item) {
    if (stop) stop.tabIndex = -1;
    if (item) item.tabIndex = 0;
    stop = item;
  }

  function next(all, at, key) {
    const ends = { Home: 0, End: all.length - 1 };
    if (key in ends) return ends[key];
    return along === "grid" && key in ROWS ? inColumn(all, at, ROWS[key]) : at + STEPS[along][key];
  }

  container.addEventListener("keydown", (event) => {
    const all = items();
    const at = all.indexOf(event.target.closest(selector));
    const to = at < 0 ? -1 : next(all, at, event.key);
    if (!all[to]) return;
    stopAt(all[to]);
    all[to].focus();
    event.preventDefault();
  });
  container.addEventListener("focusin", (event) => {
    const item = event.target.closest(selector);
    if (item && item !== stop) stopAt(item);
  });

  // To be called when the items are others; each comes with a tabindex of -1.
  return () => stopAt(items()[0] ?? null);
}
