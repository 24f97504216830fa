// Lists that several threads ask at once: every answer is that of one thread alone.
#include <atomic>
#include <string>

#include <gtest/gtest.h>

#include "drive_c.h"
#include "quillfence-file.h"
#include "side_by_side.h"
#include "vc_text.h"
#include "vc_w32.h"

namespace quillfence::testing {
namespace {

constexpr unsigned threads = 4;
constexpr unsigned rounds = 50;
constexpr char folder[] = "c:/quillfence";

int drop_line(int, const char *, ...) {
    return 0;
}

class threads_matching : public ::testing::Test {
  protected:
    threads_matching() {
        drive.write("c:/quillfence/list", "# who\nfriend@example.org\n*@example.com\n");
        drive.write("c:/quillfence/patterns", "^dsl-[0-9]+\\.example\\.net$\n");
        vc_set_log_function(drop_line);
    }
    ~threads_matching() override {
        vc_set_log_function(nullptr);
    }
    drive_c drive;
};

TEST_F(threads_matching, the_same_files) {
    const struct {
        const char *list, *value;
        list_matcher matcher;
        int found;
    } questions[] = {
        {"list", "FRIEND@example.org", _stricmp, 1},
        {"list", "foe@example.org", _stricmp, 0},
        {"list", "anybody@example.com", __wildcardmatch, 1},
        {"list", "anybody@example.net", __wildcardmatch, 0},
        {"patterns", "dsl-12.example.net", __regexmatch, 1},
        {"patterns", "dsl-x.example.net", __regexmatch, 0},
        {"missing", "a", _stricmp, 0},
    };
    std::atomic<unsigned> wrong = 0;
    side_by_side(threads, [&](unsigned) {
        for (unsigned i = 0; i < rounds; ++i) {
            for (const auto &asked : questions) {
                wrong += __file_contains_line(folder, asked.list, asked.value, asked.matcher) !=
                         asked.found;
            }
        }
    });
    EXPECT_EQ(wrong, 0u);
}

} // namespace
} // namespace quillfence::testing
