// The shown requests as a file: JSON lines, or HAR 1.2 for a browser's own network panel.

const secretKeys = ["apiKey", "merchantToken", "userToken", "deviceToken"];

const shorten = (text) => (text.length > 8 ? `${text.slice(0, 4)}…` : "…");

const maskHeader = ([name, value]) =>
  [name, /^authorization$/i.test(name) ? value.replace(/[^\s,]{9,}/g, shorten) : value];

/** Known members, and any long word that looks like a token where the body is not JSON. */
function maskBody(body) {
  const isSecret = (key, value) => secretKeys.includes(key) && typeof value === "string";
  try {
    return JSON.stringify(JSON.parse(body), (key, value) => (isSecret(key, value) ? shorten(value) : value));
  } catch {
    return body.replace(/[\w.+=-]{32,}/g, shorten);
  }
}

const maskMessage = ({ headers, body }) => ({ headers: headers.map(maskHeader), body: body && maskBody(body) });

function recordOf(entry, withSecrets) {
  const { number, arrival, method, target, authority, connection, status, milliseconds, delivered } = entry;
  const { carried, given, verdict, violations, fault, imageHits } = entry;
  const masked = (message) => (withSecrets ? message : maskMessage(message));
  return {
    number, time: new Date(arrival).toISOString(), method, target, authority, connection, status, milliseconds,
    delivered, carried, given, verdict, violations, fault, imageHits,
    request: masked(entry.request), reply: masked(entry.reply),
  };
}

export function jsonLines(entries, withSecrets) {
  return entries.map((entry) => `${JSON.stringify(recordOf(entry, withSecrets))}\n`).join("");
}

export function har(entries, withSecrets, { baseUrl, version }) {
  const records = entries.map((entry) => recordOf(entry, withSecrets));
  const creator = { name: "kivo-dev", version: version || "0" };
  const log = { version: "1.2", creator, entries: records.map((record) => harEntry(record, baseUrl)) };
  return JSON.stringify({ log }, null, 1);
}

const pairs = (list) => list.map(([name, value]) => ({ name, value }));

const typeIn = (message) => message.headers.find(([name]) => /^content-type$/i.test(name))?.[1] ?? "";

const sizeOf = (text) => new TextEncoder().encode(text).length;

const common = { httpVersion: "HTTP/1.1", cookies: [], headersSize: -1 };

function harEntry(record, baseUrl) {
  const { request, reply } = record;
  const address = `https://${record.authority}${record.target}`;
  const url = URL.canParse(address) ? new URL(address).href : baseUrl;
  const comment = [record.verdict, record.fault && `fault ${record.fault}`].filter(Boolean).join("; ");
  return {
    startedDateTime: record.time,
    time: record.milliseconds,
    request: {
      ...common, method: record.method, url, headers: pairs(request.headers),
      queryString: pairs([...new URL(url).searchParams]), bodySize: sizeOf(request.body),
      ...(request.body && { postData: { mimeType: typeIn(request), text: request.body } }),
    },
    response: {
      ...common, status: record.delivered ? record.status : 0, statusText: "", headers: pairs(reply.headers),
      content: { size: sizeOf(reply.body), mimeType: typeIn(reply), text: reply.body },
      redirectURL: reply.headers.find(([name]) => /^location$/i.test(name))?.[1] ?? "", bodySize: sizeOf(reply.body),
    },
    cache: {},
    timings: { send: 0, wait: record.milliseconds, receive: 0 },
    connection: String(record.connection),
    comment,
  };
}

export function save(text, name, type) {
  const address = URL.createObjectURL(new Blob([text], { type }));
  const link = document.createElement("a");
  link.href = address;
  link.download = name;
  link.click();
  setTimeout(() => URL.revokeObjectURL(address), 1000);
}
