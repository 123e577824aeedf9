// Elements made from texts. Nothing here takes markup, so no text can become any.

/** An element named "tag.class.class" with properties or attributes, and children or texts. */
export function el(name, properties = {}, ...children) {
  const [tag, ...classes] = name.split(".");
  const element = document.createElement(tag || "div");
  if (classes.length) element.className = classes.join(" ");
  for (const [key, value] of Object.entries(properties)) {
    if (key.startsWith("on")) element.addEventListener(key.slice(2), value);
    else if (key in element) element[key] = value;
    else element.setAttribute(key, value);
  }
  element.append(...children.filter((child) => child !== null && child !== undefined));
  return element;
}

export const byId = (id) => document.getElementById(id);

/** Changes a text only where it differs, so that what is unchanged is not laid out again. */
export function setText(element, text) {
  if (element.textContent !== text) element.textContent = text;
}

let noticeTimer = 0;

/** Tells the user something for a moment, on screen and to a screen reader. */
export function notify(text, isBad = false) {
  const notice = byId("notice");
  notice.textContent = text;
  notice.classList.toggle("bad", isBad);
  notice.classList.add("shown");
  clearTimeout(noticeTimer);
  noticeTimer = setTimeout(() => notice.classList.remove("shown"), 4000);
}

export async function copy(text, what) {
  try {
    await navigator.clipboard.writeText(text);
    notify(`Copied ${what}`);
  } catch {
    notify("The browser does not let this page copy", true);
  }
}

let latest = Promise.resolve();

/**
 * Sends a command once all before it are answered, since they could overtake each other on connections of their own.
 * Its reply, or null after telling the user why it was refused.
 */
export function command(...request) {
  latest = latest.then(() => send(...request));
  return latest;
}

async function send(method, path, body) {
  try {
    const isBytes = body instanceof Blob;
    const reply = await fetch(path, { method, body: isBytes ? body : JSON.stringify(body ?? {}) });
    const answer = await reply.json();
    if (reply.ok) return answer;
    notify(answer.message, true);
  } catch {
    notify("The backend does not answer", true);
  }
  return null;
}

export function timeOf(milliseconds) {
  const time = new Date(milliseconds);
  const two = (number) => String(number).padStart(2, "0");
  const tail = String(time.getMilliseconds()).padStart(3, "0");
  return `${two(time.getHours())}:${two(time.getMinutes())}:${two(time.getSeconds())}.${tail}`;
}

export function spanOf(seconds) {
  const whole = Math.max(0, Math.floor(seconds));
  if (whole < 60) return `${whole} s`;
  if (whole < 3600) return `${Math.floor(whole / 60)} min ${whole % 60} s`;
  return `${Math.floor(whole / 3600)} h ${Math.floor((whole % 3600) / 60)} min`;
}
