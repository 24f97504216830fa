"""What can be said of a command without running it: that its files, options, presets, targets and
tests are there."""

import fnmatch
import functools
import json
import re
import shlex
import subprocess
from pathlib import Path

PROGRAMS = ("quillfence", "quillfence-data")


def programs_of(text):
    """The programs that a command of a shell runs."""
    lexer = shlex.shlex(text.replace("\\\n", " "), posix=True, punctuation_chars="|&;()")
    lexer.whitespace_split = True
    found, first = [], True
    for word in lexer:
        if word and set(word) <= set("|&;()"):
            first = True
        elif first and not re.match(r"\w+=", word):
            found.append(word)
            first = False
    return found


class Lookup:
    """Of a source folder and its build folder; `launched` maps the names of our programs to the
    words that start them."""

    def __init__(self, source, build, ctest, launched):
        self.source, self.build, self.ctest, self.launched = source, build, ctest, launched

    @functools.cache
    def help_of(self, *words):
        """What --help of a program's subcommand prints; nothing when there is no such."""
        done = subprocess.run([*self.launched[words[0]], *words[1:], "--help"], timeout=60,
                              stdin=subprocess.DEVNULL, capture_output=True, check=False)
        return done.stdout.decode() if done.returncode == 0 else ""

    def subcommand(self, words):
        """A program and the subcommands behind it, of the words of a command."""
        found = words[:1]
        for word in words[1:]:
            text = self.help_of(*found)
            section = text.partition("\nSubcommands:\n")[2].partition("\n\n")[0]
            if not re.search(rf"^  {re.escape(word)} ", section, re.MULTILINE):
                break
            found = (*found, word)
        return found

    def our_program(self, words):
        """The options that a command of ours has and its help has not."""
        if words[0] == "./explain":
            words = ("quillfence", "explain", *words[1:])
        found = self.subcommand((re.sub(r"\.exe$", "", words[0]), *words[1:]))
        text = self.help_of(*found)
        options = {re.match(r"--[\w-]+", word)[0] for word in words if re.match(r"--\w", word)}
        return [f"{' '.join(found)} has no {option}" for option in sorted(options)
                if not re.search(rf"(?<![\w-]){option}(?![\w-])", text)]

    def synopsis(self, text):
        """Options, and VALUES by their place, that a synopsis has and the help has not."""
        by_place = re.sub(r"--[a-z-]+ [A-Z]+", "", text)
        words = tuple(re.findall(r"[\w./-]+", text))
        found = self.subcommand(words)
        values = re.findall(r"[A-Z]+", self.help_of(*found))
        return self.our_program(words) + [
            f"{' '.join(found)} has no {word}" for word in re.findall(r"\b[A-Z]+\b", by_place)
            if word not in values]

    @functools.cache
    def tests(self):
        listed = subprocess.run([self.ctest, "--test-dir", self.build, "-N"], timeout=60,
                                capture_output=True, text=True, check=True).stdout
        return re.findall(r"^ +Test +#\d+: (\S+)", listed, re.MULTILINE)

    def run_of_ctest(self, words):
        problems = self.preset(words)
        if "-R" in words:
            wanted = words[words.index("-R") + 1]
            if not any(re.search(wanted, name) for name in self.tests()):
                problems.append(f"no test is named {wanted}")
        return problems

    def preset(self, words):
        presets = json.loads((self.source / "CMakePresets.json").read_text())
        names = {preset["name"] for kind in ("configurePresets", "testPresets")
                 for preset in presets[kind]}
        return [f"there is no preset {name}" for option, name in zip(words, words[1:])
                if option == "--preset" and name not in names]

    def run_of_cmake(self, words):
        problems = self.preset(words)
        if "--target" in words:
            target = words[words.index("--target") + 1]
            if f"\nbuild {target}: " not in (self.build / "build.ninja").read_text():
                problems.append(f"there is no target {target}")
        return problems

    def test_program(self, words):
        """Of a test program's filter: that it leaves tests."""
        _, _, name, wanted = (*re.match(r"(build/linux/)(.*/)?(\w+)_test$", words[0]).groups(),
                              words[1].partition("=")[2])
        path = Path("tests") / words[0].partition("/tests/")[2]
        text = (self.source / path.with_suffix(".cpp")).read_text()
        cases = re.findall(r"^TEST(?:_F|_P)?\((\w+), (\w+)\)", text, re.MULTILINE)
        found = any(fnmatch.fnmatchcase(".".join(case), wanted) for case in cases)
        return [] if found else [f"{name} has no test {wanted}"]

    def script(self, words):
        """Of a script of the tree: that it is there, and has the options."""
        path = self.source / words[0]
        if not path.is_file():
            return [f"there is no {words[0]}"]
        text = path.read_text()
        return [f"{words[0]} has no {word}" for word in words if word.startswith("--")
                and word.partition("=")[0] not in text]

    def problems_of(self, text):
        """What is wrong with a command that is not run."""
        words = tuple(shlex.split(text, comments=True))
        program = words[0]
        if re.sub(r"\.exe$", "", program) in PROGRAMS or program == "./explain":
            return self.our_program(words)
        if program == "ctest":
            return self.run_of_ctest(words)
        if program == "cmake":
            return self.run_of_cmake(words)
        if re.match(r"build/linux/tests/", program):
            return self.test_program(words)
        if re.match(r"(\./|scripts/|bench/|examples/)", program):
            return self.script(words)
        return []
