// The view of the daemon's log: rows as "tavrikctl log" shows them, live, of one gripper or all.

import { post } from "./control.js";
import { element, setClass, setText } from "./dom.js";

const PERIOD_MS = 1000;
const MOST_ROWS = 1000;
const ALL = "";

export class LogView {
  constructor(model, device) {
    this.model = model;
    this.device = device; // whose rows are shown; ALL
    this.known = { reading: 0, last: 0 };
    this.date = ""; // of the last row
    this.isClosed = false;
    this.filter = element("select", { id: "log-filter" });
    this.filter.addEventListener("change", () => {
      location.hash = this.filter.value ? `#/log/${encodeURIComponent(this.filter.value)}` : "#/log";
    });
    this.status = element("p", { className: "note", role: "status", textContent: "Reading." });
    this.list = element("ol", { className: "log", tabIndex: 0, "aria-label": "Log, newest last" });
    this.root = element("section", { "aria-label": "Log" },
      element("h2", { textContent: "Log of the daemon" }),
      element("p", { className: "buttons" },
        element("label", { htmlFor: "log-filter", textContent: "Show" }), this.filter),
      this.status, this.list);
    this.poll();
  }

  /** A page in the background asks for nothing. */
  async poll() {
    while (!this.isClosed) {
      if (document.visibilityState === "visible") {
        this.take(await post("/api/log", { ...this.known, gripper: this.device }));
      }
      await new Promise((resolve) => { setTimeout(resolve, PERIOD_MS); });
    }
  }

  take({ reading, last, rows, trouble, text }) {
    if (!rows) {
      setText(this.status, `No log: ${text}.`);
      return;
    }
    if (reading !== this.known.reading) {
      this.list.replaceChildren();
      this.date = "";
    }
    this.known = { reading, last };
    const { list } = this;
    const isAtEnd = list.scrollHeight - list.scrollTop - list.clientHeight < 40;
    list.append(...rows.flatMap((row) => this.items(row)));
    while (list.childElementCount > MOST_ROWS) {
      list.firstChild.remove();
    }
    if (isAtEnd && rows.length) {
      list.scrollTop = list.scrollHeight;
    }
    setText(this.status, trouble ? `No log: ${trouble}.`
      : list.childElementCount ? "Live. ! marks problems, * events." : "No recent log lines.");
  }

  /** A row, and its date before the first one of a day. */
  items({ date, clock, mark, isAlarming, master, gripper, text }) {
    const items = [];
    if (date && date !== this.date) {
      this.date = date;
      items.push(element("li", { className: "date", textContent: date }));
    }
    const item = element("li", {},
      element("span", { className: "mark", textContent: mark }),
      element("time", { textContent: clock }),
      element("span", { className: "owner", textContent: [gripper, master].filter(Boolean).join(", ") }),
      element("span", { className: "text", textContent: text }));
    setClass(item, "fault", isAlarming);
    return [...items, item];
  }

  update() {
    const names = [...new Set([this.device, ...this.model.cell.grippers.map(({ device }) => device)])]
      .filter((name) => name !== ALL);
    const shown = [...this.filter.options].map(({ value }) => value);
    if ([ALL, ...names].join("\n") !== shown.join("\n")) {
      this.filter.replaceChildren(...[ALL, ...names].map((name) => element("option", {
        value: name, textContent: name || "all grippers", selected: name === this.device })));
    }
  }

  close() {
    this.isClosed = true;
  }
}
