"""quillfence policyd for long: what a million requests leave behind, and what it adds to the cost of
a message. Minutes each; ./check --long runs it.

usage: policyd_long_test.py --quillfence=QUILLFENCE --floor=POLICY_FLOOR [unittest options]
"""

import os
import signal
import statistics
import subprocess
import time
import unittest
from pathlib import Path

import dns_servers as servers
from dns_testing import Programs, main
from dns_zones import ZONES
from mail_servers import (Postfix, end, enter_namespaces, need_namespaces, page_lines,
                          wait_for)
from policyd_load_test import LOCAL, Load, LoadTest
from policyd_testing import ENDED

REQUESTS = 1_000_000
MESSAGES, PARTS, ROUNDS = 1_000, 3, 5
MEBIBYTE = 1024  # in kB


def fields_of(pid):
    return Path(f"/proc/{pid}/stat").read_text(encoding="latin-1").rpartition(")")[2].split()


def held_by(pid):
    """Memory in kB, descriptors, threads."""
    status = Path(f"/proc/{pid}/status").read_text(encoding="utf-8")
    number = {line.split(":")[0]: line.split()[1] for line in status.splitlines() if line[-1:] != ":"
              and len(line.split()) > 1}
    return int(number["VmRSS"]), len(os.listdir(f"/proc/{pid}/fd")), int(number["Threads"])


class Soak(LoadTest):
    def settled(self, service):
        """What it holds between two looks at its files, when its clients have gone."""
        def look():
            time.sleep(0.1)
            return held_by(service.process.pid)

        return min((look() for _ in range(10)), key=lambda held: held[1])

    def test_a_million_requests(self):
        """Memory, descriptors and threads are what they were after the first tenth."""
        service = self.serve("--dns", "off", "--counters")
        seen = []
        for part in range(10):
            load = Load(service.path, f"soak{part}", each=REQUESTS // 80, **LOCAL)
            load.join()
            self.assertEqual((len(load.answers), load.unanswered), (REQUESTS // 10, set()))
            seen.append(self.settled(service))
            os.rename(service.log, self.folder / "old")
            service.reload()
        print(seen)
        first, last = seen[0], seen[-1]
        self.assertLess(last[0], first[0] + 4 * MEBIBYTE, seen)
        self.assertEqual(last[1:], first[1:], seen)
        self.assertEqual(service.stop(), ENDED)


class Cost(LoadTest):
    """CPU time of a message at a real Postfix that smtp-source feeds: without a policy service, with
    the least that one can be (bench/policy_floor.cpp), and with ours, without DNS and with a
    question; on ports of their own, in turn. Postfix and the service count, the DNS server does
    not."""

    PORTS = {"none": 26, "floor": 27, "ours": 28, "dns": 25}
    SERVICE = "check_policy_service {{ unix:private/{}, timeout=10s, default_action=DUNNO }}"

    @classmethod
    def setUpClass(cls):
        need_namespaces()
        subprocess.run(["ip", "address", "add", "192.0.2.1/32", "dev", "lo"], check=True)
        cls.server = Postfix(page_lines("smtpd_recipient_restrictions ="))
        cls.addClassCleanup(cls.server.stop)
        lines = cls.server.machine.read("etc/postfix/master.cf")
        for name in ("none", "floor", "ours"):
            more = ", " + cls.SERVICE.format(name) if name != "none" else ""
            lines += (f"{cls.PORTS[name]} inet n - y - - smtpd -o {{ smtpd_recipient_restrictions = "
                      f"permit_mynetworks, reject_unauth_destination{more} }}\n")
        cls.server.machine.write("etc/postfix/master.cf", lines)
        cls.server.start()

    def seconds(self, service):
        """CPU time so far, of Postfix with all its children, dead ones as well, and of the
        service."""
        ticks = sum(int(field) for field in fields_of(self.server.master)[11:15])
        for entry in Path("/proc").iterdir():
            if entry.name.isdigit():
                try:
                    fields = fields_of(entry.name)
                except OSError:
                    continue
                if int(fields[1]) == self.server.master:
                    ticks += int(fields[11]) + int(fields[12])
        own = sum(int(field) for field in fields_of(service.pid)[11:13]) if service else 0
        tick = os.sysconf("SC_CLK_TCK")
        return ticks / tick, own / tick

    def cost(self, name, service):
        """Of some messages, in seconds: Postfix's part and the service's."""
        before = self.seconds(service)
        self.server.machine.run("smtp-source", "-s", "10", "-m", str(MESSAGES), "-l", "4096", "-f",
                                "who@forward.test", "-t", "bob@forward.test",
                                f"inet:192.0.2.1:{self.PORTS[name]}")
        return [after - began for began, after in zip(before, self.seconds(service))]

    def one_round(self, services):
        """The cost of a message with each, in microseconds, by its name. They take turns, so that
        what the machine does besides meets all alike."""
        sums = {name: [0, 0] for name in services}
        for _ in range(PARTS):
            for name, service in services.items():
                sums[name] = [sum(pair) for pair in zip(sums[name], self.cost(name, service))]
        return {name: [part / (PARTS * MESSAGES) * 1e6 for part in both]
                for name, both in sums.items()}

    def start_floor(self, path):
        floor = subprocess.Popen([Programs.floor, path], stdin=subprocess.DEVNULL)
        self.addCleanup(end, floor, signal.SIGKILL)
        wait_for("the floor", path.exists)
        return floor

    def test_the_cost_of_a_message(self):
        """At most a tenth more than without any service, in the median of five; with a question to
        the DNS at most a fifth."""
        nsd = servers.Nsd(self.folder, ZONES, port=53)
        self.addCleanup(nsd.stop)
        private = self.server.machine.root / "var/spool/postfix/private"
        ours = self.serve("--dns", "off", listen=private / "ours")
        asking = self.serve("--server", "127.0.0.1:53", listen=private / "quillfence",
                            log=self.folder / "decisions with DNS")
        services = {"none": None, "floor": self.start_floor(private / "floor"),
                    "ours": ours.process, "dns": asking.process}
        costs = {name: [] for name in services}
        for name, service in services.items():
            self.cost(name, service)  # to warm
        for _ in range(ROUNDS):
            for name, cost in self.one_round(services).items():
                costs[name].append(cost)
        for service in (ours, asking):
            self.assertEqual(service.stop(), ENDED)
            self.assertEqual(len(service.records()), MESSAGES * (ROUNDS * PARTS + 1))
        shares = {}
        for name, rows in costs.items():
            of_postfix, own = (statistics.median(part) for part in zip(*rows))
            shares[name] = [sum(row) / sum(bare) for row, bare in zip(rows, costs["none"])]
            print(f"{name:>5}: {of_postfix:5.0f} us Postfix, {own:4.0f} us the service, "
                  f"{statistics.median(shares[name]):.3f} times none; "
                  f"each {', '.join(f'{share:.3f}' for share in shares[name])}")
        self.assertLess(statistics.median(shares["ours"]), 1.10, shares)
        self.assertLess(statistics.median(shares["dns"]), 1.20, shares)


if __name__ == "__main__":
    enter_namespaces()
    main()
