#!/usr/bin/env python3
"""quillfence collect as its user meets it: the file, its rights, and what others read in it.

    quillfence_collect_test.py [--runner=LAUNCHER] PROGRAM SOURCE_FOLDER

LAUNCHER runs the program on a Windows build (a list as CMake has it).
"""

import hashlib
import json
import os
import re
import shutil
import signal
import subprocess
import tarfile
import tempfile
import unittest
from pathlib import Path

from whole_program import ARGUMENTS, RUNNER, FolderTest, main, run

PROGRAM, SOURCE = (Path(argument).resolve() for argument in ARGUMENTS)
PAGE = SOURCE / "docs/formats/bundle.md"
TAR = shutil.which("tar")
DONE, NO, FAILED, PARTLY = 0, 1, 2, 3


class Collect(FolderTest):
    def setUp(self):
        super().setUp()
        self.file("server/quillfence/control/enabled", b"1\n")
        self.file("server/quillfence/from_blacklist", b"*@foe.example\n")
        self.file("server/quillfence/bms/lists_to_update", b"bots.bms\n")
        self.file("server/quillfence/bms/bots.bms", bytes(100_000))

    def collect(self, *arguments, prepare=None):
        return run([PROGRAM, "collect", *(arguments or ("out.tar", "server/quillfence"))],
                   self.folder, prepare=prepare)

    def test_the_manifest_tells_what_the_archive_holds(self):
        status, out, err = self.collect()
        self.assertEqual((status, err), (DONE, ""))
        self.assertIn("out.tar: 4 files, 100025 bytes\n", out)
        with tarfile.open(self.folder / "out.tar") as archive:
            names = archive.getnames()
            self.assertEqual(names[:2], ["manifest.json", "verify.json"])
            manifest = json.load(archive.extractfile("manifest.json"))
            self.assertEqual(manifest["schema"], "quillfence.collection/1")
            self.assertEqual(manifest["base"], "server/quillfence")
            for file in manifest["files"]:
                content = archive.extractfile(file["name"]).read()
                self.assertEqual(len(content), file["bytes"])
                self.assertEqual(hashlib.sha256(content).hexdigest(), file["sha256"])
            self.assertEqual({file["name"] for file in manifest["files"]},
                             {member.name for member in archive if member.isreg()} -
                             {"manifest.json", "verify.json"})
            self.assertIsInstance(json.load(archive.extractfile("verify.json"))["findings"], list)

    def test_the_manifest_of_the_format_page(self):
        shutil.rmtree(self.folder / "server")
        self.file("server/quillfence/Control/enabled", b"1\n")
        self.file("server/quillfence/from_blacklist", b"*@foe.example\n")
        self.file("server/quillfence/log/qflog", b"a line\n")
        self.file("server/quillfence/notes.txt", b"")
        for name in ("Control/enabled", "from_blacklist"):
            os.utime(self.folder / "server/quillfence" / name, (1795168800, 1795168800))
        self.assertEqual(self.collect()[0], DONE)
        with tarfile.open(self.folder / "out.tar") as archive:
            text = archive.extractfile("manifest.json").read().decode()
        text = re.sub(r'"time": "[^"]*\.\d{3}Z"', '"time": "2026-11-22T12:00:00.000Z"', text)
        text = re.sub(r'"version": "[^"]*"', '"version": "1.0.0"', text)
        text = re.sub(r'"missing": \[.*?\n  \]', '"missing": [\n    ...\n  ]', text, flags=re.DOTALL)
        shown = re.search(r"^    \{\n.*?^    \}\n", PAGE.read_text(), re.DOTALL | re.MULTILINE).group()
        self.assertEqual(text, re.sub(r"^    ", "", shown, flags=re.MULTILINE))

    @unittest.skipUnless(TAR, "there is no tar")
    def test_gnu_tar_unpacks_it(self):
        self.assertEqual(self.collect()[0], DONE)
        (self.folder / "there").mkdir()
        unpacked = subprocess.run([TAR, "-xf", "../out.tar"], cwd=self.folder / "there",
                                  capture_output=True, text=True)
        self.assertEqual((unpacked.returncode, unpacked.stderr), (0, ""))
        self.assertEqual((self.folder / "there/c/quillfence/from_blacklist").read_bytes(),
                         b"*@foe.example\n")

    def test_a_progress_bar_is_for_terminals(self):
        self.assertEqual(self.collect()[2], "")

    def test_a_base_that_is_none(self):
        status, out, err = self.collect("out.tar", "server")
        self.assertEqual((status, out), (FAILED, ""))
        self.assertIn("server: holds no file that the engine knows; BASEDIR is the folder "
                      "quillfence itself", err)
        self.assertFalse((self.folder / "out.tar").exists())
        status, out, err = self.collect("out.tar", "nowhere")
        self.assertEqual((status, out), (FAILED, ""))
        self.assertEqual(err, "quillfence: nowhere: is no folder; give the one that holds "
                              '"control" and "bms"\n')
        status, out, err = self.collect("no/such/out.tar", "server/quillfence")
        self.assertEqual((status, out), (FAILED, ""))
        self.assertTrue(err.startswith("quillfence: no/such/out.tar: could not be written: "), err)

    @unittest.skipIf(RUNNER, "rights are those of the folder there")
    def test_it_is_for_its_owner_alone(self):
        self.file("out.tar", b"old")
        os.chmod(self.folder / "out.tar", 0o666)
        before = os.umask(0)
        self.addCleanup(os.umask, before)
        self.assertEqual(self.collect()[0], DONE)
        self.assertEqual((self.folder / "out.tar").stat().st_mode & 0o777, 0o600)

    @unittest.skipIf(RUNNER or os.geteuid() == 0 and not shutil.which("setpriv"), "")
    def test_an_unreadable_file_is_named(self):
        os.chmod(self.folder / "server/quillfence/from_blacklist", 0)
        os.chmod(self.folder, 0o777)

        def somebody():
            if os.geteuid() == 0:
                os.setgroups([])
                os.setgid(12345)
                os.setuid(12345)

        status, out, err = self.collect(prepare=somebody)
        self.assertEqual(status, PARTLY)
        self.assertEqual(err, "quillfence: c/quillfence/from_blacklist: could not be collected: "
                              "Permission denied\n")
        with tarfile.open(self.folder / "out.tar") as archive:
            self.assertNotIn("c/quillfence/from_blacklist", archive.getnames())
            manifest = json.load(archive.extractfile("manifest.json"))
            self.assertEqual(manifest["unreadable"], [{"name": "c/quillfence/from_blacklist",
                                                       "error": "Permission denied"}])

    @unittest.skipIf(RUNNER, "the system has no such limit")
    def test_no_room_for_it(self):
        import resource
        for room in (0, 511, 1024, 4096, 65536, 100_000):
            def little_room():
                signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
                resource.setrlimit(resource.RLIMIT_FSIZE, (room, room))

            (self.folder / "out.tar").write_bytes(b"old")
            with tempfile.TemporaryDirectory():
                process = subprocess.Popen(
                    [PROGRAM, "collect", "out.tar", "server/quillfence"], cwd=self.folder,
                    stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                    preexec_fn=little_room)
                out, err = process.communicate(timeout=60)
            self.assertEqual((process.returncode, out), (FAILED, ""), room)
            self.assertIn("out.tar: ", err)
            self.assertIn("File too large", err)
            self.assertEqual((self.folder / "out.tar").read_bytes(), b"old")
            self.assertEqual(sorted(path.name for path in self.folder.iterdir()),
                             ["out.tar", "server"])


if __name__ == "__main__":
    main()
