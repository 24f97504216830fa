#include "is_local_domain.h"

#include <cstdlib>
#include <string>

#include <gtest/gtest.h>

#include "call_watch.h"
#include "drive_c.h"
#include "failing_memory.h"
#include "platform/error_numbers.h"
#include "test_registry.h"
#include "vc_file.h"
#include "vc_text.h"

namespace quillfence::testing {
namespace {

using namespace std::string_literals;

constexpr char mail_key[] = "SOFTWARE\\Mail Enable\\Mail Enable";
constexpr char second_key[] = "SOFTWARE\\Wow6432Node\\Mail Enable\\Mail Enable";
constexpr char value[] = "Configuration Directory";
constexpr char directory[] = "c:\\quillfence\\Config";
constexpr char table[] = "c:/quillfence/Config/DOMAIN.TAB";

class is_local : public drive_test {
  protected:
    test_registry store;

    void install(const std::string &domains) const {
        store.set_text(mail_key, value, directory);
        drive.write(table, domains);
    }
};

TEST_F(is_local, a_domain_of_the_table) {
    install("EXAMPLE.COM\t1\r\nexample.org\t\r\ntabs.example\tx\ty\nlast.example\tx");
    const struct {
        const char *address;
        int want;
    } cases[] = {
        {"alice@example.com", 1},
        {"@example.com", 1},
        {"alice@Example.ORG", 1},
        {"a@last.example", 1},
        {"a@example.co", 0},
        {"a@example.comm", 0},
        {"a@xexample.com", 0},
        {"a@mail.example.com", 0},
        {"a@b@example.com", 0},
        {"alice@", 0},
        {"alice", 0},
        {"bounce message", 0},
        {"a@example.com\t", 0},
        {"a@example.com\t1", 0},
        {"a@\t", 0},
        {"a@tabs.example", 1},
        {"a@tabs.example\tx", 0}, // the first TAB ends the domain
    };
    for (const auto &c : cases) {
        EXPECT_EQ(is_local_domain(c.address), c.want) << c.address;
    }
}

TEST_F(is_local, lines_without_a_tab_are_passed_over) {
    install("one.example\r\n\r\n\n \n\tempty.example\ntwo.example 1\nthree.example\t\n");
    EXPECT_EQ(is_local_domain("a@one.example"), 0);
    EXPECT_EQ(is_local_domain("a@two.example"), 0);
    EXPECT_EQ(is_local_domain("a@two.example 1"), 0);
    EXPECT_EQ(is_local_domain("a@empty.example"), 0);
    EXPECT_EQ(is_local_domain("a@"), 0) << "no domain, though a line names it";
    EXPECT_EQ(is_local_domain("a@three.example"), 1);
}

TEST_F(is_local, without_mail_enable_nothing_is_local) {
    drive.write(table, "example.com\t1\r\n");
    EXPECT_EQ(is_local_domain("a@example.com"), 0);
    store.create(mail_key);
    EXPECT_EQ(is_local_domain("a@example.com"), 0);
    install("example.com\t1\r\n");
    drive.remove(table);
    EXPECT_EQ(is_local_domain("a@example.com"), 0);
    EXPECT_FALSE(drive.exists(table)) << "a lookup makes no file";
    drive.make_folder(table);
    EXPECT_EQ(is_local_domain("a@example.com"), 0);
    EXPECT_EQ(log.errors(), lines{});
}

TEST_F(is_local, the_second_key_is_tried_when_the_first_has_no_directory) {
    install("example.com\t1\r\n");
    store.remove("SOFTWARE\\Mail Enable");
    store.set_text(second_key, value, directory);
    EXPECT_EQ(is_local_domain("a@example.com"), 1);
    store.set_dword(mail_key, value, 1);
    EXPECT_EQ(is_local_domain("a@example.com"), 1) << "another type counts as not read";
    EXPECT_EQ(
        log.errors(),
        lines{"vc_regkey_get_ex: error: expected key SOFTWARE\\Mail Enable\\Mail Enable value "
              "Configuration Directory to be type REG_SZ"});
    store.set_text(mail_key, value, "c:\\quillfence\\elsewhere");
    EXPECT_EQ(is_local_domain("a@example.com"), 0) << "the first key counts when it has one";
}

// What the table says when it is read line by line.
int by_readline(const std::string &domain) {
    const vc_handle file = vc_open_ex(table, 0, 0, 0);
    char line[1024];
    int found = 0;
    for (;;) {
        memset(line, 0, sizeof line);
        if (!vc_readline(file, line, sizeof line - 1)) {
            break;
        }
        char *const tab = strchr(line, '\t');
        if (tab) {
            *tab = '\0';
            found = found || _stricmp(line, domain.c_str()) == 0;
        }
    }
    vc_close(file);
    return found;
}

TEST_F(is_local, reads_as_vc_readline_does) {
    const std::string filler(1000, 'f');
    const struct {
        const char *name;
        std::string table;
    } cases[] = {
        {"1022 bytes, then LF", std::string(1021, 'f') + "\t\nexample.com\t\n"},
        {"1023 bytes, then LF", std::string(1022, 'f') + "\t\nexample.com\t\n"},
        {"a line in two pieces", std::string(1023, 'f') + "example.com\t\n"},
        {"cut one too early", std::string(1022, 'f') + "example.com\t\n"},
        {"a long rest", "example.com\t" + std::string(5000, 'f')},
        {"a long line before", std::string(5000, 'f') + "\t\nexample.com\t\n"},
        {"CR alone", "example.com\r\t\nx\rexample.com\t\n"},
        {"NUL at a line's start", "a\t\n\0\nexample.com\t\n"s},
        {"NUL in a line", "a\t\nb\0c\nexample.com\t\n"s + filler + filler},
        {"NUL in the domain", "example.com\0\t\n"s},
        {"NUL behind the domain", "example.com\t\0\n"s},
        {"no line end", "example.com\t"},
        {"nothing", ""},
    };
    for (const auto &c : cases) {
        install(c.table);
        EXPECT_EQ(is_local_domain("a@example.com"), by_readline("example.com")) << c.name;
    }
    // Every place of the domain in relation to the pieces in which the file is read.
    for (size_t before = 15300; before < 16500; before += 7) {
        install(std::string(before, '\n') + "example.com\t1\r\nother\t1\r\n");
        EXPECT_EQ(is_local_domain("a@example.com"), 1) << before;
        EXPECT_EQ(is_local_domain("a@example.co"), 0) << before;
    }
}

TEST_F(is_local, damage_is_read_alike_too) {
    srand(7);
    for (int round = 0; round < 60; ++round) {
        std::string bytes;
        const int length = rand() % 40000;
        while (static_cast<int>(bytes.size()) < length) {
            switch (rand() % 12) {
            case 0:
                bytes += std::string(static_cast<size_t>(rand() % 3000), 'x');
                break;
            case 1:
                bytes += rand() % 20 ? "\r\n"s : "\0"s;
                break;
            default:
                bytes += "d" + std::to_string(rand() % 50) + (rand() % 3 ? "\t\n" : "\n");
            }
        }
        install(bytes);
        for (int domain = 0; domain < 50; domain += 7) {
            const std::string name = "d" + std::to_string(domain);
            ASSERT_EQ(is_local_domain(("a@" + name).c_str()), by_readline(name))
                << "round " << round << " " << name;
        }
    }
}

TEST_F(is_local, a_large_table_is_read_in_few_calls) {
    std::string domains;
    for (int i = 0; i < 100000; ++i) {
        domains += "domain" + std::to_string(i) + ".example\t" + std::to_string(i) + "\r\n";
    }
    install(domains);
    call_watch watch;
    EXPECT_EQ(is_local_domain("a@domain99999.example"), 1);
    EXPECT_LT(watch.count("file_read"), 1000);
    EXPECT_EQ(is_local_domain("a@domain100000.example"), 0);
}

TEST_F(is_local, a_file_that_fails_to_be_read) {
    install("example.com\t1\r\n");
    call_watch watch;
    watch.fail("file_read", 1, platform::error_io_device);
    EXPECT_EQ(is_local_domain("a@example.com"), 0);
    EXPECT_EQ(log.errors(),
              lines{"vc_read_nonblock: fatal error on read (w32) got error code 1117"});
    watch.fail("file_open", 1, platform::error_sharing_violation);
    EXPECT_EQ(is_local_domain("a@example.com"), 0);
    EXPECT_EQ(log.errors(), lines{"vc_open_ex: unknown error opening - got error code 32"});
}

TEST_F(is_local, no_address) {
    EXPECT_EQ(is_local_domain(nullptr), 0);
    EXPECT_EQ(is_local_domain(""), 0);
    EXPECT_EQ(log.errors(), lines(2, "is_local_domain: Invalid argument"));
}

TEST_F(is_local, without_memory_nothing_is_local) {
    install("example.com\t1\r\n");
    int local = 1;
    EXPECT_GT(sweep_allocations([&] { local = is_local_domain("a@example.com"); },
                                [&](unsigned n) {
                                    EXPECT_EQ(local, 0) << n;
                                    log.take();
                                }),
              2U);
    EXPECT_EQ(local, 1);
}

} // namespace
} // namespace quillfence::testing
