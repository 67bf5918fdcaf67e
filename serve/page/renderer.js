// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// One WebGL canvas behind all views of the page, because browsers allow few of them. Each view is a rectangle of it.
import { ENTRIES, TABLES } from "./colours.js";
import { CLOUD, IMAGE } from "./shaders.js";
import { HEIGHT, PIXELS, WIDTH } from "./wire.js";

const COLOURINGS = { shaded: 0, depth: 1, amplitude: 2 };

export class Renderer {
    #textures = new Map(); // of each camera
    #lost = false;

    constructor(canvas) {
        this.canvas = canvas;
        this.gl = canvas.getContext("webgl2", { alpha: true, antialias: false, preserveDrawingBuffer: false });
        if (!this.gl)
            throw new Error("This browser has no WebGL 2, which the page needs to draw.");
        canvas.addEventListener("webglcontextlost", (event) => {
            event.preventDefault();
            this.#lost = true;
        });
        canvas.addEventListener("webglcontextrestored", () => this.#prepare());
        this.#prepare();
    }

    #prepare() {
        const { gl } = this;
        this.#lost = false;
        this.#textures.clear();
        this.image = this.#program(IMAGE);
        this.cloud = this.#program(CLOUD);
        gl.pixelStorei(gl.UNPACK_ALIGNMENT, 1);
        gl.activeTexture(gl.TEXTURE2);
        this.#texture(gl.RGBA8, ENTRIES, TABLES.length);
        const pixels = new Uint8Array(TABLES.flatMap((table) => [...table]));
        gl.texSubImage2D(gl.TEXTURE_2D, 0, 0, 0, ENTRIES, TABLES.length, gl.RGBA, gl.UNSIGNED_BYTE, pixels);
        gl.bindVertexArray(gl.createVertexArray());
    }

    #program({ vertex, fragment }) {
        const { gl } = this;
        const program = gl.createProgram();
        for (const [kind, source] of [[gl.VERTEX_SHADER, vertex], [gl.FRAGMENT_SHADER, fragment]]) {
            const shader = gl.createShader(kind);
            gl.shaderSource(shader, source);
            gl.compileShader(shader);
            gl.attachShader(program, shader);
        }
        gl.linkProgram(program);
        if (!gl.getProgramParameter(program, gl.LINK_STATUS) && !gl.isContextLost())
            throw new Error(`This browser cannot draw: ${gl.getProgramInfoLog(program)}`);
        const at = {};
        for (let i = 0; i < gl.getProgramParameter(program, gl.ACTIVE_UNIFORMS); ++i) {
            const { name } = gl.getActiveUniform(program, i);
            at[name] = gl.getUniformLocation(program, name);
        }
        return { program, at };
    }

    #texture(format, width, height) {
        const { gl } = this;
        const texture = gl.createTexture();
        gl.bindTexture(gl.TEXTURE_2D, texture);
        gl.texStorage2D(gl.TEXTURE_2D, 1, format, width, height);
        for (const filter of [gl.TEXTURE_MIN_FILTER, gl.TEXTURE_MAG_FILTER])
            gl.texParameteri(gl.TEXTURE_2D, filter, gl.NEAREST);
        return texture;
    }

    // Binds the planes of a camera, after sending them when they are new.
    #bind(id, frame) {
        const { gl } = this;
        let own = this.#textures.get(id);
        if (!own)
            this.#textures.set(id, (own = { planes: [] }));
        [frame.depth, frame.amplitude].forEach((plane, unit) => {
            gl.activeTexture(gl.TEXTURE0 + unit);
            own.planes[unit] ??= this.#texture(gl.R16UI, WIDTH, HEIGHT); // which binds it to this unit
            gl.bindTexture(gl.TEXTURE_2D, own.planes[unit]);
            if (own.frame !== frame)
                gl.texSubImage2D(gl.TEXTURE_2D, 0, 0, 0, WIDTH, HEIGHT, gl.RED_INTEGER, gl.UNSIGNED_SHORT, plane);
        });
        own.frame = frame;
    }

    forget(id) {
        const own = this.#textures.get(id);
        own?.planes.forEach((texture) => this.gl.deleteTexture(texture));
        this.#textures.delete(id);
    }

    // Makes the canvas as large as its box on the screen; `scale` is in pixels of the screen.
    resize(width, height, scale) {
        this.scale = scale;
        const [w, h] = [Math.round(width * scale), Math.round(height * scale)];
        if (this.canvas.width !== w || this.canvas.height !== h)
            Object.assign(this.canvas, { width: w, height: h });
    }

    // Draws all views: each has `kind` (depth, amplitude, cloud), `box` in CSS pixels of the canvas, `camera`, `look`.
    draw(views) {
        const { gl, canvas } = this;
        if (this.#lost)
            return;
        gl.disable(gl.SCISSOR_TEST);
        gl.clearColor(0, 0, 0, 0);
        gl.clear(gl.COLOR_BUFFER_BIT | gl.DEPTH_BUFFER_BIT);
        gl.enable(gl.SCISSOR_TEST);
        for (const view of views) {
            const { left, top, width, height } = view.box;
            const s = this.scale;
            const box = [left * s, canvas.height - (top + height) * s, width * s, height * s].map(Math.round);
            gl.viewport(...box);
            gl.scissor(...box);
            gl.clearColor(0, 0, 0, 1);
            gl.clear(gl.COLOR_BUFFER_BIT);
            if (!view.camera.frame)
                continue;
            this.#bind(view.camera.id, view.camera.frame);
            if (view.kind === "cloud")
                this.#drawCloud(view, box[3]);
            else
                this.#drawImage(view);
        }
    }

    #use({ program, at }, { camera }) {
        const { gl } = this;
        const { depthRange, amplitudeRange, palettes } = camera.look;
        gl.useProgram(program);
        gl.uniform1i(at.depth, 0);
        gl.uniform1i(at.amplitude, 1);
        gl.uniform1i(at.palettes, 2);
        gl.uniform2i(at.palette, ...palettes);
        gl.uniform4f(at.range, depthRange.low, depthRange.high, amplitudeRange.low, amplitudeRange.high);
    }

    #drawImage(view) {
        const { gl } = this;
        this.#use(this.image, view);
        gl.disable(gl.DEPTH_TEST);
        gl.uniform4f(this.image.at.part, ...view.part);
        gl.uniform1i(this.image.at.showsDepth, view.kind === "depth");
        gl.drawArrays(gl.TRIANGLE_STRIP, 0, 4);
    }

    #drawCloud(view, height) {
        const { gl } = this;
        const { at } = this.cloud;
        const { lens } = view.camera;
        if (!lens)
            return;
        this.#use(this.cloud, view);
        gl.enable(gl.DEPTH_TEST);
        gl.uniformMatrix4fv(at.matrix, false, view.matrix);
        gl.uniform4f(at.lens, lens.fx, lens.fy, lens.cx, lens.cy);
        gl.uniform1f(at.height, height);
        gl.uniform1i(at.hidesFlying, view.hidesFlying);
        gl.uniform1i(at.colouring, COLOURINGS[view.colouring]);
        gl.drawArrays(gl.POINTS, 0, PIXELS);
    }
}
