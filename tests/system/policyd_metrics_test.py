"""What quillfence policyd counts, against what it was asked, answered and logged.

usage: policyd_metrics_test.py --quillfence=QUILLFENCE [unittest options]
"""

import os
import re
import shutil
import tempfile
import unittest
from pathlib import Path

from dns_testing import Drive, main
from mail_servers import wait_for
from policyd_testing import ENDED, Client, Policyd

FOE = "x@spammer.example"


class MetricsTest(unittest.TestCase):
    def setUp(self):
        self.drive = Drive()
        self.addCleanup(self.drive.remove)
        self.drive.put("control/enabled", "1\n")
        self.drive.put("control/rules.enabled", "from_blacklist\n")
        self.drive.put("from_blacklist", "*@spammer.example\n")
        self.drive.put("rbl.enabled", "rbl.example\n")
        self.folder = Path(tempfile.mkdtemp(prefix="quillfence-metrics-"))
        self.addCleanup(shutil.rmtree, self.folder)
        self.path = self.folder / "metrics" / "quillfence.prom"
        self.path.parent.mkdir()

    def serve(self, *options):
        service = Policyd(self.drive, self.folder, "--dns", "off", "--metrics", self.path, *options)
        self.addCleanup(service.kill)
        return service

    def samples(self):
        lines = self.path.read_text(encoding="ascii").splitlines()
        return {name: float(value) for name, value in
                (line.rsplit(" ", 1) for line in lines if not line.startswith("#"))}

    def counted(self, name):
        """The sum of a metric's samples, by the label values that are not 0."""
        return {sample.removeprefix(f"quillfence_{name}"): value
                for sample, value in self.samples().items()
                if sample.startswith(f"quillfence_{name}{{") and value}

    def test_what_was_asked(self):
        service = self.serve("--enforce")
        with Client(service.path) as client:
            for sender in (FOE, FOE, "a@forward.test"):
                client.ask(sender=sender)
            client.ask(protocol_state="DATA")
            client.ask(client_address="nonsense")
        self.assertEqual(service.stop(), ENDED)
        records = service.records()
        decisions = self.counted("decisions_total")
        self.assertEqual(sum(decisions.values()), len(records))
        self.assertEqual(decisions['{verdict="reject",by="rule",rule="from_blacklist"}'], 2)
        self.assertEqual(self.counted("rule_outcomes_total")
                         ['{rule="from_blacklist",outcome="hit"}'], 2)
        self.assertEqual(self.counted("log_records_total"), {'{result="written"}': len(records)})
        answers = self.counted("answers_total")
        self.assertEqual((sum(answers.values()), answers['{answer="reject"}']), (5, 2))
        self.assertEqual(self.counted("unjudged_total")['{reason="other_state"}'], 1)
        self.assertEqual(self.counted("connections_total"),
                         {'{event="opened"}': 1, '{event="closed"}': 1})
        self.assertEqual(self.samples()["quillfence_connections_open"], 0)
        self.assertEqual(self.samples()["quillfence_decision_duration_seconds_count"], len(records))

    def test_the_file(self):
        """It is there from the beginning, for others to read, and stays when the service dies."""
        service = self.serve()
        wait_for("the metrics", self.path.exists)
        self.assertEqual(self.path.stat().st_mode & 0o777, 0o644)
        service.kill()
        self.assertEqual(self.counted("configuration_loads_total"), {'{result="loaded"}': 1})
        self.assertGreater(
            self.samples()["quillfence_configuration_last_success_timestamp_seconds"], 1.6e9)
        ((build, one),) = ((name, value) for name, value in self.samples().items()
                           if name.startswith("quillfence_build_info"))
        self.assertRegex(build, r'\{version="\d+\.\d+\.\d+",build="linux-x86_64"\}$')
        self.assertEqual(one, 1)

    def test_block_lists_begin_with_0(self):
        """Also one that an edit has brought in."""
        service = self.serve()
        with Client(service.path) as client:
            before = self.revision(service, client)
            self.drive.put("rbl.enabled", "rbl.example\nnew.example\n")
            service.reload()
            wait_for("the edit", lambda: self.revision(service, client) != before)
        self.assertEqual(service.stop(), ENDED)
        samples = self.samples()
        for zone in ("rbl.example", "new.example"):
            self.assertIn(f'quillfence_block_list_answers_total{{zone="{zone}",answer="listed"}}',
                          samples)

    def revision(self, service, client):
        """Of the configuration that decides now."""
        client.ask()
        return service.records()[-1]["config"]["revision"]

    def test_a_folder_that_is_not_there(self):
        """Told once; mail is answered all the same."""
        os.rmdir(self.path.parent)
        service = self.serve()
        wait_for("the event", lambda: "the metrics can't be written" in self.events(service))
        with Client(service.path) as client:
            self.assertEqual(client.ask(), "DUNNO")
        self.assertEqual(service.stop(), ENDED)
        self.assertEqual(len(re.findall("the metrics can't be written", self.events(service))), 1)

    def events(self, service):
        path = self.drive.settings["QUILLFENCE_EVENT_LOG"]
        kept = Path(path).read_text(encoding="utf-8") if os.path.exists(path) else ""
        return kept + service.output()


if __name__ == "__main__":
    main()
