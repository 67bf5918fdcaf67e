#!/usr/bin/env python3
# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""matplotlib: depth and amplitude in a window, as fast as it draws; without a display, one picture in live.png.

    matplotlib_live.py [CAMERA]
"""
import os
import sys

import matplotlib

if not (os.environ.get("DISPLAY") or os.environ.get("WAYLAND_DISPLAY")):
    matplotlib.use("Agg")
import matplotlib.pyplot as plt
import vqd


def main():
    figure, axes = plt.subplots(1, 2, figsize=(10, 4))
    with vqd.Camera(*sys.argv[1:], undistortion=1, orthogonal=True) as camera:
        frame = camera.read()
        depth = axes[0].imshow(frame.depth, cmap="turbo", vmin=0, vmax=6000)
        figure.colorbar(depth, ax=axes[0], label="mm")
        amplitude = axes[1].imshow(frame.amplitude, cmap="gray", vmin=0, vmax=2000)
        if matplotlib.get_backend().lower() == "agg":
            figure.savefig("live.png")
            print(f"frame {frame.number} at {frame.temperature:.1f} degrees Celsius in live.png")
            return
        plt.show(block=False)
        for frame in camera.stream(latest=True):  # drawing is slow: always the newest frame
            if not plt.fignum_exists(figure.number):
                return
            depth.set_data(frame.depth)
            amplitude.set_data(frame.amplitude)
            figure.suptitle(f"frame {frame.number}, {frame.temperature:.1f} degrees Celsius")
            plt.pause(0.001)


if __name__ == "__main__":
    main()
