// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Frames as files: exact and coloured PNG, NumPy arrays, and a cloud for other programs.
import { isFlying, pointOf } from "./geometry.js";
import { HEIGHT, PIXELS, WIDTH } from "./wire.js";

const text = (string) => new TextEncoder().encode(string);

const CRC_TABLE = Uint32Array.from({ length: 256 }, (_, n) => {
    for (let bit = 0; bit < 8; ++bit)
        n = n & 1 ? 0xedb88320 ^ (n >>> 1) : n >>> 1;
    return n;
});

function crc32(bytes) {
    let crc = 0xffffffff;
    for (const byte of bytes)
        crc = CRC_TABLE[(crc ^ byte) & 0xff] ^ (crc >>> 8);
    return (crc ^ 0xffffffff) >>> 0;
}

function chunk(type, content) {
    const bytes = new Uint8Array(12 + content.length);
    const view = new DataView(bytes.buffer);
    view.setUint32(0, content.length);
    bytes.set(text(type), 4);
    bytes.set(content, 8);
    view.setUint32(8 + content.length, crc32(bytes.subarray(4, 8 + content.length)));
    return bytes;
}

// Rows of samples as PNG has them, most significant byte first.
async function png(samples, { bits, colourType }) {
    const row = samples.length / HEIGHT;
    const rows = new Uint8Array(samples.length + HEIGHT); // each row after the number of its filter, 0
    for (let y = 0; y < HEIGHT; ++y)
        rows.set(samples.subarray(y * row, (y + 1) * row), y * (row + 1) + 1);
    const packed = new Blob([rows]).stream().pipeThrough(new CompressionStream("deflate"));
    const header = new Uint8Array(13);
    new DataView(header.buffer).setUint32(0, WIDTH);
    new DataView(header.buffer).setUint32(4, HEIGHT);
    header.set([bits, colourType], 8);
    const signature = new Uint8Array([0x89, 0x50, 0x4e, 0x47, 13, 10, 26, 10]);
    const data = new Uint8Array(await new Response(packed).arrayBuffer());
    return new Blob([signature, chunk("IHDR", header), chunk("IDAT", data), chunk("IEND", new Uint8Array())], { type: "image/png" });
}

export function exactPng(plane) {
    const samples = new Uint8Array(2 * PIXELS);
    const view = new DataView(samples.buffer);
    plane.forEach((value, i) => view.setUint16(2 * i, value));
    return png(samples, { bits: 16, colourType: 0 });
}

export const colourPng = (rgb) => png(rgb, { bits: 8, colourType: 2 });

// NumPy's format 1.0: the header ends with a line break at a multiple of 64 bytes.
export function npy(plane) {
    const shape = `{'descr': '<u2', 'fortran_order': False, 'shape': (${HEIGHT}, ${WIDTH}), }`;
    const header = shape.padEnd(117) + "\n";
    return new Blob([new Uint8Array([0x93]), text("NUMPY"), new Uint8Array([1, 0, header.length, 0]), text(header), plane]);
}

export function ply({ depth, amplitude }, lens, hidesFlying) {
    const points = [];
    depth.forEach((value, i) => {
        const [u, v] = [i % WIDTH, Math.floor(i / WIDTH)];
        if (value !== 0 && !(hidesFlying && isFlying(depth, u, v)))
            points.push(...pointOf(lens, u, v, value), amplitude[i]);
    });
    const header = `ply
format binary_little_endian 1.0
comment metres; x right, y down, z ahead of the camera
element vertex ${points.length / 4}
property float x
property float y
property float z
property float intensity
end_header
`;
    return new Blob([text(header), new Float32Array(points)]);
}

export function download(blob, name) {
    const link = document.createElement("a");
    link.href = URL.createObjectURL(blob);
    link.download = name;
    link.click();
    setTimeout(() => URL.revokeObjectURL(link.href), 60000);
}
