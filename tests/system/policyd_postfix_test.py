"""quillfence policyd behind Debian's Postfix, by the lines of docs/policyd.md: what swaks, which
tells by XCLIENT whom it stands for, is answered, and what the decision log has of it.

usage: policyd_postfix_test.py --quillfence=QUILLFENCE [unittest options]
"""

import smtplib
import unittest

from dns_testing import main
from mail_servers import Postfix, enter_namespaces, page_lines, swaks, wait_for
from policyd_cases import FOE, RCPT, STRANGER, BLACKLISTED, BehindMailServer
from policyd_testing import ENDED


class BehindPostfix(BehindMailServer, unittest.TestCase):
    SOCKET = "var/spool/postfix/private/quillfence"

    @classmethod
    def make_server(cls):
        return Postfix(page_lines("smtpd_recipient_restrictions ="))

    def said(self, sender, client, port=40000, helo="host-with-an-a.forward.test", **more):
        return swaks(sender, RCPT, "--xclient-addr", client, "--xclient-port", str(port),
                     "--xclient-helo", helo, "--helo", helo,
                     *(word for name, value in more.items() for word in (f"--{name}", value)))

    def in_reply(self, notice):
        return f"550 5.7.1 <{RCPT}>: Recipient address rejected: {notice}"

    def assert_warned(self, log, notice):
        self.assertRegex(log, r"smtpd\[\d+\]: NOQUEUE: warn: RCPT from \S+\[192\.0\.2\.1\]: ")
        self.assertIn(notice, log)

    def in_one_session(self):
        """A client on the local host, with EHLO said."""
        client = smtplib.SMTP("127.0.0.1", 25, timeout=60)
        self.addCleanup(client.close)
        client.ehlo("relay.forward.test")
        return client

    def xclient(self, client, facts):
        self.assertEqual(client.docmd("XCLIENT", facts)[0], 220)
        client.ehlo("relay.forward.test")

    def test_recipients_of_a_message(self):
        """They share Postfix's instance; each has an id of its own."""
        service = self.serve()
        client = self.in_one_session()
        self.xclient(client, "ADDR=192.0.2.1")
        client.mail(STRANGER)
        for name in "abc":
            self.assertEqual(client.rcpt(f"{name}@forward.test")[0], 250)
        client.mail(STRANGER)
        self.assertEqual(service.stop(), ENDED)
        records = service.records()
        self.assertEqual([record["transaction"]["recipient"] for record in records],
                         [f"{name}@forward.test" for name in "abc"])
        instances, numbers = zip(*(record["id"].rsplit(".", 1) for record in records))
        self.assertEqual(len(set(instances)), 1)
        self.assertEqual([int(number) - int(numbers[0]) for number in numbers], [0, 1, 2])

    def test_an_own_user_on_the_way(self):
        """Who has authenticated is at home somewhere, where PTR names look like that."""
        service = self.serve("--enforce")
        self.assertRegex(self.said(sender=STRANGER, client="192.0.2.99",
                                   **{"xclient-login": "alice"}), "^250 ")
        self.assertEqual(service.stop(), ENDED)
        (record,) = service.records()
        self.assertEqual((record["transaction"]["authuser"], record["transaction"]["mua"],
                          record["decision"]["verdict"]), ("alice", True, "accept"))

    def test_a_whole_message(self):
        service = self.serve("--enforce")
        client = self.in_one_session()
        self.xclient(client, "ADDR=192.0.2.1")
        self.assertEqual(client.sendmail(STRANGER, [RCPT], "Subject: hello\n\nhello\n"), {})
        with self.assertRaises(smtplib.SMTPRecipientsRefused) as refused:
            client.sendmail(FOE, [RCPT], "Subject: hello\n\nhello\n")
        self.assertEqual(refused.exception.recipients[RCPT][0], 550)
        wait_for("the delivery", lambda: "status=sent" in self.server.log())
        self.assertEqual(service.stop(), ENDED)

    def test_the_service_dies_under_a_session(self):
        """Postfix holds a connection to it, which breaks between two recipients."""
        service = self.serve("--enforce")
        client = self.in_one_session()
        self.xclient(client, "ADDR=192.0.2.1")
        client.mail(FOE)
        code, text = client.rcpt(RCPT)
        self.assertEqual((code, text.decode().endswith(BLACKLISTED)), (550, True))
        service.kill()
        self.assertEqual(client.rcpt(RCPT)[0], 250)
        client.quit()


if __name__ == "__main__":
    enter_namespaces()
    main()
