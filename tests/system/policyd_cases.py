"""What quillfence policyd does behind a mail server, whichever it is: the cases that the tests with
Postfix and with Exim share."""

import shutil
import tempfile
from pathlib import Path

import dns_servers as servers
from dns_testing import Drive, lacking
from dns_zones import ZONES
from mail_servers import need_namespaces, others_inside
from policyd_testing import ENDED, Policyd

HELP = "https://help.quillfence.example/best-practices/"
BLACKLISTED = ("Your email is rejected -- you are on the recipient's blacklist. "
               f"See {HELP}empowering-your-users/ for more information.")
LISTED = f"Server IP 192.0.2.2 listed as abusive. See {HELP}ip-reputation/ for more information."
NAMELESS = ("Your server IP address [192.0.2.99] is missing a reverse DNS entry. "
            f"See {HELP}check-ip-reverse-dns/ for more information.")
FOE, FRIEND, STRANGER = "foe@spammer.example", "friend@spammer.example", "who@forward.test"
RCPT = "bob@forward.test"


class BehindMailServer:
    """For a TestCase with
        make_server()     a class method: the mail server, not yet started
        SOCKET            the service's, below the mail server's machine
        said(...)         the reply (code with text) to RCPT of a client with these facts
        in_reply(notice)  what the reply to a refused recipient is
    """

    maxDiff = None

    @classmethod
    def setUpClass(cls):
        need_namespaces()
        if not shutil.which("swaks"):
            lacking("swaks is not installed")
        cls.addClassCleanup(cls.nothing_is_left)
        folder = tempfile.mkdtemp(prefix="quillfence-policyd-")
        cls.addClassCleanup(shutil.rmtree, folder)
        cls.nsd = servers.Nsd(folder, ZONES, port=53)
        cls.addClassCleanup(cls.nsd.stop)
        cls.server = cls.make_server()
        cls.addClassCleanup(cls.server.stop)
        cls.socket = cls.server.machine.root / cls.SOCKET
        cls.server.start()
        cls.socket.parent.mkdir(exist_ok=True)

    @classmethod
    def nothing_is_left(cls):
        left = others_inside()
        if left:
            raise AssertionError(f"still running: {left}")

    def setUp(self):
        folder = tempfile.mkdtemp(prefix="quillfence-policyd-")
        self.addCleanup(shutil.rmtree, folder)
        self.folder = Path(folder)
        self.drive = Drive()
        self.addCleanup(self.drive.remove)
        self.drive.put("control/enabled", "1\n")
        self.drive.put("control/rules.enabled", "check_ip_reverse_dns\n")
        self.drive.put("from_blacklist", "*@spammer.example\n")
        self.drive.put("from_whitelist", FRIEND + "\n")
        self.drive.put("rbl.enabled", "rbl.test\n")

    def serve(self, *options):
        service = Policyd(self.drive, self.folder, "--server", "127.0.0.1:53", *options,
                          listen=self.socket)
        self.addCleanup(service.stop)
        return service

    def assert_decided(self, record, verdict, rule, answered):
        self.assertEqual((record["decision"]["verdict"], record["decision"].get("rule"),
                          record["extra"]["answered"]), (verdict, rule, answered))

    def test_observe(self):
        """Nobody is refused, and the log has what the client would have been told."""
        service = self.serve()
        for sender, client in [(FOE, "192.0.2.1"), (STRANGER, "192.0.2.2"),
                               (STRANGER, "192.0.2.99"), (STRANGER, "192.0.2.1")]:
            self.assertRegex(self.said(sender=sender, client=client), "^250 ")
        self.assertEqual(service.stop(), ENDED)
        foe, listed, nameless, stranger = service.records()
        self.assert_decided(foe, "reject", "from_blacklist", "DUNNO")
        self.assertEqual(foe["decision"]["notice"], BLACKLISTED)
        self.assertEqual((listed["decision"]["by"], listed["decision"]["zone"],
                          listed["decision"]["notice"]), ("rbl", "rbl.test", LISTED))
        self.assert_decided(nameless, "reject", "check_ip_reverse_dns", "DUNNO")
        self.assert_decided(stranger, "accept", None, "DUNNO")

    def test_the_facts_that_are_judged(self):
        service = self.serve()
        self.said(sender=FOE, client="192.0.2.1", port=40123, helo="relay.forward.test")
        self.assertEqual(service.stop(), ENDED)
        (record,) = service.records()
        facts = record["transaction"]
        self.assertEqual({name: facts[name] for name in
                          ("stage", "ip", "port", "tls", "authuser", "mua", "helo", "sender",
                           "recipient")},
                         {"stage": "RCPT", "ip": "192.0.2.1", "port": "40123", "tls": False,
                          "authuser": "", "mua": False, "helo": "relay.forward.test",
                          "sender": FOE, "recipient": RCPT})
        self.assertEqual(record["facts"]["ptr"], ["host-with-an-a.forward.test"])

    def test_enforce(self):
        service = self.serve("--enforce")
        for sender, client, notice in [(FOE, "192.0.2.1", BLACKLISTED),
                                       (STRANGER, "192.0.2.2", LISTED),
                                       (STRANGER, "192.0.2.99", NAMELESS)]:
            with self.subTest(sender=sender, client=client):
                self.assertEqual(self.said(sender=sender, client=client), self.in_reply(notice))
        self.assertRegex(self.said(sender=STRANGER, client="192.0.2.1"), "^250 ")
        self.assertEqual(service.stop(), ENDED)
        self.assertEqual([record["extra"]["answered"] for record in service.records()],
                         ["550 5.7.1 " + BLACKLISTED, "550 5.7.1 " + LISTED,
                          "550 5.7.1 " + NAMELESS, "DUNNO"])

    def test_enforce_some(self):
        service = self.serve("--enforce=check_ip_reverse_dns,block_rbl_lists")
        self.assertRegex(self.said(sender=FOE, client="192.0.2.1"), "^250 ")
        self.assertEqual(self.said(sender=STRANGER, client="192.0.2.2"), self.in_reply(LISTED))
        self.assertEqual(self.said(sender=STRANGER, client="192.0.2.99"), self.in_reply(NAMELESS))
        self.assertEqual(service.stop(), ENDED)

    def test_exempt(self):
        """Who is on the white list is let in, whatever else there is to say of him."""
        service = self.serve("--enforce")
        self.assertRegex(self.said(sender=FRIEND, client="192.0.2.99"), "^250 ")
        self.assertEqual(service.stop(), ENDED)
        (record,) = service.records()
        self.assert_decided(record, "accept", "from_whitelist", "DUNNO")
        self.assertEqual(record["decision"]["by"], "exempt")

    def test_exempt_by_an_action(self):
        service = self.serve("--enforce", "--exempt-action=OK")
        self.assertRegex(self.said(sender=FRIEND, client="192.0.2.99"), "^250 ")
        self.assertEqual(self.said(sender=FOE, client="192.0.2.1"), self.in_reply(BLACKLISTED))
        self.assertEqual(service.stop(), ENDED)
        self.assertEqual(service.records()[0]["extra"]["answered"], "OK")

    def test_warn(self):
        """The mail passes, and the mail server's log has the notice."""
        service = self.serve("--enforce=check_ip_reverse_dns", "--warn=from_blacklist")
        before = len(self.server.log())
        self.assertRegex(self.said(sender=FOE, client="192.0.2.1"), "^250 ")
        self.assertEqual(self.said(sender=STRANGER, client="192.0.2.99"), self.in_reply(NAMELESS))
        self.assert_warned(self.server.log()[before:], BLACKLISTED)
        self.assertEqual(service.stop(), ENDED)
        self.assertIn("WARN", service.records()[0]["extra"]["answered"])

    def test_the_service_is_gone(self):
        """Mail goes on, also what would have been refused."""
        service = self.serve("--enforce")
        self.assertEqual(self.said(sender=FOE, client="192.0.2.1"), self.in_reply(BLACKLISTED))
        service.kill()
        self.assertRegex(self.said(sender=FOE, client="192.0.2.1"), "^250 ")
        again = self.serve("--enforce") # on the socket that the killed one has left behind
        self.assertEqual(self.said(sender=FOE, client="192.0.2.1"), self.in_reply(BLACKLISTED))
        self.assertEqual(again.stop(), ENDED)
        self.assertRegex(self.said(sender=FOE, client="192.0.2.1"), "^250 ")
