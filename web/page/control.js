// Control: who may move the grippers, and the requests that do.

import { element, setText } from "./dom.js";

const KEEP_MS = 15000;
const FORBIDDEN = 403;

/** Posts to the server. @return its answer, always with `ok` and `text` */
export async function post(path, body, token = "", keepalive = false) {
  try {
    const answer = await fetch(path, {
      method: "POST",
      headers: { "Content-Type": "application/json", "X-Tavrik-Page": "1",
        ...(token ? { "X-Tavrik-Control": token } : {}) },
      body: JSON.stringify(body),
      keepalive,
    });
    const text = await answer.text();
    try {
      return { text: "", status: answer.status, ...JSON.parse(text) };
    } catch {
      return { ok: false, text: text.trim() };
    }
  } catch {
    return { ok: false, text: "tavrikweb cannot be reached" };
  }
}

/** What this page may do. The token is kept by the page only: a reload gives control back. */
export class Control {
  constructor(model, root) {
    this.model = model;
    this.token = "";
    this.holder = 0; // the number that the server gave this page
    this.wasHeld = false; // by this page, as the last event said
    this.status = element("p", { role: "status" });
    this.code = element("input", { type: "text", inputMode: "numeric", autocomplete: "off",
      maxLength: 8, size: 8, id: "code" });
    this.takeButton = element("button", { type: "submit", textContent: "Take control" });
    this.form = element("form", {},
      element("label", { htmlFor: "code", textContent: "Code" }), this.code, this.takeButton);
    this.releaseButton = element("button", { type: "button", textContent: "Give control back" });
    this.form.addEventListener("submit", (event) => {
      event.preventDefault();
      this.takeControl();
    });
    this.releaseButton.addEventListener("click", () => this.releaseControl());
    window.addEventListener("pagehide", () => this.releaseControl());
    setInterval(() => this.keepControl(), KEEP_MS);
    root.append(this.status, this.form, this.releaseButton);
    this.note = "";
  }

  /** Whether this page has control. */
  get isOwn() {
    return this.token !== "";
  }

  async takeControl() {
    const answer = await post("/api/control/take", { code: this.code.value.trim() });
    this.note = answer.ok ? "" : answer.text;
    if (answer.ok) {
      this.token = answer.token;
      this.holder = answer.holder;
      this.code.value = "";
    }
    this.update();
  }

  /** Extends control. A tavrikweb that was restarted meanwhile may have another holder. */
  async keepControl() {
    const { token } = this;
    if (token && (await post("/api/control/keep", {}, token)).status === FORBIDDEN &&
        token === this.token) {
      this.token = "";
      this.note = "this page has lost control";
      this.update();
    }
  }

  releaseControl() {
    if (this.token) {
      post("/api/control/release", {}, this.token, true);
      this.token = "";
      this.update();
    }
  }

  /** Sends a command. @return {ok, text} */
  command(body) {
    return post("/api/command", body, this.token);
  }

  update() {
    const { allowed, held, by, holder } = this.model.cell.control;
    if (this.token && holder > this.holder) {
      this.token = "";
      this.note = "another browser has taken control";
    } else if (this.token && holder === 0 && this.wasHeld) {
      this.token = "";
      this.note = "control has expired after a minute without contact";
    }
    this.wasHeld = this.token !== "" && holder === this.holder;
    setText(this.status, this.text(allowed, held, by));
    this.form.hidden = !allowed || this.isOwn;
    this.releaseButton.hidden = !this.isOwn;
  }

  text(allowed, held, by) {
    if (!allowed) {
      return "View only";
    }
    const state = this.isOwn ? "You have control"
      : held ? `A browser at ${by} has control` : "Nobody has control";
    return this.note && !this.isOwn ? `${state}; ${this.note}` : state;
  }
}
