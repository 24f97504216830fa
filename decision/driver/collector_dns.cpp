// What the collector makes of DNS questions and their answers.
#include <algorithm>
#include <cstring>
#include <new>

#include "answer.h"
#include "collector.h"
#include "platform/dns.h"
#include "platform/error_numbers.h"
#include "vc_dns.h"
#include "words.h"

namespace quillfence::decision {

static std::string text_of(const char *text) {
    return text ? text : "";
}

static answer_class class_of(const dns_question &fact) {
    // What no time was left for is not known; it is not the server's failure.
    if (fact.status == dns_sources::status_missing || fact.status == dns_sources::status_deadline) {
        return answer_class::missing;
    }
    switch (fact.code) {
    case vc_dns_found:
        return answer_class::found;
    case vc_dns_no_name:
        return answer_class::no_name;
    default:
        return answer_class::failure;
    }
}

static void add_details(dns_record *answer, const platform::dns_details &details) {
    static constexpr const char *transports[] = {"", "udp", "tcp"};
    answer->server = details.server;
    answer->transport = transports[static_cast<size_t>(details.transport)];
    if (details.response_code >= 0) {
        const auto code = static_cast<uint32_t>(details.response_code);
        answer->rcode = dns_sources::response_code_word(code);
    }
    if (details.tries) {
        answer->tries = details.tries;
    }
    if (details.microseconds >= 0) {
        answer->ms = static_cast<double>(details.microseconds) / 1000.0;
    }
    for (const auto *entry = details.records; entry; entry = entry->next) {
        answer->records.push_back(text_of(entry->text));
    }
}

// Whether two questions are one to the reader: asked again, and answered finally and alike.
static bool is_repeated(const dns_record &one, const dns_record &other) {
    return one.is != answer_class::failure && one.is == other.is && one.name == other.name &&
           one.type == other.type &&
           (one.attempt == other.attempt || one.is == answer_class::missing) &&
           one.status == other.status && one.rcode == other.rcode && one.records == other.records;
}

uint32_t collector::keep_answer(const dns_question &fact) {
    dns_record answer;
    answer.name = text_of(fact.name);
    answer.type = dns_sources::type_word(fact.type);
    answer.attempt = fact.attempt;
    answer.status = fact.details ? fact.details->status : fact.status; // as the server said it
    answer.is = class_of(fact);
    if (fact.details) {
        add_details(&answer, *fact.details);
    }
    // The latest answer to the question, if it is the same again, stands for both.
    const auto asked_before = [&](const dns_record &one) {
        return one.name == answer.name && one.type == answer.type;
    };
    const auto latest = std::find_if(record.dns.rbegin(), record.dns.rend(), asked_before);
    if (latest != record.dns.rend() && is_repeated(*latest, answer)) {
        return latest->n;
    }
    answer.n = static_cast<uint32_t>(record.dns.size());
    record.dns.push_back(std::move(answer));
    return record.dns.back().n;
}

template <class List, class Value>
static void add_once(List *list, const Value &value) {
    if (std::find(list->begin(), list->end(), value) == list->end()) {
        list->push_back(value);
    }
}

// The current rule rests on an answer.
void collector::use_answer(uint32_t number) {
    add_once(&current.dns, number);
    if (current.rule) {
        add_once(&record.dns[number].used_by, current.rule->rule);
    }
}

void collector::on(const dns_question &fact) {
    if (fact.status == platform::error_not_enough_memory ||
        (fact.details && fact.details->no_memory)) {
        throw std::bad_alloc();
    }
    const uint32_t number = keep_answer(fact);
    const dns_record &answer = record.dns[number];
    const bool missing = answer.is == answer_class::missing;
    if (missing) {
        add_once(&record.missing, missing_item{"dns", answer.name, answer.type, ""});
        phase_missing = true;
    }
    if (!current.rule) {
        add_once(&ptr_answers, number);
        ptr_missing = missing;
        return;
    }
    use_answer(number);
    // Whatever is found ends the questions, and what was missing before no longer counts.
    current.answer_missing =
        answer.is != answer_class::found && (current.answer_missing || missing);
}

void collector::on(const cache_answer &fact) {
    if (std::strcmp(fact.cache, "rdns_resolves") == 0) {
        for (const uint32_t number : ptr_answers) {
            use_answer(number);
        }
        current.answer_missing |= ptr_missing;
        current.ptr_cache = fact.value;
        return;
    }
    const bool of_helo = std::strcmp(fact.cache, "helo_resolves") == 0;
    const bool of_mail = std::strcmp(fact.cache, "mail_resolves") == 0;
    if (!of_helo && !of_mail) {
        return;
    }
    static const size_t helo_asker = rule_number("resolve_helo_domain");
    static const size_t mail_asker = rule_number("valid_from_domain");
    const rule_record &asker = record.rules[of_helo ? helo_asker : mail_asker];
    for (const uint32_t number : std::vector<uint32_t>(asker.dns)) {
        use_answer(number);
    }
}

// --- notes on answers ---

static bool is_cut_off(const dns_record &answer) {
    return answer.is == answer_class::missing && answer.status != dns_sources::status_missing;
}

// A response code that denies nothing, and yet the engine goes by it.
static bool is_no_denial(const dns_record &answer) {
    return answer.is == answer_class::no_name && !answer.rcode.empty() &&
           answer.rcode != "NXDOMAIN";
}

static std::string questions(size_t count) {
    return std::to_string(count) + (count == 1 ? " DNS question" : " DNS questions");
}

void collector::note_answers() {
    size_t cut_off = 0;
    std::vector<std::pair<std::string, size_t>> codes;
    for (const dns_record &answer : record.dns) {
        cut_off += is_cut_off(answer);
        if (!is_no_denial(answer)) {
            continue;
        }
        const auto same = [&](const auto &entry) { return entry.first == answer.rcode; };
        const auto place = std::find_if(codes.begin(), codes.end(), same);
        if (place == codes.end()) {
            codes.emplace_back(answer.rcode, 1);
        } else {
            ++place->second;
        }
    }
    for (const auto &[code, count] : codes) {
        record.notes.push_back({"warning", questions(count) + " got " + code +
                                               ", which the engine takes for \"does not exist\""});
    }
    if (cut_off) {
        record.notes.push_back({"warning", "the time for DNS questions was used up; answers that "
                                           "are not known for that: " +
                                               std::to_string(cut_off)});
    }
}

// --- DNS block lists ---

static bool begins_with(const std::string &text, const char *beginning) {
    return text.compare(0, std::strlen(beginning), beginning) == 0;
}

// What the answers of one zone say by RFC 5782.
static block_list_answer truth_of(const std::vector<dns_record> &all,
                                  const std::vector<uint32_t> &numbers) {
    bool refused = false;
    bool other = false;
    bool failed = false;
    for (const uint32_t number : numbers) {
        const dns_record &answer = all[number];
        for (const std::string &text : answer.records) {
            if (begins_with(text, "A 127.255.255.")) {
                refused = true;
            } else if (begins_with(text, "A 127.")) {
                return block_list_answer::listed;
            } else if (begins_with(text, "A ") || begins_with(text, "AAAA ")) {
                other = true;
            }
        }
        const bool no_such_name =
            answer.is == answer_class::no_name &&
            (answer.rcode.empty() ? answer.status == 9003 : answer.rcode == "NXDOMAIN");
        failed = failed ||
                 (answer.is != answer_class::found && !no_such_name && answer.rcode != "NOERROR");
    }
    return refused  ? block_list_answer::refused
           : other  ? block_list_answer::no_listing
           : failed ? block_list_answer::failed
                    : block_list_answer::not_listed;
}

static std::string difference(const dns_block_list_record &list) {
    const bool hit = list.is == outcome::hit;
    switch (list.answer.value_or(block_list_answer::failed)) {
    case block_list_answer::refused:
        return hit ? "has refused to answer (127.255.255.0/24), which the engine takes for a "
                     "listing"
                   : "";
    case block_list_answer::no_listing:
        return hit ? "has given an address outside of 127.0.0.0/8, which the engine takes for a "
                     "listing"
                   : "";
    case block_list_answer::failed:
        return hit ? "" : "could not be asked, which the engine takes for \"not listed\"";
    default:
        return "";
    }
}

void collector::on(const zone_look &fact) {
    dns_block_list_record list;
    list.zone = text_of(fact.zone);
    list.is = fact.code == vc_dns_found ? outcome::hit
              : current.answer_missing  ? outcome::undecided
                                        : outcome::no_hit;
    const size_t begin = std::min(current.zone_begin, current.dns.size());
    list.dns.assign(current.dns.begin() + static_cast<std::ptrdiff_t>(begin), current.dns.end());
    current.zone_begin = current.dns.size();
    for (const uint32_t number : list.dns) {
        const auto &records = record.dns[number].records;
        list.records.insert(list.records.end(), records.begin(), records.end());
    }
    const bool known = std::any_of(list.dns.begin(), list.dns.end(), [&](uint32_t number) {
        return record.dns[number].is != answer_class::missing;
    });
    if (known) {
        list.answer = truth_of(record.dns, list.dns);
        if (const std::string text = difference(list); !text.empty()) {
            record.notes.push_back({"warning", list.zone + ' ' + text});
        }
    }
    ++current.looked_at;
    current.counted = true;
    record.dns_block_lists.push_back(std::move(list));
}

} // namespace quillfence::decision
