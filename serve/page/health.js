// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// How a camera is: rates, age and losses in one line, absences over the images, and everything else as a list.
import { byId, element, fixed, setText } from "./dom.js";

// Each: heading, what it means, value as a text, whether it is worth a colour.
const LINE = [
    ["Camera", "Frames per second that the worker reads", ({ state }) => fixed(state["frames-per-second"], 1, "/s")],
    ["Page", "Frames per second that this page shows", ({ stream }) => fixed(stream.shown.perSecond(), 1, "/s")],
    ["Age", "From the read of the frame to its drawing", ({ age }) => fixed(age, 0, "ms"), ({ age }) => age > 200],
    ["Gaps", "Frames that the worker did not get, estimated", ({ state }) => fixed(state.dropped), ({ state }) => state.dropped > 0],
    ["Failed", "Transfers that brought no frame", ({ state }) => fixed(state["failed-transfers"]),
        ({ state }) => state["failed-transfers"] > 0],
    ["Re-opens", "How often the camera was opened again", ({ state }) => fixed(state.reopens), ({ state }) => state.reopens > 0],
    ["Longest gap", "The longest time between two frames", ({ state }) => fixed(1000 * state["longest-gap"], 0, "ms")],
    ["Sensor", "Temperature of the sensor", ({ state }) => fixed(state.temperature, 1, "°C")],
];

const DETAILS = [
    ["Product", ({ state }) => state.product],
    ["Serial number", ({ state }) => state.serial],
    ["USB port", ({ state }) => state.port],
    ["Profile", ({ state }) => state.profile],
    ["State", ({ state }) => state.state],
    ["Error", ({ state }) => state.error],
    ["Last error", ({ state }) => state["last-error"] && `${state["last-error"].text} (${clock(state["last-error"]["real-time-ns"])})`],
    ["Warning", ({ state }) => state.warning],
    ["Restarts of its process", ({ state }) => state.restarts],
    ["Process", ({ state }) => state.process],
    ["Socket", ({ state }) => state.socket],
    ["ROS 2 topics", ({ state }) => state.publish && `${state.publish.topics ?? ""} ${state.publish.error ?? state.publish.state}`],
    ["Frames of the session", ({ state }) => state.frames],
    ["Frames received here", ({ stream }) => stream.received],
    ["Frames left out here", ({ stream }) => stream.missed],
    ["Frames come packed", ({ stream }) => (stream.small ? "yes, because the link is slow" : "no")],
    ["Drawing takes", (_, page) => fixed(page.drawMs, 1, "ms of the page's time a frame")],
];

const clock = (ns) => new Date(ns / 1e6).toLocaleTimeString();

export class Health {
    constructor() {
        this.line = LINE.map(([name, meaning]) => {
            const value = element("dd");
            byId("health").append(element("div", { title: meaning }, element("dt", {}, name), value));
            return value;
        });
        this.details = DETAILS.map(([name]) => {
            const value = element("dd");
            byId("details").append(element("dt", {}, name), value);
            return value;
        });
    }

    refresh(camera, page) {
        LINE.forEach(([, , text, isBad], i) => {
            setText(this.line[i], text(camera));
            this.line[i].classList.toggle("bad", Boolean(isBad?.(camera)));
        });
        DETAILS.forEach(([, text], i) => setText(this.details[i], String(text(camera, page) ?? "–")));
    }

    showEvents({ state }) {
        const lines = [...(state.events ?? [])].reverse().map((event) => {
            const text = event.text ?? (event.settings && JSON.stringify(event.settings)) ?? "";
            return `${clock(event["real-time-ns"])}  ${event.event} ${text}`;
        });
        const list = byId("events");
        if (list.dataset.shown === lines.join())
            return;
        list.dataset.shown = lines.join();
        list.replaceChildren(...lines.map((line) => element("li", {}, line)));
    }
}

// Says over a port that nothing new is to be seen there, and why. The last frame stays below it.
export function showAbsence(port, absence) {
    const over = port.querySelector(".absence");
    over.hidden = !absence;
    setText(over.querySelector("strong"), absence?.text ?? "");
    setText(over.querySelector("span"), absence?.reason ?? "");
}
