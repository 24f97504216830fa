#!/usr/bin/env python3
"""quillfence test as its user meets it: the reports, read by others' tools, what is refused, what
--update writes, and how it ends.

    quillfence_test_test.py [--runner=LAUNCHER] PROGRAM SOURCE_FOLDER

LAUNCHER runs the program on a Windows build (a list as CMake has it). TAP is read by Perl's
TAP::Parser, the XML by Python's parser.
"""

import io
import json
import shutil
import socket
import subprocess
import tarfile
import unittest
import xml.etree.ElementTree
from pathlib import Path

from whole_program import ARGUMENTS, RUNNER, FolderTest, main, run

PROGRAM, SOURCE = (Path(argument).resolve() for argument in ARGUMENTS)

GOOD, NOT_AS_EXPECTED, NOT_RUN = 0, 1, 2

# Prints what TAP::Parser makes of standard input: a line a result, with the YAML's plain text.
TAP_READER = r"""
use TAP::Parser;
local $/;
my $parser = TAP::Parser->new({tap => scalar <STDIN>});
binmode STDOUT, ':raw';
while (my $result = $parser->next) {
    if ($result->is_test) {
        my @flags = grep { my $has = "has_$_"; $result->$has } qw(todo skip);
        printf "%s\t%s\t%s\t%s\n", ($result->is_ok ? 'ok' : 'not ok'), $result->number,
               $result->description, join(',', @flags);
    } elsif ($result->is_yaml) {
        my $yaml = $result->data;
        for my $name (sort keys %$yaml) {
            my $value = $yaml->{$name};
            my @values = ref $value ? map { ref $_ ? join('|', map { $$_{$_} // '' } ()) .
                join('|', @$_{qw(member expected came)}) : $_ } @$value : ($value);
            print "  $name=$_\n" for @values;
        }
    }
}
printf "plan %s of %s, version %s, errors %d: %s\n", $parser->tests_run, $parser->tests_planned,
       $parser->version, scalar $parser->parse_errors, join('; ', $parser->parse_errors);
"""

REJECTED = {
    "schema": "quillfence.case/1",
    "transaction": {"ip": "10.1.2.3", "authuser": "", "mua": False, "helo": "a.example",
                    "sender": "x@spammer.example", "recipient": "bob@example.net"},
    "expect": {"verdict": "reject", "by": "rule", "rule": "from_blacklist"},
}


def with_(case, **members):
    return {**case, **members}


class Case(FolderTest):
    def setUp(self):
        super().setUp()
        shutil.copytree(SOURCE / "examples/drive_c", self.folder / "drive")

    def run_program(self, *arguments, **settings):
        return run([PROGRAM, *arguments], self.folder, **settings)

    def judge(self, *arguments, **environment):
        return self.run_program("test", "--drive-c", "drive", *arguments, **environment)

    def write(self, name, content):
        self.file(name, content if isinstance(content, str) else json.dumps(content, indent=2))

    def read(self, name):
        return self.bytes_of(name).decode()

    def bundle(self, name, case, files):
        with tarfile.open(self.folder / name, "w", format=tarfile.USTAR_FORMAT) as tar:
            for path, content in [("case.json", json.dumps(case)), *files.items()]:
                data = content if isinstance(content, bytes) else content.encode()
                entry = tarfile.TarInfo(path)
                entry.size = len(data)
                tar.addfile(entry, io.BytesIO(data))

    def captured(self, *facts):
        """A whole decision record as the case that it would be captured as."""
        status, out, err = self.run_program("explain", "--drive-c", "drive", "--dns", "off",
                                            *facts, "--json")
        self.assertEqual(err, "")
        return {**json.loads(out), "schema": "quillfence.case/1"}

    def read_tap(self, text):
        """What a reader of TAP makes of it, the last line being the summary."""
        run = subprocess.run(["perl", "-e", TAP_READER], input=text.encode(),
                             stdout=subprocess.PIPE, check=True, timeout=60)
        return run.stdout.decode().splitlines()


BLACKLISTED = ["--ip", "10.1.2.3", "--helo", "a.example", "--sender", "x@spammer.example",
               "--recipient", "bob@example.net"]


class ReportTest(Case):
    def test_the_examples_are_as_expected(self):
        shutil.copytree(SOURCE / "examples/cases", self.folder / "cases")
        status, out, err = self.judge("cases")
        self.assertEqual((status, err), (GOOD, ""), out)
        self.assertEqual(self.read_tap(out)[-1], "plan 10 of 10, version 13, errors 0: ")
        self.assertEqual(out.splitlines()[-1], "# 10 cases: 10 as expected")
        for path in (self.folder / "cases").glob("*.json"):
            self.assertIn(f"cases/{path.name}: {json.loads(path.read_text())['description']}", out)

    def test_each_example_can_fail(self):
        """An empty configuration decides otherwise in every one of them."""
        shutil.copytree(SOURCE / "examples/cases", self.folder / "cases")
        for name in ("drive/quillfence", "drive/users/bob"):
            shutil.rmtree(self.folder / name)
            (self.folder / name).mkdir()
        status, out, _ = self.judge("cases")
        self.assertEqual(status, NOT_AS_EXPECTED)
        self.assertEqual(out.splitlines()[-1], "# 10 cases: 0 as expected, 10 not as expected")

    def test_a_failure_tells_all(self):
        self.write("a.json", with_(REJECTED, description="a friend", expect={
            "verdict": ["accept", "undecided"], "rule": "", "entry": "x@spammer.example",
            "rules": {"from_blacklist": "no_hit", "require_helo": "no_hit"}}))
        status, out, err = self.judge("a.json")
        self.assertEqual((status, err), (NOT_AS_EXPECTED, ""))
        self.assertEqual(self.read_tap(out), [
            "not ok\t1\t- a.json: a friend\t",
            "  decided=REJECT by from_blacklist",
            "  differences=verdict|accept or undecided|reject",
            "  differences=rule|(none)|from_blacklist",
            "  differences=entry|x@spammer.example|*@spammer.example",
            "  differences=rules.from_blacklist|no_hit|hit",
            "  entry=c:/quillfence/from_blacklist:2: *@spammer.example (wildcard)",
            "  message=not as expected: verdict, rule, entry, rules.from_blacklist",
            "  reason=the sender matches an entry",
            "  severity=fail",
            "plan 1 of 1, version 13, errors 0: "])

    def test_prove_runs_it(self):
        """The harness that comes with Perl judges a run by its TAP and its exit status."""
        self.write("good.json", REJECTED)
        self.write("bad.json", with_(REJECTED, expect={"verdict": "accept"}))
        for name, passes in (("good.json", True), ("bad.json", False)):
            _, out, _ = self.judge(name)
            self.write("out.tap", out)
            run = subprocess.run(["prove", "--exec", "cat", "out.tap"], cwd=self.folder,
                                 stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False)
            self.assertEqual(run.returncode == 0, passes, run.stdout.decode())

    def test_texts_of_a_case_stay_texts(self):
        hostile = "x # TODO later\n  ...\nok 2 - \\# SKIP <&>\"']]> \x1b[31m \u202e \u00e4 \uffff"
        self.write("a.json", with_(REJECTED, description=hostile, expect={"notice": hostile}))
        self.write("b # SKIP.json", with_(REJECTED, expect={"verdict": "accept"}))
        status, out, _ = self.judge("a.json", "b # SKIP.json", "--junit", "r.xml")
        self.assertEqual(status, NOT_AS_EXPECTED)
        lines = self.read_tap(out)
        self.assertEqual([line for line in lines if line.startswith("ok")], [])
        self.assertEqual([line.split("\t")[3] for line in lines if line.startswith("not ok")],
                         ["", ""], "no directive")
        self.assertEqual(lines[-1], "plan 2 of 2, version 13, errors 0: ")
        self.assertNotIn("\x1b", out)
        self.assertNotIn("\u202e", out)
        self.assertIn("\u00e4", out)
        root = xml.etree.ElementTree.fromstring(self.read("r.xml").encode())
        self.assertEqual(root.find("testsuite/testcase/system-out").text,
                         "x # TODO later\\x0a  ...\\x0aok 2 - \\# SKIP <&>\"']]> \\x1b[31m "
                         "\\xe2\\x80\\xae \u00e4 \\xef\\xbf\\xbf")

    def test_a_report_is_not_written_over_a_case(self):
        self.write("in/a.json", REJECTED)
        before = self.read("in/a.json")
        for paths in (["in"], ["in/a.json"]):
            self.assertEqual(self.judge(*paths, "--junit", "./in/a.json"),
                             (NOT_RUN, "", "quillfence: ./in/a.json: is the input itself; name "
                                           "another file to write to\n"))
            self.assertEqual(self.read("in/a.json"), before)

    def test_junit(self):
        self.write("in/good.json", REJECTED)
        self.write("in/bad.json", with_(REJECTED, expect={"verdict": "accept"}))
        self.write("in/wrong.json", "{")
        status, _, _ = self.judge("in", "--junit", "report.xml")
        self.assertEqual(status, NOT_RUN)
        root = xml.etree.ElementTree.fromstring(self.read("report.xml").encode())
        self.check_schema(root)
        suite = root.find("testsuite")
        self.assertEqual({name: suite.get(name) for name in ("tests", "failures", "errors")},
                         {"tests": "3", "failures": "1", "errors": "1"})
        cases = {case.get("name"): case for case in suite}
        self.assertEqual(sorted(cases), ["bad.json", "good.json", "wrong.json"])
        self.assertEqual({case.get("classname") for case in suite}, {"in"})
        self.assertEqual(len(cases["good.json"]), 0)
        failed = cases["bad.json"].find("failure")
        self.assertEqual(failed.get("message"), "not as expected: verdict")
        self.assertIn("verdict: expected accept, came reject\n", failed.text)
        self.assertIn("entry: c:/quillfence/from_blacklist:2: *@spammer.example (wildcard)",
                      failed.text)
        self.assertIn("name in quotes", cases["wrong.json"].find("error").get("message"))

    def check_schema(self, root):
        """What build servers expect of the document: its elements, in their places, and the kinds
        of their attributes."""
        number, seconds, text = r"\d+", r"\d+\.\d+", r"[\s\S]*"
        counts = {"name": text, "tests": number, "failures": number, "errors": number,
                  "time": seconds}
        schema = {
            "testsuites": (counts, ["testsuite"]),
            "testsuite": ({**counts, "timestamp": r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ"},
                          ["testcase"]),
            "testcase": ({"classname": text, "name": text, "time": seconds},
                         ["failure", "error", "system-out"]),
            "failure": ({"message": text, "type": text}, []),
            "error": ({"message": text, "type": text}, []),
            "system-out": ({}, []),
        }

        def check(element):
            attributes, children = schema[element.tag]
            self.assertEqual(set(element.attrib), set(attributes), element.tag)
            for name, value in element.attrib.items():
                self.assertRegex(value, rf"^{attributes[name]}$", f"{element.tag} {name}")
            for child in element:
                self.assertIn(child.tag, children, element.tag)
                check(child)

        self.assertEqual(root.tag, "testsuites")
        check(root)


class RefusalTest(Case):
    def test_one_bad_file_does_not_stop_the_rest(self):
        self.write("in/1.json", REJECTED)
        self.write("in/2.json", '{"schema": "quillfence.case/1",\n "transaction": {},\n'
                                ' "expect": {"verdict": "reect"}}')
        self.write("in/3.json", "")
        self.write("in/4.json", {"schema": "quillfence.other/1"})
        self.write("in/5.tar", "not a tar file, and no JSON")
        self.write("in/6.json", REJECTED)
        status, out, err = self.judge("in")
        self.assertEqual(status, NOT_RUN)
        self.assertEqual([line.split(" - ")[0] for line in out.splitlines() if " - in/" in line],
                         ["ok 1", "not ok 2", "not ok 3", "not ok 4", "not ok 5", "ok 6"])
        self.assertEqual(out.splitlines()[-1], "# 6 cases: 2 as expected, 4 not run")
        said = err.splitlines()
        self.assertEqual(len(said), 4, err)
        self.assertEqual(said[0], "quillfence: in/2.json:3: expect.verdict: is no verdict")
        self.assertTrue(said[1].startswith("quillfence: in/3.json:1: "), err)
        self.assertTrue(said[2].startswith("quillfence: in/4.json:2: schema: "), err)
        self.assertEqual(said[3], "quillfence: in/5.tar: is no bundle, which is a tar file that "
                                  "begins with case.json")

    def test_no_cases(self):
        (self.folder / "empty").mkdir()
        self.write("a.json", REJECTED)
        status, out, err = self.judge("empty", "missing.json", "a.json")
        self.assertEqual(status, NOT_RUN)
        self.assertEqual(err, "quillfence: empty: holds no cases (*.json, *.tar)\n"
                              "quillfence: missing.json: No such file or directory\n")
        self.assertEqual(out.splitlines()[-1], "# 3 cases: 1 as expected, 2 not run")

    def test_nothing_to_check_is_no_success(self):
        case = dict(REJECTED)
        del case["expect"]
        self.write("a.json", case)
        status, out, err = self.judge("a.json")
        self.assertEqual(status, NOT_RUN)
        self.assertIn("not ok 1 - a.json\n", out)
        self.assertEqual(err, 'quillfence: a.json: has neither "expect" nor a captured decision, '
                              "so that nothing can be checked; --update adds what comes\n")

    def test_a_missing_answer_is_named(self):
        transaction = {**REJECTED["transaction"], "ip": "192.0.2.9"}
        self.write("a.json", with_(REJECTED, transaction=transaction))
        status, out, _ = self.judge("a.json")
        self.assertEqual(status, NOT_AS_EXPECTED)
        found = self.read_tap(out)
        self.assertIn("  message=an answer is missing", found)
        self.assertIn("  missing=PTR 9.2.0.192.in-addr.arpa.", found)
        self.write("a.json", with_(REJECTED, transaction=transaction,
                                   zonedata={"9.2.0.192.in-addr.arpa": "NXDOMAIN"}))
        self.assertEqual(self.judge("a.json")[0], NOT_AS_EXPECTED, "no PTR name: another rule")
        self.write("a.json", with_(REJECTED, transaction=transaction,
                                   zonedata={"9.2.0.192.in-addr.arpa": [{"PTR": "a.example"}]}))
        self.assertEqual(self.judge("a.json")[0], GOOD)

    def test_options_that_lead_nowhere(self):
        self.write("a.json", REJECTED)
        for arguments, said in [
                (["--drive-c", "nowhere"], "nowhere: is no folder"),
                (["--drive-c", "drive/users"], "drive/users/quillfence"),
                (["--registry", "nowhere.reg"], "nowhere.reg"),
                (["--junit", "nowhere/r.xml"], "nowhere/r.xml: could not be written"),
                (["--dns", "sometimes"], "--dns"),
                ([], "PATH")]:
            with self.subTest(arguments=arguments):
                status, out, err = self.run_program("test", *arguments,
                                                    *(["a.json"] if arguments else []))
                self.assertEqual((status, out), (NOT_RUN, ""))
                self.assertIn(said, err)
                self.assertEqual(err.count("\n"), 1, err)


class UpdateTest(Case):
    TEXT = ('{ "schema":"quillfence.case/1",\r\n'
            '  "expect" : {"rule":"require_helo" , "verdict": "reject"},\r\n'
            '  "transaction": {"ip": "10.1.2.3", "authuser": "", "mua": false,\r\n'
            '    "helo": "a.example", "sender": "x@spammer.example", "recipient": "b@c.example"}}\r\n')

    def test_what_differs_is_shown_and_written(self):
        self.write("a.json", self.TEXT)
        (self.folder / "a.json").chmod(0o640)
        status, out, err = self.judge("--update", "a.json")
        self.assertEqual((status, err), (GOOD, ""))
        self.assertEqual(out, "TAP version 13\n1..1\n"
                              "# a.json: rule: require_helo becomes from_blacklist\n"
                              "ok 1 - a.json\n# 1 case: 1 as expected\n")
        self.assertEqual(self.read("a.json"), self.TEXT.replace("require_helo", "from_blacklist"))
        if not RUNNER:
            self.assertEqual((self.folder / "a.json").stat().st_mode & 0o777, 0o640)
        self.assertEqual(sorted(p.name for p in self.folder.iterdir()), ["a.json", "drive"])
        self.assertEqual(self.judge("a.json")[0], GOOD)

    def test_a_case_without_expect_gets_one(self):
        case = dict(REJECTED)
        del case["expect"]
        self.write("a.json", case)
        before = self.read("a.json")
        status, out, _ = self.judge("--update", "a.json")
        self.assertEqual(status, GOOD)
        self.assertEqual(out, "TAP version 13\n1..1\n"
                              "# a.json: verdict: (nothing) becomes reject\n"
                              "# a.json: by: (nothing) becomes rule\n"
                              "# a.json: rule: (nothing) becomes from_blacklist\n"
                              "ok 1 - a.json\n# 1 case: 1 as expected\n")
        self.assertEqual(self.read("a.json"), before[:-2] + ',\n  "expect": {"verdict": "reject", '
                         '"by": "rule", "rule": "from_blacklist"}\n}')
        self.assertEqual(json.loads(self.read("a.json")), REJECTED)

    def test_what_is_as_expected_is_not_written(self):
        self.write("a.json", REJECTED)
        before = (self.folder / "a.json").stat()
        self.assertEqual(self.judge("--update", "a.json")[0], GOOD)
        after = (self.folder / "a.json").stat()
        self.assertEqual((before.st_mtime_ns, before.st_ino), (after.st_mtime_ns, after.st_ino))

    def test_a_decision_for_want_of_answers_is_not_written(self):
        self.write("a.json", with_(REJECTED, expect={"verdict": "accept"},
                                   transaction={**REJECTED["transaction"], "ip": "192.0.2.9"}))
        before = self.read("a.json")
        status, out, _ = self.judge("--update", "a.json")
        self.assertEqual(status, NOT_AS_EXPECTED)
        self.assertIn("not ok 1", out)
        self.assertIn("  notes=the case stays as it is: something went wrong on the way",
                      self.read_tap(out))
        self.assertEqual(self.read("a.json"), before)

    def test_a_bundle_is_left_to_its_maker(self):
        self.bundle("b.tar", with_(REJECTED, expect={"verdict": "undecided"}),
                    {"c/quillfence/control/enabled": "1\n"})
        before = (self.folder / "b.tar").read_bytes()
        status, _, err = self.judge("--update", "b.tar")
        self.assertEqual(status, NOT_RUN)
        self.assertEqual(err, "quillfence: b.tar: is a bundle; correct \"expect\" in its "
                              "case.json by hand\n")
        self.assertEqual((self.folder / "b.tar").read_bytes(), before)

    @unittest.skipIf(RUNNER, "a disk of the build host")
    def test_a_file_that_cannot_be_written_stays_whole(self):
        self.write("in/a.json", self.TEXT)
        (self.folder / "in/a.json.tmp").mkdir() # the new file's place is taken
        status, out, err = self.judge("--update", "in/a.json")
        self.assertEqual(status, NOT_RUN)
        self.assertIn("in/a.json: could not be written", err)
        self.assertIn("not ok 1", out)
        self.assertEqual(self.read("in/a.json"), self.TEXT)


class CapturedTest(Case):
    def test_it_expects_its_own_decision(self):
        self.write("a.json", self.captured(*BLACKLISTED))
        self.assertEqual(self.judge("a.json")[0], GOOD)
        case = self.captured(*BLACKLISTED)
        case["decision"] = {"verdict": "accept", "by": "nothing"}
        self.write("a.json", case)
        status, out, _ = self.judge("a.json")
        self.assertEqual(status, NOT_AS_EXPECTED)
        self.assertIn("  differences=verdict|accept|reject", self.read_tap(out))

    def test_files_that_differ_are_named(self):
        self.write("a.json", self.captured(*BLACKLISTED))
        with open(self.folder / "drive/quillfence/from_whitelist", "ab") as file:
            file.write(b"# one line more\n")
        status, out, _ = self.judge("a.json")
        self.assertEqual(status, GOOD)
        self.assertIn("# a.json: not as captured: c:/quillfence/from_whitelist differs\n", out)
        (self.folder / "drive/quillfence/from_blacklist").unlink()
        status, out, _ = self.judge("a.json")
        self.assertEqual(status, NOT_AS_EXPECTED)
        found = self.read_tap(out)
        self.assertIn("  notes=not as captured: c:/quillfence/from_blacklist is missing", found)
        self.assertIn("  notes=not as captured: c:/quillfence/from_whitelist differs", found)


class BundleTest(Case):
    def test_its_own_files_decide(self):
        files = {"c/quillfence/control/enabled": "1\n",
                 "c/quillfence/control/rules.enabled": "from_blacklist\n",
                 "c/quillfence/from_blacklist": "*@other.example\n"}
        case = with_(REJECTED, expect={"verdict": "reject", "entry": "*@other.example"},
                     transaction={**REJECTED["transaction"], "sender": "a@other.example"})
        self.bundle("b.tar", case, files)
        self.assertEqual(self.judge("b.tar")[0], GOOD)
        self.assertEqual(self.run_program("test", "b.tar")[0], GOOD, "without another drive, too")
        self.write("case.json", case)
        self.assertEqual(self.judge("case.json")[0], NOT_AS_EXPECTED, "the drive's own files")
        self.assertEqual(self.judge("b.tar", "case.json", "b.tar")[1].count("\nok "), 2)

    def test_what_leads_out_of_it_is_refused(self):
        self.bundle("b.tar", REJECTED, {"../evil": "x"})
        status, _, err = self.judge("b.tar")
        self.assertEqual(status, NOT_RUN)
        self.assertIn("quillfence: b.tar: ", err)
        self.assertFalse((self.folder.parent / "evil").exists())


class SurroundingsTest(Case):
    def test_the_users_folder_of_a_short_case(self):
        transaction = {**REJECTED["transaction"], "sender": "offers@spammer.example"}
        exempt = {"verdict": "accept", "where": "user"}
        self.write("a.json", with_(REJECTED, transaction=transaction, expect=exempt))
        self.assertEqual(self.judge("a.json")[0], NOT_AS_EXPECTED)
        self.assertEqual(self.judge("a.json", "--user-dir", "c:/users/bob")[0], GOOD)
        self.write("a.json", with_(REJECTED, transaction=transaction, expect=exempt,
                                   config={"user_dir": "c:/users/bob"}))
        self.assertEqual(self.judge("a.json", "--user-dir", "c:/users/nobody")[0], GOOD,
                         "the case's own goes first")

    @unittest.skipIf(RUNNER, "the DNS is the build host's")
    def test_the_dns_is_asked_only_when_told_so(self):
        """The one server is a port that refuses."""
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as taken:
            taken.bind(("127.0.0.1", 0))
            server = "127.0.0.1:%d" % taken.getsockname()[1]
            taken.close()
            self.write("a.json", with_(REJECTED, zonedata={},
                                       transaction={**REJECTED["transaction"], "ip": "192.0.2.9"}))
            self.assertEqual(self.judge("a.json", QUILLFENCE_DNS_SERVER=server)[0],
                             NOT_AS_EXPECTED)
            for dns in ("record-missing", "live"):
                self.assertEqual(
                    self.judge("a.json", "--dns", dns, QUILLFENCE_DNS_SERVER=server)[0], GOOD,
                    "the question failed, and so no rule before the blacklist hits")


if __name__ == "__main__":
    main()
