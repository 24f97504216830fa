#!/usr/bin/env python3
"""Whole runs of quillfence explain short of memory: it never crashes, and a record that is printed
is whole and true; else the exit status says that there is none, and standard error why.

    starved_explain_test.py STARVED_PROGRAM STEP

Of every so many-th allocation, and of a tenth of them in some tests.
"""

import json
import subprocess

from whole_program import ARGUMENTS, FolderTest, environment_on, main

PROGRAM, STEP = ARGUMENTS[0], int(ARGUMENTS[1])
# A bounce from a private client: nothing is asked of the DNS.
VALUES = ["R", "10.1.2.3", "25", "0", "", "0", "", "", "bob@example.net"]
LIMIT = 10000  # allocations of a run
CLEAN_RUNS = 5  # in a row: the shortage comes after the run's last allocation
COULD_NOT = (b"quillfence: there is not enough memory\n",
             b"quillfence: the transaction could not be explained: out of memory\n",
             b"quillfence: the case could not be explained: out of memory\n")


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

    def run_starved(self, starve, *arguments):
        return subprocess.run([PROGRAM, "explain", *arguments], capture_output=True, timeout=60,
                              env=environment_on(self.folder, STARVE=starve))

    def explain(self, starve, *form):
        return self.run_starved(starve, "--dns", "off", *form, *VALUES)

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
        for n in range(1, LIMIT, STEP):
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
                self.assertGreater(refused, 500 // STEP, "the engine alone needs more")
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
        """The other forms of the answer, at every tenth of these allocations."""
        page = self.folder / "page.html"
        whole = self.explain("0", "--html", str(page))
        self.assertEqual(whole.returncode, 0)
        page.unlink()
        for n in range(1, LIMIT, 10 * STEP):
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

    def test_a_case_is_captured_whole_or_not_at_all(self):
        """And judged again truly or not at all; at every tenth of these allocations."""
        case = self.folder / "case.json"
        whole = self.explain("0", "--json", "--capture", str(case))
        self.assertEqual(whole.returncode, 0)
        kept = case.read_bytes()
        case.unlink()
        captured = self.until_enough(lambda starve: self.explain(starve, "--capture", str(case)))
        for run in captured:
            if run.returncode == 2:
                self.assertTrue(run.stderr.endswith(COULD_NOT) or b"case.json" in run.stderr,
                                run.stderr)
        self.assertEqual(len(case.read_bytes().splitlines()), len(kept.splitlines()))
        self.assertEqual([path.name for path in self.folder.glob("case.json*")], ["case.json"])

        case.write_bytes(kept)
        judged = self.until_enough(
            lambda starve: self.run_starved(starve, "--json", "--case", str(case)))
        for run in judged:
            if run.returncode == 0:
                self.assertEqual(json.loads(run.stdout)["decision"],
                                 json.loads(whole.stdout)["decision"])

    def until_enough(self, run_with):
        """The runs, up to the one that nothing is lacking in."""
        runs = []
        for n in range(1, LIMIT * 3, 10 * STEP):
            run = run_with(f"{n}+")
            self.assertIn(run.returncode, (0, 2, 3), (n, run.stderr))
            if run.returncode == 2:
                self.assertEqual(run.stdout, b"")
            runs.append(run)
            if run.returncode == 0 and run.stderr == run_with("0").stderr:
                self.assertGreater(len(runs), 50 // STEP)
                return runs
        self.fail(f"more than {LIMIT * 3} allocations")


if __name__ == "__main__":
    main()
