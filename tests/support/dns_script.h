// A stand-in for the DNS call: answers from a script and counts what was asked.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace quillfence::testing {

struct dns_question {
    std::string name;
    uint16_t type;
    uint32_t options;
};

// While one lives, every DNS query of the process is answered from it. Only one at a time.
class dns_script {
  public:
    dns_script();
    ~dns_script();
    dns_script(const dns_script &) = delete;
    dns_script &operator=(const dns_script &) = delete;

    struct record {
        uint16_t type;
        std::string target;
    };
    // Every query of this name and type gets this answer from now on; the latest answer wins.
    // Names are compared without regard to case and as they are asked, final dot included.
    // Anything not scripted gets `otherwise` (default NXDOMAIN, 9003).
    void answer(const std::string &name, uint16_t type, uint32_t status,
                std::vector<record> records = {});
    // The same for PTR names of a reverse name: status 0 with one PTR record each.
    void ptr(const std::string &name, const std::vector<std::string> &targets);
    void otherwise(uint32_t status);
    // The next `times` queries of this name and type get this status, whatever else is scripted.
    void fail_first(const std::string &name, uint16_t type, uint32_t status, unsigned times);

    // What was asked so far; forgotten here.
    static std::vector<dns_question> asked();
};

} // namespace quillfence::testing
