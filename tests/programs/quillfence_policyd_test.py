"""quillfence policyd as the system around it meets it: sockets, signals, the service manager,
limits, and what is refused at the start.

usage: quillfence_policyd_test.py [--runner=LAUNCHER] PROGRAM SOURCE_FOLDER

LAUNCHER runs the program of a Windows build, where there is no policyd.
"""

import contextlib
import json
import os
import resource
import shutil
import signal
import socket
import subprocess
import threading
import time
import unittest
import warnings
from pathlib import Path

from whole_program import ARGUMENTS, RUNNER, FolderTest, environment, main, run

PROGRAM, SOURCE = (Path(argument).resolve() for argument in ARGUMENTS)

DONE, FAILED = 0, 2
DUNNO = b"action=DUNNO\n\n"
PATIENCE = 20  # seconds


def request(**attributes):
    """As Postfix asks; by default about a client that nothing is known against."""
    every = {"request": "smtpd_access_policy", "protocol_state": "RCPT",
             "client_address": "192.0.2.44", "client_port": "4321", "helo_name": "mail.example.org",
             "sender": "alice@example.org", "recipient": "bob@example.net", "sasl_username": "",
             "instance": "12.34", "encryption_protocol": "", **attributes}
    return "".join(f"{name}={value}\n" for name, value in every.items()).encode() + b"\n"


@unittest.skipUnless(RUNNER, "there is a policyd here")
class ElsewhereTest(FolderTest):
    def test_it_is_refused(self):
        for options in ([], ["--listen", "unix:x", "--no-log"], ["--stdio", "--log", "x"]):
            self.assertEqual(run([PROGRAM, "policyd", *options], self.folder),
                             (FAILED, "", "quillfence: policyd runs on Linux alone; on this system "
                              "'quillfence batch --from policy' judges the same requests\n"))


class Client:
    def __init__(self, place):
        # Closed with the last one that names it; Python's warning of that is nothing new.
        warnings.simplefilter("ignore", ResourceWarning)
        self.socket = socket.socket(socket.AF_UNIX if isinstance(place, str) else socket.AF_INET)
        self.socket.settimeout(PATIENCE)
        self.socket.connect(place)

    def say(self, text):
        self.socket.sendall(text)

    def hear(self, replies=1):
        heard = b""
        while heard.count(b"\n\n") < replies and (more := self.socket.recv(4096)):
            heard += more
        return heard

    def ask(self, text=request()):
        self.say(text)
        return self.hear()

    def is_ended(self):
        try:
            return self.socket.recv(1) == b""
        except ConnectionResetError:
            return True


@unittest.skipIf(RUNNER, "policyd runs on Linux alone")
class Case(FolderTest):
    def setUp(self):
        super().setUp()
        shutil.copytree(SOURCE / "examples/drive_c", self.folder / "drive")
        self.place = str(self.folder / "policy")

    def command(self, *options):
        return [PROGRAM, "policyd", "--drive-c", "drive", "--dns", "off", "--no-log", *options]

    def start(self, *options, until_ready=True, listen=True, **settings):
        """A running service; it is ended with the test."""
        where = ["--listen", f"unix:{self.place}"] if listen else []
        prepare = settings.pop("prepare", None)
        with open(self.folder / "events", "ab") as events:
            process = subprocess.Popen(
                self.command(*where, *options), cwd=self.folder, stderr=events, preexec_fn=prepare,
                env=environment(QUILLFENCE_EVENT_LOG="-", **settings))
        self.addCleanup(self.end, process)
        if until_ready:
            self.wait_until(lambda: self.can_connect() or process.poll() is not None)
        return process

    @staticmethod
    def end(process):
        process.kill()
        process.wait()

    def can_connect(self):
        with contextlib.suppress(OSError):
            Client(self.place).socket.close()
            return True
        return False

    def wait_until(self, condition):
        end = time.monotonic() + PATIENCE
        while not condition():
            self.assertLess(time.monotonic(), end)
            time.sleep(0.01)

    def events(self):
        return (self.folder / "events").read_text()

    def ends(self, process, sent=signal.SIGTERM):
        process.send_signal(sent)
        return process.wait(PATIENCE)


class ServingTest(Case):
    def test_requests_on_both_kinds_of_sockets(self):
        with socket.socket() as free:
            free.bind(("127.0.0.1", 0))
            port = free.getsockname()[1]
        self.start("--listen", f"inet:127.0.0.1:{port}")
        for place in (self.place, ("127.0.0.1", port)):
            client = Client(place)
            self.assertEqual(client.ask(), DUNNO)
            client.say(request() * 3)
            self.assertEqual(client.hear(3), DUNNO * 3)

    def test_a_client_that_ends_his_side_first_is_answered(self):
        self.start()
        client = Client(self.place)
        client.say(request() * 2)
        client.socket.shutdown(socket.SHUT_WR)
        self.assertEqual(client.hear(3), DUNNO * 2)

    def test_what_is_refused_is_told_with_the_rule_s_notice(self):
        listed = request(sender="x@spammer.example")
        self.start("--enforce")
        self.assertRegex(Client(self.place).ask(listed).decode(),
                         r"\Aaction=550 5\.7\.1 [ -~]+\n\n\Z")
        self.assertEqual(Client(self.place).ask(request(protocol_state="DATA",
                                                        sender="x@spammer.example")), DUNNO)

    def test_decisions_are_in_the_log_before_the_answer(self):
        process = subprocess.Popen([PROGRAM, "policyd", "--drive-c", "drive", "--dns", "off",
                                    "--stdio", "--log", "log"], cwd=self.folder,
                                   env=environment(QUILLFENCE_EVENT_LOG="-"),
                                   stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                   stderr=subprocess.DEVNULL)
        self.addCleanup(self.end, process)
        for number in range(1, 4):
            process.stdin.write(request(instance="7.8"))
            process.stdin.flush()
            self.assertEqual(process.stdout.read(len(DUNNO)), DUNNO)
            records = [json.loads(line) for line in self.bytes_of("log").splitlines()]
            self.assertEqual([one["id"] for one in records],
                             [f"7.8.{n}" for n in range(1, number + 1)])
        process.stdin.close()
        self.assertEqual((process.stdout.read(), process.wait(PATIENCE)), (b"", DONE))
        process.stdout.close()
        self.assertEqual((self.folder / "log").stat().st_mode & 0o777, 0o600)

    def test_a_file_on_standard_input(self):
        status, out, _ = run(self.command("--stdio"), self.folder, (request() * 3).decode())
        self.assertEqual((status, out), (DONE, (DUNNO * 3).decode()))

    def test_standard_input_that_ends_within_a_request(self):
        status, out, err = run(self.command("--stdio"), self.folder, "sender=a@b\n")
        self.assertEqual((status, out), (FAILED, ""))
        self.assertTrue(err.endswith("\nquillfence: standard input ended within a request\n"))


class StartTest(Case):
    def refused(self, *options, **settings):
        status, out, err = run(self.command(*options), self.folder, **settings)
        self.assertEqual((status, out), (FAILED, ""))
        return err.removeprefix("quillfence: ").removesuffix("\n")

    def test_places_that_can_not_be_listened_on(self):
        self.file("file", "text")
        for place, why in (
                ("policy", "is neither unix:PATH nor inet:ADDRESS:PORT"),
                ("unix:", "names no path"),
                ("unix:" + "p" * 108, "the path of a socket has at most 107 bytes"),
                ("unix:gone/policy", "No such file or directory"),
                ("unix:file", "what is there is no socket"),
                ("inet:127.0.0.1", "has no port from 1 to 65535 behind its address"),
                ("inet:127.0.0.1:0", "has no port from 1 to 65535 behind its address"),
                ("inet:127.0.0.1:65536", "has no port from 1 to 65535 behind its address"),
                ("inet:0.0.0.0:10040", "is no loopback address, and whoever connects is trusted; "
                 "take 127.0.0.1, [::1] or a Unix socket"),
                ("inet:localhost:10040", "is no loopback address, and whoever connects is trusted; "
                 "take 127.0.0.1, [::1] or a Unix socket")):
            self.assertEqual(self.refused("--listen", place), f"--listen {place}: {why}")
        self.assertEqual(self.bytes_of("file"), b"text")

    def test_the_log_is_no_place_for_the_metrics(self):
        status, out, err = run([PROGRAM, "policyd", "--listen", "unix:policy", "--log", "both",
                                "--metrics", "./both"], self.folder)
        self.assertEqual((status, out, err), (FAILED, "", "quillfence: ./both: would be written "
                                              "twice; name another file to write to\n"))

    def test_what_else_is_wrong(self):
        listen = ["--listen", "unix:policy"]
        self.assertIn("there is nowhere to listen", self.refused())
        self.assertEqual(self.refused(*listen, "--socket-mode", "0999"),
                         '--socket-mode: "0999" is no octal number up to 0777')
        self.assertIn("--warn: ", self.refused(*listen, "--warn=no_such_rule"))
        self.assertIn("from_blacklist", self.refused(*listen, "--enforce=from_blacklst"))
        self.assertFalse(os.path.exists(self.place))
        status, _, err = run([PROGRAM, "policyd", "--drive-c", "drive", "--stdio"], self.folder)
        self.assertEqual((status, err), (FAILED, "quillfence: say where decisions are logged with "
                                         "--log FILE, or that they are not with --no-log\n"))

    def test_more_connections_than_the_system_allows(self):
        def few():
            resource.setrlimit(resource.RLIMIT_NOFILE, (500, 500))
        self.assertIn("the system allows this process only 500 open files",
                      self.refused("--listen", "unix:policy", prepare=few))

    def test_the_limit_is_raised(self):
        def soft():
            resource.setrlimit(resource.RLIMIT_NOFILE, (100, 5000))
        self.start(prepare=soft)
        clients = [Client(self.place) for _ in range(300)]
        self.assertEqual(clients[-1].ask(), DUNNO)

    def test_a_socket_that_is_left_over_is_replaced(self):
        first = self.start("--socket-mode", "0666")
        self.assertEqual(os.stat(self.place).st_mode & 0o777, 0o666)
        self.assertEqual(self.refused("--listen", f"unix:{self.place}"),
                         f"--listen unix:{self.place}: another program listens there")
        self.assertEqual(Client(self.place).ask(), DUNNO)
        self.end(first)
        self.assertTrue(os.path.exists(self.place))
        self.start()
        self.assertEqual(os.stat(self.place).st_mode & 0o777, 0o660)
        self.assertEqual(Client(self.place).ask(), DUNNO)


class EndTest(Case):
    def test_it_ends_as_asked(self):
        for sent in (signal.SIGTERM, signal.SIGINT):
            process = self.start()
            idle = Client(self.place)
            self.assertEqual(idle.ask(), DUNNO)
            self.assertEqual(self.ends(process, sent), DONE)
            self.assertTrue(idle.is_ended())
            self.assertFalse(os.path.exists(self.place))

    def test_standard_streams_end_as_asked(self):
        process = subprocess.Popen(self.command("--stdio"), cwd=self.folder,
                                   env=environment(QUILLFENCE_EVENT_LOG="-"),
                                   stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                   stderr=subprocess.DEVNULL)
        self.addCleanup(self.end, process)
        process.stdin.write(request() + b"half")
        process.stdin.flush()
        self.assertEqual(process.stdout.read(len(DUNNO)), DUNNO)
        process.send_signal(signal.SIGHUP)
        self.assertEqual(self.ends(process), DONE)
        process.stdin.close()
        process.stdout.close()

    def test_signals_under_load_lose_no_reply(self):
        process = self.start()
        answered = [0] * 4
        stop = threading.Event()

        def ask(number):
            client = Client(self.place)
            while not stop.is_set():
                if client.ask() != DUNNO:
                    return
                answered[number] += 1
        threads = [threading.Thread(target=ask, args=(number,)) for number in range(4)]
        for thread in threads:
            thread.start()
        for _ in range(50):
            process.send_signal(signal.SIGHUP)
            time.sleep(0.01)
        self.assertTrue(all(thread.is_alive() for thread in threads))
        stop.set()
        for thread in threads:
            thread.join(PATIENCE)
        self.assertGreater(min(answered), 0)
        self.assertEqual(self.ends(process), DONE)

    def test_sockets_of_the_service_manager(self):
        with socket.socket(socket.AF_UNIX) as listener:
            listener.bind(self.place)
            listener.listen()

            # Its own number is known behind the fork alone; a shell keeps it.
            script = f'LISTEN_PID=$$ LISTEN_FDS=1 exec "$@" 3<&{listener.fileno()}'
            with open(self.folder / "events", "wb") as events:
                process = subprocess.Popen(["sh", "-c", script, "sh", *self.command()],
                                           cwd=self.folder, pass_fds=[listener.fileno()],
                                           stderr=events, env=environment(QUILLFENCE_EVENT_LOG="-"))
            self.addCleanup(self.end, process)
            self.assertEqual(Client(self.place).ask(), DUNNO)
            self.assertEqual(self.ends(process), DONE)
            self.assertTrue(os.path.exists(self.place))  # it is not ours
            waiting = Client(self.place)  # whoever comes meanwhile is the next one's
            waiting.say(request())

    def test_the_service_manager_is_told(self):
        with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as manager:
            manager.bind(str(self.folder / "notify"))
            manager.settimeout(PATIENCE)
            process = self.start(NOTIFY_SOCKET=str(self.folder / "notify"), until_ready=False)
            self.assertEqual(manager.recv(100), b"READY=1")
            self.assertTrue(self.can_connect())
            before = time.clock_gettime_ns(time.CLOCK_MONOTONIC) // 1000
            process.send_signal(signal.SIGHUP)
            told = manager.recv(100).decode()
            self.assertRegex(told, r"\ARELOADING=1\nMONOTONIC_USEC=\d+\Z")
            stamp = int(told.rpartition("=")[2])
            self.assertTrue(before <= stamp <= time.clock_gettime_ns(time.CLOCK_MONOTONIC) // 1000)
            self.assertEqual(manager.recv(100), b"READY=1")
            process.send_signal(signal.SIGTERM)
            self.assertEqual(manager.recv(100), b"STOPPING=1")
            self.assertEqual(process.wait(PATIENCE), DONE)


class BoundsTest(Case):
    def test_connections(self):
        self.start("--connections", "5")
        clients = []
        while len(clients) < 5:
            client = Client(self.place)
            client.say(request())
            if client.hear() == DUNNO:
                clients.append(client)
        for _ in range(50):
            self.assertTrue(Client(self.place).is_ended())
        self.assertEqual(self.events().count("A connection was closed at once"), 1)
        self.assertEqual(clients[0].ask(), DUNNO)

    def test_what_is_too_long_ends_the_connection_alone(self):
        process = self.start()
        good = Client(self.place)
        for text in (b"x" * 5000, b"a=b\n" * 201, (b"a=" + b"x" * 4000 + b"\n") * 17):
            bad = Client(self.place)
            with contextlib.suppress(BrokenPipeError, ConnectionResetError):
                bad.say(text)
            self.assertTrue(bad.is_ended())
            self.assertEqual(good.ask(), DUNNO)
        self.assertEqual(self.events().count("a line of a request is too long"), 1)
        self.assertIsNone(process.poll())

    def test_idle_ones_are_closed(self):
        self.start("--idle", "1")
        self.assertTrue(Client(self.place).is_ended())

    def test_descriptors_come_back(self):
        process = self.start()
        descriptors = f"/proc/{process.pid}/fd"

        def count():
            return len(os.listdir(descriptors))
        self.assertEqual(Client(self.place).ask(), DUNNO)
        self.wait_until(lambda: not self.sockets_of(process))
        before = count()
        for number in range(300):
            client = Client(self.place)
            client.say(request() if number % 3 else request()[:30])
            if number % 2:
                client.hear() if number % 3 else None
            client.socket.close()
        self.wait_until(lambda: count() == before)

    @staticmethod
    def sockets_of(process):
        """Its connections, apart from the listener."""
        folder = Path(f"/proc/{process.pid}/fd")
        return [one for one in folder.iterdir()
                if os.readlink(one).startswith("socket:")][1:]


if __name__ == "__main__":
    main()
