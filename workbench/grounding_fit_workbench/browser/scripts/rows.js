// A table whose rows can be chosen, filtered and sorted, and the first of them come first.
import { byId, fill, html } from "./dom.js";
import { Table } from "./table.js";
import { counted, number } from "./words.js";

const MOST = 30; // rows that are shown before more are asked for
const FEW = 10; // rows beyond them that are not worth a button

// Its rows have `search` too, a text, and what the choices and orders ask them for.
export class Rows extends Table {
  constructor(kind, { columns, choices, orders, along, gap = () => "" }) {
    super(kind, columns, along);
    Object.assign(this, { choices, orders, gap });
    this.most = MOST;
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
    this.table.querySelectorAll("th .stop")[next]?.focus();
  }

  chosen() {
    return this.choice.querySelector(":checked").value;
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
    const drawn = found.length > this.most + FEW ? found.slice(0, this.most) : found;
    const gap = (row, at) => this.gap(drawn[at - 1], row, this.order.value);
    this.show(drawn.map((row, at) => ({ ...row, gap: gap(row, at) })));
    const all = drawn.length === found.length;
    const count = counted(found.length, "row", "rows");
    fill(`${this.kind}-count`, all ? count : `${number(drawn.length)} of ${count}`);
    const more = byId(`${this.kind}-more`);
    more.hidden = all;
    more.textContent = `Show all ${number(found.length)}`;
  }

  // Shows a row by its id, also one that the choice or the filter hides; false if it is not here.
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
    row.querySelector(".stop").focus({ preventScroll: true });
    return true;
  }
}
