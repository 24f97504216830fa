#include "dns_script.h"

#include "allocation_pause.h"
#include "platform/dns.h"
#include "vc_text.h"

namespace quillfence::testing {

namespace {

struct scripted {
    std::string name;
    uint16_t type;
    uint32_t status;
    std::vector<dns_script::record> records;
};

struct failure {
    std::string name;
    uint16_t type;
    uint32_t status;
    unsigned times;
};

std::vector<scripted> answers;
std::vector<failure> failures;
std::vector<dns_question> questions;
uint32_t default_status;

platform::dns_record *build(const std::vector<dns_script::record> &records) {
    platform::dns_record *first = nullptr;
    platform::dns_record **link = &first;
    for (const dns_script::record &record : records) {
        *link = platform::dns_new_record(
            record.type, record.type == platform::dns_type_ptr ? record.target.c_str() : nullptr);
        link = &(*link)->next;
    }
    return first;
}

uint32_t from_script(const char *name, uint16_t type, uint32_t options,
                     platform::dns_record **records) {
    const allocation_pause pause; // what the code under test allocates is what may fail
    questions.push_back({name, type, options});
    *records = nullptr;
    for (failure &first : failures) {
        if (first.times > 0 && first.type == type && !_stricmp(first.name.c_str(), name)) {
            --first.times;
            return first.status;
        }
    }
    for (auto scripted = answers.rbegin(); scripted != answers.rend(); ++scripted) {
        if (scripted->type == type && !_stricmp(scripted->name.c_str(), name)) {
            if (scripted->status == 0) {
                *records = build(scripted->records);
            }
            return scripted->status;
        }
    }
    return default_status;
}

} // namespace

dns_script::dns_script() {
    answers.clear();
    failures.clear();
    questions.clear();
    default_status = platform::dns_status_nxdomain;
    platform::set_dns_stand_in(from_script);
}

dns_script::~dns_script() {
    platform::set_dns_stand_in(nullptr);
}

void dns_script::answer(const std::string &name, uint16_t type, uint32_t status,
                        std::vector<record> records) {
    answers.push_back({name, type, status, std::move(records)});
}

void dns_script::ptr(const std::string &name, const std::vector<std::string> &targets) {
    std::vector<record> records;
    for (const std::string &target : targets) {
        records.push_back({platform::dns_type_ptr, target});
    }
    answer(name, platform::dns_type_ptr, 0, std::move(records));
}

void dns_script::otherwise(uint32_t status) {
    default_status = status;
}

void dns_script::fail_first(const std::string &name, uint16_t type, uint32_t status,
                            unsigned times) {
    failures.push_back({name, type, status, times});
}

std::vector<dns_question> dns_script::asked() {
    std::vector<dns_question> taken;
    taken.swap(questions);
    return taken;
}

} // namespace quillfence::testing
