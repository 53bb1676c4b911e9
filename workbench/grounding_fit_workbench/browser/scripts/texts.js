// The texts of blocks, unpacked when the first one is opened.
import { facts } from "./data.js";
import { byId, html } from "./dom.js";
import { number } from "./words.js";

let unpacked = null;
async function unpack() {
  const bytes = Uint8Array.from(atob(byId("texts").textContent), (char) => char.charCodeAt(0));
  const stream = new Blob([bytes]).stream().pipeThrough(new DecompressionStream("deflate"));
  return JSON.parse(await new Response(stream).text());
}

// The length of a block's text in code points, and as much of it as is stored.
async function textOf(kind, index) {
  unpacked ??= unpack();
  return (await unpacked)[kind === "fact" ? index : facts.length + index];
}

export function textBox(kind, index) {
  const box = html("pre", { tabindex: -1 }, "…");
  textOf(kind, index).then(
    ([length, shown]) => {
      const rest = length - [...shown].length;
      const told = `\n… ${number(rest)} more code points are not stored in this page`;
      box.textContent = rest ? shown + told : shown;
    },
    (error) => {
      box.textContent = `The texts of this page cannot be unpacked here: ${error.message}`;
    },
  );
  return box;
}
