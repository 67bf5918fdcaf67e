#!/usr/bin/env python3
# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""Opens the page of vqd serve in a browser and looks at what a user would see.

  tests/page/page_test.py VQD [--pages FOLDER]

--pages keeps pictures of the page: one camera, and four of which one is unplugged. The first failure ends the test. Frames are counted
when they are received, because drawing without a graphics card is slow.
"""
import json
import math
import os
import signal
import struct
import sys
import time
from pathlib import Path

import png
from bench import FIRST, HEIGHT, PIXELS, WIDTH, Server, place_of_colour, point_of, still_spots
from chromium import Browser

LOW, HIGH = 1000, 6000
RECEIVED = ("Number([...document.querySelectorAll('#details dt')].find(d => d.textContent === 'Frames received here')"
            ".nextSibling.textContent)")


def same(found, expected, tolerance, what):
    if not math.isclose(found, expected, rel_tol=tolerance, abs_tol=tolerance):
        raise AssertionError(f"{what}: {found}, expected {expected}")


def true(condition, what):
    if not condition:
        raise AssertionError(what)


def image_box(page, panel):
    """Where the image is in its port: as large as fits, in the middle."""
    left, top, width, height = page.box(f"#{panel} .port")
    scale = min(width / WIDTH, height / HEIGHT)
    return left + (width - WIDTH * scale) / 2, top + (height - HEIGHT * scale) / 2, scale


def pixel_place(page, panel, u, v):
    left, top, scale = image_box(page, panel)
    return round(left + (u + 0.5) * scale), round(top + (v + 0.5) * scale)  # as a mouse has it


def cursor(page):
    """The numbers that the page shows for the cursor: column, row, depth, x, y, z, amplitude."""
    text = page.text("#cursor").replace("−", "-")
    for separator in "(),xyz·":
        text = text.replace(separator, " ")
    return [int(word) for word in text.split() if word.lstrip("-").isdigit()]


def marker(page):
    return page.value("(() => { const c = document.querySelector('#cloud svg .cross'), p = c.ownerSVGElement.getBoundingClientRect();"
                      "return [p.left + Number(c.getAttribute('cx')), p.top + Number(c.getAttribute('cy'))]; })()")


def clear_pixels(page, port):
    """What is drawn in a port while nothing stands over it, as it may on a machine that is slow for a moment."""
    clear = f"document.querySelector('{port} .absence').hidden"
    for _ in range(20):
        page.until(clear)
        picture = page.pixels(port)
        if page.value(clear):
            return picture
    raise AssertionError(f"frames of {port} come too seldom")


def colour_at(picture, x, y):
    x, y = min(max(int(x), 0), picture.width - 1), min(max(int(y), 0), picture.height - 1)
    return tuple(picture.rows[y][picture.channels * x:picture.channels * x + 3])


def the_address_with_the_token_leads_to_the_page(server, page):
    page.until(RECEIVED + " > 5", "frames on the page")
    true("token" not in page.value("location.href"), "the token stays in the address")
    true(page.value("document.cookie") == "", "a script of the page can read the token")


def the_images_show_the_raw_values_in_the_colours_of_the_range(server, page):
    for panel, low, high in (("depth", LOW, HIGH), ("amplitude", 0, 400)):
        page.fill(f"#{panel} input[aria-label*=lower]", str(low))
        page.fill(f"#{panel} input[aria-label*=upper]", str(high))
    spots = still_spots(server)
    true(len(spots) > 60, f"only {len(spots)} spots stand still")
    page.mouse("mouseMoved", 640, 20)
    for panel in ("depth", "amplitude"):
        picture, (left, top, scale) = clear_pixels(page, f"#{panel} .port"), image_box(page, panel)
        port_left, port_top = page.box(f"#{panel} .port")[:2]
        wrong = []
        for (u, v), (amplitude, depth) in spots.items():
            seen = colour_at(picture, left - port_left + (u + 0.5) * scale, top - port_top + (v + 0.5) * scale)
            if panel == "depth":
                place, off = place_of_colour(seen)
                good = off < 12 and abs(LOW + place * (HIGH - LOW) - depth) < 0.03 * depth + 40
            else:
                good = abs(seen[1] - 255 * math.sqrt(min(amplitude / 400, 1))) < 24 and max(seen) - min(seen) < 3
            wrong += [] if good else [(u, v, amplitude, depth, seen)]
        true(len(wrong) < 0.15 * len(spots), f"{panel}: {len(wrong)} of {len(spots)} spots are wrong: {wrong[:4]}")


def the_range_stays_when_the_page_is_loaded_again(server, page):
    page.open(f"{server.url}/")
    page.until(RECEIVED + " > 2")
    same(page.value("Number(document.querySelector('#depth input').value)"), LOW, 0, "the lower end")
    page.click("#depth .controls button")
    page.until(f"Number(document.querySelector('#depth input').value) !== {LOW}", "Fit sets another range")


def the_cursor_shows_value_point_and_amplitude_of_its_pixel(server, page):
    lens = server.camera()["lens"]["depth"]
    spots = still_spots(server, 24)
    for panel, index in (("depth", 0), ("amplitude", -1)):
        (u, v), (amplitude, depth) = sorted(spots.items())[index]
        page.click(pixel_place(page, panel, u, v))
        page.until(f"document.querySelector('#cursor').textContent.startsWith('({u}, {v})')", f"the cursor at {u}, {v}")
        found = cursor(page)
        for value, expected in zip(found[2:], [depth, *point_of(lens, u, v, depth), amplitude]):
            true(abs(value - expected) < 0.12 * abs(expected) + 12, f"the cursor at {u}, {v} shows {found}, depth is {depth}")
    page.value("document.querySelector('#depth .port').focus()")
    page.key("ArrowLeft")
    page.key("ArrowUp")
    page.until(f"document.querySelector('#cursor').textContent.startsWith('({u - 1}, {v - 1})')", "the arrow keys move the cursor")


def the_wheel_zooms_both_images_about_the_pointer(_server, page):
    u, v = 200, 90
    place = pixel_place(page, "depth", u, v)
    page.mouse("mouseMoved", *place)
    page.until(f"document.querySelector('#cursor').textContent.startsWith('({u}, {v})')")
    page.mouse("mouseWheel", *place, deltaX=0, deltaY=-800)
    page.until("document.querySelector('#amplitude svg').viewBox.baseVal.width < 100", "both images are zoomed")
    page.mouse("mouseMoved", place[0] + 30, place[1])
    page.until("!document.querySelector('#cursor').textContent.startsWith('(200,')")
    true(abs(cursor(page)[0] - u) < 10, f"the pointer is at {cursor(page)}, not near {u}, {v}")
    page.mouse("mouseMoved", *place)
    page.until(f"document.querySelector('#cursor').textContent.startsWith('({u}, {v})')", "the pixel under the pointer stays there")
    page.click("[data-zoom='0']")
    page.until("document.querySelector('#depth svg').viewBox.baseVal.width === 320")


def the_cloud_turns_and_gives_back_the_pixel_under_the_pointer(server, page):
    page.value("document.querySelector('#colouring').value = 'depth'")
    page.value("document.querySelector('#colouring').dispatchEvent(new Event('change'))")
    page.fill("#depth input[aria-label*=lower]", str(LOW))
    page.fill("#depth input[aria-label*=upper]", str(HIGH))
    places = {}
    for name, (u, v) in {"left": (60, 180), "right": (250, 180), "top": (150, 20), "box": (95, 191)}.items():
        page.click(pixel_place(page, "depth", u, v))
        page.until(f"document.querySelector('#cursor').textContent.startsWith('({u}, {v})')")
        page.until("!!document.querySelector('#cloud svg .cross')")
        places[name] = marker(page)
    true(places["left"][0] < places["right"][0], f"the cloud is a mirror image: {places}")
    true(places["top"][1] < places["box"][1], f"the cloud is upside down: {places}")
    left, top = page.box("#cloud .port")[:2]
    def drawn_there():
        picture, depth = clear_pixels(page, "#cloud .port"), server.frame()[1][191 * WIDTH + 95]
        around = [place_of_colour(colour_at(picture, places["box"][0] - left + dx, places["box"][1] - top + dy))
                  for dx in (-9, -8, 8, 9) for dy in (-4, 0, 4)]
        return sum(off < 15 and abs(LOW + place * (HIGH - LOW) - depth) < 250 for place, off in around) > len(around) / 2

    server.wait(drawn_there, "the points are drawn where the mark is")
    for _ in range(40):  # the ball may be in between, too
        page.mouse("mouseMoved", *places["top"])
        page.mouse("mouseMoved", *places["box"])
        time.sleep(0.3)
        if found := math.dist(cursor(page)[:2], (95, 191)) < 8:
            break
    true(found, f"in the cloud the pointer finds {cursor(page)}")
    before = marker(page)
    page.drag((left + 200, top + 60), (left + 260, top + 60))
    page.until(f"Math.abs(Number(document.querySelector('#cloud svg .cross').getAttribute('cx')) + {left} - {before[0]}) > 5",
               "a drag turns the cloud")
    page.click("#reset-cloud")


def flying_pixels_disappear_on_request(_server, page):
    """Behind the ball there are points at depths at which nothing stands. What is hidden leaves black."""
    def black():
        picture = clear_pixels(page, "#cloud .port")
        return sum(not any(row[i:i + 3]) for row in picture.rows for i in range(0, len(row), picture.channels))

    shown = black()
    page.click("#hide-flying")
    time.sleep(1)
    hidden = black()
    page.click("#hide-flying")
    true(hidden > shown + 200, f"{shown} pixels of the cloud are black with flying pixels, {hidden} without")


def a_distance_is_that_of_the_two_points(server, page):
    lens = server.camera()["lens"]["depth"]
    page.click("[name=mode][value=distance]")
    _, depth = server.frame()
    ends = [(150, 60), (95, 200)]
    for u, v in ends:
        page.click(pixel_place(page, "depth", u, v))
    page.until("document.querySelector('#distance-value').textContent.includes('mm')")
    found = float(page.text("#distance-value").split("\u202f")[0])
    same(found, math.dist(*(point_of(lens, u, v, depth[v * WIDTH + u]) for u, v in ends)), 0.05, "the distance")
    page.click("#clear-distance")
    page.click("[name=mode][value=look]")


def a_region_shows_the_figures_of_the_worker(server, page):
    page.click("[name=mode][value=region]")
    page.drag(pixel_place(page, "depth", 100, 70), pixel_place(page, "depth", 139, 99))
    region = server.wait(lambda: server.camera()["regions"], "a region")[0]
    same_region = {key: region[key] for key in ("x", "y", "width", "height")}
    true(same_region == {"x": 100, "y": 70, "width": 40, "height": 30}, f"the region is {same_region}")
    page.until("Number(document.querySelector('#plot').dataset.points) >= 3", "a plot over time")

    def agree():  # which takes a moment when the ball has just passed
        figures = server.camera()["regions"][0]["figures"]
        shown = page.value("[...document.querySelectorAll('#regions tbody td')].map(c => parseFloat(c.textContent))")
        _, depth = server.frame()
        mine = [depth[v * WIDTH + u] for v in range(70, 100) for u in range(100, 140) if depth[v * WIDTH + u]]
        plane = figures["plane"] or {"rms": 0, "tilt": 0}
        mean, fill = sum(mine) / len(mine), 100 * len(mine) / 1200
        expected = [mean, figures["sigma-space"], figures["sigma-time"], plane["rms"], plane["tilt"], fill]
        return all(abs(value - wanted) < share * wanted + 0.3
                   for value, wanted, share in zip(shown, expected, (0.01, 0.2, 0.2, 0.2, 0.2, 0.02), strict=False))

    server.wait(agree, "the figures on the page are those of the worker, and the mean is that of the frame")
    page.click("#regions .remove")
    server.wait(lambda: not server.camera()["regions"], "the region is removed")


def a_setting_reaches_the_camera_and_a_refusal_stands_beside_it(server, page):
    page.fill("[data-setting=offset] input", "17")
    server.wait(lambda: server.camera()["settings"]["offset"] == 17, "the offset")
    server.set(**{"check-threshold": 33})
    page.until("document.querySelector('[data-setting=check-threshold] input').value === '33'", "what another program has set")
    page.fill("[data-setting=offset] input", "300")
    refusal = page.until("document.querySelector('[data-setting=offset] .refusal').textContent")
    true("255" in refusal, f"the refusal says: {refusal}")
    true(server.camera()["settings"]["offset"] == 17, "a value that was refused was set")
    server.set(**{"check-threshold": 34})
    page.until("document.querySelector('[data-setting=check-threshold] input').value === '34'")
    true(page.value("document.querySelector('[data-setting=offset] input').value") == "300", "what was refused cannot be corrected")
    page.click("[data-setting=offset] .undo")
    page.until("document.querySelector('[data-setting=offset] input').value === '17'", "Undo")
    page.value("document.querySelector('[data-setting=scatter-threshold] input').focus()")
    page.call("Input.insertText", text="9")
    server.set(**{"scatter-threshold": 5})
    page.until("document.querySelector('[data-setting=offset] input').value === '17'")
    time.sleep(1)
    typed = page.value("document.querySelector('[data-setting=scatter-threshold] input').value")
    true("9" in typed, f"a field changes while somebody types: {typed}")
    page.key("Escape")
    page.until("document.querySelector('[data-setting=scatter-threshold] input').value === '5'", "Escape leaves off")


def settings_go_into_a_file_and_come_from_it(server, page):
    page.click("#download-settings")
    name, content = page.browser.downloaded("settings.json")
    true(FIRST in name and json.loads(content)["settings"] == server.camera()["settings"], f"{name} holds {content}")
    document = json.loads(content)
    document["settings"] |= {"offset": -4, "motion-blur": [1, 7], "nonsense": 1}
    file = page.browser.folder / "changed.json"
    file.write_text(json.dumps(document))
    root = page.call("DOM.getDocument")["root"]["nodeId"]
    field = page.call("DOM.querySelector", nodeId=root, selector="#load-settings")["nodeId"]
    page.call("DOM.setFileInputFiles", files=[str(file)], nodeId=field)
    page.until("document.querySelector('#settings-message').textContent.startsWith('2 settings')", "two settings were set")
    true("nonsense" in page.text("#settings-message"), "an unknown setting is passed over in silence")
    settings = server.camera()["settings"]
    true(settings["offset"] == -4 and settings["motion-blur"] == [1, 7], f"the camera has {settings}")


def files_hold_the_frame(server, page):
    page.click("#side-tabs [data-value=keep]")
    spots = still_spots(server)

    def agrees(values, index, what):
        wrong = [(u, v) for (u, v), spot in spots.items() if abs(values[v * WIDTH + u] - spot[index]) > 0.15 * spot[index] + 30]
        true(len(wrong) < 0.15 * len(spots), f"{what}: {len(wrong)} of {len(spots)} spots are wrong")

    def saved(kind, ending):
        page.click(f"[data-snapshot={kind}]")
        name, content = page.browser.downloaded(ending)
        true(FIRST in name, f"the file is called {name}")
        return content

    for kind, ending, index in (("depth-exact", "-depth.png", 1), ("amplitude-exact", "-amplitude.png", 0)):
        picture = png.decoded(saved(kind, ending))
        true((picture.width, picture.height, picture.channels) == (WIDTH, HEIGHT, 1), "a grey picture of the frame's size")
        agrees([value for row in picture.rows for value in row], index, ending)
    coloured = png.decoded(saved("depth-colour", "-colour.png"))
    depth = [0] * PIXELS
    for u, v in spots:
        depth[v * WIDTH + u] = LOW + place_of_colour(colour_at(coloured, u, v))[0] * (HIGH - LOW)
    agrees(depth, 1, "coloured")
    for kind, ending, index in (("depth-npy", "-depth.npy", 1), ("amplitude-npy", "-amplitude.npy", 0)):
        array = saved(kind, ending)
        true(array[:10] == b"\x93NUMPY\x01\x00\x76\x00" and b"'descr': '<u2'" in array[:128] and b"(240, 320)" in array[:128], array[:128])
        agrees(struct.unpack_from(f"<{PIXELS}H", array, 128), index, ending)
        true(len(array) == 128 + 2 * PIXELS, "the array has another length")
    header, points = saved("cloud", ".ply").split(b"end_header\n", 1)
    count = int(header.split(b"element vertex ")[1].split()[0])
    true(len(points) == 16 * count and count > 0.8 * PIXELS, f"{count} points in {len(points)} bytes")
    lens, cloud = server.camera()["lens"]["depth"], {}
    for x, y, z, light in struct.iter_unpack("<4f", points):
        cloud[round(x / z * lens["fx"] + lens["cx"]), round(y / z * lens["fy"] + lens["cy"])] = 1000 * z, light
    agrees([cloud.get((i % WIDTH, i // WIDTH), (0, 0))[0] for i in range(PIXELS)], 1, "points")


def a_save_needs_the_serial_number_and_outlives_the_worker(server, page):
    page.click("#side-tabs [data-value=settings]")
    page.fill("[data-setting=offset] input", "21")
    server.wait(lambda: server.camera()["settings"]["offset"] == 21, "the offset")
    page.click("#save")
    page.fill("#save-serial", "24061100000002")
    true(page.value("document.querySelector('#save-now').disabled"), "another serial number is accepted")
    page.fill("#save-serial", FIRST)
    page.until("!document.querySelector('#save-now').disabled")
    page.click("#save-now")
    page.until("document.querySelector('#save-message').textContent.startsWith('Saved')", "it is saved")
    true(list((server.folder / "state").glob("vqd/eeprom-*.bin")), "nothing was backed up")
    page.click("#save-cancel")
    before = server.camera()
    os.kill(before["process"], signal.SIGKILL)
    server.wait(lambda: server.camera()["session"] not in (None, before["session"]) and server.camera()["frames"], "a new session")
    received = page.value(RECEIVED)
    page.until(f"{RECEIVED} > {received} + 5", "frames come again by themselves")
    true(server.camera()["settings"]["offset"] == 21, "what was saved is not there after a start")


def packed_frames_are_the_same(server, page):
    """What a slow link gets, against the same frame as it is."""
    same_frame = """(async () => {
        const { frameOf } = await import('/app/wire.js');
        const get = async (small) => {
            const bytes = await (await fetch(`/api/v1/cameras/%s/frame?after=0${small}`)).arrayBuffer();
            return { ...frameOf(bytes), packed: new DataView(bytes).getUint32(88, true) & 16 };
        };
        for (let i = 0; i < 200; ++i) {
            const [raw, small] = await Promise.all([get(''), get('&small=1')]);
            if (raw.sequence === small.sequence && raw.session === small.session)
                return `${raw.depth.every((d, k) => d === small.depth[k])} ${raw.amplitude.every((a, k) => a === small.amplitude[k])}`
                    + ` ${Math.max(...raw.depth) > 1000} ${raw.packed} ${small.packed}`;
        }
    })()""" % FIRST
    true(page.value(same_frame) == "true true true 0 16", "packed frames are others")


def its_picture_is_that_of_the_readme(server, page):
    page.scheme("dark")
    regions = [{"name": "ceiling", "x": 130, "y": 14, "width": 60, "height": 20},
               {"name": "box", "x": 68, "y": 176, "width": 40, "height": 28}]
    server.ask(f"cameras/{FIRST}/regions", {"regions": regions})
    page.click("#side-tabs [data-value=settings]")
    page.value("document.querySelector('#colouring').value = 'shaded'")
    page.value("document.querySelector('#colouring').dispatchEvent(new Event('change'))")
    page.click("#depth .controls button")
    page.click("#amplitude .controls button")
    page.click(pixel_place(page, "depth", 90, 190))
    page.until("document.querySelectorAll('#regions tbody tr').length === 2")
    page.until("Number(document.querySelector('#plot').dataset.points) >= 20")
    page.value("document.activeElement.blur()")
    return "page.png", page.screenshot()


def a_page_that_is_not_seen_asks_for_no_frames(_server, page):
    hide = ("Object.defineProperty(document, 'hidden', {value: %s, configurable: true}),"
            "document.dispatchEvent(new Event('visibilitychange'))")
    page.value(hide % "true")
    time.sleep(1.2)
    page.browser.take(0)
    before = page.traffic["frame"]
    time.sleep(1.5)
    page.value("0")
    true(page.traffic["frame"] == before, f"{page.traffic['frame'] - before} frames were asked for")
    page.value(hide % "false")
    received = page.value(RECEIVED)
    page.until(f"{RECEIVED} > {received} + 3")


def it_fits_the_window_and_a_phone_and_the_keyboard_reaches_all(_server, page):
    for selector in ("#depth .port", "#amplitude .port", "#cloud .port", "#measure .content", "#side"):
        left, top, width, height = page.box(selector)
        fits = left >= 0 and top >= 0 and left + width <= 1280 and top + height <= 720 and height > 150
        true(fits, f"{selector} is at {left} {top} {width} {height}")
    page.size(390, 844, 2, True)
    page.until("document.querySelector('#depth .port').getBoundingClientRect().width > 350")
    true(page.value("document.documentElement.scrollWidth") <= 390, "a phone must scroll to the side")
    page.size(1280, 720)
    page.click("#side-tabs [data-value=settings]")
    page.click("h1")
    reached = set()
    for _ in range(80):
        page.key("Tab")
        reached.add(page.value("(e => e.id || e.closest('[id]')?.id)(document.activeElement)"))
    missing = {"cameras", "depth", "amplitude", "modes", "zoom", "cloud", "hide-flying", "save", "download-settings"} - reached
    true(not missing, f"Tab does not reach {missing}")


def a_lost_camera_is_said_over_its_last_frame_and_the_others_go_on(server, page):
    page.until("document.querySelectorAll('.tile').length === 4")
    says_lost = "a => !a.hidden && a.textContent.includes('lost')"
    lost = page.until(f"[...document.querySelectorAll('.tile .absence')].findIndex({says_lost}) + 1", "a camera is lost")
    true(lost == 2, f"camera {lost} is said to be lost")
    page.until("[...document.querySelectorAll('.tile')].every((t, i) => i === 1 || t.textContent.includes('streaming'))")
    return "page-four.png", page.screenshot()


def a_camera_that_is_back_goes_on_by_itself(server, page):
    page.until("[...document.querySelectorAll('.tile .absence')].every(a => a.hidden)", "all cameras are back")
    page.click(".tile:nth-child(2)")
    page.until(RECEIVED + " > 5", "frames of the camera that was lost")
    true(page.value("location.hash") == "#" + server.state()["cameras"][1]["id"], page.value("location.hash"))


def it_ends_with_open_pages(server, page):
    took = server.end()
    true(took < 20, f"the end took {took:.1f} s")
    true(not server.processes(), f"left behind: {server.processes()}")
    page.until("document.querySelector('#connection').textContent.includes('does not answer')", "the page says that the server is gone")


ONE = [the_address_with_the_token_leads_to_the_page, the_images_show_the_raw_values_in_the_colours_of_the_range,
       the_range_stays_when_the_page_is_loaded_again, the_cursor_shows_value_point_and_amplitude_of_its_pixel,
       the_wheel_zooms_both_images_about_the_pointer, the_cloud_turns_and_gives_back_the_pixel_under_the_pointer,
       flying_pixels_disappear_on_request, a_distance_is_that_of_the_two_points, a_region_shows_the_figures_of_the_worker,
       a_setting_reaches_the_camera_and_a_refusal_stands_beside_it, settings_go_into_a_file_and_come_from_it, files_hold_the_frame,
       packed_frames_are_the_same, a_page_that_is_not_seen_asks_for_no_frames, it_fits_the_window_and_a_phone_and_the_keyboard_reaches_all,
       its_picture_is_that_of_the_readme, a_save_needs_the_serial_number_and_outlives_the_worker]
FOUR = [a_lost_camera_is_said_over_its_last_frame_and_the_others_go_on, a_camera_that_is_back_goes_on_by_itself, it_ends_with_open_pages]


def run(browser, server, checks, pictures):
    page = browser.page(f"{server.url}/?token={server.token}")
    for check in checks:
        began = time.monotonic()
        name = check.__name__.replace("_", " ")
        try:
            picture = check(server, page)
            expected = ("ERR_CONNECTION", "Failed to load resource", "503") if check in (FOUR[2], ONE[-1], *FOUR[:2]) else ("400", "409")
            errors = [error for error in page.errors if not any(word in error for word in expected)]
            true(not errors, f"the console shows {errors[:3]}")
        except Exception:
            print(f"not ok {name}", flush=True)
            if pictures:
                (pictures / "failed.png").write_bytes(page.screenshot())
            raise
        page.errors.clear()
        if pictures and picture:
            (pictures / picture[0]).write_bytes(picture[1])
        print(f"ok {name} ({time.monotonic() - began:.1f} s)", flush=True)
    return page


def main(vqd, pictures):
    browser = Browser()
    try:
        for models, options, checks in ((["VQD-HT120"], [], ONE),
                                        (["VQD-HT120"] * 4, ["--fps", "10", "--fault", "2: unplug after frame 60, back after 8 s"], FOUR)):
            server = Server(vqd, models, *options)
            try:
                run(browser, server, checks, pictures)
            finally:
                server.close()
    finally:
        browser.close()


if __name__ == "__main__":
    main(sys.argv[1], Path(sys.argv[3]) if len(sys.argv) > 3 else None)
