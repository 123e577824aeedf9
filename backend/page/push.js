// A picture becomes the payload of a notification.

import { command, copy, el, notify } from "./dom.js";

const largest = 1024 * 1024;

export class Push {
  #input = el("input", { id: "push-file", type: "file", accept: "image/*", onchange: () => this.#given(this.#input.files) });
  #hits = el("p.quiet", { id: "push-hits" });
  #payload = el("div");
  #name = "";

  constructor(frame) {
    const zone = el("label.drop", { htmlFor: "push-file" }, "Drop a picture here, or choose one", this.#input);
    zone.addEventListener("dragover", (event) => event.preventDefault());
    zone.addEventListener("drop", (event) => {
      event.preventDefault();
      this.#given(event.dataTransfer.files);
    });
    frame.append(zone, this.#payload, this.#hits);
  }

  show({ images }) {
    const image = images.find(({ name }) => name === this.#name);
    if (image) this.#hits.textContent = `requested ${image.hits} ${image.hits === 1 ? "time" : "times"}`;
  }

  async #given([file]) {
    if (!file) return;
    if (file.size > largest) return notify("A picture may have 1 MiB at most", true);
    const added = await command("POST", `/images?file=${encodeURIComponent(file.name)}`, file);
    if (added) this.#show(file, added.url);
    return undefined;
  }

  #show(file, image) {
    this.#name = image.split("/").at(-1);
    const text = JSON.stringify({ notification: { title: "Hello", body: "From kivo-dev", image } }, null, 2);
    const address = URL.createObjectURL(file);
    const picture = el("img", { src: address, alt: "", width: 56, height: 56, onload: () => URL.revokeObjectURL(address) });
    this.#payload.replaceChildren(el("div.payload", {}, picture, el("pre.body", {}, text)),
      el("button", { type: "button", onclick: () => copy(text, "the payload") }, "Copy the payload"));
    this.#hits.textContent = "requested 0 times";
  }
}
