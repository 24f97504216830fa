#!/usr/bin/env python3
"""The recipes of examples/scale and the commands of docs/scale.md: what many processes write is,
byte for byte, what one writes, also when some of them are killed on the way.

    scale_test.py QUILLFENCE SOURCE_FOLDER

Hosts are this one: what stands for ssh runs the command here. Dask's scheduler and its workers are
processes that speak TCP over the loopback interface.
"""

import json
import os
import re
import shutil
import signal
import subprocess
import time
import unittest
from pathlib import Path

from whole_program import ARGUMENTS, FolderTest, environment, main, unable

PROGRAM, SOURCE = (Path(argument).resolve() for argument in ARGUMENTS)
RECIPES = SOURCE / "examples/scale"
DEBIANS_PYTHON = "/usr/bin/python3" # which sees Debian's packages

DONE, FAILED, PARTLY = 0, 2, 3
LINES, FILES, BLOCK = 3000, 6, 400_000
PATIENCE = 120

# The far side sets SHELL as a login does.
SSH = """#!/bin/sh
# HOST [--] COMMAND
shift
[ "$1" != -- ] || shift
echo host >>"$HOSTS_LOG"
SHELL=/bin/bash exec sh -c "$*"
"""
# Notes each run. When there are runs/3 and no runs/victim, the fourth run notes who started it and
# never ends while that lives.
STALLING = """#!/bin/sh
for n in 1 2 3; do
    mkdir "$RUNS/$n" 2>/dev/null && exec "$REAL" "$@"
done
echo >>"$RUNS/later"
if mkdir "$RUNS/stalls" 2>/dev/null; then
    echo "$PPID" >"$RUNS/victim.new"
    mv "$RUNS/victim.new" "$RUNS/victim"
    while kill -0 "$PPID" 2>/dev/null; do sleep 0.05; done
    exit 1
fi
exec "$REAL" "$@"
"""
# The second run is killed in the middle of a line.
DYING = """#!/bin/sh
echo >>"$RUNS/count"
if ! mkdir "$RUNS/1" 2>/dev/null && mkdir "$RUNS/2" 2>/dev/null; then
    printf '{"schema":'
    kill -KILL $$
fi
exec "$REAL" "$@"
"""
# A file whose end does not come: the program has judged what there is, and waits.
WAITING = """#!/bin/bash
echo $$ >"$RUNS/started"
exec "$REAL" "${@:1:$#-1}" < <(cat "${@: -1}"; exec sleep 20)
"""


def wait_for(what, path):
    deadline = time.monotonic() + PATIENCE
    while not path.exists() or not path.read_text():
        if time.monotonic() > deadline:
            raise AssertionError(f"{what} did not come")
        time.sleep(0.05)
    return path.read_text()


class Case(FolderTest):
    """A folder with mail.jsonl, the same in pieces in month/, and programs in bin/."""

    def setUp(self):
        super().setUp()
        shutil.copytree(SOURCE / "examples/drive_c", self.folder / "drive")
        os.symlink(SOURCE / "examples", self.folder / "examples")
        self.program("quillfence", f'#!/bin/sh\nexec "{PROGRAM}" "$@"\n')
        self.program("ssh", SSH)
        (self.folder / "runs").mkdir()
        self.environment = environment(
            QUILLFENCE_DRIVE_C=str(self.folder / "drive"), QUILLFENCE_EVENT_LOG="-",
            QUILLFENCE="quillfence", REAL=str(PROGRAM), RUNS=str(self.folder / "runs"),
            HOSTS_LOG=str(self.folder / "hosts.log"), HOME=str(self.folder),
            SHELL="/bin/sh", # as cron has it
            PARALLEL_SSH=str(self.folder / "bin/ssh"), PYTHONDONTWRITEBYTECODE="1",
            PATH=f"{self.folder}/bin:/usr/bin:/bin")
        made = self.run_here(f"examples/scale/transactions.py {LINES}")
        self.assertEqual(made.returncode, DONE, made.stderr)
        self.lines = made.stdout.splitlines(keepends=True)
        self.assertEqual(len(self.lines), LINES)
        self.file("mail.jsonl", made.stdout)
        self.pieces(self.lines)
        self.one = self.run_here("quillfence batch --quiet --jobs 2 mail.jsonl").stdout
        self.assertEqual(self.one.count(b"\n"), LINES)

    def pieces(self, lines):
        size = -(-len(lines) // FILES)
        for n in range(FILES):
            self.file(f"month/{n:02}.jsonl", b"".join(lines[n * size:(n + 1) * size]))

    def program(self, name, text):
        self.file(f"bin/{name}", text)
        (self.folder / "bin" / name).chmod(0o755)

    def run_here(self, command, **settings):
        return subprocess.run(["bash", "-c", command], cwd=self.folder, capture_output=True,
                              env={**self.environment, **settings}, timeout=PATIENCE, check=False)

    def combined(self, folder):
        return b"".join(path.read_bytes() for path in sorted((self.folder / folder).glob("*.out")))

    def page_command(self, beginning):
        """A command of the page."""
        page = (SOURCE / "docs/scale.md").read_text()
        blocks = re.findall(r"^    (\S.*\n(?:    .*\n)*)", page, re.MULTILINE)
        found = [block.replace("\n    ", "\n") for block in blocks if block.startswith(beginning)]
        self.assertEqual(len(found), 1, beginning)
        return found[0]

    def check_page(self, beginning, made, change=lambda command: command):
        done = self.run_here(change(self.page_command(beginning)))
        self.assertEqual((done.returncode, self.bytes_of(made) == self.one), (DONE, True),
                         done.stderr)


class TransactionsTest(Case):
    def test_the_same_for_the_same_seed(self):
        again = self.run_here(f"examples/scale/transactions.py {LINES} 1").stdout
        other = self.run_here(f"examples/scale/transactions.py {LINES} 2").stdout
        self.assertEqual(again, b"".join(self.lines))
        self.assertNotEqual(other, again)

    def test_a_tenth_is_repeated(self):
        known, repeated = set(), 0
        for number, line in enumerate(self.lines):
            record = json.loads(line)
            self.assertEqual(record.pop("id"), f"t{number}")
            what = json.dumps(record)
            repeated += what in known
            known.add(what)
        self.assertGreater(repeated, 0.07 * LINES)
        self.assertLess(repeated, 0.13 * LINES)

    def test_every_answer_is_there_and_every_kind_of_decision(self):
        by = set()
        for line in self.one.splitlines():
            record = json.loads(line)
            self.assertEqual(record["missing"], [])
            by.add(record["decision"]["by"])
        self.assertEqual(by, {"exempt", "rule", "block_map", "rbl", "nothing"})

    def test_what_is_no_number(self):
        self.assertEqual(self.run_here("examples/scale/transactions.py many").returncode, 1)


class ParallelTest(Case):
    def over_files(self, rest="month/*.jsonl", **settings):
        return self.run_here(f"examples/scale/over-files.sh judged {rest}", **settings)

    def test_the_pages_commands(self):
        self.check_page("parallel --pipepart", "judged.jsonl")
        self.assertFalse((self.folder / "hosts.log").exists())
        self.check_page("parallel --sshlogin", "judged.jsonl")
        self.assertGreater(self.bytes_of("hosts.log").count(b"\n"), 1)
        self.check_page("examples/scale/over-files.sh", "judged.jsonl")

    def test_over_files_and_hosts(self):
        done = self.over_files(PARALLEL="--sshlogin 2/desk1,2/desk2 --workdir . --env judge "
                                        "--env QUILLFENCE")
        self.assertEqual((done.returncode, self.combined("judged") == self.one), (DONE, True),
                         done.stderr)
        self.assertGreaterEqual(self.bytes_of("hosts.log").count(b"\n"), FILES)

    def test_a_killed_process_loses_nothing(self):
        self.program("quillfence", DYING)
        done = self.over_files()
        self.assertEqual(done.returncode, FAILED)
        self.assertRegex(done.stderr.decode(), r"over-files\.sh: month/\S+ is still to be judged\n")
        self.assertEqual(len(list((self.folder / "judged").glob("*.out"))), FILES - 1)
        self.assertEqual(self.over_files().returncode, DONE)
        self.assertEqual(self.combined("judged"), self.one)
        self.assertEqual(self.bytes_of("runs/count").count(b"\n"), FILES + 1) # the rest stood

    def test_an_interruption_leaves_no_part(self):
        """The recipe is interrupted while the programs wait for the rest of their files."""
        self.program("quillfence", WAITING)
        run = subprocess.Popen(["bash", "-c", "exec examples/scale/over-files.sh judged "
                                "month/00.jsonl"], cwd=self.folder, env=self.environment,
                               stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                               start_new_session=True)
        self.addCleanup(run.wait, timeout=PATIENCE)
        self.addCleanup(os.killpg, run.pid, signal.SIGKILL)
        program = int(wait_for("the program", self.folder / "runs/started"))
        time.sleep(0.5)
        # As whoever shuts a machine down, and as a terminal.
        for send, to, sent in ((os.kill, program, signal.SIGTERM),
                               (os.killpg, run.pid, signal.SIGINT)):
            send(to, sent)
            time.sleep(1)
            self.assertFalse((self.folder / "judged/00.jsonl.out").exists())

    def test_bad_lines(self):
        self.file("month/00.jsonl", b'{"ip": 7}\n')
        self.assertEqual(self.over_files().returncode, PARTLY)
        self.assertEqual(self.over_files().returncode, PARTLY) # nothing left, but they are there
        self.assertIn(b'{"error":', self.bytes_of("judged/00.jsonl.out"))

    def test_what_can_not_be(self):
        done = self.over_files("month/00.jsonl ./month/00.jsonl")
        self.assertEqual((done.returncode, done.stderr),
                         (FAILED, b"over-files.sh: two files have the name 00.jsonl\n"))
        self.assertEqual(self.over_files("").returncode, FAILED)
        self.assertEqual(self.over_files("month/none").returncode, FAILED)
        self.assertEqual(self.over_files("month/00.jsonl -- --no-such-option").returncode, FAILED)


class DaskTest(Case):
    def setUp(self):
        super().setUp()
        self.started = {}
        self.start("dask-scheduler", "--port", "0", "--scheduler-file", "scheduler.json")
        told = wait_for("the scheduler", self.folder / "scheduler.json")
        self.address = json.loads(told)["address"]
        self.assertRegex(self.address, r"^tcp://127\.0\.0\.1:\d+$")
        for _ in range(2):
            self.start("dask-worker", self.address, "--no-nanny", "--nthreads", "1",
                       "--local-directory", "dask")

    def start(self, name, *arguments):
        log = open(self.folder / f"{len(self.started)}.log", "wb")
        self.addCleanup(log.close)
        # Its pages, too, stay on the loopback interface.
        process = subprocess.Popen([DEBIANS_PYTHON, f"/usr/bin/{name}", "--host", "127.0.0.1",
                                    "--dashboard-address", "127.0.0.1:0", *arguments],
                                   cwd=self.folder, env=self.environment, stdout=log, stderr=log)
        self.addCleanup(process.wait, timeout=PATIENCE)
        self.addCleanup(process.kill)
        self.started[process.pid] = process

    def command(self, files="mail.jsonl", options=""):
        return f"examples/scale/with_dask.py {self.address} {files} --block {BLOCK} {options}"

    def test_the_pages_command(self):
        self.check_page("examples/scale/with_dask.py", "judged.jsonl",
                        lambda command: command.replace("tcp://127.0.0.1:8786", self.address))

    def test_many_blocks(self):
        """Blocks end where files do; a file's last line may lack its end."""
        self.file("month/05.jsonl", self.bytes_of("month/05.jsonl").rstrip(b"\n"))
        done = self.run_here(self.command("month/*.jsonl"))
        self.assertEqual((done.returncode, done.stdout == self.one), (DONE, True), done.stderr)
        piped = self.run_here(f"cat mail.jsonl | {self.command('')}")
        self.assertEqual((piped.returncode, piped.stdout == self.one), (DONE, True), piped.stderr)

    def test_a_killed_worker_loses_nothing(self):
        self.program("quillfence", STALLING)
        run = subprocess.Popen(["bash", "-c", f"exec {self.command()} >judged.jsonl"],
                               cwd=self.folder, env=self.environment)
        self.addCleanup(run.kill)
        victim = int(wait_for("the fourth block", self.folder / "runs/victim"))
        self.assertIn(victim, self.started)
        self.started[victim].send_signal(signal.SIGKILL)
        self.assertEqual(run.wait(timeout=PATIENCE), DONE)
        self.assertTrue(self.bytes_of("judged.jsonl") == self.one)
        blocks = len(list(self.blocks()))
        self.assertGreater(blocks, 6) # so that there was a middle
        self.assertGreater(3 + self.bytes_of("runs/later").count(b"\n"), blocks)

    def blocks(self):
        """How the recipe cuts the file: so many bytes, and to the end of the line."""
        with open(self.folder / "mail.jsonl", "rb") as file:
            while block := file.read(BLOCK):
                yield block + file.readline()

    def test_a_killed_program_loses_nothing(self):
        self.program("quillfence", DYING)
        done = self.run_here(self.command())
        self.assertEqual((done.returncode, done.stdout == self.one), (DONE, True), done.stderr)

    def test_endings(self):
        self.file("bad", b'{"ip": 7}\n')
        done = self.run_here(self.command("bad"))
        self.assertEqual((done.returncode, done.stdout.count(b'{"error":')), (PARTLY, 1))
        for command in (self.command("none"), self.command(options="-- --no-such-option")):
            done = self.run_here(command)
            self.assertEqual((done.returncode, done.stdout), (FAILED, b""))
            self.assertIn(b"with_dask.py: ", done.stderr)


if __name__ == "__main__":
    if not shutil.which("parallel"):
        unable("there is no GNU parallel")
    if subprocess.run([DEBIANS_PYTHON, "-c", "import distributed"], check=False).returncode:
        unable("there is no python3-distributed")
    main()
