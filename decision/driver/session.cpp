#include "session.h"

#include <cstdlib>
#include <cstring>

#include "process_state.h"
#include "qfd-packet.h"

namespace quillfence::decision {
namespace {

// Stands in for a client that is not known while the session is made; it is looked up nowhere.
constexpr char no_client[] = "0.0.0.0";
constexpr char no_sender[] = "unknown";
constexpr char no_recipient[] = "unknown";

struct packet_deleter {
    void operator()(qfd_request_packet *packet) const {
        qfd_request_packet_free(packet);
    }
};
using packet = std::unique_ptr<qfd_request_packet, packet_deleter>;

std::string flag_text(const std::optional<bool> &flag) {
    return flag.value_or(false) ? "1" : "0";
}

void forget(char **field) {
    std::free(*field);
    *field = nullptr;
}

} // namespace

session session_of(const transaction &from) {
    std::string arguments[] = {"quillfence",
                               "R",
                               from.ip.value_or(no_client),
                               from.port.value_or(""),
                               flag_text(from.tls),
                               from.authuser.value_or(""),
                               flag_text(from.mua),
                               from.helo.value_or(""),
                               from.sender.value_or(no_sender),
                               from.recipient.value_or(no_recipient)};
    constexpr int count = std::size(arguments);
    char *vector[count + 1] = {};
    for (int i = 0; i < count; ++i) {
        vector[i] = arguments[i].data();
    }
    const packet request(qfd_request_packet_from_args(count, vector));
    session made(request ? qfd_request_packet_to_smtp_state(request.get()) : nullptr);
    if (made && !from.helo) {
        forget(&made->helo);
    }
    return made;
}

std::string session_address(const std::string &ip) {
    transaction from;
    from.ip = ip;
    const session made = session_of(from);
    return made ? made->ip : "";
}

bool complete_session(smtp_state *state, fact_set missing) {
    if (missing & fact_ip) {
        state->rdns_resolves = resolves_tempfail;
    }
    if (!__process_state(state)) {
        return false;
    }
    if (missing & fact_sender) {
        forget(&state->mail_from);
    }
    if (missing & fact_ip) {
        *state->ip = '\0'; // a notice needs an address, if an empty one
        state->routable = 0;
    }
    return true;
}

} // namespace quillfence::decision
