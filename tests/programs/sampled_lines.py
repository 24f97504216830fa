#!/usr/bin/env python3
"""Lines of a large batch run, sampled and held against runs of explain for the same transaction.

    sampled_lines.py PROGRAM SOURCE_FOLDER [COUNT] [SAMPLES]

COUNT (1,000,000) transactions of examples/scale/transactions.py are judged by one `quillfence
batch` against examples/drive_c; SAMPLES (1,000) of them, chosen by a seed, once more by
`quillfence explain`. A short record must hold nothing but what the whole one of explain says, apart
from times. Part of ./check --long; the exit status is 1 when a line differs.
"""

import json
import random
import subprocess
import sys
import tempfile
from pathlib import Path

PROGRAM, SOURCE = (Path(argument).resolve() for argument in sys.argv[1:3])
COUNT = int(sys.argv[3]) if len(sys.argv) > 3 else 1_000_000
SAMPLES = int(sys.argv[4]) if len(sys.argv) > 4 else 1_000
DRIVE = SOURCE / "examples/drive_c"
TIMES = {"us", "ms", "time"}


def differences(short, whole, at=""):
    """Where the short record says what the whole one does not."""
    if isinstance(short, dict) and isinstance(whole, dict):
        for name, value in short.items():
            if name in TIMES or f"{at}.{name}" in (".id", ".config.revision"):
                continue
            if name not in whole:
                yield f"{at}.{name} is not there"
            else:
                yield from differences(value, whole[name], f"{at}.{name}")
    elif at == ".rules":
        by_name = {rule["rule"]: rule for rule in whole}
        for rule in short:
            yield from differences(rule, by_name.get(rule["rule"]), f"{at}.{rule['rule']}")
    elif isinstance(short, list) and isinstance(whole, list) and len(short) == len(whole):
        for i, (one, other) in enumerate(zip(short, whole)):
            yield from differences(one, other, f"{at}[{i}]")
    elif short != whole:
        yield f"{at}: {short!r} and {whole!r}"


def explained(line, folder):
    """The whole record of a run of its own, on the answers that the line brings."""
    given = json.loads(line)
    path = folder / "case"
    path.write_text(json.dumps({"schema": "quillfence.case/1", "transaction": given["transaction"],
                                "dns": given["dns"]}), encoding="utf-8")
    done = subprocess.run([PROGRAM, "explain", "--drive-c", DRIVE, "--case", path, "--json"],
                          capture_output=True, text=True, check=False)
    if not done.stdout:
        sys.exit(f"explain failed: {done.stderr}")
    return json.loads(done.stdout)


def batch(lines, folder):
    """The input and the output of the run at these places, both as text."""
    wanted = sorted(random.Random(1).sample(range(lines), min(SAMPLES, lines)))
    chosen = set(wanted)
    inputs = {}
    made = subprocess.Popen([sys.executable, SOURCE / "examples/scale/transactions.py", str(lines)],
                            stdout=subprocess.PIPE, text=True)
    with open(folder / "out", "w", encoding="utf-8") as out:
        judge = subprocess.Popen([PROGRAM, "batch", "--quiet", "--report", "--drive-c", DRIVE],
                                 stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        keep = subprocess.Popen([sys.executable, "-c",
                                 "import sys\n"
                                 "chosen = set(map(int, open(sys.argv[1])))\n"
                                 "for n, line in enumerate(sys.stdin):\n"
                                 "    if n in chosen: sys.stdout.write(line)\n"
                                 "print(n + 1)\n", write_numbers(folder, wanted)],
                                stdin=judge.stdout, stdout=out, text=True)
        judge.stdout.close()
        for n, line in enumerate(made.stdout):
            if n in chosen:
                inputs[n] = line
            judge.stdin.write(line)
        judge.stdin.close()
        if (made.wait(), judge.wait(), keep.wait()) != (0, 0, 0):
            sys.exit("the batch run failed")
    *records, count = (folder / "out").read_text(encoding="utf-8").splitlines()
    if int(count) != lines or len(records) != len(wanted):
        sys.exit(f"{count} lines came out for {lines}")
    return [(n, inputs[n], record) for n, record in zip(wanted, records)]


def write_numbers(folder, numbers):
    path = folder / "numbers"
    path.write_text("".join(f"{n}\n" for n in numbers))
    return path


def main():
    wrong = 0
    with tempfile.TemporaryDirectory() as name:
        folder = Path(name)
        for n, line, record in batch(COUNT, folder):
            for what in differences(json.loads(record), explained(line, folder)):
                print(f"line {n + 1}: {what}")
                wrong += 1
    print(f"{min(SAMPLES, COUNT):,} of {COUNT:,} lines were sampled; {wrong} differences")
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
