// Better and worse: the sign or word in it tells them apart as well as the colour.
import { html } from "./dom.js";

export const better = (content) => html("span", { class: "kept" }, content);
export const worse = (content) => html("span", { class: "lost" }, content);
