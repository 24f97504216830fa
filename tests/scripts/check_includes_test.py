"""Tests of scripts/check-includes on small trees: a clean one, and one violation at a time.

usage: check_includes_test.py CHECK_INCLUDES COMPILER
"""

import json
import pathlib
import subprocess
import sys
import tempfile
import unittest

CHECK = ""
COMPILER = ""

CLEAN = {
    "platform/include/platform/file.h": "#pragma once\n#include <cstdint>\nuint32_t f();\n",
    "platform/posix/errors.h": "#pragma once\nint error();\n",
    "platform/posix/file.cpp": '#include "platform/file.h"\n#include <unistd.h>\n'
                               '#include "errors.h"\n#ifdef __linux__\n#endif\n',
    "common/vc_file.h": '#pragma once\n#include "platform/file.h"\n',
    "common/vc_file.cpp": '#include "vc_file.h"\n#include <cstring>\n',
    "engine/matching/tiny_rex.h": "#pragma once\n",
    "engine/rules/rules.h": '#pragma once\n#include "tiny_rex.h"\n#include "vc_file.h"\n',
    "tests/common/vc_file_test.cpp": '#include "vc_file.h"\n#include "rules.h"\n'
                                     '#include <gtest/gtest.h>\n#include <vector>\n',
    "bench/bare_calls.h": "#pragma once\n#include <sys/stat.h>\n#include <unistd.h>\n",
    "bench/sum_bench.cpp": '#include <peer/peer.h>\n#include "bare_calls.h"\n#include "rules.h"\n',
    "platform/posix/tests/file_test.cpp": '#include <unistd.h>\n#include "posix/errors.h"\n',
}

# folder -> the folders that it may use
ROOMS = {
    "platform": [],
    "common": ["platform"],
    "engine/matching": ["common"],
    "blockmaps": ["common"],
    "engine/rules": ["engine/matching"],
    "engine/core": ["engine/rules", "blockmaps"],
    "bench": ["engine/core"],
    "tests": ["engine/core"],
    "platform/posix/tests": ["tests"],
}

# name, file, its text, the finding behind "file:line: "
VIOLATIONS = [
    ("a folder further down", "common/bad.cpp", '#include "tiny_rex.h"\n',
     '1: common may not use engine/matching, but includes "tiny_rex.h"'),
    ("a folder beside", "blockmaps/bad.cpp", '\n#include "tiny_rex.h"\n',
     '2: blockmaps may not use engine/matching, but includes "tiny_rex.h"'),
    ("by a path", "common/bad.cpp", '#include "../engine/matching/tiny_rex.h"\n',
     '1: common may not use engine/matching, but includes "../engine/matching/tiny_rex.h"'),
    ("the seam uses the product", "platform/posix/bad.cpp", '#include "vc_file.h"\n',
     '1: platform may not use common, but includes "vc_file.h"'),
    ("the product uses a test", "engine/core/bad.cpp",
     '#include "../../tests/common/vc_file_test.cpp"\n',
     '1: engine/core may not use tests, but includes "../../tests/common/vc_file_test.cpp"'),
    ("the seam's internals", "common/bad.cpp", '#include "../platform/posix/errors.h"\n',
     '1: includes "../platform/posix/errors.h", which is internal to platform/'),
    ("the seam's internals from its root", "tests/common/bad.cpp", '#include "posix/errors.h"\n',
     '1: includes "posix/errors.h", which is no file of the tree'),
    ("no such file", "common/bad.cpp", '#include "windows.h"\n',
     '1: includes "windows.h", which is no file of the tree'),
    ("a Windows header", "engine/core/bad.cpp", "# include <windows.h>\n",
     "1: includes <windows.h>, which belongs behind platform/ or to another folder"),
    ("a POSIX header", "tests/common/bad.cpp", "#include <sys/stat.h>\n",
     "1: includes <sys/stat.h>, which belongs behind platform/ or to another folder"),
    ("the seam's internals in a benchmark", "bench/bad.cpp", '#include "posix/errors.h"\n',
     '1: includes "posix/errors.h", which is no file of the tree'),
    ("a system's header in a benchmark", "bench/bad.cpp", "#include <unistd.h>\n",
     "1: includes <unistd.h>, which belongs behind platform/ or to another folder"),
    ("a system's header in another header of the benchmarks", "bench/more_calls.h",
     "#include <unistd.h>\n",
     "1: includes <unistd.h>, which belongs behind platform/ or to another folder"),
    ("bare calls in another folder", "bench/more/bare_calls.h", "#include <unistd.h>\n",
     "1: includes <unistd.h>, which belongs behind platform/ or to another folder"),
    ("a macro among the bare calls", "bench/bare_calls.h", "#ifdef __linux__\n#endif\n",
     "1: uses the system's macro __linux__"),
    ("another folder's library", "common/bad.cpp", "#include <maxminddb.h>\n",
     "1: includes <maxminddb.h>, which belongs behind platform/ or to another folder"),
    ("GoogleTest in the product", "common/bad.cpp", "#include <gtest/gtest.h>\n",
     "1: includes <gtest/gtest.h>, which belongs behind platform/ or to another folder"),
    ("a Windows macro", "common/bad.cpp", "int x;\n#ifdef _WIN32\n#endif\n",
     "2: uses the system's macro _WIN32"),
    ("a Linux macro", "tests/common/bad.cpp", "#if 1 && defined(__linux__)\n#endif\n",
     "1: uses the system's macro __linux__"),
    ("a folder of its own", "extra/new.cpp", "\n", "1: lies in a folder that is not in the list"),
    ("a header that needs another one first", "common/bad.h", "#pragma once\nuint32_t g();\n",
     "1: does not compile alone: "),
    ("a test that nobody runs", "tests/common/idle_test.cpp", "\n",
     "1: is a test that ctest does not run"),
    ("a test that is built but not run", "tests/common/built_test.cpp", "\n",
     "1: is a test that ctest does not run"),
]


def compile_entry(root, path):
    target = pathlib.PurePosixPath(path).stem
    return {"directory": str(root), "file": path,
            "command": f"c++ -o CMakeFiles/{target}.dir/x.o -c {path}"}


class CheckIncludes(unittest.TestCase):
    def setUp(self):
        scratch = tempfile.TemporaryDirectory()
        self.addCleanup(scratch.cleanup)
        self.root = pathlib.Path(scratch.name, "tree")
        self.build = pathlib.Path(scratch.name, "built")
        for path, text in CLEAN.items():
            self.write(path, text)
        self.write_build()

    def write(self, path, text):
        target = self.root / path
        target.parent.mkdir(parents=True, exist_ok=True)
        target.write_text(text, encoding="utf-8")

    def undo(self, path):
        if path in CLEAN:
            self.write(path, CLEAN[path])
        else:
            (self.root / path).unlink()

    def write_build(self):
        """A build tree as CMake leaves it: two tests that are run, one that is only built."""
        self.build.mkdir()
        entries = [compile_entry(self.root, path)
                   for path in ("tests/common/vc_file_test.cpp", "platform/posix/tests/file_test.cpp",
                                "tests/common/built_test.cpp")]
        (self.build / "compile_commands.json").write_text(json.dumps(entries), encoding="utf-8")
        (self.build / "CTestTestfile.cmake").write_text('subdirs("tests")\n', encoding="utf-8")
        rooms = [{"folder": folder, "uses": uses,
                  "include": "platform/include" if folder == "platform" else folder}
                 for folder, uses in ROOMS.items()]
        (self.build / "rooms.json").write_text(json.dumps(rooms), encoding="utf-8")
        (self.build / "tests").mkdir()
        (self.build / "tests/CTestTestfile.cmake").write_text(
            'add_test([=[vc_file]=] "/nowhere/vc_file_test")\n'
            'add_test([=[file]=] "/nowhere/emulator" "/nowhere/file_test.exe")\n',
            encoding="utf-8")

    def check(self):
        gtest = self.root.parent / "gtest-include"
        (gtest / "gtest").mkdir(parents=True, exist_ok=True)
        (gtest / "gtest/gtest.h").write_text("", encoding="utf-8")
        run = subprocess.run([sys.executable, CHECK, "--root", self.root, "--build", self.build,
                              "--compiler", COMPILER, "--include", gtest],
                             text=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                             check=False)
        return run.returncode, run.stdout.splitlines()

    def test_clean_tree(self):
        self.assertEqual(self.check(), (0, [f"{len(CLEAN)} files, 0 findings"]))

    def test_empty_tree_is_a_failure(self):
        self.root = self.root.parent / "empty"
        self.root.mkdir()
        self.assertEqual(self.check(), (1, ["0 files, 0 findings"]))

    def compile_first(self, command="c++"):
        """A header that does not compile alone, first in a source file of the build."""
        self.write("common/bad.h", "#pragma once\nuint32_t g();\n")
        self.write("common/bad.cpp", '// its own header first\n#include "bad.h"\n')
        commands = self.build / "compile_commands.json"
        entries = json.loads(commands.read_text(encoding="utf-8"))
        entries.append(compile_entry(self.root, "common/bad.cpp") |
                       {"command": f"{command} -c common/bad.cpp"})
        commands.write_text(json.dumps(entries), encoding="utf-8")

    def test_a_header_that_the_build_compiled_is_not_compiled_again(self):
        self.compile_first()
        self.assertEqual(self.check()[0], 0)

    def test_a_header_behind_a_precompiled_one_is(self):
        self.compile_first("c++ -Winvalid-pch -include cmake_pch.hxx")
        status, lines = self.check()
        self.assertEqual(status, 1)
        self.assertTrue(lines[0].startswith("common/bad.h:1: does not compile alone: "), lines[0])

    def test_each_violation(self):
        for name, path, text, finding in VIOLATIONS:
            with self.subTest(name):
                self.write(path, text)
                status, lines = self.check()
                self.undo(path)
                self.assertEqual(status, 1)
                self.assertEqual(len(lines), 2, lines)
                self.assertTrue(lines[0].startswith(f"{path}:{finding}"), lines[0])


if __name__ == "__main__":
    CHECK, COMPILER = sys.argv[1:3]
    unittest.main(argv=sys.argv[:1])
