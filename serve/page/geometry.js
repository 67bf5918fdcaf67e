// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// From pixels to points and to the screen. Points are in metres, x right, y down, z ahead of the camera: right-handed,
// as viewers and robots expect, and as in the files.
import { HEIGHT, WIDTH } from "./wire.js";

export function pointOf({ fx, fy, cx, cy }, u, v, depth) {
    const z = depth / 1000;
    return [((u - cx) * z) / fx, ((v - cy) * z) / fy, z];
}

export const distance = (a, b) => Math.hypot(a[0] - b[0], a[1] - b[1], a[2] - b[2]);

// A pixel at an edge gathers light of what is in front and of what is behind, and shows a depth at which nothing
// stands. Hardly any of its neighbours are at its depth. The shader of the cloud has the same rule.
export const FLYING = { neighbours: 6, share: 0.03 };

export function isFlying(depth, u, v) {
    const own = depth[v * WIDTH + u];
    let apart = 0;
    for (let y = v - 1; y <= v + 1; ++y)
        for (let x = u - 1; x <= u + 1; ++x) {
            const inside = x >= 0 && y >= 0 && x < WIDTH && y < HEIGHT;
            const other = inside ? depth[y * WIDTH + x] : own;
            apart += other === 0 || Math.abs(other - own) > FLYING.share * own;
        }
    return apart >= FLYING.neighbours;
}

// A viewpoint that turns around a target. The matrix is column by column, as WebGL takes it.
export class Orbit {
    yaw = -0.42;
    pitch = 0.3;
    away = 2.5;
    target = [0, 0, 2];

    // At first: from where the camera stands, a little from above and from the side.
    reset(middle) {
        Object.assign(this, { yaw: -0.42, pitch: 0.3, away: 1.3 * middle, target: [0, 0, middle] });
    }

    // The axes of the screen (right, down, ahead) in those of the camera.
    axes() {
        const [cy, sy, cp, sp] = [Math.cos(this.yaw), Math.sin(this.yaw), Math.cos(this.pitch), Math.sin(this.pitch)];
        return [[cy, 0, -sy], [-sy * sp, cp, -cy * sp], [sy * cp, sp, cy * cp]];
    }

    turn(right, down) {
        this.yaw += right;
        this.pitch = Math.min(Math.max(this.pitch + down, -1.55), 1.55);
    }

    zoom(factor) {
        this.away = Math.min(Math.max(this.away * factor, 0.05), 50);
    }

    // By a share of what the screen shows.
    move(right, down) {
        const [x, y] = this.axes();
        for (let i = 0; i < 3; ++i)
            this.target[i] -= this.away * (right * x[i] + down * y[i]);
    }

    // FOCAL is in heights of the screen.
    matrix(aspect) {
        const FOCAL = 1.1;
        const [near, far] = [0.02, 100];
        const [x, y, z] = this.axes();
        const along = (axis) => axis[0] * this.target[0] + axis[1] * this.target[1] + axis[2] * this.target[2];
        const rows = [
            [...x.map((value) => (2 * FOCAL * value) / aspect), (-2 * FOCAL * along(x)) / aspect],
            [...y.map((value) => -2 * FOCAL * value), 2 * FOCAL * along(y)],
            [...z.map((value) => (value * (far + near)) / (far - near)), 0],
            [...z, this.away - along(z)],
        ];
        rows[2][3] = (rows[3][3] * (far + near) - 2 * far * near) / (far - near);
        return new Float32Array([0, 1, 2, 3].flatMap((column) => rows.map((row) => row[column])));
    }
}

// Where a point is on the screen: 0 to 1 from the left and from the top, and how far ahead; null behind the viewpoint.
export function project(matrix, x, y, z) {
    const row = (i) => matrix[i] * x + matrix[4 + i] * y + matrix[8 + i] * z + matrix[12 + i];
    const ahead = row(3);
    return ahead > 0.01 ? { x: 0.5 + row(0) / ahead / 2, y: 0.5 - row(1) / ahead / 2, ahead } : null;
}
