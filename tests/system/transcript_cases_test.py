#!/usr/bin/env python3
"""Every transcript that prints a line becomes a case, and the case comes out as the line says.

    transcript_cases_test.py [--runner=LAUNCHER] PROGRAM TRANSCRIPTS

A transcript's files become a drive, its registry an export. Its run is captured: the case has the
DNS answers and those of the registry, the address map and the folders, and is judged without any of
them. So is a short case of the same answers, which expects the line's two lists. The DNS is a port
where nobody answers, as it is for the transcripts themselves. LAUNCHER runs PROGRAM, which is
quillfence, on a Windows build (a list as CMake has it).
"""

import json
import unittest
from pathlib import Path

from replay_transcript import Case, NativeDrive, registry_bytes, run_captured, write_files
from whole_program import ARGUMENTS, RUNNER, main

PROGRAM, TRANSCRIPTS = (Path(argument).resolve() for argument in ARGUMENTS)

# Those that end without a line: wrong arguments, and block maps of which there is no list.
WITHOUT_LINE = ["block_maps_empty_lists", "block_maps_no_list", "empty_ip", "empty_mode",
                "lower_case_mode", "mode_of_another_count", "unknown_mode", "usage_none",
                "usage_too_few", "usage_too_many"]


class Desk:
    """A drive with a transcript's files, and the program that looks at it."""

    def __init__(self, transcript):
        self.drive = NativeDrive()
        write_files(self.drive, transcript.files)
        # One without any key, else: a registry that others write to is none of this test's.
        self.drive.write_registry(transcript.registry or registry_bytes(""))
        self.registry = ["--registry", self.drive.environment["QUILLFENCE_REGISTRY"]]
        self.environment = {**self.drive.environment, "QUILLFENCE_EVENT_LOG": "",
                            "QUILLFENCE_REGISTRY": ""}

    def path(self, name):
        return self.drive.root / name

    def run(self, subcommand, *arguments):
        return run_captured([*RUNNER, PROGRAM, subcommand, "--drive-c", str(self.drive.root),
                             *arguments], self.environment)

    def remove(self):
        self.drive.remove()


class TranscriptCases(unittest.TestCase):
    maxDiff = None

    def transcripts(self):
        for path in sorted(TRANSCRIPTS.glob("*.txt")):
            if path.stem != "CMakeLists":
                yield path, Case(path)

    def capture(self, desk, transcript):
        # The stage may be any word that begins with its letter; here it is the letter.
        file = desk.path("captured.json")
        status, _, err = desk.run("explain", *desk.registry, "--capture", str(file), "R",
                                  *transcript.arguments[1:])
        self.assertIn(status, (0, 3), err)
        return json.loads(file.read_bytes())

    def check_captured(self, desk, transcript):
        """The captured case, judged with nothing but itself and the drive."""
        status, out, err = desk.run("explain", "--json", "--case", str(desk.path("captured.json")))
        self.assertIn(status, (0, 3))
        self.assertEqual(err, b"")
        self.assertEqual(json.dumps(json.loads(out)["report"], separators=(",", ":")),
                         transcript.stdout.decode())

    def short_case(self, captured, path, transcript):
        answers = ("dns", "registry", "address_map", "folders")
        return {"schema": "quillfence.case/1",
                "description": path.read_text(encoding="latin-1").split("\n== ")[0].strip(),
                "transaction": captured["transaction"],
                **{name: captured[name] for name in answers if name in captured},
                "expect": json.loads(transcript.stdout)}

    def check_short(self, desk, case):
        desk.path("case.json").write_text(json.dumps(case))
        # It is the line that decides: with one name more, the case fails.
        case["expect"]["spam_hits"].append("one more")
        desk.path("other.json").write_text(json.dumps(case))
        files = [str(desk.path(name)) for name in ("captured.json", "case.json", "other.json")]
        status, out, err = desk.run("test", *files)
        self.assertEqual((status, err), (1, b""), out.decode())
        for line in (b"ok 1 - ", b"ok 2 - ", b"not ok 3 - ",
                     b'  message: "not as expected: spam_hits"\n'):
            self.assertIn(b"\n" + line, out)

    def check(self, path, transcript):
        desk = Desk(transcript)
        try:
            captured = self.capture(desk, transcript)
            self.check_captured(desk, transcript)
            self.check_short(desk, self.short_case(captured, path, transcript))
        finally:
            desk.remove()

    def test_every_transcript_with_a_line(self):
        without_line = []
        for path, transcript in self.transcripts():
            if transcript.stdout:
                with self.subTest(transcript=path.stem):
                    self.check(path, transcript)
            else:
                without_line.append(path.stem)
        self.assertEqual(without_line, WITHOUT_LINE)


if __name__ == "__main__":
    main()
