#!/usr/bin/env python3
"""Every command that a page shows is run, in a fresh copy of the example, and prints what the page
shows; or a row of the tables below says why not.

    page_examples_test.py [--runner=LAUNCHER] QUILLFENCE DATA_TOOL REPLAYER SOURCE_FOLDER
                          [BUILD_FOLDER CTEST]

page_commands.py tells what is taken for a command. Those of a page run one after the other, in
bash, in a folder like that of a fresh clone after ./replay: examples/, the scripts, and the
programs, which are on the PATH as well (the README says how to put them there, and begins without).
c:/ is examples/drive_c. /tmp, /srv and other folders of a machine's root are folders of this copy.
There is no DNS.

In what a command prints a line "..." stands for any lines. "$ echo $?" shows its exit status; where
that is not asked for, it is 0. "$ cat FILE" of a file that is not there makes it: what it shows is
the file that is meant from there on.

A new command that can be run needs nothing here but, where it reads a file of its own, a line of
SET_UP. LAUNCHER runs the programs on a Windows build (a list as CMake has it): there the examples
whose output is shown are run, but for those that read the server's own drive c:.
"""

import functools
import os
import re
import shlex
import shutil
import subprocess
import tempfile
import unittest
from pathlib import Path

from command_lookup import Lookup, programs_of
from page_commands import blocks_of, commands_of
from whole_program import ARGUMENTS, RUNNER, environment, main

QUILLFENCE, DATA_TOOL, REPLAYER, SOURCE = (Path(argument).resolve() for argument in ARGUMENTS[:4])
BUILD, CTEST = (*map(Path, ARGUMENTS[4:]), None, None)[:2]
PROGRAMS = {"quillfence": QUILLFENCE, "quillfence-data": DATA_TOOL, "quillfence-replayer": REPLAYER}

# Blocks that hold no commands, by their beginning.
TEXTS = [
    ("CONTRIBUTING.md", "platform -> common"),
    ("docs/architecture.md", "arguments ──>"),
    ("docs/cases.md", "bob.smith+news@mail.example.org "),
    ("docs/cases.md", "the outcome of from_blacklist changes"),
    ("docs/formats/country-database.md", "__vc_get_country_code: "),
    ("docs/formats/mail-log.md", "2023-11-14 22:13:20 quillfence[4242]: "),
    ("docs/formats/pattern-lines.md", "# quillfence pattern lines 1"),
    ("docs/formats/sender-networks.md", "domain : network, "),
    ("docs/formats/sender-networks.md", "# domain : networks"),
    ("docs/mail-server.md", "Postoffices\\<postoffice>"),
    ("docs/operations.md", "QUILLFENCE_DNS_SERVER=192.0.2.53\n"),
    ("docs/policyd.md", "smtpd_recipient_restrictions ="),
    ("docs/policyd.md", "submission inet n"),
    ("docs/policyd.md", "warn set acl_m_quillfence"),
    ("docs/quillfence-data.md", "# expression 2 has no text"),
]

BUILDS = "builds for minutes"
TESTS = "is a part of what runs this test"
WINDOWS = "no Windows shell runs here; the programs and options are looked up"
CLUSTER = "scale_test.py runs it"
MEASURES = "measures for minutes"
SERVICE = "serves mail servers; policyd_check_dns_test.py and its neighbours run it"

# Programs that commands run here; a command with another one needs a row in NOT_RUN.
RUNNABLE = {*PROGRAMS, "./cases", "./explain", "./replay", "cat", "cp", "echo", "exit", "export",
            "head", "jq", "mkdir", "printf", "tail", "tar", "umask", "xz"}

# Commands that are not run, by their beginning, and why. What can be looked up of them, is: files,
# options, presets, targets, names of tests.
NOT_RUN = [
    ("CONTRIBUTING.md", "cmake", BUILDS),
    ("CONTRIBUTING.md", "ctest", TESTS),
    ("CONTRIBUTING.md", "./check", TESTS),
    ("CONTRIBUTING.md", "scripts/", TESTS),
    ("CONTRIBUTING.md", "build/linux/tests/", TESTS),
    ("README.md", "./check", TESTS),
    ("README.md", "cmake", BUILDS),
    ("README.md", "apt install", "changes the machine; scripts/check-debian installs them elsewhere"),
    ("README.md", "cpack", "package_test.py runs it"),
    ("README.md", "scripts/debian-packages", BUILDS),
    ("README.md", "C:\\> ", WINDOWS),
    ("README.md", "PS> ", WINDOWS),
    ("docs/benchmarks.md", "cmake", BUILDS),
    ("docs/benchmarks.md", "build/bench/", MEASURES),
    ("docs/benchmarks.md", "QUILLFENCE_DRIVE_C=", MEASURES),
    ("docs/benchmarks.md", "bench/", MEASURES),
    ("docs/benchmarks.md", "scripts/fetch-mail-servers", MEASURES),
    ("docs/benchmarks.md", "valgrind", MEASURES),
    ("docs/benchmarks.md", "ctest", TESTS),
    ("docs/explain.md", "PS> ", WINDOWS),
    ("docs/formats/registry-export.md", "C:\\> reg export", WINDOWS),
    ("docs/log.md", "quillfence log --follow", "goes on until Ctrl-C, in quillfence_log_test.py"),
    ("docs/policyd.md", "quillfence policyd", SERVICE),
    ("docs/policyd.md", "runuser", "needs root and the service's user"),
    ("docs/policyd.md", "ln -s", "needs root and node_exporter's folder"),
    ("docs/policyd.md", "systemctl", "needs root and systemd"),
    ("docs/reliability.md", "ctest", TESTS),
    ("docs/reliability.md", "scripts/", TESTS),
    ("docs/scale.md", "examples/scale/", CLUSTER),
    ("docs/scale.md", "parallel", CLUSTER),
    ("docs/scale.md", "cat judged/", CLUSTER),
    ("docs/scale.md", "export PARALLEL", CLUSTER),
    ("docs/scale.md", "dask-", CLUSTER),
    ("docs/scale.md", "duckdb", "is no package of Debian 12, as the page says"),
    ("docs/windows.md", "cpack", "package_test.py runs it"),
    ("docs/windows.md", "C:\\> start /wait msiexec", "package_test.py runs it"),
    ("docs/windows.md", "PS> ", WINDOWS),
]

# What a page says of any arguments, beside "quillfence-data SUBCOMMAND [--option] VALUE", which is
# looked up in the program's help.
SYNOPSES = [
    ("README.md", "./replay R ip port "),
]

# Commands whose output is not on the page and whose exit status is not 0.
STATUS = [
    ("docs/man/quillfence.1", "quillfence log --sender", 1), # the records are of another day
]

# What a page's commands find there besides the example: lines of a shell.
SET_UP = {
    "README.md": """
        mkdir root/tmp && cp -r examples/drive_c root/tmp/server
        printf 'REGEDIT4\\r\\n' >root/tmp/server.reg""",
    "docs/cases.md": """
        ./explain --dns off --ip 192.0.2.9 --helo a.example --sender x@spammer.example \
            --recipient bob@example.net --capture case.json >/dev/null 2>&1 || test $? = 3""",
    "docs/diff.md": "mkdir root/tmp root/srv && cp -r examples/drive_c root/srv",
    "docs/formats/bundle.md": r"""
        mkdir root/srv && cp -r examples/drive_c root/srv/copy
        printf '%s\r\n' 'Windows Registry Editor Version 5.00' '' \
            '[HKEY_LOCAL_MACHINE\SOFTWARE\Mail Enable\Mail Enable]' \
            '"Configuration Directory"="C:\\mail\\config"' >root/srv/server.reg""",
    "docs/log.md": "xz -c examples/log/decisions.log.1 >policyd.log.2.xz",
    "docs/man/quillfence-data.1": """
        cp examples/sources/dynaregex/dyna.cregexes.txt spam.txt
        echo 192.0.2.1 >abusers.txt
        echo '*@example.org' >>examples/drive_c/quillfence/from_whitelist
        mkdir examples/drive_c/quillfence/log
        cd examples/drive_c/quillfence/log
        { printf '\\2'; head -c 996 /dev/zero; } >.counterv2.dat.11""",
    "docs/man/quillfence-replayer.1": "mkdir root/tmp && cp -r examples/drive_c root/tmp/server",
    "docs/man/quillfence.1": """
        mkdir -p root/tmp root/var/log/quillfence
        cp -r examples/drive_c root/tmp/server && cp -r examples/drive_c root/tmp/edited
        cp examples/log/decisions.log root/var/log/quillfence/policyd.log
        mkdir root/srv && cp -r examples/cases root/srv && cp examples/qflog .""",
    "docs/quillfence-data.md": """
        cp -r examples/drive_c/quillfence config
        echo valid_prt >>examples/drive_c/quillfence/control/rules.enabled
        echo 10.0.0.0/24 >>examples/drive_c/quillfence/exempt_ips
        echo bob@friends.example >>examples/drive_c/quillfence/from_whitelist""",
}

# Folders of a machine's root that stand for folders of the copy.
ROOT = re.compile(r"(?<![\w/.:-])(?=/(?:tmp|srv|var|etc)/)")

# What differs from run to run and between the systems.
NORMALISED = [
    (r"\b\d+(\.\d+)? ms\b", "0 ms"),
    (r"\b\d+ us\b", "0 us"),
    (r"\(\d+\.\d s, \d+ a second\)", "(0.0 s, 812 a second)"),
    (r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z", "2026-11-22T00:00:00.000Z"),
    (r"\d+\.\d+\.\d+ \((linux|windows)-x86_64\)", "1.0.0 (linux-x86_64)"),
]

# Runs a program of the Windows build, which keeps pipes open, with the folder that stands for c:.
LAUNCH = """#!/bin/bash
case "$* " in
*" --drive-c "* | *" --before "*) ;;
"explain "* | "batch "* | "diff "* | "test "*) set -- "$1" --drive-c examples/drive_c "${@:2}" ;;
esac
out=$(mktemp)
%s "$@" >"$out" 2>"$out.err"
status=$?
cat "$out"
sed 's/\\r$//' "$out.err" >&2
exit $status
"""


def normalised(text):
    for pattern, put in NORMALISED:
        text = re.sub(pattern, put, text)
    return text


def shows(shown, got):
    """Whether the output is what the page shows, "..." being any lines."""
    pieces = [re.escape(piece) for piece in re.split(r"^\.\.\.\n", shown, flags=re.MULTILINE)]
    return re.fullmatch("(?:.*\n)*?".join(pieces), got) is not None


def written(command):
    """A command as the tables have it."""
    prompt = {"shell": "", "cmd": "C:\\> ", "powershell": "PS> "}[command.shell]
    return prompt + command.text


def rows_of(table, command):
    return [row for row in table
            if row[0] == command.page and written(command).startswith(row[1])]


def is_text(page, block):
    return any(page == row[0] and block.startswith(row[1]) for row in TEXTS)


def page_names():
    """The pages: all of Markdown and roff but what is built."""
    folders = [path for path in SOURCE.iterdir()
               if path.is_dir() and path.name not in ("build", ".git")]
    found = [*SOURCE.glob("*.md"), *(path for folder in folders for ending in ("md", "[1-8]")
                                     for path in folder.rglob(f"*.{ending}"))]
    return sorted(path.relative_to(SOURCE).as_posix() for path in found)


def headings_of(path):
    """The headings of a page, as links have them."""
    titles = re.findall(r"^#+ (.*)$", path.read_text(encoding="utf-8"), re.MULTILINE)
    return [re.sub(r"[^\w\- ]", "", title.lower()).replace(" ", "-") for title in titles]


@functools.cache
def page_commands(page):
    return commands_of(page, (SOURCE / page).read_text(encoding="utf-8"), is_text)


def all_commands():
    return [command for page in page_names() for command in page_commands(page)]


class Clone:
    """A folder as a fresh clone is after ./replay and the building of all."""

    def __init__(self, folder, on_path=True):
        self.folder = Path(folder)
        self.exports = ""
        shutil.copytree(SOURCE / "examples", self.folder / "examples",
                        ignore=shutil.ignore_patterns("__pycache__"))
        (self.folder / "root").mkdir()
        for name in ("cases", "explain", "replay", "scripts/common.sh"):
            (self.folder / name).parent.mkdir(exist_ok=True)
            shutil.copy(SOURCE / name, self.folder / name)
        with open(self.folder / "scripts/common.sh", "a", encoding="utf-8") as common:
            common.write("build_program() { :; }\n")
        for name, program in PROGRAMS.items():
            below = "replayer" if name == "quillfence-replayer" else f"programs/{name}"
            for path in (f"bin/{name}", f"build/replay/{below}/{name}"):
                self.install(self.folder / path, program)
        self.environment = environment(
            QUILLFENCE_DRIVE_C="examples/drive_c", QUILLFENCE_EVENT_LOG="-", HOME=str(folder),
            QUILLFENCE_DNS_SERVER="127.0.0.1:1", TMPDIR=str(folder), LC_ALL="C.UTF-8")
        if on_path:
            self.environment["PATH"] = f"{folder}/bin:{os.environ['PATH']}"

    @staticmethod
    def install(path, program):
        path.parent.mkdir(parents=True, exist_ok=True)
        if RUNNER:
            path.write_text(LAUNCH % shlex.join([*RUNNER, str(program)]), encoding="utf-8")
            path.chmod(0o755)
        else:
            path.symlink_to(program)

    def sh(self, command):
        """Exit status, standard output and standard error."""
        done = subprocess.run(["bash", "-c", command], cwd=self.folder, env=self.environment,
                              stdin=subprocess.DEVNULL, capture_output=True, timeout=120,
                              check=False)
        out, err = (text.decode(errors="replace").replace(f"{self.folder}/root/", "/")
                    for text in (done.stdout, done.stderr))
        return done.returncode, out if out.endswith("\n") or not out else out + "\n", err

    def run(self, command):
        """The same of a command of a page."""
        shown_file = re.fullmatch(r"cat (\S+)", command.text)
        if shown_file and command.shown and not (self.folder / shown_file[1]).exists():
            (self.folder / shown_file[1]).write_text(command.shown, encoding="utf-8")
        text = ROOT.sub(f"{self.folder}/root", command.text)
        if text.startswith("export "):
            self.exports += text + "\n"
        end = "\nexit ${PIPESTATUS[0]}" if command.status_of_first else ""
        return self.sh(self.exports + text + end)


def is_synopsis(command):
    """Whether all that stands behind the program and its subcommands are options and VALUES, or it
    is a row of the table."""
    if command.shown is not None or command.shell != "shell":
        return False
    name, *words = re.sub(r"--[a-z-]+( [A-Z]+)?|\[--[^\]]*\]", "", command.text).split()
    while words and re.fullmatch(r"[a-z-]+", words[0]):
        words.pop(0)
    values = words and all(re.fullmatch(r"\[?[A-Z]+(\.\.\.)?\]?", word) for word in words)
    return bool(name in PROGRAMS and values) or bool(rows_of(SYNOPSES, command))


def is_run(command):
    if rows_of(NOT_RUN, command) or is_synopsis(command):
        return False
    return not RUNNER or (command.shown is not None and "./replay" not in command.text
                          and not ("quillfence-data" in command.text and "c:/" in command.text))


class CommandsTest(unittest.TestCase):
    maxDiff = None

    def check(self, clone, command):
        self.assertEqual(command.shell, "shell")
        self.assertEqual(set(programs_of(command.text)) - RUNNABLE, set(),
                         "neither run nor listed in NOT_RUN")
        status, out, err = clone.run(command)
        rows = rows_of(STATUS, command)
        self.assertEqual(status, rows[0][2] if rows else command.status, out + err)
        if command.shown is not None:
            shown = normalised(command.shown)
            if not any(shows(shown, normalised(got)) for got in (out + err, err + out)):
                self.assertEqual(out + err, command.shown)

    def check_page(self, page):
        commands = [command for command in page_commands(page) if is_run(command)]
        if not commands:
            return
        with tempfile.TemporaryDirectory(prefix="quillfence-page-") as folder:
            clone = Clone(folder, on_path=page != "README.md")
            if page in SET_UP:
                self.assertEqual(clone.sh("set -e\n" + SET_UP[page])[0], 0, page)
            for command in commands:
                with self.subTest(command=str(command)):
                    self.check(clone, command)

    def test_what_the_pages_show(self):
        for page in page_names():
            self.check_page(page)

    def test_every_row_names_something(self):
        for table in (NOT_RUN, SYNOPSES, STATUS):
            for row in table:
                self.assertTrue(any(rows_of([row], command) for command in page_commands(row[0])),
                                row)
        for page, beginning in TEXTS:
            text = (SOURCE / page).read_text(encoding="utf-8")
            self.assertTrue(any(is_text(page, block) and block.startswith(beginning)
                                for _, block in blocks_of(page, text)), (page, beginning))
        self.assertLessEqual(set(SET_UP), set(page_names()))

    @unittest.skipIf(RUNNER or not BUILD, "the native build is looked at")
    def test_what_is_not_run_is_there(self):
        lookup = Lookup(SOURCE, BUILD, CTEST, {name: [path] for name, path in PROGRAMS.items()})
        for command in all_commands():
            if is_run(command):
                continue
            with self.subTest(command=str(command)):
                if not is_synopsis(command):
                    self.assertEqual(lookup.problems_of(command.text), [])
                elif command.text.startswith("./replay"):
                    self.assertIn(f"#   {command.text}\n", (SOURCE / "replay").read_text())
                else:
                    self.assertEqual(lookup.synopsis(command.text), [])

    @unittest.skipIf(RUNNER, "a page is the same for both builds")
    def test_options_within_sentences(self):
        lookup = Lookup(SOURCE, BUILD, CTEST, {name: [path] for name, path in PROGRAMS.items()})
        for page in page_names():
            for span in re.findall(r"(?<!`)`((?:\./explain|quillfence(?:-data)?) [^`\n]+)`(?!`)",
                                   (SOURCE / page).read_text(encoding="utf-8")):
                with self.subTest(page=page, command=span):
                    self.assertEqual(lookup.our_program(tuple(span.split())), [])

    def test_links_lead_somewhere(self):
        """Those to files and to headings of pages."""
        for page in page_names():
            text = (SOURCE / page).read_text(encoding="utf-8")
            for target in re.findall(r"\]\(([^)\s]+)\)", text):
                name, _, heading = target.partition("#")
                path = (SOURCE / page).parent / name if name else SOURCE / page
                with self.subTest(page=page, link=target):
                    if "://" not in target:
                        self.assertTrue(path.exists())
                        self.assertIn(heading, headings_of(path) if heading else [""])

    def test_what_is_taken_for_a_command(self):
        page = "\n".join(["Text", "", "    one a \\", "        b   # said", "    # nothing", "",
                          "    two | ", "        three", "", "Text, `code`", "    no block", "",
                          "    00010  00 01", "", "1. Item", "", "        $ four 'a", "        b'",
                          "        shown", "", "        ...", "        $ echo $?", "        3",
                          "", "```", "C:\\> five", "```", "", "    TEXT", "    six", ""])
        found = [(one.line, one.shell, one.text, one.shown, one.status)
                 for one in commands_of("p.md", page, lambda _, block: block.startswith("TEXT"))]
        self.assertEqual(found, [
            (3, "shell", "one a \\\n    b   # said", None, 0),
            (7, "shell", "two | \n    three", None, 0),
            (17, "shell", "four 'a\nb'", "shown\n\n...\n", 3),
            (26, "cmd", "five", "", 0)])
        manual = ".nf\n\\&one \\-\\-two \\\\\n three\n.fi\n"
        self.assertEqual([one.text for one in commands_of("p.1", manual, lambda *_: False)],
                         ["one --two \\\n three"])
        self.assertEqual(programs_of("A=1 one 0 \"\" | two; (umask 077; three) && four\n"),
                         ["one", "two", "umask", "three", "four"])

    @unittest.skipIf(RUNNER or not BUILD, "the native build is looked at")
    def test_looking_up_can_fail(self):
        lookup = Lookup(SOURCE, BUILD, CTEST, {name: [path] for name, path in PROGRAMS.items()})
        for command in ("ctest --preset linux -R ^no_such_test$", "ctest --preset no-such",
                        "cmake --preset no-such", "cmake --build build/linux --target no_such",
                        "build/linux/tests/common/vc_file_test --gtest_filter='*no_such*'",
                        "quillfence.exe explain --no-such", "quillfence-data no-such --json",
                        "scripts/no-such", "./check --no-such"):
            self.assertNotEqual(lookup.problems_of(command), [], command)
        self.assertNotEqual(lookup.synopsis("quillfence-data verify [--json] NOTHING"), [])
        self.assertNotEqual(lookup.synopsis("quillfence-data verify [--no-such] BASEDIR"), [])

    def test_the_comparison_can_fail(self):
        self.assertTrue(shows("a\n...\nc\n", "a\nb\nb\nc\n"))
        self.assertTrue(shows("a\n...\n", "a\n"))
        self.assertFalse(shows("a\nc\n", "a\nb\nc\n"))
        self.assertFalse(shows("a\n...\nc\n", "a\nb\nc\nd\n"))
        self.assertFalse(shows("a.c\n", "abc\n"))


if __name__ == "__main__":
    main()
