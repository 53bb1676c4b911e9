// What the writer of the overview has stored, and how a page is named.
import { byId, html } from "./dom.js";

export const data = JSON.parse(byId("data").textContent);

export function nameOf({ name, href }) {
  const content = html("bdi", {}, name);
  const title = "the page as saved";
  return href ? html("a", { href, title, class: "stop", tabindex: -1 }, content) : content;
}
