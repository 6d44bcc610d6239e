// The events for this tab: from the worker that all tabs share, where the browser has one.

import { Source } from "./source.js";

const HEARTBEAT_MS = 10000;

/** Calls `listener` with each message while the tab is visible. */
export function listen(listener) {
  return window.SharedWorker ? listenShared(listener) : listenAlone(listener);
}

function listenShared(listener) {
  const worker = new SharedWorker("/stream-worker.js", { type: "module" });
  const tell = (extra = {}) =>
    worker.port.postMessage({ visible: document.visibilityState === "visible", ...extra });
  worker.port.addEventListener("message", ({ data }) => listener(data));
  worker.port.start();
  document.addEventListener("visibilitychange", () => tell());
  window.addEventListener("pagehide", () => tell({ visible: false, gone: true }));
  window.addEventListener("pageshow", () => tell());
  setInterval(() => tell(), HEARTBEAT_MS);
  tell();
}

function listenAlone(listener) {
  const source = new Source(listener);
  const update = () =>
    document.visibilityState === "visible" ? source.open() : source.close();
  document.addEventListener("visibilitychange", update);
  update();
}
