#include "kept_answers.h"

#include <algorithm>
#include <charconv>
#include <cstring>

#include "byte_cursor.h"

namespace quillfence::decision {

static std::string text_of(const char *text) {
    return text ? text : "";
}

// --- what a value holds, as text ---

static bool is_text(uint32_t type) {
    return type == platform::registry_text || type == platform::registry_expandable_text;
}

static std::string hexadecimal_of(const unsigned char *bytes, size_t size) {
    static constexpr char digits[] = "0123456789abcdef";
    std::string text;
    for (size_t i = 0; i < size; ++i) {
        text += digits[bytes[i] >> 4];
        text += digits[bytes[i] & 15];
    }
    return text;
}

static std::string bytes_of(const std::string &hexadecimal) {
    std::string bytes;
    for (size_t i = 0; i + 1 < hexadecimal.size(); i += 2) {
        unsigned byte = 0;
        std::from_chars(hexadecimal.data() + i, hexadecimal.data() + i + 2, byte, 16);
        bytes += static_cast<char>(byte);
    }
    return bytes;
}

static std::string little_endian(const std::string &decimal) {
    uint32_t number = 0;
    std::from_chars(decimal.data(), decimal.data() + decimal.size(), number);
    std::string bytes(sizeof number, '\0');
    store_le32(bytes.data(), number);
    return bytes;
}

// A text ends at its first NUL, as the engine reads it. A number that has not its four bytes counts
// as not read, like any bytes.
static void take_data(registry_answer *answer, const registry_look &fact) {
    if (!fact.data) {
        return;
    }
    const auto *const bytes = static_cast<const unsigned char *>(fact.data);
    const bool number = fact.type == platform::registry_dword;
    const bool broken = number && fact.size != sizeof(uint32_t);
    answer->type = registry_type_word(broken ? platform::registry_binary : fact.type);
    if (answer->type.empty()) {
        return;
    }
    if (is_text(fact.type)) {
        const auto *const text = static_cast<const char *>(fact.data);
        answer->data.assign(text, strnlen(text, fact.size));
    } else if (number && !broken) {
        answer->data = std::to_string(load_le32(bytes));
    } else {
        answer->data = hexadecimal_of(bytes, fact.size);
    }
}

static std::string stored(uint32_t type, const std::string &text) {
    if (is_text(type)) {
        return text + '\0';
    }
    return type == platform::registry_dword ? little_endian(text) : bytes_of(text);
}

// --- from the engine ---

void answer_keeper::on(const registry_look &fact) {
    registry_answer answer;
    answer.key = text_of(fact.key);
    answer.missing = !fact.found;
    if (fact.value) {
        answer.value = fact.value;
    }
    if (fact.found) {
        take_data(&answer, fact);
    }
    const auto [place, fresh] =
        values.insert({{answer.key, answer.value.value_or("\\")}, kept->registry.size()});
    if (fresh) {
        kept->registry.push_back(std::move(answer));
    } else if (kept->registry[place->second].type.empty() && !answer.type.empty()) {
        kept->registry[place->second] = std::move(answer); // it was only looked whether it is there
    }
}

void answer_keeper::on(const address_map_look &fact) {
    const std::string address = text_of(fact.address);
    if (addresses.insert(address).second) {
        kept->address_map.push_back({address, text_of(fact.destination), !fact.destination});
    }
}

void answer_keeper::on(const folder_entry &fact) {
    names.push_back(text_of(fact.name));
}

void answer_keeper::on(const folder_search &fact) {
    const std::string folder = text_of(fact.folder);
    const auto same = [&](const folder_answer &other) { return other.folder == folder; };
    if (std::none_of(kept->folders.begin(), kept->folders.end(), same)) {
        kept->folders.push_back({folder, std::move(names), !fact.existed});
    }
    names.clear();
}

// --- to the engine ---

answer_rows::answer_rows(const server_answers &from) {
    for (const registry_answer &answer : from.registry) {
        add(answer);
    }
    registry.push_back({nullptr, nullptr, false, 0, nullptr, 0});
    for (const address_map_answer &answer : from.address_map) {
        address_map.push_back(
            {answer.address.c_str(), answer.missing ? nullptr : answer.destination.c_str()});
    }
    address_map.push_back({nullptr, nullptr});
    for (const folder_answer &answer : from.folders) {
        add(answer);
    }
    folders.push_back({nullptr, nullptr});
    all = {registry.data(), address_map.data(), folders.data()};
}

void answer_rows::add(const registry_answer &answer) {
    const uint32_t type = registry_type_of_word(answer.type).value_or(0);
    if (type) {
        data.push_back(stored(type, answer.data));
    }
    registry.push_back({.key = answer.key.c_str(),
                        .value = answer.value ? answer.value->c_str() : nullptr,
                        .found = !answer.missing,
                        .type = type,
                        .data = type ? data.back().data() : nullptr,
                        .size = type ? static_cast<uint32_t>(data.back().size()) : 0});
}

void answer_rows::add(const folder_answer &answer) {
    if (answer.missing) {
        folders.push_back({answer.folder.c_str(), nullptr});
        return;
    }
    std::vector<const char *> &list = names.emplace_back();
    for (const std::string &name : answer.names) {
        list.push_back(name.c_str());
    }
    list.push_back(nullptr);
    folders.push_back({answer.folder.c_str(), list.data()});
}

} // namespace quillfence::decision
