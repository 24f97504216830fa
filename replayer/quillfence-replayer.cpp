// Replays one SMTP transaction against the engine and prints which rules and block maps it hits.
#include <cstdio>

#include "platform/file.h"
#include "process_state.h"
#include "qfd-packet.h"
#include "quillfence.h"
#include "report.h"
#include "vc_json.h"
#include "vc_log.h"

namespace quillfence {

static constexpr char module_name[] = "quillfence-replayer";

static constexpr int argument_count = 10; // with the program's name

// What openlog gets, as syslog(3) knows it: with the process id, for the facility "local use 0".
static constexpr int log_with_pid = 1;
static constexpr int log_local0 = 16;

// The arguments as a session that the caller frees; null on failure.
static smtp_state *session_from_args(int argc, char **argv) {
    qfd_request_packet *packet = qfd_request_packet_from_args(argc, argv);
    smtp_state *state = packet ? qfd_request_packet_to_smtp_state(packet) : nullptr;
    qfd_request_packet_free(packet);
    if (!state) {
        QF_ERROR_AS("main", "Failed to convert command line arguments into smtp state");
    }
    return state;
}

// Writes the report of a completed session to standard output; false on failure.
static bool print_report(smtp_state *state) {
    vc_json *report = build_report(state, quillfence_rules());
    if (!report) {
        return false;
    }
    const bool written = vc_json_dump(stdout, report);
    vc_json_free(report);
    if (fflush(stdout) != 0) {
        QF_ERRNO_AS("main", errno);
        return false;
    }
    return written;
}

// Everything between start-up and teardown; false on failure.
static bool replay(int argc, char **argv) {
    smtp_state *state = session_from_args(argc, argv);
    if (!state) {
        return false;
    }
    bool replayed = __process_state(state);
    if (!replayed) {
        QF_ERROR_AS("main", "Failed to process the smtp state");
    } else {
        replayed = print_report(state);
    }
    free_smtp_state(state);
    return replayed;
}

// The exit status of a run.
static int run(int argc, char **argv) {
    openlog("quillfence-replayer", log_with_pid, log_local0);
    vc_set_log_function(syslog);
    if (argc != argument_count) {
        fprintf(stderr,
                "Usage : %s R [ip] [port] [tls] [authuser] [mua] [helo] [sender] [recipient]\n",
                argc > 0 ? argv[0] : "quillfence-replayer");
        return 1;
    }
    if (!quillfence_init()) {
        QF_ERROR_AS("main", "Failed to initialize the spam engine");
        return 1;
    }
    const bool replayed = replay(argc, argv);
    quillfence_teardown();
    return replayed ? 0 : 1;
}

} // namespace quillfence

int main(int argc, char **argv) {
    quillfence::platform::prepare_standard_streams();
    const int status = quillfence::run(argc, argv);
    quillfence::closelog();
    return status;
}
