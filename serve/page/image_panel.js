// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// A panel with one plane of the frame as an image: its range of colours, what the pointer and the keys do, and what is
// drawn over it.
import { byId, element, svg } from "./dom.js";
import { PALETTE_NAMES, TABLES } from "./colours.js";
import { HEIGHT, WIDTH } from "./wire.js";

const STEPS = { ArrowRight: [1, 0], ArrowLeft: [-1, 0], ArrowDown: [0, 1], ArrowUp: [0, -1] };
const DRAG = 3; // pixels of the screen; less is a click

export class ImagePanel {
    box = null; // of the image in the stage, in CSS pixels
    #down = null;

    constructor(kind, tools, onLook) {
        this.kind = kind;
        this.tools = tools;
        this.onLook = onLook;
        this.section = byId(kind);
        this.port = this.section.querySelector(".port");
        this.overlay = this.port.querySelector("svg");
        this.#makeControls();
        this.#listen();
    }

    setCamera(camera) {
        this.camera = camera;
        this.refresh();
    }

    #makeControls() {
        const input = (end) =>
            element("input", {
                type: "number", min: 0, max: 65535, step: 1, inputMode: "numeric",
                "aria-label": `${this.kind}, ${end === "low" ? "lower" : "upper"} end of the colours`,
                onchange: (event) => this.#setEnd(end, event.target),
            });
        this.inputs = { low: input("low"), high: input("high") };
        this.bar = element("canvas", { className: "bar", width: 256, height: 1 });
        const fit = element("button", { type: "button", title: "Fit the colours to what is seen now", onclick: () => this.#fit() }, "Fit");
        this.palette = element(
            "select", { "aria-label": "Palette", onchange: (event) => this.#setPalette(event.target.selectedIndex) },
            ...PALETTE_NAMES.map((name) => element("option", {}, name)),
        );
        const parts = [this.inputs.low, this.bar, this.inputs.high];
        parts.push(...(this.kind === "depth" ? [element("span", { className: "unit" }, "mm"), this.palette] : []), fit);
        this.section.querySelector(".controls").append(...parts);
    }

    // The lower end stays below the upper one.
    #setEnd(end, input) {
        const range = { ...this.camera.look[`${this.kind}Range`], [end]: Math.round(Number(input.value)) };
        if (input.value !== "" && range.low >= 0 && range.low < range.high && range.high <= 65535)
            this.camera.setRange(this.kind, range);
        input.blur();
        this.refresh();
        this.onLook();
    }

    #fit() {
        this.camera.fit(this.kind);
        this.refresh();
        this.onLook();
    }

    #setPalette(row) {
        this.camera.setPalette(row);
        this.refresh();
        this.onLook();
    }

    // Writes the range into its inputs, but not into the one that is being typed in.
    refresh() {
        const { [`${this.kind}Range`]: range, palettes } = this.camera.look;
        for (const [end, input] of Object.entries(this.inputs))
            if (input !== document.activeElement)
                input.value = range[end];
        this.palette.selectedIndex = palettes[0];
        const table = TABLES[palettes[this.kind === "depth" ? 0 : 1]];
        this.bar.getContext("2d").putImageData(new ImageData(new Uint8ClampedArray(table), 256, 1), 0, 0);
    }

    // The largest place of the image's shape in the port.
    layout(stage) {
        const port = this.port.getBoundingClientRect();
        const scale = Math.min(port.width / WIDTH, port.height / HEIGHT);
        const [width, height] = [WIDTH * scale, HEIGHT * scale];
        const [left, top] = [(port.width - width) / 2, (port.height - height) / 2];
        Object.assign(this.overlay.style, { left: `${left}px`, top: `${top}px`, width: `${width}px`, height: `${height}px` });
        this.box = scale > 0 ? { left: port.left - stage.left + left, top: port.top - stage.top + top, width, height } : null;
    }

    view() {
        return { kind: this.kind, box: this.box, camera: this.camera, part: this.tools.part };
    }

    #pixelAt(event) {
        const box = this.overlay.getBoundingClientRect();
        const [left, top, width, height] = this.tools.part;
        const u = left + ((event.clientX - box.left) / box.width) * width;
        return [u, top + ((event.clientY - box.top) / box.height) * height];
    }

    #listen() {
        const { port, tools } = this;
        port.addEventListener("pointerdown", (event) => {
            port.setPointerCapture(event.pointerId);
            this.#down = { x: event.clientX, y: event.clientY, drags: false };
            tools.point(...this.#pixelAt(event).map(Math.floor));
            if (tools.mode === "region" && !tools.corner)
                this.#down.begins = true;
        });
        port.addEventListener("pointermove", (event) => this.#moved(event));
        port.addEventListener("pointerup", () => {
            const down = this.#down;
            this.#down = null;
            if (down?.drags && tools.mode === "region" && tools.corner)
                tools.finishRegion();
            else if (down && !down.drags)
                tools.choose();
        });
        port.addEventListener("pointercancel", () => (this.#down = null));
        port.addEventListener("wheel", (event) => {
            event.preventDefault();
            tools.zoom(Math.exp(-event.deltaY / 400), ...this.#pixelAt(event));
        }, { passive: false });
        port.addEventListener("keydown", (event) => this.#key(event));
    }

    #moved(event) {
        const { tools } = this;
        const down = this.#down;
        if (down && Math.hypot(event.clientX - down.x, event.clientY - down.y) >= DRAG)
            down.drags = true;
        if (down?.drags && tools.mode === "look") {
            const scale = tools.part[2] / this.overlay.getBoundingClientRect().width;
            tools.move(-event.movementX * scale, -event.movementY * scale);
            return;
        }
        if (down?.drags && down.begins) {
            tools.corner = tools.cursor;
            down.begins = false;
        }
        tools.point(...this.#pixelAt(event).map(Math.floor));
    }

    #key(event) {
        const { tools } = this;
        const step = STEPS[event.key];
        const far = event.shiftKey ? 10 : 1;
        if (step)
            tools.step(step[0] * far, step[1] * far);
        else if (event.key === "+" || event.key === "=")
            tools.zoom(1.5);
        else if (event.key === "-")
            tools.zoom(1 / 1.5);
        else if (event.key === "0")
            tools.zoom(0);
        else if (event.key === "Enter" || event.key === " ")
            tools.choose();
        else if (event.key === "Escape" && tools.mode !== "look")
            tools.setMode("look");
        else
            return;
        event.preventDefault();
    }

    // Everything over the image is in its pixels; `one` is a pixel of the screen.
    drawOverlay() {
        const { part, cursor, mode } = this.tools;
        const one = this.box ? part[2] / this.box.width : 1;
        this.overlay.setAttribute("viewBox", part.join(" "));
        this.port.dataset.mode = mode;
        const shapes = (this.camera.state.regions ?? []).flatMap((region, i) => [
            svg("rect", { class: `region c${i}`, ...attributesOf(region) }),
            svg("text", { class: `label c${i}`, x: region.x + 4 * one, y: region.y + 14 * one, "font-size": 12 * one }, region.name),
        ]);
        const draft = this.tools.region();
        if (draft)
            shapes.push(svg("rect", { class: "draft", ...attributesOf(draft) }));
        const marks = this.camera.marks.map(({ u, v }) => ({ x: u + 0.5, y: v + 0.5 }));
        if (marks.length === 2)
            shapes.push(svg("line", { class: "distance", x1: marks[0].x, y1: marks[0].y, x2: marks[1].x, y2: marks[1].y }));
        shapes.push(...marks.map(({ x, y }) => svg("circle", { class: "mark", cx: x, cy: y, r: 4 * one })));
        if (cursor)
            shapes.push(...crosshair(cursor, one));
        this.overlay.replaceChildren(...shapes);
    }
}

const attributesOf = ({ x, y, width, height }) => ({ x, y, width, height });

// A cross with a gap, so that the pixel itself stays visible.
function crosshair({ u, v }, one) {
    const [x, y, gap, arm] = [u + 0.5, v + 0.5, 0.5 + 2 * one, 0.5 + 9 * one];
    const d = [[1, 0], [-1, 0], [0, 1], [0, -1]].map(([a, b]) => `M${x + a * gap} ${y + b * gap}L${x + a * arm} ${y + b * arm}`).join("");
    return [svg("path", { class: "halo", d }), svg("path", { class: "cross", d })];
}
