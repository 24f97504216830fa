#!/usr/bin/env python3
"""A pipe or a device in the place of each of the engine's files: the replayer does not wait, reads
nothing from it, and ends.

    special_files_test.py PROGRAM
"""

import os
import subprocess
import tempfile
import unittest
from pathlib import Path

from whole_program import ARGUMENTS, environment_on, main

PROGRAM = ARGUMENTS[0]
FILES = ["exempt_users", "from_whitelist", "exempt_ips", "exempt_ips.range", "blocked_ips",
         "blocked_ips.range", "from_blacklist", "control/valid_domain_ips", "bms/lists_to_update",
         "bms/map", "dynaregex/dyna.cregexes", "dynaregex/exempt.cregexes"]


class SpecialFiles(unittest.TestCase):
    def replay(self, name, make, address):
        """Exit status and events of a run with one special file."""
        with tempfile.TemporaryDirectory(prefix="drive-") as drive:
            base = Path(drive) / "quillfence"
            for folder in ["control", "bms", "dynaregex"]:
                (base / folder).mkdir(parents=True)
            (base / "bms" / "lists_to_update").write_text("map\n")
            special = base / name
            special.unlink(missing_ok=True)
            make(special)
            run = subprocess.run(
                [PROGRAM, "R", address, "25", "0", "", "0", "mx.example.org", "a@example.org",
                 "b@example.net"], capture_output=True, text=True, timeout=20,
                env=environment_on(drive, QUILLFENCE_DNS_SERVER="127.0.0.1:1"))
            return run.returncode, run.stderr

    def test_nobody_waits(self):
        for name in FILES:
            for what, make in [("pipe", os.mkfifo), ("device", lambda at: at.symlink_to("/dev/zero"))]:
                for address in ["127.0.0.1", "10.0.0.1"]:
                    with self.subTest(name=name, what=what, address=address):
                        status, _ = self.replay(name, make, address)
                        # Without its list of block maps a report fails.
                        fails = name == "bms/lists_to_update" and address != "127.0.0.1"
                        self.assertEqual(status, 1 if fails else 0)

    def test_what_is_no_list_of_text_is_said(self):
        for name in ["exempt_ips.range", "control/valid_domain_ips"]:
            _, events = self.replay(name, os.mkfifo, "10.0.0.1")
            self.assertIn("vc_open_ex(): unknown error opening - got error code 5", events, name)


if __name__ == "__main__":
    main()
