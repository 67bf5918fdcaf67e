#!/usr/bin/env python3
# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""What the page of vqd serve takes of its main thread: two images and the cloud at 30 frames a second, in chromium-headless-shell.

    page.py VQD [SECONDS]

The time is that of the page's main thread, as the browser counts it, for each frame that the page received in so many seconds (20):
scripts, styles and layout. All tasks of that thread are shown, too; without a graphics card they are mostly not the page's. Ends with 1
above 4 ms."""
import contextlib
import sys
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "tests/page"))
from bench import Server
from chromium import Browser
from page_test import RECEIVED

MOST_MS = 4


def figures(page):
    metrics = {metric["name"]: metric["value"] for metric in page.call("Performance.getMetrics")["metrics"]}
    ours = sum(metrics[name] for name in ("ScriptDuration", "RecalcStyleDuration", "LayoutDuration"))
    return page.value(RECEIVED), 1000 * ours, 1000 * metrics["TaskDuration"]


def main(vqd, seconds):
    with contextlib.closing(Server(vqd, ["VQD-HT120"], "--scene", "room")) as server, contextlib.closing(Browser()) as browser:
        page = browser.page(f"{server.url}/?token={server.token}")
        page.until(RECEIVED + " > 30", "frames on the page")
        page.call("Performance.enable")
        before, began = figures(page), time.monotonic()
        time.sleep(seconds)
        frames, ours, all_tasks = (new - old for new, old in zip(figures(page), before))
        rate = frames / (time.monotonic() - began)
        print(f"the page receives {rate:.1f} frames a second; for each, scripts, styles and layout take {ours / frames:.2f} ms of its main "
              f"thread, all its tasks {all_tasks / frames:.2f} ms")
        if page.errors:
            print(*page.errors, sep="\n")
        return int(ours / frames > MOST_MS or bool(page.errors))


sys.exit(main(str(Path(sys.argv[1]).resolve()), float(sys.argv[2]) if len(sys.argv) > 2 else 20))
