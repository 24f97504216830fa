"""Pages as a browser shows them, for the tests that look at the picture."""

import collections
import shutil
import struct
import subprocess
import tempfile
import zlib
from pathlib import Path

from whole_program import ARGUMENTS, unable

# The browser's names of the schemes.
PREFERRED = {"dark": 0, "light": 1}


def opening():
    """The browser, the program of the command line, and its folder, which is empty now."""
    browser = shutil.which("chromium") or shutil.which("chromium-browser")
    if not browser:
        unable("the package chromium is not installed")
    program, folder = (Path(argument).resolve() for argument in ARGUMENTS)
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir(parents=True)
    return browser, program, folder


def ending(problems):
    """The exit status, after the problems have been told."""
    for problem in problems:
        print(problem)
    return 1 if problems else 0


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
    """(width, height, how many pixels of each colour, the lines of colours) of a PNG with 8 bits a
    channel."""
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
    lines = []
    for row in range(height):
        start = row * (width * step + 1)
        line = bytearray(raw[start + 1:start + 1 + width * step])
        unfilter(raw[start], line, above, step)
        lines.append([bytes(line[i:i + 3]).hex() for i in range(0, len(line), step)])
        above = line
    colours = collections.Counter(colour for line in lines for colour in line)
    return width, height, colours, lines


def render(browser, address, picture, scheme, width, height):
    """Shows a page in a window of that size and keeps the picture."""
    with tempfile.TemporaryDirectory() as profile:
        subprocess.run(
            [browser, "--headless", "--no-sandbox", "--disable-gpu", "--no-first-run",
             "--disable-background-networking", "--disable-component-update", "--disable-sync",
             "--hide-scrollbars", f"--user-data-dir={profile}",
             f"--blink-settings=preferredColorScheme={PREFERRED[scheme]}",
             f"--screenshot={picture}", f"--window-size={width},{height}", address],
            check=True, timeout=120, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
