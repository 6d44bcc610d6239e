// All settings of a gripper in one table; with control they can be changed and stored.

import { post } from "./control.js";
import { element, setText } from "./dom.js";

export class Settings {
  constructor(model, control, device) {
    this.control = control;
    this.device = device;
    this.fields = []; // inputs of the table
    this.read = element("button", { type: "button", textContent: "Read settings" });
    this.store = element("button", { type: "button", textContent: "Store permanently" });
    this.table = element("div", { className: "scroll" });
    this.result = element("output", { role: "status", className: "result" });
    this.read.addEventListener("click", () => this.readAll());
    this.store.addEventListener("click", () => this.send({ command: "store" }));
    this.root = element("section", { "aria-label": "Settings" },
      element("h2", { textContent: "Settings" }),
      element("div", { className: "buttons" }, this.read, this.store), this.result, this.table);
  }

  async readAll() {
    this.read.disabled = true;
    setText(this.result, "Reading.");
    const answer = await post("/api/settings", { gripper: this.device });
    this.read.disabled = false;
    setText(this.result, answer.ok ? "Read. A value of 0 may also mean that the gripper does not " +
      "have the setting." : answer.text);
    if (answer.ok) {
      this.show(answer.settings);
    }
  }

  show(settings) {
    this.fields = [];
    const sets = Math.max(...settings.map(({ values }) => values.length));
    const head = ["Setting", "Gripper or set 0",
      ...Array.from({ length: sets - 1 }, (_, i) => `Set ${i + 1}`)];
    this.table.replaceChildren(element("table", {},
      element("thead", {}, element("tr", {},
        ...head.map((text) => element("th", { scope: "col", textContent: text })))),
      element("tbody", {}, ...settings.map((setting) => this.row(setting)))));
    this.update(this.values);
  }

  row(setting) {
    return element("tr", {}, element("th", { scope: "row", textContent: setting.setting,
      title: `${setting.range}; ${setting.models}` }),
    ...setting.values.map((value, number) => element("td", {}, this.field(setting, value, number))));
  }

  field(setting, value, number) {
    if (!setting.canSet) {
      return value;
    }
    const place = setting.perSet ? ` of set ${number}` : "";
    const input = element("input", { type: "text", value, size: 7,
      "aria-label": `${setting.setting}${place}, ${setting.range}` });
    let confirmed = value;
    input.addEventListener("change", async () => {
      const isDone = await this.send({ command: "set", setting: setting.setting, value: input.value,
        ...(setting.perSet ? { number } : {}) });
      confirmed = isDone ? input.value : confirmed;
      input.value = confirmed;
    });
    this.fields.push(input);
    return input;
  }

  async send(body) {
    setText(this.result, "Sent.");
    const answer = await this.control.command({ gripper: this.device, ...body });
    setText(this.result, answer.text);
    return answer.ok;
  }

  update(values) {
    this.values = values;
    this.store.disabled = !this.control.isOwn || !values;
    for (const field of this.fields) {
      field.disabled = !this.control.isOwn || !values;
    }
  }
}
