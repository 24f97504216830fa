// What the DNS says before mail depends on it.
#include <algorithm>

#include "policyd_check.h"
#include "words.h"

namespace quillfence::programs {

using dns_sources::answer;

// --- the resolver -------------------------------------------------------------------------------

// A name that is there, and that no resolver answers by itself.
static constexpr char known_name[] = "example.com.";

static answer ask(dns_sources::source &dns, const std::string &name,
                  uint32_t options = platform::dns_query_standard) {
    return dns.ask({.name = name, .type = platform::dns_type_a, .options = options, .limit = {}});
}

// Whether a server answered at all.
static bool is_answered(const answer &got) {
    return got.response_code.has_value();
}

static std::string what_came(const answer &got) {
    return is_answered(got) ? dns_sources::response_code_word(*got.response_code) : "no answer";
}

static std::string named(const answer &got) {
    return got.server.empty() ? "the resolver" : got.server;
}

static constexpr char refused_advice[] = "; with every question refused no rule that asks the DNS "
                                         "can decide. Let the resolver serve this "
                                         "machine, or name another one with --server";

static void judge_resolver(const answer &udp, const answer &tcp, check_report *report) {
    const auto add = [report](check_result is, std::string text) {
        report->push_back({is, "DNS", std::move(text)});
    };
    const uint32_t code = tcp.response_code.value_or(udp.response_code.value_or(0));
    if (!is_answered(udp) && !is_answered(tcp)) {
        add(check_result::error, named(udp) + " does not answer; start a resolver, or name another "
                                              "one in /etc/resolv.conf or with --server");
    } else if (code == platform::dns_status_refused - platform::dns_status_rcode_base) {
        add(check_result::error, named(udp) + " refuses to answer (REFUSED)" + refused_advice);
    } else if (!is_answered(tcp)) {
        add(check_result::error,
            named(udp) +
                " answers by UDP and not by TCP, by which the client's names are asked for; "
                "every answer would be a late DUNNO. Open TCP port 53 to it, or run a "
                "resolver on this machine");
    } else if (!is_answered(udp)) {
        add(check_result::error, named(tcp) + " answers by TCP and not by UDP; open UDP port 53 to "
                                              "it, or run a resolver on this machine");
    } else if (tcp.status != 0) {
        add(check_result::warning, named(tcp) + " says " + what_came(tcp) + " about " + known_name +
                                       "; can it reach the root servers?");
    } else {
        add(check_result::ok, named(tcp) + " answers by UDP and TCP");
    }
}

void check_resolver(dns_sources::source &dns, check_report *report) {
    const answer udp = ask(dns, known_name);
    const answer tcp = ask(dns, known_name, platform::dns_query_tcp_only);
    judge_resolver(udp, tcp, report);
}

// --- block lists --------------------------------------------------------------------------------

static constexpr std::string_view refusing = "127.255.255.";

static bool is_listing(std::string_view address) {
    return address.starts_with("127.") && !address.starts_with(refusing);
}

// Whether one of an answer's addresses is such.
template <class Test>
static bool has_address(const answer &got, Test is_such) {
    return std::ranges::any_of(got.records, [is_such](const dns_sources::record &one) {
        return one.type == platform::dns_type_a && is_such(std::string_view(one.text).substr(2));
    });
}

static bool is_refusal(const answer &got) {
    return has_address(got, [](std::string_view address) { return address.starts_with(refusing); });
}

// Whether a server found something, and none of it is a listing.
static bool is_no_listing(const answer &got) {
    return got.status == 0 && !has_address(got, is_listing);
}

// All addresses of an answer, as "127.0.0.2 127.0.0.4".
static std::string addresses_of(const answer &got) {
    std::string text;
    for (const dns_sources::record &one : got.records) {
        if (one.type == platform::dns_type_a) {
            text += (text.empty() ? "" : " ") + one.text.substr(2);
        }
    }
    return text;
}

static void judge_list(const std::string &zone, const answer &listed, const answer &unlisted,
                       check_report *report) {
    const auto add = [report, &zone](check_result is, std::string text) {
        report->push_back({is, zone, std::move(text)});
    };
    if (is_refusal(listed) || is_refusal(unlisted)) {
        add(check_result::error, "refuses to answer this resolver (" +
                                     addresses_of(is_refusal(listed) ? listed : unlisted) +
                                     "); run a resolver of your own, or register with the list");
    } else if (is_no_listing(listed) || is_no_listing(unlisted)) {
        add(check_result::error,
            "answers " + addresses_of(is_no_listing(listed) ? listed : unlisted) +
                ", which is no listing: the domain has probably another owner; "
                "take it out of rbl.enabled");
    } else if (unlisted.status == 0) {
        add(check_result::error, "lists 127.0.0.1, and so probably everybody (" +
                                     addresses_of(unlisted) + "); take it out of rbl.enabled");
    } else if (!is_answered(listed) || listed.status == platform::dns_status_servfail) {
        add(check_result::error, "can't be asked (" + what_came(listed) +
                                     "); each of its questions takes its time and finds nobody. Is "
                                     "the name right, and is the list still there?");
    } else if (listed.status != 0) {
        add(check_result::error, "does not list 127.0.0.2, its own test address (" +
                                     what_came(listed) +
                                     "): it lists nobody. Is the name right, and is the list still "
                                     "there?");
    } else {
        add(check_result::ok, "lists 127.0.0.2 and does not list 127.0.0.1");
    }
}

void check_block_lists(dns_sources::source &dns, const std::vector<std::string> &zones,
                       check_report *report) {
    for (const std::string &zone : zones) {
        const std::string name = zone + (zone.ends_with('.') ? "" : ".");
        if (!dns_sources::is_domain_name(name)) {
            report->push_back(
                {check_result::error, zone, "is no domain name; correct that line of rbl.enabled"});
            continue;
        }
        const answer listed = ask(dns, "2.0.0.127." + name);
        const answer unlisted = ask(dns, "1.0.0.127." + name);
        judge_list(zone, listed, unlisted, report);
    }
}

} // namespace quillfence::programs
