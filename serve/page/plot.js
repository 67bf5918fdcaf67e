// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// A figure over time, and the histogram of depth, on small canvases in the colours of the page.
import { fixed } from "./dom.js";

const TEXT = 11; // pixels

// Makes a canvas as sharp as the screen, and empty.
function prepared(canvas) {
    const { clientWidth: width, clientHeight: height } = canvas;
    const scale = window.devicePixelRatio;
    Object.assign(canvas, { width: Math.round(width * scale), height: Math.round(height * scale) });
    const context = canvas.getContext("2d");
    const style = getComputedStyle(canvas);
    context.scale(scale, scale);
    context.font = `${TEXT}px ${style.fontFamily}`;
    const colour = (name) => style.getPropertyValue(name);
    return { context, width, height, colour };
}

function write(context, text, x, y, align, colour) {
    Object.assign(context, { textAlign: align, fillStyle: colour });
    context.fillText(text, x, y);
}

// Points are times in ms and values; the newest is at the right edge.
export function drawPlot(canvas, points, { span, colour: index, label, unit, decimals }) {
    const { context, width, height, colour } = prepared(canvas);
    const known = points.filter(([, value]) => Number.isFinite(value));
    canvas.dataset.points = known.length;
    write(context, label, 0, TEXT, "left", colour("--text"));
    if (known.length === 0 || width === 0)
        return;
    const values = known.map(([, value]) => value);
    const [low, high] = [Math.min(...values), Math.max(...values)];
    const room = Math.max(high - low, 2 * 10 ** -decimals);
    const middle = (low + high) / 2;
    const [top, bottom] = [TEXT + 8, height - 4];
    const y = (value) => bottom - ((value - middle) / room + 0.5) * (bottom - top);
    const newest = known.at(-1)[0];
    const x = (time) => (width - 1) * (1 - (newest - time) / span);
    context.strokeStyle = colour("--line");
    context.strokeRect(0.5, top - 3.5, width - 1, bottom - top + 7);
    context.strokeStyle = colour(`--region-${index}`);
    context.lineWidth = 1.5;
    context.beginPath();
    for (const [time, value] of known)
        context.lineTo(x(time), y(value));
    context.stroke();
    write(context, fixed(values.at(-1), decimals, unit), width, TEXT, "right", colour("--text"));
    write(context, fixed(high, decimals), 4, top + TEXT, "left", colour("--faint"));
    write(context, fixed(low, decimals), 4, bottom - 2, "left", colour("--faint"));
}

export function drawHistogram(canvas, histogram, { colour: index }) {
    const { context, width, height, colour } = prepared(canvas);
    write(context, "histogram", 0, TEXT, "left", colour("--text"));
    if (!histogram || width === 0)
        return;
    const { from, step, counts } = histogram;
    const most = Math.max(...counts, 1);
    const [top, bottom] = [TEXT + 5, height - TEXT - 4];
    const bar = width / counts.length;
    context.fillStyle = colour(`--region-${index}`);
    counts.forEach((count, i) => {
        const tall = (count / most) * (bottom - top);
        context.fillRect(i * bar, bottom - tall, Math.max(bar - 0.5, 0.5), tall);
    });
    write(context, String(from), 0, height - 1, "left", colour("--faint"));
    write(context, fixed(from + step * counts.length, 0, "mm"), width, height - 1, "right", colour("--faint"));
}
