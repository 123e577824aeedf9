// What the SDK prints for a fault, from the table in the documentation.

import { bearerOf } from "./entries.js";

let rows = null;

/** A row is: | `rule` | `operation` | `line`<br>`line` | `line` | */
function parse(text) {
  const codes = (cell) => [...cell.matchAll(/`([^`]+)`/g)].map((match) => match[1]);
  return text
    .split("\n")
    .filter((line) => line.startsWith("| `"))
    .map((line) => line.split(" | ").map(codes))
    .filter(([rules]) => rules.length === 1)
    .map(([[rule], [operation], atOnce, later = []]) => ({ rule, operation, atOnce, later }));
}

async function load() {
  const reply = await fetch("/FAULTS.md");
  return parse(await reply.text());
}

const split = (rule) => {
  const [endpoint, kind, ...limits] = rule.split(":");
  return { endpoint, kind, times: limits.find((limit) => limit.startsWith("times=")) ?? "" };
};

/** A row says something of a fault where it is about the same kind and a like endpoint. */
function likeness(row, fault) {
  const place = row.endpoint === fault.endpoint ? 3 : bearerOf(row.endpoint) === bearerOf(fault.endpoint) ? 2 : 0;
  return row.kind === fault.kind && place ? place + (row.times === fault.times ? 2 : 0) : 0;
}

/** The row that is most like the rule; or null. */
export async function sdkLines(rule, endpoint) {
  rows ??= await load().catch(() => []);
  const fault = { ...split(rule), endpoint };
  const ranked = rows.map((row) => ({ row, rank: likeness({ ...row, ...split(row.rule) }, fault) }));
  const best = ranked.reduce((one, other) => (other.rank > one.rank ? other : one), { row: null, rank: 0 });
  return best.row;
}
