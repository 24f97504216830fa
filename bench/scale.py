#!/usr/bin/env python3
"""How the cost of a batch run grows with the number of transactions.

    scale.py BUILD_FOLDER SOURCE_FOLDER COUNT...

For each COUNT: one process of one thread (`quillfence batch --jobs 1`) judges as many transactions
of examples/scale/transactions.py against examples/drive_c, from a pipe, and its lines are dropped.
Prints its CPU time, the most memory that it held, and the bytes that went in and came out.
"""

import os
import subprocess
import sys
import tempfile
from pathlib import Path

PROGRAM = Path(sys.argv[1]).resolve() / "programs/quillfence/quillfence"
SOURCE = Path(sys.argv[2]).resolve()
DONE = 0


def count_bytes(into):
    """A program that hands its input through and writes its size to a file at the end."""
    return ["python3", "-c", "import sys\nn = 0\nwhile b := sys.stdin.buffer.read1(1 << 20):\n"
            "    n += len(b)\n    sys.stdout.buffer.write(b)\n"
            f"open({into!r}, 'w').write(str(n))\n"]


def measured(count, folder):
    sizes = [str(folder / name) for name in ("in", "out")]
    made = subprocess.Popen([SOURCE / "examples/scale/transactions.py", str(count)],
                            stdout=subprocess.PIPE)
    put = subprocess.Popen(count_bytes(sizes[0]), stdin=made.stdout, stdout=subprocess.PIPE)
    judge = subprocess.Popen([PROGRAM, "batch", "--quiet", "--jobs", "1", "--drive-c",
                              SOURCE / "examples/drive_c"], stdin=put.stdout,
                             stdout=subprocess.PIPE)
    got = subprocess.Popen(count_bytes(sizes[1]), stdin=judge.stdout, stdout=subprocess.DEVNULL)
    for stream in (made.stdout, put.stdout, judge.stdout):
        stream.close()
    _, status, used = os.wait4(judge.pid, 0)
    ends = [os.waitstatus_to_exitcode(status), made.wait(), put.wait(), got.wait()]
    if ends != [DONE] * 4:
        sys.exit(f"a program failed: {ends}")
    return used, [int(Path(path).read_text()) for path in sizes]


def main():
    print("| transactions | CPU time | a second of it | memory | in | out |")
    print("| ---: | ---: | ---: | ---: | ---: | ---: |")
    with tempfile.TemporaryDirectory() as folder:
        for count in map(int, sys.argv[3:]):
            used, (read, written) = measured(count, Path(folder))
            seconds = used.ru_utime + used.ru_stime
            print(f"| {count:,} | {seconds:.1f} s | {count / seconds:,.0f} "
                  f"| {used.ru_maxrss / 1024:.0f} MiB | {read / 1e6:,.0f} MB "
                  f"| {written / 1e6:,.0f} MB |", flush=True)


if __name__ == "__main__":
    main()
