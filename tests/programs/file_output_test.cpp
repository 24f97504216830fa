#include "file_output.h"

#include <algorithm>
#include <string>

#include <gtest/gtest.h>

#include "call_watch.h"
#include "data_program.h"
#include "drive_c.h"
#include "line_input.h"

namespace quillfence::programs {
namespace {

constexpr char path[] = "c:/quillfence/out";

class output_test : public testing::drive_test {
  protected:
    // What is thrown when the file is written; empty for success.
    std::string written(const std::string &bytes) {
        try {
            file_output out(path);
            out.write(bytes.data(), bytes.size());
            EXPECT_EQ(drive.exists(path) ? drive.read(path) : "", before) << "before the commit";
            out.commit();
        } catch (const failure &what) {
            return what.what();
        }
        return "";
    }

    std::string before;
};

TEST_F(output_test, appears_with_the_commit) {
    EXPECT_EQ(written("new"), "");
    EXPECT_EQ(drive.read(path), "new");
    before = "new";
    EXPECT_EQ(written("newer"), "");
    EXPECT_EQ(drive.read(path), "newer");
}

TEST_F(output_test, is_synced_before_it_is_renamed) {
    testing::call_watch watch;
    EXPECT_EQ(written("new"), "");
    const auto calls = watch.take();
    const auto sync = std::find(calls.begin(), calls.end(), "file_sync");
    const auto replace = std::find(calls.begin(), calls.end(), "path_replace");
    EXPECT_TRUE(sync < replace && replace != calls.end());
}

TEST_F(output_test, a_failure_leaves_the_old_file_and_no_other) {
    before = "old";
    drive.write(path, before);
    const struct {
        const char *call;
        int n;
        uint32_t error;
        const char *want;
    } cases[] = {
        {"path_target", 1, 5, "c:/quillfence/out: could not be written: Permission denied"},
        {"temporary_create", 1, 5, "c:/quillfence/out: could not be written: Permission denied"},
        {"stream_open", 1, 5, "c:/quillfence/out: could not be written: Permission denied"},
        {"file_sync", 1, 112, "c:/quillfence/out: could not be written: No space left on device"},
        {"path_replace", 1, 5, "c:/quillfence/out: could not be written: Permission denied"},
    };
    for (const auto &c : cases) {
        testing::call_watch watch;
        watch.fail(c.call, c.n, c.error);
        EXPECT_EQ(written("new"), c.want) << c.call;
        EXPECT_EQ(watch.failed(), 1) << c.call;
        EXPECT_EQ(drive.read(path), "old") << c.call;
        EXPECT_FALSE(drive.exists(std::string(path) + ".tmp")) << c.call;
    }
}

TEST_F(output_test, a_file_that_a_killed_run_left_beside_it_goes) {
    drive.write(std::string(path) + ".tmp", "half of a file");
    EXPECT_EQ(written("new"), "");
    EXPECT_EQ(drive.read(path), "new");
    EXPECT_FALSE(drive.exists(std::string(path) + ".tmp"));
}

TEST_F(output_test, without_a_commit_nothing_stays) {
    testing::call_watch watch;
    { file_output out(path); }
    EXPECT_FALSE(drive.exists(path));
    EXPECT_EQ(watch.count("path_delete"), 1);
}

// --- Lines ---

class input_test : public testing::drive_test {
  protected:
    testing::lines lines_of(const std::string &bytes) {
        drive.write(path, bytes);
        line_input in(path);
        testing::lines lines;
        for (std::string_view line; in.next(&line);) {
            lines.emplace_back(line);
        }
        return lines;
    }
};

TEST_F(input_test, line_ends) {
    const struct {
        std::string bytes;
        testing::lines want;
    } cases[] = {
        {"", {}},
        {"\n", {""}},
        {"a", {"a"}},
        {"a\n", {"a"}},
        {"a\r\nb\n\nc", {"a", "b", "", "c"}},
        {"a\r", {"a\r"}},
        {"a\rb\n", {"a\rb"}},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(lines_of(c.bytes), c.want) << c.bytes;
    }
}

TEST_F(input_test, what_the_text_is_written_in_is_said) {
    set_program_name("quillfence-data");
    const struct {
        std::string bytes;
        testing::lines want;
        std::string said;
    } cases[] = {
        {"a\xC3\xA4\n", {"a\xC3\xA4"}, ""},
        {"\xEF\xBB\xBF"
         "a\nb",
         {"a", "b"},
         ": begins with a byte order mark, which is left out\n"},
        {std::string("\xFF\xFE"
                     "a\0\r\0\n\0b\0",
                     10),
         {"a", "b"},
         ": is a text in UTF-16, which is read as such\n"},
        {std::string("\xFE\xFF\0a\0\n", 6),
         {"a"},
         ": is a text in UTF-16, which is read as such\n"},
        {"\xFF\xFE", {}, ": is a text in UTF-16, which is read as such\n"},
    };
    for (const auto &c : cases) {
        ::testing::internal::CaptureStderr();
        EXPECT_EQ(lines_of(c.bytes), c.want);
        const std::string said = ::testing::internal::GetCapturedStderr();
        EXPECT_EQ(said, c.said.empty() ? "" : "quillfence-data: " + std::string(path) + c.said);
    }
}

TEST_F(input_test, long_lines_across_pieces) {
    const std::string a(300'000, 'a');
    const std::string b(1024 * 1024, 'b');
    EXPECT_EQ(lines_of(a + "\n" + b.substr(1) + "\r\nc"), (testing::lines{a, b.substr(1), "c"}));
    try {
        lines_of("a\n" + b + "bb\n");
        ADD_FAILURE() << "nothing was thrown";
    } catch (const failure &what) {
        EXPECT_STREQ(what.what(),
                     "c:/quillfence/out:2: the line is longer than 1 MiB; is this a text file?");
    }
}

TEST_F(input_test, the_input_is_not_written_over) {
    drive.write(path, "x");
    EXPECT_THROW(refuse_same_file(path, path), failure);
    EXPECT_NO_THROW(refuse_same_file(path, "c:/quillfence/other"));
    EXPECT_NO_THROW(refuse_same_file("-", path));
}

// What was thrown, "" for nothing.
std::string refused(const std::vector<std::string> &inputs,
                    const std::vector<std::string> &outputs) {
    try {
        refuse_overwriting(inputs, outputs);
    } catch (const failure &what) {
        return what.what();
    }
    return "";
}

TEST_F(input_test, nothing_that_a_run_reads_or_writes_is_written_over) {
    const std::string twice = ": would be written twice; name another file to write to";
    drive.write(path, "x");
    EXPECT_EQ(refused({"", "c:/quillfence/other", path}, {"", path}),
              std::string(path) + ": is the input itself; name another file to write to");
    EXPECT_EQ(refused({path}, {"c:/quillfence/new", "c:/quillfence/other", ""}), "");
    EXPECT_EQ(refused({}, {path, path}), path + twice);
    EXPECT_EQ(refused({}, {"c:/quillfence/new", "c:/quillfence/new"}),
              "c:/quillfence/new" + twice); // although it is not there yet
    EXPECT_EQ(refused({}, {"c:/quillfence/new", "c:/new"}), "");
    EXPECT_EQ(refused({}, {"", ""}), "");
}

} // namespace
} // namespace quillfence::programs
