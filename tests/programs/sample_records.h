// Records as the driver would make them, for the tests of what shows them.
#pragma once

#include "decision_record.h"

namespace quillfence::testing {

inline decision::rule_record sample_rule(uint32_t n, const char *name, decision::outcome decision,
                                         decision::outcome report) {
    decision::rule_record rule;
    rule.n = n;
    rule.rule = name;
    rule.decision = decision;
    rule.report = report;
    return rule;
}

// A sender on the blacklist, from a client with a dynamic name, with a resolver in trouble.
inline decision::decision_record rejected_sample() {
    using namespace decision;
    decision_record r;
    r.id = "1";
    r.time = "2026-11-22T04:51:13.123Z";
    r.engine = {"1.0.0", "linux-x86_64"};
    r.config.base = "c:/quillfence/";
    r.config.revision = "sha256:0123";
    r.transaction.ip = "192.0.2.58";
    r.transaction.port = "4711";
    r.transaction.tls = false;
    r.transaction.authuser = "";
    r.transaction.mua = false;
    r.transaction.helo = "mail.example.org";
    r.transaction.sender = "x@spammer.example";
    r.facts.routable = true;
    r.facts.ptr = {"dhcp.cust.example"};
    r.decision.is = verdict::reject;
    r.decision.by = decided_by::rule;
    r.decision.rule = r.decision.hit_name = "from_blacklist";
    r.decision.notice = "Your email is rejected -- you are on the recipient's blacklist.";
    r.report = report{"", {"check_confirmed_dyna"}, {}};

    rule_record whitelist = sample_rule(5, "ip_whitelist", outcome::no_hit, outcome::no_hit);
    whitelist.looked_at = 302;
    whitelist.near_misses = {{"network_in_list",
                              "192.0.2.0/24 stands where only single addresses match",
                              list_source{"c:/quillfence/exempt_ips", 7, "192.0.2.0/24", ""}}};
    rule_record dynamic =
        sample_rule(21, "check_confirmed_dyna", outcome::not_enabled, outcome::hit);
    dynamic.would = outcome::hit;
    dynamic.from = file_source{"c:/quillfence/control/rules.enabled", 0};
    dynamic.names = {
        {"dhcp.cust.example",
         expression_source{"confirmed.cregexes", 4, "dhcp[0-9]?[.\\-]", "confirmed.list", 9},
         {}},
        {"static.cust.example", expression_source{"confirmed.cregexes", 2, "^static", "", 0},
         list_source{"c:/quillfence/exempt_names", 3, "static.cust.example", "whole text"}},
        {"other.example", {}, {}}};
    rule_record blacklist =
        sample_rule(23, "from_blacklist", outcome::hit, outcome::hit_unreported);
    blacklist.fact = "sender";
    blacklist.value = "x@spammer.example";
    blacklist.reason = "the sender matches an entry";
    blacklist.from =
        list_source{"c:/quillfence/from_blacklist", 2, "*@spammer.example", "wildcard"};
    blacklist.looked_at = 2;
    blacklist.dns = {0, 9};
    blacklist.us = 14;
    rule_record helo = sample_rule(24, "helo_blacklist", outcome::never, outcome::never);
    helo.reason = "no list is installed";
    rule_record resolve =
        sample_rule(27, "resolve_helo_domain", outcome::not_reached, outcome::hit);
    rule_record ipv6 = sample_rule(31, "block_nonauth_ipv6", outcome::skipped, outcome::skipped);
    ipv6.kind = "bounce";
    r.rules = {whitelist, dynamic, blacklist, helo, resolve, ipv6};

    r.block_maps = {{"bots.bms", outcome::no_hit, "", 0, false},
                    {"gone.bms", outcome::no_hit, "", 0, true}};
    r.dns_block_lists = {
        {"bl.example.net", outcome::no_hit, block_list_answer::not_listed, {}, {}}};

    dns_record ptr;
    ptr.name = "58.2.0.192.in-addr.arpa.";
    ptr.type = "PTR";
    ptr.transport = "tcp";
    ptr.server = "127.0.0.1:5399";
    ptr.rcode = "NOERROR";
    ptr.is = answer_class::found;
    ptr.records = {"PTR dhcp.cust.example."};
    ptr.ms = 1.1;
    dns_record a = ptr;
    a.n = 1;
    a.name = "mail.example.org.";
    a.type = "A";
    a.status = 9005;
    a.rcode = "REFUSED";
    a.is = answer_class::no_name;
    a.records = {};
    a.ms = 0.9;
    dns_record silent = a;
    silent.n = 2;
    silent.type = "MX";
    silent.status = 1460;
    silent.rcode = "";
    silent.is = answer_class::failure;
    silent.ms = 3000.4;
    silent.attempt = 2;
    silent.tries = 2;
    r.dns = {ptr, a, silent};
    r.notes = {{"warning", "the server refused 1 question; the engine takes that for \"does not "
                           "exist\", and rules that look for a name then hit"}};
    return r;
}

// Nothing certain: an offline run over a mail log's line.
inline decision::decision_record undecided_sample() {
    using namespace decision;
    decision_record r;
    r.id = "2";
    r.engine = {"1.0.0", "windows-x86_64"};
    r.config.base = "c:/quillfence/";
    r.config.user_dir = "c:/users/a/";
    r.transaction.ip = "2001:db8::1";
    r.transaction.sender = "";
    r.transaction.recipient = "b\x1b[31m\xc3\xa4@example.org";
    r.facts.ipv6 = r.facts.bounce = r.facts.routable = true;
    r.decision.by = decided_by::missing;
    rule_record rule = sample_rule(10, "require_helo", outcome::undecided, outcome::undecided);
    rule.report.reset();
    rule.reason = "the HELO is not known";
    r.rules = {rule};
    r.missing = {{"fact", "", "", "helo"}, {"dns", "example.org.", "MX", ""}};
    r.errors = {{"vc_file", "vc_open", "No such file or directory"}};
    return r;
}

} // namespace quillfence::testing
