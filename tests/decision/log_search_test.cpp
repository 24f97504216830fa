#include <algorithm>
#include <cstring>
#include <functional>
#include <random>

#include <gtest/gtest.h>
#include <zlib.h>

#include "drive_c.h"
#include "failing_memory.h"
#include "log_bytes.h"
#include "log_files.h"
#include "log_filter.h"
#include "log_lines.h"
#include "log_moment.h"
#include "log_record.h"
#include "log_tally.h"
#include "platform/error_numbers.h"
#include "record_writer.h"
#include "utc_text.h"

namespace quillfence::testing {
namespace {

using namespace decision;

// --- bytes and lines ----------------------------------------------------------------------------

std::string gzipped(const std::string &bytes) {
    z_stream stream{};
    EXPECT_EQ(deflateInit2(&stream, 9, Z_DEFLATED, MAX_WBITS + 16, 8, Z_DEFAULT_STRATEGY), Z_OK);
    std::string made(deflateBound(&stream, static_cast<uLong>(bytes.size())) + 64, '\0');
    stream.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(bytes.data()));
    stream.avail_in = static_cast<uInt>(bytes.size());
    stream.next_out = reinterpret_cast<Bytef *>(made.data());
    stream.avail_out = static_cast<uInt>(made.size());
    EXPECT_EQ(deflate(&stream, Z_FINISH), Z_STREAM_END);
    made.resize(stream.total_out);
    deflateEnd(&stream);
    return made;
}

// A source that gives so many bytes at a time.
log_bytes::source source_of(const std::string &bytes, size_t piece = 1 << 20) {
    return [&bytes, piece, at = size_t{0}](void *to, uint32_t size, uint32_t *got) mutable {
        *got = static_cast<uint32_t>(std::min({size_t{size}, piece, bytes.size() - at}));
        std::memcpy(to, bytes.data() + at, *got);
        at += *got;
        return uint32_t{0};
    };
}

struct taken {
    std::string bytes;
    std::string problem;
    bool operator==(const taken &) const = default;
};
std::ostream &operator<<(std::ostream &out, const taken &one) {
    return out << '"' << one.bytes << "\" " << one.problem;
}

taken all_of(const std::string &bytes, size_t piece = 1 << 20) {
    log_bytes from(source_of(bytes, piece));
    taken made;
    char buffer[1000];
    while (const size_t got = from.read(buffer, sizeof buffer)) {
        made.bytes.append(buffer, got);
    }
    made.problem = from.problem();
    return made;
}

TEST(log_bytes, plain_and_compressed_ones_are_told_by_their_first_bytes) {
    const std::string text = "a line\nanother\n";
    for (const size_t piece : {1u, 2u, 7u, 1u << 20}) {
        EXPECT_EQ(all_of(text, piece), (taken{text, ""}));
        EXPECT_EQ(all_of(gzipped(text), piece), (taken{text, ""}));
        EXPECT_EQ(all_of(gzipped(text) + gzipped("third\n"), piece), (taken{text + "third\n", ""}))
            << "several, one behind the other";
        EXPECT_EQ(all_of(gzipped(text) + std::string(512, '\0'), piece), (taken{text, ""}))
            << "filled up with zeros";
    }
    EXPECT_EQ(all_of(""), (taken{"", ""}));
    EXPECT_EQ(all_of(gzipped("")), (taken{"", ""}));
    EXPECT_EQ(all_of("\x1f"), (taken{"\x1f", ""})) << "one byte of the mark";
}

TEST(log_bytes, damage_is_told_behind_what_is_sound) {
    std::string text;
    for (int i = 0; i < 5000; ++i) {
        text += std::to_string(i * 7919) + '\n';
    }
    const std::string whole = gzipped(text);
    for (size_t size = 2; size < whole.size(); size += 97) {
        const taken got = all_of(whole.substr(0, size));
        EXPECT_EQ(got.problem, "ends in the midst of its compressed data") << size;
        EXPECT_TRUE(text.starts_with(got.bytes)) << size;
    }
    std::string damaged = whole;
    damaged[damaged.size() - 6] ^= 1; // of the checksum
    EXPECT_EQ(all_of(damaged),
              (taken{text, "its compressed data is damaged: incorrect data check"}));
    EXPECT_EQ(all_of(whole + "plain text\n"),
              (taken{text, "something else follows behind the compressed data"}));
}

TEST(log_bytes, what_other_programs_compressed_is_named) {
    const std::string advice = "; unpack it with ";
    EXPECT_EQ(all_of(std::string("\xfd"
                                 "7zXZ\0...",
                                 9))
                  .problem,
              "is compressed by xz; unpack it with xz -dc and give it on standard input");
    EXPECT_EQ(all_of("\x28\xb5\x2f\xfd....").problem.substr(0, 21), "is compressed by zstd");
    EXPECT_EQ(all_of("BZh9....").problem.substr(0, 22), "is compressed by bzip2");
}

TEST(log_bytes, a_source_that_fails_is_told) {
    log_bytes from([](void *, uint32_t, uint32_t *) { return platform::error_access_denied; });
    char byte;
    EXPECT_EQ(from.read(&byte, 1), 0u);
    EXPECT_EQ(from.problem(), "Permission denied");
    EXPECT_EQ(from.error(), static_cast<uint32_t>(platform::error_access_denied));
}

struct line_seen {
    std::string text;
    uint64_t number;
    bool too_long = false;
    bool operator==(const line_seen &) const = default;
};

std::vector<line_seen> lines_of(const std::string &bytes, size_t piece = 1 << 20) {
    log_bytes from(source_of(bytes, piece));
    log_lines lines(from);
    std::vector<line_seen> all;
    decision::log_line line;
    while (lines.next(&line)) {
        all.push_back({std::string(line.text), line.number, line.too_long});
    }
    if (lines.rest(&line)) {
        all.push_back({std::string(line.text), line.number, line.too_long});
    }
    EXPECT_FALSE(lines.rest(&line));
    return all;
}

TEST(log_lines, with_and_without_ends) {
    using seen = std::vector<line_seen>;
    for (const size_t piece : {1u, 3u, 1u << 20}) {
        EXPECT_EQ(lines_of("a\nb\r\n\nc", piece), (seen{{"a", 1}, {"b", 2}, {"", 3}, {"c", 4}}));
        EXPECT_EQ(lines_of("", piece), seen{});
        EXPECT_EQ(lines_of("\n", piece), (seen{{"", 1}}));
    }
}

TEST(log_lines, one_that_is_too_long_is_passed_over_and_counted) {
    using seen = std::vector<line_seen>;
    const std::string most(longest_log_line, 'x');
    EXPECT_EQ(lines_of("a\n" + most + "\nb\n"), (seen{{"a", 1}, {most, 2}, {"b", 3}}));
    EXPECT_EQ(lines_of("a\n" + most + "x\nb\n"), (seen{{"a", 1}, {"", 2, true}, {"b", 3}}));
    const std::string ten_times(10 * longest_log_line, 'x');
    EXPECT_EQ(lines_of("a\n" + ten_times + "\nb"), (seen{{"a", 1}, {"", 2, true}, {"b", 3}}));
    EXPECT_EQ(lines_of(ten_times), (seen{{"", 1, true}})) << "without an end";
}

TEST(log_lines, a_line_waits_for_its_end) {
    std::string bytes = "a\nb";
    log_bytes from(source_of(bytes));
    log_lines lines(from);
    decision::log_line line;
    ASSERT_TRUE(lines.next(&line));
    EXPECT_FALSE(lines.next(&line));
    bytes += "c\n";
    ASSERT_TRUE(lines.next(&line));
    EXPECT_EQ(line.text, "bc");
}

TEST(log_lines, what_a_small_file_grows_to_costs_no_memory) {
    constexpr size_t grown = size_t{64} << 20;
    for (const char filling : {'x', '\n'}) {
        std::string small;
        { small = gzipped(std::string(grown, filling)); }
        ASSERT_LT(small.size(), grown / 500);
        const unsigned long long before = bytes_asked_for();
        log_bytes from(source_of(small));
        log_lines lines(from);
        uint64_t count = 0;
        decision::log_line line;
        while (lines.next(&line) || lines.rest(&line)) {
            count += filling == 'x' ? line.too_long : 1u;
        }
        EXPECT_EQ(count, filling == 'x' ? 1 : grown);
        EXPECT_LT(bytes_asked_for() - before, 4 * longest_log_line);
    }
}

// --- moments ------------------------------------------------------------------------------------

constexpr int64_t second = 1000;
constexpr int64_t day = 86'400 * second;
constexpr int64_t midnight = 20'779 * day; // 2026-11-22

TEST(log_moment, of_records) {
    const struct {
        const char *text;
        std::optional<int64_t> want;
    } cases[] = {
        {"2026-11-22T00:00:00Z", midnight},
        {"2026-11-22T00:00:01.250Z", midnight + 1250},
        {"2026-11-22T00:00:00.1239999Z", midnight + 123},
        {"2026-11-22t01:00:00+01:00", midnight},
        {"2026-11-21 23:30:00-00:30", midnight},
        {"1970-01-01T00:00:00Z", 0},
        {"1969-12-31T23:59:59.5Z", -500},
        {"2026-11-22T00:00:60Z", midnight + 60 * second},
        {"2024-02-29T00:00:00Z", 19'782 * day},
        {"2026-02-29T00:00:00Z", std::nullopt},
        {"2026-13-01T00:00:00Z", std::nullopt},
        {"2026-11-22T24:00:00Z", std::nullopt},
        {"2026-11-22T00:00:00", std::nullopt},
        {"2026-11-22T00:00Z", std::nullopt},
        {"2026-11-22", std::nullopt},
        {"2026-11-22T00:00:00.Z", std::nullopt},
        {"2026-11-22T00:00:00Z ", std::nullopt},
        {"", std::nullopt},
        {"yesterday", std::nullopt},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(read_moment(c.text), c.want) << c.text;
    }
    EXPECT_EQ(read_moment(utc_text(midnight / second, 7)), midnight + 7);
}

TEST(log_moment, as_people_ask) {
    const int64_t now = midnight + 3'600 * second + 5;
    const struct {
        const char *text;
        std::optional<int64_t> want;
    } cases[] = {
        {"2026-11-22", midnight},
        {"2026-11-22T04:51", midnight + (4 * 3600 + 51 * 60) * second},
        {"2026-11-22 04:51:13", midnight + (4 * 3600 + 51 * 60 + 13) * second},
        {"2026-11-22T01:00+01:00", midnight},
        {"today", midnight},
        {"yesterday", midnight - day},
        {"90s", now - 90 * second},
        {"30m", now - 1800 * second},
        {"2h", now - 7200 * second},
        {"3d", now - 3 * day},
        {"1w", now - 7 * day},
        {"2", std::nullopt},
        {"h", std::nullopt},
        {"-2h", std::nullopt},
        {"2 h", std::nullopt},
        {"99999999999999999999h", std::nullopt},
        {"tomorrow", std::nullopt},
        {"22.11.2026", std::nullopt},
        {"", std::nullopt},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(read_asked_moment(c.text, now), c.want) << c.text;
    }
}

// --- records and filters ------------------------------------------------------------------------

// A record of which every filter can ask something.
decision_record sample() {
    decision_record record;
    record.id = "3f2a.7";
    record.time = "2026-11-22T04:51:13.123Z";
    record.transaction.ip = "192.0.2.9";
    record.transaction.helo = "mail.spammer.example";
    record.transaction.sender = "X@Sub.Spammer.example";
    record.transaction.recipient = "bob@example.net";
    record.extra = {{"answered", "\"DUNNO\""}};
    record.decision.is = verdict::reject;
    record.decision.by = decided_by::rule;
    record.decision.rule = "from_blacklist";
    return record;
}

std::string line_of(const decision_record &record) {
    std::string line;
    write_record(line, record, record_form::brief);
    return line;
}

log_record read(const decision_record &record) {
    log_record made;
    EXPECT_EQ(read_log_record(line_of(record), log_depth::for_sums, &made), "");
    return made;
}

TEST(log_record, what_a_line_tells) {
    const log_record got = read(sample());
    EXPECT_EQ(got.id, "3f2a.7");
    EXPECT_EQ(got.at, midnight + (4 * 3600 + 51 * 60 + 13) * second + 123);
    EXPECT_EQ(got.transaction, sample().transaction);
    EXPECT_EQ(got.decision, sample().decision);
    EXPECT_EQ(got.answered, "DUNNO");
    EXPECT_TRUE(looks_like_record(line_of(sample())));
}

TEST(log_record, what_is_none) {
    log_record record;
    const auto why = [&record](const char *line) {
        return read_log_record(line, log_depth::for_searching, &record);
    };
    EXPECT_EQ(why("{\"schema\":\"quillfence.decision/1\",\"id\":\"1"),
              "the document ends in a text");
    EXPECT_EQ(why("\x01\x02"), "a value is missing");
    EXPECT_EQ(why("{\"a\":1}"), "is no decision record");
    EXPECT_EQ(why(R"({"error":"the document ends too early","line":3})"),
              "batch could not judge this one: the document ends too early");
    EXPECT_NE(why("[]"), "");
    EXPECT_NE(why(R"({"schema":"quillfence.decision/2"})"), "");
    EXPECT_EQ(why(R"({"schema":"quillfence.decision/1","transaction":{"stage":"RCPT","ip":7}})"),
              "transaction.ip: is not a text");
}

TEST(log_record, the_answers_of_a_service) {
    EXPECT_EQ(answer_of_text(""), log_answer::none);
    EXPECT_EQ(answer_of_text("DUNNO"), log_answer::dunno);
    EXPECT_EQ(answer_of_text("550 5.7.1 no"), log_answer::reject);
    EXPECT_EQ(answer_of_text("WARN no"), log_answer::warn);
    EXPECT_EQ(answer_of_text("OK"), log_answer::ok);
    EXPECT_EQ(answer_of_text("PREPEND X-A: b"), log_answer::other);
}

TEST(log_filter, networks) {
    const auto holds = [](const char *network, const char *address) {
        log_filter filter;
        const auto read_one = read_client_network(network);
        EXPECT_TRUE(read_one) << network;
        filter.clients = {*read_one};
        decision_record record = sample();
        record.transaction.ip = address;
        return passes(filter, read(record));
    };
    EXPECT_TRUE(holds("192.0.2.9", "192.0.2.9"));
    EXPECT_FALSE(holds("192.0.2.9", "192.0.2.90"));
    EXPECT_TRUE(holds("192.0.2.77/24", "192.0.2.9")) << "bits behind the prefix";
    EXPECT_TRUE(holds("192.0.2.8/31", "192.0.2.9"));
    EXPECT_FALSE(holds("192.0.2.10/31", "192.0.2.9"));
    EXPECT_TRUE(holds("0.0.0.0/0", "255.255.255.255"));
    EXPECT_FALSE(holds("0.0.0.0/0", "::1"));
    EXPECT_TRUE(holds("2001:db8::/33", "2001:db8:7fff::1"));
    EXPECT_FALSE(holds("2001:db8::/33", "2001:db8:8000::1"));
    EXPECT_TRUE(holds("2001:DB8::1", "2001:db8:0:0:0:0:0:1"));
    EXPECT_FALSE(holds("192.0.2.9", "no address"));
    for (const char *wrong : {"", "192.0.2", "192.0.2.9/33", "192.0.2.9/", "192.0.2.9/-1", "::/129",
                              "192.0.2.0/24/8", "mail.example.org", "192.0.2.0/ 24"}) {
        EXPECT_FALSE(read_client_network(wrong)) << wrong;
    }
}

TEST(log_filter, one_member_each) {
    const struct {
        const char *name;
        bool want;
        std::function<void(log_filter &)> set;
    } cases[] = {
        {"nothing", true, [](log_filter &) {}},
        {"sender", true, [](log_filter &f) { f.senders = {"x@sub.spammer.EXAMPLE"}; }},
        {"part of a sender", false, [](log_filter &f) { f.senders = {"sub.spammer.example"}; }},
        {"@domain", true, [](log_filter &f) { f.senders = {"@sub.spammer.example"}; }},
        {"@domain above", false, [](log_filter &f) { f.senders = {"@spammer.example"}; }},
        {"no bounce", false, [](log_filter &f) { f.senders = {"<>"}; }},
        {"either sender", true,
         [](log_filter &f) {
             f.senders = {"<>", "@sub.spammer.example"};
         }},
        {"recipient", true, [](log_filter &f) { f.recipients = {"bob@example.net"}; }},
        {"other recipient", false, [](log_filter &f) { f.recipients = {"x@sub.spammer.example"}; }},
        {"domain", true, [](log_filter &f) { f.domains = {"sub.spammer.example"}; }},
        {"domain above", true, [](log_filter &f) { f.domains = {"Spammer.Example"}; }},
        {"recipient's domain", true, [](log_filter &f) { f.domains = {"example.net"}; }},
        {"end of a label", false, [](log_filter &f) { f.domains = {"mer.example"}; }},
        {"rule", true, [](log_filter &f) { f.rules = {"from_blacklist"}; }},
        {"other rule", false, [](log_filter &f) { f.rules = {"valid_ptr"}; }},
        {"verdict", true, [](log_filter &f) { f.verdicts = {verdict::reject}; }},
        {"other verdict", false, [](log_filter &f) { f.verdicts = {verdict::accept}; }},
        {"by", true, [](log_filter &f) { f.by = {decided_by::rule}; }},
        {"other by", false, [](log_filter &f) { f.by = {decided_by::rbl}; }},
        {"answer", true, [](log_filter &f) { f.answers = {log_answer::dunno}; }},
        {"other answer", false, [](log_filter &f) { f.answers = {log_answer::reject}; }},
        {"id", true, [](log_filter &f) { f.ids = {"3f2a.7"}; }},
        {"id of the message", true, [](log_filter &f) { f.ids = {"3f2a"}; }},
        {"beginning of an id", false, [](log_filter &f) { f.ids = {"3f2"}; }},
        {"since then", true,
         [](log_filter &f) { f.since = midnight + (4 * 3600 + 51 * 60 + 13) * second + 123; }},
        {"since later", false, [](log_filter &f) { f.since = midnight + day; }},
        {"until then", false,
         [](log_filter &f) { f.until = midnight + (4 * 3600 + 51 * 60 + 13) * second + 123; }},
        {"until later", true, [](log_filter &f) { f.until = midnight + day; }},
        {"all must hold", false,
         [](log_filter &f) {
             f.rules = {"from_blacklist"};
             f.recipients = {"alice@example.net"};
         }},
    };
    const log_record record = read(sample());
    const std::string line = line_of(sample());
    for (const auto &c : cases) {
        log_filter filter;
        c.set(filter);
        EXPECT_EQ(passes(filter, record), c.want) << c.name;
        EXPECT_TRUE(!c.want || line_sieve(filter).may_pass(line)) << c.name;
    }
}

TEST(log_filter, without_a_time_no_time_fits) {
    decision_record record = sample();
    record.time.clear();
    log_filter filter;
    filter.since = 0;
    EXPECT_FALSE(passes(filter, read(record)));
}

// What the sieve holds back would not have passed: any filter against any record.
TEST(log_filter, the_sieve_holds_nothing_back_that_passes) {
    std::mt19937 chance(7);
    const auto any_of = [&chance](auto... texts) {
        const std::vector<std::string> all{texts...};
        return all[chance() % all.size()];
    };
    const auto address = [&] {
        return any_of("", "a@b.example", "A@B.example", "a@x.b.example", "\"q\\u\"@b.example",
                      "\xff@b.example", "\xc3\xa9@b.example", "a", "b.example");
    };
    unsigned passed = 0;
    unsigned held_back = 0;
    for (int i = 0; i < 20'000; ++i) {
        decision_record record = sample();
        record.id = any_of("1", "1.2", "12", "1.2.3");
        record.transaction.ip = any_of("192.0.2.9", "192.0.20.9", "2001:db8::1", "", "x");
        record.transaction.sender = address();
        record.transaction.recipient = address();
        record.decision.is = static_cast<verdict>(chance() % 3);
        record.decision.rule = any_of("", "from_blacklist", "valid_ptr");
        log_filter filter;
        if (chance() % 3 == 0) {
            filter.clients = {*read_client_network(
                any_of("192.0.2.0/24", "192.0.2.9", "192.0.0.0/18", "0.0.0.0/0", "2001:db8::/32"))};
        }
        if (chance() % 2 == 0) {
            filter.senders = {any_of("<>", "@b.example", "a@b.EXAMPLE", "\"q\\u\"@b.example",
                                     "\xff@b.example", "\xc3\xa9@b.example", "@", "a")};
        }
        if (chance() % 3 == 0) {
            filter.domains = {any_of("b.example", "example", "\"", "")};
        }
        if (chance() % 3 == 0) {
            filter.ids = {any_of("1", "1.2", "")};
        }
        if (chance() % 3 == 0) {
            filter.verdicts = {static_cast<verdict>(chance() % 3)};
        }
        if (chance() % 3 == 0) {
            filter.rules = {any_of("", "from_blacklist")};
        }
        const std::string line = line_of(record);
        const bool may_pass = line_sieve(filter).may_pass(line);
        const bool does = passes(filter, read(record));
        EXPECT_TRUE(may_pass || !does) << line;
        passed += does;
        held_back += !may_pass;
    }
    EXPECT_GT(passed, 100u);
    EXPECT_GT(held_back, 100u);
}

// --- files --------------------------------------------------------------------------------------

constexpr char log_path[] = "c:/quillfence/log";

class log_rotation : public ::testing::Test {
  protected:
    std::vector<std::string> names() {
        std::vector<std::string> all = rotated_logs(log_path);
        for (std::string &one : all) {
            EXPECT_TRUE(one.starts_with(log_path)) << one;
            one.erase(0, strlen(log_path));
        }
        return all;
    }
    drive_c drive;
};

TEST_F(log_rotation, the_oldest_first) {
    using list = std::vector<std::string>;
    EXPECT_EQ(names(), list{""});
    for (const char *name : {"log", "log.1", "log.2.gz", "log.10.gz", "log.9.xz", "log-20261121.gz",
                             "log-20261120", "log.bak", "log.1.tmp", "log2", "logs.1", "other.1",
                             "log.", "log-", "log.1.gz.tmp", "log-2026"}) {
        drive.write(std::string("c:/quillfence/") + name, "x\n");
    }
    EXPECT_EQ(names(), (list{"-20261120", "-20261121.gz", ".10.gz", ".9.xz", ".2.gz", ".1", ""}));
}

TEST_F(log_rotation, each_file_once) {
    drive.write("c:/quillfence/log", "new\n");
    drive.write("c:/quillfence/log.1", "old\n");
    const auto paths = [](const opened_logs &logs) {
        std::vector<std::string> all;
        for (const opened_log &one : logs.files) {
            all.push_back(one.path);
        }
        return all;
    };
    const std::vector<std::string> both = {"c:/quillfence/log.1", "c:/quillfence/log"};
    EXPECT_EQ(paths(open_logs({log_path}, true)), both);
    EXPECT_EQ(paths(open_logs({log_path, "c:/quillfence/log.1"}, true)), both) << "by the shell";
    EXPECT_EQ(paths(open_logs({log_path, "c:\\quillfence\\log"}, false)),
              std::vector<std::string>{"c:\\quillfence\\log"})
        << "one file by two names";
}

TEST_F(log_rotation, a_log_that_is_about_to_be_made_anew) {
    drive.write("c:/quillfence/log.1", "old\n");
    const opened_logs logs = open_logs({log_path}, true);
    EXPECT_EQ(logs.failed, "");
    ASSERT_EQ(logs.files.size(), 1u);
    EXPECT_EQ(logs.files.front().path, "c:/quillfence/log.1");
    const opened_logs alone = open_logs({log_path}, false);
    EXPECT_EQ(alone.failed, log_path);
    EXPECT_EQ(alone.error, static_cast<uint32_t>(platform::error_file_not_found));
}

// --- sums ---------------------------------------------------------------------------------------

TEST(log_tally, hours_are_the_newest_in_any_order) {
    std::vector<int> order(100);
    for (int i = 0; i < 100; ++i) {
        order[static_cast<size_t>(i)] = i;
    }
    std::shuffle(order.begin(), order.end(), std::mt19937(3));
    log_tally tally;
    for (const int hour : order) {
        log_record record;
        record.at = midnight + hour * 3600 * second + 1;
        tally.add(record);
        tally.add(record);
    }
    ASSERT_EQ(tally.hours().size(), log_tally::most_hours);
    EXPECT_EQ(tally.hours().begin()->first, midnight + 76 * 3600 * second);
    for (const auto &[at, counts] : tally.hours()) {
        EXPECT_EQ(counts.all(), 2u);
    }
    EXPECT_EQ(tally.days().size(), 5u);
    EXPECT_EQ(tally.oldest(), midnight + 1);
    EXPECT_EQ(tally.newest(), midnight + 99 * 3600 * second + 1);
}

TEST(log_tally, what_the_block_lists_said) {
    const auto asked = [](block_list_answer answer, const char *rcode, double ms) {
        decision_record record = sample();
        dns_block_list_record list;
        list.zone = "rbl.example";
        list.answer = answer;
        list.dns = {1};
        record.dns_block_lists = {list};
        dns_record question;
        question.type = "A";
        question.rcode = rcode;
        question.is = answer_class::no_name;
        question.ms = ms;
        record.dns = {question, question};
        record.dns[1].n = 1;
        return read(record);
    };
    log_tally tally;
    tally.add(asked(block_list_answer::listed, "NOERROR", 10));
    tally.add(asked(block_list_answer::not_listed, "NXDOMAIN", 20));
    tally.add(asked(block_list_answer::not_listed, "REFUSED", 30)); // the engine sees no name there
    tally.add(asked(block_list_answer::refused, "NOERROR", 40));
    tally.add(asked(block_list_answer::no_listing, "NOERROR", 50));
    tally.add(asked(block_list_answer::failed, "SERVFAIL", 60));
    ASSERT_EQ(tally.lists().size(), 1u);
    const list_health &list = tally.lists().at("rbl.example");
    EXPECT_EQ(list.asked, 6u);
    EXPECT_EQ(list.listed, 1u);
    EXPECT_EQ(list.not_listed, 1u);
    EXPECT_EQ(list.refused, 2u);
    EXPECT_EQ(list.no_listing, 1u);
    EXPECT_EQ(list.failed, 1u);
    EXPECT_EQ(list.times.count, 6u);
    EXPECT_EQ(list.times.sum, 210);
    EXPECT_EQ(list.times.longest, 60);
    EXPECT_EQ(tally.questions().at("A").asked, 12u);
    EXPECT_EQ(tally.questions().at("A").refused, 2u);
}

TEST(log_tally, its_memory_is_bounded) {
    log_tally tally;
    const long before = live_allocations();
    for (int i = 0; i < 5000; ++i) {
        log_record record;
        record.at = i * day;
        record.decision.rule = "rule" + std::to_string(i);
        dns_block_list_record list;
        list.zone = "zone" + std::to_string(i);
        list.answer = block_list_answer::listed;
        record.dns_block_lists = {list};
        dns_record question;
        question.type = "TYPE" + std::to_string(i);
        record.dns = {question};
        tally.add(record);
    }
    EXPECT_EQ(tally.lists().size(), log_tally::most_zones);
    EXPECT_EQ(tally.questions().size(), log_tally::most_words);
    EXPECT_EQ(tally.decisions().size(), log_tally::most_words);
    EXPECT_EQ(tally.days().size(), log_tally::most_days);
    EXPECT_LT(live_allocations() - before, 20'000);
    EXPECT_EQ(tally.all().all(), 5000u);
}

} // namespace
} // namespace quillfence::testing
