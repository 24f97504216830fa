"""quillfence policyd for long: what a million requests leave behind, and what it adds to the cost of
a message. Minutes each; ./check --long runs it.

usage: policyd_long_test.py --quillfence=QUILLFENCE [unittest options]
"""

import os
import statistics
import subprocess
import time
import unittest
from pathlib import Path

import dns_servers as servers
from dns_testing import main
from dns_zones import ZONES
from mail_servers import Postfix, enter_namespaces, need_namespaces, page_lines
from policyd_load_test import LOCAL, Load, LoadTest
from policyd_testing import ENDED

REQUESTS = 1_000_000
MESSAGES, ROUNDS = 3_000, 5
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
    """CPU time of a message at a real Postfix that smtp-source feeds, with the service and without:
    on two of its ports."""

    @classmethod
    def setUpClass(cls):
        need_namespaces()
        subprocess.run(["ip", "address", "add", "192.0.2.1/32", "dev", "lo"], check=True)
        cls.server = Postfix(page_lines("smtpd_recipient_restrictions ="))
        cls.addClassCleanup(cls.server.stop)
        master = cls.server.machine.read("etc/postfix/master.cf")
        cls.server.machine.write("etc/postfix/master.cf", master +
                                 "26 inet n - y - - smtpd -o smtpd_recipient_restrictions="
                                 "permit_mynetworks,reject_unauth_destination\n")
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
        ticks += sum(int(field) for field in fields_of(service.process.pid)[11:13])
        return ticks / os.sysconf("SC_CLK_TCK")

    def cost(self, service, port):
        before = self.seconds(service)
        self.server.machine.run("smtp-source", "-s", "10", "-m", str(MESSAGES), "-l", "4096", "-f",
                                "who@forward.test", "-t", "bob@forward.test",
                                f"inet:192.0.2.1:{port}")
        return (self.seconds(service) - before) / MESSAGES

    def test_the_cost_of_a_message(self):
        """At most a tenth more, in the median of five."""
        nsd = servers.Nsd(self.folder, ZONES, port=53)
        self.addCleanup(nsd.stop)
        service = self.serve("--server", "127.0.0.1:53",
                             listen=self.server.machine.root / "var/spool/postfix/private/quillfence")
        self.cost(service, 25)  # warm
        shares = []
        for _ in range(ROUNDS):
            without, with_it = self.cost(service, 26), self.cost(service, 25)
            shares.append(with_it / without)
            print(f"{without * 1e6:.0f} us without, {with_it * 1e6:.0f} us with")
        self.assertEqual(service.stop(), ENDED)
        self.assertEqual(len(service.records()), MESSAGES * (ROUNDS + 1))
        self.assertLess(statistics.median(shares), 1.10, shares)


if __name__ == "__main__":
    enter_namespaces()
    main()
