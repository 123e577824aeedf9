// A request as commands for a shell.

/** One word of a POSIX shell, whatever the text. */
export function quoted(text) {
  return /^[\w@%+=:,./-]+$/.test(text) ? text : `'${text.replaceAll("'", "'\\''")}'`;
}

const isShortened = (text) => text.includes("…");

/** The same request again. A client's own Content-Length would be wrong after an edit. */
export function curlOf(entry, run) {
  const words = ["curl", "-X", entry.method];
  if (run.trustFile) words.push("--cacert", run.trustFile);
  for (const [name, value] of entry.request.headers) {
    if (/^(host|content-length|connection)$/i.test(name)) continue;
    words.push("-H", value ? `${name}: ${value}` : `${name};`);
  }
  if (entry.request.body) words.push("--data-raw", entry.request.body);
  if (entry.target.includes("/.")) words.push("--path-as-is");
  words.push(run.baseUrl + entry.target.replace(/^(https?:\/\/[^/]*)?\//, ""));
  return words.map(quoted).join(" ");
}

/** The command that waits for such a request; members that are shortened cannot be compared. */
export function expectOf(entry) {
  const words = ["kivo-dev", "expect"];
  if (location.port !== "8444") words.push("--admin-port", location.port);
  words.push(entry.endpoint);
  let members = {};
  try {
    members = JSON.parse(entry.request.body);
  } catch {
    // Without a JSON body there is nothing to compare.
  }
  for (const [key, value] of Object.entries(members ?? {}))
    if (typeof value === "string" && !isShortened(value)) words.push(`${key}=${value}`);
  words.push(`status=${entry.status}`);
  return words.map(quoted).join(" ");
}

/** Whether the request can only be sent again with its secrets. */
export const lacksSecrets = (entry) =>
  entry.request.headers.some(([, value]) => isShortened(value)) || isShortened(entry.request.body);
