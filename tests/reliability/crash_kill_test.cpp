// Every writer is killed at each of its system calls in turn.
#include <string>

#include <gtest/gtest.h>

#include "crash.h"
#include "crash_writers.h"

namespace quillfence::testing {
namespace {

class crash_kill : public drive_test {
  protected:
    void expect_no_leftovers(const crash_writer &writer) {
        for (const char *ending : {".tmp", ".new", ".bak"}) {
            EXPECT_FALSE(drive.exists(writer.path + ending)) << ending;
        }
    }
    void kill_at_each_call(const crash_writer &writer, unsigned first) {
        SCOPED_TRACE(writer.name);
        const auto prepare = [&] {
            return quietly([&] {
                writer.prepare(drive);
                return true;
            });
        };
        prepare();
        const std::string before = writer.seen(drive);
        EXPECT_TRUE(quietly(writer.write));
        const std::string after = writer.seen(drive);
        EXPECT_NE(before, after);
        unsigned olds = 0;
        unsigned news = 0;
        for (unsigned n = first; n < 2000; n += calls_between_kills * writer.calls_apart) {
            SCOPED_TRACE("killed at call " + std::to_string(n));
            prepare();
            const bool killed = killed_at(n, writer.name, [&] { writer.write(); });
            const std::string now = writer.seen(drive);
            EXPECT_TRUE(now == before || now == after) << now;
            EXPECT_EQ(log.errors(), lines{}) << "of the reader";
            ++(now == before ? olds : news);
            // The next edit finds its way.
            const bool was_old = now == before;
            const bool written = quietly(writer.write);
            EXPECT_TRUE(written || (!was_old && !writer.again_says));
            if (was_old || (writer.again_says && writer.again_edits)) {
                expect_no_leftovers(writer);
            }
            if (writer.lasts) {
                EXPECT_EQ(writer.seen(drive), after);
            }
            log.take();
            if (!killed) {
                EXPECT_EQ(now, after) << "not killed";
                break;
            }
        }
        EXPECT_GT(olds, 0u);
        EXPECT_GT(news, 0u);
    }
};

TEST_F(crash_kill, every_writer_at_every_call) {
    unsigned ordinal = 0;
    for (const crash_writer &writer : crash_writers()) {
        kill_at_each_call(writer, 1 + ordinal++ % calls_between_kills);
    }
}

} // namespace
} // namespace quillfence::testing

int main(int argc, char **argv) {
    using namespace quillfence::testing;
    if (const std::string name = doomed_operation(); !name.empty()) {
        for (const crash_writer &writer : crash_writers()) {
            if (writer.name == name) {
                writer.write();
            }
        }
        return 0;
    }
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
