// A table whose rows open. It is one stop of the Tab key; the arrow keys go on from there.
import { byId, html } from "./dom.js";
import { rove } from "./rove.js";
import { breakable } from "./words.js";

// A row has: id, head(), cells(), opened(what), and where it is wanted under(), look and gap.
export class Table {
  constructor(kind, columns, along = "column") {
    this.kind = kind;
    this.columns = columns;
    this.table = byId(`${kind}-rows`);
    this.open = new Map(); // by the row's id, what of it is open
    this.restop = rove(this.table, ".stop", along);
  }

  show(rows) {
    const body = html("tbody", { role: "rowgroup" });
    for (const row of rows) {
      if (row.gap) body.append(this.wide("gap", row.gap));
      body.append(this.rowOf(row));
      const under = row.under?.();
      if (under) body.append(this.wide("under", under));
      if (this.open.has(row.id)) body.append(this.opened(row));
    }
    const column = { scope: "col", role: "columnheader" };
    const heads = this.columns.map((name) => html("th", column, breakable(name)));
    const head = html("tr", { role: "row" }, ...heads);
    this.table.replaceChildren(html("thead", { role: "rowgroup" }, head), body);
    this.restop();
  }

  rowOf(row) {
    const first = html("th", { scope: "row", role: "rowheader" }, ...[row.head()].flat());
    const cells = row.cells().map((content, at) =>
      html("td", { role: "cell", "data-label": this.columns[at + 1] }, ...[content].flat()),
    );
    return html("tr", { id: row.id, role: "row", class: row.look ?? null }, first, ...cells);
  }

  wide(look, ...content) {
    const cell = html("td", { colspan: this.columns.length, role: "cell" }, ...content);
    return html("tr", { class: look, role: "row" }, cell);
  }

  opened(row) {
    return this.wide("opened", ...row.opened(this.open.get(row.id)));
  }

  // A button that opens a part of a row, below it, and closes it again.
  opener(row, what, ...content) {
    const attributes = {
      type: "button",
      class: "opens stop",
      tabindex: -1,
      "aria-expanded": String(this.open.get(row.id) === what),
      "data-what": what,
    };
    const button = html("button", attributes, ...content);
    button.addEventListener("click", () => this.toggle(row, what));
    return button;
  }

  toggle(row, what) {
    const shown = byId(row.id);
    let last = shown;
    while (last.nextSibling?.matches(".under")) last = last.nextSibling;
    if (this.open.has(row.id)) last.nextSibling.remove();
    const opens = this.open.get(row.id) !== what;
    if (opens) this.open.set(row.id, what);
    else this.open.delete(row.id);
    if (opens) last.after(this.opened(row));
    for (const button of shown.querySelectorAll(".opens")) {
      button.setAttribute("aria-expanded", String(opens && button.dataset.what === what));
    }
  }
}
