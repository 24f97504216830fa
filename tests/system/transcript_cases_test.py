#!/usr/bin/env python3
"""Every transcript that prints a line becomes a case, and the case comes out as the line says.

    transcript_cases_test.py [--runner=LAUNCHER] PROGRAM TRANSCRIPTS

A transcript's files become a drive, its registry an export. The transaction and the DNS answers of
its run go into a short case, which expects the line's two lists; it is judged without any network.
The DNS is a port where nobody answers, as it is for the transcripts themselves. LAUNCHER runs
PROGRAM, which is quillfence, on a Windows build (a list as CMake has it).
"""

import json
import unittest
from pathlib import Path

from replay_transcript import Case, NativeDrive, run_captured, write_files
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
        self.surroundings = ["--drive-c", str(self.drive.root)]
        if transcript.registry:
            self.drive.write_registry(transcript.registry)
            self.surroundings += ["--registry", self.drive.environment["QUILLFENCE_REGISTRY"]]

    def run(self, subcommand, *arguments):
        return run_captured([*RUNNER, PROGRAM, subcommand, *self.surroundings, *arguments],
                            {**self.drive.environment, "QUILLFENCE_EVENT_LOG": ""})

    def remove(self):
        self.drive.remove()


class TranscriptCases(unittest.TestCase):
    maxDiff = None

    def transcripts(self):
        for path in sorted(TRANSCRIPTS.glob("*.txt")):
            if path.stem != "CMakeLists":
                yield path, Case(path)

    def short_case(self, desk, path, transcript):
        # The stage may be any word that begins with its letter; here it is the letter.
        status, out, err = desk.run("explain", "--json", "R", *transcript.arguments[1:])
        self.assertEqual(err, b"")
        self.assertIn(status, (0, 3))
        record = json.loads(out)
        return {"schema": "quillfence.case/1",
                "description": path.read_text(encoding="latin-1").split("\n== ")[0].strip(),
                "transaction": record["transaction"], "dns": record["dns"],
                "expect": json.loads(transcript.stdout)}

    def check(self, path, transcript):
        desk = Desk(transcript)
        try:
            case = self.short_case(desk, path, transcript)
            files = [desk.drive.root / name for name in ("case.json", "other.json")]
            files[0].write_text(json.dumps(case))
            # It is the line that decides: with one name more, the case fails.
            case["expect"]["spam_hits"].append("one more")
            files[1].write_text(json.dumps(case))
            status, out, err = desk.run("test", *map(str, files))
            self.assertEqual((status, err), (1, b""), out.decode())
            self.assertIn(b"\nok 1 - ", out)
            self.assertIn(b"\nnot ok 2 - ", out)
            self.assertIn(b'\n  message: "not as expected: spam_hits"\n', out)
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
