// The worst texts that a client can send: mail addresses, headers, packets.
#include "cost.h"
#include "drive_c.h"
#include "heap_text.h"
#include "known_sender_forgery_funcs.h"
#include "qfd-packet.h"
#include "vc_file.h"
#include "vc_list.h"
#include "vc_rfc.h"

namespace quillfence::testing {
namespace {

class bounds_text : public drive_test {};

// --- Addresses and headers ---

void judge(const std::string &text) {
    vc_rfc822_email_address(text.c_str(), nullptr);
}

void extract(const std::string &text) {
    free(vc_extract_address_from_mailbox(text.c_str()));
}

void remove_comment(const std::string &text) {
    const text_slot slot(text);
    char *behind = nullptr;
    __vc_parse_comment(slot.text, &behind);
}

void split(const std::string &text) {
    vc_list_entry *list = vc_split_addresses(text.c_str());
    vc_destroy_list(&list, free);
}

void parse_header(const std::string &text) {
    vc_list_entry *list = vc_parse_addresses_from_header(text.c_str());
    vc_destroy_list(&list, free);
}

void check_parts(const std::string &text) {
    vc_is_ip(text.c_str());
    is_localhost(text.c_str());
    vc_valid_domain(text.c_str());
    vc_valid_email_address(text.c_str());
    free(ksf_parse_mail_from_domain(text.c_str()));
}

template <char const *piece>
std::string row_before_address(size_t size) {
    return rows_of(size, piece, "", "a@b.example");
}

constexpr char comments[] = "()";
constexpr char long_comments[] = "(a b c)x";
constexpr char open_comments[] = "(";
constexpr char closed_comments[] = ")";
constexpr char quotes[] = "\"";
constexpr char phrases[] = "\"a\" ";
constexpr char backslashes[] = "\\";
constexpr char brackets[] = "<";
constexpr char commas[] = ",";
constexpr char blanks[] = " ";
constexpr char letters[] = "a";
constexpr char dots[] = ".";
constexpr char labels[] = "a.";
constexpr char at_signs[] = "@";
constexpr char mailboxes[] = "(c)\"q\"<a@b.example>,";

// 999 comments in one, and that many times over: as deep as they go.
std::string deep_comments(size_t size) {
    return rows_of(size, std::string(999, '(') + std::string(999, ')'), "(", ")a@b.example");
}
std::string siblings_in_a_comment(size_t size) {
    return rows_of(size, "()", "(", ")a@b.example");
}
std::string escapes_in_a_comment(size_t size) {
    return rows_of(size, "\\)", "(", ")a@b.example");
}
std::string escapes_in_quotes(size_t size) {
    return rows_of(size, "\\\"", "\"", "\"<a@b.example>");
}
std::string long_address(size_t size) {
    return rows_of(size, "a", "<", "@b.example>");
}

TEST_F(bounds_text, addresses_cost_as_much_as_they_are_long) {
    static constexpr growing_input rows[] = {
        {"comments", row_before_address<comments>, judge, 30, 2, 2},
        {"comments between letters", row_before_address<long_comments>, judge, 30, 2, 2},
        {"comments in a comment", siblings_in_a_comment, judge, 30, 2, 2},
        {"comments as deep as they go", deep_comments, judge, 30, 2, 2},
        {"escapes in a comment", escapes_in_a_comment, judge, 30, 2, 2},
        {"unclosed comments", row<open_comments>, judge, 30, 2, 2},
        {"closing parentheses", row<closed_comments>, judge, 30, 2, 2},
        {"quotes", row<quotes>, judge, 30, 2, 2},
        {"phrases", row_before_address<phrases>, judge, 30, 2, 2},
        {"escapes in quotes", escapes_in_quotes, judge, 30, 2, 2},
        {"backslashes", row<backslashes>, judge, 30, 2, 2},
        {"brackets", row<brackets>, judge, 30, 2, 2},
        {"blanks", row_before_address<blanks>, judge, 30, 2, 2},
        {"letters", row_before_address<letters>, judge, 30, 2, 2},
        {"a long address in brackets", long_address, judge, 30, 3, 3},
        {"a mailbox of comments", row_before_address<comments>, extract, 30, 3, 3},
        {"a mailbox of comments and letters", row_before_address<long_comments>, extract, 30, 3, 3},
        {"a mailbox of deep comments", deep_comments, extract, 30, 3, 3},
        {"a mailbox of phrases", row_before_address<phrases>, extract, 30, 3, 3},
        {"a mailbox of blanks", row_before_address<blanks>, extract, 30, 3, 3},
        {"one comment of comments", siblings_in_a_comment, remove_comment, 30, 2, 2},
        {"one comment of deep comments", deep_comments, remove_comment, 30, 2, 2},
        {"domain of labels", row<labels>, check_parts, 30, 2, 2},
        {"domain of dots", row<dots>, check_parts, 30, 2, 2},
        {"at signs", row<at_signs>, check_parts, 30, 2, 2},
        {"letters alone", row<letters>, check_parts, 30, 2, 2},
    };
    expect_in_step(rows, 100'000);
}

TEST_F(bounds_text, headers_cost_as_much_as_they_are_long) {
    static constexpr growing_input rows[] = {
        {"commas", row<commas>, split, 100, 50, every_byte},
        {"mailboxes", row<mailboxes>, split, 60, 20, every_byte},
        {"unclosed quotes", row<quotes>, split, 60, 4, every_byte},
        {"unclosed comments", row<open_comments>, split, 60, 4, every_byte},
        {"comments", row<comments>, split, 60, 4, every_byte},
        {"deep comments", deep_comments, split, 60, 4, every_byte},
        {"blanks", row<blanks>, split, 60, 4, every_byte},
        {"addresses of mailboxes", row<mailboxes>, parse_header, 100, 20, every_byte},
        {"address of comments", row_before_address<comments>, parse_header, 100, 20, every_byte},
    };
    expect_in_step(rows, 100'000);
    log.take(); // a part that is empty has a line
}

// A thousand levels are judged, one more is not closed, and no number of them uses the stack up.
TEST_F(bounds_text, comments_nest_a_thousand_deep) {
    const auto nested = [](size_t depth) {
        return std::string(depth, '(') + std::string(depth, ')') + "a@b.example";
    };
    EXPECT_EQ(vc_rfc822_email_address(nested(1000).c_str(), nullptr), 1);
    EXPECT_EQ(vc_rfc822_email_address(nested(1001).c_str(), nullptr), 0);
    const std::string endless = nested(1'000'000);
    const cost spent = cost_of([&] { vc_rfc822_email_address(endless.c_str(), nullptr); });
    EXPECT_LE(spent.steps, 4 * endless.size()) << "the copy, and a thousand levels";
}

// --- Packets ---

constexpr char stream_file[] = "c:/quillfence/stream";

// A stream of 0xFF bytes: every text has the largest length, and the stream does not end.
TEST_F(bounds_text, a_packet_takes_the_largest_texts_and_no_more) {
    drive.write(stream_file, std::string(1 << 20, '\xFF'));
    vc_handle file = vc_open_ex(stream_file, 0, 0, 0);
    qfd_request_packet *packet = nullptr;
    const cost request = cost_of([&] { packet = qfd_request_packet_receive(file); });
    ASSERT_NE(packet, nullptr);
    EXPECT_EQ(packet->tolen, 65535);
    EXPECT_EQ(strlen(packet->to), 65535U);
    qfd_request_packet_free(packet);
    EXPECT_EQ(vc_tell(file), 6 * (2 + 65535) + 2) << "the rest stays in the stream";
    EXPECT_EQ(request.allocations, 1U + 6) << "the record and its texts";
    EXPECT_LE(request.bytes, 6 * 65536 + sizeof(qfd_request_packet));
    EXPECT_EQ(request.reads, 6U * (1 + 16) + 2) << "lengths, texts by 4096 bytes, two flags";

    ASSERT_EQ(vc_seek(file, 0, 0), 1);
    const cost response = cost_of([&] { EXPECT_EQ(qfd_response_packet_receive(file), nullptr); });
    EXPECT_EQ(log.errors(), lines{"qfd_response_packet_receive: Invalid daemon response packet id "
                                  "[65535] or result [-1]"});
    EXPECT_LE(response.bytes, 2 * 65536 + sizeof(qfd_response_packet) + 1024);
    EXPECT_EQ(response.reads, 2U * (1 + 16) + 2);
    vc_close(file);
}

TEST_F(bounds_text, a_stream_that_ends_inside_a_text_ends_the_packet) {
    drive.write(stream_file, std::string(1000, '\xFF'));
    vc_handle file = vc_open_ex(stream_file, 0, 0, 0);
    qfd_request_packet *packet = nullptr;
    const cost spent = cost_of([&] { packet = qfd_request_packet_receive(file); });
    ASSERT_NE(packet, nullptr);
    EXPECT_EQ(packet->iplen, 65535);
    EXPECT_EQ(strlen(packet->ip), 998U);
    EXPECT_EQ(packet->tolen, 0);
    qfd_request_packet_free(packet);
    EXPECT_LE(spent.reads, 12U) << "one for each field, and one that finds the end";
    EXPECT_LE(spent.bytes, 65536 + sizeof(qfd_request_packet));
    vc_close(file);
}

} // namespace
} // namespace quillfence::testing
