#!/usr/bin/env python3
"""Runs the replayer as one case file says and compares what comes out, byte for byte.

    replay_transcript.py [--line] PROGRAM CASE [--wine LAUNCHER PREFIX]

With --line PROGRAM is another one that prints the replayer's line: only its standard output and
exit status are compared.

A case file consists of sections; a section begins with a line "== <kind> ..." and goes up to the
next one. Everything before the first section says what the case shows.

    == run ARGUMENTS      on the same line, separated by blanks and in quotes where need be;
                          \\n, \\r, \\t, \\", \\\\ and \\xHH stand for bytes
    == file PATH          a text file of the drive c:, in which the same escapes count; a backslash
                          at the end of a line joins it with the next one
    == bytes PATH SIZE    a file of SIZE zero bytes, and lines "OFFSET: HEX" that fill some
    == registry           sections of a registry export, all below the keys "Mail Enable" in
                          HKEY_LOCAL_MACHINE; under Wine they are imported
    == stdout             the exact text; the file's last line end is not part of it
    == exit STATUS
    == stderr             the same for standard error; {program} is the program's path
    == events             the error events of the run, with "#" for line numbers (Linux only: the
                          Windows build writes them to the event log)

A run must not write to standard error, or report error events, unless the case says so. Each case
has a drive c: of its own: a temporary directory, or under Wine the folder c:/quillfence of the
prefix. DNS queries are answered by nobody: nothing in these cases depends on an answer.
"""

import os
import re
import shutil
import socket
import subprocess
import sys
import tempfile
from pathlib import Path


def unescape(text):
    """The bytes of a line in which a backslash begins an escape."""
    simple = {"n": "\n", "r": "\r", "t": "\t", '"': '"', "\\": "\\"}

    def byte(match):
        code = match.group(1)
        return simple.get(code) or chr(int(code[1:], 16))

    return re.sub(r'\\(x[0-9A-Fa-f]{2}|[nrt"\\])', byte, text).encode("latin-1")


def arguments_of(line):
    words = re.findall(r'"((?:[^"\\]|\\.)*)"|(\S+)', line)
    return [unescape(quoted or bare) for quoted, bare in words]


def lines_of(body):
    return body.split("\n")[:-1]


def text_bytes(body):
    return unescape(body.replace("\\\n", ""))


def table_bytes(size, body):
    data = bytearray(int(size))
    for line in lines_of(body):
        line = line.split("#")[0].strip()
        if line:
            offset, digits = line.split(":")
            value = bytes.fromhex(digits)
            data[int(offset) : int(offset) + len(value)] = value
    if len(data) != int(size):
        raise ValueError("a value lies behind the end of the file")
    return bytes(data)


MAIL_KEYS = [r"HKEY_LOCAL_MACHINE\SOFTWARE\Mail Enable",
             r"HKEY_LOCAL_MACHINE\SOFTWARE\Wow6432Node\Mail Enable"]


def registry_bytes(body):
    """The export as the registry editor writes it."""
    for key in re.findall(r"^\[(.*)\]$", body, re.MULTILINE):
        if not any(key.startswith(mail_key) for mail_key in MAIL_KEYS):
            raise ValueError(f"{key} is no key of Mail Enable")
    text = "Windows Registry Editor Version 5.00\n\n" + body
    return b"\xFF\xFE" + text.replace("\n", "\r\n").encode("utf-16-le")


class Case:
    def __init__(self, path):
        self.arguments, self.files, self.registry = None, {}, None
        self.stdout, self.stderr, self.status, self.events = None, b"", None, []
        text = Path(path).read_text(encoding="latin-1")
        for section in re.split(r"^== ", text, flags=re.MULTILINE)[1:]:
            head, body = section.split("\n", 1)
            self.add(head, body)
        if None in (self.arguments, self.stdout, self.status):
            raise ValueError("a case needs run, stdout and exit")

    def add(self, head, body):
        kind, _, rest = head.partition(" ")
        if kind == "run":
            self.arguments = arguments_of(rest)
        elif kind == "file":
            self.files[rest] = text_bytes(body)
        elif kind == "bytes":
            path, size = rest.split()
            self.files[path] = table_bytes(size, body)
        elif kind == "registry":
            self.registry = registry_bytes(body)
        elif kind == "stdout":
            self.stdout = unescape(body[:-1])
        elif kind == "stderr":
            self.stderr = unescape(body[:-1]) + b"\n"
        elif kind == "events":
            self.events = lines_of(body)
        elif kind == "exit":
            self.status = int(rest)
        else:
            raise ValueError(f"unknown section {kind}")


class NativeDrive:
    """A drive c: in a temporary directory."""

    def __init__(self):
        self.temporary = tempfile.TemporaryDirectory(prefix="replay-")
        self.root = Path(self.temporary.name)
        self.events = self.root / "events"
        # A port that refuses connections as long as it is bound and not listened on.
        self.no_server = socket.socket()
        self.no_server.bind(("127.0.0.1", 0))
        self.environment = {
            "QUILLFENCE_DRIVE_C": str(self.root),
            "QUILLFENCE_EVENT_LOG": str(self.events),
            "QUILLFENCE_DNS_SERVER": "127.0.0.1:%d" % self.no_server.getsockname()[1],
            "QUILLFENCE_REGISTRY": "",
        }

    def write_registry(self, export):
        file = self.root / "registry.reg"
        file.write_bytes(export)
        self.environment["QUILLFENCE_REGISTRY"] = str(file)

    def error_events(self):
        if not self.events.exists():
            return []
        shown = self.events.read_text(encoding="latin-1")
        return [re.sub(r":\d+ ERROR", ":# ERROR", line) for line in shown.splitlines()
                if line.startswith("error")]

    def remove(self):
        self.no_server.close()
        self.temporary.cleanup()


class WineDrive:
    """The folder c:/quillfence of a Wine prefix; only this run may use it."""

    def __init__(self, launcher, prefix):
        prefix = Path(os.environ.get("WINEPREFIX", prefix))
        if not (prefix / "drive_c").exists():
            subprocess.run([launcher, "wineboot", "--init"], check=True, capture_output=True)
        self.root, self.launcher, self.has_registry = prefix / "drive_c", launcher, False
        if (self.root / "quillfence").exists():
            sys.exit(f"{self.root}/quillfence is in the way: remove it first")
        self.environment = {}

    def reg(self, *arguments):
        return run_captured([self.launcher, "reg", *arguments], {})[0]

    def write_registry(self, export):
        for key in MAIL_KEYS:
            if self.reg("query", key) == 0:
                sys.exit(f"{key} is in the way: remove it first")
        self.has_registry = True
        (self.root / "quillfence" / "import.reg").write_bytes(export)
        if self.reg("import", r"c:\quillfence\import.reg") != 0:
            sys.exit("the registry export could not be imported")
        (self.root / "quillfence" / "import.reg").unlink()

    def error_events(self):
        return None

    def remove(self):
        shutil.rmtree(self.root / "quillfence", ignore_errors=True)
        if self.has_registry:
            for key in MAIL_KEYS:
                self.reg("delete", key, "/f")


def write_files(drive, files):
    (drive.root / "quillfence").mkdir()
    for path, content in files.items():
        if not path.startswith("c:/quillfence/"):
            raise ValueError(f"{path} does not lie below c:/quillfence/")
        target = drive.root / path[len("c:/"):]
        target.parent.mkdir(parents=True, exist_ok=True)
        target.write_bytes(content)


def run_captured(command, environment):
    """Exit status, standard output and standard error of a program. They go to files: Wine's own
    background processes would keep pipes open for seconds."""
    with tempfile.TemporaryFile() as stdout, tempfile.TemporaryFile() as stderr:
        run = subprocess.run(command, stdout=stdout, stderr=stderr, stdin=subprocess.DEVNULL,
                             timeout=100, env={**os.environ, **environment})
        stdout.seek(0)
        stderr.seek(0)
        return run.returncode, stdout.read(), stderr.read()


def differences(case, status, stdout, stderr, program, events):
    checks = [
        ("standard output", stdout, case.stdout),
        ("standard error", stderr, case.stderr.replace(b"{program}", program.encode())),
        ("exit status", status, case.status),
    ]
    if events is not None:
        checks.append(("error events", events, case.events))
    return [f"{what}: got {got!r}, want {want!r}" for what, got, want in checks if got != want]


def main():
    line_only = sys.argv[1] == "--line"
    program, case_path, *wine = sys.argv[2 if line_only else 1 :]
    case = Case(case_path)
    if wine:
        _, launcher, prefix = wine
        drive, command = WineDrive(launcher, prefix), [launcher, program]
    else:
        drive, command = NativeDrive(), [program]
    try:
        write_files(drive, case.files)
        if case.registry:
            drive.write_registry(case.registry)
        status, stdout, stderr = run_captured(command + case.arguments, drive.environment)
        shown = program
        if wine and case.stderr:  # Wine knows the program under a path of its own
            usage = re.match(rb"Usage : (.*) R \[", stderr)
            shown = usage.group(1).decode("latin-1") if usage else program
            stderr = stderr.replace(b"\r\n", b"\n")
        if line_only:
            found = [] if (status, stdout) == (case.status, case.stdout) else [
                f"got {status} and {stdout!r}, want {case.status} and {case.stdout!r}"]
        else:
            found = differences(case, status, stdout, stderr, shown, drive.error_events())
    finally:
        drive.remove()
    for difference in found:
        print(difference)
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
