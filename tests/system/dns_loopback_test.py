"""The Linux build against DNS servers on loopback ports, named by QUILLFENCE_DNS_SERVER.

usage: dns_loopback_test.py --probe=DNS_PROBE --replayer=REPLAYER [unittest options]
"""

import itertools
import os
import shutil
import struct
import subprocess
import tempfile
import time
import unittest

import dns_servers as servers
from dns_servers import AAAA, A, CNAME, CLOSE, MX, PTR, RESET, TXT, Raw, encode_name, record, reply
from dns_testing import Drive, Programs, environment, lacking, main, probe, replay, report
from dns_transactions import check_questions, check_transactions
from dns_zones import ZONES

TCP, UDP = "2", "0"
CONNECT_LIMIT = ANSWER_LIMIT = 3.0
SLACK = 2.0  # for a busy machine

HOST = record(A, b"\xC0\x00\x02\x01")


def name_record(*labels):
    return record(PTR, encode_name(list(labels)))


def at(server):
    return {"QUILLFENCE_DNS_SERVER": f"{server.address}:{server.port}"}


class AuthoritativeServer(unittest.TestCase):
    """Everything that a sound server says."""

    @classmethod
    def setUpClass(cls):
        if not servers.Nsd.available():
            lacking("the DNS server NSD is not installed")
        cls.folder = tempfile.mkdtemp(prefix="quillfence-nsd-")
        cls.addClassCleanup(shutil.rmtree, cls.folder)
        cls.nsd = servers.Nsd(cls.folder, ZONES)
        cls.addClassCleanup(cls.nsd.stop)

    def setUp(self):
        self.drive = Drive()
        self.addCleanup(self.drive.remove)

    def test_questions(self):
        check_questions(self, False, **at(self.nsd))

    def test_transactions(self):
        check_transactions(self, False, self.drive, **at(self.nsd))

    def test_ways_to_name_the_server(self):
        port = self.nsd.port
        question = ["query host-with-an-a.forward.test. 1 2"]
        for value, want in [
            (f"127.0.0.1:{port}", "0 [1 -]"),
            (f"[127.0.0.1]:{port}", "0 [1 -]"),
            ("127.0.0.1:", "87"),
            ("127.0.0.1:0", "87"),
            ("127.0.0.1:65536", "87"),
            (f"127.0.0.1:{port}x", "87"),
            (f"127.0.0.1:-{port}", "87"),
            (f"127.0.0.1: {port}", "87"),
            ("localhost", "87"),
            ("127.0.0.1,127.0.0.2", "87"),
            ("[127.0.0.1", "87"),
            (f"[127.0.0.1]{port}", "87"),
            ("[]", "87"),
            (":", "87"),
            ("1" * 300, "87"),
        ]:
            with self.subTest(value):
                self.assertEqual(probe(question, QUILLFENCE_DNS_SERVER=value), [want])


class ScriptedServer(unittest.TestCase):
    """What a sound server never does, over UDP and TCP."""

    def serve(self, answer):
        server = servers.ScriptedServer(answer)
        self.addCleanup(server.stop)
        return server

    def ask(self, answer, question="query host.test. 1 {}", option=TCP):
        server = self.serve(answer)
        return probe([question.format(option)], **at(server))[0], server

    def test_response_codes(self):
        for option in (UDP, TCP):
            for code in range(1, 16):
                with self.subTest(code=code, option=option):
                    got, server = self.ask(lambda m, _, c=code: reply(m, c), option=option)
                    self.assertEqual(got, str(9000 + code))
                    self.assertEqual(len(server.asked), 1, "asked once")

    def test_transport(self):
        for option, want in ((UDP, "udp"), (TCP, "tcp"), ("1", "udp"), ("3", "tcp")):
            _, server = self.ask(lambda m, _: reply(m, 0, [HOST]), option=option)
            self.assertEqual(server.asked, [("host.test.", A, want)])

    def test_names_are_asked_as_they_are(self):
        for name, want in [("host.test.", "host.test."), ("Host.Test", "Host.Test."),
                           ("single", "single."), (".", "."), ("under_score.test.", None),
                           ("back\\slash.test.", None), ("hidden.onion.", None),
                           ("a" * 63 + ".test.", None), (("b" * 61 + ".") * 4 + "ccccc", None)]:
            with self.subTest(name):
                server = self.serve(lambda m, _: reply(m, 0, [HOST]))
                self.assertEqual(probe([f"query {name} 1 2"], **at(server)), ["0 [1 -]"])
                want = want or (name if name.endswith(".") else name + ".")
                self.assertEqual(server.asked, [(want, A, "tcp")])

    def test_names_that_cannot_be_asked(self):
        server = self.serve(lambda m, _: reply(m, 0, [HOST]))
        names = ["..", ".a", "a..b", "a..", "a" * 64 + ".test.", ("b" * 61 + ".") * 4 + "cccccc",
                 "c." * 128]
        self.assertEqual(probe([f"query {name} 1 2" for name in names], **at(server)),
                         ["123"] * len(names))
        self.assertEqual(probe([f"domain {'a' * 64}.test 1", f"exists {'c.' * 128} 1"],
                               **at(server)), ["2", "2"])
        self.assertEqual(server.asked, [])

    def test_silence(self):
        for option in (UDP, TCP):
            with self.subTest(option=option):
                start = time.monotonic()
                got, server = self.ask(lambda m, _: None, option=option)
                self.assertEqual(got, "1460")
                self.assertLess(time.monotonic() - start, ANSWER_LIMIT + SLACK)
                transports = [transport for _, _, transport in server.asked]
                # Over UDP the question is repeated after one second, and not again before three.
                self.assertEqual(transports, ["udp", "udp"] if option == UDP else ["tcp"])

    def test_connection_that_is_not_taken(self):
        with servers.DeafPort() as deaf:
            start = time.monotonic()
            self.assertEqual(probe(["query host.test. 1 2"], **at(deaf)), ["1460"])
            self.assertLess(time.monotonic() - start, CONNECT_LIMIT + SLACK)

    def test_nobody_there(self):
        port = servers.free_port()
        start = time.monotonic()
        self.assertEqual(probe(["query host.test. 1 0", "query host.test. 1 2"],
                               QUILLFENCE_DNS_SERVER=f"127.0.0.1:{port}"), ["9002", "9002"])
        self.assertLess(time.monotonic() - start, SLACK)

    def test_lost_datagram(self):
        seen = []

        def second_only(message, _):
            seen.append(message)
            return reply(message, 0, [HOST]) if len(seen) > 1 else None

        got, _ = self.ask(second_only, option=UDP)
        self.assertEqual(got, "0 [1 -]")
        self.assertEqual(seen[0], seen[1])

    def test_slow_answer(self):
        got, _ = self.ask(lambda m, _: [1.5, reply(m, 0, [HOST])], option=TCP)
        self.assertEqual(got, "0 [1 -]")

    def test_cut_connections(self):
        whole = struct.pack(">H", 100)
        for name, answer in [
            ("closed without a word", lambda m, _: CLOSE),
            ("reset without a word", lambda m, _: RESET),
            ("closed after half a length", lambda m, _: [Raw(b"\0"), CLOSE]),
            ("closed after the length", lambda m, _: [Raw(whole), CLOSE]),
            ("closed in the message", lambda m, _: [Raw(whole + reply(m)[:9]), CLOSE]),
        ]:
            with self.subTest(name):
                start = time.monotonic()
                got, server = self.ask(answer)
                self.assertEqual(got, "9002")
                self.assertEqual(server.connections, 3, "two more tries")
                self.assertLess(time.monotonic() - start, SLACK)

    def test_cut_connection_then_an_answer(self):
        seen = []

        def later(message, _):
            seen.append(message)
            return reply(message, 0, [HOST]) if len(seen) == 3 else RESET

        got, _ = self.ask(later)
        self.assertEqual(got, "0 [1 -]")

    def test_dribble(self):
        def dribble(message, _):
            answer = reply(message, 0, [HOST])
            whole = struct.pack(">H", len(answer)) + answer
            return [step for byte in whole for step in (Raw(bytes([byte])), 0.01)]

        got, _ = self.ask(dribble)
        self.assertEqual(got, "0 [1 -]")

    def test_endless_dribble(self):
        """Bytes that keep coming do not stretch the limit."""
        start = time.monotonic()
        got, _ = self.ask(lambda m, _: [Raw(b"\xFF\xFF")] +
                          [step for _ in range(100) for step in (Raw(b"\0"), 0.1)])
        self.assertEqual(got, "1460")
        self.assertLess(time.monotonic() - start, ANSWER_LIMIT + SLACK)

    def test_flood(self):
        """Nor does a stream of answers to other questions."""
        def flood(message, _):
            other = struct.unpack_from(">H", message)[0] ^ 1
            return itertools.repeat(reply(message, 0, [HOST] * 1000, identifier=other))

        start = time.monotonic()
        got, _ = self.ask(flood)
        self.assertEqual(got, "1460")
        self.assertLess(time.monotonic() - start, ANSWER_LIMIT + SLACK)

    def test_cut_datagram_is_fetched_over_tcp(self):
        got, server = self.ask(
            lambda m, tcp: reply(m, 0, [HOST, HOST]) if tcp else reply(m, truncated=True),
            option=UDP)
        self.assertEqual(got, "0 [1 -] [1 -]")
        self.assertEqual([transport for _, _, transport in server.asked], ["udp", "tcp"])

    def test_answers_to_something_else(self):
        """They are not taken: the real answer counts, and without one the time runs out."""
        other_name = servers.query("other.test.", A)

        def false_answers(message, tcp):
            return [
                reply(message, 0, [HOST, HOST],
                      identifier=struct.unpack_from(">H", message)[0] ^ 1),
                message[:2] + reply(other_name, 0, [HOST, HOST])[2:],
                b"\0", message[:11],
            ] + ([] if tcp else [b""])

        for option in (UDP, TCP):
            with self.subTest(option=option):
                got, _ = self.ask(lambda m, t: false_answers(m, t) + [reply(m, 0, [HOST])],
                                  option=option)
                self.assertEqual(got, "0 [1 -]")
        got, _ = self.ask(false_answers, option=UDP)
        self.assertEqual(got, "1460")

    def test_damaged_answers(self):
        def with_counts(message, answers, rest):
            head = bytearray(reply(message))
            head[6:8] = struct.pack(">H", answers)
            return bytes(head) + rest

        for name, answer in [
            ("a record is missing", lambda m, _: with_counts(m, 2, HOST)),
            ("65535 records promised", lambda m, _: with_counts(m, 65535, HOST)),
            ("a record cut", lambda m, _: with_counts(m, 1, HOST[:-1])),
            ("data longer than the message",
             lambda m, _: with_counts(m, 1, HOST[:10] + b"\xFF\xFF" + HOST[12:])),
            ("owner with a bad label type", lambda m, _: with_counts(m, 1, b"\x80" + HOST)),
        ]:
            for option in (UDP, TCP):
                with self.subTest(name, option=option):
                    got, _ = self.ask(answer, option=option)
                    self.assertEqual(got, "9502")
        loops = record(PTR, b"\xC0\x26")  # points at itself
        got, _ = self.ask(lambda m, _: with_counts(m, 1, loops), "query host.test. 12 {}")
        self.assertEqual(got, "9502")

    def test_answer_of_64_kib(self):
        wanted = (65535 - 12 - 15) // len(HOST)
        got, _ = self.ask(lambda m, _: reply(m, 0, [HOST] * wanted))
        self.assertEqual(got, "0" + " [1 -]" * wanted)

    def test_oversized_datagram(self):
        """More than the 512 bytes that were agreed upon are fetched over TCP."""
        got, server = self.ask(lambda m, _: reply(m, 0, [HOST] * 100), option=UDP)
        self.assertEqual(got, "0" + " [1 -]" * 100)
        self.assertEqual([transport for _, _, transport in server.asked], ["udp", "tcp"])

    def test_two_hundred_names(self):
        names = [f"host-{i}.example" for i in range(200)]
        got, _ = self.ask(lambda m, _: reply(m, 0, [record(PTR, encode_name(n)) for n in names]),
                          "ptr 192.0.2.1 {} 0")
        self.assertEqual(got, " ".join(["0"] + names))

    def test_odd_names(self):
        for labels, want in [
            ((b"Host-A", b"Example"), "Host-A.Example"),
            ((b"a.b", b"example"), "a\\.b.example"),
            ((b"a\0b", b"example"), "a\\000b.example"),
            ((b"a b", b"\xC3\xA9"), "a\\032b.\\195\\169"),
            ((b"back\\slash",), "back\\\\slash"),
            ((b"new\nline", b"\x7F"), "new\\010line.\\127"),
        ]:
            with self.subTest(want):
                got, _ = self.ask(lambda m, _, l=labels: reply(m, 0, [name_record(*l)]),
                                  "ptr 192.0.2.1 {} 0")
                self.assertEqual(got, "0 " + want)

    def test_records_of_other_types_in_a_ptr_answer(self):
        others = [record(CNAME, encode_name("alias.test")), record(TXT, b"\x01x"),
                  record(46, b"\0" * 40)]
        got, _ = self.ask(lambda m, _: reply(m, 0, others + [name_record(b"name", b"test")]),
                          "ptr 192.0.2.1 {} 1")
        self.assertEqual(got, "0 name.test")
        got, _ = self.ask(lambda m, _: reply(m, 0, others), "ptr 192.0.2.1 {} 0")
        self.assertEqual(got, "-1")

    def test_three_attempts_at_a_ptr_lookup(self):
        for code, attempts, want in [(2, 3, "2"), (4, 3, "2"), (5, 1, "1"), (3, 1, "1"),
                                     (8, 1, "1"), (10, 1, "1"), (9, 3, "2"), (0, 3, "2")]:
            with self.subTest(code):
                got, server = self.ask(lambda m, _, c=code: reply(m, c), "ptr 192.0.2.1 {} 0")
                self.assertEqual(got, want)
                self.assertEqual(server.asked,
                                 [("1.2.0.192.in-addr.arpa.", PTR, "tcp")] * attempts)


class Details(unittest.TestCase):
    """What is told of a question besides its result."""

    def serve(self, answer):
        server = servers.ScriptedServer(answer)
        self.addCleanup(server.stop)
        return server

    def ask(self, answer, kind=A, option=TCP, **settings):
        server = self.serve(answer)
        settings = settings or at(server)
        got = probe([f"details host.test. {kind} {option}"], **settings)[0]
        return got.replace(f"{server.address}:{server.port}", "SERVER")

    def test_transport_and_tries(self):
        answer = lambda m, _: reply(m, 0, [HOST])
        self.assertEqual(self.ask(answer, option=TCP), "0 0 SERVER tcp 1 timed [A 192.0.2.1]")
        self.assertEqual(self.ask(answer, option=UDP), "0 0 SERVER udp 1 timed [A 192.0.2.1]")

    def test_repeated_questions(self):
        seen = []

        def second_only(message, _):
            seen.append(message)
            return reply(message, 0, [HOST]) if len(seen) % 2 == 0 else None

        self.assertEqual(self.ask(second_only, option=UDP), "0 0 SERVER udp 2 timed [A 192.0.2.1]")
        self.assertEqual(self.ask(lambda m, _: RESET), "9002 -1 SERVER tcp 3 timed")
        self.assertEqual(self.ask(lambda m, _: None, option=UDP), "1460 -1 SERVER udp 2 timed")

    def test_cut_datagram(self):
        got = self.ask(lambda m, tcp: reply(m, 0, [HOST]) if tcp else reply(m, truncated=True),
                       option=UDP)
        self.assertEqual(got, "0 0 SERVER tcp 2 timed [A 192.0.2.1]")

    def test_records_next_to_a_response_code(self):
        alias = record(CNAME, encode_name("gone.test"))
        self.assertEqual(self.ask(lambda m, _: reply(m, servers.NXDOMAIN, [alias])),
                         "9003 3 SERVER tcp 1 timed [CNAME gone.test.]")
        self.assertEqual(self.ask(lambda m, _: reply(m, 5)), "9005 5 SERVER tcp 1 timed")

    def test_nobody_there(self):
        nobody = f"127.0.0.1:{servers.free_port()}"
        self.assertEqual(self.ask(lambda m, _: None, QUILLFENCE_DNS_SERVER=nobody),
                         f"9002 -1 {nobody} tcp 3 timed")
        self.assertEqual(self.ask(lambda m, _: None, QUILLFENCE_DNS_SERVER="nowhere"),
                         "87 -1 - unknown 0 timed")


class Client(unittest.TestCase):
    """A client for many questions, and one that names its server."""

    QUESTION = "details host.test. 1 {}"
    FOUND = "0 0 SERVER {} {} timed [A 192.0.2.1]"

    def serve(self, answer):
        server = servers.ScriptedServer(answer)
        self.addCleanup(server.stop)
        return server

    def ask(self, server, *questions, name="-", **settings):
        address = f"{server.address}:{server.port}"
        settings = settings or at(server)
        got = probe([f"client {name}", *questions], **settings)
        return [line.replace(address, "SERVER") for line in got]

    def test_connection_stays(self):
        server = self.serve(lambda m, _: reply(m, 0, [HOST]))
        self.assertEqual(self.ask(server, *[self.QUESTION.format(TCP)] * 20),
                         ["0"] + [self.FOUND.format("tcp", 1)] * 20)
        self.assertEqual(server.connections, 1)
        self.assertEqual(len(server.asked), 20)

    def test_datagrams(self):
        server = self.serve(lambda m, _: reply(m, 0, [HOST]))
        self.assertEqual(self.ask(server, *[self.QUESTION.format(UDP)] * 3),
                         ["0"] + [self.FOUND.format("udp", 1)] * 3)
        self.assertEqual(server.connections, 0)

    def test_connection_closed_between_questions(self):
        server = self.serve(lambda m, _: [reply(m, 0, [HOST]), CLOSE])
        question = self.QUESTION.format(TCP)
        self.assertEqual(self.ask(server, question, "sleep 100", question, "sleep 100", question),
                         ["0", self.FOUND.format("tcp", 1), "ok", self.FOUND.format("tcp", 1),
                          "ok", self.FOUND.format("tcp", 1)])
        self.assertEqual(server.connections, 3)

    def test_connection_closed_under_a_question(self):
        """Each answer is followed by a close that the client may not have seen yet."""
        server = self.serve(lambda m, _: [reply(m, 0, [HOST]), RESET])
        got = self.ask(server, *[self.QUESTION.format(TCP)] * 20)
        self.assertEqual([line.split(" tcp ")[0] for line in got], ["0"] + ["0 0 SERVER"] * 20)

    def test_silence_ends_the_connection(self):
        def first_is_lost(message, _):
            return reply(message, 0, [HOST]) if len(server.asked) > 1 else None

        server = self.serve(first_is_lost)
        question = self.QUESTION.format(TCP)
        self.assertEqual(self.ask(server, question, question, question),
                         ["0", "1460 -1 SERVER tcp 1 timed", self.FOUND.format("tcp", 1),
                          self.FOUND.format("tcp", 1)])
        self.assertEqual(server.connections, 2)

    def test_late_answer_is_not_taken_for_another(self):
        def late(message, _):
            name = servers.decode_question(message)[0]
            return [3.5, reply(message, 0, [HOST])] if name == "slow.test." else \
                reply(message, 0, [HOST, HOST])

        server = self.serve(late)
        got = self.ask(server, "details slow.test. 1 2", "details host.test. 1 2", "sleep 1000",
                       "details host.test. 1 2")
        two = "0 0 SERVER tcp 1 timed [A 192.0.2.1] [A 192.0.2.1]"
        self.assertEqual(got, ["0", "1460 -1 SERVER tcp 1 timed", two, "ok", two])

    def test_limit(self):
        server = self.serve(lambda m, _: None)
        for option in (UDP, TCP):
            start = time.monotonic()
            got = self.ask(server, "limit 500", self.QUESTION.format(option), "limit 0",
                           self.QUESTION.format(option))
            self.assertEqual([line[:7] for line in got], ["0", "ok", "1460 -1", "ok", "1460 -1"])
            self.assertLess(time.monotonic() - start, 0.5 + SLACK)

    def test_named_server_goes_before_the_environment(self):
        server = self.serve(lambda m, _: reply(m, 0, [HOST]))
        got = self.ask(server, self.QUESTION.format(TCP), self.QUESTION.format(UDP),
                       name=f"127.0.0.1:{server.port}", QUILLFENCE_DNS_SERVER="nowhere")
        self.assertEqual(got, ["0", self.FOUND.format("tcp", 1), self.FOUND.format("udp", 1)])

    def test_names_that_are_no_server(self):
        server = self.serve(lambda m, _: reply(m, 0, [HOST]))
        for name in ("nowhere", "127.0.0.1:0", "127.0.0.1:65536", "1" * 300, "", "[::1"):
            with self.subTest(name):
                self.assertEqual(probe([f"client {name}"] if name else ["client", ""],
                                       **at(server))[:1], ["87"])


class QueriesOfARun(unittest.TestCase):
    """Which questions the program asks, in which order, and how long it waits for answers."""

    REVERSE = [("1.2.0.192.in-addr.arpa.", PTR)]
    HELO = [("helo.test.", A), ("helo.test.", AAAA), ("helo.test.", MX)]
    SENDER = [("sender.test.", A), ("sender.test.", AAAA), ("sender.test.", MX)]

    def setUp(self):
        self.drive = Drive()
        self.addCleanup(self.drive.remove)

    def run_against(self, answer, **changes):
        given = {"helo": "helo.test", "sender": "u@sender.test", **changes}
        server = servers.ScriptedServer(answer)
        self.addCleanup(server.stop)
        output = replay(self.drive, **given, **at(server))
        self.assertEqual({transport for _, _, transport in server.asked} - {"tcp"}, set(),
                         "always over TCP")
        return output, [(name, kind) for name, kind, _ in server.asked]

    def test_everything_exists(self):
        def found(message, _):
            kind = servers.decode_question(message)[1]
            return reply(message, 0, [name_record(b"name", b"test") if kind == PTR else HOST])

        output, asked = self.run_against(found)
        self.assertEqual(output, report())
        self.assertEqual(asked, self.REVERSE + self.HELO[:1] + self.SENDER[:1])

    def test_nothing_exists(self):
        output, asked = self.run_against(lambda m, _: reply(m, servers.NXDOMAIN))
        self.assertEqual(output, report("check_ip_reverse_dns", "resolve_helo_domain",
                                        "valid_from_domain"))
        self.assertEqual(asked, self.REVERSE + self.HELO + self.SENDER)

    def test_failures_hit_nothing(self):
        output, asked = self.run_against(lambda m, _: reply(m, servers.SERVFAIL))
        self.assertEqual(output, report())
        self.assertEqual(asked, self.REVERSE * 3 + self.HELO + self.SENDER)

    def test_silent_server(self):
        """Nine questions of three seconds are the most that a silent server can cost."""
        start = time.monotonic()
        output, asked = self.run_against(lambda m, _: None)
        self.assertEqual(output, report())
        self.assertEqual(asked, self.REVERSE * 3 + self.HELO + self.SENDER)
        self.assertLess(time.monotonic() - start, 9 * ANSWER_LIMIT + SLACK)

    def test_kinds_of_sessions(self):
        for name, changes, want in [
            ("private client", {"ip": "10.0.0.1"}, self.HELO + self.SENDER),
            ("local client", {"ip": "127.0.0.1"}, []),
            ("local IPv6 client", {"ip": "::1"}, []),
            ("bounce", {"sender": ""}, self.REVERSE),
            ("mail user agent", {"mua": "1"}, self.REVERSE + self.SENDER),
            ("invalid HELO", {"helo": "helo"}, self.REVERSE + self.SENDER),
            ("address as HELO", {"helo": "192.0.2.1"}, self.REVERSE + self.SENDER),
            ("sender without a domain", {"sender": "user"}, self.REVERSE + self.HELO),
            ("HELO is the sender's domain: asked twice", {"helo": "sender.test"},
             self.REVERSE + self.SENDER + self.SENDER),
        ]:
            with self.subTest(name):
                _, asked = self.run_against(lambda m, _: reply(m, servers.NXDOMAIN), **changes)
                self.assertEqual(asked, want)

    def test_run_without_questions_leaves_the_resolver_alone(self):
        strace = shutil.which("strace")
        if not strace:
            lacking("strace is not installed")
        trace = os.path.join(tempfile.mkdtemp(prefix="quillfence-strace-"), "trace")
        self.addCleanup(shutil.rmtree, os.path.dirname(trace))
        arguments = ["R", "127.0.0.1", "25", "0", "", "0", "helo.test", "u@sender.test", "r@a.test"]
        done = subprocess.run([strace, "-f", "-o", trace, "-e", "trace=open,openat,socket",
                               Programs.replayer] + arguments,
                              env=environment(**self.drive.settings,
                                              ASAN_OPTIONS="detect_leaks=0"), # not under strace
                              capture_output=True, check=False)
        if done.returncode and b"ptrace" in done.stderr.lower():
            lacking("strace may not trace here")
        self.assertEqual(done.stdout, report())
        with open(trace, encoding="utf-8") as text:
            calls = text.read()
        self.assertIn(self.drive.settings["QUILLFENCE_EVENT_LOG"], calls, "the trace shows the run")
        for word in ("resolv.conf", "nsswitch", "AF_INET"):
            self.assertNotIn(word, calls)


if __name__ == "__main__":
    main()
