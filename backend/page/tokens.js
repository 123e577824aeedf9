// The life of each token, and the sessions.

import { byId, command, el, notify, timeOf } from "./dom.js";

const shownLimit = 16;
const keptLimit = 256;
const useLimit = 64;

export class Tokens {
  #tokens = new Map();
  #lifetimes = { user: 900, merchant: 3600 };
  #drawn = 0;

  constructor() {
    for (const button of document.querySelectorAll("[data-expire]"))
      button.addEventListener("click", () => expire(button.dataset.expire));
  }

  begin(lifetimes) {
    this.#lifetimes = lifetimes;
    this.#tokens.clear();
  }

  learn(entries) {
    for (const entry of entries) {
      if (entry.kind === "reset") this.#tokens.clear();
      if (entry.kind === "expired") this.#expireAll(entry);
      if (entry.kind === "request") this.#learnRequest(entry);
    }
  }

  #learnRequest(entry) {
    for (const name of entry.carried) this.#tokens.get(name)?.uses.push(entry.arrival);
    const last = this.#tokens.get(entry.carried.at(-1));
    if (last && entry.status === 401) last.refused = entry.arrival;
    for (const token of this.#tokens.values()) if (token.uses.length > useLimit) token.uses.shift();
    for (const name of entry.given) this.#give(name, entry);
  }

  #give(name, entry) {
    const kind = name[0] === "M" ? "merchant" : "user";
    const given = entry.arrival;
    const expires = given + 1000 * this.#lifetimes[kind];
    this.#tokens.set(name, { name, kind, given, expires, uses: [], refused: 0 });
    if (this.#tokens.size > keptLimit) this.#tokens.delete(this.#tokens.keys().next().value);
  }

  #expireAll({ detail, arrival }) {
    for (const token of this.#tokens.values())
      if (detail === "all" || detail === token.kind) token.expires = Math.min(token.expires, arrival);
  }

  /** At most twice a second, since the lines grow with time anyway. */
  draw() {
    if (Date.now() - this.#drawn < 500) return;
    this.#drawn = Date.now();
    const tokens = [...this.#tokens.values()].slice(-shownLimit).reverse();
    const now = Date.now();
    const start = Math.min(...tokens.map(({ given }) => given), now - 10000);
    const rows = tokens.map((token) => lifeLine(token, start, now));
    byId("tokens").replaceChildren(...(rows.length ? rows : [el("li.quiet", {}, "No token was given yet.")]));
  }
}

function lifeLine(token, start, now) {
  const at = (time) => `${(100 * (time - start)) / (now - start)}%`;
  const end = Math.min(token.expires, now);
  const isOver = token.expires <= now || token.refused > 0;
  const bar = el(`span.bar${isOver ? ".over" : ""}`);
  bar.style.insetInlineStart = at(token.given);
  bar.style.width = at(start + end - token.given);
  const marks = [...token.uses.map((time) => mark("use", time)), ...(token.refused ? [mark("refused", token.refused)] : [])];
  function mark(kind, time) {
    const element = el(`span.mark.${kind}`);
    element.style.insetInlineStart = at(time);
    return element;
  }
  const fate = token.refused ? "refused" : token.expires <= now ? "expired" : "valid";
  const uses = `${token.uses.length}${token.uses.length === useLimit ? "+" : ""} × used`;
  return el("li", { title: `given ${timeOf(token.given)}` },
    el(`span.chip.${token.kind}`, {}, token.name),
    el("span.track", { ariaHidden: "true" }, bar, ...marks),
    el(`span.fate.${fate}`, {}, `${uses}, ${fate}`));
}

async function expire(kind) {
  if (await command("POST", "/expire", { kind })) notify(kind === "all" ? "All tokens expired" : `The ${kind} tokens expired`);
}

export function drawSessions(sessions) {
  const rows = sessions.slice(-shownLimit).reverse().map(({ id, apiKey, user, deviceToken, permission }) => {
    const facts = [`key ${apiKey}`, user.name || user.email || "no user", deviceToken && `device ${deviceToken}`, permission.toLowerCase()];
    return el("li", {}, el("b", {}, id), " ", facts.filter(Boolean).join(" · "));
  });
  byId("sessions").replaceChildren(...(rows.length ? rows : [el("li.quiet", {}, "No session yet.")]));
}
