#!/usr/bin/env python3
"""quillfence explain as its user meets it: what is refused and how it is said, what the options
change, how it ends, and that all of it is written down.

    quillfence_explain_test.py [--runner=LAUNCHER] PROGRAM SOURCE_FOLDER

LAUNCHER runs the program on a Windows build (a list as CMake has it).
"""

import json
import os
import re
import resource
import shutil
import signal
import socket
import subprocess
import time
import unittest
from pathlib import Path

from whole_program import (ARGUMENTS, RUNNER, FolderTest, check_empty_names, environment, main,
                           read_terminal, run)

PROGRAM, SOURCE = (Path(argument).resolve() for argument in ARGUMENTS)

EXPLAINED, REJECTED, FAILED, UNDECIDED = 0, 1, 2, 3

# A sender on the blacklist, with all the DNS answers that the decision asks for.
BLACKLISTED = ["--dns", "off", "--ip", "192.0.2.9", "--helo", "spammer.example", "--sender",
               "x@spammer.example", "--recipient", "bob@example.net", "--ptr", "spammer.example",
               "--answer", "spammer.example", "A", "192.0.2.9"]
# A client whose mail is exempt, by its address.
EXEMPT = ["--dns", "off", "--ip", "192.0.2.25", "--helo", "a.example", "--sender", "a@a.example",
          "--recipient", "bob@example.net"]
LOG_LINE = ("2026-11-20 08:15:42 quillfence[1]: HAM: mua=[no:(null)],ip=[192.0.2.25:a.example],"
            "port=<1>,tls=<no>,helo=<a.example>,from=<a@a.example>,rcpt=<bob@example.net>\r\n")


class Case(FolderTest):
    def setUp(self):
        super().setUp()
        shutil.copytree(SOURCE / "examples/drive_c", self.folder / "drive")

    def run_program(self, *arguments, text="", **settings):
        return run([PROGRAM, *arguments], self.folder, text, **settings)

    def explain(self, *arguments, text="", **environment):
        return self.run_program("explain", "--drive-c", "drive", *arguments, text=text,
                                **environment)

    def decision(self, *arguments, text=""):
        """Exit status, and the record's decision."""
        status, out, err = self.explain(*arguments, "--json", text=text)
        self.assertEqual(err, "")
        return status, json.loads(out)["decision"]

    def check_refused(self, arguments, said, text=""):
        with self.subTest(arguments=arguments):
            self.assertEqual(self.explain(*arguments, text=text),
                             (FAILED, "", f"quillfence: {said}\n"))


class FactsTest(Case):
    def test_an_address_that_is_none(self):
        said = '--ip: "{}" is no address; {}'
        for address, advice in [
            ("[2001:db8::1]", "write it without brackets and port: 2001:db8::1"),
            ("[2001:db8::1]:25", "write it without brackets and port: 2001:db8::1"),
            ("192.0.2.1:25", "the port is given by --port: --ip 192.0.2.1 --port 25"),
            ("192.0.2.0/24", "one client is judged, no network"),
            ("192.0.2.001", "four numbers from 0 to 255 without leading zeros, as in 192.0.2.1"),
            ("192.0.2.256", "four numbers from 0 to 255 without leading zeros, as in 192.0.2.1"),
            ("mail.example.org", "write an IPv4 address such as 192.0.2.1, or an IPv6 address such "
                                 "as 2001:db8::1"),
        ]:
            self.check_refused(["--ip", address], said.format(address, advice))

    def test_a_flag_that_is_neither(self):
        for option in ("--tls", "--mua"):
            for value in ("2", "maybe"):
                self.check_refused([f"{option}={value}"],
                                   f'{option}: "{value}" is neither yes (1) nor no (0)')

    def test_flags_in_words_and_numbers(self):
        for value, meant in [("1", True), ("yes", True), ("YES", True), ("0", False),
                             ("no", False)]:
            _, out, _ = self.explain(*EXEMPT, "--tls", value, "--json")
            self.assertIs(json.loads(out)["transaction"]["tls"], meant)

    def test_a_port_that_is_none(self):
        for port in ("65536", "-1", "smtp"):
            self.check_refused([f"--port={port}"],
                               f'--port: "{port}" is no port; write a number from 0 to 65535')

    @unittest.skipIf(RUNNER, "a line end does not survive Wine's command line")
    def test_a_line_end_in_a_fact(self):
        self.check_refused(["--helo", "a\nb"],
                           '--helo: "a\\x0ab" holds a line end, which SMTP can\'t carry')

    def test_an_empty_sender_is_a_bounce(self):
        arguments = [word for word in EXEMPT if word not in ("--sender", "a@a.example")]
        for sender in ("<>", ""):
            _, out, _ = self.explain(*arguments, "--sender", sender, "--json")
            record = json.loads(out)
            self.assertEqual((record["transaction"]["sender"], record["facts"]["bounce"]),
                             ("", True))

    def test_a_transaction_comes_in_one_way(self):
        said = ("give the transaction in one way: by name (--ip, --sender ...), as the replayer's "
                "nine values, by --input or by --case")
        values = ["R", "192.0.2.25", "25", "0", "u", "0", "h", "a@b.example", "c@d.example"]
        self.check_refused(["--ip", "192.0.2.9", "--input", "-"], said)
        self.check_refused(["--ip", "192.0.2.9", *values], said)
        self.check_refused(["--input", "-", *values], said)

    def test_what_chooses_from_an_input_needs_one(self):
        for option, value in (("--number", "2"), ("--from", "json")):
            for way in (["--ip", "192.0.2.9"], ["--case", "case.json"]):
                self.check_refused([*way, option, value],
                                   f'{option} requires --input; try "quillfence explain --help"')

    def test_no_transaction(self):
        self.check_refused([], 'there is no transaction; try "quillfence explain --help"')

    def test_the_replayer_s_values(self):
        said = ("the replayer's values are nine: R ip port tls authuser mua helo sender recipient; "
                "or give the facts by name (--ip, --sender ...)")
        self.check_refused(["R", "192.0.2.9"], said)
        self.check_refused(["C", "192.0.2.9", "25", "0", "u", "0", "h", "a@b", "c@d"], said)
        status, decision = self.decision("--dns", "off", "R", "192.0.2.25", "25", "0", "u", "0", "h",
                                         "a@b.example", "c@d.example")
        self.assertEqual((status, decision["by"], decision["rule"]),
                         (EXPLAINED, "exempt", "ip_whitelist"))


class InputTest(Case):
    def test_a_line_of_the_mail_log(self):
        status, decision = self.decision("--dns", "off", "--input", "-", text=LOG_LINE)
        self.assertEqual((status, decision["rule"]), (EXPLAINED, "ip_whitelist"))

    def test_several_transactions(self):
        self.file("log", LOG_LINE * 3)
        self.check_refused(["--dns", "off", "--input", "log"], "log: holds 3 transactions, and one "
                           "is explained; choose it with --number")
        self.assertEqual(self.decision("--dns", "off", "--input", "log", "--number", "3")[0],
                         EXPLAINED)
        self.check_refused(["--dns", "off", "--input", "log", "--number", "4"],
                           "log: holds 3 transactions")

    def test_a_wrong_line_is_named(self):
        self.file("log", LOG_LINE + LOG_LINE.replace("port=", "tort="))
        status, out, err = self.explain("--input", "log", "--number", "2")
        self.assertEqual((status, out), (FAILED, ""))
        self.assertRegex(err, r"^quillfence: log:2: .+\n$")

    def test_a_wrong_format(self):
        status, out, err = self.explain("--input", "-", "--from", "csv", text=LOG_LINE)
        self.assertEqual((status, out), (FAILED, ""))
        self.assertRegex(err, '^quillfence: --from: there is no format "csv"; they are .*qflog.*\n$')

    def test_a_text_that_looks_like_nothing(self):
        self.check_refused(["--input", "-"], "standard input: it looks like no format that is "
                           "known; name one with --from", text="hello\n")

    def test_a_missing_file(self):
        self.check_refused(["--input", "gone"], "gone: No such file or directory")

    def test_what_is_no_file_is_called_so(self):
        (self.folder / "dd").mkdir()
        self.check_refused(["--input", "dd"], "dd: is a folder")
        self.check_refused(["--case", "dd"], "dd: is a folder")
        self.assertEqual(self.run_program("batch", "--drive-c", "drive", "dd"),
                         (FAILED, "", "quillfence: dd: is a folder\n"))

    @unittest.skipIf(RUNNER, "a pipe and a device of the build host")
    def test_a_pipe_is_read_as_standard_input_alone(self):
        os.mkfifo(self.folder / "pipe")
        for name in ("pipe", "/dev/null"):
            self.check_refused(["--input", name], f"{name}: is a pipe or a device, which is read "
                               "as standard input alone")


class SurroundingsTest(Case):
    def test_no_option_that_names_a_file_takes_an_empty_name(self):
        check_empty_names(self, PROGRAM, [[word] for word in ("explain", "test", "collect", "batch",
                                                              "diff", "log", "policyd")])

    def test_missing_folders(self):
        self.assertEqual(
            self.run_program("explain", "--drive-c", "gone", *EXEMPT),
            (FAILED, "", "quillfence: gone: is no folder; --drive-c is the folder that holds "
                         "quillfence/\n"))
        self.assertEqual(
            self.run_program("explain", "--drive-c", "drive/quillfence", *EXEMPT),
            (FAILED, "", "quillfence: drive/quillfence/quillfence: is no folder; --drive-c is the "
                         "folder that holds quillfence/\n"))
        self.check_refused([*EXEMPT, "--user-dir", "gone"],
                           "gone: is no folder; --user-dir is a user's own folder of lists")
        self.check_refused([*EXEMPT, "--registry", "drive"],
                           "drive: is no file; --registry is an export (.reg)")

    @unittest.skipIf(RUNNER, "there the system's DNS client asks the system's servers")
    def test_a_server_that_is_none(self):
        self.check_refused(["--ip", "192.0.2.9", "--server", "ns.example"],
                           '--server: "ns.example" is no server; write an address, as in '
                           "192.0.2.53, 192.0.2.53:5353 or [2001:db8::53]:5353")

    def test_answers_that_are_none(self):
        for arguments, option in [(["--answer", "a.example", "A", "nonsense"], "--answer"),
                                  (["--answer", "a.example", "TXT", "x"], "--answer"),
                                  (["--ptr", "x" * 70], "--ptr")]:
            status, out, err = self.explain(*EXEMPT, *arguments)
            self.assertEqual((status, out), (FAILED, ""), arguments)
            self.assertRegex(err, f"^quillfence: {option}: .+\n$")
        self.check_refused(["--sender", "a@b.example", "--ptr", "a.example"],
                           "--ptr: names the client, and there is no --ip")

    def test_choices_are_checked(self):
        for arguments in (["--dns", "of"], ["--deadline", "0"], ["--deadline", "4000"],
                          ["--number", "0"], ["--deadline", "nan"]):
            status, out, err = self.explain(*EXEMPT, *arguments)
            self.assertEqual((status, out), (FAILED, ""))
            self.assertRegex(err, f'^quillfence: {arguments[0]}: .*; try "quillfence explain '
                                  '--help"\n$')


class WhatIfTest(Case):
    def test_with_a_line(self):
        before = self.files()
        status, decision = self.decision(*BLACKLISTED, "--with-list", "from_whitelist",
                                         "x@spammer.example")
        self.assertEqual((status, decision["verdict"], decision["rule"]),
                         (EXPLAINED, "accept", "from_whitelist"))
        self.assertEqual(self.files(), before)

    def test_with_a_list_that_is_missing(self):
        self.assertFalse((self.folder / "drive/quillfence/blocked_senders").exists())
        (self.folder / "drive/quillfence/from_blacklist").unlink()
        status, decision = self.decision(*BLACKLISTED, "--with-list", "from_blacklist",
                                         "x@spammer.example")
        self.assertEqual((status, decision["verdict"], decision["rule"]),
                         (EXPLAINED, "reject", "from_blacklist"))
        self.assertFalse((self.folder / "drive/quillfence/from_blacklist").exists())

    def test_several_lines(self):
        status, decision = self.decision(
            *BLACKLISTED, "--without-list", "from_blacklist", "*@spammer.example",
            "--with-list", "control/rules.enabled", "block_all_mail",
            "--with-list", "from_blacklist", "x@spammer.example")
        self.assertEqual((status, decision["rule"]), (EXPLAINED, "block_all_mail"))

    def test_without_a_line_that_is_not_there(self):
        self.check_refused([*EXEMPT, "--without-list", "from_blacklist", "*@spammer.org"],
                           "c:/quillfence/from_blacklist: there is no line \"*@spammer.org\" to "
                           "leave out")
        self.check_refused([*EXEMPT, "--without-list", "blocked_ips", "a"],
                           'c:/quillfence/blocked_ips: there is no line "a" to leave out')

    def test_however_the_path_is_spelled(self):
        for path in ("c:\\quillfence\\from_blacklist", "c:/quillfence//from_blacklist",
                     "./from_blacklist", ".\\From_Blacklist", "C:/Quillfence/./FROM_BLACKLIST"):
            with self.subTest(path=path):
                _, out, err = self.explain(*BLACKLISTED, "--json", "--without-list", path,
                                           "*@spammer.example")
                self.assertEqual(err, "")
                record = json.loads(out)
                self.assertEqual(record["decision"]["verdict"], "undecided")
                self.assertEqual(record["notes"][-1]["text"], "what if c:/quillfence/from_blacklist "
                                 'did not have the line "*@spammer.example"')

    def test_two_spellings_are_one_list(self):
        _, decision = self.decision(
            *BLACKLISTED, "--without-list", "c:/quillfence//from_blacklist", "*@spammer.example",
            "--with-list", "from_whitelist", "y@spammer.example",
            "--with-list", "c:\\quillfence\\from_whitelist", "x@spammer.example")
        self.assertEqual((decision["verdict"], decision["rule"]), ("accept", "from_whitelist"))

    def check_user_list(self, folder, path, sender="x@spammer.example"):
        with self.subTest(folder=folder, path=path):
            _, decision = self.decision(*BLACKLISTED, "--user-dir", folder, "--with-list", path,
                                        sender)
            self.assertEqual((decision["verdict"], decision.get("where")), ("accept", "user"))

    def test_a_user_s_list_however_folder_and_path_are_spelled(self):
        self.check_user_list("c:/users/bob/", "c:/users/bob//from_whitelist")
        self.check_user_list("c:\\users\\bob", "c:/users/bob/from_whitelist")
        self.check_user_list("c:\\users\\bob\\", "C:/Users/./bob/from_whitelist")
        self.check_user_list("c:/users/bob", "c:\\users\\bob\\from_whitelist")

    @unittest.skipIf(RUNNER, "paths of a system without drives")
    def test_a_user_s_folder_outside_the_drive(self):
        shutil.copytree(self.folder / "drive/users", self.folder / "users")
        for folder in (str(self.folder / "users/bob"), "users/bob", "./users/bob/"):
            self.check_user_list(folder, folder + "/from_whitelist")

    def test_a_user_s_list_of_a_case(self):
        """The folder is the case's."""
        self.explain(*BLACKLISTED, "--user-dir", "c:/users/bob/", "--capture", "case.json")
        _, decision = self.decision("--case", "case.json", "--with-list",
                                    "c:/users/bob/from_whitelist", "x@spammer.example")
        self.assertEqual((decision["verdict"], decision["where"]), ("accept", "user"))

    def test_lists_that_are_read_elsewhere_than_by_rules(self):
        _, decision = self.decision(*BLACKLISTED, "--without-list", "control/enabled", "1")
        self.assertEqual((decision["verdict"], decision["by"]), ("accept", "engine_off"))
        _, decision = self.decision(
            *BLACKLISTED, "--without-list", "from_blacklist", "*@spammer.example",
            "--without-list", "rbl.enabled", "rbl.example")
        self.assertEqual(decision["verdict"], "accept")
        _, decision = self.decision(
            *BLACKLISTED, "--without-list", "from_blacklist", "*@spammer.example",
            "--with-list", "control/valid_domain_ips", "spammer.example : 198.51.100.0/24")
        self.assertEqual(decision["rule"], "known_sender_forgery")
        client = ["--dns", "off", "R", "10.11.12.13", "25", "0", "", "0", "x.example",
                  "a@x.example", "bob@example.net"]
        self.assertEqual(self.decision(*client)[1]["by"], "block_map")
        _, decision = self.decision(*client, "--without-list", "control/bms.enabled",
                                    "sample-abusers.bms")
        self.assertNotEqual(decision["by"], "block_map")

    def test_a_file_that_no_decision_asks(self):
        names = "docs/explain.md has their names"
        of_user = " is not asked: of a user's own lists only those that exempt are"
        for path, said in (
                ("from_whitlist", "did you mean from_whitelist?"),
                ("c:/quillfence/control/rule.enabled", "did you mean control/rules.enabled or "
                                                       "control/bms.enabled or control/enabled?"),
                ("c:/users/bob/from_whitlist", "did you mean c:/users/bob/from_whitelist?"),
                ("c:/elsewhere/exempt_ips", "did you mean exempt_ips?"),
                ("bms/sample-abusers.bms", names), ("gone", names), ("", names)):
            said = f'"{path}" is no list that a decision asks; {said}'
            for option in ("--with-list", "--without-list"):
                self.check_refused([*EXEMPT, "--user-dir", "c:/users/bob", option, path, "a"], said)
        for path, said in (
                ("dynaregex/dyna.cregexes", " is no list of lines"),
                ("exempt_ips.range", " is no list of lines"),
                ("rl_whitelist.lst", " is asked by no decision"),
                ("log/qflog", " is asked by no decision")):
            self.check_refused([*EXEMPT, "--with-list", path, "a"], "c:/quillfence/" + path + said)
        for path in ("c:/users/bob/from_blacklist", "c:/users/bob/rbl.enabled"):
            self.check_refused([*EXEMPT, "--user-dir", "c:/users/bob", "--with-list", path, "a"],
                               path + of_user)

    def near_misses(self, *arguments):
        _, out, _ = self.explain(*BLACKLISTED, "--json", *arguments)
        rule = next(rule for rule in json.loads(out)["rules"] if rule["rule"] == "ip_whitelist")
        return [(near["what"], near["source"]["file"], near["source"]["entry"])
                for near in rule.get("near_misses", [])]

    def test_near_misses_are_those_of_the_changed_list(self):
        path, network = "c:/quillfence/exempt_ips", "192.0.2.0/24"
        near = [("network", path, network)]
        self.assertEqual(self.near_misses(), [])
        self.assertEqual(self.near_misses("--with-list", "exempt_ips", network), near)
        with open(self.folder / "drive/quillfence/exempt_ips", "a") as file:
            file.write(network + "\n")
        self.assertEqual(self.near_misses(), near)
        self.assertEqual(self.near_misses("--without-list", "exempt_ips", network), [])

    def test_a_line_that_is_none(self):
        for option in ("--with-list", "--without-list"):
            self.check_refused([*EXEMPT, option, "from_blacklist", " "],
                               '" " is no line of a list')

    def test_what_was_changed_is_noted(self):
        _, out, _ = self.explain(*EXEMPT, "--with-list", "from_blacklist", "a@b.example",
                                 "--json")
        self.assertIn({"severity": "info", "text": "what if c:/quillfence/from_blacklist had the "
                                                   'line "a@b.example"'}, json.loads(out)["notes"])


class AnswerTest(Case):
    def test_ptr_names_of_an_ipv4_client_in_ipv6_form(self):
        for address in ("::ffff:192.0.2.9", "::192.0.2.9", "::ffff:c000:209"):
            facts = ["--ip", address, "--helo", "a.example", "--sender", "a@a.example",
                     "--recipient", "bob@example.net"]
            values = ["R", address, "25", "0", "", "0", "a.example", "a@a.example",
                      "bob@example.net"]
            for transaction in (facts, values):
                _, out, err = self.explain("--dns", "off", "--ptr", "m.x.example", "--json",
                                           *transaction)
                self.assertEqual(err, "")
                record = json.loads(out)
                self.assertEqual(record["facts"]["ptr"], ["m.x.example"], transaction)
                self.assertNotIn("PTR", [item.get("type") for item in record["missing"]])
            self.explain("--dns", "off", "--capture", "case.json", *facts)
            _, out, _ = self.explain("--case", "case.json", "--dns", "live", "--ptr",
                                     "m.x.example", "--answer", "a.example", "A", "1.2.3.4",
                                     "--json", "--deadline", "0.1")
            self.assertEqual(json.loads(out)["facts"]["ptr"], ["m.x.example"], address)

    def test_exit_statuses(self):
        self.assertEqual(self.explain(*BLACKLISTED)[0], EXPLAINED)
        self.assertEqual(self.explain(*BLACKLISTED, "--verdict-exit")[0], REJECTED)
        self.assertEqual(self.explain(*EXEMPT, "--verdict-exit")[0], EXPLAINED)
        for more in ([], ["--verdict-exit"]):
            self.assertEqual(self.explain("--dns", "off", "--ip", "192.0.2.9", *more)[0], UNDECIDED)

    def test_one_rule(self):
        status, out, err = self.explain(*BLACKLISTED, "--rule", "from_blacklist")
        self.assertEqual((status, err), (EXPLAINED, ""))
        self.assertTrue(out.startswith("from_blacklist: HIT"), out)
        self.assertNotIn("to_whitelist", out)

    def test_an_unknown_rule(self):
        self.check_refused([*EXEMPT, "--rule", "from_blacklis"], 'there is no rule "from_blacklis"')

    def test_one_rule_is_no_record(self):
        self.check_refused([*EXEMPT, "--rule", "from_blacklist", "--json"],
                           '--rule excludes --json; try "quillfence explain --help"')

    def test_json_is_one_line(self):
        status, out, err = self.explain(*BLACKLISTED, "--json")
        self.assertEqual((status, err, out.count("\n")), (EXPLAINED, "", 1))
        self.assertEqual(json.loads(out)["schema"], "quillfence.decision/1")

    def test_all_tells_what_would_have_been(self):
        def would(*arguments):
            rules = json.loads(self.explain(*BLACKLISTED, "--json", *arguments)[1])["rules"]
            return {rule["rule"]: rule.get("would") for rule in rules}

        self.assertEqual(would()["block_all_mail"], None)
        self.assertEqual(would("--all")["block_all_mail"], "hit")

    def test_a_page_is_written(self):
        status, out, err = self.explain(*BLACKLISTED, "--html", "page.html")
        self.assertEqual((status, err), (EXPLAINED, ""))
        self.assertTrue(out.startswith("REJECT by from_blacklist\n"))
        page = (self.folder / "page.html").read_text()
        self.assertTrue(page.lower().startswith("<!doctype html>"))
        self.assertIn("from_blacklist:2", page)
        status, _, err = self.explain(*BLACKLISTED, "--html", "gone/page.html")
        self.assertEqual(status, FAILED)
        self.assertRegex(err, "^quillfence: gone/page.html: could not be written: .+\n$")

    def test_a_file_has_no_colour(self):
        self.assertNotIn("\x1b", self.explain(*BLACKLISTED)[1])

    @unittest.skipIf(RUNNER, "a terminal of the build host")
    def test_colour_on_a_terminal_unless_it_is_not_wanted(self):
        def on_a_terminal(**environment):
            ours, theirs = os.openpty()
            with subprocess.Popen([PROGRAM, "explain", "--drive-c", "drive", *BLACKLISTED],
                                  cwd=self.folder, stdin=subprocess.DEVNULL, stdout=theirs,
                                  env={**{name: value for name, value in os.environ.items()
                                          if name != "NO_COLOR"}, **environment}) as run:
                os.close(theirs)
                text = read_terminal(ours)
            self.assertEqual(run.returncode, EXPLAINED)
            return text.replace("\r\n", "\n")

        coloured, plain = on_a_terminal(), on_a_terminal(NO_COLOR="1")
        self.assertTrue(coloured.startswith("\x1b[1;31mREJECT by from_blacklist\x1b[0m\n"))
        self.assertTrue(plain.startswith("REJECT by from_blacklist\n"))
        self.assertNotIn("\x1b", plain)

    @unittest.skipUnless(os.path.exists("/dev/full"), "no /dev/full")
    @unittest.skipIf(RUNNER, "a device of the build host")
    def test_a_full_standard_output_is_a_failure(self):
        with open("/dev/full", "wb") as full:
            run = subprocess.run([PROGRAM, "explain", "--drive-c", "drive", *EXEMPT],
                                 cwd=self.folder, stdout=full, stderr=subprocess.PIPE, check=False,
                                 timeout=60)
        self.assertEqual(run.returncode, FAILED)
        self.assertIn(b"standard output can't be written", run.stderr)

    def test_nothing_is_written(self):
        before = self.files()
        self.explain(*BLACKLISTED, "--all")
        self.assertEqual(self.files(), before)


# The page of a subcommand that is not called like it.
PAGES = {"collect": "formats/bundle", "test": "cases"}


def written_options(text):
    return set(re.findall(r"(?<![\w-])--[a-z][a-z-]*", text))


# What is told to end leaves no bundle and no changed list in the folder for temporary files.
@unittest.skipIf(RUNNER, "signals of the build host")
class EndingTest(Case):
    SIGNALS = (signal.SIGINT, signal.SIGTERM, signal.SIGHUP, signal.SIGQUIT)

    def setUp(self):
        super().setUp()
        self.temporary = self.folder / "temporary"
        self.temporary.mkdir()

    def begin(self, *arguments, ignored=()):
        """Begins a run that asks a silent server."""
        def prepare():
            resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
            for one in self.SIGNALS:
                signal.signal(one, signal.SIG_IGN if one in ignored else signal.SIG_DFL)

        self.assertEqual(list(self.temporary.iterdir()), [])
        self.silent = socket.create_server(("127.0.0.1", 0))
        self.addCleanup(self.silent.close)
        self.silent.settimeout(60)
        server = f"127.0.0.1:{self.silent.getsockname()[1]}"
        begun = subprocess.Popen([PROGRAM, *arguments, "--dns", "live", "--server", server],
                                 cwd=self.folder, preexec_fn=prepare, stdin=subprocess.PIPE,
                                 stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                 env=environment(TMPDIR=str(self.temporary)))
        self.addCleanup(begun.communicate)
        self.addCleanup(begun.kill)
        return begun

    def until_asked(self):
        asked, _ = self.silent.accept()
        self.addCleanup(asked.close)
        self.assertTrue(asked.recv(1))

    def check_gone(self, begun, said=b""):
        out, err = begun.communicate(timeout=60)
        self.assertEqual((out, err), (b"", said))
        self.assertEqual([path.as_posix() for path in self.temporary.rglob("*")], [])

    def test_a_bundle(self):
        self.assertEqual(self.explain(*BLACKLISTED, "--capture", "case.tar", "--with-config")[0],
                         EXPLAINED)
        for one in self.SIGNALS:
            with self.subTest(signal=one):
                begun = self.begin("explain", "--case", "case.tar")
                self.until_asked()
                unpacked, = self.temporary.iterdir()
                self.assertEqual(unpacked.stat().st_mode & 0o777, 0o700)
                self.assertTrue((unpacked / "bundle/case.json").exists())
                begun.send_signal(one)
                self.check_gone(begun)
                self.assertEqual(begun.returncode, -one)

    def test_a_changed_list_beside_a_bundle(self):
        self.explain(*BLACKLISTED, "--capture", "case.tar", "--with-config")
        begun = self.begin("explain", "--case", "case.tar", "--with-list", "from_whitelist",
                           "a@b.example")
        self.until_asked()
        self.assertEqual(len(list(self.temporary.iterdir())), 2)
        begun.send_signal(signal.SIGTERM)
        self.check_gone(begun)
        self.assertEqual(begun.returncode, -signal.SIGTERM)

    def test_a_signal_that_is_ignored_stays_ignored(self):
        self.explain(*BLACKLISTED, "--capture", "case.tar", "--with-config")
        begun = self.begin("explain", "--case", "case.tar", ignored=[signal.SIGHUP])
        self.until_asked()
        begun.send_signal(signal.SIGHUP)
        time.sleep(0.1)
        self.assertIsNone(begun.poll())
        self.assertEqual(len(list(self.temporary.iterdir())), 1)
        begun.send_signal(signal.SIGINT)
        self.check_gone(begun)
        self.assertEqual(begun.returncode, -signal.SIGINT)

    def test_many_transactions(self):
        # Ctrl-C is a wish there, a hang-up is none.
        for one, status, said in ((signal.SIGHUP, -signal.SIGHUP, b""),
                                  (signal.SIGINT, UNDECIDED, b"quillfence: interrupted\n")):
            with self.subTest(signal=one):
                begun = self.begin("batch", "--quiet", "--drive-c", "drive", "--with-list",
                                   "from_whitelist", "a@b.example")
                begun.stdin.write(LOG_LINE.replace("192.0.2.25", "192.0.2.9").encode())
                begun.stdin.flush()
                self.until_asked()
                self.assertEqual(len(list(self.temporary.iterdir())), 1)
                begun.send_signal(one)
                self.check_gone(begun, said)
                self.assertEqual(begun.returncode, status)


# Cases: captured, and judged again.
class CaptureTest(Case):
    def test_what_is_read_is_not_written_over(self):
        self.capture()
        self.file("log", LOG_LINE)
        self.file("case.key", "sixteen bytes are enough")
        (self.folder / "case.key").chmod(0o600)
        self.file("export.reg", "Windows Registry Editor Version 5.00\r\n")
        log, case, facts = ["--input", "log"], ["--case", "case.json"], BLACKLISTED
        lists = "drive/quillfence/from_blacklist"
        inputs = [([*log, "--dns", "off", "--html", "log"], "log"),
                  ([*log, "--dns", "off", "--capture", "./log"], "./log"),
                  ([*case, "--capture", "case.json"], "case.json"),
                  ([*case, "--html", "case.json"], "case.json"),
                  ([*case, "--redact", "case.key", "--capture", "case.key"], "case.key"),
                  ([*facts, "--registry", "export.reg", "--html", "export.reg"], "export.reg"),
                  ([*facts, "--html", lists], lists), ([*facts, "--capture", lists], lists),
                  ([*case, "--html", lists], lists)]
        if not RUNNER:
            (self.folder / "link").symlink_to("log")
            os.link(self.folder / "log", self.folder / "second")
            inputs += [([*log, "--dns", "off", "--html", name], name) for name in ("link", "second")]
        for arguments, named in inputs:
            self.check_not_captured(arguments, f"{named}: is the input itself; name another file "
                                    "to write to")
        for one, other in (("new", "new"), ("new", "./new"), ("log", "log")):
            self.check_not_captured([*facts, "--capture", one, "--html", other],
                                    f"{other}: would be written twice; name another file to write "
                                    "to")

    def test_an_empty_name_writes_nothing(self):
        self.file("key", "k" * 64)
        for arguments in (["--capture", ""], ["--capture", "case.json", "--redact", ""],
                          ["--html", ""], ["--case", ""]):
            before = self.files()
            option = arguments[-2]
            self.check_refused([*EXEMPT, *arguments],
                               f'{option}: must not be empty (is a variable unset?); try '
                               '"quillfence explain --help"')
            self.assertEqual(self.files(), before)

    INSIDE = ("{}: a case with 2 DNS answers, 11 files' digests, 4 missing files, "
              "3 answers of the registry, 1 answer of the address map{}; mail addresses of people "
              "are in it\n")

    def capture(self, name="case.json", *options):
        status, out, err = self.explain(*BLACKLISTED, *options, "--capture", name)
        self.assertEqual(status, EXPLAINED, err)
        return out, err

    def judge(self, *options, **environment):
        """The answer without a drive of its own, unless the options name one."""
        return self.run_program("explain", *options, **environment)

    def check_not_captured(self, arguments, said):
        with self.subTest(arguments=arguments):
            before = self.files()
            self.assertEqual(self.explain(*arguments), (FAILED, "", f"quillfence: {said}\n"))
            self.assertEqual(self.files(), before)

    def test_the_answer_stays_and_the_contents_are_told(self):
        out, err = self.capture()
        self.assertEqual(err, "quillfence: " + self.INSIDE.format("case.json", ""))
        case = json.loads((self.folder / "case.json").read_text())
        self.assertEqual((case["schema"], case["decision"]["rule"], case["expect"]),
                         ("quillfence.case/1", "from_blacklist",
                          {"verdict": "reject", "by": "rule", "rule": "from_blacklist"}))
        status, again, err = self.explain("--case", "case.json")
        self.assertEqual((status, again, err), (EXPLAINED, out, ""))

    @unittest.skipIf(RUNNER, "on Windows the rights are the folder's")
    def test_only_the_owner_may_read_it_whatever_was_there(self):
        self.file("case.json", "old")
        self.file("linked.json", "old")
        (self.folder / "link.json").symlink_to("linked.json")
        for name, mode in (("case.json", 0o644), ("linked.json", 0o666), ("new.tar", None)):
            if mode:
                (self.folder / name).chmod(mode)
            self.capture("link.json" if name == "linked.json" else name,
                         *(["--with-config"] if name == "new.tar" else []))
            self.assertEqual((self.folder / name).stat().st_mode & 0o777, 0o600, name)

    def test_a_byte_of_a_list_is_said_before_and_after_the_decision(self):
        self.capture()
        path = self.folder / "drive/quillfence/from_blacklist"
        path.write_bytes(path.read_bytes().replace(b"# ", b"#-", 1))
        status, out, err = self.explain("--case", "case.json")
        self.assertEqual((status, err), (EXPLAINED, ""))
        said = "c:/quillfence/from_blacklist differs"
        self.assertTrue(out.startswith("Not as it was when the case was captured:\n"
                                       f"  {said}\n\nREJECT by from_blacklist\n"), out)
        self.assertIn(f"not as captured: {said}", out)
        _, out, _ = self.explain("--case", "case.json", "--rule", "from_blacklist")
        self.assertEqual(out.count(said), 2)
        _, out, _ = self.explain("--case", "case.json", "--json")
        self.assertEqual([note["text"] for note in json.loads(out)["notes"]],
                         [f"not as captured: {said}"])
        path.unlink()
        _, out, _ = self.explain("--case", "case.json")
        self.assertIn("c:/quillfence/from_blacklist is missing", out)

    def test_another_decision_is_said(self):
        self.capture()
        status, out, err = self.explain("--case", "case.json", "--with-list", "exempt_ips",
                                        "192.0.2.9")
        self.assertEqual((status, err), (EXPLAINED, ""))
        self.assertTrue(out.startswith("ACCEPT: exempt by ip_whitelist\n"), out)
        self.assertIn("when captured, it was: REJECT by from_blacklist", out)

    def test_a_bundle_has_its_own_files_and_leaves_nothing_behind(self):
        out, err = self.capture("case.tar", "--with-config")
        said = self.INSIDE.format("case.tar", ", 11 files of the configuration (4184 bytes)")
        self.assertEqual(err, "quillfence: " + said)
        shutil.rmtree(self.folder / "drive")
        temporary = self.folder / "temporary"
        temporary.mkdir()
        places = {} if RUNNER else {"TMPDIR": str(temporary)}
        self.assertEqual(self.judge("--case", "case.tar", **places), (EXPLAINED, out, ""))
        for wrong in (["--rule", "no_such_rule"], ["--answer", "x", "A", "y"],
                      ["--registry", "none.reg"], ["--user-dir", "c:/none"]):
            self.assertEqual(self.judge("--case", "case.tar", *wrong, **places)[0], FAILED)
        self.assertEqual(list(temporary.iterdir()), [])

    @unittest.skipIf(RUNNER, "links of the build host")
    def test_a_bundle_of_a_loop_of_links(self):
        loop = self.folder / "drive/quillfence/blocked_ips.range"
        loop.unlink(missing_ok=True)
        loop.symlink_to("blocked_ips.range")
        status, out, err = self.explain(*BLACKLISTED, "--capture", "case.tar", "--with-config")
        self.assertEqual((status, out, err),
                         (FAILED, "", "quillfence: --with-config: c:/quillfence/blocked_ips.range: "
                                      "can't be looked at, nor could it when it was consulted\n"))
        self.assertFalse((self.folder / "case.tar").exists())

    @unittest.skipIf(RUNNER, "a limit of the build host")
    def test_a_bundle_that_has_no_room_names_its_file(self):
        def prepare():
            signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
            resource.setrlimit(resource.RLIMIT_FSIZE, (4096, 4096))

        status, out, err = self.explain(*BLACKLISTED, "--capture", "case.tar", "--with-config",
                                        prepare=prepare)
        self.assertEqual((status, out, err),
                         (FAILED, "", "quillfence: case.tar: can't be written: File too large\n"))

    def test_a_bundle_against_other_files(self):
        self.capture("case.tar", "--with-config")
        self.file("drive/quillfence/from_blacklist", "*@other.example\n")
        _, out, _ = self.judge("--case", "case.tar")
        self.assertTrue(out.startswith("REJECT by from_blacklist\n"), out)
        status, out, _ = self.explain("--case", "case.tar")
        self.assertEqual(status, UNDECIDED)
        self.assertTrue(out.startswith("Not as it was"), out)

    def test_what_would_be_asked_by_all_rules_is_not_in_the_case(self):
        self.capture()
        status, out, err = self.explain("--case", "case.json", "--all", "--json")
        self.assertEqual(status, UNDECIDED)
        self.assertEqual(json.loads(out)["decision"]["rule"], "from_blacklist")
        self.assertIn("the case has no answer for 9.2.0.192.rbl.example. A", err)

    def test_a_bundle_with_cut_maps(self):
        given = ["--ptr", "x.example", "--answer", "x.example", "A", "10.11.12.13"]
        for name, kind, value in [("x.example", "AAAA", "NODATA"), ("x.example", "MX", "NODATA"),
                                  ("13.12.11.10.rbl.example", "A", "NXDOMAIN"),
                                  ("13.12.11.10.rbl.example", "AAAA", "NXDOMAIN")]:
            given += ["--answer", name, kind, value]
        written = {}
        for address in ("10.11.12.13", "::ffff:10.11.12.13", "::10.11.12.13", "::ffff:0a0b:0c0d"):
            tar = address.replace(":", "_") + ".tar"
            _, out, err = self.explain("--dns", "off", "R", address, "25", "0", "", "0",
                                       "x.example", "alice@x.example", "bob@example.net", "--json",
                                       "--capture", tar, "--with-config", "--cut-maps", *given)
            self.assertIn("of sample-abusers.bms only what it answered", err)
            written[tar] = json.loads(out)
        shutil.rmtree(self.folder / "drive")
        for tar, before in written.items():
            _, out, _ = self.judge("--case", tar, "--json")
            again = json.loads(out)
            self.assertEqual(before["block_maps"][0]["outcome"], "hit")
            self.assertEqual(before["report"]["bms_hits"], ["sample-abusers.bms"])
            for member in ("decision", "block_maps", "report"):
                self.assertEqual(again[member], before[member], (tar, member))

    def test_a_question_without_answer_is_named_and_ends_with_3(self):
        self.capture()
        status, out, err = self.explain("--case", "case.json", "--without-list", "from_blacklist",
                                        "*@spammer.example")
        self.assertEqual(status, UNDECIDED)
        self.assertEqual(err, "".join(
            f"quillfence: the case has no answer for 9.2.0.192.rbl.example. {kind}; "
            "--dns record-missing asks for it\n" for kind in ("A", "AAAA")))
        self.assertIn("not known: the answers to A 9.2.0.192.rbl.example., AAAA", out)
        status, out, err = self.explain(
            "--case", "case.json", "--without-list", "from_blacklist", "*@spammer.example",
            "--answer", "9.2.0.192.rbl.example", "A", "127.0.0.2")
        self.assertEqual((status, err), (EXPLAINED, ""))
        self.assertTrue(out.startswith("REJECT by the DNS block list rbl.example\n"), out)

    def test_without_even_the_case_s_answers(self):
        self.capture()
        status, out, _ = self.explain("--case", "case.json", "--dns", "off", "--json")
        self.assertEqual({dns["class"] for dns in json.loads(out)["dns"]}, {"missing"})
        self.assertEqual(status, UNDECIDED)

    def test_the_other_options_go_along(self):
        self.capture("case.json", "--all")
        status, out, _ = self.explain("--case", "case.json", "--verdict-exit", "--json",
                                      "--html", "page.html", "--capture", "again.json")
        self.assertEqual(status, REJECTED)
        self.assertTrue(any("would" in rule for rule in json.loads(out)["rules"]))
        self.assertIn("from_blacklist", (self.folder / "page.html").read_text())
        again = json.loads((self.folder / "again.json").read_text())
        self.assertTrue(any("would" in rule for rule in again["rules"]))

    def test_what_does_not_go_together(self):
        self.capture()
        self.file("export.reg", "Windows Registry Editor Version 5.00\r\n")
        case = ["--case", "case.json"]
        for arguments, said in (
                ([*case, "--ip", "192.0.2.1"],
                 "give the transaction in one way: by name (--ip, --sender ...), as the "
                 "replayer's nine values, by --input or by --case"),
                ([*case, "--user-dir", "c:/users/bob"], "--user-dir: the case has its own"),
                ([*case, "--registry", "export.reg"],
                 "--registry: the case has its own answers of the registry"),
                ([*case, "--server", "192.0.2.53"],
                 "--server: a case asks nobody unless --dns live or --dns record-missing is given"),
                ([*EXEMPT[2:], "--dns", "recorded"],
                 "--dns recorded is about the answers of a --case"),
                ([*case, "--capture", "x", "--with-list", "exempt_ips", "192.0.2.9"],
                 "--capture: a case holds what is there; leave --with-list and --without-list "
                 "away"),
                ([*case, "--with-config"],
                 '--with-config requires --capture; try "quillfence explain --help"'),
                ([*case, "--capture", "x", "--cut-maps"],
                 '--cut-maps requires --with-config; try "quillfence explain --help"'),
                (["--case", "none.json"], "none.json: No such file or directory"),
                ([*case, "--capture", "none/x.json"],
                 "none/x.json: could not be written: No such file or directory")):
            self.check_not_captured(arguments, said)

    def test_a_redacted_case(self):
        self.file("case.key", "sixteen bytes are enough")
        (self.folder / "case.key").chmod(0o600)
        self.capture()
        options = ["--case", "case.json", "--redact", "case.key", "--capture", "other.json"]
        status, out, err = self.explain(*options)
        self.assertEqual(status, EXPLAINED)
        self.assertRegex(err, "^quillfence: other.json: a case with 2 DNS answers, .*, "
                              "pseudonyms in place of [0-9]+ names?\n$")
        text = (self.folder / "other.json").read_text()
        self.assertNotIn("bob@", text)
        self.assertIn("@example.net", text)
        decided = json.loads(text)["decision"]
        status, out, _ = self.explain("--case", "other.json", "--json")
        self.assertEqual((status, json.loads(out)["decision"]), (EXPLAINED, decided))
        self.assertEqual(decided["rule"], "from_blacklist")

        # The list names the domain, which gets a pseudonym now.
        before = self.files()
        status, out, err = self.explain(*options, "--redact-domains")
        self.assertEqual((status, out), (FAILED, ""))
        self.assertRegex(err, "^quillfence: --redact: the (outcome of from_blacklist|verdict) "
                              "changes: ")
        self.assertEqual(self.files(), before)

    def test_redacting_that_can_not_be(self):
        self.capture()
        self.file("short.key", "short")
        for arguments, said in (
                (["--redact", "none.key", "--capture", "x"], "none.key"),
                (["--redact", "short.key", "--capture", "x"], "short.key"),
                (["--redact", "short.key", "--capture", "x", "--with-config"],
                 "--with-config excludes --redact"),
                (["--redact", "short.key"], "--redact requires --capture"),
                (["--redact-domains", "--capture", "x"], "--redact-domains requires --redact")):
            with self.subTest(arguments=arguments):
                before = self.files()
                status, out, err = self.explain("--case", "case.json", *arguments)
                self.assertEqual((status, out), (FAILED, ""))
                self.assertIn(said, err)
                self.assertEqual(self.files(), before)

    def test_a_case_that_is_none(self):
        self.file("wrong.json", '{"schema": "quillfence.case/1",\n "transaction": {"ip": 7}}')
        self.assertEqual(self.explain("--case", "wrong.json"),
                         (FAILED, "", "quillfence: wrong.json:2: transaction.ip: is not a text\n"))


# What is written about the program: each subcommand with its options.
class WrittenTest(Case):
    def help_of(self, *words):
        status, out, err = self.run_program(*words, "--help")
        self.assertEqual((status, err), (EXPLAINED, ""))
        return out

    def test_version_is_the_project_s(self):
        version = re.search(r"VERSION ([\d.]+)", (SOURCE / "CMakeLists.txt").read_text()
                            .split("project(")[1]).group(1)
        self.assertEqual(self.run_program("--version"), (EXPLAINED, f"quillfence {version}\n", ""))

    def test_help_fits_a_terminal(self):
        for words in ([], ["batch"], ["collect"], ["explain"], ["test"]):
            for line in self.help_of(*words).split("\n"):
                self.assertLessEqual(len(line), 80, line)

    def test_every_option_is_written_down(self):
        subcommands = re.findall(r"^  (\S+) ", self.help_of().split("\nSubcommands:\n")[1]
                                 .split("\n\n")[0], re.MULTILINE)
        self.assertIn("explain", subcommands)
        manual = (SOURCE / "docs/man/quillfence.1").read_text().replace("\\-", "-")
        completion = (SOURCE / "packaging/completion/quillfence").read_text()
        every_option = {"--help", "--version"}
        for name in subcommands:
            page = (SOURCE / f"docs/{PAGES.get(name, name)}.md").read_text()
            options = set(re.findall(r"^  (?:-\w,)?(--[a-z][a-z-]*)", self.help_of(name),
                                     re.MULTILINE)) - {"--help"}
            self.assertGreater(len(options), 3)
            section = re.split(rf"^\.SS {name}\b", manual, flags=re.MULTILINE)
            self.assertEqual(len(section), 2, f".SS of {name}")
            own = re.split(r"^\.S[SH] ", section[1], flags=re.MULTILINE)[0]
            completed = re.search(rf'\[{name}\]="([^"]*)"', completion).group(1)
            for option in options:
                for title, written in (("man", own), ("page", page), ("completion", completed)):
                    self.assertRegex(written, rf"(?<![\w-]){option}(?![\w-])", f"{title}: {name}")
            # Nor is anything written of that the program does not know.
            self.assertEqual(written_options(own) - options, set(), f"man: {name}")
            every_option |= options
        self.assertEqual(written_options(completion) - every_option, set(), "completion")

    @unittest.skipIf(RUNNER, "the shell is the build host's")
    def test_completion(self):
        script = SOURCE / "packaging/completion/quillfence"

        def complete(*words):
            command = (f'source "{script}"; COMP_WORDS=({" ".join(w or chr(39) * 2 for w in words)}); '
                       f"COMP_CWORD={len(words) - 1}; "
                       "_quillfence; printf '%s\\n' \"${COMPREPLY[@]}\"")
            run = subprocess.run(["bash", "-c", command], cwd=self.folder, check=True,
                                 stdout=subprocess.PIPE, timeout=60)
            return sorted(run.stdout.decode().split())

        self.file("afile", "")
        self.assertEqual(complete("quillfence", "ex"), ["explain"])
        self.assertEqual(complete("quillfence", "ba"), ["batch"])
        self.assertEqual(complete("quillfence", "batch", "--q"), ["--questions", "--quiet"])
        self.assertEqual(complete("quillfence", "batch", "af"), ["afile"])
        self.assertEqual(complete("quillfence", "explain", "--with"),
                         ["--with-config", "--with-list", "--without-list"])
        self.assertEqual(complete("quillfence", "explain", "--dns", ""),
                         ["live", "off", "record-missing", "recorded"])
        self.assertEqual(complete("quillfence", "te"), ["test"])
        self.assertEqual(complete("quillfence", "test", "--dns", "rec"),
                         ["record-missing", "recorded"])
        self.assertEqual(complete("quillfence", "test", "--u"), ["--update", "--user-dir"])
        self.assertEqual(complete("quillfence", "explain", "--drive-c", ""), ["drive"])
        self.assertEqual(complete("quillfence", "explain", "--input", "af"), ["afile"])


if __name__ == "__main__":
    main()
