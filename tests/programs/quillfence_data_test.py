#!/usr/bin/env python3
"""quillfence-data as its user meets it: what it prints, where, and how it ends.

    quillfence_data_test.py [--runner=LAUNCHER] PROGRAM SOURCE_FOLDER

LAUNCHER runs the program on a Windows build (a list as CMake has it).
"""

import hashlib
import json
import os
import re
import subprocess
import unittest
from pathlib import Path

from whole_program import (ARGUMENTS, RUNNER, FolderTest, check_empty_names, main, read_terminal,
                           run)

PROGRAM, SOURCE = (Path(argument).resolve() for argument in ARGUMENTS)

DONE, NO, FAILED, PARTLY = 0, 1, 2, 3

WRONG_PATTERNS = """\
# a comment
foo
[z-a]

/abc
/bar/ REJECT
if /x/
a{2,70000}
()
"""
WRONG_PATTERNS_SAID = """\
list:3: error: invalid range [z-a]
list:5: error: the pattern has no closing "/"; write \\/ for a pattern that begins with a slash
list:7: error: there is no "endif" for this "if"
list:8: error: number 70000 exceeds maximum value 65535
list:9: error: failed to parse through sub expression
"""
SAMPLE_PATTERNS = "^a[0-9]+\\.b$\nfoo\n"


class Case(FolderTest):
    def run_program(self, *arguments, text=""):
        return run([PROGRAM, *arguments], self.folder, text)

    def names(self):
        return sorted(path.name for path in self.folder.iterdir())

    def check(self, arguments, status, out="", err="", text=""):
        self.assertEqual(self.run_program(*arguments, text=text), (status, out, err))

    def document(self, arguments, status, err="", text=""):
        """What the program prints as JSON."""
        done, out, said = self.run_program(*arguments, text=text)
        self.assertEqual((done, said), (status, err))
        return json.loads(out)


class ProgramTest(Case):
    def test_version_is_the_project_s(self):
        version = re.search(r"VERSION ([\d.]+)", (SOURCE / "CMakeLists.txt").read_text()
                            .split("project(")[1]).group(1)
        self.check(["--version"], DONE, f"quillfence-data {version}\n")

    def test_help_goes_to_standard_output(self):
        for arguments in [["--help"], ["-h"], ["regex", "--help"], ["blockmap", "build", "-h"]]:
            status, out, err = self.run_program(*arguments)
            self.assertEqual((status, err), (DONE, ""))
            self.assertIn("Usage: quillfence-data", out)

    def test_a_wrong_command_line_says_where_to_read_on(self):
        for arguments, said in [
            ([], 'A subcommand is required; try "quillfence-data --help"'),
            (["regex"], 'A subcommand is required; try "quillfence-data regex --help"'),
            (["blockmap"], 'A subcommand is required; try "quillfence-data blockmap --help"'),
            (["range"], 'A subcommand is required; try "quillfence-data range --help"'),
            (["list"], 'A subcommand is required; try "quillfence-data list --help"'),
            (["counter"], 'A subcommand is required; try "quillfence-data counter --help"'),
            (["foo"], 'there is no subcommand "foo"; try "quillfence-data --help"'),
            (["regex", "foo"], 'there is no subcommand "foo"; try "quillfence-data regex --help"'),
            (["regex", "dump"], 'FILE is required; try "quillfence-data regex dump --help"'),
            (["regex", "dump", "a", "--foo"], "The following argument was not expected: --foo; "
                                              'try "quillfence-data regex dump --help"'),
        ]:
            self.check(arguments, FAILED, err=f"quillfence-data: {said}\n")

    def test_a_missing_file_is_named(self):
        for arguments in [["regex", "compile", "list", "out"], ["regex", "dump", "list"],
                          ["regex", "test", "list", "x"], ["blockmap", "build", "list", "out"],
                          ["blockmap", "dump", "list"], ["blockmap", "test", "list", "1.2.3.4"]]:
            self.check(arguments, FAILED,
                       err="quillfence-data: list: No such file or directory\n")
        self.assertEqual(self.names(), [])

    def test_an_output_that_cannot_be_written_is_named(self):
        self.file("list", "")
        for command in [["regex", "compile"], ["blockmap", "build"]]:
            self.check([*command, "list", "no/out"], FAILED,
                       err="quillfence-data: no/out: could not be written: "
                           "No such file or directory\n")
            self.check([*command, "list", "list"], FAILED,
                       err="quillfence-data: list: is the input itself; name another file to "
                           "write to\n")
        self.assertEqual(self.names(), ["list"])

    @unittest.skipUnless(os.path.exists("/dev/full"), "no /dev/full")
    @unittest.skipIf(RUNNER, "a device of the build host")
    def test_a_full_standard_output_is_a_failure(self):
        self.file("list", "10.0.0.0/8\n")
        self.run_program("blockmap", "build", "list", "map")
        with open("/dev/full", "wb") as full:
            run = subprocess.run([PROGRAM, "blockmap", "dump", "map"], cwd=self.folder,
                                 stdout=full, stderr=subprocess.PIPE, check=False, timeout=60)
        self.assertEqual(run.returncode, FAILED)
        self.assertIn(b"standard output can't be written", run.stderr)


class RegexTest(Case):
    def compile_sample(self):
        self.file("list", SAMPLE_PATTERNS)
        self.check(["regex", "compile", "list", "out"], DONE, "out: 2 expressions\n")

    def test_the_sample_of_the_format_page(self):
        self.compile_sample()
        page = (SOURCE / "docs/formats/compiled-patterns.md").read_text()
        rows = re.findall(r"^    [0-9a-f]{6}  ((?:[0-9a-f]{2} ?)+)", page, re.MULTILINE)
        self.assertEqual(self.bytes_of("out"), bytes.fromhex(" ".join(rows)))
        self.check(["regex", "dump", "out"], DONE, SAMPLE_PATTERNS)

    def test_no_patterns_make_an_empty_file(self):
        self.check(["regex", "compile", "-", "out"], DONE, "out: 0 expressions\n", text="# none\n")
        self.assertEqual(self.bytes_of("out"), bytes.fromhex("b9eb0000"))
        self.check(["regex", "dump", "out"], DONE)

    def test_wrong_lines_are_all_reported_and_nothing_is_written(self):
        self.file("list", WRONG_PATTERNS)
        self.file("out", "old")
        self.check(["regex", "compile", "list", "out"], FAILED, err=WRONG_PATTERNS_SAID +
                   "quillfence-data: out: was not written, since 5 lines are wrong; correct them, "
                   "or leave them out with --keep-going\n")
        self.assertEqual(self.bytes_of("out"), b"old")
        self.assertEqual(self.names(), ["list", "out"])

    def test_keep_going_writes_the_others(self):
        self.file("list", WRONG_PATTERNS)
        self.check(["regex", "compile", "--keep-going", "list", "out"], PARTLY,
                   "out: 2 expressions, 5 lines left out\n", WRONG_PATTERNS_SAID)
        self.check(["regex", "dump", "out"], DONE, "foo\nbar\n")
        self.assertEqual(self.names(), ["list", "out", "out.lines"])

    def test_lines_tell_where_expressions_come_from(self):
        self.file("list", "# a comment\n/foo/ REJECT\n  going on\n\nbar\n")
        self.check(["regex", "compile", "list", "out"], DONE, "out: 2 expressions\n")
        digest = hashlib.sha256(self.bytes_of("out")).hexdigest()
        self.assertEqual(self.bytes_of("out.lines").decode(),
                         "# quillfence pattern lines 1\n"
                         f"# sha256 {digest}\n"
                         "1\t2\tlist\n2\t5\tlist\n")

    MIXED = ("/^a/ REJECT no\n/^b/ PREPEND X-B: 1\n/^c/ dunno\n/^d/\n^e\n/^f/ PREPEND X-F: 1\n"
             "/^(unclosed/ OK\n/^g/ 450 later\n")

    def test_lines_that_refuse_nobody_are_left_out(self):
        self.file("list", self.MIXED)
        self.check(["regex", "compile", "list", "out"], DONE, "out: 4 expressions\n",
                   "quillfence-data: list: 4 lines left out, whose actions refuse nobody: DUNNO 1, "
                   "OK 1, PREPEND 2 (--only takes them in)\n")
        self.check(["regex", "dump", "out"], DONE, "^a\n^d\n^e\n^g\n")

    def test_lines_of_chosen_actions(self):
        self.file("list", self.MIXED)
        self.check(["regex", "compile", "--only", "prepend,450", "list", "out"], DONE,
                   "out: 5 expressions\n",
                   "quillfence-data: list: 3 lines left out, whose actions were not asked for: "
                   "DUNNO 1, OK 1, REJECT 1\n")
        self.check(["regex", "dump", "out"], DONE, "^b\n^d\n^e\n^f\n^g\n")
        self.check(["regex", "compile", "--only", "REJECT,", "list", "new"], FAILED,
                   err="quillfence-data: --only: an action is empty; write them as in "
                       "REJECT,PREPEND\n")
        self.assertNotIn("new", self.names())

    def test_lines_are_left_out_on_request(self):
        self.file("list", "foo\n")
        self.check(["regex", "compile", "--no-lines", "list", "out"], DONE, "out: 1 expression\n")
        self.assertEqual(self.names(), ["list", "out"])

    def test_what_a_file_can_hold(self):
        for length, status in [(4089, DONE), (4090, FAILED)]:
            # The nodes are the characters, the root, ".*" twice and the end.
            pattern = "a" * (length + 2)
            self.file("list", pattern + "\n")
            got, _, err = self.run_program("regex", "compile", "list", "out")
            self.assertEqual(got, status, err)
        self.assertIn("list:1: error: the pattern needs 4096 nodes, and a file takes 4095 a "
                      "pattern; split it into several\n", err)

    def test_what_does_not_do_what_it_says_is_warned_of(self):
        self.file("list", "foo\n/foo|bar/ REJECT\n^(.*b)$\nif /^a[.-_]/\n^a[.-_]b\nendif\n")
        dash = ("the range .-_ holds no letter, since case does not count; \\- is the character -; "
                "write ^a[.\\-_]")
        self.check(["regex", "compile", "list", "out"], DONE, "out: 4 expressions\n",
                   "list:2: warning: the bar stands outside parentheses: part 1 matches nothing, "
                   "part 2 matches at the beginning of a name only; write (foo|bar)\n"
                   "list:3: warning: the pattern matches nothing: a .* inside parentheses needs a $ "
                   "behind it there; write ^.*b$\n"
                   f"list:4: warning: {dash}\nlist:5: warning: {dash}b\n")

    def test_what_never_matches_is_warned_of(self):
        self.file("list", "a{3,2}\n\\telesat\n")
        self.check(["regex", "compile", "list", "out"], DONE, "out: 2 expressions\n",
                   "list:1: warning: a part of the pattern can't be matched: greedy operator range "
                   "3 - 2 is invalid\n"
                   "list:2: warning: a part of the pattern can't be matched: non-printable "
                   "character 9 found\n")

    def test_what_a_name_can_make_long_is_warned_of(self):
        self.file("list", "[0-9]+[0-9]+[0-9]+x\n[0-9]{1,3}-[0-9]{1,3}x\n[a-z]+[a-z]+[a-z]+\\.foo$\n")
        said = ("list:%d: warning: the pattern takes more than a hundredth of the steps that a "
                "message has for all its names and patterns, with the name %s\n")
        self.check(["regex", "compile", "list", "out"], DONE, "out: 3 expressions\n",
                   said % (1, "1" * 255) + said % (3, "a" * 250 + "_.foo"))

    def test_a_public_list_goes_there_and_back(self):
        public = SOURCE / "tests/data/fqrdns.pcre"
        self.file("list", public.read_bytes())
        status, out, err = self.run_program("regex", "compile", "--keep-going", "list", "out")
        self.assertEqual((status, out), (PARTLY, "out: 1526 expressions, 3 lines left out\n"))
        self.assertIn("2 lines left out, whose actions refuse nobody: DUNNO 2 (", err)
        status, out, err = self.run_program("regex", "compile", "--keep-going", "--only",
                                            "REJECT,DUNNO", "list", "out")
        self.assertEqual((status, out), (PARTLY, "out: 1528 expressions, 3 lines left out\n"))
        self.assertEqual(err.count(": error: the condition's bar stands outside parentheses"), 3)
        status, out, err = self.run_program("regex", "dump", "out")
        self.assertEqual((status, err, out.count("\n")), (DONE, "", 1528))
        patterns = [line.split("/")[1] for line in public.read_text().split("\n")
                    if line.startswith("/")]
        plain = [(ours, theirs) for ours, theirs in zip(out.split("\n"), patterns)
                 if ours == theirs]
        self.assertGreater(len(plain), 1400)
        self.file("list", out)
        self.run_program("regex", "compile", "list", "again")
        self.assertEqual(self.bytes_of("again"), self.bytes_of("out"))

    def test_conditions_of_a_public_list_are_folded(self):
        """With parentheses around its bars, as the error says."""
        public = (SOURCE / "tests/data/fqrdns.pcre").read_text()
        self.file("list", re.sub(r"(?m)^if /(.*)/$", r"if /(\1)/", public))
        status, out, err = self.run_program("regex", "compile", "list", "out")
        self.assertEqual((status, out), (FAILED, ""))
        unfolded = re.findall(r"^list:(\d+): error: the condition can't be folded into (\d+) of the "
                              r"(\d+) patterns up to its \"endif\", the first in line (\d+); write "
                              r"the condition into each pattern$", err, re.MULTILINE)
        self.assertEqual([row[0] for row in unfolded], ["61", "62", "383"])
        # Most are wordings of what the patterns below them say anyway.
        self.assertLess(sum(int(row[1]) for row in unfolded), 50)
        self.assertGreater(sum(int(row[2]) for row in unfolded), 1700)
        self.assertEqual(err.count(" lets through, and is left out\n"), 3)

    def test_conditions(self):
        self.file("list", "/^a/ REJECT\nif /\\.example\\.net$/\n/^dsl[0-9]+\\./ REJECT\n"
                          "if !/^mail/\n/^pool/ REJECT\nendif\nendif\n")
        self.check(["regex", "compile", "list", "out"], DONE, "out: 4 expressions\n")
        self.check(["regex", "dump", "out"], DONE,
                   "^a\n^dsl[0-9]+\\..*\\.example\\.net$\n^dsl[0-9]+\\.example\\.net$\n"
                   "^pool.*\\.example\\.net$\n")
        self.assertTrue(self.bytes_of("out.lines").endswith(
            b"1\t1\tlist\n2\t3\tlist\n3\t3\tlist\n4\t5\tlist\n"))
        self.file("list", "/^a/\nif /^[a-c]b/\n/^.b1/\n/^.b2/\n/^cb3/\nendif\n/^d/\n")
        said = ("list:2: error: the condition can't be folded into 2 of the 3 patterns up to its "
                "\"endif\", the first in line 3; write the condition into each pattern\n")
        self.check(["regex", "compile", "list", "new"], FAILED, err=said +
                   "quillfence-data: new: was not written, since 1 line is wrong; correct them, "
                   "or leave them out with --keep-going\n")
        self.check(["regex", "compile", "--keep-going", "list", "out"], PARTLY,
                   "out: 5 expressions, 1 line left out\n", said)
        self.check(["regex", "dump", "out"], DONE, "^a\n^.b1\n^.b2\n^cb3\n^d\n")

    def test_which_expression_matches(self):
        self.file("list", "^a$\nfoo\n^b\noo$\n")
        self.run_program("regex", "compile", "list", "out")
        status, out, err = self.run_program("regex", "test", "out", "XFOO", "b1")
        steps = r" \(\d+ steps?, \d+ steps in all\)\n"
        self.assertEqual((status, err), (DONE, ""))
        self.assertRegex(out, "^XFOO: expression 2: foo" + steps +
                         r"b1: expression 3: \^b" + steps + "$")
        status, out, err = self.run_program("regex", "test", "--all", "out", "foo")
        self.assertEqual((status, err), (DONE, ""))
        self.assertRegex(out, "^foo: expression 2: foo" + steps +
                         r"foo: expression 4: oo\$" + steps + "$")
        status, out, err = self.run_program("regex", "test", "out", "-", text="foo\r\ncar\n")
        self.assertEqual((status, err), (NO, ""))
        self.assertRegex(out, "^foo: expression 2: foo" + steps +
                         r"car: no match \(4 expressions, \d+ steps in all\)\n$")

    def test_names_are_printed_escaped(self):
        """PTR names are whatever a client's DNS server says."""
        self.file("list", "^a")
        self.run_program("regex", "compile", "list", "out")
        status, out, err = self.run_program("regex", "test", "out", "-",
                                            text="a\x1b[2J\tb\n\x1b]0;x\x07\n")
        steps = r" \(\d+ steps?, \d+ steps in all\)\n"
        self.assertEqual((status, err), (NO, ""))
        self.assertRegex(out, r"^a\\x1b\[2J\\x09b: expression 1: \^a" + steps +
                         r"\\x1b\]0;x\\x07: no match \(1 expression, \d+ steps in all\)\n$")

    def test_another_file_is_refused(self):
        for content in [b"", b"\xb9\xeb\0", b"\xb9\xeb\0\1", b"^foo$\n"]:
            self.file("list", content)
            for arguments in [["dump", "list"], ["test", "list", "x"]]:
                self.check(["regex", *arguments], FAILED,
                           err="quillfence-data: list: is no compiled pattern file: it does not "
                               "begin with the bytes B9 EB 00 00; make one with "
                               '"quillfence-data regex compile"\n')

    def test_damage_becomes_comments(self):
        self.compile_sample()
        whole = self.bytes_of("out")
        damaged = bytearray(whole)
        damaged[0x9c:0xa0] = b"\x01\x01\x00\x00"  # the root of "foo" is an alternation
        self.file("out", bytes(damaged) + b"\0" * 8 + whole[4:0x98] + b"\x05\0\0\0\0\0")
        status, out, err = self.run_program("regex", "dump", "out")
        self.assertEqual((status, err), (PARTLY, "quillfence-data: out: parts of the file have no "
                                                 "text; they are shown as comments\n"))
        self.assertEqual(out, """\
^a[0-9]+\\.b$
# expression 2 has no text: node 0 is no group
#   0: alternation (257), left 1, right 0, next -1
#   1: any sequence (269), left -1, right -1, next 2
#   2: character f (102), left -1, right -1, next 3
#   3: character o (111), left -1, right -1, next 4
#   4: character o (111), left -1, right -1, next 5
#   5: any sequence (269), left -1, right -1, next 6
#   6: end (266), left -1, right -1, next -1
# no expression at offset 268: node count size of zero read: invalid regex
^a[0-9]+\\.b$
# no expression at offset 424: short read when attempting to read node #0
""")

    def test_json(self):
        self.compile_sample()
        self.assertEqual(self.document(["regex", "dump", "--json", "out"], DONE),
                         {"expressions": [{"expression": 1, "pattern": "^a[0-9]+\\.b$"},
                                          {"expression": 2, "pattern": "foo"}], "damaged": []})
        _, lines, _ = self.run_program("regex", "test", "--all", "out", "foo", "a1.b", 'x"\\')
        steps = [int(number) for number in re.findall(r"(\d+) steps", lines)]
        self.assertEqual(len(steps), 5, lines)
        # Of foo, the last expression, and of a name without a match the line tells all steps.
        answer = self.document(["regex", "test", "--all", "--json", "out", "foo", "a1.b", 'x"\\'], NO)
        self.assertEqual(answer["expressions"], 2)
        self.assertEqual([one["name"] for one in answer["names"]], ["foo", "a1.b", 'x"\\'])
        self.assertEqual([one["matches"] for one in answer["names"]],
                         [[{"expression": 2, "pattern": "foo", "steps": steps[0],
                            "steps_in_all": steps[1]}],
                          [{"expression": 1, "pattern": "^a[0-9]+\\.b$", "steps": steps[2],
                            "steps_in_all": steps[3]}], []])
        self.assertEqual(answer["names"][0]["steps_in_all"], steps[1])
        self.assertGreater(answer["names"][1]["steps_in_all"], steps[3], "of both expressions")
        self.assertEqual(answer["names"][2]["steps_in_all"], steps[4])
        self.assertEqual(self.document(["regex", "test", "--json", "out", "-"], DONE),
                         {"names": [], "expressions": 2})

    def test_several_matches_in_json(self):
        self.file("list", "foo\nfo+\n")
        self.run_program("regex", "compile", "list", "out")
        answer = self.document(["regex", "test", "--all", "--json", "out", "foo"], DONE)
        self.assertEqual([match["expression"] for match in answer["names"][0]["matches"]], [1, 2])
        answer = self.document(["regex", "test", "--json", "out", "foo"], DONE)
        self.assertEqual([match["expression"] for match in answer["names"][0]["matches"]], [1])

    def test_damage_in_json(self):
        self.compile_sample()
        damaged = bytearray(self.bytes_of("out"))
        damaged[0x9c:0xa0] = b"\x01\x01\x00\x00"  # the root of "foo" is an alternation
        self.file("out", bytes(damaged) + b"\0" * 8)
        dump = self.document(["regex", "dump", "--json", "out"], PARTLY,
                             "quillfence-data: out: parts of the file have no text; they are shown "
                             "with the reason\n")
        self.assertEqual(dump["expressions"][0], {"expression": 1, "pattern": "^a[0-9]+\\.b$"})
        bad = dump["expressions"][1]
        self.assertEqual((bad["expression"], bad["pattern"], bad["problem"], len(bad["nodes"])),
                         (2, None, "node 0 is no group", 7))
        self.assertEqual(bad["nodes"][0], "0: alternation (257), left 1, right 0, next -1")
        self.assertEqual(dump["damaged"],
                         [{"offset": 268,
                           "problem": "node count size of zero read: invalid regex"}])

    def test_damaged_expressions_are_left_out_of_a_test(self):
        self.compile_sample()
        damaged = bytearray(self.bytes_of("out"))
        damaged[8 + 4:8 + 8] = b"\x63\0\0\0"  # the first expression's root links behind its end
        self.file("out", bytes(damaged) + b"\0\0")
        status, out, err = self.run_program("regex", "test", "out", "foo", "food")
        self.assertEqual(status, PARTLY)
        self.assertEqual(err, "quillfence-data: out: no expression at offset 268: the file ends "
                              "inside a count\n"
                              "quillfence-data: out: expression 1: corrupt regex: node->left is "
                              "out of range 99 > 9\n")
        self.assertRegex(out, "^foo: expression 2: foo .*\nfood: expression 2: foo .*\n$")


class BlockMapTest(Case):
    LIST = "# sample\n11.1.0.9 # last\n10.0.0.0/8\n11.0.0.0/16;all\n11.1.0.0\n11.1.0.2-11.1.0.2\n"
    DUMP = "10.0.0.0/8\n11.0.0.0/16\n11.1.0.0\n11.1.0.2\n11.1.0.9\n"

    def build(self):
        self.file("list", self.LIST)
        self.check(["blockmap", "build", "list", "map"], DONE,
                   "map: 16842755 addresses in 10240 bytes (1 table, 1 bitmap)\n")

    def test_there_and_back(self):
        self.build()
        self.check(["blockmap", "dump", "map"], DONE, self.DUMP)
        self.run_program("blockmap", "build", "-", "again", text=self.DUMP)
        self.assertEqual(self.bytes_of("again"), self.bytes_of("map"))

    def test_what_an_address_is(self):
        self.build()
        self.check(["blockmap", "test", "map", "10.1.2.3", "11.0.0.1", "11.1.0.9"], DONE,
                   "10.1.2.3: listed (level 1: all of 10.0.0.0/8)\n"
                   "11.0.0.1: listed (level 2: all of 11.0.0.0/16)\n"
                   "11.1.0.9: listed (level 3: 11.1.0.9)\n")
        self.check(["blockmap", "test", "map", "-"], NO, text="12.0.0.1\n11.2.0.0\n11.1.0.1\n",
                   out="12.0.0.1: not listed (level 1: nothing in 12.0.0.0/8)\n"
                       "11.2.0.0: not listed (level 2: nothing in 11.2.0.0/16)\n"
                       "11.1.0.1: not listed (level 3: 11.1.0.1)\n")
        self.check(["blockmap", "test", "map", "10.1.2.3", "::1"], PARTLY,
                   "10.1.2.3: listed (level 1: all of 10.0.0.0/8)\n",
                   'quillfence-data: "::1" is no IPv4 address\n')

    def test_wrong_lines(self):
        said = ("list:1: error: 10.1.2.3/8 has bits behind its prefix; write 10.0.0.0/8 for the "
                "network, or 10.1.2.3 for the address\n"
                'list:3: error: "x" is no IPv4 address; write four numbers from 0 to 255, as in '
                "192.0.2.1\n")
        self.file("list", "10.1.2.3/8\n10.0.0.1\nx\n")
        self.check(["blockmap", "build", "list", "map"], FAILED, err=said +
                   "quillfence-data: map: was not written, since 2 lines are wrong; correct them, "
                   "or leave them out with --keep-going\n")
        self.assertEqual(self.names(), ["list"])
        self.check(["blockmap", "build", "--keep-going", "list", "map"], PARTLY,
                   "map: 1 address in 10240 bytes (1 table, 1 bitmap), 2 lines left out\n", said)
        self.check(["blockmap", "dump", "map"], DONE, "10.0.0.1\n")

    @unittest.skipIf(RUNNER, "a terminal of the build host")
    def test_a_large_list_shows_its_progress_on_a_terminal(self):
        self.file("list", "".join(f"10.{n >> 16}.{n >> 8 & 255}.{n & 255}\n"
                                  for n in range(100_000)) + "x\n")
        self.assertNotIn("[", self.run_program("blockmap", "build", "list", "map")[2])
        terminal, ours = os.openpty()
        with subprocess.Popen([PROGRAM, "blockmap", "build", "list", "map"], cwd=self.folder,
                              stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                              stderr=ours) as run:
            os.close(ours)
            shown = read_terminal(terminal)
        self.assertEqual(run.returncode, FAILED)
        drawn, said = shown.split("list:100001: error:")
        self.assertRegex(drawn, r"\rreading list \[#*\.+\] +\d+%")
        self.assertRegex(drawn, r"\rreading list \[#+\] 100%\r +\r$")
        self.assertNotIn("reading", said)

    def test_damage(self):
        self.build()
        self.file("map", self.bytes_of("map")[:-1])
        said = ("the entry of 11.1.0.0/16 points to offset 2048, and the 8192 bytes that should be "
                "there end behind the file's 10239")
        self.check(["blockmap", "dump", "map"], PARTLY,
                   f"# damaged: {said}\n10.0.0.0/8\n11.0.0.0/16\n",
                   f"quillfence-data: map: {said}\n")
        self.check(["blockmap", "test", "map", "11.1.0.0"], PARTLY,
                   "11.1.0.0: not listed (damaged map)\n", f"quillfence-data: map: {said}\n")
        said_of_map = f"quillfence-data: map: {said}\n"
        self.assertEqual(self.document(["blockmap", "dump", "--json", "map"], PARTLY, said_of_map),
                         {"networks": ["10.0.0.0/8", "11.0.0.0/16"], "damaged": [said]})
        self.assertEqual(
            self.document(["blockmap", "test", "--json", "map", "11.1.0.0"], PARTLY, said_of_map),
            {"addresses": [{"address": "11.1.0.0", "listed": False, "problem": said}]})

    def test_json(self):
        self.build()
        self.assertEqual(self.document(["blockmap", "dump", "--json", "map"], DONE),
                         {"networks": self.DUMP.split(), "damaged": []})
        self.assertEqual(
            self.document(["blockmap", "test", "--json", "map", "10.1.2.3", "-", "11.1.0.2"], PARTLY,
                          'quillfence-data: "x\\" is no IPv4 address\n', text="11.1.0.3\nx\\\n"),
            {"addresses": [
                {"address": "10.1.2.3", "listed": True, "level": 1, "network": "10.0.0.0/8"},
                {"address": "11.1.0.3", "listed": False, "level": 3, "network": "11.1.0.3"},
                {"address": "x\\", "listed": None, "problem": "is no IPv4 address"},
                {"address": "11.1.0.2", "listed": True, "level": 3, "network": "11.1.0.2"}]})
        self.check(["blockmap", "test", "--json", "map", "-"], DONE, '{"addresses":[]}\n')
        self.run_program("blockmap", "build", "-", "empty")
        self.check(["blockmap", "dump", "--json", "empty"], DONE,
                   '{"networks":[],"damaged":[]}\n')


class ExamplesTest(Case):
    """The binary files of the example tree are what the program makes of the lists beside it."""

    def test_examples(self):
        sources = SOURCE / "examples/sources"
        made = SOURCE / "examples/drive_c/quillfence"
        checked = 0
        for source in sorted(path for path in sources.rglob("*") if path.is_file()):
            target = made / source.relative_to(sources).with_suffix("")
            command = {".bms": ["blockmap", "build"],
                       ".cregexes": ["regex", "compile"]}.get(target.suffix)
            if command is None:
                continue
            if target.stem == "exempt":
                command += ["--only", "OK"]
            self.file("list", source.read_bytes())
            status, _, err = self.run_program(*command, "list", "out")
            self.assertEqual((status, err), (DONE, ""), source)
            self.assertEqual(self.bytes_of("out"), target.read_bytes(), source)
            checked += 1
        binaries = [path for path in made.rglob("*") if path.suffix in (".bms", ".cregexes")]
        self.assertEqual(checked, len(binaries))


# What is written about the program: each subcommand with its options and values.
class PagesTest(Case):
    def subcommands(self, words=()):
        _, text, _ = self.run_program(*words, "--help")
        found = {words: text}
        if "\nSubcommands:\n" in text:
            section = text.split("\nSubcommands:\n")[1].split("\n\n")[0]
            for name in re.findall(r"^  (\S+) ", section, re.MULTILINE):
                found.update(self.subcommands((*words, name)))
        return found

    def test_every_subcommand_and_option_is_documented(self):
        found = self.subcommands()
        self.assertGreater(len(found), 8)
        manual = (SOURCE / "docs/man/quillfence-data.1").read_text().replace("\\-", "-")
        page = (SOURCE / "docs/quillfence-data.md").read_text()
        completion = (SOURCE / "packaging/completion/quillfence-data").read_text()
        for words, text in found.items():
            name = " ".join(words)
            options = set(re.findall(r"(?<![\w-])--[a-z][a-z-]*",
                                     text.split("\nOptions:\n")[1].split("\n\n")[0]))
            values = re.findall(r"^  ([A-Z]+) ", text.split("\nOptions:")[0], re.MULTILINE)
            for title, written in [("man", manual), ("page", page)]:
                self.assertIn(name, written, title)
                for word in [*options, *values]:
                    self.assertRegex(written, rf"(?<![\w-]){word}(?![\w-])", f"{title}: {name}")
            for word in [*words, *options]:
                self.assertRegex(completion, rf"(?<![\w-]){word}(?![\w-])", f"completion: {name}")
            # An option of a subcommand stands in that subcommand's own section.
            if len(words) == 2:
                section = re.split(rf"^\.SS {name}\b", manual, flags=re.MULTILINE)
                self.assertEqual(len(section), 2, f".SS of {name}")
                own = re.split(r"^\.S[SH] ", section[1], flags=re.MULTILINE)[0]
                for word in [*(options - {"--help"}), *values]:
                    self.assertIn(word, own, f"man: {name}")

    def test_no_name_of_a_file_is_empty(self):
        check_empty_names(self, PROGRAM, self.subcommands())
        for words, name in ([("verify",), "BASEDIR"], [("regex", "dump"), "FILE"],
                            [("counter", "show"), "DIR"]):
            self.check([*words, ""], FAILED, err=f"quillfence-data: {name}: must not be empty (is "
                       f'a variable unset?); try "quillfence-data {" ".join(words)} --help"\n')

    @unittest.skipIf(RUNNER, "the shell is the build host's")
    def test_completion(self):
        script = SOURCE / "packaging/completion/quillfence-data"

        def complete(*words):
            line = " ".join(words)
            command = (f'source "{script}"; COMP_WORDS=({" ".join(w or chr(39) * 2 for w in words)}); '
                       f"COMP_CWORD={len(words) - 1}; COMP_LINE='{line}'; "
                       "_quillfence_data; printf '%s\\n' \"${COMPREPLY[@]}\"")
            run = subprocess.run(["bash", "-c", command], cwd=self.folder, check=True,
                                 stdout=subprocess.PIPE, timeout=60)
            return sorted(run.stdout.decode().split())

        self.file("afile", "")
        self.assertEqual(complete("quillfence-data", "re"), ["regex"])
        self.assertEqual(complete("quillfence-data", "regex", ""), ["compile", "dump", "test"])
        self.assertEqual(complete("quillfence-data", "blockmap", "b"), ["build"])
        self.assertEqual(complete("quillfence-data", "regex", "compile", "--k"), ["--keep-going"])
        self.assertEqual(complete("quillfence-data", "regex", "compile", "af"), ["afile"])
        self.assertEqual(complete("quillfence-data", "verify", "--format", "s"), ["sarif"])
        self.assertEqual(complete("quillfence-data", "verify", "--error-on", ""),
                         ["error", "info", "warning"])
        self.assertEqual(complete("quillfence-data", "verify", "--format", "json", "a"), ["afile"])


if __name__ == "__main__":
    main()
