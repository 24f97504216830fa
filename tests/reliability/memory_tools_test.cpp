// quillfence-data without memory, the standard library's included (counted_new.cpp).
#include <cerrno>
#include <cstring>

#include "failing_memory.h"
#include "fault_sweep.h"
#include "open_handles.h"
#include "tool_drive.h"

namespace quillfence::testing {
namespace {

class memory_tools : public tool_test {
  protected:
    // Runs the program with its n-th allocation failing, for each n from `first` on in steps, and
    // judges each run; the last one, in which none failed, is returned.
    template <class Judge>
    ending sweep(const words &arguments, unsigned first, unsigned step, bool all_after,
                 Judge judge) {
        const int handles = open_handles();
        const drive_contents before = contents_of(drive);
        constexpr unsigned limit = 100000;
        for (unsigned n = first; n < limit; n += step) {
            SCOPED_TRACE("allocation " + std::to_string(n));
            bool fired = false;
            const ending run = run_program(arguments, [&](int argc, char **argv) {
                const failing_allocation failing(n, all_after);
                const int status = data_tool::run(argc, argv);
                fired = failing.fired();
                return status;
            });
            EXPECT_EQ(open_handles(), handles);
            if (!fired) {
                return run;
            }
            judge(run, changed_files(before, contents_of(drive)));
        }
        ADD_FAILURE() << "more than " << limit << " allocations";
        return {};
    }

    // About as many allocations as it takes to understand a command line; a run begins with them.
    static unsigned allocations_of_the_command_line() {
        const unsigned long before = allocations_made();
        run_program({"verify"});
        return static_cast<unsigned>(allocations_made() - before) * 9 / 10;
    }
};

// A question is answered rightly, or there is no answer.
TEST_F(memory_tools, questions) {
    const unsigned first = allocations_of_the_command_line();
    for (const question &asked : questions()) {
        SCOPED_TRACE(asked.name);
        const ending right = run_program(asked.arguments);
        const auto judge = [&](const ending &run, const std::string &changed) {
            EXPECT_EQ(changed, "");
            EXPECT_TRUE(right.out.starts_with(run.out)) << run.out;
            if (run.status != right.status || run.out != right.out) {
                EXPECT_EQ(run.status, exit_status::failed) << run.out;
                EXPECT_NE(run.err, "");
            }
        };
        const ending last = sweep(asked.arguments, first, 1, false, judge);
        EXPECT_EQ(last.out, right.out);
        EXPECT_EQ(last.status, right.status);
    }
}

// What could not be looked at for lack of memory is no file in order.
TEST_F(memory_tools, verify) {
    const words arguments = {"verify", root};
    const ending right = run_program(arguments);
    EXPECT_EQ(right.status, exit_status::done) << right.out;
    const auto judge = [&](const ending &run, const std::string &changed) {
        EXPECT_EQ(changed, "");
        if (run.status == exit_status::no) {
            const std::string told = std::string("can't be listed: ") + strerror(ENOMEM);
            EXPECT_NE(run.out.find(told), std::string::npos) << run.out;
        } else if (run.status != exit_status::done) {
            EXPECT_EQ(run.status, exit_status::failed);
            EXPECT_NE(run.err, "");
        } else {
            EXPECT_EQ(run.out + run.err, right.out + right.err);
        }
    };
    const ending last = sweep(arguments, allocations_of_the_command_line(), 1, false, judge);
    EXPECT_EQ(last.out, right.out);
}

// Even when no memory comes at all any more the program ends by itself, and says why.
TEST_F(memory_tools, nothing_left) {
    run_program({"verify"}); // what the first exception of a program allocates is there
    const words arguments = {"verify", root};
    sweep(arguments, 1, 1, true, [](const ending &run, const std::string &changed) {
        EXPECT_EQ(changed, "");
        EXPECT_EQ(run.status, exit_status::failed);
        EXPECT_TRUE(run.err.starts_with("quillfence-data: there is not enough memory")) << run.err;
    });
}

// What makes a file makes all of it or nothing.
TEST_F(memory_tools, makers) {
    const unsigned first = allocations_of_the_command_line();
    drive.write(below("addresses"), "10.0.0.0/8\n11.1.2.3\n");
    drive.write(below("patterns"), "^dyn[0-9]+\\.\n");
    drive.write(below("out"), "old");
    const words makers[] = {
        {"blockmap", "build", below("addresses"), below("out")},
        {"regex", "compile", below("patterns"), below("out")},
        {"counter", "show", "--html", below("out"), below("log")},
    };
    for (const words &arguments : makers) {
        SCOPED_TRACE(arguments[0]);
        EXPECT_EQ(run_program(arguments).status, exit_status::done);
        const std::string made = drive.read(below("out"));
        drive.write(below("out"), "old");
        sweep(arguments, first, 1, false, [&](const ending &run, const std::string &changed) {
            const std::string now = drive.read(below("out"));
            EXPECT_TRUE(now == "old" || now == made) << now.substr(0, 100);
            EXPECT_TRUE(changed.empty() || changed == " " + below("out")) << changed;
            if (now == "old") {
                EXPECT_EQ(run.status, exit_status::failed);
                EXPECT_NE(run.err, "");
            }
            drive.write(below("out"), "old");
        });
    }
}

} // namespace
} // namespace quillfence::testing
