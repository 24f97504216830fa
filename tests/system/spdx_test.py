#!/usr/bin/env python3
"""The SPDX document of what is linked in: complete, true, the same twice, and refused where it could
only guess.

    spdx_test.py BUILD SOURCE PROGRAM...
"""

import hashlib
import json
import os
import re
import shutil
import subprocess
import sys
from pathlib import Path

from whole_program import ARGUMENTS, FolderTest, main, unable

BUILD, SOURCE, *PROGRAMS = ARGUMENTS
BUILD, SOURCE = Path(BUILD), Path(SOURCE)
GENERATOR = SOURCE / "packaging/spdx/what-is-linked"
REPLAYER = next(program for program in PROGRAMS if "quillfence-replayer" in Path(program).name)


def generate(build, *programs, **settings):
    done = subprocess.run([sys.executable, GENERATOR, build, *programs], capture_output=True,
                          text=True, check=False, timeout=200, env={**os.environ, **settings})
    return done.returncode, done.stdout, done.stderr


class WhatIsLinked(FolderTest):
    @classmethod
    def setUpClass(cls):
        status, cls.text, said = generate(BUILD, *PROGRAMS, SOURCE_DATE_EPOCH="1800000000")
        assert (status, said) == (0, ""), said
        cls.document = json.loads(cls.text)
        cls.packages = {package["SPDXID"]: package for package in cls.document["packages"]}

    def linked(self, program):
        """Name of each component of a program, with how it is linked."""
        own = f"SPDXRef-program-{Path(program).name}"
        return {(self.packages[row["relatedSpdxElement"]]["name"], row["relationshipType"])
                for row in self.document["relationships"]
                if row["spdxElementId"] == own and row["relationshipType"].endswith("_LINK")}

    def test_the_same_twice(self):
        again = generate(BUILD, *reversed(PROGRAMS), SOURCE_DATE_EPOCH="1800000000")
        self.assertEqual(again, (0, self.text, ""))
        self.assertEqual(self.document["creationInfo"]["created"], "2027-01-15T08:00:00Z")

    def test_programs_are_described_with_their_checksums(self):
        described = {row["relatedSpdxElement"] for row in self.document["relationships"]
                     if row["relationshipType"] == "DESCRIBES"}
        self.assertEqual(len(described), len(PROGRAMS))
        for program in PROGRAMS:
            package = self.packages[f"SPDXRef-program-{Path(program).name}"]
            self.assertIn(package["SPDXID"], described)
            digest = hashlib.sha256(Path(program).read_bytes()).hexdigest()
            self.assertEqual(package["checksums"],
                             [{"algorithm": "SHA256", "checksumValue": digest}])

    def test_our_version_is_the_project_s(self):
        project = re.search(r"project\([^)]*VERSION ([0-9.]+)",
                            (SOURCE / "CMakeLists.txt").read_text())
        own = {package["versionInfo"] for package in self.packages.values()
               if package["name"].startswith("quillfence")}
        self.assertEqual(own, {project.group(1)})

    def test_each_program_names_what_it_needs(self):
        """The file formats and the standard library are everybody's; the logs are compressed for
        quillfence alone, and the replayer has no options to read."""
        for program in PROGRAMS:
            linked = self.linked(program)
            name = Path(program).name.removesuffix(".exe")
            self.assertTrue(any(re.match(r"libstdc\+\+|g\+\+-mingw", one) for one, _ in linked), linked)
            self.assertEqual(any(re.match(r"zlib1g|libz-", one) for one, _ in linked),
                             name == "quillfence", linked)
            self.assertEqual(("libcli11-dev", "STATIC_LINK") in linked,
                             name != "quillfence-replayer", linked)
            self.assertFalse([one for one, _ in linked if re.search("googletest|gtest", one)])

    def test_shared_libraries_are_those_that_the_loader_will_look_for(self):
        for program in PROGRAMS:
            if program.endswith(".exe"):
                continue
            said = subprocess.run(["readelf", "-dW", program], capture_output=True, text=True,
                                  check=True).stdout
            needed = re.findall(r"\(NEEDED\).*\[(.*)\]", said)
            stems = {re.match(r"lib([a-z_-]+)", name).group(1) for name in needed
                     if name.startswith("lib") and not name.startswith("libm.")}
            shared = {name for name, how in self.linked(program) if how == "DYNAMIC_LINK"}
            self.assertEqual(len(shared), len(stems), (shared, needed))
            for stem in stems:
                self.assertTrue(any(re.match(rf"(lib)?{stem}", name) for name in shared), stem)

    def test_versions_are_those_of_the_installed_packages(self):
        asked = 0
        for package in self.packages.values():
            if package["supplier"] != "Organization: Debian" or "arch=source" in str(package):
                continue
            said = subprocess.run(["dpkg-query", "-W", "-f", "${Version}\n", package["name"]],
                                  capture_output=True, text=True, check=True).stdout
            self.assertIn(package["versionInfo"], said.splitlines())
            asked += 1
        self.assertGreater(asked, 3)

    def test_it_is_a_document_as_the_format_has_it(self):
        """What every reader of SPDX 2.3 asks of a document: the members that must be there, names
        that are names, and relations between things that exist."""
        document = self.document
        self.assertEqual((document["spdxVersion"], document["dataLicense"], document["SPDXID"]),
                         ("SPDX-2.3", "CC0-1.0", "SPDXRef-DOCUMENT"))
        self.assertRegex(document["documentNamespace"], r"^https://[a-z.]+/[^#\s]+$")
        for creator in document["creationInfo"]["creators"]:
            self.assertRegex(creator, r"^(Tool|Organization|Person): \S")
        names = [package["SPDXID"] for package in document["packages"]]
        self.assertEqual(len(names), len(set(names)))
        for package in document["packages"]:
            self.assertRegex(package["SPDXID"], r"^SPDXRef-[A-Za-z0-9.-]+$")
            self.assertLessEqual({"name", "versionInfo", "downloadLocation", "licenseDeclared",
                                  "licenseConcluded", "copyrightText"}, set(package))
        known = set(names) | {"SPDXRef-DOCUMENT"}
        used = set()
        for row in document["relationships"]:
            used |= {row["spdxElementId"], row["relatedSpdxElement"]}
        self.assertEqual(used, known)

    # --- what it refuses ---

    def tree(self, linker_map):
        """A build tree with nothing but a map of a program."""
        self.file("tree/CMakeCache.txt", "CMAKE_PROJECT_VERSION:STATIC=9.8.7\n")
        self.file("tree/link-maps/quillfence-replayer.map", linker_map)
        return self.folder / "tree"

    def test_a_file_of_no_package_is_refused(self):
        archive = self.folder / "libstranger.a"
        archive.write_bytes(b"!<arch>\n")
        tree = self.tree(f"Archive member included\n\n{archive}(one.o)\n    main.o (f)\n\n"
                         f"LOAD {archive}\n")
        self.assertEqual(generate(tree, REPLAYER),
                         (1, "", f"what-is-linked: {archive} is of no installed package\n"))

    def test_an_archive_of_which_nothing_was_taken_is_none(self):
        archive = self.folder / "libstranger.a"
        archive.write_bytes(b"!<arch>\n")
        tree = self.tree(f"Archive member included\n\nours/libours.a(one.o)\n    main.o (f)\n\n"
                         f"LOAD ours/libours.a\nLOAD {archive}\n")
        status, text, said = generate(tree, REPLAYER)
        self.assertEqual((status, said), (0, ""))
        self.assertEqual({package["versionInfo"] for package in json.loads(text)["packages"]},
                         {"9.8.7"})

    def test_a_shared_library_is_of_the_package_that_runs(self):
        """The linker finds it by a name that the package with the headers has."""
        library = subprocess.run(["cc", "-print-file-name=libz.so"], capture_output=True, text=True,
                                 check=True).stdout.strip()
        self.file("tree/link-maps/dpkg-deb.map", "Archive member included\n\nours/libours.a(one.o)\n"
                  f"    main.o (f)\n\nLOAD ours/libours.a\nLOAD {library}\n")
        status, text, said = generate(self.tree(""), shutil.which("dpkg-deb"))
        self.assertEqual((status, said), (0, ""))
        self.assertEqual({package["name"] for package in json.loads(text)["packages"]},
                         {"quillfence", "dpkg-deb", "zlib1g"})

    def test_a_library_that_is_built_along_has_the_version_of_its_sources(self):
        self.file("sources/debian/changelog", "libmaxminddb (4.5.6-7) unstable; urgency=low\n")
        tree = self.tree("Archive member included\n\nlibmaxminddb/libmaxminddb.a(one.o)\n  m.o (f)\n"
                         "\nLOAD libmaxminddb/libmaxminddb.a\n")
        with open(tree / "CMakeCache.txt", "a", encoding="ascii") as cache:
            cache.write(f"QUILLFENCE_LIBMAXMINDDB_SOURCE:PATH={self.folder / 'sources'}\n")
        packages = json.loads(generate(tree, REPLAYER)[1])["packages"]
        self.assertEqual([package["versionInfo"] for package in packages
                          if package["name"] == "libmaxminddb"], ["4.5.6-7"])

    def test_what_is_missing_is_named(self):
        status, text, said = generate(self.folder, REPLAYER)
        self.assertEqual((status, text), (1, ""))
        self.assertIn(f"{self.folder} is no build tree", said)
        tree = self.tree("no map at all\n")
        status, text, said = generate(tree, REPLAYER)
        self.assertEqual((status, text), (1, ""))
        self.assertIn("names no archive", said)
        (tree / "link-maps/quillfence-replayer.map").unlink()
        self.assertIn("quillfence-replayer.map is missing", generate(tree, REPLAYER)[2])


if __name__ == "__main__":
    if subprocess.run(["dpkg-query", "--version"], capture_output=True, check=False).returncode:
        unable("there is no dpkg-query")
    main()
