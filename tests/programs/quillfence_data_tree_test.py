#!/usr/bin/env python3
"""quillfence-data range, list, counter and verify as their user meets them.

    quillfence_data_tree_test.py [--runner=LAUNCHER] PROGRAM SOURCE_FOLDER
"""

import json
import os
import shutil
import struct
import unittest
from pathlib import Path
from urllib.parse import unquote_to_bytes

from quillfence_data_test import DONE, FAILED, NO, SOURCE, Case
from whole_program import RUNNER, main

NOVEMBER_1 = 1698796800  # 2023-11-01 00:00 UTC


class RangeTest(Case):
    def test_there_and_back(self):
        self.check(["range", "add", "a.range", "10.1.2.0", "10.1.2.255", "--comment", "lab"], DONE,
                   "a.range: 10.1.2.0-10.1.2.255 added\n")
        self.check(["range", "add", "a.range", "10.1.2.0/24"], FAILED,
                   err="quillfence-data: a.range: 10.1.2.0-10.1.2.255: Entry already exists\n")
        self.check(["range", "list", "a.range"], DONE, "10.1.2.0-10.1.2.255  lab\n")
        status, out, _ = self.run_program("range", "list", "--json", "a.range")
        self.assertEqual((status, json.loads(out)),
                         (DONE, [{"low": "10.1.2.0", "high": "10.1.2.255", "comment": "lab"}]))
        self.check(["range", "convert", "a.range"], DONE,
                   "a.range: is of the current version already\n")
        self.check(["range", "del", "a.range", "10.1.2.0/24"], DONE,
                   "a.range: 10.1.2.0-10.1.2.255 removed\n")
        self.assertEqual(self.names(), ["a.range"])

    def test_a_missing_file(self):
        self.check(["range", "list", "none"], FAILED,
                   err="quillfence-data: none: No such file or directory\n")


class ListTest(Case):
    def test_there_and_back(self):
        (self.folder / "q").mkdir()
        self.check(["list", "add", "q", "from_whitelist", "*@example.org"], DONE,
                   "q/from_whitelist: *@example.org added\n")
        self.check(["list", "add", "q", "from_whitelist", "*@example.org", "--comment", "friends"],
                   DONE, "q/from_whitelist: *@example.org: comment set\n")
        self.assertEqual(self.bytes_of("q/from_whitelist"), b"*@example.org\n\tfriends\n")
        self.check(["list", "find", "q", "bob@example.org"], DONE,
                   "q/from_whitelist:1: *@example.org (wildcard)\n")
        self.check(["list", "find", "q", "bob@example.com"], NO,
                   "nothing matches bob@example.com\n")
        self.check(["list", "add", "q", "from_blacklist", "*@Example.org"], FAILED,
                   err="quillfence-data: q/from_blacklist: *@Example.org: Entry is present in the "
                       "opposite table\n")
        self.check(["list", "del", "q", "from_whitelist", "*@example.org", "--comment-only"], DONE,
                   "q/from_whitelist: *@example.org: comment removed\n")
        self.check(["list", "del", "q", "from_whitelist", "*@example.org"], DONE,
                   "q/from_whitelist: *@example.org removed\n")
        self.assertEqual(self.bytes_of("q/from_whitelist"), b"")


class CounterTest(Case):
    def setUp(self):
        super().setUp()
        days = bytearray(997)
        days[0] = 2
        struct.pack_into("<8I", days, 5, NOVEMBER_1, 12, 3, 1, 0, 0, 15, 1)
        self.file(".counterv2.dat.11", bytes(days))

    def test_table(self):
        self.check(["counter", "show", "."], DONE,
                   "day         ham  spam  exempt  rate_limit  rate_limit_2  mta  mua\n"
                   "2023-11-01   12     3       1           0             0   15    1\n"
                   "total        12     3       1           0             0   15    1\n")

    def test_csv(self):
        self.check(["counter", "show", "--csv", "."], DONE,
                   "period,start,ham,spam,exempt,rate_limit,rate_limit_2,mta,mua\n"
                   "day,2023-11-01,12,3,1,0,0,15,1\n")

    def test_json(self):
        count = {"ham": 12, "spam": 3, "exempt": 1, "rate_limit": 0, "rate_limit_2": 0, "mta": 15,
                 "mua": 1}
        status, out, err = self.run_program("counter", "show", "--json", ".")
        self.assertEqual((status, err), (DONE, ""))
        self.assertEqual(json.loads(out), {"total": count, "hours": [],
                                           "days": [{"start": "2023-11-01", **count}]})

    def test_page(self):
        self.check(["counter", "show", "--html", "a.html", "."], DONE, "a.html: 1 day, 0 hours\n")
        self.assertIn(b"<!DOCTYPE html>", self.bytes_of("a.html"))
        self.assertEqual(self.names(), [".counterv2.dat.11", "a.html"])

    def test_one_form_at_a_time(self):
        status, out, err = self.run_program("counter", "show", "--json", "--csv", ".")
        self.assertEqual((status, out), (FAILED, ""))
        self.assertIn("excludes", err)


class VerifyTest(Case):
    def setUp(self):
        super().setUp()
        shutil.copytree(SOURCE / "examples/drive_c/quillfence", self.folder / "q")

    def everything(self):
        return {path: (path.stat().st_mtime_ns, path.read_bytes() if path.is_file() else b"")
                for path in sorted(self.folder.rglob("*"))}

    def test_the_example_has_no_findings(self):
        status, out, err = self.run_program("verify", "q")
        self.assertEqual((status, out), (DONE, ""))
        self.assertRegex(err, r"^quillfence-data: \d+ files checked: 0 errors, 0 warnings\n$")

    def test_findings(self):
        self.file("q/control/rules.enabled", "valid_prt\r\nvalid_prt\n")
        self.file("q/exempt_ips", "10.0.0.1\n10.0.0.1 \n")
        before = self.everything()
        want = [("q/control/rules.enabled", 1, "error", "ends in CR, which the engine takes for a "
                 "part of the name; end lines with LF alone"),
                ("q/control/rules.enabled", 2, "error", 'there is no rule "valid_prt"'),
                ("q/exempt_ips", 2, "error",
                 '"10.0.0.1 " ends in white space, which belongs to the entry')]
        for _ in range(2):
            status, out, err = self.run_program("verify", "q")
            self.assertEqual((status, out),
                             (NO, "".join(f"{file}:{line}: {severity}: {text}\n"
                                          for file, line, severity, text in want)))
        self.assertRegex(err, r": 3 errors, 0 warnings\n$")
        status, out, _ = self.run_program("verify", "q", "--json")
        report = json.loads(out)
        self.assertEqual((status, report["base"], report["errors"]), (NO, "q", 3))
        self.assertEqual([("q/" + one["path"], one["line"], one["severity"], one["text"])
                          for one in report["findings"]], want)
        self.assertEqual([one["id"] for one in report["findings"]],
                         ["name-ends-in-cr", "rule-unknown", "entry-ends-in-white-space"])
        self.assertEqual(report["findings"][0]["mend"], "End lines with LF alone.")
        status, out, _ = self.run_program("verify", "--format", "github", "q")
        self.assertEqual((status, out.splitlines()[1]),
                         (NO, '::error file=q/control/rules.enabled,line=2,title=rule-unknown'
                              '::there is no rule "valid_prt"'))
        self.assertEqual(self.everything(), before)

    def test_json_is_short_for_a_format(self):
        (self.folder / "q/notes").touch()
        short, long = (self.run_program("verify", "q", *form)
                       for form in (["--json"], ["--format", "json"]))
        self.assertEqual(short, long)
        self.assertEqual(json.loads(short[1])["infos"], 1)
        status, out, err = self.run_program("verify", "q", "--json", "--format", "json")
        self.assertEqual((status, out), (FAILED, ""))
        self.assertIn("excludes", err)

    def test_what_the_exit_status_heeds(self):
        self.file("q/exempt_users", "somebody\n")
        self.assertEqual([self.run_program("verify", "q", *words)[0]
                          for words in ([], ["--error-on", "warning"], ["--error-on", "info"],
                                        ["--error-on", "error"])], [NO, NO, NO, DONE])
        status, out, err = self.run_program("verify", "q", "--error-on", "never")
        self.assertEqual((status, out), (FAILED, ""))
        self.assertIn("never not in {error,warning,info}", err)

    # What the schema of SARIF asks for, and what code hosts ask for beyond it.
    def check_sarif(self, text):
        log = json.loads(text)
        self.assertEqual(log["version"], "2.1.0")
        [run] = log["runs"]
        rules = run["tool"]["driver"]["rules"]
        ids = [rule["id"] for rule in rules]
        self.assertEqual(len(ids), len(set(ids)))
        for rule in rules:
            self.assertTrue(rule["shortDescription"]["text"])
            self.assertTrue(rule.get("help", {"text": "none"})["text"])
            self.assertIn(rule["defaultConfiguration"]["level"], ("error", "warning", "note"))
        bases = run.get("originalUriBaseIds", {})
        for base in bases.values():
            self.assertRegex(base["uri"], r"^file:///?[!-~]*/$")
        for result in run["results"]:
            self.assertEqual(rules[result["ruleIndex"]]["id"], result["ruleId"])
            self.assertEqual(rules[result["ruleIndex"]]["defaultConfiguration"]["level"],
                             result["level"])
            self.assertTrue(result["message"]["text"])
            [place] = result["locations"]
            place = place["physicalLocation"]
            self.assertRegex(place["artifactLocation"]["uri"],
                             r"^([A-Za-z0-9._~/-]|%[0-9A-F]{2})+$")
            self.assertIn(place["artifactLocation"].get("uriBaseId"), [None, *bases])
            self.assertGreaterEqual(place["region"]["startLine"], 1)
        return run

    def test_sarif(self):
        self.file("q/control/rules.enabled", "valid_prt\r\nvalid_prt\n")
        self.file("q/exempt_users", "somebody\n")
        self.file("q/some notes", "")
        status, out, _ = self.run_program("verify", "--format", "sarif", "q")
        run = self.check_sarif(out)
        self.assertEqual((status, "originalUriBaseIds" in run), (NO, False))
        self.assertEqual(
            [(one["ruleId"], one["level"],
              one["locations"][0]["physicalLocation"]["artifactLocation"]["uri"],
              one["locations"][0]["physicalLocation"]["region"]["startLine"])
             for one in run["results"]],
            [("name-ends-in-cr", "error", "q/control/rules.enabled", 1),
             ("rule-unknown", "error", "q/control/rules.enabled", 2),
             ("entry-matches-no-address", "warning", "q/exempt_users", 1),
             ("unknown-file", "note", "q/some%20notes", 1)])

    def test_sarif_without_findings(self):
        status, out, _ = self.run_program("verify", "--format", "sarif", "q")
        self.assertEqual((status, self.check_sarif(out)["results"]), (DONE, []))

    @unittest.skipIf(RUNNER, "the names are the native system's")
    def test_names_of_any_bytes(self):
        names = [b"\xff\xfe", b"a,b%: \xc3\xa4\n\r", b'"\\\x1b[31m', b"\xed\xa0\x80"]
        for name in names:
            Path(os.fsdecode(os.fsencode(self.folder / "q") + b"/" + name)).touch()
        base = str(self.folder / "q")
        report = json.loads(self.run_program("verify", "--json", base)[1])
        self.assertEqual(sorted(one["path"] for one in report["findings"]),
                         sorted(["\\xff\\xfe", "a,b%: \u00e4\n\r", '"\\\x1b[31m',
                                 "\\xed\\xa0\\x80"]))
        run = self.check_sarif(self.run_program("verify", "--format", "sarif", base)[1])
        self.assertEqual(unquote_to_bytes(run["originalUriBaseIds"]["BASEDIR"]["uri"]),
                         b"file://" + os.fsencode(base) + b"/")
        uris = [one["locations"][0]["physicalLocation"]["artifactLocation"]["uri"]
                for one in run["results"]]
        self.assertEqual(sorted(map(unquote_to_bytes, uris)), sorted(names))
        lines = self.run_program("verify", "--format", "github", base)[1].split("\n")
        self.assertEqual(len(lines), len(names) + 1, lines)
        for line in lines[:-1]:
            self.assertRegex(line, r"^::notice file=[^,:]+,line=1,title=unknown-file::[ -~]+$")
            self.assertTrue(line.isprintable(), repr(line))

    def test_no_folder(self):
        self.check(["verify", "none"], FAILED,
                   err='quillfence-data: none: is no folder; give the one that holds "control" and '
                       '"bms"\n')


if __name__ == "__main__":
    main()
