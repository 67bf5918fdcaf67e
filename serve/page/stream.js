// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Pulls the frames of one camera: the next one is asked for when the one before has been drawn, so a slow page sees
// fewer frames but never old ones.
import { getFrame } from "./api.js";
import { frameOf } from "./wire.js";

// Browsers open six connections to a server. Two stay free for what the user does meanwhile.
const slots = { free: 4, waiting: [] };

async function takeSlot() {
    if (slots.free > 0)
        --slots.free;
    else
        await new Promise((resolve) => slots.waiting.push(resolve));
}

function returnSlot() {
    const next = slots.waiting.shift();
    if (next)
        next();
    else
        ++slots.free;
}

const pause = (ms) => new Promise((resolve) => setTimeout(resolve, ms));

// Events in the last two seconds.
class Rate {
    times = [];

    count(now = performance.now()) {
        this.times.push(now);
        this.perSecond(now);
    }

    perSecond(now = performance.now()) {
        while (this.times.length && this.times[0] < now - 2000)
            this.times.shift();
        const span = now - this.times[0];
        return this.times.length < 2 ? 0 : ((this.times.length - 1) * 1000) / Math.max(span, 1);
    }
}

// A frame takes so long once its first bytes are there when a link carries less than 12 MB/s.
const SLOW_MS = 25;
const SLOW_FRAMES = 10;

export class Stream {
    frame = null;
    received = 0;
    missed = 0; // frames that the worker had and the page did not get
    shown = new Rate();
    small = false;
    #asked = null; // when the frame that has not come yet was asked for
    #slow = 0;
    #running = null;
    #drawn = () => {};

    // onFrame is called for each frame.
    constructor(id, onFrame) {
        this.id = id;
        this.onFrame = onFrame;
    }

    get running() {
        return this.#running !== null;
    }

    start() {
        if (this.#running)
            return;
        this.#asked = null;
        this.#running = new AbortController();
        this.#run(this.#running.signal);
    }

    stop() {
        this.#running?.abort();
        this.#running = null;
        this.#drawn();
    }

    // How long the page waits for a frame, in ms. While it draws it waits for none.
    get waits() {
        return this.#running && this.#asked !== null ? performance.now() - this.#asked : 0;
    }

    // Called when the latest frame has been drawn.
    drawn() {
        this.shown.count();
        this.#drawn();
    }

    async #run(signal) {
        while (!signal.aborted) {
            await takeSlot();
            let bytes = null;
            try {
                if (!signal.aborted)
                    bytes = await this.#pull(signal);
            } catch {
                if (!signal.aborted)
                    await pause(500); // the state says what is wrong
            } finally {
                returnSlot();
            }
            if (bytes && !signal.aborted)
                await this.#take(bytes);
        }
    }

    async #pull(signal) {
        this.#asked ??= performance.now();
        const after = this.frame?.sequence ?? 0;
        const session = this.frame?.session ?? 0;
        const response = await getFrame(this.id, { after, session, small: this.small }, signal);
        const began = performance.now();
        const bytes = await response?.arrayBuffer();
        this.#slow = performance.now() - began > SLOW_MS ? this.#slow + 1 : 0;
        this.small ||= this.#slow >= SLOW_FRAMES; // a slow link gets packed frames from then on
        return bytes;
    }

    // A frame that the page cannot read is worth a line in the console, not the end of the stream.
    async #take(bytes) {
        try {
            const frame = frameOf(bytes);
            if (this.frame?.session === frame.session)
                this.missed += Math.max(frame.sequence - this.frame.sequence - 1, 0);
            this.frame = frame;
        } catch (wrong) {
            console.error(wrong.message);
            await pause(500);
            return;
        }
        ++this.received;
        this.#asked = null;
        const drawn = new Promise((resolve) => (this.#drawn = resolve));
        this.onFrame(this);
        await drawn;
    }
}
