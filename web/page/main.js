// The page: its header, its views, and the data that they show.

import { CellView } from "./cell.js";
import { Control } from "./control.js";
import { setText } from "./dom.js";
import { GripperView } from "./gripper.js";
import { History } from "./history.js";
import { LogView } from "./log.js";
import { listen } from "./stream.js";
import { durationText, readRow, STALE_MS } from "./words.js";

const TICK_MS = 250;

/** What the views know. */
const model = {
  cell: null, // the last event "cell"
  values: new Map(), // by device: of readRow(), with `receivedAt`
  transfer: null, // of settings, while there is one: {gripper, step, percent}
  histories: new Map(), // by device
  lost: "", // why there are no events
  lastEvent: 0,

  /** Milliseconds since the gripper's data was read. */
  age(device) {
    const values = this.values.get(device);
    return values ? values.age + Date.now() - values.receivedAt : Infinity;
  },
  isStale(device) {
    return this.age(device) > STALE_MS;
  },
  history(device) {
    if (!this.histories.has(device)) {
      this.histories.set(device, new History());
    }
    return this.histories.get(device);
  },
};

const content = document.getElementById("content");
const banner = document.getElementById("banner");
const control = new Control(model, document.getElementById("control"));
let view = null;

function takeCell(cell) {
  model.cell = cell;
  const devices = new Set(cell.grippers.map((gripper) => gripper.device));
  for (const device of model.histories.keys()) {
    if (!devices.has(device)) {
      model.histories.delete(device);
      model.values.delete(device);
    }
  }
  if (!cell.reachable) {
    dropValues();
  }
}

function dropValues() {
  const now = Date.now();
  for (const device of model.values.keys()) {
    model.history(device).add(now, null);
  }
  model.values.clear();
  model.transfer = null;
}

function takeValues({ list, rows, transfer }) {
  model.transfer = transfer;
  if (list !== model.cell?.list) {
    return; // belongs to a list of grippers that comes with the next event
  }
  const now = Date.now();
  model.cell.grippers.forEach(({ device }, i) => {
    const values = readRow(rows[i]);
    model.history(device).add(now, values && values.age <= STALE_MS ? values : null);
    if (values) {
      model.values.set(device, { ...values, receivedAt: now });
    } else {
      model.values.delete(device);
    }
  });
}

function take(message) {
  if (message.type === "lost") {
    model.lost = message.reason;
    model.transfer = null;
  } else {
    model.lost = "";
    model.lastEvent = Date.now();
    if (message.type === "cell") {
      takeCell(message.data);
    } else {
      takeValues(message.data);
    }
  }
  update();
}

function bannerText() {
  if (model.lost) {
    return `No data: ${model.lost}.`;
  }
  if (model.cell && Date.now() - model.lastEvent > 2 * STALE_MS) {
    return "No data: tavrikweb does not answer.";
  }
  if (model.cell && !model.cell.reachable) {
    return `The daemon cannot be reached: ${model.cell.error}.`;
  }
  return "";
}

function daemonText({ version, daemon, ports, uptime, viewers }) {
  return `TavrikDaemon ${version.split(" ")[0] || "?"} at ${daemon}, ports ${ports.join(" and ")}; ` +
    `tavrikweb has run for ${durationText(uptime)}, browsers: ${viewers}`;
}

function update() {
  const text = bannerText();
  setText(banner, text);
  banner.hidden = !text;
  document.body.classList.toggle("no-data", Boolean(text));
  if (model.cell) {
    setText(document.getElementById("daemon"), daemonText(model.cell));
    control.update();
    if (!view) {
      show();
    }
    view.update();
  }
}

/** What the address names: "#/", "#/gripper/NAME", "#/log" or "#/log/NAME". */
function target() {
  const [, kind, name] = /^#\/(gripper|log)(?:\/(.+))?$/.exec(location.hash) ?? [];
  try {
    return { kind, device: decodeURIComponent(name ?? "") };
  } catch {
    return {}; // an address that was typed wrongly
  }
}

function show() {
  const { kind, device } = target();
  view?.close();
  view = kind === "log" ? new LogView(model, device)
    : kind === "gripper" && device ? new GripperView(model, control, device)
      : new CellView(model);
  document.title = [kind === "log" ? "Log" : "", device, "Grippers"].filter(Boolean).join(" – ");
  content.replaceChildren(view.root);
}

window.addEventListener("hashchange", () => {
  if (model.cell && location.hash !== "#content") {
    show();
    view.update();
    content.focus({ preventScroll: true });
    window.scrollTo(0, 0);
  }
});

setInterval(update, TICK_MS); // ages grow without events
listen(take);
