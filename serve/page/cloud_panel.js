// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The panel with the point cloud: turning, moving and zooming it, and the point under the pointer.
import { byId, svg } from "./dom.js";
import { isFlying, project } from "./geometry.js";
import { PIXELS, WIDTH } from "./wire.js";

const COVERS = 3; // pixels of the screen between the pointer and a point that is drawn there
const NEAR = 12;  // and one that it means when there is none
const TURN = 0.008; // radians a pixel of the screen
const STEPS = { ArrowRight: [1, 0], ArrowLeft: [-1, 0], ArrowDown: [0, 1], ArrowUp: [0, -1] };

export class CloudPanel {
    box = null;
    hidesFlying = false;
    colouring = "shaded";
    #pointers = new Map();
    #drags = false;
    #hover = null; // where to look for a point at the next drawing

    constructor(tools, onLook) {
        this.tools = tools;
        this.onLook = onLook;
        this.section = byId("cloud");
        this.port = this.section.querySelector(".port");
        this.overlay = this.port.querySelector("svg");
        this.note = byId("scale-note");
        byId("hide-flying").addEventListener("change", (event) => {
            this.hidesFlying = event.target.checked;
            onLook();
        });
        byId("colouring").addEventListener("change", (event) => {
            this.colouring = event.target.value;
            onLook();
        });
        byId("reset-cloud").addEventListener("click", () => this.#reset());
        this.#listen();
    }

    setCamera(camera) {
        this.camera = camera;
    }

    refresh() {
        this.note.hidden = this.camera.isToScale || !this.camera.state.settings;
    }

    layout(stage) {
        const { left, top, width, height } = this.port.getBoundingClientRect();
        this.box = width > 0 ? { left: left - stage.left, top: top - stage.top, width, height } : null;
        this.overlay.setAttribute("viewBox", `0 0 ${width} ${height}`);
    }

    view() {
        const { box, camera, hidesFlying, colouring } = this;
        this.matrix = camera.orbit.matrix(box.width / box.height);
        return { kind: "cloud", box, camera, matrix: this.matrix, hidesFlying, colouring };
    }

    #reset() {
        this.camera.resetOrbit();
        this.onLook();
    }

    #listen() {
        const { port } = this;
        port.addEventListener("pointerdown", (event) => {
            port.setPointerCapture(event.pointerId);
            this.#pointers.set(event.pointerId, [event.clientX, event.clientY]);
            this.#drags = false;
            this.#moves = event.button !== 0 || event.shiftKey;
        });
        port.addEventListener("pointermove", (event) => this.#moved(event));
        port.addEventListener("pointerup", (event) => {
            if (this.#pointers.delete(event.pointerId) && !this.#drags)
                this.#click(event);
        });
        port.addEventListener("pointercancel", (event) => this.#pointers.delete(event.pointerId));
        port.addEventListener("contextmenu", (event) => event.preventDefault());
        port.addEventListener("wheel", (event) => {
            event.preventDefault();
            this.camera.orbit.zoom(Math.exp(event.deltaY / 600));
            this.onLook();
        }, { passive: false });
        port.addEventListener("keydown", (event) => this.#key(event));
    }

    #moves = false;

    // One pointer turns, or moves with a shift key or another button; two move and zoom.
    #moved(event) {
        const before = this.#pointers.get(event.pointerId);
        if (!before) {
            this.#hover = event;
            this.onLook();
            return;
        }
        const [right, down] = [event.clientX - before[0], event.clientY - before[1]];
        if (!this.#drags && this.#pointers.size === 1 && Math.hypot(right, down) < 3)
            return;
        this.#drags = true;
        const { orbit } = this.camera;
        if (this.#pointers.size === 2) {
            const [other] = [...this.#pointers].filter(([id]) => id !== event.pointerId).map(([, at]) => at);
            const apart = ([x, y]) => Math.hypot(x - other[0], y - other[1]);
            orbit.zoom(apart(before) / Math.max(apart([event.clientX, event.clientY]), 1));
            orbit.move(right / this.box.height / 2, down / this.box.height / 2);
        } else if (this.#moves) {
            orbit.move(right / this.box.height, down / this.box.height);
        } else {
            orbit.turn(right * TURN, down * TURN);
        }
        this.#pointers.set(event.pointerId, [event.clientX, event.clientY]);
        this.onLook();
    }

    #click(event) {
        this.#pick(event);
        this.tools.choose();
    }

    #key(event) {
        const { orbit } = this.camera;
        const step = STEPS[event.key];
        if (step && event.shiftKey)
            orbit.move(-0.05 * step[0], -0.05 * step[1]);
        else if (step)
            orbit.turn(0.1 * step[0], 0.1 * step[1]);
        else if (event.key === "+" || event.key === "=")
            orbit.zoom(1 / 1.2);
        else if (event.key === "-")
            orbit.zoom(1.2);
        else if (event.key === "0")
            this.camera.resetOrbit();
        else if (event.key === "Enter")
            this.tools.choose();
        else
            return;
        event.preventDefault();
        this.onLook();
    }

    // Sets the cursor to the point under the pointer.
    #pick({ clientX, clientY }) {
        const { frame } = this.camera;
        if (!frame || !this.camera.lens || !this.matrix)
            return;
        const { left, top, width, height } = this.port.getBoundingClientRect();
        const { matrix: m, camera: { lens: { fx, fy, cx, cy } } } = this;
        let best = null;
        for (let i = 0; i < PIXELS; ++i) {
            if (frame.depth[i] === 0)
                continue;
            const [u, v, z] = [i % WIDTH, Math.floor(i / WIDTH), frame.depth[i] / 1000];
            const at = project(m, ((u - cx) * z) / fx, ((v - cy) * z) / fy, z);
            if (!at)
                continue;
            const off = Math.hypot(left + at.x * width - clientX, top + at.y * height - clientY);
            const cost = off < COVERS ? at.ahead : 1000 + off; // what is in front, or else what is nearest
            if (off < NEAR && (!best || cost < best.cost) && !(this.hidesFlying && isFlying(frame.depth, u, v)))
                best = { u, v, cost };
        }
        if (best)
            this.tools.point(best.u, best.v);
    }

    // At most once a drawing, because it looks at every point.
    beforeDrawing() {
        const hover = this.#hover;
        this.#hover = null;
        if (hover && this.box)
            this.#pick(hover);
    }

    drawOverlay() {
        if (!this.box || !this.matrix)
            return;
        const { width, height } = this.box;
        const onScreen = ({ u, v }) => {
            const { point } = this.camera.pixel(u, v) ?? {};
            const at = point && project(this.matrix, ...point);
            return at && { x: at.x * width, y: at.y * height };
        };
        const shapes = [];
        const marks = this.camera.marks.map(onScreen).filter(Boolean);
        if (marks.length === 2)
            shapes.push(svg("line", { class: "distance", x1: marks[0].x, y1: marks[0].y, x2: marks[1].x, y2: marks[1].y }));
        shapes.push(...marks.map(({ x, y }) => svg("circle", { class: "mark", cx: x, cy: y, r: 4 })));
        const cursor = this.tools.cursor && onScreen(this.tools.cursor);
        if (cursor)
            shapes.push(...["halo", "cross"].map((name) => svg("circle", { class: name, cx: cursor.x, cy: cursor.y, r: 6 })));
        this.overlay.replaceChildren(...this.#axes(height), ...shapes);
    }

    // The directions of the axes as they are seen now; the farthest is drawn first.
    #axes(height) {
        const [right, down, ahead] = this.camera.orbit.axes();
        const [x, y, length] = [44, height - 44, 30];
        return ["x", "y", "z"]
            .map((name, i) => ({ name, dx: right[i] * length, dy: down[i] * length, far: ahead[i] }))
            .sort((a, b) => b.far - a.far)
            .flatMap(({ name, dx, dy }) => [
                svg("line", { class: `axis ${name}`, x1: x, y1: y, x2: x + dx, y2: y + dy }),
                svg("text", { class: `axis ${name}`, x: x + 1.3 * dx, y: y + 1.3 * dy + 4, "text-anchor": "middle" }, name),
            ]);
    }
}
