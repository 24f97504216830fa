#include "list_files.h"

#include <memory>

#include "engine_messages.h"
#include "text.h"
#include "tiny_rex.h"
#include "vc_dns.h"
#include "vc_rfc.h"
#include "vc_text.h"

namespace quillfence::data_files {

const list_file *find_list_file(std::string_view name) {
    for (const list_file &file : list_files) {
        if (name == file.name) {
            return &file;
        }
    }
    return nullptr;
}

list_matcher matcher_of(list_kind kind) {
    return kind == list_kind::addresses ? __wildcardmatch : _stricmp;
}

const char *matcher_name(list_kind kind) {
    return kind == list_kind::addresses ? "wildcard" : "whole text";
}

bool is_plain_pattern(std::string_view entry) {
    return entry.find_first_of("$()+?[\\]^{|}") == std::string_view::npos;
}

// As __wildcardmatch translates it.
static std::string expression_of(std::string_view entry) {
    std::string expression = "^";
    for (const char c : entry) {
        if (c == '*') {
            expression += '.';
        } else if (c == '.') {
            expression += '\\';
        }
        expression += c;
    }
    return expression + '$';
}

std::string why_not_compiled(const std::string &entry) {
    engine_messages messages;
    const std::unique_ptr<TRex, decltype(&trex_free)> compiled(
        trex_compile_ex(expression_of(entry).c_str(), trex_fold_case), trex_free);
    for (int32_t i = 0; compiled && i < compiled->nsize; ++i) {
        if (!__trex_node_is_valid(compiled.get(), &compiled->nodes[i])) {
            break;
        }
    }
    return messages.take();
}

static std::string why_useless_address(const std::string &entry) {
    if (entry.find('*') == std::string::npos) {
        return {};
    }
    const std::string problem = why_not_compiled(entry);
    return problem.empty() ? std::string() : "never matches: the engine says \"" + problem + '"';
}

// IPv6 clients are known by one spelling of their address.
static std::string why_useless_ipv6(const std::string &entry) {
    char canonical[vc_ipv6_text_size] = "";
    if (vc_compress_ipv6(entry.c_str(), canonical) != 1 || !_stricmp(canonical, entry.c_str())) {
        return {};
    }
    return std::string("never matches: this client is known as ") + canonical;
}

static std::string why_useless_ip(const std::string &entry) {
    engine_messages messages;
    const int family = vc_is_ip(entry.c_str());
    const std::string problem = family == vc_family_ipv6 ? why_useless_ipv6(entry) : "";
    // The engine has nothing to say about a text that is no address, only about a system that
    // fails.
    if (const std::string failed = messages.take(); !failed.empty()) {
        return "can't be judged: the engine says \"" + failed + '"';
    }
    if (family) {
        return problem;
    }
    if (entry.find_first_of("/-*") != std::string::npos) {
        return "never matches: one address a line; networks go into the list's range file "
               "(quillfence-data range add)";
    }
    return "never matches: no IP address";
}

std::string why_useless(list_kind kind, const std::string &entry) {
    if (!entry.empty() && is_space(entry.back())) {
        return "ends in white space, which belongs to the entry";
    }
    switch (kind) {
    case list_kind::addresses:
        return why_useless_address(entry);
    case list_kind::ips:
        return why_useless_ip(entry);
    default:
        return {};
    }
}

} // namespace quillfence::data_files
