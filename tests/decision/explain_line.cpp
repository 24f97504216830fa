// The replayer's line, taken out of a decision record: takes the replayer's arguments and prints
// the report as the replayer does. Exit status 1 when there is none.
#include <cstdio>
#include <cstdlib>

#include "explain.h"
#include "platform/file.h"
#include "quillfence.h"

namespace quillfence {

static bool is_set(const char *flag) {
    return std::strtol(flag, nullptr, 10) != 0;
}

static decision::transaction transaction_of(char **arguments) {
    decision::transaction made;
    made.ip = arguments[2];
    made.port = arguments[3];
    made.tls = is_set(arguments[4]);
    made.authuser = arguments[5];
    made.mua = is_set(arguments[6]);
    made.helo = arguments[7];
    made.sender = arguments[8];
    made.recipient = arguments[9];
    return made;
}

static std::string joined(const std::vector<std::string> &names) {
    std::string text;
    for (const std::string &name : names) {
        text += (text.empty() ? "\"" : ",\"") + name + '"';
    }
    return text;
}

static int run(char **arguments) {
    if (!quillfence_init()) {
        return 1;
    }
    const decision::explain_result result = decision::explain(transaction_of(arguments), {});
    quillfence_teardown();
    if (result.failed || !result.record.report || !result.record.report->failed.empty()) {
        return 1;
    }
    const decision::report &report = *result.record.report;
    std::printf("{\"spam_hits\":[%s],\"bms_hits\":[%s]}", joined(report.spam_hits).c_str(),
                joined(report.bms_hits).c_str());
    return 0;
}

} // namespace quillfence

int main(int argc, char **argv) {
    quillfence::platform::prepare_standard_streams();
    return argc == 10 ? quillfence::run(argv) : 1;
}
