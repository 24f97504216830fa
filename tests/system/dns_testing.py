"""What the DNS tests of the whole program have in common."""

import os
import shutil
import subprocess
import sys
import tempfile
import unittest

from whole_program import SKIPPED, environment


class Programs:
    """The programs under test and how they are started; filled from the command line."""

    runner = []  # wine-run for the Windows build
    probe = ""
    replayer = ""
    quillfence = ""
    floor = ""

    @classmethod
    def windows(cls):
        return bool(cls.runner)


def lacking(reason):
    """The machine lacks something: a user's run skips the test, an automatic one fails."""
    if os.environ.get("CI") == "true":
        raise AssertionError("CI=true, but " + reason)
    raise unittest.SkipTest(reason)


class Drive:
    """The drive c: of a run, with the one file that every run needs."""

    def __init__(self):
        if Programs.windows():
            self._root = None
            prefix = os.environ.get("WINEPREFIX") or os.path.join(
                os.path.dirname(os.path.dirname(os.path.realpath(Programs.runner[0]))), "build", "wine")
            self._base = os.path.join(prefix, "drive_c", "quillfence")
            if os.path.exists(self._base):
                raise AssertionError(self._base + " is in use; not touching it")
            self.settings = {}
        else:
            self._root = tempfile.mkdtemp(prefix="quillfence-test-")
            self._base = os.path.join(self._root, "quillfence")
            self.settings = {"QUILLFENCE_DRIVE_C": self._root,
                             "QUILLFENCE_EVENT_LOG": os.path.join(self._root, "events")}
        os.makedirs(os.path.join(self._base, "bms"))
        # A map that is not there lists nobody.
        with open(os.path.join(self._base, "bms", "lists_to_update"), "w", encoding="ascii") as out:
            out.write("no-such-map")

    def errors(self):
        """The ERROR events of all runs so far (Linux build), but for what the range lists say of
        every IPv6 client."""
        try:
            with open(self.settings["QUILLFENCE_EVENT_LOG"], encoding="utf-8") as events:
                return [line for line in events if line.startswith("error")
                        and "not yet support IPv6 range checks" not in line]
        except (KeyError, FileNotFoundError):
            return []

    def put_pattern_files(self, files):
        """Leaves exactly these compiled pattern files, by name without ending, on the drive."""
        folder = os.path.join(self._base, "dynaregex")
        shutil.rmtree(folder, ignore_errors=True)
        os.makedirs(folder)
        for name, contents in files.items():
            with open(os.path.join(folder, name + ".cregexes"), "wb") as out:
                out.write(contents)

    def put(self, name, text):
        """A file below c:/quillfence."""
        path = os.path.join(self._base, name)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "w", encoding="utf-8", newline="") as out:
            out.write(text)

    def remove(self):
        shutil.rmtree(self._root or self._base, ignore_errors=True)


def run(program, arguments, **settings):
    """The output of a program as bytes. Its exit status must be 0 and standard error empty."""
    done = subprocess.run(Programs.runner + [program] + list(arguments), env=environment(**settings),
                          stdin=subprocess.DEVNULL, capture_output=True, timeout=200, check=False)
    if done.returncode or (done.stderr and not Programs.windows()):
        raise AssertionError(f"{program} {arguments}: status {done.returncode}, "
                             f"{done.stdout!r}, {done.stderr!r}")
    return done.stdout


def probe(questions, **settings):
    """The answers of dns-probe, a line for each question; a question is a text with blanks."""
    arguments = [word for question in questions for word in question.split(" ")]
    return run(Programs.probe, arguments, **settings).decode().splitlines()


def replay(drive, ip="192.0.2.1", helo="host-with-an-a.forward.test",
           sender="user@host-with-an-a.forward.test", mua="0", recipient="rcpt@forward.test",
           **settings):
    """The report of a transaction, as the exact bytes."""
    return run(Programs.replayer, ["R", ip, "25", "0", "", mua, helo, sender, recipient],
               **drive.settings, **settings)


def report(*hits):
    """The report with these rules and no block map."""
    names = ",".join('"' + hit + '"' for hit in hits)
    return ('{"spam_hits":[' + names + '],"bms_hits":[]}').encode()


def main():
    """Takes --runner, --probe, --replayer, --quillfence and --floor off the command line and runs the
    script's tests. The exit status is 0, 1 when a test failed, or 77 when everything was skipped."""
    rest = [sys.argv[0]]
    for argument in sys.argv[1:]:
        name, _, value = argument.partition("=")
        if name == "--runner":
            Programs.runner = [value] if value else []
        elif name == "--probe":
            Programs.probe = value
        elif name == "--replayer":
            Programs.replayer = value
        elif name == "--quillfence":
            Programs.quillfence = value
        elif name == "--floor":
            Programs.floor = value
        else:
            rest.append(argument)
    result = unittest.main(module="__main__", argv=rest, verbosity=2, exit=False).result
    if not result.wasSuccessful():
        sys.exit(1)
    if result.skipped and len(result.skipped) >= result.testsRun:
        sys.exit(SKIPPED)
