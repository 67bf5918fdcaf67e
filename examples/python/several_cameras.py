#!/usr/bin/env python3
# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""Several cameras in step, each behind a worker. Start the workers first:

    vqd worker -c 24061100000001 & vqd worker -c 24061100000002 &
    several_cameras.py 24061100000001 24061100000002
"""
import sys

import numpy as np
import vqd


def main():
    if len(sys.argv) < 2:
        sys.exit(f"usage: {sys.argv[0]} SERIAL...")
    with vqd.cameras(sys.argv[1:]) as cameras:
        for number, one in enumerate(cameras, 1):
            depths = [float(np.median(frame.depth[frame.depth > 0])) for frame in one.frames]
            print(f"set {number}, taken within {one.skew * 1000:.1f} ms:", ", ".join(f"{depth:.0f} mm" for depth in depths))
            if number == 5:
                return


if __name__ == "__main__":
    main()
