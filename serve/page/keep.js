// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// What is kept: the settings in the EEPROM or as a file, recordings on the server, and pictures of the present frame.
import { Refused, post } from "./api.js";
import { byId, fixed, setText } from "./dom.js";
import { coloured, TABLES } from "./colours.js";
import { colourPng, download, exactPng, npy, ply } from "./files.js";

const sentence = (why) => (why instanceof Refused ? why.message : "The server does not answer.");
const megabytes = (bytes) => (bytes >= 1e9 ? fixed(bytes / 1e9, 1, "GB") : fixed(bytes / 1e6, 1, "MB"));

// Runs a request behind a button, which does not take a second press meanwhile.
async function during(button, message, action) {
    button.disabled = true;
    try {
        setText(message, (await action()) ?? "");
    } catch (why) {
        setText(message, sentence(why));
    }
    button.disabled = false;
}

// An EEPROM wears out and belongs to one camera, so saving asks for the serial number.
export class SaveDialog {
    constructor() {
        this.dialog = byId("save-dialog");
        this.typed = byId("save-serial");
        this.button = byId("save-now");
        byId("save").addEventListener("click", () => this.#open());
        byId("save-cancel").addEventListener("click", () => this.dialog.close());
        this.typed.addEventListener("input", () => this.#judge());
        this.typed.addEventListener("keydown", (event) => event.key === "Enter" && !this.button.disabled && this.button.click());
        this.button.addEventListener("click", () => this.#save());
    }

    setCamera(camera) {
        this.camera = camera;
        this.dialog.close();
    }

    #open() {
        setText(byId("save-expected"), this.camera.state.serial ?? "unknown");
        setText(byId("save-message"), "");
        this.typed.value = "";
        this.#judge();
        this.dialog.showModal();
    }

    #judge() {
        this.button.disabled = !this.camera.state.serial || this.typed.value.trim() !== this.camera.state.serial;
    }

    async #save() {
        const { camera } = this;
        await during(this.button, byId("save-message"), async () => {
            setText(byId("save-message"), "Saving. The frames pause meanwhile.");
            const { written } = await post(camera.id, "save", { serial: this.typed.value.trim() });
            return written === false ? "The EEPROM has these settings already, so nothing was written."
                : "Saved. What it held before was backed up.";
        });
        this.#judge();
    }
}

export class RecordPanel {
    constructor() {
        this.name = byId("record-name");
        this.button = byId("record-button");
        this.message = byId("record-message");
        byId("record-form").addEventListener("submit", (event) => {
            event.preventDefault();
            this.#press();
        });
    }

    setCamera(camera, server) {
        this.camera = camera;
        setText(this.message, "");
        this.refresh(server);
    }

    get #isRecording() {
        return this.camera.state.recording?.state === "recording";
    }

    #press() {
        const { camera } = this;
        const body = this.#isRecording ? { stop: true } : { name: this.name.value.trim() };
        if (body.name === "")
            return setText(this.message, "A recording needs a name.");
        during(this.button, this.message, async () => {
            const { recording } = await post(camera.id, "record", body);
            camera.state.recording = recording ?? camera.state.recording;
            this.refresh();
        });
    }

    // A recording that has ended stays in the state, and here, until the next one.
    refresh(server = this.server) {
        this.server = server;
        const { recording } = this.camera.state;
        setText(this.button, this.#isRecording ? "Stop" : "Record");
        this.button.classList.toggle("recording", this.#isRecording);
        this.name.disabled = this.#isRecording;
        byId("record-progress").hidden = !recording;
        if (recording) {
            setText(byId("record-state"), recording.error ?? recording.state);
            setText(byId("record-file"), recording.file ?? (recording.files ?? []).join(", "));
            setText(byId("record-time"), fixed(recording.seconds, 1, "s"));
            setText(byId("record-frames"), fixed(recording.frames));
            setText(byId("record-dropped"), fixed(recording.dropped + (recording["not-recorded"] ?? 0)));
            setText(byId("record-bytes"), megabytes(recording.bytes));
        }
        const { disk, recordings } = server ?? {};
        const where = recordings ? `Recordings are kept in ${recordings} on the server.` : "The server has no folder for recordings.";
        const room = disk ? ` ${megabytes(disk.free)} are free${disk.low ? ", which is too little: nothing is recorded" : ""}.` : "";
        setText(byId("record-where"), where + room);
    }
}

// The present frame as files. While the page pauses, all of them are of the same frame.
export class Snapshots {
    #kinds = {
        "depth-colour": ["-depth-colour.png",
            ({ depth }, { look }) => colourPng(coloured(depth, look.depthRange, TABLES[look.palettes[0]]))],
        "depth-exact": ["-depth.png", ({ depth }) => exactPng(depth)],
        "amplitude-exact": ["-amplitude.png", ({ amplitude }) => exactPng(amplitude)],
        "depth-npy": ["-depth.npy", ({ depth }) => npy(depth)],
        "amplitude-npy": ["-amplitude.npy", ({ amplitude }) => npy(amplitude)],
        cloud: [".ply", (frame, { lens }) => ply(frame, lens, byId("hide-flying").checked)],
    };

    constructor() {
        byId("snapshots").addEventListener("click", ({ target }) => {
            const kind = this.#kinds[target.dataset.snapshot];
            if (kind)
                this.#take(...kind);
        });
    }

    setCamera(camera) {
        this.camera = camera;
    }

    async #take(ending, make) {
        const { camera } = this;
        const { frame } = camera;
        if (!frame || (ending === ".ply" && !camera.lens))
            return setText(byId("snapshot-message"), "There is no frame yet.");
        download(await make(frame, camera), fileName(camera, new Date(frame.readMs)) + ending);
        setText(byId("snapshot-message"), `Frame ${frame.sequence} was saved.`);
    }
}

const fileName = ({ state, id }, time) => `vqd-${state.serial ?? id}-${time.toISOString().replace(/[:.]/g, "-")}`;

// As vqd dump writes them, without the lens: that belongs to one camera, and these may go to others.
export function downloadSettings(camera) {
    const { serial, product, port, settings } = camera.state;
    const document = { schema: "vqd.dump/1", camera: { serial, product, port }, settings };
    download(new Blob([JSON.stringify(document, null, 2) + "\n"]), `vqd-${serial ?? camera.id}-settings.json`);
}
