#!/usr/bin/env python3
"""Shows the page of a decision to a browser: in light and dark, wide and as narrow as a telephone.

usage: explain_page_test.py PROGRAM DIRECTORY

Checks that the ground and the verdict have the scheme's colours, that no colour of the other scheme
is there, and that nothing reaches into the margins, however long the texts. The pictures stay in
DIRECTORY. Without a browser the test is skipped (status 77), or fails where CI is true.
"""

import subprocess
import sys

from browser_page import ending, opening, read_png, render

# The page's ground, and the colour of each verdict.
SCHEMES = {
    "light": {"ground": "fbfbf9", "reject": "b3261e", "undecided": "8a5a00"},
    "dark": {"ground": "16181c", "reject": "ff8a80", "undecided": "f0c060"},
}
# Which page, how wide, and the width of the margins, where nothing may stand.
PAGES = [("reject", 1000, 24), ("undecided", 400, 12)]
HEIGHT = 1600
FAIR_NUMBER = 200
# A window is wider than a telephone: the page is shown in a frame of the wanted size.
FRAME = ('<!doctype html><body style="margin:0;background:#888"><iframe src="{page}" '
         'style="border:0;width:{width}px;height:{height}px"></iframe></body>')


def problems_of(picture, scheme, verdict, width, margin):
    _, _, _, lines = read_png(picture)
    colours = SCHEMES[scheme]
    other = SCHEMES["dark" if scheme == "light" else "light"]
    shown = [colour for line in lines for colour in line[:width]]
    if shown.count(colours["ground"]) < len(shown) // 3:
        yield f"{shown.count(colours['ground'])} pixels of the ground"
    if shown.count(colours[verdict]) < FAIR_NUMBER:
        yield f"{shown.count(colours[verdict])} pixels of the verdict's colour"
    for colour in other.values():
        if shown.count(colour) >= FAIR_NUMBER:
            yield f"{shown.count(colour)} pixels of {colour}, a colour of the other scheme"
    for name, edge in (("left", slice(0, margin)), ("right", slice(width - margin, width))):
        strays = sum(colour != colours["ground"] for line in lines for colour in line[edge])
        if strays:
            yield f"{strays} pixels in the {name} margin"


def main():
    browser, program, folder = opening()
    problems = []
    for verdict, width, margin in PAGES:
        page = folder / f"{verdict}.html"
        page.write_bytes(subprocess.run([program, verdict], stdout=subprocess.PIPE,
                                        check=True).stdout)
        frame = folder / f"{verdict}-{width}.html"
        frame.write_text(FRAME.format(page=page.name, width=width, height=HEIGHT),
                         encoding="utf-8")
        for scheme in SCHEMES:
            picture = folder / f"{verdict}-{width}-{scheme}.png"
            render(browser, frame.as_uri(), picture, scheme, max(width, 600), HEIGHT)
            problems += [f"{verdict}, {width} wide, {scheme}: {problem}" for problem in
                         problems_of(picture, scheme, verdict, width, margin)]
    return ending(problems)


if __name__ == "__main__":
    sys.exit(main())
