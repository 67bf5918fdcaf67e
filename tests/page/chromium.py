# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""Drives Debian's chromium-headless-shell over its debugging pipe: messages are JSON, each ended by a zero byte."""
import base64
import collections
import json
import os
import select
import shutil
import subprocess
import tempfile
import time
from pathlib import Path

import png

PROGRAM = "chromium-headless-shell"
# The tests may run as root and without a graphics card. A page in the background would be slowed down.
FLAGS = ["--no-sandbox", "--disable-gpu-sandbox", "--use-angle=swiftshader", "--enable-unsafe-swiftshader",
         "--disable-background-timer-throttling", "--disable-renderer-backgrounding", "--disable-backgrounding-occluded-windows",
         "--disable-dev-shm-usage", "--no-first-run", "--disable-extensions", "--hide-scrollbars"]
KEYS = {"Enter": ("Enter", 13, "\r"), "Escape": ("Escape", 27, ""), "Tab": ("Tab", 9, ""), "ArrowRight": ("ArrowRight", 39, ""),
        "ArrowLeft": ("ArrowLeft", 37, ""), "ArrowUp": ("ArrowUp", 38, ""), "ArrowDown": ("ArrowDown", 40, "")}
PATIENCE = 60  # seconds: as long as any machine should need


class Browser:
    def __init__(self):
        self.folder = Path(tempfile.mkdtemp())
        self.downloads = self.folder / "downloads"
        self.downloads.mkdir()
        theirs_in, self.out = os.pipe()
        self.into, theirs_out = os.pipe()

        def take_pipes():  # as descriptors 3 and 4, by way of numbers that are neither
            high_in, high_out = os.dup(theirs_in), os.dup(theirs_out)
            while high_in < 5:
                high_in = os.dup(high_in)
            while high_out < 5:
                high_out = os.dup(high_out)
            os.dup2(high_in, 3)
            os.dup2(high_out, 4)

        self.process = subprocess.Popen([PROGRAM, "--remote-debugging-pipe", f"--user-data-dir={self.folder}/profile", *FLAGS],
                                        stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                                        preexec_fn=take_pipes, close_fds=False)
        os.close(theirs_in)
        os.close(theirs_out)
        self.number, self.received, self.answers, self.pages = 0, b"", {}, {}
        self.call("Browser.setDownloadBehavior", behavior="allow", downloadPath=str(self.downloads), eventsEnabled=True)

    def send(self, method, session=None, **parameters):
        self.number += 1
        message = {"id": self.number, "method": method, "params": parameters} | ({"sessionId": session} if session else {})
        os.write(self.out, json.dumps(message).encode() + b"\0")
        return self.number

    def call(self, method, session=None, **parameters):
        number, end = self.send(method, session, **parameters), time.monotonic() + PATIENCE
        while number not in self.answers:
            if not self.take(end - time.monotonic()):
                raise TimeoutError(f"{method} is not answered")
        answer = self.answers.pop(number)
        if "error" in answer:
            raise RuntimeError(f"{method}: {answer['error']['message']}")
        return answer["result"]

    def take(self, seconds):
        """Takes what has come; false when nothing does."""
        if not select.select([self.into], [], [], max(seconds, 0))[0]:
            return False
        part = os.read(self.into, 1 << 20)
        if not part:
            raise ConnectionError("the browser has ended")
        *messages, self.received = (self.received + part).split(b"\0")
        for message in map(json.loads, messages):
            if "id" in message:
                self.answers[message["id"]] = message
            elif message.get("sessionId") in self.pages:
                self.pages[message["sessionId"]].event(message["method"], message["params"])
        return True

    def page(self, url, width=1280, height=720):
        target = self.call("Target.createTarget", url="about:blank")["targetId"]
        return Page(self, self.call("Target.attachToTarget", targetId=target, flatten=True)["sessionId"], url, width, height)

    def downloaded(self, ending):
        """The content of the one file with this ending, as soon as it is whole."""
        end = time.monotonic() + PATIENCE
        while time.monotonic() < end:
            found = [file for file in self.downloads.iterdir() if file.name.endswith(ending)]
            if found:
                content = found[0].read_bytes()
                self.take(0.1)
                if content and found[0].read_bytes() == content:
                    found[0].unlink()
                    return found[0].name, content
            self.take(0.1)
        raise TimeoutError(f"no download {ending}")

    def close(self):
        self.process.terminate()
        self.process.wait()
        os.close(self.into)
        os.close(self.out)
        shutil.rmtree(self.folder, ignore_errors=True)


class Page:
    def __init__(self, browser, session, url, width, height):
        self.browser, self.session, self.errors = browser, session, []
        self.traffic = collections.Counter()
        browser.pages[session] = self
        for domain in ("Page", "Runtime", "Log", "Network"):
            self.call(f"{domain}.enable")
        self.size(width, height)
        self.open(url)

    def call(self, method, **parameters):
        return self.browser.call(method, self.session, **parameters)

    def event(self, method, parameters):
        """Keeps what a developer would see in the console: exceptions, errors, and what the content policy refused."""
        if method == "Runtime.exceptionThrown":
            details = parameters["exceptionDetails"]
            self.errors.append(details.get("exception", {}).get("description", details["text"]))
        elif method == "Runtime.consoleAPICalled" and parameters["type"] in ("error", "warning", "assert"):
            self.errors.append(" ".join(str(one.get("value", one.get("description"))) for one in parameters["args"]))
        elif method == "Log.entryAdded" and parameters["entry"]["level"] in ("error", "warning"):
            self.errors.append(f"{parameters['entry']['text']} {parameters['entry'].get('url', '')}")
        elif method == "Network.requestWillBeSent":
            self.traffic[parameters["request"]["url"].split("?")[0].rsplit("/", 1)[-1]] += 1

    def open(self, url):
        self.call("Page.navigate", url=url)

    def size(self, width, height, scale=1, mobile=False):
        self.call("Emulation.setDeviceMetricsOverride", width=width, height=height, deviceScaleFactor=scale, mobile=mobile)

    def scheme(self, name):
        self.call("Emulation.setEmulatedMedia", features=[{"name": "prefers-color-scheme", "value": name}])

    def value(self, expression):
        answer = self.call("Runtime.evaluate", expression=expression, returnByValue=True, awaitPromise=True)
        if "exceptionDetails" in answer:
            raise RuntimeError(f"{expression}: {answer['exceptionDetails'].get('exception', {}).get('description')}")
        return answer["result"].get("value")

    def until(self, expression, what=None, seconds=PATIENCE):
        """The value of the expression as soon as it is true."""
        end, last = time.monotonic() + seconds, None
        while time.monotonic() < end:
            try:
                last = self.value(expression)
                if last:
                    return last
            except RuntimeError as why:  # while the page loads
                last = why
            self.browser.take(0.05)
        raise AssertionError(f"never: {what or expression} (last: {last})")

    def text(self, selector):
        return self.value(f"document.querySelector({json.dumps(selector)}).textContent")

    def box(self, selector):
        return self.value(f"(() => {{ const b = document.querySelector({json.dumps(selector)}).getBoundingClientRect();"
                          "return [b.left, b.top, b.width, b.height]; })()")

    def mouse(self, kind, x, y, button="none", **more):
        self.call("Input.dispatchMouseEvent", type=kind, x=x, y=y, button=button, clickCount=int(kind != "mouseMoved"), **more)

    def click(self, target):
        """A selector, in whose middle it clicks, or a place."""
        if isinstance(target, str):
            self.value(f"document.querySelector({json.dumps(target)}).scrollIntoView({{block: 'nearest'}})")
            left, top, width, height = self.box(target)
            target = left + width / 2, top + height / 2
        self.mouse("mouseMoved", *target)
        self.mouse("mousePressed", *target, button="left")
        self.mouse("mouseReleased", *target, button="left")

    def drag(self, start, end):
        self.mouse("mouseMoved", *start)
        self.mouse("mousePressed", *start, button="left")
        for part in (0.25, 0.5, 0.75, 1):
            self.mouse("mouseMoved", *(a + part * (b - a) for a, b in zip(start, end)), button="left", buttons=1)
        self.mouse("mouseReleased", *end, button="left")

    def key(self, name):
        key, code, text = KEYS.get(name, (name, ord(name[0].upper()), name))
        self.call("Input.dispatchKeyEvent", type="keyDown", key=key, code=key, windowsVirtualKeyCode=code, text=text)
        self.call("Input.dispatchKeyEvent", type="keyUp", key=key, code=key, windowsVirtualKeyCode=code)

    def fill(self, selector, text):
        """As somebody types it: what was there is replaced, and Tab goes on."""
        self.value(f"document.querySelector({json.dumps(selector)}).focus(), document.querySelector({json.dumps(selector)}).select()")
        self.call("Input.insertText", text=text)
        self.key("Tab")

    def screenshot(self, selector=None):
        """The PNG of an element or of the window."""
        clip = {}
        if selector:
            left, top, width, height = self.box(selector)
            clip = {"clip": {"x": left, "y": top, "width": width, "height": height, "scale": 1}}
        return base64.b64decode(self.call("Page.captureScreenshot", format="png", **clip)["data"])

    def pixels(self, selector):
        return png.decoded(self.screenshot(selector))
