// A table whose rows can be chosen, filtered, sorted and opened, with one stop of the Tab key.
import { textOf } from "./data.js";
import { byId, fill, html } from "./dom.js";
import { rove } from "./rove.js";
import { counted, number } from "./words.js";

const MOST = 60; // rows that are shown before more are asked for

// A row has: id, name, search, cells(), details(), and what the choices and orders ask it for.
export class Rows {
  constructor(kind, { columns, choices, orders, make }) {
    Object.assign(this, { kind, columns, choices, orders, make });
    this.table = byId(`${kind}-rows`);
    this.most = MOST;
    this.restop = rove(this.table, ".stop", "column");
    this.open = new Set();
    this.choice = byId(`${kind}-choice`);
    this.order = byId(`${kind}-order`);
    this.sought = byId(`${kind}-sought`);
    this.order.append(...Object.keys(orders).map((name) => html("option", {}, name)));
    for (const control of [this.order, this.sought]) {
      control.addEventListener("input", () => this.restart());
    }
    this.choice.addEventListener("change", () => this.restart());
    byId(`${kind}-more`).addEventListener("click", () => this.showMore());
  }

  restart() {
    this.most = MOST;
    this.draw();
  }

  showMore() {
    const next = this.most;
    this.most = Infinity;
    this.draw();
    this.table.querySelectorAll("button.name")[next]?.focus();
  }

  chosen() {
    return this.choice.querySelector(":checked")?.value ?? Object.keys(this.choices)[0];
  }

  // The rows are others: those of another state.
  update(rows) {
    this.rows = rows;
    this.offer();
    this.draw();
  }

  // Each choice tells how many rows it shows.
  offer() {
    const chosen = this.choice.querySelector(":checked")?.value ?? this.first();
    const inputs = Object.entries(this.choices).map(([name, holds]) => {
      const count = this.rows.filter(holds).length;
      const input = html("input", { type: "radio", name: `${this.kind}-choice`, value: name });
      input.checked = name === chosen;
      return html("label", {}, input, html("span", {}, `${name} `, html("b", {}, number(count))));
    });
    const focused = this.choice.contains(document.activeElement);
    this.choice.replaceChildren(this.choice.querySelector("legend"), ...inputs);
    if (focused) this.choice.querySelector(":checked").focus();
  }

  // The first choice that shows anything.
  first() {
    const names = Object.keys(this.choices);
    return names.find((name) => this.rows.some(this.choices[name])) ?? names[0];
  }

  matching() {
    const words = this.sought.value.toLowerCase();
    const holds = this.choices[this.chosen()];
    const found = this.rows.filter((row) => holds(row) && row.search.toLowerCase().includes(words));
    return found.sort(this.orders[this.order.value]);
  }

  draw() {
    const found = this.matching();
    const drawn = found.slice(0, this.most);
    const body = html("tbody", { role: "rowgroup" });
    drawn.forEach((row, at) => {
      const gap = this.make.gap?.(drawn[at - 1], row, this.order.value);
      if (gap) body.append(this.wide("gap", gap));
      body.append(this.rowOf(row));
      if (this.open.has(row.id)) body.append(this.opened(row));
    });
    const heads = this.columns.map((name) => html("th", { scope: "col", role: "columnheader" }, name));
    const head = html("tr", { role: "row" }, ...heads);
    this.table.replaceChildren(html("thead", { role: "rowgroup" }, head), body);
    this.restop();
    const count = counted(found.length, "row", "rows");
    fill(`${this.kind}-count`, drawn.length < found.length ? `${number(drawn.length)} of ${count}` : count);
    const more = byId(`${this.kind}-more`);
    more.hidden = drawn.length === found.length;
    more.textContent = `Show all ${number(found.length)}`;
  }

  rowOf(row) {
    const open = String(this.open.has(row.id));
    const attributes = { type: "button", class: "name stop", tabindex: -1, "aria-expanded": open };
    const button = html("button", attributes, html("bdi", {}, row.name));
    button.addEventListener("click", () => this.toggle(row));
    const first = html("th", { scope: "row", role: "rowheader" }, button, row.below ?? "");
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
    const text = html("pre", { tabindex: -1 }, "…");
    textOf(row.kind, row.index).then(
      ([length, shown]) => {
        const points = [...shown].length;
        const rest = length > points ? `\n… ${number(length - points)} more code points are not stored in this page` : "";
        text.textContent = shown + rest;
      },
      (error) => (text.textContent = `The texts of this page cannot be unpacked here: ${error.message}`),
    );
    return this.wide("text", row.details(), text);
  }

  toggle(row) {
    const shown = byId(row.id);
    const open = !this.open.delete(row.id);
    if (open) this.open.add(row.id);
    if (open) shown.after(this.opened(row));
    else shown.nextSibling.remove();
    shown.querySelector("button.name").setAttribute("aria-expanded", String(open));
  }

  // Shows a row by its id, also one that the choice or the filter hides; false if it is of another table.
  reveal(id) {
    if (!this.rows.some((row) => row.id === id)) return false;
    if (!byId(id)) {
      this.sought.value = "";
      const inputs = [...this.choice.querySelectorAll("input")];
      inputs[inputs.length - 1].checked = true;
      this.most = Infinity;
      this.draw();
    }
    const row = byId(id);
    row.scrollIntoView({ block: "center" });
    row.querySelector("button.name").focus({ preventScroll: true });
    return true;
  }
}
