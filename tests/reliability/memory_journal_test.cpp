// Mail log and counters when memory runs out.
#include <algorithm>

#include "drive_c.h"
#include "heap_text.h"
#include "memory_sweep.h"
#include "owned_session.h"
#include "quillfence-log.h"

namespace quillfence::testing {
namespace {

using enum without_memory;

struct {
    char *text;
    owned_session state;
} it;

void release() {
    free(it.text);
    it = {};
}

constexpr char user_dir[] = "c:/quillfence/user";
const drive_c *disk; // of the running test

void have_session() {
    for (const char *folder : {ql_global_directory, user_dir}) {
        disk->remove(folder);
        disk->make_folder(folder);
    }
    it.state.reset(new_smtp_state());
    it.state->ip = heap_text("192.0.2.1");
    vc_append_list_entry(&it.state->user_dirs, user_dir, sizeof user_dir, 1);
}

// How many lines the log of a folder has; a line is there whole or not at all.
long lines_in(const std::string &folder) {
    if (!disk->exists(folder + "/qflog")) {
        return 0;
    }
    const std::string text = disk->read(folder + "/qflog");
    EXPECT_TRUE(text.empty() || text.ends_with("rcpt=<(null)>\r\n")) << text;
    return static_cast<long>(std::count(text.begin(), text.end(), '\n'));
}

class memory_journal : public drive_test {
  protected:
    memory_journal() {
        disk = &drive;
    }
};

TEST_F(memory_journal, all_operations) {
    static const memory_case cases[] = {
        {"ql_get_counter_file", nullptr,
         [] { return (it.text = ql_get_counter_file(user_dir, 1)) != nullptr; }, nullptr},
        {"ql_get_counter_file_hourly", nullptr,
         [] { return (it.text = ql_get_counter_file_hourly(user_dir)) != nullptr; }, nullptr},
        {"quillfence_increment_counter", have_session,
         [] {
             quillfence_increment_counter(user_dir, log_type_ham, 0);
             return true;
         },
         nullptr, goes_on},
        {"quillfence_increment_counter_hourly", have_session,
         [] {
             quillfence_increment_counter_hourly(user_dir, log_type_ham, 0);
             return true;
         },
         nullptr, goes_on},
        {"log_message", have_session,
         [] {
             log_message(it.state.get(), "rule", log_type_spam);
             return true;
         },
         [] {
             EXPECT_LE(lines_in("c:/quillfence/log"), 1);
             EXPECT_LE(lines_in(user_dir), 1);
         },
         goes_on},
    };
    sweep(log, cases, release);
    have_session();
    log_message(it.state.get(), "rule", log_type_spam);
    EXPECT_EQ(lines_in("c:/quillfence/log"), 1);
    EXPECT_EQ(lines_in(user_dir), 1);
    release();
}

} // namespace
} // namespace quillfence::testing
