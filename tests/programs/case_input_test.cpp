#include "case_input.h"

#include <cstdio>

#include "drive_c.h"
#include "platform/file.h"
#include "tar_writer.h"
#include "text.h"

namespace quillfence::programs {
namespace {

constexpr char path[] = "c:/quillfence/case.json";
constexpr char short_case[] =
    "{\"schema\": \"quillfence.case/1\",\n \"description\": \"d\", \"transaction\": {}}\n";

class case_input_test : public testing::drive_test {
  protected:
    // Why there is no case; "" when there is one.
    static std::string refusal(const std::string &of) {
        try {
            case_input read(of);
            return "";
        } catch (const failure &why) {
            return why.what();
        }
    }
    struct tar_file {
        std::string name;
        std::string bytes;
    };
    void write_tar(const std::string &to, const std::vector<tar_file> &files) const {
        const platform::stream_ptr stream(platform::stream_open(to.c_str(), "wb"));
        decision::tar_writer writer(stream.get(), {});
        for (const tar_file &file : files) {
            writer.add_file(file.name, file.bytes, 0);
        }
        writer.finish();
        EXPECT_EQ(writer.problem(), "");
    }
};

TEST_F(case_input_test, a_document) {
    drive.write(path, short_case);
    const case_input read(path);
    EXPECT_EQ(read.what().description, "d");
    EXPECT_EQ(read.text(), short_case);
    EXPECT_FALSE(read.is_bundle());
    EXPECT_EQ(read.drive_c("/srv"), "/srv");
}

TEST_F(case_input_test, a_bundle_brings_its_drive) {
    write_tar(path, {{"case.json", short_case}, {"c/quillfence/from_blacklist", "*@x.example\n"}});
    std::string folder;
    {
        const case_input read(path);
        EXPECT_TRUE(read.is_bundle());
        EXPECT_EQ(read.what().description, "d");
        folder = read.drive_c("/srv");
        std::string list;
        EXPECT_EQ(data_files::read_file(folder + "/quillfence/from_blacklist", &list), 0u);
        EXPECT_EQ(list, "*@x.example\n");
    }
    std::string gone;
    EXPECT_NE(data_files::read_file(folder + "/quillfence/from_blacklist", &gone), 0u);
}

TEST_F(case_input_test, what_is_refused_names_file_line_and_member) {
    EXPECT_EQ(refusal(path), std::string(path) + ": No such file or directory");
    drive.write(path, "{\"schema\": \"quillfence.case/1\",\n \"transaction\": 1}");
    EXPECT_EQ(refusal(path), std::string(path) + ":2: transaction: is not an object");
    drive.write(path, "");
    EXPECT_EQ(refusal(path), std::string(path) + ":1: the document ends too early");
    drive.write(path, std::string((16u << 20) + 1, ' '));
    EXPECT_EQ(refusal(path), std::string(path) + ": is larger than a case may be (16 MiB)");
    write_tar(path, {{"case.json", "{}"}});
    EXPECT_TRUE(refusal(path).starts_with(std::string(path) + ":1: case.json: ")) << refusal(path);
    write_tar(path, {{"other.json", "{}"}});
    EXPECT_NE(refusal(path), "") << "a tar file that is no bundle";
}

TEST_F(case_input_test, a_line_is_kept_apart) {
    drive.write(path, "{\n!");
    try {
        case_input read(path);
        ADD_FAILURE();
    } catch (const wrong_case &why) {
        EXPECT_EQ(why.line, 2u);
        EXPECT_EQ(why.problem, "a member's name in quotes is missing");
    }
}

} // namespace
} // namespace quillfence::programs
