#!/usr/bin/env python3
"""The sample that ./replay replays prints what the README shows, and changes no file; what ./replay
and ./explain hand over.

    example_test.py PROGRAM SOURCE_FOLDER
"""

import re
import shlex
import shutil
import subprocess
import tempfile
import unittest
from pathlib import Path

from whole_program import ARGUMENTS, environment, environment_on, main

PROGRAM, SOURCE = (Path(argument) for argument in ARGUMENTS)


def files_below(folder):
    return {str(path.relative_to(folder)): path.read_bytes()
            for path in folder.rglob("*") if path.is_file()}


class ExampleTest(unittest.TestCase):
    def test_the_sample_prints_what_the_readme_shows(self):
        script = (SOURCE / "replay").read_text()
        arguments = shlex.split(re.search(r"^ +set -- (R .*)$", script, re.MULTILINE).group(1))
        readme = (SOURCE / "README.md").read_text()
        shown = re.search(r"^    (\{\"spam_hits\".*\})$", readme, re.MULTILINE).group(1)
        with tempfile.TemporaryDirectory() as folder:
            drive = Path(folder) / "drive_c"
            shutil.copytree(SOURCE / "examples" / "drive_c", drive)
            before = files_below(drive)
            run = subprocess.run([PROGRAM, *arguments], capture_output=True, text=True, timeout=60,
                                 env=environment_on(drive))
            self.assertEqual((run.stdout, run.stderr, run.returncode), (shown, "", 0))
            self.assertEqual(files_below(drive), before)

    def run_without_an_event_log(self, **settings):
        """Exit status and standard error of a run whose events nobody takes."""
        with tempfile.TemporaryDirectory() as folder:
            named = {name: value.replace("{folder}", folder) for name, value in settings.items()}
            run = subprocess.run([PROGRAM, "R", "10.0.0.1", "25", "0", "", "0", "", "a@example.org",
                                  "b@example.net"], capture_output=True, text=True, timeout=60,
                                 env=environment(**named))
            return run.returncode, run.stderr.replace(folder, "{folder}").splitlines()

    def test_a_wrong_drive_is_named(self):
        status, events = self.run_without_an_event_log(
            QUILLFENCE_DRIVE_C="{folder}/missing", QUILLFENCE_EVENT_LOG="-")
        self.assertEqual(status, 1)
        self.assertEqual(events[0], "error quillfence-replayer: platform:0 ERROR find_drive(): "
                         "QUILLFENCE_DRIVE_C names no readable folder (No such file or directory): "
                         "{folder}/missing/")
        self.assertEqual(len([line for line in events if "DRIVE_C" in line]), 1)

    def test_a_wrong_registry_is_named(self):
        status, events = self.run_without_an_event_log(
            QUILLFENCE_DRIVE_C=str(SOURCE / "examples" / "drive_c"),
            QUILLFENCE_REGISTRY="{folder}/missing.reg", QUILLFENCE_EVENT_LOG="-")
        self.assertEqual((status, events), (0, [
            "error quillfence-replayer: platform:0 ERROR read_registry(): QUILLFENCE_REGISTRY names "
            "nothing readable (No such file or directory): {folder}/missing.reg"]))

    def test_a_log_that_can_not_be_opened_is_standard_error(self):
        status, events = self.run_without_an_event_log(
            QUILLFENCE_DRIVE_C=str(SOURCE / "examples" / "drive_c"),
            QUILLFENCE_REGISTRY="/", QUILLFENCE_EVENT_LOG="{folder}/missing/events")
        self.assertEqual(status, 0)
        self.assertEqual([line.split(": ")[0] for line in events],
                         ["error Quillfence", "error quillfence-replayer"])


class ScriptTest(unittest.TestCase):
    """The scripts, with stand-ins for building and for the programs: what these are given."""

    PROGRAMS = {"replay": "replayer/quillfence-replayer", "explain": "programs/quillfence/quillfence"}

    def handed_over(self, script, *arguments, **settings):
        """The environment's values and the arguments."""
        with tempfile.TemporaryDirectory() as folder:
            root = Path(folder)
            shutil.copy(SOURCE / script, root)
            shutil.copytree(SOURCE / "scripts", root / "scripts")
            with open(root / "scripts" / "common.sh", "a") as common:
                common.write("build_program() { :; }\nsay() { :; }\n")
            program = root / "build" / "replay" / self.PROGRAMS[script]
            program.parent.mkdir(parents=True)
            program.write_text('#!/bin/sh\necho "log=$QUILLFENCE_EVENT_LOG"\n'
                               'echo "drive=$QUILLFENCE_DRIVE_C"\n'
                               'for each; do echo "[$each]"; done\nexit 3\n')
            program.chmod(0o755)
            run = subprocess.run([root / script, *arguments], capture_output=True, text=True,
                                 timeout=60, env=environment(**settings))
            self.assertEqual(run.returncode, 3, run.stderr)
            log, drive, *given = run.stdout.replace(folder, "{folder}").splitlines()
            return log, drive, "".join(given)

    def test_events_appear_unless_it_is_told_otherwise(self):
        for script in self.PROGRAMS:
            self.assertEqual(self.handed_over(script)[0], "log=-")
            self.assertEqual(self.handed_over(script, QUILLFENCE_EVENT_LOG="/a/file")[0],
                             "log=/a/file")
            self.assertEqual(self.handed_over(script, QUILLFENCE_EVENT_LOG="")[0], "log=")

    def test_the_example_is_asked_unless_it_is_told_otherwise(self):
        for script in self.PROGRAMS:
            self.assertEqual(self.handed_over(script)[1], "drive={folder}/examples/drive_c")
            self.assertEqual(self.handed_over(script, QUILLFENCE_DRIVE_C="/s")[1], "drive=/s")

    def test_arguments_are_passed_on(self):
        self.assertEqual(self.handed_over("replay", "R", "", "a b")[2], "[R][][a b]")
        self.assertEqual(self.handed_over("explain", "--sender", "", "--helo", "a b")[2],
                         "[explain][--sender][][--helo][a b]")

    def test_without_arguments_it_is_the_sample(self):
        self.assertTrue(self.handed_over("replay")[2].startswith("[R][10.11.12.13]"))
        self.assertTrue(self.handed_over("explain")[2].startswith("[explain][--dns][off]"))


class ReplayersPageTest(unittest.TestCase):
    """The man page and the completion of quillfence-replayer."""

    MANUAL = (SOURCE / "docs/man/quillfence-replayer.1").read_text().replace("\\-", "-")

    def test_the_values_are_those_of_the_usage(self):
        run = subprocess.run([PROGRAM], capture_output=True, text=True, timeout=60,
                             env=environment(), check=False)
        values = re.findall(r"\[(\w+)\]", run.stderr)
        self.assertEqual(len(values), 8)
        self.assertIn(f".B quillfence-replayer R\n.I {' '.join(values)}\n", self.MANUAL)
        described = re.search(r"^\.SH VALUES\n(.*?)^\.SH ", self.MANUAL, re.M | re.S).group(1)
        tags = re.findall(r"^\.TP\n\.\w+ (.*)$", described, re.MULTILINE)
        self.assertEqual(re.findall(r"\w+", " ".join(tags)), ["R", *values])

    def test_the_environment_is_the_pages(self):
        page = (SOURCE / "docs/operations.md").read_text()
        names = lambda pattern, text: set(re.findall(pattern, text, re.MULTILINE))
        self.assertEqual(names(r"^\.B (QUILLFENCE_\w+|VERBOSEDEBUG)$", self.MANUAL),
                         names(r"^\| `(QUILLFENCE_\w+|VERBOSEDEBUG)` \|", page))

    def complete(self, *words):
        quoted = " ".join(shlex.quote(word) for word in words)
        script = SOURCE / "packaging/completion/quillfence-replayer"
        run = subprocess.run(["bash", "-c", f"source {shlex.quote(str(script))}; "
                              f"COMP_WORDS=({quoted}); COMP_CWORD={len(words) - 1}; "
                              "_quillfence_replayer; printf '%s ' \"${COMPREPLY[@]}\""],
                             stdout=subprocess.PIPE, text=True, timeout=60, check=True)
        return run.stdout.split()

    def test_completion(self):
        begun = ["quillfence-replayer", "R", "192.0.2.1"]
        self.assertEqual(self.complete("quillfence-replayer", ""), ["R"])
        self.assertEqual(self.complete(*begun, ""), [])
        self.assertEqual(self.complete(*begun, "25", ""), ["0", "1"])
        self.assertEqual(self.complete(*begun, "25", "0", "", ""), ["0", "1"])
        self.assertEqual(self.complete(*begun, "25", "0", "", "0", ""), [])


if __name__ == "__main__":
    main()
