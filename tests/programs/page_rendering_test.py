#!/usr/bin/env python3
"""Renders the page of counters with a browser, for light and for dark surroundings.

usage: page_rendering_test.py PROGRAM DIRECTORY

Checks that the picture has the wanted size, the page's ground, and every colour of the charts on a
fair number of pixels; and that it has none of the other scheme's. The pictures stay in DIRECTORY.
Without a browser the test is skipped (status 77), or fails where CI is true.
"""

import struct
import subprocess
import sys

from browser_page import ending, opening, read_png, render

WIDTH, HEIGHT = 1080, 1300
# The page's ground first, then ham, spam, exempt, rate limit.
SCHEMES = {
    "light": ["fbfbf9", "2f6fb5", "d9722b", "2a9485", "8566b0"],
    "dark": ["16181c", "6ea8e8", "f0a060", "5fc7b8", "b79be0"],
}
FAIR_NUMBER = 200


def write_counters(folder):
    """November 2023, every day with 600 ham, 300 spam, 200 exempt and 150 rate-limited."""
    days = bytearray(997)
    days[0] = 2
    for day in range(30):
        stamp = 1698796800 + 86400 * day
        struct.pack_into("<8I", days, 5 + 32 * day, stamp, 600, 300, 200, 100, 50, 1000, 250)
    (folder / ".counterv2.dat.11").write_bytes(days)


def problems_of(picture, scheme):
    width, height, colours, _ = read_png(picture)
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
    browser, program, folder = opening()
    write_counters(folder)
    page = folder / "counters.html"
    subprocess.run([program, "counter", "show", folder, "--html", page], check=True,
                   stdout=subprocess.DEVNULL)
    problems = []
    for scheme in SCHEMES:
        picture = folder / f"{scheme}.png"
        render(browser, page.as_uri(), picture, scheme, WIDTH, HEIGHT)
        problems += problems_of(picture, scheme)
    return ending(problems)


if __name__ == "__main__":
    sys.exit(main())
