#include "configuration.h"

#include <fstream>
#include <set>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

namespace quillfence::testing {
namespace {

std::string contents_of(const std::string &path) {
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

TEST(configuration, each_file_lies_in_the_tree_and_is_there_once) {
    std::set<std::string> paths;
    for (const configuration_file &file : configuration_files) {
        EXPECT_TRUE(std::string(file.path).starts_with(quillfence_base_dir)) << file.path;
        EXPECT_TRUE(paths.insert(file.path).second) << file.path;
        EXPECT_EQ(find_configuration_file(path_in_base(file)), &file) << file.path;
    }
}

TEST(configuration, names) {
    EXPECT_STREQ(path_in_base(configured("bms/control/lists_to_update")),
                 "bms/control/lists_to_update");
    EXPECT_STREQ(name_in_folder(configured("bms/control/lists_to_update")), "lists_to_update");
    EXPECT_STREQ(name_in_folder(configured("rbl.enabled")), "rbl.enabled");
    for (const char *path : {"", "enabled", "control/Enabled", "/rbl.enabled", "rbl.enabled/"}) {
        EXPECT_EQ(find_configuration_file(path), nullptr) << path;
    }
}

// Each file's format has a page, and the page speaks of the file.
TEST(configuration, pages) {
    for (const configuration_file &file : configuration_files) {
        const std::string page = contents_of(std::string(QUILLFENCE_DOCS "/formats/") + file.page);
        EXPECT_NE(page.find(name_in_folder(file)), std::string::npos)
            << file.page << " does not name " << path_in_base(file);
    }
}

TEST(configuration, companions_of_lists) {
    for (const configuration_file &file : configuration_files) {
        SCOPED_TRACE(file.path);
        const bool list = file.kind == file_kind::addresses || file.kind == file_kind::ips ||
                          file.kind == file_kind::other_list;
        EXPECT_EQ(is_list(file), list);
        EXPECT_EQ(file.range_file != nullptr, file.kind == file_kind::ips);
        if (file.range_file) {
            const configuration_file *ranges = find_configuration_file(file.range_file);
            ASSERT_NE(ranges, nullptr) << file.range_file;
            EXPECT_EQ(ranges->kind, file_kind::ranges);
        }
        if (file.opposite) {
            const configuration_file *opposite = find_configuration_file(file.opposite);
            ASSERT_NE(opposite, nullptr) << file.opposite;
            EXPECT_EQ(opposite->opposite, std::string(path_in_base(file)));
            EXPECT_EQ(opposite->kind, file.kind);
            EXPECT_NE(opposite->decides, file.decides) << "one of the two is asked first";
        }
    }
}

// Exemptions are asked before anything may stop the mail.
TEST(configuration, white_lists_decide) {
    EXPECT_TRUE(configured("from_whitelist").decides);
    EXPECT_TRUE(configured("exempt_ips").decides);
}

} // namespace
} // namespace quillfence::testing
