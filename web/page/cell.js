// The view of the whole cell: a card for each gripper, and what the doctor finds.

import { FindingsList } from "./findings.js";
import { element, facts, setClass, setText } from "./dom.js";
import { ageText, FLAGS, positionText, STALE_MS, stateText } from "./words.js";

const LINE_MS = 30000;

/** A card, kept up to date. */
class Card {
  constructor(model, device, name) {
    this.model = model;
    this.device = device;
    this.low = Infinity; // of the positions so far; the scale of the bar
    this.high = -Infinity;
    const [list, values] = facts("Position", "State", "Flags", "Data");
    [this.position, this.state, this.flags, this.age] = values;
    this.fill = element("div", { className: "fill" });
    this.line = element("canvas", { className: "line", "aria-hidden": "true" });
    this.note = element("p", { className: "note", hidden: true });
    this.root = element("article", { className: "card" },
      element("h2", {}, element("a", {
        href: `#/gripper/${encodeURIComponent(device)}`, textContent: name })),
      this.note,
      list,
      element("div", { className: "bar", "aria-hidden": "true" }, this.fill),
      this.line);
  }

  update({ copies }) {
    const values = this.model.values.get(this.device);
    const isStale = this.model.isStale(this.device);
    const note = this.noteText(copies, values);
    setText(this.note, note);
    this.note.hidden = !note;
    setClass(this.root, "stale", isStale);
    setClass(this.root, "faulty", Boolean(values && values.flags & 3));
    setText(this.position, values ? positionText(values.position) : "–");
    setText(this.state, values ? stateText(values.state) : "–");
    setText(this.age, ageText(this.model.age(this.device)));
    showFlags(this.flags, values);
    this.updateBar(values);
    this.draw();
  }

  noteText(copies, values) {
    if (copies > 1) {
      return `${copies} grippers have this name and calls reach only the first: unplug all but one`;
    }
    if (copies === 0) { // without a daemon, the banner says so
      return this.model.cell.reachable ? "not listed by the daemon: unplugged?" : "";
    }
    if (values?.age > STALE_MS) {
      return "its master does not answer: check its power and cable";
    }
    return values && !values.isCertain ? "all zero: possibly no process data" : "";
  }

  updateBar(values) {
    if (!values) {
      this.fill.style.width = "0";
      return;
    }
    this.low = Math.min(this.low, values.position);
    this.high = Math.max(this.high, values.position);
    const share = (values.position - this.low) / (this.high - this.low || 1);
    this.fill.style.width = `${(100 * share).toFixed(1)}%`;
  }

  /** The position of the last 30 s. */
  draw() {
    const { line } = this;
    const width = line.clientWidth * devicePixelRatio;
    const height = line.clientHeight * devicePixelRatio;
    if (width === 0) {
      return;
    }
    if (line.width !== Math.round(width) || line.height !== Math.round(height)) {
      line.width = Math.round(width);
      line.height = Math.round(height);
    }
    const context = line.getContext("2d");
    context.clearRect(0, 0, width, height);
    context.strokeStyle = getComputedStyle(line).color;
    context.lineWidth = 1.5 * devicePixelRatio;
    context.beginPath();
    const history = this.model.history(this.device);
    const start = Date.now() - LINE_MS;
    const span = this.high - this.low || 1;
    let isLineStarted = false;
    for (let i = history.since(start); i < history.times.length; ++i) {
      const values = history.values[i];
      if (values) {
        const x = width * (history.times[i] - start) / LINE_MS;
        const y = height - 2 - (height - 4) * (values.position - this.low) / span;
        isLineStarted ? context.lineTo(x, y) : context.moveTo(x, y);
      }
      isLineStarted = Boolean(values);
    }
    context.stroke();
  }
}

/** Shows the flags that are set, each with its word. */
export function showFlags(node, values) {
  const set = values ? FLAGS.filter(({ bit }) => values.flags & bit) : [];
  const text = set.map(({ word }) => word).join(", ") || (values ? "none" : "–");
  if (node.textContent !== text) {
    node.replaceChildren(...(set.length ? set.flatMap(({ word, isFault }, i) => [
      ...(i ? [", "] : []),
      element("strong", { className: isFault ? "fault" : "warning", textContent: word })]) : [text]));
  }
}

export class CellView {
  constructor(model) {
    this.model = model;
    this.cards = new Map(); // by device
    this.grid = element("section", { className: "grid", "aria-label": "Grippers" });
    this.empty = element("p", { textContent: "No grippers found.", hidden: true });
    this.findings = new FindingsList();
    this.root = element("div", {}, this.empty, this.grid, this.findings.root);
  }

  update() {
    const { grippers, reachable } = this.model.cell;
    this.empty.hidden = grippers.length > 0 || !reachable;
    const devices = grippers.map(({ device }) => device);
    for (const [device, card] of this.cards) {
      if (!devices.includes(device)) {
        card.root.remove();
        this.cards.delete(device);
      }
    }
    for (const gripper of grippers) {
      if (!this.cards.has(gripper.device)) {
        const card = new Card(this.model, gripper.device, gripper.name);
        this.cards.set(gripper.device, card);
        this.grid.append(card.root);
      }
      this.cards.get(gripper.device).update(gripper);
    }
  }

  close() {}
}
