#include "metrics_file.h"

#include <gtest/gtest.h>

#include <functional>
#include <thread>
#include <vector>

#include "call_watch.h"
#include "drive_c.h"
#include "platform/error_numbers.h"

namespace quillfence::testing {
namespace {

using namespace std::chrono_literals;
using service::metrics_file;
using service::service_metrics;
using service::write_metrics_file;

constexpr char path[] = "c:/metrics/quillfence.prom";

class metrics_file_test : public ::testing::Test {
  protected:
    void SetUp() override {
        drive.make_folder("c:/metrics");
    }

    metrics_file::teller teller() {
        return [this](bool is_trouble, std::string_view text) {
            const std::lock_guard held(lock);
            told.push_back((is_trouble ? "trouble: " : "") + std::string(text));
        };
    }
    std::vector<std::string> all_told() {
        const std::lock_guard held(lock);
        return told;
    }

    drive_c drive;
    service_metrics metrics;

  private:
    std::mutex lock;
    std::vector<std::string> told;
};

// Waits for what another thread does, half a minute at most.
bool comes(const std::function<bool()> &is_so) {
    for (int i = 0; i < 3000 && !is_so(); ++i) {
        std::this_thread::sleep_for(10ms);
    }
    return is_so();
}

TEST_F(metrics_file_test, is_written_at_once) {
    const metrics_file file(path, metrics, teller(), 1h);
    EXPECT_TRUE(comes([this] { return drive.exists(path); }));
}

TEST_F(metrics_file_test, is_written_again_and_again) {
    const metrics_file file(path, metrics, teller(), 10ms);
    EXPECT_TRUE(comes([this] { return drive.exists(path); }));
    metrics.in_doubt(service::doubt::overload);
    EXPECT_TRUE(comes([this] {
        return drive.read(path).find("{reason=\"overload\"} 1\n") != std::string::npos;
    }));
}

TEST_F(metrics_file_test, is_written_a_last_time_at_the_end) {
    {
        const metrics_file file(path, metrics, teller(), 1h);
        ASSERT_TRUE(comes([this] { return drive.exists(path); }));
        metrics.log_written(true);
    }
    EXPECT_NE(drive.read(path).find("{result=\"written\"} 1\n"), std::string::npos);
    EXPECT_FALSE(drive.exists(std::string(path) + ".tmp"));
    EXPECT_EQ(all_told(), std::vector<std::string>());
}

// A folder that is gone is told once, not with each of the many tries, and so is its return.
TEST_F(metrics_file_test, trouble_is_told_once) {
    drive.remove("c:/metrics");
    const metrics_file file(path, metrics, teller(), 1ms);
    ASSERT_TRUE(comes([this] { return !all_told().empty(); }));
    std::this_thread::sleep_for(50ms);
    const std::string trouble = std::string("trouble: ") + path +
                                ": the metrics can't be written: No such file or directory";
    EXPECT_EQ(all_told(), std::vector{trouble});
    drive.make_folder("c:/metrics");
    ASSERT_TRUE(comes([this] { return all_told().size() > 1; }));
    EXPECT_EQ(all_told(),
              (std::vector{trouble, std::string(path) + ": the metrics are written again"}));
}

// Whichever call fails, the old file stands whole or the new one does, and nothing is left beside.
TEST_F(metrics_file_test, a_failure_at_any_call_leaves_a_whole_file) {
    bool failed = true;
    for (int n = 1; failed; ++n) {
        ASSERT_LT(n, 100);
        drive.write(path, "old 1\n");
        uint32_t error = 0;
        {
            call_watch watch;
            watch.fail_any(n, platform::error_disk_full);
            error = write_metrics_file(path, "new 2\n");
            failed = watch.failed() > 0;
        }
        const std::string found = drive.read(path);
        EXPECT_TRUE(found == "old 1\n" || found == "new 2\n") << n << ": " << found;
        if (!failed) {
            EXPECT_EQ(error, 0u);
            EXPECT_EQ(found, "new 2\n");
        }
        drive.remove(path);
    }
}

} // namespace
} // namespace quillfence::testing
