// One side of an exchange: its headers and its body, with each finding beside what it is about.

import { el } from "./dom.js";

const lineLimit = 2000;

/** Header names differ in case only by accident. */
const nameIn = (part, name) => (part === "header" ? name.toLowerCase() : name);

/** The findings of a request by what they are about. */
export class Findings {
  #left;

  constructor(violations) {
    this.#left = violations.map(({ part, name, text }) => ({ part, name: nameIn(part, name), text }));
  }

  /** Notes about that part; each finding is told once. */
  take(part, name) {
    const isMeant = (finding) => finding.part === part && finding.name === name;
    const meant = this.#left.filter(isMeant);
    this.#left = this.#left.filter((finding) => !isMeant(finding));
    return meant.map(({ text }) => el("span.finding", {}, text));
  }

  /** Notes about headers that the request lacks. */
  takeMissing() {
    const missing = this.#left.filter(({ part }) => part === "header");
    this.#left = this.#left.filter(({ part }) => part !== "header");
    return missing.map(({ text }) => text);
  }

  rest() {
    return this.#left.splice(0).map(({ text }) => el("span.finding", {}, text));
  }
}

/** The headers in their order; those that are missing stand behind them. */
export function headerTable(headers, findings) {
  const rows = headers.map(([name, value]) => {
    const notes = findings.take("header", nameIn("header", name));
    const row = el("div.header", {}, el("dt", {}, name), el("dd", {}, value || el("i", {}, "empty")));
    if (notes.length) row.classList.add("broken");
    row.append(...notes);
    return row;
  });
  for (const text of findings.takeMissing())
    rows.push(el("div.header.broken", {}, el("span.finding", {}, text)));
  if (!rows.length) return el("p.quiet", {}, "no headers");
  return el("dl.headers", {}, ...rows);
}

/** A JSON text as lines of coloured texts; the text itself where it is not JSON. */
export function bodyView(text, findings) {
  if (!text) return el("div", {}, el("p.quiet", {}, "no body"), ...findings.rest());
  let value;
  try {
    value = JSON.parse(text);
  } catch {
    return el("div", {}, el("pre.body", {}, text), ...findings.rest());
  }
  const lines = [];
  addLines(lines, value, { depth: 0, findings });
  const shown = lines.slice(0, lineLimit);
  const more = lines.length - shown.length;
  if (more > 0) shown.push(el("span.line.quiet", {}, `… ${more} more lines`));
  return el("div", {}, el("pre.body", {}, ...shown), ...findings.rest());
}

function line({ depth, key }, ...texts) {
  const label = key === undefined ? [] : [el("span.key", {}, JSON.stringify(key)), ": "];
  const element = el("span.line", {}, ...label, ...texts);
  element.style.paddingInlineStart = `${depth * 1.4}em`;
  return element;
}

function addLines(lines, value, place) {
  if (lines.length > 2 * lineLimit) return;
  if (value === null || typeof value !== "object") {
    addScalar(lines, value, place);
  } else {
    addContainer(lines, value, place);
  }
}

function addScalar(lines, value, place) {
  const element = line(place, el(`span.${typeof value}`, {}, JSON.stringify(value)), place.comma ?? "");
  const notes = place.depth === 1 && place.key !== undefined ? place.findings.take("member", place.key) : [];
  if (notes.length) element.classList.add("broken");
  lines.push(element, ...notes);
}

function addContainer(lines, value, place) {
  const isList = Array.isArray(value);
  const members = isList ? value.map((each) => [undefined, each]) : Object.entries(value);
  const [open, close] = isList ? "[]" : "{}";
  const comma = place.comma ?? "";
  if (!members.length) return lines.push(line(place, open + close + comma));
  lines.push(line(place, open));
  members.forEach(([key, each], index) => {
    const isLast = index === members.length - 1;
    addLines(lines, each, { ...place, depth: place.depth + 1, key, comma: isLast ? "" : "," });
  });
  return lines.push(line({ depth: place.depth }, close + comma));
}
