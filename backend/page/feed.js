// The stream of events from the backend.

const retryAfter = 1000;

/**
 * Follows the backend and resumes where it was cut off. Calls handlers.run with a description of the
 * backend's run, handlers.entries with { lost, entries }, handlers.state with what has changed, and
 * handlers.live with "live" or "lost".
 */
export class Feed {
  #handlers;
  #place = "";

  constructor(handlers) {
    this.#handlers = handlers;
    this.#open();
  }

  #open() {
    const after = this.#place && `?after=${encodeURIComponent(this.#place)}`;
    const source = new EventSource(`/events${after}`);
    const on = (type, handle) =>
      source.addEventListener(type, (event) => handle(JSON.parse(event.data), event));
    on("run", (run) => {
      this.#handlers.live("live");
      this.#handlers.run(run);
    });
    on("state", (state) => this.#handlers.state(state));
    on("message", (batch, event) => {
      this.#place = event.lastEventId;
      this.#handlers.entries(batch);
    });
    source.onerror = () => this.#lost(source);
  }

  /** Our own retry, since a browser gives up where it was answered with an error. */
  #lost(source) {
    source.close();
    this.#handlers.live("lost");
    setTimeout(() => this.#open(), retryAfter);
  }
}
