// The control files: the switch, the lists of names, the declared sender domains.
#include "verify.h"

#include <algorithm>
#include <map>
#include <optional>

#include "address_text.h"
#include "configuration.h"
#include "text.h"
#include "vc_rfc.h"
#include "vc_text.h"
#include "vcspamrule.h"

namespace quillfence::verification {

namespace {

constexpr std::string_view byte_order_mark = "\xEF\xBB\xBF";

bool starts_with_mark(std::string_view bytes) {
    return bytes.substr(0, byte_order_mark.size()) == byte_order_mark;
}

std::string_view without_cr(std::string_view text) {
    return !text.empty() && text.back() == '\r' ? text.substr(0, text.size() - 1) : text;
}

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && is_space(text.front())) {
        text.remove_prefix(1);
    }
    while (!text.empty() && is_space(text.back())) {
        text.remove_suffix(1);
    }
    return text;
}

} // namespace

// --- control/enabled ---

void verify_enabled(tree &in) {
    static constexpr const char *file = path_in_base(configured("control/enabled"));
    std::string bytes;
    if (!in.has(file)) {
        in.add(file, 0, "engine-off", "missing, so the engine is off");
        return;
    }
    if (!in.read(file, &bytes)) {
        return;
    }
    const std::string_view value = trimmed(bytes);
    if (value != "0" && value != "1") {
        const int number = text_to_int(bytes.c_str());
        in.add(file, 1, "switch-not-0-or-1",
               quoted(value) + " is neither 0 nor 1; the engine reads " + std::to_string(number) +
                   " and is " + (number == 1 ? "on" : "off"));
    }
}

// --- files of one name a line ---

namespace {

// Why a name is of no use in its file.
using name_check = std::optional<problem> (*)(const tree &in, const std::string &name);

std::optional<problem> check_rule(const tree &, const std::string &name) {
    for (const rule_row &row : rule_rows()) {
        if (name == row.name) {
            return {};
        }
    }
    for (const rule_row &row : rule_rows()) {
        if (!_stricmp(name.c_str(), row.name)) {
            return problem{
                "rule-in-other-letters",
                std::string("there is no rule of this name; names are compared exactly, write ") +
                    row.name};
        }
    }
    return problem{"rule-unknown", "there is no rule " + quoted(name)};
}

std::optional<problem> check_map(const tree &in, const std::string &name) {
    const bool is_plain = std::all_of(name.begin(), name.end(), [](char c) {
        return c > ' ' && c <= '~' && std::string_view("/\\:*?\"<>|").find(c) == std::string::npos;
    });
    if (!is_plain) {
        return problem{"map-name-odd", quoted(name) + " is no name of a file in bms/: take "
                                                      "letters, digits, - _ and ."};
    }
    if (!in.has("bms/" + name)) {
        return problem{"map-missing", "there is no block map bms/" + printable(name)};
    }
    return {};
}

// Why nobody can be asked for in a zone; "" when that can be done. The engine puts the parts of an
// address in front of it and a dot behind it.
std::string why_never_asked(std::string_view zone) {
    static constexpr size_t longest_label = 63;
    static constexpr size_t longest_name = 253; // without its final dot
    static constexpr size_t longest_address = std::string_view("255.255.255.255.").size();
    if (zone.ends_with('.')) {
        return "can't be asked: the engine adds the final dot; write the zone without it";
    }
    for (size_t at = 0; at <= zone.size();) {
        const size_t end = std::min(zone.find('.', at), zone.size());
        if (end == at) {
            return "can't be asked: a part between its dots is empty";
        }
        if (end - at > longest_label) {
            return "can't be asked: a part between its dots has more than 63 characters";
        }
        at = end + 1;
    }
    return zone.size() + longest_address > longest_name
               ? "can't be asked for every client: has more than 237 characters"
               : "";
}

std::optional<problem> check_host(const tree &, const std::string &name) {
    if (const std::string why = why_never_asked(name); !why.empty()) {
        return problem{"zone-no-domain", quoted(name) + ' ' + why};
    }
    std::string host = name; // an underscore is as good as a hyphen in the DNS
    std::replace(host.begin(), host.end(), '_', '-');
    if (!vc_valid_domain(host.c_str())) {
        const bool is_word = name.find('.') == std::string::npos;
        return problem{"zone-odd",
                       quoted(name) +
                           (is_word ? " has no dot: only a name server of your own has such a zone"
                                    : " is no domain name as block lists have them")};
    }
    return {};
}

// Null for a file that does not hold names.
name_check check_of(file_kind kind) {
    switch (kind) {
    case file_kind::rule_names:
        return check_rule;
    case file_kind::map_names:
        return check_map;
    case file_kind::zone_names:
        return check_host;
    default:
        return nullptr;
    }
}

struct name_file {
    const char *path;
    name_check check;
};
constexpr const char *list_of_maps = path_in_base(configured("bms/lists_to_update"));
constexpr const char *other_list_of_maps = path_in_base(configured("bms/control/lists_to_update"));

// The engine takes the whole line for the name, with whatever stands around it.
std::optional<problem> why_no_name(std::string_view line) {
    if (line.back() == '\r') {
        return problem{"name-ends-in-cr", "ends in CR, which the engine takes for a part of the "
                                          "name; end lines with LF alone"};
    }
    if (line.find('\0') != std::string_view::npos) {
        return problem{"name-holds-nul", "holds a NUL; is this a text file?"};
    }
    if (line.front() == '#') {
        return problem{"name-is-comment",
                       "there are no comments in this file; the line counts as a name"};
    }
    if (is_space(line.front()) || is_space(line.back())) {
        return problem{"name-has-white-space",
                       "has white space around the name, which the engine takes for a part of it"};
    }
    return {};
}

void verify_name_lines(tree &in, const name_file &file, std::string_view bytes) {
    std::map<std::string, uint32_t> seen;
    for (const text_line &line : lines_of(bytes)) {
        if (line.text.empty()) {
            continue;
        }
        std::optional<problem> wrong = why_no_name(line.text);
        const std::string name(without_cr(line.text));
        const auto [first, is_new] = seen.emplace(name, line.number);
        if (!wrong) {
            wrong = file.check(in, name);
        }
        if (wrong) {
            in.add(file.path, line.number, wrong->id, wrong->text);
        } else if (!is_new) {
            in.add(file.path, line.number, "name-repeated",
                   "the same as line " + std::to_string(first->second));
        }
    }
}

void verify_name_file(tree &in, const name_file &file) {
    std::string bytes;
    if (!in.has(file.path) || !in.read(file.path, &bytes)) {
        return;
    }
    if (starts_with_mark(bytes)) {
        in.add(file.path, 1, "byte-order-mark",
               "begins with a byte order mark, which the engine takes for a part of the name");
        bytes.erase(0, byte_order_mark.size());
    }
    if (bytes.empty()) {
        in.add(file.path, 0, "names-empty", "is empty, so nothing is switched on by it");
    }
    verify_name_lines(in, file, bytes);
}

bool is_empty_file(tree &in, const char *file) {
    std::string bytes;
    return in.read_again(file, &bytes) && bytes.empty();
}

void verify_lists_of_maps(tree &in) {
    const bool first = in.has(list_of_maps) && !is_empty_file(in, list_of_maps);
    const bool second = in.has(other_list_of_maps) && !is_empty_file(in, other_list_of_maps);
    if (!first && !second) {
        in.add(list_of_maps, 0, "maps-unlisted",
               "missing or empty, and so is bms/control/lists_to_update: a replay fails without a "
               "list of block maps");
    } else if (first && second) {
        in.add(other_list_of_maps, 0, "maps-listed-elsewhere",
               "is not read as long as bms/lists_to_update is there");
    }
}

} // namespace

void verify_names(tree &in) {
    for (const configuration_file &file : configuration_files) {
        if (const name_check check = check_of(file.kind)) {
            verify_name_file(in, {path_in_base(file), check});
        }
    }
    verify_lists_of_maps(in);
}

// --- control/valid_domain_ips ---

namespace {

constexpr const char *forgery_list = path_in_base(configured("control/valid_domain_ips"));

std::vector<std::string> fields_of(std::string_view text, char separator) {
    std::vector<std::string> fields;
    for (size_t at = 0;;) {
        const size_t end = text.find(separator, at);
        fields.emplace_back(trimmed(text.substr(at, end - at)));
        if (end == std::string_view::npos) {
            return fields;
        }
        at = end + 1;
    }
}

bool is_prefix(const std::string &text) {
    return !text.empty() && text.size() <= 2 && std::all_of(text.begin(), text.end(), is_digit) &&
           text_to_int(text.c_str()) <= 32;
}

std::optional<problem> why_no_network(const std::string &item) {
    const size_t slash = item.find('/');
    const std::optional<uint32_t> address = parse_address(item.substr(0, slash));
    if (!address) {
        return problem{"network-no-address", "is no IPv4 address or network"};
    }
    if (slash == std::string::npos) {
        return {};
    }
    const std::string bits(trimmed(std::string_view(item).substr(slash + 1)));
    if (!is_prefix(bits)) {
        return problem{"network-no-prefix", "has no prefix from 0 to 32"};
    }
    const int prefix = text_to_int(bits.c_str());
    const uint32_t network = prefix ? *address >> (32 - prefix) << (32 - prefix) : 0;
    if (network != *address) {
        return problem{"network-bits-behind-prefix", "has bits set behind its prefix; write " +
                                                         address_text(network) + '/' + bits};
    }
    if (!prefix) {
        return problem{"network-prefix-0", "holds the address 0.0.0.0 alone, not every address"};
    }
    return {};
}

void verify_networks(tree &in, uint32_t line, const std::string &networks) {
    if (networks.empty()) {
        in.add(forgery_list, line, "declaration-no-networks", "no networks: the line is ignored");
        return;
    }
    for (const std::string &item : fields_of(networks, ',')) {
        if (const std::optional<problem> wrong = why_no_network(item)) {
            in.add(forgery_list, line, wrong->id, quoted(item) + ' ' + wrong->text);
        }
    }
}

void verify_declaration(tree &in, const text_line &line, std::map<std::string, uint32_t> *seen) {
    const std::vector<std::string> fields = fields_of(line.text, ':');
    if (fields.size() != 2) {
        in.add(forgery_list, line.number, "declaration-malformed",
               "not of the form \"domain : network, network\": the line is ignored");
        return;
    }
    const std::string domain = lower(fields[0]);
    if (!vc_valid_domain(domain.c_str())) {
        in.add(forgery_list, line.number, "declaration-no-domain",
               quoted(domain) + " is no domain name: the line is ignored");
        return;
    }
    const auto [first, is_new] = seen->emplace(domain, line.number);
    if (!is_new) {
        in.add(forgery_list, line.number, "declaration-repeated",
               printable(domain) + " is declared in line " + std::to_string(first->second) +
                   " already, and the first line counts");
    }
    verify_networks(in, line.number, fields[1]);
}

} // namespace

void verify_forgery_list(tree &in) {
    std::string bytes;
    if (!in.has(forgery_list) || !in.read(forgery_list, &bytes)) {
        return;
    }
    std::map<std::string, uint32_t> seen;
    for (text_line line : lines_of(bytes)) {
        line.text = trimmed(line.text.substr(0, line.text.find('\0')));
        if (!line.text.empty() && line.text.front() != '#') {
            verify_declaration(in, line, &seen);
        }
    }
}

} // namespace quillfence::verification
