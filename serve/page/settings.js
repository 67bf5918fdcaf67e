// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The settings of a camera, from the server's one table: each with its label, unit, range and choices, and with what the
// camera refuses beside it.
import { Refused, getSettings, post } from "./api.js";
import { byId, element, setText } from "./dom.js";

const SENTENCE = "The server does not answer.";

// The choices that the model has. A model without any keeps the value that it has.
function choicesFor({ choices }, product) {
    return (choices ?? []).filter(({ models }) => !models || models.includes(product));
}

function rangeText(setting) {
    const [{ minimum, maximum }] = setting.values;
    if (setting.ascending)
        return `${minimum} to ${maximum}, ${setting.values.map(({ name }) => name).join(" below ")}`;
    const named = ({ name }) => (setting.values.length > 1 ? `${name} ` : "");
    const texts = setting.values
        .filter(({ type }) => type === "integer")
        .map((value) => `${named(value)}${value.minimum} to ${value.maximum}`.replace(/-/g, "−"));
    return texts.join(", ");
}

class Row {
    #changed = false; // by the user, and the camera does not have it yet

    constructor(setting, product, send) {
        Object.assign(this, { setting, send });
        const readOnly = setting["read-only"];
        this.inputs = setting.values.map((value) => this.#makeInput(value, product, readOnly));
        this.refusal = element("p", { className: "refusal", role: "alert" });
        this.undo = element("button", { type: "button", className: "undo", hidden: true, onclick: () => this.#undo() }, "Undo");
        const title = element("span", { className: "title", id: `label-${setting.name}` }, setting.label);
        const range = rangeText(setting);
        this.node = element(
            "div", { className: "setting", role: "group" },
            title,
            element("span", { className: "values" }, ...this.inputs, element("span", { className: "unit" }, setting.unit ?? "")),
            element("span", { className: "range" }, readOnly ? "read only" : range),
            this.refusal, this.undo,
        );
        this.node.setAttribute("aria-labelledby", title.id);
        this.node.dataset.setting = setting.name;
        this.node.addEventListener("input", () => (this.#changed = true));
        this.node.addEventListener("change", () => this.#apply());
        this.node.addEventListener("keydown", (event) => event.key === "Escape" && this.#undo());
    }

    #makeInput(value, product, disabled) {
        const label = this.setting.values.length > 1 ? `${this.setting.label}, ${value.name}` : this.setting.label;
        const common = { disabled, "aria-label": label };
        const choices = choicesFor(value, product);
        if (value.type === "switch")
            return element("input", { ...common, type: "checkbox", role: "switch", title: value.name });
        if (value.type === "choice")
            return element("select", { ...common, disabled: disabled || choices.length === 0 },
                ...choices.map((choice) => element("option", { value: choice.value }, choice.meaning)));
        if (value.type === "integer")
            return element("input", { ...common, type: "number", min: value.minimum, max: value.maximum, title: value.name });
        return element("input", { ...common, type: "text", size: 8 });
    }

    #values() {
        const valueOf = (input) => (input.value === "" ? NaN : Number(input.value));
        const values = this.inputs.map((input) => (input.type === "checkbox" ? Number(input.checked) : valueOf(input)));
        return values.length === 1 ? values[0] : values;
    }

    async #apply() {
        if (!this.#changed)
            return;
        const values = this.#values();
        if ([values].flat().some((value) => !Number.isInteger(value)))
            return this.refuse("A whole number is missing.");
        this.node.classList.add("pending");
        await this.send({ [this.setting.name]: values });
        this.node.classList.remove("pending");
    }

    #undo() {
        this.#changed = false;
        this.refuse("");
        if (this.node.contains(document.activeElement))
            document.activeElement.blur(); // which is a change to the browser, but none that anybody wants
        this.show(this.value);
    }

    refuse(text) {
        setText(this.refusal, text);
        this.undo.hidden = text === "";
    }

    taken() {
        this.#changed = false;
        this.refuse("");
    }

    // What the camera has; an input that the user is at, or has changed, stays as it is.
    show(value) {
        this.value = value;
        if (this.#changed)
            return;
        [value].flat().forEach((one, i) => {
            const input = this.inputs[i];
            if (!input || input === document.activeElement && input.type !== "checkbox")
                return;
            if (input.type === "checkbox")
                input.checked = one === 1;
            else
                this.#showIn(input, one);
        });
    }

    // A value that is none of the choices is shown too, because the camera has it.
    #showIn(input, value) {
        const text = value === null || value === undefined ? "" : String(value);
        if (input instanceof HTMLSelectElement && text && ![...input.options].some((option) => option.value === text))
            input.append(element("option", { value: text }, text));
        if (input.value !== text)
            input.value = text;
    }
}

export class SettingsPanel {
    #table = null;
    #rows = new Map();
    #madeFor = null; // the product

    constructor() {
        this.body = byId("settings-rows");
        this.message = byId("settings-message");
        byId("download-settings").addEventListener("click", () => this.onDownload?.());
        byId("load-settings").addEventListener("change", (event) => this.#load(event.target));
    }

    setCamera(camera) {
        this.camera = camera;
        this.#madeFor = null;
        this.refresh();
    }

    // Rows are made once for a camera, so that nothing moves while somebody types.
    async refresh() {
        const { camera } = this;
        const { product, settings } = camera.state;
        this.#table ??= await getSettings().catch(() => null);
        if (!this.#table || camera !== this.camera)
            return;
        if (this.#madeFor !== String(product)) {
            this.#madeFor = String(product);
            this.#makeRows(product);
        }
        this.body.inert = !settings;
        for (const [name, row] of this.#rows) {
            row.node.hidden = Boolean(settings) && !(name in settings);
            if (settings)
                row.show(settings[name]);
        }
    }

    #makeRows(product) {
        this.#rows = new Map(this.#table.map((setting) => [setting.name, new Row(setting, product, (values) => this.#send(values))]));
        const groups = this.#grouped();
        this.body.replaceChildren(
            ...[...groups].map(([name, rows]) =>
                element("fieldset", {}, ...(name ? [element("legend", {}, name)] : []), ...rows.map(({ node }) => node))),
        );
    }

    #grouped() {
        const groups = new Map();
        for (const row of this.#rows.values()) {
            const name = row.setting.group ?? "";
            groups.set(name, [...(groups.get(name) ?? []), row]);
        }
        return groups;
    }

    // Sends one setting, or those of a file one after the other, so that each refusal stands beside its own.
    async #send(values) {
        const { camera } = this;
        let refused = 0;
        for (const [name, value] of Object.entries(values)) {
            const row = this.#rows.get(name);
            try {
                const answer = await post(camera.id, "settings", { settings: { [name]: value } });
                Object.assign(camera.state.settings ?? {}, answer.settings);
                row?.taken();
            } catch (why) {
                ++refused;
                row?.refuse(why instanceof Refused ? why.message : SENTENCE);
            }
        }
        this.refresh();
        return refused;
    }

    async #load(input) {
        const [file] = input.files;
        input.value = "";
        let wanted;
        try {
            ({ settings: wanted } = JSON.parse(await file.text()));
            if (typeof wanted !== "object" || wanted === null)
                throw new Error();
        } catch {
            return setText(this.message, `${file.name} is not a file of settings.`);
        }
        // Only what differs is sent, because not every model takes its own factory values back.
        const has = this.camera.state.settings ?? {};
        const isWritable = (name) => this.#rows.has(name) && !this.#rows.get(name).setting["read-only"];
        const differs = ([name, value]) => isWritable(name) && JSON.stringify(value) !== JSON.stringify(has[name]);
        const differing = Object.entries(wanted).filter(differs);
        const unknown = Object.keys(wanted).filter((name) => !this.#rows.has(name));
        const refused = await this.#send(Object.fromEntries(differing));
        const words = [`${differing.length - refused} settings of ${file.name} were set`];
        if (refused)
            words.push(`${refused} were refused`);
        if (unknown.length)
            words.push(`there is no setting ${unknown.join(", ")}`);
        setText(this.message, words.join("; ") + ".");
    }
}
