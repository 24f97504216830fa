#!/usr/bin/env python3
"""The measurements of many transactions that want a quiet machine, as the tables of our pages.

    measure.py BUILD_FOLDER SOURCE_FOLDER [--small] [SECTION...]

    decisions  decisions_bench: a second of CPU time, medians of five
    scale      scale.py: cost by the number of transactions (docs/scale.md)
    jobs       the rate of one process with --jobs 1 on one processor, of two such processes on two
               of them, and of --jobs 2 on the same; beside them a loop that touches no memory, alone
               and twice: what two processors of this machine are worth. Medians of five, in turn
    memory     the most memory held by the time 10^5, 10^6 and 10^7 lines have been judged with the
               big configuration
    live       batch_live.py: DNS answers after 50 ms
    patterns   compiled_patterns_bench: a name against pattern files, with Hyperscan where it is
               installed, medians of five
    peers      peers.py: beside rspamd and postfwd

All of them unless some are named; --small takes a hundredth of the transactions, to see that
everything is there. BUILD_FOLDER was configured with -DQUILLFENCE_BENCH=ON. It takes an hour; `jobs`,
`memory`, `live` and `peers` want all processors for themselves.
"""

import json
import os
import re
import statistics
import subprocess
import sys
import tempfile
import time
from pathlib import Path

SMALL = "--small" in sys.argv
NAMED = [word for word in sys.argv[1:] if word != "--small"]
BUILD, SOURCE = Path(NAMED[0]).resolve(), Path(NAMED[1]).resolve()
PROGRAM = BUILD / "programs/quillfence/quillfence"
BENCH = SOURCE / "bench"
LOAD = BUILD / "bench/policy_load"
RUNS = 1 if SMALL else 5
DONE = 0


def scaled(count):
    return count // 100 if SMALL else count


def table(*columns):
    print("| " + " | ".join(columns) + " |")
    print("| --- " + "| ---: " * (len(columns) - 1) + "|", flush=True)


def row(*cells):
    print("| " + " | ".join(cells) + " |", flush=True)


def checked(*command):
    """What a program prints; a failure ends this one."""
    return subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True).stdout


def medians(program, pattern):
    """Of the benchmarks of a program: CPU time in its unit, and items a second, by their names."""
    told = checked(BUILD / "bench" / program, f"--benchmark_filter={pattern}",
                   f"--benchmark_repetitions={max(RUNS, 2)}", "--benchmark_format=json",
                   "--benchmark_report_aggregates_only=true",
                   *(["--benchmark_min_time=0.01"] if SMALL else []))
    found = {}
    for one in json.loads(told)["benchmarks"]:
        if one.get("error_occurred"):
            sys.exit(f"{one['name']}: {one['error_message']}")
        if one["aggregate_name"] == "median":
            found[one["run_name"]] = one
    return found


# --- sections ---

def decisions():
    got = medians("decisions_bench", "^decisions/|^a_name")
    table("a second of CPU time", "sample", "big")
    for title, name in (("files", "files"), ("read beforehand", "frozen"),
                        ("the same with the report", "frozen_report")):
        row(title, *(f"{got[f'decisions/{which}_{name}']['items_per_second']:,.0f}"
                     for which in ("sample", "big")))
    name = got["a_name_against_the_patterns"]
    print(f"\nA name against the 1,528 patterns: {name['cpu_time']:.0f} {name['time_unit']}")


def scale():
    print(checked(BENCH / "scale.py", BUILD, SOURCE,
                  *(str(scaled(count)) for count in (10_000, 100_000, 1_000_000))), end="")


def big_drive(folder):
    """policyd.py's, which reads the same arguments."""
    sys.argv[1:] = [str(BUILD), str(SOURCE), str(LOAD)]
    import policyd  # pylint: disable=import-outside-toplevel
    policyd.make_drive(folder)
    return folder


def seconds_of(*runs):
    """Of the clock, until all of these have ended; each is a command and its processors."""
    begin = time.monotonic()
    all_of_them = [subprocess.Popen(["taskset", "--cpu-list", processors, *command],
                                    stdout=subprocess.DEVNULL) for command, processors in runs]
    if any([one.wait() for one in all_of_them]):
        sys.exit("a program failed")
    return time.monotonic() - begin


def jobs():
    """Each row: a unit of work on one processor; two units on two, by two processes and by one."""
    count = scaled(500_000)
    table("units of work a second of the clock", "one processor", "two processes on two", "times",
          "`--jobs 2` on two", "times")

    def measure(title, units, one, both=None):
        took = []
        for _ in range(RUNS):
            took.append([seconds_of((one, "0")), seconds_of((one, "0"), (one, "1")) / 2])
            if both:
                took[-1].append(seconds_of((both, "0,1")) / 2)
        cells = [f"{units / statistics.median(each[0] for each in took):,.0f}"]
        for other in range(1, len(took[0])):
            cells += [f"{units / statistics.median(each[other] for each in took):,.0f}",
                      f"{statistics.median(each[0] / each[other] for each in took):.2f}"]
        row(title, *cells, *[""] * (5 - len(cells)))

    rounds = scaled(100)
    measure("a loop", rounds, [sys.executable, "-c", f"for _ in range({rounds} * 500_000): pass"])
    with tempfile.TemporaryDirectory() as name:
        folder = Path(name)
        for lines, many in (("once", count), ("twice", 2 * count)):
            with open(folder / lines, "wb") as to:
                subprocess.run([SOURCE / "examples/scale/transactions.py", str(many)], check=True,
                               stdout=to)
        for title, drive in (("sample", SOURCE / "examples/drive_c"),
                             ("big", big_drive(folder / "big"))):
            batch = [PROGRAM, "batch", "--quiet", "--drive-c", drive, "--jobs"]
            measure(title, count, [*batch, "1", folder / "once"], [*batch, "2", folder / "twice"])


def held_by(process):
    """MiB: the most so far, and now."""
    status = Path(f"/proc/{process.pid}/status").read_text()
    return [int(re.search(rf"{name}:\s+(\d+) kB", status)[1]) / 1024
            for name in ("VmHWM", "VmRSS")]


def memory():
    marks = [scaled(count) for count in (100_000, 1_000_000, 10_000_000)]
    table("lines judged", "most memory so far", "memory then", "a second of the clock")
    with tempfile.TemporaryDirectory() as name:
        drive = big_drive(Path(name) / "big")
        count = marks[-1] + 20_000  # it is still there when the last mark is reached
        made = subprocess.Popen([SOURCE / "examples/scale/transactions.py", str(count)],
                                stdout=subprocess.PIPE)
        judge = subprocess.Popen([PROGRAM, "batch", "--quiet", "--tsv", "--drive-c", drive],
                                 stdin=made.stdout, stdout=subprocess.PIPE)
        made.stdout.close()
        begin, lines = time.monotonic(), 0
        while piece := judge.stdout.read1(1 << 20):
            lines += piece.count(b"\n")
            while marks and lines > marks[0]:  # the columns' names are a line
                most, now = held_by(judge)
                rate = marks[0] / (time.monotonic() - begin)
                row(f"{marks.pop(0):,}", f"{most:.0f} MiB", f"{now:.0f} MiB", f"{rate:,.0f}")
        if [judge.wait(), made.wait()] != [DONE, DONE] or marks:
            sys.exit("a program failed")


def live():
    table("questions on their way", "transactions a second", "processor time of batch", "memory",
          "connections")
    for questions in ("1024", "4096"):
        told = checked(BENCH / "batch_live.py", BUILD, SOURCE, str(scaled(100_000)), "50",
                       questions)
        got = re.search(r": ([\d,]+) a second; status 0\n.*?: ([\d.]+ s) of .*?, (\d+ MiB);.*?"
                        r"(\d+) connections", told, re.DOTALL)
        if not got:
            sys.exit(told)
        row(questions, *got.groups())


WAYS = {"compiled_pattern_file": "compiled pattern file", "read_beforehand": "read beforehand",
        "pcre2_serialised": "PCRE2, serialised codes",
        "pcre2_compiled": "PCRE2, compiled from text",
        "pcre2_compiled_jit": "PCRE2, compiled from text with JIT", "re2_set": "RE2::Set",
        "hyperscan_deserialised": "Hyperscan, serialised database",
        "hyperscan_ready": "Hyperscan, database and scratch at hand"}


def as_time(microseconds):
    return f"{microseconds / 1000:.2g} ms" if microseconds >= 1000 else f"{microseconds:.2g} µs" \
        if microseconds < 100 else f"{microseconds:.0f} µs"


def patterns():
    got = medians("compiled_patterns_bench", "^1528/" if SMALL else "")
    for count in dict.fromkeys(name.split("/")[0] for name in got):
        table(f"CPU time, {int(count):,} patterns", "plain", "dynamic", "hit")
        for way, title in WAYS.items():
            cells = [got.get(f"{count}/{case}/{way}")
                     for case in ("plain", "dynamic_look", "late_hit")]
            if all(cells):
                row(title, *(as_time(one["cpu_time"]) for one in cells))
        print()


def peers():
    print(checked(BENCH / "peers.py", BUILD, SOURCE, LOAD, "1" if SMALL else "10"), end="")


SECTIONS = {one.__name__: one for one in (decisions, scale, jobs, memory, live, patterns, peers)}


def main():
    wanted = NAMED[2:] or list(SECTIONS)
    if unknown := [name for name in wanted if name not in SECTIONS]:
        sys.exit(f"no such section: {', '.join(unknown)}; there are {', '.join(SECTIONS)}")
    print(f"{os.cpu_count()} processors, load {os.getloadavg()[0]:.1f}")
    for name in wanted:
        print(f"\n## {name}\n", flush=True)
        SECTIONS[name]()


if __name__ == "__main__":
    main()
