// Known sender forgery: a site declares, per sender domain, the only IPv4 addresses and networks
// from which mail in that domain's name may come.
//
// The declarations are lines "domain : network, network, ..." of a text file; a network is an
// address or a CIDR. Every doubt lets the mail pass: what can't be read or parsed is skipped with
// a DEBUG line and restricts nobody.
#pragma once

#include <cstddef>
#include <cstdint>

namespace quillfence {

struct ksf_network {
    uint32_t address; // host byte order
    int32_t prefix;   // as written, at most 32; a negative one never matches
};

// The networks of one declared domain. A line whose items were all dropped makes no record.
struct ksf_domain {
    char *name; // lower case, owned
    ksf_network *networks;
    uint32_t network_count;
    uint32_t line; // of the file, from 1
};

// The domains of a file, in its order. A domain may stand there twice; the first one counts.
struct ksf_domain_set {
    ksf_domain *domains;
    size_t domain_count;
};

// The domain of a sender address as a new lower-case heap string: the text after the last "@",
// when the address and the domain are valid. Null otherwise, with a DEBUG line that says why, or
// without memory (ERROR: ENOMEM).
char *ksf_parse_mail_from_domain(const char *address);

// Reads the declarations. Null when the file is missing or unreadable (ERROR: "Failed to read
// domain/ip list file: %s"), when memory runs out (ERROR: ENOMEM), each followed by ERROR "Unable
// to load KSF list: %s"; and null with DEBUG "empty file" for an empty file. A file without a
// usable line gives an empty set. ERROR: EINVAL for a missing or empty path.
ksf_domain_set *ksf_load_list(const char *path);

// The same, with DEBUG "Unable to load list: %s" where there is none.
ksf_domain_set *ksf_get_domain_ip_sets_from_file(const char *path);

void ksf_free_list(ksf_domain_set *set); // null is accepted

// The declarations of a file that was read beforehand, by domain.
struct ksf_index;

// Parses a file's bytes, behind which a NUL stands.
//   made  receives what ksf_index_free releases; null for an empty file
// 0 without memory (ERROR: ENOMEM).
int ksf_index_make(const char *bytes, uint64_t size, ksf_index **made);
void ksf_index_free(ksf_index *index);         // null is accepted
size_t ksf_index_size(const ksf_index *index); // in bytes of memory

// Whether a network of the declaration holds the client: 1, else 0. ERROR line: "failed to convert
// ip [%s] to host order bytes" for a client that is not IPv4, who may send for every domain: 1.
int ksf_may_send(const ksf_domain *domain, const char *ip);

// May a client send for a domain? 1: it may, or nothing restricts it; 0: the first record of
// exactly this domain (without regard to case and surrounding white space) has no network that
// holds the client. The file is read afresh.
// ERROR lines: EINVAL for an empty argument; "Invalid domain - blank after trimming whitespace";
// "failed to convert ip [%s] to host order bytes" for a client that is not IPv4; ENOMEM.
// Kept on purpose: a prefix of 0 shifts by 0, so 0.0.0.0/0 holds 0.0.0.0 alone.
int ksf_check_domain_to_ip_restriction(const char *ip, const char *domain, const char *path);

} // namespace quillfence
