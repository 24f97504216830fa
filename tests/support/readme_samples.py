"""What the README shows of the samples, and the arguments that the scripts beside it run them with;
and what the packages are to hold."""

import re
import shlex


def sample(source):
    """The arguments of the sample that ./replay replays, and what the README shows for it."""
    script = (source / "replay").read_text()
    readme = (source / "README.md").read_text()
    arguments = shlex.split(re.search(r"^ +set -- (R .*)$", script, re.MULTILINE).group(1))
    return arguments, re.search(r"^    (\{\"spam_hits\".*\})$", readme, re.MULTILINE).group(1)


def explained(source):
    """The arguments of the sample that ./explain explains, and the beginning of the answer that
    the README shows."""
    script = (source / "explain").read_text()
    readme = (source / "README.md").read_text()
    arguments = shlex.split(re.search(r"^ +set -- (--.*)$", script, re.MULTILINE).group(1))
    block = re.search(r"^    (REJECT by (?:.*\n    )*)\.\.\.$", readme, re.MULTILINE).group(1)
    return arguments, block.replace("\n    ", "\n")


def files_of_tree(source, *folders):
    """The files of some folders, as seen from the top of the tree."""
    return {path.relative_to(source).as_posix() for folder in folders
            for path in (source / folder).rglob("*") if path.is_file()}
