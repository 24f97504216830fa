"""What is around quillfence policyd: its metrics, rules for alarms, systemd's units and logrotate's
file, each judged by the program that reads it, and the page about them.

usage: running_policyd_test.py METRICS_TEXT QUILLFENCE SOURCE
"""

import os
import re
import shutil
import subprocess
import unittest
from pathlib import Path

from whole_program import ARGUMENTS, FolderTest, environment, is_sanitized, main, unable

METRICS_TEXT, QUILLFENCE, SOURCE = Path(ARGUMENTS[0]), Path(ARGUMENTS[1]), Path(ARGUMENTS[2])
CHECKERS = SOURCE / "build/deps/checkers"
PAGE = (SOURCE / "docs/policyd.md").read_text(encoding="utf-8")
UNITS = SOURCE / "packaging/systemd"
RULES = SOURCE / "packaging/prometheus/quillfence.rules.yml"

# Of systemd's own rating, from 0 to 10: how much is left to a service that has been taken over.
MOST_EXPOSURE = 1.5


def checked(*command, text="", folder=None, **settings):
    """Exit status and all that a program says."""
    libraries = [CHECKERS / folder for folder in
                 ("lib/x86_64-linux-gnu", "usr/lib/x86_64-linux-gnu",
                  "usr/lib/x86_64-linux-gnu/systemd")]
    done = subprocess.run([CHECKERS / "usr" / command[0], *command[1:]], input=text,
                          capture_output=True, text=True, timeout=60, check=False, cwd=folder,
                          env={"PATH": os.environ["PATH"], "HOME": "/nonexistent",
                               "LD_LIBRARY_PATH": ":".join(map(str, libraries)), **settings})
    return done.returncode, done.stdout + done.stderr


def metrics_text():
    return subprocess.run([METRICS_TEXT], capture_output=True, text=True, timeout=60,
                          check=True).stdout


class Metrics(unittest.TestCase):
    def test_promtool_finds_nothing(self):
        self.assertEqual(checked("bin/promtool", "check", "metrics", text=metrics_text()), (0, ""))

    def test_promtool_would_find_something(self):
        text = metrics_text().replace("quillfence_answers_total", "quillfence_answers")
        self.assertNotEqual(checked("bin/promtool", "check", "metrics", text=text)[0], 0)

    def test_the_page_has_them_all(self):
        """Each with its labels, and no other."""
        rows = re.findall(r"^\| `(quillfence_\w+)` \| (.*?) ?\|", PAGE, re.MULTILINE)
        on_the_page = {name: set(re.findall(r"`(\w+)`", labels)) for name, labels in rows}
        in_the_text = {}
        for name, kind in re.findall(r"^# TYPE (\S+) (\S+)$", metrics_text(), re.MULTILINE):
            sample = name + ("_bucket" if kind == "histogram" else "")
            found = re.search(rf"^{sample}(?:\{{(.*)\}})? ", metrics_text(), re.MULTILINE)
            in_the_text[name] = set(re.findall(r'(\w+)="', found.group(1) or ""))
        self.assertEqual(on_the_page, in_the_text)

    def test_the_page_has_every_reason(self):
        reasons = re.findall(r'^quillfence_unjudged_total\{reason="(\w+)"\}', metrics_text(),
                             re.MULTILINE)
        table = PAGE[PAGE.index("| reason | means |"):].partition("\n\n")[0]
        self.assertEqual(re.findall(r"^\| `(\w+)`", table, re.MULTILINE), reasons)


class Alarms(FolderTest):
    def test_promtool_takes_them(self):
        status, said = checked("bin/promtool", "check", "rules", RULES)
        self.assertEqual(status, 0, said)

    def test_they_ask_for_what_there_is(self):
        text, rules = metrics_text(), RULES.read_text(encoding="utf-8")
        asked = set(re.findall(r"\bquillfence_\w+", rules))
        self.assertGreater(len(asked), 5)
        for name in asked:
            self.assertRegex(text, rf"(?m)^{name}[{{ ]")
        for label, values in re.findall(r'(\w+)[=!]~?"([a-z_|]+)"', rules):
            for value in values.split("|"):
                self.assertIn(f'{label}="{value}"', text)

    def run_rules(self, series, alert):
        """Which of these alarms stand after more than an hour of such a series."""
        self.file("quillfence.rules.yml", RULES.read_text(encoding="utf-8"))
        self.file("test.yml", f"""
rule_files: [quillfence.rules.yml]
tests:
  - interval: 1m
    input_series:
      - series: '{series[0]}'
        values: '{series[1]}'
    alert_rule_test:
      - eval_time: 70m
        alertname: {alert}
""")
        return checked("bin/promtool", "test", "rules", "test.yml", folder=self.folder)

    def test_an_alarm_goes_off(self):
        """Without expected alarms promtool fails when there is one."""
        for series, alert in (
                (('quillfence_unjudged_total{reason="deadline",instance="a"}', "0+60x80"),
                 "QuillfenceMailPassesInDoubt"),
                (('quillfence_log_records_total{result="lost",instance="a"}', "0+1x80"),
                 "QuillfenceRecordsLost"),
                (('quillfence_configuration_loads_total{result="failed",instance="a"}', "0+1x80"),
                 "QuillfenceConfigurationDoesNotLoad"),
                (('quillfence_block_list_answers_total{answer="refused",zone="z"}', "0+9x80"),
                 "QuillfenceBlockListRefuses"),
                (('node_textfile_mtime_seconds{file="/x/quillfence.prom"}', "0+0x80"),
                 "QuillfenceStopped")):
            status, said = self.run_rules(series, alert)
            self.assertEqual(status, 1, f"{alert}: {said}")
            self.assertIn(f'alertname="{alert}"', said)

    def test_an_alarm_is_quiet(self):
        for series, alert in (
                (('quillfence_unjudged_total{reason="other_state",instance="a"}', "0+60x80"),
                 "QuillfenceMailPassesInDoubt"),
                (('quillfence_log_records_total{result="lost",instance="a"}', "7+0x80"),
                 "QuillfenceRecordsLost"),
                (('quillfence_configuration_loads_total{result="failed",instance="a"}', "1+0x80"),
                 "QuillfenceConfigurationDoesNotLoad")):
            status, said = self.run_rules(series, alert)
            self.assertEqual(status, 0, f"{alert}: {said}")


class Units(FolderTest):
    def setUp(self):
        super().setUp()
        for unit in UNITS.glob("quillfence-policyd.*"):
            text = unit.read_text(encoding="utf-8")
            self.file(unit.name, text.replace("/usr/bin/quillfence ", f"{QUILLFENCE} "))
        self.paths = f"{self.folder}:{CHECKERS / 'lib/systemd/system'}:"

    def analyze(self, *command):
        return checked("bin/systemd-analyze", *command, SYSTEMD_UNIT_PATH=self.paths)

    def test_systemd_takes_them(self):
        units = [self.folder / name for name in self.files()]
        self.assertEqual(len(units), 2)
        self.assertEqual(self.analyze("verify", "--man=no", *units), (0, ""))

    def test_systemd_would_find_something(self):
        service = self.folder / "quillfence-policyd.service"
        service.write_text(service.read_text().replace("UMask=", "Umask="))
        self.assertIn("Umask", self.analyze("verify", "--man=no", service)[1])

    def test_little_is_exposed(self):
        status, said = self.analyze("security", "--offline=true", "--no-pager",
                                    self.folder / "quillfence-policyd.service")
        self.assertEqual(status, 0, said)
        rating = re.search(r"Overall exposure level for \S+: ([0-9.]+) ", said)
        self.assertLessEqual(float(rating.group(1)), MOST_EXPOSURE)

    def test_the_program_takes_the_options(self):
        """All but the serving itself, with the paths of this test."""
        service = (self.folder / "quillfence-policyd.service").read_text()
        command = re.search(r"^ExecStart=(.*)$", service, re.MULTILINE).group(1)
        words = command.replace("$OPTIONS", "").split()[1:]
        done = subprocess.run([QUILLFENCE, *words, "--help"], capture_output=True, text=True,
                              timeout=60, check=False)
        self.assertEqual(done.returncode, 0, done.stderr)

    def test_paths_agree(self):
        """Unit, page, and logrotate's file mean the same files."""
        service = (UNITS / "quillfence-policyd.service").read_text()
        log = re.search(r"--log (\S+)", service).group(1)
        metrics = re.search(r"--metrics (\S+)", service).group(1)
        rotated = (SOURCE / "packaging/logrotate/quillfence-policyd").read_text()
        self.assertIn(log + " {", rotated)
        self.assertIn("create 0600 quillfence quillfence", rotated)
        self.assertIn(f"LogsDirectory={Path(log).parent.name}\n", service)
        self.assertIn(f"RuntimeDirectory={Path(metrics).parent.name}\n", service)
        self.assertIn(metrics, PAGE)
        place = re.search(r"^ListenStream=(\S+)$", (UNITS / "quillfence-policyd.socket").read_text(),
                          re.MULTILINE).group(1)
        queue = "/var/spool/postfix/"
        self.assertTrue(place.startswith(queue), place)
        self.assertIn(f"unix:{place.removeprefix(queue)}, timeout=10s, default_action=DUNNO", PAGE)


REQUEST = """request=smtpd_access_policy
protocol_state=RCPT
client_address=192.0.2.1
helo_name=mail.example.org
sender=x@spammer.example
recipient=bob@example.net

"""


class SystemCalls(FolderTest):
    """The unit lets the service make those of some groups; one that is missing would be noticed on
    the day it is made."""

    def setUp(self):
        super().setUp()
        if is_sanitized(QUILLFENCE):
            self.skipTest("the sanitizer makes calls of its own")
        if not shutil.which("strace"):
            self.assertNotEqual(os.environ.get("CI"), "true", "CI=true, but there is no strace")
            self.skipTest("there is no strace")

    def groups(self):
        status, said = checked("bin/systemd-analyze", "syscall-filter", "--no-pager")
        self.assertEqual(status, 0, said)
        found, group = {}, None
        for line in said.splitlines():
            if line.startswith("@"):
                group = found.setdefault(line.strip(), [])
            elif line.startswith("    ") and not line.strip().startswith("#"):
                group.append(line.strip())
        return found

    def members(self, names, groups):
        """The calls of groups, and of the groups in them."""
        calls = set()
        for name in names:
            calls |= self.members(groups[name], groups) if name.startswith("@") else {name}
        return calls

    def allowed(self):
        groups, calls = self.groups(), set()
        service = (UNITS / "quillfence-policyd.service").read_text()
        for sign, names in re.findall(r"^SystemCallFilter=(~?)(.*)$", service, re.MULTILINE):
            named = self.members(names.split(), groups)
            calls = calls - named if sign else calls | named
        return calls

    def test_all_are_let_through(self):
        traced = subprocess.run(
            ["strace", "-f", "-o", self.folder / "trace", QUILLFENCE, "policyd", "--stdio", "--log",
             self.folder / "log", "--metrics", self.folder / "quillfence.prom", "--drive-c",
             SOURCE / "examples/drive_c", "--server", "127.0.0.1:9", "--deadline", "2", "--enforce"],
            input=REQUEST, env=environment(), capture_output=True, text=True, timeout=100,
            check=False)
        self.assertIn("action=550 5.7.1 ", traced.stdout, traced.stderr)
        made = set(re.findall(r"^\d+ +(\w+)\(", (self.folder / "trace").read_text(), re.MULTILINE))
        self.assertGreater(len(made), 20)
        self.assertEqual(made - self.allowed() - {"execve"}, set())


class LogRotation(FolderTest):
    def test_logrotate_takes_it(self):
        self.file("log", "{}\n")
        given = (SOURCE / "packaging/logrotate/quillfence-policyd").read_text()
        given = given.replace("/var/log/quillfence/policyd.log", str(self.folder / "log"))
        given = re.sub(r"create 0600 \S+ \S+", "create 0600", given)
        given = re.sub(r"/bin/systemctl .*", f"touch {self.folder / 'told'}", given)
        self.file("conf", given)
        os.chmod(self.folder / "conf", 0o644)
        os.chmod(self.folder, 0o700)
        self.assertEqual(checked("sbin/logrotate", "--force", "--state", self.folder / "state",
                                 self.folder / "conf"), (0, ""))
        self.assertEqual(self.bytes_of("log.1"), b"{}\n")
        self.assertEqual(self.bytes_of("log"), b"")
        self.assertEqual((self.folder / "log").stat().st_mode & 0o777, 0o600)
        self.assertTrue((self.folder / "told").exists())


if __name__ == "__main__":
    if not CHECKERS.is_dir():
        unable("promtool, systemd-analyze and logrotate are not there: run scripts/fetch-checkers")
    main()
