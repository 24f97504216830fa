#!/usr/bin/env python3
"""The report in a decision record is the replayer's line: two hundred random transactions through
both programs, with a name server that nobody answers for.

    explain_report_test.py QUILLFENCE REPLAYER SOURCE_FOLDER
"""

import json
import os
import random
import subprocess
import sys
import unittest

QUILLFENCE, REPLAYER, SOURCE = (os.path.abspath(path) for path in sys.argv[1:4])
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


def run(command, environment):
    return subprocess.run(command, env=environment, stdin=subprocess.DEVNULL, capture_output=True,
                          timeout=60, check=False)


class ReportTest(unittest.TestCase):
    maxDiff = None

    def test_the_report_is_the_replayers_line(self):
        environment = dict(os.environ, QUILLFENCE_DRIVE_C=os.path.join(SOURCE, "examples/drive_c"),
                           QUILLFENCE_EVENT_LOG="/dev/null", QUILLFENCE_DNS_SERVER="127.0.0.1:9")
        draw = random.Random(20261122)
        lines = set()
        for _ in range(RUNS):
            values = ["R"] + [draw.choice(pool) for pool in VALUES]
            replayed = run([REPLAYER, *values], environment)
            # Values may begin with a dash; what follows "--" is no option.
            explained = run([QUILLFENCE, "explain", "--json", "--", *values], environment)
            record = json.loads(explained.stdout)
            if replayed.returncode == 0:
                self.assertEqual(record["report"], json.loads(replayed.stdout), values)
            else:
                self.assertEqual(list(record["report"]), ["failed"], values)
            lines.add(replayed.stdout)
        self.assertGreater(len(lines), 20, "the transactions are too much alike")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
