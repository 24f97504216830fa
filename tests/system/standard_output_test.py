#!/usr/bin/env python3
"""A report that can't be written is a failed run; a run that fails writes nothing.

    standard_output_test.py PROGRAM
"""

import os
import subprocess

from whole_program import ARGUMENTS, FolderTest, environment_on, main

PROGRAM = ARGUMENTS[0]
VALUES = ["127.0.0.1", "25", "0", "", "0", "mx.example.org", "alice@example.org", "bob@example.net"]


class StandardOutput(FolderTest):
    def replay(self, stdout, close=False):
        return subprocess.run(
            [PROGRAM, "R", *VALUES], stdout=stdout, stderr=subprocess.PIPE, timeout=60,
            preexec_fn=(lambda: os.close(1)) if close else None, env=environment_on(self.folder))

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
    main()
