#include "list_files.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <memory>
#include <new>

#include "engine_messages.h"
#include "expression_text.h"
#include "qfd-packet.h"
#include "text.h"
#include "tiny_rex.h"
#include "vc_rfc.h"
#include "vc_text.h"

namespace quillfence::data_files {

std::vector<std::reference_wrapper<const configuration_file>> list_files() {
    std::vector<std::reference_wrapper<const configuration_file>> lists;
    std::copy_if(std::begin(configuration_files), std::end(configuration_files),
                 std::back_inserter(lists), is_list);
    return lists;
}

const configuration_file *find_list_file(std::string_view path) {
    const configuration_file *const file = find_configuration_file(path);
    return file && is_list(*file) ? file : nullptr;
}

const char *matcher_name(const configuration_file &list) {
    return list.matcher == __wildcardmatch ? "wildcard" : "whole text";
}

bool is_plain_pattern(std::string_view entry) {
    return std::none_of(entry.begin(), entry.end(), [](char c) {
        return is_expression_operator(c) && !is_plain_in_wildcards(c);
    });
}

std::string why_not_compiled(const std::string &entry) {
    engine_messages messages;
    const std::unique_ptr<char, decltype(&std::free)> expression(
        expression_of_wildcards(entry.c_str()), std::free);
    if (!expression) {
        throw std::bad_alloc();
    }
    const std::unique_ptr<TRex, decltype(&trex_free)> compiled(
        trex_compile_ex(expression.get(), trex_fold_case), trex_free);
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

// The engine knows each client by one spelling of his address, and by IPv4 where that is all there
// is to it.
static std::string why_useless_client(const std::string &entry) {
    const std::unique_ptr<char, decltype(&std::free)> client(__process_ip_arg(entry.c_str()),
                                                             std::free);
    if (!client || !_stricmp(client.get(), entry.c_str())) {
        return {};
    }
    return std::string("never matches: this client is known as ") + client.get();
}

static std::string why_useless_ip(const std::string &entry) {
    engine_messages messages;
    const bool is_address = vc_is_ip(entry.c_str()) != 0;
    std::string problem = is_address ? why_useless_client(entry) : "";
    // The engine has nothing to say about a text that is no address, only about a system that
    // fails.
    if (const std::string failed = messages.take(); !failed.empty()) {
        return "can't be judged: the engine says \"" + failed + '"';
    }
    if (is_address) {
        return problem;
    }
    if (entry.find_first_of("/-*") != std::string::npos) {
        return "never matches: one address a line; networks go into the list's range file "
               "(quillfence-data range add)";
    }
    return "never matches: no IP address";
}

std::string why_useless(file_kind kind, const std::string &entry) {
    if (!entry.empty() && is_space(entry.back())) {
        return "ends in white space, which belongs to the entry";
    }
    switch (kind) {
    case file_kind::addresses:
        return why_useless_address(entry);
    case file_kind::ips:
        return why_useless_ip(entry);
    default:
        return {};
    }
}

} // namespace quillfence::data_files
