// One stop of the Tab key for many items: the arrow keys go on from one to the next.

const STEPS = {
  row: { ArrowRight: 1, ArrowLeft: -1 },
  column: { ArrowDown: 1, ArrowUp: -1 },
};

export function rove(container, selector, along) {
  let stop = null;
  const items = () => [...container.querySelectorAll(selector)];

  function stopAt(item) {
    if (stop) stop.tabIndex = -1;
    if (item) item.tabIndex = 0;
    stop = item;
  }

  container.addEventListener("keydown", (event) => {
    const all = items();
    const at = all.indexOf(event.target.closest(selector));
    const ends = { Home: 0, End: all.length - 1 };
    const to = event.key in ends ? ends[event.key] : at + STEPS[along][event.key];
    if (at < 0 || !all[to]) return;
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
