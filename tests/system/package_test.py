#!/usr/bin/env python3
"""The packages for Windows: made by cpack, unpacked, and used by the README's steps.

    package_test.py BUILD SOURCE CPACK LAUNCHER

The zip is unpacked on drive c: of a fresh Wine prefix, where the MSI is installed, too.
"""

import hashlib
import json
import os
import re
import shutil
import struct
import subprocess
import sys
import tempfile
import unittest
import zipfile
from pathlib import Path

from readme_samples import explained, files_of_tree, sample
from whole_program import unable

BUILD, SOURCE = Path(sys.argv[1]), Path(sys.argv[2])
CPACK, *LAUNCHER = sys.argv[3:]

SOURCE_KEY = r"HKLM\SYSTEM\CurrentControlSet\Services\EventLog\Application\Quillfence"
OUR_KEY = r"HKLM\SOFTWARE\Quillfence"
PATH_KEY = r"HKLM\SYSTEM\CurrentControlSet\Control\Session Manager\Environment"
INSTALLED_KEY = r"HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion\Uninstall"
EVENT = 0x40020100
RT_MESSAGETABLE = 11


def run(*command, env=None, cwd=None):
    """Exit status, standard output and standard error. They go to files: Wine's own background
    processes would keep pipes open."""
    with tempfile.TemporaryFile() as stdout, tempfile.TemporaryFile() as stderr:
        status = subprocess.run(command, stdin=subprocess.DEVNULL, stdout=stdout, stderr=stderr,
                                env={**os.environ, **(env or {})}, cwd=cwd, timeout=400).returncode
        stdout.seek(0)
        stderr.seek(0)
        return (status, stdout.read().decode(errors="replace"),
                stderr.read().decode(errors="replace"))


def make_package(folder, ending):
    status, stdout, stderr = run(CPACK, "--config", str(BUILD / "CPackConfig.cmake"), "-B", folder,
                                 cwd=BUILD)
    if status:
        sys.exit(f"cpack: {stdout}{stderr}")
    found = list(Path(folder).glob("*" + ending))
    if len(found) != 1:
        sys.exit(f"cpack made {found}")
    return found[0]


def files_in(folder):
    return {str(path.relative_to(folder)): path.read_bytes() for path in folder.rglob("*")
            if path.is_file()}


class PackageTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.temporary = tempfile.TemporaryDirectory(prefix="package-")
        cls.folder = Path(cls.temporary.name)
        cls.package = make_package(str(cls.folder / "made"), ".zip")

    @classmethod
    def tearDownClass(cls):
        cls.temporary.cleanup()

    def test_a_checksum_lies_beside_the_package(self):
        written = Path(str(self.package) + ".sha256").read_text().split()
        counted = run("sha256sum", str(self.package))[1].split()[0]
        self.assertEqual(written, [counted, self.package.name])


class PortableExecutable:
    """As much of a program's resources as an event viewer reads."""

    def __init__(self, data):
        self.data = data
        headers = self.u32(0x3C)
        sections, optional_size = self.u16(headers + 6), self.u16(headers + 20)
        optional = headers + 24
        resources = self.u32(optional + 112 + 2 * 8)
        for i in range(sections):
            at = optional + optional_size + 40 * i
            address, size, offset = self.u32(at + 12), self.u32(at + 16), self.u32(at + 20)
            if address <= resources < address + size:
                self.shift = offset - address
                self.root = resources + self.shift

    def u16(self, at):
        return struct.unpack_from("<H", self.data, at)[0]

    def u32(self, at):
        return struct.unpack_from("<I", self.data, at)[0]

    def entries(self, directory):
        for i in range(self.u16(directory + 12) + self.u16(directory + 14)):
            at = directory + 16 + 8 * i
            yield self.u32(at), self.root + (self.u32(at + 4) & 0x7FFFFFFF)

    def message(self, number):
        """The text of a message number in the first language, None when there is none."""
        types = dict(self.entries(self.root))
        _, names = next(self.entries(types[RT_MESSAGETABLE]))
        _, entry = next(self.entries(names))
        table = self.u32(entry) + self.shift
        for i in range(self.u32(table)):
            low, high, at = struct.unpack_from("<III", self.data, table + 4 + 12 * i)
            at += table
            for current in range(low, high + 1):
                length, unicode = self.u16(at), self.u16(at + 2)
                if current == number:
                    encoding = "utf-16-le" if unicode else "latin-1"
                    return self.data[at + 4:at + length].decode(encoding).rstrip("\0")
                at += length
        return None


class Windows(PackageTest):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.wine_environment = {"WINEPREFIX": str(cls.folder / "prefix")}
        status, _, stderr = cls.wine("wineboot", "--init")
        if status:
            sys.exit(f"Wine does not start: {stderr}")
        cls.drive = cls.folder / "prefix" / "drive_c"
        # Not where the MSI goes by itself, but with a blank as well.
        cls.program_folder = cls.drive / "Program Files" / "Quillfence zip"
        with zipfile.ZipFile(cls.package) as archive:
            archive.extractall(cls.folder / "zip")
        top, = (cls.folder / "zip").iterdir()
        shutil.copytree(top, cls.program_folder)

    @classmethod
    def tearDownClass(cls):
        cls.wine("wineboot", "--kill")
        cls.wine("--server", "-w")  # which writes the registry down when it ends
        super().tearDownClass()

    @classmethod
    def wine(cls, *command, cwd=None):
        return run(*LAUNCHER, *command, env=cls.wine_environment, cwd=cwd)

    def script(self, name):
        return self.wine("cmd", "/c", rf"C:\Program Files\Quillfence zip\{name}")

    def values(self, key, *options):
        """The values of a key of the registry; None when there is none."""
        status, stdout, _ = self.wine("reg", "query", key, *options)
        if status:
            return None
        return {name: data for name, data in
                re.findall(r"^ +(\w+) +REG_\w+ +(.*?)\s*$", stdout, re.MULTILINE)}

    def registered(self):
        return self.values(SOURCE_KEY)

    def file_of(self, name):
        self.assertRegex(name, r"^[Cc]:\\")
        return self.drive / name[3:].replace("\\", "/")

    def assert_source_is(self, folder):
        values = self.registered()
        self.assertEqual(values, {"EventMessageFile": folder + "quillfence-replayer.exe",
                                  "TypesSupported": "0x7"})
        # What the Event Viewer does: it looks the event's number up in the registered file.
        program = PortableExecutable(self.file_of(values["EventMessageFile"]).read_bytes())
        self.assertEqual(program.message(EVENT).rstrip("\r\n"), "%1: %2")

    def test_contents(self):
        found = {str(path.relative_to(self.program_folder))
                 for path in self.program_folder.rglob("*") if path.is_file()}
        want = {"quillfence.exe", "quillfence-data.exe", "quillfence-replayer.exe", "install.cmd",
                "uninstall.cmd", "README.md", "CHANGES.md", "quillfence.spdx.json"}
        want |= files_of_tree(SOURCE, "docs", "examples")
        self.assertEqual(found, want)

    def test_what_is_linked_is_told_of_the_programs_as_they_are(self):
        """What spdx_test.py does not see: these programs are stripped."""
        document = json.loads((self.program_folder / "quillfence.spdx.json").read_text())
        told = {package["packageFileName"]: package["checksums"][0]["checksumValue"]
                for package in document["packages"] if "packageFileName" in package}
        programs = self.program_folder.glob("*.exe")
        self.assertEqual(told, {path.name: hashlib.sha256(path.read_bytes()).hexdigest()
                                for path in programs})

    def test_scripts_have_the_line_ends_of_windows(self):
        for name in ("install.cmd", "uninstall.cmd"):
            lines = (self.program_folder / name).read_bytes().split(b"\n")
            self.assertEqual(lines.pop(), b"")
            for line in lines:
                self.assertTrue(line.endswith(b"\r"), f"{name}: {line!r}")

    def test_the_source_is_registered_and_removed(self):
        self.assertIsNone(self.registered())
        status, stdout, _ = self.script("install.cmd")
        self.assertEqual(status, 0, stdout)
        self.assertIn("The event source Quillfence is registered.", stdout)
        self.assert_source_is("C:\\Program Files\\Quillfence zip\\")

        status, stdout, _ = self.script("uninstall.cmd")
        self.assertEqual(status, 0, stdout)
        self.assertIn("The event source Quillfence is removed.", stdout)
        self.assertIsNone(self.registered())
        self.assertNotEqual(self.script("uninstall.cmd")[0], 0, "nothing is left to remove")

    def test_the_source_is_not_registered_without_the_program(self):
        elsewhere = self.drive / "elsewhere"
        elsewhere.mkdir()
        shutil.copy(self.program_folder / "install.cmd", elsewhere)
        status, stdout, _ = self.wine("cmd", "/c", r"C:\elsewhere\install.cmd")
        self.assertEqual(status, 1)
        self.assertIn("quillfence-replayer.exe is not in the folder of this script.", stdout)
        self.assertIsNone(self.registered())

    def test_the_program_replays_the_sample(self):
        arguments, shown = sample(SOURCE)
        configuration = self.drive / "quillfence"
        shutil.copytree(self.program_folder / "examples" / "drive_c" / "quillfence", configuration)
        try:
            got = self.wine(r"C:\Program Files\Quillfence zip\quillfence-replayer.exe", *arguments)
        finally:
            shutil.rmtree(configuration)
        self.assertEqual(got, (0, shown, ""))

    def test_the_program_explains_the_sample(self):
        arguments, shown = explained(SOURCE)
        status, stdout, stderr = self.wine(
            r"C:\Program Files\Quillfence zip\quillfence.exe", "explain", "--drive-c",
            r"C:\Program Files\Quillfence zip\examples\drive_c", *arguments)
        self.assertEqual((status, stderr), (0, ""))
        self.assertEqual(stdout[:len(shown)], shown)

    # --- the MSI ---

    INSTALL = r"/i \S+ /qn"
    INSTALL_AS_CHOSEN = r"/i .* ADDLOCAL=.*"
    REMOVE = r"/x \S+ /qn"

    def msi(self):
        return self.package.with_suffix(".msi")

    def other_msi(self, name, version):
        """One with little in it."""
        folder = self.folder / name
        folder.mkdir()
        shutil.copy(self.program_folder / "quillfence-replayer.exe", folder)
        (folder / "README.md").write_text(f"This is {name}.\n")
        (folder / f"{name}.txt").write_text("Nothing else has this file.\n")
        package = self.folder / f"{name}.msi"
        maker = SOURCE / "packaging/windows/make_packages.py"
        status, _, stderr = run(sys.executable, "-B", str(maker), "--strip", "true", "--version",
                                version, str(folder), str(package.with_suffix(".zip")),
                                str(package))
        self.assertEqual(status, 0, stderr)
        return package

    def component_of(self, package, name):
        """The code by which Windows counts who has installed a file."""
        table = lambda of: [line.split("\t") for line
                            in run("msiinfo", "export", str(package), of)[1].splitlines()[3:]]
        component, = [row[1] for row in table("File") if row[2] == name]
        return dict(row[:2] for row in table("Component"))[component]

    def page(self, command, package):
        """Does what docs/windows.md says with the MSI. The exit status."""
        page = (SOURCE / "docs/windows.md").read_text()
        line, = re.findall(rf"^    C:\\> (start /wait msiexec {command})$", page, re.MULTILINE)
        self.assertIn(self.msi().name, line, "the page's version is old")
        script = package.with_suffix(".cmd")
        script.write_text(line.replace(self.msi().name, package.name))
        return self.wine("cmd", "/c", script.name, cwd=package.parent)[0]

    def products(self):
        """The keys in the list of installed programs that are ours, and their versions."""
        _, stdout, _ = self.wine("reg", "query", INSTALLED_KEY, "/s")
        return [re.search(r"\\(\{\S+\}).* DisplayVersion +REG_SZ +(\S+)", product,
                          re.DOTALL).groups()
                for product in stdout.split("\nHKEY") if "REG_SZ    Quillfence" in product]

    def versions(self):
        return [version for _, version in self.products()]

    def search_path(self):
        return self.values(PATH_KEY, "/v", "PATH")["PATH"]

    def test_a_checksum_lies_beside_the_msi(self):
        written = Path(str(self.msi()) + ".sha256").read_text().split()
        self.assertEqual(written, [run("sha256sum", str(self.msi()))[1].split()[0],
                                   self.msi().name])

    def test_the_msi_installs_what_the_zip_has_and_removes_it(self):
        configuration = self.drive / "quillfence"
        configuration.mkdir()
        self.addCleanup(shutil.rmtree, configuration)
        (configuration / "from_blacklist").write_text("bob@x.example\n")

        self.assertEqual(self.page(self.INSTALL, self.msi()), 0)
        project = re.search(r"project\([^)]*VERSION ([0-9.]+)",
                            (SOURCE / "CMakeLists.txt").read_text())
        self.assertEqual(self.versions(), [project.group(1)])
        folder = self.drive / "Program Files" / "Quillfence"
        self.assertEqual(files_in(folder), {name: data for name, data
                                            in files_in(self.program_folder).items()
                                            if not name.endswith(".cmd")})
        self.assert_source_is("C:\\Program Files\\Quillfence\\")
        self.assertNotIn("quillfence", self.search_path(), "nobody has asked for it")
        arguments, shown = explained(SOURCE)
        status, stdout, _ = self.wine(
            r"C:\Program Files\Quillfence\quillfence.exe", "explain", "--drive-c",
            r"C:\Program Files\Quillfence\examples\drive_c", *arguments)
        self.assertEqual((status, stdout[:len(shown)]), (0, shown))

        (folder / "notes.txt").write_text("whose?\n")
        self.assertEqual(self.page(self.REMOVE, self.msi()), 0)
        self.assertEqual(files_in(folder), {"notes.txt": b"whose?\n"})
        self.assertEqual((self.registered(), self.values(OUR_KEY), self.versions()),
                         (None, None, []))
        self.assertEqual(files_in(configuration), {"from_blacklist": b"bob@x.example\n"})

    def test_a_file_keeps_its_component_when_others_come_and_go(self):
        name = "quillfence-replayer.exe"
        few = self.other_msi("few", "1.0.1")
        self.assertEqual(self.component_of(few, name), self.component_of(self.msi(), name))

    def test_an_msi_takes_the_place_of_an_older_one(self):
        folder = self.drive / "Program Files" / "mail tools"
        steps = [("first", "1.2.3", self.INSTALL_AS_CHOSEN), ("rebuilt", "1.2.3", self.INSTALL),
                 ("newer", "1.10.0", self.INSTALL)]
        packages = {name: self.other_msi(name, version) for name, version, _ in steps}
        for name, version, command in steps:
            self.assertEqual(self.page(command, packages[name]), 0, name)
            self.assertEqual(self.versions(), [version])
            found = files_in(folder)
            self.assertEqual(set(found), {"quillfence-replayer.exe", "README.md", f"{name}.txt"})
            self.assertEqual(found["README.md"].decode(), f"This is {name}.\n")
            self.assert_source_is("C:\\Program Files\\mail tools\\")
            if name == "first":
                self.assertIn("C:\\Program Files\\mail tools\\", self.search_path())
            (folder / "README.md").write_text("Edited where it should not be.\n")
        self.assertTrue((self.folder / "install.log").exists())
        self.assertNotEqual(self.page(self.INSTALL, packages["first"]), 0, "an older one")
        self.assertEqual(self.versions(), ["1.10.0"])
        # By its code, as the page does in PowerShell.
        (code, _), = self.products()
        self.assertEqual(self.wine("msiexec", "/x", code, "/qn")[0], 0)
        self.assertFalse(folder.exists())
        self.assertEqual((self.registered(), self.versions()), (None, []))
        self.assertNotIn("mail tools", self.search_path())


def missing_tools():
    return [tool for tool in ("sha256sum", "wixl", "msibuild") if not shutil.which(tool)]


def main():
    if missing_tools():
        unable("there is no " + ", ".join(missing_tools()))
    suite = unittest.defaultTestLoader.loadTestsFromTestCase(Windows)
    result = unittest.TextTestRunner(verbosity=2).run(suite)
    return 0 if result.wasSuccessful() else 1


if __name__ == "__main__":
    sys.exit(main())
