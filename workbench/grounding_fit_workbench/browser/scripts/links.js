// A block's own address: a link to it shows its row, whatever the table showed before.
import { factTable } from "./facts.js";
import { symbolTable } from "./symbols.js";

function follow() {
  const id = location.hash.slice(1);
  if (id) factTable.reveal(id) || symbolTable.reveal(id);
}

export function followLinks() {
  addEventListener("hashchange", follow);
  addEventListener("click", (event) => {
    const link = event.target.closest?.("a[href^='#']");
    if (link && link.getAttribute("href") === location.hash) follow(); // which is no change of it
  });
  follow();
}
