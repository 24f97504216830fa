// Declarations that were read beforehand against the same file, by what the question answers, tells
// and complains of.
#include <memory>
#include <random>

#include "drive_c.h"
#include "evidence_watch.h"
#include "failing_memory.h"
#include "frozen_files.h"
#include "known_sender_forgery_funcs.h"
#include "platform/file.h"

namespace quillfence::testing {
namespace {

constexpr char path[] = "c:/quillfence/control/valid_domain_ips";

struct index_deleter {
    void operator()(ksf_index *index) const {
        ksf_index_free(index);
    }
};
using owned_index = std::unique_ptr<ksf_index, index_deleter>;

struct answer {
    int may_send = 0;
    lines told{};
    lines errors{};
    bool operator==(const answer &) const = default;
};
std::ostream &operator<<(std::ostream &to, const answer &of) {
    to << of.may_send;
    for (const std::string &line : of.told) {
        to << "\n  " << line;
    }
    return to;
}

owned_index index_of(const std::string &bytes) {
    ksf_index *made = nullptr;
    EXPECT_TRUE(ksf_index_make(bytes.data(), bytes.size(), &made));
    return owned_index(made);
}

class frozen_declarations : public drive_test {
  protected:
    answer ask(const char *ip, const char *domain, const frozen_files *configuration) {
        evidence_watch watch;
        current_call_context()->configuration = configuration;
        answer made;
        made.may_send = ksf_check_domain_to_ip_restriction(ip, domain, path);
        made.told = watch.take();
        made.errors = log.errors();
        return made;
    }
    // The answer of the file and of what was read before it, which must be the same.
    int both(std::string bytes, const char *ip, const char *domain) {
        drive.write(path, bytes);
        const answer by_file = ask(ip, domain, nullptr);
        const owned_index index = index_of(bytes);
        frozen_file row = {};
        std::string name = path;
        row.path = name.data();
        row.attributes = platform::attribute_normal;
        row.bytes = bytes.data();
        row.size = bytes.size();
        row.declarations = index.get();
        frozen_files files = {};
        files.rows = &row;
        files.row_count = 1;
        EXPECT_TRUE(index_frozen_files(&files));
        EXPECT_EQ(ask(ip, domain, &files), by_file) << domain << " from " << ip << " in\n" << bytes;
        free(files.slots);
        return by_file.may_send;
    }
};

TEST_F(frozen_declarations, answer_as_the_file) {
    const std::string file = "# ours\r\n\na.example : 192.0.2.0/24, 198.51.100.7\r\n"
                             "B.example:203.0.113.9\nb.example:192.0.2.1\nc.example : none\n";
    EXPECT_TRUE(both(file, "192.0.2.77", "a.example"));
    EXPECT_FALSE(both(file, "203.0.113.9", "a.example"));
    EXPECT_TRUE(both(file, "203.0.113.9", " B.Example "));
    EXPECT_FALSE(both(file, "192.0.2.1", "b.example")); // the first one counts
    EXPECT_TRUE(both(file, "192.0.2.1", "c.example"));  // restricts nobody
    EXPECT_TRUE(both(file, "x", "a.example"));
    EXPECT_TRUE(both("# nothing\n", "192.0.2.1", "a.example"));
    EXPECT_TRUE(both("", "192.0.2.1", "a.example"));
}

TEST_F(frozen_declarations, of_random_files_answer_as_the_file) {
    std::mt19937 random(20261122);
    const auto some = [&random](std::initializer_list<const char *> from) {
        return std::string(from.begin()[random() % from.size()]);
    };
    unsigned refused = 0;
    for (int i = 0; i < 400 && !HasFailure(); ++i) {
        std::string file;
        for (size_t n = random() % 8; n; --n) {
            file += some({"a.example", "b.example", "A.Example", "c", " ", "#a.example"}) +
                    some({":", " : ", "", "::"}) +
                    some({"192.0.2.0/24", "192.0.2.1", "192.0.2.1,10.0.0.0/8", "x", ",",
                          "1.2.3.4/40"}) +
                    some({"\n", "\r\n", "\n\n", ""}) + (random() % 20 ? "" : std::string(1, '\0'));
        }
        refused += !both(file, some({"192.0.2.1", "192.0.2.2", "10.1.2.3"}).c_str(),
                         some({"a.example", "b.example", "C", "d.example"}).c_str());
    }
    EXPECT_GT(refused, 10u);
}

TEST_F(frozen_declarations, without_memory_there_are_none_and_nothing_is_lost) {
    const std::string file = "a.example:192.0.2.1\nb.example:192.0.2.0/24\n";
    ksf_index *made = nullptr;
    int done = 1;
    const long before = live_allocations();
    const unsigned failed =
        sweep_allocations([&] { done = ksf_index_make(file.data(), file.size(), &made); },
                          [&](unsigned n) {
                              EXPECT_FALSE(done) << n;
                              EXPECT_EQ(made, nullptr) << n;
                              // Taken first: under Windows the lines are counted, too.
                              EXPECT_FALSE(log.errors().empty()) << n;
                              EXPECT_EQ(live_allocations() - before, 0) << n;
                          });
    EXPECT_GT(failed, 6u);
    ksf_index_free(made);
}

} // namespace
} // namespace quillfence::testing
