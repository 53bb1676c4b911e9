// The rules of both paths by hand in JavaScript, for the bench's pages: the host's utilities are
// built in, every value is of its type, and no character takes more than 16 bits. As in the module,
// a candidate is a sum over its pieces, and each piece is measured once in a call.
//
//     node peer.js answers|SECONDS <PAGES    # prints the results, or how long the calls take
"use strict";

const CAP = 40000;
const FLOOR = 0.35; // of a token budget
const LISTED_MAX = 30;
const LISTED_CHARS = 80;
const NOTE_ITEMS = 6;
const FITTED_FIELDS = ["grounding", "symbols", "citation_seeds"];
const PLACEHOLDER = "x".repeat(600);
const HEADING = "## More declarations (lines and signature only; ask for a body with query=)";
const ASK =
  ' Ask for code with query="<file path or symbol>, ..."; ' +
  'read another page with wiki(action="read", page_id=...).';
const CLOSING = " The file cards and the other fields alone exceed it.";
const BLANK_LINE = "\n\n";
const BLANK_LINE_SIZE = 4; // as JSON
const COMMA = 2; // ", " between two items

// The host's utilities: a token is a character.
const estimateTokens = (text) => text.length;
const truncateToTokens = (text, budget) => text.padEnd(budget);
const norm = (path) => path;

// ---- sizes, in JSON characters ------------------------------------------------------------------

const textSize = (text) => JSON.stringify(text).length;
const contentSize = (text) => textSize(text) - 2;
const commas = (count) => COMMA * Math.max(0, count - 1);

/** Returns a value's size; of one that is above the limit, any number above it will do. */
function sizeOf(value, limit = Infinity) {
  if (typeof value === "string") return value.length > limit ? value.length : textSize(value);
  if (value === null || typeof value !== "object") return String(value).length;
  let size = 2;
  if (Array.isArray(value)) {
    size += commas(value.length);
    for (const item of value) if ((size += sizeOf(item, limit - size)) > limit) break;
    return size;
  }
  const keys = Object.keys(value);
  size += commas(keys.length);
  for (const key of keys) {
    size += textSize(key) + COMMA;
    if ((size += sizeOf(value[key], limit - size)) > limit) break;
  }
  return size;
}

/** Returns the size of items within a list: with the commas between them, without brackets. */
const itemsSize = (items) => items.reduce((sum, item) => sum + sizeOf(item), commas(items.length));

// ---- what a page consists of --------------------------------------------------------------------

const citable = (seeds) => seeds.filter((seed) => seed.line_start > 0);

function symbolSeeds(symbols) {
  const seeds = [];
  for (const { file, line, end_line } of symbols) {
    const end = Math.max(line, end_line ?? 0);
    if (file && line > 0) seeds.push({ path: norm(file), line_start: line, line_end: end });
  }
  return seeds;
}

const symbolNames = (symbols) => symbols.map((symbol) => symbol.fqn).filter(Boolean);
const factTexts = (prose) => prose.map((block) => block.text).filter(Boolean);

function listedLine({ fqn, kind, file, line, end_line, signature, docstring }) {
  const span = end_line > line ? `L${line}-L${end_line}` : `L${line}`;
  let what = (signature || docstring || "").trim().split("\n", 1)[0];
  if (what.length > LISTED_CHARS) what = what.slice(0, LISTED_CHARS - 3) + "...";
  const head = `- \`${fqn}\` (${kind}) — ${norm(file)}:${span}`;
  return what ? `${head}: ${what}` : head;
}

const listing = (lines) => [HEADING, ...lines].join("\n");
const listedAfter = (count, symbols) => Math.min(LISTED_MAX, symbols - count);

function label(block) {
  const heading = block.text.split("\n", 1)[0].replace(/^[# ]+/, "").split(" (", 1)[0];
  return block.name || `the '${heading}' block`;
}

/** Returns the largest count that fits; each test halves what is left. */
function most(high, fits) {
  let low = 0;
  while (low < high) {
    const middle = (low + high + 1) >> 1;
    if (fits(middle)) low = middle;
    else high = middle - 1;
  }
  return low;
}

// ---- the API path, in tokens --------------------------------------------------------------------

function blocksWithin(parts, budget) {
  const whole = estimateTokens(factTexts(parts.prose).join(BLANK_LINE));
  const share = Math.max(Math.trunc(budget * FLOOR), budget - whole);
  let used = 0;
  let count = 0;
  for (const [text] of parts.blocks) {
    used += estimateTokens(text);
    if (count > 0 && used > share) break;
    count += 1;
  }
  return count;
}

function assembleGrounding(parts, budget) {
  const count = blocksWithin(parts, budget);
  const symbols = parts.blocks.map(([, symbol]) => symbol);
  const code = parts.blocks.slice(0, count).map(([text]) => text);
  const listed = symbols.slice(count, count + listedAfter(count, symbols.length));
  if (listed.length) code.push(listing(listed.map(listedLine)));
  const room = Math.max(0, budget - estimateTokens(code.join(BLANK_LINE)));
  const facts = truncateToTokens(factTexts(parts.prose).join(BLANK_LINE), room);
  const text = [facts, ...code].filter(Boolean).join(BLANK_LINE);
  const seeds = symbolSeeds(symbols);
  const files = [...new Set([...parts.files, ...seeds.map((seed) => seed.path)])].sort();
  const all = [...citable(parts.prose.flatMap((block) => block.seeds)), ...seeds];
  return [text, symbolNames(symbols), files, all];
}

// ---- the agent path, in JSON characters ---------------------------------------------------------

function capNote(items, ask) {
  let named = items;
  if (items.length > NOTE_ITEMS) {
    named = [...items.slice(0, NOTE_ITEMS), `${items.length - NOTE_ITEMS} more blocks`];
  }
  const what = named.join("; ") || "nothing that can be left out";
  return `answer capped at ${CAP} characters; left out: ${what}.${ask ? ASK : ""}`;
}

function codeCut(count, listed, total) {
  if (count >= total) return [];
  return [
    `the bodies of ${total - count} of ${total} symbol blocks (the lowest ranked; ${listed} of ` +
      `them listed by lines and signature, ${total - count - listed} not at all)`,
  ];
}

const NOTHING = { content: 0, pieces: 0, seeds: 0, lists: 0 };

/** Returns what two pieces of an answer add together. */
const sum = (one, other) => ({
  content: one.content + other.content,
  pieces: one.pieces + other.pieces,
  seeds: one.seeds + other.seeds,
  lists: one.lists + other.lists, // of seeds, each with its own commas
});

/** Returns what a text and its seeds add, beside the blank lines and commas between pieces. */
function pieceOf(text, seeds) {
  const content = text ? contentSize(text) : 0;
  return { content, pieces: text ? 1 : 0, seeds: itemsSize(seeds), lists: seeds.length ? 1 : 0 };
}

/** The symbols of a page as candidates show them; each is measured when one first has it. */
class Symbols {
  constructor(carried, blocks) {
    this.blocks = blocks;
    this.symbols = blocks.map(([, symbol]) => symbol);
    const empty = { ...carried, grounding: "", symbols: [], citation_seeds: [], truncated: "" };
    this.frame = sizeOf(empty);
    this.names = []; // sizes
    this.lines = [];
    this.bodies = [NOTHING]; // sums of the first ones
  }

  get count() {
    return this.symbols.length;
  }

  /** How many are listed after so many bodies. */
  listed(count) {
    return Math.min(LISTED_MAX, this.count - count);
  }

  name(at) {
    return (this.names[at] ??= textSize(this.symbols[at].fqn));
  }

  line(at) {
    return (this.lines[at] ??= this.measuredLine(at));
  }

  measuredLine(at) {
    const text = listedLine(this.symbols[at]);
    return { text, content: contentSize("\n" + text) };
  }

  sumOfBodies(count) {
    while (this.bodies.length <= count) {
      const at = this.bodies.length - 1;
      const body = pieceOf(this.blocks[at][0], symbolSeeds([this.symbols[at]]));
      this.bodies.push(sum(this.bodies[at], body));
    }
    return this.bodies[count];
  }

  /** The size of an answer with these facts, so many bodies, and so many lines after them. */
  size(facts, count, listed, note = PLACEHOLDER) {
    const { content, pieces, seeds, lists } = sum(facts, this.sumOfBodies(count));
    let size = this.frame + contentSize(note) + content + seeds + commas(lists);
    size += commas(count + listed);
    for (let at = 0; at < count + listed; at++) size += this.name(at);
    for (let at = count; at < count + listed; at++) size += this.line(at).content;
    if (listed) size += contentSize(HEADING);
    return size + BLANK_LINE_SIZE * Math.max(0, pieces - (listed ? 0 : 1));
  }

  /** The least that so many bodies can add in place of the lines that they push out, since no text
   * takes less than its length. */
  leastOfBodies(count) {
    let least = -contentSize(HEADING);
    for (let at = 0; at < count; at++) least += this.blocks[at][0].length;
    for (let at = 0; at < this.listed(0); at++) least -= this.line(at).content;
    return least;
  }

  build(carried, prose, count, listed, note) {
    const texts = [...factTexts(prose), ...this.blocks.slice(0, count).map(([text]) => text)];
    const shown = this.symbols.slice(0, count + listed);
    const lines = shown.slice(count).map((_, at) => this.line(count + at).text);
    if (listed) texts.push(listing(lines));
    return {
      ...carried,
      grounding: texts.join(BLANK_LINE),
      symbols: symbolNames(shown),
      citation_seeds: [
        ...citable(prose.flatMap((block) => block.seeds)),
        ...symbolSeeds(shown.slice(0, count)),
      ],
      truncated: note,
    };
  }
}

const pieceOfFact = (block) => pieceOf(block.text, citable(block.seeds));

/** Returns whether a block always stays. */
const alwaysKept = (block, { always_kept, policy }) =>
  always_kept.some((heading) => block.text.startsWith(heading)) ||
  (block.key !== "" && policy.first.includes(block.key));

/** Returns the room beside what always stays, and what of it is held free for code. */
function roomOf(parts, symbols, pinned, total) {
  const base = symbols.size(pinned, 0, symbols.listed(0));
  const room = Math.max(0, CAP - base);
  const floor = Math.trunc(room * parts.code_floor);
  if (symbols.leastOfBodies(total) > floor) return { room, reserve: floor };
  const needed = symbols.size(pinned, total, symbols.listed(total)) - base;
  return { room, reserve: Math.min(floor, needed) };
}

/** Chooses the facts that stay; returns them, what they add, and the labels of the others. */
function fitProse(parts, symbols, total) {
  const { shares } = parts.policy;
  const pinned = parts.prose.map((block) => (alwaysKept(block, parts) ? pieceOfFact(block) : null));
  const always = pinned.filter(Boolean).reduce(sum, NOTHING);
  const { room, reserve } = roomOf(parts, symbols, always, total);
  const prose = [];
  const dropped = [];
  const used = {};
  let facts = NOTHING;
  let size = symbols.size(facts, 0, symbols.listed(0));
  const withFact = (block) => {
    if (size + block.text.length + reserve > CAP) return null; // it need not be measured
    const more = sum(facts, pieceOfFact(block));
    return symbols.size(more, 0, symbols.listed(0)) + reserve <= CAP ? more : null;
  };
  parts.prose.forEach((block, at) => {
    const limit = Object.hasOwn(shares, block.key) ? shares[block.key] * room : Infinity;
    // Only where a share limits the block's kind need its cost be known.
    const cost = limit === Infinity ? 0 : textSize(block.text) + sizeOf(block.seeds);
    const taken = (used[block.key] ?? 0) + cost;
    let more = pinned[at] && sum(facts, pinned[at]);
    if (!more && taken <= limit) more = withFact(block);
    if (!more) {
      dropped.push(label(block));
      return;
    }
    facts = more;
    size = symbols.size(facts, 0, symbols.listed(0));
    prose.push(block);
    used[block.key] = taken;
  });
  return { prose, facts, dropped };
}

function fitPageContext(answer, parts, budget) {
  if (sizeOf(answer, CAP) <= CAP) return answer;
  const carried = { ...answer };
  for (const field of FITTED_FIELDS) delete carried[field];
  const leftOut = [];
  if (answer.prior_markdown) {
    leftOut.push(
      `prior_markdown (${answer.prior_markdown.length} characters; read the page with ` +
        `wiki(action="read", page_id="${answer.page_id}") before you edit it)`,
    );
    const whole = { ...answer, prior_markdown: null, truncated: capNote(leftOut, false) };
    if (sizeOf(whole, CAP) <= CAP) return whole;
    carried.prior_markdown = null;
  }
  const count = blocksWithin(parts, budget);
  const symbols = new Symbols(carried, parts.blocks);
  return withNote(carried, symbols, leftOut, count, fitProse(parts, symbols, count));
}

/** Finds how many bodies and lines fit, and writes the note; what it needs beyond its placeholder
 * comes off bodies, then off lines. */
function withNote(carried, symbols, leftOut, total, { prose, facts, dropped }) {
  const fits = (...candidate) => symbols.size(facts, ...candidate) <= CAP;
  let count = most(total, (bodies) => fits(bodies, symbols.listed(bodies)));
  let listed = symbols.listed(count);
  if (count === 0) listed = most(listed, (lines) => fits(0, lines));
  for (;;) {
    const items = [...leftOut, ...codeCut(count, listed, symbols.count), ...dropped];
    const note = capNote(items, true);
    if (fits(count, listed, note)) return symbols.build(carried, prose, count, listed, note);
    if (count + listed === 0) return symbols.build(carried, prose, 0, 0, note + CLOSING);
    if (count > 0) listed = symbols.listed(--count);
    else listed -= 1;
  }
}

// ---- what the bench asks ------------------------------------------------------------------------

/** Returns the median time of a call in µs, of samples of 2 ms after as many to warm up. */
function clock(call, seconds) {
  const timed = (loops) => {
    const start = process.hrtime.bigint();
    for (let at = 0; at < loops; at++) call();
    return Number(process.hrtime.bigint() - start) / 1000 / loops;
  };
  for (const end = Date.now() + 500 * seconds; Date.now() < end; ) timed(10);
  const loops = Math.max(1, Math.floor(2000 / timed(10)));
  const samples = [];
  for (const end = Date.now() + 1000 * seconds; Date.now() < end || samples.length < 5; ) {
    samples.push(timed(loops));
  }
  return samples.sort((one, other) => one - other)[samples.length >> 1];
}

const { budget, pages } = JSON.parse(require("fs").readFileSync(0, "utf8"));
const results = pages.map(({ answer, parts }) => {
  const calls = {
    _fit_page_context: () => fitPageContext(answer, parts, budget),
    _assemble_grounding: () => assembleGrounding(parts, budget),
  };
  const seconds = Number(process.argv[2]);
  const ask = process.argv[2] === "answers" ? (call) => call() : (call) => clock(call, seconds);
  return Object.fromEntries(Object.entries(calls).map(([name, call]) => [name, ask(call)]));
});
process.stdout.write(JSON.stringify(results));
