// What an entry of the backend's journal is called, and how it reads in one line.

let endpoints = [];

export function learnEndpoints(list) {
  endpoints = list;
}

/** "user/unset", "img/a.png", or the whole path where the contract knows none. */
function endpointOf(target) {
  const path = target.split("?")[0];
  const known = endpoints.find(({ name }) => path.endsWith(`/api/communication/${name}`));
  return known ? known.name : path.startsWith("/img/") ? path.slice(1) : path;
}

export function bearerOf(endpoint) {
  return endpoints.find(({ name }) => name === endpoint)?.bearer ?? "";
}

/** Adds to a record what the page needs to know about it; the record's own fields stay. */
export function entryOf(record, run) {
  const endpoint = record.kind === "request" ? endpointOf(record.target) : "";
  return { ...record, run, endpoint, group: endpoint.startsWith("img/") ? "img" : endpoint, parts: [] };
}

/** An entry of the page's own, between those of the backend. */
export function remark(kind, detail) {
  return { kind, detail, number: 0, arrival: Date.now(), endpoint: "", parts: [] };
}

const sentences = {
  handshake: (detail) => `TLS handshake failed: ${detail}`,
  forwarded: (detail) => `led on to ${detail}`,
  expired: (detail) => (detail === "all" ? "all tokens expired" : `all ${detail} tokens expired`),
  reset: () => "reset: sessions, tokens, faults, images, requests and totals are cleared",
  restart: () => "the backend was started anew",
  lost: (detail) => `${detail} ${detail === 1 ? "entry is" : "entries are"} no longer kept by the backend`,
};

/** The sentence of an entry that is not a request. */
export const sentenceOf = (entry) => sentences[entry.kind](entry.detail);

const methodAndTarget = (entry) => `${entry.method || "no HTTP"} ${entry.endpoint || "request"}`;

/** The whole row in words, for screen readers. */
export function spokenOf(entry) {
  if (entry.kind !== "request") return sentenceOf(entry);
  const resent = entry.parts.length ? `, then ${entry.parts.map((part) => part.status).join(", ")}` : "";
  const tokens = entry.carried.length && `token ${entry.carried.join(" and ")}`;
  const words = [methodAndTarget(entry), `${entry.status}${resent}`, tokens, noteOf(entry).text];
  return words.filter(Boolean).join(", ");
}

/** What a row says at its end, and how loudly. */
export function noteOf(entry) {
  if (entry.violations.length) {
    const more = entry.violations.length > 1 ? ` and ${entry.violations.length - 1} more` : "";
    return { text: `broken: ${entry.violations[0].text}${more}`, kind: "bad" };
  }
  if (entry.fault) return { text: `fault ${entry.fault.split(":").slice(1).join(":")}`, kind: "warn" };
  if (!entry.delivered) return { text: "not delivered", kind: "warn" };
  if (entry.imageHits) return { text: `hit ${entry.imageHits}`, kind: "" };
  return { text: entry.verdict, kind: "quiet" };
}

/** Which token an authentication renews. A user's needs a merchant's, which may be renewed first. */
const renewals = { "user/authenticate": "user", "sdk/authenticate": "merchant" };

/**
 * Stories: a refused request, the authentications that follow it, and its resend with the token that
 * these gave. Parts are folded into the refused request, which is their head.
 */
export class Stories {
  #open = [];

  /** Whether the entry became part of an earlier one. */
  fold(entry) {
    if (entry.kind !== "request") return false;
    const head = this.#headOf(entry);
    if (entry.status === 401 && bearerOf(entry.endpoint) && !head) this.#begin(entry);
    if (!head) return false;
    head.parts.push(entry);
    entry.head = head;
    const isResend = entry.endpoint === head.endpoint;
    if (isResend && entry.status !== 401) this.#open = this.#open.filter((other) => other !== head);
    if (!isResend) head.fresh.push(...entry.given);
    head.waits = isResend || renewals[entry.endpoint] !== bearerOf(head.endpoint);
    return true;
  }

  #begin(entry) {
    entry.fresh = [];
    entry.waits = true;
    this.#open.push(entry);
    if (this.#open.length > 32) this.#open.shift();
  }

  #headOf(entry) {
    const newest = entry.carried.at(-1);
    const resent = this.#open.find(
      (head) => head.endpoint === entry.endpoint && head.fresh.includes(newest),
    );
    if (resent) return resent;
    const renews = renewals[entry.endpoint];
    const isMeant = (head) => renews === "merchant" || renews === bearerOf(head.endpoint);
    return renews && this.#open.find((head) => head.waits && isMeant(head));
  }
}
