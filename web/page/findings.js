// What the doctor finds between the robot and the grippers, with remedies.

import { post } from "./control.js";
import { element } from "./dom.js";

const WORDS = { ok: "ok", wrong: "wrong", warn: "warning", "?": "unknown" };

export class FindingsList {
  constructor() {
    this.button = element("button", { type: "button", textContent: "Check the cell" });
    this.summary = element("p", { role: "status",
      textContent: "Checks every gripper. One that does not answer takes a second or more." });
    this.list = element("ul", { className: "findings" });
    this.button.addEventListener("click", () => this.check());
    this.root = element("section", { "aria-label": "Diagnosis" },
      element("h2", { textContent: "Diagnosis" }), this.button, this.summary, this.list);
  }

  async check() {
    this.button.disabled = true;
    this.summary.textContent = "Checking.";
    const answer = await post("/api/findings", {});
    this.button.disabled = false;
    if (!answer.ok) {
      this.summary.textContent = answer.text;
      return;
    }
    const wrong = answer.findings.filter(({ mark }) => mark !== "ok");
    this.summary.textContent = wrong.length
      ? `Findings that need attention: ${wrong.length}.` : "No problems found.";
    this.list.replaceChildren(...wrong.map((finding) => this.item(finding)));
  }

  item({ mark, subject, text, remedy }) {
    const item = element("li", {},
      element("strong", { className: mark === "wrong" ? "fault" : "warning", textContent: WORDS[mark] }),
      ` ${subject}: ${text}`);
    if (remedy) {
      item.append(element("p", { className: "remedy", textContent: `Do: ${remedy}` }));
    }
    return item;
  }
}
