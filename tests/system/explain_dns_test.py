"""quillfence explain against DNS servers: a sound one, and silent, refusing and lying ones. What
the servers said is in the record, beside what the engine made of it.

usage: explain_dns_test.py --quillfence=QUILLFENCE --replayer=REPLAYER [unittest options]
"""

import json
import shutil
import subprocess
import tempfile
import time
import unittest

import dns_servers as servers
from dns_servers import A, NXDOMAIN, PTR, REFUSED, SERVFAIL, encode_name, record, reply
from dns_testing import Drive, Programs, environment, lacking, main, replay
from dns_zones import ZONES

SLACK = 1.5  # seconds, for a busy machine
REVERSE = "1.2.0.192.in-addr.arpa."
LISTING = "1.2.0.192.rbl.test."
TAKEN = 'which the engine takes for "does not exist"'
TRANSACTION = ["--ip", "192.0.2.1", "--helo", "host-with-an-a.forward.test",
               "--sender", "user@host-with-an-a.forward.test", "--recipient", "rcpt@forward.test"]
CONTROL = "control/rules.enabled"


def address(*octets):
    return record(A, bytes(octets))


class Explained:
    """One run of the program."""

    def __init__(self, drive, *options, transaction=None, **settings):
        begin = time.monotonic()
        done = subprocess.run([Programs.quillfence, "explain", *(transaction or TRANSACTION),
                               *options], env=environment(**drive.settings, **settings),
                              stdin=subprocess.DEVNULL, capture_output=True, timeout=100,
                              check=False)
        self.seconds = time.monotonic() - begin
        self.status = done.returncode
        self.text = done.stdout.decode()
        self.words = " ".join(self.text.split())  # without its line breaks
        self.errors = done.stderr.decode()
        self.record = json.loads(self.text) if "--json" in options and self.text else None

    def rule(self, name):
        return next(rule for rule in self.record["rules"] if rule["rule"] == name)

    def answers(self, name, kind):
        return [dns for dns in self.record["dns"] if (dns["name"], dns["type"]) == (name, kind)]

    def notes(self):
        return [note["text"] for note in self.record["notes"]]

    def verdict(self):
        return self.record["decision"]["verdict"], self.record["decision"]["by"]


class ExplainTest(unittest.TestCase):
    def setUp(self):
        self.drive = Drive()
        self.addCleanup(self.drive.remove)
        self.drive.put("control/enabled", "1\n")

    def serve(self, answer):
        server = servers.ScriptedServer(answer)
        self.addCleanup(server.stop)
        return server

    def explain(self, server, *options, **more):
        where = server if isinstance(server, str) else f"{server.address}:{server.port}"
        return Explained(self.drive, "--server", where, *options, **more)

    def record_of(self, server, *options, **more):
        run = self.explain(server, "--json", *options, **more)
        self.assertIsNotNone(run.record, run.errors)
        self.assertEqual(run.errors, "")
        return run


class SoundServer(ExplainTest):
    @classmethod
    def setUpClass(cls):
        if not servers.Nsd.available():
            lacking("the DNS server NSD is not installed")
        folder = tempfile.mkdtemp(prefix="quillfence-nsd-")
        cls.addClassCleanup(shutil.rmtree, folder)
        cls.nsd = servers.Nsd(folder, ZONES)
        cls.addClassCleanup(cls.nsd.stop)

    def setUp(self):
        super().setUp()
        self.drive.put(CONTROL, "valid_ptr\ncheck_ip_reverse_dns\nresolve_helo_domain\n")
        self.drive.put("rbl.enabled", "rbl.test\n")

    def client(self, number):
        return ["--ip", f"192.0.2.{number}", *TRANSACTION[2:]]

    def test_a_found_name(self):
        run = self.record_of(self.nsd)
        self.assertEqual(run.status, 0)
        self.assertEqual(run.verdict(), ("accept", "nothing"))
        self.assertEqual(run.record["facts"]["ptr"], ["host-with-an-a.forward.test"])
        (ptr,) = run.answers(REVERSE, "PTR")
        ms = ptr.pop("ms")
        self.assertTrue(0 < ms < 3000, ms)
        self.assertIn("valid_ptr", ptr.pop("used_by"))
        self.assertEqual(ptr, {
            "n": 0, "name": REVERSE, "type": "PTR", "transport": "tcp",
            "server": f"127.0.0.1:{self.nsd.port}", "status": 0, "rcode": "NOERROR",
            "class": "found", "records": ["PTR host-with-an-a.forward.test."], "attempt": 1,
            "tries": 1})

    def test_a_name_that_does_not_exist(self):
        run = self.record_of(self.nsd, transaction=self.client(99))
        self.assertEqual(run.verdict(), ("reject", "rule"))
        (ptr,) = run.answers("99.2.0.192.in-addr.arpa.", "PTR")
        self.assertEqual((ptr["rcode"], ptr["class"], ptr["status"], ptr["records"]),
                         ("NXDOMAIN", "no_name", 9003, []))
        self.assertEqual(run.notes(), [], "a denial is a denial")

    def test_an_alias_and_its_name(self):
        run = self.record_of(self.nsd, transaction=self.client(5))
        (ptr,) = run.answers("5.2.0.192.in-addr.arpa.", "PTR")
        self.assertEqual(ptr["records"], [
            "CNAME chain.5.2.0.192.in-addr.arpa.", "CNAME end.5.2.0.192.in-addr.arpa.",
            "PTR chained.forward.test."])

    def test_block_lists(self):
        self.drive.put(CONTROL, "require_helo\n")
        for number, want in [(1, ("no_hit", "not_listed")), (2, ("hit", "listed")),
                             (3, ("hit", "no_listing")), (4, ("hit", "no_listing")),
                             (5, ("no_hit", "not_listed"))]:
            with self.subTest(client=number):
                run = self.record_of(self.nsd, transaction=self.client(number))
                (zone,) = run.record["dns_block_lists"]
                self.assertEqual((zone["outcome"], zone["answer"]), want)
                self.assertEqual(any("outside of 127.0.0.0/8" in note for note in run.notes()),
                                 want == ("hit", "no_listing"))

    def test_the_report_is_the_replayers(self):
        for number in range(1, 10):
            with self.subTest(client=number):
                run = self.record_of(self.nsd, transaction=self.client(number))
                line = json.loads(replay(self.drive, ip=f"192.0.2.{number}",
                                         QUILLFENCE_DNS_SERVER=f"127.0.0.1:{self.nsd.port}"))
                self.assertEqual(run.record["report"], line)

    def test_answers_by_hand_come_first(self):
        run = self.record_of(self.nsd, "--ptr", "mail.by-hand.example", "--answer",
                             LISTING, "A", "127.0.0.9")
        self.assertEqual(run.record["facts"]["ptr"], ["mail.by-hand.example"])
        self.assertEqual(run.verdict(), ("reject", "rbl"))
        self.assertEqual(run.record["dns_block_lists"][0]["records"], ["A 127.0.0.9"])
        (ptr,) = run.answers(REVERSE, "PTR")
        self.assertNotIn("server", ptr, "nobody was asked")
        (helo,) = run.answers("host-with-an-a.forward.test.", "A")
        self.assertEqual(helo["server"], f"127.0.0.1:{self.nsd.port}")


class RefusingServer(ExplainTest):
    def setUp(self):
        super().setUp()
        self.drive.put(CONTROL, "check_ip_reverse_dns\n")
        self.server = self.serve(lambda message, _: reply(message, REFUSED))

    def test_refused_never_looks_like_a_denial(self):
        run = self.record_of(self.server)
        self.assertEqual(run.verdict(), ("reject", "rule"), "that is what the engine does")
        (ptr,) = run.answers(REVERSE, "PTR")
        self.assertEqual((ptr["rcode"], ptr["class"], ptr["status"]), ("REFUSED", "no_name", 9005))
        self.assertTrue(any("REFUSED" in note and TAKEN in note for note in run.notes()),
                        run.notes())

    def test_in_words(self):
        run = self.explain(self.server)
        self.assertEqual(run.status, 0)
        self.assertIn(f"PTR {REVERSE} REFUSED, {TAKEN}", run.words)
        self.assertRegex(run.words, r"DNS: \d+ questions to 127\.0\.0\.1:\d+ over TCP, [0-9.]+ ms; "
                                    r"\d+ refused")

    def test_guards(self):
        run = self.record_of(self.server, "--guards")
        self.assertEqual(run.verdict(), ("accept", "nothing"))
        self.assertEqual([ptr["attempt"] for ptr in run.answers(REVERSE, "PTR")][:3], [1, 2, 3],
                         "as a failure it is asked again")
        for ptr in run.answers(REVERSE, "PTR"):
            self.assertEqual((ptr["rcode"], ptr["class"], ptr["status"]),
                             ("REFUSED", "failure", 9005))
        self.assertTrue(any("guards" in note for note in run.notes()))

    def test_a_failing_server(self):
        run = self.record_of(self.serve(lambda message, _: reply(message, SERVFAIL)))
        self.assertEqual(run.verdict(), ("accept", "nothing"))
        for ptr in run.answers(REVERSE, "PTR"):
            self.assertEqual((ptr["rcode"], ptr["class"], ptr["status"]),
                             ("SERVFAIL", "failure", 9002))
            self.assertIn("server", ptr)


class SilentServer(ExplainTest):
    def setUp(self):
        super().setUp()
        self.drive.put(CONTROL, "check_ip_reverse_dns\n")
        self.drive.put("rbl.enabled", "rbl.test\n")

    def test_the_whole_answer_within_the_deadline(self):
        server = self.serve(lambda message, _: None)
        run = self.record_of(server, "--deadline", "0.7")
        self.assertLess(run.seconds, 0.7 + SLACK)
        self.assertEqual(run.status, 3)
        self.assertEqual(run.verdict(), ("undecided", "missing"))
        self.assertEqual(len(server.asked), 1, "no time was left for more")
        first = run.answers(REVERSE, "PTR")[0]
        self.assertEqual((first["status"], first["class"], "rcode" in first),
                         (1460, "missing", False))
        self.assertTrue(650 < first["ms"] < 700 + SLACK * 1000, first["ms"])
        self.assertIn({"what": "dns", "name": REVERSE, "type": "PTR"}, run.record["missing"])
        self.assertIn({"what": "dns", "name": LISTING, "type": "A"}, run.record["missing"])
        self.assertEqual(run.rule("check_ip_reverse_dns")["decision"], "undecided")
        self.assertTrue(any("time for DNS questions was used up" in note for note in run.notes()))

    def test_in_words(self):
        run = self.explain(self.serve(lambda message, _: None), "--deadline", "0.3")
        self.assertEqual(run.status, 3)
        self.assertIn("UNDECIDED", run.text)
        self.assertRegex(run.words, "PTR 1.2.0.192.in-addr.arpa. silent until the time for DNS "
                                    r"questions was used up \((29|3\d)\d ms\)")
        self.assertIn("not asked: the time for DNS questions was used up", run.words)

    def test_patience_gives_what_the_engine_makes_of_silence(self):
        # Only the client's name is answered not at all: three attempts, at most 3 seconds each.
        def answer(message, _):
            kind = servers.decode_question(message)[1]
            return None if kind == PTR else reply(message, NXDOMAIN)

        run = self.record_of(self.serve(answer), "--deadline", "60")
        self.assertEqual(run.status, 0)
        self.assertEqual(run.verdict(), ("accept", "nothing"))
        self.assertLess(run.seconds, 2 * 3 * 3.0 + SLACK)
        attempts = run.answers(REVERSE, "PTR")
        self.assertEqual([one["attempt"] for one in attempts], [1, 2, 3] * 2, "twice: the report's")
        for one in attempts:
            self.assertEqual((one["status"], one["class"]), (1460, "failure"))
            self.assertTrue(2900 < one["ms"] < 3000 + SLACK * 1000, one["ms"])
        self.assertEqual(run.record["missing"], [])

    def test_a_certain_hit_stands(self):
        self.drive.put("from_blacklist", "*@forward.test\n")
        run = self.record_of(self.serve(lambda message, _: None), "--deadline", "0.2",
                             transaction=[*TRANSACTION[:4], "--sender", "u@forward.test",
                                          *TRANSACTION[6:]])
        self.assertEqual(run.status, 0)
        self.assertEqual(run.record["decision"]["rule"], "from_blacklist")
        self.assertTrue(any("an earlier rule could have decided" in note for note in run.notes()))
        self.assertIn("failed", run.record["report"])

    def test_nobody_there(self):
        run = self.record_of(f"127.0.0.1:{servers.free_port()}")
        self.assertEqual(run.verdict(), ("accept", "nothing"), "as the engine takes it")
        self.assertLess(run.seconds, SLACK)
        for one in run.record["dns"]:
            self.assertEqual((one["status"], one["class"], one["tries"], "rcode" in one),
                             (9002, "failure", 3, False))
        self.assertIn("rbl.test could not be asked, which the engine takes for \"not listed\"",
                      run.notes())
        text = self.explain(f"127.0.0.1:{servers.free_port()}").words
        self.assertIn("unreachable: no server could be reached", text)


class LyingServer(ExplainTest):
    """A block list's server that answers for everybody."""

    def setUp(self):
        super().setUp()
        self.drive.put(CONTROL, "require_helo\n")
        self.drive.put("rbl.enabled", "rbl.test\n")

    def lies(self, *octets):
        def answer(message, _):
            name, kind, _ = servers.decode_question(message)
            if name == LISTING and kind == A:
                return reply(message, 0, [address(*octets)])
            if kind == PTR:
                return reply(message, 0, [record(PTR, encode_name("mail.forward.test"))])
            return reply(message, NXDOMAIN)

        return self.serve(answer)

    def test_what_is_said_and_what_is_made_of_it(self):
        for octets, truth, told in [
            ((127, 0, 0, 2), "listed", None),
            ((127, 255, 255, 254), "refused", "127.255.255.0/24"),
            ((192, 0, 2, 99), "no_listing", "outside of 127.0.0.0/8"),
            ((0, 0, 0, 0), "no_listing", "outside of 127.0.0.0/8"),
        ]:
            with self.subTest(octets=octets):
                run = self.record_of(self.lies(*octets))
                self.assertEqual(run.verdict(), ("reject", "rbl"), "any address is a listing")
                self.assertEqual(run.record["decision"]["zone"], "rbl.test")
                (zone,) = run.record["dns_block_lists"]
                self.assertEqual((zone["outcome"], zone["answer"]), ("hit", truth))
                self.assertEqual(zone["records"], ["A " + ".".join(map(str, octets))])
                self.assertEqual([told in note for note in run.notes()] if told else run.notes(),
                                 [True] if told else [])

    def test_guards(self):
        for octets, verdict, truth in [((127, 0, 0, 2), "reject", "listed"),
                                       ((127, 255, 255, 254), "accept", "refused"),
                                       ((192, 0, 2, 99), "accept", "no_listing")]:
            with self.subTest(octets=octets):
                run = self.record_of(self.lies(*octets), "--guards")
                self.assertEqual(run.record["decision"]["verdict"], verdict)
                (zone,) = run.record["dns_block_lists"]
                self.assertEqual(zone["answer"], truth)
                (asked,) = run.answers(LISTING, "A")
                self.assertEqual((asked["rcode"], asked["status"]), ("NOERROR", 0),
                                 "what the server said")
                self.assertEqual(asked["class"], "found" if verdict == "reject" else "failure")


class NoServer(ExplainTest):
    def test_dns_off(self):
        server = self.serve(lambda message, _: reply(message, REFUSED))
        run = Explained(self.drive, "--dns", "off", "--json",
                        QUILLFENCE_DNS_SERVER=f"{server.address}:{server.port}")
        self.assertEqual(server.asked, [], "off is off")
        self.assertEqual((run.status, run.verdict()), (3, ("undecided", "missing")))
        self.assertEqual({one["class"] for one in run.record["dns"]}, {"missing"})

    def test_dns_off_with_answers_by_hand(self):
        self.drive.put(CONTROL, "valid_ptr\nresolve_helo_domain\n")
        run = Explained(self.drive, "--dns", "off", "--json", "--ptr", "mail.forward.test",
                        "--answer", "host-with-an-a.forward.test", "A", "NXDOMAIN",
                        "--answer", "host-with-an-a.forward.test", "AAAA", "NXDOMAIN",
                        "--answer", "host-with-an-a.forward.test", "MX", "NXDOMAIN")
        self.assertEqual(run.status, 0, run.text)
        self.assertEqual(run.record["decision"]["rule"], "resolve_helo_domain")
        self.assertEqual(run.record["missing"], [])

    def test_refusals_of_the_command_line(self):
        for options, told in [
            (["--server", "ns.example.org"], "--server"),
            (["--server", "127.0.0.1:0"], "--server"),
            (["--deadline", "0"], "--deadline"),
            (["--deadline", "-1"], "--deadline"),
            (["--answer", "a..b", "A", "192.0.2.1"], "a..b"),
            (["--answer", "a.b", "TXT", "x"], "TXT"),
            (["--ptr", "a..b"], "a..b"),
        ]:
            with self.subTest(options):
                run = Explained(self.drive, *options)
                self.assertEqual((run.status, run.text), (2, ""))
                self.assertIn(told, run.errors)


if __name__ == "__main__":
    main()
