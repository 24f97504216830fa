#include "input.h"

#include <string>

#include <gtest/gtest.h>

#include "log_fields.h"
#include "record_writer.h"

namespace quillfence::decision {
namespace {

std::string refusal(input_format format, std::string_view unit) {
    const input_result got = read_input(format, unit);
    EXPECT_FALSE(got.read) << unit;
    return std::to_string(got.problem.line) + ": " + got.problem.text;
}

input_transaction read(input_format format, std::string_view unit) {
    const input_result got = read_input(format, unit);
    EXPECT_TRUE(got.read) << unit << ": " << got.problem.text;
    return got.read.value_or(input_transaction());
}

// --- telling formats apart, and taking them one by one ---

TEST(input, names_of_formats) {
    for (const char *name : {"json", "policy", "tsv", "qflog", "postfix", "exim"}) {
        const auto format = input_format_of_name(name);
        ASSERT_TRUE(format) << name;
        EXPECT_EQ(input_format_name(*format), name);
    }
    EXPECT_FALSE(input_format_of_name("csv"));
}

TEST(input, formats_by_content) {
    const struct {
        const char *text;
        std::optional<input_format> want;
    } cases[] = {
        {"\n \r\n{\"ip\":\"192.0.2.1\"}", input_format::json},
        {"request=smtpd_access_policy\n", input_format::policy},
        {"R\t192.0.2.1\t25\t0\t\t0\th\ta@b\tc@d\n", input_format::tsv},
        {"2026-11-22 04:51:13 quillfence[7]: HAM: mua=[no:(null)],ip=[", input_format::qflog},
        {"Nov 22 04:51:13 mx postfix/smtpd[7]: 4F8: client=a[192.0.2.1]", input_format::postfix},
        {"2026-11-22T04:51:13.1+00:00 mx postfix/qmgr[7]: 4F8: removed", input_format::postfix},
        {"2026-11-22 04:51:13 1abcDE-000123-4F <= a@b H=x [192.0.2.1]", input_format::exim},
        {"2026-11-22 04:51:13 +0000 [7] H=[192.0.2.1] F=<> rejected", input_format::exim},
        {"2026-11-22 04:51:13 Start queue run", std::nullopt},
        {"", std::nullopt},
        {"\n\n", std::nullopt},
        {"hello", std::nullopt},
        {"=x", std::nullopt},
        {"a b=x", std::nullopt},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(input_format_of_content(c.text), c.want) << c.text;
    }
}

TEST(input, units_are_taken_one_by_one) {
    std::string_view lines = "\n \na\r\n\nb";
    uint32_t skipped = 9;
    EXPECT_EQ(take_input(input_format::tsv, &lines, &skipped), "a");
    EXPECT_EQ(skipped, 2u);
    EXPECT_EQ(take_input(input_format::tsv, &lines, &skipped), "b");
    EXPECT_EQ(skipped, 1u);
    EXPECT_EQ(take_input(input_format::tsv, &lines, nullptr), "");

    std::string_view json = "{\"a\":1}\n{\n  \"a\": {\n  }\n}\r\n{\n \"cut\": 1\n";
    EXPECT_EQ(take_input(input_format::json, &json, &skipped), "{\"a\":1}");
    EXPECT_EQ(take_input(input_format::json, &json, &skipped), "{\n  \"a\": {\n  }\n}");
    EXPECT_EQ(take_input(input_format::json, &json, &skipped), "{\n \"cut\": 1");
    EXPECT_EQ(take_input(input_format::json, &json, &skipped), "");

    std::string_view policy = "\na=1\r\nb=2\r\n\r\n\nc=3\n";
    EXPECT_EQ(take_input(input_format::policy, &policy, &skipped), "a=1\r\nb=2\r\n");
    EXPECT_EQ(skipped, 1u);
    EXPECT_EQ(take_input(input_format::policy, &policy, &skipped), "c=3");
    EXPECT_EQ(take_input(input_format::policy, &policy, &skipped), "");
}

TEST(input, nothing_is_no_problem) {
    for (const input_format format :
         {input_format::json, input_format::policy, input_format::tsv, input_format::qflog}) {
        EXPECT_FALSE(read_input(format, " \n").read);
        EXPECT_EQ(read_input(format, " \n").problem.text, "");
    }
}

// --- json ---

TEST(input, a_transaction_in_json) {
    input_transaction want;
    want.transaction.ip = "192.0.2.1";
    want.transaction.tls = true;
    want.transaction.sender = "";
    want.id = "17";
    want.time = "2026-11-22T04:51:13Z";
    want.extra = {{"queue", "{\"n\":[1,2]}"}};
    EXPECT_EQ(read(input_format::json, R"({"ip":"192.0.2.1","tls":true,"sender":"","id":17,)"
                                       R"("time":"2026-11-22T04:51:13Z","queue":{"n": [1, 2]}})"),
              want);
}

TEST(input, a_whole_record_in_json) {
    decision_record record;
    record.id = "x";
    record.time = "2026-11-22T04:51:13Z";
    record.transaction.helo = "h\xff";
    record.transaction.stage = "MAIL";
    record.extra = {{"queue", "1"}};
    input_transaction want;
    want.transaction = record.transaction;
    want.id = record.id;
    want.time = record.time;
    want.extra = record.extra;
    for (const json_layout layout : {json_layout::one_line, json_layout::indented}) {
        std::string json;
        write_record(json, record, record_form::brief, layout);
        std::string_view text = json;
        EXPECT_EQ(read(input_format::json, take_input(input_format::json, &text, nullptr)), want);
        EXPECT_EQ(text, "");
    }
}

TEST(input, json_that_is_refused) {
    const struct {
        const char *json;
        const char *want;
    } cases[] = {
        {"{\"ip\":", "1: the document ends too early"},
        {"{}", "1: the document holds no fact of a transaction"},
        {"{\"sendr\":\"a@b\"}", "1: the document holds no fact of a transaction"},
        {"[\"ip\"]", "1: the document is not an object"},
        {"{\n\"tls\": 1\n}", "2: tls: is neither true nor false"},
        {"{\"ip\":\"192.0.2.1\",\"id\":{}}", "1: id: is not a text"},
        {"{\"schema\":\"quillfence.decision/1\"}", "1: the document has no member \"transaction\""},
        {"{\"schema\":\"quillfence.decision/1\",\n\"transaction\":{}}",
         "2: transaction: holds no fact of a transaction"},
        {"{\"schema\":\"quillfence.decision/1\",\n\"transaction\":7}",
         "2: transaction: is not an object"},
        {"{\"schema\":\"quillfence.decision/2\",\"transaction\":{\"ip\":\"192.0.2.1\"}}",
         "1: schema: is a version that this program does not know; it reads "
         "\"quillfence.decision/1\""},
        {"{\"schema\":\"quillfence.case/1\",\"transaction\":{\"ip\":\"192.0.2.1\"}}",
         "1: schema: is not that of a decision record"},
        {"{\"helo_bytes\":\"6100\"}", "1: helo_bytes: holds a NUL"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(refusal(input_format::json, c.json), c.want) << c.json;
    }
}

// --- policy ---

TEST(input, a_policy_request) {
    input_transaction want;
    transaction &t = want.transaction;
    t.ip = "192.0.2.1";
    t.port = "4711";
    t.tls = true;
    t.authuser = "";
    t.mua = false;
    t.helo = "mail.example.org";
    t.sender = "";
    t.recipient = "b=c@example.com";
    want.id = "123.456.7";
    want.extra = {{"queue_id", "\"4F8\""}, {"size", "\"12345\""}};
    EXPECT_EQ(read(input_format::policy, "request=smtpd_access_policy\n"
                                         "protocol_state=RCPT\n"
                                         "helo_name=mail.example.org\n"
                                         "queue_id=4F8\n"
                                         "sender=\n"
                                         "recipient=b=c@example.com\n"
                                         "client_address=192.0.2.1\r\n"
                                         "client_port=4711\n"
                                         "instance=123.456.7\n"
                                         "sasl_username=\n"
                                         "sasl_method=\n"
                                         "encryption_protocol=TLSv1.3\n"
                                         "size=12345\n"
                                         "\n"),
              want);
}

TEST(input, what_a_policy_request_does_not_tell_is_absent) {
    const input_transaction got = read(input_format::policy, "sender=a@b\nclient_port=unknown\n"
                                                             "client_address=unknown\n");
    transaction want;
    want.sender = "a@b";
    EXPECT_EQ(got.transaction, want);
    EXPECT_EQ(got.id, "");
}

// A request in which nothing was said but who connected.
transaction at_stage(const char *stage, bool is_settled) {
    transaction of;
    of.stage = stage;
    of.ip = "192.0.2.1";
    if (is_settled) {
        of.tls = false;
        of.authuser = "";
        of.mua = false;
        of.helo = "";
        of.sender = "";
    }
    return of;
}

std::string with_empty_rest(const std::string &lines) {
    std::string request = lines;
    for (const char *name : {"client_address=192.0.2.1", "helo_name=", "sender=", "recipient=",
                             "sasl_username=", "encryption_protocol=", "recipient_count=0"}) {
        const std::string attribute = std::string(name).substr(0, std::string(name).find('=') + 1);
        if (request.find("\n" + attribute) == std::string::npos) {
            request += std::string(name) + "\n";
        }
    }
    return request;
}

TEST(input, what_is_empty_in_a_policy_request_is_a_fact_once_the_stage_has_it) {
    for (const char *stage : {"CONNECT", "HELO", "EHLO", "VRFY", "ETRN", "LATER"}) {
        EXPECT_EQ(read(input_format::policy,
                       with_empty_rest("protocol_state=" + std::string(stage) + "\n"))
                      .transaction,
                  at_stage(stage, false))
            << stage;
    }
    for (const char *stage : {"MAIL", "RCPT", "DATA", "END-OF-MESSAGE"}) {
        EXPECT_EQ(read(input_format::policy,
                       with_empty_rest("protocol_state=" + std::string(stage) + "\n"))
                      .transaction,
                  at_stage(stage, true))
            << stage;
    }
    EXPECT_EQ(
        read(input_format::policy, with_empty_rest("request=smtpd_access_policy\n")).transaction,
        at_stage("RCPT", true));
}

TEST(input, what_a_policy_request_names_is_a_fact_once_the_stage_has_it) {
    const char *const named = "\nhelo_name=h\nsender=a@b\nrecipient=c@d\nsasl_username=u\n"
                              "encryption_protocol=TLSv1.3\n";
    const struct {
        const char *lines;
        const char *stage;
        bool has_sender;
        bool has_recipient;
    } cases[] = {
        {"CONNECT", "CONNECT", false, false},
        {"HELO", "HELO", false, false},
        {"EHLO", "EHLO", false, false},
        {"VRFY", "VRFY", false, false},
        {"ETRN", "ETRN", false, false},
        {"MAIL", "MAIL", true, false},
        {"RCPT", "RCPT", true, true},
        {"RCPT\nrecipient_count=2", "RCPT", true, true},
        {"DATA", "DATA", true, true},
        {"DATA\nrecipient_count=1", "DATA", true, true},
        {"DATA\nrecipient_count=2", "DATA", true, false},
        {"END-OF-MESSAGE\nrecipient_count=1", "END-OF-MESSAGE", true, true},
        {"END-OF-MESSAGE\nrecipient_count=3", "END-OF-MESSAGE", true, false},
        {"LATER", "LATER", true, true},
    };
    for (const auto &c : cases) {
        transaction want;
        want.stage = c.stage;
        want.ip = "192.0.2.1";
        want.tls = true;
        want.authuser = "u";
        want.mua = true;
        want.helo = "h";
        want.sender = c.has_sender ? std::optional("a@b") : std::nullopt;
        want.recipient = c.has_recipient ? std::optional("c@d") : std::nullopt;
        EXPECT_EQ(read(input_format::policy,
                       "client_address=192.0.2.1\nprotocol_state=" + std::string(c.lines) + named)
                      .transaction,
                  want)
            << c.lines;
    }
}

// The submission service has users only, whatever they said until then.
TEST(input, a_user_before_mail_in_a_policy_request) {
    const transaction got =
        read(input_format::policy,
             with_empty_rest("protocol_state=EHLO\npolicy_context=submission\n"))
            .transaction;
    EXPECT_EQ(got.mua, true);
    EXPECT_FALSE(got.authuser);
}

TEST(input, who_is_a_user_of_this_server) {
    const struct {
        const char *lines;
        std::optional<bool> want;
    } cases[] = {
        {"sasl_username=\n", false},
        {"sasl_username=u\n", true},
        {"policy_context=submission\n", true},
        {"policy_context=submission\nsasl_username=\n", true},
        {"policy_context=other\nsasl_username=\n", false},
        {"policy_context=other\n", std::nullopt},
        {"", std::nullopt},
    };
    for (const auto &c : cases) {
        const std::string request = std::string("client_address=192.0.2.1\n") + c.lines;
        EXPECT_EQ(read(input_format::policy, request).transaction.mua, c.want) << c.lines;
    }
}

TEST(input, policy_requests_that_are_refused) {
    const std::string first = "client_address=192.0.2.1\n";
    std::string many = first;
    for (size_t i = 1; i < most_policy_lines; ++i) {
        many += "x" + std::to_string(i) + "=\n";
    }
    EXPECT_TRUE(read_input(input_format::policy, many).read);
    EXPECT_TRUE(
        read_input(input_format::policy, first + "x=" + std::string(longest_policy_line - 2, 'x'))
            .read);
    const struct {
        std::string request;
        const char *want;
    } cases[] = {
        {first + "helo_name", "2: the line is not of the form name=value"},
        {first + "=x", "2: the line is not of the form name=value"},
        {first + "sender=a\nsender=a\n", "3: sender: stands there twice"},
        {first + std::string("sender=a\0b", 10), "2: sender: holds a NUL"},
        {first + "x=" + std::string(longest_policy_line - 1, 'x'), "2: the line is too long"},
        {many + "y=\n", "201: the request has too many lines"},
        {first + std::string(longest_policy_request, 'x'), "1: the request is too long"},
        {"request=smtpd_access_policy\n",
         "1: the request names neither client_address nor sender nor recipient"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(refusal(input_format::policy, c.request), c.want);
    }
}

// --- tsv ---

TEST(input, the_replayers_values) {
    input_transaction want;
    transaction &t = want.transaction;
    t.ip = "192.0.2.1";
    t.port = "25";
    t.tls = true;
    t.authuser = "user";
    t.mua = false;
    t.helo = "h x";
    t.sender = "";
    t.recipient = "c@d";
    EXPECT_EQ(read(input_format::tsv, "R\t192.0.2.1\t25\t2\tuser\t00\th x\t\tc@d"), want);
    t.stage = "MAIL";
    t.recipient.reset();
    EXPECT_EQ(read(input_format::tsv, "M\t192.0.2.1\t25\t1\tuser\t0\th x\t"), want);
    t.stage = "AUTH";
    t.mua.reset();
    t.helo.reset();
    t.sender.reset();
    EXPECT_EQ(read(input_format::tsv, "A\t192.0.2.1\t25\t1\tuser"), want);
    t.stage = "CONNECT";
    t.authuser.reset();
    EXPECT_EQ(read(input_format::tsv, "C\t192.0.2.1\t25\t1"), want);
}

TEST(input, values_that_are_refused) {
    const struct {
        std::string line;
        const char *want;
    } cases[] = {
        {"T", "1: stage: is none of C, A, M and R"},
        {"\tx", "1: stage: is none of C, A, M and R"},
        {"RX\t1", "1: stage: is none of C, A, M and R"},
        {"R\t192.0.2.1\t25\t0\t\t0\th\ta@b", "1: stage R has 9 values, but there are 8"},
        {"R\t192.0.2.1\t25\t0\t\t0\th\ta@b\tc@d\t", "1: stage R has 9 values, but there are 10"},
        {"R\t192.0.2.1\t25\tyes\t\t0\th\ta@b\tc@d", "1: tls: is neither 0 nor 1"},
        {"R\t192.0.2.1\t25\t0\t\t\th\ta@b\tc@d", "1: mua: is neither 0 nor 1"},
        {std::string("R\t1\t2\t0\t\t0\th\0\ta\tb", 17), "1: the line holds a NUL"},
        {std::string(longest_line + 1, 'R'), "1: the line is too long"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(refusal(input_format::tsv, c.line), c.want) << c.line.substr(0, 80);
    }
}

// --- the engine's mail log ---

std::string qflog(const std::string &rest, const std::string &verdict = "HAM") {
    return "2026-11-22 04:51:13 quillfence[7]: " + verdict + ": " + rest;
}

TEST(input, a_line_of_the_mail_log) {
    input_transaction want;
    transaction &t = want.transaction;
    t.ip = "192.0.2.1";
    t.port = "4711";
    t.tls = false;
    t.mua = false;
    t.helo = "mail.example.org";
    t.sender = "a@example.org";
    t.recipient = "b@example.com";
    want.extra = {{"logged", "\"2026-11-22 04:51:13\""},
                  {"logged_verdict", "\"SPAM\""},
                  {"logged_rule", "\"require_helo\""}};
    EXPECT_EQ(read(input_format::qflog,
                   qflog("mua=[no:(null)],ip=[192.0.2.1:mail.example.org],port=<4711>,tls=<no>,"
                         "helo=<mail.example.org>,from=<a@example.org>,rcpt=<b@example.com>",
                         "SPAM[require_helo]")),
              want);
}

TEST(input, what_the_mail_log_does_not_tell_is_absent) {
    transaction want;
    want.ip = "192.0.2.1";
    want.tls = true;
    want.mua = true;
    want.authuser = "u";
    want.sender = "";
    EXPECT_EQ(read(input_format::qflog,
                   qflog("mua=[yes:u],ip=[192.0.2.1:(timeout)],port=<(unknown)>,tls=<yes>,"
                         "helo=<(null)>,from=<bounce message>,rcpt=<(null)>",
                         "NDR"))
                  .transaction,
              want);
}

TEST(input, addresses_with_colons_in_the_mail_log) {
    const auto line = [](const char *ip_and_name) {
        return qflog("mua=[no:(null)],ip=[" + std::string(ip_and_name) +
                     "],port=<25>,tls=<no>,helo=<h>,from=<a@b>,rcpt=<c@d>");
    };
    EXPECT_EQ(read(input_format::qflog, line("2001:db8::1:mail.example.org")).transaction.ip,
              "2001:db8::1");
    EXPECT_EQ(read(input_format::qflog, line("2001:db8::1:(null)")).transaction.ip, "2001:db8::1");
    EXPECT_EQ(read(input_format::qflog, line("::1:localhost")).transaction.ip, "::1");
    // The name "5:x" behind 2001:db8::1, or the name "x" behind 2001:db8::1:5.
    EXPECT_EQ(refusal(input_format::qflog, line("2001:db8::1:5:x")),
              "1: the line can be read in several ways");
    EXPECT_EQ(refusal(input_format::qflog, line("mail.example.org:192.0.2.1")),
              "1: the line is not one of the engine's mail log");
}

// A client says what it likes: what it says does not become another client's.
TEST(input, forged_members_in_the_mail_log) {
    const auto line = [](const std::string &helo, const std::string &from) {
        return qflog("mua=[no:(null)],ip=[192.0.2.1:n],port=<25>,tls=<no>,helo=<" + helo +
                     ">,from=<" + from + ">,rcpt=<c@d>");
    };
    EXPECT_EQ(read(input_format::qflog, line("a>b", "<x>,y=<")).transaction.helo, "a>b");
    EXPECT_EQ(refusal(input_format::qflog, line("h>,from=<good@example.org", "x@y")),
              "1: the line can be read in several ways");
    EXPECT_EQ(refusal(input_format::qflog, line("h", "x@y>,rcpt=<z@z")),
              "1: the line can be read in several ways");
    EXPECT_EQ(refusal(input_format::qflog, line("h>,from=<a@b>,rcpt=<z@z", "x@y")),
              "1: the line can be read in several ways");
    std::string many;
    for (int i = 0; i < 1000; ++i) {
        many += ">,from=<";
    }
    EXPECT_EQ(refusal(input_format::qflog, line(many, "x")),
              "1: the line can be read in several ways");
}

TEST(input, lines_that_are_not_of_the_mail_log) {
    const std::string good = "mua=[no:(null)],ip=[192.0.2.1:n],port=<25>,tls=<no>,helo=<h>,"
                             "from=<a@b>,rcpt=<c@d>";
    EXPECT_TRUE(read_input(input_format::qflog, qflog(good)).read);
    const struct {
        std::string line;
        const char *want;
    } cases[] = {
        {"hello", "1: the line does not begin with a date and a time"},
        {"2026-11-22T04:51:13 quillfence[7]: HAM: " + good,
         "1: the line does not begin with a date and a time"},
        {"2026-11-22 04:51:13", "1: the line does not begin with a date and a time"},
        {qflog(good, "JAM"), "1: the line is not one of the engine's mail log"},
        {qflog(good.substr(0, good.size() - 1)), "1: the line is not one of the engine's mail log"},
        {qflog(good.substr(0, 40)), "1: the line is not one of the engine's mail log"},
        {qflog(good + std::string("\0", 1)), "1: the line holds a NUL"},
        {qflog(good + std::string(longest_line, 'x')), "1: the line is too long"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(refusal(input_format::qflog, c.line), c.want) << c.line.substr(0, 80);
    }
}

// --- Postfix ---

std::string postfix(const std::string &rest, const std::string &program = "smtpd") {
    return "Nov 22 04:51:13 mx postfix/" + program + "[1234]: " + rest;
}

TEST(input, a_command_that_postfix_rejected) {
    input_transaction want;
    transaction &t = want.transaction;
    t.ip = "192.0.2.1";
    t.sender = "a@example.org";
    t.recipient = "b@example.com";
    t.helo = "mail.example.org";
    want.extra = {{"logged", "\"Nov 22 04:51:13\""}};
    EXPECT_EQ(read(input_format::postfix,
                   postfix("NOQUEUE: reject: RCPT from unknown[192.0.2.1]: 554 5.7.1 "
                           "<b@example.com>: Relay access denied; from=<a@example.org> "
                           "to=<b@example.com> proto=ESMTP helo=<mail.example.org>")),
              want);
    t.ip = "2001:db8::1";
    t.port = "4711";
    t.sender = "";
    t.helo.reset();
    want.id = "4F8";
    EXPECT_EQ(read(input_format::postfix,
                   postfix("4F8: warn: RCPT from a.example[2001:db8::1]:4711: text; from=<> "
                           "to=<b@example.com> proto=ESMTP")),
              want);
    t.authuser = "u";
    t.mua = true;
    EXPECT_EQ(read(input_format::postfix,
                   postfix("4F8: warn: RCPT from a.example[2001:db8::1]:4711: text; from=<> "
                           "to=<b@example.com> proto=ESMTP sasl_username=<u>")),
              want);
}

TEST(input, commands_before_the_recipient) {
    transaction want;
    want.stage = "MAIL";
    want.ip = "192.0.2.1";
    want.sender = "a@b";
    want.mua = true;
    EXPECT_EQ(read(input_format::postfix,
                   postfix("NOQUEUE: reject: MAIL from x[192.0.2.1]: 450 no; from=<a@b> proto=SMTP",
                           "submission/smtpd"))
                  .transaction,
              want);
    want = {};
    want.stage = "HELO";
    want.ip = "192.0.2.1";
    want.helo = "h";
    EXPECT_EQ(read(input_format::postfix,
                   postfix("NOQUEUE: reject: HELO from x[192.0.2.1]: 504 no; proto=SMTP helo=<h>"))
                  .transaction,
              want);
    want = {};
    want.stage = "CONNECT";
    want.ip = "192.0.2.1";
    EXPECT_EQ(read(input_format::postfix,
                   postfix("NOQUEUE: reject: CONNECT from x[192.0.2.1]: 554 no; proto=SMTP"))
                  .transaction,
              want);
}

TEST(input, lines_of_a_message_in_postfix) {
    const auto line = [](const char *rest) {
        return "2026-11-22T04:51:13.25+00:00 mx postfix/x[7]: 4F8: " + std::string(rest);
    };
    input_transaction want;
    want.id = "4F8";
    want.time = "2026-11-22T04:51:13.25Z";
    want.extra = {{"logged", "\"2026-11-22T04:51:13.25+00:00\""}};
    want.transaction.ip = "192.0.2.1";
    want.transaction.authuser = "";
    EXPECT_EQ(read(input_format::postfix, line("client=a.example[192.0.2.1]")), want);
    want.transaction.authuser = "u";
    want.transaction.mua = true;
    EXPECT_EQ(read(input_format::postfix,
                   line("client=a[192.0.2.1], sasl_method=PLAIN, sasl_username=u")),
              want);
    want.transaction.authuser.reset();
    want.transaction.mua.reset();
    EXPECT_EQ(read(input_format::postfix,
                   line("client=a[192.0.2.1], orig_queue_id=4F7, orig_client=b[192.0.2.2]")),
              want);
    want.transaction = {};
    want.transaction.sender = "";
    EXPECT_EQ(read(input_format::postfix, line("from=<>, size=1234, nrcpt=1 (queue active)")),
              want);
    want.transaction = {};
    want.transaction.recipient = "c@d";
    EXPECT_EQ(read(input_format::postfix, line("to=<c@d>, relay=local, delay=0.1, status=sent")),
              want);
    want.transaction.recipient = "e@f";
    EXPECT_EQ(read(input_format::postfix, line("to=<c@d>, orig_to=<e@f>, relay=local")), want);
    want.transaction.recipient = "\"x>, orig_to=<e\"@d";
    EXPECT_EQ(read(input_format::postfix, line("to=<\"x>, orig_to=<e\"@d>, relay=local")), want);
}

TEST(input, times_of_other_zones_are_not_guessed) {
    const input_transaction got =
        read(input_format::postfix,
             "2026-11-22T04:51:13+01:00 mx postfix/smtpd[7]: 4F8: client=a[192.0.2.1]");
    EXPECT_EQ(got.time, "");
    EXPECT_EQ(got.extra[0].second, "\"2026-11-22T04:51:13+01:00\"");
}

TEST(input, postfix_lines_that_are_refused) {
    const struct {
        std::string line;
        const char *want;
    } cases[] = {
        {"hello", "1: the line is not one of Postfix's log"},
        {"Nov 22 04:51:13 mx sshd[7]: a: b", "1: the line is not one of Postfix's log"},
        {"postfix/smtpd[7]: a: b", "1: the line is not one of Postfix's log"},
        {postfix("connect from unknown[192.0.2.1]"), "1: the line is not one of Postfix's log"},
        {postfix("4F8: removed"), "1: the line tells nothing of a transaction"},
        {postfix("4F8: client=unknown"), "1: client: is not a name with an address in brackets"},
        {postfix("4F8: client=x[300.0.2.1]"),
         "1: client: is not a name with an address in brackets"},
        {postfix("4F8: from=<a@b>, status=expired"), "1: from: is not as Postfix logs it"},
        {postfix("4F8: to=<a@b>"), "1: to: is not as Postfix logs it"},
        {postfix("4F8: client=x[192.0.2.1], sasl_method=PLAIN, sasl_username=u, sasl_sender=v"),
         "1: the line can be read in several ways"},
        {postfix("NOQUEUE: reject: RCPT from x[192.0.2.1]: 554 no"),
         "1: the line does not tell of a client's command as Postfix does"},
        {postfix("NOQUEUE: reject: DATA from x[192.0.2.1]: 554 no; from=<a@b> proto=ESMTP "
                 "helo=<h>"),
         "1: the line does not tell of a client's command as Postfix does"},
        // A user, or a client whose HELO looks like one.
        {postfix("NOQUEUE: reject: RCPT from x[192.0.2.1]: 554 no; from=<a@b> to=<c@d> proto=ESMTP "
                 "helo=<h> sasl_username=<boss>"),
         "1: the line can be read in several ways"},
        {postfix("NOQUEUE: reject: RCPT from x[192.0.2.1]: 554 <; from=<z@z>: no; from=<a@b> "
                 "to=<c@d> proto=ESMTP helo=<h>"),
         "1: the line can be read in several ways"},
        {postfix("4F8: to=<c@d>, relay=<x>, relay=local"),
         "1: the line can be read in several ways"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(refusal(input_format::postfix, c.line), c.want) << c.line;
    }
}

// --- Exim ---

TEST(input, an_arrival_in_exim) {
    input_transaction want;
    transaction &t = want.transaction;
    t.ip = "192.0.2.1";
    t.port = "51234";
    t.helo = "helo.example";
    t.sender = "a@example.org";
    t.tls = true;
    t.authuser = "";
    want.id = "1abcDE-000123-4F";
    want.extra = {{"logged", "\"2026-11-22 04:51:13\""}};
    EXPECT_EQ(read(input_format::exim,
                   "2026-11-22 04:51:13 1abcDE-000123-4F <= a@example.org H=mail.example.org "
                   "(helo.example) [192.0.2.1]:51234 I=[192.0.2.9]:25 P=esmtps X=TLS1.3:x:256 "
                   "CV=no S=1234 id=x@y T=\"P=smtpa\""),
              want);
    t.port.reset();
    t.helo.reset();
    t.sender = "";
    t.authuser = "u@example.com";
    t.mua = true;
    want.time = "2026-11-22T04:51:13Z";
    EXPECT_EQ(read(input_format::exim,
                   "2026-11-22 04:51:13 +0000 [77] 1abcDE-000123-4F <= <> H=mail.example.org "
                   "[192.0.2.1] P=esmtpsa X=TLS1.3:x:256 A=plain:u@example.com S=1234"),
              want);
}

TEST(input, clients_as_exim_names_them) {
    const struct {
        const char *client;
        const char *ip;
        std::optional<std::string> helo;
    } cases[] = {
        {"(h) [192.0.2.1]", "192.0.2.1", "h"},
        {"([192.0.2.7]) [192.0.2.1]", "192.0.2.1", "[192.0.2.7]"},
        {"n.example (h) [2001:db8::1]", "2001:db8::1", "h"},
        {"n.example [192.0.2.1]", "192.0.2.1", std::nullopt},
        {"[192.0.2.1]", "192.0.2.1", std::nullopt},
    };
    for (const auto &c : cases) {
        const input_transaction got =
            read(input_format::exim, "2026-11-22 04:51:13 1abcDE-000123-4F <= a@b H=" +
                                         std::string(c.client) + " P=smtp S=1");
        EXPECT_EQ(got.transaction.ip, c.ip) << c.client;
        EXPECT_EQ(got.transaction.helo, c.helo) << c.client;
        EXPECT_EQ(got.transaction.tls, false) << c.client;
        EXPECT_EQ(got.transaction.authuser, "") << c.client;
    }
}

TEST(input, a_rejection_in_exim) {
    transaction want;
    want.ip = "192.0.2.1";
    want.port = "4711";
    want.helo = "h";
    want.sender = "a@b";
    want.recipient = "c@d";
    const char *const front = "2026-11-22 04:51:13 H=(h) [192.0.2.1]:4711 ";
    EXPECT_EQ(read(input_format::exim,
                   std::string(front) + "F=<a@b> rejected RCPT <c@d>: Unrouteable address")
                  .transaction,
              want);
    EXPECT_EQ(
        read(input_format::exim, std::string(front) + "F=<a@b> temporarily rejected RCPT <c@d>")
            .transaction,
        want);
    want.tls = true;
    want.authuser = "u";
    want.mua = true;
    want.sender = "";
    EXPECT_EQ(read(input_format::exim, std::string(front) + "X=TLS1.3:x:256 CV=no F=<> A=login:u "
                                                            "rejected RCPT <c@d>: relay")
                  .transaction,
              want);
}

TEST(input, what_exim_may_put_behind_the_moment) {
    const struct {
        const char *front;
        const char *logged;
        const char *time;
    } cases[] = {
        {"2026-11-22 04:51:13", "2026-11-22 04:51:13", ""},
        {"2026-11-22 04:51:13.123", "2026-11-22 04:51:13.123", ""},
        {"2026-11-22 04:51:13.123 [77]", "2026-11-22 04:51:13.123", ""},
        {"2026-11-22 04:51:13 +0100", "2026-11-22 04:51:13", ""},
        {"2026-11-22 04:51:13 -0930 [77]", "2026-11-22 04:51:13", ""},
        {"2026-11-22 04:51:13 +0000", "2026-11-22 04:51:13", "2026-11-22T04:51:13Z"},
        {"2026-11-22 04:51:13.123 +0000 [77]", "2026-11-22 04:51:13.123",
         "2026-11-22T04:51:13.123Z"},
    };
    for (const auto &c : cases) {
        const std::string rejection =
            std::string(c.front) + " H=(x) [192.0.2.9] F=<a@b> rejected RCPT <c@d>: no";
        const std::string arrival = std::string(c.front) + " 1xVKdO-0005Ti-17 <= a@b H=(x) "
                                                           "[192.0.2.9] P=esmtp S=236";
        for (const std::string &line : {rejection, arrival}) {
            EXPECT_EQ(input_format_of_content(line), input_format::exim) << line;
            const input_transaction got = read(input_format::exim, line);
            EXPECT_EQ(got.transaction.ip, "192.0.2.9") << line;
            EXPECT_EQ(got.transaction.sender, "a@b") << line;
            EXPECT_EQ(got.time, c.time) << line;
            ASSERT_EQ(got.extra.size(), 1u) << line;
            EXPECT_EQ(got.extra[0].second, '"' + std::string(c.logged) + '"') << line;
        }
    }
}

// Lines as Exim 4.96 wrote them.
TEST(input, whom_an_arrival_in_exim_is_for) {
    const struct {
        const char *rest;
        std::optional<std::string> want;
    } cases[] = {
        {"S=236 for bob@example.net", "bob@example.net"},
        {"S=236 from <a@b> for bob@example.net", "bob@example.net"},
        {"S=206 T=\"x for z@w\" from <> for \"x for y@z\"@example.net",
         "\"x for y@z\"@example.net"},
        {"S=253 id=\"x for y@z\"@w T=\"a\" from <\"a\\\\b\"@example.org> for \"a\\\" b\"@c.net",
         "\"a\\\" b\"@c.net"},
        {"S=236", std::nullopt},
        {"S=236 for bob@example.net ann@example.net", std::nullopt},
        {"S=236 for bob@example.net bob@example.net", std::nullopt},
        {"S=236 for ann@example.net \"x for y@z\"@example.net", std::nullopt},
        // Text of the client at the line's end.
        {"S=236 T=\"x for z@w\"", std::nullopt},
        {"S=236 T=\"\\\"a\\\" for \\\"a\\\"@b\"", std::nullopt},
        {"S=236 id=\"x for y@z\"@w", std::nullopt},
        {"S=236 from <\"x for y@z\"@w>", std::nullopt},
        {"DN=\"CN=x\" for y@z\" S=236", std::nullopt},
        {"S=236 for", std::nullopt},
        {"S=236 for ", std::nullopt},
        {"S=236 for bob", std::nullopt},
        {"S=236 for bob@", std::nullopt},
        {"S=236 for @example.net", std::nullopt},
        {"S=236 for \"bob@example.net", std::nullopt},
    };
    for (const auto &c : cases) {
        const std::string line = "2026-11-22 04:51:13 1xVKdO-0005Ti-17 <= a@b H=(x) "
                                 "[192.0.2.9]:4711 P=esmtp " +
                                 std::string(c.rest);
        EXPECT_EQ(read(input_format::exim, line).transaction.recipient, c.want) << line;
    }
}

// Exim logs addresses and HELO as they came: a backslash is the client's, and no escape of Exim's.
TEST(input, bytes_in_exims_addresses) {
    const auto line = [](const std::string &helo, const std::string &from, const std::string &to) {
        return "2026-11-22 04:51:13 H=(" + helo + ") [192.0.2.9]:4711 F=<" + from +
               "> rejected RCPT <" + to + ">: not here";
    };
    for (const char *text : {"j\303\266rg@example.org", "j\\303\\266rg@example.org",
                             "\"a\\\\303b\tc d\"@example.org", "no\\nx@c.net"}) {
        const transaction got = read(input_format::exim, line("h", text, "c@d")).transaction;
        EXPECT_EQ(got.sender, text);
        EXPECT_EQ(read(input_format::exim, line("h", "a@b", text)).transaction.recipient, text);
    }
    EXPECT_EQ(read(input_format::exim, line("h\303\266x", "a@b", "c@d")).transaction.helo,
              "h\303\266x");
    EXPECT_EQ(read(input_format::exim, line("h\\303x", "a@b", "c@d")).transaction.helo, "h\\303x");
}

TEST(input, exim_lines_that_are_refused) {
    const std::string moment = "2026-11-22 04:51:13 ";
    const struct {
        std::string line;
        const char *want;
    } cases[] = {
        {"hello", "1: the line is no arrival and no rejection of Exim's log"},
        {"2026-11-22 04:51:13. H=(h) [192.0.2.1] F=<a@b> rejected RCPT <c@d>: no",
         "1: the line is no arrival and no rejection of Exim's log"},
        {"2026-11-22 04:51:13,123 H=(h) [192.0.2.1] F=<a@b> rejected RCPT <c@d>: no",
         "1: the line is no arrival and no rejection of Exim's log"},
        {"2026-11-22 04:51:13", "1: the line is no arrival and no rejection of Exim's log"},
        {moment + "1abcDE-000123-4F Completed",
         "1: the line is no arrival and no rejection of Exim's log"},
        {moment + "1abcDE-000123-4F <= root@x U=root P=local S=1", "1: the line names no client"},
        {moment + "H=(h) [192.0.2.1] rejected EHLO or HELO h: no", "1: the line names no sender"},
        {moment + "H=(h) [192.0.2.1] F=<a@b> rejected after DATA: no",
         "1: the line does not tell of a recipient"},
        {moment + "H=nothing F=<a@b> rejected RCPT <c@d>: no", "1: the line names no client"},
        // A HELO that holds another client.
        {moment + "H=(h) [198.51.100.1]) [192.0.2.1] F=<a@b> rejected RCPT <c@d>: no",
         "1: the line can be read in several ways"},
        {moment + "1abcDE-000123-4F <= \"x H=y [198.51.100.1]\"@b H=z [192.0.2.1] P=smtp",
         "1: the line can be read in several ways"},
        {moment + "H=(h) [192.0.2.1] F=<a@b> rejected RCPT <c> rejected RCPT <d>: no>: no",
         "1: the line can be read in several ways"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(refusal(input_format::exim, c.line), c.want) << c.line;
    }
}

// --- fields of log lines ---

TEST(log_fields, every_way_is_looked_for) {
    static constexpr log_field fields[] = {{"-", nullptr}, {"", nullptr}};
    std::vector<std::string_view> values;
    EXPECT_EQ(split_log_fields("a-b", fields, &values), log_readings::one);
    EXPECT_EQ(values, (std::vector<std::string_view>{"a", "b"}));
    EXPECT_EQ(split_log_fields("ab", fields, &values), log_readings::none);
    EXPECT_EQ(split_log_fields("a-b-c", fields, &values), log_readings::several);
    static constexpr log_field choosy[] = {
        {"-", [](std::string_view value) { return value.size() == 3; }}, {"", nullptr}};
    EXPECT_EQ(split_log_fields("a-b-c", choosy, &values), log_readings::one);
    EXPECT_EQ(values, (std::vector<std::string_view>{"a-b", "c"}));
}

// Ways that lead nowhere are cut off: what such a line costs is bounded.
TEST(log_fields, too_many_ways_count_as_several) {
    static int judged = 0;
    static constexpr log_field fields[] = {{"-", nullptr},
                                           {"-",
                                            [](std::string_view) {
                                                ++judged;
                                                return true;
                                            }},
                                           {"!", nullptr},
                                           {"", nullptr}};
    std::vector<std::string_view> values;
    EXPECT_EQ(split_log_fields(std::string(10'000, '-'), fields, &values), log_readings::several);
    EXPECT_LE(judged, 1000);
}

} // namespace
} // namespace quillfence::decision
