#!/usr/bin/env python3
# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""numpy: the mean and the noise of each pixel over 30 frames, kept in a file.

    mean_depth.py [CAMERA]
"""
import sys

import numpy as np
import vqd

FRAMES = 30


def main():
    with vqd.Camera(*sys.argv[1:], undistortion=2, orthogonal=True) as camera:
        depths = np.stack([camera.read().depth for _ in range(FRAMES)]).astype(np.float32)
    depths[depths == 0] = np.nan  # invalid
    seen = np.isfinite(depths).sum(axis=0) > FRAMES / 2
    mean = np.where(seen, np.nanmean(np.where(seen, depths, 0), axis=0), np.nan)
    noise = np.where(seen, np.nanstd(np.where(seen, depths, 0), axis=0), np.nan)
    np.savez("mean_depth.npz", mean=mean, noise=noise)
    print(f"{np.nanmedian(mean):.0f} mm, noise {np.nanmedian(noise):.1f} mm, {seen.mean():.0%} of the pixels")


if __name__ == "__main__":
    main()
