#!/usr/bin/env python3
"""Renders the page of counters with a browser, for light and for dark surroundings.

usage: page_rendering_test.py PROGRAM DIRECTORY

Checks that the picture has the wanted size, the page's ground, and every colour of the charts on a
fair number of pixels; and that it has none of the other scheme's. The pictures stay in DIRECTORY.
Without a browser the test is skipped (status 77), or fails where CI is true.
"""

import collections
import os
import pathlib
import shutil
import struct
import subprocess
import sys
import tempfile
import zlib

WIDTH, HEIGHT = 1080, 1300
# The page's ground first, then ham, spam, exempt, rate limit.
SCHEMES = {
    "light": ["fbfbf9", "2f6fb5", "d9722b", "2a9485", "8566b0"],
    "dark": ["16181c", "6ea8e8", "f0a060", "5fc7b8", "b79be0"],
}
# The engine's names of the schemes.
PREFERRED = {"dark": 0, "light": 1}
FAIR_NUMBER = 200


def write_counters(folder):
    """November 2023, every day with 600 ham, 300 spam, 200 exempt and 150 rate-limited."""
    days = bytearray(997)
    days[0] = 2
    for day in range(30):
        stamp = 1698796800 + 86400 * day
        struct.pack_into("<8I", days, 5 + 32 * day, stamp, 600, 300, 200, 100, 50, 1000, 250)
    (folder / ".counterv2.dat.11").write_bytes(days)


def unfilter(kind, line, above, step):
    """Takes one line of a PNG back to what it was before it was filtered, in place."""
    for i, value in enumerate(line):
        left = line[i - step] if i >= step else 0
        up = above[i]
        if kind == 1:
            guess = left
        elif kind == 2:
            guess = up
        elif kind == 3:
            guess = (left + up) // 2
        elif kind == 4:
            corner = above[i - step] if i >= step else 0
            distances = [abs(up - corner), abs(left - corner), abs(left + up - 2 * corner)]
            guess = (left, up, corner)[distances.index(min(distances))]
        else:
            return
        line[i] = (value + guess) & 255


def read_png(path):
    """(width, height, how many pixels of each colour) of a PNG with 8 bits a channel."""
    data = path.read_bytes()
    assert data[:8] == b"\x89PNG\r\n\x1a\n", "no PNG"
    at, packed, header = 8, b"", None
    while at < len(data):
        size, kind = struct.unpack_from(">I4s", data, at)
        body = data[at + 8:at + 8 + size]
        if kind == b"IHDR":
            header = struct.unpack(">IIBBBBB", body)
        elif kind == b"IDAT":
            packed += body
        at += 12 + size
    width, height, depth, colour, _, _, interlace = header
    assert depth == 8 and colour in (2, 6) and not interlace, f"unexpected kind of PNG: {header}"
    step = 3 if colour == 2 else 4
    raw = zlib.decompress(packed)
    above = bytearray(width * step)
    colours = collections.Counter()
    for row in range(height):
        start = row * (width * step + 1)
        line = bytearray(raw[start + 1:start + 1 + width * step])
        unfilter(raw[start], line, above, step)
        colours.update(bytes(line[i:i + 3]).hex() for i in range(0, len(line), step))
        above = line
    return width, height, colours


def render(browser, page, picture, scheme):
    with tempfile.TemporaryDirectory() as profile:
        subprocess.run(
            [browser, "--headless", "--no-sandbox", "--disable-gpu", "--no-first-run",
             "--disable-background-networking", "--disable-component-update", "--disable-sync",
             "--hide-scrollbars", f"--user-data-dir={profile}",
             f"--blink-settings=preferredColorScheme={PREFERRED[scheme]}",
             f"--screenshot={picture}", f"--window-size={WIDTH},{HEIGHT}", page.as_uri()],
            check=True, timeout=120, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)


def problems_of(picture, scheme):
    width, height, colours = read_png(picture)
    if (width, height) != (WIDTH, HEIGHT):
        yield f"{scheme}: the picture is {width} by {height}, want {WIDTH} by {HEIGHT}"
    ground = SCHEMES[scheme][0]
    if colours[ground] < WIDTH * HEIGHT // 3:
        yield f"{scheme}: {colours[ground]} pixels of the ground {ground}"
    for colour in SCHEMES[scheme][1:]:
        if colours[colour] < FAIR_NUMBER:
            yield f"{scheme}: {colours[colour]} pixels of {colour}, want {FAIR_NUMBER}"
    other = SCHEMES["dark" if scheme == "light" else "light"]
    for colour in other:
        if colours[colour] >= FAIR_NUMBER:
            yield f"{scheme}: {colours[colour]} pixels of {colour}, a colour of the other scheme"


def main():
    program, folder = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2]).resolve()
    browser = shutil.which("chromium") or shutil.which("chromium-browser")
    if not browser:
        print("needs the package chromium")
        return 1 if os.environ.get("CI") == "true" else 77
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir(parents=True)
    write_counters(folder)
    page = folder / "counters.html"
    subprocess.run([program, "counter", "show", folder, "--html", page], check=True,
                   stdout=subprocess.DEVNULL)
    problems = []
    for scheme in SCHEMES:
        picture = folder / f"{scheme}.png"
        render(browser, page, picture, scheme)
        problems += problems_of(picture, scheme)
    for problem in problems:
        print(problem)
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
