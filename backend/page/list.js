// The live list. Only the rows in sight have elements, which are used again for others.

import { el, setText, timeOf } from "./dom.js";
import { noteOf, sentenceOf, spokenOf } from "./entries.js";

const spare = 4;
const chipLimit = 4;

class Row {
  element = el("div.row", { role: "option" });
  #time = el("span.time");
  #status = el("span.statuses");
  #method = el("span.method");
  #name = el("span.name");
  #fold = el("span.fold");
  #tokens = el("span.chips");
  #note = el("span.note");
  #duration = el("span.duration");

  constructor() {
    const name = el("span.what", {}, this.#method, this.#name, this.#fold);
    this.element.append(this.#time, this.#status, name, this.#tokens, this.#note, this.#duration);
  }

  show(entry, index, count, isChosen) {
    const isRequest = entry.kind === "request";
    const stamp = `${entry.run}-${entry.number}-${entry.kind}-${entry.parts.length}-${entry.isOpen}`;
    const { element } = this;
    element.id = `row-${index}`;
    element.setAttribute("aria-posinset", index + 1);
    element.setAttribute("aria-setsize", count);
    element.setAttribute("aria-selected", isChosen);
    if (this.stamp === stamp) return;
    this.stamp = stamp;
    this.entry = entry;
    element.className = `row ${isRequest ? "" : "event"} ${entry.kind} ${entry.head ? "part" : ""}`;
    element.classList.toggle("broken", isRequest && entry.violations.length > 0);
    element.setAttribute("aria-label", `${timeOf(entry.arrival)} ${spokenOf(entry)}`);
    setText(this.#time, timeOf(entry.arrival));
    if (isRequest) this.#showRequest(entry);
    else this.#showEvent(entry);
  }

  #showRequest(entry) {
    const steps = [entry, ...entry.parts.filter((part) => part.endpoint === entry.endpoint)];
    const statuses = steps.length > 2 ? [steps[0], steps.at(-1)] : steps;
    this.#status.replaceChildren(...statuses.map(statusPill));
    setText(this.#method, entry.method || "no HTTP");
    setText(this.#fold, entry.parts.length ? (entry.isOpen ? "▾" : "▸") : "");
    setText(this.#name, entry.endpoint || "request");
    this.#tokens.replaceChildren(...tokenChips(entry));
    const note = storyNote(entry) ?? noteOf(entry);
    setText(this.#note, note.text);
    this.#note.className = `note ${note.kind}`;
    const spent = entry.parts.at(-1) ?? entry;
    setText(this.#duration, `${Math.round(spent.arrival - entry.arrival + spent.milliseconds)} ms`);
  }

  #showEvent(entry) {
    for (const part of [this.#status, this.#tokens]) part.replaceChildren();
    for (const part of [this.#method, this.#duration, this.#note, this.#fold]) setText(part, "");
    setText(this.#name, sentenceOf(entry));
  }
}

function storyNote(entry) {
  if (!entry.parts.length || entry.violations.length) return null;
  const isResent = entry.parts.some((part) => part.endpoint === entry.endpoint);
  return { text: isResent ? "token renewed, sent again" : "renewing the token", kind: "story" };
}

/** A status in the colour of its class; a reply that was cut off has a broken outline. */
export function statusPill(entry) {
  const kind = `s${Math.floor(entry.status / 100)}`;
  return el(`span.status.${kind}${entry.delivered ? "" : ".cut"}`, {}, String(entry.status));
}

export function tokenChip(name, isGiven = false) {
  const kind = { M: "merchant", U: "user" }[name[0]] ?? "foreign";
  return el(`span.chip.${kind}${isGiven ? ".given" : ""}`, { title: titleOf(name, isGiven) }, name);
}

function titleOf(name, isGiven) {
  if (name === "?") return "a token that this backend did not issue";
  if (name === "empty") return "the word Bearer without a token";
  return `${name} ${isGiven ? "was given by the reply" : "came with the request"}`;
}

function tokenChips(entry) {
  const last = entry.parts.findLast((part) => part.endpoint === entry.endpoint) ?? entry;
  const more = last.carried.length - chipLimit;
  const chips = last.carried.slice(-chipLimit).map((name) => tokenChip(name));
  if (more > 0) chips.unshift(el("span.chip.more", {}, `${more}+`));
  return [...chips, ...last.given.map((name) => tokenChip(name, true))];
}

/** Keeps to the newest row until the user scrolls away, and then moves nothing under them. */
export class List {
  chosen = null;
  #store;
  #frame;
  #space = el("div.space", { role: "presentation" });
  #pool = [];
  #height = 0;
  #queued = false;
  #follows = true;
  #anchor = null;
  #onChoose;
  #onFollow;

  constructor(frame, store, { onChoose, onFollow }) {
    this.#frame = frame;
    this.#store = store;
    this.#onChoose = onChoose;
    this.#onFollow = onFollow;
    frame.append(this.#space);
    frame.addEventListener("scroll", () => this.#scrolled());
    frame.addEventListener("click", (event) => this.#clicked(event));
    new ResizeObserver(() => this.draw()).observe(frame);
  }

  follow() {
    this.#follows = true;
    this.draw();
  }

  /** Draws once before the next frame, however often it is called. */
  draw() {
    if (this.#queued) return;
    this.#queued = true;
    requestAnimationFrame(() => {
      this.#queued = false;
      this.#drawNow();
    });
  }

  choose(entry) {
    this.chosen = entry;
    const index = this.#store.rows.indexOf(entry);
    if (index >= 0) this.#bringIntoSight(index);
    this.draw();
    this.#onChoose(entry);
  }

  /** Chooses the row that many further on, and has it read out; the newest where none was chosen. */
  move(step) {
    const { rows } = this.#store;
    if (!rows.length) return;
    const index = rows.indexOf(this.chosen);
    const next = index < 0 ? rows.length - 1 : Math.min(Math.max(index + step, 0), rows.length - 1);
    this.choose(rows[next]);
    this.#frame.focus({ preventScroll: true });
  }

  toggle(entry) {
    if (!entry?.parts.length) return;
    entry.isOpen = !entry.isOpen;
    this.#store.refresh();
    this.draw();
  }

  #clicked(event) {
    const row = this.#pool.find((each) => each.element.contains(event.target));
    if (!row) return;
    if (row.entry === this.chosen || event.target.closest(".fold")) this.toggle(row.entry);
    this.choose(row.entry);
  }

  #scrolled() {
    const { scrollTop, clientHeight, scrollHeight } = this.#frame;
    this.#follows = scrollTop + clientHeight >= scrollHeight - this.#height;
    const index = Math.floor(scrollTop / this.#height);
    this.#anchor = { entry: this.#store.rows[index], offset: scrollTop - index * this.#height };
    this.draw();
  }

  /** The first row in sight stays where it is, though rows above it come or go. */
  #hold() {
    const index = this.#anchor ? this.#store.rows.indexOf(this.#anchor.entry) : -1;
    if (index < 0) return;
    const top = index * this.#height + this.#anchor.offset;
    if (Math.abs(top - this.#frame.scrollTop) > 1) this.#frame.scrollTop = top;
  }

  #bringIntoSight(index) {
    const top = index * this.#height;
    const frame = this.#frame;
    this.#follows = false;
    if (top < frame.scrollTop) frame.scrollTop = top;
    const bottom = top + this.#height - frame.clientHeight;
    if (bottom > frame.scrollTop) frame.scrollTop = bottom;
  }

  #drawNow() {
    const { rows } = this.#store;
    const frame = this.#frame;
    this.#height = parseFloat(getComputedStyle(frame).getPropertyValue("--row")) || 34;
    this.#space.style.height = `${rows.length * this.#height}px`;
    if (this.#follows) frame.scrollTop = rows.length * this.#height;
    else this.#hold();
    const first = Math.max(0, Math.floor(frame.scrollTop / this.#height) - spare);
    const last = Math.min(rows.length, first + Math.ceil(frame.clientHeight / this.#height) + 2 * spare);
    while (this.#pool.length < last - first) this.#addRow();
    this.#pool.forEach((row, place) => this.#place(row, first + place, last));
    const index = rows.indexOf(this.chosen);
    const inSight = index >= first && index < last;
    if (inSight) frame.setAttribute("aria-activedescendant", `row-${index}`);
    else frame.removeAttribute("aria-activedescendant");
    const isAtEnd = frame.scrollTop + frame.clientHeight >= (rows.length - 1) * this.#height;
    this.#onFollow(this.#follows || isAtEnd);
  }

  #addRow() {
    const row = new Row();
    this.#pool.push(row);
    this.#space.append(row.element);
  }

  #place(row, index, last) {
    const entry = this.#store.rows[index];
    row.element.hidden = index >= last || !entry;
    if (row.element.hidden) return;
    row.element.style.transform = `translateY(${index * this.#height}px)`;
    row.show(entry, index, this.#store.rows.length, entry === this.chosen);
  }
}
