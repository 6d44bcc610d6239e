// What the gripper's numbers mean, in words.

export const STATES = {
  0: "drive off", 1: "reference run needed", 2: "reference run", 3: "releasing", 4: "released",
  5: "gripping", 6: "holding a part", 7: "gripped without a part", 8: "reference run done",
  15: "fault",
};

export const FLAGS = [
  { bit: 1, word: "fault", isFault: true },
  { bit: 2, word: "temperature fault", isFault: true },
  { bit: 4, word: "temperature warning", isFault: false },
  { bit: 8, word: "maintenance", isFault: false },
];

const UNCERTAIN = 16;

export const stateText = (state) => STATES[state] ?? `state ${state}`;

/** A row of the event "values" with names; null without data. */
export function readRow(row) {
  if (!row) {
    return null;
  }
  const [position, state, flags, age, motions] = row;
  return { position, state, flags, age, motions, isCertain: !(flags & UNCERTAIN) };
}

/** Older data is shown as such. */
export const STALE_MS = 1000;

export const positionText = (position) => position.toFixed(2);

export function durationText(seconds) {
  const whole = Math.floor(seconds);
  const parts = [[86400, "d"], [3600, "h"], [60, "min"], [1, "s"]];
  const first = parts.findIndex(([size]) => whole >= size);
  if (first < 0) {
    return "0 s";
  }
  return parts.slice(first, first + 2)
    .map(([size, unit], i) => [Math.floor(i === 0 ? whole / size : whole % parts[first][0] / size), unit])
    .filter(([count], i) => i === 0 || count > 0)
    .map(([count, unit]) => `${count} ${unit}`).join(" ");
}

/** How old data is, in words. */
export function ageText(age) {
  return age === Infinity ? "none" : age > STALE_MS ? `${durationText(age / 1000)} old` : "live";
}

/** What a command needs from the state, or an empty text if it can be given. */
export function obstacle(command, values) {
  if (!values) {
    return "no data from the gripper";
  }
  if (command === "disable") {
    return "";
  }
  if (values.state === 2) {
    return "the reference run has not ended";
  }
  if (command === "holdfast" || command === "store" || command === "set") {
    return "";
  }
  if (values.state === 15) {
    return "the gripper reports a fault";
  }
  if (values.state === 1 && command !== "reference") {
    return "a reference run is needed first";
  }
  return "";
}
