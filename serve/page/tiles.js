// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// All cameras at once: the tabs by which one is chosen, and a tile with the depth of each.
import { byId, element, fixed, setText, tabList } from "./dom.js";
import { HEIGHT, WIDTH } from "./wire.js";

const LIGHTS = { streaming: "good", starting: "busy", silent: "busy", lost: "bad", restarting: "bad" };

const lightOf = ({ state }) => `light ${LIGHTS[state.state] ?? "off"}`;

// The buttons of the cameras that there are, without making those anew that there are already.
class Buttons {
    #buttons = new Map();

    constructor(parent, make) {
        Object.assign(this, { parent, make });
    }

    show(entries) {
        for (const [id, button] of this.#buttons)
            if (!entries.some((entry) => entry.id === id)) {
                button.remove();
                this.#buttons.delete(id);
            }
        for (const entry of entries) {
            let button = this.#buttons.get(entry.id);
            if (!button) {
                this.#buttons.set(entry.id, (button = this.make(entry)));
                this.parent.append(button);
            }
        }
        return (id) => this.#buttons.get(id);
    }
}

export class CameraTabs {
    constructor(onSelect) {
        this.list = byId("cameras");
        this.buttons = new Buttons(this.list, ({ id, name }) => {
            const parts = [element("span", { className: id === "" ? "light none" : "light off" }), element("span", {}, name)];
            const button = element("button", { type: "button", role: "tab", tabIndex: -1 }, ...parts);
            button.dataset.value = id;
            button.setAttribute("aria-selected", "false");
            return button;
        });
        this.select = tabList(this.list, onSelect);
    }

    show(cameras) {
        const all = { id: "", name: "All" };
        const entries = cameras.map((camera) => ({ id: camera.id, name: camera.state.name, light: lightOf(camera) }));
        const button = this.buttons.show(cameras.length > 1 ? [all, ...entries] : entries);
        for (const { id, name, light } of entries) {
            button(id).firstChild.className = light;
            setText(button(id).lastChild, name);
        }
        if (cameras.length > 1 && this.list.firstChild !== button(""))
            this.list.prepend(button(""));
    }
}

export class Tiles {
    #tiles = []; // {camera, node, port, box}

    constructor(onOpen) {
        this.parent = byId("tiles");
        this.buttons = new Buttons(this.parent, ({ id }) =>
            element(
                "button", { type: "button", className: "tile", onclick: () => onOpen(id) },
                element("span", { className: "port" }, absence()),
                element("span", { className: "caption" }, element("span"), element("b"), element("small")),
            ));
    }

    show(cameras) {
        const node = this.buttons.show(cameras);
        this.#tiles = cameras.map((camera) => ({ camera, node: node(camera.id), port: node(camera.id).firstChild }));
        this.parent.dataset.count = cameras.length;
        this.layout(byId("stage").getBoundingClientRect());
    }

    layout(stage) {
        const [columns, tile] = this.#widest(stage);
        this.parent.style.setProperty("--columns", columns);
        this.parent.style.setProperty("--tile", `${Math.floor(tile)}px`);
        for (const tile of this.#tiles) {
            const { left, top, width } = tile.port.getBoundingClientRect();
            const height = (width * HEIGHT) / WIDTH;
            tile.box = width > 0 ? { left: left - stage.left, top: top - stage.top, width, height } : null;
        }
    }

    // How many columns make the widest tiles of which all are seen, and how wide. A phone scrolls instead.
    #widest({ width, height }) {
        const [gap, caption] = [8, 32];
        const count = this.#tiles.length;
        const across = (columns) => (width - gap * (columns + 1)) / columns;
        if (matchMedia("(max-width: 900px)").matches)
            return [1, across(1)];
        const down = (rows) => (((height - gap * (rows + 1)) / rows - caption) * WIDTH) / HEIGHT;
        const widths = this.#tiles.map((_, i) => Math.min(across(i + 1), down(Math.ceil(count / (i + 1)))));
        const widest = Math.max(...widths, 0);
        return [widths.indexOf(widest) + 1 || 1, widest];
    }

    views() {
        return this.#tiles.filter(({ box }) => box).map(({ box, camera }) => ({ kind: "depth", box, camera, part: [0, 0, WIDTH, HEIGHT] }));
    }

    ports() {
        return this.#tiles;
    }

    showTexts() {
        for (const { camera, node } of this.#tiles) {
            const [light, name, rates] = node.lastChild.children;
            const { state, stream } = camera;
            light.className = lightOf(camera);
            setText(name, state.name);
            const perSecond = [fixed(state["frames-per-second"], 1, "/s"), `page ${fixed(stream.shown.perSecond(), 1, "/s")}`];
            const numbers = state.state === "streaming" ? [...perSecond, fixed(state.temperature, 1, "°C")] : [];
            setText(rates, [state.state, ...numbers].join(" · "));
        }
    }
}

const absence = () => element("span", { className: "absence", hidden: true }, element("strong"), element("span"));
