// Where the DNS answers of one explained transaction come from, as the command line has it.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "deadline_source.h"
#include "engine_door.h"
#include "given_source.h"
#include "guard_source.h"
#include "live_source.h"
#include "memo_source.h"
#include "off_source.h"
#include "replay.h"

namespace quillfence::programs {

struct answer_options {
    std::string dns;      // "live", "off"; for a case also "recorded", "record-missing"
    std::string server;   // "" for the system's
    double deadline = 10; // seconds for all questions
    bool guards = false;
    std::vector<std::string> ptr;     // names of the client
    std::vector<std::string> answers; // name, type, value; name, type, value ...
};

// The DNS of the system, or of another server ("" for none). Throws a failure for one that can't be
// asked.
std::unique_ptr<dns_sources::live_source> live_dns(const std::string &server);
// Throws a failure for the error of a server ("" for the system's) that can't be asked.
void check_dns(uint32_t error, const std::string &server);
// The zones of the DNS block lists, one a line of the configuration's file; none without it.
std::vector<std::string> block_list_zones();

// The DNS, and nobody else unless that is asked for.
inline constexpr char dns_is_live[] = "live";
inline constexpr char dns_is_off[] = "off";

// A stack of sources: memo, then what was given by hand, the guards, the deadline, the DNS. It is
// asked once for each name and type, but a failure again. options.dns "" is "live".
class answer_stack {
  public:
    // client is the address whose names options.ptr gives. Throws a failure for what can't be
    // understood, and for a server that can't be asked.
    answer_stack(const answer_options &options, const std::string &client);

    dns_source *slots() {
        return door_->slots();
    }
    bool failed() const {
        return door_->failed();
    }
    // What the guards did, as sentences.
    std::vector<std::string> remarks() const;

  private:
    dns_sources::source &system_of(const answer_options &options);
    std::unique_ptr<dns_sources::source> system_;
    std::unique_ptr<dns_sources::deadline_source> deadline_;
    std::unique_ptr<dns_sources::guard_source> guard_;
    std::unique_ptr<dns_sources::given_source> given_;
    std::unique_ptr<dns_sources::memo_source> memo_;
    std::unique_ptr<dns_sources::engine_door> door_;
};

// The same around the answers of a case, which stand in the place of the memo: what was given by
// hand, the guards, the case; and, where that is to be asked, memo, deadline, DNS.
class case_answers {
  public:
    // As answer_stack. options.dns "" is "recorded": the DNS is not asked.
    case_answers(const answer_options &options, const std::string &client);

    decision::case_dns dns() const;
    // Null when nobody is to be asked.
    dns_sources::source *live();
    // What stands in front of the case's answers, which are borrowed.
    dns_sources::source &in_front(dns_sources::source &next);
    std::vector<std::string> remarks() const;

  private:
    const answer_options &options_;
    const std::string client_;
    std::unique_ptr<dns_sources::live_source> system_;
    std::unique_ptr<dns_sources::deadline_source> deadline_;
    std::unique_ptr<dns_sources::memo_source> memo_;
    std::unique_ptr<dns_sources::guard_source> guard_;
    std::unique_ptr<dns_sources::given_source> given_;
};

} // namespace quillfence::programs
