// Shared by all tabs of the browser: one stream for all of them, none while all are hidden.

import { Source } from "./source.js";

const SILENT_MS = 30000; // a tab that has crashed says nothing

const tabs = new Map(); // port -> {visible, lastSeen}
let lastCell = null;

const source = new Source((message) => {
  if (message.type === "cell") {
    lastCell = message;
  }
  for (const [port, tab] of tabs) {
    if (tab.visible) {
      port.postMessage(message);
    }
  }
});

function update() {
  const now = Date.now();
  for (const [port, tab] of tabs) {
    if (now - tab.lastSeen > SILENT_MS) {
      tabs.delete(port);
    }
  }
  if ([...tabs.values()].some((tab) => tab.visible)) {
    source.open();
  } else {
    source.close();
    lastCell = null;
  }
}

function onMessage(port, { visible, gone }) {
  const wasVisible = tabs.get(port)?.visible;
  if (gone) {
    tabs.delete(port);
  } else {
    tabs.set(port, { visible, lastSeen: Date.now() });
  }
  if (visible && !wasVisible && lastCell) {
    port.postMessage(lastCell);
  }
  update();
}

self.addEventListener("connect", ({ ports: [port] }) => {
  port.addEventListener("message", ({ data }) => onMessage(port, data));
  port.start();
});

setInterval(update, SILENT_MS / 3);
