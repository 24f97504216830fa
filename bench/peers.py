#!/usr/bin/env python3
"""Decisions a second and core beside other mail filters, over the same lists and transactions.

    peers.py BUILD_FOLDER SOURCE_FOLDER POLICY_LOAD [SECONDS [CONNECTIONS]]

Lists, ranges, addresses and patterns are those of policyd.py, and so are the 20,000 requests; each
client has a name, one in two looks dynamic, and one in fifty matches a pattern. `quillfence batch
--jobs 1` reads the requests and a file of DNS answers and writes short records, and once more with
the report; `quillfence policyd` answers them over a Unix socket without DNS. rspamd gets the same
facts, the name included, by HTTP, each with a message of two lines: its module multimap alone, with
the same lists as maps (the patterns by Hyperscan), nothing logged. postfwd gets the requests by its
policy socket, with one rule and with 100 of the 40,000 lines. rspamd and postfwd are those of
scripts/fetch-mail-servers, or the machine's own.

A row: decisions for a second of CPU time of the service's processes, and for a second of the clock
with CONNECTIONS (50) connections. Whom rspamd's maps hit, and whom quillfence exempts, is compared
with the lists.
"""

import asyncio
import ipaddress
import itertools
import json
import os
import shutil
import subprocess
import sys
import tempfile
import time
from pathlib import Path

import policyd

SOURCE = policyd.SOURCE
DEPS = SOURCE / "build/deps"
SECONDS = float(policyd.SECONDS)
CONNECTIONS = int(sys.argv[5]) if len(sys.argv) > 5 else 50
ROUNDS = 3  # of all requests, for batch
RSPAMD_PORT = 11399
LISTED_NAME = "out-ab-12.wireless.telus.com"
ONE_RULE = "id=ONE; sender==nobody@nowhere.example; action=REJECT listed\n"
MAPS = {  # symbol: what multimap compares, and how
    "QF_ADDRESSES": 'type = "ip"',
    "QF_RANGES": 'type = "ip"',
    "QF_FROM_WHITELIST": 'type = "from"',
    "QF_FROM_WHITELIST_DOMAINS": 'type = "from"; filter = "email:domain"',
    "QF_FROM_BLACKLIST": 'type = "from"',
    "QF_FROM_BLACKLIST_DOMAINS": 'type = "from"; filter = "email:domain"',
    "QF_NAMES": 'type = "hostname"; regexp = true',
}


# --- transactions ---

def name_of(address):
    """A client's PTR name."""
    octets = address.split(".")
    if int(octets[3]) % 50 == 0:
        return LISTED_NAME
    return f"host-{'-'.join(octets)}.pool.example" if int(octets[3]) % 2 else \
        f"mail.{octets[2]}.net{octets[0]}-{octets[1]}.example"


def facts_of(text):
    """The members of each request."""
    return [dict(line.split("=", 1) for line in one.splitlines())
            for one in text.strip().split("\n\n")]


def zone_data(all_facts):
    """DNS answers: names for clients, addresses for domains, nothing in rbl.example."""
    names = {}
    for facts in all_facts:
        backwards = ".".join(reversed(facts["client_address"].split(".")))
        names[f"{backwards}.in-addr.arpa"] = [{"PTR": name_of(facts["client_address"])}]
        names[f"{backwards}.rbl.example"] = ["NXDOMAIN"]
        for domain in (facts["helo_name"], facts["sender"].partition("@")[2]):
            names[domain] = [{"A": "192.0.2.1"}]
    return json.dumps({"schema": "quillfence.case/1", "transaction": {}, "zonedata": names})


# --- the lists, for rspamd and for comparison ---

def networks_of_ranges(base):
    """The range file's records as networks."""
    listed = subprocess.run([policyd.DATA, "range", "list", "--json", base / "blocked_ips.range"],
                            check=True, capture_output=True).stdout
    for one in json.loads(listed):
        yield from ipaddress.summarize_address_range(ipaddress.ip_address(one["low"]),
                                                     ipaddress.ip_address(one["high"]))


def sender_lists(base):
    """Whole addresses, and domains of the lines that begin with a star, by the map's name."""
    made = {}
    for name in ("from_whitelist", "from_blacklist"):
        lines = (base / name).read_text().split()
        made[f"QF_{name.upper()}"] = [line for line in lines if line[0] != "*"]
        made[f"QF_{name.upper()}_DOMAINS"] = [line[2:] for line in lines if line[0] == "*"]
    return made


def pattern_lines():
    for line in (SOURCE / "tests/data/fqrdns.pcre").read_text().splitlines():
        if line.startswith("/"):
            yield line[:line.rindex("/")] + "/i"


def lists_of(folder, base):
    return {"QF_ADDRESSES": (folder / "addresses").read_text().split(),
            "QF_RANGES": [str(network) for network in networks_of_ranges(base)],
            "QF_NAMES": list(pattern_lines()), **sender_lists(base)}


def expected_hits(lists, facts):
    """The maps that a transaction hits."""
    sender, client = facts["sender"], facts["client_address"]
    hits = {name for name in ("QF_FROM_WHITELIST", "QF_FROM_BLACKLIST") if sender in lists[name]}
    hits |= {name for name in ("QF_FROM_WHITELIST_DOMAINS", "QF_FROM_BLACKLIST_DOMAINS")
             if sender.partition("@")[2] in lists[name]}
    if name_of(client) == LISTED_NAME:
        hits.add("QF_NAMES")
    if client in lists["QF_ADDRESSES"]:
        hits.add("QF_ADDRESSES")
    if int(ipaddress.ip_address(client)) in lists["QF_RANGES"]:
        hits.add("QF_RANGES")
    return hits


def searchable(lists):
    sets = {name: set(entries) for name, entries in lists.items()}
    sets["QF_RANGES"] = {int(address) for network in lists["QF_RANGES"]
                         for address in ipaddress.ip_network(network)}
    return sets


# --- rspamd ---

def unpacked(name, *places):
    """A program of scripts/fetch-mail-servers, or the machine's own, and the folder it lies in."""
    for place in places:
        if (DEPS / name / place).exists():
            return DEPS / name / place, DEPS / name
    found = shutil.which(Path(places[0]).name)
    return (Path(found), Path("/")) if found else (None, None)


def rspamd_configuration(folder, root, lists):
    share = root / "usr/share/rspamd"
    for name, entries in lists.items():
        (folder / name).write_text("\n".join(entries) + "\n")
    (folder / "tld").write_text("com\norg\nexample\n")
    (folder / "none.lua").write_text('require "global_functions" ()\n')
    maps = "".join(f'    {name} {{ {what}; map = "{folder}/{name}"; score = 20; }}\n'
                   for name, what in MAPS.items())
    (folder / "rspamd.conf").write_text(f"""
options {{
    pidfile = "{folder}/rspamd.pid"; tempdir = "{folder}"; hs_cache_dir = "{folder}/";
    cache_file = "{folder}/symbols.cache"; control_socket = "{folder}/control mode=0600";
    url_tld = "{folder}/tld"; filters = ""; local_addrs = [];
    dns {{ nameserver = ["127.0.0.1:1"]; }}
}}
logging {{ type = "file"; filename = "{folder}/rspamd.log"; level = "error"; }}
worker "normal" {{ bind_socket = "127.0.0.1:{RSPAMD_PORT}"; count = 1; }}
lua = "{folder}/none.lua";
modules {{ path = "{share}/plugins/multimap.lua"; }}
actions {{ reject = 15; }}
multimap {{
{maps}}}
""")
    return [f"--var={name}={value}" for name, value in {
        "SHAREDIR": share, "RULESDIR": share / "rules", "PLUGINSDIR": share / "plugins",
        "LUALIBDIR": share / "lualib", "DBDIR": folder, "RUNDIR": folder, "CONFDIR": folder,
        "LOCAL_CONFDIR": folder}.items()]


def rspamd(folder, program, root, lists):
    folder.mkdir()
    variables = rspamd_configuration(folder, root, lists)
    libraries = f"{root}/usr/lib/x86_64-linux-gnu:{root}/usr/lib/rspamd"
    user = ["--insecure"] if os.geteuid() == 0 else []
    return policyd.Service(("127.0.0.1", RSPAMD_PORT), program, "--no-fork", *user, "--config",
                           folder / "rspamd.conf", *variables, LD_LIBRARY_PATH=libraries)


MESSAGE = b"Subject: test\r\n\r\ntest\r\n"


def http_request(facts):
    return (f"POST /checkv2 HTTP/1.1\r\nHost: localhost\r\nConnection: keep-alive\r\n"
            f"IP: {facts['client_address']}\r\nHelo: {facts['helo_name']}\r\n"
            f"Hostname: {name_of(facts['client_address'])}\r\nFrom: {facts['sender']}\r\n"
            f"Rcpt: {facts['recipient']}\r\nContent-Length: {len(MESSAGE)}\r\n\r\n"
            ).encode() + MESSAGE


async def reply_of(reader):
    head = (await reader.readuntil(b"\r\n\r\n")).lower()
    if not head.startswith(b"http/1.1 200"):
        sys.exit(f"rspamd: {head.decode()}")
    length = int(head.partition(b"content-length:")[2].split(b"\r\n")[0])
    return await reader.readexactly(length), b"connection: close" in head


async def ask_in_turn(requests, until, take):
    """One connection, that is made anew whenever the server has ended it."""
    reader = writer = None
    for number, request in requests:
        if time.monotonic() > until:
            break
        if not writer:
            reader, writer = await asyncio.open_connection("127.0.0.1", RSPAMD_PORT)
        writer.write(request)
        body, closed = await reply_of(reader)
        take(number, body)
        if closed:
            writer.close()
            writer = None
    if writer:
        writer.close()


async def ask_rspamd(requests, seconds, take):
    shared = iter(requests)
    until = time.monotonic() + seconds
    await asyncio.gather(*(ask_in_turn(shared, until, take) for _ in range(CONNECTIONS)))


def compare_hits(requests, all_facts, sets):
    """Every transaction once; how many hit a list."""
    count = 0

    def take(number, body):
        nonlocal count
        hits = {name for name in json.loads(body)["symbols"] if name in MAPS}
        if hits != expected_hits(sets, all_facts[number]):
            sys.exit(f"rspamd: {hits} for {all_facts[number]}")
        count += bool(hits)
    asyncio.run(ask_rspamd(enumerate(requests), 600, take))
    return count


def run_rspamd(title, service, all_facts, sets):
    requests = [http_request(facts) for facts in all_facts]
    with service:
        hits = compare_hits(requests, all_facts, sets)  # and warm
        answered = 0

        def take(*_):
            nonlocal answered
            answered += 1
        before, begin = service.seconds(), time.monotonic()
        asyncio.run(ask_rspamd(itertools.cycle(enumerate(requests)), SECONDS, take))
        row(title, answered, service.seconds() - before, time.monotonic() - begin)
    return hits


# --- ours, and postfwd ---

def row(title, count, cpu, clock=None):
    print(f"| {title} | {count / cpu:,.0f} | {cpu / count * 1e6:,.0f} µs | "
          f"{f'{count / clock:,.0f}' if clock else ''} |", flush=True)


def batch_seconds(folder, lines, *options):
    command = [policyd.PROGRAM, "batch", "--quiet", "--jobs", "1", "--from", "policy", "--dns",
               folder / "answers", "--drive-c", folder, *options]
    with open(lines, "rb") as put, open(folder / "judged", "wb") as out:
        judge = subprocess.Popen(command, stdin=put, stdout=out)
        _, status, used = os.wait4(judge.pid, 0)
    if os.waitstatus_to_exitcode(status) != policyd.DONE:
        sys.exit(f"{command}: status {status}")
    return used.ru_utime + used.ru_stime


def compare_exemptions(folder, all_facts, sets):
    """Whom from_whitelist exempts, of the first round."""
    with open(folder / "judged", "rb") as judged:
        for facts, line in zip(all_facts, judged):
            rule = json.loads(line)["decision"].get("rule")
            listed = any(name.startswith("QF_FROM_W") for name in expected_hits(sets, facts))
            if listed != (rule == "from_whitelist"):
                sys.exit(f"quillfence: {rule} for {facts}")


def run_batch(title, folder, *options):
    """Without what it takes to begin: the configuration and the answers are read."""
    beginning = batch_seconds(folder, "/dev/null", *options)
    used = batch_seconds(folder, folder / "rounds", *options) - beginning
    row(title, ROUNDS * policyd.REQUESTS, used)


def asked(ask, seconds):
    """What the load generator tells; it waits for every answer, and we do not for ever."""
    done = subprocess.run([*ask, str(seconds)], check=True, stdout=subprocess.PIPE,
                          timeout=seconds + 60)
    return json.loads(done.stdout)


def run_policy(title, folder, service):
    where = f"unix:{service.where}" if isinstance(service.where, str) else \
        f"inet:{service.where[0]}:{service.where[1]}"
    ask = [policyd.LOAD, where, folder / "requests", str(CONNECTIONS), "0"]
    with service:
        try:
            asked(ask, 1)  # warm
            before = service.seconds()
            told = asked(ask, SECONDS)
        except subprocess.TimeoutExpired:
            print(f"| {title} | stopped answering | | |", flush=True)
            return
        row(title, told["answered"], service.seconds() - before, told["seconds"])


def use_unpacked_postfwd():
    """Puts the fetched one on the path, if there is one; whether there is any."""
    program, root = unpacked("postfwd", "usr/sbin/postfwd2")
    if program and root != Path("/"):
        link = DEPS / "postfwd/usr/sbin/postfwd"
        link.unlink(missing_ok=True)
        link.symlink_to(program.name)
        os.environ["PATH"] = f"{link.parent}:{os.environ['PATH']}"
        os.environ["PERL5LIB"] = f"{root}/usr/share/perl5"
    return shutil.which("postfwd") is not None


def main():
    print("| | decisions for a second of CPU time | CPU time of one | a second of the clock |")
    print("| --- | ---: | ---: | ---: |")
    with tempfile.TemporaryDirectory() as name:
        folder = Path(name)
        folder.chmod(0o755)
        base = policyd.make_drive(folder)
        text = policyd.requests()
        (folder / "requests").write_text(text)
        (folder / "rounds").write_text(text * ROUNDS)
        all_facts = facts_of(text)
        (folder / "answers").write_text(zone_data(all_facts))
        lists = lists_of(folder, base)
        sets = searchable(lists)
        run_batch("`quillfence batch`", folder)
        compare_exemptions(folder, all_facts, sets)
        run_batch("`quillfence batch --report`", folder, "--report")
        run_policy("`quillfence policyd --dns off`", folder,
                   policyd.policyd(folder, "--dns", "off"))
        hits = None
        program, root = unpacked("rspamd", "usr/bin/rspamd")
        if program:
            service = rspamd(folder / "rspamd", program, root, lists)
            hits = run_rspamd("rspamd, the same lists as maps", service, all_facts, sets)
        if use_unpacked_postfwd():
            run_policy("postfwd, one rule", folder, policyd.postfwd(folder, ONE_RULE))
            run_policy("postfwd, a list of 100", folder,
                       policyd.postfwd(folder, policyd.short_list(base)))
    if hits is not None:
        print(f"\n{hits:,} of {policyd.REQUESTS:,} transactions hit a list; all as the lists say.")


if __name__ == "__main__":
    main()
