// What checks cost the system: the calls that each operation makes through the platform, and a
// thousand checks in one process that leave memory and handles where they were.
#include <map>

#include "call_watch.h"
#include "engine_test.h"
#include "failing_memory.h"
#include "known_sender_forgery_funcs.h"
#include "lookup.h"
#include "open_handles.h"
#include "quillfence-file.h"
#include "run.h"
#include "vc_text.h"

namespace quillfence::testing {
namespace {

constexpr char root[] = "c:/quillfence/";

class system_calls : public engine_test {
  protected:
    system_calls() {
        // What is looked for once in the life of the process: VERBOSEDEBUG, the mail server's
        // address map, the socket library.
        warm_up();
    }
    static void warm_up() {
        for (const client &who : clients) {
            vc_json_free(replay(who));
            decide(who);
        }
    }
};

// The calls by name, as "file_open 1, file_read 2".
std::string counted(const std::vector<std::string> &calls) {
    std::map<std::string, int> counts;
    for (const std::string &call : calls) {
        if (call != "net_prepare") { // no system call; on Windows once in the life of the process
            ++counts[call];
        }
    }
    std::string text;
    for (const auto &[name, count] : counts) {
        text += (text.empty() ? "" : ", ") + name + " " + std::to_string(count);
    }
    return text;
}

// docs/benchmarks.md has this table with the reason for each call.
TEST_F(system_calls, of_each_operation) {
    static const struct {
        const char *name;
        void (*run)();
        const char *calls;
    } operations[] = {
        {"list, found", [] { __file_contains_line(root, "blocked_ips", "192.0.2.66", _stricmp); },
         "file_close 1, file_open 1, file_read 1, path_attributes 1"},
        {"list, not found",
         [] { __file_contains_line(root, "blocked_ips", "192.0.2.1", _stricmp); },
         "file_close 1, file_open 1, file_read 2, path_attributes 1"},
        {"list, missing", [] { __file_contains_line(root, "none", "192.0.2.1", _stricmp); },
         "path_attributes 1"},
        {"range file", [] { file_contains_ip_range_match("blocked_ips.range", "10.1.1.1", root); },
         "file_close 1, file_open 1, file_read 2, file_size 1, path_attributes 1"},
        {"pattern file", [] { compiled_regex_match(dyna_regex_file, "x.example"); },
         "file_close 1, file_open 1, file_read 2"},
        {"block map, decided by the first octet",
         [] { lookupMapFile("c:/quillfence/bms/one", 0x0100007F); },
         "file_close 1, file_open 1, file_read 1, file_seek 1, file_size 1, path_attributes 1"},
        {"sender forgery",
         [] {
             ksf_check_domain_to_ip_restriction("10.1.1.1", "a.example",
                                                "c:/quillfence/control/valid_domain_ips");
         },
         "file_close 1, file_open 1, file_read 1, file_size 1, path_attributes 1"},
        {"verdict logged",
         [] {
             smtp_state state = {};
             log_message(&state, "rule", log_type_spam);
         },
         "clock_now 3, file_close 3, file_open 3, file_read 6, file_seek 9, file_size 2, "
         "file_write 4, from_local_time 1, local_time 3, path_attributes 2"},
        {"report of a good client", [] { vc_json_free(replay(clients[0])); },
         "dns_query 3, file_close 14, file_open 14, file_read 24, file_seek 2, file_size 6, "
         "path_attributes 18, registry_open 3"},
        {"decision about a good client", [] { decide(clients[0]); },
         "dns_query 3, file_close 13, file_open 13, file_read 21, file_seek 1, file_size 7, "
         "path_attributes 17, registry_open 1"},
    };
    for (const auto &operation : operations) {
        operation.run(); // a file that it begins is there then
        call_watch watch;
        operation.run();
        EXPECT_EQ(counted(watch.take()), operation.calls) << operation.name;
    }
}

TEST_F(system_calls, a_thousand_checks_leave_nothing_behind) {
    dns_script::asked();
    const int handles = open_handles();
    const long blocks = live_allocations();
    for (int i = 0; i < 500; ++i) {
        const client &who = clients[static_cast<size_t>(i) % std::size(clients)];
        vc_json_free(replay(who));
        decide(who);
        dns_script::asked();
    }
    EXPECT_EQ(live_allocations() - blocks, 0);
    EXPECT_EQ(open_handles(), handles);
}

// The five-hundredth run makes the calls of the first.
TEST_F(system_calls, every_check_makes_the_same_calls) {
    for (const client &who : clients) {
        std::string first;
        for (int i = 0; i < 20; ++i) {
            call_watch watch;
            vc_json_free(replay(who));
            decide(who);
            const std::string calls = counted(watch.take());
            first = i ? first : calls;
            ASSERT_EQ(calls, first) << who.name << ", run " << i;
        }
    }
}

} // namespace
} // namespace quillfence::testing
