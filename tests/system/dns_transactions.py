"""What the program and the probe say about the zones of dns_zones. The same tables serve every
build and every way of naming the server.

`wine` is false for what Wine's DNS client reports otherwise than Windows does: an answer without
records comes as a missing name, an answer whose last record ends in a name as a damaged one. It is
OVER_TCP for a refusal, which Wine's client takes for silence over UDP."""

from dns_testing import probe, replay, report
from dns_zones import REFUSED_CLIENT, REFUSED_DOMAIN

OVER_TCP = "over TCP"
FORWARD = "forward.test"
MISSING = "missing-host-name." + FORWARD

# name, what differs from a clean transaction, the rules hit, wine
TRANSACTIONS = [
    ("clean", {}, [], True),
    ("several PTR names", {"ip": "192.0.2.3"}, [], True),
    ("PTR name behind aliases", {"ip": "192.0.2.5"}, [], True),
    ("PTR name spells the address out", {"ip": "192.0.2.2"},
     ["check_dynamic_reverse_dns_default"], True),
    ("PTR name is no domain", {"ip": "192.0.2.7"}, ["valid_ptr"], True),
    ("PTR missing", {"ip": "192.0.2.99"}, ["check_ip_reverse_dns"], True),
    ("PTR refused", {"ip": REFUSED_CLIENT}, ["check_ip_reverse_dns"], True),
    ("PTR answer of an alias only", {"ip": "192.0.2.4"}, ["check_ip_reverse_dns"], False),
    ("PTR name is the root", {"ip": "192.0.2.8"}, ["check_ip_reverse_dns"], False),
    ("no PTR record: a failure", {"ip": "192.0.2.6"}, [], False),
    ("PTR is an alias of nothing", {"ip": "192.0.2.9"}, ["check_ip_reverse_dns"], True),
    ("private client", {"ip": "10.1.2.3"}, [], True),
    ("IPv6 client", {"ip": "2001:db8::10"}, ["block_nonauth_ipv6"], True),
    ("HELO with an IPv6 address", {"helo": "host-with-an-aaaa." + FORWARD}, [], True),
    ("HELO with a mail exchanger", {"helo": "domain-with-an-mx." + FORWARD}, [], True),
    ("HELO is an alias", {"helo": "alias-of-a-host." + FORWARD}, [], True),
    ("HELO missing", {"helo": MISSING}, ["resolve_helo_domain"], True),
    ("HELO is an alias of nothing", {"helo": "alias-of-nothing." + FORWARD},
     ["resolve_helo_domain"], True),
    ("HELO refused", {"helo": REFUSED_DOMAIN}, ["resolve_helo_domain"], True),
    ("HELO without records: a failure", {"helo": "domain-with-a-text." + FORWARD}, [], False),
    ("sender is no address", {"sender": "u@-@" + FORWARD},
     ["rfc_mail_from", "valid_from_domain"], True),
    ("sender with a mail exchanger", {"sender": "u@domain-with-an-mx." + FORWARD}, [], True),
    ("sender missing", {"sender": "u@" + MISSING}, ["valid_from_domain"], True),
    ("sender is an alias of nothing", {"sender": "u@alias-of-nothing." + FORWARD},
     ["valid_from_domain"], True),
    ("sender refused", {"sender": "u@" + REFUSED_DOMAIN}, ["valid_from_domain"], True),
    ("sender without records: a failure", {"sender": "u@domain-with-a-text." + FORWARD}, [],
     False),
    ("nothing exists", {"ip": "192.0.2.99", "helo": MISSING, "sender": "u@" + MISSING},
     ["check_ip_reverse_dns", "resolve_helo_domain", "valid_from_domain"], True),
]

# Compiled pattern files by hand: nothing but the magic, and the one expression ".*" that matches
# every name (the group, two nodes for ".*", the end; type, left, right, next).
NO_PATTERN = bytes.fromhex("b9eb0000")
EVERY_NAME = NO_PATTERN + bytes.fromhex(
    "04000000"
    "02010000 01000000 00000000 ffffffff"
    "0d010000 ffffffff ffffffff 02000000"
    "0d010000 ffffffff ffffffff 03000000"
    "0a010000 ffffffff ffffffff ffffffff")

# name, pattern files of c:/quillfence/dynaregex, the rules hit by a client with three PTR names
PATTERN_TRANSACTIONS = [
    ("dynamic names", {"dyna": EVERY_NAME}, ["check_dynamic_reverse_dns"]),
    ("abusive names", {"spam": EVERY_NAME}, ["check_reverse_dns_list"]),
    ("confirmed names", {"confirmed": EVERY_NAME}, ["check_confirmed_dyna"]),
    ("all three", {"dyna": EVERY_NAME, "spam": EVERY_NAME, "confirmed": EVERY_NAME},
     ["check_dynamic_reverse_dns", "check_reverse_dns_list", "check_confirmed_dyna"]),
    ("exempt names", {"dyna": EVERY_NAME, "spam": EVERY_NAME, "exempt": EVERY_NAME}, []),
    ("no exempt name", {"dyna": EVERY_NAME, "exempt": NO_PATTERN}, ["check_dynamic_reverse_dns"]),
    ("no pattern", {"dyna": NO_PATTERN, "spam": NO_PATTERN, "confirmed": NO_PATTERN}, []),
]

# question, answer, wine. Options 2 is TCP only; without it NSD is asked over UDP.
QUESTIONS = [
    ("query host-with-an-a.forward.test. 1 {}", "0 [1 -]", False),
    ("query host-with-an-a.forward.test. 28 {}", "9501", False),
    ("query host-with-an-a.forward.test. 15 {}", "9501", False),
    ("query host-with-an-aaaa.forward.test. 28 {}", "0 [28 -]", False),
    ("query domain-with-an-mx.forward.test. 15 {}", "0 [15 -]", False),
    ("query domain-with-a-text.forward.test. 1 {}", "9501", False),
    ("query alias-of-a-host.forward.test. 1 {}", "0 [5 -] [1 -]", False),
    ("query alias-of-nothing.forward.test. 1 {}", "9003", True),
    ("query alias-of-nothing.forward.test. 28 {}", "9003", True),
    ("query alias-of-nothing.forward.test. 15 {}", "9003", True),
    ("query alias-of-a-text.forward.test. 1 {}", "0 [5 -]", False),
    ("query missing-host-name.forward.test. 1 {}", "9003", True),
    ("query missing-host-name.forward.test. 28 {}", "9003", True),
    ("query missing-host-name.forward.test. 15 {}", "9003", True),
    ("query refused-domain.example. 1 {}", "9005", OVER_TCP),
    ("query refused-domain.example. 28 {}", "9005", OVER_TCP),
    ("query refused-domain.example. 15 {}", "9005", OVER_TCP),
    ("query 1.100.51.198.in-addr.arpa. 12 {}", "9005", OVER_TCP),
    ("query host-with-an-a.forward.test 1 {}", "0 [1 -]", False),
    ("exists host-with-an-a.forward.test. {}", "0", True),
    ("exists host-with-an-aaaa.forward.test. {}", "0", True),
    ("exists missing-host-name.forward.test. {}", "1", True),
    ("domain domain-with-an-mx.forward.test {}", "0", True),
    ("domain domain-with-a-text.forward.test {}", "2", False),
    ("domain missing-host-name.forward.test {}", "1", True),
    ("domain alias-of-nothing.forward.test {}", "1", True),
    ("domain refused-domain.example {}", "1", OVER_TCP),
    ("domain no_domain.forward.test {}", "-1", True),
    ("ptr 192.0.2.1 {} 0", "0 host-with-an-a.forward.test", True),
    ("ptr 192.0.2.3 {} 0",
     "0 several-a.forward.test several-b.forward.test several-c.forward.test", True),
    ("ptr 192.0.2.3 {} 1", "0 several-a.forward.test", True),
    ("ptr 192.0.2.4 {} 0", "-1", False),
    ("ptr 192.0.2.5 {} 1", "0 chained.forward.test", True),
    ("ptr 192.0.2.6 {} 0", "2", False),
    ("ptr 192.0.2.8 {} 0", "-1", False),
    ("ptr 192.0.2.9 {} 0", "1", True),
    ("ptr 192.0.2.99 {} 0", "1", True),
    ("ptr 198.51.100.1 {} 0", "1", OVER_TCP),
    ("ptr 2001:db8::10 {} 0", "0 host-with-an-aaaa.forward.test", True),
    ("ptr 2001:db8::11 {} 0", "1", True),
    ("ptr no-address {} 0", "2", True),
    ("rbl 192.0.2.2 rbl.test {}", "1", True),
    ("rbl 192.0.2.3 rbl.test {}", "1", True),
    ("rbl 192.0.2.4 rbl.test {}", "1", True),
    ("rbl 192.0.2.5 rbl.test {}", "0", True),
    ("rbl 192.0.2.99 rbl.test {}", "0", True),
    ("rbl 192.0.2.2 refused-domain.example {}", "0", True),
    ("rbl 2001:db8::2 rbl.test {}", "0", True),
]

# What Windows leaves open: further records, such as a name server's address, may follow.
BEGINNINGS = [
    ("query host-with-an-a.forward.test. 1 {}", "0 [1 -]"),
    ("query host-with-an-aaaa.forward.test. 28 {}", "0 [28 -]"),
    ("query domain-with-an-mx.forward.test. 15 {}", "0 [15 -]"),
    ("query 1.2.0.192.in-addr.arpa. 12 {}", "0 [12 host-with-an-a.forward.test]"),
]


def sort_names(answer):
    """Servers may rotate the records of an answer."""
    code, *names = answer.split(" ")
    return [code] + sorted(names)


def check_questions(test, windows, **settings):
    for option in "02":
        rows = [row for row in QUESTIONS
                if not windows or row[2] is True or (row[2] == OVER_TCP and option == "2")]
        answers = probe([question.format(option) for question, _, _ in rows], **settings)
        test.assertEqual(len(answers), len(rows))
        for (question, want, _), got in zip(rows, answers):
            with test.subTest(question.format(option)):
                test.assertEqual(sort_names(got), sort_names(want))
        answers = probe([question.format(option) for question, _ in BEGINNINGS], **settings)
        for (question, want), got in zip(BEGINNINGS, answers):
            with test.subTest(question.format(option)):
                test.assertEqual(got[: len(want)], want)


def check_transactions(test, windows, drive, **settings):
    for name, changes, hits, wine in TRANSACTIONS:
        if windows and not wine:
            continue
        with test.subTest(name):
            test.assertEqual(replay(drive, **changes, **settings), report(*hits))
    for name, files, hits in PATTERN_TRANSACTIONS:
        with test.subTest(name):
            drive.put_pattern_files(files)
            test.assertEqual(replay(drive, ip="192.0.2.3", **settings), report(*hits))
    drive.put_pattern_files({})
    test.assertEqual(drive.errors(), [])
