// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// A frame as the worker sends it: a prefix, a header, the amplitude plane and the depth plane. All numbers are
// little-endian, and so are those of every machine that a browser runs on.

export const WIDTH = 320;
export const HEIGHT = 240;
export const PIXELS = WIDTH * HEIGHT;

const PREFIX = 16;
const HEADER = 96;
const VERSION = 1;
const FRAME = 2;
const PACKED = 16;

// Each plane has its low bytes and then its high bytes. They are differences from the pixel before, in zigzag.
function unpack(bytes) {
    if (bytes.length !== 4 * PIXELS)
        throw new Error("The packed planes of a frame have another size.");
    const planes = new Uint16Array(2 * PIXELS);
    for (let plane = 0; plane < 2; ++plane) {
        const low = 2 * PIXELS * plane;
        const high = low + PIXELS;
        let value = 0;
        for (let i = 0; i < PIXELS; ++i) {
            const z = bytes[low + i] | (bytes[high + i] << 8);
            value = (value + ((z >> 1) ^ -(z & 1))) & 0xffff;
            planes[PIXELS * plane + i] = value;
        }
    }
    return planes;
}

export function frameOf(buffer) {
    const view = new DataView(buffer);
    if (view.byteLength < PREFIX + HEADER || view.getUint32(0) !== 0x56514457 /* VQDW */)
        throw new Error("The server's answer is not a frame.");
    if (view.getUint16(4, true) !== VERSION || view.getUint16(6, true) !== FRAME)
        throw new Error("The server's frames have another version than this page.");
    const at = (offset) => PREFIX + offset;
    const flags = view.getUint32(at(72), true);
    const planes = flags & PACKED ? unpack(new Uint8Array(buffer, PREFIX + HEADER)) : new Uint16Array(buffer, PREFIX + HEADER);
    if (planes.length !== 2 * PIXELS)
        throw new Error("The planes of a frame have another size.");
    return {
        session: view.getBigUint64(at(16), true).toString(),
        sequence: Number(view.getBigUint64(at(24), true)),
        readMs: Number(view.getBigInt64(at(32), true)) / 1e6,
        temperature: view.getFloat64(at(64), true),
        dropped: view.getUint32(at(76), true),
        amplitude: planes.subarray(0, PIXELS),
        depth: planes.subarray(PIXELS),
    };
}
