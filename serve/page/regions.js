// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The panel with regions and distances. Their figures come from the worker, which sees every frame; the page only shows
// them.
import { Refused, post } from "./api.js";
import { byId, element, fixed, setText } from "./dom.js";
import { distance } from "./geometry.js";
import { drawHistogram, drawPlot } from "./plot.js";

const MOST_REGIONS = 8;
const KEPT_MS = 60000; // of the plot

// Each figure: heading, unit, what it means, its value, decimals.
const FIGURES = [
    ["mean", "mm", "Mean depth of the valid pixels", (f) => f.mean, 1],
    ["σ space", "mm", "Standard deviation of depth over the pixels", (f) => f["sigma-space"], 2],
    ["σ time", "mm", "Noise of each pixel over the last frames", (f) => f["sigma-time"], 2],
    ["plane RMS", "mm", "Distance of the points from the plane that fits them best", (f) => f.plane?.rms, 2],
    ["tilt", "°", "Angle of that plane to the image", (f) => f.plane?.tilt, 2],
    ["fill", "%", "Share of the pixels that have a depth", (f) => 100 * f["fill-rate"], 1],
];

export class RegionsPanel {
    #histories = new Map(); // by camera and name: what the plot shows
    #selected = null;
    #shown = 0; // index into FIGURES

    constructor(tools, onLook) {
        this.tools = tools;
        this.onLook = onLook;
        this.table = byId("regions");
        this.refusal = byId("regions-refusal");
        this.choice = byId("plotted");
        this.choice.append(...FIGURES.map(([name]) => element("option", {}, name)));
        this.choice.addEventListener("change", () => (this.#shown = this.choice.selectedIndex));
        this.table.tHead.rows[0].append(
            element("th", { scope: "col" }, "region"),
            ...FIGURES.map(([name, unit, meaning]) =>
                element("th", { scope: "col", title: meaning }, name, element("small", {}, ` ${unit}`))),
            element("th", {}),
        );
        tools.addEventListener("region", ({ detail }) => this.#add(detail));
        tools.addEventListener("mark", ({ detail }) => this.#mark(detail));
        byId("clear-distance").addEventListener("click", () => {
            this.camera.marks = [];
            this.onLook();
        });
    }

    setCamera(camera) {
        this.camera = camera;
        this.#selected = null;
        setText(this.refusal, "");
        this.refresh();
    }

    #mark(pixel) {
        const { camera } = this;
        camera.marks = camera.marks.length === 2 ? [pixel] : [...camera.marks, pixel];
        this.onLook();
    }

    #add(region) {
        const regions = this.camera.state.regions ?? [];
        if (regions.length >= MOST_REGIONS) {
            setText(this.refusal, `At most ${MOST_REGIONS} regions are watched. Remove one first.`);
            return;
        }
        let number = 1;
        while (regions.some(({ name }) => name === `R${number}`))
            ++number;
        this.#selected = `R${number}`;
        this.#send([...regions, { name: this.#selected, ...region }]);
    }

    async #send(regions) {
        const { camera } = this;
        const plain = regions.map(({ name, x, y, width, height }) => ({ name, x, y, width, height }));
        try {
            await post(camera.id, "regions", { regions: plain });
            camera.state.regions = regions;
            setText(this.refusal, "");
        } catch (why) {
            setText(this.refusal, why instanceof Refused ? why.message : "The server does not answer.");
        }
        this.refresh();
        this.onLook();
    }

    #remember({ name, figures }) {
        const key = `${this.camera.id} ${name}`;
        const history = this.#histories.get(key) ?? [];
        this.#histories.set(key, history);
        const now = performance.now();
        if (figures && figures.sequence !== history.at(-1)?.figures.sequence)
            history.push({ time: now, figures });
        while (history.length && history[0].time < now - KEPT_MS)
            history.shift();
        return history;
    }

    // Called with each new state.
    refresh() {
        const regions = this.camera.state.regions ?? [];
        const [body] = this.table.tBodies;
        while (body.rows.length > regions.length)
            body.rows[body.rows.length - 1].remove();
        regions.forEach((region, i) => {
            const row = body.rows[i] ?? body.appendChild(this.#makeRow(i));
            this.#fillRow(row, region);
            this.#remember(region);
        });
        byId("no-regions").hidden = regions.length > 0;
        this.table.hidden = byId("plots").hidden = regions.length === 0;
        const shown = regions.find(({ name }) => name === this.#selected) ?? regions[0];
        if (shown)
            this.#plot(shown, regions.indexOf(shown));
        this.showDistance();
    }

    #makeRow(i) {
        const region = () => this.camera.state.regions[i];
        const choose = () => {
            this.#selected = region().name;
            this.refresh();
        };
        const remove = () => this.#send(this.camera.state.regions.filter((_, k) => k !== i));
        return element(
            "tr", {},
            element("th", { scope: "row" }, element("button", { type: "button", className: `name c${i}`, onclick: choose })),
            ...FIGURES.map(() => element("td")),
            element("td", {}, element("button", { type: "button", className: "remove", onclick: remove }, "×")),
        );
    }

    #fillRow(row, { name, figures }) {
        const [choose, remove] = row.querySelectorAll("button");
        setText(choose, name);
        choose.title = figures ? `${figures.valid} of ${figures.pixels} pixels have a depth` : "";
        remove.setAttribute("aria-label", `Remove region ${name}`);
        FIGURES.forEach(([, , , value, decimals], i) => setText(row.cells[i + 1], figures ? fixed(value(figures), decimals) : "–"));
    }

    #plot(region, colour) {
        for (const [i, row] of [...this.table.tBodies[0].rows].entries())
            row.classList.toggle("selected", i === colour);
        const [name, unit, , value, decimals] = FIGURES[this.#shown];
        const points = this.#remember(region).map(({ time, figures }) => [time, value(figures)]);
        drawPlot(byId("plot"), points, { span: KEPT_MS, colour, label: `${region.name}: ${name}`, unit, decimals });
        drawHistogram(byId("histogram"), region.figures?.histogram, { colour });
    }

    // Called with each new frame that is shown, too.
    showDistance() {
        const [a, b] = this.camera.marks.map(({ u, v }) => this.camera.pixel(u, v)?.point);
        const apart = a && b ? `${fixed(1000 * distance(a, b), 1, "mm")}` : "no depth at a point";
        const text = ["", "Choose the second point.", apart][this.camera.marks.length];
        setText(byId("distance-value"), text);
        byId("distance").hidden = this.camera.marks.length === 0;
    }
}
