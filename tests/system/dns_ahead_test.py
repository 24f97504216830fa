"""Many DNS questions at once on one channel (Linux): each gets what the client for one question at
a time gets from the same server, and what a server can do to the others is bounded.

usage: dns_ahead_test.py --probe=DNS_PROBE [unittest options]
"""

import itertools
import re
import struct
import threading
import time
import unittest
from concurrent.futures import ThreadPoolExecutor

import dns_servers as servers
from dns_servers import AAAA, A, CNAME, CLOSE, MX, PTR, RESET, TXT, Raw, encode_name, record, reply
from dns_testing import main, probe

HOST = record(A, b"\xC0\x00\x02\x01")
OTHER = record(A, b"\xC0\x00\x02\x02")
ANSWER_LIMIT = 3.0
SLACK = 2.0  # for a busy machine


def at(server):
    return {"QUILLFENCE_DNS_SERVER": f"{server.address}:{server.port}"}


def always(*actions):
    """A new function for each server: they share nothing."""
    return lambda: lambda m, _: [a(m) if callable(a) else a for a in actions]


def found(message):
    return reply(message, 0, [HOST])


def code(number):
    return lambda m: reply(m, number)


def records(*all_of_them):
    return lambda m: reply(m, 0, list(all_of_them))


def counted(answer):
    """answer(n, message) for the n-th question."""
    def make():
        number = itertools.count(1)
        return lambda m, _: answer(next(number), m)
    return make


def other_identifier(message):
    return reply(message, 0, [OTHER],
                 identifier=struct.unpack_from(">H", message)[0] ^ 1)


def other_name(message):
    return message[:2] + reply(servers.query("other.test.", A), 0, [OTHER])[2:]


def other_type(message):
    return message[:2] + reply(servers.query("host.test.", AAAA), 0, [OTHER])[2:]


def upper_case(message):
    answer = found(message)
    return answer[:12] + answer[12:].replace(b"host", b"HOST")


def cut_record(message):
    head = bytearray(reply(message))
    head[6:8] = struct.pack(">H", 2)
    return bytes(head) + HOST


def dribbled(message):
    whole = found(message)
    return [step for byte in struct.pack(">H", len(whole)) + whole
            for step in (Raw(bytes([byte])), 0.005)]


# What the server does, and the type that is asked for.
SAME = {
    "an address": (always(found), A),
    "all kinds of records": (always(records(
        record(CNAME, encode_name("alias.test")), record(MX, b"\0\x0a" + encode_name("mx.test")),
        record(TXT, b"\x01x"), record(PTR, encode_name([b"a.b", b"c\0d"])), HOST)), A),
    "names": (always(records(*[record(PTR, encode_name(f"host-{i}.test")) for i in range(200)])),
              PTR),
    **{f"response code {n}": (always(code(n)), A) for n in range(1, 16)},
    "no records": (always(code(0)), A),
    "records next to a code": (always(lambda m: reply(m, 3, [record(CNAME, encode_name("x.y"))])),
                               A),
    "64 KiB": (always(records(*[HOST] * ((65535 - 12 - 15) // len(HOST)))), A),
    "a truncated answer": (always(lambda m: reply(m, 0, [HOST], truncated=True)), A),
    "letter case": (always(upper_case), A),
    "a record is missing": (always(cut_record), A),
    "no answer but a question": (always(lambda m: m), A),
    "byte by byte": (lambda: lambda m, _: dribbled(m), A),
    "a slow answer": (always(1.2, found), A),
    "answers to something else": (always(other_identifier, other_name, other_type, b"\1", found),
                                  A),
    "only answers to something else": (always(other_identifier, other_name), A),
    "silence": (lambda: lambda m, _: None, A),
    "closed without a word": (always(CLOSE), A),
    "reset without a word": (always(RESET), A),
    "closed in the length": (always(Raw(b"\0"), CLOSE), A),
    "closed in the message": (always(Raw(b"\0\x64abc"), CLOSE), A),
    "a message of no bytes": (always(Raw(b"\0\0")), A),
    "the third time": (counted(lambda n, m: found(m) if n == 3 else RESET), A),
    "the second time": (counted(lambda n, m: found(m) if n == 2 else CLOSE), A),
    "bytes that never end": (lambda: lambda m, _: itertools.chain(
        [Raw(b"\xFF\xFF")], (step for _ in range(60) for step in (Raw(b"\0"), 0.1))), A),
    "a flood": (lambda: lambda m, _: itertools.repeat(
        reply(m, 0, [HOST] * 1000, identifier=struct.unpack_from(">H", m)[0] ^ 1)), A),
}


STARTING = threading.Lock()


def start(answer):
    """A server of a free port, which somebody else may take first."""
    for last in (False, False, False, True):
        try:
            with STARTING:
                return servers.ScriptedServer(answer)
        except OSError:
            if last:
                raise


class Same(unittest.TestCase):
    """The table above: the same outcome, and the server sees the same."""

    def compare(self, make, kind):
        seen = []
        for question in (f"details host.test. {kind} 2", f"ahead host.test. {kind}"):
            with start(make()) as server:
                began = time.monotonic()
                got = probe([question], **at(server))[0]
                seconds = time.monotonic() - began
                seen.append((got.replace(f":{server.port}", ":PORT"), server.asked,
                             server.connections))
            self.assertLess(seconds, ANSWER_LIMIT + 2 * SLACK)
            if got.startswith("1460"):
                self.assertGreaterEqual(seconds, ANSWER_LIMIT - 0.1)
        return seen

    def test_servers(self):
        with ThreadPoolExecutor(len(SAME)) as pool:
            done = {name: pool.submit(self.compare, *row) for name, row in SAME.items()}
        for name, both in done.items():
            with self.subTest(name):
                one, ahead = both.result()
                self.assertEqual(ahead, one)

    def test_names(self):
        names = ["Host.Test", "single", ".", "under_score.test.", "..", ".a", "a..b", "a..",
                 "a" * 63 + ".test.", "a" * 64 + ".test.", ("b" * 61 + ".") * 4 + "ccccc",
                 ("b" * 61 + ".") * 4 + "cccccc"]
        both = []
        for words in ("details {} 1 2", "ahead {} 1"):
            with servers.ScriptedServer(lambda m, _: reply(m, 0, [HOST])) as server:
                lines = probe([words.format(name) for name in names], **at(server))
                both.append(([line.replace(f":{server.port}", "").replace(" untimed", " timed")
                              for line in lines], server.asked))
        self.assertEqual(both[1], both[0])

    def test_nobody_there(self):
        for settings in ({"QUILLFENCE_DNS_SERVER": f"127.0.0.1:{servers.free_port()}"},):
            one, ahead = probe(["details host.test. 1 2", "ahead host.test. 1"], **settings)
            self.assertEqual(ahead, one)
        self.assertEqual(probe(["ahead host.test. 1"], QUILLFENCE_DNS_SERVER="nowhere"),
                         ["87 no channel"])

    def test_connection_that_is_not_taken(self):
        with servers.DeafPort() as deaf, ThreadPoolExecutor() as pool:
            one, ahead = [line for done in [pool.submit(probe, [question], **at(deaf)) for question
                                            in ("details host.test. 1 2", "ahead host.test. 1")]
                          for line in done.result()]
        self.assertEqual(ahead, one)
        self.assertTrue(one.startswith("1460 -1 "), one)


class ManyServer(servers.ScriptedServer):
    """Takes many questions of a connection before it answers: answer(n, message) gives a pause, or
    the actions at once; the n-th question in all."""

    def __init__(self, answer):
        self._numbers = itertools.count(1)
        self.most_open = 0
        self._open = 0
        self._count = threading.Lock()
        super().__init__(answer)

    def _serve_connection(self, stream):
        with self._count:
            self._open += 1
            self.most_open = max(self.most_open, self._open)
        super()._serve_connection(stream)
        with self._count:
            self._open -= 1

    def _actions(self, message, tcp):
        self._note(message, "tcp" if tcp else "udp")
        return self.answer(next(self._numbers), message)


class Burst(unittest.TestCase):
    """Hundreds of questions at the same moment."""

    def burst(self, count, answer, limit=-1, kind=ManyServer):
        server = kind(answer)
        self.addCleanup(server.stop)
        start = time.monotonic()
        line = probe([f"burst {count} many.test. {limit}"], **at(server))[0]
        self.seconds = time.monotonic() - start
        outcomes = {(int(status), int(tries)): int(times) for status, tries, times in
                    re.findall(r"(\d+) tries (\d+): (\d+)", line)}
        self.assertEqual(sum(outcomes.values()), count)
        return outcomes, server

    def test_few_connections(self):
        outcomes, server = self.burst(1000, lambda n, m: [found(m)])
        self.assertEqual(outcomes, {(0, 1): 1000})
        self.assertLessEqual(server.connections, 8)
        self.assertEqual(len(server.asked), 1000, "each is asked once")

    def test_answers_in_any_order(self):
        """The server takes up to fifty questions, and answers them from the last to the first."""
        class Backwards(ManyServer):
            def _serve_connection(self, stream):
                with stream:
                    self._serve_backwards(stream)

            def _serve_backwards(self, stream):
                stream.settimeout(0.05)
                kept, rest = [], b""
                while not self._ended.is_set():
                    try:
                        part = stream.recv(65536)
                    except TimeoutError:
                        for one in reversed(kept):
                            self._act(stream, found(one))
                        kept = []
                        continue
                    except OSError:
                        return
                    if not part:
                        return
                    rest += part
                    while len(rest) > 2 and len(rest) >= 2 + struct.unpack(">H", rest[:2])[0]:
                        size = 2 + struct.unpack(">H", rest[:2])[0]
                        kept.append(rest[2:size])
                        rest = rest[size:]

        outcomes, _ = self.burst(400, None, kind=Backwards)
        self.assertEqual(outcomes, {(0, 1): 400})

    def test_one_answer_a_connection(self):
        """What a server cuts off behind an answer is not the questions' fault: all are answered."""
        outcomes, server = self.burst(200, lambda n, m: [found(m), CLOSE])
        self.assertEqual({status for status, _ in outcomes}, {0})
        self.assertLessEqual(server.most_open, 64)
        self.assertLessEqual(max(tries for _, tries in outcomes), 16)

    def test_late_end_of_a_connection(self):
        """Nor is what was put on such a connection while the server was about to cut it."""
        outcomes, server = self.burst(200, lambda n, m: [found(m), 0.01, CLOSE])
        self.assertEqual({status for status, _ in outcomes}, {0})
        self.assertLessEqual(server.most_open, 64)
        self.assertLessEqual(max(tries for _, tries in outcomes), 16)

    def test_a_few_answers_a_connection(self):
        answered = {}

        def ten(_, message):
            one = threading.get_ident()  # a thread a connection
            answered[one] = answered.get(one, 0) + 1
            return [found(message)] + ([RESET] if answered[one] % 10 == 0 else [])

        outcomes, server = self.burst(500, ten)
        self.assertEqual({status for status, _ in outcomes}, {0})
        self.assertLessEqual(server.most_open, 64)

    def test_cut_connections(self):
        """As to a single question: three tries, no more."""
        outcomes, server = self.burst(300, lambda n, m: [RESET])
        self.assertEqual(outcomes, {(9002, 3): 300})
        self.assertLess(self.seconds, SLACK)
        self.assertLessEqual(server.connections, 3 * 300)

    def test_silence(self):
        outcomes, server = self.burst(300, lambda n, m: [])
        self.assertEqual(outcomes, {(1460, 1): 300})
        self.assertLess(self.seconds, 3 + SLACK)
        self.assertLessEqual(server.connections, 8)

    def test_limit(self):
        outcomes, _ = self.burst(300, lambda n, m: [], limit=400)
        self.assertEqual(outcomes, {(1460, 1): 300})
        self.assertLess(self.seconds, 0.4 + SLACK)
        outcomes, server = self.burst(300, lambda n, m: [], limit=0)
        self.assertEqual(outcomes, {(1460, 0): 300})
        self.assertEqual(server.connections, 0)

    def test_silence_to_some(self):
        """The others do not wait for them, nor lose anything."""
        outcomes, server = self.burst(300, lambda n, m: [] if n % 10 == 0 else [found(m)], 800)
        self.assertEqual(outcomes, {(0, 1): 270, (1460, 1): 30})
        self.assertLess(self.seconds, 0.8 + SLACK)
        self.assertEqual(len(server.asked), 300)

    def test_nobody_there(self):
        line = probe(["burst 300 many.test. -1"],
                     QUILLFENCE_DNS_SERVER=f"127.0.0.1:{servers.free_port()}")[0]
        self.assertTrue(line.startswith("9002 tries 3: 300, "), line)

    def test_flood(self):
        """Answers to nobody's question: they gain the server no time."""
        outcomes, _ = self.burst(50, lambda n, m: itertools.repeat(other_identifier(m)), 700)
        self.assertEqual({status for status, _ in outcomes}, {1460})
        self.assertLess(self.seconds, 0.7 + SLACK)

    def test_too_many_questions(self):
        outcomes, _ = self.burst(16384 + 7, lambda n, m: [], 1000)
        self.assertEqual(outcomes[(8, 0)], 7)
        self.assertEqual(sum(times for (status, _), times in outcomes.items() if status == 1460),
                         16384)


if __name__ == "__main__":
    main()
