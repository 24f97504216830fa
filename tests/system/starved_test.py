#!/usr/bin/env python3
"""Whole runs of the program short of memory: a report that is whole comes with exit status 0 alone,
names no hit that is not so, and the log says what went wrong.

    starved_test.py STARVED_PROGRAM
"""

import json
import re
import subprocess

from whole_program import ARGUMENTS, FolderTest, environment_on, main

PROGRAM = ARGUMENTS[0]
# A bounce from a private client: nothing is asked of the DNS.
VALUES = ["10.1.2.3", "25", "0", "", "0", "", "", "bob@example.net"]
REPORT = b'{"spam_hits":["require_helo"],"bms_hits":["first"]}'
NO_SESSION = "Failed to convert command line arguments into smtp state"
NOT_PROCESSED = "Failed to process the smtp state"
NO_ENGINE = "Failed to initialize the spam engine"
LIMIT = 2000  # allocations of a run
CLEAN_RUNS = 5  # in a row: the shortage comes after the run's last allocation


class Starved(FolderTest):
    def setUp(self):
        super().setUp()
        self.file("quillfence/bms/lists_to_update", "first")
        self.file("quillfence/bms/first", bytes(40) + b"\xFF\xFF\xFF\xFF" + bytes(980))

    def replay(self, starve):
        return subprocess.run([PROGRAM, "R", *VALUES], capture_output=True, timeout=60,
                              env=environment_on(self.folder, STARVE=starve))

    def judge(self, run):
        """A run that had too little memory. Returns what main said, or "" when it said nothing."""
        said = re.findall(r"ERROR main\(\): (.*)", run.stderr.decode())
        self.assertIn(run.returncode, (0, 1), run.stderr)
        if run.returncode == 1:
            self.assertIn(run.stdout, (b"", b"{"), "nothing, or a report that broke off")
            self.assertLessEqual(len(said), 1)
            return said[0] if said else ""
        self.assertEqual(said, [])
        report = json.loads(run.stdout)
        self.assertEqual(list(report), ["spam_hits", "bms_hits"])
        for member, hits in json.loads(REPORT).items():
            self.assertLessEqual(set(report[member]), set(hits))
        self.assertNotEqual(run.stderr, b"", "a silent loss")
        return ""

    def sweep(self, ending=""):
        """What main said in the runs whose n-th allocation failed, for each n."""
        said, clean = set(), 0
        for n in range(1, LIMIT):
            with self.subTest(allocation=n):
                run = self.replay(f"{n}{ending}")
                if (run.returncode, run.stdout, run.stderr) == (0, REPORT, b""):
                    clean += 1
                else:
                    clean = 0
                    said.add(self.judge(run))
            if clean == CLEAN_RUNS:
                self.assertGreater(n, 100, "the rule table alone needs more")
                return said - {""}
        self.fail(f"more than {LIMIT} allocations")

    def test_enough_memory(self):
        run = self.replay("0")
        self.assertEqual((run.returncode, run.stdout, run.stderr), (0, REPORT, b""))

    def test_one_allocation_fails(self):
        self.assertEqual(self.sweep(), {NO_SESSION, NOT_PROCESSED})

    def test_all_fail_from_there_on(self):
        self.assertEqual(self.sweep("+"), {NO_ENGINE, NO_SESSION, NOT_PROCESSED})

    def test_no_rule_could_be_made(self):
        run = self.replay("3+")  # the first two are the log's
        self.assertEqual((run.returncode, run.stdout), (1, b""))
        self.assertRegex(run.stderr.decode(),
                         r"quillfence:\d+ ERROR quillfence_init\(\): "
                         r"no rules loaded\.\. engine cannot be initialized\n"
                         r".*quillfence-replayer:\d+ ERROR main\(\): " + NO_ENGINE + r"\n$")


if __name__ == "__main__":
    main()
