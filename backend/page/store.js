// The newest entries, and the rows that the filter lets through.

import { Stories, entryOf, remark } from "./entries.js";

/** How many entries the page keeps; the backend keeps fewer. */
export const limit = 2000;

function searchText(entry) {
  const message = (side) => `${side.headers.map((pair) => pair.join(": ")).join("\n")}\n${side.body}`;
  const text = entry.request ? `${entry.line}\n${message(entry.request)}\n${message(entry.reply)}` : "";
  return `${text}\n${entry.detail ?? ""}`.toLowerCase();
}

export class Store {
  filter = { text: "", endpoint: "", status: "", broken: false };
  rows = [];
  paused = false;
  #entries = [];
  #waiting = [];
  #stories = new Stories();
  #run = "";

  /** A new run begins its numbers, tokens and stories anew; what is shown stays. */
  begin(run) {
    const isRestart = this.#run && this.#run !== run;
    this.#run = run;
    if (!isRestart) return false;
    this.#stories = new Stories();
    this.#take(remark("restart"));
    this.refresh();
    return true;
  }

  /** The entries that were new, for others to learn from. */
  add({ lost, entries }) {
    const added = entries.map((record) => entryOf(record, this.#run));
    if (lost) added.unshift(remark("lost", lost));
    for (const entry of added) this.#take(entry);
    this.refresh();
    return added;
  }

  get waiting() {
    return this.#waiting.length;
  }

  resume() {
    this.paused = false;
    for (const entry of this.#waiting.splice(0)) this.#keep(entry);
    this.refresh();
  }

  refresh() {
    this.rows = [];
    for (const entry of this.#entries) {
      if (![entry, ...entry.parts].some((each) => this.#passes(each))) continue;
      this.rows.push(entry);
      if (entry.isOpen) this.rows.push(...entry.parts);
    }
  }

  /** All requests of the rows, folded ones included, in the order of their numbers. */
  requests() {
    const heads = this.rows.filter((entry) => entry.kind === "request" && !entry.head);
    return heads.flatMap((entry) => [entry, ...entry.parts]).sort((a, b) => a.arrival - b.arrival);
  }

  #take(entry) {
    if (!this.paused) return this.#keep(entry);
    this.#waiting.push(entry);
    if (this.#waiting.length > limit) this.#waiting.shift();
  }

  #keep(entry) {
    if (entry.kind === "reset") {
      this.#entries = [];
      this.#stories = new Stories();
    }
    if (this.#stories.fold(entry)) return;
    this.#entries.push(entry);
    if (this.#entries.length > limit) this.#entries.shift();
  }

  #passes(entry) {
    const { text, endpoint, status, broken } = this.filter;
    if (entry.kind !== "request") return !endpoint && !status && !broken && this.#contains(entry, text);
    if (endpoint && entry.group !== endpoint) return false;
    if (status && (status === "cut" ? entry.delivered : String(entry.status)[0] !== status)) return false;
    return (!broken || entry.violations.length > 0) && this.#contains(entry, text);
  }

  #contains(entry, text) {
    if (!text) return true;
    entry.searchText ??= searchText(entry);
    return entry.searchText.includes(text.toLowerCase());
  }
}
