"""Events reach syslog(3): runs the event log's test in a mount namespace of its own, where this
script listens on /dev/log, and looks at what arrives.

usage: syslog_test.py EVENT_LOG_TEST

Without the privilege for namespaces it is skipped (status 77), and fails where CI=true.
"""

import os
import re
import socket
import subprocess
import sys

SKIPPED = 77
# Facility mail (2), levels info (6), err (3) and warning (4), in the order of the test's events.
WANT = [f"<{2 * 8 + level}> quillfence-test: a test message" for level in (6, 3, 4)]


def listen_and_run(program):
    subprocess.run(["mount", "-t", "tmpfs", "none", "/dev"], check=True)
    listener = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
    listener.bind("/dev/log")
    listener.settimeout(10)
    environment = {name: value for name, value in os.environ.items()
                   if name != "QUILLFENCE_EVENT_LOG"}
    run = subprocess.run([program, "--gtest_filter=event_log.opens_reports_and_closes"],
                         stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True,
                         env=environment, check=False)
    if run.returncode != 0:
        sys.exit(run.stdout)
    got = []
    for _ in WANT:
        line = listener.recv(4096).decode().rstrip("\n\0")
        # The time and the process's number are not the test's.
        got.append(re.sub(r"^(<\d+>).*?(\S+)\[\d+\]:", r"\1 \2:", line))
    if got != WANT:
        sys.exit(f"got  {got}\nwant {WANT}")


def main():
    if sys.argv[1] == "--inside":
        listen_and_run(sys.argv[2])
        return 0
    namespace = ["unshare", "--map-root-user", "--mount"]
    if subprocess.run(namespace + ["true"], check=False).returncode != 0:
        print("no privilege for a mount namespace")
        return 1 if os.environ.get("CI") == "true" else SKIPPED
    inside = [sys.executable, os.path.abspath(__file__), "--inside", sys.argv[1]]
    return subprocess.run(namespace + inside, check=False).returncode


if __name__ == "__main__":
    sys.exit(main())
