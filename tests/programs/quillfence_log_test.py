#!/usr/bin/env python3
"""quillfence log as its user meets it: what is found, shown and said about what is no record.

    quillfence_log_test.py [--runner=LAUNCHER] PROGRAM SOURCE_FOLDER

LAUNCHER runs the program on a Windows build (a list as CMake has it).
"""

import gzip
import json
import os
import re
import shutil
import signal
import subprocess
import time
import unittest
from pathlib import Path

from whole_program import (ARGUMENTS, RUNNER, FolderTest, environment, main, read_terminal,
                           run)

PROGRAM, SOURCE = (Path(argument).resolve() for argument in ARGUMENTS)

DONE, NO, FAILED, PARTLY = 0, 1, 2, 3


def record(number, **changes):
    """A record as the service writes it; its time is `number` minutes after midnight."""
    made = {"schema": "quillfence.decision/1", "id": f"3f2a.{number}",
            "time": f"2026-11-22T{number // 60:02}:{number % 60:02}:00.000Z",
            "engine": {"version": "1.0.0", "build": "linux-x86_64"},
            "config": {"base": "c:/quillfence/"},
            "transaction": {"stage": "RCPT", "ip": "192.0.2.9", "helo": "spammer.example",
                            "sender": "x@spammer.example", "recipient": "bob@example.net"},
            "extra": {"answered": "DUNNO"},
            "facts": {"localhost": False, "ipv6": False, "routable": True, "bounce": False,
                      "ptr": []},
            "decision": {"verdict": "reject", "by": "rule", "rule": "from_blacklist",
                         "hit_name": "from_blacklist"},
            "rules": [], "block_maps": [], "dns_block_lists": [], "dns": [], "missing": [],
            "notes": []}
    for name, value in changes.items():
        made[name] = {**made[name], **value} if isinstance(value, dict) else value
    return json.dumps(made, separators=(",", ":")) + "\n"


class Case(FolderTest):
    def log(self, *arguments, text=""):
        return run([PROGRAM, "log", *arguments], self.folder, text)

    def ids(self, *arguments, status=DONE):
        """The numbers of the records that are found, without anything on standard error."""
        got, out, err = self.log(*arguments)
        self.assertEqual((got, err), (status, ""))
        return [int(json.loads(line)["id"].split(".")[1]) for line in out.splitlines()]


class FilesTest(Case):
    def test_rotated_ones_come_first_the_oldest_in_front(self):
        self.file("log", record(5) + record(6))
        self.file("log.1", record(4))
        self.file("log.2.gz", gzip.compress(record(2).encode()) + gzip.compress(record(3).encode()))
        self.file("log.10.gz", gzip.compress(record(1).encode()))
        self.file("log.1.bak", record(99))
        self.assertEqual(self.ids("log"), [1, 2, 3, 4, 5, 6])
        self.assertEqual(self.ids("--alone", "log"), [5, 6])
        self.assertEqual(self.ids("--limit", "2", "log"), [5, 6])
        self.assertEqual(self.ids("log", "log.1", "log.2.gz"), [1, 2, 3, 4, 5, 6])
        self.assertEqual(self.ids("--alone", "log", "log.1"), [5, 6, 4])

    def test_records_come_as_they_stand(self):
        text = record(1) + record(2, extra={"mine": [1, {"a": None}]})
        self.file("log", text)
        self.assertEqual(self.log("log"), (DONE, text, ""))
        self.assertEqual(self.log("--alone", "-", text=text), (DONE, text, ""))

    def test_a_missing_file_ends_it_before_anything_is_written(self):
        self.file("log", record(1))
        status, out, err = self.log("log", "lgo")
        self.assertEqual((status, out), (FAILED, ""))
        self.assertEqual(err, "quillfence: lgo: No such file or directory\n")

    def test_nothing_found_is_an_answer(self):
        self.file("log", record(1))
        self.assertEqual(self.log("--sender", "a@b.example", "log"), (NO, "", ""))
        self.file("empty", "")
        self.assertEqual(self.log("empty"), (NO, "", ""))


class FilterTest(Case):
    def setUp(self):
        super().setUp()
        self.file("log", record(1)
                  + record(2, transaction={"ip": "198.51.100.7", "sender": ""})
                  + record(3, transaction={"recipient": "Alice@sub.Example.net"},
                           decision={"verdict": "accept", "by": "nothing", "rule": ""})
                  + record(61, extra={"answered": "550 5.7.1 no"}))

    def test_each(self):
        for arguments, found in (
                (("--client", "198.51.100.7"), [2]),
                (("--client", "192.0.2.0/24"), [1, 3, 61]),
                (("--client", "198.51.100.7", "--client", "192.0.2.9"), [1, 2, 3, 61]),
                (("--sender", "<>"), [2]),
                (("--sender", "@spammer.example"), [1, 3, 61]),
                (("--recipient", "alice@sub.example.net"), [3]),
                (("--domain", "example.net"), [1, 2, 3, 61]),
                (("--domain", "sub.example.net"), [3]),
                (("--rule", "from_blacklist"), [1, 2, 61]),
                (("--verdict", "accept"), [3]),
                (("--by", "nothing"), [3]),
                (("--answered", "reject"), [61]),
                (("--id", "3f2a.61"), [61]),
                (("--id", "3f2a"), [1, 2, 3, 61]),
                (("--since", "2026-11-22T00:02"), [2, 3, 61]),
                (("--until", "2026-11-22T00:02:00Z"), [1]),
                (("--since", "2026-11-22", "--until", "2026-11-22T01:00"), [1, 2, 3]),
                (("--verdict", "reject", "--client", "192.0.2.9", "--answered", "dunno"), [1])):
            with self.subTest(arguments=arguments):
                self.assertEqual(self.ids(*arguments, "log"), found)

    def test_what_can_not_be_understood(self):
        for arguments, said in (
                (("--client", "192.0.2"), '--client: "192.0.2" is no address and no network'),
                (("--since", "22.11.2026"), '--since: "22.11.2026" is no time'),
                (("--verdict", "maybe"), "--verdict"),
                (("--limit", "0"), "--limit"),
                (("--follow", "--alone", "a", "b"), "--follow: name one file"),
                (("--again",), "--again requires --explain"),
                (("--json", "--text"), "--text excludes --json")):
            with self.subTest(arguments=arguments):
                status, out, err = self.log(*arguments, "log")
                self.assertEqual((status, out), (FAILED, ""))
                self.assertIn(said, err)


class OutputTest(Case):
    def test_text(self):
        self.file("log", record(1) + record(2, id="", time="", extra={"answered": ""},
                                            transaction={"sender": "", "ip": "2001:db8::1"}))
        self.assertEqual(self.log("--text", "log")[1], """\
2026-11-22 00:01:00  reject     from_blacklist                192.0.2.9
  x@spammer.example -> bob@example.net  (id 3f2a.1, answered DUNNO)
-                    reject     from_blacklist                2001:db8::1
  <> -> bob@example.net
""")

    def test_no_line_is_wider_than_a_terminal(self):
        long = "x" * 300
        self.file("log", "".join(record(
            n, id=long, extra={"answered": "550 " + long},
            transaction={"ip": "2001:db8:1111:2222:3333:4444:5555:6666",
                         "sender": f"{long}@{long}.example", "recipient": "\x1b[31m" + long,
                         "helo": long},
            decision={"rule": long, "hit_name": long, "notice": long},
            dns_block_lists=[{"zone": long, "outcome": "hit", "answer": "refused", "dns": [0]}],
            dns=[{"n": 0, "name": long, "type": long, "status": 0, "class": "found",
                  "records": [], "attempt": 1, "ms": 1e300, "used_by": []}]) for n in range(99)))
        for arguments in (["--text"], ["--summary"], ["--explain", long], ["--help"]):
            status, out, _ = self.log(*arguments, "log")
            self.assertEqual(status, DONE)
            for line in out.splitlines():
                self.assertLessEqual(len(line), 80, line)
                self.assertRegex(line, r"^[ -~]*$")

    def test_tsv(self):
        self.file("log", record(1))
        status, out, _ = self.log("--tsv", "log")
        heading, row = out.splitlines()
        cells = dict(zip(heading.split("\t"), row.split("\t")))
        self.assertEqual(status, DONE)
        self.assertEqual((cells["id"], cells["verdict"], cells["rule"], cells["recipient"]),
                         ("3f2a.1", "reject", "from_blacklist", "bob@example.net"))

    def test_sums(self):
        listed = {"zone": "rbl.example", "outcome": "hit", "answer": "listed", "dns": [0]}
        asked = {"n": 0, "name": "9.2.0.192.rbl.example.", "type": "A", "status": 0,
                 "rcode": "NOERROR", "class": "found", "records": ["A 127.0.0.2"], "attempt": 1,
                 "ms": 10, "used_by": []}
        self.file("log", record(1, dns_block_lists=[listed], dns=[asked])
                  + record(2, dns_block_lists=[{**listed, "answer": "not_listed"}],
                           dns=[{**asked, "rcode": "REFUSED", "class": "no_name", "ms": 30}])
                  + record(61, decision={"verdict": "accept", "by": "nothing", "rule": ""},
                           transaction={"sender": ""}, extra={"answered": "OK"}))
        status, out, _ = self.log("--summary", "log")
        self.assertEqual(status, DONE)
        self.assertEqual(out, """\
3 records: 1 accepted, 2 rejected, 0 undecided
  from 2026-11-22 00:01:00 to 2026-11-22 01:01:00 (UTC)

What decided
  records  decision
        2  reject by from_blacklist
        1  accept by nothing

What the mail server was told
  records  answer
        2  dunno
        1  ok

Days
  day         records  accept  reject  undecided
  2026-11-22        3       1       2          0

The last hours
  hour              records  accept  reject  undecided
  2026-11-22 00:00        2       0       2          0
  2026-11-22 01:00        1       1       0          0

Clients
  records  accept  reject  undecided  client
        3       1       2          0  192.0.2.9

Senders
  records  accept  reject  undecided  sender
        2       0       2          0  x@spammer.example
        1       1       0          0  <>

Domains of senders
  records  accept  reject  undecided  domain
        2       0       2          0  spammer.example

DNS block lists
  asked  listed  clear  refused  odd  failed  zone
      2       1      0        1    0       0  rbl.example
                                                mean 20.0 ms, longest 30.0 ms
  What refuses wants to be asked through a resolver of your own

DNS questions
  type  asked  found  no name  refused  failed  mean     longest
  A         2      1        0        1       0  20.0 ms  30.0 ms
""")


class BadLinesTest(Case):
    def test_they_are_named_and_the_rest_goes_on(self):
        self.file("log", record(1).encode() + record(2).encode()[:100] + b"\n" + b"\x00\xff\x01\n"
                  + b'{"a":1}\n' + b"x" * 10_000_000 + b"\n\n" + record(3).encode()
                  + record(4).encode()[:-3])
        status, out, err = self.log("log")
        self.assertEqual((status, out), (PARTLY, record(1) + record(3)))
        self.assertEqual(err, "log:2: error: the document ends in a text\n"
                              "log:3: error: a value is missing\n"
                              "log:4: error: is no decision record\n"
                              "log:5: error: the line is longer than 8 MiB\n"
                              "log:8: error: the document ends too early\n")

    def test_not_all_of_them(self):
        self.file("log", "no record\n" * 1000 + record(1))
        status, out, err = self.log("log")
        self.assertEqual((status, out), (PARTLY, record(1)))
        lines = err.splitlines()
        self.assertEqual(len(lines), 11)
        self.assertEqual(lines[-1], "quillfence: and 990 lines more with something wrong")

    def test_a_damaged_file_is_named_and_the_next_one_goes_on(self):
        whole = gzip.compress(record(1).encode() * 1000)
        self.file("log.2.gz", whole[:len(whole) // 2])
        self.file("log.1.gz", gzip.compress(record(2).encode()))
        self.file("log.3.xz", b"\xfd7zXZ\x00...")
        self.file("log", record(3))
        status, out, err = self.log("log")
        self.assertEqual(status, PARTLY)
        self.assertTrue(out.endswith(record(2) + record(3)))
        self.assertEqual(err, "quillfence: log.3.xz: is compressed by xz; unpack it with xz -dc "
                              "and give it on standard input\n"
                              "quillfence: log.2.gz: ends in the midst of its compressed data\n")


class ExplainTest(Case):
    def setUp(self):
        super().setUp()
        shutil.copytree(SOURCE / "examples/drive_c", self.folder / "drive")
        _, out, _ = run([PROGRAM, "batch", "--drive-c", "drive", "--quiet", "--dns",
                         SOURCE / "examples/answers", SOURCE / "examples/transactions"],
                        self.folder)
        self.line, = (line + "\n" for line in out.splitlines() if '"id":"a2"' in line)
        self.file("log", record(1) + self.line)

    def test_as_it_was_decided(self):
        status, out, err = self.log("--explain", "a2", "log")
        self.assertEqual((status, err), (DONE, ""))
        self.assertTrue(out.startswith("REJECT by from_blacklist\n"), out)
        self.assertIn("c:/quillfence/from_blacklist:2", out)
        self.assertEqual(self.log("--explain", "a2", "--json", "log"), (DONE, self.line, ""))

    def test_no_such_record(self):
        self.assertEqual(self.log("--explain", "3f2a", "log"),
                         (NO, "", 'quillfence: there is no record with the id "3f2a"\n'))

    def test_the_newest_of_several(self):
        self.file("log", record(1) + record(1, decision={"rule": "valid_ptr"}))
        status, out, err = self.log("--explain", "3f2a.1", "log")
        self.assertEqual((status, err), (DONE, "quillfence: 2 records have this id; this is the "
                                               "newest, log:2\n"))
        self.assertTrue(out.startswith("REJECT by valid_ptr\n"), out)

    def again(self, *arguments):
        return self.log("--explain", "a2", "--again", "--drive-c", "drive", *arguments, "log")

    def test_again(self):
        status, out, err = self.again()
        self.assertEqual((status, err), (DONE, ""))
        self.assertTrue(out.startswith("The same decision now.\n\nREJECT by from_blacklist\n"), out)

    def test_again_with_another_configuration(self):
        path = self.folder / "drive/quillfence/from_whitelist"
        path.write_bytes(path.read_bytes() + b"x@spammer.example\n")
        status, out, _ = self.again()
        self.assertEqual(status, NO)
        self.assertTrue(out.startswith(
            "It is decided otherwise now.\n"
            "  then  REJECT by from_blacklist, c:/quillfence/from_blacklist:2:\n"
            "        *@spammer.example (wildcard)\n"
            "  now   ACCEPT: exempt by from_whitelist, c:/quillfence/from_whitelist:"), out)
        status, out, _ = self.again("--json")
        self.assertEqual(json.loads(out)["decision"]["rule"], "from_whitelist")

    def test_again_by_another_line(self):
        path = self.folder / "drive/quillfence/from_blacklist"
        path.write_bytes(b"x@spammer.example\n" + path.read_bytes())
        status, out, _ = self.again()
        self.assertEqual(status, DONE)
        self.assertTrue(out.startswith("The same decision now, by another entry.\n"), out)

    def test_again_without_an_answer_that_it_needs_now(self):
        status, out, _ = self.again("--without-list", "from_blacklist", "*@spammer.example")
        self.assertEqual(status, PARTLY)
        self.assertIn("  now   UNDECIDED: something that decides is not known\n", out)


@unittest.skipIf(RUNNER, "signals and terminals of Linux")
class FollowTest(Case):
    """What is printed comes on a pipe, line by line."""

    def start(self, *arguments):
        program = subprocess.Popen([PROGRAM, "log", "--follow", *arguments, "log"],
                                   cwd=self.folder, env=environment(), stdout=subprocess.PIPE,
                                   stderr=subprocess.PIPE, text=True)
        self.addCleanup(program.stdout.close)
        self.addCleanup(program.stderr.close)
        self.addCleanup(program.wait)
        self.addCleanup(program.kill)
        return program

    def add(self, text):
        with open(self.folder / "log", "a", encoding="ascii") as file:
            file.write(text)

    def end(self, program):
        program.send_signal(signal.SIGINT)
        out, err = program.communicate(timeout=20)
        return program.returncode, out, err

    def test_the_newest_and_then_what_comes(self):
        self.file("log", "".join(record(n) for n in range(20)))
        program = self.start("--limit", "2", "--verdict", "reject")
        self.assertEqual(program.stdout.readline(), record(18))
        self.assertEqual(program.stdout.readline(), record(19))
        self.add(record(20, decision={"verdict": "accept"}) + record(21))
        self.assertEqual(program.stdout.readline(), record(21))
        self.assertEqual(self.end(program), (DONE, "", ""))

    def test_a_line_waits_for_its_end(self):
        self.file("log", record(1))
        program = self.start()
        self.assertEqual(program.stdout.readline(), record(1))
        self.add(record(2)[:50])
        time.sleep(0.5)
        self.add(record(2)[50:])
        self.assertEqual(program.stdout.readline(), record(2))
        self.assertEqual(self.end(program), (DONE, "", ""))

    def test_rotation(self):
        self.file("log", record(1))
        program = self.start()
        self.assertEqual(program.stdout.readline(), record(1))
        os.rename(self.folder / "log", self.folder / "log.1")
        time.sleep(0.5)  # for a while there is none
        with open(self.folder / "log.1", "a", encoding="ascii") as file:
            file.write(record(2))  # the service has not been told yet
        self.file("log", record(3))
        self.assertEqual(program.stdout.readline(), record(2))
        self.assertEqual(program.stdout.readline(), record(3))
        self.add(record(4))
        self.assertEqual(program.stdout.readline(), record(4))
        self.assertEqual(self.end(program), (DONE, "", ""))

    def test_a_file_that_is_cut(self):
        self.file("log", record(1) + record(2))
        program = self.start()
        self.assertEqual(program.stdout.readline(), record(1))
        self.assertEqual(program.stdout.readline(), record(2))
        os.truncate(self.folder / "log", 0)
        time.sleep(0.5)
        self.add(record(3))
        self.assertEqual(program.stdout.readline(), record(3))
        self.assertEqual(self.end(program), (DONE, "", ""))

    def test_a_torn_line_that_is_cut_off(self):
        """As a service does it that starts after one that was killed."""
        self.file("log", record(1) + record(2) + record(3)[:50])
        program = self.start()
        self.assertEqual(program.stdout.readline(), record(1))
        self.assertEqual(program.stdout.readline(), record(2))
        for n in (4, 5):
            time.sleep(0.5)
            os.truncate(self.folder / "log", (self.folder / "log").stat().st_size - 50)
            time.sleep(0.5)
            self.add(record(n))
            self.assertEqual(program.stdout.readline(), record(n))
            self.add(record(n + 1)[:50])
        self.assertEqual(self.end(program), (DONE, "", ""))

    def test_what_is_wrong_is_said_at_once(self):
        self.file("log", record(1))
        program = self.start()
        program.stdout.readline()
        self.add("no record\n")
        self.assertEqual(program.stderr.readline(), "log:2: error: a value is missing\n")
        self.assertEqual(self.end(program), (PARTLY, "", ""))

    def test_the_reader_has_gone(self):
        self.file("log", record(1))
        program = self.start()
        program.stdout.readline()
        program.stdout.close()
        self.add(record(2))
        self.assertEqual(program.wait(timeout=20), FAILED)
        self.assertEqual(program.stderr.read(), "")


@unittest.skipIf(RUNNER, "a terminal of Linux")
class TerminalTest(Case):
    def test_text_is_for_a_terminal(self):
        self.file("log", record(1))
        ours, terminal = os.openpty()
        program = subprocess.Popen([PROGRAM, "log", "log"], cwd=self.folder,
                                   env=environment(NO_COLOR="1"), stdout=terminal,
                                   stderr=subprocess.DEVNULL)
        os.close(terminal)
        shown = read_terminal(ours)
        self.assertEqual(program.wait(), DONE)
        self.assertTrue(shown.startswith("2026-11-22 00:01:00  reject     from_blacklist"), shown)

    def test_the_bar(self):
        """It is drawn five times a second: so the log is a pipe's, which is slow enough."""
        ours, terminal = os.openpty()
        with subprocess.Popen([PROGRAM, "log", "--summary", "-"], cwd=self.folder,
                              env=environment(), stdin=subprocess.PIPE, stdout=subprocess.DEVNULL,
                              stderr=terminal) as program:
            os.close(terminal)
            for number in range(6):
                program.stdin.write((record(number) * 256).encode())
                program.stdin.flush()
                time.sleep(0.1)
            program.stdin.close()
            shown = read_terminal(ours)
            self.assertEqual(program.wait(), DONE)
        self.assertRegex(shown, r"\r\d+  \d+/s")
        self.assertTrue(re.search(r"\r +\r$", shown), "wiped at the end")


if __name__ == "__main__":
    main()
