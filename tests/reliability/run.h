// Runs of the engine as the program and a mail server make them, in the test's own process.
#pragma once

#include <set>
#include <string>

#include "engine_drive.h"
#include "owned_packets.h"
#include "process_state.h"
#include "quillfence-checks.h"
#include "quillfence-log.h"
#include "quillfence.h"
#include "report.h"

namespace quillfence::testing {

// The run of the replayer from its arguments to its report; null on failure.
inline vc_json *replay(const client &who) {
    const char *arguments[] = {"r", "R", who.ip,   "25",       "0",
                               "",  "0", who.helo, who.sender, who.recipient};
    const request packet(qfd_request_packet_from_args(10, const_cast<char **>(arguments)));
    const owned_session state(packet ? qfd_request_packet_to_smtp_state(packet.get()) : nullptr);
    return state && __process_state(state.get()) ? build_report(state.get(), quillfence_rules())
                                                 : nullptr;
}

// The names in a report's two members.
inline std::set<std::string> hits_of(vc_json *report) {
    std::set<std::string> names;
    for (const char *member : {"spam_hits", "bms_hits"}) {
        vc_json *array = vc_json_get_node_ex(report, member, nullptr);
        for (uint32_t i = 0; i < vc_json_num_children(array); ++i) {
            names.insert(static_cast<const char *>(vc_json_node_index(array, i)->value));
        }
    }
    return names;
}

// What a mail server decides: "exempt", the name of the hit, or "pass".
inline std::string decide(const client &who) {
    const owned_session state = session_of(who);
    std::string verdict = "pass";
    if (quillfence_enabled() && __process_state(state.get())) {
        if (is_exempt(state.get(), nullptr)) {
            verdict = "exempt";
        } else {
            for (const auto check : {global_spam_hit_r, global_bms_r, global_rbl_r}) {
                if (check(state.get(), quillfence_rules()) && state->hit_name) {
                    verdict = state->hit_name;
                    break;
                }
            }
        }
    }
    return verdict;
}

} // namespace quillfence::testing
