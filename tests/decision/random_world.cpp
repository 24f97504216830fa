#include "random_world.h"

#include <algorithm>
#include <cstring>
#include <fstream>

#include "me_settings.h"
#include "platform/dns.h"
#include "platform/file.h"
#include "quillfence-iprange-file.h"
#include "tiny_rex_storage.h"
#include "vcspamrule.h"

namespace quillfence::testing {
namespace {

using texts = std::vector<std::string>;

// The words of which everything is made.
const texts clients = {"192.0.2.1",    "192.0.2.2", "198.51.100.7", "203.0.113.77", "10.1.2.3",
                       "10.1.200.201", "127.0.0.1", "::1",          "2001:db8::1",  "192.0.2.1"};
const texts domains = {"good.example", "bad.example", "sub.bad.example", "here.example"};
const texts people = {"a", "bob", "news+list"};
const texts helos = {"mail.good.example",     "bad.example",       "", "x",
                     "localhost.localdomain", " mail.good.example"};
const texts ptr_names = {"mail.good.example",           "dyn1.pool.example",
                         "host-192-0-2-1.pool.example", "dyn9.pool.example",
                         "localhost.localdomain",       "10.1.2.3.bad.example"};
const texts expressions = {"dyn[0-9]", "pool\\.example$", "^mail", "^host(-[0-9]+)*", "bad",
                           "dyn9",     "example"};
const texts map_names = {"one", "two", "three"};
const texts zone_names = {"rbl.example", "other.example"};

size_t below(random_numbers &random, size_t count) {
    return std::uniform_int_distribution<size_t>(0, count - 1)(random);
}
bool chance(random_numbers &random, unsigned percent) {
    return below(random, 100) < percent;
}
const std::string &one_of(random_numbers &random, const texts &from) {
    return from[below(random, from.size())];
}

texts some_of(random_numbers &random, texts from, unsigned percent) {
    std::erase_if(from, [&](const std::string &) { return !chance(random, percent); });
    std::shuffle(from.begin(), from.end(), random);
    return from;
}

std::string random_address(random_numbers &random) {
    return one_of(random, people) + '@' + one_of(random, domains);
}

std::string random_address_entry(random_numbers &random) {
    switch (below(random, 8)) {
    case 0:
    case 1:
        return random_address(random);
    case 2:
        return "*@" + one_of(random, domains);
    case 3:
        return one_of(random, people) + "@*";
    case 4:
        return "  *." + one_of(random, domains);
    case 5:
        return "# " + random_address(random);
    case 6:
        return chance(random, 30) ? "bounce message" : "";
    default:
        return random_address(random) + " ";
    }
}

uint32_t number_of(const std::string &address) {
    unsigned a = 0;
    unsigned b = 0;
    unsigned c = 0;
    unsigned d = 0;
    return sscanf(address.c_str(), "%u.%u.%u.%u", &a, &b, &c, &d) == 4
               ? a << 24 | b << 16 | c << 8 | d
               : 0;
}

std::string random_client_entry(random_numbers &random) {
    const std::string &client = one_of(random, clients);
    return chance(random, 15) ? client + "/32" : chance(random, 15) ? "#" + client : client;
}

texts random_list(random_numbers &random, std::string (*entry)(random_numbers &)) {
    texts list(below(random, 5));
    for (std::string &line : list) {
        line = entry(random);
    }
    return list;
}

// Ranges that do not begin alike, so that each is told apart.
std::vector<world_range> random_ranges(random_numbers &random) {
    std::vector<world_range> ranges;
    for (const std::string &client : some_of(random, clients, 15)) {
        const uint32_t address = number_of(client);
        const auto begins_there = [&](const world_range &one) {
            return one.low == (address & ~3u);
        };
        if (address && std::none_of(ranges.begin(), ranges.end(), begins_there)) {
            ranges.push_back({address & ~3u, address | 3u, chance(random, 50) ? "a comment" : ""});
        }
    }
    return ranges;
}

world_map random_map(random_numbers &random) {
    world_map map;
    for (const std::string &client : clients) {
        const uint32_t address = number_of(client);
        if (!address || !chance(random, 25)) {
            continue;
        }
        switch (below(random, 3)) {
        case 0:
            map.networks8.push_back(static_cast<uint8_t>(address >> 24));
            break;
        case 1:
            map.networks16.push_back(static_cast<uint16_t>(address >> 16));
            break;
        default:
            map.addresses.push_back(address);
        }
    }
    return map;
}

std::string random_networks(random_numbers &random) {
    static const texts sets = {"192.0.2.0/24", "198.51.100.7, 10.0.0.0/8", "203.0.113.0/25", "x"};
    return one_of(random, domains) + " : " + one_of(random, sets);
}

texts all_rules() {
    texts names;
    for (const rule_row &row : rule_rows()) {
        names.emplace_back(row.name);
    }
    return names;
}

// --- bytes ---

std::string joined_lines(const texts &entries) {
    std::string bytes;
    for (const std::string &line : entries) {
        bytes += line + '\n';
    }
    return bytes;
}

void append_number(std::string *bytes, uint64_t value, int size) {
    for (int i = 0; i < size; ++i) {
        bytes->push_back(static_cast<char>(value >> 8 * i & 0xFF));
    }
}

void append_address(std::string *bytes, uint32_t address) {
    for (int shift = 24; shift >= 0; shift -= 8) {
        bytes->push_back(static_cast<char>(address >> shift & 0xFF));
    }
}

std::string range_bytes(const std::vector<world_range> &ranges) {
    std::string bytes;
    append_number(&bytes, range_signature, 8);
    append_number(&bytes, range_version, 4);
    append_number(&bytes, ranges.size(), 4);
    for (const world_range &range : ranges) {
        append_address(&bytes, range.low);
        append_address(&bytes, range.high);
        std::string comment = range.comment;
        comment.resize(range_record_size - legacy_record_size);
        bytes += comment;
    }
    return bytes;
}

std::string pattern_bytes(const texts &patterns) {
    std::string bytes;
    append_number(&bytes, trs_magic, 4);
    for (const std::string &pattern : patterns) {
        TRex *const expression = trex_compile_ex(pattern.c_str(), trex_fold_case);
        append_number(&bytes, static_cast<uint32_t>(expression->nsize), 4);
        for (int32_t i = 0; i < expression->nsize; ++i) {
            const TRexNode &node = expression->nodes[i];
            for (const int32_t field : {node.type, node.left, node.right, node.next}) {
                append_number(&bytes, static_cast<uint32_t>(field), 4);
            }
        }
        trex_free(expression);
    }
    return bytes;
}

void put_number(std::string *bytes, size_t offset, uint32_t value) {
    for (size_t i = 0; i < 4; ++i) {
        (*bytes)[offset + i] = static_cast<char>(value >> 8 * i & 0xFF);
    }
}
uint32_t number_at(const std::string &bytes, size_t offset) {
    uint32_t value = 0;
    for (size_t i = 0; i < 4; ++i) {
        value |= static_cast<uint32_t>(static_cast<unsigned char>(bytes[offset + i])) << 8 * i;
    }
    return value;
}

// The table or bitmap that an entry leads to; it is made when there is none.
size_t below_entry(std::string *bytes, size_t entry, size_t size) {
    uint32_t at = number_at(*bytes, entry);
    if (!at) {
        at = static_cast<uint32_t>(bytes->size());
        bytes->resize(bytes->size() + size);
        put_number(bytes, entry, at);
    }
    return at;
}

std::string map_bytes(const world_map &map) {
    constexpr uint32_t everything = 0xFFFFFFFF;
    std::string bytes(1024, '\0');
    const auto table_of = [&bytes](uint32_t a) { return below_entry(&bytes, a * 4, 1024); };
    const auto is_whole8 = [&map](uint32_t a) {
        return std::count(map.networks8.begin(), map.networks8.end(), a) > 0;
    };
    const auto is_whole16 = [&map](uint32_t ab) {
        return std::count(map.networks16.begin(), map.networks16.end(), ab) > 0;
    };
    for (const uint32_t address : map.addresses) {
        if (!is_whole8(address >> 24) && !is_whole16(address >> 16)) {
            const size_t bitmap =
                below_entry(&bytes, table_of(address >> 24) + (address >> 16 & 255) * 4, 8192);
            const uint32_t bit = address & 0xFFFF;
            bytes[bitmap + bit / 8] = static_cast<char>(
                static_cast<unsigned char>(bytes[bitmap + bit / 8]) | 0x80u >> bit % 8);
        }
    }
    for (const uint16_t network : map.networks16) {
        if (!is_whole8(network >> 8)) {
            put_number(&bytes, table_of(network >> 8) + (network & 255) * 4u, everything);
        }
    }
    for (const uint8_t network : map.networks8) {
        put_number(&bytes, network * 4u, everything);
    }
    return bytes;
}

std::string reverse_name(const std::string &address) {
    const uint32_t number = number_of(address);
    std::string name;
    for (int shift = 0; shift < 32; shift += 8) {
        name += std::to_string(number >> shift & 255) + '.';
    }
    return name + "in-addr.arpa.";
}

} // namespace

world random_world(random_numbers &random) {
    world made;
    made.enabled = chance(random, 95);
    for (const char *name : {"from_whitelist", "from_blacklist", "exempt_users"}) {
        if (chance(random, 75)) {
            made.lists[name] = random_list(random, random_address_entry);
        }
    }
    for (const char *name : {"exempt_ips", "blocked_ips"}) {
        if (chance(random, 75)) {
            made.lists[name] = random_list(random, random_client_entry);
        }
        if (chance(random, 50)) {
            made.ranges[std::string(name) + ".range"] = random_ranges(random);
        }
    }
    for (const char *name : {"dyna", "spam", "confirmed", "exempt"}) {
        if (chance(random, 70)) {
            made.patterns[std::string("dynaregex/") + name + ".cregexes"] =
                some_of(random, expressions, 30);
        }
    }
    for (const std::string &name : some_of(random, map_names, 60)) {
        made.maps[name] = random_map(random);
    }
    made.reported_maps = some_of(random, map_names, 70);
    made.enabled_maps = some_of(random, map_names, 40);
    made.zones = some_of(random, zone_names, 40);
    if (chance(random, 80)) {
        made.rules = some_of(random, all_rules(), 40);
    }
    if (chance(random, 60)) {
        made.sender_networks.resize(below(random, 4));
        for (std::string &line : made.sender_networks) {
            line = random_networks(random);
        }
    }
    made.hosted_domains = some_of(random, domains, 30);
    made.white_list_on = chance(random, 30);
    made.white_list = some_of(random, {"192.0.2.*", "198.51.100.7", "10.1.*.*", "::1"}, 30);
    for (const std::string &client : clients) {
        if (chance(random, 60) && number_of(client)) {
            made.ptr[client] = some_of(random, ptr_names, 25);
        }
    }
    made.existing_names = some_of(random, {"mail.good.example", "good.example", "bad.example"}, 50);
    made.failing_names = some_of(random, {"sub.bad.example", "here.example"}, 20);
    return made;
}

decision::transaction random_transaction(random_numbers &random) {
    decision::transaction made;
    made.ip = one_of(random, clients);
    made.port = "25";
    made.tls = chance(random, 50);
    made.authuser = chance(random, 25) ? "user" : "";
    made.mua = chance(random, 15);
    made.helo = one_of(random, helos);
    made.sender = chance(random, 10) ? "" : random_address(random);
    made.recipient = chance(random, 5) ? "b@[192.0.2.1]" : random_address(random);
    return made;
}

static void write_list(const drive_c &drive, const std::string &path, const texts &entries) {
    drive.write("c:/quillfence/" + path, joined_lines(entries));
}

// The keys as an export, at once: setting a value brings each change to stable storage.
static std::string export_of(const world &of) {
    const auto key = [](std::string name) { return "\n[HKEY_LOCAL_MACHINE\\" + name + "]\n"; };
    const auto key_32 = [&key](std::string name) { // in the 32-bit view
        return key(name.replace(0, std::strlen("SOFTWARE"), "SOFTWARE\\Wow6432Node"));
    };
    std::string bytes = "REGEDIT4\n";
    if (!of.hosted_domains.empty()) {
        bytes += key(me_key) + '"' + me_configuration_value + "\"=\"c:\\\\quillfence\\\\mail\"\n";
    }
    bytes += key_32(me_connector_key) + '"' + me_white_list_status + "\"=dword:0000000" +
             (of.white_list_on ? "1" : "0") + "\n" + key_32(me_white_list_key);
    for (const std::string &entry : of.white_list) {
        bytes += '"' + entry + "\"=\"\"\n";
    }
    return bytes;
}

static void set_registry(const world &of, const test_registry &registry) {
    registry.create(me_white_list_key, platform::registry_view_32);
    registry.remove(me_key, platform::registry_view_32);
    registry.create(me_key);
    registry.remove(me_key);
    if (!of.hosted_domains.empty()) {
        registry.set_text(me_key, me_configuration_value, "c:\\quillfence\\mail");
    }
    registry.set_dword(me_connector_key, me_white_list_status, of.white_list_on,
                       platform::registry_view_32);
    for (const std::string &entry : of.white_list) {
        registry.set_text(me_white_list_key, entry, "", platform::registry_view_32);
    }
}

static void write_registry(const world &of, const test_registry &registry) {
    if (registry.file().empty()) {
        set_registry(of, registry);
        return;
    }
    std::ofstream(registry.file(), std::ios::binary) << export_of(of);
}

void write_world(const world &of, const drive_c &drive, const test_registry &registry) {
    drive.remove("c:/quillfence");
    drive.make_folder("c:/quillfence");
    drive.write("c:/quillfence/control/enabled", of.enabled ? "1\n" : "0\n");
    for (const auto &[name, entries] : of.lists) {
        write_list(drive, name, entries);
    }
    for (const auto &[name, ranges] : of.ranges) {
        drive.write("c:/quillfence/" + name, range_bytes(ranges));
    }
    for (const auto &[name, patterns] : of.patterns) {
        drive.write("c:/quillfence/" + name, pattern_bytes(patterns));
    }
    for (const auto &[name, map] : of.maps) {
        drive.write("c:/quillfence/bms/" + name, map_bytes(map));
    }
    write_list(drive, "bms/lists_to_update", of.reported_maps);
    write_list(drive, "control/bms.enabled", of.enabled_maps);
    write_list(drive, "rbl.enabled", of.zones);
    if (of.rules) {
        write_list(drive, "control/rules.enabled", *of.rules);
    }
    if (!of.sender_networks.empty()) {
        write_list(drive, "control/valid_domain_ips", of.sender_networks);
    }
    texts hosted = of.hosted_domains;
    for (std::string &line : hosted) {
        line += "\tx";
    }
    write_list(drive, "mail/DOMAIN.TAB", hosted);
    write_registry(of, registry);
}

void script_world(const world &of, dns_script *dns) {
    for (const auto &[address, names] : of.ptr) {
        if (names.empty()) {
            dns->answer(reverse_name(address), platform::dns_type_ptr, 9002);
        } else {
            dns->ptr(reverse_name(address), names);
        }
    }
    for (const std::string &name : of.existing_names) {
        dns->answer(name + '.', platform::dns_type_a, 0, {{platform::dns_type_a, ""}});
    }
    for (const std::string &name : of.failing_names) {
        for (const uint16_t type :
             {platform::dns_type_a, platform::dns_type_aaaa, platform::dns_type_mx}) {
            dns->answer(name + '.', type, 9002);
        }
    }
    if (of.ptr.size() % 2) {
        dns->answer("1.2.0.192.rbl.example.", platform::dns_type_a, 0,
                    {{platform::dns_type_a, ""}});
    }
}

} // namespace quillfence::testing
