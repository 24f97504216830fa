#include "tar_unpack.h"

#include <filesystem>

#include <gtest/gtest.h>

#include "call_watch.h"
#include "drive_c.h"
#include "open_handles.h"
#include "platform/error_numbers.h"
#include "tar_header.h"
#include "tar_writer.h"

namespace quillfence::decision {
namespace {

constexpr char archive[] = "c:/quillfence/in.tar";
constexpr char target[] = "c:/quillfence/target";

class tar_unpacking : public testing::drive_test {
  protected:
    std::string below(const std::string &name) const {
        return std::string(target) + "/" + name;
    }

    void have_archive(const std::string &behind = std::string(1024, '\0')) {
        drive.write(archive, packed("case.json", "{}") + packed("c/quillfence/list", "a@b\n") +
                                 tar_header_of({.name = "c/quillfence/bms", .folder = true}) +
                                 packed("d/empty", "") + behind);
    }
    static std::string packed(const std::string &name, const std::string &bytes) {
        return tar_header_of({.name = name, .size = bytes.size()}) + bytes +
               std::string(tar_padding(bytes.size()), '\0');
    }
};

TEST_F(tar_unpacking, into_a_new_folder) {
    have_archive();
    const unpacked_tar result = unpack_tar(archive, target);
    EXPECT_EQ(result.problem, "");
    EXPECT_EQ(result.entries.size(), 4u);
    EXPECT_EQ(result.entries[1], (tar_entry{.name = "c/quillfence/list", .size = 4}));
    EXPECT_EQ(drive.read(below("case.json")), "{}");
    EXPECT_EQ(drive.read(below("c/quillfence/list")), "a@b\n");
    EXPECT_EQ(drive.read(below("d/empty")), "");
    EXPECT_TRUE(std::filesystem::is_directory(drive.native(below("c/quillfence/bms"))));
}

TEST_F(tar_unpacking, into_an_empty_folder_only) {
    have_archive();
    drive.make_folder(target);
    EXPECT_EQ(unpack_tar(archive, target).problem, "");
    EXPECT_EQ(unpack_tar(archive, target).problem, "c:/quillfence/target: is not empty");
    drive.write("c:/quillfence/file", "");
    EXPECT_NE(unpack_tar(archive, "c:/quillfence/file").problem, "");
    EXPECT_EQ(unpack_tar(archive, "c:/quillfence/none/target").problem,
              "c:/quillfence/none/target: could not be made: No such file or directory");
}

TEST_F(tar_unpacking, nothing_of_a_bad_archive) {
    const struct {
        std::string behind;
        const char *want;
    } cases[] = {
        {"", "c:/quillfence/in.tar: is cut off in or behind \"d/empty\""},
        {packed("../escaped", "x") + std::string(1024, '\0'),
         "c:/quillfence/in.tar: \"../escaped\": leads out of its folder with \"..\""},
        {packed("d/Empty", "x") + std::string(1024, '\0'),
         "c:/quillfence/in.tar: \"d/Empty\": differs from \"d/empty\" in letter case alone"},
    };
    for (const auto &c : cases) {
        have_archive(c.behind);
        EXPECT_EQ(unpack_tar(archive, target).problem, c.want);
        EXPECT_FALSE(drive.exists(target));
        EXPECT_FALSE(drive.exists("c:/quillfence/escaped"));
    }
    EXPECT_EQ(unpack_tar("c:/quillfence/none.tar", target).problem,
              "c:/quillfence/none.tar: No such file or directory");
}

// A link that leads elsewhere is never written through: the folder is empty, or it is refused.
TEST_F(tar_unpacking, a_link_in_the_folder) {
    have_archive();
    drive.make_folder(target);
    drive.make_folder("c:/quillfence/elsewhere");
    std::error_code no_links;
    std::filesystem::create_directory_symlink(drive.native("c:/quillfence/elsewhere"),
                                              drive.native(below("c")), no_links);
    if (no_links) {
        return; // a system without links for everybody
    }
    EXPECT_EQ(unpack_tar(archive, target).problem, "c:/quillfence/target: is not empty");
    EXPECT_TRUE(std::filesystem::is_empty(drive.native("c:/quillfence/elsewhere")));
}

// Somebody puts something into the folder meanwhile: what is there already is never taken over.
TEST_F(tar_unpacking, what_appears_meanwhile_is_not_written_over) {
    have_archive();
    for (const char *const call : {"directory_create", "file_open"}) {
        drive.remove(target);
        testing::call_watch watch;
        // of directory_create the first is for the folder itself; file_open reads the archive twice
        watch.fail(call, call[0] == 'd' ? 2 : 3,
                   call[0] == 'd' ? platform::error_already_exists : platform::error_file_exists);
        const std::string problem = unpack_tar(archive, target).problem;
        EXPECT_EQ(watch.failed(), 1);
        EXPECT_NE(problem.find("could not be made: File exists"), std::string::npos) << problem;
    }
}

TEST_F(tar_unpacking, a_system_that_fails) {
    have_archive();
    const int handles = testing::open_handles();
    for (int n = 1;; ++n) {
        drive.remove(target);
        testing::call_watch watch;
        watch.fail_any(n, platform::error_disk_full);
        const std::string problem = unpack_tar(archive, target).problem;
        EXPECT_EQ(testing::open_handles(), handles);
        if (!watch.failed()) {
            EXPECT_EQ(problem, "");
            EXPECT_GT(n, 20);
            break;
        }
        const auto calls = watch.take();
        const std::string failed = calls[static_cast<size_t>(n) - 1];
        const bool harmless = failed == "file_close" && problem.empty(); // of the archive
        EXPECT_TRUE(harmless || problem.find("c:/quillfence/") == 0) << failed << ": " << problem;
    }
}

} // namespace
} // namespace quillfence::decision
