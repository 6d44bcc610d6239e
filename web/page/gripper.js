// The view of one gripper: plots, motions, settings, process data, the numbers of this session.

import { showFlags } from "./cell.js";
import { element, facts, setClass, setText } from "./dom.js";
import { Motions } from "./motions.js";
import { Plots } from "./plots.js";
import { Settings } from "./settings.js";
import { ageText, FLAGS, positionText, STALE_MS, stateText } from "./words.js";

/** The process data, bit by bit; the third byte cannot be read. */
class ProcessDataTable {
  constructor() {
    const rows = [["bytes 0 and 1", "position, hundredths"], ["byte 3, bits 0 to 3", "state"],
      ...FLAGS.map(({ word }, i) => [`byte 3, bit ${4 + i}`, word])];
    this.values = rows.map(() => element("td"));
    this.root = element("section", { "aria-label": "Process data" },
      element("h2", { textContent: "Process data" }),
      element("table", {}, element("thead", {}, element("tr", {},
        ...["Where", "What", "Value"].map((text) => element("th", { scope: "col", textContent: text })))),
      element("tbody", {}, ...rows.map(([where, what], i) => element("tr", {},
        element("td", { textContent: where }), element("th", { scope: "row", textContent: what }),
        this.values[i])))));
  }

  update(values) {
    const texts = values ? [String(Math.round(values.position * 100)),
      values.state.toString(2).padStart(4, "0"),
      ...FLAGS.map(({ bit }) => (values.flags & bit ? "1" : "0"))] : this.values.map(() => "–");
    texts.forEach((text, i) => setText(this.values[i], text));
  }
}

export class GripperView {
  constructor(model, control, device) {
    this.model = model;
    this.device = device;
    const [live, liveValues] = facts("Position", "State", "Flags", "Data");
    const [session, sessionValues] = facts("Motions", "Commands", "Refusals", "Timeouts",
      "Slowest answer");
    this.live = liveValues;
    this.session = sessionValues;
    this.plots = new Plots(model, device);
    this.motions = new Motions(model, control, device);
    this.settings = new Settings(model, control, device);
    this.processData = new ProcessDataTable();
    this.root = element("div", { className: "gripper" },
      element("h2", { textContent: device }), live,
      element("p", {}, element("a", { href: `#/log/${encodeURIComponent(device)}`,
        textContent: "Log of this gripper" })), this.motions.root, this.plots.root,
      this.settings.root, this.processData.root,
      element("section", { "aria-label": "This session" },
        element("h2", { textContent: "This session" }), session,
        element("p", { textContent: "Motions are counted while a page is open or metrics are " +
          "collected. Commands are those sent from pages." })));
  }

  update() {
    const values = this.model.values.get(this.device);
    const gripper = this.model.cell.grippers.find(({ device }) => device === this.device);
    const [position, state, flags, data] = this.live;
    const isStale = this.model.isStale(this.device);
    setClass(this.root, "stale", isStale);
    setText(position, values ? positionText(values.position) : "–");
    setText(state, values ? stateText(values.state) : "–");
    showFlags(flags, values);
    const isGone = this.model.cell.reachable && !gripper?.copies;
    setText(data, isGone ? "not listed by the daemon" : ageText(this.model.age(this.device)) +
        (values?.age > STALE_MS ? ", its master does not answer" : ""));
    this.updateSession(gripper?.session, values);
    this.processData.update(values);
    this.motions.update(values);
    this.settings.update(values);
    this.plots.update();
  }

  updateSession(session, values) {
    const texts = session ? [String(values?.motions ?? "–"), String(session.calls),
      String(session.refusals), String(session.timeouts), session.calls ? `${session.slowest.toFixed(3)} s` : "–"] : [];
    texts.forEach((text, i) => setText(this.session[i], text));
  }

  close() {
    this.plots.close();
  }
}
