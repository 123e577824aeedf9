// One request and its reply, side by side.

import { Findings, bodyView, headerTable } from "./body.js";
import { curlOf, expectOf, lacksSecrets } from "./copy.js";
import { command, copy, el, notify, timeOf } from "./dom.js";
import { bearerOf, sentenceOf } from "./entries.js";
import { statusPill, tokenChip } from "./list.js";
import { sdkLines } from "./sdk-lines.js";

function stepName(head, entry) {
  if (entry === head) return "refused";
  if (entry.endpoint === head.endpoint) return "sent again";
  return entry.given.length ? `${entry.given.join(", ")} given` : "no token given";
}

export class Detail {
  #panel;
  #run;
  #onChange;
  #shown = null;

  constructor(panel, { run, onChange }) {
    this.#panel = panel;
    this.#run = run;
    this.#onChange = onChange;
  }

  show(entry) {
    this.#shown = entry;
    if (!entry) return this.#panel.replaceChildren(el("p.placeholder", {}, "Choose a request to see it and its reply."));
    if (entry.kind !== "request") return this.#panel.replaceChildren(title(sentenceOf(entry)), meta([timeOf(entry.arrival)]));
    const findings = new Findings(entry.violations);
    this.#panel.replaceChildren(
      title(entry.method || "no HTTP", el("span.name", {}, entry.endpoint), statusPill(entry)),
      ...findings.take("method", ""),
      ...findings.take("path", ""),
      meta(factsOf(entry)),
      this.#steps(entry),
      this.#actions(entry),
      ...this.#fault(entry),
      el("div.sides", {}, side("Request", entry.request, entry.carried, findings),
        side("Reply", entry.reply, entry.given, new Findings([]))),
    );
    this.#panel.scrollTop = 0;
    return undefined;
  }

  /** Shows a story again when it has grown. */
  update(entries) {
    const head = this.#shown?.head ?? this.#shown;
    if (head && entries.some((entry) => entry.head === head)) this.show(this.#shown);
  }

  #steps(shown) {
    const head = shown.head ?? shown;
    if (!head.parts.length) return el("div", { hidden: true });
    const buttons = [head, ...head.parts].map((entry) =>
      el("button.step", {
        type: "button",
        ariaPressed: String(entry === shown),
        onclick: () => this.show(entry),
      }, el("small", {}, stepName(head, entry)), el("span", {}, entry.endpoint.replace(/^user\/u/, "u"), " ", statusPill(entry))));
    return el("div.steps", { role: "group", ariaLabel: "The story of this request" }, ...buttons);
  }

  #actions(entry) {
    const button = (text, onclick) => el("button", { type: "button", onclick }, text);
    const isKnown = entry.group === "img" || bearerOf(entry.endpoint) || entry.endpoint === "sdk/authenticate";
    const actions = [button("Copy as curl", () => this.#copyCurl(entry))];
    if (isKnown) {
      actions.push(button("Copy as kivo-dev expect", () => copy(expectOf(entry), "the expectation")));
      actions.push(button("Fail the next one like this", () => this.#failNext(entry)));
    }
    return el("div.buttons", { role: "group", ariaLabel: "Actions" }, ...actions);
  }

  #copyCurl(entry) {
    const hint = lacksSecrets(entry) ? "; its secrets are shortened: start with --show-secrets" : "";
    return copy(curlOf(entry, this.#run()), `the curl command${hint}`);
  }

  async #failNext(entry) {
    const kind = bearerOf(entry.endpoint) ? "401" : "status=503";
    const added = await command("POST", "/faults", { rule: `${entry.group}:${kind}:times=1` });
    if (added) notify(`Added ${added.added}`);
    this.#onChange();
  }

  #fault(entry) {
    if (!entry.fault) return [];
    const lines = el("pre.sdk", {}, "…");
    const about = el("p", {});
    sdkLines(entry.fault, entry.group).then((row) => {
      about.textContent = row ? `For ${row.rule}, ${row.operation} prints:` : "";
      lines.textContent = row ? [...row.atOnce, ...row.later.map((line) => `after 30 s: ${line}`)].join("\n")
        : "The documentation has no lines for this one.";
    });
    return [el("section.fault-box", {}, el("h3", {}, `Fault ${entry.fault}`), about, lines)];
  }
}

const title = (text, ...more) => el("h2.title", {}, el("span.method", {}, text), ...more);

const meta = (facts) => el("p.meta", {}, ...facts.map((fact) => el("span", {}, fact)));

function factsOf(entry) {
  const facts = [timeOf(entry.arrival), `${entry.milliseconds.toFixed(1)} ms`, `connection ${entry.connection}`];
  if (entry.authority) facts.push(entry.authority);
  if (!entry.delivered) facts.push("not delivered");
  if (entry.imageHits) facts.push(`hit ${entry.imageHits}`);
  if (entry.verdict && !entry.violations.length) facts.push(entry.verdict === "ok" ? "keeps the contract" : entry.verdict);
  return [...facts, `#${entry.number}`];
}

function side(name, message, tokens, findings) {
  const chips = tokens.map((token) => tokenChip(token, name === "Reply"));
  const raw = el("button.raw", { type: "button", ariaPressed: "false" }, "raw");
  const headers = headerTable(message.headers, findings);
  const pretty = bodyView(message.body, findings);
  raw.addEventListener("click", () => {
    const isRaw = raw.ariaPressed !== "true";
    raw.ariaPressed = String(isRaw);
    body.replaceChildren(isRaw ? el("pre.body", {}, message.body) : pretty);
  });
  const body = el("div.body-frame", {}, pretty);
  const size = new TextEncoder().encode(message.body).length;
  return el("section.side", { ariaLabel: name }, el("h3", {}, name, " ", ...chips), headers,
    el("h4", {}, `Body, ${size} bytes `, raw), body);
}
