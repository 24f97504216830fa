#include "answer.h"

#include <utility>

namespace quillfence::dns_sources {

answer answer_of_status(uint32_t status) {
    return {.status = status, .said = status};
}

answer answer_of_server(uint32_t response_code, std::vector<record> records) {
    uint32_t status = platform::dns_status_rcode_base + response_code;
    if (response_code == 0) {
        status = records.empty() ? platform::dns_status_no_records : 0;
    }
    return {.status = status,
            .said = status,
            .response_code = response_code,
            .records = std::move(records)};
}

std::string name_key(std::string_view name) {
    std::string key(name.substr(0, name.size() - name.ends_with('.')));
    for (char &c : key) {
        if (c >= 'A' && c <= 'Z') {
            c = static_cast<char>(c - 'A' + 'a');
        }
    }
    return key;
}

} // namespace quillfence::dns_sources
