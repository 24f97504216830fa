"""Finds the commands that the pages show: in the code blocks of Markdown, and between .nf and .fi
of man pages.

A line behind a prompt is a command, and what follows it up to the next prompt is what it prints:

    $ quillfence-data range list exempt_ips.range      a shell's
    C:\\> quillfence.exe --version                      Windows' command prompt's
    PS> quillfence.exe --version                       PowerShell's

In a block without a prompt every line is a command, unless the block plainly is something else (a
dump of bytes, JSON). A command goes on in the next line behind a backslash, behind "|" and within
quotes. "$ echo $?" shows the exit status of the command before it, "$ echo ${PIPESTATUS[0]}" that
of the first one of a pipe.
"""

import re
import shlex
import textwrap
from dataclasses import dataclass

PROMPTS = {"$ ": "shell", "C:\\> ": "cmd", "PS> ": "powershell"}
PROMPT = re.compile("|".join(re.escape(prompt) for prompt in PROMPTS))
STATUS_QUESTIONS = ("echo $?", "echo ${PIPESTATUS[0]}")
NO_COMMANDS = re.compile(r"[0-9a-f]{3,6}  |[{\[\"]")


@dataclass
class Command:
    page: str
    line: int
    text: str
    shell: str = "shell"
    shown: str | None = None  # what it prints; None where the page does not say
    status: int = 0
    status_of_first: bool = False  # of a pipe's first program, not of its last

    def __str__(self):
        return f"{self.page}:{self.line}: {self.text}"


def markdown_blocks(text):
    """The code blocks: (number of the first line, text). They are fenced, or indented by four or
    more behind a blank line."""
    lines = text.split("\n")
    number = 0
    while number < len(lines):
        fence = re.match(r" *(```+|~~~+)", lines[number])
        beginning = number + bool(fence)
        if fence:
            number = beginning
            while number < len(lines) and not lines[number].lstrip().startswith(fence[1]):
                number += 1
        elif lines[number].startswith("    ") and (number == 0 or not lines[number - 1].strip()):
            while number < len(lines) and (lines[number].startswith("    ")
                                           or not lines[number].strip()):
                number += 1
        else:
            number += 1
            continue
        yield beginning + 1, textwrap.dedent("\n".join(lines[beginning:number])).rstrip("\n")
        number += bool(fence)


def manual_blocks(text):
    """The same of a man page."""
    for found in re.finditer(r"^\.nf\n(.*?)^\.fi$", text, re.MULTILINE | re.DOTALL):
        shown = re.sub(r"^\\&", "", found[1], flags=re.MULTILINE)
        shown = shown.replace("\\\\", "\\e").replace("\\-", "-").replace("\\e", "\\")
        shown = shown.replace("\\(aq", "'").replace("\\(dq", '"')
        yield text[:found.start(1)].count("\n") + 1, textwrap.dedent(shown).rstrip("\n")


def goes_on(command):
    if command.endswith("\\") or command.rstrip().endswith("|"):
        return True
    try:
        shlex.split(command, comments=True)
    except ValueError:  # an open quote
        return True
    return False


def take_command(lines):
    """The first command of some lines, which it is taken off."""
    command = lines.pop(0)
    while lines and goes_on(command):
        command += "\n" + lines.pop(0)
    return command


def commands_with_output(page, number, block):
    found, lines = [], block.split("\n")
    while lines:
        at = number + block.count("\n") + 1 - len(lines)
        prompt = PROMPT.match(lines[0])[0]
        text = take_command(lines)[len(prompt):]
        shown = ""
        while lines and not PROMPT.match(lines[0]):
            shown += lines.pop(0) + "\n"
        if text in STATUS_QUESTIONS:
            found[-1].status = int(shown)
            found[-1].status_of_first = text != "echo $?"
        else:
            found.append(Command(page, at, text, PROMPTS[prompt],
                                 shown.strip("\n") + "\n" if shown.strip() else ""))
    return found


def commands_alone(page, number, block):
    found, lines = [], block.split("\n")
    while lines:
        at = number + block.count("\n") + 1 - len(lines)
        text = take_command(lines)
        if shlex.split(text, comments=True):
            found.append(Command(page, at, text))
    return found


def parts_of(block):
    """A block's part in front of its first prompt, and the rest of it."""
    lines = block.split("\n")
    first = next((at for at, line in enumerate(lines) if PROMPT.match(line)), len(lines))
    return "\n".join(lines[:first]), "\n".join(lines[first:]), first


def blocks_of(page, text):
    return (markdown_blocks if page.endswith(".md") else manual_blocks)(text)


def commands_of(page, text, is_text):
    """All commands of a page, in their order. `is_text(page, block)` tells of a block without
    prompts that it holds none."""
    found = []
    for number, block in blocks_of(page, text):
        alone, with_output, first = parts_of(block)
        if alone.strip() and not NO_COMMANDS.match(alone) and not is_text(page, alone):
            found += commands_alone(page, number, alone.rstrip("\n"))
        if with_output:
            found += commands_with_output(page, number + first, with_output)
    return found
