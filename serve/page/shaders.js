// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The two programs that draw: a plane as an image, and depth as a cloud. Both read the planes as they came.
import { FLYING } from "./geometry.js";
import { HEIGHT, WIDTH } from "./wire.js";

const HEAD = `#version 300 es
precision highp float;
precision highp usampler2D;
const ivec2 SIZE = ivec2(${WIDTH}, ${HEIGHT});
uniform usampler2D depth, amplitude;
uniform sampler2D palettes;
uniform ivec2 palette; // rows of depth and of amplitude
uniform vec4 range;    // of depth, of amplitude

float place(uint value, vec2 limits) {
    return clamp((float(value) - limits.x) / (limits.y - limits.x), 0.0, 1.0);
}
vec3 colour(uint value, vec2 limits, int row) {
    return texelFetch(palettes, ivec2(int(place(value, limits) * 255.0 + 0.5), row), 0).rgb;
}
`;

export const IMAGE = {
    vertex: `${HEAD}
uniform vec4 part; // of the image: left, top, width, height in pixels
out vec2 pixel;
void main() {
    vec2 corner = vec2(gl_VertexID & 1, gl_VertexID >> 1);
    pixel = part.xy + corner * part.zw;
    gl_Position = vec4(2.0 * corner.x - 1.0, 1.0 - 2.0 * corner.y, 0.0, 1.0);
}`,
    fragment: `${HEAD}
uniform bool showsDepth;
in vec2 pixel;
out vec4 result;
void main() {
    ivec2 at = clamp(ivec2(floor(pixel)), ivec2(0), SIZE - 1);
    uint value = texelFetch(depth, at, 0).r;
    if (!showsDepth)
        value = texelFetch(amplitude, at, 0).r;
    vec3 seen = showsDepth ? colour(value, range.xy, palette.x) : colour(value, range.zw, palette.y);
    result = vec4(value == 0u ? vec3(0.0) : seen, 1.0);
}`,
};

export const CLOUD = {
    vertex: `${HEAD}
uniform mat4 matrix;
uniform vec4 lens;     // fx, fy, cx, cy
uniform float height;  // of the view in pixels
uniform bool hidesFlying;
uniform int colouring; // 0 depth in the light of the amplitude, 1 depth, 2 amplitude
out vec3 seen;

bool isFlying(ivec2 at, int own) {
    int apart = 0;
    for (int y = -1; y <= 1; ++y)
        for (int x = -1; x <= 1; ++x) {
            ivec2 near = at + ivec2(x, y);
            bool inside = all(greaterThanEqual(near, ivec2(0))) && all(lessThan(near, SIZE));
            int other = inside ? int(texelFetch(depth, near, 0).r) : own;
            if (other == 0 || float(abs(other - own)) > ${FLYING.share} * float(own))
                ++apart;
        }
    return apart >= ${FLYING.neighbours};
}

void main() {
    ivec2 at = ivec2(gl_VertexID % SIZE.x, gl_VertexID / SIZE.x);
    uint own = texelFetch(depth, at, 0).r;
    gl_PointSize = 1.0;
    gl_Position = vec4(2.0, 2.0, 2.0, 1.0); // outside, which hides it
    if (own == 0u || (hidesFlying && isFlying(at, int(own))))
        return;
    float z = float(own) / 1000.0;
    gl_Position = matrix * vec4((vec2(at) - lens.zw) * z / lens.xy, z, 1.0);
    gl_PointSize = clamp(1.3 * height * 1.1 * z / lens.x / max(gl_Position.w, 0.01), 1.5, 24.0); // so that surfaces are closed
    float light = colour(texelFetch(amplitude, at, 0).r, range.zw, palette.y).g;
    vec3 hue = colour(own, range.xy, palette.x);
    seen = colouring == 2 ? vec3(light) : colouring == 1 ? hue : hue * (0.35 + 0.65 * light);
}`,
    fragment: `#version 300 es
precision mediump float;
in vec3 seen;
out vec4 result;
void main() {
    result = vec4(seen, 1.0);
}`,
};
