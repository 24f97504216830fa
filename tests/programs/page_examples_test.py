#!/usr/bin/env python3
"""The worked examples of the pages: each command is run, and prints what the page shows.

    page_examples_test.py [--runner=LAUNCHER] QUILLFENCE REPLAYER SOURCE_FOLDER

An example is an indented block that begins with "$ " and a command:

    $ ./explain --ip 192.0.2.9 ...
    REJECT by from_blacklist
    ...
    $ echo $?
    0

A line "..." stands for any lines. "echo $?" shows the exit status of the command before it; where
it is not asked for, it is 0. "| jq -c .MEMBER" shows one member of each line's JSON document, and
"printf TEXT |" gives a program its input. "cat FILE" shows a file that a command before it made;
else what it shows is the file that is meant from there on. LAUNCHER runs the programs on a Windows
build (a list as CMake has it).
"""

import json
import re
import shlex
import shutil
from pathlib import Path

from whole_program import ARGUMENTS, RUNNER, FolderTest, main, run

QUILLFENCE, REPLAYER, SOURCE = (Path(argument).resolve() for argument in ARGUMENTS)

PAGES = ["README.md", "docs/batch.md", "docs/cases.md", "docs/diff.md",
         "docs/explain.md", "docs/log.md"]
# What differs from run to run and between the systems.
NORMALISED = [
    (r"\b\d+(\.\d+)? ms\b", "0 ms"),
    (r"\b\d+ us\b", "0 us"),
    (r"\(\d+\.\d s, \d+ a second\)", "(0.0 s, 812 a second)"),
    (r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z", "2026-11-22T00:00:00.000Z"),
    (r"\d+\.\d+\.\d+ \((linux|windows)-x86_64\)", "1.0.0 (linux-x86_64)"),
]


def normalised(text):
    for pattern, put in NORMALISED:
        text = re.sub(pattern, put, text)
    return text


def examples_of(page):
    """The commands of a page and what is shown for each: (command, output, exit status)."""
    found = []
    for block in re.findall(r"^    \$ .*\n(?:(?:    .*)?\n)*", page, re.MULTILINE):
        lines = [line[4:] for line in block.rstrip("\n").split("\n")]
        for part in re.split(r"^\$ ", "\n".join(lines) + "\n", flags=re.MULTILINE)[1:]:
            part = part.replace("\\\n", " ")
            command, output = part.split("\n", 1)
            output = output.strip("\n") + "\n" if output.strip() else ""
            if command == "echo $?":
                found[-1] = (*found[-1][:2], int(output))
            else:
                found.append((command, output, 0))
    return found


def shows(shown, got):
    """Whether the output is what the page shows, "..." being any lines."""
    pieces = [re.escape(piece) for piece in re.split(r"^\.\.\.\n", shown, flags=re.MULTILINE)]
    return re.fullmatch("(?:.*\n)*?".join(pieces), got) is not None


def sample_of(script):
    """The arguments that a script uses when it is given none."""
    text = (SOURCE / script).read_text()
    return shlex.split(re.search(r"^ +set -- ((?:--|R ).*)$", text, re.MULTILINE).group(1))


class PagesTest(FolderTest):
    def setUp(self):
        super().setUp()
        shutil.copytree(SOURCE / "examples", self.folder / "examples")
        shutil.copytree(SOURCE / "examples" / "drive_c", self.folder / "drive_c")

    def run_program(self, *command, text=""):
        """Exit status and everything that a terminal would show."""
        status, out, err = run(command, self.folder, text=text, QUILLFENCE_EVENT_LOG="-",
                               QUILLFENCE_DRIVE_C=str(self.folder / "drive_c"))
        return status, out + err

    def show_file(self, name, shown):
        """The file's text, which is what the page shows where there is none yet."""
        path = self.folder / name
        if not path.exists():
            path.write_bytes(shown.encode())
        return 0, path.read_bytes().decode()

    def run_example(self, command, shown):
        words = shlex.split(command, comments=True)
        member, text = None, ""
        if words[0] == "printf":
            (_, text), words = words[:words.index("|")], words[words.index("|") + 1:]
            text = text.replace("\\n", "\n")
        if words[0] == "cat":
            return self.show_file(words[1], shown)
        if "|" in words:
            words, (jq, option, member) = words[:words.index("|")], words[words.index("|") + 1:]
            self.assertEqual((jq, option, member[0]), ("jq", "-c", "."), command)
        name, *arguments = words
        if name == "./explain":
            arguments = ["explain", "--drive-c", "examples/drive_c",
                         *(arguments or sample_of("explain"))]
        elif arguments[:1] in (["batch"], ["diff"]):
            arguments[1:1] = ["--drive-c", "examples/drive_c"]
        elif name == "./cases":
            arguments = ["test", "--drive-c", "examples/drive_c",
                         *(arguments or ["examples/cases"])]
        status, got = self.run_program({"./explain": QUILLFENCE, "./cases": QUILLFENCE,
                                        "quillfence": QUILLFENCE,
                                        "./replay": REPLAYER}[name],
                                       *(arguments or sample_of("replay")), text=text)
        if member:
            members = [json.loads(line).get(member[1:]) for line in got.splitlines()]
            got = "".join(json.dumps(one, separators=(",", ":")) + "\n" for one in members)
        return status, got if got.endswith("\n") or not got else got + "\n"

    def check_page(self, page):
        examples = examples_of((SOURCE / page).read_text())
        self.assertTrue(examples, f"{page} has no examples")
        for command, shown, status in examples:
            if RUNNER and command.startswith("./replay"):
                continue # it reads the server's own drive
            with self.subTest(page=page, command=command):
                got_status, got = self.run_example(command, shown)
                if not shows(normalised(shown), normalised(got)):
                    self.assertEqual(got, shown)
                self.assertEqual(got_status, status)

    def test_what_the_pages_show(self):
        for page in PAGES:
            self.check_page(page)

    def test_the_comparison_can_fail(self):
        self.assertTrue(shows("a\n...\nc\n", "a\nb\nb\nc\n"))
        self.assertTrue(shows("a\n...\n", "a\n"))
        self.assertFalse(shows("a\nc\n", "a\nb\nc\n"))
        self.assertFalse(shows("a\n...\nc\n", "a\nb\nc\nd\n"))
        self.assertFalse(shows("a.c\n", "abc\n"))


if __name__ == "__main__":
    main()
