"""quillfence policyd under load: killed, told to end, its log moved away, its files edited, its DNS
servers silent or lying; and every record of its log judged once more.

usage: policyd_load_test.py --quillfence=QUILLFENCE [unittest options]
"""

import itertools
import json
import os
import random
import shutil
import signal
import subprocess
import tempfile
import threading
import time
import unittest
from pathlib import Path

import dns_servers as servers
from dns_servers import A, PTR, REFUSED, decode_question, encode_name, record, reply
from dns_testing import Drive, Programs, environment, main
from mail_servers import PATIENCE, wait_for
from policyd_testing import ENDED, Client, Policyd, records_of

CLIENTS = 8
FOE, STRANGER = "foe@spammer.example", "who@forward.test"
LOCAL = {"client_address": "127.0.0.1"}  # about whom the DNS is not asked
SLACK = 1.5  # seconds, for a busy machine


class Load:
    """Clients that ask about a recipient of its own each time, on connections of their own, until
    they are told to stop, have asked `each` times or the service hangs up."""

    def __init__(self, path, name, each=None, **facts):
        self.answers = {}  # the action by recipient
        self.unanswered = set()
        self._facts = facts
        self._name = name
        self._each = each
        self._stopped = threading.Event()
        self._threads = [threading.Thread(target=self._ask, args=(Client(path), number))
                         for number in range(CLIENTS)]
        for thread in self._threads:
            thread.start()

    def _ask(self, client, number):
        with client:
            for n in range(self._each) if self._each else itertools.count():
                if self._stopped.is_set():
                    return
                recipient = f"{self._name}-{number}-{n}@forward.test"
                try:
                    action = client.ask(recipient=recipient, **self._facts)
                except OSError:
                    action = None
                if action is None:
                    self.unanswered.add(recipient)
                    return
                self.answers[recipient] = action

    def stop(self):
        self._stopped.set()
        self.join()

    def join(self):
        for thread in self._threads:
            thread.join()


class LoadTest(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        folder = tempfile.mkdtemp(prefix="quillfence-policyd-")
        self.addCleanup(shutil.rmtree, folder)
        self.folder = Path(folder)
        self.drive = Drive()
        self.addCleanup(self.drive.remove)
        self.drive.put("control/enabled", "1\n")
        self.drive.put("control/rules.enabled", "check_ip_reverse_dns\n")
        self.drive.put("from_blacklist", "*@spammer.example\n")

    def serve(self, *options, **more):
        service = Policyd(self.drive, self.folder, *options, **more)
        self.addCleanup(service.stop)
        return service

    def dns(self, answer):
        server = servers.ScriptedServer(answer)
        self.addCleanup(server.stop)
        return ["--server", f"{server.address}:{server.port}"]

    def logged(self, *names):
        """What was answered, by recipient, as these logs have it."""
        found = {}
        for name in names or ["decisions"]:
            for one in records_of(self.folder / name):
                recipient = one["transaction"]["recipient"]
                self.assertNotIn(recipient, found, "logged twice")
                found[recipient] = one["extra"]["answered"]
        return found


class Endings(LoadTest):
    def test_killed(self):
        """Twenty times: whatever was answered is in the log, and no line of it is torn once the
        service has been started again."""
        chance = random.Random(18)
        answers = {}
        for kill in range(20):
            service = self.serve("--dns", "off")
            load = Load(service.path, f"kill{kill}", **LOCAL)
            time.sleep(chance.uniform(0.02, 0.15))
            service.kill()
            load.join()
            answers.update(load.answers)
        self.assertEqual(self.serve("--dns", "off").stop(), ENDED)
        logged = self.logged()
        self.assertGreater(len(answers), 200)
        self.assertEqual({recipient: logged.get(recipient) for recipient in answers}, answers)

    def test_killed_while_it_wrote(self):
        """The system may end a write between two pages of the file. The next run cuts such a record
        off and says so; the end of another file, which was named by mistake, it does not touch."""
        whole = '{"schema":"quillfence.decision/1"}\n'
        for tail, cut in [('{"schema":"quillfence.decision/1","id":"7', True), ("theirs", False)]:
            with self.subTest(tail):
                (self.folder / "decisions").write_text(whole + tail, encoding="utf-8")
                service = self.serve("--dns", "off")
                with Client(service.path) as client:
                    client.ask(**LOCAL)
                self.assertEqual(service.stop(), ENDED)
                text = service.log.read_text(encoding="utf-8")
                kept = whole if cut else whole + tail + "\n"
                self.assertEqual(text[:len(kept)], kept)
                self.assertEqual(json.loads(text[len(kept):])["extra"]["answered"], "DUNNO")
                events = Path(self.drive.settings["QUILLFENCE_EVENT_LOG"])
                self.assertEqual(f"cut off, {len(tail)} bytes" in events.read_text(), cut)
                events.unlink()

    def test_told_to_end(self):
        """What was judged is answered, and what was answered is in the log: they are the same."""
        for round_, how in enumerate((signal.SIGTERM, signal.SIGINT, signal.SIGTERM)):
            service = self.serve("--dns", "off")
            load = Load(service.path, f"end{round_}", **LOCAL)
            time.sleep(0.3)
            service.process.send_signal(how)
            load.join()
            self.assertEqual(service.process.wait(PATIENCE), ENDED)
            self.assertFalse(service.path.exists())
            logged = {recipient: action for recipient, action in self.logged().items()
                      if recipient.startswith(f"end{round_}-")}
            self.assertGreater(len(logged), CLIENTS)
            self.assertEqual(logged, load.answers)


class Changes(LoadTest):
    def test_log_moved_away(self):
        """As logrotate does it: renamed, then SIGHUP. No answer is lost or logged twice."""
        service = self.serve("--dns", "off")
        load = Load(service.path, "moved", **LOCAL)
        for number in range(5):
            wait_for("records", lambda: service.log.exists() and service.log.stat().st_size)
            os.rename(service.log, self.folder / f"moved.{number}")
            service.reload()
            wait_for("a new log", service.log.exists)
        load.stop()
        self.assertEqual(service.stop(), ENDED)
        self.assertEqual(load.unanswered, set())
        self.assertEqual(service.log.stat().st_mode & 0o777, 0o600)
        self.assertEqual(self.logged("decisions", *(f"moved.{n}" for n in range(5))),
                         load.answers)

    def edit(self, service, content, client, sender, wanted):
        """Puts a black list in the place of the one there is; how long it took to count."""
        self.drive.put("from_blacklist.editing", content)
        base = Path(self.drive.settings["QUILLFENCE_DRIVE_C"]) / "quillfence"
        os.rename(base / "from_blacklist.editing", base / "from_blacklist")
        began = time.monotonic()
        wait_for("the edit", lambda: client.ask(sender=sender).startswith(wanted))
        return time.monotonic() - began

    def test_edits(self):
        """They count by themselves after at most two seconds, and nobody's answer is lost."""
        self.drive.put("control/rules.enabled", "require_helo\n")
        service = self.serve("--dns", "off", "--enforce")
        load = Load(service.path, "edited", sender="new@new.example")
        with Client(service.path) as client:
            for content, wanted in [("*@new.example\n", "550 "), ("*@other.example\n", "DUNNO")]:
                took = self.edit(service, content, client, "new@new.example", wanted)
                self.assertLess(took, 2 + SLACK)
        load.stop()
        self.assertEqual(service.stop(), ENDED)
        self.assertEqual(load.unanswered, set())
        self.assertEqual({action[:5] for action in load.answers.values()}, {"DUNNO", "550 5"})

    def test_a_reload_for_the_asking(self):
        service = self.serve("--dns", "off", "--enforce")
        load = Load(service.path, "asked", **LOCAL)
        for _ in range(20):
            service.reload()
            time.sleep(0.02)
        load.stop()
        self.assertEqual(service.stop(), ENDED)
        self.assertEqual(load.unanswered, set())
        logged = self.logged()
        self.assertEqual({recipient: logged[recipient] for recipient in load.answers},
                         load.answers)


class Resolvers(LoadTest):
    """Servers in trouble, and a service that enforces all it has."""

    def setUp(self):
        super().setUp()
        self.drive.put("rbl.enabled", "rbl.test\n")

    def answers(self, service, count=5):
        with Client(service.path) as client:
            return {client.ask(client_address=f"192.0.2.{n + 1}", sender=STRANGER)
                    for n in range(count)}

    def test_silence(self):
        """200 connections at once: everybody has an answer when the deadline is over."""
        service = self.serve(*self.dns(lambda message, _: None), "--deadline", "1")
        clients = [Client(service.path) for _ in range(200)]
        began = time.monotonic()
        for n, client in enumerate(clients):
            client.send(client_address=f"198.51.100.{n % 200 + 1}", recipient=f"r{n}@forward.test")
        answers = []
        for client in clients:
            with client:
                answers.append((client.receive(), time.monotonic() - began))
        self.assertEqual({action for action, _ in answers}, {"DUNNO"})
        self.assertLess(max(seconds for _, seconds in answers), 1 + SLACK)
        self.assertEqual(service.stop(), ENDED)
        self.assertEqual(set(self.logged()), {f"r{n}@forward.test" for n in range(200)})

    def test_refuses_everything(self):
        refusing = self.dns(lambda message, _: reply(message, REFUSED))
        service = self.serve(*refusing, "--enforce")
        self.assertEqual(self.answers(service), {"DUNNO"})
        service.stop()
        service = self.serve(*refusing, "--enforce", "--refused-is-missing")
        self.assertEqual({action[:9] for action in self.answers(service)}, {"550 5.7.1"},
                         "without the guard nobody gets through")

    def test_lists_everybody(self):
        def answer(message, _):
            name, kind, _ = decode_question(message)
            if kind == PTR:
                return reply(message, 0, [record(PTR, encode_name("mail.forward.test"))])
            return reply(message, 0, [record(A, bytes([127, 255, 255, 254]))])

        lying = self.dns(answer)
        service = self.serve(*lying, "--enforce")
        self.assertEqual(self.answers(service), {"DUNNO"})
        service.stop()
        service = self.serve(*lying, "--enforce", "--rbl-any-answer")
        self.assertEqual({action[:9] for action in self.answers(service)}, {"550 5.7.1"},
                         "without the guard nobody gets through")


def switches_by_thread(pid):
    """How often each thread of a process has gone to sleep."""
    tasks = Path(f"/proc/{pid}/task")
    return {task.name: int(line.split()[1]) for task in tasks.iterdir()
            for line in (task / "status").read_text(encoding="utf-8").splitlines()
            if line.startswith("voluntary_ctxt_switches")}


class Alone(LoadTest):
    def test_is_one_threads_work(self):
        """A request that comes alone, with its DNS questions, changes no threads."""
        name = [record(PTR, encode_name("mail.forward.test"))]
        service = self.serve(*self.dns(lambda message, _: reply(message, 0, name)))
        requests, often = 200, 100
        with Client(service.path) as client:
            client.ask(client_address="192.0.2.200", sender=STRANGER)  # connects to the DNS
            before = switches_by_thread(service.process.pid)
            for n in range(requests):
                client.ask(client_address=f"192.0.2.{n}", sender=STRANGER)
            after = switches_by_thread(service.process.pid)
        # Whoever finds what it waits for already there does not sleep: on a busy machine the
        # one thread has slept less often than there were requests.
        *others, busiest = sorted(after[thread] - before.get(thread, 0) for thread in after)
        self.assertTrue(all(slept <= often for slept in others), (before, after))
        self.assertLessEqual(busiest, 3 * requests + often)
        records = service.records()
        self.assertEqual(len(records), requests + 1)
        self.assertTrue(all(one["dns"] for one in records), "each has asked the DNS")


class Replay(LoadTest):
    def test_every_record_is_a_case(self):
        """Judged again from its own answers, without any DNS, a record has the same verdict."""
        listed = {"2.2.0.192.rbl.test.": 2, "3.2.0.192.rbl.test.": 254}

        def answer(message, _):
            name, kind, _ = decode_question(message)
            if kind == PTR and not name.startswith("9."):
                return reply(message, 0, [record(PTR, encode_name("mail.forward.test"))])
            if kind == A and name in listed:
                octets = [127, 255, 255, 254] if listed[name] == 254 else [127, 0, 0, 2]
                return reply(message, 0, [record(A, bytes(octets))])
            return reply(message, servers.NXDOMAIN)

        self.drive.put("rbl.enabled", "rbl.test\n")
        self.drive.put("from_whitelist", "friend@spammer.example\n")
        service = self.serve(*self.dns(answer), "--enforce")
        with Client(service.path) as client:
            for ip in ["127.0.0.1", "2001:db8::1", *(f"192.0.2.{n}" for n in (1, 2, 3, 9))]:
                for sender in (FOE, "friend@spammer.example", STRANGER, ""):
                    for user in ("", "alice"):
                        client.ask(client_address=ip, sender=sender, sasl_username=user)
        self.assertEqual(service.stop(), ENDED)
        logged = service.records()
        self.assertEqual(len(logged), 6 * 4 * 2)
        self.assertEqual({one["decision"]["by"] for one in logged},
                         {"rule", "rbl", "exempt", "nothing"})
        for one in logged:
            with self.subTest(one["transaction"]):
                self.assertEqual(self.judged_again(one)["decision"], one["decision"])

    def judged_again(self, one):
        case = self.folder / "case.json"
        case.write_text(json.dumps({**one, "schema": "quillfence.case/1"}), encoding="utf-8")
        done = subprocess.run([Programs.quillfence, "explain", "--json", "--case", case],
                              env=environment(**self.drive.settings), stdin=subprocess.DEVNULL,
                              capture_output=True, timeout=60, check=False)
        self.assertTrue(done.stdout, done.stderr)
        return json.loads(done.stdout)


if __name__ == "__main__":
    main()
