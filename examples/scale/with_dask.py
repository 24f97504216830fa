#!/usr/bin/python3
"""Judges transactions on the workers of a Dask cluster (Debian: python3-distributed).

    with_dask.py SCHEDULER [FILE...] [--block BYTES] [-- OPTION...]

The files (standard input) are cut into blocks of whole lines, some 8 MiB each; each goes to a
worker, which runs one `quillfence batch` of one thread on it, and what comes of them is written to
standard output in their order. The blocks travel with the tasks, so a block whose worker dies is
judged by another one, and the workers need no folder in common: only the program, as QUILLFENCE
names it here, and the same configuration. A few blocks for each worker are held at once, however
long the input is. OPTIONs are those of quillfence batch.

Exit status: as that of batch, 0, 3 with lines "error", 2 when it could not run to the end.
"""

import argparse
import os
import subprocess
import sys
import warnings
from collections import deque

from distributed import Client

DONE, FAILED, PARTLY = 0, 2, 3
TRIES = 3
WAIT = 60  # seconds for the first worker
# An interrupted run would end with status 3 and a part of the lines, so it does not listen.
DEAF = ["sh", "-c", 'trap "" INT TERM; exec "$@"', "sh"]


def judge(block, command):
    """On a worker: the status and the lines of one block."""
    run = subprocess.run([*DEAF, *command], input=block, stdout=subprocess.PIPE, check=False)
    if run.returncode not in (DONE, PARTLY):
        raise RuntimeError(f"{command[0]} ended with {run.returncode}")
    return run.returncode, run.stdout


def blocks_of(paths, size):
    """Whole lines, some `size` bytes at a time. A file's last line ends with it."""
    for path in paths or ["-"]:
        with open(0 if path == "-" else path, "rb") as file:
            while block := file.read(size):
                block += file.readline()
                yield block if block.endswith(b"\n") else block + b"\n"


def judged(client, blocks, command):
    """What came of each block, in their order."""
    waiting = deque()
    for block in blocks:
        waiting.append(client.submit(judge, block, command, pure=False, retries=TRIES))
        if len(waiting) >= 2 * max(1, sum(client.nthreads().values())):
            yield waiting.popleft().result()
    while waiting:
        yield waiting.popleft().result()


def run(arguments, options):
    command = [os.environ.get("QUILLFENCE", "quillfence"), "batch", "--jobs", "1", "--quiet",
               *options]
    status = DONE
    with Client(arguments.scheduler) as client:
        client.wait_for_workers(1, timeout=WAIT)
        for ended, lines in judged(client, blocks_of(arguments.files, arguments.block), command):
            sys.stdout.buffer.write(lines)
            status = max(status, ended)
        sys.stdout.buffer.flush()
    return status


def main():
    # Blocks are to travel with the tasks: what lies on a worker is lost with it.
    warnings.filterwarnings("ignore", "Large object")
    ours, options = sys.argv[1:], []
    if "--" in ours:
        options = ours[ours.index("--") + 1:]
        ours = ours[:ours.index("--")]
    parser = argparse.ArgumentParser(description="Judges transactions on a Dask cluster.")
    parser.add_argument("scheduler", help="as in tcp://127.0.0.1:8786")
    parser.add_argument("files", nargs="*", help="lines of transactions (standard input)")
    parser.add_argument("--block", type=int, default=8 << 20, help="bytes a task (8 MiB)")
    try:
        return run(parser.parse_args(ours), options)
    except Exception as why:  # of Dask, of a worker, of a file
        print(f"with_dask.py: {why}", file=sys.stderr)
        return FAILED


if __name__ == "__main__":
    sys.exit(main())
