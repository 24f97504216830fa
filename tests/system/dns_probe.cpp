// Asks the system's DNS client and prints what came of it, one line a question. A test tool: it
// shows exact statuses, which the program itself keeps to its rules.
//
//   query NAME TYPE OPTIONS     platform::dns_query: "STATUS" and " [TYPE TARGET]" a record
//   details NAME TYPE OPTIONS   platform::dns_client_query, of the client if there is one: "STATUS
//                               RCODE SERVER udp|tcp|unknown TRIES timed|untimed" and " [TEXT]" a
//                               record; "-" for no server
//   client SERVER               dns_client_open, "-" for the system's: its status
//   limit MILLISECONDS          dns_client_limit
//   sleep MILLISECONDS
//   ahead NAME TYPE             as `details` with option 2, asked on a channel that stays open
//   burst COUNT NAME LIMIT      asks for the A records of "0.NAME" and so on all at once on a
//                               channel of its own (LIMIT milliseconds each, -1 for none): "STATUS
//                               tries TRIES: COUNT" for each outcome, and "longest MILLISECONDS"
//   exists NAME OPTION          vc_resolv_A
//   domain NAME OPTION          vc_has_a_or_mx
//   ptr ADDRESS OPTION FIRST    vc_lookup_reverse_dns: the code and the names
//   rbl ADDRESS ZONE OPTION     is_rbl_hit
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <thread>

#include "hook_table.h"
#include "platform/dns.h"
#include "platform/dns_channel.h"
#include "platform/file.h"
#include "rbl_host_lookup.h"
#include "smtp_state.h"
#include "vc_dns.h"
#include "vc_nulltermlist.h"
#include "vc_text.h"

namespace quillfence::testing {
namespace {

using arguments = char **;

template <class number>
number to_number(const char *text) {
    return static_cast<number>(std::strtoul(text, nullptr, 10));
}

void query(arguments given) {
    platform::dns_record *records = nullptr;
    const uint32_t status = platform::dns_query(given[0], to_number<uint16_t>(given[1]),
                                                to_number<uint32_t>(given[2]), &records);
    std::printf("%u", status);
    for (const platform::dns_record *record = records; record; record = record->next) {
        std::printf(" [%u %s]", record->type, record->target ? record->target : "-");
    }
    platform::dns_release(records);
}

platform::dns_client *client;

void open_client(arguments given) {
    const std::string server = given[0];
    platform::dns_client_close(client);
    std::printf("%u", platform::dns_client_open(server == "-" ? nullptr : server.c_str(), &client));
}

void limit(arguments given) {
    platform::dns_client_limit(client, to_number<int64_t>(given[0]));
    std::printf("ok");
}

void sleep(arguments given) {
    std::this_thread::sleep_for(std::chrono::milliseconds(to_number<int>(given[0])));
    std::printf("ok");
}

void print_details(uint32_t status, const platform::dns_details &known) {
    static constexpr const char *transports[] = {"unknown", "udp", "tcp"};
    std::printf("%u %d %s %s %u %s", status, known.response_code,
                *known.server ? known.server : "-", transports[static_cast<int>(known.transport)],
                known.tries, known.microseconds > 0 ? "timed" : "untimed");
    for (const platform::dns_detail_record *one = known.records; one; one = one->next) {
        std::printf(" [%s]", one->text);
    }
}

void details(arguments given) {
    platform::dns_record *records = nullptr;
    platform::dns_details known;
    const uint32_t status =
        platform::dns_client_query(client, given[0], to_number<uint16_t>(given[1]),
                                   to_number<uint32_t>(given[2]), &records, &known);
    print_details(status, known);
    platform::dns_release(records);
    platform::dns_details_clear(&known);
}

// --- many at once ---

platform::dns_channel *channel;
unsigned told;
std::map<std::string, int> outcomes;
int64_t longest;

void print_outcome(void *, void *, uint32_t status, const platform::dns_record *,
                   const platform::dns_details *known) {
    print_details(status, *known);
    ++told;
}

void ahead(arguments given) {
    if (!channel) {
        const uint32_t error =
            platform::dns_channel_open(nullptr, print_outcome, nullptr, &channel);
        if (error) {
            std::printf("%u no channel", error);
            return;
        }
    }
    told = 0;
    platform::dns_channel_ask(channel, given[0], to_number<uint16_t>(given[1]), -1, nullptr);
    while (told == 0) {
        platform::dns_channel_work(channel, 1000);
    }
}

void count_outcome(void *, void *, uint32_t status, const platform::dns_record *,
                   const platform::dns_details *known) {
    ++outcomes[std::to_string(status) + " tries " + std::to_string(known->tries)];
    longest = std::max(longest, known->microseconds / 1000);
    ++told;
}

void burst(arguments given) {
    const auto count = to_number<unsigned>(given[0]);
    const auto limit = static_cast<int64_t>(std::strtol(given[2], nullptr, 10));
    platform::dns_channel *own = nullptr;
    if (const uint32_t error = platform::dns_channel_open(nullptr, count_outcome, nullptr, &own)) {
        std::printf("%u no channel", error);
        return;
    }
    told = 0;
    longest = 0;
    outcomes.clear();
    for (unsigned i = 0; i < count; ++i) {
        const std::string name = std::to_string(i) + "." + given[1];
        platform::dns_channel_ask(own, name.c_str(), platform::dns_type_a, limit, nullptr);
    }
    while (told < count) {
        platform::dns_channel_work(own, 1000);
    }
    for (const auto &[outcome, times] : outcomes) {
        std::printf("%s: %d, ", outcome.c_str(), times);
    }
    std::printf("longest %d", static_cast<int>(longest));
    platform::dns_channel_close(own);
}

void exists(arguments given) {
    std::printf("%d", vc_resolv_A(given[0], to_number<uint8_t>(given[1])));
}

void domain(arguments given) {
    std::printf("%d", vc_has_a_or_mx(given[0], to_number<uint8_t>(given[1])));
}

void ptr(arguments given) {
    char **names = nullptr;
    std::printf("%d", vc_lookup_reverse_dns(&names, given[0], to_number<uint8_t>(given[1]),
                                            to_number<uint8_t>(given[2])));
    for (char **name = names; name && *name; ++name) {
        std::printf(" %s", *name);
    }
    vc_lstfree(&names, std::free);
}

void rbl(arguments given) {
    set_hooks({.dns_option = to_number<uint8_t>(given[2])});
    smtp_state *state = new_smtp_state();
    state->ip = strdup(given[0]);
    std::printf("%d", is_rbl_hit(state, given[1]));
    free_smtp_state(state);
}

struct question {
    int argument_count;
    void (*ask)(arguments given);
};

int run(int argc, char **argv) {
    const std::map<std::string, question> questions = {
        {"query", {3, query}}, {"exists", {2, exists}}, {"domain", {2, domain}},
        {"ptr", {3, ptr}},     {"rbl", {3, rbl}},       {"details", {3, details}},
        {"ahead", {2, ahead}}, {"burst", {3, burst}},   {"client", {1, open_client}},
        {"limit", {1, limit}}, {"sleep", {1, sleep}},
    };
    platform::prepare_standard_streams();
    for (int i = 1; i < argc;) {
        const auto found = questions.find(argv[i]);
        if (found == questions.end() || argc - i <= found->second.argument_count) {
            std::fprintf(stderr, "dns-probe: what is [%s]?\n", argv[i]);
            return 2;
        }
        found->second.ask(argv + i + 1);
        std::printf("\n");
        i += 1 + found->second.argument_count;
    }
    platform::dns_client_close(client);
    platform::dns_channel_close(channel);
    return 0;
}

} // namespace
} // namespace quillfence::testing

int main(int argc, char **argv) {
    return quillfence::testing::run(argc, argv);
}
