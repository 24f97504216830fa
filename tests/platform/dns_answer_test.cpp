#include "platform/dns_answer.h"

#include <cstdint>
#include <initializer_list>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "call_watch.h"
#include "failing_memory.h"

namespace quillfence::testing {
namespace {

using platform::dns_record;

constexpr uint32_t no_records = 9501;
constexpr uint32_t bad_packet = 9502;

using bytes = std::string;

// What an answer was read as: the status, and the records as "type target" ("type -" without one).
struct reading {
    uint32_t status;
    std::vector<std::string> records;
    bool operator==(const reading &) const = default;
};

std::ostream &operator<<(std::ostream &out, const reading &read) {
    out << read.status;
    for (const std::string &record : read.records) {
        out << " [" << record << "]";
    }
    return out;
}

reading read(const bytes &message) {
    // A heap block of exactly this size, so that the sanitizer sees a step behind it.
    const std::vector<char> exact(message.begin(), message.end());
    auto *records = reinterpret_cast<dns_record *>(1);
    reading result;
    result.status = platform::read_dns_answer(exact.data(), exact.size(), &records);
    for (const dns_record *record = records; record; record = record->next) {
        result.records.push_back(std::to_string(record->type) + " " +
                                 (record->target ? record->target : "-"));
    }
    EXPECT_EQ(result.status == 0, records != nullptr);
    platform::dns_release(records);
    return result;
}

bytes operator""_b(const char *text, size_t size) {
    return {text, size};
}

// A header: response, recursion desired and available, the given code and counts.
bytes header(unsigned code, unsigned questions, unsigned answers) {
    return {'\x12',
            '\x34',
            '\x81',
            static_cast<char>(0x80 | code),
            '\0',
            static_cast<char>(questions),
            static_cast<char>(answers >> 8),
            static_cast<char>(answers),
            '\0',
            '\0',
            '\0',
            '\0'};
}

// The question behind it, at offset 12: 1.2.0.192.in-addr.arpa. PTR IN.
const bytes question = "\x01"
                       "1"
                       "\x01"
                       "2"
                       "\x01"
                       "0"
                       "\x03"
                       "192"
                       "\x07"
                       "in-addr"
                       "\x04"
                       "arpa"
                       "\0"
                       "\0\x0C"
                       "\0\x01"_b;
constexpr size_t question_name = 12;
constexpr size_t first_answer = 12 + 28; // 24 bytes of name, type, class

// An answer record whose owner is the question's name.
bytes record(unsigned type, const bytes &data, unsigned record_class = 1) {
    bytes made = "\xC0\x0C"_b;
    made += {'\0', static_cast<char>(type), '\0', static_cast<char>(record_class)};
    made += "\0\0\x0E\x10"_b;
    made += {static_cast<char>(data.size() >> 8), static_cast<char>(data.size())};
    return made + data;
}

bytes answer(std::initializer_list<bytes> records, unsigned code = 0) {
    bytes message = header(code, 1, static_cast<unsigned>(records.size())) + question;
    for (const bytes &one : records) {
        message += one;
    }
    return message;
}

// The data of a PTR record: labels in plain form.
bytes name(std::initializer_list<bytes> labels) {
    bytes made;
    for (const bytes &label : labels) {
        made += static_cast<char>(label.size());
        made += label;
    }
    return made + "\0"_b;
}

bytes pointer(size_t offset) {
    return {static_cast<char>(0xC0 | offset >> 8), static_cast<char>(offset)};
}

reading ptr(const std::string &target) {
    return {0, {"12 " + target}};
}

TEST(dns_answer, offsets_of_this_test_are_right) {
    EXPECT_EQ(question.size(), 28u);
    EXPECT_EQ(header(0, 1, 1).size(), question_name);
}

TEST(dns_answer, whole_message_by_hand) {
    // A PTR answer as a server sends it, with an authority record behind it.
    const bytes message = "\xAB\xCD\x85\x80\x00\x01\x00\x01\x00\x01\x00\x00"
                          "\x01"
                          "1"
                          "\x01"
                          "2"
                          "\x01"
                          "0"
                          "\x03"
                          "192"
                          "\x07"
                          "in-addr"
                          "\x04"
                          "arpa"
                          "\x00"
                          "\x00\x0C\x00\x01"
                          "\xC0\x0C\x00\x0C\x00\x01\x00\x00\x0E\x10\x00\x0E"
                          "\x04"
                          "Mail"
                          "\x07"
                          "example"
                          "\x00"
                          "\xC0\x12\x00\x02\x00\x01\x00\x00\x0E\x10\x00\x04"
                          "\x02"
                          "ns"
                          "\x00"_b;
    EXPECT_EQ(read(message), ptr("Mail.example"));
}

TEST(dns_answer, response_codes) {
    for (unsigned code = 1; code < 16; ++code) {
        EXPECT_EQ(read(answer({}, code)), (reading{9000 + code, {}}));
    }
    EXPECT_EQ(read(answer({}, 0)), (reading{no_records, {}}));
    EXPECT_EQ(read(header(5, 0, 0)), (reading{9005, {}})) << "a refusal without the question";
}

TEST(dns_answer, any_record_means_found) {
    const bytes address = record(1, "\xC0\0\x02\x01"_b);
    const bytes address6 = record(28, bytes(16, '\x20'));
    const bytes alias = record(5, name({"other", "example"}));
    const bytes exchanger = record(15, "\0\x0A"_b + name({"mx", "example"}));
    EXPECT_EQ(read(answer({address})), (reading{0, {"1 -"}}));
    EXPECT_EQ(read(answer({address6})), (reading{0, {"28 -"}}));
    EXPECT_EQ(read(answer({alias})), (reading{0, {"5 -"}}));
    EXPECT_EQ(read(answer({exchanger, alias})), (reading{0, {"15 -", "5 -"}}));
    EXPECT_EQ(read(answer({record(1, "")})), (reading{0, {"1 -"}})) << "its data is not looked at";
}

// An alias to a missing name comes as its record with NXDOMAIN.
TEST(dns_answer, response_code_wins_over_records) {
    const bytes alias = record(5, name({"other", "example"}));
    const bytes target = record(12, name({"host", "example"}));
    for (unsigned code = 1; code < 16; ++code) {
        EXPECT_EQ(read(answer({alias}, code)), (reading{9000 + code, {}}));
        EXPECT_EQ(read(answer({alias, target}, code)), (reading{9000 + code, {}}));
    }
    EXPECT_EQ(read(answer({record(12, "\x01"_b)}, 3)), (reading{bad_packet, {}}))
        << "damage goes before the response code";
}

TEST(dns_answer, records_keep_their_order) {
    EXPECT_EQ(read(answer({record(5, name({"a"})), record(12, name({"b", "example"})),
                           record(12, name({"a", "example"}))})),
              (reading{0, {"5 -", "12 b.example", "12 a.example"}}));
}

TEST(dns_answer, names) {
    const bytes label63(63, 'x');
    const bytes longest = name({label63, label63, label63, bytes(61, 'y')});
    ASSERT_EQ(longest.size(), 255u);
    struct {
        const char *name;
        bytes data;
        reading want;
    } const cases[] = {
        {"plain", name({"host", "example"}), ptr("host.example")},
        {"case is kept", name({"HoSt", "EXAMPLE"}), ptr("HoSt.EXAMPLE")},
        {"root", name({}), ptr("")},
        {"pointer to a whole name", pointer(question_name), ptr("1.2.0.192.in-addr.arpa")},
        {"label and pointer",
         "\x04"
         "mail"_b +
             pointer(question_name + 10),
         ptr("mail.in-addr.arpa")},
        {"pointer to a root", pointer(question_name + 23), ptr("")},
        {"longest label", name({label63}), ptr(std::string(63, 'x'))},
        {"longest name", longest,
         ptr(label63 + "." + label63 + "." + label63 + "." + bytes(61, 'y'))},
        {"dot inside a label", name({"a.b", "example"}), ptr("a\\.b.example")},
        {"backslash", name({"a\\b"}), ptr("a\\\\b")},
        {"NUL", name({"a\0b"_b, "example"}), ptr("a\\000b.example")},
        {"blank and TAB", name({" \t"}), ptr("\\032\\009")},
        {"DEL and upper half", name({"\x7F\x80\xFF"}), ptr("\\127\\128\\255")},
        {"quote, star, underscore", name({"\"*_"}), ptr("\"*_")},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(read(answer({record(12, c.data)})), c.want);
    }
}

TEST(dns_answer, longest_text_of_a_name) {
    const bytes odd(63, '\xFF');
    std::string label;
    for (int i = 0; i < 63; ++i) {
        label += "\\255";
    }
    EXPECT_EQ(read(answer({record(12, name({odd, odd, odd, bytes(61, '\xFF')}))})),
              ptr(label + "." + label + "." + label + "." + label.substr(0, 61 * 4)));
}

TEST(dns_answer, names_that_cannot_be_read) {
    const bytes label63(63, 'x');
    const size_t data_at = first_answer + 12;
    struct {
        const char *name;
        bytes data;
    } const cases[] = {
        {"no data", ""},
        {"no end", "\x04"
                   "mail"_b},
        {"label runs out of the message", "\x3F"
                                          "mail"_b},
        {"half a pointer", "\xC0"_b},
        {"pointer to itself", pointer(data_at)},
        {"pointer forward", pointer(data_at + 2) + name({"a"})},
        {"pointer behind the end", pointer(0x3FFF)},
        {"label, then pointer to it", "\x01"
                                      "a"_b +
                                          pointer(data_at)},
        {"pointer into the header, to no label", pointer(2)},
        {"label type 01", "\x41"
                          "a\0"_b},
        {"label type 10", "\x81"
                          "a\0"_b},
        {"name of 256 bytes", name({label63, label63, label63, bytes(62, 'y')})},
        {"bytes behind the name", name({"a"}) + "x"},
        {"bytes behind the pointer", pointer(question_name) + "x"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(read(answer({record(12, c.data)})), (reading{bad_packet, {}}));
        EXPECT_EQ(read(answer({record(12, c.data), record(12, name({"fine"}))})),
                  (reading{bad_packet, {}}))
            << "one bad record spoils the answer";
    }
}

TEST(dns_answer, two_names_that_point_at_each_other) {
    // The first record's name points forward to the second's, which points back.
    const bytes first = record(12, pointer(first_answer + 14 + 12));
    const bytes second = record(12, pointer(first_answer + 12));
    EXPECT_EQ(read(answer({first, second})), (reading{bad_packet, {}}));
}

TEST(dns_answer, data_that_ends_before_its_name) {
    bytes one = record(12, name({"host", "example"}));
    one[11] = 5; // the length
    EXPECT_EQ(read(answer({one})), (reading{bad_packet, {}}));
}

TEST(dns_answer, other_classes_have_no_target) {
    EXPECT_EQ(read(answer({record(12, name({"a"}), 3)})), (reading{0, {"12 -"}}));
}

TEST(dns_answer, counts_that_promise_too_much) {
    const bytes one = record(12, name({"a"}));
    EXPECT_EQ(read(header(0, 1, 2) + question + one), (reading{bad_packet, {}}));
    EXPECT_EQ(read(header(0, 1, 65535) + question + one), (reading{bad_packet, {}}));
    EXPECT_EQ(read(header(0, 2, 0) + question), (reading{bad_packet, {}}));
    EXPECT_EQ(read(header(0, 255, 0)), (reading{bad_packet, {}}));
    EXPECT_EQ(read(header(3, 1, 1) + question), (reading{bad_packet, {}}))
        << "damage goes before the response code";
    // What lies behind the promised records is not looked at.
    EXPECT_EQ(read(answer({one}) + "\xFF\xFF"), ptr("a"));
}

TEST(dns_answer, not_an_answer) {
    bytes asked = answer({record(12, name({"a"}))});
    asked[2] = '\x01';
    EXPECT_EQ(read(asked), (reading{bad_packet, {}}));
    EXPECT_EQ(read(""), (reading{bad_packet, {}}));
}

TEST(dns_answer, two_hundred_names) {
    bytes message = header(0, 1, 200) + question;
    reading want{0, {}};
    for (int i = 0; i < 200; ++i) {
        message += record(12, name({"host-" + std::to_string(i), "example"}));
        want.records.push_back("12 host-" + std::to_string(i) + ".example");
    }
    EXPECT_EQ(read(message), want);
}

const bytes rich = answer({record(5, name({"alias", "example"})),
                           record(12, "\x04"
                                      "mail"_b +
                                          pointer(question_name + 10)),
                           record(12, name({"Host", "Example"}))});
const reading rich_reading = {0, {"5 -", "12 mail.in-addr.arpa", "12 Host.Example"}};

TEST(dns_answer, every_prefix_is_refused) {
    EXPECT_EQ(read(rich), rich_reading);
    for (size_t size = 0; size < rich.size(); ++size) {
        EXPECT_EQ(read(rich.substr(0, size)), (reading{bad_packet, {}})) << size;
    }
}

TEST(dns_answer, every_flipped_byte_gives_an_answer_or_a_refusal) {
    for (size_t at = 0; at < rich.size(); ++at) {
        for (int flip = 1; flip < 256; ++flip) {
            bytes damaged = rich;
            damaged[at] = static_cast<char>(damaged[at] ^ flip);
            const reading got = read(damaged);
            EXPECT_TRUE(got.status == 0 || got.status == bad_packet || got.status == no_records ||
                        (got.status > 9000 && got.status < 9016))
                << at << " ^ " << flip << ": " << got;
            for (const std::string &text : got.records) {
                EXPECT_LE(text.size(), 1023u);
                EXPECT_EQ(text.find_first_not_of(
                              "0123456789 !\"#$%&'()*+,-./:;<=>?@ABCDEFGHIJKLMNOPQRSTUVWXYZ[\\]^_`"
                              "abcdefghijklmnopqrstuvwxyz{|}~"),
                          std::string::npos)
                    << at << " ^ " << flip;
            }
        }
    }
}

TEST(dns_answer, random_bytes) {
    std::mt19937 numbers(1);
    for (int round = 0; round < 20000; ++round) {
        bytes message(numbers() % 200, '\0');
        for (char &byte : message) {
            // Mostly small values, so that lengths and counts make sense now and then.
            byte = static_cast<char>(numbers() % 3 ? numbers() % 20 : numbers());
        }
        if (message.size() > 12) {
            message[2] = '\x81';
            message[6] = '\0';
        }
        read(message);
    }
}

TEST(dns_answer, without_memory) {
    dns_record *records = nullptr;
    uint32_t status = 0;
    const unsigned failed = sweep_allocations(
        [&] { status = platform::read_dns_answer(rich.data(), rich.size(), &records); },
        [&](unsigned n) {
            EXPECT_EQ(status, 8u) << n;
            EXPECT_EQ(records, nullptr) << n;
        });
    EXPECT_EQ(failed, 5u) << "three records, two names";
    EXPECT_EQ(status, 0u);
    platform::dns_release(records);
}

// --- details ---

using texts = std::vector<std::string>;

texts texts_of(const platform::dns_details &details) {
    texts all;
    for (const auto *one = details.records; one; one = one->next) {
        all.push_back(std::to_string(one->type) + " " + one->text);
    }
    EXPECT_EQ(all.size(), details.record_count);
    return all;
}

struct detailed_reading {
    uint32_t status;
    int32_t response_code;
    texts records;
    bool operator==(const detailed_reading &) const = default;
};

std::ostream &operator<<(std::ostream &out, const detailed_reading &read) {
    out << read.status << " code " << read.response_code;
    for (const std::string &record : read.records) {
        out << " [" << record << "]";
    }
    return out;
}

detailed_reading read_details(const bytes &message) {
    const std::vector<char> exact(message.begin(), message.end());
    dns_record *records = nullptr;
    platform::dns_details details = platform::dns_no_details();
    detailed_reading result{};
    result.status = platform::read_dns_answer(exact.data(), exact.size(), &records, &details);
    result.response_code = details.response_code;
    result.records = texts_of(details);
    EXPECT_EQ(details.left_out, 0u);
    EXPECT_FALSE(details.no_memory);
    platform::dns_release(records);
    platform::dns_details_clear(&details);
    return result;
}

TEST(dns_details, records_as_text) {
    const bytes host = name({"Mail", "Example"});
    struct {
        const char *name;
        bytes record;
        const char *want;
    } const cases[] = {
        {"address", record(1, "\x7F\0\0\x02"_b), "1 A 127.0.0.2"},
        {"highest address", record(1, "\xFF\xFF\xFF\xFF"_b), "1 A 255.255.255.255"},
        {"IPv6 address", record(28, "\x20\x01\x0D\xB8\0\0\0\0\0\0\0\0\0\0\0\x01"_b),
         "28 AAAA 2001:db8::1"},
        {"name server", record(2, host), "2 NS Mail.Example."},
        {"alias", record(5, host), "5 CNAME Mail.Example."},
        {"alias behind a pointer", record(5, pointer(question_name + 10)), "5 CNAME in-addr.arpa."},
        {"reverse name", record(12, host), "12 PTR Mail.Example."},
        {"root", record(12, name({})), "12 PTR ."},
        {"bytes that are no name's", record(12, name({"a.b", "new\nline"})),
         "12 PTR a\\.b.new\\010line."},
        {"exchanger", record(15, "\0\x0A"_b + host), "15 MX 10 Mail.Example."},
        {"last exchanger", record(15, "\xFF\xFF"_b + name({})), "15 MX 65535 ."},
        {"text", record(16, "\x02hi"_b), "16 TYPE16 \\# 3 026869"},
        {"no data", record(99, ""), "99 TYPE99 \\# 0"},
        {"other class", record(1, "\x01\x02"_b, 3), "1 CLASS3 A \\# 2 0102"},
        {"other class with a whole name", record(12, host, 4),
         "12 CLASS4 PTR \\# 14 044d61696c074578616d706c6500"},
        {"short address", record(1, "\x7F\0\0"_b), "1 A \\# 3 7f0000"},
        {"long address", record(1, "\x7F\0\0\x01\x01"_b), "1 A \\# 5 7f00000101"},
        {"short IPv6 address", record(28, bytes(15, '\x11')),
         "28 AAAA \\# 15 111111111111111111111111111111"},
        {"alias with bytes behind it", record(5, name({"a"}) + "x"), "5 CNAME \\# 4 01610078"},
        {"alias without end",
         record(5, "\x01"
                   "a"_b),
         "5 CNAME \\# 2 0161"},
        {"exchanger without name", record(15, "\0\x0A"_b), "15 MX \\# 2 000a"},
        {"half a preference", record(15, "\x0A"_b), "15 MX \\# 1 0a"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(read_details(answer({c.record})), (detailed_reading{0, 0, {c.want}}));
    }
}

TEST(dns_details, long_data_is_cut) {
    std::string want = "16 TYPE16 \\# 257 ";
    for (int i = 0; i < 256; ++i) {
        want += "ab";
    }
    EXPECT_EQ(read_details(answer({record(16, bytes(257, '\xAB'))})),
              (detailed_reading{0, 0, {want + "..."}}));
    want.replace(want.find("257"), 3, "256");
    EXPECT_EQ(read_details(answer({record(16, bytes(256, '\xAB'))})),
              (detailed_reading{0, 0, {want}}));
}

TEST(dns_details, longest_name_is_whole) {
    const bytes odd(63, '\xFF');
    std::string label;
    for (int i = 0; i < 63; ++i) {
        label += "\\255";
    }
    EXPECT_EQ(
        read_details(answer({record(15, "\xFF\xFF"_b + name({odd, odd, odd, bytes(61, '\xFF')}))})),
        (detailed_reading{0,
                          0,
                          {"15 MX 65535 " + label + "." + label + "." + label + "." +
                           label.substr(0, 61 * 4) + "."}}));
}

TEST(dns_details, all_records_in_order_next_to_a_response_code_too) {
    const texts want = {"5 CNAME alias.example.", "12 PTR mail.in-addr.arpa.", "1 A 192.0.2.1"};
    for (unsigned code = 0; code < 16; ++code) {
        const bytes message = answer({record(5, name({"alias", "example"})),
                                      record(12, "\x04"
                                                 "mail"_b +
                                                     pointer(question_name + 10)),
                                      record(1, "\xC0\0\x02\x01"_b)},
                                     code);
        EXPECT_EQ(read_details(message),
                  (detailed_reading{code ? 9000 + code : 0, static_cast<int32_t>(code), want}));
    }
}

TEST(dns_details, answers_that_cannot_be_read) {
    EXPECT_EQ(read_details("short"), (detailed_reading{bad_packet, -1, {}}));
    EXPECT_EQ(read_details(answer({record(1, "\x7F\0\0\x02"_b), record(12, "\x05"_b)}, 3)),
              (detailed_reading{bad_packet, 3, {"1 A 127.0.0.2"}}))
        << "what stood before the damage";
}

TEST(dns_details, a_thousand_records_are_kept) {
    bytes message = header(0, 1, 1200) + question;
    for (int i = 0; i < 1200; ++i) {
        message += record(1, {'\x7F', '\0', static_cast<char>(i >> 8), static_cast<char>(i)});
    }
    dns_record *records = nullptr;
    platform::dns_details details = platform::dns_no_details();
    EXPECT_EQ(platform::read_dns_answer(message.data(), message.size(), &records, &details), 0u);
    EXPECT_EQ(details.record_count, 1000u);
    EXPECT_EQ(details.left_out, 200u);
    EXPECT_STREQ(details.records->text, "A 127.0.0.0");
    EXPECT_STREQ(details.last->text, "A 127.0.3.231");
    platform::dns_details_clear(&details);
    platform::dns_release(records);
}

TEST(dns_details, without_memory_the_result_is_the_same) {
    dns_record *records = nullptr;
    platform::dns_details details = platform::dns_no_details();
    uint32_t status = 0;
    unsigned missing = 0;
    const auto operation = [&] {
        platform::dns_release(records);
        platform::dns_details_clear(&details);
        status = platform::read_dns_answer(rich.data(), rich.size(), &records, &details);
    };
    const unsigned failed = sweep_allocations(operation, [&](unsigned n) {
        EXPECT_TRUE(status == 8 || (status == 0 && details.no_memory)) << n;
        missing += status == 0;
    });
    EXPECT_EQ(failed, 8u) << "three records, two names, three texts";
    EXPECT_EQ(missing, 3u);
    EXPECT_EQ(texts_of(details), (texts{"5 CNAME alias.example.", "12 PTR mail.in-addr.arpa.",
                                        "12 PTR Host.Example."}));
    platform::dns_details_clear(&details);
    platform::dns_release(records);
}

TEST(dns_details, cleared) {
    platform::dns_details details = platform::dns_no_details();
    EXPECT_STREQ(details.server, "");
    EXPECT_EQ(details.transport, platform::dns_transport::unknown);
    EXPECT_EQ(details.tries, 0u);
    EXPECT_EQ(details.microseconds, -1);
    EXPECT_EQ(details.response_code, -1);
    platform::dns_details_add(&details, 1, "A 192.0.2.1");
    details.tries = 3;
    platform::dns_details_clear(&details);
    EXPECT_EQ(details.records, nullptr);
    EXPECT_EQ(details.last, nullptr);
    EXPECT_EQ(details.tries, 0u);
    EXPECT_EQ(details.response_code, -1);
    platform::dns_details_clear(nullptr);
}

TEST(dns_details, type_names) {
    const struct {
        uint16_t type;
        const char *want;
    } cases[] = {{1, "A"},     {2, "NS"},    {5, "CNAME"}, {12, "PTR"},    {15, "MX"},
                 {28, "AAAA"}, {0, "TYPE0"}, {6, "TYPE6"}, {16, "TYPE16"}, {65535, "TYPE65535"}};
    for (const auto &[type, want] : cases) {
        char text[platform::dns_type_name_size];
        EXPECT_STREQ(platform::dns_type_name(type, text), want);
    }
}

// --- questions ---

uint32_t stand_in(const char *, uint16_t type, uint32_t, dns_record **records) {
    const allocation_pause pause;
    if (type == platform::dns_type_ptr) {
        *records = platform::dns_new_record(5, nullptr);
        (*records)->next = platform::dns_new_record(12, "Host.Example");
    }
    return type == platform::dns_type_ptr ? 0 : 9003;
}

class dns_questions : public ::testing::Test {
  protected:
    dns_questions() {
        platform::set_dns_stand_in(stand_in);
    }
    ~dns_questions() override {
        platform::set_dns_stand_in(nullptr);
        platform::dns_release(records);
        platform::dns_details_clear(&details);
    }
    dns_record *records = nullptr;
    platform::dns_details details = platform::dns_no_details();
};

TEST_F(dns_questions, details_of_a_stand_in) {
    EXPECT_EQ(platform::dns_query_detailed("a.example.", 12, 0, &records, &details), 0u);
    EXPECT_EQ(details.status, 0u);
    EXPECT_GE(details.microseconds, 0);
    EXPECT_STREQ(details.server, "");
    EXPECT_EQ(texts_of(details), (texts{"5 CNAME", "12 PTR Host.Example."}));
}

TEST_F(dns_questions, details_of_a_failure) {
    EXPECT_EQ(platform::dns_query_detailed("a.example.", 1, 0, &records, &details), 9003u);
    EXPECT_EQ(details.status, 9003u);
    EXPECT_EQ(records, nullptr);
    EXPECT_EQ(texts_of(details), texts{});
}

TEST_F(dns_questions, stale_details_are_overwritten) {
    details.tries = 7;
    EXPECT_EQ(platform::dns_query_detailed(nullptr, 1, 0, &records, &details), 87u);
    EXPECT_EQ(details.status, 87u);
    EXPECT_EQ(details.tries, 0u);
    EXPECT_EQ(details.microseconds, -1) << "nothing was asked";
}

// Nobody asks: the question costs what the stand-in costs.
TEST_F(dns_questions, without_details_nothing_is_paid) {
    const unsigned long start = allocations_made();
    const uint32_t plain_status = platform::dns_query("a.example.", 12, 0, &records);
    const unsigned long plain = allocations_made() - start;
    EXPECT_EQ(plain_status, 0u);
    EXPECT_EQ(plain, 0u);
    platform::dns_release(records);
    const unsigned long middle = allocations_made();
    platform::dns_query_detailed("a.example.", 12, 0, &records, &details);
    const unsigned long detailed = allocations_made() - middle;
    EXPECT_EQ(detailed, 2u) << "two texts";
}

TEST_F(dns_questions, one_call_of_the_seam_each) {
    call_watch watch;
    EXPECT_EQ(platform::dns_query("a.example.", 12, 0, &records), 0u);
    EXPECT_EQ(watch.take(), texts{"dns_query"});
    platform::dns_release(records);
    EXPECT_EQ(platform::dns_query_detailed("a.example.", 12, 0, &records, &details), 0u);
    EXPECT_EQ(watch.take(), texts{"dns_query"}) << "the clock is no call of the seam";
}

TEST_F(dns_questions, refused_by_an_observer) {
    call_watch watch;
    watch.fail("dns_query", 1, 9002);
    EXPECT_EQ(platform::dns_query_detailed("a.example.", 12, 0, &records, &details), 9002u);
    EXPECT_EQ(details.status, 9002u);
    EXPECT_EQ(records, nullptr);
}

TEST_F(dns_questions, of_a_client) {
    platform::dns_client *client = nullptr;
    ASSERT_EQ(platform::dns_client_open(nullptr, &client), 0u);
    EXPECT_EQ(platform::dns_client_query(client, "a.example.", 12, 0, &records, &details), 0u);
    EXPECT_EQ(texts_of(details), (texts{"5 CNAME", "12 PTR Host.Example."}));
    platform::dns_client_close(client);
    platform::dns_client_close(nullptr);
}

TEST(dns_client, refused_by_an_observer) {
    call_watch watch;
    watch.fail("dns_client_open", 1, 5);
    auto *client = reinterpret_cast<platform::dns_client *>(1);
    EXPECT_EQ(platform::dns_client_open(nullptr, &client), 5u);
    EXPECT_EQ(client, nullptr);
}

TEST(dns_record, made_and_released) {
    char text[] = "target";
    dns_record *record = platform::dns_new_record(12, text);
    ASSERT_NE(record, nullptr);
    text[0] = 'T';
    EXPECT_STREQ(record->target, "target") << "a copy";
    EXPECT_EQ(record->type, 12);
    EXPECT_EQ(record->next, nullptr);
    record->next = platform::dns_new_record(1, nullptr);
    EXPECT_EQ(record->next->target, nullptr);
    platform::dns_release(record);
    platform::dns_release(nullptr);
}

TEST(dns_query, refuses_null_pointers) {
    dns_record *records = nullptr;
    EXPECT_EQ(platform::dns_query(nullptr, 1, 0, &records), 87u);
    EXPECT_EQ(platform::dns_query("a.example.", 1, 0, nullptr), 87u);
}

} // namespace
} // namespace quillfence::testing
