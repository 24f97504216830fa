#!/usr/bin/env python3
"""Checks how the shipped program was linked: hardening, imports, resources.

    check_binary.py elf PROGRAM
    check_binary.py pe PROGRAM OBJDUMP NM
"""

import re
import subprocess
import sys
import unittest

KIND, PROGRAM, *TOOLS = sys.argv[1:]

# Libraries that every Windows has; anything else would have to be shipped along.
SYSTEM_DLLS = {"ADVAPI32.dll", "bcrypt.dll", "DNSAPI.dll", "KERNEL32.dll", "msvcrt.dll",
               "WS2_32.dll"}


def run(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True,
                          errors="replace").stdout


class Elf(unittest.TestCase):
    def test_position_independent(self):
        self.assertRegex(run("readelf", "-h", PROGRAM), r"Type:\s+DYN")

    def test_relocations_are_read_only_and_bound_at_start(self):
        self.assertIn("GNU_RELRO", run("readelf", "-lW", PROGRAM))
        self.assertRegex(run("readelf", "-dW", PROGRAM), r"FLAGS_1.*NOW")

    def test_stack_is_not_executable(self):
        self.assertRegex(run("readelf", "-lW", PROGRAM), r"GNU_STACK.* RW +0x")

    def test_stack_protector_and_fortified_calls(self):
        symbols = run("readelf", "-sW", PROGRAM)
        self.assertTrue("__stack_chk_fail" in symbols, "no stack protector")
        self.assertTrue(re.search(r"__\w+_chk@", symbols), "no fortified call")

    def test_control_flow_protection(self):
        # The linker keeps the mark only when every object file has it; the start-up files and
        # libraries come from outside, so it is our functions that are looked at.
        code = run("objdump", "-d", "--no-show-raw-insn", PROGRAM)
        main = code.split("<main>:\n", 1)[1].split("\n", 1)[0]
        self.assertIn("endbr64", main)

    def test_needs_the_c_library_only(self):
        needed = [line for line in run("readelf", "-dW", PROGRAM).splitlines() if "NEEDED" in line]
        self.assertTrue(needed)
        for line in needed:
            self.assertRegex(line, r"\[(libc|libm|ld-linux-x86-64)\.so\.[0-9]+\]")


class Pe(unittest.TestCase):
    def setUp(self):
        self.headers = run(TOOLS[0], "-p", PROGRAM)

    def test_moved_about_in_memory_and_data_is_not_executed(self):
        line = next(l for l in self.headers.splitlines() if l.startswith("DllCharacteristics"))
        flags = int(line.split()[1], 16)
        for name, bit in (("HIGH_ENTROPY_VA", 0x20), ("DYNAMIC_BASE", 0x40), ("NX_COMPAT", 0x100)):
            self.assertTrue(flags & bit, name)

    def test_imports_system_libraries_only(self):
        imported = {line.split("DLL Name: ")[1].strip() for line in self.headers.splitlines()
                    if "DLL Name: " in line}
        self.assertTrue(imported)
        self.assertEqual(imported - SYSTEM_DLLS, set())

    def test_stack_of_8_megabytes(self):
        self.assertRegex(self.headers, r"SizeOfStackReserve\s+0*800000\b")

    def test_stack_protector(self):
        self.assertTrue("__stack_chk_fail" in run(TOOLS[1], PROGRAM), "no stack protector")

    def test_resources(self):
        with open(PROGRAM, "rb") as file:
            program = file.read()
        for text in ("%1: %2", "VS_VERSION_INFO", "Quillfence"):
            self.assertTrue(text.encode("utf-16-le") in program, text)


if __name__ == "__main__":
    wanted = {"elf": Elf, "pe": Pe}[KIND]
    suite = unittest.defaultTestLoader.loadTestsFromTestCase(wanted)
    result = unittest.TextTestRunner(verbosity=2).run(suite)
    sys.exit(0 if result.wasSuccessful() else 1)
