"""quillfence policyd --check against DNS servers: a sound one, and those whose trouble nobody would
notice before mail depends on them.

usage: policyd_check_dns_test.py --quillfence=QUILLFENCE [unittest options]
"""

import os
import re
import shutil
import subprocess
import tempfile
import unittest
from pathlib import Path

import dns_servers as servers
from dns_servers import A, NXDOMAIN, REFUSED, record, reply
from dns_testing import Drive, Programs, environment, lacking, main

SOURCE = Path(__file__).resolve().parents[2]
EXAMPLE = SOURCE / "examples/drive_c"

SOA = "@ 60 IN SOA ns.test. hostmaster.test. 1 60 60 60 60\n@ IN NS ns.test.\n"
ZONES = {
    "example.com.": f"$ORIGIN example.com.\n$TTL 60\n{SOA}@ IN A 192.0.2.1\n",
    "rbl.test.": f"$ORIGIN rbl.test.\n$TTL 60\n{SOA}2.0.0.127 IN A 127.0.0.2\n",
    "empty.test.": f"$ORIGIN empty.test.\n$TTL 60\n{SOA}",
    "all.test.": f"$ORIGIN all.test.\n$TTL 60\n{SOA}* IN A 127.0.0.2\n",
    "parked.test.": f"$ORIGIN parked.test.\n$TTL 60\n{SOA}* IN A 192.0.2.80\n",
    "shut.test.": f"$ORIGIN shut.test.\n$TTL 60\n{SOA}* IN A 127.255.255.254\n",
}


LINE = r"(ok|warning|error) +(\S+): (.*)"


def of_the_page(about):
    """What docs/policyd.md shows about something."""
    page = (SOURCE / "docs/policyd.md").read_text(encoding="utf-8")
    return [(kind, text) for kind, name, text in re.findall("^    " + LINE, page, re.MULTILINE)
            if name == about]


class Checked:
    """One run: its lines by what they are about."""

    def __init__(self, drive, folder, server, *options):
        done = subprocess.run([Programs.quillfence, "policyd", "--check", "--listen",
                               f"unix:{folder}/policy", "--log", f"{folder}/log",
                               "--server", server, *options],
                              env=environment(**drive.settings), stdin=subprocess.DEVNULL,
                              capture_output=True, text=True, timeout=100, check=False)
        self.status = done.returncode
        self.output = done.stdout + done.stderr
        self.lines = {}
        for line in done.stdout.splitlines():
            kind, about, text = re.fullmatch(LINE, line).groups()
            self.lines.setdefault(about, []).append((kind, text))


class CheckTest(unittest.TestCase):
    def setUp(self):
        self.drive = Drive()
        self.addCleanup(self.drive.remove)
        shutil.copytree(EXAMPLE, self.drive.settings["QUILLFENCE_DRIVE_C"], dirs_exist_ok=True)
        self.folder = tempfile.mkdtemp(prefix="quillfence-check-")
        self.addCleanup(shutil.rmtree, self.folder)

    def check(self, server, *options):
        return Checked(self.drive, self.folder, f"{server.address}:{server.port}", *options)

    def serve(self, answer):
        server = servers.ScriptedServer(answer)
        self.addCleanup(server.stop)
        return server

    def assert_dns(self, run, kind, beginning):
        ((found, text),) = run.lines["DNS"]
        self.assertEqual(found, kind, run.output)
        self.assertTrue(text.startswith(beginning), run.output)


class SoundServer(CheckTest):
    @classmethod
    def setUpClass(cls):
        if not servers.Nsd.available():
            lacking("the DNS server NSD is not installed")
        folder = tempfile.mkdtemp(prefix="quillfence-nsd-")
        cls.addClassCleanup(shutil.rmtree, folder)
        cls.nsd = servers.Nsd(folder, ZONES)
        cls.addClassCleanup(cls.nsd.stop)

    def test_all_is_in_order(self):
        self.drive.put("rbl.enabled", "rbl.test\n")
        run = self.check(self.nsd, "--metrics", f"{self.folder}/quillfence.prom")
        self.assert_dns(run, "ok", f"127.0.0.1:{self.nsd.port} answers by UDP and TCP")
        self.assertEqual(run.lines["rbl.test"],
                         [("ok", "lists 127.0.0.2 and does not list 127.0.0.1")])
        self.assertIn(("ok", "can be listened to"), run.lines[f"unix:{self.folder}/policy"])
        self.assertEqual(run.lines[f"{self.folder}/log"], [("ok", "can be made")])
        kinds = {kind for lines in run.lines.values() for kind, text in lines
                 if not text.startswith("the user ")}  # whom this machine has
        self.assertEqual(kinds - {"warning"}, {"ok"}, run.output)
        self.assertEqual(run.status, 1 if "error" in run.output else 0)
        self.assertEqual(run.lines["c:/quillfence/"], of_the_page("c:/quillfence/"))
        self.assertEqual(run.lines[f"{self.folder}/log"],
                         of_the_page("/var/log/quillfence/policyd.log"))
        self.assertEqual(os.listdir(self.folder), [])

    def test_lists_in_trouble(self):
        self.drive.put("rbl.enabled", "empty.test\nall.test\nparked.test\nshut.test\n")
        run = self.check(self.nsd)
        for zone, beginning in (("empty.test", "does not list 127.0.0.2"),
                                ("all.test", "lists 127.0.0.1, and so probably everybody"),
                                ("parked.test", "answers 192.0.2.80, which is no listing"),
                                ("shut.test", "refuses to answer this resolver")):
            ((kind, text),) = run.lines[zone]
            self.assertEqual(kind, "error", run.output)
            self.assertTrue(text.startswith(beginning), run.output)
        self.assertEqual(run.lines["shut.test"], of_the_page("rbl.example"))
        self.assertEqual(run.status, 1)

    def test_a_list_of_nobody_s(self):
        """NSD refuses what is not its own, as it would a question about any name."""
        self.drive.put("rbl.enabled", "elsewhere.test\n")
        ((kind, text),) = self.check(self.nsd).lines["elsewhere.test"]
        self.assertEqual(kind, "error")
        self.assertIn("(REFUSED)", text)


class ServersInTrouble(CheckTest):
    def found(self, message):
        return reply(message, answers=[record(A, bytes((192, 0, 2, 1)))])

    def test_no_tcp(self):
        run = self.check(self.serve(lambda message, tcp: servers.RESET if tcp
                                    else self.found(message)))
        self.assert_dns(run, "error", "127.0.0.1:")
        ((kind, text),) = run.lines["DNS"]
        self.assertEqual([(kind, re.sub(r"^127\.0\.0\.1:\d+", "192.0.2.53:53", text))],
                         of_the_page("DNS"))
        self.assertEqual(run.status, 1)

    def test_refusal(self):
        run = self.check(self.serve(lambda message, tcp: reply(message, REFUSED)))
        self.assertIn("refuses to answer (REFUSED); ", run.output)
        self.assertEqual(run.status, 1)

    def test_nobody_there(self):
        server = self.serve(lambda message, tcp: None)
        server.stop()
        run = self.check(server)
        self.assertIn("does not answer; ", run.output)
        self.assertEqual(run.status, 1)

    def test_a_name_that_is_not_there_is_a_warning(self):
        """A resolver of a closed network knows no names of others."""
        run = self.check(self.serve(lambda message, tcp: reply(message, NXDOMAIN)))
        self.assert_dns(run, "warning", "127.0.0.1:")

    def test_without_dns(self):
        server = self.serve(lambda message, tcp: None)
        run = self.check(server, "--dns", "off")
        self.assert_dns(run, "warning", "is not asked")
        self.assertEqual(server.asked, [])


if __name__ == "__main__":
    main()
