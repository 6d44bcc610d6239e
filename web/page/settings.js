// All settings of a gripper in tables, and as a file; with control they can be changed, restored and
// stored. The server reads, compares and restores, as "tavrikctl settings" does.

import { post } from "./control.js";
import { element, setText } from "./dom.js";

const LARGEST_FILE = 40000; // bytes; more than that of any gripper

/** Where the rows of a table belong, by its name. */
const TABLES = { gripper: null, sets: "set", leds: "LED" };

const countText = (count) => (count === 1 ? "1 setting differs" : `${count} settings differ`);

export class Settings {
  constructor(model, control, device) {
    this.model = model;
    this.control = control;
    this.device = device;
    this.settings = null; // as read last
    this.saved = ""; // the same as the content of a file
    this.chosen = null; // the file that was compared last, if it differs
    this.fields = []; // inputs of the tables
    this.isBusy = false;
    this.readButton = this.button("Read settings", () => this.ask("/api/settings", {}, "Read."));
    this.saveButton = this.button("Save to a file", () => this.saveFile());
    this.restoreButton = this.button("Restore from the file", () => this.restoreFile());
    this.storeButton = this.button("Store permanently", () => this.send({ command: "store" }));
    this.file = element("input", { type: "file", id: "settings-file", accept: ".json" });
    this.file.addEventListener("change", () => this.compare());
    this.all = element("input", { type: "checkbox", id: "all-sets" });
    this.all.addEventListener("change", () => this.showTables());
    this.choice = element("p", { hidden: true }, this.all,
      element("label", { htmlFor: "all-sets", textContent: "Also show sets and LEDs whose values are 0" }));
    this.list = element("ul");
    this.tables = element("div");
    this.result = element("output", { role: "status", className: "result" });
    this.progress = element("progress", { max: 100, hidden: true, "aria-label": "Progress" });
    this.step = element("span", { className: "note" });
    this.root = element("section", { "aria-label": "Settings" },
      element("h2", { textContent: "Settings" }),
      element("p", { className: "note", textContent: "The gripper must be at rest: reading takes several " +
        "seconds and stops if it moves." }),
      element("div", { className: "buttons" }, this.readButton, this.saveButton, this.storeButton),
      element("div", { className: "buttons" },
        element("label", { htmlFor: "settings-file", textContent: "Compare with a file" }),
        this.file, this.restoreButton),
      this.result, element("p", {}, this.progress, " ", this.step), this.list, this.choice, this.tables);
    this.update(null);
  }

  button(text, press) {
    const node = element("button", { type: "button", textContent: text });
    node.addEventListener("click", press);
    return node;
  }

  /** Asks the server for the settings, and shows them. @return the answer */
  async ask(path, body, text) {
    this.isBusy = true;
    this.update(this.values);
    setText(this.result, "Reading takes several seconds.");
    const answer = await post(path, { gripper: this.device, ...body }, this.control.token);
    this.isBusy = false;
    setText(this.result, answer.ok ? text : answer.text);
    if (answer.ok) {
      this.settings = answer.settings;
      this.saved = answer.file;
      this.showDifferences(answer.differences ?? []);
      this.showTables();
    }
    this.update(this.values);
    return answer;
  }

  /** Reads the settings again, because somebody else may have changed them. */
  async compare() {
    const [file] = this.file.files;
    this.chosen = null;
    this.showDifferences([]);
    if (!file || file.size > LARGEST_FILE) {
      setText(this.result, file ? "The file is too large." : "");
      this.update(this.values);
      return;
    }
    const chosen = { name: file.name, file: await file.text() };
    const { ok, differences } = await this.ask("/api/settings/compare", chosen, "");
    if (ok) {
      this.chosen = differences.length ? chosen : null;
      setText(this.result, differences.length
        ? `${countText(differences.length)} from ${file.name}.`
        : `All settings are as in ${file.name}.`);
    }
    this.update(this.values);
  }

  async restoreFile() {
    const { name } = this.chosen;
    const { ok, differences } = await this.ask("/api/settings/restore", this.chosen, "");
    if (ok) {
      setText(this.result, differences.length
        ? `Restored, but ${countText(differences.length)} from ${name}.`
        : `Restored and read back: all settings are as in ${name}. To keep them after power-off, ` +
          "store them.");
      this.chosen = differences.length ? this.chosen : null;
    }
    this.update(this.values);
  }

  showDifferences(differences) {
    this.list.replaceChildren(...differences.map(({ name, from, to, result }) =>
      element("li", { textContent: `${name} is ${from}, in the file ${to}${result && `: ${result}`}` })));
  }

  showTables() {
    this.fields = [];
    this.choice.hidden = false;
    this.tables.replaceChildren(...Object.entries(TABLES)
      .filter(([name]) => this.settings[name].rows.length)
      .map(([name, place]) => (place ? this.table(this.settings[name], place)
        : this.ownTable(this.settings[name]))));
    this.update(this.values);
  }

  /** The settings of the gripper itself, one a line. */
  ownTable({ columns, rows }) {
    return element("table", {},
      element("caption", { textContent: `Gripper, model ${this.settings.model}` }),
      element("tbody", {}, ...columns.map((column, i) => element("tr", {},
        element("th", { scope: "row", textContent: column.setting }),
        element("td", {}, this.field(column, rows[0], i))))));
  }

  table({ columns, rows, used }, place) {
    const shown = rows.slice(0, this.all.checked ? rows.length : used);
    if (shown.length === 0) {
      return element("p", { textContent: `The values of all ${place}s are 0.` });
    }
    return element("div", { className: "scroll" }, element("table", {},
      element("caption", { textContent: place === "set" ? "Parameter sets" : "LEDs" }),
      element("thead", {}, element("tr", {},
        ...[place, ...columns.map(({ setting }) => setting)].map((text) =>
          element("th", { scope: "col", textContent: text })))),
      element("tbody", {}, ...shown.map((row, number) => element("tr", {},
        element("th", { scope: "row", textContent: number }),
        ...columns.map((column, i) => element("td", {}, this.field(column, row, i, place, number))))))));
  }

  /** A value, or an input for it, whose value is that of row[i]. */
  field({ setting, range, canSet }, row, i, place, number) {
    if (!canSet) {
      return row[i];
    }
    const input = element("input", { type: "text", value: row[i] ?? "", size: 7, title: range,
      "aria-label": `${setting}${place ? ` of ${place} ${number}` : ""}, ${range}` });
    input.placeholder = row[i] === null ? "unknown" : "";
    input.addEventListener("change", async () => {
      if (await this.send({ command: "set", setting, value: input.value,
        ...(place ? { number } : {}) })) {
        row[i] = row[i] === null ? null : input.value;
        this.saved = ""; // old
      }
      input.value = row[i] ?? "";
      this.update(this.values);
    });
    this.fields.push(input);
    return input;
  }

  async saveFile() {
    if (!this.saved && !(await this.ask("/api/settings", {}, "Read.")).ok) {
      return;
    }
    const url = URL.createObjectURL(new Blob([this.saved], { type: "application/json" }));
    const name = this.device.replace(/[^\w-]+/g, "_");
    element("a", { href: url, download: `${name}.json` }).click();
    URL.revokeObjectURL(url);
  }

  async send(body) {
    setText(this.result, "Sent.");
    const answer = await this.control.command({ gripper: this.device, ...body });
    setText(this.result, answer.text);
    return answer.ok;
  }

  /** The gripper may also be read or restored by another page. */
  updateProgress() {
    const { transfer } = this.model;
    const isShown = transfer?.gripper === this.device;
    this.progress.hidden = !isShown;
    if (isShown) {
      this.progress.value = transfer.percent;
    }
    setText(this.step, isShown ? `${transfer.step}, ${transfer.percent} %` : "");
  }

  update(values) {
    this.values = values;
    this.updateProgress();
    const isAllowed = this.control.isOwn && Boolean(values) && !this.isBusy;
    this.readButton.disabled = this.isBusy;
    this.file.disabled = this.isBusy;
    this.storeButton.disabled = !isAllowed;
    this.saveButton.disabled = !this.settings || this.isBusy;
    this.restoreButton.disabled = !isAllowed || !this.chosen;
    for (const field of this.fields) {
      field.disabled = !isAllowed;
    }
  }
}
