"""What the tests of whole programs share: what stands on their command line, an environment for a
run, the run, a folder for it, and the end.

    some_test.py [--runner=LAUNCHER] ARGUMENT...

LAUNCHER runs the programs of a Windows build (a list as CMake has it). ctest names this folder to
Python; by hand it is PYTHONPATH=tests/support.
"""

import os
import re
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

SKIPPED = 77  # exit status of a script that could test nothing; ctest knows it

RUNNER = []
ARGUMENTS = sys.argv[1:]
if ARGUMENTS and ARGUMENTS[0].startswith("--runner="):
    RUNNER = [word for word in ARGUMENTS.pop(0).split("=", 1)[1].split(";") if word]


def environment(**settings):
    """This process's environment without anything that would steer the programs, and with these
    settings."""
    kept = {name: value for name, value in os.environ.items()
            if not name.startswith("QUILLFENCE_") and name != "VERBOSEDEBUG"}
    return {**kept, **settings}


def environment_on(drive, **settings):
    """The environment of a run on a folder for the drive c:, whose events go to standard error."""
    return environment(QUILLFENCE_DRIVE_C=str(drive), QUILLFENCE_EVENT_LOG="-", **settings)


def run(command, folder, text="", prepare=None, **settings):
    """Exit status, standard output and standard error of a run in a folder. They go to files:
    Wine's own processes would hold pipes open. Lines on standard error end as the system likes
    them. `prepare` is called in the new process."""
    with tempfile.TemporaryFile() as given, tempfile.TemporaryFile() as out, \
            tempfile.TemporaryFile() as err:
        given.write(text.encode())
        given.seek(0)
        done = subprocess.run([*RUNNER, *command], cwd=folder, timeout=120,
                              env=environment(**settings), stdin=given, stdout=out, stderr=err,
                              preexec_fn=prepare, check=False)
        out.seek(0)
        err.seek(0)
        return (done.returncode, out.read().decode(), err.read().decode().replace("\r\n", "\n"))


def is_sanitized(program):
    """Whether it has the address sanitizer in it, whose memory breaks any limit."""
    return b"__asan_init" in Path(program).read_bytes()


def read_terminal(ours):
    """What has been shown on a terminal that the programs have closed; it is closed as well."""
    shown = b""
    try:
        while piece := os.read(ours, 65536):
            shown += piece
    except OSError:  # the other end is closed
        pass
    os.close(ours)
    return shown.decode()


def options_with_files(help_text):
    """The options of which a help says that their value names a file or a folder."""
    return re.findall(r"^  (--[a-z-]+) (?:\S*\|)?(?:FILE|KEYFILE|DIR|LINES)\b", help_text, re.M)


def check_empty_names(test, program, subcommands):
    """None of a program's options that name a file takes an empty name, as of a variable that is
    not set, for not being given."""
    checked = 0
    for words in subcommands:
        _, text, _ = run([program, *words, "--help"], test.folder)
        for option in options_with_files(text):
            checked += 1
            with test.subTest(subcommand=words, option=option):
                said = (f"{program.stem}: {option}: must not be empty (is a variable unset?); "
                        f'try "{" ".join([program.stem, *words])} --help"\n')
                test.assertEqual(run([program, *words, option, ""], test.folder), (2, "", said))
    test.assertGreater(checked, 3)


class FolderTest(unittest.TestCase):
    """Tests with a folder of their own."""

    maxDiff = None

    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="quillfence-test-")
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)

    def file(self, name, content):
        """Writes a file, text or bytes, and the folders on the way to it."""
        path = self.folder / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(content if isinstance(content, bytes) else content.encode())

    def bytes_of(self, name):
        return (self.folder / name).read_bytes()

    def files(self):
        """All files, by name."""
        return {path.relative_to(self.folder).as_posix(): path.read_bytes()
                for path in self.folder.rglob("*") if path.is_file()}


def unable(reason):
    """Ends a script on a machine that lacks something: a user's run skips it, an automatic one
    fails."""
    print("skipped:", reason)
    sys.exit(1 if os.environ.get("CI") == "true" else SKIPPED)


def main():
    unittest.main(argv=sys.argv[:1], verbosity=2)
