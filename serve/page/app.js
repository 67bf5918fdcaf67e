// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The page: asks for the state, chooses which cameras are shown, and draws when something has changed.
import { getState } from "./api.js";
import { Camera } from "./camera.js";
import { CloudPanel } from "./cloud_panel.js";
import { byId, fixed, setText, tabList } from "./dom.js";
import { Health, showAbsence } from "./health.js";
import { ImagePanel } from "./image_panel.js";
import { RecordPanel, SaveDialog, Snapshots, downloadSettings } from "./keep.js";
import { RegionsPanel } from "./regions.js";
import { Renderer } from "./renderer.js";
import { SettingsPanel } from "./settings.js";
import { CameraTabs, Tiles } from "./tiles.js";
import { Tools } from "./tools.js";

const POLL_MS = 500;
const POLL_HIDDEN_MS = 5000;
const POLL_LATE_MS = 150; // when frames that were expected do not come
const EXPECTED_MS = 250;

class Page {
    cameras = new Map();
    server = null;
    chosen = null; // the id of a camera, or "" for all of them
    drawMs = NaN;
    #dirty = false;
    #polled = -Infinity;
    #polling = false;
    #paused = false;
    #textsAt = 0;
    #quickest = Infinity; // answer to a question for the state, in ms
    #clockAhead = 0; // ms

    constructor() {
        const redraw = () => this.redraw();
        this.renderer = new Renderer(byId("drawing"));
        this.tools = new Tools();
        this.images = ["depth", "amplitude"].map((kind) => new ImagePanel(kind, this.tools, redraw));
        this.cloud = new CloudPanel(this.tools, redraw);
        this.regions = new RegionsPanel(this.tools, redraw);
        this.settings = new SettingsPanel();
        this.settings.onDownload = () => downloadSettings(this.camera);
        this.record = new RecordPanel();
        this.panels = [...this.images, this.cloud, this.regions, this.settings, this.record, new SaveDialog(), new Snapshots()];
        this.health = new Health();
        this.tiles = new Tiles((id) => this.tabs.select(id));
        this.tabs = new CameraTabs((id) => this.choose(id));
        this.tools.addEventListener("change", () => {
            document.querySelector(`[name="mode"][value="${this.tools.mode}"]`).checked = true;
            this.#textsAt = 0;
            this.redraw();
        });
        this.#listen();
        this.#tick();
    }

    get camera() {
        return this.cameras.get(this.chosen);
    }

    #listen() {
        byId("modes").addEventListener("change", ({ target }) => this.tools.setMode(target.value));
        byId("zoom").addEventListener("click", ({ target }) => target.dataset.zoom && this.tools.zoom(Number(target.dataset.zoom)));
        byId("pause").addEventListener("click", ({ target }) => {
            this.#paused = !this.#paused;
            target.setAttribute("aria-pressed", String(this.#paused));
            this.#run();
        });
        byId("panels").addEventListener("click", ({ target }) => target.matches(".enlarge") && this.#enlarge(target));
        tabList(byId("side-tabs"), (value) => {
            for (const section of byId("side").querySelectorAll("section"))
                section.hidden = section.id !== value;
        })("settings");
        const resized = new ResizeObserver(() => this.#layout());
        for (const node of [byId("stage"), ...document.querySelectorAll(".port")])
            resized.observe(node);
        document.addEventListener("visibilitychange", () => {
            this.#run();
            this.redraw();
        });
    }

    #enlarge(button) {
        const panels = byId("panels");
        const { id } = button.closest(".panel");
        const isLarge = panels.dataset.large === id;
        panels.dataset.large = isLarge ? "" : id;
        for (const other of panels.querySelectorAll(".enlarge"))
            other.setAttribute("aria-pressed", String(other === button && !isLarge));
        this.#layout();
    }

    // Looks after everything that is not a frame, about ten times a second.
    #tick() {
        const since = performance.now() - this.#polled;
        const isLate = this.#seen().some(({ stream }) => stream.waits > EXPECTED_MS);
        const due = document.hidden ? POLL_HIDDEN_MS : isLate ? POLL_LATE_MS : POLL_MS;
        if (!this.#polling && since >= due) {
            this.#polling = true;
            this.#poll().finally(() => {
                this.#polling = false;
                this.#polled = performance.now();
            });
        }
        this.#showTexts();
        setTimeout(() => this.#tick(), 100);
    }

    // The cameras whose frames are on the page.
    #seen() {
        return this.chosen === "" ? [...this.cameras.values()] : this.camera ? [this.camera] : [];
    }

    async #poll() {
        try {
            const asked = Date.now();
            const state = await getState();
            this.#compareClocks(state.server, asked, Date.now());
            this.server = state.server;
            this.#take(state.cameras.filter(({ show }) => show !== false));
            setText(byId("connection"), "");
            document.body.classList.remove("offline");
        } catch (why) {
            const isStranger = why.status === 401;
            setText(byId("connection"), isStranger ? "This address is no longer valid. Open the one that vqd serve printed."
                : "The server does not answer. The page asks again.");
            document.body.classList.add("offline");
        }
    }

    // The quickest answer tells best how far the clock of the server's machine is ahead of this one's.
    #compareClocks({ "real-time-ns": theirs }, asked, answered) {
        const took = Math.max(answered - asked, 1);
        this.#quickest *= 1.02; // an old answer gives way, because clocks are set
        if (theirs === undefined || took > this.#quickest)
            return;
        this.#quickest = took;
        this.#clockAhead = theirs / 1e6 - (asked + answered) / 2;
    }

    #take(states) {
        for (const state of states) {
            let camera = this.cameras.get(state.id);
            if (!camera)
                this.cameras.set(state.id, (camera = new Camera(state.id, () => this.redraw())));
            camera.state = state;
        }
        for (const id of [...this.cameras.keys()])
            if (!states.some((state) => state.id === id))
                this.#forget(id);
        const cameras = [...this.cameras.values()];
        setText(byId("nothing"), cameras.length ? "" : "No camera was found yet. It appears here as soon as it is plugged in.");
        this.tabs.show(cameras);
        this.tiles.show(cameras);
        if (cameras.length === 0)
            byId("single").hidden = byId("side").hidden = true;
        else if (this.chosen === null)
            this.tabs.select(this.#fromAddress() ?? (cameras.length === 1 ? cameras[0].id : ""));
        this.#run();
        if (this.camera) {
            for (const panel of this.panels)
                panel.refresh?.(this.server);
            this.health.showEvents(this.camera);
        }
    }

    // An address with #ID opens that camera.
    #fromAddress() {
        return [...this.cameras.keys()].find((id) => `#${encodeURIComponent(id)}` === location.hash) ?? null;
    }

    #forget(id) {
        this.cameras.get(id).stream.stop();
        this.cameras.delete(id);
        this.renderer.forget(id);
        if (this.chosen === id)
            this.chosen = null;
    }

    choose(id) {
        this.chosen = id;
        history.replaceState(null, "", `#${encodeURIComponent(id)}`);
        const { camera } = this;
        byId("single").hidden = !camera;
        byId("side").hidden = !camera;
        byId("tiles").hidden = Boolean(camera);
        document.title = camera ? `${camera.state.name} – vqd` : "vqd";
        this.tools.cursor = null;
        this.tools.zoom(0);
        if (camera)
            for (const panel of this.panels)
                panel.setCamera?.(camera, this.server);
        this.#run();
        this.#layout();
        this.#textsAt = 0;
    }

    // Frames are asked for only where they are seen.
    #run() {
        const seen = this.#paused || document.hidden ? [] : this.#seen();
        for (const camera of this.cameras.values()) {
            if (camera.isRunning && seen.includes(camera))
                camera.stream.start();
            else
                camera.stream.stop();
        }
    }

    #layout() {
        const stage = byId("stage").getBoundingClientRect();
        this.renderer.resize(stage.width, stage.height, Math.min(window.devicePixelRatio, 2));
        for (const panel of [...this.images, this.cloud])
            panel.layout(stage);
        this.tiles.layout(stage);
        this.redraw();
    }

    redraw() {
        if (!this.#dirty)
            requestAnimationFrame(() => this.#draw());
        this.#dirty = true;
    }

    #draw() {
        this.#dirty = false;
        const began = performance.now();
        const { camera } = this;
        const panels = camera ? [...this.images, this.cloud].filter(({ box }) => box) : [];
        const views = panels.map((panel) => panel.view());
        this.renderer.draw(this.chosen === "" ? this.tiles.views() : views);
        this.cloud.beforeDrawing();
        for (const panel of panels)
            panel.drawOverlay();
        for (const shown of this.#seen())
            if (shown.frame && shown.drawnFrame !== shown.frame)
                this.#count(shown, began);
    }

    // A frame was drawn: for the rate, for its age, and for what the page takes of the processor.
    #count(camera, began) {
        camera.drawnFrame = camera.frame;
        camera.age = Math.max(Date.now() + this.#clockAhead - camera.frame.readMs, 0);
        camera.stream.drawn();
        const took = performance.now() - began;
        this.drawMs = Number.isNaN(this.drawMs) ? took : this.drawMs + (took - this.drawMs) / 30;
    }

    #showTexts() {
        const now = performance.now();
        for (const { camera, port } of this.camera ? this.#ports() : this.tiles.ports())
            showAbsence(port, camera.absence());
        this.tiles.showTexts();
        if (!this.camera || now - this.#textsAt < 250)
            return;
        this.#textsAt = now;
        this.health.refresh(this.camera, this);
        this.regions.showDistance();
        this.#showCursor();
    }

    #ports() {
        return [...this.images, this.cloud].map(({ camera, port }) => ({ camera, port }));
    }

    #showCursor() {
        const { cursor } = this.tools;
        const pixel = cursor && this.camera.pixel(cursor.u, cursor.v);
        if (!pixel)
            return setText(byId("cursor"), "Point at an image to see its values.");
        const { u, v, depth, amplitude, point } = pixel;
        const [x, y, z] = (point ?? []).map((metres) => fixed(1000 * metres, 0));
        const place = point ? `x ${x}  y ${y}  z ${z} mm` : "no depth";
        setText(byId("cursor"), `(${u}, ${v})  ${depth ? `${depth} mm` : "invalid"}  ·  ${place}  ·  amplitude ${amplitude}`);
    }
}

try {
    new Page();
} catch (why) {
    byId("fatal").hidden = false;
    setText(byId("fatal"), why.message);
    throw why;
}
