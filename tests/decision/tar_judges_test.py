#!/usr/bin/env python3
"""Archives, judged by others: what is written here is read by GNU tar and by Python's tarfile, and
what they write is read here, or refused with a reason.

    tar_judges_test.py [--runner=LAUNCHER] TAR_TOOL SOURCE_FOLDER

LAUNCHER runs the tool on a Windows build (a list as CMake has it).
"""

import hashlib
import io
import os
import re
import shutil
import subprocess
import sys
import tarfile
import tempfile
import unittest
from pathlib import Path

RUNNER = []
if sys.argv[1].startswith("--runner="):
    RUNNER = [word for word in sys.argv.pop(1).split("=", 1)[1].split(";") if word]
TOOL = os.path.abspath(sys.argv.pop(1))
PAGE = Path(sys.argv.pop(1)) / "docs/formats/bundle.md"
TAR = shutil.which("tar")

ENTRIES = [
    ("case.json", 2, 1700000000),
    ("c", None, 0),
    ("c/quillfence/from_blacklist", 0, 1),
    ("c/quillfence/bms/one block", 512, 1700000001),
    ("c/quillfence/bms/bots.bms", 200001, 1700000002),
    ("c/Program Files/Mail Enable/Größe €.TAB", 10, 1700000003),
    ("c/" + "f" * 90 + "/" + "n" * 90, 7, 1699999999),
    ("c/" + "f" * 200 + "/" + "n" * 200, 7, 5),
    ("d/" + "l" * 150, None, 6),
]


def contents(size):
    return bytes(i % 251 for i in range(min(size, 251))) * (size // 251 + 1)


def wanted(entries):
    return [(name, size, time, hashlib.sha256(contents(size or 0)[:size or 0]).hexdigest())
            for name, size, time in entries]


class Case(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="quillfence-tar-")
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)

    def tool(self, *arguments, text=""):
        with tempfile.TemporaryFile() as given, tempfile.TemporaryFile() as out, \
                tempfile.TemporaryFile() as err:
            given.write(text.encode())
            given.seek(0)
            status = subprocess.run([*RUNNER, TOOL, *arguments], stdin=given, stdout=out,
                                    stderr=err, cwd=self.folder, timeout=120).returncode
            out.seek(0)
            err.seek(0)
            return status, out.read().decode(), err.read().decode()

    def pack(self, entries=ENTRIES):
        lines = "".join(f"{name}\t{'-' if size is None else size}\t{time}\n"
                        for name, size, time in entries)
        self.assertEqual(self.tool("pack", "x.tar", text=lines), (0, "", ""))

    def listed(self):
        status, out, err = self.tool("list", "x.tar")
        self.assertEqual((status, err), (0, ""))
        rows = [line.split("\t") for line in out.splitlines()]
        return [(name, None if size == "-" else int(size), int(time), digest)
                for name, size, time, digest in rows]


class WrittenHere(Case):
    def test_pythons_tarfile_reads_it(self):
        self.pack()
        found = []
        with tarfile.open(self.folder / "x.tar", "r:") as archive:
            for member in archive:
                self.assertEqual((member.uid, member.gid, member.uname, member.gname),
                                 (0, 0, "", ""))
                self.assertEqual(member.mode, 0o700 if member.isdir() else 0o600)
                self.assertTrue(member.isdir() or member.isreg())
                bytes_ = archive.extractfile(member).read() if member.isreg() else b""
                found.append((member.name, len(bytes_) if member.isreg() else None, member.mtime,
                              hashlib.sha256(bytes_).hexdigest()))
        self.assertEqual(found, wanted(ENTRIES))

    @unittest.skipUnless(TAR, "there is no tar")
    def test_gnu_tar_reads_it(self):
        self.pack()
        listing = subprocess.run([TAR, "--utc", "--quoting-style=literal", "-tvf", "x.tar"],
                                 cwd=self.folder, capture_output=True, text=True,
                                 env={**os.environ, "LC_ALL": "C.UTF-8"})
        self.assertEqual((listing.returncode, listing.stderr), (0, ""))
        lines = listing.stdout.splitlines()
        self.assertEqual(len(lines), len(ENTRIES))
        for line, (name, size, _) in zip(lines, ENTRIES):
            self.assertTrue(line.startswith("drwx------ 0/0" if size is None else "-rw------- 0/0"),
                            line)
            self.assertTrue(line.endswith(" " + name + ("/" if size is None else "")), line)
        os.mkdir(self.folder / "there")
        unpacked = subprocess.run([TAR, "-xf", "../x.tar"], cwd=self.folder / "there",
                                  capture_output=True, text=True)
        self.assertEqual((unpacked.returncode, unpacked.stderr), (0, ""))
        for name, size, time in ENTRIES:
            path = self.folder / "there" / name
            self.assertEqual(path.is_dir(), size is None, name)
            if size is not None:
                self.assertEqual(path.read_bytes(), contents(size)[:size], name)
                self.assertEqual(int(path.stat().st_mtime), time)

    def test_the_sample_of_the_format_page(self):
        header = bytearray(512)
        for offset, line in re.findall(r"^    ([0-9a-f]{3})  ((?:[0-9a-f]{2}[ \n]){16})", PAGE.read_text(),
                                       re.MULTILINE):
            header[int(offset, 16):int(offset, 16) + 16] = bytes.fromhex(line)
        member = tarfile.TarInfo.frombuf(bytes(header), "utf-8", "strict")
        self.assertEqual((member.name, member.size, member.mode), ("case.json", 3, 0o600))
        self.pack([("case.json", 3, 0)])
        self.assertEqual((self.folder / "x.tar").read_bytes()[:512], bytes(header))

    def test_the_same_entries_are_the_same_bytes(self):
        self.pack()
        first = (self.folder / "x.tar").read_bytes()
        self.pack()
        self.assertEqual((self.folder / "x.tar").read_bytes(), first)

    def test_it_reads_it_itself(self):
        self.pack()
        self.assertEqual(self.listed(), wanted(ENTRIES))


class WrittenElsewhere(Case):
    def test_by_python_in_each_format(self):
        for form in (tarfile.USTAR_FORMAT, tarfile.GNU_FORMAT, tarfile.PAX_FORMAT):
            entries = [entry for entry in ENTRIES
                       if form != tarfile.USTAR_FORMAT or len(entry[0].encode()) < 200]
            with tarfile.open(self.folder / "x.tar", "w", format=form) as archive:
                for name, size, time in entries:
                    member = tarfile.TarInfo(name)
                    member.mtime = time
                    member.uid, member.uname = 4711, "somebody"
                    if size is None:
                        member.type = tarfile.DIRTYPE
                    else:
                        member.size = size
                    archive.addfile(member, io.BytesIO(contents(size or 0)))
            with self.subTest(form):
                self.assertEqual(self.listed(), wanted(entries))

    @unittest.skipUnless(TAR, "there is no tar")
    def test_by_gnu_tar_in_each_format(self):
        for name, size, _ in ENTRIES:
            path = self.folder / "tree" / name
            if size is None:
                path.mkdir(parents=True, exist_ok=True)
            else:
                path.parent.mkdir(parents=True, exist_ok=True)
                path.write_bytes(contents(size)[:size])
        for form in ("gnu", "pax", "posix"):
            for what in ([".", ], ["case.json", "c", "d"]):
                subprocess.run([TAR, "--format=" + form, "--sort=name", "-cf", "../x.tar", *what],
                               cwd=self.folder / "tree", check=True)
                with self.subTest(f"{form} {what}"):
                    files = {row[0]: row for row in self.listed() if row[1] is not None}
                    self.assertEqual({(name, digest) for name, _, _, digest in files.values()},
                                     {(row[0], row[3]) for row in wanted(ENTRIES)
                                      if row[1] is not None})

    def refused(self, *members, form=tarfile.PAX_FORMAT):
        with tarfile.open(self.folder / "x.tar", "w", format=form) as archive:
            for member in members:
                archive.addfile(member, io.BytesIO(contents(min(member.size, 1000))))
        status, _, err = self.tool("unpack", "x.tar", "there")
        self.assertEqual(status, 1)
        self.assertFalse((self.folder / "there").exists())
        return err

    @staticmethod
    def member(name, type_=tarfile.REGTYPE, link="", size=0):
        made = tarfile.TarInfo(name)
        made.type, made.linkname, made.size = type_, link, size
        return made

    def test_what_leads_elsewhere(self):
        for name, why in (
                ("/etc/passwd", "has an absolute name"),
                ("../x", 'leads out of its folder with ".."'),
                ("c/../../x", 'leads out of its folder with ".."'),
                ("c:/x", "has a colon in its name, which is a drive or a stream on Windows"),
                ("c\\..\\x", "has a backslash in its name"),
                ("c/aux", "has the name of a device on Windows"),
                ("c/x ", "has a name that ends in a dot or blank, which Windows drops")):
            for form in (tarfile.GNU_FORMAT, tarfile.PAX_FORMAT):
                shown = name.replace("\\", "\\")
                self.assertEqual(self.refused(self.member(name), form=form),
                                 f'x.tar: "{shown}": {why}')

    def test_what_is_no_file(self):
        for type_, why in ((tarfile.SYMTYPE, "is a link"), (tarfile.LNKTYPE, "is a hard link"),
                           (tarfile.CHRTYPE, "is a device"), (tarfile.BLKTYPE, "is a device"),
                           (tarfile.FIFOTYPE, "is a pipe")):
            self.assertEqual(self.refused(self.member("a"), self.member("c/x", type_, "/etc")),
                             f'x.tar: "c/x": {why}')
        # The classic: a link, and a file through it.
        self.assertEqual(self.refused(self.member("c", tarfile.SYMTYPE, "/tmp"),
                                      self.member("c/x")), 'x.tar: "c": is a link')

    def test_names_that_do_not_go_together(self):
        self.assertEqual(self.refused(self.member("c/x"), self.member("c/x")),
                         'x.tar: "c/x": is there twice')
        self.assertEqual(self.refused(self.member("c/x"), self.member("C/y")),
                         'x.tar: "C/y": differs from "c" in letter case alone')
        self.assertEqual(self.refused(self.member("c"), self.member("c/x")),
                         'x.tar: "c/x": "c" is a file and a folder')

    def test_a_size_of_8_gib(self):
        entry = self.member("large", size=8 << 30)
        (self.folder / "x.tar").write_bytes(
            entry.tobuf(tarfile.GNU_FORMAT) + bytes(1024))
        self.assertEqual(self.tool("list", "x.tar")[2],
                         '"large": its size is a binary number, which is not read here')
        (self.folder / "x.tar").write_bytes(entry.tobuf(tarfile.PAX_FORMAT) + bytes(1024))
        self.assertEqual(self.tool("list", "x.tar")[2], 'is cut off in or behind "large"')

    @unittest.skipUnless(TAR and not RUNNER, "there is no tar, or files are not sparse")
    def test_a_sparse_file(self):
        with open(self.folder / "x", "wb") as file:
            file.truncate(1 << 20)
        for form, said in (("gnu", '"x": is a sparse file'), ("pax", "is a sparse file")):
            subprocess.run([TAR, "--sparse", "--format=" + form, "-cf", "x.tar", "x"],
                           cwd=self.folder, check=True)
            self.assertIn(said, self.tool("list", "x.tar")[2])

    def test_what_is_unpacked(self):
        self.pack([entry for entry in ENTRIES if entry[0].isascii() and len(entry[0]) < 150])
        self.assertEqual(self.tool("unpack", "x.tar", "there"), (0, "", ""))
        self.assertEqual((self.folder / "there/c/quillfence/bms/bots.bms").read_bytes(),
                         contents(200001)[:200001])
        self.assertEqual(self.tool("unpack", "x.tar", "there"), (1, "", "there: is not empty"))


if __name__ == "__main__":
    unittest.main()
