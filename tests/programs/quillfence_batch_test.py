#!/usr/bin/env python3
"""quillfence batch as its user meets it: streams, endings, and what is said beside the lines.

    quillfence_batch_test.py [--runner=LAUNCHER] PROGRAM SOURCE_FOLDER

LAUNCHER runs the program on a Windows build (a list as CMake has it).
"""

import json
import os
import random
import re
import shutil
import signal
import subprocess
import time
import unittest
from pathlib import Path

from whole_program import (ARGUMENTS, RUNNER, FolderTest, environment, is_sanitized, main,
                           run)

PROGRAM, SOURCE = (Path(argument).resolve() for argument in ARGUMENTS)

DONE, FAILED, PARTLY = 0, 2, 3
SAMPLES = 40 if RUNNER else 1000


def transaction(number, **members):
    """One of many, told by its number."""
    chance = random.Random(number)
    return {"ip": f"192.0.2.{chance.randrange(256)}", "port": "25", "tls": bool(number % 2),
            "authuser": "", "mua": False, "helo": f"mail{number % 7}.example.org",
            "sender": chance.choice(["x@spammer.example", "a@example.org", ""]),
            "recipient": "bob@example.net", **members}


def lines_of(transactions):
    return "".join(json.dumps(one) + "\n" for one in transactions)


class Case(FolderTest):
    def setUp(self):
        super().setUp()
        shutil.copytree(SOURCE / "examples/drive_c", self.folder / "drive")

    def start(self, *arguments, **streams):
        return subprocess.Popen([PROGRAM, "batch", "--drive-c", "drive", *arguments],
                                cwd=self.folder, env=environment(), **streams)

    def run_program(self, *arguments, text=""):
        return run([PROGRAM, *arguments], self.folder, text)

    def batch(self, *arguments, text=""):
        return self.run_program("batch", "--drive-c", "drive", *arguments, text=text)

    def records(self, *arguments, text=""):
        status, out, err = self.batch("--quiet", *arguments, text=text)
        self.assertEqual((status, err), (DONE, ""))
        return [json.loads(line) for line in out.splitlines()]


class HitsTest(Case):
    def hits(self, *arguments, text=""):
        status, out, err = self.batch("--quiet", "--dns", "off", "--hits", *arguments, text=text)
        self.assertEqual((status, err), (DONE, ""))
        return out

    def test_each_line_is_worth_what_diff_finds_without_it(self):
        lists = self.folder / "drive/quillfence"
        lines = {"from_blacklist": ["*@spammer.example", "x@*", "nobody@example.org"],
                 "blocked_ips": [f"192.0.2.{n}" for n in range(0, 256, 16)],
                 "from_whitelist": ["a@example.org"]}
        for name, entries in lines.items():
            (lists / name).write_text("".join(entry + "\n" for entry in entries), newline="\n")
        self.file("in", lines_of(transaction(n) for n in range(SAMPLES)))
        rows = [json.loads(line) for line in self.hits("--hits-form", "json", "in").splitlines()]
        worth = {(row["file"], row["place"]): row for row in rows}
        shutil.copytree(self.folder / "drive", self.folder / "other")
        asked = 0
        for name, entries in lines.items():
            other = self.folder / "other/quillfence" / name
            for place, entry in list(enumerate(entries, 1))[:3]:
                row = worth[f"c:/quillfence/{name}", place]
                self.assertEqual(row["entry"], entry)
                other.write_text("".join(line + "\n" for line in entries if line != entry),
                                 newline="\n")
                _, out, _ = self.run_program("diff", "--before", "drive", "--after", "other",
                                             "--dns", "off", "--json", "in")
                changes = [json.loads(line) for line in out.splitlines()]
                ways = [(one["before"]["verdict"], one["after"]["verdict"]) for one in changes]
                ways = [way for way in ways if way[0] != way[1]]
                self.assertEqual(row["only"] + row["open"], len(ways), row)
                self.assertEqual(row["open"], sum(way[1] == "undecided" for way in ways), row)
                asked += len(ways)
            other.write_text("".join(line + "\n" for line in entries), newline="\n")
        self.assertGreater(asked, SAMPLES // 20)

    def test_forms(self):
        self.file("in", lines_of([transaction(1, sender="x@spammer.example", ip="192.0.2.9")]))
        table = self.hits("--hits-form", "tsv", "in").splitlines()
        self.assertEqual(table[0], "file\tplace\tentry\tmatched\tdecided\tonly\topen")
        self.assertIn("c:/quillfence/from_blacklist\t2\t*@spammer.example\t1\t1\t0\t1", table)
        objects = [json.loads(line) for line in self.hits("in").splitlines()]
        self.assertEqual(["\t".join(str(value) for value in one.values()) for one in objects],
                         [row.replace("\\\\", "\\") for row in table[1:]])
        shown = self.hits("--hits-form", "table", "in")
        self.assertIn("c:/quillfence/from_blacklist: 1 entry, 0 unused\n", shown)
        self.assertLessEqual(max(len(line) for line in shown.splitlines()), 80)

    def test_bad_lines_stand_beside_the_table(self):
        status, out, err = self.batch("--quiet", "--dns", "off", "--hits", "--hits-form", "tsv",
                                      text='{"ip": 7}\n{"ip": "192.0.2.25"}\n')
        self.assertEqual((status, err), (PARTLY, '{"error":"ip: is not a text","line":1}\n'))
        self.assertIn("c:/quillfence/exempt_ips\t2\t192.0.2.25\t1\t1\t", out)

    def test_what_does_not_go_together(self):
        for other in ("--full", "--line", "--tsv", "--report"):
            status, out, err = self.batch("--hits", other)
            self.assertEqual((status, out), (FAILED, ""))
            self.assertIn(other, err)
        status, _, err = self.batch("--hits-form", "tsv")
        self.assertEqual(status, FAILED)
        self.assertIn("--hits", err)

    def test_a_line_more(self):
        """Of a what-if the lists are the changed ones."""
        text = lines_of([transaction(1, sender="x@new.example", ip="192.0.2.9")])
        out = self.hits("--hits-form", "tsv", "--with-list", "from_blacklist", "*@new.example",
                        text=text)
        self.assertRegex(out, r"c:/quillfence/from_blacklist\t\d\t\*@new.example\t1\t1\t")

    @unittest.skipIf(RUNNER, "a terminal of Linux")
    def test_on_a_terminal(self):
        master, terminal = os.openpty()
        self.file("in", lines_of([transaction(1)]))
        run = self.start("--quiet", "--dns", "off", "--hits", "in", stdout=terminal)
        os.close(terminal)
        shown = b""
        while True:
            try:
                piece = os.read(master, 4096)
            except OSError: # the other end was closed
                break
            shown += piece
        os.close(master)
        self.assertEqual(run.wait(timeout=60), DONE)
        self.assertIn(b"c:/quillfence/exempt_ips: 1 entry, ", shown)


class LinesTest(Case):
    def test_sampled_lines_are_those_of_explain(self):
        """Explain tells more of the same: the whole form, with near misses and times."""
        everything = [transaction(n) for n in range(SAMPLES)]
        out = self.records("--dns", "off", "--full", text=lines_of(everything))
        self.assertEqual(len(out), SAMPLES)
        for n in range(0, SAMPLES, 1 if RUNNER else 10):
            self.file("one", lines_of([everything[n]]))
            status, single, _ = self.run_program("explain", "--drive-c", "drive", "--dns", "off",
                                                 "--input", "one", "--json")
            self.assertIn(status, (0, 3))
            single = json.loads(single)
            for record in (single, out[n]):
                record["id"] = ""
                record.pop("time", None)
                record["config"].pop("revision", None)
                for rule in record["rules"]:
                    rule.pop("us", None)
            self.assertEqual(out[n], single)

    def test_order_and_numbers_for_any_number_of_threads(self):
        text = lines_of(transaction(n) for n in range(3000))
        one = self.batch("--quiet", "--jobs", "1", text=text)
        many = self.batch("--quiet", "--jobs", "7", text=text)
        self.assertEqual(one, many)
        numbers = [json.loads(line)["id"] for line in one[1].splitlines()]
        self.assertEqual(numbers, [str(n + 1) for n in range(3000)])

    def test_its_own_output_is_an_input(self):
        first = self.batch("--quiet", text=lines_of(transaction(n) for n in range(50)))
        self.assertEqual(self.batch("--quiet", text=first[1]), first)

    def test_a_policy_request_is_judged_by_what_its_stage_has(self):
        """Postfix sends all attributes at all stages, with nothing in those to come."""
        told = {"CONNECT": "", "EHLO": "helo_name=h.example\n",
                "MAIL": "helo_name=h.example\nsender=a@b.example\n",
                "RCPT": "helo_name=h.example\nsender=a@b.example\nrecipient=c@d.example\n",
                "DATA": "helo_name=h.example\nsender=a@b.example\nrecipient_count=2\n"}
        missing = {"CONNECT": ["helo", "sender", "recipient"], "EHLO": ["sender", "recipient"],
                   "MAIL": ["recipient"], "RCPT": [], "DATA": ["recipient"]}
        text = ""
        for stage, lines in told.items():
            text += f"protocol_state={stage}\nclient_address=192.0.2.9\nsasl_username=\n{lines}"
            text += "".join(f"{name}=\n" for name in ("helo_name", "sender", "recipient")
                            if f"{name}=" not in lines) + "\n"
        for record in self.records("--dns", "off", text=text):
            stage = record["transaction"]["stage"]
            absent = {"helo", "sender", "recipient"} - record["transaction"].keys()
            self.assertEqual(absent, set(missing.pop(stage)), stage)
            self.assertNotEqual(record["decision"]["verdict"], "reject", stage)
        self.assertEqual(missing, {})

    def test_what_if(self):
        text = lines_of([transaction(1, sender="a@b.example")])
        record, = self.records("--with-list", "from_whitelist", "a@b.example", text=text)
        self.assertEqual(record["decision"]["rule"], "from_whitelist")
        status, _, err = self.batch("--without-list", "from_whitelist", "no@such.line", text=text)
        self.assertEqual((status, err), (FAILED, "quillfence: c:/quillfence/from_whitelist: there "
                                         'is no line "no@such.line" to leave out\n'))


class SummaryTest(Case):
    def summary(self, *arguments, text):
        status, _, err = self.batch(*arguments, text=text)
        return status, re.sub(r"\(.* a second\)", "(rate)", err)

    def test_what_is_counted(self):
        text = lines_of([transaction(1), {"ip": "192.0.2.1"}, {"ip": 7}])
        self.assertEqual(
            self.summary("--dns", "off", text=text),
            (PARTLY, "quillfence: 2 transactions: 2 undecided (rate)\n"
                     'quillfence: 1 line "error" in the place of a transaction\'s\n'
                     "quillfence: missing: A answers in 1 transaction, AAAA answers in 1, "
                     "PTR answers in 2, helo in 1, mua in 1, recipient in 1, "
                     "sender in 1\n"))
        self.assertEqual(self.summary("--quiet", "--dns", "off", text=text), (PARTLY, ""))
        self.assertEqual(self.summary(text=""), (DONE, "quillfence: 0 transactions (rate)\n"))


class RefusalsTest(Case):
    def check_refused(self, arguments, said, text=""):
        with self.subTest(arguments=arguments):
            status, out, err = self.batch("--quiet", *arguments, text=text)
            self.assertEqual((status, out, err), (FAILED, "", f"quillfence: {said}\n"))

    def test_what_can_not_be_used(self):
        self.check_refused(["none"], "none: No such file or directory")
        self.check_refused(["--from", "csv"],
                           '--from: there is no format "csv"; they are json, policy, tsv, qflog, '
                           "postfix and exim")
        self.check_refused(["--dns", "none"], "--dns: none: No such file or directory")
        self.file("odd", "hello\n")
        self.check_refused(["odd"],
                           "odd: it looks like no format that is known; name one with --from")
        self.check_refused([], "standard input: it looks like no format that is known; name one "
                               "with --from", text="\x00\x01\x02\n")

    def test_a_missing_file_is_told_before_anything_is_judged(self):
        self.file("good", lines_of([transaction(1)]))
        self.check_refused(["good", "none"], "none: No such file or directory")

    def test_a_last_line_that_is_cut_off(self):
        status, out, _ = self.batch("--quiet", text=lines_of([transaction(1)]) + '{"ip": "192.0')
        self.assertEqual(status, PARTLY)
        self.assertEqual(json.loads(out.splitlines()[1])["line"], 2)

    @unittest.skipIf(RUNNER, "the system asks its own servers there")
    def test_a_server_that_is_none(self):
        self.check_refused(["--dns", "live", "--server", "x"],
                           '--server: "x" is no server; write an address, as in 192.0.2.53, '
                           "192.0.2.53:5353 or [2001:db8::53]:5353")


@unittest.skipIf(RUNNER, "signals, devices and limits of Linux")
class EndingsTest(Case):
    def endless(self, run):
        """Feeds transactions until the program has had enough."""
        try:
            for n in range(10_000_000):
                run.stdin.write(lines_of([transaction(n)]).encode())
        except BrokenPipeError:
            pass

    def test_an_interruption(self):
        for sent in (signal.SIGINT, signal.SIGTERM):
            out = open(self.folder / "out", "w+b")
            self.addCleanup(out.close)
            run = self.start(stdin=subprocess.PIPE, stdout=out,
                             stderr=subprocess.PIPE)
            run.stdin.write(lines_of(transaction(n) for n in range(500)).encode())
            run.stdin.flush() # and the pipe stays open
            deadline = time.monotonic() + 60
            while os.stat(self.folder / "out").st_size == 0 and time.monotonic() < deadline:
                time.sleep(0.05)
            run.send_signal(sent)
            err = run.stderr.read().decode()
            self.assertEqual(run.wait(timeout=60), PARTLY)
            run.stdin.close()
            run.stderr.close()
            self.assertTrue(err.endswith("quillfence: interrupted\n"), err)
            out.seek(0)
            lines = out.read().decode()
            self.assertTrue(lines.endswith("\n"))
            numbers = [json.loads(line)["id"] for line in lines.splitlines()]
            self.assertEqual(numbers, [str(n + 1) for n in range(len(numbers))])
            self.assertGreater(len(numbers), 0)

    def test_an_ignored_signal_stays_ignored(self):
        run = self.start("--quiet", stdin=subprocess.PIPE,
                         stdout=subprocess.PIPE, preexec_fn=lambda: signal.signal(
                             signal.SIGINT, signal.SIG_IGN))
        run.stdin.write(lines_of([transaction(0)]).encode())
        run.stdin.flush()
        self.assertTrue(run.stdout.readline())
        run.send_signal(signal.SIGINT)
        run.stdin.write(lines_of([transaction(1)]).encode())
        out, _ = run.communicate(timeout=60)
        self.assertEqual((run.returncode, out.count(b"\n")), (DONE, 1))

    def test_lines_come_out_while_the_input_stays_open(self):
        run = self.start("--quiet", stdin=subprocess.PIPE,
                         stdout=subprocess.PIPE)
        for n in range(3):
            run.stdin.write(lines_of([transaction(n)]).encode())
            run.stdin.flush()
            self.assertEqual(json.loads(run.stdout.readline())["id"], str(n + 1))
        run.communicate(timeout=60)
        self.assertEqual(run.returncode, DONE)

    def test_a_reader_that_has_gone(self):
        run = self.start(stdin=subprocess.PIPE,
                         stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        run.stdout.close()
        self.endless(run)
        try:
            run.stdin.close()
        except BrokenPipeError:
            pass
        err = run.stderr.read()
        run.stderr.close()
        self.assertEqual((run.wait(timeout=60), err), (FAILED, b""))

    def test_a_full_disk(self):
        with open("/dev/full", "wb") as full:
            run = self.start("--quiet", stdin=subprocess.PIPE,
                             stdout=full, stderr=subprocess.PIPE)
            _, err = run.communicate(lines_of([transaction(1)]).encode(), timeout=60)
        self.assertEqual((run.returncode, err.decode()),
                         (FAILED, "quillfence: standard output can't be written: "
                                  "No space left on device\n"))

    def test_the_bar_on_a_terminal(self):
        master, terminal = os.openpty()
        self.file("in", lines_of(transaction(n) for n in range(20_000)))
        with open(self.folder / "out", "wb") as out:
            run = self.start("--quiet", "--full", "in", stdout=out,
                             stderr=terminal)
        os.close(terminal)
        shown = b""
        while True:
            try:
                piece = os.read(master, 4096)
            except OSError: # the other end was closed
                break
            shown += piece
        os.close(master)
        self.assertEqual(run.wait(timeout=60), DONE)
        self.assertRegex(shown.decode(), r"\r\[#*\.*\]  +\d+%  \d+/s  \d+:\d\d left")
        self.assertTrue(shown.decode().endswith(" \r"), "the bar is wiped")

    @unittest.skipIf(is_sanitized(PROGRAM), "the sanitizer needs more")
    def test_memory_does_not_grow_with_the_input(self):
        """Under a limit that the input alone would break."""
        def limit_memory():
            import resource # Linux has it alone
            resource.setrlimit(resource.RLIMIT_DATA, (96 << 20, 96 << 20))

        run = self.start("--quiet", "--dns", "off",
                         stdin=subprocess.PIPE, stdout=subprocess.DEVNULL,
                         preexec_fn=limit_memory)
        filler = "x" * 15_000
        for n in range(8_000): # 120 MB
            run.stdin.write(lines_of([{"ip": "127.0.0.1", "note": filler}]).encode())
        run.communicate(timeout=300)
        self.assertEqual(run.returncode, DONE)


if __name__ == "__main__":
    main()
