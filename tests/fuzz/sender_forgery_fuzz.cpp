// Declarations of known senders.
//
//     a client's address   a line
//     a sender             a line
//     the file
#include "fuzz_support.h"
#include "known_sender_forgery_funcs.h"
#include "vc_text.h"

namespace quillfence::testing {

namespace {

constexpr char path[] = "c:/quillfence/control/valid_domain_ips";

void check_set(const ksf_domain_set *set) {
    for (size_t i = 0; i < set->domain_count; ++i) {
        const ksf_domain &domain = set->domains[i];
        QF_PROMISE(!is_empty(domain.name) && domain.network_count > 0);
        for (const char *c = domain.name; *c; ++c) {
            QF_PROMISE(!is_upper(*c));
        }
        for (size_t n = 0; n < domain.network_count; ++n) {
            QF_PROMISE(domain.networks[n].prefix <= 32);
        }
    }
}

// Asks for the first declared domains, too: chance finds few of them.
void check_declared(const ksf_domain_set *set, const char *ip) {
    for (size_t i = 0; i < set->domain_count && i < 3; ++i) {
        const int may = ksf_check_domain_to_ip_restriction(ip, set->domains[i].name, path);
        QF_PROMISE(may == 0 || may == 1);
    }
}

} // namespace

void fuzz_one(fuzz_input &input) {
    const std::string ip = input.line();
    const std::string sender = input.line();
    const std::string bytes = input.rest();
    fuzz_drive().write(path, bytes);
    ksf_domain_set *set = ksf_get_domain_ip_sets_from_file(path);
    if (set) {
        check_set(set);
        check_declared(set, ip.c_str());
    }
    const heap_string domain(ksf_parse_mail_from_domain(sender.c_str()));
    const int may = ksf_check_domain_to_ip_restriction(
        ip.c_str(), domain ? domain.get() : sender.c_str(), path);
    QF_PROMISE(may == 0 || may == 1);
    QF_PROMISE(may || (set && set->domain_count > 0) || ip.empty() || sender.empty());
    ksf_free_list(set);
    QF_PROMISE(file_bytes(path) == bytes);
}

} // namespace quillfence::testing
