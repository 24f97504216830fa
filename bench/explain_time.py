#!/usr/bin/env python3
"""The time of `quillfence explain --json` beside the replayer's, for the same transaction against
examples/drive_c; in turn, so that a busy machine is busy for both. No DNS server answers.

    bench/explain_time.py BUILD [RUNS]
"""

import os
import statistics
import subprocess
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
VALUES = ["R", "192.0.2.1", "25", "0", "", "0", "host.test", "user@sender.test", "rcpt@here.test"]


def cpu_time(command, environment):
    """User and system time of one run, in milliseconds."""
    process = subprocess.Popen(command, env=environment, stdin=subprocess.DEVNULL,
                               stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    _, status, used = os.wait4(process.pid, 0)
    if status:
        sys.exit(f"{command[0]} ended with {status}")
    return 1000 * (used.ru_utime + used.ru_stime)


def main():
    build = Path(sys.argv[1])
    runs = int(sys.argv[2]) if len(sys.argv) > 2 else 1000
    environment = {**os.environ, "QUILLFENCE_DRIVE_C": str(ROOT / "examples" / "drive_c"),
                   "QUILLFENCE_EVENT_LOG": "/dev/null", "QUILLFENCE_DNS_SERVER": "127.0.0.1:1"}
    commands = {"quillfence-replayer": [build / "replayer" / "quillfence-replayer", *VALUES],
                "quillfence explain --json":
                    [build / "programs" / "quillfence" / "quillfence", "explain", "--json", *VALUES]}
    times = {name: [] for name in commands}
    for _ in range(runs):
        for name, command in commands.items():
            times[name].append(cpu_time(command, environment))
    medians = {name: statistics.median(each) for name, each in times.items()}
    for name, median in medians.items():
        print(f"{name:26} {median:5.2f} ms")
    replayer, explain = medians.values()
    print(f"{'':26} {explain / replayer:5.2f} times")


if __name__ == "__main__":
    main()
