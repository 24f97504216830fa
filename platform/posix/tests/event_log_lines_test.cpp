// Events of several writers in the file that QUILLFENCE_EVENT_LOG names.
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "drive_c.h"
#include "platform/event_log.h"
#include "platform/process.h"

namespace quillfence::platform {
namespace {

constexpr uint32_t event_id = 0x40020100;
constexpr char log_path[] = "c:/quillfence/events";

// Each has an opening of its own, as two processes have. Windows promises the same of a handle that
// may only append; Wine, where its build is tested, does not keep that.
TEST(event_log_file, lines_of_several_stay_whole_and_in_order) {
    const testing::drive_c drive;
    static constexpr int writers = 3;
    static constexpr int lines_each = 300;
    environment_set("QUILLFENCE_EVENT_LOG", log_path);
    std::vector<std::thread> running;
    for (int writer = 0; writer < writers; ++writer) {
        running.emplace_back([writer] {
            platform::event_log *const log = event_log_open("Quillfence");
            const std::string ident(1, static_cast<char>('a' + writer));
            for (int line = 0; line < lines_each; ++line) {
                const std::string message = std::to_string(line) + std::string(500, ident[0]);
                event_log_report(log, event_type::error, event_id, ident.c_str(), message.c_str());
            }
            event_log_close(log);
        });
    }
    for (std::thread &one : running) {
        one.join();
    }
    environment_set("QUILLFENCE_EVENT_LOG", nullptr);
    std::istringstream written(drive.read(log_path));
    int next[writers] = {};
    for (std::string line; std::getline(written, line);) {
        ASSERT_GT(line.size(), 6u);
        const int writer = line[6] - 'a';
        ASSERT_TRUE(writer >= 0 && writer < writers) << line;
        ASSERT_EQ(line, std::string("error ") + line[6] + ": " + std::to_string(next[writer]++) +
                            std::string(500, line[6]));
    }
    for (const int count : next) {
        EXPECT_EQ(count, lines_each);
    }
}

} // namespace
} // namespace quillfence::platform
