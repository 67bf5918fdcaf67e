// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// A camera as the page knows it: what the server says of it, its frames, and how the user looks at it.
import { AMPLITUDE_TABLE, fittingRange } from "./colours.js";
import { Orbit, pointOf } from "./geometry.js";
import { Stream } from "./stream.js";
import { HEIGHT, WIDTH } from "./wire.js";

const CUT = { depth: 1, amplitude: 3 }; // percent of the pixels that a fitting range leaves out at either end
const LATE_MS = 1000;

// What is being done about it, by the state of the worker. The reason comes with the state.
const ABSENCES = {
    silent: "The camera sends no frames.",
    lost: "The camera is lost. The library searches for it and opens it again.",
    starting: "The camera is being started.",
    waiting: "The camera is not there. It is used again as soon as it is plugged in.",
    held: "Another program has the camera. It is used as soon as it is free.",
    restarting: "The process of the camera has ended. It is started again.",
};

// What was kept of an earlier visit; null when there is nothing, or a browser that keeps nothing.
function storedLook(key) {
    try {
        return JSON.parse(localStorage.getItem(key));
    } catch {
        return null;
    }
}

export class Camera {
    state = {};
    orbit = new Orbit();
    marks = []; // pixels between which a distance is measured
    #stored;

    constructor(id, onFrame) {
        this.id = id;
        this.stream = new Stream(id, () => {
            this.#fitFirst();
            onFrame(this);
        });
        this.#stored = `vqd.look.${id}`;
        const stored = storedLook(this.#stored);
        const ranges = { depthRange: { low: 0, high: 5000 }, amplitudeRange: { low: 0, high: 1000 } };
        this.look = { ...ranges, palettes: [0, AMPLITUDE_TABLE], ...stored };
        this.isFitted = stored !== null;
    }

    get frame() {
        return this.stream.frame;
    }

    get lens() {
        return this.state.lens?.depth ?? null;
    }

    get isRunning() {
        return this.state.state === "streaming" || this.state.state === "silent";
    }

    // The size and the place of the cloud are right only if the host corrects as the camera needs it.
    get isToScale() {
        const settings = this.state.settings ?? {};
        return settings.undistortion > 0 && settings.orthogonal === 1;
    }

    // Why there is no new frame, or null. A page that is not shown does not ask for any.
    absence() {
        const text = ABSENCES[this.state.state];
        if (text)
            return { text, reason: this.state.error ?? "" };
        const waits = this.stream.waits;
        return waits > LATE_MS ? { text: `No frame for ${(waits / 1000).toFixed(1)} s.`, reason: "" } : null;
    }

    // The point and the values of a pixel in the latest frame; null outside and before the first one.
    pixel(u, v) {
        if (!this.frame || u < 0 || v < 0 || u >= WIDTH || v >= HEIGHT)
            return null;
        const [depth, amplitude] = [this.frame.depth[v * WIDTH + u], this.frame.amplitude[v * WIDTH + u]];
        return { u, v, depth, amplitude, point: depth && this.lens ? pointOf(this.lens, u, v, depth) : null };
    }

    // A range stays as it is until somebody changes it, also when the page is loaded again.
    setRange(kind, range) {
        this.look[`${kind}Range`] = range;
        this.#keepLook();
    }

    setPalette(row) {
        this.look.palettes[0] = row;
        this.#keepLook();
    }

    #keepLook() {
        try {
            localStorage.setItem(this.#stored, JSON.stringify(this.look));
        } catch {
            // It lasts as long as the page, then.
        }
    }

    fit(kind) {
        if (this.frame)
            this.setRange(kind, fittingRange(this.frame[kind], CUT[kind]));
    }

    #fitFirst() {
        if (this.isFitted)
            return;
        this.isFitted = true;
        this.fit("depth");
        this.fit("amplitude");
        this.resetOrbit();
    }

    resetOrbit() {
        const valid = (this.frame?.depth ?? new Uint16Array()).filter((value) => value > 0).sort();
        this.orbit.reset((valid[valid.length >> 1] ?? 2000) / 1000);
    }
}
