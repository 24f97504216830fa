#include "case_files.h"

#include <filesystem>

#include "call_watch.h"
#include "drive_c.h"
#include "platform/error_numbers.h"
#include "platform/file.h"
#include "text.h"

namespace quillfence::programs {
namespace {

using found = std::vector<case_file>;

constexpr char folder[] = "c:/quillfence/cases";

class case_files : public testing::drive_test {
  protected:
    void file(const std::string &name) const {
        drive.write(folder + ("/" + name), "{}");
    }
    // A link, or false where the system has none for us.
    static bool link(const std::string &to, const std::string &name) {
        char target[4096];
        char place[4096];
        EXPECT_EQ(platform::path_native(to.c_str(), target, sizeof target), 0u);
        EXPECT_EQ(platform::path_native(name.c_str(), place, sizeof place), 0u);
        std::error_code error;
        std::filesystem::create_directory_symlink(target, place, error);
        return !error;
    }
};

TEST_F(case_files, a_file_is_a_case_whatever_its_name) {
    file("a.txt");
    EXPECT_EQ(case_files_of({"c:/quillfence/cases/a.txt"}),
              (found{{"c:/quillfence/cases/a.txt", ""}}));
}

TEST_F(case_files, a_folder_is_searched_in_the_order_of_paths) {
    for (const char *name : {"b.json", "a.tar", "notes.txt", "json", "x/z.json", "x/y/deep.json",
                             "x.json", "x/README.md", "b.json.bak"}) {
        file(name);
    }
    const found want = {{"c:/quillfence/cases/a.tar", ""},
                        {"c:/quillfence/cases/b.json", ""},
                        {"c:/quillfence/cases/x.json", ""},
                        {"c:/quillfence/cases/x/y/deep.json", ""},
                        {"c:/quillfence/cases/x/z.json", ""}};
    EXPECT_EQ(case_files_of({folder}), want);
    EXPECT_EQ(case_files_of({std::string(folder) + '/'})[0].path, "c:/quillfence/cases/a.tar");
}

TEST_F(case_files, a_name_in_capitals_counts) {
    file("A.JSON");
    EXPECT_EQ(case_files_of({folder}), (found{{"c:/quillfence/cases/A.JSON", ""}}));
}

TEST_F(case_files, paths_keep_their_order) {
    file("a.json");
    file("b.json");
    EXPECT_EQ(case_files_of({"c:/quillfence/cases/b.json", folder}),
              (found{{"c:/quillfence/cases/b.json", ""},
                     {"c:/quillfence/cases/a.json", ""},
                     {"c:/quillfence/cases/b.json", ""}}));
}

TEST_F(case_files, what_is_missing_or_empty_is_named_and_the_rest_is_found) {
    file("a.json");
    drive.make_folder("c:/quillfence/empty");
    EXPECT_EQ(case_files_of({"c:/quillfence/none", "c:/quillfence/empty", folder}),
              (found{{"c:/quillfence/none", "No such file or directory"},
                     {"c:/quillfence/empty", "holds no cases (*.json, *.tar)"},
                     {"c:/quillfence/cases/a.json", ""}}));
}

TEST_F(case_files, a_folder_that_cant_be_read_is_named) {
    file("a.json");
    file("x/b.json");
    testing::call_watch watch;
    watch.fail("directory_open", 2, platform::error_access_denied);
    EXPECT_EQ(case_files_of({folder}), (found{{"c:/quillfence/cases/a.json", ""},
                                              {"c:/quillfence/cases/x", "Permission denied"}}));
    watch.fail("directory_next", 4, platform::error_access_denied);
    const found half = case_files_of({folder});
    EXPECT_EQ(half[0], (case_file{folder, "Permission denied"})) << "a listing that ends too early";
}

TEST_F(case_files, links_in_circles_come_to_an_end) {
    file("x/a.json");
    if (!link(folder, std::string(folder) + "/x/up") ||
        !link(std::string(folder) + "/x", std::string(folder) + "/again")) {
        GTEST_SKIP() << "no links to folders here";
    }
    const found got = case_files_of({folder});
    ASSERT_EQ(got.size(), 1u);
    EXPECT_TRUE(got[0].path.ends_with("/a.json")) << got[0].path;
    EXPECT_EQ(case_files_of({folder, folder}).size(), 2u) << "each path for itself";
}

} // namespace
} // namespace quillfence::programs
