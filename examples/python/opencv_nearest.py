#!/usr/bin/env python3
# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""OpenCV: finds what is nearest to the camera, and draws it into nearest.png.

    opencv_nearest.py [CAMERA]
"""
import sys

import cv2
import numpy as np
import vqd


def main():
    with vqd.Camera(*sys.argv[1:], undistortion=1, orthogonal=True, remove_edge=True) as camera:
        frame = camera.read()
    valid = (frame.depth > 0).astype(np.uint8)
    least = np.percentile(frame.depth[valid == 1], 2)
    near = cv2.morphologyEx(valid * (frame.depth < least + 100).astype(np.uint8), cv2.MORPH_OPEN, np.ones((3, 3), np.uint8))
    _, _, boxes, _ = cv2.connectedComponentsWithStats(near)
    x, y, width, height, area = max(boxes[1:], key=lambda box: box[cv2.CC_STAT_AREA], default=(0, 0, 0, 0, 0))
    grey = cv2.convertScaleAbs(frame.depth, alpha=255 / 6000)
    picture = cv2.applyColorMap(255 - grey, cv2.COLORMAP_TURBO) * valid[..., None]
    cv2.rectangle(picture, (x, y), (x + width, y + height), (255, 255, 255))
    cv2.imwrite("nearest.png", picture)
    print(f"{area} pixels about {least:.0f} mm ahead, at column {x + width // 2} and row {y + height // 2}")


if __name__ == "__main__":
    main()
