// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// What the user does with the images of a camera, wherever the pointer is: look, choose a region, or two points.
import { HEIGHT, WIDTH } from "./wire.js";

const MOST_ZOOM = 32;
const limited = (value, low, high) => Math.min(Math.max(value, low), high);

export class Tools extends EventTarget {
    mode = "look";
    cursor = null; // the pixel whose values are shown
    corner = null; // of a region that is being chosen
    part = [0, 0, WIDTH, HEIGHT]; // of the images that is shown: left, top, width, height

    changed() {
        this.dispatchEvent(new Event("change"));
    }

    setMode(mode) {
        this.mode = mode;
        this.corner = null;
        this.changed();
    }

    point(u, v) {
        this.cursor = { u: limited(u, 0, WIDTH - 1), v: limited(v, 0, HEIGHT - 1) };
        this.changed();
    }

    step(right, down) {
        const { u, v } = this.cursor ?? { u: WIDTH / 2, v: HEIGHT / 2 };
        this.point(u + right, v + down);
    }

    zoom(factor, u = this.cursor?.u ?? WIDTH / 2, v = this.cursor?.v ?? HEIGHT / 2) {
        const [left, top, width] = this.part;
        const newWidth = limited(width / factor, WIDTH / MOST_ZOOM, WIDTH);
        const share = newWidth / width;
        this.#show(u - (u - left) * share, v - (v - top) * share, newWidth);
    }

    move(right, down) {
        const [left, top, width] = this.part;
        this.#show(left + right, top + down, width);
    }

    #show(left, top, width) {
        const height = (width * HEIGHT) / WIDTH;
        this.part = [limited(left, 0, WIDTH - width), limited(top, 0, HEIGHT - height), width, height];
        this.changed();
    }

    // The region between the corner and the cursor.
    region() {
        if (!this.corner || !this.cursor)
            return null;
        const [a, b] = [this.corner, this.cursor];
        const [x, y] = [Math.min(a.u, b.u), Math.min(a.v, b.v)];
        return { x, y, width: Math.abs(a.u - b.u) + 1, height: Math.abs(a.v - b.v) + 1 };
    }

    // Enter or a click at the cursor: the next step of what is being chosen.
    choose() {
        if (!this.cursor)
            return;
        if (this.mode === "distance")
            this.dispatchEvent(new CustomEvent("mark", { detail: this.cursor }));
        else if (this.mode === "region" && this.corner)
            this.finishRegion();
        else if (this.mode === "region")
            this.corner = this.cursor;
        this.changed();
    }

    finishRegion() {
        const region = this.region();
        this.setMode("look");
        this.dispatchEvent(new CustomEvent("region", { detail: region }));
    }
}
