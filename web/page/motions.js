// The buttons that move a gripper.

import { element, setText } from "./dom.js";
import { obstacle } from "./words.js";

const SETS = 32;

export class Motions {
  constructor(model, control, device) {
    this.control = control;
    this.device = device;
    this.set = element("select", { id: "set" }, ...Array.from({ length: SETS }, (_, i) =>
      element("option", { value: i, textContent: i })));
    this.result = element("output", { role: "status", className: "result" });
    this.buttons = [
      this.button("Grip", "grip", () => ({ set: Number(this.set.value) })),
      this.button("Release", "release", () => ({ set: Number(this.set.value) })),
      this.button("Reference run", "reference"),
      this.button("Holdfast on", "holdfast", () => ({ on: true })),
      this.button("Holdfast off", "holdfast", () => ({ on: false })),
    ];
    this.off = this.button("Drive off", "disable");
    this.off.node.className = "off";
    this.reason = element("p", { className: "note" });
    this.root = element("section", { className: "motions", "aria-label": "Move" },
      element("h2", { textContent: "Move" }),
      element("p", {}, element("label", { htmlFor: "set", textContent: "Parameter set " }), this.set),
      element("div", { className: "buttons" }, ...this.buttons.map(({ node }) => node)),
      this.reason, this.off.node,
      element("p", { textContent: "This is not an emergency stop: it goes through the browser, the " +
        "network and the daemon, and may fail." }),
      this.result);
  }

  button(text, command, body = () => ({})) {
    const node = element("button", { type: "button", textContent: text });
    node.addEventListener("click", async () => {
      setText(this.result, `${text}: sent`);
      const answer = await this.control.command({ gripper: this.device, command, ...body() });
      setText(this.result, answer.text);
    });
    return { node, command };
  }

  update(values) {
    const missing = this.control.isOwn ? "" : "take control first";
    const reasons = new Set();
    for (const { node, command } of [...this.buttons, this.off]) {
      const reason = missing || obstacle(command, command === "disable" ? values ?? {} : values);
      node.disabled = Boolean(reason);
      if (reason) {
        reasons.add(reason);
      }
    }
    setText(this.reason, reasons.size ? `Not possible now: ${[...reasons].join("; ")}.` : "");
  }
}
