"""quillfence explain --capture and --case with the DNS at work and gone: NSD answers while the
cases are captured and is stopped before they are judged again, in a network namespace without
interfaces and under strace.

usage: explain_case_test.py --quillfence=QUILLFENCE [unittest options]
"""

import copy
import json
import os
import resource
import shutil
import signal
import subprocess
import tempfile
import unittest

import dns_servers as servers
from dns_servers import REFUSED, reply
from dns_testing import Drive, Programs, environment, lacking, main
from dns_zones import REFUSED_DOMAIN, ZONES

EXPLAINED, FAILED, INCOMPLETE = 0, 2, 3
NO_NETWORK = ["unshare", "--net"] if os.geteuid() == 0 else ["unshare", "--map-root-user", "--net"]
TRACED = ["strace", "--follow-forks", "--trace=network", "--output"]

# One of each kind that the zones know: names, aliases, chains, several names, none, no listing.
CLIENTS = [f"192.0.2.{number}" for number in range(1, 10)] + ["192.0.2.99", "2001:db8::1"]
SENDERS = ["user@host-with-an-a.forward.test", "user@alias-of-nothing.forward.test",
           f"user@{REFUSED_DOMAIN}"]


def environment_of(command, drive):
    # A sanitized build can't look for leaks while it is traced.
    traced = {"ASAN_OPTIONS": "detect_leaks=0"} if "strace" in command else {}
    return environment(**drive.settings, **traced)


def run(command, drive):
    done = subprocess.run(command, env=environment_of(command, drive), stdin=subprocess.DEVNULL,
                          capture_output=True, timeout=100, check=False)
    return done.returncode, done.stdout.decode(), done.stderr.decode()


def timeless(record):
    """The record without what a moment brings along."""
    record = copy.deepcopy(record)
    for rule in record["rules"]:
        rule.pop("us", None)
    for answer in record["dns"]:
        answer.pop("ms", None)
    return record


class CaseTest(unittest.TestCase):
    maxDiff = None

    @classmethod
    def setUpClass(cls):
        if not servers.Nsd.available():
            lacking("the DNS server NSD is not installed")
        if not shutil.which("strace"):
            lacking("strace is not installed")
        if subprocess.run([*NO_NETWORK, "true"], check=False, capture_output=True).returncode:
            lacking("network namespaces are not allowed here")
        cls.folder = tempfile.mkdtemp(prefix="quillfence-cases-")
        cls.addClassCleanup(shutil.rmtree, cls.folder)
        cls.drive = Drive()
        cls.addClassCleanup(cls.drive.remove)
        cls.drive.put("control/enabled", "1\n")
        cls.drive.put("control/rules.enabled", "valid_ptr\ncheck_ip_reverse_dns\n"
                      "resolve_helo_domain\nvalid_from_domain\nfrom_blacklist\n")
        cls.drive.put("from_blacklist", "*@foe.test\n")
        cls.drive.put("rbl.enabled", "rbl.test\n")
        nsd = servers.Nsd(cls.folder, ZONES)
        try:
            cls.cases = [cls.capture(nsd, f"{number}-{client}", client, sender)
                         for number, sender in enumerate(SENDERS) for client in CLIENTS]
        finally:
            nsd.stop()

    @classmethod
    def capture(cls, server, name, client, sender, *options):
        """The path of the case, and the record that was printed."""
        path = os.path.join(cls.folder, name.replace(":", "_") + ".json")
        status, out, err = run(
            [Programs.quillfence, "explain", "--server", f"{server.address}:{server.port}",
             "--ip", client, "--helo", "host-with-an-a.forward.test", "--sender", sender,
             "--recipient", "rcpt@forward.test", "--json", "--capture", path, *options], cls.drive)
        assert status in (EXPLAINED, INCOMPLETE), (name, status, err)
        assert "DNS answer" in err, err
        return path, json.loads(out)

    def judge(self, path, *options, traced=None):
        trace = [*TRACED, traced] if traced else []
        return run([*NO_NETWORK, *trace, Programs.quillfence, "explain", "--case", path, *options],
                   self.drive)

    def test_a_case_is_the_same_record_without_any_network(self):
        answers = 0
        for path, record in self.cases:
            with self.subTest(os.path.basename(path)):
                trace = path + ".trace"
                _, out, err = self.judge(path, "--json", traced=trace)
                self.assertEqual(err, "")
                self.assertEqual(timeless(json.loads(out)), timeless(record))
                with open(trace, encoding="utf-8") as calls:
                    self.assertNotIn("socket", calls.read())
                answers += len(record["dns"])
        self.assertGreater(answers, 150)

    def test_asking_uses_sockets_so_that_the_trace_would_tell(self):
        path, _ = self.cases[0]
        trace = path + ".asked"
        status, out, err = self.judge(path, "--dns", "live", "--deadline", "2", "--json",
                                      traced=trace)
        self.assertNotEqual(timeless(json.loads(out)), timeless(self.cases[0][1]), err)
        self.assertIn(status, (EXPLAINED, INCOMPLETE))
        with open(trace, encoding="utf-8") as calls:
            self.assertIn("socket(", calls.read())

    def test_an_answer_that_was_deleted_is_named_and_asked_for_on_request(self):
        path, record = self.cases[0]
        self.assertEqual(record["decision"]["by"], "nothing")
        with open(path, encoding="utf-8") as case:
            document = json.load(case)
        (gone,) = [dns for dns in document["dns"] if dns["type"] == "PTR"]
        document["dns"].remove(gone)
        document["dns"] = [{**dns, "n": n} for n, dns in enumerate(document["dns"])]
        for rule in document["rules"]:
            rule.pop("dns", None)
        for zone in document["dns_block_lists"]:
            zone.pop("dns", None)
        short = os.path.join(self.folder, "deleted.json")
        with open(short, "w", encoding="utf-8") as case:
            json.dump(document, case)
        status, out, err = self.judge(short)
        self.assertEqual(status, INCOMPLETE)
        self.assertIn(f"the case has no answer for {gone['name']} PTR; "
                      "--dns record-missing asks for it", err)
        self.assertIn("UNDECIDED", out)

        nsd = servers.Nsd(tempfile.mkdtemp(dir=self.folder), ZONES)
        self.addCleanup(nsd.stop)
        whole = os.path.join(self.folder, "whole.json")
        status, out, err = run(
            [Programs.quillfence, "explain", "--case", short, "--dns", "record-missing",
             "--server", f"{nsd.address}:{nsd.port}", "--json", "--capture", whole], self.drive)
        self.assertEqual(status, EXPLAINED, err)
        nsd.stop()
        status, out, err = self.judge(whole, "--json")
        self.assertEqual((status, err), (EXPLAINED, ""))
        self.assertEqual(json.loads(out)["decision"], record["decision"])
        self.assertEqual(json.loads(out)["dns"][0]["records"], gone["records"])

    def test_a_server_that_fails_and_the_guards(self):
        server = servers.ScriptedServer(lambda m, _: reply(m, REFUSED))
        self.addCleanup(server.stop)
        for options in ([], ["--guards"]):
            path, record = self.capture(server, f"refused{len(options)}", "192.0.2.1", SENDERS[0],
                                        *options)
            _, out, _ = self.judge(path, "--json")
            replayed = timeless(json.loads(out))
            self.assertEqual(replayed["decision"], record["decision"])
            self.assertEqual(replayed["dns"], timeless(record)["dns"])
            self.assertEqual(replayed["rules"], timeless(record)["rules"])

    def test_what_the_time_did_not_suffice_for_is_missing_again(self):
        server = servers.ScriptedServer(lambda m, _: None)
        self.addCleanup(server.stop)
        path, record = self.capture(server, "silent", "192.0.2.1", SENDERS[0], "--deadline", "0.3")
        status, out, err = self.judge(path, "--json")
        self.assertEqual((status, err), (INCOMPLETE, ""))
        self.assertEqual(timeless(json.loads(out)), timeless(record))

    # --- the file that is written ---

    def capture_again(self, path, around=(), limit=None):
        """Captures the first case anew into a file, with a launcher in front and a limit on the
        size of files."""
        def limited():
            if limit is not None:
                signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
                resource.setrlimit(resource.RLIMIT_FSIZE, (limit, limit))
        command = [*around, Programs.quillfence, "explain", "--case", self.cases[0][0],
                   "--capture", path]
        return subprocess.run(command, env=environment_of(command, self.drive),
                              stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                              stderr=subprocess.PIPE, timeout=100, check=False, preexec_fn=limited)

    def folder_with_old_case(self):
        folder = tempfile.mkdtemp(dir=self.folder)
        path = os.path.join(folder, "case.json")
        with open(path, "w", encoding="ascii") as old:
            old.write("old")
        os.chmod(path, 0o644)
        return folder, path

    def check_old_or_whole(self, folder, path):
        """Whatever has happened: the old file, or a new one that is whole and its owner's alone."""
        with open(path, encoding="utf-8") as now:
            text = now.read()
        if text != "old":
            self.assertEqual(json.loads(text)["schema"], "quillfence.case/1")
        for name in os.listdir(folder):
            with open(os.path.join(folder, name), encoding="utf-8") as file:
                if file.read() not in ("old", ""):
                    mode = os.stat(os.path.join(folder, name)).st_mode
                    self.assertEqual(mode & 0o777, 0o600, name)
        return text == "old"

    def test_a_full_disk_leaves_the_old_file(self):
        for limit in (0, 1, 4096, 8000):
            folder, path = self.folder_with_old_case()
            done = self.capture_again(path, limit=limit)
            self.assertEqual(done.returncode, FAILED, done.stderr)
            self.assertIn(b"case.json: could not be written: File too large", done.stderr)
            self.assertTrue(self.check_old_or_whole(folder, path))
            self.assertEqual(os.listdir(folder), ["case.json"])

    def test_killed_at_any_call_the_file_is_the_old_one_or_the_new_one(self):
        ends = set()
        for call in ("openat", "fchmod", "write", "fsync", "rename", "close"):
            killed, n = True, 0
            while killed:
                n += 1
                folder, path = self.folder_with_old_case()
                kill = ["strace", "--follow-forks", "--quiet=all", "--output=/dev/null",
                        f"--trace={call}", f"--inject={call}:signal=SIGKILL:when={n}"]
                killed = self.capture_again(path, around=kill).returncode != EXPLAINED
                ends.add(self.check_old_or_whole(folder, path))
                self.assertLess(n, 300)
        self.assertEqual(ends, {True, False})


if __name__ == "__main__":
    main()
