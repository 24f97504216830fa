#!/usr/bin/env python3
"""A report that can't be written is a failed run; a run that fails writes nothing.

    standard_output_test.py PROGRAM
"""

import os
import subprocess
import sys
import tempfile
import unittest

PROGRAM = sys.argv[1]
VALUES = ["127.0.0.1", "25", "0", "", "0", "mx.example.org", "alice@example.org", "bob@example.net"]


class StandardOutput(unittest.TestCase):
    def replay(self, stdout, close=False):
        with tempfile.TemporaryDirectory() as drive:
            return subprocess.run(
                [PROGRAM, "R", *VALUES], stdout=stdout, stderr=subprocess.PIPE, timeout=60,
                preexec_fn=(lambda: os.close(1)) if close else None,
                env={**os.environ, "QUILLFENCE_DRIVE_C": drive, "QUILLFENCE_EVENT_LOG": "-"})

    def test_a_full_device(self):
        with open("/dev/full", "wb") as full:
            run = self.replay(full)
        self.assertEqual(run.returncode, 1)
        self.assertIn(b"No space left on device", run.stderr)

    def test_a_closed_descriptor(self):
        self.assertEqual(self.replay(subprocess.DEVNULL, close=True).returncode, 1)

    def test_a_pipe_that_nobody_reads(self):
        reading, writing = os.pipe()
        os.close(reading)
        with os.fdopen(writing, "wb") as pipe:
            run = self.replay(pipe)
        self.assertEqual(run.returncode, 1)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
