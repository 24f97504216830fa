#!/usr/bin/env python3
"""Which files a run touches, as strace sees it: no file but the configured ones, each as often as
needed, and nothing is created. A local client asks nothing of the network.

    opened_files_test.py PROGRAM

Skipped (77) where strace is missing or may not trace; that is a failure where CI=true.
"""

import re
import shutil
import subprocess
import tempfile
import unittest
from pathlib import Path

from whole_program import ARGUMENTS, environment, environment_on, main, unable

PROGRAM = ARGUMENTS[0]
FILE_CALLS = "open,openat,creat,stat,lstat,newfstatat,statx,access,faccessat,faccessat2,unlink," \
             "rename,mkdir"
NETWORK_CALLS = "socket,connect,bind,sendto,sendmsg"


def strace(arguments, settings=None):
    """The trace of a run as a list of lines, and the run itself."""
    with tempfile.NamedTemporaryFile(mode="r", prefix="trace-") as trace:
        run = subprocess.run(
            ["strace", "-f", "-qq", "-s", "4096", "-e", f"trace={FILE_CALLS},{NETWORK_CALLS}", "-o",
             trace.name, *arguments],
            capture_output=True, text=True, timeout=60,
            # A sanitized build can't look for leaks while it is traced.
            env={**(settings or environment()), "ASAN_OPTIONS": "detect_leaks=0"})
        return trace.read().splitlines(), run


def why_not():
    """Why nothing can be traced here; empty when it can."""
    if not shutil.which("strace"):
        return "strace is not installed"
    lines, run = strace(["true"])
    return "" if lines and run.returncode == 0 else "strace may not trace: " + run.stderr.strip()


class OpenedFiles(unittest.TestCase):
    def trace(self, files, *values):
        """The paths below c:/quillfence/ that a run asks about and opens, in order; the folders that
        it lists; and whether it asked the network."""
        with tempfile.TemporaryDirectory(prefix="drive-") as drive:
            base = Path(drive) / "quillfence"
            for name, text in files.items():
                (base / name).parent.mkdir(parents=True, exist_ok=True)
                (base / name).write_text(text)
            before = sorted(base.rglob("*"))
            lines, run = strace([PROGRAM, "R", *values],
                                environment_on(drive))
            self.assertEqual((run.returncode, run.stderr), (0, ""))
            self.assertEqual(sorted(base.rglob("*")), before, "nothing is created or removed")
            asked, opened, listed = [], [], []
            for line in lines:
                call = re.search(r'(\w+)\([^"]*"([^"]*)"', line)
                if not call or not call.group(2).startswith(f"{base}/"):
                    continue
                name = re.sub("/+", "/", call.group(2)[len(str(base)) + 1:])
                if "O_DIRECTORY" in line:
                    listed.append(name)
                elif name:
                    (opened if call.group(1).startswith("open") else asked).append(name)
            network = [line for line in lines if re.search(rf"\b({NETWORK_CALLS.replace(',', '|')})\(",
                                                           line)]
            return asked, opened, listed, network

    def test_a_local_client_without_lists_opens_nothing(self):
        asked, opened, listed, network = self.trace(
            {"control/enabled": "1"}, "127.0.0.1", "25", "0", "", "0", "mx.example.org",
            "alice@example.org", "bob@example.net")
        self.assertEqual(opened, [])
        self.assertEqual(network, [])
        self.assertEqual(asked, ["exempt_users", "from_whitelist", "exempt_ips",
                                 "exempt_ips.range"])
        # Each is missing: its folder is looked through for the name in another letter case, once.
        self.assertEqual(listed, [""] * len(asked))

    def test_a_local_client_opens_the_lists_that_are_there_once(self):
        files = {"exempt_users": "nobody@example.org\n", "from_whitelist": "nobody@example.org\n",
                 "exempt_ips": "192.0.2.1\n",
                 # Nothing of a local client is looked up in these:
                 "blocked_ips": "192.0.2.1\n", "from_blacklist": "nobody@example.org\n",
                 "control/rules.enabled": "require_helo\n", "control/bms.enabled": "map\n",
                 "control/valid_domain_ips": "example.org : 192.0.2.1\n",
                 "bms/lists_to_update": "map\n", "bms/map": "\0" * 1024}
        _, opened, _, network = self.trace(files, "127.0.0.1", "25", "0", "", "0", "mx.example.org",
                                        "alice@example.org", "bob@example.net")
        self.assertEqual(opened, ["exempt_users", "from_whitelist", "exempt_ips"])
        self.assertEqual(network, [])

    def test_what_has_its_exact_name_costs_no_listing(self):
        files = {"exempt_users": "nobody@example.org\n", "from_whitelist": "nobody@example.org\n",
                 "exempt_ips": "127.0.0.1\n"}
        *_, listed, _ = self.trace(files, "127.0.0.1", "25", "0", "", "0", "mx.example.org",
                                   "alice@example.org", "bob@example.net")
        self.assertEqual(listed, [])

    def test_a_name_in_another_case_costs_one_listing_a_call(self):
        files = {"Exempt_Users": "nobody@example.org\n", "from_whitelist": "nobody@example.org\n",
                 "exempt_ips": "127.0.0.1\n"}
        _, opened, listed, _ = self.trace(files, "127.0.0.1", "25", "0", "", "0", "mx.example.org",
                                          "alice@example.org", "bob@example.net")
        self.assertIn("Exempt_Users", opened)
        self.assertEqual(listed, [""] * 2, "the test for the file and its opening")

    def test_a_bounce_from_a_private_client_opens_what_it_needs_once(self):
        files = {"exempt_users": "nobody@example.org\n", "from_whitelist": "nobody@example.org\n",
                 "exempt_ips": "192.0.2.1\n", "blocked_ips": "192.0.2.1\n",
                 "from_blacklist": "nobody@example.org\n",
                 "control/rules.enabled": "require_helo\n", "control/bms.enabled": "map\n",
                 "control/valid_domain_ips": "example.org : 192.0.2.1\n",
                 "bms/lists_to_update": "map\nother\nmissing\n", "bms/map": "\0" * 1024,
                 "bms/other": "\0" * 1024}
        _, opened, _, network = self.trace(files, "10.0.0.1", "25", "0", "", "0", "mx.example.org", "",
                                        "bob@example.net")
        self.assertEqual(opened, ["exempt_users", "exempt_ips", "blocked_ips",
                                  "bms/lists_to_update", "bms/map", "bms/other"])
        self.assertEqual(network, [])


if __name__ == "__main__":
    if why_not():
        unable(why_not())
    main()
