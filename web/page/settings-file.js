// Settings as a file: those of the gripper and of the first parameter sets, without LEDs.

const FORMAT = "TavrikDaemon gripper settings";
const VERSION = 1;

const nameOf = (setting, number, isPerSet) => isPerSet ? `${setting} of set ${number}` : setting;

/** A value of the table as it stands in a file. */
function toFile(text) {
  return text === "on" || text === "off" ? text === "on" : Number(text);
}

/** A value of a file as it stands in the table, whose value there is `like`. */
function toTable(value, like) {
  if (typeof value === "boolean") {
    return value ? "on" : "off";
  }
  return like.includes(".") ? Number(value).toFixed(2) : String(value);
}

/** The content of a file with the `rows` of the table. */
export function makeFile(device, rows) {
  const content = { format: FORMAT, version: VERSION, gripper: device, sets: [] };
  for (const { setting, perSet, values } of rows) {
    if (!perSet) {
      content[setting] = toFile(values[0]);
      continue;
    }
    values.forEach((value, number) => {
      content.sets[number] ??= { set: number };
      content.sets[number][setting] = toFile(value);
    });
  }
  return `${JSON.stringify(content, null, 2)}\n`;
}

/**
 * In what the file differs from the rows of the table.
 * @return [{name, setting, number, from, to}]; `number` is undefined without parameter set
 * @throws Error with a text for the user
 */
export function compareFile(text, rows) {
  let content;
  try {
    content = JSON.parse(text);
  } catch {
    throw new Error("the file is not JSON");
  }
  if (content?.format !== FORMAT || content.version !== VERSION || !Array.isArray(content.sets)) {
    throw new Error("the file is not a settings file of this version");
  }
  const differences = [];
  for (const { setting, perSet, values } of rows.filter(({ canSet }) => canSet)) {
    values.forEach((from, number) => {
      const value = perSet ? content.sets[number]?.[setting] : content[setting];
      if (value !== undefined && typeof value !== "number" && typeof value !== "boolean") {
        throw new Error(`invalid ${nameOf(setting, number, perSet)} in the file`);
      }
      if (value !== undefined && toTable(value, from) !== from) {
        differences.push({ name: nameOf(setting, number, perSet), setting,
          number: perSet ? number : undefined, from, to: toTable(value, from) });
      }
    });
  }
  return differences;
}
