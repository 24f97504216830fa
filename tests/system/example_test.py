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


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
