#!/usr/bin/env python3
"""debian/: what the build installs is shared out among the packages as their lists say, works where
it was put, and has the version and the files that it speaks of. The packages themselves take long to
build: scripts/check-debian does that, by ./check --long.

    debian_test.py BUILD SOURCE CMAKE
"""

import os
import re
import shutil
import stat
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

from readme_samples import explained, files_of_tree, sample
from whole_program import environment, unable

BUILD, SOURCE, CMAKE = Path(sys.argv[1]), Path(sys.argv[2]), sys.argv[3]
PACKAGES = ("quillfence", "quillfence-policyd")
DOCUMENTS = "usr/share/doc/quillfence/"


def run(*command, **settings):
    done = subprocess.run(command, stdin=subprocess.DEVNULL, capture_output=True, text=True,
                          env=environment(**settings), timeout=400, check=False)
    return done.returncode, done.stdout, done.stderr


def project_version():
    project = re.search(r"project\([^)]*VERSION ([0-9.]+)", (SOURCE / "CMakeLists.txt").read_text())
    return project.group(1)


def control(name):
    """The paragraphs of a control file below debian/."""
    text = re.sub(r"^#.*\n", "", (SOURCE / "debian" / name).read_text(), flags=re.MULTILINE)
    found = []
    for paragraph in re.split(r"\n\n+", text.strip()):
        fields = re.findall(r"^([\w-]+):[ \t]*(.*(?:\n[ \t].*)*)", paragraph, re.MULTILINE)
        found.append({name: re.sub(r"\s+", " ", value).strip() for name, value in fields})
    return found


class Installed(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.temporary = tempfile.TemporaryDirectory(prefix="debian-")
        cls.folder = Path(cls.temporary.name)
        cls.tree = cls.folder / "tree"
        status, stdout, stderr = run(CMAKE, "--install", str(BUILD), "--prefix", "/usr",
                                     DESTDIR=str(cls.tree))
        if status:
            sys.exit(f"cmake --install: {stdout}{stderr}")
        cls.files = {path.relative_to(cls.tree).as_posix() for path in cls.tree.rglob("*")
                     if path.is_file()}

    @classmethod
    def tearDownClass(cls):
        cls.temporary.cleanup()

    def taken(self, line):
        """What a line of debian/*.install takes."""
        pattern = line.split()[0]
        return {path.relative_to(self.tree).as_posix() for top in self.tree.glob(pattern)
                for path in [top, *top.rglob("*")] if path.is_file()}

    def in_package(self, package):
        lines = (SOURCE / f"debian/{package}.install").read_text().splitlines()
        return [(line, self.taken(line)) for line in lines]

    def test_each_file_is_in_one_package(self):
        all_taken = []
        for package in PACKAGES:
            for line, files in self.in_package(package):
                self.assertTrue(files, f"{package}: {line} takes nothing")
                all_taken += files
        self.assertEqual(sorted(all_taken), sorted(self.files))

    def test_contents(self):
        want = {DOCUMENTS + "README.md", DOCUMENTS + "CHANGES.md"}
        for program in ("quillfence", "quillfence-data", "quillfence-replayer"):
            want |= {f"usr/bin/{program}", f"usr/share/man/man1/{program}.1",
                     f"usr/share/bash-completion/completions/{program}"}
        pages = {name for name in files_of_tree(SOURCE, "docs") if not name.startswith("docs/man/")}
        want |= {DOCUMENTS + name for name in pages | files_of_tree(SOURCE, "examples")}
        self.assertIn(DOCUMENTS + "examples/drive_c/quillfence/blocked_ips", want)
        found = set().union(*(files for _, files in self.in_package("quillfence")))
        self.assertEqual(found, want)
        found = set().union(*(files for _, files in self.in_package("quillfence-policyd")))
        self.assertEqual(found, {
            "etc/logrotate.d/quillfence-policyd",
            "usr/lib/systemd/system/quillfence-policyd.service",
            "usr/lib/systemd/system/quillfence-policyd.socket", "usr/lib/sysusers.d/quillfence.conf",
            "usr/share/doc/quillfence-policyd/examples/quillfence.rules.yml"})

    def test_modes(self):
        for name in self.files:
            executable = name.startswith("usr/bin/") or \
                re.search(r"/examples/scale/.*\.(py|sh)$", name)
            mode = stat.S_IMODE((self.tree / name).stat().st_mode)
            self.assertEqual(oct(mode), "0o755" if executable else "0o644", name)

    def test_the_program_replays_the_sample(self):
        arguments, shown = sample(SOURCE)
        drive = self.folder / "drive_c"
        shutil.copytree(self.tree / DOCUMENTS / "examples/drive_c", drive)
        got = run(str(self.tree / "usr/bin/quillfence-replayer"), *arguments,
                  QUILLFENCE_DRIVE_C=str(drive), QUILLFENCE_EVENT_LOG="-")
        self.assertEqual(got, (0, shown, ""))

    def test_the_program_explains_the_sample(self):
        arguments, shown = explained(SOURCE)
        drive = self.tree / DOCUMENTS / "examples/drive_c"
        status, stdout, stderr = run(str(self.tree / "usr/bin/quillfence"), "explain", *arguments,
                                     QUILLFENCE_DRIVE_C=str(drive))
        self.assertEqual((status, stderr), (0, ""))
        self.assertEqual(stdout[:len(shown)], shown)

    def test_the_pages_lie_where_they_say(self):
        """What units, pages and README.Debian name below /usr is installed there."""
        named = set()
        for path in [*(SOURCE / "packaging/systemd").iterdir(), *(SOURCE / "docs").glob("*.md"),
                     *(SOURCE / "debian").glob("*README*")]:
            named |= set(re.findall(r"/(usr/(?:bin|share/doc)/[\w./-]*\w)", path.read_text()))
        self.assertIn("usr/bin/quillfence", named)
        made_later = {DOCUMENTS + "quillfence.spdx.json"}
        for name in named - made_later:
            self.assertTrue((self.tree / name).exists(), name)


class SourcePackage(unittest.TestCase):
    def test_versions_are_the_project_s(self):
        status, version, stderr = run("dpkg-parsechangelog", "-l", str(SOURCE / "debian/changelog"),
                                      "-S", "Version")
        self.assertEqual((status, version.strip()), (0, project_version()), stderr)
        newest = re.search(r"^## (\S+)", (SOURCE / "CHANGES.md").read_text(), re.MULTILINE).group(1)
        self.assertEqual(newest, project_version())

    def test_the_service_comes_with_the_program_of_its_version(self):
        _, *packages = control("control")
        self.assertEqual(tuple(package["Package"] for package in packages), PACKAGES)
        self.assertIn("quillfence (= ${binary:Version})", packages[1]["Depends"])

    def test_what_the_tree_needs_is_asked_for(self):
        """By the package what ./check installs to build with, but for ninja."""
        common = (SOURCE / "scripts/common.sh").read_text()
        wanted = set(re.search(r"^packages_build=\((.*)\)$", common, re.MULTILINE).group(1).split())
        asked = set(re.findall(r"(?:^|, )([\w.+-]+)", control("control")[0]["Build-Depends"]))
        self.assertEqual(wanted - {"g++", "ninja-build"} - asked, set())  # g++ is build-essential

    def test_its_tests_are_there(self):
        named = [name for paragraph in control("tests/control")
                 for name in paragraph["Tests"].split()]
        there = {path.name for path in (SOURCE / "debian/tests").iterdir()} - {"control"}
        self.assertEqual(set(named), there)
        for name in named:
            self.assertTrue(os.access(SOURCE / "debian/tests" / name, os.X_OK), name)

    def test_no_licence_is_claimed(self):
        paragraphs = control("copyright")
        self.assertEqual({paragraph["License"].split()[0] for paragraph in paragraphs[1:]},
                         {"none-granted"})


if __name__ == "__main__":
    if not shutil.which("dpkg-parsechangelog"):
        unable("there is no dpkg-parsechangelog")
    unittest.main(argv=sys.argv[:1], verbosity=2)
