// Whole runs of the engine with what was read beforehand: the same answers, and no file is looked
// at.
#include "../reliability/run.h"
#include "call_context.h"
#include "call_watch.h"
#include "owned_snapshot.h"

namespace quillfence::testing {
namespace {

class frozen_run : public drive_test {
  protected:
    frozen_run() {
        write_configuration(drive);
        write_zones(&dns);
        quillfence_init();
        for (const client &who : clients) { // what is looked for once in the life of the process
            decide(who);
        }
        frozen = load();
    }
    ~frozen_run() override {
        quillfence_teardown();
    }
    static owned_snapshot load() {
        snapshot_report report;
        owned_snapshot loaded(snapshot_load(nullptr, &report));
        snapshot_report_release(&report);
        EXPECT_NE(loaded, nullptr);
        return loaded;
    }
    static std::set<std::string> reported(const client &who) {
        vc_json *const report = replay(who);
        EXPECT_NE(report, nullptr) << who.name;
        const std::set<std::string> hits = hits_of(report);
        vc_json_free(report);
        return hits;
    }
    dns_script dns;
    owned_snapshot frozen;
};

bool is_of_files(const std::string &call) {
    return call.starts_with("file_") || call.starts_with("path_") || call.starts_with("stream_") ||
           call.starts_with("directory_");
}

TEST_F(frozen_run, looks_at_no_file_and_answers_the_same) {
    std::set<std::string> answers;
    for (const client &who : clients) {
        const std::string decided = decide(who);
        const std::set<std::string> hits = reported(who);
        call_context context = {.configuration = frozen.get()};
        const call_scope scope(&context);
        call_watch watch;
        EXPECT_EQ(decide(who), decided) << who.name;
        EXPECT_EQ(reported(who), hits) << who.name;
        for (const std::string &call : watch.take()) {
            EXPECT_FALSE(is_of_files(call)) << who.name << ": " << call;
        }
        answers.insert(decided);
    }
    EXPECT_GE(answers.size(), 4u);
}

TEST_F(frozen_run, counts_edits_when_it_is_loaded_again) {
    call_context context = {.configuration = frozen.get()};
    const call_scope scope(&context);
    const client &good = clients[0];
    EXPECT_EQ(decide(good), "block_list (one)");
    drive.write("c:/quillfence/from_blacklist", "*@good.example\n");
    EXPECT_EQ(decide(good), "block_list (one)");
    const owned_snapshot later = load();
    context.configuration = later.get();
    EXPECT_EQ(decide(good), "from_blacklist");
}

} // namespace
} // namespace quillfence::testing
