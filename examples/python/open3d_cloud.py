#!/usr/bin/env python3
# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""Open3D: the points of a frame as a cloud without stray points, in cloud.ply.

    open3d_cloud.py [CAMERA]
"""
import sys

import numpy as np
import open3d
import vqd


def main():
    with vqd.Camera(*sys.argv[1:], undistortion=1, orthogonal=True) as camera:
        frame = camera.read()
        points = camera.points(frame)
    cloud = open3d.geometry.PointCloud()
    # float64, because Open3D copies float32 point by point.
    cloud.points = open3d.utility.Vector3dVector(points[frame.depth > 0].astype(np.float64))
    cloud, _ = cloud.remove_statistical_outlier(nb_neighbors=20, std_ratio=2.0)
    open3d.io.write_point_cloud("cloud.ply", cloud)
    print(f"{len(cloud.points)} points in cloud.ply")


if __name__ == "__main__":
    main()
