// Live plots of position, state and flags on one time axis, drawn by the distribution's dygraphs.

import { element, setText } from "./dom.js";
import { FLAGS, stateText } from "./words.js";

const SPANS = [[10, "10 s"], [30, "30 s"], [60, "1 min"], [300, "5 min"], [900, "15 min"],
  [3600, "1 h"]];
const MOST_POINTS = 2000; // of a line; more are not visible
const REDRAW_MS = 200;
const COLORS = 6; // in the style sheet
const STRIP_PX = 5; // height of the strip of a gripper's motions, at most
const STRIPS_PART = 0.3; // of the plot's height for all strips, at most
const FLAG_TEXT_PX = 12;
const FLAG_HEIGHT = 0.6; // of a line, while the flag is set; the next line is 1 higher

let library = null;

/** Loads dygraphs with the first plot. */
function loadLibrary() {
  library ??= new Promise((resolve, reject) => {
    document.head.append(element("link", { rel: "stylesheet", href: "/dygraph.css" }));
    const script = element("script", { src: "/dygraph.js" });
    script.addEventListener("load", () => resolve(withoutLegend(window.Dygraph)));
    script.addEventListener("error", () => reject(new Error("dygraph.js cannot be loaded")));
    document.head.append(script);
  });
  return library;
}

/** The library's legend sets a style attribute, which the page's security policy forbids. */
function withoutLegend(Dygraph) {
  Dygraph.PLUGINS = Dygraph.PLUGINS.filter((plugin) => plugin !== Dygraph.Plugins.Legend);
  return Dygraph;
}

export class Plots {
  constructor(model, device) {
    this.model = model;
    this.device = device;
    this.others = new Set();
    this.graphs = [];
    this.zoomed = null; // [from, to] in milliseconds, while zoomed
    this.pausedAt = 0;
    this.lastDraw = 0;
    this.span = element("select", { id: "span" }, ...SPANS.map(([seconds, text]) =>
      element("option", { value: seconds, textContent: text, selected: seconds === 30 })));
    this.pauseButton = element("button", { type: "button", textContent: "Pause", "aria-pressed": "false" });
    this.zoomInButton = element("button", { type: "button", textContent: "Zoom in" });
    this.zoomOutButton = element("button", { type: "button", textContent: "Zoom out", disabled: true });
    this.earlierButton = element("button", { type: "button", textContent: "Earlier" });
    this.laterButton = element("button", { type: "button", textContent: "Later" });
    this.span.addEventListener("change", () => this.zoomOut());
    this.pauseButton.addEventListener("click", () => this.togglePause());
    this.zoomInButton.addEventListener("click", () => this.zoomBy(0.25, -0.25));
    this.zoomOutButton.addEventListener("click", () => this.zoomOut());
    this.earlierButton.addEventListener("click", () => this.zoomBy(-0.5, -0.5));
    this.laterButton.addEventListener("click", () => this.zoomBy(0.5, 0.5));
    this.choice = element("fieldset", { className: "others" },
      element("legend", { textContent: "Together with" }));
    this.position = element("div", { className: "plot", role: "img", "aria-label": "Position over time" });
    this.state = element("div", { className: "plot small", role: "img", "aria-label": "State over time" });
    this.flags = element("div", { className: "plot small", role: "img", "aria-label": "Flags over time" });
    this.legend = element("p", { className: "legend" });
    this.root = element("section", { "aria-label": "Plots" },
      element("h2", { textContent: "Position, state and flags over time" }),
      element("div", { className: "buttons" },
        element("label", { htmlFor: "span", textContent: "Last" }), this.span, this.pauseButton,
        this.zoomInButton, this.zoomOutButton, this.earlierButton, this.laterButton),
      this.choice, this.position, this.state, this.flags, this.legend);
    loadLibrary().then((Dygraph) => {
      this.Dygraph = Dygraph;
    }, (error) => setText(this.legend, error.message));
  }

  get devices() {
    return [this.device, ...this.others];
  }

  togglePause() {
    this.pausedAt = this.pausedAt ? 0 : Date.now();
    this.pauseButton.setAttribute("aria-pressed", String(Boolean(this.pausedAt)));
    setText(this.pauseButton, this.pausedAt ? "Continue" : "Pause");
    this.lastDraw = 0;
  }

  zoomOut() {
    this.zoomed = null;
    this.lastDraw = 0;
  }

  /** Moves begin and end by parts of what is shown. */
  zoomBy(begin, end) {
    const [from, to] = this.window();
    this.zoomTo(from + begin * (to - from), to + end * (to - from));
  }

  window() {
    const end = this.pausedAt || Date.now();
    return this.zoomed ?? [end - 1000 * Number(this.span.value), end];
  }

  update() {
    this.updateChoice();
    this.zoomOutButton.disabled = !this.zoomed;
    const isFrozen = this.pausedAt || this.zoomed;
    if (!this.Dygraph || !this.root.isConnected || Date.now() - this.lastDraw < REDRAW_MS ||
        (isFrozen && this.lastDraw)) {
      return;
    }
    this.lastDraw = Date.now();
    this.draw();
  }

  updateChoice() {
    const names = this.model.cell.grippers.map(({ device }) => device)
      .filter((device) => device !== this.device);
    const shown = [...this.choice.querySelectorAll("input")].map((input) => input.value);
    this.choice.hidden = names.length === 0;
    if (names.join("\n") === shown.join("\n")) {
      return;
    }
    this.choice.replaceChildren(this.choice.firstChild, ...names.map((name) => {
      const box = element("input", { type: "checkbox", value: name, checked: this.others.has(name) });
      box.addEventListener("change", () => {
        box.checked ? this.others.add(name) : this.others.delete(name);
        this.closeGraphs();
        this.lastDraw = 0;
      });
      return element("label", {}, box, name);
    }));
  }

  /** Rows [time, value of each gripper]; times of different grippers are the same events. */
  rows(pick) {
    const [from, to] = this.window();
    const histories = this.devices.map((device) => this.model.history(device));
    const times = new Set(histories.flatMap((history) => history.outline(from, to, MOST_POINTS)));
    const rows = [...times].sort((one, other) => one - other).map((time) => [new Date(time),
      ...histories.map((history) => {
        const values = history.values[history.since(time)];
        return values ? pick(values) : null;
      })]);
    return rows.length ? rows : [[new Date(to), ...histories.map(() => null)]];
  }

  /** Rows [time, line of each flag] of the gripper of this view. */
  flagRows() {
    const [from, to] = this.window();
    const history = this.model.history(this.device);
    const rows = history.flagChanges(from, to).map((i) => [new Date(history.times[i]),
      ...FLAGS.map(({ bit }, line) => history.values[i] &&
        line + (history.values[i].flags & bit ? FLAG_HEIGHT : 0))]);
    return rows.length ? rows : [[new Date(to), ...FLAGS.map(() => null)]];
  }

  draw() {
    const window = this.window();
    const positions = this.rows(({ position }) => position);
    const states = this.rows(({ state }) => state);
    const flags = this.flagRows();
    this.updateLegend();
    if (this.graphs.length === 0) {
      this.graphs = [this.graph(this.position, positions, { y: { pixelsPerLabel: 30 },
        underlayCallback: (context, area, graph) => this.markMotions(context, area, graph) }),
        this.graph(this.state, states, {
          stepPlot: true, valueRange: [-0.5, 15.5], y: { pixelsPerLabel: 20 } }),
        this.graph(this.flags, flags, {
          stepPlot: true, valueRange: [-0.2, FLAGS.length], y: { ticker: () => [], drawGrid: false },
          labels: ["time", ...FLAGS.map(({ word }) => word)],
          underlayCallback: (context, area, graph) => this.nameFlags(context, area, graph) })];
    }
    const { colors } = this;
    this.graphs[0].updateOptions({ file: positions, dateWindow: window, colors });
    this.graphs[1].updateOptions({ file: states, dateWindow: window, colors });
    this.graphs[2].updateOptions({ file: flags, dateWindow: window, colors: FLAGS.map(() => colors[0]) });
  }

  /** Colours of the lines, one for each gripper. */
  get colors() {
    return [...this.legend.querySelectorAll("strong")].map((node) => getComputedStyle(node).color);
  }

  updateLegend() {
    const latest = this.model.values.get(this.device);
    const names = this.devices.flatMap((device, i) => {
      const name = element("strong", { className: `line-${i % COLORS}`, textContent: device });
      return [i ? " – " : "", name];
    });
    const marks = this.others.size === 0 ? ". Motions are shaded. "
      : ". The strips show the motions of each gripper; shading and flags are those of the first. ";
    this.legend.replaceChildren(...names, marks,
      latest ? `Now: ${stateText(latest.state)}.` : "No data now.");
  }

  graph(node, file, { y, ...extra }) {
    return new this.Dygraph(node, file, {
      labels: ["time", ...this.devices.map((_, i) => `gripper ${i}`)],
      yRangePad: this.others.size ? this.stripHeight(node.clientHeight) * this.devices.length : null,
      dateWindow: this.window(),
      animatedZooms: false,
      underlayCallback: (context, area, graph) => this.shadeMotions(context, area, graph),
      zoomCallback: (from, to) => this.zoomTo(from, to),
      axes: { x: { pixelsPerLabel: 90, axisLabelWidth: 70 }, y },
      ...extra,
    });
  }

  zoomTo(from, to) {
    this.zoomed = [from, to];
    this.lastDraw = 0;
  }

  shadeMotions(context, area, graph) {
    context.fillStyle = getComputedStyle(this.root).getPropertyValue("--motion");
    this.eachMotion(this.device, graph, (left, width) => context.fillRect(left, area.y, width, area.h));
  }

  /** Calls `paint` with the place of each motion that is shown. */
  eachMotion(device, graph, paint) {
    for (const [begin, end] of this.model.history(device).motions(this.window()[0])) {
      const left = graph.toDomXCoord(begin);
      paint(left, Math.max(1, graph.toDomXCoord(end) - left));
    }
  }

  stripHeight(plotHeight) {
    return Math.min(STRIP_PX, STRIPS_PART * plotHeight / this.devices.length);
  }

  /** Shades the motions of the first, and gives each gripper a strip at the bottom. */
  markMotions(context, area, graph) {
    this.shadeMotions(context, area, graph);
    const { devices, colors } = this;
    if (devices.length === 1) {
      return;
    }
    const height = this.stripHeight(area.h);
    devices.forEach((device, i) => {
      context.fillStyle = colors[i];
      const top = area.y + area.h - (devices.length - i) * height;
      this.eachMotion(device, graph, (left, width) => context.fillRect(left, top, width, height - 1));
    });
  }

  /** A flag that is set lifts its line; its name stands above the line. */
  nameFlags(context, area, graph) {
    this.shadeMotions(context, area, graph);
    const style = getComputedStyle(this.flags);
    context.fillStyle = style.color;
    context.font = `${FLAG_TEXT_PX}px ${style.fontFamily}`;
    FLAGS.forEach(({ word }, line) => context.fillText(word, area.x + 4, graph.toDomYCoord(line) - 3));
  }

  closeGraphs() {
    this.graphs.forEach((graph) => graph.destroy());
    this.graphs = [];
  }

  close() {
    this.closeGraphs();
  }
}
