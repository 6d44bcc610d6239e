// The events of the server over one connection, while a page is visible.

const RETRY_MS = 2000;
const SILENT_MS = 10000; // the server sends an event every second

export class Source {
  /** @param emit gets {type: "cell" | "values", data} and {type: "lost", reason} */
  constructor(emit) {
    this.emit = emit;
    this.events = null;
    this.timer = 0;
    this.silence = 0;
  }

  open() {
    if (this.events) {
      return;
    }
    this.events = new EventSource("/events");
    this.expectEvent();
    for (const type of ["cell", "values"]) {
      this.events.addEventListener(type, (event) => {
        this.expectEvent();
        this.emit({ type, data: JSON.parse(event.data) });
      });
    }
    this.events.addEventListener("error", () => this.onError());
  }

  /** A connection can be lost without an error, as while the machine sleeps. */
  expectEvent() {
    clearTimeout(this.silence);
    this.silence = setTimeout(() => {
      this.close();
      this.open();
    }, SILENT_MS);
  }

  close() {
    clearTimeout(this.silence);
    clearTimeout(this.timer);
    this.events?.close();
    this.events = null;
  }

  /** The browser retries by itself unless it was answered with an error. */
  async onError() {
    const { events } = this;
    if (events?.readyState !== EventSource.CLOSED) {
      this.emit({ type: "lost", reason: "tavrikweb cannot be reached" });
      return;
    }
    const reason = await this.reason();
    if (this.events !== events) {
      return; // closed or opened again meanwhile
    }
    this.emit({ type: "lost", reason });
    this.timer = setTimeout(() => {
      this.events = null;
      this.open();
    }, RETRY_MS);
  }

  async reason() {
    const abort = new AbortController();
    try {
      const answer = await fetch("/events", { signal: abort.signal });
      const text = answer.ok ? "" : (await answer.text()).trim();
      return text || "the connection was closed";
    } catch {
      return "tavrikweb cannot be reached";
    } finally {
      abort.abort();
    }
  }
}
