#!/usr/bin/env python3
"""How long quillfence-data takes to make its files, beside what else could hold the same lists.

    data_files.py BUILD_FOLDER SOURCE_FOLDER

Prints the medians of CPU time of seven runs and the size of what was made. Peers take part when they are installed: cdb (Debian's tinycdb), iprange. What was made is
asked for a thousand addresses, half of them listed, before its row is printed.
"""

import random
import resource
import shutil
import statistics
import subprocess
import sys
import tempfile
from pathlib import Path

PROGRAM = Path(sys.argv[1]).resolve() / "programs/quillfence-data/quillfence-data"
PATTERNS = Path(sys.argv[2]).resolve() / "tests/data/fqrdns.pcre"
RUNS = 7
COUNT = 1_000_000
DONE, PARTLY = 0, 3


def text_of(address):
    return ".".join(str(address >> shift & 255) for shift in (24, 16, 8, 0))


def addresses(networks):
    """A million addresses, in that many /16s or, without a number, anywhere."""
    chosen = random.Random(1)
    where = [chosen.getrandbits(16) << 16 for _ in range(networks or 0)]
    found = set()
    while len(found) < COUNT:
        low = chosen.getrandbits(16)
        found.add((chosen.choice(where) if where else chosen.getrandbits(16) << 16) | low)
    found = list(found)
    chosen.shuffle(found)
    return found


def measured(command, wanted):
    times = []
    for _ in range(RUNS):
        before = resource.getrusage(resource.RUSAGE_CHILDREN)
        run = subprocess.run(command, check=False, stdout=subprocess.DEVNULL,
                             stderr=subprocess.DEVNULL)
        after = resource.getrusage(resource.RUSAGE_CHILDREN)
        if run.returncode != wanted:
            sys.exit(f"{command} ended with {run.returncode}")
        times.append(after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime)
    return statistics.median(times)


def row(name, command, made, wanted=DONE):
    seconds = measured(command, wanted)
    print(f"| {name} | {seconds * 1000:.0f} ms | {made.stat().st_size / 1e6:.1f} MB |", flush=True)


def check_block_map(path, listed):
    chosen = random.Random(2)
    asked = listed[:500] + [chosen.getrandbits(32) for _ in range(500)]
    out = subprocess.run([PROGRAM, "blockmap", "test", path, "-"], text=True, check=False,
                         input="\n".join(map(text_of, asked)) + "\n",
                         stdout=subprocess.PIPE).stdout.splitlines()
    known = set(listed)
    want = [address in known for address in asked]
    if [": listed" in line for line in out] != want:
        sys.exit("the block map gives wrong answers")


def compare(folder, title, networks):
    print(f"\n{title}")
    listed = addresses(networks)
    plain, keyed = folder / "plain", folder / "keyed"
    plain.write_text("".join(text_of(address) + "\n" for address in listed))
    keyed.write_text("".join(text_of(address) + " 1\n" for address in listed))
    made = folder / "map.bms"
    row("quillfence-data blockmap build", [PROGRAM, "blockmap", "build", plain, made], made)
    check_block_map(made, listed)
    if shutil.which("cdb"):
        made = folder / "map.cdb"
        row("cdb -c -m", ["cdb", "-c", "-m", made, keyed], made)
    if shutil.which("iprange"):
        made = folder / "map.iprange"
        command = f"iprange --print-binary {plain} > {made}"
        row("iprange --print-binary", ["sh", "-c", command], made)


def main():
    with tempfile.TemporaryDirectory() as name:
        folder = Path(name)
        made = folder / "out.cregexes"
        print("1,528 patterns")
        row("quillfence-data regex compile",
            [PROGRAM, "regex", "compile", "--keep-going", "--only", "REJECT,DUNNO", PATTERNS, made],
            made, PARTLY)
        compare(folder, "1,000,000 addresses in 500 networks", 500)
        compare(folder, "1,000,000 addresses anywhere", None)


if __name__ == "__main__":
    main()
