// Configurations and transactions at random, as models that know each of their entries: small
// enough that hits, exemptions and duplicates are frequent.
#pragma once

#include <map>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "decision_record.h"
#include "dns_script.h"
#include "drive_c.h"
#include "test_registry.h"

namespace quillfence::testing {

using random_numbers = std::mt19937;

struct world_range {
    uint32_t low; // host byte order
    uint32_t high;
    std::string comment;
};

// A block map by what it lists.
struct world_map {
    std::vector<uint8_t> networks8;
    std::vector<uint16_t> networks16;
    std::vector<uint32_t> addresses; // host byte order
};

struct world {
    bool enabled = true;
    // By their names in c:/quillfence; a list that is not here has no file.
    std::map<std::string, std::vector<std::string>> lists;
    std::map<std::string, std::vector<world_range>> ranges;
    std::map<std::string, std::vector<std::string>> patterns;
    std::map<std::string, world_map> maps;
    std::vector<std::string> reported_maps;
    std::vector<std::string> enabled_maps;
    std::vector<std::string> zones;
    std::optional<std::vector<std::string>> rules;
    std::vector<std::string> sender_networks;
    std::vector<std::string> hosted_domains;
    std::vector<std::string> white_list; // of the mail server: addresses and patterns
    bool white_list_on = false;
    std::map<std::string, std::vector<std::string>> ptr; // by address
    std::vector<std::string> existing_names;             // with an A record
    std::vector<std::string> failing_names;              // that no server answers
};

world random_world(random_numbers &random);
decision::transaction random_transaction(random_numbers &random);

// Puts the world in place, in place of whatever was there.
void write_world(const world &of, const drive_c &drive, const test_registry &registry);
void script_world(const world &of, dns_script *dns);

} // namespace quillfence::testing
