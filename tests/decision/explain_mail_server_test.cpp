// What explain() tells of the mail server's own settings: its registry values, its address map (a
// stand-in) and the whitelist folders.
#include "explaining.h"
#include "me_address_map.h"

namespace quillfence::testing {
namespace {

constexpr char mail_key[] = "SOFTWARE\\Mail Enable\\Mail Enable";
// The whitelist of the mailbox to which the stand-in for the address map delivers the recipient.
const std::string whitelist = "c:/quillfence/Mail Enable/Config/Postoffices/example.net/MAILBOXES/"
                              "bob/Senders/Whitelist/";

class explain_mail_server : public explain_test {
  protected:
    explain_mail_server() {
        registry.set_text(mail_key, "Configuration Directory",
                          "c:\\quillfence\\Mail Enable\\Config");
    }
    ~explain_mail_server() override {
        forget_address_map();
    }
    decision_record of(const std::string &sender, const std::string &recipient) {
        transaction what;
        what.ip = "10.1.2.3";
        what.port = "25";
        what.tls = false;
        what.authuser = "";
        what.mua = false;
        what.helo = "mail.example";
        what.sender = sender;
        what.recipient = recipient;
        return explained(what);
    }
};

TEST_F(explain_mail_server, a_mailboxs_whitelist_exempts_by_its_folders_entry) {
    drive.write(whitelist + "alice@example.com.LST", "");
    const decision_record record = of("alice@example.com", "bob@example.net");
    EXPECT_EQ(record.decision.is, verdict::accept);
    EXPECT_EQ(record.decision.by, decided_by::exempt);
    EXPECT_EQ(record.decision.rule, "from_whitelist");
    const auto *const entry = std::get_if<folder_source>(&rule_of(record, "from_whitelist").from);
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(entry->name, "alice@example.com.LST");
    EXPECT_NE(entry->folder.find("bob"), std::string::npos) << entry->folder;
}

TEST_F(explain_mail_server, without_the_entry_or_in_another_mailbox_nothing_exempts) {
    EXPECT_NE(of("alice@example.com", "bob@example.net").decision.by, decided_by::exempt);
    drive.write(whitelist + "alice@example.com.LST", "");
    EXPECT_NE(of("carol@example.com", "bob@example.net").decision.by, decided_by::exempt);
    EXPECT_NE(of("alice@example.com", "carol@example.net").decision.by, decided_by::exempt);
}

} // namespace
} // namespace quillfence::testing
