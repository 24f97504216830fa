// Another server's registry, address map and folders in place of this system's.
#include "call_context.h"

#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "call_watch.h"
#include "log_capture.h"
#include "me_address_map.h"
#include "me_ip_whitelist.h"
#include "me_sender_whitelist.h"
#include "me_settings.h"
#include "registry.h"
#include "vc_text.h"

namespace quillfence::testing {
namespace {

constexpr char dword_on[] = {1, 0, 0, 0};
constexpr char directory[] = "c:\\mail";
constexpr char folder[] = "c:\\mail\\Postoffices\\x.example\\MAILBOXES\\bob\\Senders\\Whitelist";

registry_row text_row(const char *key, const char *value, const char *text) {
    return {
        key, value, true, platform::registry_text, text, static_cast<uint32_t>(strlen(text) + 1)};
}
registry_row named(const char *key, const char *value, bool found = true) {
    return {key, value, found, 0, nullptr, 0};
}
registry_row status_row(uint32_t size = 4) {
    return {me_connector_key, me_white_list_status, true, platform::registry_dword, dword_on, size};
}
const registry_row no_more = {nullptr, nullptr, false, 0, nullptr, 0};

class given_server : public logged_test {
  protected:
    std::vector<registry_row> registry{no_more};
    std::vector<address_map_row> map{{nullptr, nullptr}};
    std::vector<folder_row> folders{{nullptr, nullptr}};
    call_watch watch;

    void add(const registry_row &row) {
        registry.insert(registry.end() - 1, row);
    }
    template <class Function>
    auto with_rows(Function function) const {
        const server_rows rows = {registry.data(), map.data(), folders.data()};
        call_context context = {.evidence = nullptr, .dns = nullptr, .configuration = nullptr};
        context.server = &rows;
        const call_scope scope(&context);
        return function();
    }
    std::string configuration() const {
        return with_rows([] {
            const heap_string found(me_configuration_directory(me_key));
            return std::string(found ? found.get() : "(none)");
        });
    }
    int listed_ip(const char *ip) const {
        return with_rows([ip] { return is_mailenable_ip_whitelist(ip); });
    }
    int listed_sender(const char *sender) const {
        return with_rows(
            [sender] { return is_mailenable_sender_whitelist(sender, "bob@x.example"); });
    }
    void TearDown() override {
        for (const std::string &call : watch.take()) {
            for (const char *kind : {"registry_", "directory_", "path_", "file_"}) {
                EXPECT_FALSE(call.starts_with(kind)) << "nothing of this system is asked: " << call;
            }
        }
    }
};

TEST_F(given_server, what_is_not_there_is_missing) {
    EXPECT_EQ(configuration(), "(none)");
    EXPECT_EQ(listed_ip("192.0.2.1"), 0);
    EXPECT_EQ(listed_sender("a@x.example"), 0);
    add({me_key, nullptr, false, 0, nullptr, 0});
    EXPECT_EQ(configuration(), "(none)") << "a row that says so";
    add(named(me_key, me_configuration_value, false));
    EXPECT_EQ(configuration(), "(none)") << "and one of the value";
    EXPECT_EQ(log.errors(), lines{});
}

TEST_F(given_server, names_ignore_case_and_the_first_value_counts) {
    add(text_row("software\\MAIL ENABLE\\mail enable", "configuration DIRECTORY", directory));
    add(text_row(me_key, me_configuration_value, "c:\\other"));
    EXPECT_EQ(configuration(), directory);
}

TEST_F(given_server, a_value_that_can_not_be_used_has_the_registrys_own_line) {
    add({me_key, me_configuration_value, true, platform::registry_dword, dword_on, 4});
    EXPECT_EQ(configuration(), "(none)");
    registry = {no_more};
    const std::string longest(513, 'x');
    add(text_row(me_key, me_configuration_value, longest.c_str()));
    EXPECT_EQ(configuration(), "(none)");
    EXPECT_EQ(
        log.errors(),
        (lines{"vc_regkey_get_ex: error: expected key SOFTWARE\\Mail Enable\\Mail Enable value "
               "Configuration Directory to be type REG_SZ",
               "vc_regkey_get_ex: error: unable to query key SOFTWARE\\Mail Enable\\Mail Enable "
               "Configuration Directory"}));
    registry = {no_more};
    add({me_key, me_configuration_value, true, platform::registry_text, longest.data(), 512});
    EXPECT_EQ(configuration(), longest.substr(1)) << "it need not end in a NUL";
}

TEST_F(given_server, the_ip_whitelist) {
    add(named(me_white_list_key, "192.0.2.7"));
    add(named(me_white_list_key, "198.51.100.9", false));
    const std::string too_long(65, '*');
    add(named(me_white_list_key, too_long.c_str()));
    EXPECT_EQ(listed_ip("192.0.2.7"), 0) << "it is not switched on";
    add(status_row(3));
    EXPECT_EQ(listed_ip("192.0.2.7"), 0) << "not a number of four bytes";
    registry.erase(registry.end() - 2);
    add(status_row());
    add(named(me_white_list_key, "198.51.100.*"));
    EXPECT_EQ(listed_ip("192.0.2.7"), 1);
    EXPECT_EQ(listed_ip("198.51.100.9"), 1) << "by the pattern";
    EXPECT_EQ(listed_ip("198.51.101.9"), 0);
}

TEST_F(given_server, the_address_map) {
    map = {{"bob@x.example", "[SF:x.example/bob]"},
           {"bob@x.example", "[SF:other/bob]"},
           {"gone@x.example", nullptr},
           {nullptr, nullptr}};
    const auto found = [&](const char *address, int mode) {
        return with_rows([&] {
            const heap_string part(load_me_destination_address_ex(address, mode));
            return std::string(part ? part.get() : "(none)");
        });
    };
    EXPECT_EQ(found("bob@x.example", me_whole_destination), "[SF:x.example/bob]");
    EXPECT_EQ(found("bob@x.example", me_mailbox), "bob");
    EXPECT_EQ(found("gone@x.example", me_postoffice), "(none)");
    EXPECT_EQ(found("Bob@x.example", me_postoffice), "(none)");
    const std::string longest(2000, 'd');
    map[0].destination = longest.c_str();
    EXPECT_EQ(found("bob@x.example", me_whole_destination), std::string(1023, 'd'));
    EXPECT_EQ(watch.count("library_open"), 0);
}

TEST_F(given_server, a_mailboxs_folder) {
    map = {{"bob@x.example", "[SF:x.example/bob]"}, {nullptr, nullptr}};
    add(text_row(me_key, me_configuration_value, directory));
    EXPECT_EQ(listed_sender("z@a.example"), 0) << "no such folder";
    const char *const names[] = {"z@a.example.LST", "notes.txt", "b.example.LST", nullptr};
    folders = {{"C:\\Mail\\elsewhere", names}, {folder, names}, {nullptr, nullptr}};
    EXPECT_EQ(listed_sender("z@a.example"), 1);
    EXPECT_EQ(listed_sender("z@b.example"), 0) << "hidden behind a file that is no entry";
    folders[1].names = names + 2;
    EXPECT_EQ(listed_sender("z@b.example"), 1);
    folders[1].names = nullptr;
    EXPECT_EQ(listed_sender("z@b.example"), 0) << "the folder is missing";
}

} // namespace
} // namespace quillfence::testing
