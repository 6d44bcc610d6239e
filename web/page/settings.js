// All settings of a gripper in one table, and as a file; with control they can be changed, restored
// and stored.

import { post } from "./control.js";
import { element, setText } from "./dom.js";
import { compareFile, makeFile } from "./settings-file.js";

const LARGEST_FILE = 1 << 20; // bytes

export class Settings {
  constructor(model, control, device) {
    this.control = control;
    this.device = device;
    this.rows = null; // as read last
    this.differences = []; // of the file that was compared last
    this.fields = []; // inputs of the table
    this.read = this.button("Read settings", () => this.readAll());
    this.save = this.button("Save to a file", () => this.saveFile());
    this.restore = this.button("Restore from the file", () => this.restoreAll());
    this.store = this.button("Store permanently", () => this.send({ command: "store" }));
    this.file = element("input", { type: "file", id: "settings-file", accept: ".json" });
    this.file.addEventListener("change", () => this.compare());
    this.list = element("ul");
    this.table = element("div", { className: "scroll" });
    this.result = element("output", { role: "status", className: "result" });
    this.root = element("section", { "aria-label": "Settings" },
      element("h2", { textContent: "Settings" }),
      element("div", { className: "buttons" }, this.read, this.save, this.store),
      element("div", { className: "buttons" },
        element("label", { htmlFor: "settings-file", textContent: "Compare with a file" }),
        this.file, this.restore),
      this.result, this.list, this.table);
    this.update(null);
  }

  button(text, press) {
    const node = element("button", { type: "button", textContent: text });
    node.addEventListener("click", press);
    return node;
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
    return answer.ok;
  }

  show(rows) {
    this.rows = rows;
    this.fields = [];
    const sets = Math.max(...rows.map(({ values }) => values.length));
    const head = ["Setting", "Gripper or set 0",
      ...Array.from({ length: sets - 1 }, (_, i) => `Set ${i + 1}`)];
    this.table.replaceChildren(element("table", {},
      element("thead", {}, element("tr", {},
        ...head.map((text) => element("th", { scope: "col", textContent: text })))),
      element("tbody", {}, ...rows.map((row) => this.row(row)))));
    this.update(this.values);
  }

  row(row) {
    return element("tr", {}, element("th", { scope: "row", textContent: row.setting,
      title: `${row.range}; ${row.models}` }),
    ...row.values.map((_, number) => element("td", {}, this.field(row, number))));
  }

  field(row, number) {
    if (!row.canSet) {
      return row.values[number];
    }
    const place = row.perSet ? ` of set ${number}` : "";
    const input = element("input", { type: "text", value: row.values[number], size: 7,
      "aria-label": `${row.setting}${place}, ${row.range}` });
    input.addEventListener("change", async () => {
      if (await this.send({ command: "set", setting: row.setting, value: input.value,
        ...(row.perSet ? { number } : {}) })) {
        row.values[number] = input.value;
      }
      input.value = row.values[number];
    });
    this.fields.push(input);
    return input;
  }

  saveFile() {
    const url = URL.createObjectURL(
      new Blob([makeFile(this.device, this.rows)], { type: "application/json" }));
    const name = this.device.replace(/[^\w-]+/g, "_");
    element("a", { href: url, download: `${name}.json` }).click();
    URL.revokeObjectURL(url);
  }

  /** Reads the settings again, because somebody else may have changed them. */
  async compare() {
    const [file] = this.file.files;
    this.showDifferences([]);
    if (!file || file.size > LARGEST_FILE || !await this.readAll()) {
      setText(this.result, file?.size > LARGEST_FILE ? "The file is too long." : this.result.textContent);
      return;
    }
    try {
      this.showDifferences(compareFile(await file.text(), this.rows));
      setText(this.result, this.differences.length
        ? `${this.differences.length} settings differ from the file.`
        : "All settings of the table are as in the file.");
    } catch (error) {
      setText(this.result, `Not compared: ${error.message}.`);
    }
  }

  showDifferences(differences) {
    this.differences = differences;
    this.list.replaceChildren(...differences.map(({ name, from, to }) =>
      element("li", { textContent: `${name} is ${from}, in the file ${to}` })));
    this.update(this.values);
  }

  /** One after the other; each is read back. Stops at the first that fails. */
  async restoreAll() {
    const { differences } = this;
    for (const { setting, number, to } of differences) {
      if (!await this.send({ command: "set", setting, value: to,
        ...(number === undefined ? {} : { number }) })) {
        return;
      }
    }
    await this.compare();
  }

  async send(body) {
    setText(this.result, "Sent.");
    const answer = await this.control.command({ gripper: this.device, ...body });
    setText(this.result, answer.text);
    return answer.ok;
  }

  update(values) {
    this.values = values;
    const isAllowed = this.control.isOwn && Boolean(values);
    this.store.disabled = !isAllowed;
    this.save.disabled = !this.rows;
    this.restore.disabled = !isAllowed || this.differences.length === 0;
    for (const field of this.fields) {
      field.disabled = !isAllowed;
    }
  }
}
