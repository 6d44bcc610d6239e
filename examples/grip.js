#!/usr/bin/env node
// grip.js [GRIPPER [URL]]: grips once, reports whether there was a part, and releases it.
// Needs Node 18 or newer, but no packages.
//
// THE FINGERS MOVE, over their whole stroke if the gripper needs a reference run. On a failure, the
// program prints one line and exits with status 1. It does not release a part that the gripper
// holds.
//
// Adapt the constants, in particular the state codes, which are those of the simulated grippers.
// Take yours from the manual of the gripper.
"use strict";

const {setTimeout: sleep} = require("node:timers/promises");

const [name = "", url = "http://127.0.0.1:44221/RPC2"] = process.argv.slice(2);
const SET = 0;  // parameter set: limits and force
const CALL_TIME = 10_000;  // ms; a hung master delays an answer by several seconds
const MOTION_TIME = 10_000;  // ms

const [REFERENCE_NEEDED, RELEASED, HOLDING, NO_PART, READY] = [1, 4, 6, 7, 8];
const FAULTS = 0x10 | 0x20;  // flags in the state byte: fault, temperature fault

const STATUS_TEXTS = {
    3: "no such gripper, or not supported by its model",
    5: "its master does not answer; the command may or may not have been carried out",
    12: "nothing could be sent: check the plug and power of its master",
    21: "no process data: the gripper is starting, or has lost its cable or power",
};
const PASSING = [3, 5, 21];  // a second attempt one second later may succeed

const ENTITIES = {"&": "&amp;", "<": "&lt;", ">": "&gt;", '"': "&quot;"};
const encode = (text) => text.replace(/[&<>"]/g, (character) => ENTITIES[character]);
const decode = (text) => Object.entries(ENTITIES).reverse().reduce(
    (rest, [character, entity]) => rest.replaceAll(entity, character), text);

// The daemon does not convert types. Write `double` and `boolean` (0 or 1) in the same way.
const string = (text) => `<string>${encode(text)}</string>`;
const int = (number) => `<int>${number}</int>`;

// Calls a method and returns the values of the answer, as a list even if there is only one.
async function call(method, ...parameters) {
    const params = parameters.map((value) => `<param><value>${value}</value></param>`).join("");
    const response = await fetch(url, {
        method: "POST",
        headers: {"Content-Type": "text/xml"},
        body: `<?xml version="1.0"?><methodCall><methodName>${method}</methodName>` +
            `<params>${params}</params></methodCall>`,
        signal: AbortSignal.timeout(CALL_TIME),
    });
    const xml = await response.text();
    if (!response.ok || !xml.includes("<params>")) {
        const text = xml.replace(/<[^>]*>/g, " ").replace(/\s+/g, " ").trim();
        throw new Error(`${method}: ${response.status} ${text}`);  // a fault is XML too
    }
    const values = xml.matchAll(/<(string|int|i4|i8|boolean|double)>([^<]*)<\/\1>/g);
    return [...values].map(([, type, text]) => (type === "string" ? decode(text) : Number(text)));
}

class Gripper {
    constructor(device) {
        if (!device) {  // the daemon could use a gripper whose name it has not read yet
            throw new Error("the name of the gripper is empty");
        }
        this.device = device;
    }

    // Calls a method that returns a status. Repeats it once, which is safe for a motion.
    async command(method, ...parameters) {
        let [status] = await call(method, string(this.device), ...parameters);
        if (PASSING.includes(status)) {
            await sleep(1000);
            [status] = await call(method, string(this.device), ...parameters);
        }
        if (status !== 0) {
            const text = STATUS_TEXTS[status] ?? "error code of its master";
            throw new Error(`${method}: status ${status}: ${text}`);
        }
    }

    // Reads state and position together, with GetPDINExcerpt. State 0: the drive is off or there is
    // no process data.
    //
    // GetPos can also return 0.0 because of a failure, and GetFault false. The excerpt is then 0,
    // so this reads it again after a second.
    async read() {
        let [excerpt] = await call("GetPDINExcerpt", string(this.device));
        if (excerpt === 0) {
            await sleep(1000);
            [excerpt] = await call("GetPDINExcerpt", string(this.device));
        }
        const state = excerpt >> 16 & 0xF;
        if (excerpt >> 16 & FAULTS) {
            throw new Error(`reports a fault, in state ${state}`);
        }
        const bytes = Buffer.from([excerpt & 0xFF, excerpt >> 8 & 0xFF]);
        return {state, position: bytes.readInt16BE() / 100};
    }

    // Waits for the end of a motion; returns state and position.
    //
    // If the master stops answering, the state does not change. So wait only for states that differ
    // from the one before the motion.
    async waitFor(...states) {
        const deadline = performance.now() + MOTION_TIME;
        for (;;) {
            const reading = await this.read();
            if (states.includes(reading.state)) {
                return reading;
            }
            if (performance.now() > deadline) {
                throw new Error(`still in state ${reading.state} after ${MOTION_TIME / 1000} s`);
            }
            await sleep(50);
        }
    }
}

async function findGripper() {
    const grippers = await call("GetGrippers");
    if (grippers.length !== 1) {
        throw new Error(`name one of these grippers: ${JSON.stringify(grippers)}`);
    }
    return grippers[0];
}

async function main() {
    const device = name || await findGripper();
    const gripper = new Gripper(device);

    const {state} = await gripper.read();
    if (state === HOLDING) {
        throw new Error("already holds a part: remove it first");
    }
    if (state === REFERENCE_NEEDED) {
        await gripper.command("Home");
        await gripper.waitFor(READY);
    }
    await gripper.command("Release", int(SET));
    await gripper.waitFor(RELEASED);

    await gripper.command("Grip", int(SET));
    const gripped = await gripper.waitFor(HOLDING, NO_PART);
    if (gripped.state === HOLDING) {
        console.log(`${device}: part held at ${gripped.position.toFixed(2)}`);
    } else {
        console.log(`${device}: no part, closed to ${gripped.position.toFixed(2)}`);
    }

    await gripper.command("Release", int(SET));
    await gripper.waitFor(RELEASED);
    console.log(`${device}: released`);
}

main().catch((error) => {
    // error.cause has the reason why fetch() failed.
    console.error(`${name || url}: ${error.cause?.message ?? error.message}`);
    process.exitCode = 1;
});
