// The export that stands for the registry on Linux.
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "drive_c.h"
#include "failing_memory.h"
#include "platform/complaint.h"
#include "platform/error_numbers.h"
#include "platform/process.h"
#include "platform/registry.h"
#include "test_registry.h"

namespace quillfence::platform {
namespace {

using namespace std::string_literals;

class registry_file : public ::testing::Test {
  protected:
    testing::test_registry store;

    static uint32_t open(const char *path = testing::test_key) {
        registry_key *key = nullptr;
        const uint32_t error =
            registry_open(registry_root::local_machine, path, registry_read, &key);
        EXPECT_EQ(key != nullptr, error == 0);
        registry_close(key);
        return error;
    }
    static uint32_t create() {
        registry_key *key = nullptr;
        const uint32_t error =
            registry_create(registry_root::local_machine, testing::test_key, registry_write, &key);
        registry_close(key);
        return error;
    }
    void write(const std::string &bytes) const {
        std::ofstream(store.file(), std::ios::binary) << bytes;
    }
    std::string read() const {
        std::ifstream stream(store.file(), std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), {}};
    }
};

TEST_F(registry_file, a_missing_file_is_an_empty_registry_and_stays_missing) {
    std::filesystem::remove(store.file());
    EXPECT_EQ(open(), uint32_t{error_file_not_found});
    EXPECT_FALSE(std::filesystem::exists(store.file()));
    environment_set("QUILLFENCE_REGISTRY", "/no/such/folder/export.reg");
    EXPECT_EQ(open(), uint32_t{error_file_not_found});
}

TEST_F(registry_file, without_a_name_it_is_empty_and_can_not_be_written) {
    for (const char *name : {"", static_cast<const char *>(nullptr)}) {
        environment_set("QUILLFENCE_REGISTRY", name);
        EXPECT_EQ(open(), uint32_t{error_file_not_found});
        EXPECT_EQ(create(), uint32_t{error_access_denied});
    }
}

TEST_F(registry_file, what_is_no_export_is_told) {
    write("an error page\n");
    EXPECT_EQ(open(), uint32_t{error_not_registry_file});
    EXPECT_EQ(create(), uint32_t{error_not_registry_file});
    EXPECT_EQ(read(), "an error page\n");
    environment_set("QUILLFENCE_REGISTRY", "/");
    EXPECT_EQ(open(), uint32_t{error_not_registry_file});
    environment_set("QUILLFENCE_REGISTRY", "/dev/null");
    EXPECT_EQ(open(), uint32_t{error_not_registry_file});
}

TEST_F(registry_file, a_named_pipe_is_not_waited_for) {
    std::filesystem::remove(store.file());
    ASSERT_EQ(mkfifo(store.file().c_str(), 0600), 0);
    EXPECT_EQ(open(), uint32_t{error_not_registry_file});
    EXPECT_EQ(create(), uint32_t{error_not_registry_file});
}

std::vector<std::string> told;

void tell(event_type type, const char *function, const char *message) {
    EXPECT_EQ(type, event_type::error);
    told.push_back(std::string(function) + ": " + message);
}

TEST_F(registry_file, what_can_not_be_read_is_told_once) {
    const std::string file = store.file();
    set_complaint_listener(tell);
    for (const char *name : {"/no/such/folder/export.reg", "/no-such-export.reg", "/", "c:/none"}) {
        environment_set("QUILLFENCE_REGISTRY", name);
        open();
        open();
    }
    environment_set("QUILLFENCE_REGISTRY", file.c_str());
    write("an error page\n");
    open();
    open();
    write("");
    open();
    environment_set("QUILLFENCE_REGISTRY", "");
    open();
    set_complaint_listener(nullptr);
    const std::string begin = "read_registry: QUILLFENCE_REGISTRY names nothing readable (";
    EXPECT_EQ(told, (std::vector<std::string>{
                        begin + "No such file or directory): /no/such/folder/export.reg",
                        begin + "No such file or directory): /no-such-export.reg",
                        begin + "not a registry export): /",
                        begin + "No such file or directory): c:/none",
                        begin + "not a registry export): " + file}));
}

TEST_F(registry_file, one_that_is_about_to_be_made_is_not_told) {
    std::filesystem::remove(store.file());
    told.clear();
    set_complaint_listener(tell);
    EXPECT_EQ(create(), 0U);
    set_complaint_listener(nullptr);
    EXPECT_EQ(told, std::vector<std::string>{});
    EXPECT_EQ(open(), 0U);
}

TEST_F(registry_file, has_any_letter_case_on_a_drive) {
    const testing::drive_c drive;
    drive.write("c:/Server.REG", "REGEDIT4\n[HKLM\\SOFTWARE\\Quillfence-test]\n");
    environment_set("QUILLFENCE_REGISTRY", "c:/server.reg");
    EXPECT_EQ(open(), 0U);
    EXPECT_EQ(create(), 0U);
    EXPECT_FALSE(drive.exists("c:/server.reg"));
}

TEST_F(registry_file, may_lie_on_a_drive) {
    const std::filesystem::path file = store.file();
    environment_set("QUILLFENCE_DRIVE_C", file.parent_path().string().c_str());
    environment_set("QUILLFENCE_REGISTRY", ("c:\\" + file.filename().string()).c_str());
    write("REGEDIT4\n[HKLM\\SOFTWARE\\Quillfence-test]\n");
    EXPECT_EQ(open(), 0U);
    environment_set("QUILLFENCE_DRIVE_C", nullptr);
}

TEST_F(registry_file, keeps_every_byte_that_was_there) {
    const std::string before =
        "REGEDIT4\n; by hand\n[HKLM\\SOFTWARE\\Quillfence-test]\n\"a\"=\"\xFC\"\n";
    write(before);
    store.set_dword(testing::test_key, "b", 7);
    const std::string after = before + "\r\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\Quillfence-test]\r\n"
                                       "\"b\"=dword:00000007\r\n";
    EXPECT_EQ(read(), after);
    store.create(testing::test_key);
    EXPECT_EQ(read(), after) << "a key that is there is not written again";
}

TEST_F(registry_file, one_that_was_cut_off_inside_a_unit_is_read_and_left_alone) {
    std::string units = "\xFF\xFE";
    for (const char c : "REGEDIT4\n[HKLM\\SOFTWARE\\Quillfence-test\\below]"s) {
        units += {c, '\0'};
    }
    write(units + "x");
    EXPECT_EQ(open("SOFTWARE\\Quillfence-test\\below"), 0U);
    EXPECT_EQ(open("SOFTWARE\\Quillfence-test"), 0U);
    registry_key *key = nullptr;
    EXPECT_EQ(
        registry_create(registry_root::local_machine, "SOFTWARE\\Other", registry_write, &key),
        uint32_t{error_not_registry_file});
    EXPECT_EQ(key, nullptr);
    EXPECT_EQ(registry_delete(registry_root::local_machine, testing::test_key, registry_read),
              uint32_t{error_not_registry_file});
    EXPECT_EQ(read(), units + "x");
}

TEST_F(registry_file, every_open_reads_afresh) {
    write("REGEDIT4\n");
    EXPECT_EQ(open(), uint32_t{error_file_not_found});
    write("REGEDIT4\n[HKLM\\SOFTWARE\\Quillfence-test]\n");
    EXPECT_EQ(open(), 0U);
}

TEST_F(registry_file, opening_without_memory) {
    write("REGEDIT4\n[HKLM\\SOFTWARE\\Quillfence-test]\n\"a\"=\"b\"\n");
    registry_key *key = nullptr;
    uint32_t error = 0;
    EXPECT_GT(testing::sweep_allocations(
                  [&] {
                      error = registry_open(registry_root::local_machine, testing::test_key,
                                            registry_read, &key);
                  },
                  [&](unsigned n) {
                      EXPECT_EQ(error, uint32_t{error_not_enough_memory}) << n;
                      EXPECT_EQ(key, nullptr) << n;
                  }),
              4U);
    EXPECT_EQ(error, 0U);
    registry_close(key);
}

} // namespace
} // namespace quillfence::platform
