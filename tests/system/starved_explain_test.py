#!/usr/bin/env python3
"""Whole runs of quillfence explain short of memory: it never crashes, and a record that is printed
is whole and true; else the exit status says that there is none, and standard error why.

    starved_explain_test.py STARVED_PROGRAM
"""

import json
import subprocess

from whole_program import ARGUMENTS, FolderTest, environment_on, main

PROGRAM = ARGUMENTS[0]
# A bounce from a private client: nothing is asked of the DNS.
VALUES = ["R", "10.1.2.3", "25", "0", "", "0", "", "", "bob@example.net"]
LIMIT = 10000  # allocations of a run
CLEAN_RUNS = 5  # in a row: the shortage comes after the run's last allocation
COULD_NOT = (b"quillfence: there is not enough memory\n",
             b"quillfence: the transaction could not be explained: out of memory\n")


class StarvedExplain(FolderTest):
    def setUp(self):
        super().setUp()
        for name, content in {
                "bms/lists_to_update": "first",
                "bms/first": bytes(40) + b"\xFF\xFF\xFF\xFF" + bytes(980),
                "control/enabled": "1\n",
                "control/bms.enabled": "first",
                "control/rules.enabled": "from_blacklist\nip_blacklist\n",
                "blocked_ips": "192.0.2.1\n10.1.2.3\n"}.items():
            self.file("quillfence/" + name, content)

    def explain(self, starve, *form):
        return subprocess.run([PROGRAM, "explain", "--dns", "off", *form, *VALUES],
                              capture_output=True, timeout=60,
                              env=environment_on(self.folder, STARVE=starve))

    def test_enough_memory(self):
        run = self.explain("0", "--json")
        self.assertEqual((run.returncode, run.stderr), (0, b""))
        record = json.loads(run.stdout)
        self.assertEqual(record["decision"]["rule"], "ip_blacklist")
        self.assertEqual(record["report"]["bms_hits"], ["first"])

    @staticmethod
    def essence(output):
        """A record without its times."""
        record = json.loads(output)
        record.pop("time", None)
        for rule in record["rules"]:
            rule.pop("us", None)
        return record

    def sweep(self, ending):
        whole = self.essence(self.explain("0", "--json").stdout)
        clean = refused = 0
        for n in range(1, LIMIT):
            with self.subTest(allocation=n):
                run = self.explain(f"{n}{ending}", "--json")
                if run.returncode == 2:
                    clean, refused = 0, refused + 1
                    self.assertEqual(run.stdout, b"")
                    self.assertTrue(run.stderr.endswith(COULD_NOT), run.stderr)
                    continue
                clean += 1
                self.assertIn(run.returncode, (0, 3), run.stderr)
                record = self.essence(run.stdout)
                if run.returncode == 0:
                    self.assertEqual(record["decision"], whole["decision"])
                else:
                    self.assertEqual(record["decision"]["verdict"], "undecided")
                    self.assertTrue(record["errors"], "what went wrong stands in the record")
                if record != whole:
                    clean = 0
            if clean >= CLEAN_RUNS and self.is_behind_the_last(n):
                self.assertGreater(refused, 500, "the engine alone needs more")
                return
        self.fail(f"more than {LIMIT} allocations")

    def is_behind_the_last(self, n):
        """Whether a run has no n-th allocation: all fail from there on, and nothing happens."""
        run = self.explain(f"{n}+", "--json")
        return run.returncode == 0 and run.stderr == b""

    def test_one_allocation_fails(self):
        self.sweep("")

    def test_all_fail_from_there_on(self):
        self.sweep("+")

    def test_text_and_page(self):
        """The other forms of the answer, at every tenth allocation."""
        page = self.folder / "page.html"
        whole = self.explain("0", "--html", str(page))
        self.assertEqual(whole.returncode, 0)
        page.unlink()
        for n in range(1, LIMIT, 10):
            with self.subTest(allocation=n):
                run = self.explain(f"{n}+", "--html", str(page))
                self.assertIn(run.returncode, (0, 2), run.stderr)
                if run.returncode == 2:
                    self.assertEqual(run.stdout, b"")
                    self.assertTrue(run.stderr.endswith(COULD_NOT) or b"page.html" in run.stderr,
                                    run.stderr)
                elif not run.stderr:
                    self.assertTrue(page.read_bytes().endswith(b"</html>\n"))
                    return
        self.fail(f"more than {LIMIT} allocations")


if __name__ == "__main__":
    main()
