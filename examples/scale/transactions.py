#!/usr/bin/env python3
"""Writes transactions as a mail server sees them, with the answers of the DNS, a line each.

    transactions.py COUNT [SEED]

The lines are decision records of which only the transaction and the answers are there, so that
`quillfence batch` asks nobody. They fit ../drive_c: some senders and clients stand in its lists.
The same COUNT and SEED (1) give the same lines; memory is the same for any COUNT. A tenth of the
lines repeat one of the last 10,000, under an id of their own. Who connects is skewed, as it is in
life: a few clients and domains account for most of the mail.
"""

import json
import random
import sys

CLIENTS, DOMAINS, RECIPIENTS, RECENT = 20_000, 5_000, 2_000, 10_000
REPEATED = 0.1


def answer(name, kind, *records):
    """The DNS's answer to one question, as a record has it."""
    found = bool(records)
    return {"n": 0, "name": name, "type": kind, "status": 0 if found else 9003,
            "rcode": "NOERROR" if found else "NXDOMAIN", "class": "found" if found else "no_name",
            "records": [f"{kind} {one}" for one in records], "attempt": 1, "used_by": []}


def reversed_of(ip):
    if ":" in ip:
        digits = "".join(part.zfill(4) for part in ip.replace("::", ":0:0:").split(":"))
        return ".".join(reversed(digits))
    return ".".join(reversed(ip.split(".")))


def client_address(chance):
    """Networks that are kept for measurements and examples, and some of the sample's block map."""
    kind = chance.random()
    low = chance.randrange(1 << 16)
    if kind < 0.02:
        return f"10.11.{low >> 8}.{low & 255}"
    if kind < 0.06:
        # Eight groups: two of the network, two that are zero, four of the client.
        return f"2001:db8::{chance.randrange(1, 256):x}:{low:x}:0:1"
    return f"198.{chance.choice((18, 19))}.{low >> 8}.{low & 255}"


def client(chance, domains):
    """A client: its address, what it says at HELO, and the answers about it."""
    ip = client_address(chance)
    backwards = reversed_of(ip)
    tree = "ip6.arpa." if ":" in ip else "in-addr.arpa."
    kind = chance.random()
    listed = chance.random() < 0.1
    if kind < 0.45:  # a mail server
        name = f"mail{chance.randrange(9)}.{chance.choice(domains)}"
        helo = name
    elif kind < 0.75:  # somebody's computer at home
        name = f"host-{ip.replace('.', '-').replace(':', '-')}.provider.example"
        helo = chance.choice((name, name, name, "localhost.localdomain", f"[{ip}]"))
    else:  # nobody gave it a name
        name = ""
        helo = chance.choice((f"mail.{chance.choice(domains)}", f"[{ip}]", "mail"))
    address = "AAAA" if ":" in ip else "A"
    answers = [answer(f"{backwards}.{tree}", "PTR", *([f"{name}."] if name else []))]
    for asked in sorted({name, helo} - {""}):
        known = asked == name or asked.startswith("mail.")
        for type_ in ("A", "AAAA"):
            answers.append(answer(f"{asked}.", type_, *([ip] if known and type_ == address else [])))
        answers.append(answer(f"{asked}.", "MX"))
    answers.append(answer(f"{backwards}.rbl.example.", "A", *(["127.0.0.2"] if listed else [])))
    answers.append(answer(f"{backwards}.rbl.example.", "AAAA"))
    return {"ip": ip, "helo": helo, "answers": json.dumps(answers)[1:-1]}


def skewed(chance, all_of_them):
    """One of them, the first ones more often."""
    return all_of_them[int(len(all_of_them) * chance.random() ** 3)]


def sender(chance, domains):
    kind = chance.random()
    if kind < 0.05:
        return ""
    if kind < 0.08:
        return f"offer{chance.randrange(1000)}@spammer.example"
    if kind < 0.10:
        return f"user{chance.randrange(50)}@friends.example"
    if kind < 0.11:
        return "service@bank.example"
    return f"user{chance.randrange(500)}@{skewed(chance, domains)}"


def transaction(chance, clients, domains):
    """The rest of a line, behind its id."""
    who = skewed(chance, clients)
    judged = {"ip": who["ip"], "port": str(chance.randrange(1024, 65536)),
              "tls": chance.random() < 0.8, "authuser": "", "mua": False, "helo": who["helo"],
              "sender": sender(chance, domains),
              "recipient": f"user{int(RECIPIENTS * chance.random() ** 2)}@example.net"}
    return f'"transaction": {json.dumps(judged)}, "dns": [{who["answers"]}]}}\n'


def lines(count, seed):
    chance = random.Random(seed)
    domains = [f"d{chance.randrange(1 << 32):x}.example" for _ in range(DOMAINS)]
    clients = [client(chance, domains) for _ in range(CLIENTS)]
    recent = []
    for n in range(count):
        if recent and chance.random() < REPEATED:
            rest = chance.choice(recent)
        else:
            rest = transaction(chance, clients, domains)
            if len(recent) < RECENT:
                recent.append(rest)
            else:
                recent[n % RECENT] = rest
        yield f'{{"schema": "quillfence.decision/1", "id": "t{n}", {rest}'


def main():
    if not 2 <= len(sys.argv) <= 3 or not all(word.isdigit() for word in sys.argv[1:]):
        sys.exit(__doc__.split("\n\n")[1].strip())
    seed = int(sys.argv[2]) if len(sys.argv) == 3 else 1
    sys.stdout.writelines(lines(int(sys.argv[1]), seed))


if __name__ == "__main__":
    main()
