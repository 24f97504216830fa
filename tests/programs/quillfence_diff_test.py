#!/usr/bin/env python3
"""quillfence diff as its user meets it: two folders, one of them changed by a line.

    quillfence_diff_test.py [--runner=LAUNCHER] PROGRAM SOURCE_FOLDER

LAUNCHER runs the program on a Windows build (a list as CMake has it).
"""

import json
import os
import random
import re
import shutil
import struct
import subprocess
import unittest
from html.parser import HTMLParser
from pathlib import Path

from whole_program import (ARGUMENTS, RUNNER, FolderTest, environment, is_sanitized, main,
                           run)

PROGRAM, SOURCE = (Path(argument).resolve() for argument in ARGUMENTS)

SAME, CHANGES, TROUBLE = 0, 1, 2
LINE = "*@victim.example"
BLACKLIST = "c:/quillfence/from_blacklist"

HOSTILE = '"<script>alert(1)</script>&amp;"@victim.example'
SENDERS = ["x@spammer.example", "a@victim.example", "A@VICTIM.example", HOSTILE, "b@good.example",
           "a@victim.example.net", "victim.example", "newsletter@partner.example", ""]


def transaction(number, **members):
    """One of many, told by its number."""
    chance = random.Random(number)
    return {"id": f"t{number}", "ip": f"192.0.2.{chance.choice([25, 9, 7, 66])}", "port": "25",
            "tls": False, "authuser": "", "mua": False, "helo": "mail.example.org",
            "sender": chance.choice(SENDERS), "recipient": "bob@example.net", **members}


def lines_of(transactions):
    return "".join(json.dumps(one) + "\n" for one in transactions)


class Balance(HTMLParser):
    """Whether every element is closed by its own end, and what there is."""

    def __init__(self):
        super().__init__()
        self.open, self.wrong, self.elements, self.text = [], [], set(), ""

    def handle_starttag(self, tag, attributes):
        self.elements.add(tag)
        if any(name.startswith("on") or name in ("src", "href") for name, _ in attributes):
            self.wrong.append((tag, attributes))
        if tag != "meta":
            self.open.append(tag)

    def handle_endtag(self, tag):
        if not self.open or self.open.pop() != tag:
            self.wrong.append(tag)

    def handle_data(self, data):
        self.text += data


class Case(FolderTest):
    def setUp(self):
        super().setUp()
        for side in ("before", "after"):
            shutil.copytree(SOURCE / "examples/drive_c", self.folder / side)
        self.blacklist = self.folder / "after/quillfence/from_blacklist"

    def add_line(self, line=LINE):
        with open(self.blacklist, "a", encoding="utf-8") as out:
            out.write(line + "\n")

    def run_program(self, *arguments, text=""):
        return run([PROGRAM, *arguments], self.folder, text)

    def diff(self, *arguments, text=""):
        return self.run_program("diff", "--before", "before", "--after", "after", "--dns", "off",
                                *arguments, text=text)

    def changes(self, *arguments, text, status=CHANGES):
        got, out, err = self.diff(*arguments, text=text)
        self.assertEqual((got, err), (status, ""))
        return [json.loads(line) for line in out.splitlines()]


class ChangesTest(Case):
    def test_a_line_changes_what_a_plain_search_finds(self):
        """Less what is rejected or exempt already."""
        everything = [transaction(n) for n in range(400)]
        text = lines_of(everything)
        status, out, _ = self.run_program("batch", "--drive-c", "before", "--dns", "off", "--quiet",
                                          text=text)
        self.assertEqual(status, 0)
        was = [json.loads(line)["decision"] for line in out.splitlines()]
        found = [one["id"] for one, decided in zip(everything, was)
                 if one["sender"].lower().endswith("@victim.example")
                 and decided["verdict"] != "reject" and decided["by"] != "exempt"]
        self.assertGreater(len(found), 50)
        self.assertLess(len(found), sum("victim" in one["sender"].lower() for one in everything))
        self.add_line()
        changes = self.changes(text=text)
        self.assertEqual([change["id"] for change in changes], found)
        for change in changes:
            self.assertEqual(change["after"]["source"],
                             {"file": BLACKLIST, "line": 3, "entry": LINE, "how": "wildcard"})
            self.assertEqual(change["cause"], {"side": "after", "rule": "from_blacklist",
                                               "file": BLACKLIST, "place": 3, "entry": LINE})
            self.assertEqual(change["after"]["verdict"], "reject")

    def test_equal_folders(self):
        text = lines_of(transaction(n) for n in range(100))
        self.assertEqual(self.changes(text=text, status=SAME), [])

    def test_a_comment_on_top_changes_nothing(self):
        for name in ("from_blacklist", "from_whitelist", "exempt_ips", "blocked_ips"):
            path = self.folder / "after/quillfence" / name
            path.write_bytes(b"# moved\n" + path.read_bytes())
        text = lines_of(transaction(n) for n in range(100))
        self.assertEqual(self.changes(text=text, status=SAME), [])
        self.assertEqual(self.changes("--entries", text=text, status=SAME), [])

    def test_another_entry_counts_when_that_is_wanted(self):
        self.blacklist.write_bytes(b"x@spammer.example\n*@spammer.example\n")
        text = lines_of([transaction(1, ip="192.0.2.1", sender="x@spammer.example")])
        self.assertEqual(self.changes(text=text, status=SAME), [])
        change, = self.changes("--entries", text=text)
        self.assertEqual((change["before"]["source"]["entry"], change["after"]["source"]["entry"]),
                         ("*@spammer.example", "x@spammer.example"))

    def test_what_if_is_what_the_changed_copy_is(self):
        self.add_line()
        text = lines_of(transaction(n) for n in range(200))
        self.file("in", text)
        changed = self.changes("in", text="")
        for arguments in (["--with-list", "from_blacklist", LINE, "in"],
                          ["in", "--with-list", "from_blacklist", LINE]):
            status, out, err = self.run_program("diff", "--drive-c", "before", "--dns", "off",
                                                *arguments)
            self.assertEqual((status, err), (CHANGES, ""))
            self.assertEqual([json.loads(line) for line in out.splitlines()], changed)
        status, out, err = self.run_program("diff", "--drive-c", "after", "--dns", "off", "in",
                                            "--without-list", "from_blacklist", LINE)
        self.assertEqual((status, err), (CHANGES, ""))
        back = [json.loads(line) for line in out.splitlines()]
        self.assertEqual([one["id"] for one in back], [one["id"] for one in changed])
        self.assertEqual({one["cause"]["side"] for one in back}, {"before"})

    def test_a_user_has_own_lists_on_each_side(self):
        own = self.folder / "after/users/bob/from_whitelist"
        own.write_bytes(own.read_bytes() + b"x@spammer.example\n")
        change, = self.changes("--user-dir", "c:/users/bob",
                               text=lines_of([transaction(1, sender="x@spammer.example")]))
        self.assertEqual((change["after"]["by"], change["after"]["where"]), ("exempt", "user"))
        self.assertEqual(change["cause"]["file"], "c:/users/bob/from_whitelist")

    def answered(self, *answers):
        """A transaction as a record, with these answers to the question for its client's name."""
        one = transaction(1, ip="192.0.2.9", sender="a@victim.example")
        _, out, _ = self.run_program("batch", "--drive-c", "before", "--quiet", "--dns", "off",
                                     text=lines_of([one]))
        record = json.loads(out)
        record["dns"] = [{"n": n, "name": "9.2.0.192.in-addr.arpa.", "type": "PTR",
                          "attempt": n + 1, "used_by": [], **answer}
                         for n, answer in enumerate(answers)]
        return record

    def test_recorded_answers_begin_anew_for_the_other_side(self):
        found = {"status": 0, "rcode": "NOERROR", "class": "found",
                 "records": ["PTR mail.example.org."]}
        none = {"status": 9003, "rcode": "NXDOMAIN", "class": "no_name", "records": []}
        records = [self.answered(found), self.answered(none)]
        status, out, _ = self.run_program("batch", "--drive-c", "before", "--quiet",
                                          text=lines_of(records))
        self.assertEqual(status, 0)
        decisions = [json.loads(line)["decision"] for line in out.splitlines()]
        self.assertNotEqual(*decisions)
        self.file("answers", lines_of(self.answered(found, none)["dns"]))
        record = lines_of([self.answered(found, none)])
        for arguments, text in (([], record),
                                (["--dns", "answers"], lines_of([transaction(1, ip="192.0.2.9")]))):
            self.assertEqual(self.run_program("diff", "--before", "before", "--after", "after",
                                              *arguments, text=text), (SAME, "", ""))

    def test_a_name_in_a_control_file_has_its_place(self):
        """The files of the side with the line, and what the other one has in its place."""
        zone = {"control/rules.enabled": "block_rbl_lists\n"}
        map_file = {"control/rules.enabled": "block_lists\n"}
        cases = (("valid_ptr\nrequire_helo\n", "valid_ptr\n", "control/rules.enabled",
                  "require_helo", 2, "require_helo", {}, {"helo": ""}),
                 ("none.bms\n\nsample-abusers.bms", "none.bms", "control/bms.enabled",
                  "sample-abusers.bms", 3, "block_lists", map_file, {"ip": "10.11.12.13"}),
                 ("\nrbl.example\n", "", "rbl.enabled", "rbl.example", 2, "block_rbl_lists", zone,
                  {}))
        for there, missing, file, name, place, rule, files, members in cases:
            for side, other in (("before", "after"), ("after", "before")):
                for folder, lines in ((side, there), (other, missing)):
                    for path, text in (*files.items(), (file, lines)):
                        (self.folder / folder / "quillfence" / path).write_bytes(text.encode())
                with self.subTest(file=file, side=side):
                    one = transaction(1, **{"ip": "192.0.2.9", "sender": "a@good.example",
                                            **members})
                    change, = self.changes(text=lines_of([one]))
                    self.assertEqual(change["cause"], {
                        "side": side, "rule": rule, "file": f"c:/quillfence/{file}",
                        "place": place, "entry": name})

    def test_order_for_any_number_of_threads(self):
        self.add_line()
        text = lines_of(transaction(n) for n in range(3000))
        self.assertEqual(self.diff("--jobs", "1", text=text), self.diff("--jobs", "7", text=text))


class RefusalsTest(Case):
    def test_bad_lines_stand_among_the_changes(self):
        self.add_line()
        victim = transaction(1, sender="a@victim.example", ip="192.0.2.9")
        text = lines_of([victim]) + '{"ip": 7}\n' + lines_of([victim])
        status, out, err = self.diff(text=text)
        self.assertEqual((status, err), (TROUBLE, ""))
        first, bad, last = map(json.loads, out.splitlines())
        self.assertEqual(first, last)
        self.assertEqual(bad, {"error": "ip: is not a text", "line": 2})
        status, out, err = self.diff("--summary", text=text)
        self.assertEqual((status, err), (TROUBLE, '{"error":"ip: is not a text","line":2}\n'))
        self.assertIn("\n  1 input could not be read as a transaction\n", out)

    def check_refused(self, said, *arguments):
        with self.subTest(arguments=arguments):
            self.assertEqual(self.run_program("diff", *arguments),
                             (TROUBLE, "", f"quillfence: {said}\n"))

    def test_which_configurations(self):
        both = ("name two configurations with --before and --after, or change one with --with-list "
                "and --without-list (and --drive-c)")
        self.check_refused(both)
        self.check_refused(both, "--drive-c", "before")
        self.check_refused(both, "--before", "before", "--after", "after", "--drive-c", "before")
        self.check_refused(both, "--before", "before", "--after", "after", "--with-list",
                           "from_blacklist", LINE)
        self.check_refused('"from_blaklist" is no list that a decision asks; did you mean '
                           "from_blacklist?", "--drive-c", "before", "--with-list",
                           "from_blaklist", LINE)
        self.check_refused("none: is no folder; --before is a folder that holds quillfence/",
                           "--before", "none", "--after", "after")

    def test_an_input_that_is_not_there(self):
        self.check_refused("none: No such file or directory", "--before", "before", "--after",
                           "after", "none")

    def test_a_page_in_the_place_of_an_input(self):
        self.file("log", "")
        for more in (["log"], ["--registry", "log"]):
            status, out, err = self.diff(*more, "--html", "log", text="")
            self.assertEqual((status, out, err),
                             (2, "", "quillfence: log: is the input itself; name another file to "
                                     "write to\n"))
        self.assertEqual(self.bytes_of("log"), b"")

    def test_a_page_that_can_not_be_written(self):
        status, out, err = self.diff("--html", "none/page.html", text="")
        self.assertEqual((status, out), (TROUBLE, ""))
        self.assertIn("none/page.html", err)


class SummaryTest(Case):
    def summary(self, text, *arguments, status=CHANGES):
        got, out, err = self.diff("--summary", *arguments, text=text)
        self.assertEqual((got, err), (status, ""))
        return out

    def test_what_it_says(self):
        self.add_line()
        self.add_line("*@nobody.example")
        victims = [transaction(n, ip="192.0.2.9", sender="a@victim.example") for n in range(4)]
        out = self.summary(lines_of(victims + [transaction(9, ip="192.0.2.25")]))
        self.assertTrue(out.startswith("4 changes in 5 transactions\n"), out)
        rows = [re.sub(" +", " ", line.strip()) for line in out.splitlines()]
        for row in ("undecided 0 4 0",
                    "4 undecided by missing reject by from_blacklist",
                    f"4 after from_blacklist {BLACKLIST}:3: {LINE}",
                    "4 now reject",
                    "t0: 192.0.2.9 a@victim.example -> bob@example.net",
                    "t2: 192.0.2.9 a@victim.example -> bob@example.net",
                    "4 4 now reject 192.0.2.9",
                    "4 4 now reject a@victim.example",
                    "4 4 now reject victim.example",
                    "5 PTR answers",
                    "4 transactions could not be judged on one side or on both",
                    f"3 2 {BLACKLIST}",
                    f"new {BLACKLIST}:4: *@nobody.example"):
            self.assertIn(row, rows)
        self.assertNotIn("t3: 192.0.2.9 a@victim.example -> bob@example.net", rows)
        self.assertFalse([row for row in rows if row.startswith("new") and "victim" in row])

    def test_entries_of_every_kind_count_as_matched(self):
        """One transaction for each of them, and the table of those that nothing matched."""
        ranges = struct.pack("<QII4B4B256s", 0x66D76C80A937D3EA, 2, 1, 198, 51, 100, 0,
                             198, 51, 100, 255, b"")
        (self.folder / "after/quillfence/blocked_ips.range").write_bytes(ranges)
        self.file("answers", json.dumps(
            {"schema": "quillfence.case/1", "transaction": {"ip": "192.0.2.7"},
             "zonedata": {"7.2.0.192.in-addr.arpa": [{"PTR": "dsl-7.pool.example"}],
                          "dsl-7.pool.example": [{"A": "192.0.2.7"}]}}))
        matched = {"blocked_ips.range:1: 198.51.100.0 - 198.51.100.255": {"ip": "198.51.100.7"},
                   "control/valid_domain_ips:3: bank.example": {"sender": "a@bank.example"},
                   "blocked_ips:2: 192.0.2.66": {"ip": "192.0.2.66"},
                   "from_blacklist:2: *@spammer.example": {"sender": "a@spammer.example"},
                   "dynaregex/dyna.cregexes:1: (dsl|dial|": {"ip": "192.0.2.7"}}
        none = self.matched_nothing("")
        for entry, members in matched.items():
            with self.subTest(entry=entry):
                self.assertIn(f"c:/quillfence/{entry}", none)
                one = transaction(1, **{"ip": "192.0.2.1", "sender": "a@good.example", **members})
                self.assertNotIn(f"c:/quillfence/{entry}", self.matched_nothing(lines_of([one])))

    def matched_nothing(self, text):
        _, out, err = self.run_program("diff", "--before", "before", "--after", "after", "--summary",
                                       "--dns", "answers", text=text)
        self.assertEqual(err, "")
        return out[out.index("Entries of the side after that nothing matched"):]

    def test_nothing_to_say(self):
        out = self.summary("", status=SAME)
        self.assertTrue(out.startswith("No change in 0 transactions\n"), out)

    def test_the_page(self):
        self.add_line()
        text = lines_of([transaction(1, ip="192.0.2.9", sender=HOSTILE)])
        self.changes("--html", "page.html", text=text)
        if not RUNNER: # it holds addresses
            self.assertEqual((self.folder / "page.html").stat().st_mode & 0o777, 0o600)
        page = (self.folder / "page.html").read_text(encoding="utf-8")
        seen = Balance()
        seen.feed(page)
        seen.close()
        self.assertEqual((seen.open, seen.wrong), ([], []))
        self.assertNotIn("script", seen.elements)
        self.assertIn(HOSTILE, seen.text)
        self.assertIn("1 change in 1 transaction", seen.text)
        self.assertIn(f"{BLACKLIST}:3: {LINE}", seen.text)
        self.assertIn("default-src 'none'", page)

    @unittest.skipIf(RUNNER, "limits of Linux")
    @unittest.skipIf(is_sanitized(PROGRAM), "the sanitizer needs more")
    def test_memory_does_not_grow_with_what_comes(self):
        """Every transaction has a client, a sender and a domain of its own, under a limit that
        these would break."""
        self.add_line("*")

        def limit_memory():
            import resource # Linux has it alone
            resource.setrlimit(resource.RLIMIT_DATA, (128 << 20, 128 << 20))

        with open(self.folder / "in", "w", encoding="utf-8") as out:
            for n in range(120_000): # each of the three would take 60 MB and more
                out.write(lines_of([transaction(0, id=str(n), ip=f"10.{n >> 16}.{n >> 8 & 255}."
                                                f"{n & 255}",
                                                sender=f"a@{'x' * 400}{n}.example")]))
        done = subprocess.run([PROGRAM, "diff", "--before", "before", "--after", "after", "--dns",
                               "off", "--summary", "in"], cwd=self.folder, env=environment(),
                              preexec_fn=limit_memory, stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE, timeout=300, check=False)
        self.assertEqual((done.returncode, done.stderr), (CHANGES, b""))
        self.assertIn(b"There were too many to count all", done.stdout)
        self.assertTrue(done.stdout.startswith(b"120000 changes in 120000 transactions\n"))


@unittest.skipIf(RUNNER, "a terminal of Linux")
class TerminalTest(Case):
    def test_sums_are_for_a_terminal(self):
        master, terminal = os.openpty()
        self.file("in", lines_of([transaction(1)]))
        done = subprocess.run([PROGRAM, "diff", "--before", "before", "--after", "after", "--dns",
                               "off", "in"], cwd=self.folder, env=environment(), stdout=terminal,
                              timeout=60, check=False)
        os.close(terminal)
        shown = os.read(master, 4096)
        os.close(master)
        self.assertEqual(done.returncode, SAME)
        self.assertTrue(shown.startswith(b"No change in 1 transaction\r\n"), shown)


if __name__ == "__main__":
    main()
