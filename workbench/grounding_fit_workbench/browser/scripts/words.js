// Numbers and stretches of numbers in words.

export const number = (value) => (value === null ? "unknown" : value.toLocaleString("en-US"));

export const signed = (count) => `${count < 0 ? "−" : "+"}${number(Math.abs(count))}`;

export const counted = (count, one, many) => `${number(count)} ${count === 1 ? one : many}`;

export function spokenRun([from, to]) {
  if (to === null) return from === 0 ? "all" : `${number(from)} on`;
  return from === to ? number(from) : `${number(from)}–${number(to)}`;
}

export const spoken = (runs) => runs.map(spokenRun).join(", ") || "none";

// A sentence with values in place of its {}.
export function filled(sentence, values) {
  const told = values.map((value) => (typeof value === "number" ? number(value) : value));
  return sentence.split("{}").reduce((text, rest, at) => text + (told[at - 1] ?? "") + rest);
}

export const within = (runs, value) =>
  runs.some(([from, to]) => from <= value && (to === null || value <= to));

// A policy's words, which may be broken behind its signs.
export const breakable = (words) => words.replace(/[=,:]/g, "$&\u200b");
