"""The program against the system's own resolver settings, in a private network and mount namespace
with a resolv.conf of its own: NSD on 127.0.0.1:53 and scripted servers beside it. For both builds;
the Windows one runs under Wine, whose DNS client takes the same settings.

usage: dns_private_network_test.py [--runner=WINE_RUN] --probe=DNS_PROBE --replayer=REPLAYER
"""

import fcntl
import os
import shutil
import socket
import struct
import subprocess
import sys
import tempfile
import time
import unittest

import dns_servers as servers
from dns_servers import A, REFUSED, SERVFAIL, NXDOMAIN, NOTIMP, record, reply
from dns_testing import Drive, Programs, lacking, main, probe, replay, report
from dns_transactions import check_questions, check_transactions
from dns_zones import ZONES

INSIDE = "QUILLFENCE_TEST_PRIVATE_NETWORK"
NAMESPACES = ["unshare", "--net", "--mount", "--propagation", "private"]
if os.geteuid() != 0:
    NAMESPACES.insert(1, "--map-root-user")

QUESTION = ["query host-with-an-a.forward.test. 1 2"]
HOST = record(A, b"\xC0\x00\x02\x01")
LIMIT = 3.0
SLACK = 2.0


def bring_loopback_up():
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as handle:
        get_flags, set_flags, flag_up = 0x8913, 0x8914, 1
        request = struct.pack("16sh14x", b"lo", 0)
        flags = struct.unpack("16sh14x", fcntl.ioctl(handle, get_flags, request))[1]
        fcntl.ioctl(handle, set_flags, struct.pack("16sh14x", b"lo", flags | flag_up))


class PrivateNetwork(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        if os.environ.get(INSIDE) != "1":
            lacking("private network and mount namespaces are not allowed here "
                    f"({' '.join(NAMESPACES)} fails)")
        if not servers.Nsd.available():
            lacking("the DNS server NSD is not installed")
        cls.folder = tempfile.mkdtemp(prefix="quillfence-private-")
        cls.addClassCleanup(shutil.rmtree, cls.folder)
        bring_loopback_up()
        cls.settings = os.path.join(cls.folder, "resolv.conf")
        cls.configure("nameserver 127.0.0.1\n")
        subprocess.run(["mount", "--bind", cls.settings, "/etc/resolv.conf"], check=True)
        cls.addClassCleanup(subprocess.run, ["umount", "/etc/resolv.conf"], check=True)
        cls.nsd = servers.Nsd(cls.folder, ZONES, port=53)
        cls.addClassCleanup(cls.nsd.stop)

    @classmethod
    def configure(cls, text):
        with open(cls.settings, "w", encoding="ascii") as out:
            out.write(text)

    def setUp(self):
        self.configure("nameserver 127.0.0.1\n")


class BothBuilds(PrivateNetwork):
    def test_questions(self):
        check_questions(self, Programs.windows())

    def test_transactions(self):
        drive = Drive()
        self.addCleanup(drive.remove)
        check_transactions(self, Programs.windows(), drive)


class LinuxSettings(PrivateNetwork):
    """What the Linux build makes of the resolver settings."""

    def setUp(self):
        if Programs.windows():
            self.skipTest("the Windows build leaves its servers to the system")
        super().setUp()

    def serve(self, address, answer):
        server = servers.ScriptedServer(answer, address=address, port=53)
        self.addCleanup(server.stop)
        return server

    def test_search_domain_is_never_added(self):
        self.configure("search forward.test\nnameserver 127.0.0.1\n")
        self.assertEqual(probe(["query host-with-an-a. 1 2", "query host-with-an-a 1 2"]),
                         ["9005", "9005"])

    def test_settings_without_a_server(self):
        for text in ("", "# nothing\n", "nameserver nonsense\n"):
            self.configure(text)
            self.assertEqual(probe(QUESTION), ["0 [1 -]"], "the local host is asked")

    def test_resolver_options_change_nothing(self):
        server = self.serve("127.0.1.1", lambda m, _: None)
        self.configure("options timeout:30 attempts:9 rotate ndots:5 use-vc\n"
                       "nameserver 127.0.1.1\n")
        start = time.monotonic()
        self.assertEqual(probe(["query host.test. 1 0"]), ["1460"])
        self.assertLess(time.monotonic() - start, LIMIT + SLACK)
        self.assertEqual({transport for _, _, transport in server.asked}, {"udp"})

    def test_server_of_the_environment_goes_first(self):
        self.configure("nameserver 127.0.0.9\n")
        self.assertEqual(probe(QUESTION), ["9002"])
        self.assertEqual(probe(QUESTION, QUILLFENCE_DNS_SERVER="127.0.0.1"), ["0 [1 -]"])
        self.assertEqual(probe(QUESTION, QUILLFENCE_DNS_SERVER=""), ["9002"])

    def test_ipv6_servers(self):
        server = servers.ScriptedServer(lambda m, _: reply(m, 0, [HOST]), address="::1", port=5300)
        self.addCleanup(server.stop)
        for option in "02":
            question = [f"query host.test. 1 {option}"]
            for value, want in [("[::1]:5300", "0 [1 -]"), ("[::1]:5301", "9002"),
                                ("::1", "9002"), ("[::1]", "9002"), ("[::1]:", "87")]:
                with self.subTest(value, option=option):
                    self.assertEqual(probe(question, QUILLFENCE_DNS_SERVER=value), [want])

    def test_next_server_is_asked(self):
        for name, answer in [
            ("nobody there", None),
            ("silent", lambda m, _: None),
            ("fails", lambda m, _: reply(m, SERVFAIL)),
            ("refuses", lambda m, _: reply(m, REFUSED)),
            ("does not know how", lambda m, _: reply(m, NOTIMP)),
            ("damaged", lambda m, _: reply(m, 0, [b"\xC0"])),
        ]:
            for option in "02":
                with self.subTest(name, option=option):
                    self.configure("nameserver 127.0.0.2\nnameserver 127.0.0.1\n")
                    server = servers.ScriptedServer(answer, "127.0.0.2", 53) if answer else None
                    try:
                        self.assertEqual(
                            probe([f"query host-with-an-a.forward.test. 1 {option}"]),
                            ["0 [1 -]"])
                    finally:
                        if server:
                            server.stop()

    def test_what_several_servers_say(self):
        """The first response code counts when no server does better; silence counts less."""
        silent = lambda m, _: None

        def code(number):
            return lambda m, _: reply(m, number)

        for name, answers, want, asked in [
            ("both silent", [silent, silent], "1460", [1, 1]),
            ("refused, then silent", [code(REFUSED), silent], "9005", [1, 1]),
            ("silent, then refused", [silent, code(REFUSED)], "9005", [1, 1]),
            ("failed, then refused", [code(SERVFAIL), code(REFUSED)], "9002", [1, 1]),
            ("refused, then failed", [code(REFUSED), code(SERVFAIL)], "9005", [1, 1]),
            ("missing: the others are not asked", [code(NXDOMAIN), code(0)], "9003", [1, 0]),
            ("no records: the others are not asked", [code(0), code(NXDOMAIN)], "9501", [1, 0]),
            ("the fourth is not asked", [code(SERVFAIL)] * 3 + [code(0)], "9002", [1, 1, 1, 0]),
        ]:
            with self.subTest(name):
                running = [servers.ScriptedServer(answer, f"127.0.1.{i}", 53)
                           for i, answer in enumerate(answers, 1)]
                self.configure("".join(f"nameserver {one.address}\n" for one in running))
                start = time.monotonic()
                try:
                    self.assertEqual(probe(["query host.test. 1 2"]), [want])
                finally:
                    for one in running:
                        one.stop()
                self.assertLess(time.monotonic() - start, LIMIT + SLACK,
                                "the servers share the limit")
                self.assertEqual([len(one.asked) for one in running], asked)

    def test_many_at_once_ask_as_one_does(self):
        """The channel for many questions goes through the servers as the client for one does."""
        found = lambda m, _: reply(m, 0, [HOST])
        silent = lambda m, _: None

        def code(number):
            return lambda m, _: reply(m, number)

        for answers in ([found, code(0)], [code(SERVFAIL), found], [code(REFUSED), code(SERVFAIL)],
                        [code(NOTIMP), code(NXDOMAIN), found], [code(SERVFAIL)] * 4,
                        [None, found], [None, None], [None, code(REFUSED)], [silent, found],
                        [code(REFUSED), silent], [lambda m, _: servers.CLOSE, found]):
            seen = []
            for question in ("details host.test. 1 2", "ahead host.test. 1"):
                running = [servers.ScriptedServer(answer, f"127.0.1.{i}", 53) if answer else None
                           for i, answer in enumerate(answers, 1)]
                self.configure("".join(f"nameserver 127.0.1.{i}\n"
                                       for i, _ in enumerate(answers, 1)))
                start = time.monotonic()
                try:
                    line = probe([question])
                finally:
                    for one in filter(None, running):
                        one.stop()
                self.assertLess(time.monotonic() - start, LIMIT + SLACK)
                seen.append((line, [(len(one.asked), one.connections)
                                    for one in filter(None, running)]))
            self.assertEqual(seen[1], seen[0])

    def test_silent_servers_share_the_limit_in_halves(self):
        """A first server that takes its time is waited for longer than the last one of three."""
        slow = self.serve("127.0.1.1", lambda m, _: [1.0, reply(m, 0, [HOST])])
        self.serve("127.0.1.2", lambda m, _: None)
        self.configure("nameserver 127.0.1.1\nnameserver 127.0.1.2\nnameserver 127.0.1.2\n")
        self.assertEqual(probe(["query host.test. 1 2"]), ["0 [1 -]"])
        self.assertEqual(len(slow.asked), 1)

    def test_no_server_at_all(self):
        """The verdict of a run without any DNS: nothing fires, and it does not take long."""
        self.configure("nameserver 127.0.0.9\n")
        drive = Drive()
        self.addCleanup(drive.remove)
        start = time.monotonic()
        self.assertEqual(replay(drive), report())
        self.assertLess(time.monotonic() - start, SLACK)


def enter_namespaces():
    """Starts this script again inside, where that is allowed."""
    if INSIDE in os.environ or not shutil.which(NAMESPACES[0]):
        return
    if subprocess.run(NAMESPACES + ["true"], capture_output=True, check=False).returncode == 0:
        os.execvpe(NAMESPACES[0], NAMESPACES + [sys.executable] + sys.argv,
                   dict(os.environ, **{INSIDE: "1"}))


if __name__ == "__main__":
    enter_namespaces()
    main()
