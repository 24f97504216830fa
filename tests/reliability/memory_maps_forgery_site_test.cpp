// Block maps, sender forgery and country lookup when memory runs out.
#include "drive_c.h"
#include "heap_text.h"
#include "known_sender_forgery_funcs.h"
#include "lookup.h"
#include "memory_sweep.h"
#include "vc_geoip.h"

namespace quillfence::testing {
namespace {

using enum without_memory;

struct {
    char *text;
    vc_list_entry *list;
    vc_list_entry *hits;
    ksf_domain_set *set;
} it;

void release() {
    free(it.text);
    if (it.list) {
        vc_destroy_list(&it.list, free);
    }
    if (it.hits) {
        vc_destroy_list(&it.hits, free);
    }
    ksf_free_list(it.set);
    it = {};
}

void nothing_made() {
    EXPECT_EQ(it.text, nullptr);
    EXPECT_EQ(it.set, nullptr);
}

void have_maps() {
    vc_append_list_entry(&it.list, "one", 4, 1);
    vc_append_list_entry(&it.list, "two", 4, 1);
}

constexpr char forgery_file[] = "c:/quillfence/control/valid_domain_ips";

class memory_data : public drive_test {
  protected:
    void SetUp() override {
        std::string map(1024, '\0');
        map.replace(10 * 4, 4, "\xFF\xFF\xFF\xFF");
        drive.write("c:/quillfence/bms/one", map);
        drive.write("c:/quillfence/bms/two", map);
        drive.write(forgery_file,
                    "# x\na.example : 10.0.0.1, 192.0.2.0/24\nb.example : 10.0.0.2\n");
    }
};

TEST_F(memory_data, block_maps) {
    static const memory_case cases[] = {
        // The result says "listed" when only the copy for the caller's list is missing.
        {"lookupMaps", have_maps,
         [] { return lookupMaps("c:/quillfence/bms", it.list, "10.1.2.3", &it.hits) == 1; },
         [] { EXPECT_LE(vc_list_count(it.hits), 1); }, goes_on},
        {"lookupMaps, result only", have_maps,
         [] { return lookupMaps("c:/quillfence/bms", it.list, "10.1.2.3", nullptr) == 1; },
         nullptr},
    };
    sweep(log, cases, release);
}

TEST_F(memory_data, sender_forgery) {
    static const memory_case cases[] = {
        {"ksf_parse_mail_from_domain", nullptr,
         [] { return (it.text = ksf_parse_mail_from_domain("u@A.example")) != nullptr; },
         nothing_made},
        {"ksf_load_list", nullptr, [] { return (it.set = ksf_load_list(forgery_file)) != nullptr; },
         nothing_made},
        {"ksf_get_domain_ip_sets_from_file", nullptr,
         [] { return (it.set = ksf_get_domain_ip_sets_from_file(forgery_file)) != nullptr; },
         nothing_made},
        // Memory that runs out never makes a sender a forger.
        {"ksf_check_domain_to_ip_restriction, allowed", nullptr,
         [] {
             const int allowed =
                 ksf_check_domain_to_ip_restriction("192.0.2.9", "a.example", forgery_file);
             EXPECT_EQ(allowed, 1);
             return true;
         },
         nullptr, goes_on},
        {"ksf_check_domain_to_ip_restriction, refused", nullptr,
         [] {
             return ksf_check_domain_to_ip_restriction("10.9.9.9", "a.example", forgery_file) == 0;
         },
         nullptr},
    };
    sweep(log, cases, release);
}

TEST_F(memory_data, country) {
    static const memory_case cases[] = {
        {"vc_get_country_code, private", nullptr,
         [] { return (it.text = vc_get_country_code(QF_COUNTRY_DATABASE, "10.1.2.3")) != nullptr; },
         nothing_made},
    };
    sweep(log, cases, release);
}

// Only the allocation that is ours, the last one: libmaxminddb loses two blocks of its own when
// one of its allocations fails while it opens a database.
TEST_F(memory_data, country_from_the_database) {
    const unsigned long before = allocations_made();
    char *code = vc_get_country_code(QF_COUNTRY_DATABASE, "192.0.2.1");
    const auto needed = static_cast<unsigned>(allocations_made() - before);
    EXPECT_EQ(shown(code), "DE");
    free(code);
    {
        failing_allocation failing(needed);
        code = vc_get_country_code(QF_COUNTRY_DATABASE, "192.0.2.1");
        EXPECT_TRUE(failing.fired());
    }
    EXPECT_EQ(shown(code), vc_country_catch_all);
    EXPECT_TRUE(tells_of_memory(log.errors(), ""));
    free(code);
}

} // namespace
} // namespace quillfence::testing
