// Builds elements. Text is always set as text, never as markup: names come from grippers.

/** An element with properties (or attributes, if their name has a dash or is "role") and children. */
export function element(tag, properties = {}, ...children) {
  const node = document.createElement(tag);
  for (const [name, value] of Object.entries(properties)) {
    if (name.includes("-") || name === "role") {
      node.setAttribute(name, value);
    } else {
      node[name] = value;
    }
  }
  node.append(...children);
  return node;
}

/** A list of labels with values. @return the list, and the node of each value */
export function facts(...labels) {
  const values = labels.map(() => element("dd"));
  const list = element("dl", { className: "facts" }, ...labels.map((label, i) =>
    element("div", { className: "fact" }, element("dt", { textContent: label }), values[i])));
  return [list, values];
}

/** Changes the text only if it differs, so that a screen reader does not repeat it. */
export function setText(node, text) {
  if (node.textContent !== text) {
    node.textContent = text;
  }
}

export function setClass(node, name, isOn) {
  if (node.classList.contains(name) !== isOn) {
    node.classList.toggle(name, isOn);
  }
}
