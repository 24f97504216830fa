"""quillfence policyd behind Debian's Exim, by the ACL of docs/policyd.md: in sessions that Exim plays
by itself (-bh), and in real ones with swaks; and what the decision log has of them.

usage: policyd_exim_test.py --quillfence=QUILLFENCE [unittest options]
"""

import subprocess
import unittest

from dns_testing import main
from mail_servers import Exim, enter_namespaces, page_lines, swaks
from policyd_cases import RCPT, BehindMailServer


class BehindExim(BehindMailServer):
    SOCKET = "run/quillfence/policy"

    @classmethod
    def make_server(cls):
        return Exim(page_lines("warn set acl_m_quillfence"))

    def in_reply(self, notice):
        return "550 5.7.1 " + notice

    def assert_warned(self, log, notice):
        self.assertRegex(log, r"\[192\.0\.2\.1\].* Warning: WARN ")
        self.assertIn(notice, log)


class Played(BehindExim, unittest.TestCase):
    """exim -bh: a session that is no more than played, with all of its ACLs."""

    def said(self, sender, client, port=40000, helo="host-with-an-a.forward.test"):
        _, _, _, replied, _ = self.server.said_to(
            f"{client}.{port}", f"EHLO {helo}", f"MAIL FROM:<{sender}>", f"RCPT TO:<{RCPT}>",
            "QUIT")
        return replied

    def assert_warned(self, log, notice):
        """A played session writes no log."""


class Real(BehindExim, unittest.TestCase):
    """A client that has the address, as the network is the test's own."""

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        for number in (1, 2, 99):
            subprocess.run(["ip", "address", "add", f"192.0.2.{number}/32", "dev", "lo"],
                           check=True)
            cls.addClassCleanup(subprocess.run, ["ip", "address", "delete",
                                                 f"192.0.2.{number}/32", "dev", "lo"], check=True)

    def said(self, sender, client, port=None, helo="host-with-an-a.forward.test"):
        from_port = ["--local-port", str(port)] if port else []
        return swaks(sender, RCPT, "--local-interface", client, *from_port, "--helo", helo)


if __name__ == "__main__":
    enter_namespaces()
    main()
