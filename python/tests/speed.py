#!/usr/bin/env python3
# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""What Python costs. Measures, and judges nothing; to be run below ``vqd sim --fps 0``.

    vqd sim VQD-HT110 --scene plane --fps 0 -- python/tests/speed.py
"""
import resource
import statistics
import time

import vqd


def main():
    with vqd.Camera() as camera:
        camera.read()
        inner = camera._reads._call
        spent = []

        def timed(*arguments):
            began = time.perf_counter_ns()
            result = inner(*arguments)
            spent.append(time.perf_counter_ns() - began)
            return result

        camera._reads._call = timed
        added = []
        memory = [0, 0]
        for i in range(1500):
            began = time.perf_counter_ns()
            camera.read()
            added.append(time.perf_counter_ns() - began - spent[-1])
            if i in (100, 1499):
                memory[i > 100] = resource.getrusage(resource.RUSAGE_SELF).ru_maxrss
        print(f"the call: {statistics.median(spent) / 1000:.0f} us; read() adds {statistics.median(added) / 1000:.1f} us")
        print(f"memory: {memory[0]} kB after 100 frames, {memory[1]} kB after 1500")
        camera._reads._call = lambda *arguments: 1
        began = time.perf_counter_ns()
        for _ in range(20000):
            camera.read()
        print(f"read() without the call, in a loop: {(time.perf_counter_ns() - began) / 2e7:.1f} us")
        camera._reads._call = inner
        frame = camera.read()
        camera.points(frame)
        began = time.perf_counter_ns()
        for _ in range(100):
            camera.points(frame)
        print(f"points(): {(time.perf_counter_ns() - began) / 1e8:.2f} ms")


if __name__ == "__main__":
    main()
