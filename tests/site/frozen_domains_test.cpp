// A table of hosted domains that was read beforehand against the same file walked through.
#include "frozen_domains.h"

#include <memory>
#include <random>

#include "drive_c.h"
#include "evidence_watch.h"
#include "failing_memory.h"
#include "frozen_files.h"
#include "is_local_domain.h"
#include "platform/file.h"
#include "test_registry.h"

namespace quillfence::testing {
namespace {

constexpr char mail_key[] = "SOFTWARE\\Mail Enable\\Mail Enable";
constexpr char path[] = "c:\\quillfence\\Config\\DOMAIN.TAB";

struct domains_deleter {
    void operator()(frozen_domains *domains) const {
        frozen_domains_free(domains);
    }
};
using owned_domains = std::unique_ptr<frozen_domains, domains_deleter>;

class frozen_table : public drive_test {
  protected:
    frozen_table() {
        store.set_text(mail_key, "Configuration Directory", "c:\\quillfence\\Config");
    }
    // The answer and the evidence, as one text.
    static std::string ask(const std::string &address, const frozen_files *configuration) {
        evidence_watch watch;
        current_call_context()->configuration = configuration;
        std::string told = std::to_string(is_local_domain(address.c_str()));
        for (const std::string &line : watch.take()) {
            told += "\n  " + line;
        }
        return told;
    }
    // The answer of the file, that of its bytes and that of its index, which must be the same.
    std::string all(std::string bytes, const std::string &address) {
        drive.write("c:/quillfence/Config/DOMAIN.TAB", bytes);
        const std::string by_file = ask(address, nullptr);
        const owned_domains index(frozen_domains_make(bytes.data(), bytes.size()));
        EXPECT_NE(index, nullptr);
        std::string name = path;
        frozen_file row = {};
        row.path = name.data();
        row.attributes = platform::attribute_normal;
        row.bytes = bytes.data();
        row.size = bytes.size();
        frozen_files files = {};
        files.rows = &row;
        files.row_count = 1;
        EXPECT_TRUE(index_frozen_files(&files));
        EXPECT_EQ(ask(address, &files), by_file) << address << " in the bytes\n" << bytes;
        row.domains = index.get();
        EXPECT_EQ(ask(address, &files), by_file) << address << " in the index of\n" << bytes;
        free(files.slots);
        return by_file;
    }
    test_registry store;
};

TEST_F(frozen_table, answers_as_the_file) {
    const std::string table =
        "one.example\tx\nTWO.example\t\r\n\tx\nthree.example\ntwo.example\ty\n";
    EXPECT_EQ(all(table, "a@one.example")[0], '1');
    EXPECT_NE(all(table, "a@Two.Example").find("line=2"), std::string::npos);
    EXPECT_EQ(all(table, "a@three.example")[0], '0'); // no TAB
    EXPECT_EQ(all(table, "a@other.example")[0], '0');
    EXPECT_EQ(all("", "a@one.example")[0], '0');
}

// A walk over the bytes takes them in pieces of 16 KiB.
TEST_F(frozen_table, of_several_pieces_answers_as_the_file) {
    std::string table;
    for (int i = 1; i <= 3000; ++i) {
        table += "host" + std::to_string(i) + ".example\tx\n";
    }
    ASSERT_GT(table.size(), 3u * 16384);
    for (const int i : {1, 800, 1600, 2900, 3000}) {
        const std::string address = "a@host" + std::to_string(i) + ".example";
        EXPECT_NE(all(table, address).find("line=" + std::to_string(i)), std::string::npos);
    }
    EXPECT_EQ(all(table, "a@host3001.example")[0], '0');
}

TEST_F(frozen_table, of_random_lines_answers_as_the_file) {
    std::mt19937 random(20261122);
    const auto some = [&random](std::initializer_list<const char *> from) {
        return std::string(from.begin()[random() % from.size()]);
    };
    unsigned hosted = 0;
    for (int i = 0; i < 400 && !HasFailure(); ++i) {
        std::string table;
        for (size_t n = random() % 12; n; --n) {
            table += some({"a", "b", "A", "ab", "", "a b"}) +
                     (random() % 30 ? "" : std::string(1010 + random() % 20, 'a')) +
                     some({"\t", "\t", "\t\t", ""}) + some({"", "x", "b\tc"}) +
                     (random() % 40 ? "" : std::string(1, '\0')) + some({"\n", "\n", "\r\n", ""});
        }
        hosted += all(table, "x@" + some({"a", "b", "AB", "c", "a b", "aa"}))[0] == '1';
    }
    EXPECT_GT(hosted, 50u);
}

TEST_F(frozen_table, without_memory_there_is_none) {
    for (unsigned n = 1; n <= 2; ++n) {
        const failing_allocation failing(n);
        EXPECT_EQ(frozen_domains_make("a\t\n", 3), nullptr);
    }
}

} // namespace
} // namespace quillfence::testing
