// What a mail server's machine answered besides the DNS: registry values, the address map, the
// listings of mailbox whitelists. A run writes them down as they are asked, a case carries them,
// and on another machine they are answered from there.
//
// Texts are the engine's own, as the system gave them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quillfence::decision {

// One look into the registry, below HKEY_LOCAL_MACHINE:
//
//     key, value, type, data     the value is there
//     key, value, type ""        the value is there; its data was not read
//     key, value, missing        there is no such value
//     key, no value              the key is there
//     key, no value, missing     there is no such key
struct registry_answer {
    std::string key;
    std::optional<std::string> value{}; // its name, "" for the key's default value; none: the key
    std::string type{};                 // registry_type_word(); "" when nothing was read
    std::string data{};                 // of REG_DWORD the number in decimal
    bool missing = false;
    bool operator==(const registry_answer &) const = default;
};

// Where the mail server delivers an address, or that its address map does not say.
struct address_map_answer {
    std::string address;
    std::string destination{}; // "[SF:example.com/alice]"; "" when it is missing
    bool missing = false;
    bool operator==(const address_map_answer &) const = default;
};

// The names in a folder, in the order in which the system listed them, or that there is no folder.
struct folder_answer {
    std::string folder;
    std::vector<std::string> names{};
    bool missing = false;
    bool operator==(const folder_answer &) const = default;
};

struct server_answers {
    std::vector<registry_answer> registry{};
    std::vector<address_map_answer> address_map{};
    std::vector<folder_answer> folders{};
    bool empty() const {
        return registry.empty() && address_map.empty() && folders.empty();
    }
    bool operator==(const server_answers &) const = default;
};

// The name of a value's type by the system's number, "REG_SZ" for 1; "" for a number without one.
std::string_view registry_type_word(uint32_t number);
// The number again; nothing for another word. Letter case counts.
std::optional<uint32_t> registry_type_of_word(std::string_view word);

} // namespace quillfence::decision
