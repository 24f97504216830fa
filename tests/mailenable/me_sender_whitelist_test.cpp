#include "me_sender_whitelist.h"

#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "call_watch.h"
#include "drive_c.h"
#include "failing_memory.h"
#include "me_address_map.h"
#include "platform/error_numbers.h"
#include "test_registry.h"

namespace quillfence::testing {
namespace {

constexpr char mail_key[] = "SOFTWARE\\Mail Enable\\Mail Enable";
constexpr char configuration[] = "c:\\quillfence\\Mail Enable\\Config";
constexpr char recipient[] = "bob@example.net";
// The whitelist of the mailbox to which the stand-in for the address map delivers the recipient.
const std::string whitelist = "c:/quillfence/Mail Enable/Config/Postoffices/example.net/MAILBOXES/"
                              "bob/Senders/Whitelist/";

class me_sender_whitelist : public drive_test {
  protected:
    test_registry store;

    me_sender_whitelist() {
        store.set_text(mail_key, "Configuration Directory", configuration);
    }
    ~me_sender_whitelist() override {
        forget_address_map();
    }
    void list(const std::string &name) const {
        drive.write(whitelist + name, "");
    }
    static int listed(const char *sender, const char *to = recipient) {
        return is_mailenable_sender_whitelist(sender, to);
    }
};

TEST_F(me_sender_whitelist, an_address_is_an_entry) {
    list("alice@example.com.LST");
    EXPECT_EQ(listed("alice@example.com"), 1);
    EXPECT_EQ(listed("ALICE@EXAMPLE.COM"), 1);
    EXPECT_EQ(listed("carol@example.com"), 0);
    EXPECT_EQ(listed("xalice@example.com"), 0);
    EXPECT_EQ(listed("alice@example.com", "carol@example.net"), 0) << "another mailbox";
    EXPECT_EQ(listed("alice@example.com", "bob@example.org"), 0) << "another postoffice";
}

TEST_F(me_sender_whitelist, a_domain_is_an_entry_for_all_of_its_senders) {
    list("example.com.LST");
    EXPECT_EQ(listed("alice@example.com"), 1);
    EXPECT_EQ(listed("carol@example.com"), 1);
    EXPECT_EQ(listed("alice@mail.example.com"), 0);
    EXPECT_EQ(listed("alice@example.com.org"), 0);
    EXPECT_EQ(listed("example.com"), 0);
}

TEST_F(me_sender_whitelist, a_file_that_is_no_entry_hides_what_stands_behind_it) {
    list("a@example.com.LST");
    list("notes.txt");
    list("z@example.com.LST");
    EXPECT_EQ(listed("a@example.com"), 1);
    EXPECT_EQ(listed("z@example.com"), 0);
    drive.remove(whitelist + "notes.txt");
    EXPECT_EQ(listed("z@example.com"), 1);
}

TEST_F(me_sender_whitelist, the_extension_is_exact) {
    for (const char *name :
         {"README", "b@example.com", "b.lst", "b.Lst", "b.LST1", "b.LST.bak", "b."}) {
        list(name);
        list("z@example.com.LST");
        // Windows drops a dot at the end of a name; then there is no dot at all.
        EXPECT_EQ(listed("z@example.com"), 0) << name;
        drive.remove(whitelist + name);
        EXPECT_EQ(listed("z@example.com"), 1) << name;
    }
}

TEST_F(me_sender_whitelist, the_last_dot_counts) {
    list("example.LST.LST");
    EXPECT_EQ(listed("a@example.LST"), 1);
    EXPECT_EQ(listed("a@example"), 0);
}

TEST_F(me_sender_whitelist, folders_are_passed_over) {
    drive.make_folder(whitelist + "b");
    drive.make_folder(whitelist + "carol@example.com.LST");
    list("z@example.com.LST");
    EXPECT_EQ(listed("z@example.com"), 1);
    EXPECT_EQ(listed("carol@example.com"), 0);
}

TEST_F(me_sender_whitelist, an_entry_that_is_all_extension) {
    list(".LST");
    EXPECT_EQ(listed("a@example.com"), 0) << "it is the empty domain";
    EXPECT_EQ(listed("a@"), 1);
}

TEST_F(me_sender_whitelist, the_order_is_without_regard_to_case) {
    list("B.txt");
    list("a@example.com.LST");
    list("C@example.com.LST");
    EXPECT_EQ(listed("a@example.com"), 1);
    EXPECT_EQ(listed("C@example.com"), 0);
}

TEST_F(me_sender_whitelist, ten_thousand_entries) {
    drive.make_folder(whitelist);
    for (int i = 0; i < 10000; ++i) {
        std::ofstream(drive.native(whitelist + "user" + std::to_string(i) + "@example.com.LST"));
    }
    EXPECT_EQ(listed("user0@example.com"), 1);
    EXPECT_EQ(listed("user9999@example.com"), 1);
    EXPECT_EQ(listed("user10000@example.com"), 0);
}

TEST_F(me_sender_whitelist, what_is_missing_lists_nobody) {
    EXPECT_EQ(listed("a@example.com"), 0) << "no directory";
    drive.make_folder(whitelist);
    EXPECT_EQ(listed("a@example.com"), 0) << "an empty directory";
    drive.remove(whitelist.substr(0, whitelist.size() - 1));
    drive.write(whitelist.substr(0, whitelist.size() - 1), "");
    EXPECT_EQ(listed("a@example.com"), 0) << "a file in its place";
    for (const char *to :
         {"unknown@example.net", "no-slash@x", "no-colon@x", "no-bracket@x", "nobody"}) {
        EXPECT_EQ(listed("a@example.com", to), 0) << to;
    }
    EXPECT_EQ(log.errors(), lines{});
    EXPECT_EQ(listed("a@example.com", "nothing@x"), 0) << "an empty destination";
    EXPECT_EQ(log.errors(), lines{"split_full_destination_address: Invalid argument"});
}

TEST_F(me_sender_whitelist, no_mail_enable_lists_nobody) {
    list("a@example.com.LST");
    store.remove("SOFTWARE\\Mail Enable");
    EXPECT_EQ(listed("a@example.com"), 0);
    store.set_text("SOFTWARE\\Wow6432Node\\Mail Enable\\Mail Enable", "Configuration Directory",
                   configuration);
    EXPECT_EQ(listed("a@example.com"), 0) << "only the one key counts here";
    store.set_text(mail_key, "Configuration Directory", configuration);
    EXPECT_EQ(listed("a@example.com"), 1);
    forget_address_map();
    call_watch watch;
    watch.fail("library_open", 1, platform::error_mod_not_found);
    EXPECT_EQ(listed("a@example.com"), 0) << "no address map";
    EXPECT_EQ(watch.count("registry_open"), 0);
    EXPECT_EQ(log.errors(), lines{});
}

TEST_F(me_sender_whitelist, a_listing_that_breaks_off_lists_nobody) {
    list("a@example.com.LST");
    for (const char *call : {"directory_open", "directory_next"}) {
        call_watch watch;
        watch.fail(call, 1, platform::error_access_denied);
        EXPECT_EQ(listed("a@example.com"), 0) << call;
        EXPECT_EQ(watch.failed(), 1) << call;
    }
}

TEST_F(me_sender_whitelist, bad_arguments) {
    for (const char *empty : {static_cast<const char *>(nullptr), ""}) {
        EXPECT_EQ(is_mailenable_sender_whitelist(empty, recipient), 0);
        EXPECT_EQ(is_mailenable_sender_whitelist("a@example.com", empty), 0);
        EXPECT_EQ(log.errors(), lines(2, "is_mailenable_sender_whitelist: Invalid argument"));
    }
}

TEST_F(me_sender_whitelist, without_memory_nobody_is_listed) {
    list("example.com.LST");
    listed("a@example.com"); // the library's own start is not counted
    int result = 1;
    EXPECT_GT(sweep_allocations(
                  [&] { result = is_mailenable_sender_whitelist("a@example.com", recipient); },
                  [&](unsigned n) {
                      EXPECT_EQ(result, 0) << n;
                      log.take();
                  }),
              8U);
    EXPECT_EQ(result, 1);
}

} // namespace
} // namespace quillfence::testing
