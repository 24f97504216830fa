#include "near_misses.h"

#include "call_context.h"
#include "drive_c.h"

namespace quillfence::testing {
namespace {

using data_files::near_entries_in;

// What is near to a value in a list of one line; "" for nothing.
std::string near(const std::string &entry, const std::string &value) {
    const auto found = near_entries_in("list", entry + '\n', value);
    return found.empty() ? "" : found[0].what;
}

TEST(near_misses, what_people_stumble_over) {
    static constexpr struct {
        const char *entry, *value, *want;
    } cases[] = {
        {"*@example.org", "x@mail.example.org", "parent_domain"},
        {"*@Example.ORG", "x@Mail.example.org", "parent_domain"},
        {"example.org", "x@mail.example.org", "parent_domain"},
        {"example.org", "x@example.org", "whole_domain"},
        {"@example.org", "x@example.org", "whole_domain"},
        {"*@org", "x@example.org", ""},
        {"x@example.org ", "x@example.org", "trailing_blank"},
        {"*@example.org\t", "x@example.org", "trailing_blank"},
        {"x@example.org\r\r", "x@example.org", "trailing_blank"},
        {"192.0.2.0/24", "192.0.2.7", "network"},
        {"192.0.2.0-192.0.2.9", "192.0.2.7", "network"},
        {"192.0.2.0/30", "192.0.2.7", ""},
        {"# example.org", "x@example.org", ""},
        {"other.example", "x@example.org", ""},
        {"y@example.org", "x@example.org", ""},
    };
    for (const auto &one : cases) {
        EXPECT_EQ(near(one.entry, one.value), one.want) << one.entry << " for " << one.value;
    }
}

TEST(near_misses, names_line_and_entry_and_not_too_many) {
    std::string bytes = "# nothing\r\n  example.org\r\n";
    const auto found = near_entries_in("c:/list", bytes, "x@example.org");
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].file, "c:/list");
    EXPECT_EQ(found[0].line, 2u);
    EXPECT_EQ(found[0].entry, "example.org");
    for (int i = 0; i < 100; ++i) {
        bytes += "example.org\n";
    }
    EXPECT_EQ(near_entries_in("c:/list", bytes, "x@example.org").size(),
              data_files::most_near_entries);
}

class near_misses_files : public drive_test {};

TEST_F(near_misses_files, a_missing_list_has_none) {
    EXPECT_TRUE(data_files::near_entries("c:/quillfence/list", "x@example.org").empty());
    drive.write("c:/quillfence/list", "example.org\n");
    EXPECT_EQ(data_files::near_entries("c:/quillfence/list", "x@example.org").size(), 1u);
}

TEST_F(near_misses_files, those_of_what_is_read_in_its_place_under_its_own_name) {
    drive.write("c:/quillfence/list", "example.org\n");
    drive.write("c:/quillfence/other", "# changed\n*@example.org\n");
    const file_substitute rows[] = {{"c:/quillfence/list", "c:/quillfence/other"},
                                    {nullptr, nullptr}};
    call_context context{.substitutes = rows};
    const call_scope scope(&context);
    EXPECT_TRUE(data_files::near_entries("c:/quillfence/list", "x@example.org").empty());
    const auto found = data_files::near_entries("c:/quillfence/list", "x@mail.example.org");
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].file, "c:/quillfence/list");
    EXPECT_EQ(found[0].line, 2u);
}

} // namespace
} // namespace quillfence::testing
