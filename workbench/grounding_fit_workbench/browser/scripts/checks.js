// The page's own checks: what it has drawn is what the module told, and can be read.

const problems = [];

export function report() {
  const said = problems.length ? `failed: ${problems.join("; ")}` : "ok";
  document.documentElement.dataset.checks = said;
  document.getElementById("checks").textContent = said;
}

export function check(holds, what) {
  if (!holds && !problems.includes(what)) problems.push(what);
}

addEventListener("error", (event) => {
  check(false, event.message);
  report();
});
addEventListener("unhandledrejection", (event) => {
  check(false, String(event.reason));
  report();
});

const LEAST_CONTRAST = 4.5;

function channels(colour) {
  const [red, green, blue, alpha = 1] = colour.match(/[\d.]+/g).map(Number);
  return { parts: [red, green, blue], alpha };
}

function luminance(parts) {
  const [red, green, blue] = parts.map((part) => {
    const share = part / 255;
    return share <= 0.04045 ? share / 12.92 : ((share + 0.055) / 1.055) ** 2.4;
  });
  return 0.2126 * red + 0.7152 * green + 0.0722 * blue;
}

function groundOf(element) {
  for (let each = element; each; each = each.parentElement) {
    const { parts, alpha } = channels(getComputedStyle(each).backgroundColor);
    if (alpha === 1) return parts;
  }
  return [255, 255, 255];
}

function contrast(element) {
  const style = getComputedStyle(element);
  const colour = element instanceof SVGElement ? style.fill : style.color;
  const both = [luminance(channels(colour).parts), luminance(groundOf(element))];
  return (Math.max(...both) + 0.05) / (Math.min(...both) + 0.05);
}

// Every text that is shown, by the element that it stands in.
export function checkContrast() {
  const walker = document.createTreeWalker(document.body, NodeFilter.SHOW_TEXT);
  const seen = new Map();
  while (walker.nextNode()) {
    const element = walker.currentNode.parentElement;
    const unread = !walker.currentNode.data.trim() || element.closest(":disabled");
    if (unread || !element.checkVisibility()) continue;
    const look = `${element.tagName} ${element.className.baseVal ?? element.className}`;
    if (!seen.has(look)) seen.set(look, contrast(element));
  }
  for (const [look, found] of seen) {
    check(found >= LEAST_CONTRAST, `the contrast of ${look} is ${found.toFixed(2)}`);
  }
}

export const checkNothingFetched = () =>
  check(!performance.getEntriesByType("resource").length, "nothing is fetched");
