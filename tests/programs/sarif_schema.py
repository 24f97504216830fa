#!/usr/bin/env python3
"""What quillfence-data verify writes as SARIF, held against the public schema.

    sarif_schema.py PROGRAM SOURCE_FOLDER SCHEMA

A configuration with findings of every severity, in files of odd names, is looked over by an absolute
and by a relative path, and a sound one as well. That the schema refuses what is no SARIF is seen
first. Part of ./check --long, as the schema is fetched (scripts/fetch-sarif-schema); the exit status
is 1 when a log is refused.
"""

import json
import os
import shutil
import subprocess
import sys
import tempfile
from pathlib import Path

import jsonschema

PROGRAM, SOURCE, SCHEMA = (Path(argument).resolve() for argument in sys.argv[1:4])
NAMES = [b"a,b%: \xc3\xa4\n\r", b"\xff\xfe", b'"\\\x1b[31m', b"some notes"]


def log_of(base, folder):
    run = subprocess.run([PROGRAM, "verify", "--format", "sarif", base], cwd=folder, check=False,
                         stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
    return json.loads(run.stdout)


def spoilt(log):
    """The log with one thing wrong, once for each of several things."""
    for spoil in (lambda run: run["results"][0].update(level="grave"),
                  lambda run: run["results"][0].pop("message"),
                  lambda run: run["results"][0].update(ruleIndex=-2),
                  lambda run: run["tool"].pop("driver"),
                  lambda run: run.update(finding=1)):
        copy = json.loads(json.dumps(log))
        spoil(copy["runs"][0])
        yield copy


def main():
    schema = json.loads(SCHEMA.read_text())
    validator = jsonschema.validators.validator_for(schema)(schema)
    with tempfile.TemporaryDirectory() as name:
        folder = Path(name)
        logs = []
        for base in ("q", str(folder / "q")):
            shutil.rmtree(folder / "q", ignore_errors=True)
            shutil.copytree(SOURCE / "examples/drive_c/quillfence", folder / "q")
            logs.append(log_of(base, folder))
            (folder / "q/control/rules.enabled").write_text("valid_prt\r\nvalid_prt\n")
            (folder / "q/from_whitelist").write_text("*\n")
            for odd in NAMES:
                Path(os.fsdecode(os.fsencode(folder / "q") + b"/" + odd)).touch()
            logs.append(log_of(base, folder))
    counts = [len(log["runs"][0]["results"]) for log in logs]
    assert counts[0] == 0 and counts[1] > len(NAMES) + 2, counts
    for wrong in spoilt(logs[1]):
        assert not validator.is_valid(wrong), "the schema takes anything"
    refused = [error for log in logs for error in validator.iter_errors(log)]
    for error in refused:
        print(f"{error.json_path}: {error.message}")
    print(f"{len(logs)} logs of {counts} results: {len(refused)} objections")
    return 1 if refused else 0


if __name__ == "__main__":
    sys.exit(main())
