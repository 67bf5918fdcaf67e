// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Colours for depth and greys for amplitude: one table of 256 entries a palette, for the screen and for pictures.

const PALETTES = {
    // From red to violet in equal steps, brightest in the middle, so that detail is visible at both ends.
    spectrum: [
        [132, 8, 4], [186, 32, 2], [226, 66, 8], [248, 112, 26], [252, 164, 46],
        [236, 206, 54], [200, 236, 60], [148, 252, 84], [84, 248, 138], [34, 224, 188],
        [30, 190, 228], [52, 146, 252], [70, 104, 232], [66, 64, 172], [48, 22, 78],
    ],
    // From yellow to dark blue, with a brightness that falls evenly: for those who do not tell red from green.
    viridis: [
        [253, 231, 37], [160, 218, 57], [74, 193, 109], [31, 161, 135], [39, 127, 142],
        [54, 92, 141], [70, 50, 127], [68, 1, 84],
    ],
    grey: [[255, 255, 255], [24, 24, 24]],
};

export const PALETTE_NAMES = Object.keys(PALETTES);
export const ENTRIES = 256;

function interpolated(anchors) {
    const table = new Uint8Array(4 * ENTRIES).fill(255);
    for (let i = 0; i < ENTRIES; ++i) {
        const position = (i / (ENTRIES - 1)) * (anchors.length - 1);
        const low = Math.min(Math.floor(position), anchors.length - 2);
        for (let c = 0; c < 3; ++c)
            table[4 * i + c] = Math.round(anchors[low][c] + (position - low) * (anchors[low + 1][c] - anchors[low][c]));
    }
    return table;
}

// Amplitude falls with the square of the distance, so the root keeps what is far away visible.
const GREYS = Array.from({ length: ENTRIES }, (_, i) => Array(3).fill(255 * Math.sqrt(i / (ENTRIES - 1))));

// RGBA of each palette; the amplitude's greys, from black, come last.
export const TABLES = [...PALETTE_NAMES.map((name) => interpolated(PALETTES[name])), interpolated(GREYS)];
export const AMPLITUDE_TABLE = TABLES.length - 1;

// The range of the values that are not 0, without a few at either end. It is at least 100 wide, so that noise alone
// does not fill the picture with colours.
export function fittingRange(plane, cutPercent) {
    const values = plane.filter((value) => value !== 0).sort();
    if (values.length === 0)
        return { low: 0, high: 100 };
    const percentile = (percent) => values[Math.floor(((values.length - 1) * percent) / 100)];
    const low = percentile(cutPercent);
    return { low, high: Math.max(percentile(100 - cutPercent), low + 100) };
}

// The pixels of a plane as RGB; what was not measured is black.
export function coloured(plane, { low, high }, table) {
    const pixels = new Uint8Array(3 * plane.length);
    plane.forEach((value, i) => {
        if (value === 0)
            return;
        const entry = Math.round(Math.min(Math.max((value - low) / (high - low), 0), 1) * (ENTRIES - 1));
        for (let c = 0; c < 3; ++c)
            pixels[3 * i + c] = table[4 * entry + c];
    });
    return pixels;
}
