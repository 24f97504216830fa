// Expected texts are written with <word> for the pseudonym of a word and {domain} for a domain's
// (expanded.h).
#include "case_redactor.h"

#include <gtest/gtest.h>

#include "case_texts.h"
#include "expanded.h"

namespace quillfence::testing {
namespace {

using namespace decision;

config_file file_of(const char *path) {
    config_file made;
    made.path = path;
    return made;
}
dns_block_list_record list_of(const char *zone) {
    dns_block_list_record made;
    made.zone = zone;
    return made;
}
dns_record answer_of(const char *name, const char *type, const char *record) {
    dns_record made;
    made.name = name;
    made.type = type;
    made.is = answer_class::found;
    made.records = {record};
    return made;
}

// A case that holds a name in every text that can hold one, and words of ours that are names, too:
// somebody is called info@..., and a severity is "info".
test_case full_case() {
    test_case made;
    made.description = "Info@x.example says that bob.smith got nothing";
    made.captured = true;
    decision_record &r = made.record;
    r.id = "q-1 bob.smith";
    r.engine = {"1.0.0", "linux-x86_64"};
    r.config = {
        .base = "c:/quillfence/",
        .user_dir = "c:/users/bob.smith",
        .revision = "",
        .files = {file_of("c:/users/bob.smith/from_whitelist"), file_of("c:/quillfence/info")}};
    r.transaction = {.ip = "198.51.100.7",
                     .port = "25",
                     .tls = false,
                     .authuser = "al",
                     .mua = false,
                     .helo = "mail.x.example",
                     .sender = "info@x.example",
                     .recipient = "Bob.Smith+news@y.example"};
    r.extra = {{"to bob.smith", R"({"al@x.example":["bob.smith",{"n":1,"t":true,"o":null}]})"},
               {"size", "1234"}};
    r.facts.ptr = {"mail.x.example"};
    r.decision.is = verdict::reject;
    r.decision.by = decided_by::rule;
    r.decision.rule = "from_blacklist";
    r.decision.notice = "<info@x.example> is not welcome; info: see below";
    rule_record rule;
    rule.rule = "from_blacklist";
    rule.decision = outcome::hit;
    rule.reason = "the sender info@x.example matches";
    rule.fact = "sender";
    rule.value = "info@x.example";
    rule.from = list_source{"c:/users/bob.smith/list", 1, "info@*", "wildcard"};
    rule.exempted_by = folder_source{"C:\\Info Server\\bob.smith\\Whitelist", "al@x.example.LST"};
    rule.near_misses = {{"trailing_blank", "info@x.example ends in a blank",
                         list_source{"c:/quillfence/info", 1, "info@x.example ", "whole text"}}};
    rule.names = {{"mail.x.example", expression_source{"c:/f", 1, "info@x", "c:/bob.smith/l", 2},
                   sender_network_source{"c:/s", 1, "x.example"}}};
    r.rules = {rule};
    r.dns_block_lists = {list_of("zen.example.org")};
    r.dns = {answer_of("x.example.", "MX", "MX 10 mail.x.example.")};
    r.missing = {{"dns", "y.example.", "MX", ""}};
    r.notes = {{"info", "info wrote to Bob.Smith"}};
    r.errors = {{"info", "f", "c:/users/bob.smith: gone"}};
    made.server.registry = {
        {"SOFTWARE\\Info Server", "bob.smith", "REG_SZ", "C:\\Info Server\\bob.smith"},
        {"SOFTWARE\\Info Server", "n", "REG_DWORD", "1"}};
    made.server.address_map = {{"Bob.Smith+news@y.example", "[SF:y.example/bob smith]", false}};
    made.server.folders = {
        {"C:\\Info Server\\Bob Smith\\Whitelist", {"info@x.example.LST", "x.example.LST"}}};
    made.expect.verdict = {"reject"};
    made.expect.notice = {"<info@x.example> is not welcome; info: see below"};
    made.expect.file = {"c:/users/bob.smith/list"};
    made.expect.entry = {"info@*", "al@x.example"};
    return made;
}

std::string written(const test_case &which) {
    std::string text;
    write_case(text, which);
    return text;
}

std::string read_error(const std::string &text) {
    json_problem problem;
    return read_case(text, &problem) ? "" : problem.text;
}

TEST(case_redactor, every_member_by_its_kind) {
    const test_case original = full_case();
    case_redactor redactor(original, {}, pseudonym_key, false);
    const test_case made = redactor.made();
    const decision_record &r = made.record;
    const rule_record &rule = r.rules[0];
    const auto &listed = std::get<list_source>(rule.from);
    const auto &folder = std::get<folder_source>(rule.exempted_by);
    const auto &near = std::get<list_source>(rule.near_misses[0].from);
    const auto &expression = std::get<expression_source>(rule.names[0].matched);
    const struct {
        std::string got;
        const char *want;
    } cases[] = {
        {made.description, "<Info>@x.example says that <bob.smith> got nothing"},
        {r.id, "q-1 <bob.smith>"},
        {r.config.base, "c:/quillfence/"},
        {r.config.user_dir, "c:/users/<bob.smith>"},
        {r.config.files[0].path, "c:/users/<bob.smith>/from_whitelist"},
        {r.config.files[1].path, "c:/quillfence/<info>"},
        {*r.transaction.ip, "198.51.100.7"},
        {*r.transaction.authuser, "<al>"},
        {*r.transaction.helo, "mail.x.example"},
        {*r.transaction.sender, "<info>@x.example"},
        {*r.transaction.recipient, "<Bob.Smith>+<news>@y.example"},
        {r.extra[0].first, "to <bob.smith>"},
        {r.extra[0].second, R"({"<al>@x.example":["<bob.smith>",{"n":1,"t":true,"o":null}]})"},
        {r.extra[1].second, "1234"},
        {r.facts.ptr[0], "mail.x.example"},
        {r.decision.notice, "<<info>@x.example> is not welcome; <info>: see below"},
        {rule.reason, "the sender <info>@x.example matches"},
        {rule.value, "<info>@x.example"},
        {listed.file, "c:/users/<bob.smith>/list"},
        {listed.entry, "<info>@*"},
        {folder.folder, "C:\\Info Server\\<bob.smith>\\Whitelist"},
        {folder.name, "<al>@x.example.LST"},
        {rule.near_misses[0].text, "<info>@x.example ends in a blank"},
        {near.file, "c:/quillfence/<info>"},
        {near.entry, "<info>@x.example "},
        {rule.names[0].name, "mail.x.example"},
        {expression.pattern, "<info>@x"},
        {expression.list, "c:/<bob.smith>/l"},
        {r.dns[0].name, "x.example."},
        {r.dns[0].records[0], "MX 10 mail.x.example."},
        {r.missing[0].name, "y.example."},
        {r.notes[0].severity, "info"},
        {r.notes[0].text, "<info> wrote to <Bob.Smith>"},
        {r.errors[0].module, "info"},
        {r.errors[0].text, "c:/users/<bob.smith>: gone"},
        {made.server.registry[0].key, "SOFTWARE\\Info Server"},
        {*made.server.registry[0].value, "<bob.smith>"},
        {made.server.registry[0].data, "C:\\Info Server\\<bob.smith>"},
        {made.server.address_map[0].address, "<Bob.Smith>+<news>@y.example"},
        {made.server.address_map[0].destination, "[SF:y.example/<bob> <smith>]"},
        {made.server.folders[0].folder, "C:\\Info Server\\<Bob> <Smith>\\Whitelist"},
        {made.server.folders[0].names[0], "<info>@x.example.LST"},
        {made.server.folders[0].names[1], "x.example.LST"},
        {made.expect.verdict[0], "reject"},
        {made.expect.notice[0], "<<info>@x.example> is not welcome; <info>: see below"},
        {made.expect.file[0], "c:/users/<bob.smith>/list"},
        {made.expect.entry[0], "<info>@*"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(c.got, expanded(c.want));
    }
}

TEST(case_redactor, what_is_left_is_named) {
    const test_case original = full_case();
    case_redactor redactor(original, {}, pseudonym_key, false);
    // "Info" may be a person there, or not.
    EXPECT_EQ(redactor.leak_in(written(redactor.made())),
              "rules[0].exempted_by.folder still holds a name of the original case");
}

// A mail server that is called like somebody. The data of its keys is its own, and not what the
// case says by itself.
TEST(case_redactor, what_is_asked_of_the_server_is_no_name) {
    test_case original = full_case();
    original.record.rules[0].exempted_by = {};
    case_redactor redactor(original, {}, pseudonym_key, false);
    EXPECT_EQ(redactor.leak_in(written(redactor.made())),
              "registry[0].key still holds a name of the original case");
    server_answers asked;
    asked.registry = {{"SOFTWARE\\Info Server", "n", "REG_SZ", "Info of the data"}};
    redactor.learn_said({}, asked);
    EXPECT_EQ(redactor.leak_in(written(redactor.made())), "");
    original.server.registry[0].data = "Info of the data";
    EXPECT_EQ(redactor.leak_in(written(redactor.made())),
              "registry[0].data still holds a name of the original case");
}

test_case without_servers() {
    test_case made = full_case();
    made.record.rules[0].exempted_by = {};
    made.server.registry.clear();
    made.server.folders.clear();
    return made;
}

TEST(case_redactor, nothing_is_left) {
    const test_case original = without_servers();
    for (const bool domains : {false, true}) {
        case_redactor redactor(original, {}, pseudonym_key, domains);
        const std::string text = written(redactor.made());
        EXPECT_EQ(redactor.leak_in(text), "");
        EXPECT_EQ(read_error(text), "");
        EXPECT_NE(redactor.leak_in(written(original)), "");
        EXPECT_EQ(text, written(redactor.made())) << "the same again";
    }
}

// Each text of the original that holds a name, put back into the redacted case, is found there.
class one_text_back {
  public:
    one_text_back(const std::vector<std::string> &texts, size_t which)
        : texts_(texts), which_(which) {}
    void text(const text_place &, std::string &text) {
        if (next_++ == which_) {
            changed = text != texts_[which_];
            text = texts_[which_];
        }
    }
    void extra(extra_member &) {}
    bool changed = false;

  private:
    const std::vector<std::string> &texts_;
    const size_t which_;
    size_t next_ = 0;
};
struct all_texts {
    std::vector<std::string> found;
    void text(const text_place &, const std::string &text) {
        found.push_back(text);
    }
    void extra(const extra_member &) {}
};

TEST(case_redactor, each_text_put_back_is_found) {
    const test_case original = without_servers();
    for (const bool domains : {false, true}) {
        case_redactor redactor(original, {}, pseudonym_key, domains);
        const test_case made = redactor.made();
        all_texts texts;
        visit_texts(texts, original);
        size_t changed = 0;
        for (size_t i = 0; i < texts.found.size(); ++i) {
            test_case spoilt = made;
            one_text_back back(texts.found, i);
            visit_texts(back, spoilt);
            // "al", a local part of two bytes, is no longer looked for as a bare word.
            if (back.changed && texts.found[i] != "al") {
                ++changed;
                EXPECT_NE(redactor.leak_in(written(spoilt)), "") << texts.found[i];
            }
        }
        EXPECT_GT(changed, domains ? 30u : 20u);
    }
}

TEST(case_redactor, what_the_case_says_by_itself_stays) {
    test_case original = without_servers();
    original.record.rules[0].reason = "info is taken from lists only";
    original.record.notes = {{"info", "see info@x.example for info"}};
    case_redactor redactor(original, {}, pseudonym_key, false);
    decision_record said;
    said.rules.resize(1);
    said.rules[0].reason = "info is taken from lists only";
    said.config.files = {file_of("c:/quillfence/info")};
    said.notes = {{"info", "see info@x.example for info"}};
    redactor.learn_said(said, {});
    const test_case made = redactor.made();
    EXPECT_EQ(made.record.rules[0].reason, "info is taken from lists only");
    EXPECT_EQ(made.record.config.files[1].path, "c:/quillfence/info");
    EXPECT_EQ(made.record.notes[0].text, expanded("see <info>@x.example for info"))
        << "an address never stays";
    EXPECT_EQ(redactor.leak_in(written(made)),
              "notes[0].text still holds a name of the original case");
}

TEST(case_redactor, with_domains) {
    test_case original = without_servers();
    original.record.transaction.helo = "BOBS-LAPTOP";
    original.record.dns.push_back(answer_of("7.100.51.198.zen.example.org.", "A", "A 127.0.0.2"));
    case_redactor redactor(original, {}, pseudonym_key, true);
    const test_case made = redactor.made();
    const decision_record &r = made.record;
    EXPECT_EQ(*r.transaction.helo, expanded("<BOBS-LAPTOP>"));
    EXPECT_EQ(*r.transaction.sender, expanded("<info>@{x.example}"));
    EXPECT_EQ(r.facts.ptr[0], expanded("{mail.x.example}"));
    EXPECT_EQ(r.dns[0].name, expanded("{x.example}."));
    EXPECT_EQ(r.dns[0].records[0], expanded("MX 10 {mail.x.example}."));
    EXPECT_EQ(r.dns[1].name, "7.100.51.198.zen.example.org.");
    EXPECT_EQ(r.dns[1].records[0], "A 127.0.0.2");
    EXPECT_EQ(r.missing[0].name, expanded("{y.example}."));
    EXPECT_EQ(std::get<sender_network_source>(r.rules[0].names[0].exempted_by).domain,
              expanded("{x.example}"));
    EXPECT_EQ(r.dns_block_lists[0].zone, "zen.example.org");
    EXPECT_EQ(made.server.address_map[0].destination, expanded("[SF:{y.example}/<bob> <smith>]"));
    EXPECT_EQ(redactor.leak_in(written(made)), "");
}

// A short case knows no zones; its decision does.
TEST(case_redactor, by_hand) {
    test_case original;
    original.record.transaction.ip = "198.51.100.7";
    original.record.transaction.sender = "bob.smith@x.example";
    original.zonedata =
        std::vector<zone_name>{{"x.example", {{"MX", "10 mail.x.example"}, {"", "TIMEOUT"}}},
                               {"7.100.51.198.zen.example.org", {{"A", "127.0.0.2"}}},
                               {"7.100.51.198.in-addr.arpa", {{"PTR", "bob.smith"}}}};
    decision_record decided;
    decided.dns_block_lists = {list_of("zen.example.org")};
    case_redactor redactor(original, decided, pseudonym_key, true);
    const test_case made = redactor.made();
    const std::vector<zone_name> &zone = *made.zonedata;
    EXPECT_EQ(zone[0].name, expanded("{x.example}"));
    EXPECT_EQ(zone[0].entries[0].data, expanded("10 {mail.x.example}"));
    EXPECT_EQ(zone[0].entries[1].data, "TIMEOUT");
    EXPECT_EQ(zone[1], (*original.zonedata)[1]);
    EXPECT_EQ(zone[2].name, "7.100.51.198.in-addr.arpa");
    const std::string text = written(made);
    EXPECT_EQ(read_error(text), "");
    EXPECT_EQ(redactor.leak_in(text), "");
    EXPECT_EQ(text.find("bob.smith"), std::string::npos);
}

// Words of ours in the places of texts: a type of a record, an answer's word, a number.
TEST(case_redactor, words_of_ours_are_no_leak) {
    test_case original;
    original.record.transaction.sender = "timeout@x.example";
    original.record.transaction.recipient = "ptr@x.example";
    original.record.transaction.authuser = "4096";
    original.record.transaction.helo = "hit@x.example accept@x.example";
    original.zonedata = std::vector<zone_name>{{"x.example", {{"", "TIMEOUT"}}},
                                               {"y.example", {{"PTR", "x.example"}}}};
    original.expect.rules = {{"hit", {"hit"}}};
    original.expect.verdict = {"accept"};
    original.server.registry = {{"SOFTWARE\\X", "n", "REG_DWORD", "4096"}};
    original.record.extra = {{"size", "4096"}, {"ratio", "-4.5e3"}};
    case_redactor redactor(original, {}, pseudonym_key, false);
    const test_case made = redactor.made();
    EXPECT_EQ(made.server.registry[0].data, "4096");
    EXPECT_EQ(made.record.extra[0].second, expanded("\"<4096>\"")) << "a number of somebody's";
    EXPECT_EQ(made.record.extra[1].second, "-4.5e3");
    EXPECT_EQ(redactor.leak_in(written(made)), "");
}

TEST(case_redactor, bytes_that_are_no_text_go_as_well) {
    test_case original;
    original.record.transaction.sender = "bob\xff\xfesmith@x.example";
    original.record.transaction.helo = "from bob\xff\xfesmith";
    case_redactor redactor(original, {}, pseudonym_key, false);
    const std::string text = written(redactor.made());
    EXPECT_NE(text.find("sender_bytes"), std::string::npos);
    EXPECT_EQ(redactor.leak_in(text), "");
    EXPECT_EQ(text.find("626f62fffe"), std::string::npos);
    EXPECT_EQ(redactor.leak_in(written(original)),
              "transaction.helo_bytes still holds a name of the original case");
}

TEST(case_redactor, what_is_no_document_is_no_proof) {
    const test_case original = without_servers();
    const case_redactor redactor(original, {}, pseudonym_key, false);
    EXPECT_NE(redactor.leak_in("{"), "");
}

} // namespace
} // namespace quillfence::testing
