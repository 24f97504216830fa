#include "range_commands.h"

#include "../matching/range_bytes.h"
#include "drive_c.h"
#include "output.h"

namespace quillfence::data_tool {
namespace {

using namespace testing;

constexpr char file[] = "c:/quillfence/exempt_ips.range";
const std::string prefix = std::string(file) + ": ";

class range_commands_test : public drive_test {
  protected:
    outcome list(bool json = false) const {
        return outcome_of(range_list, range_list_arguments{file, json});
    }
    static outcome add(const std::string &low, const std::string &high = "",
                       const std::string &comment = "") {
        return outcome_of(range_add, range_edit_arguments{file, low, high, comment});
    }
    static outcome del(const std::string &low, const std::string &high = "") {
        return outcome_of(range_del, range_edit_arguments{file, low, high, ""});
    }
};

TEST_F(range_commands_test, add_writes_the_engines_file) {
    EXPECT_EQ(add("10.1.2.0", "10.1.2.255", "lab").out, prefix + "10.1.2.0-10.1.2.255 added\n");
    EXPECT_EQ(drive.read(file), header(2, 1) + record({10, 1, 2, 0}, {10, 1, 2, 255}, "lab"));
    EXPECT_EQ(add("192.0.2.7").out, prefix + "192.0.2.7-192.0.2.7 added\n");
    EXPECT_EQ(add("10.1.0.0/16").out, prefix + "10.1.0.0-10.1.255.255 added\n");
    EXPECT_EQ(add("10.1.2.3/32").out, prefix + "10.1.2.3-10.1.2.3 added\n");
    EXPECT_EQ(list().out, "10.1.2.0-10.1.2.255  lab\n192.0.2.7-192.0.2.7\n"
                          "10.1.0.0-10.1.255.255\n10.1.2.3-10.1.2.3\n");
}

outcome add_all(const std::string &text, const drive_c &drive, const std::string &comment = "") {
    drive.write("c:/quillfence/in", text);
    return outcome_of(range_add_all, range_bulk_arguments{file, "c:/quillfence/in", comment});
}

// A record lies inside one /16.
TEST_F(range_commands_test, add_many) {
    add("192.0.2.7", "", "there");
    EXPECT_EQ(add_all("10.0.0.0/14 ; wide\r\n\n# a comment\n192.0.2.7\n10.1.0.0/16\n"
                      "172.16.255.254-172.18.0.1\n198.51.100.0/24",
                      drive, "new")
                  .out,
              prefix + "8 ranges added (1 was there already, 1 was named twice)\n");
    EXPECT_EQ(list().out, "192.0.2.7-192.0.2.7  there\n"
                          "10.0.0.0-10.0.255.255  new\n"
                          "10.1.0.0-10.1.255.255  new\n"
                          "10.2.0.0-10.2.255.255  new\n"
                          "10.3.0.0-10.3.255.255  new\n"
                          "172.16.255.254-172.16.255.255  new\n"
                          "172.17.0.0-172.17.255.255  new\n"
                          "172.18.0.0-172.18.0.1  new\n"
                          "198.51.100.0-198.51.100.255  new\n");
    EXPECT_EQ(add_all("# nothing\n", drive).out, prefix + "0 ranges added\n");
}

TEST_F(range_commands_test, add_many_or_none) {
    add("192.0.2.7");
    const std::string before = drive.read(file);
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(
        add_all("10.0.0.1\nmail.example\n10.0.0.1/8\n0.0.0.0/0\n2001:db8::1\n", drive).failure,
        prefix + "nothing was changed, since 4 lines are wrong");
    const std::string said = ::testing::internal::GetCapturedStderr();
    for (const char *const line :
         {"in:2: error: ", "in:3: error: ", "in:4: error: a range can't begin", "in:5: error: "}) {
        EXPECT_NE(said.find(line), std::string::npos) << line << said;
    }
    EXPECT_EQ(drive.read(file), before);
    drive.write(file, "not a range file, and longer than a header");
    EXPECT_EQ(add_all("10.0.0.1\n", drive).failure, prefix + "is no range file; it is left alone");
    drive.write(file, header(1, 0));
    EXPECT_EQ(add_all("10.0.0.1\n", drive).failure, prefix + "Legacy format detected, abort");
}

TEST_F(range_commands_test, a_text_can_not_be_large_without_end) {
    std::string text;
    for (int i = 0; i < 20; ++i) {
        text += "1.0.0.0-239.255.255.255\n";
    }
    EXPECT_TRUE(add_all(text + text + text + text, drive)
                    .failure.ends_with(": more than 1000000 in one edit; nothing was changed"));
    EXPECT_FALSE(drive.exists(file));
}

TEST_F(range_commands_test, a_comment_is_replaced) {
    add("10.1.2.0", "10.1.2.255", "lab");
    EXPECT_EQ(add("10.1.2.0/24").failure, prefix + "10.1.2.0-10.1.2.255: Entry already exists");
    EXPECT_EQ(add("10.1.2.0/24", "", "office").out, prefix + "10.1.2.0-10.1.2.255: comment set\n");
    EXPECT_EQ(list().out, "10.1.2.0-10.1.2.255  office\n");
}

TEST_F(range_commands_test, refused_ranges) {
    static constexpr struct {
        const char *low, *high, *want;
    } cases[] = {
        {"10.1.2", "",
         "10.1.2-10.1.2: Invalid arguments to add (Invalid IP address argument "
         "[10.1.2])"},
        {"2001:db8::1", "",
         "2001:db8::1-2001:db8::1: Invalid arguments to add (Sorry but this "
         "system does not yet support IPv6 range checks for address "
         "[2001:db8::1])"},
        {"0.0.0.0", "",
         "0.0.0.0-0.0.0.0: Invalid arguments to add (This system does not support "
         "broadcast addresses [0.0.0.0])"},
        {"10.1.0.0", "10.2.0.0", "10.1.0.0-10.2.0.0: Invalid ip range to add"},
        {"10.1.2.9", "10.1.2.1", "10.1.2.9-10.1.2.1: Invalid ip range to add"},
    };
    for (const auto &one : cases) {
        const outcome result = add(one.low, one.high);
        EXPECT_EQ(result.failure, prefix + one.want);
        EXPECT_EQ(result.status, exit_status::failed);
    }
    EXPECT_EQ(add("10.1.2.3", "", std::string(256, 'x')).failure,
              prefix + "10.1.2.3-10.1.2.3: Invalid arguments to add");
}

TEST_F(range_commands_test, refused_networks) {
    EXPECT_EQ(add("10.0.0.0/15").failure,
              "10.0.0.0/15: a range lies inside one /16; give a prefix from 16 to 32, and a larger "
              "network as several ranges");
    EXPECT_EQ(add("10.0.0.1/24").failure,
              "10.0.0.1/24: has bits set behind its prefix; write 10.0.0.0/24");
    for (const char *const network :
         {"10.0.0/24", "10.0.0.0/", "10.0.0.0/x", "/24", "10.0.0.0/240"}) {
        EXPECT_EQ(add(network).failure,
                  std::string(network) + ": is no network; write it as in 192.0.2.0/24");
    }
    EXPECT_FALSE(drive.exists(file));
}

TEST_F(range_commands_test, another_file_is_left_alone) {
    for (const std::string &bytes : {std::string("*@example.org\n"), std::string(300, 'x')}) {
        drive.write(file, bytes);
        EXPECT_EQ(add("10.1.2.3").failure, prefix + "is no range file; it is left alone");
        EXPECT_EQ(drive.read(file), bytes);
    }
    EXPECT_EQ(del("10.1.2.3").failure, prefix + "is no range file; it is left alone");
    EXPECT_EQ(list().failure, prefix + "is no range file; it is left alone");
}

TEST_F(range_commands_test, del) {
    add("10.1.2.0/24");
    add("10.1.3.0/24");
    EXPECT_EQ(
        del("10.1.2.0/25").failure,
        prefix + "10.1.2.0-10.1.2.127: there is no such range; see \"quillfence-data range list\"");
    EXPECT_EQ(del("10.1.2.0", "10.1.2.255").out, prefix + "10.1.2.0-10.1.2.255 removed\n");
    EXPECT_EQ(list().out, "10.1.3.0-10.1.3.255\n");
    EXPECT_FALSE(drive.exists(std::string(file) + ".new"));
    EXPECT_FALSE(drive.exists(std::string(file) + ".bak"));
}

TEST_F(range_commands_test, missing_files) {
    EXPECT_EQ(list().failure, prefix + "No such file or directory");
    EXPECT_EQ(del("10.1.2.3").failure, prefix + "No such file or directory");
    EXPECT_EQ(outcome_of(range_convert, std::string(file)).failure,
              prefix + "No such file or directory");
    EXPECT_FALSE(drive.exists(file));
}

TEST_F(range_commands_test, the_legacy_version) {
    drive.write(file, header(1, 2) + legacy_record({10, 1, 2, 0}, {10, 1, 2, 255}) +
                          legacy_record({192, 0, 2, 1}, {192, 0, 2, 9}));
    EXPECT_EQ(list().out, "10.1.2.0-10.1.2.255\n192.0.2.1-192.0.2.9\n");
    EXPECT_EQ(add("10.9.9.9").failure, prefix + "10.9.9.9-10.9.9.9: Legacy format detected, abort");
    EXPECT_EQ(outcome_of(range_convert, std::string(file)).out, prefix + "2 ranges converted\n");
    EXPECT_EQ(drive.read(file), header(2, 2) + record({10, 1, 2, 0}, {10, 1, 2, 255}) +
                                    record({192, 0, 2, 1}, {192, 0, 2, 9}));
    EXPECT_EQ(outcome_of(range_convert, std::string(file)).out,
              prefix + "is of the current version already\n");
}

TEST_F(range_commands_test, nothing_to_convert) {
    drive.write(file, "");
    EXPECT_EQ(outcome_of(range_convert, std::string(file)).out,
              prefix + "is empty; there is nothing to convert\n");
    EXPECT_EQ(drive.read(file), "");
}

TEST_F(range_commands_test, json) {
    EXPECT_EQ(add("10.1.2.0/24", "", "a \"b\" \\ \x01").status, exit_status::done);
    EXPECT_EQ(list(true).out, "[{\"low\":\"10.1.2.0\",\"high\":\"10.1.2.255\",\"comment\":"
                              "\"a \\\"b\\\" \\\\ \\\\x01\"}]\n");
    del("10.1.2.0/24");
    EXPECT_EQ(list(true).out, "[]\n");
}

TEST_F(range_commands_test, corrupt_files) {
    const std::string one = record({10, 1, 2, 0}, {10, 1, 2, 255});
    drive.write(file, header(2, 3) + one);
    EXPECT_EQ(list().failure, prefix + "is corrupt: its header counts 3 records, it holds 1");
    drive.write(file, header(2, 2) + one + record({10, 1, 0, 0}, {10, 2, 0, 0}));
    EXPECT_EQ(list().failure,
              prefix + "is corrupt: record 2, 10.1.0.0-10.2.0.0, is no range inside one /16");
    drive.write(file, header(2, 3) + one);
    EXPECT_EQ(add("10.1.3.0/24").failure,
              prefix + "10.1.3.0-10.1.3.255: Error traversing file (file " + file + " is corrupt)");
    EXPECT_EQ(drive.read(file), header(2, 3) + one);
}

// As an add that was killed leaves them.
TEST_F(range_commands_test, bytes_behind_the_records_are_cut) {
    const std::string one = record({10, 1, 2, 0}, {10, 1, 2, 255});
    drive.write(file, header(2, 1) + one + one);
    EXPECT_EQ(add("10.1.3.0/24").status, exit_status::done);
    EXPECT_EQ(drive.read(file), header(2, 2) + one + record({10, 1, 3, 0}, {10, 1, 3, 255}));
}

} // namespace
} // namespace quillfence::data_tool
