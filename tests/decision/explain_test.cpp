#include "explaining.h"

namespace quillfence::testing {
namespace {

TEST_F(explain_test, nothing_objects) {
    drive.remove("c:/quillfence/bms/one");
    const decision_record record = explained("good");
    EXPECT_EQ(record.decision.is, verdict::accept);
    EXPECT_EQ(record.decision.by, decided_by::nothing);
    EXPECT_EQ(record.rules.size(), 31u);
    EXPECT_EQ(record.facts.ptr, lines{"mail.good.example"});
    EXPECT_TRUE(record.facts.routable);
    EXPECT_FALSE(record.facts.bounce);
    EXPECT_EQ(log.errors(), lines{});
}
} // namespace
} // namespace quillfence::testing
#include "record_writer.h"
namespace quillfence::testing {
TEST_F(explain_test, show) {
    options.all = true;
    for (const client &who : clients) {
        std::string out;
        write_record(out, explained(transaction_of(who)), record_form::whole, json_layout{});
        printf("%s\n", out.c_str());
    }
}
} // namespace quillfence::testing
