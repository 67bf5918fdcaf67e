#!/usr/bin/env python3
# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""vqd serve that publishes cameras as ROS 2 topics, which another implementation of DDS reads. On loopback only.

    serve_ros_test.py VQD            the receiver is the program in $ROS_RECEIVER"""
import contextlib
import json
import os
import signal
import subprocess
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "system"))
from serve_test import ONE, PATIENCE, SCHEMA, TWO, VQD, Server, expect, frames_go_on, jsonschema, lives, main, until  # noqa: E402


def receive(server, name, kind, camera=ONE):
    """What another DDS has got under this name, all of it the same as the worker's frames."""
    plain = {name: value for name, value in os.environ.items() if name != "LD_PRELOAD"}  # it uses no USB
    socket = until("a worker", lambda: server.camera(camera)["socket"])
    command = [os.environ["ROS_RECEIVER"], str(Path(socket).resolve()), name, kind, "5", "socket=4000000"]
    done = subprocess.run(command, env=plain, capture_output=True, text=True, timeout=PATIENCE)
    expect("what was received", done.returncode == 0, done.stdout[-2000:], done.stderr[-2000:])
    return json.loads(done.stdout)


def published(server, camera=ONE):
    """The process that publishes it, when that runs."""
    state = server.camera(camera)["publish"]
    return state["process"] if state["state"] == "running" and state["error"] is None else None


def check_published():
    """VQD-HT120 VQD-HT120"""
    Path("cameras.json").write_text(json.dumps({"cameras": {
        ONE: {"settings": {"undistortion": 1, "orthogonal": 1}, "publish": {"name": "left", "images": "rect", "depth": "depth"}},
        TWO: {"publish": False}}}))
    with Server("--ros", "--config", "cameras.json") as server:
        first = until("a publisher", lambda: published(server))
        frames_go_on(server)
        receive(server, "left", "depth/image_rect")
        jsonschema.validate(server.api("state"), SCHEMA)
        expect("under its name", server.camera()["publish"]["topics"] == "/left", server.camera()["publish"])
        expect("the other one is not", frames_go_on(server, TWO) and server.camera(TWO)["publish"] is None)

        os.kill(first, signal.SIGKILL)
        second = until("a new one", lambda: published(server) not in (None, first) and published(server))
        expect("it is counted", server.camera()["publish"]["restarts"] == 1, server.camera()["publish"])
        receive(server, "left", "depth/image_rect")
        expect("it was said", "left" in Path("said").read_text() and "vqd-ros was ended by signal 9" in Path("said").read_text())

        session = frames_go_on(server)
        os.kill(server.camera()["process"], signal.SIGKILL)
        until("frames of a new session", lambda: (server.frame(after=10**9, session=session) or (session,))[0] != session)
        receive(server, "left", "depth/image_rect")
        expect("the publisher has waited for it", published(server) == second, server.camera()["publish"])
        server.process.terminate()
        expect("exit code", server.process.wait(PATIENCE) == 0)
        expect("it has ended, too", not lives(second))


def check_another_worker():
    """VQD-HT110"""
    with subprocess.Popen([VQD, "worker", "-q", "--socket", "elsewhere.sock"]) as worker, contextlib.ExitStack() as last:
        last.callback(worker.kill)
        server = last.enter_context(Server("--ros"))
        frames_go_on(server)
        first = until("a publisher", lambda: published(server))
        receive(server, f"vqd_{ONE}", "depth/image_raw")
        worker.terminate()
        worker.wait(PATIENCE)
        until("one for the new worker", lambda: published(server) not in (None, first))
        expect("the old one has ended", not lives(first))
        until("frames", lambda: server.camera()["supervisor"] not in (None, worker.pid) and server.first_frame())
        receive(server, f"vqd_{ONE}", "depth/image_raw")


def check_refused_environment():
    """VQD-HT120"""
    os.environ["ROS_DOMAIN_ID"] = "233"
    with Server("--ros") as server:
        until("it says why", lambda: "refuses its options or its environment" in (server.camera()["publish"]["error"] or ""))
        frames_go_on(server)
        expect("as it stands there", "ROS_DOMAIN_ID is a number from 0 to 232" in Path("said").read_text(), Path("said").read_text())


if __name__ == "__main__":
    for name in ("CYCLONEDDS_URI", "ROS_AUTOMATIC_DISCOVERY_RANGE", "ROS_STATIC_PEERS"):
        os.environ.pop(name, None)
    os.environ["ROS_LOCALHOST_ONLY"] = "1"
    os.environ.setdefault("ROS_DOMAIN_ID", str(1 + os.getpid() % 200))  # nobody else's on this machine
    main(globals())
