// Better and worse, told apart by a mark and a word as well as by colour.
import { html } from "./dom.js";

function marked(mark, word, look, content) {
  const unseen = html("span", { class: "unseen" }, `${word}: `);
  return html("span", { class: look }, html("i", { "aria-hidden": "true" }, mark), unseen, content);
}

export const better = (content) => marked("▲\u00a0", "better", "kept", content);
export const worse = (content) => marked("▼\u00a0", "worse", "lost", content);
