// One configuration, read beforehand, that several threads ask at once.
#include "../reliability/engine_drive.h"
#include "call_context.h"
#include "known_sender_forgery_funcs.h"
#include "lookup.h"
#include "owned_snapshot.h"
#include "quillfence-file.h"
#include "side_by_side.h"
#include "vc_text.h"

namespace quillfence::testing {
namespace {

constexpr char root[] = "c:/quillfence/";

// What is asked, and how often it is answered yes.
int ask_everything() {
    vc_list_entry *maps = vc_file_to_list(root, "bms/lists_to_update");
    const int answers =
        __file_contains_line(root, "from_whitelist", "a@friend.example", __wildcardmatch) +
        __file_contains_line(root, "from_whitelist", "a@foe.example", __wildcardmatch) +
        __file_contains_line(root, "blocked_ips", "192.0.2.66", _stricmp) +
        file_contains_ip_range_match("blocked_ips.range", "192.0.2.75", root) +
        compiled_regex_match(dyna_regex_file, "dyn1.pool.example") +
        compiled_regex_match(dyna_regex_file, "mail.good.example") +
        ksf_check_domain_to_ip_restriction("192.0.2.1", "tied.example",
                                           "c:/quillfence/control/valid_domain_ips") +
        lookupMaps("c:/quillfence/bms/", maps, "192.0.2.1", nullptr) +
        vc_file_to_int("c:/quillfence/control", "enabled");
    vc_destroy_list(&maps, free);
    return answers;
}

TEST(threads_snapshot, ask_one_configuration) {
    const drive_c drive;
    write_configuration(drive);
    snapshot_report report;
    const owned_snapshot frozen(snapshot_load(nullptr, &report));
    snapshot_report_release(&report);
    ASSERT_NE(frozen, nullptr);
    const int expected = ask_everything();
    EXPECT_EQ(expected, 6);
    drive.remove("c:/quillfence");
    side_by_side(4, [&](unsigned) {
        call_context context = {.configuration = frozen.get()};
        const call_scope scope(&context);
        for (int i = 0; i < 200; ++i) {
            EXPECT_EQ(ask_everything(), expected);
        }
    });
}

} // namespace
} // namespace quillfence::testing
