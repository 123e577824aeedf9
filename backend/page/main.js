// Wires the parts of the page together.

import { Detail } from "./detail.js";
import { byId, command, copy, el, notify, setText, spanOf } from "./dom.js";
import { learnEndpoints } from "./entries.js";
import { har, jsonLines, save } from "./export.js";
import { Faults } from "./faults.js";
import { Feed } from "./feed.js";
import { List } from "./list.js";
import { Push } from "./push.js";
import { Store, limit } from "./store.js";
import { Tokens, drawSessions } from "./tokens.js";

let run = { start: Date.now() };
let live = "connecting";

const store = new Store();
const list = new List(byId("list"), store, { onChoose: chosen, onFollow: drawNewest });
const tokens = new Tokens();
const detail = new Detail(byId("detail"), { run: () => run, onChange: refreshState });
const faults = new Faults(byId("faults"), refreshState);
const push = new Push(byId("push"));

function begin(description) {
  const isRestart = store.begin(description.run);
  if (run.run !== description.run) tokens.begin(description.lifetimes);
  if (isRestart) notify("The backend was started anew");
  if (run.run === undefined) describe(description);
  run = description;
  learnEndpoints(run.endpoints);
  setText(byId("version"), run.version);
  setText(byId("base-url"), run.baseUrl);
  setText(byId("hosts"), run.hosts);
  byId("hosts").title = run.hosts;
  setText(byId("environment"), run.environment);
  setText(byId("kept"), `Newest ${run.kept} kept by the backend, ${limit.toLocaleString("en")} here`);
  byId("export-secrets").disabled = !run.showsSecrets;
  setText(byId("export-note"), run.showsSecrets ? "" : "Secrets are shortened; start kivo-dev with --show-secrets to export them.");
}

/** The forms, once: what the user has entered survives a restart of the backend. */
function describe(description) {
  faults.learn(description);
  const names = [...description.endpoints.map(({ name }) => name), "img"];
  byId("filter-endpoint").append(...names.map((name) => el("option", {}, name)));
}

function add(batch) {
  const added = store.add(batch);
  tokens.learn(added);
  if (added.some(({ kind }) => kind === "reset")) choose(null);
  detail.update(added);
  draw();
}

function choose(entry) {
  list.chosen = entry;
  detail.show(entry);
  if (!entry) setView("list");
}

function chosen(entry) {
  detail.show(entry);
  setView("detail");
  if (!byId("list").offsetParent) byId("detail").focus();
}

function draw() {
  byId("empty").hidden = store.rows.length > 0;
  tokens.draw();
  list.draw();
}

function drawNewest(follows) {
  const button = byId("newest");
  button.hidden = follows && !store.paused;
  setText(button, store.paused ? `Paused · ${store.waiting} waiting` : "Newest ↓");
}

function setLive(state) {
  live = state;
  drawLive();
}

function drawLive() {
  const state = live === "live" && store.paused ? "paused" : live;
  byId("live").dataset.state = state;
  setText(byId("live"), { live: "live", paused: "paused", lost: "no backend, retrying" }[state] ?? state);
}

function showState(state) {
  const { totals } = state;
  const sum = (counts) => Object.values(counts).reduce((one, other) => one + other, 0);
  const counts = { ...totals, requests: sum(totals.requests), forwarded: Object.keys(totals.forwarded).length };
  for (const name of ["requests", "refreshes", "violations", "faultHits", "forwarded"]) {
    setText(byId(`count-${name}`), counts[name].toLocaleString("en"));
    byId(`count-${name}`).classList.toggle("some", counts[name] > 0);
  }
  faults.show(state);
  push.show(state);
  drawSessions(state.sessions);
}

async function refreshState() {
  const reply = await fetch("/state").catch(() => null);
  if (reply?.ok) showState(await reply.json());
}

/** Which part is in sight where there is room for one. */
function setView(view) {
  document.body.dataset.view = view;
  for (const button of document.querySelectorAll("[data-show]"))
    button.setAttribute("aria-pressed", button.dataset.show === view);
}

function filtered() {
  store.filter = {
    text: byId("search").value,
    endpoint: byId("filter-endpoint").value,
    status: byId("filter-status").value,
    broken: byId("filter-broken").checked,
  };
  store.refresh();
  draw();
}

function pause() {
  if (store.paused) store.resume();
  else store.paused = true;
  byId("pause").setAttribute("aria-pressed", store.paused);
  setText(byId("pause"), store.paused ? "Resume" : "Pause");
  drawLive();
  draw();
}

function exportAs(name, type, write) {
  const requests = store.requests();
  save(write(requests, byId("export-secrets").checked), name, type);
  notify(`Exported ${requests.length} ${requests.length === 1 ? "request" : "requests"}`);
  document.querySelector(".menu").open = false;
}

function escape() {
  const search = byId("search");
  const menu = document.querySelector(".menu");
  if (menu.open) {
    menu.open = false;
  } else if (document.activeElement === search) {
    search.value = "";
    filtered();
    byId("list").focus();
  } else if (list.chosen) {
    choose(null);
    draw();
    byId("list").focus();
  }
}

const keys = {
  j: () => list.move(1),
  k: () => list.move(-1),
  "/": () => byId("search").focus(),
};
const listKeys = {
  ArrowDown: () => list.move(1),
  ArrowUp: () => list.move(-1),
  Enter: () => list.toggle(list.chosen),
  ArrowRight: () => list.toggle(list.chosen),
};

document.addEventListener("keydown", (event) => {
  if (event.ctrlKey || event.metaKey || event.altKey) return;
  if (event.key === "Escape") return escape();
  const isWriting = event.target.matches("input, select, textarea");
  const action = event.target === byId("list") ? listKeys[event.key] ?? keys[event.key] : keys[event.key];
  if (!action || isWriting) return;
  event.preventDefault();
  action();
});
byId("search").addEventListener("input", filtered);
for (const id of ["filter-endpoint", "filter-status", "filter-broken"])
  byId(id).addEventListener("change", filtered);
document.querySelector(".filters").addEventListener("submit", (event) => event.preventDefault());
byId("pause").addEventListener("click", pause);
byId("reset").addEventListener("click", () => command("POST", "/reset"));
byId("newest").addEventListener("click", () => (store.paused ? pause() : list.follow()));
byId("environment").addEventListener("click", () => copy(run.environment, "the environment"));
byId("export-lines").addEventListener("click", () => exportAs("kivo-dev.jsonl", "application/x-ndjson", jsonLines));
byId("export-har").addEventListener("click", () =>
  exportAs("kivo-dev.har", "application/json", (requests, withSecrets) => har(requests, withSecrets, run)));
for (const button of document.querySelectorAll("[data-show]"))
  button.addEventListener("click", () => setView(button.dataset.show));

setInterval(() => {
  setText(byId("uptime"), spanOf((Date.now() - run.start) / 1000));
  tokens.draw();
}, 1000);
setView("list");
new Feed({ run: begin, entries: add, state: showState, live: setLive });
