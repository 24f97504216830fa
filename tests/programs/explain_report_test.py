#!/usr/bin/env python3
"""The report in a decision record is the replayer's line: two hundred random transactions through
both programs, with a name server that nobody answers for.

    explain_report_test.py QUILLFENCE REPLAYER SOURCE_FOLDER
"""

import json
import random
import subprocess
import unittest
from pathlib import Path

from whole_program import ARGUMENTS, environment, main

QUILLFENCE, REPLAYER, SOURCE = (Path(argument).resolve() for argument in ARGUMENTS)
RUNS = 200

# What each of the replayer's values is drawn from.
VALUES = [
    ["10.11.12.13", "10.200.1.1", "192.0.2.9", "192.0.2.25", "198.51.100.7", "127.0.0.1", "::1",
     "2001:db8::1", "::ffff:10.11.12.13", "no address"],
    ["25", "0", "65535", "x"],
    ["0", "1"],
    ["", "bob", "(null)"],
    ["0", "0", "1"],
    ["", "mail.example.org", "[192.0.2.1]", "bad_helo", "-x.example", "localhost", " spaced.example ",
     "192.0.2.9", "h\u00e4lo.example"],
    ["", "x@spammer.example", "alice@192.0.2.9", " alice@example.org ", '"a b"@example.org', "no-at",
     "<bob@example.net>", "bob@example.net", "a@b@c.example", "postmaster@"],
    ["bob@example.net", "postmaster@example.net", "bob", "", "bob@192.0.2.9"],
]


def replayed_or_explained(command):
    settings = environment(QUILLFENCE_DRIVE_C=str(SOURCE / "examples/drive_c"),
                           QUILLFENCE_EVENT_LOG="/dev/null", QUILLFENCE_DNS_SERVER="127.0.0.1:9")
    return subprocess.run(command, env=settings, stdin=subprocess.DEVNULL, capture_output=True,
                          timeout=60, check=False)


class ReportTest(unittest.TestCase):
    maxDiff = None

    def test_the_report_is_the_replayers_line(self):
        draw = random.Random(20261122)
        lines = set()
        for _ in range(RUNS):
            values = ["R"] + [draw.choice(pool) for pool in VALUES]
            replayed = replayed_or_explained([REPLAYER, *values])
            # Values may begin with a dash; what follows "--" is no option.
            explained = replayed_or_explained(
                [QUILLFENCE, "explain", "--json", "--", *values])
            record = json.loads(explained.stdout)
            if replayed.returncode == 0:
                self.assertEqual(record["report"], json.loads(replayed.stdout), values)
            else:
                self.assertEqual(list(record["report"]), ["failed"], values)
            lines.add(replayed.stdout)
        self.assertGreater(len(lines), 20, "the transactions are too much alike")


if __name__ == "__main__":
    main()
