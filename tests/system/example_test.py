#!/usr/bin/env python3
"""The sample that ./replay replays prints what the README shows, and changes no file.

    example_test.py PROGRAM SOURCE_FOLDER
"""

import os
import re
import shlex
import shutil
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

PROGRAM, SOURCE = sys.argv[1], Path(sys.argv[2])


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
                                 env={**os.environ, "QUILLFENCE_DRIVE_C": str(drive),
                                      "QUILLFENCE_EVENT_LOG": "-"})
            self.assertEqual((run.stdout, run.stderr, run.returncode), (shown, "", 0))
            self.assertEqual(files_below(drive), before)

    def run_without_an_event_log(self, **environment):
        """Exit status and standard error of a run whose events nobody takes."""
        with tempfile.TemporaryDirectory() as folder:
            quiet = {name: value for name, value in os.environ.items()
                     if not name.startswith("QUILLFENCE_")}
            named = {name: value.replace("{folder}", folder) for name, value in environment.items()}
            run = subprocess.run([PROGRAM, "R", "10.0.0.1", "25", "0", "", "0", "", "a@example.org",
                                  "b@example.net"], capture_output=True, text=True, timeout=60,
                                 env={**quiet, **named})
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
    """The script, with a stand-in for the program: what it hands over in the environment."""

    def handed_over(self, **environment):
        with tempfile.TemporaryDirectory() as folder:
            root = Path(folder)
            shutil.copy(SOURCE / "replay", root)
            (root / "scripts").mkdir()
            (root / "scripts" / "common.sh").write_text(
                "packages_build=()\nneed_packages() { :; }\nbuild_preset() { :; }\n"
                "say() { :; }\ndie() { exit 9; }\n")
            program = root / "build" / "replay" / "replayer" / "quillfence-replayer"
            program.parent.mkdir(parents=True)
            (root / "build" / "replay" / "build.ninja").write_text("")
            program.write_text('#!/bin/sh\necho "log=$QUILLFENCE_EVENT_LOG"\n')
            program.chmod(0o755)
            quiet = {name: value for name, value in os.environ.items()
                     if not name.startswith("QUILLFENCE_")}
            run = subprocess.run([root / "replay"], capture_output=True, text=True, timeout=60,
                                 env={**quiet, **environment})
            self.assertEqual(run.returncode, 0, run.stderr)
            return run.stdout

    def test_events_appear_unless_it_is_told_otherwise(self):
        self.assertEqual(self.handed_over(), "log=-\n")
        self.assertEqual(self.handed_over(QUILLFENCE_EVENT_LOG="/a/file"), "log=/a/file\n")
        self.assertEqual(self.handed_over(QUILLFENCE_EVENT_LOG=""), "log=\n")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
