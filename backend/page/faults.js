// Adding faults by form or preset, those that are active, and the latency.

import { command, el, notify } from "./dom.js";

const presets = [
  ["401 once", "401:times=1"],
  ["401 for ever", "401"],
  ["503", "status=503"],
  ["Hang", "hang"],
  ["Slow", "delay=2s"],
  ["Wrong certificate", "wrong-certificate"],
];

export class Faults {
  #onChange;
  #kinds = [];
  #endpoint = el("select", { id: "fault-endpoint", name: "endpoint", onchange: () => this.#preview() });
  #kind = el("select", { id: "fault-kind", name: "kind", onchange: () => this.#kindChosen() });
  #argument = field("fault-argument", "text", {}, () => this.#preview());
  #times = field("fault-times", "number", { min: 1, placeholder: "always" }, () => this.#preview());
  #chance = field("fault-chance", "number", { min: 0, max: 1, step: "any", placeholder: "1" }, () => this.#preview());
  #about = el("p.about", { id: "fault-about" });
  #add = el("button.primary", { id: "fault-add" });
  #active = el("ul.active", { id: "fault-list", ariaLabel: "Active faults" });
  #latency = el("input", { id: "latency", type: "range", min: 0, max: 3000, step: 20, value: 0 });
  #latencyText = el("output", { htmlFor: "latency" }, "0 ms");
  #shown = "";

  constructor(frame, onChange) {
    this.#onChange = onChange;
    const form = el("form.fault-form", { onsubmit: (event) => this.#submitted(event) },
      labelled("Endpoint", this.#endpoint), labelled("Kind", this.#kind), labelled("Argument", this.#argument),
      labelled("Times", this.#times), labelled("Chance", this.#chance), this.#about, this.#add);
    const buttons = presets.map(([name, rest]) =>
      el("button", { type: "button", onclick: () => this.#addRule(this.#presetRule(rest)) }, name));
    this.#latency.addEventListener("input", () => (this.#latencyText.textContent = `${this.#latency.value} ms`));
    this.#latency.addEventListener("change", () => command("POST", "/latency", { latency: `${this.#latency.value}ms` }));
    frame.append(form, el("div.buttons", { role: "group", ariaLabel: "Presets" }, ...buttons), this.#active,
      el("label.slider", { htmlFor: "latency" }, "Latency", this.#latency, this.#latencyText));
  }

  learn({ endpoints, faultKinds }) {
    const options = (names) => names.map((name) => el("option", {}, name));
    this.#kinds = faultKinds;
    this.#endpoint.replaceChildren(...options(["*", ...endpoints.map(({ name }) => name), "img"]));
    this.#endpoint.value = "user/update-device-token";
    this.#kind.replaceChildren(...options(faultKinds.map(({ name }) => name)));
    this.#kindChosen();
  }

  show({ faults, latency }) {
    if (document.activeElement !== this.#latency) {
      this.#latency.value = parseInt(latency, 10);
      this.#latencyText.textContent = latency.replace("ms", " ms");
    }
    if (this.#shown === JSON.stringify(faults)) return;
    this.#shown = JSON.stringify(faults);
    const rows = faults.map((fault) => this.#row(fault));
    if (rows.length > 1) rows.push(el("li", {}, el("button", { type: "button", onclick: () => this.#clear() }, "Clear all")));
    this.#active.replaceChildren(...(rows.length ? rows : [el("li.quiet", {}, "No fault is active.")]));
  }

  #row({ rule, hits }) {
    const times = Number(/:times=(\d+)/.exec(rule)?.[1] ?? Infinity);
    const left = times - hits > 0 ? `${times - hits} left` : "used up";
    const count = `${hits} ${hits === 1 ? "hit" : "hits"}${times === Infinity ? "" : `, ${left}`}`;
    return el(`li${hits >= times ? ".spent" : ""}`, {}, el("code", {}, rule), el("span.count", {}, count),
      el("button.remove", { type: "button", ariaLabel: `Remove ${rule}`, onclick: () => this.#clear(rule) }, "×"));
  }

  #kindChosen() {
    const kind = this.#kinds.find(({ name }) => name === this.#kind.value);
    const example = kind.form.split("=").slice(1).join("=").replace(/[[\]].*/, "");
    this.#argument.disabled = !kind.form.includes("=");
    this.#argument.value = kind.form.includes("[=") ? "" : example;
    this.#about.textContent = kind.description;
    if (!kind.forRequests) this.#endpoint.value = "*";
    this.#preview();
  }

  #rule() {
    const argument = this.#argument.value && !this.#argument.disabled ? `=${this.#argument.value}` : "";
    const times = this.#times.value ? `:times=${this.#times.value}` : "";
    const chance = this.#chance.value ? `:p=${this.#chance.value}` : "";
    return `${this.#endpoint.value}:${this.#kind.value}${argument}${times}${chance}`;
  }

  #presetRule(rest) {
    const isForRequests = this.#kinds.find(({ name }) => name === rest.split(/[:=]/)[0]).forRequests;
    return `${isForRequests ? this.#endpoint.value : "*"}:${rest}`;
  }

  #preview() {
    this.#add.replaceChildren("Add ", el("code", {}, this.#rule()));
  }

  #submitted(event) {
    event.preventDefault();
    this.#addRule(this.#rule());
  }

  async #addRule(rule) {
    const added = await command("POST", "/faults", { rule });
    if (added) notify(`Added ${added.added}`);
    this.#onChange();
  }

  async #clear(rule) {
    await command("DELETE", "/faults", rule ? { rule } : {});
    this.#onChange();
  }
}

const field = (id, type, limits, oninput) => el("input", { id, type, ...limits, oninput });

const labelled = (text, control) => el("label", { htmlFor: control.id }, el("span", {}, text), control);
