#!/usr/bin/env python3
"""How many requests quillfence policyd answers a second, and how soon, beside another policy service.

    policyd.py BUILD_FOLDER SOURCE_FOLDER POLICY_LOAD [SECONDS]

The configuration is that of decisions_bench's big one: 1,528 patterns twice, two lists of 20,000
lines, a block map of 200,000 addresses, 300 ranges, 500 sender domains. 50 connections ask in turn
20,000 requests of the shape that Postfix sends, a tenth of which repeat another. The DNS is off, or
("named") NSD on this machine has a name for every client and an address for every other name. Every
decision is logged. postfwd takes part when it is installed: with one rule that compares
the sender, and with a hundred lines of a list.
Prints a row a run; nobody may be refused, and each service must have answered all.
"""

import json
import os
import random
import resource
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time
from pathlib import Path

BUILD, SOURCE = Path(sys.argv[1]).resolve(), Path(sys.argv[2]).resolve()
LOAD = Path(sys.argv[3]).resolve()
SECONDS = sys.argv[4] if len(sys.argv) > 4 else "10"
PROGRAM = BUILD / "programs/quillfence/quillfence"
DATA = BUILD / "programs/quillfence-data/quillfence-data"
REQUESTS, CONNECTIONS = 20_000, "50"
DNS = ("127.0.0.1", 5399)
DONE, PARTLY = 0, 3
RULES = """check_dynamic_reverse_dns
check_reverse_dns_list
require_helo
valid_helo_domain
resolve_helo_domain
valid_from_domain
known_sender_forgery
valid_ptr
"""
ZONE = """$TTL 60
@ IN SOA ns hostmaster 1 3600 600 86400 60
@ IN NS ns
ns IN A 127.0.0.1
"""
# The root and what the clients' names are below; nothing is in rbl.example.
ZONES = {"example.": ZONE + "* IN A 192.0.2.1\n",
         "in-addr.arpa.": ZONE + "* IN PTR host-1-2-3-4.pool.example.\n",
         "rbl.example.": ZONE}


# --- the configuration ---

def address(chance):
    return ".".join([str(chance.randrange(1, 224))] + [str(chance.randrange(256)) for _ in "abc"])


def list_of(chance):
    return "".join(("*" if n % 10 == 0 else f"user{chance.randrange(1_000_000)}") +
                   f"@domain{chance.randrange(1_000_000)}.example\n" for n in range(20_000))


def addresses_of(chance):
    networks = [f"{chance.randrange(1, 224)}.{chance.randrange(256)}" for _ in range(2_000)]
    return "".join(f"{chance.choice(networks)}.{chance.randrange(256)}.{chance.randrange(256)}\n"
                   for _ in range(200_000))


def made_by(*command, status=DONE):
    done = subprocess.run([DATA, *command], check=False, capture_output=True)
    if done.returncode != status:
        sys.exit(f"{command}: {done.stderr.decode()}")


def make_drive(folder):
    chance = random.Random(2)
    base = folder / "quillfence"
    for name, text in {
        "control/enabled": "1\n", "control/rules.enabled": RULES, "control/bms.enabled": "map\n",
        "control/valid_domain_ips": "".join(f"tied{n}.example : {chance.randrange(224)}.0.0.0/8\n"
                                            for n in range(500)),
        "bms/lists_to_update": "map\n", "rbl.enabled": "rbl.example\n",
        "from_whitelist": list_of(chance), "from_blacklist": list_of(chance),
    }.items():
        path = base / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text)
    (folder / "addresses").write_text(addresses_of(chance))
    made_by("blockmap", "build", folder / "addresses", base / "bms/map")
    for _ in range(300):
        network = f"{chance.randrange(1, 127)}.{chance.randrange(256)}.{chance.randrange(256)}"
        made_by("range", "add", base / "blocked_ips.range", f"{network}.0", f"{network}.200")
    (base / "dynaregex").mkdir()
    for name in ("dyna", "spam"):
        made_by("regex", "compile", "--keep-going", SOURCE / "tests/data/fqrdns.pcre",
                base / f"dynaregex/{name}.cregexes", status=PARTLY)
    return base


def request_of(chance, number):
    helo = f"mail{chance.randrange(1_000)}.example"
    sender = f"user{chance.randrange(1_000_000)}@domain{chance.randrange(100_000)}.example"
    client = address(chance)
    return (f"request=smtpd_access_policy\nprotocol_state=RCPT\nprotocol_name=ESMTP\n"
            f"client_address={client}\nclient_name=unknown\nclient_port={chance.randrange(1024, 65536)}\n"
            f"reverse_client_name=unknown\nserver_address=192.0.2.25\nserver_port=25\n"
            f"helo_name={helo}\nsender={sender}\nrecipient=rcpt{chance.randrange(100)}@here.example\n"
            f"recipient_count=0\nqueue_id=\ninstance={number:x}.65603f2a.{number:05x}.0\nsize=48211\n"
            f"etrn_domain=\nstress=\nsasl_method=\nsasl_username=\nsasl_sender=\nccert_subject=\n"
            f"ccert_issuer=\nccert_fingerprint=\nccert_pubkey_fingerprint=\n"
            f"encryption_protocol={chance.choice(('', 'TLSv1.3'))}\nencryption_cipher=\n"
            f"encryption_keysize=0\npolicy_context=\n\n")


def requests():
    chance, made = random.Random(1), []
    for number in range(REQUESTS):
        made.append(chance.choice(made) if made and chance.random() < 0.1
                    else request_of(chance, number))
    return "".join(made)


# --- services ---

def wait_until_listening(service):
    family = socket.AF_UNIX if isinstance(service.where, str) else socket.AF_INET
    for _ in range(600):
        with socket.socket(family) as asked:
            try:
                asked.connect(service.where)
                return
            except OSError:
                time.sleep(0.05)
    sys.exit(f"{service.command}: does not listen")


class Service:
    """A process that listens somewhere while the block runs."""

    def __init__(self, where, *command, **settings):
        self.where, self.command, self.settings = where, command, settings

    def __enter__(self):
        self.process = subprocess.Popen(self.command, env={**os.environ, **self.settings},
                                        stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                        stderr=subprocess.DEVNULL, start_new_session=True)
        self.session = self.process.pid
        wait_until_listening(self)
        return self

    def __exit__(self, *_):
        self.process.terminate()
        self.process.wait()

    def seconds(self):
        """CPU time so far, of all threads and of the processes that it has started."""
        return sum(seconds for _, seconds in processes_of(self.session))


class Daemon(Service):
    """One that puts itself into the background, and its id into a file."""

    def __init__(self, where, pid_file, *command):
        super().__init__(where, *command)
        self.pid_file = pid_file

    def __enter__(self):
        subprocess.run(self.command, check=True, stdin=subprocess.DEVNULL,
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        wait_until_listening(self)
        self.session = int(self.pid_file.read_text())
        return self

    def __exit__(self, *_):
        os.kill(self.session, signal.SIGTERM)
        for _ in range(600):
            if not processes_of(self.session):
                self.pid_file.unlink(missing_ok=True)
                return
            time.sleep(0.05)
        sys.exit(f"{self.command[0]} does not end")


def processes_of(session):
    """Their ids and seconds of CPU time."""
    found = []
    for entry in Path("/proc").iterdir():
        if entry.name.isdigit():
            try:
                fields = (entry / "stat").read_text().rpartition(")")[2].split()
            except OSError:  # it has ended
                continue
            if int(fields[3]) == session and fields[0] != "Z":
                ticks = int(fields[11]) + int(fields[12])
                found.append((int(entry.name), ticks / os.sysconf("SC_CLK_TCK")))
    return found


def policyd(folder, *options):
    path = folder / "policy"
    return Service(str(path), PROGRAM, "policyd", "--listen", f"unix:{path}", "--log",
                   folder / "decisions", "--drive-c", folder, *options,
                   QUILLFENCE_EVENT_LOG="/dev/null")


def nsd(folder):
    where = folder / "nsd"
    where.mkdir()
    lines = ["server:", f"  ip-address: {DNS[0]}@{DNS[1]}", '  username: ""', '  database: ""',
             f'  zonesdir: "{where}"', f'  zonelistfile: "{where}/list"', f'  xfrdfile: "{where}/x"',
             f'  xfrdir: "{where}"', f'  pidfile: "{where}/pid"', "  tcp-count: 200",
             "  tcp-query-count: 0", "remote-control:", "  control-enable: no"]
    for name, text in ZONES.items():
        (where / f"{name}zone").write_text(text)
        lines += ["zone:", f"  name: {name}", f"  zonefile: {name}zone"]
    (where / "conf").write_text("\n".join(lines) + "\n")
    return Service(DNS, shutil.which("nsd") or "/usr/sbin/nsd", "-d", "-c", where / "conf")


def postfwd(folder, rules):
    where, pid_file = ("127.0.0.1", 10045), folder / "postfwd.pid"
    (folder / "postfwd.cf").write_text(rules)
    return Daemon(where, pid_file, "postfwd", "--file", folder / "postfwd.cf", "--interface",
                  where[0], "--port", str(where[1]), "--cache", "0", "--nodns", "--user", "nobody",
                  "--group", "nogroup", "--pidfile", pid_file)


def short_list(base):
    """It compares with each line in turn, and all of them take it half a second."""
    lines = (base / "from_blacklist").read_text().splitlines()[:100]
    (base / "short").write_text("\n".join(lines) + "\n")
    return f"id=LIST; sender==file:{base}/short; action=REJECT listed\n"


# --- runs ---

def load_seconds():
    """CPU time of the load generator's runs so far."""
    used = resource.getrusage(resource.RUSAGE_CHILDREN)
    return used.ru_utime + used.ru_stime


def run(title, folder, service, rate="0"):
    where = f"unix:{service.where}" if isinstance(service.where, str) else \
        f"inet:{service.where[0]}:{service.where[1]}"
    with service:
        ask = [LOAD, where, folder / "requests", CONNECTIONS]
        subprocess.run([*ask, "0", "1"], check=True, stdout=subprocess.DEVNULL)  # warm
        before, load_before = service.seconds(), load_seconds()
        told = json.loads(subprocess.run([*ask, rate, SECONDS], check=True,
                                         stdout=subprocess.PIPE).stdout)
        used = (service.seconds() - before) / told["answered"] * 1e6
        load_used = (load_seconds() - load_before) / told["answered"] * 1e6
    if set(told["actions"]) != {"DUNNO"}:
        sys.exit(f"{title}: {told['actions']}")
    print(f"| {title} | {told['rate']:,} | {told['p50'] / 1000:.1f} ms | {told['p99'] / 1000:.1f} ms "
          f"| {told['max'] / 1000:.0f} ms | {used:.0f} µs | {load_used:.0f} µs |", flush=True)


def main():
    print("| | a second | half within | 99 of 100 | all | CPU time of one | the client's |")
    print("| --- | ---: | ---: | ---: | ---: | ---: | ---: |")
    with tempfile.TemporaryDirectory() as name:
        folder = Path(name)
        folder.chmod(0o755)
        base = make_drive(folder)
        (folder / "requests").write_text(requests())
        off = ["--dns", "off"]
        run("`policyd`, as fast as it can", folder, policyd(folder, *off))
        run("`policyd --counters`", folder, policyd(folder, *off, "--counters"))
        run("`policyd`, 8,000 a second offered", folder, policyd(folder, *off), "8000")
        with nsd(folder):
            run("`policyd`, named", folder, policyd(folder, "--server", ":".join(map(str, DNS))))
        if shutil.which("postfwd"):
            one = "id=ONE; sender==nobody@nowhere.example; action=REJECT listed\n"
            run("postfwd, one rule", folder, postfwd(folder, one))
            run("postfwd, 100 of the 40,000 lines", folder, postfwd(folder, short_list(base)))


if __name__ == "__main__":
    main()
